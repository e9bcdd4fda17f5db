// Functions compiled inline, calls through function values and `new`, on hand-built trees.
#include <gtest/gtest.h>

#include <vector>

#include "codegen/codegen.h"
#include "helpers/compile_support.h"
#include "state/process_state.h"

namespace {

using Words = std::vector<uint32_t>;


// function name(params) { body }
Node* Function(const char* name, std::initializer_list<Node*> params, std::initializer_list<Node*> body = {}) {
    Node* list = N('(', "(");
    for (Node* param : params) AppendChild(list, param);
    return N(LEX_FUNCTION, "function", {Id(name), list, N('{', "{", body)});
}

FunctionRecord* LastFunctionRecord() {
    return static_cast<FunctionRecord*>(GlobalFunctionRecords.data[GlobalFunctionRecords.count - 1]);
}

}  // namespace

TEST(Functions, TopLevelDeclarationLayoutAndRecord) {
    TestCompile t("main", 1);
    int32_t recordsBefore = GlobalFunctionRecords.count;
    int32_t funcsBefore = GlobalFuncList.count;
    CompileStatement(t.cx, Function("fa", {Id("pa"), Id("pb")}), 1);
    uint32_t fa = NameId("fa");
    // b endfunc; body; endcompile: ret; endfunc: push.i fa; conv.i.v; call @@script_ref@@; pop.v.v -11 fa
    EXPECT_EQ(t.Words(), (Words{0xB6000002, 0x9C0F0000, 0xC0020000, fa, 0x07520000, 0xD9020001, NameId("@@script_ref@@"),
                                0x4555FFF5, 0xB0000000 | fa}));
    EXPECT_TRUE(t.Types().empty());
    EXPECT_EQ(t.cx.topLevel, 1);

    ASSERT_EQ(GlobalFunctionRecords.count, recordsBefore + 1);
    FunctionRecord* record = LastFunctionRecord();
    EXPECT_EQ(record->nameIndex, fa);
    EXPECT_EQ(record->declaredNameIndex, fa);
    EXPECT_EQ(record->codeOffset, 4u);
    EXPECT_EQ(record->reserved0, 0u);
    EXPECT_EQ(record->reserved1, 0u);
    ASSERT_EQ(record->paramCount, 2);
    EXPECT_EQ(record->params[0], NameId("pa"));
    EXPECT_EQ(record->params[1], NameId("pb"));
    EXPECT_EQ(record->localCount, 3u);   // arguments and the two parameters
    EXPECT_EQ(record->slotCount, 0u);
    EXPECT_EQ(record->flags, 4u);

    // The reference's push.i is a function patch at its own word.
    ASSERT_GE(GlobalFuncList.count, funcsBefore + 1);
    const PatchRecord* patch = static_cast<PatchRecord*>(GlobalFuncList.data[funcsBefore]);
    EXPECT_EQ(patch->nameIndex, fa);
    EXPECT_EQ(patch->codeOffset, 8u);

    // The enclosing scope's function table holds the record under the declared name.
    ScopeRecord* global = static_cast<ScopeRecord*>(t.cx.scopes.last->value);
    HashEntry* entry = HashFindFirst(global->extra, NameHash("fa"));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->value, record);
    EXPECT_EQ(t.cx.scopes.count, 1);
    EXPECT_EQ(t.cx.breakTargets.count, 0);
}

TEST(Functions, DeclarationInsideAFunctionIsALocalWithQualifiedRecord) {
    TestCompile t("main", 1);
    CompileStatement(t.cx, Function("fg", {}, {Function("fh", {})}), 1);
    uint32_t fh = NameId("fh");
    uint32_t qualified = NameId("fg@fh");
    ASSERT_NE(qualified, 0xFFFFFFFFu);
    Words words = t.Words();
    // b endfunc(fg); b endfunc(fh); ret; push.i fg@fh; conv.i.v; call; pop.v(9) -12 fh; pop.v.v -12 fh; ret; ...
    ASSERT_GE(words.size(), 13u);
    EXPECT_EQ(words[1], 0xB6000002u);
    EXPECT_EQ(words[2], 0x9C0F0000u);
    EXPECT_EQ(words[3], 0xC0020000u);
    EXPECT_EQ(words[4], qualified);
    EXPECT_EQ(words[8], 0x4595FFF4u);
    EXPECT_EQ(words[9], 0xB0000000u | fh);
    EXPECT_EQ(words[10], 0x4555FFF4u);
    EXPECT_EQ(words[11], 0xB0000000u | fh);
    EXPECT_EQ(words[12], 0x9C0F0000u);
    EXPECT_EQ(words[0], 0xB600000Du);

    // The inner record is added first: the outer one is entered after its body.
    FunctionRecord* outer = LastFunctionRecord();
    FunctionRecord* inner = static_cast<FunctionRecord*>(GlobalFunctionRecords.data[GlobalFunctionRecords.count - 2]);
    EXPECT_EQ(outer->nameIndex, NameId("fg"));
    EXPECT_EQ(inner->nameIndex, qualified);
    EXPECT_EQ(inner->declaredNameIndex, fh);
    EXPECT_EQ(inner->paramCount, 0);
    EXPECT_EQ(outer->localCount, 2u);   // arguments and fh
}

TEST(Functions, FunctionDeclaredTwiceKeepsOneSlotWithTheSecondRecord) {
    TestCompile t("main", 1);
    int32_t before = GlobalFunctionRecords.count;
    CompileStatement(t.cx, Function("twice", {}), 1);
    FunctionRecord* first = LastFunctionRecord();
    CompileStatement(t.cx, Function("twice", {Id("x")}), 1);
    ASSERT_EQ(GlobalFunctionRecords.count, before + 1);
    FunctionRecord* second = LastFunctionRecord();
    EXPECT_NE(second, first);
    EXPECT_EQ(second->paramCount, 1);
    // The replaced record stays allocated for hosts that still hold it.
    EXPECT_EQ(first->nameIndex, NameId("twice"));
    EXPECT_EQ(first->paramCount, 0);
}

TEST(Functions, BreakAtFunctionLevelLeavesTheFunction) {
    TestCompile t("main", 1);
    CompileStatement(t.cx, Function("leave", {}, {N(LEX_BREAK, "break")}), 1);
    Words words = t.Words();
    ASSERT_GE(words.size(), 3u);
    EXPECT_EQ(words[0], 0xB6000003u);
    EXPECT_EQ(words[1], 0xB6000001u);
    EXPECT_EQ(words[2], 0x9C0F0000u);
}

TEST(Functions, TopLevelFlagIsClearedInsideTheBodyAndRestored) {
    TestCompile t("main", 1);
    // A nested declaration sees the flag cleared, so it is declared as a local.
    CompileStatement(t.cx, Function("flagged", {}, {Function("nested", {})}), 1);
    EXPECT_EQ(t.cx.topLevel, 1);
    Words words = t.Words();
    EXPECT_EQ(words[8], 0x4595FFF4u);
}

TEST(Functions, CallEvaluatesArgumentsRightToLeftWithTheCallingSequence) {
    TestCompile t("main", 1);
    CompileStatement(t.cx, N('(', "(", {Id("callee"), Int("1"), Int("2")}), 1);
    EXPECT_EQ(t.Words(), (Words{0xD9020000, NameId("@@GlobalScope@@"), 0xC005FFF5, 0xA0000000 | NameId("callee"),
                                0xC00F0002, 0x07520000, 0x8605FF12, 0xC00F0001, 0x07520000, 0x8605FF12, 0x99050002,
                                0x9E050000}));
    EXPECT_TRUE(t.Types().empty());
}

TEST(Functions, CallWithScopeDuplicatesItsResult) {
    TestCompile t("main", 1);
    CompileCall(t.cx, N('(', "(", {Id("callee")}), true);
    Words words = t.Words();
    ASSERT_EQ(words.size(), 6u);
    EXPECT_EQ(words[4], 0x99050000u);
    EXPECT_EQ(words[5], 0x86050000u);
    EXPECT_EQ(t.Types(), (Words{TYPE_VARIABLE, TYPE_VARIABLE}));
}

TEST(Functions, NewWithoutArgumentsPassesTheConstructorAlone) {
    TestCompile t("main", 1);
    CompileNew(t.cx, N(LEX_NEW, "new", {Id("Ctor")}), false);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF5, 0xA0000000 | NameId("Ctor"), 0xD9020001, NameId("@@new@@")}));
    EXPECT_EQ(t.Types(), (Words{TYPE_VARIABLE}));
}

TEST(Functions, NewEvaluatesArgumentsRightToLeft) {
    TestCompile t("main", 1);
    CompileNew(t.cx, N(LEX_NEW, "new", {N('(', "(", {Id("Ctor"), Int("1"), Int("2")})}), true);
    EXPECT_EQ(t.Words(), (Words{0xC00F0002, 0x07520000, 0xC00F0001, 0x07520000, 0xC005FFF5, 0xA0000000 | NameId("Ctor"),
                                0xD9020003, NameId("@@new@@"), 0x86050000}));
    EXPECT_EQ(t.Types(), (Words{TYPE_VARIABLE, TYPE_VARIABLE}));
}
