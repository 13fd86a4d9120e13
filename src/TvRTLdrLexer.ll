/* Tokens of the assembly language. A NEWLINE token covers a whole run of line ends with the blank and comment
   lines between them, since the grammar takes exactly one between two statements. */
%{
#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "TvRTLdrLexer.h"
#include "Tavro/tvExceptions.h"

namespace {

using Token = Asm::Parser::token;

// The string that is being gathered. One for the process: a text that ends inside a string leaves what it has
// gathered to the next string that any scanner finishes.
std::string stringBuffer;

// What fails for want of memory leaves nothing behind.
void gather(char byte) {
  try {
    stringBuffer += byte;
  } catch (...) {
    stringBuffer.clear();
    throw;
  }
}

// The bytes that a name goes on with.
constexpr auto isNameByte = [] {
  std::array<bool, 256> isOne{};
  for (const char byte : std::string_view("0123456789_.ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"))
    isOne[static_cast<unsigned char>(byte)] = true;
  return isOne;
}();

}  // namespace

// A backslash in a string that no double quote follows matches no rule: the scanner jams, and ends the process.
#define YY_EXIT_FAILURE 2
%}

%option c++ yyclass="Asm::Lexer" noyywrap nodefault nounput batch
%option never-interactive nowarn full 8bit
%option noyyalloc noyyrealloc noyyfree

BLANK         [ \t]
LINE_COMMENT  "//"[^\n]*
BLOCK_COMMENT "/*"([^*]|\*+[^*/])*\*+"/"
COMMENT       {LINE_COMMENT}|{BLOCK_COMMENT}
EOLS          ({BLANK}*\n)+

%x IN_STRING

%%

{BLANK}+                                  { }
({COMMENT})+                              { }
{EOLS}(({BLANK}*({COMMENT}))+{EOLS})+     { return Token::NEWLINE; }
{EOLS}                                    { return Token::NEWLINE; }
[0-9]+|0x[0-9a-fA-F]+                     { yylval->text = newText({yytext, static_cast<std::size_t>(yyleng)}); return Token::NUMBER; }
\"                                        { BEGIN(IN_STRING); }
<IN_STRING>[^\t\n"\\]                     { gather(*yytext); }
<IN_STRING>\n                             { gather('\n'); }
<IN_STRING>\t                             { gather('\t'); }
<IN_STRING>\\\"                           { gather('"'); }
<IN_STRING>\"                             { yylval->text = newText(strings_.emplace_back(std::exchange(stringBuffer, {}))); BEGIN(INITIAL); return Token::STRING; }
">"{BLANK}*                               { return Token::GREATER; }
"<"                                       { return Token::LESS; }
","{BLANK}*                               { return Token::COMMA; }
[A-Za-z_.]                                { yyless(lengthOfName()); yylval->text = newText({yytext, static_cast<std::size_t>(yyleng)}); return Token::NAME; }
.                                         { throw Tavro::TvRT::TvAssemblyException(std::string("Parse error: unrecognized input \"") + *yytext + "\""); }

%%

void* yyalloc(yy_size_t size) { return Asm::ScannerMemory::current().allocate(size); }
void* yyrealloc(void* block, yy_size_t size) { return Asm::ScannerMemory::current().reallocate(block, size); }
void yyfree(void* block) { Asm::ScannerMemory::release(block); }

namespace {

// What stands behind the text in a buffer, and is not counted in its size.
constexpr int endMarks = 2;
constexpr int maxBufferSize = std::numeric_limits<int>::max() - endMarks;

void enlarge(yy_buffer_state& buffer) {
  if (buffer.yy_buf_size > maxBufferSize / 2) throw std::bad_alloc();
  buffer.yy_buf_size *= 2;
  const auto size = static_cast<std::size_t>(buffer.yy_buf_size + endMarks);
  buffer.yy_ch_buf = static_cast<char*>(yyrealloc(buffer.yy_ch_buf, size));
}

}  // namespace

namespace Asm {

// The scanner moves what it has read whenever it reads on, and no view would stay. So it gets all of the text
// before it begins, as a buffer that is not to be filled again.
Lexer::Lexer(std::istream& in) : yyFlexLexer(&in, nullptr) {
  // With room for a byte more than there are, so that the end is found without another buffer.
  const std::streamsize expected = in.rdbuf()->in_avail() + 1;
  const bool isUsable = expected > YY_BUF_SIZE && expected <= maxBufferSize;
  yy_buffer_state* const buffer = yy_create_buffer(in, isUsable ? static_cast<int>(expected) : YY_BUF_SIZE);
  int& length = buffer->yy_n_chars;
  for (int count = 0; (count = LexerInput(buffer->yy_ch_buf + length, buffer->yy_buf_size - length)) != 0;) {
    if (count < 0) LexerError("input in flex scanner failed");
    length += count;
    if (length == buffer->yy_buf_size) enlarge(*buffer);
  }
  std::fill_n(buffer->yy_ch_buf + length, endMarks, char{YY_END_OF_BUFFER_CHAR});
  // A text takes two bytes, with what sets it off from the one before. The first and one too many take one.
  texts_.reserve(static_cast<std::size_t>(length) / 2 + 2);
  buffer->yy_buf_pos = buffer->yy_ch_buf;
  buffer->yy_fill_buffer = 0;
  yy_switch_to_buffer(buffer);
}

// For each byte the tables take a load that waits for the one before. Most bytes are those of names, which are
// measured without: `yyless` lengthens a match as it shortens one, since all of the text is at hand.
int Lexer::lengthOfName() const {
  const auto isGoingOn = [](char byte) { return isNameByte[static_cast<unsigned char>(byte)]; };
  // In the place of the byte behind the match stands the scanner's mark.
  if (!isGoingOn(yy_hold_char)) return 1;
  const char* end = yytext + 2;
  while (isGoingOn(*end)) ++end;
  return static_cast<int>(end - yytext);
}

thread_local ScannerMemory* ScannerMemory::current_ = nullptr;

ScannerMemory::~ScannerMemory() {
  while (first_.next != &first_) release(first_.next + 1);
  current_ = former_;
}

void* ScannerMemory::link(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  auto* const block = static_cast<Block*>(memory);
  *block = {first_.next, &first_};
  block->next->previous = first_.next = block;
  return block + 1;
}

void* ScannerMemory::allocate(std::size_t size) { return link(std::malloc(sizeof(Block) + size)); }

void* ScannerMemory::reallocate(void* payload, std::size_t size) {
  Block* const block = static_cast<Block*>(payload) - 1;
  void* const moved = std::realloc(static_cast<void*>(block), sizeof(Block) + size);
  if (moved == nullptr) throw std::bad_alloc();
  auto* const kept = static_cast<Block*>(moved);
  kept->next->previous = kept->previous->next = kept;
  return kept + 1;
}

void ScannerMemory::release(void* payload) noexcept {
  if (payload == nullptr) return;
  Block* const block = static_cast<Block*>(payload) - 1;
  block->previous->next = block->next;
  block->next->previous = block->previous;
  std::free(block);
}

}  // namespace Asm
