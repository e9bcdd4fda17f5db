// The token scanner.
#pragma once

#include "lexer/source_reader.h"

// Scans one token into the lexer's tokenKind, previousKind, tokenText and tokenPosition.
void ScanToken(Lexer* lexer);
