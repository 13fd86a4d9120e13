#include "outputReader.h"

namespace Tavro::Tool {

OutputReader::OutputReader(TavroDB& database, const Table& table, bool standing)
    : printer_(table),
      standing_(standing),
      reader_(
          table.name() + "-Print", "", TvTableInterface::readMode, {},
          [this](const BaseRow& row) { insertedIs(row); }, [this](const BaseRow& row) { deletedIs(row); },
          {}) {
  reader_.endHandlerIs([this] { ended_ = true; });
  database.bindInterface(reader_, table.name(), false);
  reader_.activate(true);
  reader_.activate(false);
  reader_.clientReadyIs(true);
}

void OutputReader::drain() {
  while (reader_.runOnce()) {
  }
}

void OutputReader::insertedIs(const BaseRow& row) {
  ++rowsOut_;
  printer_.printRow(standing_ ? "+" : "", row);
}

void OutputReader::deletedIs(const BaseRow& row) {
  ++deletions_;
  if (standing_) printer_.printRow("-", row);
}

}  // namespace Tavro::Tool
