// The statement compiler on hand-built trees: exact words, branch offsets, targets and messages.
#include <gtest/gtest.h>

#include <vector>

#include "codegen/codegen.h"
#include "helpers/compile_support.h"
#include "state/process_state.h"

namespace {

using Words = std::vector<uint32_t>;

Node* Block(std::initializer_list<Node*> statements = {}) { return N('{', "{", statements); }
Node* True() { return N(LEX_TRUE, "true"); }
Node* Empty() { return N(';', ";"); }
Node* While(Node* condition, Node* body) { return N(LEX_WHILE, "while", {condition, body}); }
Node* Break(const char* label = nullptr) {
    return label ? N(LEX_BREAK, "break", {Id(label)}) : N(LEX_BREAK, "break");
}
Node* Continue(const char* label = nullptr) {
    return label ? N(LEX_CONTINUE, "continue", {Id(label)}) : N(LEX_CONTINUE, "continue");
}
Node* Label(const char* name) { return N(':', ":", {Id(name)}); }


// Compiles the statements in order, as a statement list.
void Compile(TestCompile& t, std::initializer_list<Node*> statements, int flag = 1) {
    for (Node* statement : statements) CompileStatement(t.cx, statement, flag);
}

std::vector<uint32_t> PositionWords(const TestCompile& t) {
    const uint32_t* data = reinterpret_cast<const uint32_t*>(t.cx.code2->data);
    return std::vector<uint32_t>(data, data + CurrentOffset(*t.cx.code2) / 4);
}

}  // namespace

TEST(Statements, ExpressionStatementDiscardsItsValue) {
    TestCompile t;
    Compile(t, {Int("1")});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x9E020000}));
    EXPECT_TRUE(t.Types().empty());
}

TEST(Statements, EveryStatementWritesItsPositionPair) {
    TestCompile t;
    Node* first = Int("1");
    first->position->offset = 42;
    Node* second = Empty();
    second->position->offset = 50;
    Node* block = Block({Int("2")});
    block->position->offset = 60;
    block->first->position->offset = 61;
    Compile(t, {first, second, block});
    EXPECT_EQ(PositionWords(t), (Words{0, 42, 8, 50, 8, 60, 8, 61}));
}

TEST(Statements, WhileEmitsConditionBranchOutAndBranchBack) {
    TestCompile t;
    Compile(t, {While(Int("1"), Block())});
    // startwhile: push.e 1; conv.i.b; bf endwhile; b startwhile; endwhile:
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x07420100, 0xB8000002, 0xB67FFFFD}));
}

TEST(Statements, WhileWithBoolConditionHasNoConversion) {
    TestCompile t;
    Compile(t, {While(True(), Block())});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0xB8000002, 0xB67FFFFE}));
}

TEST(Statements, WhileWithoutBodyCompilesNothingForIt) {
    TestCompile t;
    Compile(t, {N(LEX_WHILE, "while", {True()})});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0xB8000002, 0xB67FFFFE}));
}

TEST(Statements, DoBranchesBackWithBt) {
    TestCompile t;
    Compile(t, {N(LEX_DO, "do", {Block(), Int("0")})});
    // startdo: iteratedo: push.e 0; conv.i.b; bt startdo; enddo:
    EXPECT_EQ(t.Words(), (Words{0xC00F0000, 0x07420100, 0xB77FFFFE}));
}

TEST(Statements, IfWithElseBranchesOverTheElse) {
    TestCompile t;
    Compile(t, {N(LEX_IF, "if", {Int("1"), Int("2"), Int("3")})});
    // cond; conv.i.b; bf else; 2; popz.i; b endif; else: 3; popz.i; endif:
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x07420100, 0xB8000004, 0xC00F0002, 0x9E020000, 0xB6000003,
                                0xC00F0003, 0x9E020000}));
}

TEST(Statements, IfWithoutElseHasNoBranchToEndif) {
    TestCompile t;
    Compile(t, {N(LEX_IF, "if", {True(), Int("2")})});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0xB8000003, 0xC00F0002, 0x9E020000}));
}

TEST(Statements, ForWithoutIterationOrInitializer) {
    TestCompile t;
    Compile(t, {N(LEX_FOR, "for", {Empty(), N(LEX_TRUE, ";"), Empty(), Block()})});
    // startfor: push.e 1; bf endfor; iteratefor: b startfor; endfor:
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0xB8000002, 0xB67FFFFE}));
    // The for statement, its ';' initializer and its body each write a pair.
    EXPECT_EQ(PositionWords(t).size(), 6u);
}

TEST(Statements, ForConditionWithoutTypeConvertsFromShort) {
    TestCompile t;
    Compile(t, {N(LEX_FOR, "for", {Empty(), Empty(), Int("7"), Block()})});
    // startfor: conv.e.b; bf endfor; iteratefor: push.e 7; popz.i; b startfor; endfor:
    EXPECT_EQ(t.Words(), (Words{0x074F0100, 0xB8000004, 0xC00F0007, 0x9E020000, 0xB67FFFFC}));
}

TEST(Statements, BreakAndContinueInsideForReachEndAndIteration) {
    TestCompile t;
    Compile(t, {N(LEX_FOR, "for", {Empty(), True(), Empty(), Block({Break(), Continue()})})});
    // startfor: push.e 1; bf endfor; b endfor; b iteratefor; iteratefor: b startfor; endfor:
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0xB8000004, 0xB6000003, 0xB6000001, 0xB67FFFFC}));
}

TEST(Statements, BreakWithNoContext) {
    TestCompile t;
    EXPECT_EQ(ErrorOf([&] { Compile(t, {Break()}); }), "Error : test.js(1) : break with no context\n");
}

TEST(Statements, ContinueWithNoContext) {
    TestCompile t;
    EXPECT_EQ(ErrorOf([&] { Compile(t, {Continue()}); }), "Error : test.js(1) : continue with no context\n");
}

TEST(Statements, BreakToNamedLabelLeavesTheOuterLoop) {
    TestCompile t;
    Node* inner = While(Int("1"), Block({Break("outer")}));
    Compile(t, {Label("outer"), While(Int("1"), Block({inner}))});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x07420100, 0xB8000007, 0xC00F0001, 0x07420100, 0xB8000003,
                                0xB6000003, 0xB67FFFFC, 0xB67FFFF8}));
}

TEST(Statements, ContinueToNamedLabelGoesToTheOuterCondition) {
    TestCompile t;
    Node* inner = While(Int("1"), Block({Continue("outer")}));
    Compile(t, {Label("outer"), While(Int("1"), Block({inner}))});
    // outer: push.e 1; conv.i.b; bf; inner: push.e 1; conv.i.b; bf; b outer-start; b inner-start; b outer-start
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x07420100, 0xB8000007, 0xC00F0001, 0x07420100, 0xB8000003,
                                0xB67FFFFA, 0xB67FFFFC, 0xB67FFFF8}));
}

TEST(Statements, UnknownLabelIsReported) {
    TestCompile t;
    EXPECT_EQ(ErrorOf([&] { Compile(t, {While(True(), Break("nowhere"))}); }),
              "Error : test.js(1) : unable to find target label nowhere\n");
}

TEST(Statements, LabelDefinedTwiceReusesOneRecordAtTheSecondPlace) {
    TestCompile t;
    Compile(t, {Label("again"), Int("1"), Label("again")});
    EXPECT_EQ(t.cx.labelTable.count, 1);
    HashEntry* entry = HashFindFirst(t.cx.labelTable, NameHash("again"));
    ASSERT_NE(entry, nullptr);
    BranchLabel* label = static_cast<BranchLabel*>(entry->value);
    EXPECT_EQ(label->offset, 8);
    EXPECT_EQ(label->defined, 1u);
    EXPECT_EQ(label->depth, 0);
}

TEST(Statements, LabelDepthIsTheContinueTargetCount) {
    TestCompile t;
    Compile(t, {While(True(), Block({Label("inside")}))});
    HashEntry* entry = HashFindFirst(t.cx.labelTable, NameHash("inside"));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(static_cast<BranchLabel*>(entry->value)->depth, 1);
}

TEST(Statements, ReturnWithValueConvertsAndReturnsVariable) {
    TestCompile t;
    Compile(t, {N(LEX_RETURN, "return", {Int("1")})});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x07520000, 0x9C050000}));
    EXPECT_TRUE(t.Types().empty());
}

TEST(Statements, ReturnWithoutValueLeavesAShortTypeOnTheTypeStack) {
    TestCompile t;
    Compile(t, {N(LEX_RETURN, "return")});
    EXPECT_EQ(t.Words(), (Words{0x9C0F0000}));
    EXPECT_EQ(t.Types(), (Words{TYPE_SHORT}));
}

TEST(Statements, ThrowConvertsAndCallsTheRunner) {
    TestCompile t;
    Compile(t, {N(LEX_THROW, "throw", {Int("3")})});
    EXPECT_EQ(t.Words(), (Words{0xC00F0003, 0x07520000, 0xD9020001, NameId("@@throw@@")}));
}

TEST(Statements, ThrowWithoutValueConvertsAnEmptyTypeStack) {
    TestCompile t;
    Compile(t, {N(LEX_THROW, "throw")});
    EXPECT_EQ(t.Words(), (Words{0x075F0000, 0xD9020001, NameId("@@throw@@")}));
}

TEST(Statements, VarDeclaresWithMarkedOperandAndPatch) {
    TestCompile t;
    int32_t before = GlobalVarList.count;
    Compile(t, {N(LEX_VAR, "var", {Id("declared")})});
    uint32_t index = NameId("declared");
    EXPECT_EQ(t.Words(), (Words{0x4595FFF4, 0xB0000000 | index}));
    ASSERT_EQ(GlobalVarList.count, before + 1);
    const PatchRecord* record = static_cast<PatchRecord*>(GlobalVarList.data[before]);
    EXPECT_EQ(record->nameIndex, index);
    EXPECT_EQ(record->kind, 2u);
    EXPECT_EQ(record->codeOffset, 0u);
    ScopeRecord* scope = static_cast<ScopeRecord*>(t.cx.scopes.last->value);
    EXPECT_EQ(scope->vars.count, 1);
}

TEST(Statements, VarWithInitializerStoresIntoTheLocal) {
    TestCompile t;
    Compile(t, {N(LEX_VAR, "var", {N(LEX_ID, "v1", {Int("5")}), Id("v2")})});
    uint32_t v1 = NameId("v1");
    uint32_t v2 = NameId("v2");
    EXPECT_EQ(t.Words(), (Words{0x4595FFF4, 0xB0000000 | v1, 0xC00F0005, 0x4525FFF4, 0xA0000000 | v1, 0x4595FFF4,
                                0xB0000000 | v2}));
}

TEST(Statements, SwitchDispatchesWithStrictEqualityThenRunsClauses) {
    TestCompile t;
    Node* caseOne = N(LEX_CASE, "case", {Int("1"), Break()});
    Node* otherwise = N(LEX_DEFAULT, "default");
    Compile(t, {N(LEX_SWITCH, "switch", {Int("1"), caseOne, otherwise})});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x86020000, 0xC00F0001, 0x15220E00, 0xB7000003, 0xB6000003,
                                0xB6000002, 0xB6000001, 0x9E020000}));
    EXPECT_EQ(t.cx.breakTargets.count, 0);
    EXPECT_EQ(t.cx.continueTargets.count, 0);
}

TEST(Statements, BreakInsideSwitchInsideLoopLeavesOnlyTheSwitch) {
    TestCompile t;
    Node* sw = N(LEX_SWITCH, "switch", {Int("1"), N(LEX_DEFAULT, "default", {Break()})});
    Compile(t, {While(True(), Block({sw}))});
    // startwhile: push.e 1; bf endwhile; push.e 1; b default; b endSwitch; default: b endSwitch;
    // endSwitch: popz.i; b startwhile; endwhile:
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0xB8000007, 0xC00F0001, 0xB6000002, 0xB6000002, 0xB6000001,
                                0x9E020000, 0xB67FFFF9}));
}

TEST(Statements, ContinueInsideSwitchLandsOnTheSwitchsFinalPop) {
    TestCompile t;
    Node* sw = N(LEX_SWITCH, "switch", {Int("1"), N(LEX_DEFAULT, "default", {Continue()})});
    Compile(t, {While(True(), Block({sw}))});
    EXPECT_EQ(t.Words()[5], 0xB6000001u);
}

TEST(Statements, SecondDefaultClauseIsReportedAtTheSwitch) {
    TestCompile t;
    Node* sw = N(LEX_SWITCH, "switch",
                 {Int("1"), N(LEX_DEFAULT, "default", {}, 4), N(LEX_DEFAULT, "default", {}, 5)}, 3);
    EXPECT_EQ(ErrorOf([&] { Compile(t, {sw}); }), "Error : test.js(3) : multiple default clause in switch\n");
}

TEST(Statements, SwitchClauseOfAnotherKindIsReportedAtTheSwitch) {
    TestCompile t;
    Node* sw = N(LEX_SWITCH, "switch", {Int("1"), N(LEX_IF, "if", {True(), Empty()}, 7)}, 6);
    EXPECT_EQ(ErrorOf([&] { Compile(t, {sw}); }),
              "Error : test.js(6) : switch should have case and default clauses\n");
}

TEST(Statements, TryWithOnlyFinallyPatchesTheFirstHookOperand) {
    TestCompile t;
    Compile(t, {N(LEX_TRY, "try", {Block(), N(LEX_FINALLY, "finally", {Block()})})});
    EXPECT_EQ(t.Words(), (Words{0xC0020000, 0x00000020, 0x07520000, 0xC0020000, 0xFFFFFFFF, 0x07520000, 0xD9020002,
                                NameId("@@try_hook@@"), 0xD9020000, NameId("@@try_unhook@@"), 0xD9020000,
                                NameId("@@finish_finally@@")}));
}

TEST(Statements, TryWithCatchWithoutIdentifierPatchesTheSecondHookOperand) {
    TestCompile t;
    Compile(t, {N(LEX_TRY, "try", {Block(), N(LEX_CATCH, "catch", {Block()})})});
    EXPECT_EQ(t.Words(), (Words{0xC0020000, 0xFFFFFFFF, 0x07520000, 0xC0020000, 0x00000024, 0x07520000, 0xD9020002,
                                NameId("@@try_hook@@"), 0xB6000005, 0xD9020000, NameId("@@try_unhook@@"), 0xD9020000,
                                NameId("@@finish_catch@@"), 0xD9020000, NameId("@@try_unhook@@")}));
}

TEST(Statements, TryCatchStoresTheCaughtValue) {
    TestCompile t;
    Compile(t, {N(LEX_TRY, "try", {Block(), N(LEX_CATCH, "catch", {Id("caught"), Block()})})});
    Words words = t.Words();
    ASSERT_EQ(words.size(), 17u);
    EXPECT_EQ(words[9], 0x4555FFF5u);
    EXPECT_EQ(words[10], 0xA0000000u | NameId("caught"));
    EXPECT_EQ(words[4], 36u);
    EXPECT_TRUE(t.Types().empty());
}

TEST(Statements, MultipleCatchClausesAreReportedAtTheTry) {
    TestCompile t;
    Node* node = N(LEX_TRY, "try",
                   {Block(), N(LEX_CATCH, "catch", {Block()}, 3), N(LEX_CATCH, "catch", {Block()}, 4)}, 2);
    EXPECT_EQ(ErrorOf([&] { Compile(t, {node}); }), "Error : test.js(2) : Multiple catch clauses found\n");
}

TEST(Statements, MultipleFinallyClausesAreReportedAtTheTry) {
    TestCompile t;
    Node* node = N(LEX_TRY, "try",
                   {Block(), N(LEX_FINALLY, "finally", {Block()}, 3), N(LEX_FINALLY, "finally", {Block()}, 4)}, 2);
    EXPECT_EQ(ErrorOf([&] { Compile(t, {node}); }), "Error : test.js(2) : Multiple finally clauses found\n");
}

TEST(Statements, ForInChecksTheIteratorIsLeftOnTheStack) {
    TestCompile t;
    Node* loop = N(LEX_FOR, "for",
                   {Id("key"), N(LEX_IN, "in"), Id("object"), Block({N(LEX_RETURN, "return")})}, 9);
    EXPECT_EQ(ErrorOf([&] { Compile(t, {loop}); }),
              "Error : test.js(9) : VM::CompileFor : For-in loop not left with iterator on the stack at the end\n");
}

TEST(Statements, ForInWithPlainIdentifierStoresUnresolved) {
    TestCompile t;
    Compile(t, {N(LEX_FOR, "for", {Id("key"), N(LEX_IN, "in"), Int("1")})});
    uint32_t key = NameId("key");
    EXPECT_EQ(t.Words(),
              (Words{0xC00F0001, 0x07520000, 0xD9020001, NameId("@@ForInIterator@@"), 0x86050000, 0x15950E00,
                     0xB700000A, 0x86050000, 0xD9020001, NameId("@@ForInIteratorGetNext@@"), 0x86050000, 0x4555FFF5,
                     0xA0000000 | key, 0x15950E00, 0xB7000002, 0xB67FFFF8, 0xD9020001, NameId("@@ForInIteratorDelete@@"),
                     0x9E050000}));
    EXPECT_TRUE(t.Types().empty());
}

TEST(Statements, NewStatementKeepsItsValue) {
    TestCompile t;
    Compile(t, {N(LEX_NEW, "new", {Int("1")})});
    EXPECT_EQ(t.Words(), (Words{0xC00F0001, 0x07520000, 0xD9020001, NameId("@@new@@")}));
    EXPECT_EQ(t.Types(), (Words{TYPE_VARIABLE}));
}

TEST(Statements, DeepNestingIsReported) {
    std::string error;
    RunOnThreadWithStack(256 * 1024, [&] {
        TestCompile t;
        Node* innermost = Block();
        Node* outer = innermost;
        for (int i = 0; i < 200000; i++) outer = Block({outer});
        error = ErrorOf([&] { Compile(t, {outer}); });
    });
    EXPECT_EQ(error, "Error : test.js(1) : nesting too deep\n");
}
