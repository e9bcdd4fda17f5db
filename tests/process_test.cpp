// Several compiles in one process: the process-wide tables grow across compiles and are shared.
// Each test is one scenario in a fresh process (every test runs in a process of its own).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "codegen/codegen.h"
#include "helpers/compile_support.h"
#include "state/process_state.h"

namespace {

CompileUnit* Compiled(const char* source, const char* scriptName = "main", bool topLevel = true) {
    CompileUnit* unit = ParseAndCompile(source, topLevel, scriptName);
    EXPECT_NE(unit, nullptr);
    if (unit) {
        EXPECT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "");
    }
    return unit;
}

void ExpectSeedRecord(const PatchRecord* record, uint32_t index, uint32_t kind) {
    EXPECT_EQ(record->nameIndex, index);
    EXPECT_EQ(record->kind, kind);
    EXPECT_EQ(record->codeOffset, UINT64_MAX);
}

bool HasName(const CompileUnit* unit, const char* text) {
    for (int32_t i = 0; i < unit->nameCount; i++) {
        if (unit->names[i] && std::strcmp(unit->names[i], text) == 0) return true;
    }
    return false;
}

}  // namespace

TEST(Process, OnlyTheFirstUnitCarriesTheThreeSeedRecords) {
    CompileUnit* first = Compiled("var a;");
    ASSERT_EQ(first->varCount, 5);   // the seeds, then the hoisted and the written declaration
    ExpectSeedRecord(first->vars[0], 0, 3);
    ExpectSeedRecord(first->vars[1], 1, 3);
    ExpectSeedRecord(first->vars[2], 2, 2);
    EXPECT_STREQ(first->names[0], "prototype");
    EXPECT_STREQ(first->names[1], "@@array@@");
    EXPECT_STREQ(first->names[2], "arguments");

    CompileUnit* second = Compiled("var a;");
    ASSERT_EQ(second->varCount, 2);
    EXPECT_EQ(second->vars[0]->nameIndex, 3u);
    EXPECT_EQ(second->vars[0]->kind, 2u);
    EXPECT_EQ(second->vars[0]->codeOffset, 0u);
}

TEST(Process, TheRootRecordHeadsEveryUnitsFunctionList) {
    CompileUnit* first = Compiled("function f() {}");
    CompileUnit* second = Compiled("var v;");
    CompileUnit* third = Compiled("function g() {}");
    ASSERT_EQ(first->fourthCount, 2);
    ASSERT_EQ(second->fourthCount, 1);
    ASSERT_EQ(third->fourthCount, 2);
    FunctionRecord* root = first->fourth[0];
    EXPECT_EQ(second->fourth[0], root);
    EXPECT_EQ(third->fourth[0], root);
    EXPECT_EQ(root->nameIndex, 0xFFFFFFFFu);
    EXPECT_EQ(root->declaredNameIndex, 0xFFFFFFFFu);
    EXPECT_EQ(root->codeOffset, 0u);
    EXPECT_EQ(root->paramCount, 0);
    EXPECT_EQ(root->params, nullptr);
    // The root's locals are those of the latest compile's global scope.
    ASSERT_EQ(root->localCount, 0u);
}

TEST(Process, AFunctionDefinedInTwoScriptsReplacesItsRecordInPlace) {
    CompileUnit* first = Compiled("function shared(a) {}", "one");
    ASSERT_EQ(first->fourthCount, 2);
    FunctionRecord* earlier = first->fourth[1];
    int32_t listLength = GlobalFunctionRecords.count;

    CompileUnit* second = Compiled("function shared(a, b) {}", "two");
    // Only the root record is added: the new record took the old one's slot.
    EXPECT_EQ(second->fourthCount, 1);
    EXPECT_EQ(GlobalFunctionRecords.count, listLength + 1);
    int32_t slot = FindFunctionRecord("shared");
    ASSERT_GE(slot, 0);
    FunctionRecord* later = static_cast<FunctionRecord*>(GlobalFunctionRecords.data[slot]);
    EXPECT_NE(later, earlier);
    EXPECT_EQ(later->paramCount, 2);
    // The earlier unit's record is still intact.
    EXPECT_EQ(earlier->paramCount, 1);
    EXPECT_EQ(earlier->nameIndex, later->nameIndex);
}

TEST(Process, AnonymousFunctionAndAccessorCountersRunAcrossCompiles) {
    Compiled("var f = function () {};\nvar o = { get p() { return 1; } };", "one");
    Compiled("\nvar g = function () {};\nvar q = { set p(v) {} };", "two");
    Compiled("var h = function () {};", "three");
    CompileUnit* last = Compiled("var o = { get p() { return 1; }, set p(v) {} };", "four");
    EXPECT_TRUE(HasName(last, "__one_1__anonfn0"));
    EXPECT_TRUE(HasName(last, "__two_2__anonfn1"));
    EXPECT_TRUE(HasName(last, "__three_1__anonfn2"));
    EXPECT_TRUE(HasName(last, "__getfn0"));
    EXPECT_TRUE(HasName(last, "__setfn1"));
    EXPECT_TRUE(HasName(last, "__getfn2"));
    EXPECT_TRUE(HasName(last, "__setfn3"));
    EXPECT_EQ(CodeGenState().anonymousCounter, 3);
    EXPECT_EQ(CodeGenState().accessorCounter, 4);
}

TEST(Process, TheSlotCounterContinuesAcrossCompiles) {
    Compiled("var a; var b;");
    uint32_t afterFirst = CodeGenState().slotCounter;
    EXPECT_EQ(afterFirst, 2u);   // one slot per declared global
    Compiled("var c; function f() {}");
    // c, then f's `arguments` (its parameters take their positions instead)
    EXPECT_EQ(CodeGenState().slotCounter, afterFirst + 2);
}

TEST(Process, NamesInternedByEarlierScriptsKeepTheirIndices) {
    CompileUnit* first = Compiled("var alpha; var beta;");
    int32_t namesAfterFirst = first->nameCount;
    uint32_t alpha = static_cast<uint32_t>(NameIndex("alpha"));
    CompileUnit* second = Compiled("var beta; var alpha;");
    EXPECT_EQ(second->nameCount, namesAfterFirst);
    // Hoisting puts the last collected name first: alpha's synthetic declaration comes first.
    EXPECT_EQ(second->vars[0]->nameIndex, alpha);
    EXPECT_STREQ(second->names[alpha], "alpha");
}

TEST(Process, AFailedCompileLeavesTheTablesUsable) {
    CompileUnit* good = Compiled("var kept = 1;");
    std::vector<uint32_t> expected = UnitWords(good);

    CompileUnit* failed = ParseAndCompile("var later;\nfunction f() { while (1) { break nowhere; } }\n");
    ASSERT_EQ(failed->status, 1);
    ASSERT_EQ(failed->errorCount, 1);
    EXPECT_STREQ(failed->errors[0], "Error : test.js(2) : unable to find target label nowhere\n");
    int32_t recordsAfterFailure = GlobalFunctionRecords.count;
    int32_t varsAfterFailure = GlobalVarList.count;

    CompileUnit* again = Compiled("var kept = 1;");
    EXPECT_EQ(UnitWords(again), expected);
    EXPECT_EQ(again->fourthCount, 1);
    EXPECT_EQ(again->fourth[0], good->fourth[0]);
    EXPECT_EQ(GlobalFunctionRecords.count, recordsAfterFailure + 1);
    EXPECT_EQ(again->vars, reinterpret_cast<PatchRecord**>(GlobalVarList.data) + varsAfterFailure);
    EXPECT_EQ(again->varCount, 3);
    EXPECT_EQ(again->vars[0]->nameIndex, good->vars[3]->nameIndex);
}
