// Lexer and recursive-descent parser of the equation language.
//
// Precedence, loosest first: || (or), && (and), comparisons (< <= > >= ==
// != <>), + -, * /, unary - + ! (not), ^ (right-associative, its exponent
// may carry a sign). Numbers take every C form (decimal, exponent, hex and
// hex float, octal, suffixes u l f). Identifiers are variables (an id
// followed by "[-k]", k a number, is one variable: the node k time slices
// earlier), or calls when followed by '('. Positions are 0-based character
// offsets.
#pragma once

#include <string>
#include <vector>

#include "equations/expression.h"

class VEK_functionSet;
struct VEK_userFunction;

class VEK_exprParser {
public:
    // An expression over any variables; user calls resolve through functions
    // (may be null).
    [[nodiscard]] static int Parse(const std::string& text, const VEK_functionSet* functions, VEK_expression& out, int& errorPos,
                     std::string& message);
    // "lhs = rhs".
    [[nodiscard]] static int ParseEquation(const std::string& text, const VEK_functionSet* functions, VEK_expression& lhs,
                             VEK_expression& rhs, int& errorPos, std::string& message);
    // "name(a, b) = body", the body using only the parameters.
    [[nodiscard]] static int ParseFunction(const std::string& text, const VEK_functionSet& functions, VEK_userFunction& out,
                             int& errorPos, std::string& message);
};
