// The compile context: interning, patch records, type stack, scopes, labels, set-up and clean-up.
// Every test runs in a process of its own, so the process-wide tables start empty.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "helpers/compile_support.h"
#include "state/process_state.h"

namespace {

PatchRecord* VarPatch(int32_t i) { return static_cast<PatchRecord*>(GlobalVarList.data[i]); }
PatchRecord* FuncPatch(int32_t i) { return static_cast<PatchRecord*>(GlobalFuncList.data[i]); }
PatchRecord* StringPatch(int32_t i) { return static_cast<PatchRecord*>(GlobalStringList.data[i]); }

}  // namespace

TEST(InternName, SameTextTwiceGivesSameIndex) {
    TestCompile t;
    int32_t first = InternName("alpha");
    int32_t count = NameArray.count;
    EXPECT_EQ(InternName("alpha"), first);
    EXPECT_EQ(NameArray.count, count);
}

TEST(InternName, EqualTextFromAnotherPointerKeepsTheFirstPointer) {
    EnsureLibraryInitialised();
    static char one[] = "beta";
    static char two[] = "beta";
    int32_t index = InternName(one);
    EXPECT_EQ(InternName(two), index);
    EXPECT_EQ(NameArray.data[index], one);
}

TEST(InternName, NullGivesMinusOneAndChangesNothing) {
    EnsureLibraryInitialised();
    int32_t count = NameArray.count;
    EXPECT_EQ(InternName(nullptr), -1);
    EXPECT_EQ(NameArray.count, count);
}

TEST(InternName, KeepsTheCallersPointer) {
    EnsureLibraryInitialised();
    static const char text[] = "gamma";
    int32_t index = InternName(text);
    EXPECT_EQ(NameArray.data[index], text);
}

TEST(BeginCompile, FirstCompileRecordsPrototypeArrayAndArguments) {
    TestCompile t;
    ASSERT_EQ(GlobalVarList.count, 3);
    EXPECT_STREQ(static_cast<char*>(NameArray.data[0]), "prototype");
    EXPECT_STREQ(static_cast<char*>(NameArray.data[1]), "@@array@@");
    EXPECT_STREQ(static_cast<char*>(NameArray.data[2]), "arguments");
    EXPECT_EQ(VarPatch(0)->nameIndex, 0u);
    EXPECT_EQ(VarPatch(0)->kind, 3u);
    EXPECT_EQ(VarPatch(0)->codeOffset, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(VarPatch(1)->nameIndex, 1u);
    EXPECT_EQ(VarPatch(1)->kind, 3u);
    EXPECT_EQ(VarPatch(1)->codeOffset, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(VarPatch(2)->nameIndex, 2u);
    EXPECT_EQ(VarPatch(2)->kind, 2u);
    EXPECT_EQ(VarPatch(2)->codeOffset, 0xFFFFFFFFFFFFFFFFull);
}

TEST(BeginCompile, UnitsListTheSeededRecordsOnlyTheFirstTime) {
    CompileUnit* first = ParseAndCompile("");
    ASSERT_EQ(first->status, 0);
    ASSERT_EQ(first->varCount, 3);
    EXPECT_EQ(first->vars[0]->kind, 3u);
    EXPECT_EQ(first->vars[1]->kind, 3u);
    EXPECT_EQ(first->vars[2]->kind, 2u);
    CompileUnit* second = ParseAndCompile("");
    ASSERT_EQ(second->status, 0);
    EXPECT_EQ(second->varCount, 0);
}

TEST(BeginCompile, EveryUnitsFunctionRecordsStartWithTheRoot) {
    CompileUnit* first = ParseAndCompile("");
    CompileUnit* second = ParseAndCompile("");
    ASSERT_EQ(first->fourthCount, 1);
    ASSERT_EQ(second->fourthCount, 1);
    FunctionRecord* root = first->fourth[0];
    EXPECT_EQ(second->fourth[0], root);
    EXPECT_EQ(root->nameIndex, 0xFFFFFFFFu);
    EXPECT_EQ(root->declaredNameIndex, 0xFFFFFFFFu);
    EXPECT_EQ(root->codeOffset, 0u);
    EXPECT_EQ(root->paramCount, 0);
    EXPECT_EQ(root->params, nullptr);
    EXPECT_EQ(root->flags, 4u);
    EXPECT_EQ(GlobalFunctionRecords.count, 2);
}

TEST(BeginCompile, ScriptNamedGlobalInternsItsNameAndDropsTheRecord) {
    TestCompile t("global");
    EXPECT_GE(NameIndex("global"), 0);
    EXPECT_EQ(GlobalFunctionRecords.count, 1);
    EXPECT_EQ(GlobalFunctionRecords.data[0], CodeGenState().root);
}

TEST(BeginCompile, SetsUpBuffersTypeStackAndGlobalScope) {
    TestCompile t("main", 7);
    EXPECT_EQ(t.cx.topLevel, 1);
    EXPECT_STREQ(t.cx.scriptName, "main");
    EXPECT_EQ(t.cx.code->size, 256);
    EXPECT_EQ(t.cx.code2->size, 256);
    EXPECT_EQ(t.cx.typeCapacity, 1024);
    EXPECT_EQ(t.cx.typeDepth, 0);
    EXPECT_EQ(t.cx.labelTable.mask, 3);
    EXPECT_EQ(t.cx.slotTable.mask, 15);
    ASSERT_EQ(t.cx.scopes.count, 1);
    ScopeRecord* global = static_cast<ScopeRecord*>(t.cx.scopes.last->value);
    EXPECT_EQ(global->function, CodeGenState().root);
    EXPECT_EQ(global->vars.mask, 15);
    EXPECT_EQ(global->slots.mask, 15);
    EXPECT_EQ(global->extra.mask, 15);
}

TEST(PatchRecords, VariableAndFunctionPatchesPointAtTheInstructionWord) {
    TestCompile t;
    Emit(t.cx, {0x11111111u});
    int32_t vars = GlobalVarList.count;
    uint32_t index = AddVarAndPatch(t.cx, "v", 0);
    Emit(t.cx, {0xC005FFF5u, index | 0xA0000000u});
    ASSERT_EQ(GlobalVarList.count, vars + 1);
    EXPECT_EQ(VarPatch(vars)->codeOffset, 4u);
    EXPECT_EQ(VarPatch(vars)->nameIndex, index);
    EXPECT_EQ(VarPatch(vars)->kind, 0u);
    EmitCall(t.cx, "f", 3);
    ASSERT_EQ(GlobalFuncList.count, 1);
    EXPECT_EQ(FuncPatch(0)->codeOffset, 12u);
    EXPECT_EQ(FuncPatch(0)->kind, 0u);
    std::vector<uint32_t> words = t.Words();
    ASSERT_EQ(words.size(), 5u);
    EXPECT_EQ(words[3], 0xD9020003u);
    EXPECT_EQ(words[4], static_cast<uint32_t>(NameIndex("f")));
}

TEST(PatchRecords, VariablePatchKeepsTheCallersKind) {
    TestCompile t;
    int32_t vars = GlobalVarList.count;
    AddVarAndPatch(t.cx, "w", 2);
    EXPECT_EQ(VarPatch(vars)->kind, 2u);
}

TEST(PatchRecords, StringPatchPointsAtTheOperandWord) {
    TestCompile t;
    Emit(t.cx, {0u, 0u});
    AddStringAndPatch(t.cx, "hello");
    ASSERT_EQ(GlobalStringList.count, 1);
    EXPECT_EQ(StringPatch(0)->codeOffset, 12u);
    EXPECT_EQ(StringPatch(0)->kind, 0u);
    int32_t index = NameIndex("hello");
    EXPECT_EQ(StringPatch(0)->nameIndex, static_cast<uint32_t>(index));
    std::vector<uint32_t> words = t.Words();
    EXPECT_EQ(words[2], 0xC0060000u);
    EXPECT_EQ(words[3], static_cast<uint32_t>(index));
}

TEST(PatchRecords, NullVariableNamePrintsAndReturnsAllOnes) {
    TestCompile t;
    int32_t vars = GlobalVarList.count;
    uint32_t result = 0;
    std::string out = CaptureStdout([&] { result = AddVarAndPatch(t.cx, nullptr, 0); });
    EXPECT_EQ(out, "ERROR! :: AddVarAndPatch :: Invalid NULL\n");
    EXPECT_EQ(result, 0xFFFFFFFFu);
    EXPECT_EQ(GlobalVarList.count, vars);
}

TEST(PatchRecords, NullFunctionNamePrintsAndReturnsAllOnes) {
    TestCompile t;
    uint32_t result = 0;
    std::string out = CaptureStdout([&] { result = AddFuncAndPatch(t.cx, nullptr); });
    EXPECT_EQ(out, "ERROR! :: AddFuncAndPatch :: Invalid NULL\n");
    EXPECT_EQ(result, 0xFFFFFFFFu);
    EXPECT_EQ(GlobalFuncList.count, 0);
}

TEST(PatchRecords, NullStringPrintsWithItsOwnCapitalisationAndWritesAllOnes) {
    TestCompile t;
    std::string out = CaptureStdout([&] { AddStringAndPatch(t.cx, nullptr); });
    EXPECT_EQ(out, "Error! :: AddStringAndPatch :: Invalid NULL\n");
    EXPECT_EQ(t.Words(), (std::vector<uint32_t>{0xC0060000u, 0xFFFFFFFFu}));
    EXPECT_EQ(GlobalStringList.count, 0);
}

TEST(EmitPushConstant, WritesTheOperandByType) {
    TestCompile t;
    EmitPushConstant(t.cx, OP_PUSH, TYPE_DOUBLE, 1.5);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_FLOAT, 1.5);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_INT, -1);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_LONG, 0, 0x1122334455667788ull);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_BOOL, 7);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_BOOL, 0);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_VARIABLE, 9);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_STRING, 4);
    EmitPushConstant(t.cx, OP_PUSH, 7, 4);
    EmitPushConstant(t.cx, OP_PUSH, TYPE_SHORT, 4);
    std::vector<uint32_t> expected = {
        0xC0000000u, 0x00000000u, 0x3FF80000u,   // push.d 1.5
        0xC0010000u, 0x3FC00000u,                // push.f 1.5
        0xC0020000u, 0xFFFFFFFFu,                // push.i -1
        0xC0030000u, 0x55667788u, 0x11223344u,   // push.l
        0xC0040000u, 0x00000001u,                // push.b non-zero
        0xC0040000u, 0x00000000u,                // push.b 0
        0xC0050000u, 0x00000009u,                // push.v
        0xC0060000u, 0x00000004u,                // push.s
        0xC0070000u,                             // type 7: no operand
        0xC00F0000u,                             // type 15: no operand
    };
    EXPECT_EQ(t.Words(), expected) << HexWords(t.Words());
}

TEST(TypeStack, PopOfEmptyStackYieldsShortAndStaysAtZero) {
    TestCompile t;
    EXPECT_EQ(PopType(t.cx), 15u);
    EXPECT_EQ(t.cx.typeDepth, 0);
    PushType(t.cx, TYPE_INT);
    EXPECT_EQ(PopType(t.cx), 2u);
    EXPECT_EQ(PopType(t.cx), 15u);
}

TEST(TypeStack, PushesPastTheFirst1024EntriesKeepEveryEntry) {
    TestCompile t;
    for (uint32_t i = 0; i < 3000; i++) PushType(t.cx, i % 7);
    EXPECT_EQ(t.cx.typeDepth, 3000);
    EXPECT_EQ(t.cx.typeHighWater, 3000);
    for (uint32_t i = 3000; i-- > 0;) ASSERT_EQ(PopType(t.cx), i % 7);
    EXPECT_EQ(t.cx.typeHighWater, 3000);
}

TEST(TypeStack, HighWaterRecordsTheLargestDepth) {
    TestCompile t;
    PushType(t.cx, 1);
    PushType(t.cx, 2);
    PopType(t.cx);
    PushType(t.cx, 3);
    EXPECT_EQ(t.cx.typeHighWater, 2);
}

TEST(Scopes, DeclareLocalTakesTheNextSlotWhenUnsetAndReusesAnEntry) {
    TestCompile t;
    uint32_t before = CodeGenState().slotCounter;
    VarEntry* a = DeclareLocal(t.cx, "a", 0, 0xFFFFFFFFu);
    EXPECT_EQ(a->slot, before);
    EXPECT_EQ(CodeGenState().slotCounter, before + 1);
    VarEntry* p = DeclareLocal(t.cx, "p", 1, 3);
    EXPECT_EQ(p->slot, 3u);
    EXPECT_EQ(p->kind, 1u);
    EXPECT_EQ(CodeGenState().slotCounter, before + 1);
    EXPECT_EQ(DeclareLocal(t.cx, "a", 1, 9), a);
    EXPECT_STREQ((*a->name)->text, "a");
}

TEST(Scopes, DeclareSlotEntersTheContextsSlotTableToo) {
    TestCompile t;
    uint32_t before = CodeGenState().slotCounter;
    VarEntry* s = DeclareSlot(t.cx, "s");
    EXPECT_EQ(s->slot, before);
    EXPECT_EQ(s->kind, 0u);
    EXPECT_EQ(t.cx.slotTable.count, 1);
    EXPECT_EQ(HashFindFirst(t.cx.slotTable, NameHash("s"))->value, s);
    EXPECT_EQ(DeclareSlot(t.cx, "s"), s);
    EXPECT_EQ(t.cx.slotTable.count, 1);
}

TEST(Scopes, NamesWithEqualHashResolveToTheSameVariable) {
    TestCompile t;
    ASSERT_EQ(NameHash("plumless"), NameHash("buckeroo"));
    VarEntry* entry = DeclareLocal(t.cx, "plumless", 0, 0xFFFFFFFFu);
    int32_t depth = 5;
    EXPECT_EQ(LookupName(t.cx, "buckeroo", &depth), entry);
    EXPECT_EQ(depth, 0);
}

TEST(Scopes, APoppedScopesRecordServesTheNextPushedScopeAsANewOne) {
    TestCompile t;
    FunctionRecord first{};
    FunctionRecord second{};
    ScopeRecord* scope = PushScope(t.cx, &first);
    DeclareLocal(t.cx, "v", 0, 0xFFFFFFFFu);
    DeclareSlot(t.cx, "w");
    PopScope(t.cx);
    EXPECT_EQ(t.cx.spareScopes, scope);
    ScopeRecord* next = PushScope(t.cx, &second);
    EXPECT_EQ(next, scope);
    EXPECT_EQ(t.cx.spareScopes, nullptr);
    EXPECT_EQ(next->function, &second);
    EXPECT_EQ(next->vars.count, 0);
    EXPECT_EQ(next->slots.count, 0);
    EXPECT_EQ(next->extra.count, 0);
    EXPECT_EQ(next->nextSpare, nullptr);
    EXPECT_EQ(LookupName(t.cx, "v", nullptr), nullptr);
    EXPECT_NE(DeclareLocal(t.cx, "v", 0, 0xFFFFFFFFu), nullptr);
}

TEST(Scopes, APoppedFunctionsVariableEntriesServeTheNextDeclarationsAndNothingElse) {
    TestCompile t;
    FunctionRecord outer{};
    FunctionRecord inner{};
    PushScope(t.cx, &outer);
    VarEntry* a = DeclareLocal(t.cx, "a", 1, 0);
    VarEntry* x = DeclareLocal(t.cx, "x", 0, 0xFFFFFFFFu);
    uint32_t xSlot = x->slot;
    ScopeRecord* scope = PushScope(t.cx, &inner);
    VarEntry* c = DeclareLocal(t.cx, "c", 1, 0);
    VarEntry* y = DeclareLocal(t.cx, "y", 0, 0xFFFFFFFFu);
    VarEntry* s = DeclareSlot(t.cx, "s");
    GiveBackVarEntries(t.cx, *scope);
    PopScope(t.cx);
    // The inner function's two variables wait for the next declarations; its slot stays in the
    // compile's slot table, unchanged.
    ASSERT_NE(t.cx.spareVarEntries, nullptr);
    EXPECT_EQ(HashFindFirst(t.cx.slotTable, NameHash("s"))->value, s);
    EXPECT_STREQ((*s->name)->text, "s");
    // The outer function's next declarations take them, as new entries of their own.
    VarEntry* w = DeclareLocal(t.cx, "w", 0, 7);
    VarEntry* b = DeclareLocal(t.cx, "b", 1, 2);
    EXPECT_TRUE((w == c && b == y) || (w == y && b == c));
    EXPECT_EQ(t.cx.spareVarEntries, nullptr);
    EXPECT_STREQ((*w->name)->text, "w");
    EXPECT_EQ(w->kind, 0u);
    EXPECT_EQ(w->slot, 7u);
    EXPECT_STREQ((*b->name)->text, "b");
    EXPECT_EQ(b->kind, 1u);
    EXPECT_EQ(b->slot, 2u);
    EXPECT_EQ((*b->name)->refs, 1u);
    EXPECT_TRUE(IsLastingText(*b->name));
    // The outer function's own entries are untouched, and every name finds its own.
    EXPECT_STREQ((*a->name)->text, "a");
    EXPECT_EQ(a->kind, 1u);
    EXPECT_STREQ((*x->name)->text, "x");
    EXPECT_EQ(x->slot, xSlot);
    for (const char* name : {"a", "x", "w", "b"}) {
        VarEntry* found = LookupName(t.cx, name, nullptr);
        ASSERT_NE(found, nullptr) << name;
        EXPECT_STREQ((*found->name)->text, name);
    }
    EXPECT_EQ(LookupName(t.cx, "c", nullptr), nullptr);
    EXPECT_EQ(LookupName(t.cx, "y", nullptr), nullptr);
    // A third declaration takes a new record.
    VarEntry* z = DeclareLocal(t.cx, "z", 0, 1);
    EXPECT_NE(z, a);
    EXPECT_NE(z, x);
    EXPECT_NE(z, w);
    EXPECT_NE(z, b);
}

TEST(NamesAhead, EachItemsNamesTakeTheirStepsInTurnAndAGroupHoldsAtMostItsCapacity) {
    TestCompile t;
    for (const char* name : {"held0", "held1", "held2"}) InternName(name);
    int32_t namesBefore = NameArray.count;
    NamesAhead ahead;
    ClearNamesAhead(ahead);
    EXPECT_EQ(ahead.newest, 0);
    // Three items: the first with more names than a group holds, the second with none.
    StepNamesAhead(ahead);
    int32_t first = ahead.newest;
    for (int32_t i = 0; i < kNamesPerItemAhead + 5; i++) AddNameAhead(ahead, TextHash("held0"));
    EXPECT_EQ(ahead.counts[first], kNamesPerItemAhead);
    StepNamesAhead(ahead);
    EXPECT_NE(ahead.newest, first);
    EXPECT_EQ(ahead.counts[ahead.newest], 0);
    EXPECT_EQ(ahead.counts[first], kNamesPerItemAhead);
    StepNamesAhead(ahead);
    AddNameAhead(ahead, TextHash("held1"));
    AddNameAhead(ahead, TextHash("never"));
    EXPECT_EQ(ahead.counts[ahead.newest], 2);
    // The fourth item takes the first one's group, emptied.
    StepNamesAhead(ahead);
    EXPECT_EQ(ahead.newest, first);
    EXPECT_EQ(ahead.counts[first], 0);
    // Nothing was interned or changed on the way.
    EXPECT_EQ(NameArray.count, namesBefore);
    EXPECT_EQ(FindName("held1"), namesBefore - 2);
    EXPECT_EQ(FindName("never"), -1);
    ClearNamesAhead(ahead);
    for (int32_t count : ahead.counts) EXPECT_EQ(count, 0);
}

TEST(Scopes, LookupAloneChangesNoFlag) {
    TestCompile t;
    FunctionRecord outer{};
    outer.flags = 4;
    FunctionRecord inner{};
    inner.flags = 4;
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "v", 0, 0xFFFFFFFFu);
    DeclareLocal(t.cx, "arguments", 0, 0xFFFFFFFFu);
    PushScope(t.cx, &inner);
    int32_t depth = -5;
    EXPECT_NE(LookupName(t.cx, "v", &depth), nullptr);
    EXPECT_EQ(depth, 1);
    EXPECT_NE(LookupName(t.cx, "arguments", &depth), nullptr);
    EXPECT_EQ(outer.flags, 4u);
    EXPECT_EQ(inner.flags, 4u);
    EXPECT_EQ(CodeGenState().root->flags, 4u);
}

TEST(Scopes, OuterPlainVariableSetsBitTwoAndClearsBitFourOutToItsScope) {
    TestCompile t;
    FunctionRecord outer{};
    outer.flags = 4;
    FunctionRecord inner{};
    inner.flags = 4;
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "v", 0, 0xFFFFFFFFu);
    PushScope(t.cx, &inner);
    int32_t depth = -5;
    VarEntry* entry = UseName(t.cx, "v", &depth);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(outer.flags, 2u);
    EXPECT_EQ(inner.flags, 0u);
    EXPECT_EQ(CodeGenState().root->flags, 4u);
}

TEST(Scopes, OwnPlainVariableClearsBitFourOnlyInItsScope) {
    TestCompile t;
    FunctionRecord outer{};
    outer.flags = 4;
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "v", 0, 0xFFFFFFFFu);
    int32_t depth = -5;
    ASSERT_NE(UseName(t.cx, "v", &depth), nullptr);
    EXPECT_EQ(depth, 0);
    EXPECT_EQ(outer.flags, 0u);
    EXPECT_EQ(CodeGenState().root->flags, 4u);
}

TEST(Scopes, OuterParameterSetsBitOneAndClearsBitFour) {
    TestCompile t;
    FunctionRecord outer{};
    outer.flags = 4;
    FunctionRecord inner{};
    inner.flags = 4;
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "p", 1, 0);
    PushScope(t.cx, &inner);
    int32_t depth = 0;
    ASSERT_NE(UseName(t.cx, "p", &depth), nullptr);
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(outer.flags, 1u);
    EXPECT_EQ(inner.flags, 0u);
}

TEST(Scopes, OwnParameterChangesNoFlag) {
    TestCompile t;
    FunctionRecord outer{};
    outer.flags = 4;
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "p", 1, 0);
    int32_t depth = 9;
    ASSERT_NE(UseName(t.cx, "p", &depth), nullptr);
    EXPECT_EQ(depth, 0);
    EXPECT_EQ(outer.flags, 4u);
}

TEST(Scopes, ArgumentsSetsBitOneInTheDeclaringFunction) {
    TestCompile t;
    FunctionRecord outer{};
    outer.flags = 4;
    FunctionRecord inner{};
    inner.flags = 4;
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "arguments", 0, 0xFFFFFFFFu);
    PushScope(t.cx, &inner);
    int32_t depth = 0;
    ASSERT_NE(UseName(t.cx, "arguments", &depth), nullptr);
    EXPECT_EQ(outer.flags, 1u);
    EXPECT_EQ(inner.flags, 0u);
}

TEST(Scopes, ArgumentsAtTopLevelIsNotFoundAndSetsNoFlag) {
    TestCompile t;
    int32_t depth = 0;
    EXPECT_EQ(UseName(t.cx, "arguments", &depth), nullptr);
    EXPECT_EQ(CodeGenState().root->flags, 4u);
}

namespace {

// A function record declared under `name`, as the function compiler makes it for its scope.
FunctionRecord DeclaredFunction(const char* name) {
    FunctionRecord record{};
    record.declaredNameIndex = static_cast<uint32_t>(InternName(name));
    return record;
}

}  // namespace

TEST(Scopes, QualifiedNameJoinsTheEnclosingFunctionNames) {
    TestCompile t;
    FunctionRecord g = DeclaredFunction("g");
    FunctionRecord f = DeclaredFunction("f");
    RefString* top = QualifiedName(t.cx, "name");
    EXPECT_STREQ(top->text, "name");
    PushScope(t.cx, &g);
    PushScope(t.cx, &f);
    RefString* inner = QualifiedName(t.cx, "name");
    EXPECT_STREQ(inner->text, "g@f@name");
}

TEST(Scopes, QualifiedNameLosesAClosedScopesNameAndTakesTheNextOnes) {
    TestCompile t;
    FunctionRecord g = DeclaredFunction("g");
    FunctionRecord f = DeclaredFunction("f");
    FunctionRecord h = DeclaredFunction("hh");
    PushScope(t.cx, &g);
    PushScope(t.cx, &f);
    EXPECT_STREQ(WriteQualifiedName(t.cx, "n", t.cx.nameScratch), "g@f@n");
    PopScope(t.cx);
    EXPECT_STREQ(WriteQualifiedName(t.cx, "n", t.cx.nameScratch), "g@n");
    EXPECT_EQ(t.cx.nameScratch.length, 3u);
    PushScope(t.cx, &h);
    EXPECT_STREQ(WriteQualifiedName(t.cx, nullptr, t.cx.nameScratch), "g@hh@");
    PopScope(t.cx);
    PopScope(t.cx);
    EXPECT_STREQ(QualifiedName(t.cx, "n")->text, "n");
}

// A qualified name's hash starts from the state the open scopes' prefix left, and must be its
// plain hash however the scopes opened and closed before.
TEST(Scopes, AQualifiedNameHashesAsItsWholeTextUnderEveryPrefix) {
    TestCompile t;
    std::vector<FunctionRecord> functions;
    for (const char* name : {"g", "function_with_a_long_name", "abcdefg", "h", "abcdefgh_ijklmnop"}) {
        functions.push_back(DeclaredFunction(name));
    }
    auto check = [&t](const char* name) {
        WriteQualifiedName(t.cx, name, t.cx.nameScratch);
        std::string text(t.cx.nameScratch.text, t.cx.nameScratch.length);
        HashedText hashed = HashQualifiedName(t.cx, t.cx.nameScratch);
        EXPECT_EQ(hashed.text, t.cx.nameScratch.text);
        EXPECT_EQ(hashed.hash, TextHash(text.c_str(), text.size())) << text;
    };
    for (FunctionRecord& function : functions) {
        PushScope(t.cx, &function);
        for (const char* name : std::initializer_list<const char*>{"", "n", "local_name", "a_name_of_sixteen", nullptr}) check(name);
    }
    for (size_t i = 0; i + 1 < functions.size(); i++) {
        PopScope(t.cx);
        check("after_pop");
    }
    PushScope(t.cx, &functions.back());
    check("pushed_again");
}

TEST(Scopes, QualifiedNameSkipsEmptyAndInvalidDeclaredNames) {
    TestCompile t;
    FunctionRecord empty{};
    empty.declaredNameIndex = static_cast<uint32_t>(InternName(""));
    FunctionRecord invalid{};
    invalid.declaredNameIndex = 100000;
    PushScope(t.cx, &empty);
    PushScope(t.cx, &invalid);
    EXPECT_STREQ(QualifiedName(t.cx, "n")->text, "n");
}

TEST(Scopes, FillScopeRecordPairsQualifiedAndPlainNamesInBucketOrder) {
    TestCompile t;
    FunctionRecord f{};
    f.declaredNameIndex = static_cast<uint32_t>(InternName("f"));
    ScopeRecord* scope = PushScope(t.cx, &f);
    const char* names[] = {"a", "b", "c", "d", "e"};
    for (const char* name : names) DeclareLocal(t.cx, name, 0, 0xFFFFFFFFu);
    DeclareSlot(t.cx, "s");
    FillScopeRecord(t.cx, scope);
    ASSERT_EQ(f.localCount, 5u);
    // Expected order: by bucket (hash & 15), then declaration order within a bucket.
    std::vector<std::string> expected;
    for (uint32_t bucket = 0; bucket < 16; bucket++) {
        for (const char* name : names) {
            if ((NameHash(name) & 15u) == bucket) expected.push_back(name);
        }
    }
    for (uint32_t i = 0; i < 5; i++) {
        EXPECT_STREQ(static_cast<char*>(NameArray.data[f.locals[i * 2]]), ("f@" + expected[i]).c_str());
        EXPECT_STREQ(static_cast<char*>(NameArray.data[f.locals[i * 2 + 1]]), expected[i].c_str());
    }
    ASSERT_EQ(f.slotCount, 1u);
    EXPECT_STREQ(static_cast<char*>(NameArray.data[f.slots[0]]), "f@s");
    EXPECT_STREQ(static_cast<char*>(NameArray.data[f.slots[1]]), "s");
}

// The pairs are made in batches (the qualified names' slots asked for first): across batches, and
// across empty buckets, the names are interned in bucket order, so new qualified names take
// consecutive ids in that order, and a name already in the table keeps its id.
TEST(Scopes, FillScopeRecordInternsManyLocalsInBucketOrderAcrossBatches) {
    TestCompile t;
    FunctionRecord f{};
    f.declaredNameIndex = static_cast<uint32_t>(InternName("outer_function"));
    ScopeRecord* scope = PushScope(t.cx, &f);
    std::vector<std::string> names;
    for (int i = 0; i < 100; i++) names.push_back("local_" + std::to_string(i * 7));
    for (const std::string& name : names) DeclareLocal(t.cx, name.c_str(), 0, 0xFFFFFFFFu);
    // One qualified name is in the table before: it keeps its id.
    int32_t known = InternCopy("outer_function@local_21");
    int32_t firstNew = NameArray.count;
    FillScopeRecord(t.cx, scope);
    ASSERT_EQ(f.localCount, 100u);
    std::vector<std::string> expected;
    for (uint32_t bucket = 0; bucket < 16; bucket++) {
        for (const std::string& name : names) {
            if ((NameHash(name.c_str()) & 15u) == bucket) expected.push_back(name);
        }
    }
    int32_t next = firstNew;
    for (uint32_t i = 0; i < 100; i++) {
        std::string qualified = "outer_function@" + expected[i];
        int32_t id = static_cast<int32_t>(f.locals[i * 2]);
        EXPECT_STREQ(static_cast<char*>(NameArray.data[id]), qualified.c_str()) << i;
        if (qualified == "outer_function@local_21") {
            EXPECT_EQ(id, known);
        } else {
            EXPECT_EQ(id, next++) << i;
        }
        // The plain name is new too, pushed right after its qualified name.
        EXPECT_EQ(static_cast<int32_t>(f.locals[i * 2 + 1]), next++) << i;
        EXPECT_STREQ(static_cast<char*>(NameArray.data[f.locals[i * 2 + 1]]), expected[i].c_str()) << i;
    }
}

TEST(EndCompile, FinishesBuffersFillsTheRootAndUnlinksTheGlobalScope) {
    TestCompile t;
    DeclareLocal(t.cx, "x", 0, 0xFFFFFFFFu);
    Emit(t.cx, {1u, 2u, 3u});
    WriteWords(*t.cx.code2, {0u, 5u});
    VMBuffer* code = nullptr;
    VMBuffer* code2 = nullptr;
    EndCompile(t.cx, &code, &code2);
    EXPECT_EQ(code->size, 12);
    EXPECT_EQ(code2->size, 8);
    EXPECT_EQ(t.cx.code, nullptr);
    EXPECT_EQ(t.cx.code2, nullptr);
    EXPECT_EQ(t.cx.scopes.count, 0);
    FunctionRecord* root = CodeGenState().root;
    ASSERT_EQ(root->localCount, 1u);
    EXPECT_EQ(root->locals[0], static_cast<uint32_t>(NameIndex("x")));
    EXPECT_EQ(root->locals[1], static_cast<uint32_t>(NameIndex("x")));
    EXPECT_EQ(root->slotCount, 0u);
    delete code;
    delete code2;
}

TEST(CleanUpContext, WorksOnAZeroInitialisedContext) {
    CodeGenContext cx{};
    CleanUpContext(cx);
    CleanUpContext(cx);
    EXPECT_EQ(cx.scopes.count, 0);
}

TEST(CleanUpContext, FreesTargetsScopesAndBuffersAfterAFailure) {
    EnsureLibraryInitialised();
    CodeGenContext cx{};
    BeginCompile(cx, "main", 0);
    PushScope(cx, nullptr);
    BranchLabel* label = NewLabel("endwhile");
    ListPush(cx.breakTargets, label);
    ListPush(cx.continueTargets, NewLabel("startwhile"));
    BranchToLabel(cx, label, OP_B);
    CleanUpContext(cx);
    EXPECT_EQ(cx.scopes.count, 0);
    EXPECT_EQ(cx.breakTargets.count, 0);
    EXPECT_EQ(cx.continueTargets.count, 0);
    EXPECT_EQ(cx.code, nullptr);
    EXPECT_EQ(cx.slotTable.buckets, nullptr);
    EXPECT_EQ(cx.labelTable.buckets, nullptr);
}

TEST(Lists, ACompilesListsTakeScratchNodesAndReuseThePoppedOnesAcrossLists) {
    EnsureLibraryInitialised();
    CodeGenContext cx{};
    BeginCompile(cx, "main", 0);
    int a = 1, b = 2;
    ListPush(cx.breakTargets, &a);
    ListNode* node = cx.breakTargets.last;
    // A new scratch record: the last one the compile's scratch handed out.
    EXPECT_EQ(State().compileScratch.next, reinterpret_cast<uint8_t*>(node) + ArenaRecordSize(sizeof(ListNode)));
    EXPECT_EQ(ListPop(cx.breakTargets), &a);
    EXPECT_EQ(cx.spareListNodes, node);
    // The next push, onto another of the compile's lists, takes the popped node.
    uint8_t* next = State().compileScratch.next;
    ListPush(cx.continueTargets, &b);
    EXPECT_EQ(cx.continueTargets.last, node);
    EXPECT_EQ(cx.spareListNodes, nullptr);
    EXPECT_EQ(State().compileScratch.next, next);
    EXPECT_EQ(ListAt(cx.continueTargets, 0), &b);
    CleanUpContext(cx);
    EXPECT_EQ(cx.spareListNodes, nullptr);
    EXPECT_EQ(cx.continueTargets.count, 0);
}

TEST(Lists, PushPopAndWalk) {
    List list{};
    int a = 1, b = 2, c = 3;
    ListPush(list, &a);
    ListPush(list, &b);
    ListPush(list, &c);
    EXPECT_EQ(list.count, 3);
    EXPECT_EQ(ListAt(list, 0), &a);
    EXPECT_EQ(ListAt(list, 2), &c);
    EXPECT_EQ(ListAt(list, 3), nullptr);
    EXPECT_EQ(ListPop(list), &c);
    EXPECT_EQ(ListPop(list), &b);
    EXPECT_EQ(ListPop(list), &a);
    EXPECT_EQ(ListPop(list), nullptr);
    EXPECT_EQ(list.first, nullptr);
    EXPECT_EQ(list.last, nullptr);
}

TEST(Labels, NewLabelStartsUndefinedWithDepthMinusOne) {
    BranchLabel* label = NewLabel("else");
    EXPECT_STREQ(label->name, "else");
    EXPECT_EQ(label->defined, 0u);
    EXPECT_EQ(label->pending, nullptr);
    EXPECT_EQ(label->depth, -1);
    EXPECT_EQ(label->reserved, 0u);
}

TEST(Labels, ForwardBranchesArePatchedWhenTheLabelIsPlaced) {
    TestCompile t;
    BranchLabel* label = NewLabel("endif");
    BranchToLabel(t.cx, label, OP_BF);
    Emit(t.cx, {0u});
    BranchToLabel(t.cx, label, OP_B);
    EXPECT_EQ(t.Words()[0], 0xB8000000u);
    EXPECT_EQ(t.Words()[2], 0xB6000000u);
    Emit(t.cx, {0u});
    PlaceLabel(t.cx, label);
    EXPECT_EQ(label->offset, 16);
    EXPECT_EQ(label->defined, 1u);
    EXPECT_EQ(label->pending, nullptr);
    EXPECT_EQ(t.Words()[0], 0xB8000004u);
    EXPECT_EQ(t.Words()[2], 0xB6000002u);
}

TEST(Labels, AReleasedLabelServesTheNextLabelAsIfNew) {
    TestCompile t;
    BranchLabel* first = NewLabel(t.cx, "endwhile");
    BranchToLabel(t.cx, first, OP_BF);
    PlaceLabel(t.cx, first);
    first->depth = 7;
    ReleaseLabel(t.cx, first);
    BranchLabel* next = NewLabel(t.cx, "startdo");
    EXPECT_EQ(next, first);
    EXPECT_STREQ(next->name, "startdo");
    EXPECT_EQ(next->defined, 0u);
    EXPECT_EQ(next->offset, 0);
    EXPECT_EQ(next->pending, nullptr);
    EXPECT_EQ(next->depth, -1);
    EXPECT_EQ(next->reserved, 0u);
    EXPECT_NE(NewLabel(t.cx, "enddo"), next);   // nothing else was released
}

TEST(Labels, ALabelSomeBranchStillWaitsForIsNotReleased) {
    TestCompile t;
    BranchLabel* waited = NewLabel(t.cx, "endif");
    BranchToLabel(t.cx, waited, OP_B);
    ReleaseLabel(t.cx, waited);
    EXPECT_NE(NewLabel(t.cx, "else"), waited);
    PlaceLabel(t.cx, waited);
    EXPECT_EQ(t.Words()[0], 0xB6000001u);
}

TEST(Labels, APlacedLabelsSitesServeTheNextForwardBranches) {
    TestCompile t;
    BranchLabel* done = NewLabel(t.cx, "endif");
    BranchToLabel(t.cx, done, OP_BF);
    BranchSite* site = done->pending;
    PlaceLabel(t.cx, done);
    BranchLabel* later = NewLabel(t.cx, "endwhile");
    BranchToLabel(t.cx, later, OP_B);
    EXPECT_EQ(later->pending, site);
    EXPECT_EQ(site->offset, 4);
    EXPECT_EQ(site->next, nullptr);
    Emit(t.cx, {0u});
    PlaceLabel(t.cx, later);
    EXPECT_EQ(t.Words()[0], 0xB8000001u);
    EXPECT_EQ(t.Words()[1], 0xB6000002u);
}

TEST(Labels, BackwardBranchesAreWrittenAtOnce) {
    TestCompile t;
    Emit(t.cx, {0u});
    BranchLabel* label = NewLabel("startwhile");
    PlaceLabel(t.cx, label);
    BranchToLabel(t.cx, label, OP_BT);
    Emit(t.cx, {0u});
    BranchToLabel(t.cx, label, OP_B);
    EXPECT_EQ(t.Words()[1], 0xB7000000u);   // a branch to itself has offset 0
    EXPECT_EQ(t.Words()[3], 0xB67FFFFEu);
}

TEST(Labels, BranchToThePreviousWordHasOffsetAllOnes) {
    TestCompile t;
    BranchLabel* label = NewLabel("x");
    PlaceLabel(t.cx, label);
    Emit(t.cx, {0u});
    BranchLabel* back = NewLabel("y");
    back->defined = 1;
    back->offset = 0;
    BranchToLabel(t.cx, back, OP_B);
    EXPECT_EQ(t.Words()[1], 0xB67FFFFFu);
}

TEST(FunctionRecords, FindGivesThePositionThatSetStored) {
    EnsureLibraryInitialised();
    FunctionRecord first{};
    FunctionRecord second{};
    FunctionRecord replacement{};
    EXPECT_EQ(FindFunctionRecord("f"), -1);
    SetFunctionRecord("f", -1, &first);
    SetFunctionRecord("g", -1, &second);
    EXPECT_EQ(FindFunctionRecord("f"), 0);
    EXPECT_EQ(FindFunctionRecord("g"), 1);
    SetFunctionRecord("f", 0, &replacement);
    EXPECT_EQ(GlobalFunctionRecords.count, 2);
    EXPECT_EQ(GlobalFunctionRecords.data[0], &replacement);
    EXPECT_EQ(FindFunctionRecord("f"), 0);
}

TEST(FunctionRecords, ThousandsOfNamesAreFoundAndATakenBackTailLeavesTheRestReachable) {
    ResetProcessState();
    EnsureLibraryInitialised();
    std::vector<FunctionRecord> records(3000);
    for (int i = 0; i < 3000; i++) SetFunctionRecord(("f" + std::to_string(i)).c_str(), -1, &records[i]);
    ASSERT_EQ(GlobalFunctionRecords.count, 3000);
    for (int i = 0; i < 3000; i++) ASSERT_EQ(FindFunctionRecord(("f" + std::to_string(i)).c_str()), i);
    EXPECT_EQ(FindFunctionRecord("f3000"), -1);
    // A name set again without its position (as after a failed lookup) keeps the first entry.
    FunctionRecord again{};
    SetFunctionRecord("f7", -1, &again);
    EXPECT_EQ(FindFunctionRecord("f7"), 7);

    // Every position from 1234 on is taken out: the entries in their runs move back, and each
    // remaining one is still found from its home slot.
    DropFunctionPositionsFrom(1234);
    for (int i = 0; i < 3000; i++) {
        ASSERT_EQ(FindFunctionRecord(("f" + std::to_string(i)).c_str()), i < 1234 ? i : -1) << i;
    }
}

// Asking for the slot where a qualified name's lookup starts reads nothing and changes nothing:
// before the index is made, while it grows, for names it holds and names it does not.
TEST(FunctionRecords, AskingForALookupsSlotChangesNothing) {
    ResetProcessState();
    EnsureLibraryInitialised();
    auto snapshot = [] {
        const FunctionIndex& index = State().functionIndex;
        std::string bytes(reinterpret_cast<const char*>(&index), sizeof index);
        if (index.slots) bytes.append(reinterpret_cast<const char*>(index.slots), (index.mask + 1) * sizeof(FunctionSlot));
        return bytes;
    };
    std::vector<FunctionRecord> records(2000);
    for (int i = 0; i < 2000; i++) {
        std::string before = snapshot();
        for (int k = i - 3; k <= i + 3; k++) PrefetchFunctionRecord(TextHash(("g" + std::to_string(k)).c_str()));
        ASSERT_EQ(snapshot(), before) << i;
        SetFunctionRecord(("g" + std::to_string(i)).c_str(), -1, &records[static_cast<size_t>(i)]);
    }
    for (int i = 0; i < 2000; i++) ASSERT_EQ(FindFunctionRecord(("g" + std::to_string(i)).c_str()), i);
}

TEST(FunctionRecords, AKeptNameIsIndexedWhereItLiesAndAnyOtherNameByACopy) {
    ResetProcessState();
    EnsureLibraryInitialised();
    FunctionRecord kept{};
    FunctionRecord copied{};
    char* keptText = KeepText("outer@kept");
    uint8_t* textsBefore = State().texts.next;
    SetFunctionRecord(HashText(keptText, std::strlen(keptText)), true, -1, &kept);
    EXPECT_EQ(State().texts.next, textsBefore);   // no second copy of the kept text
    EXPECT_EQ(FindFunctionRecord("outer@kept"), 0);

    // A text the caller may change later: the index holds its own copy.
    char hostText[] = "outer@host";
    SetFunctionRecord(HashText(hostText, std::strlen(hostText)), false, -1, &copied);
    hostText[0] = 'X';
    EXPECT_EQ(FindFunctionRecord("outer@host"), 1);
    EXPECT_EQ(FindFunctionRecord(HashText("Xuter@host", 10)), -1);
    EXPECT_EQ(FindFunctionRecord(HashText("outer@kept", 10)), 0);
}

TEST(FunctionRecords, AFunctionDeclaredTwiceKeepsOneEntry) {
    CompileUnit* unit = ParseAndCompile("function f() {} function f() {}");
    ASSERT_EQ(unit->status, 0) << unit->errors[0];
    // The root, then one record for f.
    ASSERT_EQ(unit->fourthCount, 2);
    EXPECT_STREQ(unit->names[unit->fourth[1]->nameIndex], "f");
}

TEST(FunctionRecords, AfterAHostRenamesAFunctionsNameTheRecordIsFoundByItsNewName) {
    CompileUnit* first = ParseAndCompile("function f() {}");
    ASSERT_EQ(first->status, 0);
    ASSERT_EQ(first->fourthCount, 2);
    FunctionRecord* original = first->fourth[1];
    static const char kRenamed[] = "g";
    VeltJS_AddName(kRenamed, static_cast<int32_t>(original->nameIndex));

    CompileUnit* second = ParseAndCompile("function g() {}");
    ASSERT_EQ(second->status, 0);
    // The search reads names through the table, so the renamed entry is "g" and is replaced.
    EXPECT_EQ(second->fourthCount, 1);
    EXPECT_NE(GlobalFunctionRecords.data[1], original);
    EXPECT_EQ(GlobalFunctionRecords.count, 3);
}

TEST(FunctionRecords, WithoutRenamesASecondDefinitionReplacesTheFirst) {
    CompileUnit* first = ParseAndCompile("function f() {}");
    ASSERT_EQ(first->fourthCount, 2);
    FunctionRecord* original = first->fourth[1];
    CompileUnit* second = ParseAndCompile("function f() {}");
    EXPECT_EQ(second->fourthCount, 1);
    EXPECT_NE(GlobalFunctionRecords.data[1], original);
    EXPECT_EQ(GlobalFunctionRecords.count, 3);
}

// A name declared in many functions pairs with its one id in each of their records, whether the
// function finds the id remembered under the declaring node's text or interns the name itself:
// names new to the table and known ones, parameters, `var`s and each function's `arguments`,
// thousands of functions (so remembered ids are pushed out of the cache and taken again), and a
// second script compiled after the first.
TEST(Scopes, ANameDeclaredInManyFunctionsPairsWithItsOneIdInEveryRecord) {
    EnsureLibraryInitialised();
    for (int script = 0; script < 2; script++) {
        std::string source;
        std::vector<std::vector<std::string>> declared;
        for (int i = 0; i < 3000; i++) {
            std::string function = "fn" + std::to_string(script) + "_" + std::to_string(i);
            std::vector<std::string> names{"p", "q" + std::to_string(i % 50), "common", "x" + std::to_string(i % 700),
                                           "y" + std::to_string(script) + "_" + std::to_string(i), "arguments"};
            source += "function " + function + "(" + names[0] + ", " + names[1] + ") { var " + names[2] + " = 1, " +
                      names[3] + ", " + names[4] + "; " + names[3] + " = " + names[2] + "; }\n";
            declared.push_back(names);
        }
        CompileUnit* unit = ParseAndCompile(source, true);
        ASSERT_EQ(unit->status, 0);
        FunctionRecord** records = unit->fourth;
        int checked = 0;
        for (int32_t r = 0; r < unit->fourthCount; r++) {
            const FunctionRecord* record = records[r];
            // The global scope's record has no name.
            if (record->declaredNameIndex >= static_cast<uint32_t>(NameArray.count)) continue;
            const char* function = static_cast<const char*>(NameArray.data[record->declaredNameIndex]);
            if (std::strncmp(function, "fn", 2) != 0) continue;
            int index = std::stoi(std::strchr(function, '_') + 1);
            std::vector<std::string> expected = declared[static_cast<size_t>(index)];
            std::vector<std::string> paired;
            ASSERT_EQ(record->localCount, expected.size()) << function;
            for (uint32_t i = 0; i < record->localCount; i++) {
                ASSERT_LT(record->locals[i * 2], static_cast<uint32_t>(NameArray.count)) << function;
                ASSERT_LT(record->locals[i * 2 + 1], static_cast<uint32_t>(NameArray.count)) << function;
                const char* plain = static_cast<const char*>(NameArray.data[record->locals[i * 2 + 1]]);
                EXPECT_EQ(static_cast<int32_t>(record->locals[i * 2 + 1]), NameIndex(plain)) << function << " " << plain;
                EXPECT_STREQ(static_cast<const char*>(NameArray.data[record->locals[i * 2]]),
                             (std::string(function) + "@" + plain).c_str());
                paired.push_back(plain);
            }
            std::sort(paired.begin(), paired.end());
            std::sort(expected.begin(), expected.end());
            EXPECT_EQ(paired, expected) << function;
            checked++;
        }
        EXPECT_EQ(checked, 3000);
    }
}
