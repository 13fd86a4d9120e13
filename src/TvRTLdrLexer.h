#pragma once

#if !defined(yyFlexLexerOnce)
#include <FlexLexer.h>
#endif

#include <istream>

#include "TvRTLdrParser.h"

namespace Asm {

// Turns assembly text into tokens. The parser sets `yylval` before each call and owns the strings that arrive
// there.
class Lexer : public yyFlexLexer {
 public:
  explicit Lexer(std::istream& in) : yyFlexLexer(&in, nullptr) {}

  int yylex() override;

  Parser::semantic_type* yylval = nullptr;
};

}  // namespace Asm
