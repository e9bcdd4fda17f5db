// The source reader: UTF-8 decoding (with its shift of 7 for long forms), positions, \u escapes
// and character classes.
#pragma once

#include <cstdint>

#include "support/arena.h"
#include "support/diagnostics.h"
#include "support/strings.h"

struct Lexer {
    SourcePosition position;        // the current position
    const uint8_t* readPtr;         // next undecoded byte
    const uint8_t* nextStart;       // first byte of the look-ahead character
    const uint8_t* currentStart;    // first byte of the current character
    const uint8_t* end;             // one past the last source byte
    int64_t length;                 // source length in bytes
    int32_t tokenKind;
    int32_t previousKind;
    SourcePosition tokenPosition;   // line and column of the current token's start
    RefString** tokenText;          // handle to the current token's text
    uint32_t current;               // code point of the current character, 0 at the end
    uint32_t next;                  // code point of the look-ahead character, 0 at the end
    uint32_t reserved;
    Arena* nodes;                   // the tree's nodes, their positions and the token texts' records
    Arena* texts;                   // the token texts
    StringBuilder scratch;          // where a token's text is collected; freed when parsing ends
    Arena ownNodes;                 // the arenas of a lexer that was given none
    Arena ownTexts;
};

// Makes the lexer over a source copy that is padded with zero bytes, primes the two
// characters and scans the first token (which may report an error). The tree and the token
// texts go into `nodes` and `texts`, which the library shares among all scripts.
Lexer* MakeLexer(RefString* source, RefString* fileName, Arena& nodes, Arena& texts);
// The same with arenas of the lexer's own.
Lexer* MakeLexer(RefString* source, RefString* fileName);
// Frees what only scanning needs (the token text builder); the lexer itself stays with the tree.
void EndLexing(Lexer* lexer);
// Zero bytes kept after the source copy, so decoding may read past the end safely.
constexpr uint32_t kSourcePadding = 8;

void Advance(Lexer* lexer);
void ResolveEscape(Lexer* lexer);
// Appends a code point in the extended UTF-8 form (1 to 6 bytes).
void AppendCodePoint(StringBuilder& builder, uint32_t codePoint);

// utf8proc's general category numbering; code points beyond the tables are Cn (0).
int32_t CharacterCategory(uint32_t codePoint);
bool IsWhitespace(uint32_t codePoint);
bool IsIdentifierStart(uint32_t codePoint);
bool IsIdentifierPart(uint32_t codePoint);
bool IsDecimalDigit(uint32_t codePoint);
bool IsHexDigit(uint32_t codePoint);
bool IsOctalDigit(uint32_t codePoint);
// The value of a decimal, hexadecimal or (by the same rule) octal digit character.
uint32_t HexDigitValue(uint32_t digit);
