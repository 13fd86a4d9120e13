/* Tokens of the assembly language. A NEWLINE token covers a whole run of line ends with the blank and comment
   lines between them, since the grammar takes exactly one between two statements. */
%{
#include <sstream>
#include <string_view>

#include "TvRTLdrLexer.h"
#include "Tavro/tvExceptions.h"

namespace {

using Token = Asm::Parser::token;

// The string that is being gathered. One for the process: a text that ends inside a string leaves what it has
// gathered to the next string that any scanner finishes.
std::stringstream stringBuffer;

}  // namespace

// A backslash in a string that no double quote follows matches no rule: the scanner jams, and ends the process.
#define YY_EXIT_FAILURE 2
%}

%option c++ yyclass="Asm::Lexer" noyywrap nodefault nounput batch
%option never-interactive nowarn full 8bit

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
<IN_STRING>[^\t\n"\\]                     { stringBuffer.put(*yytext); }
<IN_STRING>\n                             { stringBuffer << '\n'; }
<IN_STRING>\t                             { stringBuffer << '\t'; }
<IN_STRING>\\\"                           { stringBuffer << '"'; }
<IN_STRING>\"                             { yylval->text = newText(stringBuffer.view()); stringBuffer.str(""); BEGIN(INITIAL); return Token::STRING; }
">"                                       { return Token::GREATER; }
"<"                                       { return Token::LESS; }
","                                       { return Token::COMMA; }
[A-Za-z_.][A-Za-z0-9_.]*                  { yylval->text = newText({yytext, static_cast<std::size_t>(yyleng)}); return Token::NAME; }
.                                         { throw Tavro::TvRT::TvAssemblyException(std::string("Parse error: unrecognized input \"") + *yytext + "\""); }

%%
