// A host that keeps a unit can read it after any number of later compiles: the process-wide
// arrays keep the blocks they outgrow, so every pointer a unit was given stays readable, and the
// values it shows stay as they were, apart from the documented changes. Under the sanitizer
// preset a read of freed memory here would be reported.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "helpers/unit_report.h"
#include "state/process_state.h"
#include "veltjs.h"

namespace {

// Functions (one of them named `twice` + suffix), variables, strings, an accessor, a for-in.
std::string FirstScript(const char* suffix) {
    std::ostringstream script;
    script << "var greeting = \"hello\", count = 3;\n"
           << "function twice" << suffix << "(x) { var local = x * 2; return local; }\n"
           << "function counter() { var n = 0; return function () { n++; return n; }; }\n"
           << "var o = { get size() { return count; }, label: 'kept' };\n"
           << "for (var key in o) { greeting += key; }\n";
    return script.str();
}

// A script that adds names, patch records of all three kinds and two function records.
std::string LaterScript(int k) {
    std::ostringstream script;
    script << "function later" << k << "(a" << k << ") { return a" << k << " + \"text" << k << "\"; }\n"
           << "var value" << k << " = later" << k << "(" << k << ");\n";
    return script.str();
}

CompileUnit* Compile(const std::string& source, const char* scriptName, uint8_t topLevel = 0) {
    CompileUnit* unit = VeltJS_Parse(source.c_str(), "kept.js", scriptName);
    EXPECT_EQ(unit->status, 0) << (unit->errorCount ? unit->errors[0] : "");
    VeltJS_Compile(unit, topLevel);
    EXPECT_EQ(unit->status, 0) << (unit->errorCount ? unit->errors[0] : "");
    return unit;
}

// True when `pointer` lies in the array's current block.
bool InCurrentBlock(const PtrArray& array, const void* pointer) {
    const void* const* at = static_cast<const void* const*>(pointer);
    return at >= array.data && at < array.data + array.reserved;
}

// What DescribeUnit says of the unit up to its function records, without the root record's
// contents: the root record (the first of every unit's function records) is shared by all units
// and describes the latest compile. The listing is left out too, as it prints names through the
// current table.
std::string DescribeWithoutRootContents(const CompileUnit* unit) {
    std::istringstream lines(DescribeUnit(unit));
    std::string text;
    std::string line;
    int32_t recordsLeft = -1;
    while (std::getline(lines, line)) {
        if (recordsLeft == 0) break;
        if (recordsLeft > 0) {
            if (recordsLeft-- == unit->fourthCount) line = "  (root)";
        } else if (line.rfind("records ", 0) == 0) {
            recordsLeft = unit->fourthCount;
        }
        text += line + "\n";
    }
    return text;
}

void CompileFiveThousandMore() {
    for (int k = 0; k < 5000; k++) {
        CompileUnit* unit = Compile(LaterScript(k), "later");
        ASSERT_EQ(unit->status, 0);
    }
}

}  // namespace

TEST(KeptUnits, AUnitReadAfterFiveThousandMoreCompilesShowsWhatItShowedAtFirst) {
    VeltJS_Init();
    CompileUnit* first = Compile(FirstScript("A"), "first");
    std::string before = DescribeWithoutRootContents(first);
    ASSERT_GT(first->nameCount, 10);
    ASSERT_GT(first->fourthCount, 2);
    ASSERT_GT(first->stringCount, 1);
    int32_t namesReserved = NameArray.reserved;
    int32_t varsReserved = GlobalVarList.reserved;
    int32_t funcsReserved = GlobalFuncList.reserved;
    int32_t stringsReserved = GlobalStringList.reserved;
    int32_t recordsReserved = GlobalFunctionRecords.reserved;

    CompileFiveThousandMore();

    // Every array grew several times (doubling), so each of the unit's pointers now leads into a
    // block that the array has left behind.
    EXPECT_GE(NameArray.reserved, namesReserved * 8);
    EXPECT_GE(GlobalVarList.reserved, varsReserved * 8);
    EXPECT_GE(GlobalFuncList.reserved, funcsReserved * 8);
    EXPECT_GE(GlobalStringList.reserved, stringsReserved * 8);
    EXPECT_GE(GlobalFunctionRecords.reserved, recordsReserved * 8);
    EXPECT_FALSE(InCurrentBlock(NameArray, first->names));
    EXPECT_FALSE(InCurrentBlock(GlobalVarList, first->vars));
    EXPECT_FALSE(InCurrentBlock(GlobalFuncList, first->funcs));
    EXPECT_FALSE(InCurrentBlock(GlobalStringList, first->strings));
    EXPECT_FALSE(InCurrentBlock(GlobalFunctionRecords, first->fourth));

    EXPECT_EQ(FirstDifference(before, DescribeWithoutRootContents(first)), "");
    // The root record is the same record for every unit.
    const PtrArray& records = GlobalFunctionRecords;
    EXPECT_EQ(first->fourth[0], static_cast<FunctionRecord*>(records.data[records.count - 2]));
}

TEST(KeptUnits, ARenameAndARedefinitionBeforeTheArraysGrowAreTheOnlyChangesAUnitShows) {
    VeltJS_Init();
    CompileUnit* first = Compile(FirstScript("B"), "first", 1);
    std::string before = DescribeWithoutRootContents(first);

    // Rename the unit's first name, and redefine its function `twiceB` in a later script, while the
    // unit's blocks are still the arrays' current ones.
    ASSERT_TRUE(InCurrentBlock(NameArray, first->names));
    ASSERT_TRUE(InCurrentBlock(GlobalFunctionRecords, first->fourth));
    std::string firstName = first->names[0];
    static const char renamed[] = "renamedByTheHost";
    VeltJS_AddName(renamed, 0);
    int32_t twicePosition = -1;
    for (int32_t i = 0; i < first->fourthCount; i++) {
        uint32_t index = first->fourth[i]->nameIndex;
        if (index < static_cast<uint32_t>(first->nameCount) && std::strcmp(first->names[index], "twiceB") == 0) {
            twicePosition = i;
        }
    }
    ASSERT_GE(twicePosition, 1);
    FunctionRecord* original = first->fourth[twicePosition];
    CompileUnit* redefinition = Compile("function twiceB(a, b) { return a; }", "again", 1);
    ASSERT_TRUE(InCurrentBlock(GlobalFunctionRecords, first->fourth));
    FunctionRecord* replacement = first->fourth[twicePosition];
    ASSERT_NE(replacement, original);
    EXPECT_EQ(replacement->paramCount, 2);
    // A replaced record is not one the later compile added, so its unit does not list it.
    EXPECT_EQ(redefinition->fourthCount, 1);

    CompileFiveThousandMore();

    // What the unit shows now: the text from right after its compile, with the renamed
    // name and the replacing record in their places.
    std::string expected = before;
    std::string oldName = "\n  0 " + firstName + "\n";
    ASSERT_NE(expected.find(oldName), std::string::npos);
    expected.replace(expected.find(oldName), oldName.size(), std::string("\n  0 ") + renamed + "\n");
    std::string now = DescribeWithoutRootContents(first);
    std::istringstream expectedLines(expected);
    std::string line;
    std::string rebuilt;
    int32_t record = -1;
    while (std::getline(expectedLines, line)) {
        if (line.rfind("records ", 0) == 0) {
            record = 0;
        } else if (record >= 0 && record++ == twicePosition) {
            line = "  " + DescribeFunctionRecord(replacement);
        }
        rebuilt += line + "\n";
    }
    EXPECT_EQ(FirstDifference(rebuilt, now), "");
}
