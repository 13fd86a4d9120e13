#pragma once

#include <memory>
#include <string>

struct lua_State;

namespace Tavro::Bench {

// A Lua state that holds one chunk and, after a call, its results. Functions throw std::runtime_error with
// Lua's own message.
class Lua {
 public:
  Lua();

  // Compiles a chunk, which `call` then runs once.
  void loadFile(const std::string& path);
  void loadText(const std::string& text);

  // Calls the chunk with the arguments; results are numbered from 0.
  template <typename... Arguments>
  void call(int resultCount, const Arguments&... arguments) {
    (push(arguments), ...);
    callPushed(static_cast<int>(sizeof...(arguments)), resultCount);
  }
  long long integer(int result) const;
  double real(int result) const;

 private:
  void require(bool ok);
  void push(long long value);
  void push(double value);
  void callPushed(int argumentCount, int resultCount);

  struct Close {
    void operator()(lua_State* state) const;
  };
  std::unique_ptr<lua_State, Close> state_;
};

}  // namespace Tavro::Bench
