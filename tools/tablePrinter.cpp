#include "tablePrinter.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "failure.h"
#include "tableFile.h"

namespace Tavro::Tool {

namespace {

constexpr std::size_t outputBlock = std::size_t{64} * 1024;

void appendCell(std::string& line, std::string_view text) {
  if (text.find_first_of("\",\r\n") == std::string_view::npos) {
    line += text;
    return;
  }
  line += '"';
  for (const char c : text) {
    if (c == '"') line += '"';
    line += c;
  }
  line += '"';
}

}  // namespace

void TablePrinter::printHeader(std::string_view mark) {
  beginLine(mark);
  bool first = true;
  for (const tvMetadata::tvColumn& column : table_.columns()) {
    if (!std::exchange(first, false)) line_ += ',';
    line_.append(column.columnName()).append(" ").append(typeText(column));
    if (column.isKey()) line_ += " key";
  }
  endLine();
}

void TablePrinter::printRow(std::string_view mark, const BaseRow& row) {
  beginLine(mark);
  bool first = true;
  for (const tvMetadata::tvColumn& column : table_.columns()) {
    if (!std::exchange(first, false)) line_ += ',';
    appendCell(line_, columnToString(row, column.offset(), column.tvType(), column.isArray(), false));
  }
  endLine();
}

void TablePrinter::beginLine(std::string_view mark) {
  line_ = mark;
  if (!mark.empty()) line_ += ',';
}

void TablePrinter::endLine() {
  // Many readers take an empty line for no record at all.
  if (line_.empty()) line_ = "\"\"";
  line_ += '\n';
  // A failure is found by flushOutput.
  std::fwrite(line_.data(), 1, line_.size(), stdout);
}

void bufferOutput() {
  if (isatty(STDOUT_FILENO) == 0) std::setvbuf(stdout, nullptr, _IOFBF, outputBlock);
}

void flushOutput() {
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) failOnFile("standard output");
}

}  // namespace Tavro::Tool
