#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tavro::Tool {

enum class ExitStatus : int {
  Done = 0,
  RunFailed = 1,
  WrongCommandLine = 2,
};

// Ends the command with one line on standard error, which is `what()`, and a status.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& line);

  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

// A place in a file; both count from 1, columns in bytes.
struct Position {
  std::size_t line = 1;
  std::size_t column = 1;
};

// The program, its data or its run failed: "tvop: TEXT".
[[noreturn]] void fail(const std::string& text);
// The same with the place: "FILE:LINE:COLUMN: error: TEXT".
[[noreturn]] void failAt(const std::string& file, Position at, const std::string& text);
// The command line was wrong: "tvop: TEXT" and which command's help to read.
[[noreturn]] void failCommandLine(const std::string& text, const std::string& command = "tvop run");
// A file could not be opened, read or written, for the reason in `errno`.
[[noreturn]] void failOnFile(const std::string& file);

// Says on standard error, in one line, that something has failed which does not end the process: "tvop:
// TEXT".
void report(const std::string& text);

// `text` fit for one line: control characters as escapes, what is very long cut.
std::string oneLine(std::string_view text);

}  // namespace Tavro::Tool
