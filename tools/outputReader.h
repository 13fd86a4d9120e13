#pragma once

#include <cstddef>
#include <cstdio>

#include "Tavro/database.h"
#include "processEnd.h"
#include "tablePrinter.h"

namespace Tavro::Tool {

// Reads the output table of a run like any other client of it, and prints what comes: for a one-shot query
// the rows inserted up to the end-of-data mark, for a standing query every change with its sign.
class OutputReader {
 public:
  // Connects to the table, past the rows that are in it.
  OutputReader(TavroDB& database, const Table& table, bool standing);
  OutputReader(const OutputReader&) = delete;
  OutputReader& operator=(const OutputReader&) = delete;

  void printHeader() { printer_.printHeader(standing_ ? "op" : ""); }
  // Prints what the table still holds for this reader; for when the scheduler does not run any more.
  void drain();

  bool ended() const { return ended_; }
  std::size_t rowsOut() const { return rowsOut_; }
  std::size_t deletions() const { return deletions_; }

 private:
  void insertedIs(const BaseRow& row);
  void deletedIs(const BaseRow& row);

  TablePrinter printer_;
  bool standing_;
  bool ended_ = false;
  std::size_t rowsOut_ = 0;
  std::size_t deletions_ = 0;
  TvTableInterface reader_;
  // What was inserted until then has been printed, whatever ends the process.
  AtProcessEnd atProcessEnd_{[this] {
    drain();
    std::fflush(stdout);
  }};
};

}  // namespace Tavro::Tool
