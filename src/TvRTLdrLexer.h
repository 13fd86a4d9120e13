#pragma once

#if !defined(yyFlexLexerOnce)
#include <FlexLexer.h>
#endif

#include <cstddef>
#include <deque>
#include <istream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "TvRTLdrParser.h"

namespace Asm {

// Owns the memory that the generated scanners of this thread take while it lives. They know no want of memory
// but to end the process; here it is an exception, and what a scanner loses sight of by it is released in the
// end.
class ScannerMemory {
 public:
  ScannerMemory() : former_(std::exchange(current_, this)) {}
  ScannerMemory(const ScannerMemory&) = delete;
  ScannerMemory& operator=(const ScannerMemory&) = delete;
  ~ScannerMemory();

  static ScannerMemory& current() { return *current_; }
  void* allocate(std::size_t size);
  void* reallocate(void* payload, std::size_t size);
  static void release(void* payload) noexcept;

 private:
  // Stands before each payload.
  struct alignas(std::max_align_t) Block {
    Block* next;
    Block* previous;
  };
  void* link(void* memory);

  static thread_local ScannerMemory* current_;
  ScannerMemory* former_;
  Block first_{&first_, &first_};
};

// Turns assembly text into tokens. Lives within a ScannerMemory. The parser sets `yylval` before the first
// call; names, numbers and strings arrive there as texts, each in memory behind the one before, which are the
// parser's until it gives all of them back. What they view stays as long as the scanner.
class Lexer : public yyFlexLexer {
 public:
  // Reads the stream to its end. Throws std::bad_alloc.
  explicit Lexer(std::istream& in);

  int yylex() override;
  void giveBackTexts() { texts_.clear(); }

  Parser::semantic_type* yylval = nullptr;

 private:
  // Of the name that begins with the byte that has just been matched.
  int lengthOfName() const;
  const std::string_view* newText(std::string_view bytes) { return &texts_.emplace_back(bytes); }

  // Has room for all that the text can hold, since they must not move while others follow. What is not used
  // of it is never touched.
  std::vector<std::string_view> texts_;
  // What the strings of the text say. All else is viewed where it was read.
  std::deque<std::string> strings_;
};

}  // namespace Asm
