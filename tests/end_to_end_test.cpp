// Whole scripts through VeltJS_Parse and VeltJS_Compile: code, positions, patch records and
// function records against hand-derived reports under tests/data. Every test runs in a process
// of its own, so each script is the first compile and the name indices are fixed.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>

#include "helpers/compile_support.h"

namespace {

std::string NameText(const CompileUnit* unit, uint32_t index) {
    if (index == 0xFFFFFFFFu) return "-1";
    const char* text = static_cast<int32_t>(index) < unit->nameCount ? unit->names[index] : "?";
    return std::to_string(index) + ":" + (text ? text : "(null)");
}

std::string PatchLines(const CompileUnit* unit, PatchRecord** records, int32_t count) {
    std::string text;
    char at[32];
    for (int32_t i = 0; i < count; i++) {
        const PatchRecord* record = records[i];
        if (record->codeOffset == UINT64_MAX) {
            std::snprintf(at, sizeof at, "none");
        } else {
            std::snprintf(at, sizeof at, "0x%" PRIx64, record->codeOffset);
        }
        text += NameText(unit, record->nameIndex) + " kind " + std::to_string(record->kind) + " at " + at + "\n";
    }
    return text;
}

std::string Pairs(const CompileUnit* unit, const uint32_t* pairs, uint32_t count) {
    std::string text;
    for (uint32_t i = 0; i < count; i++) {
        if (i > 0) text += ",";
        text += NameText(unit, pairs[i * 2]) + "=" + NameText(unit, pairs[i * 2 + 1]);
    }
    return text;
}

// The unit as the readable report that the data files hold.
std::string Report(const CompileUnit* unit) {
    std::string text = "code:\n" + Listing(unit->code, unit->codeSize) + "positions:\n";
    std::vector<uint32_t> positions = UnitPositionWords(unit);
    char line[64];
    for (size_t i = 0; i + 1 < positions.size(); i += 2) {
        std::snprintf(line, sizeof line, "0x%x %u\n", positions[i], positions[i + 1]);
        text += line;
    }
    text += "vars:\n" + PatchLines(unit, unit->vars, unit->varCount);
    text += "funcs:\n" + PatchLines(unit, unit->funcs, unit->funcCount);
    text += "strings:\n" + PatchLines(unit, unit->strings, unit->stringCount);
    text += "functions:\n";
    for (int32_t i = 0; i < unit->fourthCount; i++) {
        const FunctionRecord* record = unit->fourth[i];
        std::string params;
        for (int32_t p = 0; p < record->paramCount; p++) {
            if (p > 0) params += ",";
            params += NameText(unit, record->params[p]);
        }
        std::snprintf(line, sizeof line, "0x%" PRIx64, record->codeOffset);
        text += "name " + NameText(unit, record->nameIndex) + " declared " + NameText(unit, record->declaredNameIndex) +
                " offset " + line + " params [" + params + "] locals [" +
                Pairs(unit, record->locals, record->localCount) + "] slots [" +
                Pairs(unit, record->slots, record->slotCount) + "] flags " + std::to_string(record->flags) + "\n";
    }
    return text;
}

void ExpectReport(const char* source, bool topLevel, const char* dataFile) {
    CompileUnit* unit = ParseAndCompile(source, topLevel);
    ASSERT_NE(unit, nullptr);
    ASSERT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "");
    EXPECT_EQ(Report(unit), ReadTestData(dataFile));
}

}  // namespace

TEST(EndToEnd, VarAndWhileLoop) {
    ExpectReport("var x = 1;\nwhile (x) { x = x - 1; }\n", true, "while.txt");
}

TEST(EndToEnd, FunctionDeclarationAndCallAtTopLevel) {
    ExpectReport("function add(a, b) {\n  return a + b;\n}\nvar r = add(1, 2);\n", true, "function_call.txt");
}

TEST(EndToEnd, ForIfContinueDoBreak) {
    ExpectReport("for (var i = 0; i < 3; i++) {\n  if (i == 1) continue;\n  do { break; } while (false);\n}\n", true,
                 "loops.txt");
}

TEST(EndToEnd, ForInOverObjectLiteral) {
    ExpectReport("var o = {};\nfor (var k in o) { k; }\n", true, "for_in.txt");
}

TEST(EndToEnd, SwitchInsideLabelledLoop) {
    ExpectReport(
        "var n = 2;\nouter: while (true) {\n  switch (n) {\n    case 1: break;\n    case 2: continue outer;\n"
        "    default: break outer;\n  }\n}\n",
        true, "switch_labels.txt");
}

TEST(EndToEnd, TryCatchFinallyAndThrow) {
    ExpectReport("try {\n  throw \"bad\";\n} catch (e) {\n  e;\n} finally {\n  1;\n}\n", true, "try.txt");
}

TEST(EndToEnd, NestedFunctionsInsideFunctionMode) {
    ExpectReport("function outer(a) {\n  function inner() { return a; }\n  return inner();\n}\n", false,
                 "nested_functions.txt");
}

TEST(EndToEnd, ArrayElisionElementReadLogicalUnaryAndMemberStore) {
    ExpectReport("var o = [1, , \"s\"];\no.p = !o[0] && typeof o || -2.5;\n", true, "expressions.txt");
}

// Every message of the statement compiler, with its file and line.
TEST(EndToEnd, BreakWithoutContext) {
    EXPECT_EQ(CompileError("var a;\nbreak;\n"), "Error : test.js(2) : break with no context\n");
}

TEST(EndToEnd, ContinueWithoutContext) {
    EXPECT_EQ(CompileError("continue;"), "Error : test.js(1) : continue with no context\n");
}

TEST(EndToEnd, ContinueInsideSwitchOutsideLoopIsAccepted) {
    CompileUnit* unit = ParseAndCompile("switch (1) { default: continue; }");
    ASSERT_EQ(unit->status, 0);
}

TEST(EndToEnd, UnknownTargetLabel) {
    EXPECT_EQ(CompileError("while (1) {\n  break nowhere;\n}\n"), "Error : test.js(2) : unable to find target label nowhere\n");
}

TEST(EndToEnd, LabelTooDeepForTheStack) {
    // The label's depth (1) walks past the only break target.
    EXPECT_EQ(CompileError("while (1) { deep: ; }\nfor (;;) { break deep; }\n"),
              "Error : test.js(2) : unable to find target label deep\n");
}

TEST(EndToEnd, MultipleDefaultClauses) {
    EXPECT_EQ(CompileError("switch (1) {\n  default: 1;\n  default: 2;\n}\n"),
              "Error : test.js(1) : multiple default clause in switch\n");
}

TEST(EndToEnd, ForInBodyLeavingAValueFails) {
    EXPECT_EQ(CompileError("for (var k in o) {\n  return;\n}\n"),
              "Error : test.js(1) : VM::CompileFor : For-in loop not left with iterator on the stack at the end\n");
}

TEST(EndToEnd, ConstIsNotAStatementTheCompilerKnows) {
    EXPECT_EQ(CompileError("const c = 1;"), "Error : test.js(1) : VM::CompileExpression : Unhandled node type - const\n");
}

TEST(EndToEnd, BreakToALabelInsideAFunctionLeavesTheFunction) {
    // The label's depth counts continue targets, and the function's "endcompile" sits below the
    // loop's targets on the break stack only: `break outer` therefore reaches "endcompile".
    std::vector<uint32_t> words = CompileWords("function f() { outer: while (1) { break outer; } }");
    // b endfunc; startwhile: push.e 1; conv.i.b; bf endwhile; b endcompile; b startwhile;
    // endwhile: endcompile: ret
    ASSERT_GE(words.size(), 7u);
    EXPECT_EQ(words[0], 0xB6000007u);
    EXPECT_EQ(words[1], 0xC00F0001u);
    EXPECT_EQ(words[2], 0x07420100u);
    EXPECT_EQ(words[3], 0xB8000003u);
    EXPECT_EQ(words[4], 0xB6000002u);
    EXPECT_EQ(words[5], 0xB67FFFFCu);
    EXPECT_EQ(words[6], 0x9C0F0000u);
}
