// Token and node kinds, their printed names, and the two matching operations of the parser.
#pragma once

#include <cstdint>

#include "support/strings.h"

struct Lexer;

enum TokenKind : int32_t {
    LEX_EOF = 0,
    LEX_EQUAL = 256,
    LEX_TYPEEQUAL = 257,
    LEX_NEQUAL = 258,
    LEX_NTYPEEQUAL = 259,
    LEX_ARROW = 260,
    LEX_LEQUAL = 261,
    LEX_GEQUAL = 262,
    LEX_LSHIFT = 263,
    LEX_RSHIFT = 264,
    LEX_RSHIFTU = 265,
    LEX_PLUSPLUS = 266,
    LEX_MINUSMINUS = 267,
    LEX_POSTPLUSPLUS = 268,    // node kind only
    LEX_POSTMINUSMINUS = 269,  // node kind only
    LEX_ANDAND = 270,
    LEX_OROR = 271,
    LEX_INT = 272,
    LEX_PLUSEQUAL = 273,
    LEX_MINUSEQUAL = 274,
    LEX_ASTERISKEQUAL = 275,
    LEX_SLASHEQUAL = 276,
    LEX_PERCENTEQUAL = 277,
    LEX_LSHIFTEQUAL = 278,
    LEX_RSHIFTEQUAL = 279,
    LEX_RSHIFTUEQUAL = 280,
    LEX_ANDEQUAL = 281,
    LEX_OREQUAL = 282,
    LEX_XOREQUAL = 283,
    LEX_ID = 284,
    LEX_STR = 285,
    LEX_REGEXP = 286,
    LEX_LABEL = 287,
    LEX_DUMMYLABEL = 288,
    LEX_FLOAT = 289,
    LEX_IF = 290,
    LEX_ELSE = 291,
    LEX_DO = 292,
    LEX_WHILE = 293,
    LEX_FOR = 294,
    LEX_IN = 295,
    LEX_OF = 296,
    LEX_BREAK = 297,
    LEX_CONTINUE = 298,
    LEX_RETURN = 299,
    LEX_VAR = 300,
    LEX_LET = 301,
    LEX_CONST = 302,
    LEX_WITH = 303,
    LEX_TRUE = 304,
    LEX_FALSE = 305,
    LEX_NULL = 306,
    LEX_NEW = 307,
    LEX_TRY = 308,
    LEX_CATCH = 309,
    LEX_FINALLY = 310,
    LEX_THROW = 311,
    LEX_TYPEOF = 312,
    LEX_VOID = 313,
    LEX_DELETE = 314,
    LEX_INSTANCEOF = 315,
    LEX_SWITCH = 316,
    LEX_CASE = 317,
    LEX_DEFAULT = 318,
    LEX_THIS = 319,
    LEX_UNDEFINED = 320,  // node kind only
    LEX_ELISION = 321,    // node kind only
    LEX_FUNCTION = 324,
    LEX_GETTER = 327,     // node kind only
    LEX_SETTER = 328,     // node kind only
    LEX_OBJECT = 330,     // node kind only
    LEX_ARRAY = 336,      // node kind only
    LEX_YIELD = 337,
};

struct KeywordEntry {
    int32_t kind;
    const char* text;
    int32_t flag;
};

// 31 entries sorted by text in byte order.
extern const KeywordEntry KeywordTable[31];

constexpr size_t kLongestKeyword = 10;   // "instanceof"
// At most two keywords share a first letter and a length ("catch" and "const", "if" and "in",
// "this" and "true"), so a word is compared with at most two.
constexpr size_t kKeywordsPerLetterAndLength = 2;
constexpr uint8_t kNoKeyword = 0xFF;

// The table's entries by first letter and length: a word is compared only with the keywords that
// have both, from its second letter on.
struct KeywordCandidates {
    uint8_t entries[26][kLongestKeyword + 1][kKeywordsPerLetterAndLength];
};
extern const KeywordCandidates kKeywordCandidates;

// The keyword's kind, or LEX_ID (byte-wise comparison).
int32_t LookupKeyword(const char* text);
// The same for the `length` bytes at `text` (none of them NUL; no NUL need follow them). Inline:
// the scanner asks for every identifier.
inline int32_t LookupKeyword(const char* text, size_t length) {
    if (length > kLongestKeyword || length == 0 || text[0] < 'a' || text[0] > 'z') return LEX_ID;
    for (uint8_t index : kKeywordCandidates.entries[text[0] - 'a'][length]) {
        if (index == kNoKeyword) break;
        const char* keyword = KeywordTable[index].text;
        size_t at = 1;
        while (at < length && keyword[at] == text[at]) at++;
        if (at == length) return KeywordTable[index].kind;
    }
    return LEX_ID;
}
// A new RefString: "eof", the character for 1-255, the table's names, else the decimal code.
RefString* TokenKindName(int32_t kind);
// Reports "Got '%s' (%s) expected '%s'" on a mismatch, else scans the next token.
void MatchToken(Lexer* lexer, int32_t kind);
// Consumes the current token, whatever it is.
void ConsumeToken(Lexer* lexer);
// Reports "Got '%s' (%s) expected '%s' or '%s'" when neither; returns the kind matched.
int32_t MatchEitherToken(Lexer* lexer, int32_t first, int32_t second);
