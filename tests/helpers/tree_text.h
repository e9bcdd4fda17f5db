// Compact renderings of syntax trees for test assertions.
//
// A node prints as its label, then its children in parentheses separated by commas:
// `a - b - c` is `-(-(a,b),c)`. Labels: identifiers and numbers print their text, strings
// their text in single quotes, single-character kinds the character, operators their
// spelling (`==`, `&&`, `=>`, `+=`), keywords in upper case (`IF`, `VAR`, `NEW`), and the
// parser's own kinds as `POST++`, `POST--`, `UNDEFINED`, `ELISION`, `GETTER`, `SETTER`,
// `OBJECT`, `ARRAY`; other kinds as `#` and the number. When a node's text is not the one its
// kind normally carries, it follows the label in double quotes: `TRUE";"`, `NEW"/a/g"`.
#pragma once

#include <cstddef>
#include <string>

#include "parser/node.h"
#include "parser/parser.h"
#include "veltjs.h"

std::string TreeText(const Node* node);
// The root's statements, separated by one space.
std::string StatementsText(const Node* root);

// The outcome of VeltJS_Parse on a source.
struct ParseResult {
    CompileUnit* unit;
    Parser* parser;        // null when the parse failed
    std::string tree;      // StatementsText of the root when it succeeded (and is not very deep)
    std::string error;     // the message when it failed, else empty
};

ParseResult ParseSource(const std::string& source, const char* fileName = "f");
// Tree text of a source that must parse, or the error text prefixed by "ERROR ".
std::string Parsed(const std::string& source);
// Deepest chain of first-or-later children below `node` (a leaf has depth 1); iterative.
size_t TreeDepth(const Node* node);
