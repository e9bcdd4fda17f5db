#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "helpers/lexer_support.h"
#include "lexer/tokens.h"
#include "support/diagnostics.h"
#include "support/strings.h"

namespace {

std::string KindName(int32_t kind) {
    RefString* name = TokenKindName(kind);
    std::string text = name->text;
    ReleaseRefString(name);
    return text;
}

std::string MatchError(const std::string& source, int32_t kind) {
    Lexer* lexer = NewTestLexer(source);
    try {
        MatchToken(lexer, kind);
    } catch (const CompileException& exception) {
        return exception.what();
    }
    return "";
}

std::string MatchEitherError(const std::string& source, int32_t first, int32_t second) {
    Lexer* lexer = NewTestLexer(source);
    try {
        MatchEitherToken(lexer, first, second);
    } catch (const CompileException& exception) {
        return exception.what();
    }
    return "";
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Keyword table

TEST(KeywordTable, HasThirtyOneEntriesSortedByteWiseWithFlagOne) {
    ASSERT_EQ(sizeof KeywordTable / sizeof KeywordTable[0], 31u);
    for (size_t i = 0; i < 31; i++) {
        EXPECT_EQ(KeywordTable[i].flag, 1) << KeywordTable[i].text;
        if (i > 0) {
            EXPECT_LT(std::strcmp(KeywordTable[i - 1].text, KeywordTable[i].text), 0) << KeywordTable[i].text;
        }
    }
}

TEST(KeywordTable, EveryEntryIsFoundWithItsKind) {
    for (const KeywordEntry& entry : KeywordTable) {
        EXPECT_EQ(LookupKeyword(entry.text), entry.kind) << entry.text;
    }
}

TEST(KeywordTable, KindsMatchTheirPrintedNames) {
    for (const KeywordEntry& entry : KeywordTable) {
        if (entry.kind <= LEX_DEFAULT) {
            EXPECT_EQ(KindName(entry.kind), entry.text);
        }
    }
    EXPECT_EQ(LookupKeyword("this"), LEX_THIS);
    EXPECT_EQ(LookupKeyword("function"), LEX_FUNCTION);
    EXPECT_EQ(LookupKeyword("yield"), LEX_YIELD);
}

TEST(KeywordTable, OtherWordsAreIdentifiers) {
    for (const char* word : {"of", "", "Break", "IF", "ins", "instanceofx", "get", "set", "undefined", "a", "zzz"}) {
        EXPECT_EQ(LookupKeyword(word), LEX_ID) << word;
    }
}

TEST(KeywordTable, AWordIsLookedUpByItsLengthWhateverFollowsIt) {
    // The scanner asks about words in the source, which go on past the word.
    EXPECT_EQ(LookupKeyword("inside", 2), LEX_IN);
    EXPECT_EQ(LookupKeyword("format", 3), LEX_FOR);
    EXPECT_EQ(LookupKeyword("doing", 2), LEX_DO);
    EXPECT_EQ(LookupKeyword("instanceofx", 10), LEX_INSTANCEOF);
    EXPECT_EQ(LookupKeyword("instanceofx", 11), LEX_ID);
    EXPECT_EQ(LookupKeyword("ifs", 3), LEX_ID);
    EXPECT_EQ(LookupKeyword("whil", 4), LEX_ID);
    EXPECT_EQ(LookupKeyword("inx", 3), LEX_ID);
    const char word[] = {'w', 'i', 't', 'h'};   // no NUL after it
    EXPECT_EQ(LookupKeyword(word, sizeof word), LEX_WITH);
}

TEST(KeywordTable, ComparisonIsByteWise) {
    EXPECT_EQ(LookupKeyword("\xC3\xA9"), LEX_ID);
    EXPECT_EQ(LookupKeyword("if\xC3\xA9"), LEX_ID);
}

// ---------------------------------------------------------------------------------------------
// Kind names

TEST(TokenKindName, EndOfInputIsEof) {
    EXPECT_EQ(KindName(0), "eof");
}

TEST(TokenKindName, SingleCharactersPrintAsThemselves) {
    EXPECT_EQ(KindName(65), "A");
    EXPECT_EQ(KindName(';'), ";");
    EXPECT_EQ(KindName('}'), "}");
    EXPECT_EQ(KindName(1), "\x01");
    EXPECT_EQ(KindName(255), "\xFF");
}

TEST(TokenKindName, NamedKinds) {
    const char* const names[] = {
        "equal", "typeequal", "nequal", "ntypeequal", "260", "lequal", "gequal", "lshift", "rshift",
        "rshiftu", "plusplus", "minusminus", "268", "269", "andand", "oror", "int", "plusequal",
        "minusequal", "asteriskequal", "slashequal", "percentequal", "lshiftequal", "rshiftequal",
        "rshiftuequal", "andequal", "orequal", "xorequal", "id", "str", "regexp", "label",
        "dummylabel", "float", "if", "else", "do", "while", "for", "in", "of", "break", "continue",
        "return", "var", "let", "const", "with", "true", "false", "null", "new", "try", "catch",
        "finally", "throw", "typeof", "void", "delete", "instanceof", "switch", "case", "default",
    };
    ASSERT_EQ(sizeof names / sizeof names[0], 63u);
    for (int32_t kind = 256; kind <= 318; kind++) EXPECT_EQ(KindName(kind), names[kind - 256]) << kind;
}

TEST(TokenKindName, UnnamedKindsPrintTheirNumber) {
    EXPECT_EQ(KindName(LEX_ARROW), "260");
    EXPECT_EQ(KindName(268), "268");
    EXPECT_EQ(KindName(269), "269");
    EXPECT_EQ(KindName(319), "319");
    EXPECT_EQ(KindName(324), "324");
    EXPECT_EQ(KindName(337), "337");
    EXPECT_EQ(KindName(0x3E600), "255488");
    EXPECT_EQ(KindName(-1), "-1");
    EXPECT_EQ(KindName(INT32_MIN), "-2147483648");
    EXPECT_EQ(KindName(INT32_MAX), "2147483647");
}

TEST(TokenKindName, ReturnsAFreshStringEachTime) {
    RefString* first = TokenKindName(LEX_ID);
    RefString* second = TokenKindName(LEX_ID);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->refs, 1u);
    ReleaseRefString(first);
    ReleaseRefString(second);
}

// ---------------------------------------------------------------------------------------------
// Matching

TEST(MatchToken, MatchingKindScansTheNextToken) {
    Lexer* lexer = NewTestLexer("a ;");
    MatchToken(lexer, LEX_ID);
    EXPECT_EQ(lexer->tokenKind, ';');
    EXPECT_EQ(lexer->previousKind, LEX_ID);
    MatchToken(lexer, ';');
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
}

TEST(MatchToken, MissingSemicolonBeforeBrace) {
    EXPECT_EQ(MatchError("}", ';'), "Error : file.js(1) : Got '}' (}) expected ';'\n");
}

TEST(MatchToken, MismatchNamesBothKinds) {
    EXPECT_EQ(MatchError("foo", '('), "Error : file.js(1) : Got 'foo' (id) expected '('\n");
    EXPECT_EQ(MatchError("'s'", LEX_ID), "Error : file.js(1) : Got 's' (str) expected 'id'\n");
    EXPECT_EQ(MatchError("1.5", LEX_INT), "Error : file.js(1) : Got '1.5' (float) expected 'int'\n");
    EXPECT_EQ(MatchError("=>", LEX_ID), "Error : file.js(1) : Got '=>' (260) expected 'id'\n");
    EXPECT_EQ(MatchError("this", LEX_ID), "Error : file.js(1) : Got 'this' (319) expected 'id'\n");
    EXPECT_EQ(MatchError("x", LEX_FUNCTION), "Error : file.js(1) : Got 'x' (id) expected '324'\n");
}

TEST(MatchToken, AtEndOfInputTheTextIsEmpty) {
    EXPECT_EQ(MatchError("", ';'), "Error : file.js(1) : Got '' (eof) expected ';'\n");
    EXPECT_EQ(MatchError("\n\n", ')'), "Error : file.js(3) : Got '' (eof) expected ')'\n");
}

TEST(MatchToken, ErrorIsReportedAtTheLexersCurrentLine) {
    // The string starts on line 1, but the lexer already stands on line 2.
    EXPECT_EQ(MatchError("'a\\\nb'", ';'), "Error : file.js(2) : Got 'ab' (str) expected ';'\n");
}

TEST(MatchToken, PercentInTokenTextIsPrintedVerbatim) {
    EXPECT_EQ(MatchError("%", ';'), "Error : file.js(1) : Got '%' (%) expected ';'\n");
    EXPECT_EQ(MatchError("'%d%s'", ';'), "Error : file.js(1) : Got '%d%s' (str) expected ';'\n");
}

TEST(MatchEitherToken, ReturnsTheKindMatchedAndScansOn) {
    Lexer* lexer = NewTestLexer(", }");
    EXPECT_EQ(MatchEitherToken(lexer, ',', '}'), ',');
    EXPECT_EQ(lexer->tokenKind, '}');
    EXPECT_EQ(MatchEitherToken(lexer, ',', '}'), '}');
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
    EXPECT_EQ(lexer->previousKind, '}');
}

TEST(MatchEitherToken, MismatchNamesAllThreeKinds) {
    EXPECT_EQ(MatchEitherError("x", ',', '}'), "Error : file.js(1) : Got 'x' (id) expected ',' or '}'\n");
    EXPECT_EQ(MatchEitherError("", LEX_ID, LEX_STR),
              "Error : file.js(1) : Got '' (eof) expected 'id' or 'str'\n");
}

TEST(KeywordTable, LookupAgreesWithAScanOfTheTableForWordsNearEveryKeyword) {
    auto scan = [](const std::string& word) {
        for (const KeywordEntry& entry : KeywordTable) {
            if (word == entry.text) return entry.kind;
        }
        return static_cast<int32_t>(LEX_ID);
    };
    std::vector<std::string> words = {"", "_", "$", "A", "{", "\x7F", "\xE2\x82\xAC"};
    for (const KeywordEntry& entry : KeywordTable) {
        std::string text = entry.text;
        words.push_back(text);
        words.push_back(text + "x");
        words.push_back(text.substr(0, text.size() - 1));
        words.push_back(text.substr(1));
        for (size_t at = 0; at < text.size(); at++) {
            for (char letter : {'a', 'e', 'o', 'z', 'A'}) {
                std::string changed = text;
                changed[at] = letter;
                words.push_back(changed);
            }
        }
    }
    for (const std::string& word : words) EXPECT_EQ(LookupKeyword(word.c_str()), scan(word)) << word;
}
