#include "lexer/scanner.h"

#include <array>
#include <cstring>

#include "lexer/tokens.h"
#include "support/diagnostics.h"
#include "support/strings.h"

static_assert(LEX_DEFAULT < kKindTextSlots, "every named kind has a slot of its own text");

namespace {

constexpr uint32_t kLineFeed = 10;

// Every advance outside string literals resolves a \u escape at the new character.
void Step(Lexer* lexer) {
    Advance(lexer);
    ResolveEscape(lexer);
}

// Appends the current character and steps past it.
void Take(Lexer* lexer, StringBuilder& text) {
    AppendCodePoint(text, lexer->current);
    Step(lexer);
}

// Whether a kind spells its text in more than one way: identifiers, numbers and strings. Any
// other kind stands for its one text (an operator, a keyword, a character that is a token of its
// own code).
bool HasManySpellings(int32_t kind) { return kind == LEX_ID || kind == LEX_STR || kind == LEX_INT || kind == LEX_FLOAT; }

// Whether a kind's one text is kept by kind in `Lexer::kindTexts` rather than among the shared
// texts.
bool IsKeptByKind(int32_t kind) { return kind >= 0 && kind < kKindTextSlots && !HasManySpellings(kind); }

// The key of a token's text among the shared texts: its hash, or for a kind of one spelling the
// kind itself, so that text need not be hashed. The texts are compared either way.
uint32_t SharedTextHash(int32_t kind, const char* text, size_t length) {
    if (HasManySpellings(kind)) return TextHash(text, length);
    return static_cast<uint32_t>(kind) * 0x9E3779B1u;
}

// The record a node took last for the token's text, or null. A kind kept by kind has one spelling
// (every token of it is built from the same characters: an operator's, a keyword's, the one
// character's own), and a kept record's text is never written again (only a record no node took is
// reused in place, and a kept one was taken), so a kept record that is still held is the token's
// text without comparing it (Scanner.EveryKindKeptByKindHasOneSpelling).
RefString* FindTokenText(const Lexer* lexer, int32_t kind, const char* text, size_t length, uint32_t hash) {
    if (IsKeptByKind(kind)) {
        RefString* kept = lexer->kindTexts[kind];
        return kept && kept->text ? kept : nullptr;
    }
    return length <= kSharedTextMax ? FindSharedText(lexer->sharedTexts, text, length, hash) : nullptr;
}

// `length` is the text's strlen.
void StoreToken(Lexer* lexer, int32_t kind, const char* text, size_t length) {
    RefString* previous = *lexer->tokenText;
    bool previousMade = previous && previous == lexer->madeText;
    lexer->madeText = nullptr;
    // A text that a node took is shared with every later token that spells the same: an
    // identifier used a thousand times is one record and one text. A token that no node took
    // (a ')', a ';' ...) leaves its record and text at the arenas' ends, free for the new token's:
    // such tokens cost the tree nothing. Only a record made for the token is given back, never a
    // shared one, which nodes hold.
    RefString* free = nullptr;
    if (previousMade) {
        if (previous->refs > 1) {
            if (IsKeptByKind(lexer->madeKind)) {
                lexer->kindTexts[lexer->madeKind] = previous;
            } else if (lexer->madeLength <= kSharedTextMax) {
                AddSharedText(lexer->sharedTexts, previous, lexer->madeLength, lexer->madeHash);
            }
        } else if (IsLastArenaRefString(*lexer->nodes, *lexer->texts, previous, lexer->madeLength)) {
            free = previous;
        }
    }
    uint32_t hash = !IsKeptByKind(kind) && length <= kSharedTextMax ? SharedTextHash(kind, text, length) : 0;
    RefString* stored = FindTokenText(lexer, kind, text, length, hash);
    if (!stored) {
#if !defined(VELTJS_FAULT_INJECTION)
        Arena& texts = *lexer->texts;
        if (free && static_cast<size_t>(texts.end - reinterpret_cast<uint8_t*>(free->text)) > length) {
            // The free record takes the new text where its own was: what giving both back and
            // making a record anew would leave, the same record at the same place, written in place.
            CopyBytes(free->text, text, length);
            free->text[length] = '\0';
            texts.next = reinterpret_cast<uint8_t*>(free->text) + length + 1;
            lexer->madeText = free;
            lexer->madeLength = length;
            lexer->madeHash = hash;
            lexer->madeKind = kind;
            lexer->tokenKind = kind;
            return;
        }
#endif
    }
    if (free) {
        GiveBackArenaRefString(*lexer->nodes, *lexer->texts, free);
        *lexer->tokenText = nullptr;
    }
    if (stored) {
        RetainRefString(stored);
    } else {
        stored = NewArenaRefString(*lexer->nodes, *lexer->texts, text, length);
        lexer->madeText = stored;
        lexer->madeLength = length;
        lexer->madeHash = hash;
        lexer->madeKind = kind;
    }
    lexer->tokenKind = kind;
    ReleaseRefString(*lexer->tokenText);
    *lexer->tokenText = stored;
}

void BeginToken(Lexer* lexer) {
    lexer->previousKind = lexer->tokenKind;
    lexer->tokenKind = LEX_EOF;
    lexer->tokenPosition.line = lexer->position.line;
    lexer->tokenPosition.column = lexer->position.column;
}

// Skips whitespace and comments. Returns true when it produced the automatic ';' instead.
bool SkipWhitespaceAndComments(Lexer* lexer) {
    for (;;) {
        uint32_t c = lexer->current;
        if (c == 0) return false;
        if (c == kLineFeed && (lexer->next == '+' || lexer->next == '-')) {
            // A line that starts with "++" or "--" ends the statement before it. This is the
            // only automatic semicolon, and only this narrow (a space before the operator or a
            // single '+' / '-' does not trigger it): scripts are written to it
            // (FrontEnd.NewlineDirectlyBeforeIncrementOrDecrementSeparatesStatements).
            Step(lexer);
            if (lexer->next == lexer->current) {
                BeginToken(lexer);
                StoreToken(lexer, ';', ";", 1);
                return true;
            }
            continue;
        }
        if (IsWhitespace(c)) {
            Step(lexer);
        } else if (c == '/' && lexer->next == '/') {
            while (lexer->current != kLineFeed && lexer->current != 0) Step(lexer);
            Step(lexer);
        } else if (c == '/' && lexer->next == '*') {
            // The search for "*/" starts at the opening '/', so "/*/" closes itself
            // (Scanner.SlashStarSlashIsACompleteComment).
            while (!(lexer->current == '*' && lexer->next == '/') && lexer->current != 0) Step(lexer);
            Step(lexer);
            Step(lexer);
        } else {
            return false;
        }
    }
}

// Identifier -> IdentifierStart IdentifierPart*, then a keyword if the table has the text.
int32_t ScanIdentifier(Lexer* lexer, StringBuilder& text) {
    TakeAsciiIdentifierRun(lexer, text);
    while (IsIdentifierPart(lexer->current)) Take(lexer, text);
    return LookupKeyword(text.text, text.length);
}

// Number -> '0' OctalDigit* | '0' [xX] HexDigit* | Digits? ('.' Digits?)? ([eE] [+-]? Digits?)?
int32_t ScanNumber(Lexer* lexer, StringBuilder& text) {
    bool octal = false;
    bool hexadecimal = false;
    if (lexer->current == '0') {
        Take(lexer, text);
        if (IsOctalDigit(lexer->current)) {
            octal = true;
        } else if (lexer->current == 'x' || lexer->current == 'X') {
            hexadecimal = true;
            Take(lexer, text);
        }
    }
    for (;;) {
        uint32_t c = lexer->current;
        bool accepted = IsOctalDigit(c) || (IsDecimalDigit(c) && !octal) || (hexadecimal && IsHexDigit(c));
        if (!accepted) break;
        Take(lexer, text);
    }
    if (octal || hexadecimal) return LEX_INT;

    int32_t kind = LEX_INT;
    if (lexer->current == '.') {
        kind = LEX_FLOAT;
        Take(lexer, text);
        while (IsDecimalDigit(lexer->current)) Take(lexer, text);
    }
    if (lexer->current == 'e' || lexer->current == 'E') {
        kind = LEX_FLOAT;
        Take(lexer, text);
        if (lexer->current == '+' || lexer->current == '-') Take(lexer, text);
        while (IsDecimalDigit(lexer->current)) Take(lexer, text);
    }
    return kind;
}

// Reads the escape whose character (after the backslash) is current, leaving the last
// character of the escape current. Returns false when the escape yields no character.
bool ScanEscape(Lexer* lexer, uint32_t* value) {
    uint32_t c = lexer->current;
    switch (c) {
        case 'a': *value = 7; return true;
        case 'b': *value = 8; return true;
        case 'f': *value = 12; return true;
        case 'n': *value = 10; return true;
        case 'r': *value = 13; return true;
        case 't': *value = 9; return true;
        case 'v': *value = 11; return true;
        case kLineFeed: return false;
        case 'u': {
            uint32_t result = 0;
            for (int digits = 0; digits < 4 && IsHexDigit(lexer->next); digits++) {
                Advance(lexer);
                result = result * 16 + HexDigitValue(lexer->current);
            }
            *value = result;
            return true;
        }
        case 'x': {
            if (!IsHexDigit(lexer->next)) {
                ReportError(&lexer->position, "malformed hexadecimal character escape sequence");
            }
            Advance(lexer);
            uint32_t result = HexDigitValue(lexer->current);
            if (IsHexDigit(lexer->next)) {
                Advance(lexer);
                result = result * 16 + HexDigitValue(lexer->current);
            }
            *value = result;
            return true;
        }
        default:
            break;
    }
    if (IsOctalDigit(c)) {
        uint32_t result = HexDigitValue(c);
        for (int digits = 1; digits < 3 && IsOctalDigit(lexer->next); digits++) {
            Advance(lexer);
            result = result * 8 + HexDigitValue(lexer->current);
        }
        *value = result;
        return true;
    }
    *value = c;
    return true;
}

// String -> Quote (Character | '\' Escape)* Quote. No advance here resolves a \u escape: inside
// the literal the string's own escapes apply, and one right after it waits for the next token.
int32_t ScanString(Lexer* lexer, StringBuilder& text) {
    uint32_t quote = lexer->current;
    Advance(lexer);
    while (lexer->current != quote) {
        uint32_t c = lexer->current;
        if (c == 0 || c == kLineFeed) ReportError(&lexer->position, "unterminated string literal");
        if (c == '\\') {
            Advance(lexer);
            uint32_t value;
            if (ScanEscape(lexer, &value)) AppendCodePoint(text, value);
        } else {
            AppendCodePoint(text, c);
        }
        Advance(lexer);
    }
    Advance(lexer);
    return LEX_STR;
}

// Operator -> the longest of the table's one- to four-character operators; any other
// character is a token of its own code. `cursor.Extend(c)` takes the next character into the
// operator when it is c: the character reader's, or the source bytes' when the token is plain.
template <typename Cursor>
int32_t OperatorAfter(uint32_t first, Cursor& cursor) {
    switch (first) {
        case '=':
            if (cursor.Extend('=')) return cursor.Extend('=') ? LEX_TYPEEQUAL : LEX_EQUAL;
            if (cursor.Extend('>')) return LEX_ARROW;
            break;
        case '!':
            if (cursor.Extend('=')) return cursor.Extend('=') ? LEX_NTYPEEQUAL : LEX_NEQUAL;
            break;
        case '<':
            if (cursor.Extend('=')) return LEX_LEQUAL;
            if (cursor.Extend('<')) return cursor.Extend('=') ? LEX_LSHIFTEQUAL : LEX_LSHIFT;
            break;
        case '>':
            if (cursor.Extend('=')) return LEX_GEQUAL;
            if (cursor.Extend('>')) {
                if (cursor.Extend('>')) return cursor.Extend('=') ? LEX_RSHIFTUEQUAL : LEX_RSHIFTU;
                return cursor.Extend('=') ? LEX_RSHIFTEQUAL : LEX_RSHIFT;
            }
            break;
        case '+':
            if (cursor.Extend('+')) return LEX_PLUSPLUS;
            if (cursor.Extend('=')) return LEX_PLUSEQUAL;
            break;
        case '-':
            if (cursor.Extend('-')) return LEX_MINUSMINUS;
            if (cursor.Extend('=')) return LEX_MINUSEQUAL;
            break;
        case '&':
            if (cursor.Extend('&')) return LEX_ANDAND;
            if (cursor.Extend('=')) return LEX_ANDEQUAL;
            break;
        case '|':
            if (cursor.Extend('|')) return LEX_OROR;
            if (cursor.Extend('=')) return LEX_OREQUAL;
            break;
        case '*':
            if (cursor.Extend('=')) return LEX_ASTERISKEQUAL;
            break;
        case '/':
            if (cursor.Extend('=')) return LEX_SLASHEQUAL;
            break;
        case '%':
            if (cursor.Extend('=')) return LEX_PERCENTEQUAL;
            break;
        case '^':
            if (cursor.Extend('=')) return LEX_XOREQUAL;
            break;
        default:
            break;
    }
    return static_cast<int32_t>(first);
}

// The character reader's cursor: takes the current character into the token's text and steps.
struct CharacterCursor {
    Lexer* lexer;
    StringBuilder& text;
    bool Extend(uint32_t wanted) {
        if (lexer->current != wanted) return false;
        Take(lexer, text);
        return true;
    }
};

int32_t ScanOperator(Lexer* lexer, StringBuilder& text) {
    uint32_t first = lexer->current;
    AppendCodePoint(text, first);
    Step(lexer);
    CharacterCursor cursor{lexer, text};
    return OperatorAfter(first, cursor);
}

// ---------------------------------------------------------------------------------------------
// Plain tokens, read from the source bytes alone
//
// Nearly every token of real scripts, with the whitespace before it, is ASCII without an escape
// or a carriage return. Over such bytes every step of the character reader is its inline case
// (Advance): the current character is the byte at `currentStart`, the look-ahead the byte after
// it, and a step moves both on by one byte, counting the offset and the column (a line feed left
// behind counts a line and restarts the column). So the token, its text and the state after it
// follow from the bytes, and ScanPlainToken sets that state at once instead of stepping through
// it, or declines, changing nothing, and ScanToken reads the token character by character. The
// token's text is then the bytes themselves, stored from the source without the text builder.

enum PlainByte : uint8_t {
    kPlainSpace = 1,            // tab, vertical tab, form feed, space
    kPlainIdentifierStart = 2,  // ASCII letters, '_', '$'
    kPlainIdentifierPart = 4,   // and the digits
    kPlainStringByte = 8,       // what a string may hold without an escape: ASCII but '\\', CR, LF, NUL
};

constexpr std::array<uint8_t, 256> PlainBytes() {
    std::array<uint8_t, 256> bytes{};
    for (uint32_t c = 0; c < 0x80; c++) {
        uint8_t classes = 0;
        if (c == '\t' || c == 11 || c == 12 || c == ' ') classes |= kPlainSpace;
        if (IsAsciiLetter(c) || c == '_' || c == '$') classes |= kPlainIdentifierStart;
        if (IsAsciiIdentifierPart(c)) classes |= kPlainIdentifierPart;
        if (c != 0 && c != '\\' && c != '\r' && c != '\n') classes |= kPlainStringByte;
        bytes[c] = classes;
    }
    return bytes;
}
constexpr std::array<uint8_t, 256> kPlainBytes = PlainBytes();

// The bytes' cursor of an operator.
struct ByteCursor {
    const uint8_t* at;
    const uint8_t* end;
    bool Extend(uint32_t wanted) {
        if (at >= end || *at != wanted) return false;
        at++;
        return true;
    }
};

// Scans the token at the current character from the source bytes, when it and the whitespace
// before it are plain (see above), and returns true; otherwise returns false with nothing changed.
bool ScanPlainToken(Lexer* lexer) {
    const uint8_t* start = lexer->currentStart;
    const uint8_t* end = lexer->end;
    // The current character and the look-ahead are the two bytes at `start`, and nothing beyond
    // them was read: so where the last plain token stopped, else when the state shows it.
    if (start != lexer->plainStop &&
        (lexer->nextStart != start + 1 || lexer->readPtr != start + 2 || lexer->readPtr > end ||
         lexer->current != start[0] || lexer->next != start[1])) {
        return false;
    }
    // Whitespace; `at + 1 < end` holds at the top of the loop.
    const uint8_t* at = start;
    const uint8_t* lastLineFeed = nullptr;
    int32_t lineFeeds = 0;
    for (;;) {
        uint8_t byte = *at;
        if (kPlainBytes[byte] & kPlainSpace) {
            at++;
        } else if (byte == kLineFeed) {
            // A line feed before "+" or "-" may end the statement: the character reader decides.
            if (at[1] == '+' || at[1] == '-') return false;
            lastLineFeed = at;
            lineFeeds++;
            at++;
        } else {
            break;
        }
        if (at + 1 >= end) return false;
    }
    // The token: [token, after) in the source, its text [textStart, textEnd).
    const uint8_t* token = at;
    uint8_t first = *token;
    const uint8_t* after;
    const uint8_t* textStart = token;
    const uint8_t* textEnd;
    int32_t kind;
    if (kPlainBytes[first] & kPlainIdentifierStart) {
        after = token + 1;
        while (after < end && (kPlainBytes[*after] & kPlainIdentifierPart)) after++;
        textEnd = after;
        kind = LEX_ID;
    } else if (IsDecimalDigit(first)) {
        // Octal and hexadecimal numbers, a '0' before decimal digits, fractions and exponents are
        // the character reader's.
        if (first == '0' && (IsDecimalDigit(token[1]) || token[1] == 'x' || token[1] == 'X')) return false;
        after = token + 1;
        while (after < end && IsDecimalDigit(*after)) after++;
        if (after < end && (*after == '.' || *after == 'e' || *after == 'E')) return false;
        textEnd = after;
        kind = LEX_INT;
    } else if (first == '"' || first == '\'') {
        after = token + 1;
        while (after < end && *after != first) {
            if (!(kPlainBytes[*after] & kPlainStringByte)) return false;
            after++;
        }
        if (after >= end) return false;
        textStart = token + 1;
        textEnd = after;
        after++;
        kind = LEX_STR;
    } else if (first == '/' && (token[1] == '/' || token[1] == '*')) {
        return false;   // a comment
    } else if (first == '.' && IsDecimalDigit(token[1])) {
        return false;   // a fraction
    } else if (first != 0 && first < 0x80 && first != '\\' && first != '\r') {
        ByteCursor cursor{token + 1, end};
        kind = OperatorAfter(first, cursor);
        after = cursor.at;
        textEnd = after;
    } else {
        return false;
    }
    // The steps that make the byte at `after` current are inline only when it is ASCII and neither
    // a carriage return nor a backslash (an escape, which the step would resolve), and the byte
    // after it, the new look-ahead, is ASCII and before the end.
    if (after + 1 >= end) return false;
    uint8_t last = after[0];
    if (last >= 0x80 || last == '\r' || last == '\\' || after[1] >= 0x80) return false;

    // The token's text is the source's own bytes: the token record copies them from there.
    const char* text = reinterpret_cast<const char*>(textStart);
    size_t length = static_cast<size_t>(textEnd - textStart);
    if (kind == LEX_ID) kind = LookupKeyword(text, length);

    // BeginToken at the token's first character, then the state with `after` current.
    lexer->previousKind = lexer->tokenKind;
    lexer->tokenKind = LEX_EOF;
    int32_t line = lexer->position.line + lineFeeds;
    int32_t column = lexer->position.column;
    lexer->tokenPosition.line = line;
    lexer->tokenPosition.column = lineFeeds ? static_cast<int32_t>(token - lastLineFeed) : column + static_cast<int32_t>(token - start);
    lexer->position.offset += static_cast<int32_t>(after - start);
    lexer->position.line = line;
    lexer->position.column = lineFeeds ? static_cast<int32_t>(after - lastLineFeed) : column + static_cast<int32_t>(after - start);
    lexer->currentStart = after;
    lexer->current = after[0];
    lexer->nextStart = after + 1;
    lexer->next = after[1];
    lexer->readPtr = after + 2;
    lexer->plainStop = after;
    StoreToken(lexer, kind, text, length);
    return true;
}

}  // namespace

void ScanToken(Lexer* lexer) {
    if (!ScanPlainToken(lexer)) ScanTokenByCharacters(lexer);
}

void ScanTokenByCharacters(Lexer* lexer) {
    if (SkipWhitespaceAndComments(lexer)) return;
    BeginToken(lexer);
    // One builder for every token of the script: its room is reused, not allocated per token.
    StringBuilder& text = lexer->scratch;
    text.length = 0;
    if (text.text) text.text[0] = '\0';
    ResolveEscape(lexer);

    uint32_t c = lexer->current;
    int32_t kind = LEX_EOF;
    if (c == 0) {
        kind = LEX_EOF;
    } else if (IsIdentifierStart(c)) {
        kind = ScanIdentifier(lexer, text);
    } else if (IsDecimalDigit(c) || (c == '.' && IsDecimalDigit(lexer->next))) {
        kind = ScanNumber(lexer, text);
    } else if (c == '"' || c == '\'') {
        kind = ScanString(lexer, text);
    } else {
        kind = ScanOperator(lexer, text);
    }
    // A code point 0 inside the text ends it, as the text is NUL-terminated. Only a string can
    // hold one (an escape); no other token appends a code point 0, so its builder length is its
    // strlen.
    if (!text.text) {
        StoreToken(lexer, kind, "", 0);
    } else {
        StoreToken(lexer, kind, text.text, kind == LEX_STR ? std::strlen(text.text) : text.length);
    }
}
