#include "Tavro/TvRTContext.h"

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <utility>

#include "Tavro/TvRTValueIter.h"
#include "Tavro/tvExceptions.h"

namespace Tavro::TvRT {

namespace {

constexpr const char* sourceName = "TvRTContext";
constexpr const char* executeSignature = "Tavro::TvRT::Context::ContextState Tavro::TvRT::Context::execute()";

template <typename... Parts>
[[noreturn, gnu::cold, gnu::noinline]] void endProcess(Parts... parts) {
  std::cout.flush();
  (std::cerr << ... << parts) << std::endl;
  std::exit(1);
}

}  // namespace

long long getTime() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

Kelpo::DebugHandler* Context::__kelpoDebug::getHandler() {
  static Kelpo::DebugHandler* const hdl = Kelpo::Platform::getDebugHandler("Context");
  return hdl;
}

Context::Context(TvPtr<TavroDB> databaseHandle) : database(std::move(databaseHandle)) { setIterCount(0); }

Context::~Context() {
  for (const ValueIterBase* const iterator : valueIters) delete iterator;
}

void Context::setProxy(Proxy* hostingProxy) { proxy = hostingProxy; }

void Context::clear(bool full) {
  if (full) {
    stream.clear();
    entries.clear();
    rowEntries.clear();
    stringTable.clear();
  }
  stream.programCounterIs(0);
  stack.clear();
}

Context::ContextState Context::execute() {
  running = true;
  for (PlainOutcome outcome(OpOk, stream.programCounter());;) {
    // Asked anew for every instruction: a level may be turned on while a program runs. And the handlers with
    // trace sites mind where they read, which those without do not behind the stream.
    if (!Kelpo::DebugHandler::anyLevelOn() && stream.isPlain(outcome)) [[likely]]
      outcome = stream.executePlain(*this, outcome.pc());
    else if (outcome.goesOn())
      outcome = executeTraced();
    else
      return outcome.result() == OpOk ? Ready : endRun(outcome);
  }
}

PlainOutcome Context::executeTraced() {
  const len_t ppc = stream.programCounter();
  const OpResult result = stream.executeAtPC(*this);
  if (result != OpOk) return {result, ppc};
  Kelpo::trace(debug.handler(), traceDetail, sourceName, __LINE__, "execute", executeSignature,
               " ppc: ", ppc);
  return {OpOk, stream.programCounter(), running};
}

Context::ContextState Context::endRun(PlainOutcome outcome) {
  const OpResult result = outcome.result();
  if (result == OpSuspend)
    stream.programCounterIs(static_cast<len_t>(stream.programCounter() - IStream::handlerSlotWidth));
  Kelpo::trace(debug.handler(), traceFailures, sourceName, __LINE__, "execute", [&](std::ostream& text) {
    text << executeSignature << " instruction failed at " << outcome.endedAt() << ":"
         << static_cast<int>(result);
  });
  if (result == OpFailed) return state = Failed;
  if (result == OpSuspend) return state = Suspended;
  throw TvOutOfRange("Unexpected result" + std::to_string(static_cast<int>(result)));
}

template <Trace trace>
inline void Context::enter(len_t label) {
  if constexpr (trace == Trace::On)
    Kelpo::trace(debug.handler(), traceEvents, sourceName, __LINE__, "execute", [&](std::ostream& text) {
      const auto name = entryNames.find(label);
      text << "Entry -> " << (name == entryNames.end() ? "???" : name->second);
    });
  if (state != Ready) [[unlikely]]
    throwNotReady();
  if (!gotoOp<trace>(label)) [[unlikely]]
    endProcess("unknown starting point: ", label);
  lastEntry = label;
}

void Context::enterTraced(len_t label) { enter<Trace::On>(label); }

Context::ContextState Context::execute(len_t label) {
  if (Kelpo::DebugHandler::anyLevelOn()) [[unlikely]]
    enterTraced(label);
  else
    enter<Trace::Off>(label);
  return execute();
}

void Context::throwNotReady() const {
  throw TvTableFull("Context not ready, state = " + std::to_string(static_cast<int>(state)));
}

Context::ContextState Context::resume() {
  if (state == Ready)
    throw TvTableFull("Context not suspended, state = " + std::to_string(static_cast<int>(state)));
  Kelpo::trace(debug.handler(), traceFailures, sourceName, __LINE__, "resume",
               [&](std::ostream& text) { text << "Resuming @ " << stream.programCounter(); });
  state = Ready;
  return execute();
}

void Context::toEntry(const std::string& name) {
  Kelpo::trace(debug.handler(), traceDetail, sourceName, __LINE__, "toEntry", [&](std::ostream& text) {
    text << "void Tavro::TvRT::Context::toEntry(const string&)" << name;
  });
  if (!gotoOp(static_cast<len_t>(entries[name]))) endProcess("unknown entry point: ", name);
}

len_t Context::translateEntry(const std::string& name) const {
  const auto entry = entries.find(name);
  if (entry == entries.end()) return 0;
  const auto label = static_cast<len_t>(entry->second);
  Kelpo::trace(debug.handler(), traceDetail, sourceName, __LINE__, "translateEntry", [&](std::ostream& text) {
    text << "Tavro::len_t Tavro::TvRT::Context::translateEntry(const string&)" << name << " at " << label;
  });
  return label;
}

len_t Context::setEntryPoint(const std::string& name) {
  const len_t label = stream.addLabel();
  entries[name] = label;
  entryNames[label] = name;
  rowEntries.clear();
  return label;
}

std::string Context::entryName(len_t label) const {
  const auto name = entryNames.find(label);
  return name == entryNames.end() ? "" : name->second;
}

void Context::call(len_t label) {
  returnStack.push_back(stream.programCounter());
  if (!gotoOp(label)) endProcess("bad call target at istream offset ", label);
}

void Context::returnOp() {
  if (returnStack.empty()) return halt();
  const len_t offset = returnStack.back();
  returnStack.pop_back();
  if (unsigned{offset} + IStream::handlerSlotWidth > stream.maxLoc()) {
    std::cout << "bad goto target; iStream Max: " << stream.maxLoc() << " target: " << offset << std::endl;
    endProcess("bad return target at istream offset: ", offset);
  }
  stream.programCounterIs(offset);
}

}  // namespace Tavro::TvRT
