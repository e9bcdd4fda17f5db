// Deep operator chains through the exports: exact code where the stack allows, a clean
// diagnostic beyond, never a crash, on a thread with the 1 MiB stack of a Windows main thread.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "helpers/compile_support.h"
#include "veltjs.h"

namespace {

struct Chain {
    const char* name;
    std::string (*source)(int links);
    bool flat;   // one node with a child per link: any length compiles
};

std::string Repeat(const std::string& piece, int times) {
    std::string out;
    for (int i = 0; i < times; i++) out += piece;
    return out;
}

const Chain kChains[] = {
    {"addition", [](int n) { return "x = a" + Repeat(" + a", n) + ";"; }, false},
    {"subtraction", [](int n) { return "x = a" + Repeat(" - a", n) + ";"; }, false},
    {"multiplication", [](int n) { return "x = a" + Repeat(" * a", n) + ";"; }, false},
    {"logical and", [](int n) { return "x = a" + Repeat(" && a", n) + ";"; }, false},
    {"logical or", [](int n) { return "x = a" + Repeat(" || a", n) + ";"; }, false},
    {"bitwise and", [](int n) { return "x = a" + Repeat(" & a", n) + ";"; }, true},
    {"comparison", [](int n) { return "x = a" + Repeat(" < a", n) + ";"; }, true},
    {"member access", [](int n) { return "x = a" + Repeat(".b", n) + ";"; }, false},
    {"element access", [](int n) { return "x = a" + Repeat("[0]", n) + ";"; }, false},
    {"calls", [](int n) { return "f" + Repeat("()", n) + ";"; }, false},
    {"sequence", [](int n) { return "x = (a" + Repeat(", a", n) + ");"; }, true},
    {"unary", [](int n) { return "x = " + Repeat("!", n) + "a;"; }, false},
    {"assignments", [](int n) { return Repeat("a = ", n) + "b;"; }, false},
    {"conditionals", [](int n) { return "x = " + Repeat("a ? b : ", n) + "c;"; }, false},
};

struct Result {
    int32_t status = -2;
    std::string error;
    std::vector<uint32_t> words;
};

Result Compile(const std::string& source) {
    Result result;
    CompileUnit* unit = ParseAndCompile(source, true, "deep", "deep.js");
    result.status = unit->status;
    if (unit->status == 0) {
        result.words.assign(unit->code, unit->code + unit->codeSize / 4);
    } else if (unit->errorCount > 0) {
        result.error = unit->errors[0];
    }
    return result;
}

Result CompileOnSmallStack(const std::string& source) {
    Result result;
    RunOnThreadWithStack(1 << 20, [&] { result = Compile(source); });
    return result;
}

}  // namespace

TEST(Nesting, ThousandLinkChainsCompileOnAOneMebibyteStackExactlyAsOnALargeOne) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "instrumented frames are several times larger than the shipped library's";
#endif
    for (const Chain& chain : kChains) {
        std::string source = chain.source(1000);
        Result large = Compile(source);
        ASSERT_EQ(large.status, 0) << chain.name << ": " << large.error;
        Result small = CompileOnSmallStack(source);
        EXPECT_EQ(small.status, 0) << chain.name << ": " << small.error;
        EXPECT_EQ(small.words, large.words) << chain.name;
    }
}

TEST(Nesting, HundredThousandLinkChainsEndInTheNestingDiagnostic) {
    for (const Chain& chain : kChains) {
        if (chain.flat) continue;
        Result small = CompileOnSmallStack(chain.source(100000));
        EXPECT_EQ(small.status, 1) << chain.name;
        EXPECT_EQ(small.error, "Error : deep.js(1) : nesting too deep\n") << chain.name;
    }
}

TEST(Nesting, HundredThousandLinkFlatRunsCompile) {
    for (const Chain& chain : kChains) {
        if (!chain.flat) continue;
        Result result = CompileOnSmallStack(chain.source(100000));
        EXPECT_EQ(result.status, 0) << chain.name << ": " << result.error;
    }
}
