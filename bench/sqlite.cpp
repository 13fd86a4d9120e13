#include "sqlite.h"

#include <sqlite3.h>

#include <stdexcept>

namespace Tavro::Bench {

namespace {

void require(bool ok, sqlite3* database) {
  if (!ok) throw std::runtime_error(std::string("SQLite: ") + sqlite3_errmsg(database));
}

}  // namespace

void Sqlite::Close::operator()(sqlite3* database) const { sqlite3_close(database); }

Sqlite::Sqlite() {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open(":memory:", &opened);
  database_.reset(opened);
  require(result == SQLITE_OK, opened);
}

void Sqlite::execute(const std::string& text) {
  require(sqlite3_exec(database_.get(), text.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
          database_.get());
}

Answer Sqlite::answerOf(const std::string& query) {
  Answer answer;
  Statement rows = prepare(query);
  while (rows.step()) answer.add(static_cast<std::uint64_t>(rows.integer(0)), rows.real(1));
  return answer;
}

void Sqlite::Statement::Finalise::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Sqlite::Statement::Statement(Sqlite& database, const std::string& text)
    : database_(database.database_.get()) {
  sqlite3_stmt* prepared = nullptr;
  require(sqlite3_prepare_v2(database_, text.c_str(), -1, &prepared, nullptr) == SQLITE_OK, database_);
  statement_.reset(prepared);
}

void Sqlite::Statement::bind(int index, std::int64_t value) {
  require(sqlite3_bind_int64(statement_.get(), index + 1, value) == SQLITE_OK, database_);
}

void Sqlite::Statement::bind(int index, double value) {
  require(sqlite3_bind_double(statement_.get(), index + 1, value) == SQLITE_OK, database_);
}

bool Sqlite::Statement::step() {
  const int result = sqlite3_step(statement_.get());
  require(result == SQLITE_ROW || result == SQLITE_DONE, database_);
  return result == SQLITE_ROW;
}

void Sqlite::Statement::runToEnd() {
  while (step()) {
  }
  require(sqlite3_reset(statement_.get()) == SQLITE_OK, database_);
}

std::int64_t Sqlite::Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

double Sqlite::Statement::real(int column) const { return sqlite3_column_double(statement_.get(), column); }

}  // namespace Tavro::Bench
