// Two behaviours that single-point changes of the code generator once left unpinned, with the
// exact words derived by hand from the code-generation rules:
// - the target of `break name` / `continue name` inside a function: the label records the
//   continue-target count where it stands, and both stacks are walked that many steps from their
//   oldest entry; inside a function the break stack holds "endcompile" below the loops, so
//   `break name` lands one entry lower than the loop it names, skipping the code after the loop;
// - an accessor whose name falls in the last bucket (7) of an object literal's 8-bucket accessor
//   table ("f": NameHash 0x892CD41F).
// Each test runs in a process of its own, so the accessor counter starts at 0 ("__getfn0").
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "helpers/compile_support.h"

namespace {

using Words = std::vector<uint32_t>;


constexpr uint32_t kPushUnresolved = 0xC005FFF5;
constexpr uint32_t kConvVarToBool = 0x07450100;
constexpr uint32_t kPopzVar = 0x9E050000;
constexpr uint32_t kRetShort = 0x9C0F0000;
constexpr uint32_t kPushInt = 0xC0020000;
constexpr uint32_t kConvIntToVar = 0x07520000;
constexpr uint32_t kCall1 = 0xD9020001;
constexpr uint32_t kCall2 = 0xD9020002;
constexpr uint32_t kStoreSelf = 0x4555FFF5;

CompileUnit* Compiled(const std::string& source) {
    CompileUnit* unit = ParseAndCompile(source, true);
    EXPECT_NE(unit, nullptr);
    if (unit) {
        EXPECT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "") << source;
    }
    return unit;
}

void ExpectWords(const CompileUnit* unit, const Words& expected) {
    EXPECT_EQ(HexWords(UnitWords(unit)), HexWords(expected)) << Listing(UnitWords(unit));
}

// "name kind offset" per record, from `skip` on.
std::vector<std::string> Records(const CompileUnit* unit, PatchRecord** records, int32_t count, int32_t skip = 0) {
    std::vector<std::string> lines;
    for (int32_t i = skip; i < count; i++) {
        const PatchRecord* record = records[i];
        const char* name = record->nameIndex < static_cast<uint32_t>(unit->nameCount) ? unit->names[record->nameIndex] : "?";
        char text[160];
        std::snprintf(text, sizeof text, "%s %u 0x%" PRIx64, name, record->kind, record->codeOffset);
        lines.push_back(text);
    }
    return lines;
}

// The tail every top-level function declaration ends with: push.i name; conv.i.v;
// call @@script_ref@@ 1; store to the name as the script's own.
Words FunctionReference(const char* name) {
    return {kPushInt, NameId(name), kConvIntToVar, kCall1, NameId("@@script_ref@@"), kStoreSelf, NameDecl(name)};
}

Words Joined(Words head, const Words& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

}  // namespace

TEST(LabelDepth, BreakToALabelInAFunctionLeavesThroughEndcompileSkippingTheCodeAfterTheLoop) {
    CompileUnit* unit = Compiled("function f() { l: while (a) { break l; } b; }");
    // l stands at continue depth 0; the break stack is [endcompile, endwhile], so break l takes
    // endcompile: the read of b after the loop is skipped.
    ExpectWords(unit, Joined({0xB600000B,                                // 0x00 b endfunc
                              kPushUnresolved, NameRef("a"), kConvVarToBool,  // 0x04 l: startwhile
                              0xB8000003,                                 // 0x10 bf endwhile
                              0xB6000005,                                 // 0x14 break l -> 0x28
                              0xB67FFFFB,                                 // 0x18 b startwhile
                              kPushUnresolved, NameRef("b"), kPopzVar,        // 0x1C endwhile: b;
                              kRetShort},                                 // 0x28 endcompile
                             FunctionReference("f")));                    // 0x2C endfunc
}

TEST(LabelDepth, ContinueToALabelInAFunctionGoesToTheLoopStart) {
    CompileUnit* unit = Compiled("function f() { l: while (a) { continue l; } b; }");
    ExpectWords(unit, Joined({0xB600000B,                                // 0x00 b endfunc
                              kPushUnresolved, NameRef("a"), kConvVarToBool,  // 0x04 l: startwhile
                              0xB8000003,                                 // 0x10 bf endwhile
                              0xB67FFFFC,                                 // 0x14 continue l -> 0x04
                              0xB67FFFFB,                                 // 0x18 b startwhile
                              kPushUnresolved, NameRef("b"), kPopzVar,        // 0x1C endwhile: b;
                              kRetShort},                                 // 0x28 endcompile
                             FunctionReference("f")));
}

TEST(LabelDepth, BreakToAnInnerLabelInAFunctionLeavesTheOuterLoop) {
    CompileUnit* unit = Compiled("function f() { while (c) { l: while (a) { break l; } d; } b; }");
    // l stands at continue depth 1; the break stack is [endcompile, outer endwhile, inner
    // endwhile], so break l leaves the outer loop, skipping d.
    ExpectWords(unit, Joined({0xB6000013,                                // 0x00 b endfunc
                              kPushUnresolved, NameRef("c"), kConvVarToBool,  // 0x04 outer startwhile
                              0xB800000B,                                 // 0x10 bf outer endwhile
                              kPushUnresolved, NameRef("a"), kConvVarToBool,  // 0x14 l: inner startwhile
                              0xB8000003,                                 // 0x20 bf inner endwhile
                              0xB6000006,                                 // 0x24 break l -> 0x3C
                              0xB67FFFFB,                                 // 0x28 b inner startwhile
                              kPushUnresolved, NameRef("d"), kPopzVar,        // 0x2C inner endwhile: d;
                              0xB67FFFF3,                                 // 0x38 b outer startwhile
                              kPushUnresolved, NameRef("b"), kPopzVar,        // 0x3C outer endwhile: b;
                              kRetShort},                                 // 0x48 endcompile
                             FunctionReference("f")));                    // 0x4C endfunc
}

TEST(LabelDepth, ContinueToAnInnerLabelInAFunctionGoesToItsOwnLoopStart) {
    CompileUnit* unit = Compiled("function f() { while (c) { l: while (a) { continue l; } d; } b; }");
    // The continue stack is [outer startwhile, inner startwhile]; one step from the oldest is the
    // inner loop's start.
    ExpectWords(unit, Joined({0xB6000013,                                // 0x00 b endfunc
                              kPushUnresolved, NameRef("c"), kConvVarToBool,  // 0x04 outer startwhile
                              0xB800000B,                                 // 0x10 bf outer endwhile
                              kPushUnresolved, NameRef("a"), kConvVarToBool,  // 0x14 l: inner startwhile
                              0xB8000003,                                 // 0x20 bf inner endwhile
                              0xB67FFFFC,                                 // 0x24 continue l -> 0x14
                              0xB67FFFFB,                                 // 0x28 b inner startwhile
                              kPushUnresolved, NameRef("d"), kPopzVar,        // 0x2C inner endwhile: d;
                              0xB67FFFF3,                                 // 0x38 b outer startwhile
                              kPushUnresolved, NameRef("b"), kPopzVar,        // 0x3C outer endwhile: b;
                              kRetShort},                                 // 0x48 endcompile
                             FunctionReference("f")));
}

TEST(AccessorTable, GetterInTheLastBucketIsCompiledAndPassedToNewProperty) {
    CompileUnit* unit = Compiled("({ get f() { return 1; } })");
    ExpectWords(unit, {0xB6000005,                                              // 0x00 b endfunc
                       0xC00F0001, kConvIntToVar, 0x9C050000,                   // 0x04 return 1
                       kRetShort,                                               // 0x10 endcompile
                       kPushInt, NameId("__getfn0"), kConvIntToVar,               // 0x14 endfunc
                       kCall1, NameId("@@script_ref@@"),                          // 0x20
                       kPushUnresolved, NameRef("undefined"),                       // 0x28 no setter
                       kCall2, NameId("@@NewProperty@@"),                         // 0x30
                       0xC0060000, NameId("f"), 0x07560000,                       // 0x38 push.s "f"; conv.s.v
                       kCall2, NameId("@@NewObject@@"),                           // 0x44 two arguments
                       kPopzVar});                                              // 0x4C
    EXPECT_EQ(Records(unit, unit->funcs, unit->funcCount),
              (std::vector<std::string>{"__getfn0 0 0x14", "@@script_ref@@ 0 0x20", "@@NewProperty@@ 0 0x30",
                                        "@@NewObject@@ 0 0x44"}));
    EXPECT_EQ(Records(unit, unit->strings, unit->stringCount), (std::vector<std::string>{"f 0 0x3c"}));
    EXPECT_EQ(Records(unit, unit->vars, unit->varCount, 3), (std::vector<std::string>{"undefined 0 0x28"}));
    ASSERT_EQ(unit->fourthCount, 2);
    EXPECT_STREQ(unit->names[unit->fourth[1]->nameIndex], "__getfn0");
    EXPECT_EQ(unit->fourth[1]->codeOffset, 4u);
}

TEST(AccessorTable, AccessorsComeInBucketOrderWithTheLastBucketLast) {
    // Buckets: c 0, a 4, f 7. Plain properties first, then the accessors by bucket: c (setter
    // only, "__setfn0"), a (getter, "__getfn1"), f (getter and setter, "__getfn2", "__setfn3").
    CompileUnit* unit = Compiled("({ get f() {}, x: 1, set c(v) {}, set f(v) {}, get a() {} })");
    const Words words = UnitWords(unit);
    std::vector<std::string> order;
    for (size_t i = 0; i + 1 < words.size(); i++) {
        if (words[i] == kPushInt && words[i + 1] < static_cast<uint32_t>(unit->nameCount)) {
            order.push_back(unit->names[words[i + 1]]);
        } else if (words[i] == 0xC0060000 && words[i + 1] < static_cast<uint32_t>(unit->nameCount)) {
            order.push_back(std::string("\"") + unit->names[words[i + 1]] + "\"");
        }
    }
    EXPECT_EQ(order, (std::vector<std::string>{"\"x\"", "__setfn0", "\"c\"", "__getfn1", "\"a\"", "__getfn2",
                                               "__setfn3", "\"f\""}));
    ASSERT_GE(words.size(), 3u);
    // Four properties: call @@NewObject@@ with eight arguments, then popz.v.
    EXPECT_EQ(words[words.size() - 3], 0xD9020008u);
    EXPECT_EQ(words[words.size() - 2], NameId("@@NewObject@@"));
    EXPECT_EQ(words[words.size() - 1], kPopzVar);
}
