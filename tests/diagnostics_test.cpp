#include <gtest/gtest.h>

#include <string>

#include "support/diagnostics.h"

namespace {

std::string ErrorText(const SourcePosition* location, const char* message) {
    try {
        ReportDiagnostic(kDiagnosticError, location, "%s", message);
    } catch (const CompileException& exception) {
        return exception.what();
    }
    return "no exception";
}

SourcePosition PositionIn(const char* file, int32_t line, int32_t column) {
    SourcePosition position{};
    position.fileName = NewRefHandle(NewRefString(file));
    position.source = NewRefHandle(NewRefString(""));
    position.line = line;
    position.column = column;
    return position;
}

}  // namespace

TEST(Diagnostics, ReportWithoutLocationIsPrefixMessageAndNewline) {
    EXPECT_EQ(ErrorText(nullptr, "boom"), "Error : boom\n");
}

TEST(Diagnostics, ReportWithLocationNamesFileAndLine) {
    SourcePosition position = PositionIn("a", 3, 9);
    EXPECT_EQ(ErrorText(&position, "Got '}' (}) expected ';'"), "Error : a(3) : Got '}' (}) expected ';'\n");
}

TEST(Diagnostics, NoMessageEverShowsTheColumn) {
    SourcePosition position = PositionIn("f.js", 12, 4321);
    std::string text = ErrorText(&position, "x");
    EXPECT_EQ(text, "Error : f.js(12) : x\n");
    EXPECT_EQ(text.find("4321"), std::string::npos);
}

TEST(Diagnostics, LongMessageIsGrownAndKeptWhole) {
    std::string message(5000, 'm');
    SourcePosition position = PositionIn("long.js", 1, 1);
    EXPECT_EQ(ErrorText(&position, message.c_str()), "Error : long.js(1) : " + message + "\n");
}

TEST(Diagnostics, FormatArgumentsAreFilledIn) {
    try {
        ReportDiagnostic(kDiagnosticError, nullptr, "unknown var type when compiling LEX_ID type=%d", -12);
        FAIL();
    } catch (const CompileException& exception) {
        EXPECT_STREQ(exception.what(), "Error : unknown var type when compiling LEX_ID type=-12\n");
    }
}

TEST(Diagnostics, ExceptionCopiesShareTheMessage) {
    try {
        ReportError(nullptr, "copy %s", "me");
    } catch (const CompileException& exception) {
        CompileException copy(exception);
        EXPECT_STREQ(copy.what(), "Error : copy me\n");
        EXPECT_STREQ(exception.what(), "Error : copy me\n");
    }
}

TEST(Diagnostics, WarningPrintsToStandardOutputAndReturns) {
    testing::internal::CaptureStdout();
    ReportDiagnostic(kDiagnosticWarning, nullptr, "%s", "careful");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning : careful\n");
}

TEST(Diagnostics, WarningTextIsUsedAsAPrintfFormat) {
    // The built text "Warning : 50%% done" goes through printf as its format, so "%%" prints '%'.
    testing::internal::CaptureStdout();
    ReportDiagnostic(kDiagnosticWarning, nullptr, "%s", "50%% done");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning : 50% done\n");
}

TEST(Diagnostics, WarningWithLocationNamesFileAndLine) {
    SourcePosition position = PositionIn("w.js", 7, 2);
    testing::internal::CaptureStdout();
    ReportDiagnostic(kDiagnosticWarning, &position, "odd %d", 5);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning : w.js(7) : odd 5\n");
}
