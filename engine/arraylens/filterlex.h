// The words of a filter: the lexer that turns its text into tokens, each
// with its column in characters, for the parser in filter.cpp.
#pragma once

#include "result.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace arraylens::filtertext {

enum class Tok {
    Number,
    Value,
    Class,
    Abs,
    LParen,
    RParen,
    Plus,
    Minus,
    Star,
    Slash,
    Cmp,
    And,
    Or,
    Not,
    End,
};

enum class CmpOp { Eq, Ne, Lt, Le, Gt, Ge };

struct Token {
    Tok kind;
    std::size_t column; // from 1
    std::string text;
    CmpOp cmp = CmpOp::Eq;
    unsigned classMask = 0;
    bool isInt = false;
    __int128 i = 0;
    double d = 0;
    long double ld = 0;
};

// "Filter error at column N: <what>."
Error filterError(std::size_t column, const std::string& what);

// "The filter is nested too deeply (more than 256 levels)."
Error tooDeepError();

// A token's text as a message quotes it: cut after about 80 characters.
std::string shown(std::string_view text);

// Tokens of s, the last one End; or the first word that cannot be read.
// Columns count characters from 1. Parentheses opened, or negations in a
// row, beyond the parser's nesting limit are refused here already, before
// a long text is turned into tokens.
std::optional<Error> lex(std::string_view s, std::vector<Token>& out);

} // namespace arraylens::filtertext
