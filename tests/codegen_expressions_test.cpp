// The expression compiler: literals, unary operators, typeof, void, sequences, increments,
// function expressions, the global-scope prefix and its check, and deep nesting.
// Each test runs in a process of its own: the first name a test interns gets index 3 (after
// "prototype", "@@array@@" and "arguments").
#include <gtest/gtest.h>

#include "helpers/compile_support.h"
#include "state/process_state.h"

namespace {

using Words = std::vector<uint32_t>;
using Types = std::vector<uint32_t>;


std::string ErrorCompiling(Node* node, bool withScope = false) {
    TestCompile t;
    return ErrorOf([&] { CompileExpression(t.cx, node, withScope); });
}

constexpr uint32_t kFirstName = 3;
constexpr uint32_t Ref(uint32_t index) { return 0xA0000000u | index; }

}  // namespace

// ---- numbers

TEST(NumberLiteral, SmallIntegerIsAShortPushOfTypeInt) {
    ExpressionResult r = CompileExpressionSource("32766");
    EXPECT_EQ(r.words, (Words{0xC00F7FFEu}));
    EXPECT_EQ(r.types, (Types{TYPE_INT}));
}

TEST(NumberLiteral, HexadecimalAbove32766IsAnIntPush) {
    ExpressionResult r = CompileExpressionNode(Int("0x7fff"));
    EXPECT_EQ(r.words, (Words{0xC0020000u, 0x00007FFFu}));
    EXPECT_EQ(r.types, (Types{TYPE_INT}));
}

TEST(NumberLiteral, From32767OnItIsAnIntPush) {
    ExpressionResult r = CompileExpressionSource("32767");
    EXPECT_EQ(r.words, (Words{0xC0020000u, 0x00007FFFu}));
    EXPECT_EQ(r.types, (Types{TYPE_INT}));
    EXPECT_EQ(CompileExpressionSource("2147483646").words, (Words{0xC0020000u, 0x7FFFFFFEu}));
}

TEST(NumberLiteral, Int32MaxIsALongPush) {
    ExpressionResult r = CompileExpressionSource("2147483647");
    EXPECT_EQ(r.words, (Words{0xC0030000u, 0x7FFFFFFFu, 0x00000000u}));
    EXPECT_EQ(r.types, (Types{TYPE_LONG}));
}

TEST(NumberLiteral, BeyondInt32AndFractionsAreDoublePushes) {
    ExpressionResult big = CompileExpressionSource("2147483648");
    EXPECT_EQ(big.words, (Words{0xC0000000u, 0x00000000u, 0x41E00000u}));
    EXPECT_EQ(big.types, (Types{TYPE_DOUBLE}));
    ExpressionResult half = CompileExpressionSource("1.5");
    EXPECT_EQ(half.words, (Words{0xC0000000u, 0x00000000u, 0x3FF80000u}));
    EXPECT_EQ(half.types, (Types{TYPE_DOUBLE}));
}

TEST(NumberLiteral, HexadecimalAndLeadingZeroOctal) {
    EXPECT_EQ(CompileExpressionSource("0x10").words, (Words{0xC00F0010u}));
    EXPECT_EQ(CompileExpressionSource("0X1f").words, (Words{0xC00F001Fu}));
    EXPECT_EQ(CompileExpressionSource("010").words, (Words{0xC00F0008u}));
    EXPECT_EQ(CompileExpressionSource("0").words, (Words{0xC00F0000u}));
}

TEST(NumberLiteral, LeadingZeroBeforeANonOctalDigitReadsAsZero) {
    EXPECT_EQ(CompileExpressionNode(Int("09")).words, (Words{0xC00F0000u}));
}

TEST(NumberLiteral, ZeroPointFiveIsADecimal) {
    EXPECT_EQ(CompileExpressionSource("0.5").words, (Words{0xC0000000u, 0x00000000u, 0x3FE00000u}));
}

TEST(NumberLiteral, WholeDecimalBecomesAnInteger) {
    ExpressionResult r = CompileExpressionSource("2.0");
    EXPECT_EQ(r.words, (Words{0xC00F0002u}));
    EXPECT_EQ(r.types, (Types{TYPE_INT}));
}

TEST(NumberLiteral, HexadecimalSaturatesAtInt32Max) {
    EXPECT_EQ(CompileExpressionSource("0xFFFFFFFFFF").words, (Words{0xC0030000u, 0x7FFFFFFFu, 0x00000000u}));
}

// ---- unary operators

TEST(UnaryMinus, LiteralZeroIsOnePushOfNegativeZero) {
    ExpressionResult r = CompileExpressionSource("-0");
    EXPECT_EQ(r.words, (Words{0xC0000000u, 0x00000000u, 0x80000000u}));
    EXPECT_EQ(r.types, (Types{TYPE_DOUBLE}));
}

TEST(UnaryMinus, ZeroPointZeroIsTheOperandThenNeg) {
    ExpressionResult r = CompileExpressionSource("-0.0");
    EXPECT_EQ(r.words, (Words{0xC00F0000u, 0x11020100u}));
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(UnaryMinus, OtherOperandIsFollowedByNeg) {
    ExpressionResult r = CompileExpressionSource("- 1");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0x11020100u}));
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(UnaryPlus, ConvertsToVariableWithField0200) {
    ExpressionResult r = CompileExpressionSource("+x");
    EXPECT_EQ(r.words, (Words{0xC005FFF5u, Ref(kFirstName), 0x07550200u}));
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(LogicalNot, IsNotWithField0100AndTypeBool) {
    ExpressionResult r = CompileExpressionSource("!x");
    EXPECT_EQ(r.words, (Words{0xC005FFF5u, Ref(kFirstName), 0x12050100u}));
    EXPECT_EQ(r.types, (Types{TYPE_BOOL}));
}

TEST(BitwiseNot, IsNotWithField0200AndTypeVariable) {
    ExpressionResult r = CompileExpressionSource("~1");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0x12020200u}));
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

// ---- constants

TEST(Constants, TrueAndFalseAreShortPushesOfTypeBool) {
    ExpressionResult t = CompileExpressionSource("true");
    EXPECT_EQ(t.words, (Words{0xC00F0001u}));
    EXPECT_EQ(t.types, (Types{TYPE_BOOL}));
    ExpressionResult f = CompileExpressionSource("false");
    EXPECT_EQ(f.words, (Words{0xC00F0000u}));
    EXPECT_EQ(f.types, (Types{TYPE_BOOL}));
}

TEST(Constants, NullCallsTheRunner) {
    ExpressionResult r = CompileExpressionSource("null");
    EXPECT_EQ(r.words, (Words{0xD9020000u, kFirstName}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[kFirstName]), "@@Null@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(Constants, StringIsAStringPush) {
    ExpressionResult r = CompileExpressionSource("'abc'");
    EXPECT_EQ(r.words, (Words{0xC0060000u, kFirstName}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[kFirstName]), "abc");
    EXPECT_EQ(r.types, (Types{TYPE_STRING}));
}

TEST(Constants, UndefinedNodePushesTheUndefinedVariable) {
    ExpressionResult r = CompileExpressionNode(N(LEX_UNDEFINED, "("));
    EXPECT_EQ(r.words, (Words{0xC005FFF5u, Ref(kFirstName)}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[kFirstName]), "undefined");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(Constants, ElisionPushesSelectorMinus14WithNameZeroAndNoPatch) {
    TestCompile t;
    int32_t patches = GlobalVarList.count;
    CompileExpression(t.cx, N(LEX_ELISION, ","), false);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF2u, 0xA0000000u}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
    EXPECT_EQ(GlobalVarList.count, patches);
}

TEST(Constants, RegularExpressionNodeEmitsNothing) {
    ExpressionResult r = CompileExpressionNode(N(LEX_REGEXP, "/a/"));
    EXPECT_TRUE(r.words.empty());
    EXPECT_TRUE(r.types.empty());
}

TEST(Constants, EmptyStatementNodeEmitsNothing) {
    ExpressionResult r = CompileExpressionNode(N(';', ";"));
    EXPECT_TRUE(r.words.empty());
    EXPECT_TRUE(r.types.empty());
}

// ---- typeof, void, instanceof

TEST(Typeof, OfANumberIsAnsweredAtCompileTime) {
    ExpressionResult r = CompileExpressionSource("typeof 1");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0x9E020000u, 0xC0060000u, kFirstName}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[kFirstName]), "number");
    EXPECT_EQ(r.types, (Types{TYPE_STRING}));
}

TEST(Typeof, OfAVariableCallsTheRunner) {
    ExpressionResult r = CompileExpressionSource("typeof x");
    EXPECT_EQ(r.words, (Words{0xC005FFF5u, Ref(kFirstName), 0xD9020001u, kFirstName + 1}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[kFirstName + 1]), "@@typeof@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(Typeof, NamesStringsBooleansAndDoubles) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("typeof 'a'"), false);
    CompileExpression(t.cx, ParseFirst("typeof true"), false);
    CompileExpression(t.cx, ParseFirst("typeof 1.5"), false);
    Words words = t.Words();
    // 'a' is 3, "string" 4, "boolean" 5, "number" 6.
    Words expected = {0xC0060000u, 3, 0x9E060000u, 0xC0060000u, 4,
                      0xC00F0001u, 0x9E040000u, 0xC0060000u, 5,
                      0xC0000000u, 0x00000000u, 0x3FF80000u, 0x9E000000u, 0xC0060000u, 6};
    EXPECT_EQ(words, expected) << HexWords(words);
    EXPECT_STREQ(static_cast<char*>(NameArray.data[4]), "string");
    EXPECT_STREQ(static_cast<char*>(NameArray.data[5]), "boolean");
    EXPECT_STREQ(static_cast<char*>(NameArray.data[6]), "number");
}

TEST(Typeof, OfAnOperandWithoutTypeIsUnknown) {
    ExpressionResult r = CompileExpressionNode(N(LEX_TYPEOF, "typeof", {N(LEX_REGEXP, "/a/")}));
    EXPECT_EQ(r.words, (Words{0x9E0F0000u, 0xC0060000u, kFirstName}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[kFirstName]), "[[unknown]]");
    EXPECT_EQ(r.types, (Types{TYPE_STRING}));
}

TEST(Void, DiscardsTheOperandAndPushesUndefined) {
    ExpressionResult r = CompileExpressionSource("void 1");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0x9E020000u, 0xC005FFF5u, Ref(kFirstName)}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[kFirstName]), "undefined");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(Instanceof, CallsTheRunnerWithBothOperands) {
    ExpressionResult r = CompileExpressionSource("a instanceof 1");
    EXPECT_EQ(r.words, (Words{0xC005FFF5u, Ref(3), 0xC00F0001u, 0xD9020002u, 4}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[4]), "@@instanceof@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

// ---- sequences

TEST(Sequence, DiscardsEveryValueButTheLast) {
    ExpressionResult r = CompileExpressionSource("1, 'a', x");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0x9E020000u, 0xC0060000u, 3, 0x9E060000u, 0xC005FFF5u, Ref(4)}));
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(Sequence, WithoutChildrenPushesTypeMinusOne) {
    ExpressionResult r = CompileExpressionNode(N(',', ","));
    EXPECT_TRUE(r.words.empty());
    EXPECT_EQ(r.types, (Types{0xFFFFFFFFu}));
}

// ---- increments

TEST(Increment, PostfixLeavesTheOldValueConverted) {
    ExpressionResult r = CompileExpressionSource("x++");
    Words expected = {0xC005FFF5u, Ref(3), 0x07550200u, 0x86050000u, 0xC00F0001u, 0x0C520200u,
                      0x4555FFF5u, Ref(3)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(Increment, PostfixDecrementSubtractsWithField0100) {
    ExpressionResult r = CompileExpressionSource("x--");
    Words expected = {0xC005FFF5u, Ref(3), 0x07550200u, 0x86050000u, 0xC00F0001u, 0x0D520100u,
                      0x4555FFF5u, Ref(3)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

TEST(Increment, PrefixLeavesTheNewValue) {
    ExpressionResult r = CompileExpressionSource("++x");
    Words expected = {0xC005FFF5u, Ref(3), 0xC00F0001u, 0x0C520200u, 0x86050000u, 0x4555FFF5u, Ref(3)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(Increment, PrefixDecrement) {
    ExpressionResult r = CompileExpressionSource("--x");
    Words expected = {0xC005FFF5u, Ref(3), 0xC00F0001u, 0x0D520100u, 0x86050000u, 0x4555FFF5u, Ref(3)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

TEST(Increment, OfAMemberStoresWithTheMemberSelector) {
    ExpressionResult r = CompileExpressionSource("a.b++");
    // a (3) read, b (4) read as a member; then a again and the member write.
    Words expected = {0xC005FFF5u, Ref(3), 0xC005FFF7u, Ref(4), 0x07550200u, 0x86050000u,
                      0xC00F0001u, 0x0C520200u, 0xC005FFF5u, Ref(3), 0x4555FFF7u, Ref(4)};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

// ---- assignment as an expression

TEST(Assignment, StoresThenReadsTheTargetAgain) {
    ExpressionResult r = CompileExpressionSource("x = 1");
    EXPECT_EQ(r.words, (Words{0xC00F0001u, 0x4525FFF5u, Ref(3), 0xC005FFF5u, Ref(3)}));
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

// ---- the global-scope prefix and its check

TEST(WithScope, PrefixedKindsPushTheGlobalScopeFirst) {
    ExpressionResult r = CompileExpressionSource("1", true);
    EXPECT_EQ(r.words, (Words{0xD9020000u, 3, 0xC00F0001u}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[3]), "@@GlobalScope@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE, TYPE_INT}));
}

TEST(WithScope, APlusCalleeFailsTheScopeCheck) {
    EXPECT_EQ(CompileError("(a + b)();"),
              "Error : test.js(1) : VM::CompileExpression : Duplicate scope not handled correctly for node of type - +\n");
    EXPECT_EQ(CompileError("(a - b)();"),
              "Error : test.js(1) : VM::CompileExpression : Duplicate scope not handled correctly for node of type - -\n");
}

TEST(WithScope, ATimesCalleeCompilesWithTheGlobalScope) {
    ExpressionResult r = CompileExpressionNode(ParseFirst("(a * b)()"));
    // call @@GlobalScope@@ (3), a (4), b (5), mul.v.v, then the call through the value.
    ASSERT_GE(r.words.size(), 8u);
    Words head(r.words.begin(), r.words.begin() + 8);
    EXPECT_EQ(head, (Words{0xD9020000u, 3, 0xC005FFF5u, Ref(4), 0xC005FFF5u, Ref(5), 0x08550100u, 0x99050000u}))
        << HexWords(r.words);
}

TEST(WithScope, AFunctionExpressionIsItsOwnScope) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("(function () {})"), true);
    Words words = t.Words();
    ASSERT_GE(words.size(), 1u);
    EXPECT_EQ(words.back(), 0x86050000u);
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE, TYPE_VARIABLE}));
}

TEST(WithScope, ScopeBelowThatIsNotAVariableFails) {
    TestCompile t;
    PushType(t.cx, TYPE_INT);
    PushType(t.cx, TYPE_INT);
    std::string error = ErrorOf([&] { CompileExpression(t.cx, N(LEX_REGEXP, "/a/"), true); });
    EXPECT_EQ(error, "Error : test.js(1) : VM::CompileExpression : Duplicate scope not handled correctly for node of type - regexp\n");
}

TEST(WithScope, FewerThanTwoTypesFails) {
    TestCompile t;
    std::string error = ErrorOf([&] { CompileExpression(t.cx, N(LEX_REGEXP, "/a/"), true); });
    EXPECT_EQ(error, "Error : test.js(1) : VM::CompileExpression : Duplicate scope not handled correctly for node of type - regexp\n");
}

TEST(WithScope, CheckLeavesTheTypeStackAsItWas) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("'s'"), true);
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE, TYPE_STRING}));
}

// ---- unhandled kinds

TEST(Unhandled, ArrowFunctionIsNotCompiled) {
    EXPECT_EQ(CompileError("(a) => a;"), "Error : test.js(1) : VM::CompileExpression : Unhandled node type - 260\n");
}

TEST(Unhandled, KindNameIsPrinted) {
    EXPECT_EQ(ErrorCompiling(N(LEX_IF, "if")), "Error : test.js(1) : VM::CompileExpression : Unhandled node type - if\n");
}

// ---- this, function expressions, elements of values

TEST(This, KeywordCompilesToTheThisCall) {
    ExpressionResult r = CompileExpressionSource("this");
    EXPECT_EQ(r.words, (Words{0xD9020000u, 3}));
    EXPECT_STREQ(static_cast<char*>(NameArray.data[3]), "@@This@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(This, MemberOfThisReadsWithTheMemberSelector) {
    ExpressionResult r = CompileExpressionSource("this.a");
    EXPECT_EQ(r.words, (Words{0xD9020000u, 3, 0xC005FFF7u, Ref(4)}));
}

TEST(FunctionExpression, AnonymousFunctionIsNamedAfterScriptLineAndCounter) {
    CompileUnit* unit = ParseAndCompile("\n\nvar f = function () {};\nvar g = function () {};", true, "main");
    ASSERT_EQ(unit->status, 0) << unit->errors[0];
    EXPECT_GE(NameIndex("__main_3__anonfn0"), 0);
    EXPECT_GE(NameIndex("__main_4__anonfn1"), 0);
    EXPECT_EQ(CodeGenState().anonymousCounter, 2);
}

TEST(FunctionExpression, NamedFunctionKeepsItsName) {
    CompileUnit* unit = ParseAndCompile("var f = function named() {};");
    ASSERT_EQ(unit->status, 0) << unit->errors[0];
    EXPECT_GE(NameIndex("named"), 0);
    EXPECT_EQ(CodeGenState().anonymousCounter, 0);
}

TEST(FunctionExpression, PushesOneVariableType) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("(function () {})"), false);
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}

TEST(ElementRead, OfACallResultCompiles) {
    ExpressionResult r = CompileExpressionSource("f()[0]");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
    EXPECT_EQ(r.words.back(), 0x8055FFF6u);
}

TEST(ElementRead, OfAStringLiteral) {
    ExpressionResult r = CompileExpressionSource("'abc'[0]");
    // index 0 (converted), the string (converted), pushv.v -10
    EXPECT_EQ(r.words, (Words{0xC00F0000u, 0x07520000u, 0xC0060000u, 3, 0x07560000u, 0x8055FFF6u}));
}

TEST(ElementRead, OfAnArrayLiteral) {
    ExpressionResult r = CompileExpressionSource("[1, 2][0]");
    Words expected = {0xC00F0000u, 0x07520000u, 0xC00F0002u, 0x07520000u, 0xC00F0001u, 0x07520000u,
                      0xD9020002u, 3, 0x8055FFF6u};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

// ---- nesting

namespace {

// a - 1 - 1 - ... with `operators` subtractions, nested to the left as the parser builds it.
Node* SubtractionChain(int operators) {
    Node* node = Id("a");
    for (int i = 0; i < operators; i++) node = Op('-', {node, Int("1")});
    return node;
}

}  // namespace

TEST(Nesting, AThousandOperatorsCompileOnAOneMebibyteStack) {
    Node* chain = SubtractionChain(1000);
    std::string error = "not run";
    RunOnThreadWithStack(1 << 20, [&] {
        TestCompile t;
        error = ErrorOf([&] { CompileExpression(t.cx, chain, false); });
        EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
        EXPECT_EQ(t.Words().size(), 2u + 1000u * 2u);
    });
    EXPECT_EQ(error, "");
}

TEST(Nesting, AHundredThousandLevelsReportNestingTooDeep) {
    Node* chain = SubtractionChain(100000);
    std::string error;
    RunOnThreadWithStack(1 << 20, [&] {
        TestCompile t;
        error = ErrorOf([&] { CompileExpression(t.cx, chain, false); });
    });
    EXPECT_EQ(error, "Error : test.js(1) : nesting too deep\n");
}

TEST(Nesting, DeepUnaryAndMemberChainsReportNestingTooDeep) {
    Node* unary = Id("a");
    for (int i = 0; i < 100000; i++) unary = N('!', "!", {unary});
    Node* member = Id("a");
    for (int i = 0; i < 100000; i++) member = N('.', ".", {member, Id("b")});
    std::string unaryError;
    std::string memberError;
    RunOnThreadWithStack(1 << 20, [&] {
        TestCompile t;
        unaryError = ErrorOf([&] { CompileExpression(t.cx, unary, false); });
        memberError = ErrorOf([&] { CompileExpression(t.cx, member, false); });
    });
    EXPECT_EQ(unaryError, "Error : test.js(1) : nesting too deep\n");
    EXPECT_EQ(memberError, "Error : test.js(1) : nesting too deep\n");
}

TEST(Nesting, AThousandNestedCallsAndAccessorsCompile) {
    Node* member = Id("a");
    for (int i = 0; i < 1000; i++) member = N('.', ".", {member, Id("b")});
    Node* logic = Id("a");
    for (int i = 0; i < 1000; i++) logic = N(LEX_OROR, "||", {Id("b"), logic});
    std::string error = "not run";
    RunOnThreadWithStack(1 << 20, [&] {
        TestCompile t;
        error = ErrorOf([&] {
            CompileExpression(t.cx, member, false);
            CompileExpression(t.cx, logic, false);
        });
    });
    EXPECT_EQ(error, "");
}
