#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "workload.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Tavro::Bench {

// A SQLite database in memory. Its functions throw std::runtime_error with SQLite's own message.
class Sqlite {
 public:
  // One prepared statement. Must not outlive its database.
  class Statement {
   public:
    Statement(Sqlite& database, const std::string& text);

    // Parameters and columns are numbered from 0.
    void bind(int index, std::int64_t value);
    void bind(int index, double value);
    // True when there is a row; then it is to be called again.
    bool step();
    // Binds the values, runs the statement to its end and readies it for another run.
    template <typename... Values>
    void run(const Values&... values) {
      int index = 0;
      (bind(index++, values), ...);
      runToEnd();
    }
    std::int64_t integer(int column) const;
    double real(int column) const;

   private:
    void runToEnd();

    struct Finalise {
      void operator()(sqlite3_stmt* statement) const;
    };
    sqlite3* database_;
    std::unique_ptr<sqlite3_stmt, Finalise> statement_;
  };

  Sqlite();

  Statement prepare(const std::string& text) { return {*this, text}; }
  // One or more statements that yield nothing.
  void execute(const std::string& text);
  // The answer of a query with an integer, then a real column.
  Answer answerOf(const std::string& query);

 private:
  struct Close {
    void operator()(sqlite3* database) const;
  };
  std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace Tavro::Bench
