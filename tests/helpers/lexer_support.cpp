#include "helpers/lexer_support.h"

#include <gtest/gtest.h>

#include "support/diagnostics.h"
#include "support/strings.h"

namespace {

// Far more tokens than any test source has: a scanner that stops advancing cannot hang a test.
constexpr size_t kTokenLimit = 100000;

}  // namespace

bool operator==(const ScannedToken& left, const ScannedToken& right) {
    return left.kind == right.kind && left.text == right.text;
}

void PrintTo(const ScannedToken& token, std::ostream* out) {
    *out << "{" << token.kind << ", \"";
    for (unsigned char c : token.text) {
        if (c >= 0x20 && c < 0x7F) {
            *out << c;
        } else {
            static const char kHex[] = "0123456789ABCDEF";
            *out << "\\x" << kHex[c >> 4] << kHex[c & 15];
        }
    }
    *out << "\"}";
}

Lexer* NewTestLexer(const std::string& source, const char* fileName) {
    RefString* sourceText = NewPaddedRefString(source.c_str(), kSourcePadding);
    RefString* fileText = NewRefString(fileName);
    Lexer* lexer = MakeLexer(sourceText, fileText);
    ReleaseRefString(sourceText);
    ReleaseRefString(fileText);
    return lexer;
}

std::string TokenText(const Lexer* lexer) {
    const RefString* text = *lexer->tokenText;
    return text && text->text ? text->text : "";
}

std::vector<ScannedToken> ScanAll(const std::string& source) {
    std::vector<ScannedToken> tokens;
    Lexer* lexer = NewTestLexer(source);
    while (lexer->tokenKind != LEX_EOF && tokens.size() < kTokenLimit) {
        tokens.push_back({lexer->tokenKind, TokenText(lexer)});
        ScanToken(lexer);
    }
    EXPECT_LT(tokens.size(), kTokenLimit) << "the scanner never reached the end";
    EXPECT_EQ(TokenText(lexer), "");
    return tokens;
}

std::string ScanError(const std::string& source, const char* fileName) {
    try {
        Lexer* lexer = NewTestLexer(source, fileName);
        for (size_t i = 0; lexer->tokenKind != LEX_EOF && i < kTokenLimit; i++) ScanToken(lexer);
    } catch (const CompileException& exception) {
        return exception.what();
    }
    return "";
}

Lexer* LexerAfterSemicolon(const std::string& rest) {
    Lexer* lexer = NewTestLexer(";" + rest);
    EXPECT_EQ(lexer->tokenKind, ';');
    return lexer;
}
