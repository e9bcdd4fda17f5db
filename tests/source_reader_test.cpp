#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "helpers/lexer_support.h"
#include "lexer/source_reader.h"
#include "support/strings.h"

namespace {

std::string BuilderBytes(uint32_t codePoint) {
    StringBuilder builder{};
    AppendCodePoint(builder, codePoint);
    std::string bytes(builder.text, builder.length);
    FreeStringBuilder(builder);
    return bytes;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Creation

TEST(SourceReader, CreationPrimesTwoCharactersAndScansTheFirstToken) {
    Lexer* lexer = NewTestLexer("ab+c");
    EXPECT_EQ(lexer->tokenKind, LEX_ID);
    EXPECT_EQ(TokenText(lexer), "ab");
    EXPECT_EQ(lexer->previousKind, LEX_EOF);
    EXPECT_EQ(lexer->current, static_cast<uint32_t>('+'));
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('c'));
    EXPECT_EQ(lexer->length, 4);
    EXPECT_EQ(lexer->end - reinterpret_cast<const uint8_t*>((*lexer->position.source)->text), 4);
    EXPECT_EQ(lexer->reserved, 0u);
}

TEST(SourceReader, BothPositionsHoldTheSourceAndFileName) {
    Lexer* lexer = NewTestLexer("x", "script.js");
    EXPECT_STREQ((*lexer->position.source)->text, "x");
    EXPECT_STREQ((*lexer->position.fileName)->text, "script.js");
    EXPECT_STREQ((*lexer->tokenPosition.source)->text, "x");
    EXPECT_STREQ((*lexer->tokenPosition.fileName)->text, "script.js");
    EXPECT_EQ(lexer->position.line, 1);
    EXPECT_EQ(lexer->tokenPosition.line, 1);
}

TEST(SourceReader, PositionsKeepTheStringsAliveAfterTheCallerReleasesThem) {
    RefString* source = NewPaddedRefString("x", kSourcePadding);
    RefString* fileName = NewRefString("f.js");
    Lexer* lexer = MakeLexer(source, fileName);
    ReleaseRefString(source);
    ReleaseRefString(fileName);
    EXPECT_STREQ((*lexer->position.source)->text, "x");
    EXPECT_STREQ((*lexer->position.fileName)->text, "f.js");
    EXPECT_GE(source->refs, 1u);
    EXPECT_GE(fileName->refs, 1u);
}

TEST(SourceReader, OffsetCountsEveryAdvanceFromCreation) {
    // Two advances prime the lexer, two more pass "ab".
    Lexer* lexer = NewTestLexer("ab c");
    EXPECT_EQ(lexer->position.offset, 4);
    ScanToken(lexer);
    EXPECT_EQ(lexer->position.offset, 6);
}

TEST(SourceReader, ColumnCountsCharactersDecodedIntoTheLookAhead) {
    Lexer* lexer = NewTestLexer("ab c");
    EXPECT_EQ(lexer->tokenPosition.column, 3);
    EXPECT_EQ(lexer->position.column, 5);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenPosition.column, 5);
}

TEST(SourceReader, ColumnIsResetWhenANewlineIsLeft) {
    Lexer* lexer = NewTestLexer("a\nb");
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenPosition.line, 2);
    // "b" was decoded before the newline was left, and nothing follows it.
    EXPECT_EQ(lexer->tokenPosition.column, 0);
}

TEST(SourceReader, AdvancingAtTheEndKeepsBothCharactersZero) {
    Lexer* lexer = NewTestLexer("a");
    EXPECT_EQ(lexer->current, 0u);
    EXPECT_EQ(lexer->next, 0u);
    int32_t offset = lexer->position.offset;
    Advance(lexer);
    Advance(lexer);
    EXPECT_EQ(lexer->current, 0u);
    EXPECT_EQ(lexer->next, 0u);
    EXPECT_EQ(lexer->position.offset, offset + 2);
    EXPECT_EQ(lexer->readPtr, lexer->end);
}

TEST(SourceReader, EmptySourceGivesEndOfInput) {
    Lexer* lexer = NewTestLexer("");
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
    EXPECT_EQ(TokenText(lexer), "");
    EXPECT_EQ(lexer->current, 0u);
}

// ---------------------------------------------------------------------------------------------
// Decoding

TEST(SourceReader, AsciiDecodesAsItself) {
    Lexer* lexer = LexerAfterSemicolon("A~");
    EXPECT_EQ(lexer->current, 0x41u);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('~'));
}

TEST(SourceReader, TwoByteFormDecodesNormally) {
    Lexer* lexer = LexerAfterSemicolon("\xC3\xA9");
    EXPECT_EQ(lexer->current, 0xE9u);
}

TEST(SourceReader, EuroSignReadsAs40AC) {
    Lexer* lexer = LexerAfterSemicolon("\xE2\x82\xAC");
    EXPECT_EQ(lexer->current, 0x40ACu);
}

TEST(SourceReader, ThreeByteFormShiftsTheLeadBySeven) {
    Lexer* lexer = LexerAfterSemicolon("\xE4\xB8\xAD");
    EXPECT_EQ(lexer->current, 0x8E2Du);
}

TEST(SourceReader, FourByteFormShiftsBySevenTwice) {
    Lexer* lexer = LexerAfterSemicolon("\xF0\x9F\x98\x80");
    EXPECT_EQ(lexer->current, 0x3E600u);
}

TEST(SourceReader, ByteOrderMarkReadsAs1EEFF) {
    Lexer* lexer = LexerAfterSemicolon("\xEF\xBB\xBF");
    EXPECT_EQ(lexer->current, 0x1EEFFu);
}

TEST(SourceReader, SourceBeginningWithByteOrderMarkYieldsItAsAToken) {
    // 0x1EEFF is neither whitespace nor an identifier character.
    std::vector<ScannedToken> expected = {{0x1EEFF, "\xF0\x9E\xBB\xBF"}, {LEX_ID, "a"}};
    EXPECT_EQ(ScanAll("\xEF\xBB\xBF" "a"), expected);
}

TEST(SourceReader, ContinuationBytesContributeOnlyTheirLowSixBits) {
    // 0xC3 0x29 is malformed; 0x29 still gives its low six bits.
    Lexer* lexer = LexerAfterSemicolon("\xC3\x29" "z");
    EXPECT_EQ(lexer->current, (3u << 6) + 0x29u);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('z'));
}

TEST(SourceReader, LoneContinuationByteIsATwoByteLead) {
    Lexer* lexer = LexerAfterSemicolon("\x80" "Ab");
    EXPECT_EQ(lexer->current, 1u);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('b'));
}

TEST(SourceReader, LeadBytesF8AndAboveAreTwoByteLeads) {
    Lexer* lexer = LexerAfterSemicolon("\xFF\xBF" "b");
    EXPECT_EQ(lexer->current, (0x1Fu << 6) + 0x3Fu);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('b'));
}

TEST(SourceReader, TruncatedThreeByteLeadAtTheEndReadsZeros) {
    Lexer* lexer = LexerAfterSemicolon("\xE2");
    EXPECT_EQ(lexer->current, 0x4000u);
    EXPECT_EQ(lexer->next, 0u);
    EXPECT_LE(lexer->readPtr, lexer->end + 2);
    Advance(lexer);
    EXPECT_EQ(lexer->current, 0u);
    EXPECT_EQ(lexer->next, 0u);
}

TEST(SourceReader, TruncatedFourByteLeadAsTheVeryLastByte) {
    Lexer* lexer = LexerAfterSemicolon("\xF3");
    EXPECT_EQ(lexer->current, 3u << 20);
    EXPECT_LE(lexer->readPtr, lexer->end + 3);
    EXPECT_EQ(ScanAll("a\xF3").size(), 2u);
}

TEST(SourceReader, TruncatedSequenceBeforeTheEndSwallowsFollowingBytes) {
    // Nothing is validated: the lead takes the next bytes whatever they are.
    Lexer* lexer = LexerAfterSemicolon("\xE4" "ab");
    EXPECT_EQ(lexer->current, (((4u << 7) + ('a' & 0x3F)) << 6) + ('b' & 0x3F));
    EXPECT_EQ(lexer->next, 0u);
}

TEST(SourceReader, UnpaddedSourceIsNeverReadPastItsEnd) {
    // Without the padding the decoder must still stop at the buffer (the sanitizer build checks).
    for (const char* text : {"\xF0", "a\xF0", "\xE2", "\xE2\x82", "\xF0\x9F\x98", "\xC3"}) {
        RefString* source = NewRefString(text);
        RefString* fileName = NewRefString("f.js");
        Lexer* lexer = MakeLexer(source, fileName);
        for (int i = 0; i < 4 && lexer->tokenKind != LEX_EOF; i++) ScanToken(lexer);
        EXPECT_EQ(lexer->tokenKind, LEX_EOF) << text;
    }
}

TEST(SourceReader, NulInsideTheSourceEndsTheInput) {
    std::vector<ScannedToken> expected = {{LEX_ID, "a"}};
    EXPECT_EQ(ScanAll(std::string("a\0b", 3)), expected);
}

TEST(SourceReader, OverlongEncodingOfZeroEndsTheInput) {
    std::vector<ScannedToken> expected = {{LEX_ID, "a"}};
    EXPECT_EQ(ScanAll("a \xC0\x80 b"), expected);
}

// ---------------------------------------------------------------------------------------------
// Newlines

TEST(SourceReader, CrLfReadsAsOneNewline) {
    Lexer* lexer = NewTestLexer("a\r\nb");
    EXPECT_EQ(lexer->current, 10u);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('b'));
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), "b");
    EXPECT_EQ(lexer->tokenPosition.line, 2);
    EXPECT_EQ(lexer->position.line, 2);
}

TEST(SourceReader, CrLfCountsTwoAdvancesInTheOffset) {
    Lexer* lexer = NewTestLexer("a\r\nb");
    EXPECT_EQ(lexer->position.offset, 4);
    ScanToken(lexer);
    EXPECT_EQ(lexer->position.offset, 6);
}

TEST(SourceReader, LoneCrReadsAsNewline) {
    Lexer* lexer = NewTestLexer("a\rb");
    EXPECT_EQ(lexer->current, 10u);
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), "b");
    EXPECT_EQ(lexer->tokenPosition.line, 2);
}

TEST(SourceReader, MixedLineEndsCountOneLineEach) {
    Lexer* lexer = NewTestLexer("a\r\r\n\n\rb\r");
    ScanToken(lexer);
    EXPECT_EQ(TokenText(lexer), "b");
    EXPECT_EQ(lexer->tokenPosition.line, 5);
    ScanToken(lexer);
    EXPECT_EQ(lexer->tokenKind, LEX_EOF);
    EXPECT_EQ(lexer->position.line, 6);
}

TEST(SourceReader, LineIsCountedWhenTheNewlineIsLeft) {
    Lexer* lexer = NewTestLexer("a\n");
    EXPECT_EQ(lexer->current, 10u);
    EXPECT_EQ(lexer->position.line, 1);
    Advance(lexer);
    EXPECT_EQ(lexer->position.line, 2);
}

// ---------------------------------------------------------------------------------------------
// \u escapes outside strings

TEST(SourceReader, EscapeTakesEveryHexDigit) {
    Lexer* lexer = LexerAfterSemicolon("\\u0041BC");
    EXPECT_EQ(lexer->current, 0x41BCu);
    EXPECT_EQ(lexer->next, 0u);
}

TEST(SourceReader, EscapeWithUpperCaseU) {
    Lexer* lexer = LexerAfterSemicolon("\\U41 ");
    EXPECT_EQ(lexer->current, 0x41u);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>(' '));
}

TEST(SourceReader, EscapeWithoutDigitsIsZero) {
    Lexer* lexer = LexerAfterSemicolon("\\uz");
    EXPECT_EQ(lexer->current, 0u);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('z'));
}

TEST(SourceReader, EscapeTestsOnlyTheLowByteOfTheLookAhead) {
    // U+0131 has the low byte 0x31, the digit 1.
    Lexer* lexer = LexerAfterSemicolon("\\u\xC4\xB1;");
    EXPECT_EQ(lexer->current, 1u);
    EXPECT_EQ(lexer->next, static_cast<uint32_t>(';'));
}

TEST(SourceReader, EscapeValueWrapsWithManyDigits) {
    Lexer* lexer = LexerAfterSemicolon("\\u123456789 ");
    EXPECT_EQ(lexer->current, 0x23456789u);
}

TEST(SourceReader, BackslashWithoutUIsLeftAlone) {
    Lexer* lexer = LexerAfterSemicolon("\\x41");
    EXPECT_EQ(lexer->current, static_cast<uint32_t>('\\'));
    EXPECT_EQ(lexer->next, static_cast<uint32_t>('x'));
}

TEST(SourceReader, ResolvingTwiceAppliesToAnEscapedBackslash) {
    // \u005C gives a backslash; resolved again at the token start, it begins \u0041.
    std::vector<ScannedToken> expected = {{LEX_ID, "A"}};
    EXPECT_EQ(ScanAll(" \\u005Cu0041"), expected);
}

// ---------------------------------------------------------------------------------------------
// Appending code points

TEST(AppendCodePoint, WritesOneToSixBytes) {
    EXPECT_EQ(BuilderBytes(0x41), "A");
    EXPECT_EQ(BuilderBytes(0x7F), "\x7F");
    EXPECT_EQ(BuilderBytes(0x80), "\xC2\x80");
    EXPECT_EQ(BuilderBytes(0x7FF), "\xDF\xBF");
    EXPECT_EQ(BuilderBytes(0x800), "\xE0\xA0\x80");
    EXPECT_EQ(BuilderBytes(0xFFFF), "\xEF\xBF\xBF");
    EXPECT_EQ(BuilderBytes(0x10000), "\xF0\x90\x80\x80");
    EXPECT_EQ(BuilderBytes(0x1FFFFF), "\xF7\xBF\xBF\xBF");
    EXPECT_EQ(BuilderBytes(0x200000), "\xF8\x88\x80\x80\x80");
    EXPECT_EQ(BuilderBytes(0x3FFFFFF), "\xFB\xBF\xBF\xBF\xBF");
    EXPECT_EQ(BuilderBytes(0x4000000), "\xFC\x84\x80\x80\x80\x80");
    EXPECT_EQ(BuilderBytes(0x7FFFFFFF), "\xFD\xBF\xBF\xBF\xBF\xBF");
}

TEST(AppendCodePoint, ReencodesShiftedValuesInTheStandardLayout) {
    EXPECT_EQ(BuilderBytes(0x40AC), "\xE4\x82\xAC");
    EXPECT_EQ(BuilderBytes(0x1EEFF), "\xF0\x9E\xBB\xBF");
}

TEST(AppendCodePoint, ReservesSevenBytesAndKeepsANul) {
    StringBuilder builder{};
    AppendCodePoint(builder, 'a');
    EXPECT_EQ(builder.capacity, 10);
    EXPECT_EQ(builder.length, 1u);
    EXPECT_EQ(builder.text[1], '\0');
    AppendCodePoint(builder, 'b');
    AppendCodePoint(builder, 0x4000000);
    EXPECT_EQ(builder.length, 8u);
    EXPECT_EQ(builder.text[8], '\0');
    EXPECT_GE(builder.capacity, 9);
    FreeStringBuilder(builder);
}

TEST(AppendCodePoint, ZeroWritesANulThatEndsTheText) {
    StringBuilder builder{};
    AppendCodePoint(builder, 'a');
    AppendCodePoint(builder, 0);
    AppendCodePoint(builder, 'b');
    EXPECT_STREQ(builder.text, "a");
    EXPECT_EQ(builder.length, 3u);
    FreeStringBuilder(builder);
}

// ---------------------------------------------------------------------------------------------
// Character classes

TEST(CharacterClasses, WhitespaceIsExactlyTheSevenCodePoints) {
    for (uint32_t c : {9u, 10u, 11u, 12u, 13u, 32u, 160u}) EXPECT_TRUE(IsWhitespace(c)) << c;
    for (uint32_t c : {0u, 8u, 14u, 31u, 33u, 0x85u, 0x1680u, 0x2000u, 0x2028u, 0x2029u, 0x3000u, 0xFEFFu}) {
        EXPECT_FALSE(IsWhitespace(c)) << c;
    }
}

TEST(CharacterClasses, NoBreakSpaceSeparatesTokens) {
    std::vector<ScannedToken> expected = {{LEX_ID, "a"}, {LEX_ID, "b"}};
    EXPECT_EQ(ScanAll("a\xC2\xA0" "b"), expected);
}

TEST(CharacterClasses, LineSeparatorIsNoWhitespace) {
    std::vector<ScannedToken> expected = {{LEX_ID, "a"}, {0x2028, "\xE2\x80\xA8"}, {LEX_ID, "b"}};
    EXPECT_EQ(ScanAll("a\\u2028 b"), expected);
}

TEST(CharacterClasses, CategoriesComeFromTheUnicodeTables) {
    EXPECT_EQ(CharacterCategory('A'), 1);
    EXPECT_EQ(CharacterCategory('a'), 2);
    EXPECT_EQ(CharacterCategory(0x01C5), 3);
    EXPECT_EQ(CharacterCategory(0x02B0), 4);
    EXPECT_EQ(CharacterCategory(0x05D0), 5);
    EXPECT_EQ(CharacterCategory(0x0300), 6);
    EXPECT_EQ(CharacterCategory('0'), 9);
    EXPECT_EQ(CharacterCategory(0x2160), 10);
    EXPECT_EQ(CharacterCategory('_'), 12);
    EXPECT_EQ(CharacterCategory(0x2028), 24);
    EXPECT_EQ(CharacterCategory(9), 26);
}

TEST(CharacterClasses, CodePointsBeyondUnicodeAreUnassigned) {
    EXPECT_EQ(CharacterCategory(0x10FFFF), 0);
    EXPECT_EQ(CharacterCategory(0x110000), 0);
    EXPECT_EQ(CharacterCategory(0x3E600), 0);
    EXPECT_EQ(CharacterCategory(0x7FFFFFFF), 0);
    EXPECT_EQ(CharacterCategory(0xFFFFFFFF), 0);
    EXPECT_FALSE(IsIdentifierPart(0xFFFFFFFF));
}

TEST(CharacterClasses, IdentifierStart) {
    for (uint32_t c : {0x5Fu, 0x24u, 0x41u, 0x7Au, 0x01C5u, 0x02B0u, 0x05D0u, 0x2160u, 0x40ACu}) {
        EXPECT_TRUE(IsIdentifierStart(c)) << c;
    }
    for (uint32_t c : {0x30u, 0x40u, 0x0300u, 0x0903u, 0x0660u, 0x203Fu, 8204u, 8205u, 0x20ACu}) {
        EXPECT_FALSE(IsIdentifierStart(c)) << c;
    }
}

TEST(CharacterClasses, IdentifierPart) {
    for (uint32_t c : {0x5Fu, 0x24u, 0x41u, 0x30u, 0x39u, 0x0300u, 0x0903u, 0x0660u, 0x203Fu, 8204u, 8205u}) {
        EXPECT_TRUE(IsIdentifierPart(c)) << c;
    }
    for (uint32_t c : {0x2Du, 0x2Eu, 0x20ACu, 0x2028u, 0x00A0u, 0x0488u}) EXPECT_FALSE(IsIdentifierPart(c)) << c;
}

TEST(CharacterClasses, DigitsAreAsciiOnly) {
    EXPECT_TRUE(IsDecimalDigit('0'));
    EXPECT_TRUE(IsDecimalDigit('9'));
    EXPECT_FALSE(IsDecimalDigit(0x0660));
    EXPECT_FALSE(IsDecimalDigit('a'));
    EXPECT_TRUE(IsHexDigit('f'));
    EXPECT_TRUE(IsHexDigit('F'));
    EXPECT_FALSE(IsHexDigit('g'));
    EXPECT_FALSE(IsHexDigit(0x0131));
    EXPECT_TRUE(IsOctalDigit('7'));
    EXPECT_FALSE(IsOctalDigit('8'));
}

// The identifier classes answer ASCII without the category lookup; these are the answers the
// lookup gives (utf8proc's numbering: Lu 1 ... Lo 5, Mn 6, Mc 7, Nd 9, Nl 10, Pc 12).
TEST(SourceReader, AsciiClassesAgreeWithTheCategoryLookup) {
    for (uint32_t c = 0; c < 0x80; c++) {
        int32_t category = CharacterCategory(c);
        bool letter = (category >= 1 && category <= 5) || category == 10;
        bool start = c == '_' || c == '$' || letter;
        bool part = start || c == 8204 || c == 8205 || category == 9 || category == 6 || category == 7 ||
                    category == 12;
        EXPECT_EQ(IsIdentifierStart(c), start) << c;
        EXPECT_EQ(IsIdentifierPart(c), part) << c;
    }
    EXPECT_TRUE(IsIdentifierStart(0xE9));    // é, through the lookup
    EXPECT_FALSE(IsIdentifierStart(0xD7));   // ×
    EXPECT_TRUE(IsIdentifierPart(0x0663));   // Arabic-Indic digit three
}

namespace {

// Where a reader's pointer is in its own copy of the source.
int64_t OffsetIn(const Lexer& lexer, const uint8_t* at) { return at - (lexer.end - lexer.length); }

// `count` pieces drawn by a linear congruential generator whose state is `seed`.
std::string RandomSource(const std::vector<std::string>& pieces, int count, uint64_t& seed) {
    std::string source;
    for (int i = 0; i < count; i++) {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        source += pieces[(seed >> 33) % pieces.size()];
    }
    return source;
}

bool SameReaderState(const Lexer& a, const Lexer& b) {
    return a.current == b.current && a.next == b.next && OffsetIn(a, a.readPtr) == OffsetIn(b, b.readPtr) &&
           OffsetIn(a, a.nextStart) == OffsetIn(b, b.nextStart) &&
           OffsetIn(a, a.currentStart) == OffsetIn(b, b.currentStart) && a.position.line == b.position.line &&
           a.position.column == b.position.column && a.position.offset == b.position.offset;
}

}  // namespace

// Advance's inline case (an ASCII look-ahead byte, no line break) does what the routine for every
// character does: two readers over random texts of ASCII, line breaks of all three kinds,
// multi-byte characters, \u escapes and lone bytes, one stepped by each, agree after every step
// up to and past the end.
TEST(SourceReader, TheInlineAdvanceAgreesWithTheFullOneOnEveryCharacter) {
    const std::vector<std::string> pieces = {"a", "Z", "9", "_", " ", "\n", "\r", "\r\n", "\\", "\\u0041", "\\U7a",
                                             "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\x80", "\xFF", "\t", "/"};
    uint64_t seed = 99;
    for (int round = 0; round < 300; round++) {
        std::string source = RandomSource(pieces, 60, seed);
        Lexer* inlined = NewTestLexer(";" + source);
        Lexer* full = NewTestLexer(";" + source);
        ASSERT_TRUE(SameReaderState(*inlined, *full));
        for (size_t step = 0; step < source.size() + 4; step++) {
            Advance(inlined);
            ResolveEscape(inlined);
            AdvanceAnyCharacter(full);
            ResolveBackslash(full);
            ASSERT_TRUE(SameReaderState(*inlined, *full)) << "round " << round << " step " << step;
        }
    }
}

namespace {

// The scanner's loop over an identifier's characters: append the current one, advance, resolve an
// escape.
void TakeIdentifierCharacters(Lexer& lexer, StringBuilder& text) {
    while (IsIdentifierPart(lexer.current)) {
        AppendCodePoint(text, lexer.current);
        Advance(&lexer);
        ResolveEscape(&lexer);
    }
}

}  // namespace

// An identifier's ASCII run taken at once leaves the reader and the text as taking its characters
// one by one does: random texts of identifier characters among escapes, line breaks of all three
// kinds, multi-byte characters, lone bytes and other characters, entered at every character, up to
// and past the end.
TEST(SourceReader, TheIdentifierRunAgreesWithTakingEachCharacter) {
    const std::vector<std::string> pieces = {"a", "Zq", "9", "_$", "abc", "x1y2z3", "longer_name", " ", "\n",
                                             "\r", "\r\n", "\\", "\\u0041", "\\u00e9", "\xC3\xA9",
                                             "\xE2\x82\xAC", "\x80", "\xFF", "+", "."};
    uint64_t seed = 7;
    int taken = 0;
    for (int round = 0; round < 200; round++) {
        std::string source = RandomSource(pieces, 40, seed);
        // Entered at every character: copies of one reader (they share its source, and change
        // only their own reading state).
        Lexer* reader = NewTestLexer(";" + source);
        for (size_t start = 0; start <= source.size(); start++) {
            Lexer run = *reader;
            Lexer each = *reader;
            StringBuilder runText{};
            StringBuilder eachText{};
            AppendText(runText, "k");
            AppendText(eachText, "k");
            TakeAsciiIdentifierRun(&run, runText);
            if (runText.length > 1) taken++;
            TakeIdentifierCharacters(run, runText);
            TakeIdentifierCharacters(each, eachText);
            ASSERT_TRUE(SameReaderState(run, each)) << "round " << round << " start " << start;
            ASSERT_EQ(std::string(runText.text, runText.length), std::string(eachText.text, eachText.length))
                << "round " << round << " start " << start;
            ASSERT_EQ(std::strlen(runText.text), runText.length);
            FreeStringBuilder(runText);
            FreeStringBuilder(eachText);
            Advance(reader);
            ResolveEscape(reader);
        }
        EndLexing(reader);
    }
    // The run was taken at once often enough for the comparison to mean something.
    EXPECT_GT(taken, 1000);
    // Every ASCII byte inside a run: the run takes it exactly when it is an identifier character.
    for (int byte = 1; byte < 0x80; byte++) {
        Lexer* reader = NewTestLexer(std::string(";abc") + static_cast<char>(byte) + "def");
        StringBuilder text{};
        TakeAsciiIdentifierRun(reader, text);
        TakeIdentifierCharacters(*reader, text);
        bool part = IsIdentifierPart(static_cast<uint32_t>(byte));
        EXPECT_EQ(std::string(text.text, text.length), part ? "abc" + std::string(1, static_cast<char>(byte)) + "def" : "abc")
            << byte;
        FreeStringBuilder(text);
        EndLexing(reader);
    }
}

// AppendCodePoint's inline case (ASCII with room to spare) leaves the builder as the routine for
// every code point does, growth included.
TEST(SourceReader, TheInlineAppendAgreesWithTheFullOneAtEveryLength) {
    StringBuilder inlined{};
    StringBuilder full{};
    const uint32_t codePoints[] = {'a', 0x7F, 0xE9, 0x40AC, 0x3E600, 0x7FFFFFFF, '0', 0};
    for (int i = 0; i < 3000; i++) {
        uint32_t codePoint = codePoints[static_cast<size_t>(i * 7 + i / 5) % 8];
        AppendCodePoint(inlined, codePoint);
        AppendAnyCodePoint(full, codePoint);
        ASSERT_EQ(inlined.length, full.length) << i;
        ASSERT_EQ(inlined.capacity, full.capacity) << i;
        ASSERT_EQ(std::memcmp(inlined.text, full.text, full.length + 1), 0) << i;
    }
    FreeStringBuilder(inlined);
    FreeStringBuilder(full);
}
