#include "tables.h"

#include <utility>

namespace Tavro::Bench {

std::string programPath(const std::string& fileName) {
  return std::string(TVOP_BENCH_PROGRAMS "/") + fileName;
}

Database& database() { return getTavroDb()->database(); }

void runUntilIdle() { database().scheduler().runUntilIdle(); }

Writer::Writer(const Table& table) : TvTableInterface("bench writer", "", writeMode, {}, {}, {}, {}) {
  database().bindInterface(*this, table.name());
}

Reader::Reader(const Table& table, RowHandler row)
    : TvTableInterface("bench reader", "", readMode, {}, std::move(row), {}, {}) {
  database().bindInterface(*this, table.name());
}

TvPtr<TvRT::Proxy> enabledProgram(const std::string& fileName, bool standing,
                                  const TvRT::Proxy::Parameters& params) {
  TvPtr<TvRT::Proxy> proxy = TvRT::Proxy::factory(programPath(fileName), params, standing);
  proxy->enable();
  return proxy;
}

Answer answerOf(const Table& table) {
  const len_t idColumn = table.columns()[0].offset();
  const len_t valueColumn = table.columns()[1].offset();
  const Reader reader(table);
  Answer answer;
  const TvRowIterator end = reader.end(0);
  for (TvRowIterator at = reader.begin(0); at != end; ++at) {
    const BaseRow row = *at;
    unsigned int id = 0;
    double value = 0;
    row.getColumn(idColumn, id);
    row.getColumn(valueColumn, value);
    answer.add(id, value);
  }
  return answer;
}

}  // namespace Tavro::Bench
