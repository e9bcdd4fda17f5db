// The token scanner.
#pragma once

#include "lexer/source_reader.h"

// Scans one token into the lexer's tokenKind, previousKind, tokenText and tokenPosition. A plain
// token (ASCII, no escape, no carriage return, no comment before it) is read from the source bytes
// at once; any other goes through ScanTokenByCharacters.
void ScanToken(Lexer* lexer);
// The same, stepping through the source character by character: decoding, escapes and line
// breaks as they come. Leaves exactly what ScanToken leaves.
void ScanTokenByCharacters(Lexer* lexer);
