#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Tavro/TvRTProxy.h"
#include "Tavro/database.h"
#include "Tavro/tavroDb.h"
#include "workload.h"

namespace Tavro::Bench {

// The path of a file in bench/programs.
std::string programPath(const std::string& fileName);

// The process's database.
Database& database();
void runUntilIdle();

// A connection of our own to a table.
class Writer : public TvTableInterface {
 public:
  explicit Writer(const Table& table);
};
class Reader : public TvTableInterface {
 public:
  explicit Reader(const Table& table, RowHandler row = {});
};

// An operator out of bench/programs, enabled.
TvPtr<TvRT::Proxy> enabledProgram(const std::string& fileName, bool standing,
                                  const TvRT::Proxy::Parameters& params = {});

// The rows of a table with a uint32_t column, then a double column.
Answer answerOf(const Table& table);

}  // namespace Tavro::Bench
