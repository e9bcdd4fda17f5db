// Whole scripts through VeltJS_Parse and VeltJS_Compile, one expression form per test: the exact
// instruction words, the patch records (name, kind, code offset) and the error messages. The
// expected words are worked out by hand from the compiler's rules. Each TEST runs in a process of
// its own, so every script is the first compile: the name table starts with "prototype" (0),
// "@@array@@" (1) and "arguments" (2), and the generated-name counters start at 0.
//
// Most scripts are `x = <expression>;` at top level: a statement-level '=' compiles the value and
// stores it into the unresolved x with `pop.v -11` (0x45T5FFF5, T = the value's type), so the last
// two words show the type that the expression left.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "helpers/compile_support.h"

namespace {

constexpr uint32_t kGlobalScopeCall = 0xD9020000;  // call @@GlobalScope@@ / @@This@@ with 0 arguments
constexpr uint32_t kScriptRefCall = 0xD9020001;    // call @@script_ref@@ with 1 argument


std::string Hex(std::initializer_list<uint32_t> words) { return HexWords(std::vector<uint32_t>(words)); }

std::string Hex(const std::vector<uint32_t>& words) { return HexWords(words); }

// Concatenates word runs.
std::vector<uint32_t> Join(std::initializer_list<std::vector<uint32_t>> parts) {
    std::vector<uint32_t> words;
    for (const std::vector<uint32_t>& part : parts) words.insert(words.end(), part.begin(), part.end());
    return words;
}

// Parses and compiles; null (and a recorded failure) when the compile did not succeed.
CompileUnit* Compiled(const std::string& source, bool topLevel = true, const char* scriptName = "main") {
    CompileUnit* unit = ParseAndCompile(source, topLevel, scriptName);
    if (!unit || unit->status != 0) {
        ADD_FAILURE() << "compile failed: " << (unit && unit->errorCount > 0 ? unit->errors[0] : "") << "source: "
                      << source;
        return nullptr;
    }
    return unit;
}

// One line "name kind K at 0xOFFSET" per record; records without a use site are left out unless
// `withUnplaced` is set (then they read "at none").
std::string Patches(const CompileUnit* unit, PatchRecord** records, int32_t count, bool withUnplaced = false) {
    std::string text;
    char line[256];
    for (int32_t i = 0; i < count; i++) {
        const PatchRecord* record = records[i];
        bool known = static_cast<int32_t>(record->nameIndex) < unit->nameCount;
        const char* name = known ? unit->names[record->nameIndex] : "?";
        if (record->codeOffset == UINT64_MAX) {
            if (!withUnplaced) continue;
            std::snprintf(line, sizeof line, "%s kind %u at none\n", name, record->kind);
        } else {
            std::snprintf(line, sizeof line, "%s kind %u at 0x%" PRIx64 "\n", name, record->kind, record->codeOffset);
        }
        text += line;
    }
    return text;
}

std::string VarPatches(const CompileUnit* unit) { return Patches(unit, unit->vars, unit->varCount); }
std::string FuncPatches(const CompileUnit* unit) { return Patches(unit, unit->funcs, unit->funcCount); }
std::string StringPatches(const CompileUnit* unit) { return Patches(unit, unit->strings, unit->stringCount); }

std::string NameOf(const CompileUnit* unit, uint32_t index) {
    if (static_cast<int32_t>(index) < 0 || static_cast<int32_t>(index) >= unit->nameCount) return "?";
    return unit->names[index];
}

// `x = <literal>;` with the literal's words and the type it leaves.
struct LiteralCase {
    const char* literal;
    std::vector<uint32_t> words;
    uint32_t type;
};

void ExpectLiteralStores(const std::vector<LiteralCase>& cases) {
    for (const LiteralCase& c : cases) {
        SCOPED_TRACE(c.literal);
        std::vector<uint32_t> words = CompileWords(std::string("x = ") + c.literal + ";");
        std::vector<uint32_t> expected = c.words;
        expected.push_back(0x4505FFF5u | (c.type << 20));
        expected.push_back(NameRef("x"));
        EXPECT_EQ(Hex(words), Hex(expected));
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Stores, names and patch records

TEST(ExpressionsEndToEnd, AssignmentToAnUnresolvedNameStoresWithSelectorMinus11) {
    CompileUnit* unit = Compiled("x = 1;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xC00F0001,              // push.e 1
                                        0x4525FFF5, 0xA0000003,  // pop.v.i -11 x (name 3)
                                    }));
    EXPECT_EQ(Patches(unit, unit->vars, unit->varCount, true),
              "prototype kind 3 at none\n"
              "@@array@@ kind 3 at none\n"
              "arguments kind 2 at none\n"
              "x kind 0 at 0x4\n");
    EXPECT_EQ(unit->funcCount, 0);
    EXPECT_EQ(unit->stringCount, 0);
}

// ---------------------------------------------------------------------------------------------
// Unary operators

TEST(ExpressionsEndToEnd, LogicalNotOfAVariableYieldsABool) {
    std::vector<uint32_t> words = CompileWords("x = !a;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC005FFF5, NameRef("a"),  // push.v -11 a
                              0x12050100,            // not.v 0x0100
                              0x4545FFF5, NameRef("x"),  // pop.v.b x
                          }));
}

TEST(ExpressionsEndToEnd, LogicalNotCarriesTheOperandsStaticType) {
    std::vector<uint32_t> words = CompileWords("x = !1;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x12020100, 0x4545FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, BitwiseNotIsNotWithField0200AndYieldsAVariable) {
    std::vector<uint32_t> words = CompileWords("x = ~a;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0x12050200, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, UnaryPlusConvertsToVariableWithField0200) {
    std::vector<uint32_t> words = CompileWords("x = +1;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x07520200, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, UnaryMinusOfAVariableIsNeg) {
    std::vector<uint32_t> words = CompileWords("x = -a;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0x11050100, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, UnaryMinusOfAPositiveConstantIsThePushFollowedByNeg) {
    std::vector<uint32_t> words = CompileWords("x = -1;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x11020100, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, MinusZeroIsOnePushOfNegativeZeroDouble) {
    std::vector<uint32_t> words = CompileWords("x = -0;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC0000000, 0x00000000, 0x80000000,  // push.d -0.0
                              0x4505FFF5, NameRef("x"),                // pop.v.d x
                          }));
}

TEST(ExpressionsEndToEnd, MinusZeroPointZeroIsAnOrdinaryNegation) {
    std::vector<uint32_t> words = CompileWords("x = -0.0;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0000, 0x11020100, 0x4555FFF5, NameRef("x")}));
}

// ---------------------------------------------------------------------------------------------
// Binary operators

TEST(ExpressionsEndToEnd, EveryArithmeticAndBitwiseOperatorPutsTheLeftTypeHighAndTheRightTypeLow) {
    struct Case {
        const char* op;
        uint32_t opcode;
        uint32_t field;
    };
    const Case cases[] = {
        {"*", 0x08, 0x0100}, {"/", 0x09, 0x0100}, {"%", 0x0B, 0x0100},  {"+", 0x0C, 0x0100},
        {"-", 0x0D, 0x0100}, {"&", 0x0E, 0x0100}, {"|", 0x0F, 0x0100},  {"^", 0x10, 0x0100},
        {"<<", 0x13, 0x0100}, {">>", 0x14, 0x0100}, {">>>", 0x14, 0x8100},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.op);
        std::vector<uint32_t> words = CompileWords(std::string("x = 1 ") + c.op + " \"s\";");
        // push.e 1 (.i); push.s "s" (.s); op with second type .i and first type .s
        EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0xC0060000, NameId("s"), (c.opcode << 24) | 0x00260000u | c.field,
                                   0x4555FFF5, NameRef("x")}));
    }
}

TEST(ExpressionsEndToEnd, BinaryOperatorOnTwoVariables) {
    std::vector<uint32_t> words = CompileWords("x = a - b;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xC005FFF5, NameRef("b"), 0x0D550100, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, LeftNestedMultiplicationUsesTheFirstResultAsVariable) {
    std::vector<uint32_t> words = CompileWords("x = 1 * 2 * 3;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0xC00F0002, 0x08220100, 0xC00F0003, 0x08520100, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, FlatBitwiseAndChainEmitsOneAndPerFurtherOperand) {
    std::vector<uint32_t> words = CompileWords("x = 1 & 2 & 3;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0xC00F0002, 0x0E220100, 0xC00F0003, 0x0E520100, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, EveryComparisonIsSetWithItsKindAndYieldsABool) {
    struct Case {
        const char* op;
        uint32_t kind;
    };
    const Case cases[] = {
        {"<", 0x07},  {">", 0x08},  {"<=", 0x09},  {">=", 0x0A},  {"in", 0x0B},
        {"==", 0x0C}, {"!=", 0x0D}, {"===", 0x0E}, {"!==", 0x0F},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.op);
        std::vector<uint32_t> words = CompileWords(std::string("x = 1 ") + c.op + " \"s\";");
        EXPECT_EQ(Hex(words),
                  Hex({0xC00F0001, 0xC0060000, NameId("s"), 0x15260000u | (c.kind << 8), 0x4545FFF5, NameRef("x")}));
    }
}

TEST(ExpressionsEndToEnd, RelationalRunKeepsTheFirstOperatorsKindForEveryOperand) {
    std::vector<uint32_t> words = CompileWords("x = 1 < 2 >= 3;");
    // The second `set` compares the first result (.b) with 3 (.i), still with kind 7.
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0xC00F0002, 0x15220700, 0xC00F0003, 0x15420700, 0x4545FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, EqualityRunKeepsTheFirstOperatorsKind) {
    std::vector<uint32_t> words = CompileWords("x = a == b !== c;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xC005FFF5, NameRef("b"), 0x15550C00, 0xC005FFF5, NameRef("c"),
                               0x15450C00, 0x4545FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, InstanceofCallsTheRunnerWithBothOperandsUnconverted) {
    std::vector<uint32_t> words = CompileWords("x = 1 instanceof F;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0001,                            // push.e 1 (no conversion)
                              0xC005FFF5, NameRef("F"),                  // push.v F
                              0xD9020002, NameId("@@instanceof@@"),   // call @@instanceof@@ 2
                              0x4555FFF5, NameRef("x"),
                          }));
}

// ---------------------------------------------------------------------------------------------
// Sequence, conditional, logical

TEST(ExpressionsEndToEnd, CommaDiscardsEveryValueButTheLastWithItsOwnType) {
    std::vector<uint32_t> words = CompileWords("x = (a, 1);");
    EXPECT_EQ(Hex(words), Hex({
                              0xC005FFF5, NameRef("a"),  // a
                              0x9E050000,            // popz.v
                              0xC00F0001,            // 1
                              0x4525FFF5, NameRef("x"),  // stored with the last child's type .i
                          }));
}

TEST(ExpressionsEndToEnd, AssignmentInsideASequencePushesTheAssignedValueBack) {
    // `x = 1, 2;` is a ',' statement: its '=' is an expression and loads x again after the store.
    std::vector<uint32_t> words = CompileWords("x = 1, 2;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0001,            // 1
                              0x4525FFF5, NameRef("x"),  // pop.v.i x
                              0xC005FFF5, NameRef("x"),  // push.v x
                              0x9E050000,            // popz.v
                              0xC00F0002,            // 2
                              0x9E020000,            // statement tail: popz.i
                          }));
}

TEST(ExpressionsEndToEnd, ConditionalConvertsBothArmsToVariable) {
    std::vector<uint32_t> words = CompileWords("x = a ? 1 : 2;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC005FFF5, NameRef("a"),  // 0x00 a
                              0x07450100,            // 0x08 conv.v.b 0x0100
                              0xB8000004,            // 0x0c bf else (0x1c)
                              0xC00F0001,            // 0x10 1
                              0x07520000,            // 0x14 conv.i.v
                              0xB6000003,            // 0x18 b endif (0x24)
                              0xC00F0002,            // 0x1c else: 2
                              0x07520000,            // 0x20 conv.i.v
                              0x4555FFF5, NameRef("x"),  // 0x24 endif: pop.v.v x
                          }));
}

TEST(ExpressionsEndToEnd, ConditionalWithVariableArmsEmitsNoConversions) {
    std::vector<uint32_t> words = CompileWords("x = a ? b : c;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0x07450100, 0xB8000004, 0xC005FFF5, NameRef("b"), 0xB6000003,
                               0xC005FFF5, NameRef("c"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, LogicalAndOfVariablesBranchesToTheRightOperandWhenTrue) {
    std::vector<uint32_t> words = CompileWords("x = a && b;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC005FFF5, NameRef("a"),  // 0x00 a
                              0x86050000,            // 0x08 dup.v
                              0x07450100,            // 0x0c conv.v.b
                              0xB7000002,            // 0x10 bt else (0x18)
                              0xB6000004,            // 0x14 b endif (0x24)
                              0x9E050000,            // 0x18 else: popz.v
                              0xC005FFF5, NameRef("b"),  // 0x1c b
                              0x4555FFF5, NameRef("x"),  // 0x24 endif
                          }));
}

TEST(ExpressionsEndToEnd, LogicalAndOfConstantsConvertsBothOutcomesToVariable) {
    std::vector<uint32_t> words = CompileWords("x = 1 && 2;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0001,  // 0x00 1
                              0x86020000,  // 0x04 dup.i
                              0x07420100,  // 0x08 conv.i.b
                              0xB7000003,  // 0x0c bt else (0x18)
                              0x07520000,  // 0x10 conv.i.v
                              0xB6000004,  // 0x14 b endif (0x24)
                              0x9E020000,  // 0x18 else: popz.i
                              0xC00F0002,  // 0x1c 2
                              0x07520000,  // 0x20 conv.i.v
                              0x4555FFF5, NameRef("x"),
                          }));
}

TEST(ExpressionsEndToEnd, LogicalOrBranchesToTheRightOperandWhenFalse) {
    std::vector<uint32_t> words = CompileWords("x = 1 || 2;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x86020000, 0x07420100, 0xB8000003, 0x07520000, 0xB6000004, 0x9E020000,
                               0xC00F0002, 0x07520000, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, LogicalOrOfVariables) {
    std::vector<uint32_t> words = CompileWords("x = a || b;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0x86050000, 0x07450100, 0xB8000002, 0xB6000004, 0x9E050000,
                               0xC005FFF5, NameRef("b"), 0x4555FFF5, NameRef("x")}));
}

// ---------------------------------------------------------------------------------------------
// Calls, members, elements

TEST(ExpressionsEndToEnd, CallWithoutArgumentsPushesTheGlobalScopeThenTheFunction) {
    CompileUnit* unit = Compiled("f();");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        kGlobalScopeCall, 3,     // call @@GlobalScope@@ 0 (name 3)
                                        0xC005FFF5, 0xA0000004,  // push.v f (name 4)
                                        0x99050000,              // call.v 0
                                        0x9E050000,              // popz.v
                                    }));
    EXPECT_EQ(FuncPatches(unit), "@@GlobalScope@@ kind 0 at 0x0\n");
    EXPECT_EQ(VarPatches(unit), "f kind 0 at 0x8\n");
}

TEST(ExpressionsEndToEnd, CallArgumentsAreEvaluatedRightToLeftEachConvertedAndMarked) {
    CompileUnit* unit = Compiled("f(1, a, \"s\");");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        kGlobalScopeCall, NameId("@@GlobalScope@@"),  // 0x00
                                        0xC005FFF5, NameRef("f"),                        // 0x08
                                        0xC0060000, NameId("s"),                      // 0x10 "s"
                                        0x07560000,                                  // 0x18 conv.s.v
                                        0x8605FF12,                                  // 0x1c
                                        0xC005FFF5, NameRef("a"),                        // 0x20 a
                                        0x8605FF12,                                  // 0x28
                                        0xC00F0001,                                  // 0x2c 1
                                        0x07520000,                                  // 0x30 conv.i.v
                                        0x8605FF12,                                  // 0x34
                                        0x99050003,                                  // 0x38 call.v 3
                                        0x9E050000,                                  // 0x3c
                                    }));
    EXPECT_LT(NameIndex("s"), NameIndex("a"));
    EXPECT_EQ(VarPatches(unit), "f kind 0 at 0x8\na kind 0 at 0x20\n");
    EXPECT_EQ(StringPatches(unit), "s kind 0 at 0x14\n");
}

TEST(ExpressionsEndToEnd, MethodCallDuplicatesTheObjectAsScopeAndReadsTheMember) {
    CompileUnit* unit = Compiled("o.m(1);");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xC005FFF5, NameRef("o"),  // 0x00 o
                                        0x86050000,            // 0x08 dup.v (the scope)
                                        0xC005FFF7, NameRef("m"),  // 0x0c push.v -9 m
                                        0xC00F0001, 0x07520000, 0x8605FF12,
                                        0x99050001, 0x9E050000,
                                    }));
    EXPECT_EQ(VarPatches(unit), "o kind 0 at 0x0\nm kind 4 at 0xc\n");
}

TEST(ExpressionsEndToEnd, MemberReadUsesSelectorMinus9WithAMemberPatch) {
    CompileUnit* unit = Compiled("x = o.p;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({0xC005FFF5, NameRef("o"), 0xC005FFF7, NameRef("p"), 0x4555FFF5, NameRef("x")}));
    EXPECT_EQ(VarPatches(unit), "o kind 0 at 0x0\np kind 4 at 0x8\nx kind 0 at 0x10\n");
}

TEST(ExpressionsEndToEnd, MemberChainReadsEachPropertyAsAMember) {
    std::vector<uint32_t> words = CompileWords("x = a.b.c;");
    EXPECT_EQ(Hex(words),
              Hex({0xC005FFF5, NameRef("a"), 0xC005FFF7, NameRef("b"), 0xC005FFF7, NameRef("c"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, ElementReadPushesIndexThenArrayThenPushv) {
    std::vector<uint32_t> words = CompileWords("x = a[1];");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0001, 0x07520000,  // index, conv.i.v
                              0xC005FFF5, NameRef("a"),    // array
                              0x8055FFF6,              // pushv.v -10
                              0x4555FFF5, NameRef("x"),
                          }));
}

TEST(ExpressionsEndToEnd, CallOfAnElementKeepsTheArrayAsScope) {
    std::vector<uint32_t> words = CompileWords("a[0]();");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0000, 0x07520000,  // index 0
                              0xC005FFF5, NameRef("a"),    // a
                              0x86050001,              // dup.v 1
                              0x8055FFF6,              // pushv.v -10
                              0x8605FF21,              // dup.v 0xff21
                              0x9E050000,              // popz.v
                              0x99050000,              // call.v 0
                              0x9E050000,              // popz.v
                          }));
}

TEST(ExpressionsEndToEnd, ElementOfACallResultReadsTheCallAsTheArray) {
    std::vector<uint32_t> words = CompileWords("x = f()[0];");
    EXPECT_EQ(Hex(words), Hex({0xC00F0000, 0x07520000, kGlobalScopeCall, NameId("@@GlobalScope@@"), 0xC005FFF5,
                               NameRef("f"), 0x99050000, 0x8055FFF6, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, CallOfACallResultDuplicatesTheInnerResultAsScope) {
    std::vector<uint32_t> words = CompileWords("f()();");
    EXPECT_EQ(Hex(words), Hex({kGlobalScopeCall, NameId("@@GlobalScope@@"), 0xC005FFF5, NameRef("f"), 0x99050000,
                               0x86050000, 0x99050000, 0x9E050000}));
}

// ---------------------------------------------------------------------------------------------
// Identifier kinds

TEST(ExpressionsEndToEnd, VarDeclaredNameIsReadAsALocal) {
    CompileUnit* unit = Compiled("var v; x = v;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0x4595FFF4, NameDecl("v"),  // hoisted declaration
                                        0x4595FFF4, NameDecl("v"),  // the written declaration
                                        0xC005FFF4, NameRef("v"),   // push.v -12 v
                                        0x4555FFF5, NameRef("x"),
                                    }));
    EXPECT_EQ(VarPatches(unit), "v kind 2 at 0x0\nv kind 2 at 0x8\nv kind 2 at 0x10\nx kind 0 at 0x18\n");
}

TEST(ExpressionsEndToEnd, VarInitialiserStoresIntoTheLocalInBothTopLevelModes) {
    for (bool topLevel : {true, false}) {
        SCOPED_TRACE(topLevel);
        std::vector<uint32_t> words = CompileWords("var v = 1;", topLevel);
        EXPECT_EQ(Hex(words), Hex({0x4595FFF4, NameDecl("v"), 0x4595FFF4, NameDecl("v"), 0xC00F0001, 0x4525FFF4, NameRef("v")}));
    }
}

TEST(ExpressionsEndToEnd, ParameterIsReadWithTheArgumentOperandAndNoPatch) {
    CompileUnit* unit = Compiled("function g(p) { x = p; }");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB6000006,                                    // 0x00 b endfunc
                                        0xC005FFF3, 0xA0000000,                        // 0x04 push.v -13 depth 0 slot 0
                                        0x4555FFF5, NameRef("x"),                          // 0x0c
                                        0x9C0F0000,                                    // 0x14 ret
                                        0xC0020000, NameId("g"),                        // 0x18 endfunc: push.i g
                                        0x07520000,                                    // 0x20 conv.i.v
                                        kScriptRefCall, NameId("@@script_ref@@"),       // 0x24
                                        0x4555FFF5, NameDecl("g"),                         // 0x2c top-level function store
                                    }));
    EXPECT_EQ(VarPatches(unit), "x kind 0 at 0xc\ng kind 3 at 0x2c\n");
    EXPECT_EQ(FuncPatches(unit), "g kind 0 at 0x18\n@@script_ref@@ kind 0 at 0x24\n");
}

TEST(ExpressionsEndToEnd, ParameterOfTheEnclosingFunctionCarriesDepthOneAndItsSlot) {
    CompileUnit* unit = Compiled("function g(p, q) { function h() { x = q; } }");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB6000011,                               // 0x00 b endfunc g (0x44)
                                        0xB6000006,                               // 0x04 b endfunc h (0x1c)
                                        0xC005FFF3, 0xA0000101,                   // 0x08 push.v -13 depth 1 slot 1
                                        0x4555FFF5, NameRef("x"),                     // 0x10
                                        0x9C0F0000,                               // 0x18 ret
                                        0xC0020000, NameId("g@h"),                 // 0x1c
                                        0x07520000,                               // 0x24
                                        kScriptRefCall, NameId("@@script_ref@@"),  // 0x28
                                        0x4595FFF4, NameDecl("h"),                    // 0x30 local declaration of h
                                        0x4555FFF4, NameDecl("h"),                    // 0x38 store into it
                                        0x9C0F0000,                               // 0x40 ret
                                        0xC0020000, NameId("g"),                   // 0x44
                                        0x07520000,                               // 0x4c
                                        kScriptRefCall, NameId("@@script_ref@@"),  // 0x50
                                        0x4555FFF5, NameDecl("g"),                    // 0x58
                                    }));
    // Records: the root, then h (finished first), then g. g's parameter used from h sets bit 1 and
    // clears bit 4 in g; h loses bit 4.
    ASSERT_EQ(unit->fourthCount, 3);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->nameIndex), "g@h");
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->declaredNameIndex), "h");
    EXPECT_EQ(unit->fourth[1]->codeOffset, 8u);
    EXPECT_EQ(unit->fourth[1]->flags, 0u);
    EXPECT_EQ(NameOf(unit, unit->fourth[2]->nameIndex), "g");
    EXPECT_EQ(unit->fourth[2]->codeOffset, 4u);
    EXPECT_EQ(unit->fourth[2]->paramCount, 2);
    EXPECT_EQ(unit->fourth[2]->flags, 1u);
}

TEST(ExpressionsEndToEnd, ArgumentsInsideAFunctionIsALocalAndMarksTheFunction) {
    CompileUnit* unit = Compiled("function g() { x = arguments; }");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({0xB6000006, 0xC005FFF4, 0xA0000002, 0x4555FFF5, NameRef("x"), 0x9C0F0000,
                                         0xC0020000, NameId("g"), 0x07520000, kScriptRefCall, NameId("@@script_ref@@"),
                                         0x4555FFF5, NameDecl("g")}));
    ASSERT_EQ(unit->fourthCount, 2);
    EXPECT_EQ(unit->fourth[1]->flags, 1u);
}

TEST(ExpressionsEndToEnd, ArgumentsAtTopLevelIsAnUnresolvedName) {
    std::vector<uint32_t> words = CompileWords("x = arguments;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, 0xA0000002, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, NameOfADeclaredFunctionIsReadAsAScriptReferenceWithoutAVariablePatch) {
    CompileUnit* unit = Compiled("function g() {} x = g;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB6000002, 0x9C0F0000,                               // 0x00
                                        0xC0020000, NameId("g"), 0x07520000,                   // 0x08
                                        kScriptRefCall, NameId("@@script_ref@@"),              // 0x14
                                        0x4555FFF5, NameDecl("g"),                                // 0x1c
                                        0xC0020000, NameId("g"), 0x07520000,                   // 0x24 x = g
                                        kScriptRefCall, NameId("@@script_ref@@"),              // 0x30
                                        0x4555FFF5, NameRef("x"),                                 // 0x38
                                    }));
    EXPECT_EQ(FuncPatches(unit), "g kind 0 at 0x8\n@@script_ref@@ kind 0 at 0x14\n@@script_ref@@ kind 0 at 0x30\n");
    EXPECT_EQ(VarPatches(unit), "g kind 3 at 0x1c\nx kind 0 at 0x38\n");
}

TEST(ExpressionsEndToEnd, CallOfADeclaredFunctionUsesTheGlobalScope) {
    std::vector<uint32_t> words = CompileWords("function g() {} g();");
    EXPECT_EQ(Hex(words), Hex({0xB6000002, 0x9C0F0000, 0xC0020000, NameId("g"), 0x07520000, kScriptRefCall,
                               NameId("@@script_ref@@"), 0x4555FFF5, NameDecl("g"), kGlobalScopeCall,
                               NameId("@@GlobalScope@@"), 0xC0020000, NameId("g"), 0x07520000, kScriptRefCall,
                               NameId("@@script_ref@@"), 0x99050000, 0x9E050000}));
}

TEST(ExpressionsEndToEnd, ThisAndOtherAreRunnerCallsNeverVariableReads) {
    CompileUnit* unit = Compiled("x = this;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({kGlobalScopeCall, NameId("@@This@@"), 0x4555FFF5, NameRef("x")}));
    EXPECT_EQ(FuncPatches(unit), "@@This@@ kind 0 at 0x0\n");

    std::vector<uint32_t> words = CompileWords("x = other;");
    EXPECT_EQ(Hex(words), Hex({kGlobalScopeCall, NameId("@@Other@@"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, CapitalisedThisIsAnOrdinaryName) {
    std::vector<uint32_t> words = CompileWords("x = This;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("This"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, CallOfAMemberOfThisUsesThisAsScope) {
    std::vector<uint32_t> words = CompileWords("this.m();");
    EXPECT_EQ(Hex(words), Hex({kGlobalScopeCall, NameId("@@This@@"), 0x86050000, 0xC005FFF7, NameRef("m"), 0x99050000,
                               0x9E050000}));
}

TEST(ExpressionsEndToEnd, CallOfThisDuplicatesItAsScope) {
    std::vector<uint32_t> words = CompileWords("this();");
    EXPECT_EQ(Hex(words), Hex({kGlobalScopeCall, NameId("@@This@@"), 0x86050000, 0x99050000, 0x9E050000}));
}

TEST(ExpressionsEndToEnd, StoreIntoAMemberOfThis) {
    std::vector<uint32_t> words = CompileWords("this.p = 1;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, kGlobalScopeCall, NameId("@@This@@"), 0x4525FFF7, NameRef("p")}));
}

TEST(ExpressionsEndToEnd, CallOfABuiltInFunctionPassesThisAsItsScope) {
    EnsureLibraryInitialised();
    VeltJS_AddBuiltInFunction("show");
    CompileUnit* unit = Compiled("show(1);");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({kGlobalScopeCall, NameId("@@This@@"), 0xC005FFF5, NameRef("show"), 0xC00F0001,
                                         0x07520000, 0x8605FF12, 0x99050001, 0x9E050000}));
    EXPECT_EQ(VarPatches(unit), "show kind 0 at 0x8\n");
}

TEST(ExpressionsEndToEnd, ReadOfABuiltInFunctionOutsideACallIsAnUnresolvedRead) {
    EnsureLibraryInitialised();
    VeltJS_AddBuiltInFunction("show");
    std::vector<uint32_t> words = CompileWords("x = show;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("show"), 0x4555FFF5, NameRef("x")}));
}

// ---------------------------------------------------------------------------------------------
// Assignment

TEST(ExpressionsEndToEnd, NestedAssignmentStoresThenLoadsTheInnerTarget) {
    std::vector<uint32_t> words = CompileWords("x = y = 1;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x4525FFF5, NameRef("y"), 0xC005FFF5, NameRef("y"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, NestedMemberAssignmentEvaluatesTheObjectTwice) {
    CompileUnit* unit = Compiled("x = o.p = 1;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xC00F0001,            // 0x00 1
                                        0xC005FFF5, NameRef("o"),  // 0x04 o
                                        0x4525FFF7, NameRef("p"),  // 0x0c pop.v.i -9 p
                                        0xC005FFF5, NameRef("o"),  // 0x14 o again
                                        0xC005FFF7, NameRef("p"),  // 0x1c push.v -9 p
                                        0x4555FFF5, NameRef("x"),  // 0x24
                                    }));
    EXPECT_EQ(VarPatches(unit),
              "o kind 0 at 0x4\np kind 4 at 0xc\no kind 0 at 0x14\np kind 4 at 0x1c\nx kind 0 at 0x24\n");
}

TEST(ExpressionsEndToEnd, ElementStoreIsPopvWithTheValueType) {
    std::vector<uint32_t> words = CompileWords("a[0] = \"s\";");
    EXPECT_EQ(Hex(words), Hex({0xC0060000, NameId("s"), 0xC00F0000, 0x07520000, 0xC005FFF5, NameRef("a"), 0x0565FFF6}));
}

TEST(ExpressionsEndToEnd, NestedElementAssignmentReadsTheElementBack) {
    std::vector<uint32_t> words = CompileWords("x = a[0] = 1;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0xC00F0000, 0x07520000, 0xC005FFF5, NameRef("a"), 0x0525FFF6, 0xC00F0000,
                               0x07520000, 0xC005FFF5, NameRef("a"), 0x8055FFF6, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, AssignmentToThisIsAMalformedLeftHandSide) {
    EXPECT_EQ(CompileError("x = 1;\nthis = 2;"),
              "Error : test.js(2) : Assignment error - left hand side is malformed\n");
}

TEST(ExpressionsEndToEnd, AssignmentToACallIsAMalformedLeftHandSide) {
    EXPECT_EQ(CompileError("f() = 1;"), "Error : test.js(1) : Assignment error - left hand side is malformed\n");
}

TEST(ExpressionsEndToEnd, AssignmentToAnElementOfACallIsAnUnknownLexicalType) {
    EXPECT_EQ(CompileError("f()[0] = 1;"), "Error : test.js(1) : unknown lexical type\n");
}

// ---------------------------------------------------------------------------------------------
// Increment, decrement and compound assignment

TEST(ExpressionsEndToEnd, PrefixIncrementLeavesTheNewValue) {
    std::vector<uint32_t> words = CompileWords("++a;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC005FFF5, NameRef("a"),  // a
                              0xC00F0001,            // push.e 1
                              0x0C520200,            // add 0x0200
                              0x86050000,            // dup.v
                              0x4555FFF5, NameRef("a"),  // store a
                              0x9E050000,            // statement tail
                          }));
}

TEST(ExpressionsEndToEnd, PrefixDecrementSubtractsWithField0100) {
    std::vector<uint32_t> words = CompileWords("--a;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xC00F0001, 0x0D520100, 0x86050000, 0x4555FFF5, NameRef("a"),
                               0x9E050000}));
}

TEST(ExpressionsEndToEnd, PostfixIncrementLeavesTheOldValueConverted) {
    std::vector<uint32_t> words = CompileWords("x = a++;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC005FFF5, NameRef("a"),  // a
                              0x07550200,            // conv.v.v 0x0200
                              0x86050000,            // dup.v
                              0xC00F0001,            // push.e 1
                              0x0C520200,            // add
                              0x4555FFF5, NameRef("a"),  // store a
                              0x4555FFF5, NameRef("x"),  // store x
                          }));
}

TEST(ExpressionsEndToEnd, PostfixDecrementOfALocal) {
    std::vector<uint32_t> words = CompileWords("var v; v--;");
    EXPECT_EQ(Hex(words), Hex({0x4595FFF4, NameDecl("v"), 0x4595FFF4, NameDecl("v"), 0xC005FFF4, NameRef("v"), 0x07550200,
                               0x86050000, 0xC00F0001, 0x0D520100, 0x4555FFF4, NameRef("v"), 0x9E050000}));
}

TEST(ExpressionsEndToEnd, PrefixIncrementOfAMemberReadsAndStoresThroughTheObject) {
    std::vector<uint32_t> words = CompileWords("++o.p;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("o"), 0xC005FFF7, NameRef("p"), 0xC00F0001, 0x0C520200, 0x86050000,
                               0xC005FFF5, NameRef("o"), 0x4555FFF7, NameRef("p"), 0x9E050000}));
}

TEST(ExpressionsEndToEnd, EveryCompoundAssignmentLoadsOperatesDuplicatesAndStores) {
    struct Case {
        const char* op;
        uint32_t opcode;
        uint32_t field;
    };
    const Case cases[] = {
        {"+=", 0x0C, 0x0100},  {"-=", 0x0D, 0x0100},  {"*=", 0x08, 0x0100}, {"/=", 0x09, 0x0100},
        {"%=", 0x0B, 0x0100},  {"<<=", 0x13, 0x0100}, {">>=", 0x14, 0x0100}, {">>>=", 0x14, 0x8100},
        {"&=", 0x0E, 0x0100},  {"|=", 0x0F, 0x0100},  {"^=", 0x10, 0x0100},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.op);
        CompileUnit* unit = Compiled(std::string("x ") + c.op + " 2;");
        ASSERT_NE(unit, nullptr);
        EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                            0xC005FFF5, NameRef("x"),                      // 0x00 load x
                                            0xC00F0002,                                // 0x08 2
                                            (c.opcode << 24) | 0x00520000u | c.field,  // 0x0c T1 .i, T2 .v
                                            0x86050000,                                // 0x10 dup.v
                                            0x4555FFF5, NameRef("x"),                      // 0x14 store x
                                            0x9E050000,                                // 0x1c
                                        }));
        EXPECT_EQ(VarPatches(unit), "x kind 0 at 0x0\nx kind 0 at 0x14\n");
    }
}

TEST(ExpressionsEndToEnd, CompoundAssignmentOfADoubleIntoAMember) {
    std::vector<uint32_t> words = CompileWords("o.p -= 1.5;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("o"), 0xC005FFF7, NameRef("p"), 0xC0000000, 0x00000000, 0x3FF80000,
                               0x0D500100, 0x86050000, 0xC005FFF5, NameRef("o"), 0x4555FFF7, NameRef("p"), 0x9E050000}));
}

TEST(ExpressionsEndToEnd, CompoundAssignmentAsAValueIsStoredAsVariable) {
    std::vector<uint32_t> words = CompileWords("y = x += 1;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("x"), 0xC00F0001, 0x0C520100, 0x86050000, 0x4555FFF5, NameRef("x"),
                               0x4555FFF5, NameRef("y")}));
}

// ---------------------------------------------------------------------------------------------
// Number literals

TEST(ExpressionsEndToEnd, IntegersUpTo32766ArePushedInTheSmallField) {
    ExpectLiteralStores({
        {"0", {0xC00F0000}, 2},
        {"7", {0xC00F0007}, 2},
        {"32766", {0xC00F7FFE}, 2},
    });
}

TEST(ExpressionsEndToEnd, IntegersFrom32767To2147483646ArePushI) {
    ExpectLiteralStores({
        {"32767", {0xC0020000, 0x00007FFF}, 2},
        {"65536", {0xC0020000, 0x00010000}, 2},
        {"2147483646", {0xC0020000, 0x7FFFFFFE}, 2},
    });
}

TEST(ExpressionsEndToEnd, Integer2147483647IsPushL) {
    ExpectLiteralStores({
        {"2147483647", {0xC0030000, 0x7FFFFFFF, 0x00000000}, 3},
    });
}

TEST(ExpressionsEndToEnd, NumbersOutsideTheIntRangeOrWithAFractionArePushD) {
    ExpectLiteralStores({
        {"2147483648", {0xC0000000, 0x00000000, 0x41E00000}, 0},
        {"3000000000", {0xC0000000, 0xC0000000, 0x41E65A0B}, 0},
        {"1.5", {0xC0000000, 0x00000000, 0x3FF80000}, 0},
        {"0.5", {0xC0000000, 0x00000000, 0x3FE00000}, 0},
        {".5", {0xC0000000, 0x00000000, 0x3FE00000}, 0},
        {"0.1", {0xC0000000, 0x9999999A, 0x3FB99999}, 0},
        {"1e10", {0xC0000000, 0x20000000, 0x4202A05F}, 0},
    });
}

TEST(ExpressionsEndToEnd, WholeFloatsArePushedAsIntegers) {
    ExpectLiteralStores({
        {"2.0", {0xC00F0002}, 2},
        {"0.0", {0xC00F0000}, 2},
        {"1e3", {0xC00F03E8}, 2},
        {"1.e5", {0xC0020000, 0x000186A0}, 2},
    });
}

TEST(ExpressionsEndToEnd, HexadecimalLiteralsAreReadBase16AndSaturate) {
    ExpectLiteralStores({
        {"0x10", {0xC00F0010}, 2},
        {"0XFF", {0xC00F00FF}, 2},
        {"0xFFFF", {0xC0020000, 0x0000FFFF}, 2},
        {"0x7FFFFFFF", {0xC0030000, 0x7FFFFFFF, 0x00000000}, 3},
        {"0xFFFFFFFF", {0xC0030000, 0x7FFFFFFF, 0x00000000}, 3},
        {"0x", {0xC00F0000}, 2},
    });
}

TEST(ExpressionsEndToEnd, LeadingZeroLiteralsAreReadAsOctal) {
    ExpectLiteralStores({
        {"010", {0xC00F0008}, 2},
        {"0777", {0xC00F01FF}, 2},
        {"09", {0xC00F0000}, 2},
        {"08", {0xC00F0000}, 2},
        {"08.5", {0xC00F0000}, 2},
    });
}

// ---------------------------------------------------------------------------------------------
// Other literals

TEST(ExpressionsEndToEnd, StringLiteralIsPushSWithAPatchAtTheOperand) {
    CompileUnit* unit = Compiled("x = \"hi\";");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({0xC0060000, 0x00000003, 0x4565FFF5, 0xA0000004}));
    EXPECT_EQ(StringPatches(unit), "hi kind 0 at 0x4\n");
    EXPECT_EQ(VarPatches(unit), "x kind 0 at 0x8\n");
}

TEST(ExpressionsEndToEnd, StringEscapesAreResolvedInTheInternedText) {
    std::vector<uint32_t> words = CompileWords("x = 'a\\tb';");
    EXPECT_EQ(Hex(words), Hex({0xC0060000, NameId("a\tb"), 0x4565FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, RegularExpressionLiteralIsANewRegExpWithPatternAndFlags) {
    CompileUnit* unit = Compiled("x = /ab+c/gi;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xC0060000, NameId("gi"),         // 0x00 flags
                                        0x07560000,                      // 0x08 conv.s.v
                                        0xC0060000, NameId("ab+c"),       // 0x0c pattern
                                        0x07560000,                      // 0x14
                                        0xC005FFF5, NameRef("RegExp"),       // 0x18 constructor
                                        0xD9020003, NameId("@@new@@"),    // 0x20 call @@new@@ 3
                                        0x4555FFF5, NameRef("x"),            // 0x28
                                    }));
    EXPECT_EQ(StringPatches(unit), "gi kind 0 at 0x4\nab+c kind 0 at 0x10\n");
    EXPECT_EQ(FuncPatches(unit), "@@new@@ kind 0 at 0x20\n");
}

TEST(ExpressionsEndToEnd, TrueAndFalseAreShortPushesOfTypeBool) {
    ExpectLiteralStores({
        {"true", {0xC00F0001}, 4},
        {"false", {0xC00F0000}, 4},
    });
}

TEST(ExpressionsEndToEnd, NullIsACallOfTheRunnersNull) {
    std::vector<uint32_t> words = CompileWords("x = null;");
    EXPECT_EQ(Hex(words), Hex({kGlobalScopeCall, NameId("@@Null@@"), 0x4555FFF5, NameRef("x")}));
}

// ---------------------------------------------------------------------------------------------
// new

TEST(ExpressionsEndToEnd, NewWithoutArgumentsPassesOnlyTheConstructor) {
    for (const char* source : {"x = new F;", "x = new F();"}) {
        SCOPED_TRACE(source);
        std::vector<uint32_t> words = CompileWords(source);
        EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("F"), 0xD9020001, NameId("@@new@@"), 0x4555FFF5, NameRef("x")}));
    }
}

TEST(ExpressionsEndToEnd, NewArgumentsAreEvaluatedRightToLeftBeforeTheConstructor) {
    std::vector<uint32_t> words = CompileWords("x = new F(1, a);");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xC00F0001, 0x07520000, 0xC005FFF5, NameRef("F"), 0xD9020003,
                               NameId("@@new@@"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, NewStatementLeavesItsValueOnTheStack) {
    std::vector<uint32_t> words = CompileWords("new F(1);");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x07520000, 0xC005FFF5, NameRef("F"), 0xD9020002, NameId("@@new@@")}));
}

TEST(ExpressionsEndToEnd, NewOfAMemberConstructor) {
    std::vector<uint32_t> words = CompileWords("x = new a.B();");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xC005FFF7, NameRef("B"), 0xD9020001, NameId("@@new@@"), 0x4555FFF5,
                               NameRef("x")}));
}

TEST(ExpressionsEndToEnd, CallOfANewResultDuplicatesTheNewObjectAsScope) {
    std::vector<uint32_t> words = CompileWords("new F()();");
    EXPECT_EQ(Hex(words),
              Hex({0xC005FFF5, NameRef("F"), 0xD9020001, NameId("@@new@@"), 0x86050000, 0x99050000, 0x9E050000}));
}

// ---------------------------------------------------------------------------------------------
// typeof, void, delete

TEST(ExpressionsEndToEnd, TypeofOfAStaticallyTypedOperandIsAnsweredAtCompileTime) {
    struct Case {
        const char* operand;
        std::vector<uint32_t> words;
        uint32_t popz;
        const char* answer;
    };
    const std::vector<Case> cases = {
        {"1", {0xC00F0001}, 0x9E020000, "number"},
        {"1.5", {0xC0000000, 0x00000000, 0x3FF80000}, 0x9E000000, "number"},
        {"2147483647", {0xC0030000, 0x7FFFFFFF, 0x00000000}, 0x9E030000, "number"},
        {"true", {0xC00F0001}, 0x9E040000, "boolean"},
        {"(1 < 2)", {0xC00F0001, 0xC00F0002, 0x15220700}, 0x9E040000, "boolean"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.operand);
        std::vector<uint32_t> words = CompileWords(std::string("x = typeof ") + c.operand + ";");
        EXPECT_EQ(Hex(words), Hex(Join({c.words, {c.popz, 0xC0060000, NameId(c.answer), 0x4565FFF5, NameRef("x")}})));
    }
}

TEST(ExpressionsEndToEnd, TypeofOfAStringDiscardsItAndPushesString) {
    std::vector<uint32_t> words = CompileWords("x = typeof 's';");
    EXPECT_EQ(Hex(words), Hex({0xC0060000, NameId("s"), 0x9E060000, 0xC0060000, NameId("string"), 0x4565FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, TypeofOfAVariableCallsTheRunner) {
    std::vector<uint32_t> words = CompileWords("x = typeof a;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xD9020001, NameId("@@typeof@@"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, VoidDiscardsTheOperandAndReadsUndefined) {
    CompileUnit* unit = Compiled("x = void 0;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({0xC00F0000, 0x9E020000, 0xC005FFF5, NameRef("undefined"), 0x4555FFF5, NameRef("x")}));
    EXPECT_EQ(VarPatches(unit), "undefined kind 0 at 0x8\nx kind 0 at 0x10\n");
}

TEST(ExpressionsEndToEnd, DeleteOfANameIsAStoreWithTypeNibble8) {
    CompileUnit* unit = Compiled("delete a;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({0x4585FFF5, NameRef("a"), 0x9E050000}));
    EXPECT_EQ(VarPatches(unit), "a kind 0 at 0x0\n");
}

TEST(ExpressionsEndToEnd, DeleteOfALocalUsesTheLocalSelector) {
    std::vector<uint32_t> words = CompileWords("var v; delete v;");
    EXPECT_EQ(Hex(words), Hex({0x4595FFF4, NameDecl("v"), 0x4595FFF4, NameDecl("v"), 0x4585FFF4, NameRef("v"), 0x9E050000}));
}

TEST(ExpressionsEndToEnd, DeleteOfAMemberStoresThroughTheObject) {
    CompileUnit* unit = Compiled("delete o.p;");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({0xC005FFF5, NameRef("o"), 0x4585FFF7, NameRef("p"), 0x9E050000}));
    EXPECT_EQ(VarPatches(unit), "o kind 0 at 0x0\np kind 4 at 0x8\n");
}

TEST(ExpressionsEndToEnd, DeleteOfAnElementIsPopvWithTypeNibble8) {
    std::vector<uint32_t> words = CompileWords("delete a[0];");
    EXPECT_EQ(Hex(words), Hex({0xC00F0000, 0x07520000, 0xC005FFF5, NameRef("a"), 0x0585FFF6, 0x9E050000}));
}

TEST(ExpressionsEndToEnd, DeleteOfAConstantDiscardsItAndYieldsTrue) {
    std::vector<uint32_t> words = CompileWords("delete 5;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0005,              // 5
                              0x9E020000,              // popz.i
                              0xC0040000, 0x00000001,  // push.b 1
                              0x07540000,              // conv.b.v
                              0x9E050000,              // statement tail
                          }));
}

TEST(ExpressionsEndToEnd, DeleteOfThisIsNotAReferenceAndYieldsTrue) {
    std::vector<uint32_t> words = CompileWords("x = delete this;");
    EXPECT_EQ(Hex(words), Hex({kGlobalScopeCall, NameId("@@This@@"), 0x9E050000, 0xC0040000, 0x00000001, 0x07540000,
                               0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, DeleteAsAValueIsStoredAsVariable) {
    std::vector<uint32_t> words = CompileWords("x = delete a;");
    EXPECT_EQ(Hex(words), Hex({0x4585FFF5, NameRef("a"), 0x4555FFF5, NameRef("x")}));
}

// ---------------------------------------------------------------------------------------------
// Array and object literals

TEST(ExpressionsEndToEnd, ArrayLiteralPushesElementsLastFirstWithElisionsAsSelectorMinus14) {
    CompileUnit* unit = Compiled("x = [1, , \"s\"];");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xC0060000, NameId("s"), 0x07560000,  // "s"
                                        0xC005FFF2, 0xA0000000,              // the hole
                                        0xC00F0001, 0x07520000,              // 1
                                        0xD9020003, NameId("@@NewArray@@"),   // call @@NewArray@@ 3
                                        0x4555FFF5, NameRef("x"),
                                    }));
    EXPECT_EQ(VarPatches(unit), "x kind 0 at 0x24\n");
}

TEST(ExpressionsEndToEnd, EmptyArrayAndLoneHole) {
    std::vector<uint32_t> empty = CompileWords("x = [];");
    EXPECT_EQ(Hex(empty), Hex({0xD9020000, NameId("@@NewArray@@"), 0x4555FFF5, NameRef("x")}));
    std::vector<uint32_t> hole = CompileWords("x = [,];");
    EXPECT_EQ(Hex(hole), Hex({0xC005FFF2, 0xA0000000, 0xD9020001, NameId("@@NewArray@@"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, ObjectLiteralPushesValueThenNameForEachProperty) {
    CompileUnit* unit = Compiled("x = {a: 1, b: \"s\"};");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xC00F0001, 0x07520000,              // 0x00 1
                                        0xC0060000, NameId("a"), 0x07560000,  // 0x08 "a"
                                        0xC0060000, NameId("s"), 0x07560000,  // 0x14 "s"
                                        0xC0060000, NameId("b"), 0x07560000,  // 0x20 "b"
                                        0xD9020004, NameId("@@NewObject@@"),  // 0x2c
                                        0x4555FFF5, NameRef("x"),
                                    }));
    EXPECT_EQ(StringPatches(unit), "a kind 0 at 0xc\ns kind 0 at 0x18\nb kind 0 at 0x24\n");
}

TEST(ExpressionsEndToEnd, EmptyObjectLiteral) {
    std::vector<uint32_t> words = CompileWords("x = {};");
    EXPECT_EQ(Hex(words), Hex({0xD9020000, NameId("@@NewObject@@"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, ObjectKeysOfNumberStringAndKeywordTokensAreTheirTexts) {
    std::vector<uint32_t> words = CompileWords("x = {1: a, \"b\": c, if: d};");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xC0060000, NameId("1"), 0x07560000, 0xC005FFF5, NameRef("c"),
                               0xC0060000, NameId("b"), 0x07560000, 0xC005FFF5, NameRef("d"), 0xC0060000, NameId("if"),
                               0x07560000, 0xD9020006, NameId("@@NewObject@@"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, DuplicatePlainPropertiesAreBothPassed) {
    std::vector<uint32_t> words = CompileWords("x = {a: 1, a: 2};");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x07520000, 0xC0060000, NameId("a"), 0x07560000, 0xC00F0002, 0x07520000,
                               0xC0060000, NameId("a"), 0x07560000, 0xD9020004, NameId("@@NewObject@@"), 0x4555FFF5,
                               NameRef("x")}));
}

TEST(ExpressionsEndToEnd, GetterOnlyPropertyPassesTheGetterAndUndefinedToNewProperty) {
    CompileUnit* unit = Compiled("x = {get p() {}};");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB6000002,                                 // 0x00 b endfunc
                                        0x9C0F0000,                                 // 0x04 ret
                                        0xC0020000, NameId("__getfn0"), 0x07520000,  // 0x08
                                        kScriptRefCall, NameId("@@script_ref@@"),    // 0x14
                                        0xC005FFF5, NameRef("undefined"),               // 0x1c no setter
                                        0xD9020002, NameId("@@NewProperty@@"),       // 0x24
                                        0xC0060000, NameId("p"), 0x07560000,         // 0x2c
                                        0xD9020002, NameId("@@NewObject@@"),         // 0x38
                                        0x4555FFF5, NameRef("x"),                       // 0x40
                                    }));
    EXPECT_EQ(FuncPatches(unit),
              "__getfn0 kind 0 at 0x8\n@@script_ref@@ kind 0 at 0x14\n@@NewProperty@@ kind 0 at 0x24\n"
              "@@NewObject@@ kind 0 at 0x38\n");
    EXPECT_EQ(StringPatches(unit), "p kind 0 at 0x30\n");
    EXPECT_EQ(VarPatches(unit), "undefined kind 0 at 0x1c\nx kind 0 at 0x40\n");
    ASSERT_EQ(unit->fourthCount, 2);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->nameIndex), "__getfn0");
    EXPECT_EQ(unit->fourth[1]->codeOffset, 4u);
    EXPECT_EQ(unit->fourth[1]->paramCount, 0);
}

TEST(ExpressionsEndToEnd, SetterOnlyPropertyPassesUndefinedAndTheSetter) {
    CompileUnit* unit = Compiled("x = {set p(v) {}};");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xC005FFF5, NameRef("undefined"),               // 0x00 no getter
                                        0xB6000002,                                 // 0x08 b endfunc
                                        0x9C0F0000,                                 // 0x0c ret
                                        0xC0020000, NameId("__setfn0"), 0x07520000,  // 0x10
                                        kScriptRefCall, NameId("@@script_ref@@"),    // 0x1c
                                        0xD9020002, NameId("@@NewProperty@@"),       // 0x24
                                        0xC0060000, NameId("p"), 0x07560000,         // 0x2c
                                        0xD9020002, NameId("@@NewObject@@"),         // 0x38
                                        0x4555FFF5, NameRef("x"),
                                    }));
    ASSERT_EQ(unit->fourthCount, 2);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->nameIndex), "__setfn0");
    EXPECT_EQ(unit->fourth[1]->codeOffset, 0xCu);
    ASSERT_EQ(unit->fourth[1]->paramCount, 1);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->params[0]), "v");
}

TEST(ExpressionsEndToEnd, GetterAndSetterOfOneNameShareOneNewProperty) {
    std::vector<uint32_t> words = CompileWords("x = {get p() {}, set p(v) {}};");
    EXPECT_EQ(Hex(words), Hex({
                              0xB6000002, 0x9C0F0000,                               // 0x00 getter
                              0xC0020000, NameId("__getfn0"), 0x07520000,            // 0x08
                              kScriptRefCall, NameId("@@script_ref@@"),              // 0x14
                              0xB6000002, 0x9C0F0000,                               // 0x1c setter
                              0xC0020000, NameId("__setfn1"), 0x07520000,            // 0x24
                              kScriptRefCall, NameId("@@script_ref@@"),              // 0x30
                              0xD9020002, NameId("@@NewProperty@@"),                 // 0x38
                              0xC0060000, NameId("p"), 0x07560000,                   // 0x40
                              0xD9020002, NameId("@@NewObject@@"),                   // 0x4c
                              0x4555FFF5, NameRef("x"),
                          }));
}

TEST(ExpressionsEndToEnd, PlainPropertiesComeBeforeAccessorProperties) {
    std::vector<uint32_t> words = CompileWords("x = {get p() { return 1; }, a: 1};");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0001, 0x07520000,                      // 0x00 a's value
                              0xC0060000, NameId("a"), 0x07560000,          // 0x08 "a"
                              0xB6000005,                                  // 0x14 b endfunc (0x28)
                              0xC00F0001, 0x07520000, 0x9C050000,          // 0x18 return 1
                              0x9C0F0000,                                  // 0x24 ret
                              0xC0020000, NameId("__getfn0"), 0x07520000,   // 0x28
                              kScriptRefCall, NameId("@@script_ref@@"),     // 0x34
                              0xC005FFF5, NameRef("undefined"),                // 0x3c
                              0xD9020002, NameId("@@NewProperty@@"),        // 0x44
                              0xC0060000, NameId("p"), 0x07560000,          // 0x4c
                              0xD9020004, NameId("@@NewObject@@"),          // 0x58
                              0x4555FFF5, NameRef("x"),
                          }));
}

TEST(ExpressionsEndToEnd, SecondGetterForANameIsAnError) {
    EXPECT_EQ(CompileError("x = {\n  get p() {},\n  get p() {}\n};"),
              "Error : test.js(3) : getter has already been set for property p\n");
}

TEST(ExpressionsEndToEnd, SecondSetterForANameIsAnError) {
    EXPECT_EQ(CompileError("x = {\n  set p(v) {},\n  get p() {},\n  set p(w) {}\n};"),
              "Error : test.js(4) : setter has already been set for property p\n");
}

// ---------------------------------------------------------------------------------------------
// Function expressions

TEST(ExpressionsEndToEnd, AnonymousFunctionIsNamedAfterScriptLineAndCounter) {
    CompileUnit* unit = Compiled("x = function () {};");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB6000002, 0x9C0F0000,                                   // 0x00
                                        0xC0020000, NameId("__main_1__anonfn0"), 0x07520000,       // 0x08
                                        kScriptRefCall, NameId("@@script_ref@@"),                  // 0x14
                                        0x4555FFF5, NameRef("x"),                                     // 0x1c
                                    }));
    ASSERT_EQ(unit->fourthCount, 2);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->nameIndex), "__main_1__anonfn0");
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->declaredNameIndex), "__main_1__anonfn0");
    EXPECT_EQ(unit->fourth[1]->codeOffset, 4u);
    EXPECT_EQ(unit->fourth[1]->flags, 4u);
}

TEST(ExpressionsEndToEnd, AnonymousFunctionCounterCountsAcrossTheScriptAndUsesEachLine) {
    CompileUnit* unit = Compiled("x = function () {};\ny =\n  function () {};", true, "enemy");
    ASSERT_NE(unit, nullptr);
    ASSERT_EQ(unit->fourthCount, 3);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->nameIndex), "__enemy_1__anonfn0");
    EXPECT_EQ(NameOf(unit, unit->fourth[2]->nameIndex), "__enemy_3__anonfn1");
}

TEST(ExpressionsEndToEnd, NamedFunctionExpressionKeepsItsName) {
    std::vector<uint32_t> words = CompileWords("x = function n(a) { return a; };");
    EXPECT_EQ(Hex(words), Hex({
                              0xB6000005,                                // 0x00 b endfunc (0x14)
                              0xC005FFF3, 0xA0000000, 0x9C050000,        // 0x04 return a
                              0x9C0F0000,                                // 0x10 ret
                              0xC0020000, NameId("n"), 0x07520000,        // 0x14
                              kScriptRefCall, NameId("@@script_ref@@"),   // 0x20
                              0x4555FFF5, NameRef("x"),
                          }));
}

TEST(ExpressionsEndToEnd, CalledFunctionExpressionIsItsOwnScope) {
    std::vector<uint32_t> words = CompileWords("(function () {})();");
    EXPECT_EQ(Hex(words), Hex({0xB6000002, 0x9C0F0000, 0xC0020000, NameId("__main_1__anonfn0"), 0x07520000,
                               kScriptRefCall, NameId("@@script_ref@@"), 0x86050000, 0x99050000, 0x9E050000}));
}

TEST(ExpressionsEndToEnd, ArrowFunctionIsAnUnhandledNodeType) {
    EXPECT_EQ(CompileError("x = 1;\ny = a => a;"),
              "Error : test.js(2) : VM::CompileExpression : Unhandled node type - 260\n");
}

// ---------------------------------------------------------------------------------------------
// The scope that a callee leaves for its call

TEST(ExpressionsEndToEnd, CalleesWithoutAGlobalScopePrefixFailTheScopeCheck) {
    struct Case {
        const char* source;
        const char* kindName;
    };
    const Case cases[] = {
        {"f();\n(a + b)();", "+"},       {"f();\n(-a)();", "-"},          {"f();\n(+a)();", "+"},
        {"f();\n(a - b)();", "-"},       {"f();\nnull();", "null"},       {"f();\n(a ? b : c)();", "?"},
        {"f();\n(a && b)();", "andand"}, {"f();\n(a || b)();", "oror"},   {"f();\n(a, b)();", ","},
        {"f();\n(++a)();", "plusplus"},  {"f();\n(a++)();", "268"},       {"f();\n(a += 1)();", "plusequal"},
        {"f();\n({})();", "330"},        {"f();\n([])();", "336"},        {"f();\n(delete a)();", "delete"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.source);
        EXPECT_EQ(CompileError(c.source),
                  std::string("Error : test.js(2) : VM::CompileExpression : Duplicate scope not handled correctly for "
                              "node of type - ") +
                      c.kindName + "\n");
    }
}

TEST(ExpressionsEndToEnd, MultiplicationCalleeGetsTheGlobalScopeFirst) {
    std::vector<uint32_t> words = CompileWords("(a * b)();");
    EXPECT_EQ(Hex(words), Hex({kGlobalScopeCall, NameId("@@GlobalScope@@"), 0xC005FFF5, NameRef("a"), 0xC005FFF5, NameRef("b"),
                               0x08550100, 0x99050000, 0x9E050000}));
}

TEST(ExpressionsEndToEnd, PrefixedCalleesGetTheGlobalScopeFirst) {
    // Each case: the source and the words of its callee's value (read after the compile, when
    // the names have their indices), between the global scope call and the call itself.
    struct Case {
        const char* source;
        std::function<std::vector<uint32_t>()> value;
    };
    const std::vector<Case> cases = {
        {"1();", [] { return std::vector<uint32_t>{0xC00F0001, 0x07520000}; }},
        {"(!a)();", [] { return std::vector<uint32_t>{0xC005FFF5, NameRef("a"), 0x12050100, 0x07540000}; }},
        {"(~a)();", [] { return std::vector<uint32_t>{0xC005FFF5, NameRef("a"), 0x12050200}; }},
        {"(typeof a)();",
         [] { return std::vector<uint32_t>{0xC005FFF5, NameRef("a"), 0xD9020001, NameId("@@typeof@@")}; }},
        {"(void 0)();", [] { return std::vector<uint32_t>{0xC00F0000, 0x9E020000, 0xC005FFF5, NameRef("undefined")}; }},
        {"(a instanceof b)();",
         [] {
             return std::vector<uint32_t>{0xC005FFF5, NameRef("a"),  0xC005FFF5,
                                          NameRef("b"),   0xD9020002, NameId("@@instanceof@@")};
         }},
        {"(a < b)();",
         [] { return std::vector<uint32_t>{0xC005FFF5, NameRef("a"), 0xC005FFF5, NameRef("b"), 0x15550700, 0x07540000}; }},
        {"(x = 1)();", [] { return std::vector<uint32_t>{0xC00F0001, 0x4525FFF5, NameRef("x"), 0xC005FFF5, NameRef("x")}; }},
        {"true();", [] { return std::vector<uint32_t>{0xC00F0001, 0x07540000}; }},
        {"'s'();", [] { return std::vector<uint32_t>{0xC0060000, NameId("s"), 0x07560000}; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.source);
        std::vector<uint32_t> words = CompileWords(c.source);
        EXPECT_EQ(Hex(words),
                  Hex(Join({{kGlobalScopeCall, NameId("@@GlobalScope@@")}, c.value(), {0x99050000, 0x9E050000}})));
    }
}

TEST(ExpressionsEndToEnd, CompoundAssignmentTargetTypeServesAsTheScopeOfACalleeInItsValue) {
    // The target's type is still on the type stack while the value compiles, so the '+' callee
    // passes the scope check with it; the store then finds the type stack empty (type .e).
    std::vector<uint32_t> words = CompileWords("x += (a + b)();");
    EXPECT_EQ(Hex(words), Hex({
                              0xC005FFF5, NameRef("x"),  // load x
                              0xC005FFF5, NameRef("a"),  // a
                              0xC005FFF5, NameRef("b"),  // b
                              0x0C550100,            // add
                              0x99050000,            // call.v 0
                              0x0C550100,            // add (value .v into .v)
                              0x86050000,            // dup.v
                              0x45F5FFF5, NameRef("x"),  // store with type .e
                              0x9E050000,
                          }));
}

TEST(ExpressionsEndToEnd, ScopeCheckCountsTheValueThatANewStatementLeftOnTheTypeStack) {
    // A `new` statement keeps its value (and its type) on the stack; the '+' callee then finds two
    // entries, the lower one a variable, and passes the check.
    std::vector<uint32_t> words = CompileWords("new F;\n(a + b)();");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("F"), 0xD9020001, NameId("@@new@@"), 0xC005FFF5, NameRef("a"), 0xC005FFF5,
                               NameRef("b"), 0x0C550100, 0x99050000, 0x9E050000}));
}

// ---------------------------------------------------------------------------------------------
// Further forms

TEST(ExpressionsEndToEnd, FunctionNameInFunctionModeIsReadAsALocal) {
    std::vector<uint32_t> words = CompileWords("function g() {} x = g;", false);
    EXPECT_EQ(Hex(words), Hex({
                              0xB6000002, 0x9C0F0000,                              // 0x00
                              0xC0020000, NameId("g"), 0x07520000,                  // 0x08
                              kScriptRefCall, NameId("@@script_ref@@"),             // 0x14
                              0x4595FFF4, NameDecl("g"),                               // 0x1c declare g
                              0x4555FFF4, NameDecl("g"),                               // 0x24 store into it
                              0xC005FFF4, NameRef("g"),                                // 0x2c push.v -12 g
                              0x4555FFF5, NameRef("x"),
                          }));
}

TEST(ExpressionsEndToEnd, TopLevelFunctionIsFoundByNameFromInsideAFunctionExpression) {
    std::vector<uint32_t> words = CompileWords("function f() {}\nx = function () { y = f; };");
    EXPECT_EQ(Hex(words), Hex({
                              0xB6000002, 0x9C0F0000,                                // 0x00 f
                              0xC0020000, NameId("f"), 0x07520000,                    // 0x08
                              kScriptRefCall, NameId("@@script_ref@@"),               // 0x14
                              0x4555FFF5, NameDecl("f"),                                 // 0x1c
                              0xB6000009,                                            // 0x24 b endfunc (0x48)
                              0xC0020000, NameId("f"), 0x07520000,                    // 0x28 y = f
                              kScriptRefCall, NameId("@@script_ref@@"),               // 0x34
                              0x4555FFF5, NameRef("y"),                                  // 0x3c
                              0x9C0F0000,                                            // 0x44 ret
                              0xC0020000, NameId("__main_2__anonfn0"), 0x07520000,    // 0x48
                              kScriptRefCall, NameId("@@script_ref@@"),               // 0x54
                              0x4555FFF5, NameRef("x"),                                  // 0x5c
                          }));
}

TEST(ExpressionsEndToEnd, ConditionalConvertsABoolConditionToBoolAgain) {
    std::vector<uint32_t> words = CompileWords("x = (1 < 2) ? a : b;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0001, 0xC00F0002, 0x15220700,  // 0x00
                              0x07440100,                          // 0x0c conv.b.b 0x0100
                              0xB8000004,                          // 0x10 bf else (0x20)
                              0xC005FFF5, NameRef("a"),                // 0x14
                              0xB6000003,                          // 0x1c b endif (0x28)
                              0xC005FFF5, NameRef("b"),                // 0x20
                              0x4555FFF5, NameRef("x"),                // 0x28
                          }));
}

TEST(ExpressionsEndToEnd, LogicalAndOfABoolDuplicatesConvertsAndDiscardsWithTypeBool) {
    std::vector<uint32_t> words = CompileWords("x = (1 < 2) && a;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0001, 0xC00F0002, 0x15220700,  // 0x00
                              0x86040000,                          // 0x0c dup.b
                              0x07440100,                          // 0x10 conv.b.b
                              0xB7000003,                          // 0x14 bt else (0x20)
                              0x07540000,                          // 0x18 conv.b.v
                              0xB6000004,                          // 0x1c b endif (0x2c)
                              0x9E040000,                          // 0x20 popz.b
                              0xC005FFF5, NameRef("a"),                // 0x24
                              0x4555FFF5, NameRef("x"),                // 0x2c
                          }));
}

TEST(ExpressionsEndToEnd, SequenceOfThreeDiscardsTheFirstTwo) {
    std::vector<uint32_t> words = CompileWords("x = (1, \"s\", 3);");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0x9E020000, 0xC0060000, NameId("s"), 0x9E060000, 0xC00F0003, 0x4525FFF5,
                               NameRef("x")}));
}

TEST(ExpressionsEndToEnd, ShiftRunKeepsTheFirstShiftForEveryOperand) {
    std::vector<uint32_t> left = CompileWords("x = 1 << 2 >> 3;");
    EXPECT_EQ(Hex(left), Hex({0xC00F0001, 0xC00F0002, 0x13220100, 0xC00F0003, 0x13520100, 0x4555FFF5, NameRef("x")}));
    std::vector<uint32_t> unsignedRun = CompileWords("x = 1 >>> 2 << 3;");
    EXPECT_EQ(Hex(unsignedRun),
              Hex({0xC00F0001, 0xC00F0002, 0x14228100, 0xC00F0003, 0x14528100, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, InstanceofRunCompilesOnlyItsFirstTwoOperands) {
    // `a instanceof b < c` is one instanceof node with three children; only the left and right
    // operands are compiled.
    std::vector<uint32_t> words = CompileWords("x = a instanceof b < c;");
    EXPECT_EQ(Hex(words), Hex({0xC005FFF5, NameRef("a"), 0xC005FFF5, NameRef("b"), 0xD9020002, NameId("@@instanceof@@"),
                               0x4555FFF5, NameRef("x")}));
    EXPECT_EQ(NameIndex("c"), -1);
}

TEST(ExpressionsEndToEnd, CompoundAssignmentIntoAnElementReadsAndWritesTheElement) {
    std::vector<uint32_t> words = CompileWords("a[0] += 1;");
    EXPECT_EQ(Hex(words), Hex({
                              0xC00F0000, 0x07520000, 0xC005FFF5, NameRef("a"), 0x8055FFF6,  // read a[0]
                              0xC00F0001,                                                // 1
                              0x0C520100,                                                // add
                              0x86050000,                                                // dup.v
                              0xC00F0000, 0x07520000, 0xC005FFF5, NameRef("a"), 0x0555FFF6,  // store a[0]
                              0x9E050000,
                          }));
}

TEST(ExpressionsEndToEnd, OctalAndDecimalLiteralsBeyondTheIntRange) {
    ExpectLiteralStores({
        {"077777777777", {0xC0030000, 0x7FFFFFFF, 0x00000000}, 3},
        {"0xAbC", {0xC00F0ABC}, 2},
        {"1e400", {0xC0000000, 0x00000000, 0x7FF00000}, 0},
    });
}

TEST(ExpressionsEndToEnd, EmptyStringLiteralIsInternedToo) {
    CompileUnit* unit = Compiled("x = \"\";");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({0xC0060000, 0x00000003, 0x4565FFF5, 0xA0000004}));
    EXPECT_EQ(NameIndex(""), 3);
}

TEST(ExpressionsEndToEnd, AccessorPropertiesFollowTheirNamesHashBuckets) {
    // NameHash("a") & 7 is 4 and NameHash("c") & 7 is 0: c's getter comes first and takes
    // the first generated name.
    CompileUnit* unit = Compiled("x = {get a() {}, get c() {}};");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB6000002, 0x9C0F0000,                     // 0x00 c's getter
                                        0xC0020000, NameId("__getfn0"), 0x07520000,  // 0x08
                                        kScriptRefCall, NameId("@@script_ref@@"),    // 0x14
                                        0xC005FFF5, NameRef("undefined"),               // 0x1c
                                        0xD9020002, NameId("@@NewProperty@@"),       // 0x24
                                        0xC0060000, NameId("c"), 0x07560000,         // 0x2c
                                        0xB6000002, 0x9C0F0000,                     // 0x38 a's getter
                                        0xC0020000, NameId("__getfn1"), 0x07520000,  // 0x40
                                        kScriptRefCall, NameId("@@script_ref@@"),    // 0x4c
                                        0xC005FFF5, NameRef("undefined"),               // 0x54
                                        0xD9020002, NameId("@@NewProperty@@"),       // 0x5c
                                        0xC0060000, NameId("a"), 0x07560000,         // 0x64
                                        0xD9020004, NameId("@@NewObject@@"),         // 0x70
                                        0x4555FFF5, NameRef("x"),                       // 0x78
                                    }));
    ASSERT_EQ(unit->fourthCount, 3);
    EXPECT_EQ(unit->fourth[1]->codeOffset, 4u);
    EXPECT_EQ(unit->fourth[2]->codeOffset, 0x3Cu);
}

TEST(ExpressionsEndToEnd, StoreIntoAParameterUsesTheArgumentOperand) {
    std::vector<uint32_t> words = CompileWords("function g(p) { p = 1; }");
    EXPECT_EQ(Hex(words), Hex({
                              0xB6000005,                                    // 0x00
                              0xC00F0001,                                    // 0x04
                              0x4525FFF3, 0xA0000000,                        // 0x08 pop.v.i -13 depth 0 slot 0
                              0x9C0F0000,                                    // 0x10
                              0xC0020000, NameId("g"), 0x07520000,            // 0x14
                              kScriptRefCall, NameId("@@script_ref@@"),       // 0x20
                              0x4555FFF5, NameDecl("g"),                         // 0x28
                          }));
}

TEST(ExpressionsEndToEnd, OuterFunctionsVariableIsReadAsALocalAndMarksTheDeclaringFunction) {
    CompileUnit* unit = Compiled("function g() { var v; function h() { x = v; } }");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB6000013,                               // 0x00 b endfunc g (0x4c)
                                        0x4595FFF4, NameDecl("v"),                    // 0x04 var v
                                        0xB6000006,                               // 0x0c b endfunc h (0x24)
                                        0xC005FFF4, NameRef("v"),                     // 0x10 push.v -12 v
                                        0x4555FFF5, NameRef("x"),                     // 0x18
                                        0x9C0F0000,                               // 0x20
                                        0xC0020000, NameId("g@h"), 0x07520000,     // 0x24
                                        kScriptRefCall, NameId("@@script_ref@@"),  // 0x30
                                        0x4595FFF4, NameDecl("h"),                    // 0x38
                                        0x4555FFF4, NameDecl("h"),                    // 0x40
                                        0x9C0F0000,                               // 0x48
                                        0xC0020000, NameId("g"), 0x07520000,       // 0x4c
                                        kScriptRefCall, NameId("@@script_ref@@"),  // 0x58
                                        0x4555FFF5, NameDecl("g"),                    // 0x60
                                    }));
    ASSERT_EQ(unit->fourthCount, 3);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->nameIndex), "g@h");
    EXPECT_EQ(unit->fourth[1]->flags, 0u);
    EXPECT_EQ(NameOf(unit, unit->fourth[2]->nameIndex), "g");
    EXPECT_EQ(unit->fourth[2]->flags, 2u);
}

TEST(ExpressionsEndToEnd, MemberNamedLikeADeclaredFunctionReadsThatFunction) {
    // The function search of the identifier routine also applies to a member's property name.
    std::vector<uint32_t> words = CompileWords("function g() {} x = o.g;");
    EXPECT_EQ(Hex(words), Hex({
                              0xB6000002, 0x9C0F0000,                        // 0x00
                              0xC0020000, NameId("g"), 0x07520000,            // 0x08
                              kScriptRefCall, NameId("@@script_ref@@"),       // 0x14
                              0x4555FFF5, NameDecl("g"),                         // 0x1c
                              0xC005FFF5, NameRef("o"),                          // 0x24 o
                              0xC0020000, NameId("g"), 0x07520000,            // 0x2c the function g
                              kScriptRefCall, NameId("@@script_ref@@"),       // 0x38
                              0x4555FFF5, NameRef("x"),                          // 0x40
                          }));
}

TEST(ExpressionsEndToEnd, MemberReadConvertsATypedObjectToVariable) {
    std::vector<uint32_t> words = CompileWords("x = \"s\".length;");
    EXPECT_EQ(Hex(words), Hex({0xC0060000, NameId("s"), 0x07560000, 0xC005FFF7, NameRef("length"), 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, MemberStoreLeavesATypedObjectUnconverted) {
    std::vector<uint32_t> words = CompileWords("\"s\".p = 1;");
    EXPECT_EQ(Hex(words), Hex({0xC00F0001, 0xC0060000, NameId("s"), 0x4525FFF7, NameRef("p")}));
}

TEST(ExpressionsEndToEnd, AnonymousFunctionInsideAFunctionIsQualifiedByTheEnclosingName) {
    CompileUnit* unit = Compiled("function g() { x = function () {}; }");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(Hex(UnitWords(unit)), Hex({
                                        0xB600000B,                                             // 0x00 endfunc 0x2c
                                        0xB6000002, 0x9C0F0000,                                 // 0x04
                                        0xC0020000, NameId("g@__main_1__anonfn0"), 0x07520000,   // 0x0c
                                        kScriptRefCall, NameId("@@script_ref@@"),                // 0x18
                                        0x4555FFF5, NameRef("x"),                                   // 0x20
                                        0x9C0F0000,                                             // 0x28
                                        0xC0020000, NameId("g"), 0x07520000,                     // 0x2c
                                        kScriptRefCall, NameId("@@script_ref@@"),                // 0x38
                                        0x4555FFF5, NameDecl("g"),                                  // 0x40
                                    }));
    ASSERT_EQ(unit->fourthCount, 3);
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->nameIndex), "g@__main_1__anonfn0");
    EXPECT_EQ(NameOf(unit, unit->fourth[1]->declaredNameIndex), "__main_1__anonfn0");
}

TEST(ExpressionsEndToEnd, ElementOfAnArrayLiteralReadsTheLiteralAsTheArray) {
    std::vector<uint32_t> words = CompileWords("x = [1, 2][0];");
    EXPECT_EQ(Hex(words), Hex({0xC00F0000, 0x07520000, 0xC00F0002, 0x07520000, 0xC00F0001, 0x07520000, 0xD9020002,
                               NameId("@@NewArray@@"), 0x8055FFF6, 0x4555FFF5, NameRef("x")}));
}

TEST(ExpressionsEndToEnd, ElementOfAStringConvertsTheStringToVariable) {
    std::vector<uint32_t> words = CompileWords("x = \"abc\"[0];");
    EXPECT_EQ(Hex(words),
              Hex({0xC00F0000, 0x07520000, 0xC0060000, NameId("abc"), 0x07560000, 0x8055FFF6, 0x4555FFF5, NameRef("x")}));
}
