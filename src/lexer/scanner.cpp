#include "lexer/scanner.h"

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

// Whether the live record `string` holds the `length` bytes of `text` (none of them NUL). The
// texts kept by kind are an operator's or a keyword's, a few bytes: a loop is cheaper than a call.
bool SpellsText(const RefString* string, const char* text, size_t length) {
    const char* kept = string->text;
    if (!kept) return false;
    // A shorter kept text stops the loop at its NUL, which no byte of `text` equals.
    for (size_t i = 0; i < length; i++) {
        if (kept[i] != text[i]) return false;
    }
    return kept[length] == '\0';
}

// The record a node took last for the token's text, or null.
RefString* FindTokenText(const Lexer* lexer, int32_t kind, const char* text, size_t length, uint32_t hash) {
    if (IsKeptByKind(kind)) {
        RefString* kept = lexer->kindTexts[kind];
        return kept && SpellsText(kept, text, length) ? kept : nullptr;
    }
    return length <= kSharedTextMax ? FindSharedText(lexer->sharedTexts, text, length, hash) : nullptr;
}

// `length` is the text's strlen.
void StoreToken(Lexer* lexer, int32_t kind, const char* text, size_t length) {
    RefString* previous = *lexer->tokenText;
    bool previousMade = previous && previous == lexer->madeText;
    lexer->madeText = nullptr;
    // A text that a node took is shared with every later token that spells the same: an
    // identifier used a thousand times is one record and one text.
    if (previousMade && previous->refs > 1) {
        if (IsKeptByKind(lexer->madeKind)) {
            lexer->kindTexts[lexer->madeKind] = previous;
        } else if (lexer->madeLength <= kSharedTextMax) {
            AddSharedText(lexer->sharedTexts, previous, lexer->madeLength, lexer->madeHash);
        }
    }
    // A token that no node took (a ')', a ';' ...) leaves its record and text at the arenas' ends:
    // the new token's take their place, so such tokens cost the tree nothing. Only a record made for
    // the token is given back, never a shared one, which nodes hold.
    if (previousMade && TakeBackArenaRefString(*lexer->nodes, *lexer->texts, previous, lexer->madeLength)) {
        *lexer->tokenText = nullptr;
    }
    uint32_t hash = !IsKeptByKind(kind) && length <= kSharedTextMax ? SharedTextHash(kind, text, length) : 0;
    RefString* stored = FindTokenText(lexer, kind, text, length, hash);
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

// Takes the current character into the token if it is `wanted`.
bool Extend(Lexer* lexer, StringBuilder& text, uint32_t wanted) {
    if (lexer->current != wanted) return false;
    Take(lexer, text);
    return true;
}

// Operator -> the longest of the table's one- to four-character operators; any other
// character is a token of its own code.
int32_t ScanOperator(Lexer* lexer, StringBuilder& text) {
    uint32_t first = lexer->current;
    AppendCodePoint(text, first);
    Step(lexer);
    switch (first) {
        case '=':
            if (Extend(lexer, text, '=')) return Extend(lexer, text, '=') ? LEX_TYPEEQUAL : LEX_EQUAL;
            if (Extend(lexer, text, '>')) return LEX_ARROW;
            break;
        case '!':
            if (Extend(lexer, text, '=')) return Extend(lexer, text, '=') ? LEX_NTYPEEQUAL : LEX_NEQUAL;
            break;
        case '<':
            if (Extend(lexer, text, '=')) return LEX_LEQUAL;
            if (Extend(lexer, text, '<')) return Extend(lexer, text, '=') ? LEX_LSHIFTEQUAL : LEX_LSHIFT;
            break;
        case '>':
            if (Extend(lexer, text, '=')) return LEX_GEQUAL;
            if (Extend(lexer, text, '>')) {
                if (Extend(lexer, text, '>')) return Extend(lexer, text, '=') ? LEX_RSHIFTUEQUAL : LEX_RSHIFTU;
                return Extend(lexer, text, '=') ? LEX_RSHIFTEQUAL : LEX_RSHIFT;
            }
            break;
        case '+':
            if (Extend(lexer, text, '+')) return LEX_PLUSPLUS;
            if (Extend(lexer, text, '=')) return LEX_PLUSEQUAL;
            break;
        case '-':
            if (Extend(lexer, text, '-')) return LEX_MINUSMINUS;
            if (Extend(lexer, text, '=')) return LEX_MINUSEQUAL;
            break;
        case '&':
            if (Extend(lexer, text, '&')) return LEX_ANDAND;
            if (Extend(lexer, text, '=')) return LEX_ANDEQUAL;
            break;
        case '|':
            if (Extend(lexer, text, '|')) return LEX_OROR;
            if (Extend(lexer, text, '=')) return LEX_OREQUAL;
            break;
        case '*':
            if (Extend(lexer, text, '=')) return LEX_ASTERISKEQUAL;
            break;
        case '/':
            if (Extend(lexer, text, '=')) return LEX_SLASHEQUAL;
            break;
        case '%':
            if (Extend(lexer, text, '=')) return LEX_PERCENTEQUAL;
            break;
        case '^':
            if (Extend(lexer, text, '=')) return LEX_XOREQUAL;
            break;
        default:
            break;
    }
    return static_cast<int32_t>(first);
}

}  // namespace

void ScanToken(Lexer* lexer) {
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
