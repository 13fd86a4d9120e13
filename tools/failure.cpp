#include "failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Tavro::Tool {

namespace {

constexpr std::size_t longestLine = 1000;

void appendEscaped(std::string& line, char c) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  if (c == '\n') {
    line += "\\n";
  } else if (byte < 0x20 || byte == 0x7F) {
    line += "\\x";
    line += digits[byte >> 4];
    line += digits[byte & 0x0F];
  } else {
    line += c;
  }
}

}  // namespace

std::string oneLine(std::string_view text) {
  std::string line;
  for (const char c : text.substr(0, longestLine)) appendEscaped(line, c);
  if (text.size() > longestLine) line += "...";
  return line;
}

Failure::Failure(ExitStatus status, const std::string& line)
    : std::runtime_error(oneLine(line)), status_(status) {}

void report(const std::string& text) { std::fprintf(stderr, "%s\n", oneLine("tvop: " + text).c_str()); }

void fail(const std::string& text) { throw Failure(ExitStatus::RunFailed, "tvop: " + text); }

void failAt(const std::string& file, Position at, const std::string& text) {
  throw Failure(ExitStatus::RunFailed,
                file + ':' + std::to_string(at.line) + ':' + std::to_string(at.column) + ": error: " + text);
}

void failCommandLine(const std::string& text, const std::string& command) {
  throw Failure(ExitStatus::WrongCommandLine, "tvop: " + text + " (see " + command + " --help)");
}

void failOnFile(const std::string& file) { fail(file + ": " + std::strerror(errno)); }

}  // namespace Tavro::Tool
