// The source reader: UTF-8 decoding (with its shift of 7 for long forms), positions, \u escapes
// and character classes.
#pragma once

#include <cstdint>

#include "support/arena.h"
#include "support/diagnostics.h"
#include "support/strings.h"

// The token kinds that index `Lexer::kindTexts`: the characters up to 255 and the named kinds.
constexpr int32_t kKindTextSlots = 320;

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
    // Texts of this parse's tokens that nodes took, for later tokens to share; freed when parsing
    // ends. `madeText` is the current token's record when the scanner made it (it is not shared
    // yet), with its text's length and, for a text short enough to share, its hash; null
    // otherwise.
    SharedTexts sharedTexts;
    RefString* madeText;
    size_t madeLength;
    uint32_t madeHash;
    int32_t madeKind;
    // An operator or keyword has one spelling, so its kind alone finds the record a node took
    // last for it, without hashing or a table: by kind, for the kinds below kKindTextSlots (every
    // operator and keyword, and the characters that are tokens of their own code).
    RefString* kindTexts[kKindTextSlots];
    // `LEX_VAR` nodes made from tokens (MakeTokenNode): every `var` statement's, and any that an
    // expression makes of the keyword (an object literal's key `var`). The compile's hoisting walk
    // takes it as the most `var` statements it can meet (ParsedVarNodesOutsideFunctions).
    uint64_t varTokenNodes;
    // Where ScanPlainToken left the current character, the look-ahead being the byte after it; null
    // before the first such token. Every step moves `currentStart` on, so while it is here nothing
    // has stepped since, and the state is still the one ScanPlainToken set.
    const uint8_t* plainStop;
};

// Makes the lexer over a source copy that is padded with zero bytes, primes the two
// characters and scans the first token (which may report an error). The tree and the token
// texts go into `nodes` and `texts`, which the library shares among all scripts.
Lexer* MakeLexer(RefString* source, RefString* fileName, Arena& nodes, Arena& texts);
// The same with arenas of the lexer's own.
Lexer* MakeLexer(RefString* source, RefString* fileName);
// Frees what only scanning needs (the token text builder, the shared texts' table); the lexer
// itself stays with the tree.
void EndLexing(Lexer* lexer);
// Zero bytes kept after the source copy, so decoding may read past the end safely.
constexpr uint32_t kSourcePadding = 8;

// The three routines below run for nearly every source character, so their common case (an
// ASCII character, no line break, no escape, room in the builder) is inline here and does exactly
// what the out-of-line routine that handles every case does.

// Any character: decoding, line breaks (CR LF reads as LF), the end of the source.
void AdvanceAnyCharacter(Lexer* lexer);
// The current character becomes the look-ahead, and the next one is read.
inline void Advance(Lexer* lexer) {
    const uint8_t* at = lexer->readPtr;
    if (lexer->current != '\n' && lexer->next != '\r' && at < lexer->end && *at < 0x80) {
        lexer->position.offset++;
        lexer->current = lexer->next;
        lexer->currentStart = lexer->nextStart;
        lexer->nextStart = at;
        lexer->next = *at;
        lexer->readPtr = at + 1;
        lexer->position.column++;
        return;
    }
    AdvanceAnyCharacter(lexer);
}

// A backslash that is current: a \u escape there becomes its character.
void ResolveBackslash(Lexer* lexer);
inline void ResolveEscape(Lexer* lexer) {
    if (lexer->current == '\\') ResolveBackslash(lexer);
}

// The room a code point is appended into: the longest extended UTF-8 form is 6 bytes.
constexpr uint32_t kCodePointRoom = 7;
// Appends a code point in the extended UTF-8 form (1 to 6 bytes), growing the builder first when
// fewer than kCodePointRoom bytes are free.
void AppendAnyCodePoint(StringBuilder& builder, uint32_t codePoint);
inline void AppendCodePoint(StringBuilder& builder, uint32_t codePoint) {
    if (codePoint < 0x80 && BuilderRoom(builder) >= kCodePointRoom) {
        builder.text[builder.length++] = static_cast<char>(codePoint);
        builder.text[builder.length] = '\0';
        return;
    }
    AppendAnyCodePoint(builder, codePoint);
}

// An identifier's ASCII run at once: when the current character is an ASCII identifier character,
// appends it and the ASCII identifier characters that follow it in the source, and advances over
// them, exactly as appending the current character and advancing (with the escape check) once for
// each would, and stops with at least the last of them still current, for the caller's
// character-by-character loop to take. Stops wherever that loop could meet anything else: a
// backslash, a line break, a byte beyond ASCII, the end of the source.
void TakeAsciiIdentifierRun(Lexer* lexer, StringBuilder& text);

// utf8proc's general category numbering; code points beyond the tables are Cn (0).
int32_t CharacterCategory(uint32_t codePoint);
// Tab, line feed, vertical tab, form feed, carriage return, space and no-break space.
inline bool IsWhitespace(uint32_t codePoint) {
    return codePoint == ' ' || (codePoint >= 9 && codePoint <= 13) || codePoint == 160;
}
constexpr bool IsDecimalDigit(uint32_t codePoint) { return codePoint >= '0' && codePoint <= '9'; }
constexpr bool IsAsciiLetter(uint32_t codePoint) { return (codePoint | 0x20u) - 'a' < 26u; }
// ASCII letters are the only ASCII characters of the categories Lu, Ll, Lt, Lm, Lo and Nl, and
// the digits the only ones of Nd; '_' is the only ASCII Pc. So ASCII needs no category lookup
// (SourceReader.AsciiClassesAgreeWithTheCategoryLookup); beyond it, the category decides.
bool IsIdentifierStartBeyondAscii(uint32_t codePoint);
bool IsIdentifierPartBeyondAscii(uint32_t codePoint);
inline bool IsIdentifierStart(uint32_t codePoint) {
    if (codePoint < 0x80) return IsAsciiLetter(codePoint) || codePoint == '_' || codePoint == '$';
    return IsIdentifierStartBeyondAscii(codePoint);
}
// IsIdentifierPart of an ASCII character (also the identifier run's byte table).
constexpr bool IsAsciiIdentifierPart(uint32_t codePoint) {
    return IsAsciiLetter(codePoint) || IsDecimalDigit(codePoint) || codePoint == '_' || codePoint == '$';
}
inline bool IsIdentifierPart(uint32_t codePoint) {
    if (codePoint < 0x80) return IsAsciiIdentifierPart(codePoint);
    return IsIdentifierPartBeyondAscii(codePoint);
}
bool IsHexDigit(uint32_t codePoint);
bool IsOctalDigit(uint32_t codePoint);
// The value of a decimal, hexadecimal or (by the same rule) octal digit character.
uint32_t HexDigitValue(uint32_t digit);
