// Helpers shared by the lexer's tests: a lexer made as the parse export makes it, and whole
// sources scanned into (kind, text) lists.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "lexer/scanner.h"
#include "lexer/source_reader.h"
#include "lexer/tokens.h"

struct ScannedToken {
    int32_t kind;
    std::string text;
};

bool operator==(const ScannedToken& left, const ScannedToken& right);
void PrintTo(const ScannedToken& token, std::ostream* out);

// A lexer over a padded copy of `source` (up to its first NUL), first token scanned.
Lexer* NewTestLexer(const std::string& source, const char* fileName = "file.js");

// The tokens of `source` up to, not including, LEX_EOF.
std::vector<ScannedToken> ScanAll(const std::string& source);

// Scans the whole source and returns the CompileException's text, or "" when none was raised.
std::string ScanError(const std::string& source, const char* fileName = "file.js");

// A lexer over ";" + `rest`: after the ';' token its current character is the first of `rest`,
// decoded and with a \u escape resolved, as every later stage sees it.
Lexer* LexerAfterSemicolon(const std::string& rest);

// The text of the current token.
std::string TokenText(const Lexer* lexer);
