#include "lua.h"

#include <lua.hpp>
#include <stdexcept>

namespace Tavro::Bench {

void Lua::Close::operator()(lua_State* state) const { lua_close(state); }

Lua::Lua() : state_(luaL_newstate()) {
  if (state_ == nullptr) throw std::runtime_error("Lua: no memory for a state");
}

void Lua::require(bool ok) {
  if (!ok) throw std::runtime_error(std::string("Lua: ") + lua_tostring(state_.get(), -1));
}

void Lua::loadFile(const std::string& path) { require(luaL_loadfile(state_.get(), path.c_str()) == LUA_OK); }

void Lua::loadText(const std::string& text) {
  require(luaL_loadbuffer(state_.get(), text.data(), text.size(), "=text") == LUA_OK);
}

void Lua::push(long long value) { lua_pushinteger(state_.get(), value); }
void Lua::push(double value) { lua_pushnumber(state_.get(), value); }

void Lua::callPushed(int argumentCount, int resultCount) {
  require(lua_pcall(state_.get(), argumentCount, resultCount, 0) == LUA_OK);
}

long long Lua::integer(int result) const { return lua_tointeger(state_.get(), result + 1); }
double Lua::real(int result) const { return lua_tonumber(state_.get(), result + 1); }

}  // namespace Tavro::Bench
