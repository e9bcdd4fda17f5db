#include "lexer/tokens.h"

#include <cstdio>
#include <cstring>

#include "support/diagnostics.h"
#include "lexer/scanner.h"
#include "lexer/source_reader.h"

const KeywordEntry KeywordTable[31] = {
    {LEX_BREAK, "break", 1},       {LEX_CASE, "case", 1},         {LEX_CATCH, "catch", 1},
    {LEX_CONST, "const", 1},       {LEX_CONTINUE, "continue", 1}, {LEX_DEFAULT, "default", 1},
    {LEX_DELETE, "delete", 1},     {LEX_DO, "do", 1},             {LEX_ELSE, "else", 1},
    {LEX_FALSE, "false", 1},       {LEX_FINALLY, "finally", 1},   {LEX_FOR, "for", 1},
    {LEX_FUNCTION, "function", 1}, {LEX_IF, "if", 1},             {LEX_IN, "in", 1},
    {LEX_INSTANCEOF, "instanceof", 1}, {LEX_LET, "let", 1},       {LEX_NEW, "new", 1},
    {LEX_NULL, "null", 1},         {LEX_RETURN, "return", 1},     {LEX_SWITCH, "switch", 1},
    {LEX_THIS, "this", 1},         {LEX_THROW, "throw", 1},         {LEX_TRUE, "true", 1},
    {LEX_TRY, "try", 1},           {LEX_TYPEOF, "typeof", 1},     {LEX_VAR, "var", 1},
    {LEX_VOID, "void", 1},         {LEX_WHILE, "while", 1},       {LEX_WITH, "with", 1},
    {LEX_YIELD, "yield", 1},
};

namespace {

// Printed names of the kinds 256 to 318; null where the kind prints as its number.
const char* const kKindNames[] = {
    "equal",      "typeequal",   "nequal",        "ntypeequal",   nullptr,        "lequal",
    "gequal",     "lshift",      "rshift",        "rshiftu",      "plusplus",     "minusminus",
    nullptr,      nullptr,       "andand",        "oror",         "int",          "plusequal",
    "minusequal", "asteriskequal", "slashequal",  "percentequal", "lshiftequal",  "rshiftequal",
    "rshiftuequal", "andequal",  "orequal",       "xorequal",     "id",           "str",
    "regexp",     "label",       "dummylabel",    "float",        "if",           "else",
    "do",         "while",       "for",           "in",           "of",           "break",
    "continue",   "return",      "var",           "let",          "const",        "with",
    "true",       "false",       "null",          "new",          "try",          "catch",
    "finally",    "throw",       "typeof",        "void",         "delete",       "instanceof",
    "switch",     "case",        "default",
};
constexpr int32_t kFirstNamedKind = LEX_EQUAL;
constexpr int32_t kLastNamedKind = LEX_DEFAULT;
static_assert(sizeof(kKindNames) / sizeof(kKindNames[0]) == kLastNamedKind - kFirstNamedKind + 1,
              "one name slot per kind from 256 to 318");

// The formatted names are limited to 31 characters.
constexpr size_t kNameLimit = 32;

KeywordCandidates MakeKeywordCandidates() {
    KeywordCandidates candidates;
    std::memset(&candidates, kNoKeyword, sizeof candidates);
    constexpr uint8_t kCount = sizeof KeywordTable / sizeof KeywordTable[0];
    for (uint8_t i = 0; i < kCount; i++) {
        const char* text = KeywordTable[i].text;
        uint8_t* slots = candidates.entries[text[0] - 'a'][std::strlen(text)];
        size_t at = 0;
        while (at < kKeywordsPerLetterAndLength && slots[at] != kNoKeyword) at++;
        // A third keyword of a letter and length would be left out, and found by no lookup
        // (KeywordTable.EveryEntryIsFoundWithItsKind).
        if (at < kKeywordsPerLetterAndLength) slots[at] = i;
    }
    return candidates;
}


// Copies the kind's name into `out`, so a report does not have to hold a RefString.
void CopyKindName(int32_t kind, char (&out)[kNameLimit]) {
    RefString* name = TokenKindName(kind);
    std::snprintf(out, sizeof out, "%s", name->text);
    ReleaseRefString(name);
}

const char* CurrentText(const Lexer* lexer) {
    const RefString* text = lexer->tokenText ? *lexer->tokenText : nullptr;
    return text && text->text ? text->text : "";
}

}  // namespace

// Made at load from the table above it in this file.
const KeywordCandidates kKeywordCandidates = MakeKeywordCandidates();

int32_t LookupKeyword(const char* text) { return LookupKeyword(text, std::strlen(text)); }


RefString* TokenKindName(int32_t kind) {
    if (kind == LEX_EOF) return NewRefString("eof");
    char buffer[kNameLimit];
    if (kind > 0 && kind < 256) {
        std::snprintf(buffer, sizeof buffer, "%c", kind);
        return NewRefString(buffer);
    }
    if (kind >= kFirstNamedKind && kind <= kLastNamedKind && kKindNames[kind - kFirstNamedKind]) {
        return NewRefString(kKindNames[kind - kFirstNamedKind]);
    }
    std::snprintf(buffer, sizeof buffer, "%d", kind);
    return NewRefString(buffer);
}

void MatchToken(Lexer* lexer, int32_t kind) {
    if (lexer->tokenKind != kind) {
        char got[kNameLimit];
        char wanted[kNameLimit];
        CopyKindName(lexer->tokenKind, got);
        CopyKindName(kind, wanted);
        ReportError(&lexer->position, "Got '%s' (%s) expected '%s'", CurrentText(lexer), got, wanted);
    }
    ScanToken(lexer);
}

void ConsumeToken(Lexer* lexer) { MatchToken(lexer, lexer->tokenKind); }

int32_t MatchEitherToken(Lexer* lexer, int32_t first, int32_t second) {
    int32_t kind = lexer->tokenKind;
    if (kind != first && kind != second) {
        char got[kNameLimit];
        char firstName[kNameLimit];
        char secondName[kNameLimit];
        CopyKindName(kind, got);
        CopyKindName(first, firstName);
        CopyKindName(second, secondName);
        ReportError(&lexer->position, "Got '%s' (%s) expected '%s' or '%s'", CurrentText(lexer), got,
                    firstName, secondName);
    }
    ScanToken(lexer);
    return kind;
}
