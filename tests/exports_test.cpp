#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "codegen/context.h"
#include "helpers/mappings.h"
#include "parser/parser.h"
#include "state/process_state.h"
#include "veltjs.h"

namespace {

Parser* ParserOf(CompileUnit* unit) { return static_cast<Parser*>(unit->parser); }

}  // namespace

TEST(Exports, ParsingAnEmptySourceGivesAnEmptyRootBlock) {
    VeltJS_Init();
    CompileUnit* unit = VeltJS_Parse("", "empty.js", "empty");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->status, 0);
    EXPECT_EQ(unit->errorCount, 0);
    EXPECT_EQ(unit->errors, nullptr);
    ASSERT_NE(unit->parser, nullptr);
    EXPECT_EQ(ParserOf(unit)->root.kind, static_cast<uint32_t>('{'));
    EXPECT_STREQ(ParserOf(unit)->root.text->text, "{");
    EXPECT_EQ(ParserOf(unit)->root.first, nullptr);
    EXPECT_EQ(ParserOf(unit)->root.count, 0u);
    EXPECT_STREQ(unit->scriptName, "empty");
}

// A script whose tree can be expected to reach half a largest block (16 bytes per source byte)
// has it carved from the largest blocks from the start; a smaller one goes up the doubling as
// before. The script is mostly a comment, so its tree alone would never get past the first blocks.
TEST(Exports, AScriptOf64KiBOrMoreStartsItsTreeInTheLargestBlocks) {
    VeltJS_Init();
    std::string small = "/*" + std::string(kArenaExpectedLarge / kTreeBytesPerSourceByte - 20, '*') + "*/ var a = 1;";
    ASSERT_LT(small.size() * kTreeBytesPerSourceByte, kArenaExpectedLarge);
    ASSERT_EQ(VeltJS_Parse(small.c_str(), "small.js", "small")->status, 0);
    EXPECT_LT(State().records.blockSize, kArenaLargestBlock);

    std::string large = "/*" + std::string(kArenaExpectedLarge / kTreeBytesPerSourceByte, '*') + "*/ var a = 1;";
    CompileUnit* unit = VeltJS_Parse(large.c_str(), "large.js", "large");
    ASSERT_EQ(unit->status, 0);
    EXPECT_EQ(State().records.blockSize, kArenaLargestBlock);
    EXPECT_EQ(ParserOf(unit)->root.count, 1u);
}

#if defined(__linux__)
// No parse or compile advises the library's mappings for huge pages, whatever the script's size: on
// a virtual machine that hands its free 2 MiB blocks back to its host, a large script's fresh huge
// pages cost several times the 4 KiB pages the kernel has at hand.
TEST(Exports, NoParseOrCompileAdvisesItsMappingsForHugePages) {
    VeltJS_Init();
    // Over a largest block of source: its copy is a block of its own, and its tree starts in the
    // largest blocks.
    std::string large = "/*" + std::string(kArenaLargestBlock, '*') + "*/ var a = 1; function f(b) { return b + a; }";
    CompileUnit* unit = VeltJS_Parse(large.c_str(), "large.js", "large");
    ASSERT_EQ(unit->status, 0);
    ASSERT_EQ(VeltJS_Compile(unit, 0)->status, 0);
    const char* source = (*ParserOf(unit)->position.source)->text;
    const Node* statement = ParserOf(unit)->root.first;
    ASSERT_TRUE(MappingOf(source).found);
    ASSERT_TRUE(MappingOf(statement).found);
    EXPECT_FALSE(AdvisedForHugePages(source));
    EXPECT_FALSE(AdvisedForHugePages(statement));
    EXPECT_FALSE(AdvisedForHugePages(unit->code));
}
#endif

// A compile of a script of half a mebibyte or more takes its new scratch blocks at the largest
// size.
TEST(Exports, ACompileOfHalfAMebibyteOrMoreTakesTheLargestScratchBlocks) {
    VeltJS_Init();
    std::string small = "/*" + std::string(kArenaExpectedLarge / kScratchBytesPerSourceByte - 20, '*') + "*/ var a = 1;";
    ASSERT_LT(small.size() * kScratchBytesPerSourceByte, kArenaExpectedLarge);
    ASSERT_EQ(VeltJS_Compile(VeltJS_Parse(small.c_str(), "small.js", "small"), 0)->status, 0);
    EXPECT_FALSE(State().compileScratch.largestBlocks);

    std::string large = "/*" + std::string(kArenaExpectedLarge / kScratchBytesPerSourceByte, '*') + "*/ var a = 1;";
    CompileUnit* unit = VeltJS_Compile(VeltJS_Parse(large.c_str(), "large.js", "large"), 0);
    ASSERT_EQ(unit->status, 0);
    EXPECT_TRUE(State().compileScratch.largestBlocks);
    EXPECT_GT(unit->codeSize, 0);
}

TEST(Exports, ScriptNameIsAPrivateCopy) {
    VeltJS_Init();
    char name[] = "mine";
    CompileUnit* unit = VeltJS_Parse("", "f.js", name);
    name[0] = 'X';
    EXPECT_STREQ(unit->scriptName, "mine");
}

TEST(Exports, SyntaxErrorGivesStatusOneAndOneMessage) {
    VeltJS_Init();
    CompileUnit* unit = VeltJS_Parse("var 1;", "bad.js", "bad");
    EXPECT_EQ(unit->status, 1);
    EXPECT_EQ(unit->errorCount, 1);
    ASSERT_NE(unit->errors, nullptr);
    EXPECT_STREQ(unit->errors[0], "Error : bad.js(1) : Got '1' (int) expected 'id'\n");
    EXPECT_EQ(unit->parser, nullptr);
}

TEST(Exports, CompilingTheEmptyProgramEmitsNoCode) {
    VeltJS_Init();
    CompileUnit* unit = VeltJS_Compile(VeltJS_Parse("", "e.js", "e"), 0);
    EXPECT_EQ(unit->status, 0);
    EXPECT_EQ(unit->codeSize, 0);
    EXPECT_NE(unit->code, nullptr);
    EXPECT_EQ(unit->code2Size, 0);
    EXPECT_NE(unit->code2, nullptr);
    EXPECT_EQ(unit->errorCount, 0);
}

TEST(Exports, FirstCompileHandsOverTheThreeSeededVariableRecords) {
    VeltJS_Init();
    CompileUnit* unit = VeltJS_Compile(VeltJS_Parse("", "e.js", "e"), 0);
    ASSERT_EQ(unit->varCount, 3);
    ASSERT_EQ(unit->nameCount, 3);
    const char* expected[3] = {"prototype", "@@array@@", "arguments"};
    const uint32_t kinds[3] = {3, 3, 2};
    for (int i = 0; i < 3; i++) {
        EXPECT_STREQ(unit->names[unit->vars[i]->nameIndex], expected[i]);
        EXPECT_EQ(unit->vars[i]->kind, kinds[i]);
        EXPECT_EQ(unit->vars[i]->codeOffset, ~0ull);
    }
    ASSERT_EQ(unit->fourthCount, 1);
    EXPECT_EQ(unit->fourth[0]->nameIndex, 0xFFFFFFFFu);
    EXPECT_EQ(unit->fourth[0]->declaredNameIndex, 0xFFFFFFFFu);
    EXPECT_EQ(unit->fourth[0]->flags, 4u);

    CompileUnit* second = VeltJS_Compile(VeltJS_Parse("", "e.js", "e"), 0);
    EXPECT_EQ(second->varCount, 0);
    ASSERT_EQ(second->fourthCount, 1);
    EXPECT_EQ(second->fourth[0], unit->fourth[0]);
}

TEST(Exports, CompilingAUnitWhoseParseFailedCompilesNothing) {
    VeltJS_Init();
    CompileUnit* unit = VeltJS_Parse("var 1;", "bad.js", "bad");
    ASSERT_EQ(unit->status, 1);
    VeltJS_Compile(unit, 0);
    EXPECT_EQ(unit->status, 0);
    EXPECT_EQ(unit->codeSize, 0);
    EXPECT_EQ(unit->errorCount, 1);
}

TEST(Exports, CompileOfNullUnitReturnsNull) {
    VeltJS_Init();
    EXPECT_EQ(VeltJS_Compile(nullptr, 1), nullptr);
}

TEST(Exports, AddNameWithNegativeIndexOverwritesEntryZero) {
    VeltJS_Init();
    PushName("zero");
    PushName("one");
    VeltJS_AddName("minus", -5);
    EXPECT_STREQ(static_cast<const char*>(NameArray.data[0]), "minus");
    EXPECT_STREQ(static_cast<const char*>(NameArray.data[1]), "one");
    EXPECT_EQ(NameArray.count, 2);
}

TEST(Exports, AddNameStoresThePointerNotACopy) {
    VeltJS_Init();
    static const char kName[] = "pointer";
    VeltJS_AddName(kName, 0);
    EXPECT_EQ(NameArray.data[0], static_cast<const void*>(kName));
    EXPECT_EQ(NameArray.count, 0);
}

TEST(Exports, AddNameAtAndBeyondTheCountIsAddressableAndLeavesTheCount) {
    VeltJS_Init();
    PushName("a");
    VeltJS_AddName("at", 1);
    EXPECT_STREQ(static_cast<const char*>(NameArray.data[1]), "at");
    VeltJS_AddName("far", 5000);
    EXPECT_EQ(NameArray.count, 1);
    EXPECT_STREQ(static_cast<const char*>(NameArray.data[0]), "a");
    EXPECT_STREQ(static_cast<const char*>(NameArray.data[5000]), "far");
    // The replacement array is zeroed past the count: the entry placed at 1 is gone.
    EXPECT_EQ(NameArray.data[1], nullptr);
    EXPECT_EQ(NameArray.data[4999], nullptr);
    EXPECT_EQ(NameArray.data[5001], nullptr);
}

TEST(Exports, AddNameWithNullPointerStoresNull) {
    VeltJS_Init();
    PushName("a");
    VeltJS_AddName(nullptr, 0);
    EXPECT_EQ(NameArray.data[0], nullptr);
    EXPECT_EQ(FindName("a"), -1);
    EXPECT_EQ(NameArray.count, 1);
}

TEST(Exports, HostPlacedNameBelowTheCountIsFoundByLaterLookups) {
    VeltJS_Init();
    PushName("first");
    PushName("second");
    EXPECT_EQ(FindName("second"), 1);
    VeltJS_AddName("renamed", 1);
    EXPECT_EQ(FindName("second"), -1);
    EXPECT_EQ(FindName("renamed"), 1);
    VeltJS_AddName("first", 1);
    EXPECT_EQ(FindName("first"), 0);
}

TEST(Exports, VeryLongNamesAreKeptAsGiven) {
    VeltJS_Init();
    std::string name(1 << 20, 'n');
    VeltJS_AddName(name.c_str(), 3);
    VeltJS_AddBuiltInFunction(name.c_str());
    EXPECT_EQ(NameArray.data[3], static_cast<const void*>(name.c_str()));
    EXPECT_TRUE(IsBuiltInFunction(name.c_str()));
}

TEST(Exports, AddBuiltInFunctionCopiesTheNameAndInsertsDuplicatesAgain) {
    VeltJS_Init();
    char name[] = "show_message";
    VeltJS_AddBuiltInFunction(name);
    VeltJS_AddBuiltInFunction(name);
    name[0] = 'X';
    EXPECT_EQ(BuiltInFunctionTable.count, 2);
    EXPECT_TRUE(IsBuiltInFunction("show_message"));
    EXPECT_FALSE(IsBuiltInFunction("Xhow_message"));
}

TEST(Exports, InitCanBeCalledAgain) {
    VeltJS_Init();
    VeltJS_Init();
    VeltJS_Quit();
    CompileUnit* unit = VeltJS_Parse("", "f.js", "f");
    EXPECT_EQ(unit->status, 0);
}

TEST(Exports, DisasmOfLengthZeroReturnsNull) {
    uint32_t word = 0;
    EXPECT_EQ(VeltJS_Disasm(&word, 0), nullptr);
}
