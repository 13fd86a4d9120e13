#include "Tavro/Kelpo.h"

#include <bit>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>

#include "Tavro/tvAssert.h"

namespace Kelpo {

namespace {

// Neither is ever destroyed: static objects may trace until the very end of the process.
std::mutex& outputMutex() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}

struct Registry {
  std::mutex mutex;
  std::map<std::string, DebugHandler> handlers;
};

Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

constinit std::atomic<int> DebugHandler::levelsOn_{0};

DebugHandler::~DebugHandler() { levelsOn_.fetch_sub(std::popcount(mask()), std::memory_order_relaxed); }

void DebugHandler::flush() {
  const std::lock_guard lock(outputMutex());
  std::cerr.flush();
}

void DebugHandler::log(std::stringstream& text, int level, const char* file, int line, const char* function) {
  std::string whole = category_;
  whole.append(":").append(std::to_string(level)).append(" ").append(file);
  whole.append(":").append(std::to_string(line)).append(" ").append(function);
  whole.append(": ").append(text.view()).append("\n");
  const std::lock_guard lock(outputMutex());
  std::cerr.write(whole.data(), static_cast<std::streamsize>(whole.size())).flush();
}

void DebugHandler::levelIs(int level, bool on) {
  const std::uint32_t bit = std::uint32_t{1} << level;
  const std::uint32_t before =
      on ? mask_.fetch_or(bit, std::memory_order_relaxed) : mask_.fetch_and(~bit, std::memory_order_relaxed);
  const bool wasOn = (before & bit) != 0;
  if (on != wasOn) levelsOn_.fetch_add(on ? 1 : -1, std::memory_order_relaxed);
}

TraceLine::TraceLine() { text_.precision(12); }

TraceLine::~TraceLine() = default;

void TraceLine::log(DebugHandler& handler, int level, const char* source, int line, const char* function) {
  handler.log(text_, level, source, line, function);
}

DebugHandler* Platform::getDebugHandler(const std::string& category) {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  return &known.handlers.try_emplace(category, category).first->second;
}

}  // namespace Kelpo

void Tavro::assertionFailed(const char* condition, const char* function) {
  std::cerr << "Assertion `" << condition << "' failed in " << function << ".\n" << std::flush;
  std::abort();
}
