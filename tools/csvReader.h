#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"

namespace Tavro::Tool {

// One cell of a record, without its quotes; `at` is the place of its first byte, a quote included.
struct CsvCell {
  std::string_view text;
  Position at;
};

// Reads CSV records from a file as they come, each as soon as its line is complete: comma, double quotes,
// doubled quotes inside of them, LF or CRLF. An empty line is a record with one empty cell. A byte order mark
// is skipped.
class CsvReader {
 public:
  // Opens a file. Throws Failure when it cannot be opened.
  explicit CsvReader(const std::string& path);
  // Reads from an open descriptor, which is not closed; `name` stands for it in messages.
  CsvReader(int descriptor, std::string name);
  CsvReader(const CsvReader&) = delete;
  CsvReader& operator=(const CsvReader&) = delete;
  ~CsvReader();

  // Called whenever the next record needs bytes that may have to be waited for.
  void waitHandlerIs(std::function<void()> handler) { beforeWaiting_ = std::move(handler); }

  // Reads the next record; false at the end of the file. The cells stay valid until the next call. Throws
  // Failure on quotes that stand wrong and on a file that cannot be read.
  bool next();
  // The cells of the record last read, at least one.
  const std::vector<CsvCell>& cells() const { return cells_; }

  // How the file is called in messages.
  const std::string& name() const { return name_; }

  // Ends with "NAME:LINE:COLUMN: error: TEXT".
  [[noreturn]] void failAt(Position at, const std::string& text) const { Tool::failAt(name_, at, text); }

 private:
  struct Cursor;

  bool fill();
  bool readPlainRecord(const char* lineEnd);
  bool readQuotedRecord();
  bool readQuotedCell(Cursor& cursor);
  bool readPlainCell(Cursor& cursor);
  void skipByteOrderMark();

  std::string name_;
  int descriptor_;
  bool owned_;
  std::function<void()> beforeWaiting_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  // of the next record
  std::size_t end_ = 0;    // of what has been read
  bool atEnd_ = false;     // nothing comes behind end_
  bool started_ = false;
  std::size_t line_ = 1;
  std::size_t columnsSkipped_ = 0;
  std::vector<CsvCell> cells_;
  // Cells of the present record in which a doubled quote stands for one.
  std::vector<std::size_t> doubled_;
};

}  // namespace Tavro::Tool
