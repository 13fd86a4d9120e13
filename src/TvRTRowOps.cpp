#include <cstdlib>
#include <iostream>
#include <memory>
#include <utility>

#include "Tavro/TvRTDebug.h"
#include "Tavro/TvRTIndexRowOps.h"
#include "Tavro/TvRTLoader.h"

namespace Tavro::TvRT {

namespace {

constexpr const char* sourceName = "TvRTRowOps";
constexpr len_t firstOperand = 1;
constexpr len_t secondOperand = 2;

void traceRun(int line, const char* function, const char* name, len_t entry) {
  Kelpo::trace(tvRtOpKelpoDebugHandler_, traceEvents, sourceName, line, function,
               [&](std::ostream& text) { text << name << "( " << entry << " )"; });
}

}  // namespace

RowOps::RowOps(unsigned short index, bool unique, bool ordered, const std::string& path, TvPtr<TavroDB> db)
    : indexNum(index), uniqueFlag(unique), orderedFlag(ordered) {
  Loader loader(std::move(db), path, {});
  OwnedContext loaded(loader.load());
  if (loaded == nullptr) {
    std::cerr << "Failed to load tva: " << path << std::endl;
    std::exit(1);
  }
  loaded->execute(loaded->translateEntry("init"));
  hashEntry = loaded->translateEntry("hash");
  equalsEntry = loaded->translateEntry("equals");
  lessEntry = loaded->translateEntry("less");
  autoUpdateEntry = loaded->translateEntry("autoUpdate");
  context = loaded.release();
}

RowOps::~RowOps() { DeleteContext()(context); }

void RowOps::run(len_t entry) {
  context->execute(entry);
  snapshotStats();
}

unsigned int RowOps::hash(const BaseRow& row) {
  context->replaceRow(firstOperand, row);
  traceRun(__LINE__, "hash", "HashRowOp", hashEntry);
  run(hashEntry);
  context->replaceRow(firstOperand, BaseRow());
  return static_cast<unsigned int>(context->stackR().pop<unsigned long long>().value);
}

bool RowOps::compare(const char* name, const char* function, int line, len_t entry, const BaseRow& a,
                     const BaseRow& b) {
  context->replaceRow(firstOperand, a);
  context->replaceRow(secondOperand, b);
  traceRun(line, function, name, entry);
  run(entry);
  context->replaceRow(firstOperand, BaseRow());
  context->replaceRow(secondOperand, BaseRow());
  return context->stackR().pop<bool>().value != 0;
}

bool RowOps::equals(const BaseRow& a, const BaseRow& b) {
  return compare("EqualsRowOp", "equals", __LINE__, equalsEntry, a, b);
}

bool RowOps::less(const BaseRow& a, const BaseRow& b) {
  return compare("LessRowOp", "less", __LINE__, lessEntry, a, b);
}

void RowOps::autoUpdate(BaseRow& current, const BaseRow& incoming) {
  context->swapRow(firstOperand, current);
  context->replaceRow(secondOperand, incoming);
  traceRun(__LINE__, "autoUpdate", "AutoUpdateRowOp", autoUpdateEntry);
  run(autoUpdateEntry);
  context->swapRow(firstOperand, current);
  context->replaceRow(secondOperand, BaseRow());
}

void RowOps::snapshotStats() { totalInstructions += static_cast<std::uint64_t>(context->getInstCount()); }

long long RowOps::getTotalInstructionsExecuted() {
  return static_cast<long long>(std::exchange(totalInstructions, 0));
}

TvPtr<RowOpsBase> genTvRtRowOps(unsigned short index, bool unique, bool ordered, const std::string& path) {
  return std::make_shared<RowOps>(index, unique, ordered, path, getTavroDb());
}

}  // namespace Tavro::TvRT
