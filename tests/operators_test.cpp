// Arithmetic, bitwise, comparison and compound-assignment operators, and the value-selecting
// forms &&, || and ?:. Each test runs in its own process: the first interned name has index 3.
#include <gtest/gtest.h>

#include "helpers/compile_support.h"

namespace {

using Words = std::vector<uint32_t>;
using Types = std::vector<uint32_t>;


constexpr uint32_t Ref(uint32_t index) { return 0xA0000000u | index; }

// push.v -11 of the name with `index`.
Words Read(uint32_t index) { return {0xC005FFF5u, Ref(index)}; }

Words Join(std::initializer_list<Words> parts) {
    Words all;
    for (const Words& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

}  // namespace

// ---- arithmetic and bitwise

TEST(BinaryOperators, FlatAndChainUsesTheFirstResultAsLeftType) {
    ExpressionResult r = CompileExpressionSource("1 & 2 & 3");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0xC00F0002u, 0x0E220100u, 0xC00F0003u, 0x0E520100u})) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(BinaryOperators, NestedMultiplicationGivesTheSameShape) {
    ExpressionResult r = CompileExpressionSource("1 * 2 * 3");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0xC00F0002u, 0x08220100u, 0xC00F0003u, 0x08520100u})) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(BinaryOperators, FirstTypeIsTheRightOperandsSecondTheLefts) {
    ExpressionResult r = CompileExpressionSource("'s' - 1");
    EXPECT_EQ(r.words, (Words{0xC0060000u, 3, 0xC00F0001u, 0x0D620100u}));
}

TEST(BinaryOperators, EveryOperatorWord) {
    struct Case {
        const char* source;
        uint32_t word;
    };
    const Case cases[] = {
        {"a * b", 0x08550100u}, {"a / b", 0x09550100u}, {"a % b", 0x0B550100u}, {"a + b", 0x0C550100u},
        {"a - b", 0x0D550100u}, {"a & b", 0x0E550100u}, {"a | b", 0x0F550100u}, {"a ^ b", 0x10550100u},
        {"a << b", 0x13550100u}, {"a >> b", 0x14550100u}, {"a >>> b", 0x14558100u},
    };
    for (const Case& c : cases) {
        ExpressionResult r = CompileExpressionSource(c.source);
        ASSERT_EQ(r.words.size(), 5u) << c.source;
        EXPECT_EQ(r.words[4], c.word) << c.source;
        EXPECT_EQ(r.types, (Types{TYPE_VARIABLE})) << c.source;
    }
}

TEST(BinaryOperators, UnsignedShiftCarriesField8100) {
    ExpressionResult r = CompileExpressionSource("a >>> b");
    EXPECT_EQ(r.words, Join({Read(3), Read(4), {0x14558100u}}));
}

TEST(BinaryOperators, RemainderIsMod) {
    ExpressionResult r = CompileExpressionSource("a % b");
    EXPECT_EQ(r.words, Join({Read(3), Read(4), {0x0B550100u}}));
}

TEST(BinaryOperators, LogicalAndRowHasNoFieldAndTheRightType) {
    TestCompile t;
    CompileBinaryExpression(t.cx, N(LEX_ANDAND, "&&", {Int("1"), Str("s")}));
    EXPECT_EQ(t.Words(), (Words{0xC00F0001u, 0xC0060000u, 3, 0x0E260000u}));
    EXPECT_EQ(t.Types(), (Types{TYPE_STRING}));
}

TEST(BinaryOperators, UnknownKindIsReportedBeforeTheOperandIsCompiled) {
    TestCompile t;
    std::string error = ErrorOf([&] { CompileBinaryExpression(t.cx, N('<', "<", {Int("1"), Int("2")})); });
    EXPECT_EQ(error, "Error : test.js(1) : VM::CompileBinaryExpression : Unhandled operator\n");
    EXPECT_EQ(t.Words(), (Words{0xC00F0001u}));
}

// ---- comparisons

TEST(Comparisons, LessThanIsSetKind7WithTypeBool) {
    ExpressionResult r = CompileExpressionSource("a < b");
    EXPECT_EQ(r.words, Join({Read(3), Read(4), {0x15550700u}}));
    EXPECT_EQ(r.types, (Types{TYPE_BOOL}));
}

TEST(Comparisons, InIsKind11) {
    ExpressionResult r = CompileExpressionSource("a in b");
    EXPECT_EQ(r.words, Join({Read(3), Read(4), {0x15550B00u}}));
    EXPECT_EQ(r.types, (Types{TYPE_BOOL}));
}

TEST(Comparisons, EveryComparisonKind) {
    struct Case {
        const char* source;
        uint32_t word;
    };
    const Case cases[] = {
        {"1 < 2", 0x15220700u},  {"1 > 2", 0x15220800u},   {"1 <= 2", 0x15220900u},
        {"1 >= 2", 0x15220A00u}, {"1 == 2", 0x15220C00u},  {"1 != 2", 0x15220D00u},
        {"1 === 2", 0x15220E00u}, {"1 !== 2", 0x15220F00u},
    };
    for (const Case& c : cases) {
        ExpressionResult r = CompileExpressionSource(c.source);
        EXPECT_EQ(r.words, (Words{0xC00F0001u, 0xC00F0002u, c.word})) << c.source;
        EXPECT_EQ(r.types, (Types{TYPE_BOOL})) << c.source;
    }
}

TEST(Comparisons, FlatRunKeepsTheFirstKindAndTheBoolLeftType) {
    ExpressionResult r = CompileExpressionSource("1 < 2 > 3");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0xC00F0002u, 0x15220700u, 0xC00F0003u, 0x15420700u})) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_BOOL}));
}

TEST(Comparisons, UnknownKindEmitsNothingButPushesBool) {
    TestCompile t;
    CompileComparison(t.cx, N('+', "+", {Int("1"), Int("2")}));
    EXPECT_EQ(t.Words(), (Words{0xC00F0001u, 0xC00F0002u}));
    EXPECT_EQ(t.Types(), (Types{TYPE_BOOL}));
}

// ---- compound assignment

TEST(CompoundAssignment, PlusEqualsLoadsAddsDuplicatesAndStores) {
    ExpressionResult r = CompileExpressionSource("x += 1");
    EXPECT_EQ(r.words, Join({Read(3), {0xC00F0001u, 0x0C520100u, 0x86050000u, 0x4555FFF5u, Ref(3)}}))
        << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(CompoundAssignment, EveryOperatorWord) {
    struct Case {
        const char* source;
        uint32_t word;
    };
    const Case cases[] = {
        {"x += 's'", 0x0C560100u},  {"x -= 's'", 0x0D560100u},  {"x *= 's'", 0x08560100u},
        {"x /= 's'", 0x09560100u},  {"x %= 's'", 0x0B560100u},  {"x <<= 's'", 0x13560100u},
        {"x >>= 's'", 0x14560100u}, {"x >>>= 's'", 0x14568100u}, {"x &= 's'", 0x0E560100u},
        {"x |= 's'", 0x0F560100u},  {"x ^= 's'", 0x10560100u},
    };
    for (const Case& c : cases) {
        ExpressionResult r = CompileExpressionSource(c.source);
        ASSERT_EQ(r.words.size(), 8u) << c.source;
        EXPECT_EQ(r.words[4], c.word) << c.source;
        EXPECT_EQ(r.words[5], 0x86050000u) << c.source;
        EXPECT_EQ(r.words[6], 0x4555FFF5u) << c.source;
    }
}

TEST(CompoundAssignment, UnknownKindEmitsNoOperatorWord) {
    TestCompile t;
    CompileCompoundAssignment(t.cx, N('=', "=", {Id("x"), Int("1")}));
    EXPECT_EQ(t.Words(), Join({Read(3), {0xC00F0001u, 0x86050000u, 0x4555FFF5u, Ref(3)}}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}

TEST(CompoundAssignment, OfAMemberEvaluatesTheObjectTwice) {
    ExpressionResult r = CompileExpressionSource("a.b -= 1");
    Words expected = {0xC005FFF5u, Ref(3), 0xC005FFF7u, Ref(4), 0xC00F0001u, 0x0D520100u, 0x86050000u,
                      0xC005FFF5u, Ref(3), 0x4555FFF7u, Ref(4)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

// ---- && || ?:

TEST(LogicalAnd, VariableOperandNeedsNoConversionAfterTheBranch) {
    ExpressionResult r = CompileExpressionSource("a && b");
    // 0 a; 8 dup.v; 12 conv.v.b; 16 bt else(24); 20 b endif(36); 24 popz.v; 28 b; 36:
    Words expected = {0xC005FFF5u, Ref(3), 0x86050000u, 0x07450100u, 0xB7000002u, 0xB6000004u,
                      0x9E050000u, 0xC005FFF5u, Ref(4)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(LogicalAnd, IntOperandIsConvertedAfterTheBranch) {
    ExpressionResult r = CompileExpressionSource("1 && b");
    // 0 push.e 1; 4 dup.i; 8 conv.i.b; 12 bt else(24); 16 conv.i.v; 20 b endif(36); 24 popz.i; 28 b
    Words expected = {0xC00F0001u, 0x86020000u, 0x07420100u, 0xB7000003u, 0x07520000u, 0xB6000004u,
                      0x9E020000u, 0xC005FFF5u, Ref(3)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(LogicalAnd, RightOperandIsConvertedToVariable) {
    ExpressionResult r = CompileExpressionSource("a && 2");
    Words expected = {0xC005FFF5u, Ref(3), 0x86050000u, 0x07450100u, 0xB7000002u, 0xB6000004u,
                      0x9E050000u, 0xC00F0002u, 0x07520000u};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

TEST(LogicalAnd, WithoutChildrenEmitsNothing) {
    TestCompile t;
    CompileLogicalAnd(t.cx, N(LEX_ANDAND, "&&"));
    EXPECT_TRUE(t.Words().empty());
    EXPECT_TRUE(t.Types().empty());
}

TEST(LogicalOr, BranchesOnFalse) {
    ExpressionResult r = CompileExpressionSource("a || b");
    Words expected = {0xC005FFF5u, Ref(3), 0x86050000u, 0x07450100u, 0xB8000002u, 0xB6000004u,
                      0x9E050000u, 0xC005FFF5u, Ref(4)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(LogicalOr, ChainNestsToTheRightAndPatchesTheOuterBranchLast) {
    ExpressionResult r = CompileExpressionSource("a || b || c");
    // 0 a; 8 dup; 12 conv; 16 bf else(24); 20 b endif(64); 24 popz.v;
    // 28 b; 36 dup; 40 conv; 44 bf else2(52); 48 b endif2(64); 52 popz.v; 56 c; both end at 64
    Words expected = {0xC005FFF5u, Ref(3), 0x86050000u, 0x07450100u, 0xB8000002u, 0xB6000000u | 11u,
                      0x9E050000u, 0xC005FFF5u, Ref(4), 0x86050000u, 0x07450100u, 0xB8000002u,
                      0xB6000004u, 0x9E050000u, 0xC005FFF5u, Ref(5)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

TEST(Conditional, ConvertsTheConditionAndBothValues) {
    ExpressionResult r = CompileExpressionSource("c ? 1 : 'x'");
    // 0 c; 8 conv.v.b; 12 bf else(28); 16 push.e 1; 20 conv.i.v; 24 b endif(40); 28 push.s; 36 conv.s.v
    Words expected = {0xC005FFF5u, Ref(3), 0x07450100u, 0xB8000004u, 0xC00F0001u, 0x07520000u,
                      0xB6000004u, 0xC0060000u, 4, 0x07560000u};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
    EXPECT_EQ(Listing(r.words), ReadTestData("conditional_listing.txt"));
}

TEST(Conditional, BoolConditionIsStillConverted) {
    ExpressionResult r = CompileExpressionSource("true ? a : b");
    EXPECT_EQ(r.words[0], 0xC00F0001u);
    EXPECT_EQ(r.words[1], 0x07440100u);
}

TEST(EmitConvToVariable, ConvertsAnyOtherType) {
    TestCompile t;
    EmitConvToVariable(t.cx, TYPE_VARIABLE);
    EmitConvToVariable(t.cx, TYPE_DOUBLE);
    EmitConvToVariable(t.cx, TYPE_SHORT);
    EXPECT_EQ(t.Words(), (Words{0x07500000u, 0x075F0000u}));
}
