#include "lexer/source_reader.h"

#include <array>
#include <cstring>

#include <utf8proc.h>

#include "lexer/scanner.h"
#include "lexer/tokens.h"
#include "support/strings.h"

namespace {

constexpr uint32_t kLineFeed = 10;
constexpr uint32_t kCarriageReturn = 13;
constexpr uint32_t kBackslash = '\\';
constexpr uint32_t kLargestCodePoint = 0x10FFFF;

// Bytes at or past `end` read as zero: the padded copy holds zeros there anyway, and this way
// a caller that forgot the padding still cannot make the decoder read outside the buffer.
uint32_t ByteAt(const uint8_t* at, const uint8_t* end) { return at < end ? *at : 0; }

uint32_t Continuation(const uint8_t* at, const uint8_t* end) { return ByteAt(at, end) & 0x3F; }

// Decodes one character at `at` and returns its byte length. The three- and four-byte forms
// shift the lead by 7 instead of 6: identifier and string texts, the character classes and the
// names the runner links by depend on these values (SourceReader.ThreeByteFormShiftsTheLeadBySeven).
uint32_t DecodeCharacter(const uint8_t* at, const uint8_t* end, uint32_t* codePoint) {
    uint32_t lead = ByteAt(at, end);
    if (lead < 0x80) {
        *codePoint = lead;
        return 1;
    }
    if ((lead & 0xF8) == 0xF0) {
        uint32_t value = ((lead & 0x0F) << 7) + Continuation(at + 1, end);
        value = (value << 7) + Continuation(at + 2, end);
        *codePoint = (value << 6) + Continuation(at + 3, end);
        return 4;
    }
    if ((lead & 0xF0) == 0xE0) {
        uint32_t value = ((lead & 0x0F) << 7) + Continuation(at + 1, end);
        *codePoint = (value << 6) + Continuation(at + 2, end);
        return 3;
    }
    // Everything else from 0x80 up, a lone continuation byte included, is a two-byte lead.
    *codePoint = ((lead & 0x1F) << 6) + Continuation(at + 1, end);
    return 2;
}

}  // namespace

uint32_t HexDigitValue(uint32_t digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return digit - 'A' + 10;
}

namespace {

// Null arenas mean the lexer's own.
Lexer* NewLexer(RefString* source, RefString* fileName, Arena* nodes, Arena* texts) {
    Lexer* lexer = static_cast<Lexer*>(CheckedCalloc(1, sizeof(Lexer)));
    lexer->nodes = nodes ? nodes : &lexer->ownNodes;
    lexer->texts = texts ? texts : &lexer->ownTexts;
    // One handle cell per string, shared by both position records; each record holds a reference.
    RefString** sourceHandle = NewRefHandle(RetainRefString(source));
    RefString** fileHandle = NewRefHandle(RetainRefString(fileName));
    RetainRefString(source);
    RetainRefString(fileName);
    lexer->position.source = sourceHandle;
    lexer->position.fileName = fileHandle;
    lexer->position.line = 1;
    lexer->position.column = 1;
    lexer->position.offset = 0;
    lexer->tokenPosition = lexer->position;

    const uint8_t* start = reinterpret_cast<const uint8_t*>(source->text);
    size_t length = std::strlen(source->text);
    lexer->readPtr = start;
    lexer->nextStart = start;
    lexer->currentStart = start;
    lexer->end = start + length;
    lexer->length = static_cast<int64_t>(length);
    lexer->tokenKind = LEX_EOF;
    lexer->previousKind = LEX_EOF;
    lexer->tokenText = NewRefHandle(nullptr);
    lexer->current = 0;
    lexer->next = 0;
    lexer->reserved = 0;

    Advance(lexer);
    ResolveEscape(lexer);
    Advance(lexer);
    ResolveEscape(lexer);
    ScanToken(lexer);
    return lexer;
}

}  // namespace

Lexer* MakeLexer(RefString* source, RefString* fileName, Arena& nodes, Arena& texts) {
    return NewLexer(source, fileName, &nodes, &texts);
}

Lexer* MakeLexer(RefString* source, RefString* fileName) { return NewLexer(source, fileName, nullptr, nullptr); }

void EndLexing(Lexer* lexer) {
    FreeStringBuilder(lexer->scratch);
    FreeSharedTexts(lexer->sharedTexts);
    lexer->madeText = nullptr;
    std::memset(lexer->kindTexts, 0, sizeof lexer->kindTexts);
}

namespace {

// IsIdentifierPart of every ASCII byte, false for every other byte.
constexpr std::array<bool, 256> IdentifierBytes() {
    std::array<bool, 256> bytes{};
    for (uint32_t c = 0; c < 0x80; c++) bytes[c] = IsAsciiIdentifierPart(c);
    return bytes;
}
constexpr std::array<bool, 256> kIdentifierByte = IdentifierBytes();

}  // namespace

void TakeAsciiIdentifierRun(Lexer* lexer, StringBuilder& text) {
    uint32_t first = lexer->current;
    const uint8_t* run = lexer->nextStart;
    // The look-ahead must be the plain byte it was read from (not the end of an escape) and the
    // current character an ASCII identifier character.
    if (first >= 0x80 || !kIdentifierByte[first] || run >= lexer->end || lexer->next != *run ||
        lexer->readPtr != run + 1) {
        return;
    }
    const uint8_t* end = run;
    while (end < lexer->end && kIdentifierByte[*end]) end++;
    // Each step makes the next run byte current and reads the byte after it, which Advance's inline
    // case does only while that byte is ASCII and before the end: so the steps go up to the run's
    // last byte only when the byte after the run is such a byte, else one short of it.
    size_t steps = static_cast<size_t>(end - run);
    if (!(end < lexer->end && *end < 0x80)) steps--;
    if (steps < 2) return;
    // Appended: the current character, then the run bytes that become current and are left again,
    // and the terminating zero (room for which the builder's growth rule does not promise).
    ReserveText(text, static_cast<uint32_t>(steps) + 1);
    text.text[text.length] = static_cast<char>(first);
    std::memcpy(text.text + text.length + 1, run, steps - 1);
    text.length += static_cast<uint32_t>(steps);
    text.text[text.length] = '\0';
    lexer->position.offset += static_cast<int32_t>(steps);
    lexer->position.column += static_cast<int32_t>(steps);
    lexer->currentStart = run + steps - 1;
    lexer->current = run[steps - 1];
    lexer->nextStart = run + steps;
    lexer->next = run[steps];
    lexer->readPtr = run + steps + 1;
}

void AdvanceAnyCharacter(Lexer* lexer) {
    lexer->position.offset++;
    if (lexer->current == kLineFeed) {
        lexer->position.line++;
        lexer->position.column = 0;
    }
    lexer->current = lexer->next;
    lexer->currentStart = lexer->nextStart;
    if (lexer->readPtr < lexer->end) {
        lexer->nextStart = lexer->readPtr;
        lexer->readPtr += DecodeCharacter(lexer->readPtr, lexer->end, &lexer->next);
        lexer->position.column++;
    } else {
        lexer->next = 0;
    }
    if (lexer->current == kCarriageReturn) {
        if (lexer->next == kLineFeed) {
            // CR LF reads as the LF alone.
            Advance(lexer);
            ResolveEscape(lexer);
        } else {
            lexer->current = kLineFeed;
        }
    }
}

// Only the low byte of the look-ahead is tested, so any code point whose low byte spells a
// hexadecimal digit continues the escape, without a digit limit; the characters scripts get from
// escapes depend on it (SourceReader.EscapeTestsOnlyTheLowByteOfTheLookAhead).
void ResolveBackslash(Lexer* lexer) {
    if (lexer->current != kBackslash || (lexer->next != 'u' && lexer->next != 'U')) return;
    uint32_t value = 0;
    Advance(lexer);
    while (IsHexDigit(lexer->next & 0xFF)) {
        Advance(lexer);
        value = value * 16 + HexDigitValue(lexer->current & 0xFF);
    }
    lexer->current = value;
}

void AppendAnyCodePoint(StringBuilder& builder, uint32_t codePoint) {
    ReserveText(builder, kCodePointRoom);
    uint8_t* out = reinterpret_cast<uint8_t*>(builder.text + builder.length);
    uint32_t count;
    if (codePoint <= 0x7F) {
        out[0] = static_cast<uint8_t>(codePoint);
        count = 1;
    } else {
        uint8_t leadMark;
        if (codePoint <= 0x7FF) {
            count = 2;
            leadMark = 0xC0;
        } else if (codePoint <= 0xFFFF) {
            count = 3;
            leadMark = 0xE0;
        } else if (codePoint <= 0x1FFFFF) {
            count = 4;
            leadMark = 0xF0;
        } else if (codePoint <= 0x3FFFFFF) {
            count = 5;
            leadMark = 0xF8;
        } else {
            count = 6;
            leadMark = 0xFC;
        }
        uint32_t rest = codePoint;
        for (uint32_t i = count - 1; i > 0; i--) {
            out[i] = static_cast<uint8_t>(0x80 | (rest & 0x3F));
            rest >>= 6;
        }
        out[0] = static_cast<uint8_t>(leadMark | rest);
    }
    out[count] = 0;
    builder.length += count;
}

int32_t CharacterCategory(uint32_t codePoint) {
    if (codePoint > kLargestCodePoint) return UTF8PROC_CATEGORY_CN;
    return utf8proc_category(static_cast<utf8proc_int32_t>(codePoint));
}

bool IsIdentifierStartBeyondAscii(uint32_t codePoint) {
    if (codePoint < 0x80) return IsIdentifierStart(codePoint);
    switch (CharacterCategory(codePoint)) {
        case UTF8PROC_CATEGORY_LU:
        case UTF8PROC_CATEGORY_LL:
        case UTF8PROC_CATEGORY_LT:
        case UTF8PROC_CATEGORY_LM:
        case UTF8PROC_CATEGORY_LO:
        case UTF8PROC_CATEGORY_NL:
            return true;
        default:
            return false;
    }
}

bool IsIdentifierPartBeyondAscii(uint32_t codePoint) {
    if (codePoint < 0x80) return IsIdentifierPart(codePoint);
    if (IsIdentifierStartBeyondAscii(codePoint)) return true;
    // Zero-width non-joiner and joiner.
    if (codePoint == 8204 || codePoint == 8205) return true;
    switch (CharacterCategory(codePoint)) {
        case UTF8PROC_CATEGORY_ND:
        case UTF8PROC_CATEGORY_MN:
        case UTF8PROC_CATEGORY_MC:
        case UTF8PROC_CATEGORY_PC:
            return true;
        default:
            return false;
    }
}

bool IsHexDigit(uint32_t codePoint) {
    return IsDecimalDigit(codePoint) || (codePoint >= 'a' && codePoint <= 'f') ||
           (codePoint >= 'A' && codePoint <= 'F');
}

bool IsOctalDigit(uint32_t codePoint) { return codePoint >= '0' && codePoint <= '7'; }
