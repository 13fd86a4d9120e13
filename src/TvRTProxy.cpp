#include "Tavro/TvRTProxy.h"

#include <sys/stat.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "Tavro/TvRTDebug.h"
#include "Tavro/TvRTLoader.h"
#include "Tavro/tvExceptions.h"

namespace Tavro::TvRT {

namespace {

constexpr const char* sourceName = "TvRTProxy";
constexpr len_t unknownRowType = 65535;

Kelpo::DebugHandler* const proxyDebugHandler = Kelpo::Platform::getDebugHandler("Proxy");

const Proxy::Parameters noParameters;

std::mutex registrationMutex;

// The bit of a table in the masks of ready and expected inputs: a shift of a signed 32-bit number, widened
// with its sign, so that tables from 31 on share bits.
std::uint64_t maskBit(len_t index) {
  const auto bit = static_cast<std::int32_t>(std::uint32_t{1} << (index % 32U));
  return static_cast<std::uint64_t>(std::int64_t{bit});
}

template <typename Write>
void traceEvent(int line, const char* function, const Write& write) {
  Kelpo::trace(proxyDebugHandler, traceEvents, sourceName, line, function, write);
}

unsigned int classRowType(const std::string& name) {
  const BaseRow metadata = TavroDB::tvClass(name);
  return metadata.isNull() ? unknownRowType : loadBytes<std::uint32_t>(metadata.rowBuf() + tv_classIdOffset);
}

}  // namespace

TvPtr<Proxy> Proxy::factory(const std::string& path, bool standing) {
  return factoryImpl(path, noParameters, standing);
}

TvPtr<Proxy> Proxy::factory(const std::string& path, const Parameters& params, bool standing) {
  return factoryImpl(path, params, standing);
}

TvPtr<Proxy> Proxy::factoryImpl(const std::string& path, const Parameters& params, bool standing) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) throw std::invalid_argument(path + " does not exist.");
  Loader loader(getTavroDb(), path, params);
  OwnedContext context(loader.load());
  for (auto info = context->tbisBegin(); info != context->tbisEnd(); ++info) {
    if (*info == nullptr) continue;
    const BaseRow checksLength((*info)->len);
    (*info)->rowType = classRowType((*info)->name);
  }
  context->clearRow(0);
  auto proxy = std::make_shared<Proxy>(context.get(), params, standing);
  Context* const hosted = context.release();
  proxy->init(path, hosted);
  hosted->setProxy(proxy.get());
  return proxy;
}

Proxy::Proxy(Context* operatorContext, bool isStanding) : Proxy(operatorContext, noParameters, isStanding) {}

Proxy::Proxy(Context* operatorContext, const Parameters& params, bool isStanding)
    : context(operatorContext), paramMap(params), standing(isStanding) {}

Proxy::~Proxy() {
  if (context != nullptr) DeleteContext()(context);
  for (TvTableInterface* const interface : inputs) delete interface;
  delete output;
}

void Proxy::init(const std::string& /*path*/, Context* /*context*/) {
  context->toEntry("init");
  context->execute();
  db = getTavroDb();
}

void Proxy::enable() {
  TableBindInfo* const outInfo = context->outTable();
  const auto tables = static_cast<std::size_t>(context->tbisEnd() - context->tbisBegin());
  inputs.resize(tables);
  rowIters.resize(tables);
  for (auto info = context->inputTablesBegin(); info != context->inputTablesEnd(); ++info) {
    if (*info == nullptr || (*info)->index == 0) continue;
    const len_t index = (*info)->index;
    expectedMask |= maskBit(index);
    // Every input uses the ready entry of input 1.
    inputs[index] = newInput(**info, context->onReadyWC(1));
    rowIters[index].isInput = true;
    const std::string key = pathKeyKey(*info);
    db->bindInterface(*inputs[index], pathKey(key), false);
    observers[key] = inputs[index];
  }
  const std::string outKey = pathKeyKey(outInfo);
  constexpr void (Proxy::*noRowHandler)(const BaseRow&) = nullptr;
  output = new TvTableInterface(outKey + "-Output", outInfo->alias, TvTableInterface::writeMode, this,
                                &Proxy::outputReady, noRowHandler, noRowHandler, &Proxy::outputBlock);
  applyParameters();
  context->replaceRow(context->paramRowIndex(), context->parameterRow());
  context->replaceRow(context->tempRowIndex(), context->temporaryRow());
  db->bindInterface(*output, pathKey(outKey), false);
}

TvTableInterface* Proxy::newInput(TableBindInfo& info, len_t readyEntry) {
  const len_t index = info.index;
  TvTableInterface::RowHandler row;
  TvTableInterface::RowHandler del;
  if (standing) {
    row = [this, index](const BaseRow& arrived) { onRow(index, arrived); };
    del = [this, index](const BaseRow& gone) { onDel(index, gone); };
  }
  return new TvTableInterface(
      pathKeyKey(&info) + "-Input", info.alias, TvTableInterface::readMode,
      [this, index, readyEntry] { onReady(index, readyEntry); }, row, del, TvTableInterface::BlockHandler());
}

void Proxy::applyParameters() {
  const auto columns = context->parameterColumns();
  for (const auto& [name, column] : columns) {
    const auto given = paramMap.find(name);
    if (given == paramMap.end()) continue;
    const bool isString = column.tvType() == TypeString;
    context->setParameter(name, isString ? "\"" + given->second + "\"" : given->second);
  }
}

void Proxy::paramMapIs(const Parameters& params) { paramMap = params; }

std::string Proxy::pathKey(const std::string& key) {
  const auto path = paramMap.find(key);
  return path == paramMap.end() ? key : path->second;
}

std::string Proxy::pathKeyKey(TableBindInfo* info) { return info->name + "." + info->alias; }

TvTableInterface* Proxy::observer(const std::string& key) { return observers[key]; }

void Proxy::lockReg() { registrationMutex.lock(); }

void Proxy::unlockReg() { registrationMutex.unlock(); }

template <typename Tell>
void Proxy::forEachInput(const Tell& tell) {
  for (TvTableInterface* const interface : inputs)
    if (interface != nullptr) tell(*interface);
}

void Proxy::onReady(len_t index, len_t entry) {
  traceEvent(__LINE__, "onReady", [&](std::ostream& text) {
    text << "void Tavro::TvRT::Proxy::onReady(Tavro::len_t, Tavro::len_t)"
         << " input " << index << " marked as ready";
  });
  readyMask |= maskBit(index);
  if ((expectedMask & ~readyMask) != 0) return;
  forEachInput([](TvTableInterface& interface) { interface.activate(true); });
  if (entry != 0 && context->execute(entry) != Context::Ready) return;
  if (!outputBlocked) finish();
}

void Proxy::finish() {
  if (standing) {
    Kelpo::trace(proxyDebugHandler, traceDetail, sourceName, __LINE__, "finish",
                 [](std::ostream& text) { text << " end of onReady input for standing query"; });
    forEachInput([](TvTableInterface& interface) { interface.activate(false); });
  } else {
    constexpr int line = __LINE__;
    Kelpo::trace(proxyDebugHandler, traceDetail, sourceName, line, "finish", [](std::ostream& text) {
      text << sourceName << ":" << line << " end of onReady input for oneShot query";
    });
    insertRow(BaseRow());
  }
}

void Proxy::onRow(len_t index, const BaseRow& row) {
  traceEvent(__LINE__, "onRow", [index](std::ostream& text) {
    text << "void Tavro::TvRT::Proxy::onRow(Tavro::len_t, const Tavro::BaseRow&)" << index;
  });
  const len_t entry = context->onRowWC(index);
  // A context that is not ready refuses, before the row reaches its slot: a suspended run still reads the row
  // that stands there.
  if (context->runState() != Context::Ready) context->execute(entry);
  context->replaceRow(index, row);
  if (entry != 0) context->execute(entry);
  snapshotStats();
}

void Proxy::onDel(len_t index, const BaseRow& row) {
  traceEvent(__LINE__, "onDel", [&](std::ostream& text) {
    text << "void Tavro::TvRT::Proxy::onDel(Tavro::len_t, const Tavro::BaseRow&)" << index;
  });
  deleteRow(row, 0);
  snapshotStats();
}

void Proxy::outputReady() {
  traceEvent(__LINE__, "outputReady", [](std::ostream& text) {
    text << "void Tavro::TvRT::Proxy::outputReady()"
         << ": readying all input observers for query";
  });
  forEachInput([](TvTableInterface& interface) { interface.clientReadyIs(true); });
}

void Proxy::outputBlock(bool blocked) {
  traceEvent(__LINE__, "outputBlock", [&](std::ostream& text) {
    text << "void Tavro::TvRT::Proxy::outputBlock(bool)"
         << ": blocking notification = " << (blocked ? "BLOCKED" : "UNBLOCKED");
  });
  outputBlocked = blocked;
  const bool suspended = context->runState() == Context::Suspended;
  if (blocked) {
    if (!suspended) forEachInput([](TvTableInterface& interface) { interface.deactivate(true); });
    return;
  }
  if (suspended) {
    if (context->resume() != Context::Ready || outputBlocked) return;
  } else if (context->runState() != Context::Ready) {
    return;
  }
  finish();
}

void Proxy::throwNoInput(len_t index, const char* what) {
  throw std::out_of_range("attempt to index non-existent " + std::string(what) + ": " +
                          std::to_string(index));
}

TvTableInterface& Proxy::input(len_t index, const char* what) const {
  if (index >= inputs.size() || inputs[index] == nullptr) throwNoInput(index, what);
  return *inputs[index];
}

void Proxy::throwNoOutput() { throw std::out_of_range("attempt to index non-existent table: 0"); }

inline void Proxy::typeKey(len_t index, BaseRow& key) const {
  const TableBindInfo* const info = context->tableBindInfo(index);
  key.rowTypeIs(info == nullptr ? unknownRowType : static_cast<len_t>(info->rowType));
}

BaseRow Proxy::fetchRow(len_t index, BaseRow key, len_t indexNum) {
  BaseRow row;
  find(index, key, indexNum, row);
  return row;
}

bool Proxy::find(len_t index, BaseRow& key, len_t indexNum, BaseRow& row) {
  const TvTableInterface& table = input(index, "input row");
  typeKey(index, key);
  return table.findRow(key, static_cast<unsigned char>(indexNum), row);
}

void Proxy::lower_bound(len_t index, BaseRow key, len_t indexNum) {
  const TvTableInterface& table = input(index, "input row");
  typeKey(index, key);
  VtiCtrl& cursor = rowIters[index];
  cursor.iter = table.lower_bound(key, static_cast<unsigned char>(indexNum));
  cursor.indexNum = indexNum;
}

void Proxy::begin(len_t index, len_t indexNum) {
  const TvTableInterface& table = input(index, "input row");
  VtiCtrl& cursor = rowIters[index];
  cursor.iter = table.begin(static_cast<unsigned char>(indexNum));
  cursor.indexNum = indexNum;
}

BaseRow Proxy::nextRow(len_t index) {
  BaseRow row;
  cursor(index).next(row);
  return row;
}

void Proxy::insertRow(BaseRow& row) { tableOut().rowIs(row); }

void Proxy::deleteRow(const BaseRow& row, len_t) { tableOut().rowDel(row); }

void Proxy::snapshotStats() {
  totalInstructions += static_cast<std::uint64_t>(context->getInstCount());
  totalTime += static_cast<std::uint64_t>(context->getTimeDuration());
}

long long Proxy::getTimeDuration() { return static_cast<long long>(std::exchange(totalTime, 0)); }

long long Proxy::getTotalInstructionsExecuted() {
  return static_cast<long long>(std::exchange(totalInstructions, 0));
}

BaseRow prepDelRange(Context* context, len_t index, const BaseRow& row, bool upper) {
  if (row.isNull()) return BaseRow();
  const len_t entry = context->projRowWC(index, upper);
  if (entry == 0) return row;
  context->replaceRow(index, row);
  context->execute(entry);
  return context->outputRow();
}

}  // namespace Tavro::TvRT
