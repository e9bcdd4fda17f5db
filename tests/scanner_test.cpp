#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "helpers/lexer_support.h"
#include "helpers/tree_text.h"
#include "lexer/scanner.h"
#include "support/diagnostics.h"
#include "support/strings.h"

namespace {

using Tokens = std::vector<ScannedToken>;

ScannedToken Id(const char* text) { return {LEX_ID, text}; }
ScannedToken Int(const char* text) { return {LEX_INT, text}; }
ScannedToken Float(const char* text) { return {LEX_FLOAT, text}; }
ScannedToken Str(const std::string& text) { return {LEX_STR, text}; }
ScannedToken Char(char c) { return {static_cast<unsigned char>(c), std::string(1, c)}; }

// The text of the single string literal in `source`.
std::string StringValue(const std::string& source) {
    Tokens tokens = ScanAll(source);
    EXPECT_EQ(tokens.size(), 1u) << source;
    if (tokens.size() != 1) return "<no single token>";
    EXPECT_EQ(tokens[0].kind, LEX_STR) << source;
    return tokens[0].text;
}

ScannedToken Single(const std::string& source) {
    Tokens tokens = ScanAll(source);
    EXPECT_EQ(tokens.size(), 1u) << source;
    return tokens.empty() ? ScannedToken{-1, ""} : tokens[0];
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Token texts in the arenas

namespace {

// A lexer over `source` whose tokens' records and texts go into arenas of the test's own.
Lexer* LexerWithArenas(const char* source, Arena& records, Arena& texts) {
    return MakeLexer(NewPaddedRefString(source, kSourcePadding), NewRefString("file.js"), records, texts);
}

}  // namespace

TEST(Scanner, ATokenNoOneTookGivesItsRecordAndTextToTheNextToken) {
    Arena records{};
    Arena texts{};
    Lexer* lexer = LexerWithArenas("((((((((((((((((((((((((((((((((x", records, texts);
    RefString* first = *lexer->tokenText;
    for (int i = 0; i < 32; i++) {
        ASSERT_EQ(lexer->tokenKind, '(');
        EXPECT_EQ(*lexer->tokenText, first) << i;
        ScanToken(lexer);
    }
    // The identifier is in the same place, with its own text.
    EXPECT_EQ(lexer->tokenKind, LEX_ID);
    EXPECT_EQ(*lexer->tokenText, first);
    EXPECT_EQ(TokenText(lexer), "x");
}

TEST(Scanner, ATokenNoOneTookGivesItsTextsPlaceOnlyToATextThatFitsThere) {
    Arena records{};
    Arena texts{};
    // Leave three bytes in the text arena's block: "a" takes two, then "bc" fits where "a" was and
    // takes all three; "bcd" (four with its NUL) does not fit there and goes to a new block, its
    // record still where the record of the token before it was.
    ArenaCopyText(texts, "", 0);
    std::string filler(static_cast<size_t>(texts.end - texts.next) - 4, 'f');
    ArenaCopyText(texts, filler.c_str(), filler.size());
    ASSERT_EQ(texts.end - texts.next, 3);
    Lexer* lexer = LexerWithArenas("a bc bcd", records, texts);
    RefString* first = *lexer->tokenText;
    char* firstText = first->text;
    ScanToken(lexer);
    EXPECT_EQ(*lexer->tokenText, first);
    EXPECT_EQ(first->text, firstText);
    EXPECT_EQ(TokenText(lexer), "bc");
    EXPECT_EQ(texts.next, texts.end);
    ScanToken(lexer);
    EXPECT_EQ(*lexer->tokenText, first);
    EXPECT_NE(first->text, firstText);
    EXPECT_EQ(TokenText(lexer), "bcd");
    EXPECT_EQ(first->refs, 1u);
    EndLexing(lexer);
}

TEST(Scanner, ATokenSomeoneHoldsKeepsItsRecordAndTextWhenTheScannerGoesOn) {
    Arena records{};
    Arena texts{};
    Lexer* lexer = LexerWithArenas("alpha(beta)", records, texts);
    RefString* alpha = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    ScanToken(lexer);
    RefString* beta = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
    EXPECT_STREQ(alpha->text, "alpha");
    EXPECT_STREQ(beta->text, "beta");
    EXPECT_EQ(alpha->refs, 1u);
    EXPECT_EQ(beta->refs, 1u);
    EXPECT_NE(*lexer->tokenText, alpha);
    EXPECT_NE(*lexer->tokenText, beta);
}

TEST(Scanner, ATextSomeoneTookIsSharedWithEveryLaterTokenOfTheSameText) {
    Arena records{};
    Arena texts{};
    Lexer* lexer = LexerWithArenas("alpha + beta + alpha + alpha", records, texts);
    // The test holds the first identifier's text and the first '+', as a node would.
    RefString* alpha = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    RefString* plus = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), "beta");
    EXPECT_NE(*lexer->tokenText, alpha);
    ScanToken(lexer);
    EXPECT_EQ(*lexer->tokenText, plus);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_ID);
    EXPECT_EQ(*lexer->tokenText, alpha);
    // The test's reference and the lexer's.
    EXPECT_EQ(alpha->refs, 2u);
    ScanToken(lexer);
    ScanToken(lexer);
    EXPECT_EQ(*lexer->tokenText, alpha);
    EXPECT_STREQ(alpha->text, "alpha");
    EXPECT_STREQ(plus->text, "+");
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
    EXPECT_EQ(alpha->refs, 1u);
    EndLexing(lexer);
}

TEST(Scanner, AnOperatorOrKeywordSomeoneTookIsFoundByItsKindUntilItsRecordIsReleased) {
    Arena records{};
    Arena texts{};
    // "\xcf\xb6" is U+03F6, a mathematical symbol: a token of its own code beyond the kinds kept
    // by kind, shared through the texts' table instead.
    Lexer* lexer = LexerWithArenas("while == \xcf\xb6 while == \xcf\xb6 while", records, texts);
    RefString* keyword = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    RefString* equal = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    ASSERT_EQ(lexer->tokenKind, 0x3F6);
    RefString* arrow = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_WHILE);
    EXPECT_EQ(*lexer->tokenText, keyword);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_EQUAL);
    EXPECT_EQ(*lexer->tokenText, equal);
    ScanToken(lexer);
    EXPECT_EQ(*lexer->tokenText, arrow);
    // Released to zero, the keyword's record reads as no text and is not handed out again.
    ReleaseRefString(keyword);
    EXPECT_EQ(keyword->text, nullptr);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_WHILE);
    EXPECT_NE(*lexer->tokenText, keyword);
    EXPECT_EQ(TokenText(lexer), "while");
    EXPECT_STREQ(equal->text, "==");
    EXPECT_STREQ(arrow->text, "\xcf\xb6");
    ReleaseRefString(equal);
    ReleaseRefString(arrow);
    EndLexing(lexer);
}

TEST(Scanner, ATextNoOneTookOrLongerThanTheSharedLimitIsNotShared) {
    Arena records{};
    Arena texts{};
    std::string longName(kSharedTextMax + 1, 'n');
    std::string source = "gamma gamma " + longName + " " + longName;
    Lexer* lexer = LexerWithArenas(source.c_str(), records, texts);
    // No one holds the first "gamma": the second has a record of its own, in the same place.
    RefString* first = *lexer->tokenText;
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), "gamma");
    EXPECT_EQ(*lexer->tokenText, first);
    EXPECT_EQ(first->refs, 1u);
    ScanToken(lexer);
    RefString* held = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), longName);
    EXPECT_NE(*lexer->tokenText, held);
    EXPECT_EQ(held->refs, 1u);
    EndLexing(lexer);
}

TEST(Scanner, NodesOfTheSameTextShareOneRecordInTheTree) {
    ParseResult result = ParseSource("alpha = alpha + alpha; beta = 'alpha' + 'alpha' + beta;");
    ASSERT_NE(result.parser, nullptr) << result.error;
    EXPECT_EQ(result.tree, "=(alpha,+(alpha,alpha)) =(beta,+(+('alpha','alpha'),beta))");
    // Every node spelled "alpha" of one kind holds one record, whichever statement it is in.
    std::map<std::pair<uint32_t, std::string>, std::set<const RefString*>> records;
    std::vector<const Node*> pending{&result.parser->root};
    while (!pending.empty()) {
        const Node* node = pending.back();
        pending.pop_back();
        records[{node->kind, node->text->text}].insert(node->text);
        for (const Node* child = node->first; child; child = child->next) pending.push_back(child);
    }
    EXPECT_EQ(records[std::make_pair(uint32_t{LEX_ID}, std::string("alpha"))].size(), 1u);
    EXPECT_EQ(records[std::make_pair(uint32_t{LEX_ID}, std::string("beta"))].size(), 1u);
    EXPECT_EQ(records[std::make_pair(uint32_t{LEX_STR}, std::string("alpha"))].size(), 1u);
    EXPECT_EQ(records[std::make_pair(uint32_t{'+'}, std::string("+"))].size(), 1u);
    EXPECT_EQ(records[std::make_pair(uint32_t{'='}, std::string("="))].size(), 1u);
}

// ---------------------------------------------------------------------------------------------
// Whitespace, comments and the automatic semicolon

TEST(Scanner, NewlineBeforePlusPlusInsertsSemicolon) {
    Tokens expected = {Id("a"), Char(';'), {LEX_PLUSPLUS, "++"}, Id("b")};
    EXPECT_EQ(ScanAll("a\n++b"), expected);
}

TEST(Scanner, NewlineBeforeMinusMinusInsertsSemicolon) {
    Tokens expected = {Id("a"), Char(';'), {LEX_MINUSMINUS, "--"}, Id("b")};
    EXPECT_EQ(ScanAll("a\n--b"), expected);
}

TEST(Scanner, SpaceBetweenNewlineAndPlusPlusInsertsNothing) {
    Tokens expected = {Id("a"), {LEX_PLUSPLUS, "++"}, Id("b")};
    EXPECT_EQ(ScanAll("a\n ++b"), expected);
}

TEST(Scanner, NewlineBeforeSinglePlusInsertsNothing) {
    Tokens expected = {Id("a"), Char('+'), Id("b")};
    EXPECT_EQ(ScanAll("a\n+b"), expected);
    Tokens mixed = {Id("a"), Char('+'), Char('-'), Id("b")};
    EXPECT_EQ(ScanAll("a\n+-b"), mixed);
    Tokens assign = {Id("a"), {LEX_PLUSEQUAL, "+="}, Id("b")};
    EXPECT_EQ(ScanAll("a\n+=b"), assign);
}

TEST(Scanner, CrLfBeforePlusPlusInsertsSemicolon) {
    Tokens expected = {Id("a"), Char(';'), {LEX_PLUSPLUS, "++"}, Id("b")};
    EXPECT_EQ(ScanAll("a\r\n++b"), expected);
    EXPECT_EQ(ScanAll("a\r++b"), expected);
}

TEST(Scanner, EveryNewlineBeforePlusPlusCounts) {
    Tokens expected = {Id("a"), Char(';'), {LEX_PLUSPLUS, "++"}, Id("b")};
    EXPECT_EQ(ScanAll("a\n\n\n++b"), expected);
}

TEST(Scanner, NewlineAfterLineCommentIsConsumedWithoutTheSemicolonRule) {
    Tokens expected = {Id("a"), {LEX_PLUSPLUS, "++"}, Id("b")};
    EXPECT_EQ(ScanAll("a // c\n++b"), expected);
}

TEST(Scanner, NewlineAfterBlockCommentKeepsTheSemicolonRule) {
    Tokens expected = {Id("a"), Char(';'), {LEX_PLUSPLUS, "++"}, Id("b")};
    EXPECT_EQ(ScanAll("a /* c */\n++b"), expected);
}

TEST(Scanner, AutomaticSemicolonRecordsKindsAndPosition) {
    Lexer* lexer = NewTestLexer("a\n++b");
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, ';');
    EXPECT_EQ(TokenText(lexer), ";");
    EXPECT_EQ(lexer->previousKind, LEX_ID);
    EXPECT_EQ(lexer->tokenPosition.line, 2);
    EXPECT_EQ(lexer->current, static_cast<uint32_t>('+'));
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_PLUSPLUS);
    EXPECT_EQ(lexer->previousKind, ';');
}

TEST(Scanner, SourceStartingWithNewlinePlusPlusStartsWithSemicolon) {
    Tokens expected = {Char(';'), {LEX_PLUSPLUS, "++"}, Id("x")};
    EXPECT_EQ(ScanAll("\n++x"), expected);
}

TEST(Scanner, LineCommentAtTheEndOfInputEndsWithEof) {
    Tokens expected = {Id("x"), Char('='), Int("1")};
    EXPECT_EQ(ScanAll("x = 1 // c"), expected);
}

TEST(Scanner, LineCommentRunsToTheNewline) {
    Tokens expected = {Id("a"), Id("b")};
    EXPECT_EQ(ScanAll("a // x y z\nb"), expected);
    EXPECT_EQ(ScanAll("a //\r\nb"), expected);
}

TEST(Scanner, BlockComments) {
    Tokens expected = {Id("a"), Id("b")};
    EXPECT_EQ(ScanAll("a /* x */ b"), expected);
    EXPECT_EQ(ScanAll("a /**/ b"), expected);
    EXPECT_EQ(ScanAll("a /* * / ** */b"), expected);
    EXPECT_EQ(ScanAll("a/*\n\n*/b"), expected);
}

TEST(Scanner, SlashStarSlashIsACompleteComment) {
    Tokens expected = {Id("a"), Id("b"), Char('*'), Char('/')};
    EXPECT_EQ(ScanAll("a /*/ b */"), expected);
}

TEST(Scanner, UnterminatedBlockCommentEndsTheInput) {
    Tokens expected = {Id("a")};
    EXPECT_EQ(ScanAll("a /* b c"), expected);
    EXPECT_EQ(ScanAll("a /*"), expected);
    EXPECT_EQ(ScanAll("a /* b *"), expected);
    EXPECT_EQ(ScanAll("/*"), Tokens{});
}

TEST(Scanner, LinesInsideBlockCommentsAreCounted) {
    Lexer* lexer = NewTestLexer("/*\n\r\n\r*/a");
    EXPECT_EQ(TokenText(lexer), "a");
    EXPECT_EQ(lexer->tokenPosition.line, 4);
}

TEST(Scanner, EscapedNewlineInsideLineCommentEndsIt) {
    // \u escapes are resolved in comments too, so \u000A is a newline there.
    Lexer* lexer = NewTestLexer("a // c \\u000A b");
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), "b");
    EXPECT_EQ(lexer->tokenPosition.line, 2);
}

TEST(Scanner, EscapedStarSlashClosesABlockComment) {
    Tokens expected = {Id("a"), Id("b")};
    EXPECT_EQ(ScanAll("a /* \\u002A/ b"), expected);
}

TEST(Scanner, EscapedSpaceIsWhitespace) {
    Tokens expected = {Id("a"), Id("b")};
    EXPECT_EQ(ScanAll("a\\u0020 b"), expected);
}

TEST(Scanner, AllWhitespaceKindsAreSkipped) {
    Tokens expected = {Id("a"), Id("b")};
    EXPECT_EQ(ScanAll("\t\v\f a \xC2\xA0\r\n\t b \n"), expected);
}

TEST(Scanner, EndOfInputIsEofWithEmptyText) {
    Lexer* lexer = NewTestLexer("a");
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
    EXPECT_EQ(TokenText(lexer), "");
    EXPECT_EQ(lexer->previousKind, LEX_ID);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
    EXPECT_EQ(lexer->previousKind, LEX_EOF);
}

// ---------------------------------------------------------------------------------------------
// Token positions and texts

TEST(Scanner, TokenLinesFollowEveryLineEnd) {
    Lexer* lexer = NewTestLexer("a\n  b\r\nc\rd");
    std::vector<int32_t> lines;
    while (lexer->tokenKind != LEX_EOF) {
        lines.push_back(lexer->tokenPosition.line);
        ScanToken(lexer);
    }
    EXPECT_EQ(lines, (std::vector<int32_t>{1, 2, 3, 4}));
}

TEST(Scanner, TokenTextIsANewStringPerToken) {
    Lexer* lexer = NewTestLexer("abc def");
    RefString* first = RetainRefString(*lexer->tokenText);
    ScanToken(lexer);
    EXPECT_STREQ(first->text, "abc");
    EXPECT_STREQ((*lexer->tokenText)->text, "def");
    EXPECT_NE(first, *lexer->tokenText);
}

TEST(Scanner, PreviousKindFollowsTheTokens) {
    Lexer* lexer = NewTestLexer("var x = 1");
    std::vector<int32_t> previous;
    while (lexer->tokenKind != LEX_EOF) {
        ScanToken(lexer);
        previous.push_back(lexer->previousKind);
    }
    EXPECT_EQ(previous, (std::vector<int32_t>{LEX_VAR, LEX_ID, '=', LEX_INT}));
}

// ---------------------------------------------------------------------------------------------
// Identifiers and keywords

TEST(Scanner, Identifiers) {
    Tokens expected = {Id("$a_1"), Id("_"), Id("$"), Id("x9")};
    EXPECT_EQ(ScanAll("$a_1 _ $ x9"), expected);
}

TEST(Scanner, EveryKeyword) {
    const std::vector<std::pair<const char*, int32_t>> keywords = {
        {"break", LEX_BREAK},       {"case", LEX_CASE},         {"catch", LEX_CATCH},
        {"const", LEX_CONST},       {"continue", LEX_CONTINUE}, {"default", LEX_DEFAULT},
        {"delete", LEX_DELETE},     {"do", LEX_DO},             {"else", LEX_ELSE},
        {"false", LEX_FALSE},       {"finally", LEX_FINALLY},   {"for", LEX_FOR},
        {"function", LEX_FUNCTION}, {"if", LEX_IF},             {"in", LEX_IN},
        {"instanceof", LEX_INSTANCEOF}, {"let", LEX_LET},       {"new", LEX_NEW},
        {"null", LEX_NULL},         {"return", LEX_RETURN},     {"switch", LEX_SWITCH},
        {"throw", LEX_THROW},       {"this", LEX_THIS},         {"true", LEX_TRUE},
        {"try", LEX_TRY},           {"typeof", LEX_TYPEOF},     {"var", LEX_VAR},
        {"void", LEX_VOID},         {"while", LEX_WHILE},       {"with", LEX_WITH},
        {"yield", LEX_YIELD},
    };
    ASSERT_EQ(keywords.size(), 31u);
    for (const auto& [text, kind] : keywords) {
        ScannedToken expected{kind, text};
        EXPECT_EQ(Single(text), expected) << text;
    }
}

TEST(Scanner, OfStaysAnIdentifier) {
    EXPECT_EQ(Single("of"), Id("of"));
}

TEST(Scanner, KeywordPrefixesAndExtensionsAreIdentifiers) {
    Tokens expected = {Id("iff"), Id("i"), Id("This"), Id("varx"), Id("instance"), Id("_if")};
    EXPECT_EQ(ScanAll("iff i This varx instance _if"), expected);
}

TEST(Scanner, UnicodeIdentifiers) {
    Tokens expected = {Id("\xC3\xA9t\xC3\xA9"), Id("a\xCC\x80"), Id("x\xE2\x80\x8C" "y")};
    // U+200C arrives as an escape: its UTF-8 bytes would decode to another value.
    EXPECT_EQ(ScanAll("\xC3\xA9t\xC3\xA9 a\xCC\x80 x\\u200Cy"), expected);
}

TEST(Scanner, ThreeByteCharactersAreReencodedFromTheirShiftedValues) {
    // E2 82 AC reads as 0x40AC, a CJK letter, and is written back as E4 82 AC.
    EXPECT_EQ(Single("\xE2\x82\xAC"), Id("\xE4\x82\xAC"));
    EXPECT_EQ(Single("\xE4\xB8\xAD"), Id("\xE8\xB8\xAD"));
}

TEST(Scanner, EscapesFormIdentifiers) {
    Tokens expected = {Id("abx"), Id("\xE4\x86\xBC")};
    EXPECT_EQ(ScanAll("a\\u0062x \\u0041BC"), expected);
    // Every hexadecimal digit belongs to the escape, however many follow.
    EXPECT_EQ(Single("a\\u0062c"), Id("a\xD8\xAC"));
}

TEST(Scanner, EscapedKeywordIsAKeyword) {
    EXPECT_EQ(Single("\\u0069\\u0066"), (ScannedToken{LEX_IF, "if"}));
}

// ---------------------------------------------------------------------------------------------
// Numbers

TEST(Scanner, DecimalIntegers) {
    Tokens expected = {Int("0"), Int("7"), Int("1234567890")};
    EXPECT_EQ(ScanAll("0 7 1234567890"), expected);
}

TEST(Scanner, OctalNumbers) {
    EXPECT_EQ(Single("0777"), Int("0777"));
    Tokens split = {Int("07"), Int("8")};
    EXPECT_EQ(ScanAll("078"), split);
    Tokens fraction = {Int("0777"), Float(".5")};
    EXPECT_EQ(ScanAll("0777.5"), fraction);
}

TEST(Scanner, LeadingZeroWithEightOrNineIsDecimal) {
    EXPECT_EQ(Single("09"), Int("09"));
    EXPECT_EQ(Single("08"), Int("08"));
    EXPECT_EQ(Single("089"), Int("089"));
    EXPECT_EQ(Single("08.5"), Float("08.5"));
}

TEST(Scanner, HexadecimalNumbers) {
    EXPECT_EQ(Single("0x1F"), Int("0x1F"));
    EXPECT_EQ(Single("0XaB"), Int("0XaB"));
    EXPECT_EQ(Single("0xe5"), Int("0xe5"));
    Tokens fraction = {Int("0x1F"), Float(".5")};
    EXPECT_EQ(ScanAll("0x1F.5"), fraction);
    Tokens letters = {Int("0xABC"), Id("g")};
    EXPECT_EQ(ScanAll("0xABCg"), letters);
}

TEST(Scanner, HexPrefixWithoutDigits) {
    EXPECT_EQ(Single("0x"), Int("0x"));
    Tokens expected = {Int("0x"), Id("g")};
    EXPECT_EQ(ScanAll("0xg"), expected);
}

TEST(Scanner, Floats) {
    Tokens expected = {Float(".5"), Float("0.5"), Float("1.5"), Float("1."), Float("1.e5"), Float("1e5"),
                       Float("1E5"), Float("1e+5"), Float("1e-5"), Float("2.5e10"), Float("0e5")};
    EXPECT_EQ(ScanAll(".5 0.5 1.5 1. 1.e5 1e5 1E5 1e+5 1e-5 2.5e10 0e5"), expected);
}

TEST(Scanner, ExponentWithoutDigitsEndsTheToken) {
    Tokens expected = {Float("1e"), Id("x")};
    EXPECT_EQ(ScanAll("1ex"), expected);
    Tokens signedExponent = {Float("1e+"), Id("x")};
    EXPECT_EQ(ScanAll("1e+x"), signedExponent);
    Tokens minus = {Float("1e-"), Char(';')};
    EXPECT_EQ(ScanAll("1e-;"), minus);
}

TEST(Scanner, SecondDotStartsANewNumber) {
    Tokens expected = {Float("1.2"), Float(".3")};
    EXPECT_EQ(ScanAll("1.2.3"), expected);
}

TEST(Scanner, DotWithoutDigitIsAnOperator) {
    Tokens expected = {Id("a"), Char('.'), Id("b")};
    EXPECT_EQ(ScanAll("a.b"), expected);
}

TEST(Scanner, DotDigitAfterIdentifierIsANumber) {
    Tokens expected = {Id("a"), Float(".1")};
    EXPECT_EQ(ScanAll("a.1"), expected);
    Tokens spaced = {Id("a"), Char('.'), Int("1")};
    EXPECT_EQ(ScanAll("a. 1"), spaced);
}

TEST(Scanner, NumberFollowedByIdentifier) {
    Tokens expected = {Int("1"), Id("a")};
    EXPECT_EQ(ScanAll("1a"), expected);
}

TEST(Scanner, EscapesInsideNumbers) {
    EXPECT_EQ(Single("1\\u0032"), Int("12"));
}

// ---------------------------------------------------------------------------------------------
// Strings

TEST(Scanner, StringsInBothQuotes) {
    Tokens expected = {Str("abc"), Str("d'e"), Str("f\"g"), Str("")};
    EXPECT_EQ(ScanAll("\"abc\" \"d'e\" 'f\"g' ''"), expected);
}

TEST(Scanner, SingleLetterEscapes) {
    EXPECT_EQ(StringValue("'\\a\\b\\f\\n\\r\\t\\v'"), "\x07\x08\x0C\x0A\x0D\x09\x0B");
}

TEST(Scanner, OtherEscapesGiveTheCharacterItself) {
    EXPECT_EQ(StringValue("'\\\\'"), "\\");
    EXPECT_EQ(StringValue("'\\''"), "'");
    EXPECT_EQ(StringValue("\"\\\"\""), "\"");
    EXPECT_EQ(StringValue("'\\q\\U\\8\\9'"), "qU89");
    EXPECT_EQ(StringValue("'\\\xC3\xA9'"), "\xC3\xA9");
}

TEST(Scanner, LineContinuationInsideString) {
    Lexer* lexer = NewTestLexer("'a\\\nb' c");
    EXPECT_EQ(TokenText(lexer), "ab");
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), "c");
    EXPECT_EQ(lexer->tokenPosition.line, 2);
}

TEST(Scanner, LineContinuationWithCrLfAndLoneCr) {
    EXPECT_EQ(StringValue("'a\\\r\nb'"), "ab");
    EXPECT_EQ(StringValue("'a\\\rb'"), "ab");
}

TEST(Scanner, UnicodeEscapeTakesUpToFourDigits) {
    EXPECT_EQ(StringValue("'\\u0041'"), "A");
    EXPECT_EQ(StringValue("'\\u00414'"), "A4");
    EXPECT_EQ(StringValue("'\\u20AC'"), "\xE2\x82\xAC");
    EXPECT_EQ(StringValue("'\\uFFFF'"), "\xEF\xBF\xBF");
}

TEST(Scanner, UnicodeEscapeWithFewerDigitsTakesThoseThere) {
    EXPECT_EQ(StringValue("'\\u41'"), "A");
    EXPECT_EQ(StringValue("'\\u41z'"), "Az");
    // No digit: the value 0, which ends the text.
    EXPECT_EQ(StringValue("'a\\uzb'"), "a");
}

TEST(Scanner, HexEscapeTakesOneOrTwoDigits) {
    EXPECT_EQ(StringValue("'\\x41'"), "A");
    EXPECT_EQ(StringValue("'\\x414'"), "A4");
    EXPECT_EQ(StringValue("'\\x4'"), "\x04");
    EXPECT_EQ(StringValue("'\\x4g'"), "\x04g");
    EXPECT_EQ(StringValue("'\\xff'"), "\xC3\xBF");
}

TEST(Scanner, OctalEscapeTakesUpToThreeDigits) {
    EXPECT_EQ(StringValue("'\\101'"), "A");
    EXPECT_EQ(StringValue("'\\1011'"), "A1");
    EXPECT_EQ(StringValue("'\\7'"), "\x07");
    EXPECT_EQ(StringValue("'\\18'"), "\x01" "8");
    EXPECT_EQ(StringValue("'\\377'"), "\xC3\xBF");
    EXPECT_EQ(StringValue("'\\777'"), "\xC7\xBF");
}

TEST(Scanner, CodePointZeroEndsTheTokenText) {
    EXPECT_EQ(StringValue("'a\\0b'"), "a");
    EXPECT_EQ(StringValue("'a\\x0b'"), "a\x0B");
    EXPECT_EQ(StringValue("'a\\x00b'"), "a");
    EXPECT_EQ(StringValue("'a\\u0000b'"), "a");
}

TEST(Scanner, RawCharactersInStringsAreReencoded) {
    EXPECT_EQ(StringValue("'\xC3\xA9'"), "\xC3\xA9");
    EXPECT_EQ(StringValue("'\xE2\x82\xAC'"), "\xE4\x82\xAC");
}

TEST(Scanner, StringAdvancesResolveNoEscape) {
    // Resolving after the opening quote would turn \u0022 into the closing quote.
    EXPECT_EQ(StringValue("\"\\u0022x\""), "\"x");
    // Outside the string the escape is resolved at the next token's start.
    Tokens expected = {Str("a"), Id("A")};
    EXPECT_EQ(ScanAll("'a'\\u0041"), expected);
}

TEST(Scanner, EscapedQuoteAfterStringStartsAnotherString) {
    Tokens expected = {Str("a"), Str("x")};
    EXPECT_EQ(ScanAll("'a'\\u0027x'"), expected);
}

TEST(Scanner, UnterminatedStringAtEndOfInput) {
    EXPECT_EQ(ScanError("'abc"), "Error : file.js(1) : unterminated string literal\n");
    EXPECT_EQ(ScanError("\"abc"), "Error : file.js(1) : unterminated string literal\n");
    EXPECT_EQ(ScanError("'"), "Error : file.js(1) : unterminated string literal\n");
}

TEST(Scanner, RawNewlineInsideStringIsUnterminated) {
    EXPECT_EQ(ScanError("'ab\ncd'"), "Error : file.js(1) : unterminated string literal\n");
    EXPECT_EQ(ScanError("'ab\rcd'"), "Error : file.js(1) : unterminated string literal\n");
    EXPECT_EQ(ScanError("'ab\r\ncd'"), "Error : file.js(1) : unterminated string literal\n");
}

TEST(Scanner, BackslashAtEndOfInputIsUnterminated) {
    EXPECT_EQ(ScanError("'ab\\"), "Error : file.js(1) : unterminated string literal\n");
}

TEST(Scanner, StringErrorIsReportedAtTheCurrentLine) {
    EXPECT_EQ(ScanError("x\n\n'abc", "s.js"), "Error : s.js(3) : unterminated string literal\n");
    EXPECT_EQ(ScanError("'a\\\nb\\\nc", "s.js"), "Error : s.js(3) : unterminated string literal\n");
}

TEST(Scanner, MalformedHexEscape) {
    EXPECT_EQ(ScanError("'\\xg'"), "Error : file.js(1) : malformed hexadecimal character escape sequence\n");
    EXPECT_EQ(ScanError("'\\x'"), "Error : file.js(1) : malformed hexadecimal character escape sequence\n");
    EXPECT_EQ(ScanError("'\\x"), "Error : file.js(1) : malformed hexadecimal character escape sequence\n");
}

TEST(Scanner, StringErrorThrowsCompileException) {
    Lexer* lexer = NewTestLexer("a 'b");
    EXPECT_THROW(ScanToken(lexer), CompileException);
}

// ---------------------------------------------------------------------------------------------
// Operators

TEST(Scanner, EveryOperatorOfTheTable) {
    const std::vector<std::pair<const char*, int32_t>> operators = {
        {"==", LEX_EQUAL},         {"===", LEX_TYPEEQUAL},      {"=>", LEX_ARROW},
        {"!=", LEX_NEQUAL},        {"!==", LEX_NTYPEEQUAL},     {"<=", LEX_LEQUAL},
        {"<<", LEX_LSHIFT},        {"<<=", LEX_LSHIFTEQUAL},    {">=", LEX_GEQUAL},
        {">>", LEX_RSHIFT},        {">>>", LEX_RSHIFTU},        {">>>=", LEX_RSHIFTUEQUAL},
        {">>=", LEX_RSHIFTEQUAL},  {"++", LEX_PLUSPLUS},        {"+=", LEX_PLUSEQUAL},
        {"--", LEX_MINUSMINUS},    {"-=", LEX_MINUSEQUAL},      {"&&", LEX_ANDAND},
        {"&=", LEX_ANDEQUAL},      {"||", LEX_OROR},            {"|=", LEX_OREQUAL},
        {"*=", LEX_ASTERISKEQUAL}, {"/=", LEX_SLASHEQUAL},      {"%=", LEX_PERCENTEQUAL},
        {"^=", LEX_XOREQUAL},
    };
    for (const auto& [text, kind] : operators) {
        ScannedToken expected{kind, text};
        EXPECT_EQ(Single(text), expected) << text;
    }
}

TEST(Scanner, SingleCharacterOperators) {
    for (const char* text : {"=", "!", "<", ">", "+", "-", "&", "|", "*", "/", "%", "^", "~", "?", ":",
                             ";", ",", ".", "(", ")", "[", "]", "{", "}", "@", "#", "`", "\\"}) {
        EXPECT_EQ(Single(text), Char(text[0])) << text;
    }
}

TEST(Scanner, ArrowBetweenIdentifiers) {
    Tokens expected = {Id("a"), {LEX_ARROW, "=>"}, Id("b")};
    EXPECT_EQ(ScanAll("a=>b"), expected);
    EXPECT_EQ(ScanAll("a=>b")[1].kind, 260);
}

TEST(Scanner, UnsignedShiftAssignIsOneToken) {
    EXPECT_EQ(Single(">>>=").kind, 280);
}

TEST(Scanner, OperatorsTakeTheLongestMatchOnly) {
    Tokens expected = {{LEX_TYPEEQUAL, "==="}, Char('=')};
    EXPECT_EQ(ScanAll("===="), expected);
    Tokens plus = {{LEX_PLUSPLUS, "++"}, Char('+')};
    EXPECT_EQ(ScanAll("+++"), plus);
    Tokens shifts = {{LEX_RSHIFTUEQUAL, ">>>="}, {LEX_GEQUAL, ">="}};
    EXPECT_EQ(ScanAll(">>>=>="), shifts);
    Tokens ors = {{LEX_OROR, "||"}, {LEX_OREQUAL, "|="}};
    EXPECT_EQ(ScanAll("|||="), ors);
    Tokens notArrow = {Char('!'), {LEX_GEQUAL, ">="}};
    EXPECT_EQ(ScanAll("!>="), notArrow);
    Tokens lessArrow = {Char('<'), {LEX_GEQUAL, ">="}};
    EXPECT_EQ(ScanAll("<>="), lessArrow);
    Tokens notEqualArrow = {{LEX_NEQUAL, "!="}, Char('>')};
    EXPECT_EQ(ScanAll("!=>"), notEqualArrow);
}

TEST(Scanner, EscapesInsideOperators) {
    EXPECT_EQ(Single("=\\u003D"), (ScannedToken{LEX_EQUAL, "=="}));
    Tokens expected = {Id("a"), {LEX_EQUAL, "=="}, Id("b")};
    EXPECT_EQ(ScanAll("a\\u003D\\u003D b"), expected);
}

TEST(Scanner, OtherCodePointsAreTokensOfTheirOwnCode) {
    // F0 9F 98 80 reads as 0x3E600, unassigned, and is written back in the standard layout.
    Tokens expected = {{0x3E600, "\xF0\xBE\x98\x80"}, {0x20AC, "\xE2\x82\xAC"}, {0xB0, "\xC2\xB0"}};
    EXPECT_EQ(ScanAll("\xF0\x9F\x98\x80 \\u20AC \xC2\xB0"), expected);
}

TEST(Scanner, ControlCharactersAreTokens) {
    Tokens expected = {{1, "\x01"}, {0x1B, "\x1B"}};
    EXPECT_EQ(ScanAll("\x01\x1B"), expected);
}

// ---------------------------------------------------------------------------------------------
// Malformed input

TEST(Scanner, MalformedUtf8NeverStopsTheScanner) {
    const std::vector<std::string> sources = {
        "\x80", "\xBF\xBF\xBF", "a\xC3", "a\xE2\x82", "a\xF0\x9F\x98", "\xFF\xFE\xFD", "'\xE2",
        "\"\xF0", "/*\xE2", "//\xF0", "1\xE2", "\\u\xF0", "\xEF\xBB\xBF\xEF\xBB", "\r\r\r\xC3",
    };
    for (const std::string& source : sources) {
        std::string error = ScanError(source);
        EXPECT_TRUE(error.empty() || error == "Error : file.js(1) : unterminated string literal\n") << source;
    }
}

TEST(Scanner, LoneCrsAreNewlines) {
    Lexer* lexer = NewTestLexer("\r\r\ra");
    EXPECT_EQ(TokenText(lexer), "a");
    EXPECT_EQ(lexer->tokenPosition.line, 4);
}

TEST(Scanner, EscapeWithoutDigitsEndsTheInput) {
    Tokens expected = {Id("a")};
    EXPECT_EQ(ScanAll("a \\uz b"), expected);
}

TEST(Scanner, ArbitraryBytesScanToTheEndOrAStringError) {
    // A fixed pseudo-random sequence, so a failure reproduces.
    uint32_t state = 12345;
    auto nextByte = [&state]() {
        state = state * 1103515245u + 12345u;
        return static_cast<char>((state >> 16) & 0xFF);
    };
    const char interesting[] = "\\u'\"/*\n\r+-=<>.0x9eE\xC3\xE2\xF0\x80\xBF";
    for (int round = 0; round < 3000; round++) {
        std::string source;
        int length = 1 + round % 40;
        for (int i = 0; i < length; i++) {
            char byte = nextByte();
            if (byte & 1) byte = interesting[static_cast<unsigned char>(byte) % (sizeof interesting - 1)];
            source.push_back(byte);
        }
        std::string error = ScanError(source);
        EXPECT_TRUE(error.empty() || error.find("Error : file.js(") == 0) << error;
    }
}

// ---------------------------------------------------------------------------------------------
// Plain tokens read from the bytes leave what the character reader leaves

namespace {

// Everything of a lexer's state that a later step or a node reads, with its pointers as offsets
// into its own source.
struct ScanState {
    int32_t kind;
    int32_t previousKind;
    std::string text;
    int32_t tokenLine;
    int32_t tokenColumn;
    int32_t line;
    int32_t column;
    int32_t offset;
    uint32_t current;
    uint32_t next;
    int64_t currentStart;
    int64_t nextStart;
    int64_t readPtr;
    std::string error;
};

bool operator==(const ScanState& a, const ScanState& b) {
    return a.kind == b.kind && a.previousKind == b.previousKind && a.text == b.text &&
           a.tokenLine == b.tokenLine && a.tokenColumn == b.tokenColumn && a.line == b.line &&
           a.column == b.column && a.offset == b.offset && a.current == b.current && a.next == b.next &&
           a.currentStart == b.currentStart && a.nextStart == b.nextStart && a.readPtr == b.readPtr &&
           a.error == b.error;
}

std::ostream& operator<<(std::ostream& out, const ScanState& s) {
    return out << "kind " << s.kind << " previous " << s.previousKind << " text '" << s.text << "' token at "
               << s.tokenLine << ":" << s.tokenColumn << " position " << s.line << ":" << s.column << " offset "
               << s.offset << " current " << s.current << " next " << s.next << " starts " << s.currentStart
               << "/" << s.nextStart << "/" << s.readPtr << " error '" << s.error << "'";
}

ScanState StateOf(const Lexer* lexer, const std::string& error) {
    const uint8_t* base = lexer->end - lexer->length;
    return {lexer->tokenKind, lexer->previousKind, TokenText(lexer), lexer->tokenPosition.line,
            lexer->tokenPosition.column, lexer->position.line, lexer->position.column, lexer->position.offset,
            lexer->current, lexer->next, lexer->currentStart - base, lexer->nextStart - base,
            lexer->readPtr - base, error};
}

// Scans `source` after a first ';' token with `scan`, recording the state after every token (and
// the message of an error, which ends the scan).
template <typename Scan>
std::vector<ScanState> StatesOf(const std::string& source, Scan scan) {
    // Thousands of lexers: their records and texts share two arenas rather than taking a block
    // each.
    static Arena records{};
    static Arena texts{};
    std::vector<ScanState> states;
    Lexer* lexer = LexerWithArenas((";" + source).c_str(), records, texts);
    for (size_t i = 0; i < 10000; i++) {
        std::string error;
        try {
            scan(lexer);
        } catch (const CompileException& exception) {
            error = exception.what();
        }
        states.push_back(StateOf(lexer, error));
        if (!error.empty() || lexer->tokenKind == LEX_EOF) break;
    }
    EndLexing(lexer);
    return states;
}

// Pieces of scripts: plain tokens of every kind, and everything that makes a token or the
// whitespace before it not plain.
const char* const kPieces[] = {
    "a", "_x1", "$", "abc9", "if", "in", "instanceof", "inx", "return", "whilex", "0", "7", "42", "08",
    "0x1F", "0X", "017", "1.5", ".5", "1e3", "2E+4", "3.", "12abc", "9x", "\"str\"", "'s'", "\"\"",
    "\"a\\nb\"", "'\\x41'", "\"unterminated", "'line\nbreak'", "\"caf\xc3\xa9\"", "=", "==", "===", "=>",
    "!", "!=", "!==", "<", "<=", "<<", "<<=", ">", ">=", ">>", ">>=", ">>>", ">>>=", "+", "++", "+=",
    "-", "--", "-=", "&", "&&", "&=", "|", "||", "|=", "*", "*=", "/", "/=", "%", "%=", "^", "^=",
    "(", ")", "{", "}", ";", ",", ".", "?", ":", "[", "]", "~", "#", "@", "`", "\x01", "\x7f", " ",
    "  ", "\t", "\v", "\f", "\n", "\n\n", "\r", "\r\n", "\n+", "\n++", "\n-", "\n--", "// note\n",
    "/* c */", "/*/", "\\u0061", "a\\u0062", "\\u003d", "\xc3\xa9", "\xcf\xb6", "\xc2\xa0", "\\",
    "\xe2\x80\x8c", "\xff",
};

}  // namespace

TEST(Scanner, PlainTokensFromTheBytesLeaveWhatTheCharacterReaderLeaves) {
    std::mt19937 random(20261125);
    std::uniform_int_distribution<size_t> pick(0, sizeof kPieces / sizeof kPieces[0] - 1);
    std::uniform_int_distribution<int> count(1, 24);
    for (int round = 0; round < 4000; round++) {
        std::string source;
        for (int pieces = count(random); pieces > 0; pieces--) source += kPieces[pick(random)];
        std::vector<ScanState> plain = StatesOf(source, ScanToken);
        std::vector<ScanState> characters = StatesOf(source, ScanTokenByCharacters);
        ASSERT_EQ(plain.size(), characters.size()) << "'" << source << "'";
        for (size_t i = 0; i < plain.size(); i++) {
            ASSERT_EQ(plain[i], characters[i]) << "token " << i << " of '" << source << "'";
        }
    }
}

TEST(Scanner, EveryPieceAloneAndBetweenOthersScansAlikeBothWays) {
    for (const char* piece : kPieces) {
        for (const char* around : {"", " ", "x", "\n", "=", "\"q\"", "9"}) {
            std::string source = std::string(around) + piece + around + piece;
            EXPECT_EQ(StatesOf(source, ScanToken), StatesOf(source, ScanTokenByCharacters)) << "'" << source << "'";
        }
    }
}

namespace {

// The kind and text of every token of `source` (after a first ';'), up to the end or an error,
// while a holder takes every token's record as a node would, so that every text a later token of
// its kind or spelling may share is kept.
std::vector<ScannedToken> TokensWhileHoldingEach(const std::string& source) {
    static Arena records{};
    static Arena texts{};
    std::vector<ScannedToken> tokens;
    Lexer* lexer = LexerWithArenas((";" + source).c_str(), records, texts);
    for (size_t i = 0; i < 10000; i++) {
        try {
            ScanToken(lexer);
        } catch (const CompileException&) {
            break;
        }
        RetainRefString(*lexer->tokenText);
        tokens.push_back({lexer->tokenKind, TokenText(lexer)});
        if (lexer->tokenKind == LEX_EOF) break;
    }
    EndLexing(lexer);
    return tokens;
}

}  // namespace

// A kind kept by kind (an operator, a keyword, a character that is a token of its own) takes the
// text a node took last for it without comparing the texts: that holds only while every token of a
// kind is spelled the same, however it was written (escapes, the automatic ';', characters beyond
// ASCII). Scanned with every record held, each token's text is still what a scan that shares
// nothing gives.
TEST(Scanner, EveryKindKeptByKindHasOneSpelling) {
    std::vector<std::string> pieces(std::begin(kPieces), std::end(kPieces));
    for (const KeywordEntry& keyword : KeywordTable) pieces.push_back(std::string(" ") + keyword.text + " ");
    for (const char* escaped : {"=\\u003d", "\\u0069f ", "\\u0069\\u006e ", "\xc2\xa9", "\xc2\xb1", "\xc3\x97",
                                "\n++x", "!\\u003d=", "<\\u003c="}) {
        pieces.push_back(escaped);
    }
    std::mt19937 random(20261126);
    std::uniform_int_distribution<size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<int> count(1, 40);
    for (int round = 0; round < 3000; round++) {
        std::string source;
        for (int n = count(random); n > 0; n--) source += pieces[pick(random)];
        std::vector<ScanState> alone = StatesOf(source, ScanToken);
        std::vector<ScannedToken> held = TokensWhileHoldingEach(source);
        ASSERT_LE(held.size(), alone.size()) << "'" << source << "'";
        for (size_t i = 0; i < held.size(); i++) {
            ASSERT_EQ(held[i].kind, alone[i].kind) << "token " << i << " of '" << source << "'";
            ASSERT_EQ(held[i].text, alone[i].text) << "token " << i << " of '" << source << "'";
        }
    }
}
