#pragma once

#include <string>
#include <string_view>

#include "Tavro/database.h"

namespace Tavro::Tool {

// Prints rows of one table as CSV on standard output.
class TablePrinter {
 public:
  // The table is not owned and has to outlive the printer.
  explicit TablePrinter(const Table& table) : table_(table) {}

  // The line that declares the columns. `mark` is a cell before all others; none if it is empty.
  void printHeader(std::string_view mark);
  void printRow(std::string_view mark, const BaseRow& row);

 private:
  void beginLine(std::string_view mark);
  void endLine();

  const Table& table_;
  std::string line_;
};

// Gathers what is printed in large blocks, where nobody sits before it.
void bufferOutput();
// Hands on what has been printed so far. Throws Failure when it cannot be written.
void flushOutput();

}  // namespace Tavro::Tool
