#include "csvReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Tavro::Tool {

namespace {

constexpr std::size_t blockSize = std::size_t{256} * 1024;

const char* findByte(const char* from, const char* to, char byte) {
  return static_cast<const char*>(std::memchr(from, byte, static_cast<std::size_t>(to - from)));
}

std::string_view between(const char* from, const char* to) {
  return {from, static_cast<std::size_t>(to - from)};
}

// The end of a line's last cell: a carriage return before the line end is part of the line end.
const char* withoutCarriageReturn(const char* from, const char* to) {
  return to != from && to[-1] == '\r' ? to - 1 : to;
}

}  // namespace

// Where a record with quotes has been read to.
struct CsvReader::Cursor {
  const char* at;
  const char* end;
  Position position;

  void advance(const char* to) {
    position.column += static_cast<std::size_t>(to - at);
    at = to;
  }
  // The same over bytes that may hold line ends.
  void advanceOverLines(const char* to) {
    for (const char* newline = findByte(at, to, '\n'); newline != nullptr; newline = findByte(at, to, '\n')) {
      at = newline + 1;
      ++position.line;
      position.column = 1;
    }
    advance(to);
  }
};

CsvReader::CsvReader(const std::string& path)
    : name_(path), descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)), owned_(true), buffer_(blockSize) {
  if (descriptor_ < 0) failOnFile(path);
}

CsvReader::CsvReader(int descriptor, std::string name)
    : name_(std::move(name)), descriptor_(descriptor), owned_(false), buffer_(blockSize) {}

CsvReader::~CsvReader() {
  if (owned_) close(descriptor_);
}

bool CsvReader::next() {
  if (!started_) skipByteOrderMark();
  for (;;) {
    const char* const first = buffer_.data() + begin_;
    const char* const end = buffer_.data() + end_;
    const char* const newline = findByte(first, end, '\n');
    if (newline != nullptr || (atEnd_ && first != end)) {
      const char* const lineEnd = newline != nullptr ? newline : end;
      if (findByte(first, lineEnd, '"') == nullptr) return readPlainRecord(lineEnd);
      if (readQuotedRecord()) return true;
    } else if (atEnd_) {
      return false;
    }
    fill();
  }
}

// Reads more bytes behind those that are there; false when the file has no more.
bool CsvReader::fill() {
  if (begin_ != 0) {
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
              buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ > buffer_.size() / 2) buffer_.resize(2 * buffer_.size());
  if (beforeWaiting_) beforeWaiting_();
  ssize_t count = 0;
  do {
    count = read(descriptor_, buffer_.data() + end_, buffer_.size() - end_);
  } while (count < 0 && errno == EINTR);
  if (count < 0) failOnFile(name_);
  end_ += static_cast<std::size_t>(count);
  atEnd_ = count == 0;
  return !atEnd_;
}

void CsvReader::skipByteOrderMark() {
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  started_ = true;
  while (end_ < mark.size() && mark.starts_with(between(buffer_.data(), buffer_.data() + end_)) && fill()) {
  }
  if (!between(buffer_.data(), buffer_.data() + end_).starts_with(mark)) return;
  begin_ = mark.size();
  columnsSkipped_ = mark.size();
}

bool CsvReader::readPlainRecord(const char* lineEnd) {
  const char* const first = buffer_.data() + begin_;
  const char* const textEnd = withoutCarriageReturn(first, lineEnd);
  cells_.clear();
  const char* cell = first;
  for (;;) {
    const char* const comma = findByte(cell, textEnd, ',');
    const std::size_t column = static_cast<std::size_t>(cell - first) + 1 + columnsSkipped_;
    cells_.push_back({between(cell, comma != nullptr ? comma : textEnd), {line_, column}});
    if (comma == nullptr) break;
    cell = comma + 1;
  }
  begin_ = std::min(end_, static_cast<std::size_t>(lineEnd - buffer_.data()) + 1);
  ++line_;
  columnsSkipped_ = 0;
  return true;
}

// Reads a record cell by cell; false when its end has not been read yet.
bool CsvReader::readQuotedRecord() {
  cells_.clear();
  doubled_.clear();
  Cursor cursor{buffer_.data() + begin_, buffer_.data() + end_, {line_, 1 + columnsSkipped_}};
  for (;;) {
    const bool quoted = cursor.at != cursor.end && *cursor.at == '"';
    if (!(quoted ? readQuotedCell(cursor) : readPlainCell(cursor))) return false;
    if (cursor.at == cursor.end || *cursor.at == '\n') break;
    cursor.advance(cursor.at + 1);
  }
  for (const std::size_t index : doubled_) {
    std::string_view& text = cells_[index].text;
    char* const first = buffer_.data() + (text.data() - buffer_.data());
    bool firstOfPair = false;
    char* const last = std::remove_if(first, first + text.size(), [&firstOfPair](char c) {
      firstOfPair = c == '"' && !firstOfPair;
      return firstOfPair;
    });
    text = between(first, last);
  }
  begin_ = std::min(end_, static_cast<std::size_t>(cursor.at - buffer_.data()) + 1);
  line_ = cursor.position.line + 1;
  columnsSkipped_ = 0;
  return true;
}

bool CsvReader::readPlainCell(Cursor& cursor) {
  const Position at = cursor.position;
  const char* const cell = cursor.at;
  const char* const stop =
      std::find_if(cell, cursor.end, [](char c) { return c == ',' || c == '\n' || c == '"'; });
  if (stop == cursor.end && !atEnd_) return false;
  if (stop != cursor.end && *stop == '"') failAt(at, "a quote within a cell that does not begin with one");
  const bool last = stop == cursor.end || *stop == '\n';
  cells_.push_back({between(cell, last ? withoutCarriageReturn(cell, stop) : stop), at});
  cursor.advance(stop);
  return true;
}

bool CsvReader::readQuotedCell(Cursor& cursor) {
  const Position at = cursor.position;
  const char* const text = cursor.at + 1;
  const char* quote = nullptr;
  bool doubled = false;
  for (const char* from = text;; from = quote + 2) {
    quote = findByte(from, cursor.end, '"');
    if (quote == nullptr) {
      if (atEnd_) failAt(at, "the cell's quotes are not closed");
      return false;
    }
    if (quote + 1 == cursor.end || quote[1] != '"') break;
    doubled = true;
  }
  const char* stop = quote + 1;
  if (stop != cursor.end && *stop == '\r' && (stop + 1 == cursor.end || stop[1] == '\n')) ++stop;
  if (stop == cursor.end && !atEnd_) return false;
  if (stop != cursor.end && *stop != ',' && *stop != '\n') failAt(at, "text behind the cell's closing quote");
  if (doubled) doubled_.push_back(cells_.size());
  cells_.push_back({between(text, quote), at});
  cursor.advanceOverLines(quote);
  cursor.advance(stop);
  return true;
}

}  // namespace Tavro::Tool
