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

// Objects that are taken, given back and taken again, with what memory they have. All belong to the pool.
template <typename T>
class Pool {
 public:
  T* take() {
    if (free_.empty()) return &all_.emplace_back();
    T* const taken = free_.back();
    free_.pop_back();
    return taken;
  }
  void giveBack(T* object) { free_.push_back(object); }

 private:
  std::deque<T> all_;
  std::vector<T*> free_;
};

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

// Turns assembly text into tokens. Lives within a ScannerMemory. The parser sets `yylval` before each call;
// names, numbers and strings arrive there as texts, which the parser gives back.
class Lexer : public yyFlexLexer {
 public:
  using Text = std::string;
  using List = std::vector<std::string>;

  explicit Lexer(std::istream& in) : yyFlexLexer(&in, nullptr) {}

  int yylex() override;

  // A list of one text, which is given back.
  List* newList(Text* first) {
    List* const list = lists_.take();
    list->clear();
    append(list, first);
    return list;
  }
  // Puts a text at the end of a list, and gives it back.
  void append(List* list, Text* text) {
    list->push_back(*text);
    texts_.giveBack(text);
  }
  void giveBack(Text* text) { texts_.giveBack(text); }
  void giveBack(List* list) { lists_.giveBack(list); }

  Parser::semantic_type* yylval = nullptr;

 private:
  Text* newText(std::string_view bytes) {
    Text* const text = texts_.take();
    text->assign(bytes);
    return text;
  }

  Pool<Text> texts_;
  Pool<List> lists_;
};

}  // namespace Asm
