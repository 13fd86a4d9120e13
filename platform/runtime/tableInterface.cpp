#include <utility>

#include "interfaceState.h"
#include "memoryTable.h"

namespace Tavro {

TvTableInterface::TvTableInterface(const std::string& name, const std::string& /*alias*/, unsigned char mode,
                                   ReadyHandler ready, RowHandler row, RowHandler del, BlockHandler block)
    : Schedulable(name, Kelpo::Platform::getDebugHandler("Scheduler")),
      state_(std::make_unique<InterfaceState>(
          *this, mode,
          InterfaceState::Handlers{std::move(ready), std::move(row), std::move(del), std::move(block), {}})) {
}

TvTableInterface::~TvTableInterface() { InterfaceState::leaveOwner(std::move(state_)); }

void TvTableInterface::activate(bool reading) { state_->activate(reading); }
void TvTableInterface::deactivate(bool /*blocked*/) { state_->deactivate(); }

void TvTableInterface::rowIs(BaseRow& row) { rowIs(BaseRow(row)); }

void TvTableInterface::rowIs(BaseRow&& row) {
  MemoryTable& table = state_->tableToWrite();
  if (row.isNull())
    table.end(*state_);
  else
    table.insert(std::move(row), *state_);
}

void TvTableInterface::rowDel(const BaseRow& row) { state_->tableToWrite().remove(row); }

TvRowIterator TvTableInterface::begin(unsigned char index) const {
  IndexBase& under = state_->table().index(index);
  return under.iteratorAt(under.first());
}

TvRowIterator TvTableInterface::end(unsigned char index) const {
  return state_->table().index(index).iteratorAt(nullptr);
}

TvRowIterator TvTableInterface::find(const BaseRow& key, unsigned char index) const {
  IndexBase& under = state_->table().index(index);
  return under.iteratorAt(under.find(key));
}

bool TvTableInterface::findRow(const BaseRow& key, unsigned char index, BaseRow& row) const {
  const IndexEntry* const found = state_->table().index(index).find(key);
  if (found == nullptr) {
    row = BaseRow();
    return false;
  }
  row = found->row;
  return true;
}

TvRowIterator TvTableInterface::lower_bound(const BaseRow& key, unsigned char index) const {
  IndexBase& under = state_->table().index(index);
  return under.iteratorAt(under.lowerBound(key));
}

void TvTableInterface::endHandlerIs(ReadyHandler end) { state_->endHandlerIs(std::move(end)); }

bool TvTableInterface::runnable() const { return state_->runnable(); }
bool TvTableInterface::runOnce() { return state_->deliver(); }

}  // namespace Tavro
