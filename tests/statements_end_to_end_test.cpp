// Whole scripts through VeltJS_Parse and VeltJS_Compile, one per statement form: the exact code
// words and branch offsets, the (code offset, source offset) pairs, the patch records and the
// function records. Every test runs in a process of its own, so each script is the first compile
// of its process: names 0 to 2 are "prototype", "@@array@@" and "arguments", and the first three
// variable records are theirs. Source offsets are those of the character after the token that
// made the node, counted from 2 (the reader primes two characters before the first token).
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "helpers/compile_support.h"

namespace {

using Words = std::vector<uint32_t>;


constexpr uint32_t kPushUnresolved = 0xC005FFF5;
constexpr uint32_t kPushLocal = 0xC005FFF4;
constexpr uint32_t kDeclareLocal = 0x4595FFF4;
constexpr uint32_t kConvVarToBool = 0x07450100;
constexpr uint32_t kPopzVar = 0x9E050000;
constexpr uint32_t kDupVar = 0x86050000;
constexpr uint32_t kForInTest = 0x15950E00;
constexpr uint32_t kCall0 = 0xD9020000;
constexpr uint32_t kCall1 = 0xD9020001;

CompileUnit* Compiled(const std::string& source, bool topLevel = true) {
    CompileUnit* unit = ParseAndCompile(source, topLevel);
    EXPECT_NE(unit, nullptr);
    if (unit) {
        EXPECT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "") << source;
    }
    return unit;
}

void ExpectWords(const CompileUnit* unit, const Words& expected) {
    EXPECT_EQ(HexWords(UnitWords(unit)), HexWords(expected)) << Listing(UnitWords(unit));
}

void ExpectPositions(const CompileUnit* unit, const Words& expected) {
    EXPECT_EQ(UnitPositionWords(unit), expected);
}

// "name kind offset" per record, skipping the first `skip` records.
std::vector<std::string> Records(const CompileUnit* unit, PatchRecord** records, int32_t count, int32_t skip = 0) {
    std::vector<std::string> lines;
    for (int32_t i = skip; i < count; i++) {
        const PatchRecord* record = records[i];
        char text[160];
        const char* name = record->nameIndex < static_cast<uint32_t>(unit->nameCount) ? unit->names[record->nameIndex] : "?";
        if (record->codeOffset == UINT64_MAX) {
            std::snprintf(text, sizeof text, "%s %u none", name, record->kind);
        } else {
            std::snprintf(text, sizeof text, "%s %u 0x%" PRIx64, name, record->kind, record->codeOffset);
        }
        lines.push_back(text);
    }
    return lines;
}

// Variable records after the three seeded ones.
std::vector<std::string> VarRecords(const CompileUnit* unit) { return Records(unit, unit->vars, unit->varCount, 3); }
std::vector<std::string> FuncRecords(const CompileUnit* unit) { return Records(unit, unit->funcs, unit->funcCount); }
std::vector<std::string> StringRecords(const CompileUnit* unit) {
    return Records(unit, unit->strings, unit->stringCount);
}

std::string NameAt(const CompileUnit* unit, uint32_t index) {
    if (index == 0xFFFFFFFFu) return "-1";
    return index < static_cast<uint32_t>(unit->nameCount) ? unit->names[index] : "?";
}

// A (qualified, plain) pair list as "q=n,q=n".
std::string PairText(const CompileUnit* unit, const uint32_t* pairs, uint32_t count) {
    std::string text;
    for (uint32_t i = 0; i < count; i++) {
        if (i > 0) text += ",";
        text += NameAt(unit, pairs[2 * i]) + "=" + NameAt(unit, pairs[2 * i + 1]);
    }
    return text;
}

struct ExpectedFunction {
    const char* name;          // qualified
    const char* declared;
    uint64_t codeOffset;
    std::vector<const char*> params;
    const char* locals;        // in bucket order
    uint32_t flags;
};

void ExpectFunction(const CompileUnit* unit, int32_t at, const ExpectedFunction& expected) {
    ASSERT_LT(at, unit->fourthCount);
    const FunctionRecord* record = unit->fourth[at];
    EXPECT_EQ(NameAt(unit, record->nameIndex), expected.name);
    EXPECT_EQ(NameAt(unit, record->declaredNameIndex), expected.declared);
    EXPECT_EQ(record->codeOffset, expected.codeOffset);
    EXPECT_EQ(record->reserved0, 0u);
    EXPECT_EQ(record->reserved1, 0u);
    ASSERT_EQ(record->paramCount, static_cast<int32_t>(expected.params.size()));
    for (size_t i = 0; i < expected.params.size(); i++) {
        EXPECT_EQ(NameAt(unit, record->params[i]), expected.params[i]);
    }
    EXPECT_EQ(PairText(unit, record->locals, record->localCount), expected.locals);
    EXPECT_EQ(record->slotCount, 0u);
    EXPECT_EQ(record->flags, expected.flags);
}

void ExpectRootRecord(const CompileUnit* unit, const char* locals, uint32_t flags) {
    ASSERT_GE(unit->fourthCount, 1);
    ExpectFunction(unit, 0, {"-1", "-1", 0, {}, locals, flags});
    EXPECT_EQ(unit->fourth[0]->params, nullptr);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// if, do, while

TEST(StatementScripts, IfElseBranchesOverTheElseAndTheSeededRecordsComeFirst) {
    CompileUnit* unit = Compiled("if (a) b; else c;");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000005,  // bf else
                       kPushUnresolved, NameRef("b"), kPopzVar, 0xB6000004,         // b endif
                       kPushUnresolved, NameRef("c"), kPopzVar});
    ExpectPositions(unit, {0x00, 4, 0x10, 10, 0x20, 18});
    EXPECT_EQ(Records(unit, unit->vars, unit->varCount),
              (std::vector<std::string>{"prototype 3 none", "@@array@@ 3 none", "arguments 2 none", "a 0 0x0",
                                        "b 0 0x10", "c 0 0x20"}));
    EXPECT_EQ(NameId("a"), 3u);
    EXPECT_EQ(NameId("b"), 4u);
    EXPECT_EQ(NameId("c"), 5u);
    EXPECT_TRUE(FuncRecords(unit).empty());
    EXPECT_TRUE(StringRecords(unit).empty());
    ASSERT_EQ(unit->fourthCount, 1);
    ExpectRootRecord(unit, "", 4);
}

TEST(StatementScripts, IfWithoutElseHasNoBranchToEndif) {
    CompileUnit* unit = Compiled("if (a) b;");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000004, kPushUnresolved, NameRef("b"), kPopzVar});
    ExpectPositions(unit, {0x00, 4, 0x10, 10});
}

TEST(StatementScripts, IfWithBoolConditionIsNotConverted) {
    CompileUnit* unit = Compiled("if (true) ; else b;");
    // The empty then-statement makes no node, so the else-statement is the second child and the
    // if has no third child: no branch to endif.
    ExpectWords(unit, {0xC00F0001, 0xB8000004, kPushUnresolved, NameRef("b"), kPopzVar});
}

TEST(StatementScripts, DoRunsTheBodyFirstAndBranchesBackWithBt) {
    CompileUnit* unit = Compiled("do a; while (b);");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kPopzVar,                      // startdo: body
                       kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB77FFFFA});  // iteratedo: bt startdo
    ExpectPositions(unit, {0x00, 4, 0x00, 6});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"a 0 0x0", "b 0 0xc"}));
}

TEST(StatementScripts, DoWithEmptyBodyCompilesTheFillerToNothingButItsPosition) {
    CompileUnit* unit = Compiled("do ; while (a)");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB77FFFFD});
    // The filler is made at the lexer's position after `while` has been scanned.
    ExpectPositions(unit, {0x00, 4, 0x00, 12});
}

TEST(StatementScripts, ContinueInDoGoesToTheConditionAndBreakPastTheLoop) {
    CompileUnit* unit = Compiled("do { continue; break; } while (a);");
    // startdo: b iteratedo; b enddo; iteratedo: push.v a; conv; bt startdo; enddo:
    ExpectWords(unit, {0xB6000002, 0xB6000005, kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB77FFFFB});
}

TEST(StatementScripts, WhileTestsFirstAndBranchesBackToTheCondition) {
    CompileUnit* unit = Compiled("while (a) { b; }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000005,  // bf endwhile
                       kPushUnresolved, NameRef("b"), kPopzVar, 0xB67FFFF9});        // b startwhile
    ExpectPositions(unit, {0x00, 7, 0x10, 13, 0x10, 15});
}

// ---------------------------------------------------------------------------------------------
// for

TEST(StatementScripts, ForWithEverySlot) {
    CompileUnit* unit = Compiled("for (a = 1; b; c) d;");
    ExpectWords(unit, {0xC00F0001, 0x4525FFF5, NameRef("a"),                         // a = 1 (unresolved store of .i)
                       kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB8000008,     // startfor: bf endfor
                       kPushUnresolved, NameRef("d"), kPopzVar,                       // body
                       kPushUnresolved, NameRef("c"), kPopzVar,                       // iteratefor
                       0xB67FFFF6});                                              // b startfor
    ExpectPositions(unit, {0x00, 5, 0x00, 10, 0x1C, 21});
    // The condition and the body are compiled before the iteration: c is interned last.
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"a 0 0x4", "b 0 0xc", "d 0 0x1c", "c 0 0x28"}));
    EXPECT_LT(NameId("d"), NameId("c"));
}

TEST(StatementScripts, ForWithEverySlotEmpty) {
    CompileUnit* unit = Compiled("for (;;) a;");
    // The absent initializer is a ';' node with its own position pair; the condition reads true.
    ExpectWords(unit, {0xC00F0001, 0xB8000005, kPushUnresolved, NameRef("a"), kPopzVar, 0xB67FFFFB});
    ExpectPositions(unit, {0x00, 5, 0x00, 8, 0x08, 12});
}

TEST(StatementScripts, ForWithoutInitializer) {
    CompileUnit* unit = Compiled("for (; b; c) d;");
    ExpectWords(unit, {kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB8000008, kPushUnresolved, NameRef("d"), kPopzVar,
                       kPushUnresolved, NameRef("c"), kPopzVar, 0xB67FFFF6});
    ExpectPositions(unit, {0x00, 5, 0x00, 8, 0x10, 16});
}

TEST(StatementScripts, ForWithoutCondition) {
    CompileUnit* unit = Compiled("for (a = 1; ; c) d;");
    ExpectWords(unit, {0xC00F0001, 0x4525FFF5, NameRef("a"), 0xC00F0001, 0xB8000008, kPushUnresolved, NameRef("d"), kPopzVar,
                       kPushUnresolved, NameRef("c"), kPopzVar, 0xB67FFFF8});
}

TEST(StatementScripts, ForWithoutIteration) {
    CompileUnit* unit = Compiled("for (a = 1; b; ) d;");
    ExpectWords(unit, {0xC00F0001, 0x4525FFF5, NameRef("a"), kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB8000005,
                       kPushUnresolved, NameRef("d"), kPopzVar, 0xB67FFFF9});
}

TEST(StatementScripts, ForWithoutBody) {
    CompileUnit* unit = Compiled("for (a = 1; b; c);");
    ExpectWords(unit, {0xC00F0001, 0x4525FFF5, NameRef("a"), kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB8000005,
                       kPushUnresolved, NameRef("c"), kPopzVar, 0xB67FFFF9});
    ExpectPositions(unit, {0x00, 5, 0x00, 10});
}

TEST(StatementScripts, ForWithExpressionInitializerDiscardsItsValue) {
    CompileUnit* unit = Compiled("for (a; ; ) ;");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kPopzVar, 0xC00F0001, 0xB8000002, 0xB67FFFFE});
}

TEST(StatementScripts, ForWithVarInitializerIsHoistedAndDeclaredAgainInPlace) {
    CompileUnit* unit = Compiled("for (var i = 0; ; ) {}");
    // Hoisted `var i` (at the for's position), then the for: declaration, store, loop.
    ExpectWords(unit, {kDeclareLocal, NameDecl("i"),
                       kDeclareLocal, NameDecl("i"), 0xC00F0000, 0x4525FFF4, NameRef("i"),
                       0xC00F0001, 0xB8000002, 0xB67FFFFE});
    ExpectPositions(unit, {0x00, 5, 0x08, 5, 0x08, 10, 0x24, 23});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"i 2 0x0", "i 2 0x8", "i 2 0x14"}));
    ExpectRootRecord(unit, "i=i", 0);
}

TEST(StatementScripts, BreakAndContinueInForReachEndAndIteration) {
    CompileUnit* unit = Compiled("for (; a; b) { continue; break; }");
    // startfor: push.v a; conv; bf endfor; b iteratefor; b endfor; iteratefor: push.v b; popz;
    // b startfor; endfor:
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000007, 0xB6000002, 0xB6000005,
                       kPushUnresolved, NameRef("b"), kPopzVar, 0xB67FFFF7});
}

// ---------------------------------------------------------------------------------------------
// for-in

TEST(StatementScripts, ForInWithPlainIdentifier) {
    CompileUnit* unit = Compiled("for (k in o) a;");
    ExpectWords(unit, {kPushUnresolved, NameRef("o"),                                   // 0x00 object
                       kCall1, NameId("@@ForInIterator@@"),                           // 0x08
                       kDupVar, kForInTest, 0xB700000D,                             // 0x10 bt endforin
                       kDupVar, kCall1, NameId("@@ForInIteratorGetNext@@"), kDupVar,  // 0x1C startforin
                       0x4555FFF5, NameRef("k"),                                        // 0x2C store k (unresolved)
                       kForInTest, 0xB7000005,                                      // 0x34 bt endforin
                       kPushUnresolved, NameRef("a"), kPopzVar,                         // 0x3C body
                       0xB67FFFF5,                                                  // 0x48 b startforin
                       kCall1, NameId("@@ForInIteratorDelete@@"), kPopzVar});         // 0x4C endforin
    ExpectPositions(unit, {0x00, 5, 0x3C, 16});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"o 0 0x0", "k 0 0x2c", "a 0 0x3c"}));
    EXPECT_EQ(FuncRecords(unit), (std::vector<std::string>{"@@ForInIterator@@ 0 0x8", "@@ForInIteratorGetNext@@ 0 0x20",
                                                           "@@ForInIteratorDelete@@ 0 0x4c"}));
    ExpectRootRecord(unit, "", 4);
}

TEST(StatementScripts, ForInWithVarDeclaresTheVariableAndStoresItAsLocal) {
    CompileUnit* unit = Compiled("for (var k in o) a;");
    ExpectWords(unit, {kDeclareLocal, NameDecl("k"),                                    // 0x00 hoisted var k
                       kDeclareLocal, NameRef("k"),                                     // 0x08 the loop's own (0xA)
                       kPushUnresolved, NameRef("o"),                                   // 0x10
                       kCall1, NameId("@@ForInIterator@@"),                           // 0x18
                       kDupVar, kForInTest, 0xB700000D,                             // 0x20
                       kDupVar, kCall1, NameId("@@ForInIteratorGetNext@@"), kDupVar,  // 0x2C startforin
                       0x4555FFF4, NameRef("k"),                                        // 0x3C store k (local)
                       kForInTest, 0xB7000005,                                      // 0x44
                       kPushUnresolved, NameRef("a"), kPopzVar,                         // 0x4C body
                       0xB67FFFF5,                                                  // 0x58
                       kCall1, NameId("@@ForInIteratorDelete@@"), kPopzVar});         // 0x5C endforin
    ExpectPositions(unit, {0x00, 5, 0x08, 5, 0x4C, 20});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"k 2 0x0", "k 2 0x8", "o 0 0x10", "k 2 0x3c", "a 0 0x4c"}));
    ExpectRootRecord(unit, "k=k", 4);
}

TEST(StatementScripts, BreakAndContinueInForInReachEndAndNextIteration) {
    CompileUnit* unit = Compiled("for (k in o) { continue; break; }");
    Words words = UnitWords(unit);
    // The body starts after the second bt (0x3C); endforin is at 0x48.
    ASSERT_EQ(words.size(), 21u);
    EXPECT_EQ(words[6], 0xB700000Cu);   // 0x18 -> 0x48
    EXPECT_EQ(words[14], 0xB7000004u);  // 0x38 -> 0x48
    EXPECT_EQ(words[15], 0xB67FFFF8u);  // continue: 0x3C -> 0x1C
    EXPECT_EQ(words[16], 0xB6000002u);  // break: 0x40 -> 0x48
    EXPECT_EQ(words[17], 0xB67FFFF6u);  // 0x44 -> 0x1C
}

// ---------------------------------------------------------------------------------------------
// switch

TEST(StatementScripts, SwitchTestsEveryCaseThenBranchesToDefaultThenToTheEnd) {
    CompileUnit* unit = Compiled("switch (a) { case 1: b; break; default: c; }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"),                 // 0x00 discriminant (.v)
                       kDupVar, 0xC00F0001, 0x15520E00, 0xB7000003,  // 0x08 case 1: bt case
                       0xB6000006,                                // 0x18 b default
                       0xB6000008,                                // 0x1C b endSwitch
                       kPushUnresolved, NameRef("b"), kPopzVar,       // 0x20 case:
                       0xB6000004,                                // 0x2C break
                       kPushUnresolved, NameRef("c"), kPopzVar,       // 0x30 default:
                       kPopzVar});                                // 0x3C endSwitch: startSwitch:
    ExpectPositions(unit, {0x00, 8, 0x20, 24, 0x2C, 31, 0x30, 43});
}

TEST(StatementScripts, SwitchWithoutDefaultAndContinueLandingOnTheFinalPop) {
    CompileUnit* unit = Compiled("switch (a) { case 1: continue; }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kDupVar, 0xC00F0001, 0x15520E00, 0xB7000002,
                       0xB6000002,  // 0x18 b endSwitch
                       0xB6000001,  // 0x1C continue: b startSwitch
                       kPopzVar});  // 0x20
    ExpectPositions(unit, {0x00, 8, 0x1C, 31});
}

TEST(StatementScripts, SwitchOnAConstantDuplicatesAndPopsWithItsType) {
    CompileUnit* unit = Compiled("switch (1) { case 'x': }");
    // dup.i; push.s "x"; set with first type .i and second .s: 0x15 | ((2 << 4 | 6) << 16).
    ExpectWords(unit, {0xC00F0001, 0x86020000, 0xC0060000, NameId("x"), 0x15260E00, 0xB7000002, 0xB6000001,
                       0x9E020000});
    EXPECT_EQ(StringRecords(unit), (std::vector<std::string>{"x 0 0xc"}));
}

TEST(StatementScripts, DefaultFirstIsStillBranchedToAfterTheCases) {
    CompileUnit* unit = Compiled("switch (a) { default: b; case 2: c; }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"),
                       kDupVar, 0xC00F0002, 0x15520E00, 0xB7000006,  // 0x08: bt case (0x2C)
                       0xB6000002,                                   // 0x18: b default (0x20)
                       0xB6000007,                                   // 0x1C: b endSwitch (0x38)
                       kPushUnresolved, NameRef("b"), kPopzVar,          // 0x20 default (falls through)
                       kPushUnresolved, NameRef("c"), kPopzVar,          // 0x2C case
                       kPopzVar});                                   // 0x38
}

// ---------------------------------------------------------------------------------------------
// labels

TEST(StatementScripts, LabelOfTheOuterLoopTakesContinueAndBreakOutOfTheInnerLoop) {
    CompileUnit* unit = Compiled("outer: while (a) { while (b) { continue outer; break outer; } }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000009,  // 0x00 outer loop
                       kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB8000004,  // 0x10 inner loop
                       0xB67FFFF8,                                             // 0x20 continue outer -> 0x00
                       0xB6000003,                                             // 0x24 break outer -> 0x30
                       0xB67FFFFA,                                             // 0x28 b inner start
                       0xB67FFFF5});                                           // 0x2C b outer start
    ExpectPositions(unit, {0x00, 8, 0x00, 14, 0x10, 20, 0x10, 26, 0x20, 32, 0x20, 41, 0x24, 54});
}

TEST(StatementScripts, LabelInsideALoopHasDepthOneAndReachesTheSecondTargets) {
    CompileUnit* unit = Compiled("while (a) { l: while (b) { break l; } }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000008,  // 0x00
                       kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB8000003,  // 0x10
                       0xB6000002,                                             // 0x20 break l -> 0x28
                       0xB67FFFFB,                                             // 0x24
                       0xB67FFFF6});                                           // 0x28
    ExpectPositions(unit, {0x00, 7, 0x10, 13, 0x10, 16, 0x10, 22, 0x20, 28, 0x20, 34});
}

TEST(StatementScripts, LabelOnABlockTakesTheTargetsOfTheLoopInsideIt) {
    // The label's depth is 0, so its targets are the oldest entries: the inner loop's.
    CompileUnit* unit = Compiled("l: { while (a) { continue l; break l; } }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000004,
                       0xB67FFFFC,   // 0x10 continue l -> startwhile
                       0xB6000002,   // 0x14 break l -> endwhile
                       0xB67FFFFA});
    ExpectPositions(unit, {0x00, 4, 0x00, 6, 0x00, 12, 0x10, 18, 0x10, 27, 0x14, 36});
}

TEST(StatementScripts, LabelDefinedBeforeALaterLoopIsFoundByDepth) {
    CompileUnit* unit = Compiled("l: ;\nwhile (a) { break l; }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000003, 0xB6000002, 0xB67FFFFB});
}

// ---------------------------------------------------------------------------------------------
// return, throw, var

TEST(StatementScripts, ReturnAndThrowAtTopLevel) {
    CompileUnit* unit = Compiled("throw a; throw 1; return 1; return;");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kCall1, NameId("@@throw@@"),   // 0x00
                       0xC00F0001, 0x07520000, kCall1, NameId("@@throw@@"),       // 0x10
                       0xC00F0001, 0x07520000, 0x9C050000,                      // 0x20 ret.v
                       0x9C0F0000});                                            // 0x2C ret
    ExpectPositions(unit, {0x00, 7, 0x10, 16, 0x20, 26, 0x2C, 36});
    EXPECT_EQ(FuncRecords(unit), (std::vector<std::string>{"@@throw@@ 0 0x8", "@@throw@@ 0 0x18"}));
}

TEST(StatementScripts, VarWithAndWithoutInitialisersAfterHoisting) {
    CompileUnit* unit = Compiled("var a, b = 2;");
    // Hoisted: var b, var a (b was collected last, so it stands first); then the statement.
    ExpectWords(unit, {kDeclareLocal, NameDecl("b"), kDeclareLocal, NameDecl("a"),   // 0x00, 0x08
                       kDeclareLocal, NameDecl("a"), kDeclareLocal, NameDecl("b"),   // 0x10, 0x18
                       0xC00F0002, 0x4525FFF4, NameRef("b")});                   // 0x20 b = 2
    EXPECT_EQ(NameId("b"), 3u);
    EXPECT_EQ(NameId("a"), 4u);
    ExpectPositions(unit, {0x00, 5, 0x08, 5, 0x10, 5});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"b 2 0x0", "a 2 0x8", "a 2 0x10", "b 2 0x18", "b 2 0x24"}));
    // Buckets: b is in 6, a in 12. The store looked b up, which clears bit 4.
    ExpectRootRecord(unit, "b=b,a=a", 0);
}

TEST(StatementScripts, VarInsideAFunctionIsNotHoisted) {
    CompileUnit* unit = Compiled("function f() { a; var a; }");
    Words words = UnitWords(unit);
    // b endfunc; a is still unresolved where it is read; then the declaration.
    ASSERT_GE(words.size(), 7u);
    EXPECT_EQ(words[0], 0xB6000007u);
    EXPECT_EQ(words[1], kPushUnresolved);
    EXPECT_EQ(words[2], NameRef("a"));
    EXPECT_EQ(words[3], kPopzVar);
    EXPECT_EQ(words[4], kDeclareLocal);
    EXPECT_EQ(words[5], NameDecl("a"));
    EXPECT_EQ(words[6], 0x9C0F0000u);
}

// ---------------------------------------------------------------------------------------------
// function declarations

TEST(StatementScripts, TopLevelFunctionDeclarationWithParametersLocalsAndReturn) {
    CompileUnit* unit = Compiled("function f(p, q) { var v = p; return v; }");
    ExpectWords(unit, {0xB600000B,                                 // 0x00 b endfunc
                       kDeclareLocal, NameDecl("v"),                   // 0x04 var v
                       0xC005FFF3, 0xA0000000,                     // 0x0C p: argument depth 0 slot 0
                       0x4555FFF4, NameRef("v"),                       // 0x14 store v
                       kPushLocal, NameRef("v"), 0x9C050000,           // 0x1C return v
                       0x9C0F0000,                                 // 0x28 endcompile: ret
                       0xC0020000, NameId("f"), 0x07520000,          // 0x2C endfunc: push.i f; conv.i.v
                       kCall1, NameId("@@script_ref@@"),             // 0x38
                       0x4555FFF5, NameDecl("f")});                    // 0x40 top-level: self
    ExpectPositions(unit, {0x00, 10, 0x04, 20, 0x04, 24, 0x1C, 38});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"v 2 0x4", "v 2 0x14", "v 2 0x1c", "f 3 0x40"}));
    EXPECT_EQ(FuncRecords(unit), (std::vector<std::string>{"f 0 0x2c", "@@script_ref@@ 0 0x38"}));
    ASSERT_EQ(unit->fourthCount, 2);
    ExpectRootRecord(unit, "", 4);
    // Buckets: arguments 1, q 8, v 11, p 14. Reading v cleared bit 4; reading a parameter of the
    // function itself sets nothing.
    ExpectFunction(unit, 1, {"f", "f", 4, {"p", "q"}, "f@arguments=arguments,f@q=q,f@v=v,f@p=p", 0});
}

TEST(StatementScripts, FunctionDeclarationOutsideTopLevelModeIsDeclaredAsALocal) {
    CompileUnit* unit = Compiled("function f(p, q) { var v = p; return v; }", false);
    Words words = UnitWords(unit);
    ASSERT_EQ(words.size(), 20u);
    EXPECT_EQ(words[16], kDeclareLocal);
    EXPECT_EQ(words[17], NameDecl("f"));
    EXPECT_EQ(words[18], 0x4555FFF4u);
    EXPECT_EQ(words[19], NameDecl("f"));
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"v 2 0x4", "v 2 0x14", "v 2 0x1c", "f 2 0x40", "f 2 0x48"}));
    ExpectRootRecord(unit, "f=f", 4);
    ExpectFunction(unit, 1, {"f", "f", 4, {"p", "q"}, "f@arguments=arguments,f@q=q,f@v=v,f@p=p", 0});
}

TEST(StatementScripts, NestedFunctionUsingAParameterAndAVariableOfItsParent) {
    CompileUnit* unit = Compiled("function outer(a) {\n  var x;\n  function inner() {\n    a;\n    return x;\n  }\n}\n");
    ExpectWords(unit, {0xB6000015,                                   // 0x00 b endfunc (outer)
                       kDeclareLocal, NameDecl("x"),                     // 0x04 var x
                       0xB6000008,                                   // 0x0C b endfunc (inner)
                       0xC005FFF3, 0xA0000100,                       // 0x10 a: depth 1, slot 0
                       kPopzVar,                                     // 0x18
                       kPushLocal, NameRef("x"), 0x9C050000,             // 0x1C return x
                       0x9C0F0000,                                   // 0x28 ret (inner)
                       0xC0020000, NameId("outer@inner"), 0x07520000,  // 0x2C
                       kCall1, NameId("@@script_ref@@"),               // 0x38
                       kDeclareLocal, NameDecl("inner"),                 // 0x40 inner is a local of outer
                       0x4555FFF4, NameDecl("inner"),                    // 0x48
                       0x9C0F0000,                                   // 0x50 ret (outer)
                       0xC0020000, NameId("outer"), 0x07520000,        // 0x54
                       kCall1, NameId("@@script_ref@@"),               // 0x60
                       0x4555FFF5, NameDecl("outer")});                  // 0x68
    ExpectPositions(unit, {0x00, 10, 0x04, 21, 0x04, 27, 0x0C, 41, 0x10, 51, 0x10, 57, 0x1C, 69});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"x 2 0x4", "x 2 0x1c", "inner 2 0x40", "inner 2 0x48",
                                                          "outer 3 0x68"}));
    EXPECT_EQ(FuncRecords(unit), (std::vector<std::string>{"outer@inner 0 0x2c", "@@script_ref@@ 0 0x38",
                                                           "outer 0 0x54", "@@script_ref@@ 0 0x60"}));
    ASSERT_EQ(unit->fourthCount, 3);
    ExpectRootRecord(unit, "", 4);
    // inner is recorded first (its list entry is made when its body is done).
    ExpectFunction(unit, 1, {"outer@inner", "inner", 0x10, {}, "outer@inner@arguments=arguments", 0});
    // Buckets: arguments 1, inner 6, a 12 then x 12. A parameter used from inner sets 1, a
    // variable used from inner sets 2, and both uses clear 4 out to outer.
    ExpectFunction(unit, 2, {"outer", "outer", 4, {"a"},
                             "outer@arguments=arguments,outer@inner=inner,outer@a=a,outer@x=x", 3});
}

// ---------------------------------------------------------------------------------------------
// try

TEST(StatementScripts, TryCatchFinallyPatchesBothHookOperandsWithByteOffsets) {
    CompileUnit* unit = Compiled("try { a; } catch (e) { b; } finally { c; }");
    ExpectWords(unit, {0xC0020000, 0x00000054, 0x07520000,                // 0x00 finally at 0x54
                       0xC0020000, 0x00000030, 0x07520000,                // 0x0C catch at 0x30
                       0xD9020002, NameId("@@try_hook@@"),                  // 0x18
                       kPushUnresolved, NameRef("a"), kPopzVar,               // 0x20 try block
                       0xB600000A,                                        // 0x2C b finally
                       0x4555FFF5, NameRef("e"),                              // 0x30 catch: store e
                       kCall0, NameId("@@try_unhook@@"),                    // 0x38
                       kPushUnresolved, NameRef("b"), kPopzVar,               // 0x40
                       kCall0, NameId("@@finish_catch@@"),                  // 0x4C
                       kCall0, NameId("@@try_unhook@@"),                    // 0x54 finally:
                       kPushUnresolved, NameRef("c"), kPopzVar,               // 0x5C
                       kCall0, NameId("@@finish_finally@@")});              // 0x68
    ExpectPositions(unit, {0x00, 5, 0x20, 7, 0x20, 9, 0x40, 24, 0x40, 26, 0x5C, 39, 0x5C, 41});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"a 0 0x20", "e 0 0x30", "b 0 0x40", "c 0 0x5c"}));
    EXPECT_EQ(FuncRecords(unit),
              (std::vector<std::string>{"@@try_hook@@ 0 0x18", "@@try_unhook@@ 0 0x38", "@@finish_catch@@ 0 0x4c",
                                        "@@try_unhook@@ 0 0x54", "@@finish_finally@@ 0 0x68"}));
}

TEST(StatementScripts, TryFinallyPatchesOnlyTheFirstHookOperand) {
    CompileUnit* unit = Compiled("try { a; } finally { c; }");
    ExpectWords(unit, {0xC0020000, 0x0000002C, 0x07520000, 0xC0020000, 0xFFFFFFFF, 0x07520000,
                       0xD9020002, NameId("@@try_hook@@"),
                       kPushUnresolved, NameRef("a"), kPopzVar,   // 0x20
                       kCall0, NameId("@@try_unhook@@"),        // 0x2C finally:
                       kPushUnresolved, NameRef("c"), kPopzVar,   // 0x34
                       kCall0, NameId("@@finish_finally@@")});  // 0x40
    ExpectPositions(unit, {0x00, 5, 0x20, 7, 0x20, 9, 0x34, 22, 0x34, 24});
}

TEST(StatementScripts, TryCatchPatchesOnlyTheSecondHookOperand) {
    CompileUnit* unit = Compiled("try { a; } catch (e) { b; }");
    ExpectWords(unit, {0xC0020000, 0xFFFFFFFF, 0x07520000, 0xC0020000, 0x00000030, 0x07520000,
                       0xD9020002, NameId("@@try_hook@@"),
                       kPushUnresolved, NameRef("a"), kPopzVar, 0xB600000A,
                       0x4555FFF5, NameRef("e"), kCall0, NameId("@@try_unhook@@"),
                       kPushUnresolved, NameRef("b"), kPopzVar, kCall0, NameId("@@finish_catch@@"),
                       kCall0, NameId("@@try_unhook@@")});
    ExpectPositions(unit, {0x00, 5, 0x20, 7, 0x20, 9, 0x40, 24, 0x40, 26});
}

TEST(StatementScripts, TryWithoutClausesCompilesTheHookAndTheUnhook) {
    CompileUnit* unit = Compiled("try { }");
    ExpectWords(unit, {0xC0020000, 0xFFFFFFFF, 0x07520000, 0xC0020000, 0xFFFFFFFF, 0x07520000,
                       0xD9020002, NameId("@@try_hook@@"), kCall0, NameId("@@try_unhook@@")});
}

TEST(StatementScripts, CatchVariableOfAFunctionIsStoredAsItsLocal) {
    CompileUnit* unit = Compiled("function f() { var e; try { } catch (e) { } }");
    Words words = UnitWords(unit);
    // b endfunc; var e (0x04); hook (0x0C to 0x2B); b finally (0x2C); catch (0x30): store e.
    ASSERT_GE(words.size(), 20u);
    EXPECT_EQ(words[4], 0xFFFFFFFFu);  // no finally clause
    EXPECT_EQ(words[7], 0x00000030u);  // catch at 0x30
    EXPECT_EQ(words[11], 0xB6000007u);  // -> finally at 0x48
    EXPECT_EQ(words[12], 0x4555FFF4u);
    EXPECT_EQ(words[13], NameRef("e"));
}

// ---------------------------------------------------------------------------------------------
// Messages of the statement compiler, each with its file and line.

TEST(StatementScripts, BreakWithNoContextIsReportedOnItsLineAfterCrLf) {
    EXPECT_EQ(CompileError("var a;\r\n\r\nbreak;"), "Error : test.js(3) : break with no context\n");
}

TEST(StatementScripts, ContinueAtFunctionLevelHasNoContext) {
    EXPECT_EQ(CompileError("function f() {\n  continue;\n}", true, "main", "lib.js"),
              "Error : lib.js(2) : continue with no context\n");
}

TEST(StatementScripts, BreakAtFunctionLevelIsAccepted) {
    CompileUnit* unit = Compiled("function f() { break; }");
    Words words = UnitWords(unit);
    ASSERT_GE(words.size(), 3u);
    EXPECT_EQ(words[0], 0xB6000003u);
    EXPECT_EQ(words[1], 0xB6000001u);  // break -> endcompile
    EXPECT_EQ(words[2], 0x9C0F0000u);
}

TEST(StatementScripts, UnknownLabelIsReportedWithItsName) {
    EXPECT_EQ(CompileError("function f() {\n  while (a) {\n    continue nowhere;\n  }\n}"),
              "Error : test.js(3) : unable to find target label nowhere\n");
}

TEST(StatementScripts, LabelDefinedLaterIsNotYetKnown) {
    EXPECT_EQ(CompileError("while (a) { break l; }\nl: ;"), "Error : test.js(1) : unable to find target label l\n");
}

TEST(StatementScripts, LabelWithoutEnoughContinueTargetsRunsOffTheStack) {
    // Depth 1 from the while around it; the second loop's stack has only one entry.
    EXPECT_EQ(CompileError("while (a) { m: ; }\nwhile (b) {\n  continue m;\n}"),
              "Error : test.js(3) : unable to find target label m\n");
}

TEST(StatementScripts, SecondDefaultIsReportedAtTheSwitchLine) {
    EXPECT_EQ(CompileError("\n\nswitch (a) {\n  default: ;\n  default: ;\n}"),
              "Error : test.js(3) : multiple default clause in switch\n");
}

TEST(StatementScripts, ForInBodyEndingWithBareReturnFailsTheIteratorCheck) {
    EXPECT_EQ(CompileError("var o;\nfor (k in o)\n  return;"),
              "Error : test.js(2) : VM::CompileFor : For-in loop not left with iterator on the stack at the end\n");
}

TEST(StatementScripts, ForInBodyReturningAValuePassesTheIteratorCheck) {
    CompileUnit* unit = Compiled("for (k in o) return 1;");
    EXPECT_EQ(unit->status, 0);
}

// ---------------------------------------------------------------------------------------------
// Hoisting by the compile driver, seen in the emitted code.

TEST(HoistedScripts, SingleFunctionOutsideTopLevelModeGetsNoVarAndPrecedesTheCall) {
    CompileUnit* unit = Compiled("x(); function x(){}", false);
    ExpectWords(unit, {0xB6000002, 0x9C0F0000,                                   // 0x00 x's code
                       0xC0020000, NameId("x"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       kDeclareLocal, NameDecl("x"), 0x4555FFF4, NameDecl("x"),          // 0x1C local x
                       kCall0, NameId("@@GlobalScope@@"),                          // 0x2C x(): scope
                       kPushLocal, NameRef("x"),                                     // 0x34 the local x
                       0x99050000, kPopzVar});                                   // 0x3C
    ExpectPositions(unit, {0x00, 15, 0x04, 20, 0x2C, 4});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"x 2 0x1c", "x 2 0x24", "x 2 0x34"}));
    ExpectRootRecord(unit, "x=x", 0);
    ExpectFunction(unit, 1, {"x", "x", 4, {}, "x@arguments=arguments", 4});
}

TEST(HoistedScripts, SingleFunctionInTopLevelModeIsFoundByNameAtTheCall) {
    CompileUnit* unit = Compiled("x(); function x(){}", true);
    ExpectWords(unit, {0xB6000002, 0x9C0F0000,
                       0xC0020000, NameId("x"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("x"),                                     // 0x1C self x
                       kCall0, NameId("@@GlobalScope@@"),                           // 0x24
                       0xC0020000, NameId("x"), 0x07520000, kCall1, NameId("@@script_ref@@"),  // 0x2C
                       0x99050000, kPopzVar});                                    // 0x40
    EXPECT_EQ(FuncRecords(unit), (std::vector<std::string>{"x 0 0x8", "@@script_ref@@ 0 0x14",
                                                           "@@GlobalScope@@ 0 0x24", "@@script_ref@@ 0 0x38"}));
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"x 3 0x1c"}));
    ExpectRootRecord(unit, "", 4);
}

TEST(HoistedScripts, TwoFunctionsOutsideTopLevelModeGiveTwoVarsForTheFirst) {
    CompileUnit* unit = Compiled("function f(){} function g(){}", false);
    // var f, var f, g, f: all the synthetic declarations at g's position.
    ExpectWords(unit, {kDeclareLocal, NameDecl("f"), kDeclareLocal, NameDecl("f"),        // 0x00
                       0xB6000002, 0x9C0F0000,                                    // 0x10 g
                       0xC0020000, NameId("g"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       kDeclareLocal, NameDecl("g"), 0x4555FFF4, NameDecl("g"),           // 0x2C
                       0xB6000002, 0x9C0F0000,                                    // 0x3C f
                       0xC0020000, NameId("f"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       kDeclareLocal, NameDecl("f"), 0x4555FFF4, NameDecl("f")});         // 0x58
    ExpectPositions(unit, {0x00, 25, 0x08, 25, 0x10, 25, 0x14, 30, 0x3C, 10, 0x40, 15});
    EXPECT_EQ(NameId("f"), 3u);
    ASSERT_EQ(unit->fourthCount, 3);
    // Buckets: g 9, f 15.
    ExpectRootRecord(unit, "g=g,f=f", 4);
    ExpectFunction(unit, 1, {"g", "g", 0x14, {}, "g@arguments=arguments", 4});
    ExpectFunction(unit, 2, {"f", "f", 0x40, {}, "f@arguments=arguments", 4});
}

TEST(HoistedScripts, TwoFunctionsInTopLevelModeAreOnlyReordered) {
    CompileUnit* unit = Compiled("function f(){} function g(){}", true);
    ExpectWords(unit, {0xB6000002, 0x9C0F0000,                                    // 0x00 g
                       0xC0020000, NameId("g"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("g"),                                     // 0x1C
                       0xB6000002, 0x9C0F0000,                                    // 0x24 f
                       0xC0020000, NameId("f"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("f")});                                   // 0x40
    ExpectPositions(unit, {0x00, 25, 0x04, 30, 0x24, 10, 0x28, 15});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"g 3 0x1c", "f 3 0x40"}));
}

TEST(HoistedScripts, ThreeFunctionsOutsideTopLevelModeDeclareAllButTheLast) {
    CompileUnit* unit = Compiled("function f(){} function g(){} function h(){}", false);
    // Step 2 gives var f, var g, h, g, f; collecting adds var g, var f in front of those.
    Words words = UnitWords(unit);
    ASSERT_EQ(words.size(), 41u);
    EXPECT_EQ((Words{words[0], words[1], words[2], words[3], words[4], words[5], words[6], words[7]}),
              (Words{kDeclareLocal, NameDecl("g"), kDeclareLocal, NameDecl("f"), kDeclareLocal, NameDecl("f"), kDeclareLocal,
                     NameDecl("g")}));
    EXPECT_EQ(NameId("g"), 3u);
    EXPECT_EQ(NameId("f"), 4u);
    ExpectPositions(unit, {0x00, 40, 0x08, 40, 0x10, 40, 0x18, 40, 0x20, 40, 0x24, 45, 0x4C, 25, 0x50, 30, 0x78,
                           10, 0x7C, 15});
    ASSERT_EQ(unit->fourthCount, 4);
    EXPECT_EQ(NameAt(unit, unit->fourth[1]->nameIndex), "h");
    EXPECT_EQ(unit->fourth[1]->codeOffset, 0x24u);
    EXPECT_EQ(NameAt(unit, unit->fourth[2]->nameIndex), "g");
    EXPECT_EQ(unit->fourth[2]->codeOffset, 0x50u);
    EXPECT_EQ(NameAt(unit, unit->fourth[3]->nameIndex), "f");
    EXPECT_EQ(unit->fourth[3]->codeOffset, 0x7Cu);
}

TEST(HoistedScripts, FunctionAtTheHeadOutsideTopLevelModeStillGetsItsVarsInFront) {
    CompileUnit* unit = Compiled("function f(){} var a;", false);
    ExpectWords(unit, {kDeclareLocal, NameDecl("a"),                                  // hoisted var a
                       0xB6000002, 0x9C0F0000,
                       0xC0020000, NameId("f"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       kDeclareLocal, NameDecl("f"), 0x4555FFF4, NameDecl("f"),
                       kDeclareLocal, NameDecl("a")});
    ExpectPositions(unit, {0x00, 10, 0x08, 10, 0x0C, 15, 0x34, 20});
}

TEST(HoistedScripts, VarsInNestedBlocksAreCollectedInOrderButNotThoseInFunctions) {
    CompileUnit* unit = Compiled("if (c) { var a = 1; } var b; function h() { var z; }");
    ExpectWords(unit, {kDeclareLocal, NameDecl("b"), kDeclareLocal, NameDecl("a"),        // 0x00 hoisted
                       0xB6000004, kDeclareLocal, NameDecl("z"), 0x9C0F0000,          // 0x10 h
                       0xC0020000, NameId("h"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("h"),                                     // 0x34
                       kPushUnresolved, NameRef("c"), kConvVarToBool, 0xB8000006,     // 0x3C if
                       kDeclareLocal, NameDecl("a"), 0xC00F0001, 0x4525FFF4, NameRef("a"),  // 0x4C
                       kDeclareLocal, NameDecl("b")});                                // 0x60
    ExpectPositions(unit, {0x00, 39, 0x08, 39, 0x10, 39, 0x14, 45, 0x14, 49, 0x3C, 4, 0x4C, 10, 0x4C, 14,
                           0x60, 27});
    EXPECT_EQ(NameId("b"), 3u);
    EXPECT_EQ(NameId("a"), 4u);
    EXPECT_EQ(NameIndex("h@z") >= 0, true);
    ExpectRootRecord(unit, "b=b,a=a", 0);
    // Buckets: z 0, arguments 1.
    ExpectFunction(unit, 1, {"h", "h", 0x14, {}, "h@z=z,h@arguments=arguments", 4});
}

TEST(HoistedScripts, DuplicateVarsAreAllDeclared) {
    CompileUnit* unit = Compiled("var a; var a;");
    ExpectWords(unit, {kDeclareLocal, NameDecl("a"), kDeclareLocal, NameDecl("a"), kDeclareLocal, NameDecl("a"), kDeclareLocal,
                       NameDecl("a")});
    ExpectPositions(unit, {0x00, 5, 0x08, 5, 0x10, 5, 0x18, 12});
    ExpectRootRecord(unit, "a=a", 4);
}

TEST(HoistedScripts, VarsInsideLoopsSwitchesAndTryAreCollected) {
    CompileUnit* unit = Compiled("while (0) { var w; } switch (0) { case 0: var s; } try { var t; } catch (e) { var m; }");
    Words words = UnitWords(unit);
    // Collected w, s, t, m; inserted in that order, so m stands first.
    ASSERT_GE(words.size(), 8u);
    EXPECT_EQ((Words{words[0], words[1], words[2], words[3], words[4], words[5], words[6], words[7]}),
              (Words{kDeclareLocal, NameDecl("m"), kDeclareLocal, NameDecl("t"), kDeclareLocal, NameDecl("s"), kDeclareLocal,
                     NameDecl("w")}));
}

TEST(HoistedScripts, EmptyProgramHasNoCodeAndNoPositions) {
    CompileUnit* unit = Compiled("  // nothing\n");
    EXPECT_EQ(unit->codeSize, 0);
    EXPECT_EQ(unit->code2Size, 0);
    ASSERT_EQ(unit->fourthCount, 1);
    ExpectRootRecord(unit, "", 4);
}

// ---------------------------------------------------------------------------------------------
// Corners of the statement forms.

TEST(StatementScripts, IfAndWhileWithEmptyBodiesCompileNothingForThem) {
    CompileUnit* unit = Compiled("if (a); while (b);");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB8000001,              // else: right after
                       kPushUnresolved, NameRef("b"), kConvVarToBool, 0xB8000002, 0xB67FFFFC});
}

TEST(StatementScripts, ThrowWithoutValueConvertsTheEmptyTypeStack) {
    CompileUnit* unit = Compiled("throw;");
    ExpectWords(unit, {0x075F0000, kCall1, NameId("@@throw@@")});
}

TEST(StatementScripts, DeleteStatementStoresTypeEightAndDiscards) {
    CompileUnit* unit = Compiled("delete a;");
    ExpectWords(unit, {0x4585FFF5, NameRef("a"), kPopzVar});
}

TEST(StatementScripts, WithIsNotAStatementTheCompilerKnows) {
    EXPECT_EQ(CompileError("\nwith (o) a;"), "Error : test.js(2) : VM::CompileExpression : Unhandled node type - with\n");
}

TEST(StatementScripts, ForInOverAnAssignmentTargetIsMalformed) {
    // NoIn stops the initializer before `in`, so the loop variable is the '=' node.
    EXPECT_EQ(CompileError("for (x = a in b) ;"), "Error : test.js(1) : Assignment error - left hand side is malformed\n");
}

TEST(StatementScripts, ClassicLoopInsideForInPopsTheIteratorsTypeWithItsEmptyIteration) {
    // The inner loop's empty iteration pushes no type, so its pop takes the iterator's entry and
    // writes popz.v; the for-in check then finds no iterator type.
    EXPECT_EQ(CompileError("for (k in o)\n  for (;;) ;"),
              "Error : test.js(1) : VM::CompileFor : For-in loop not left with iterator on the stack at the end\n");
}

TEST(StatementScripts, ParenthesisedFunctionExpressionStatementIsHoistedAndCompiledAsADeclaration) {
    // The statement's node is the function node itself; its name slot is the placeholder "(".
    CompileUnit* unit = Compiled("x; (function () {});");
    ExpectWords(unit, {0xB6000002, 0x9C0F0000,
                       0xC0020000, NameId("("), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("("),
                       kPushUnresolved, NameRef("x"), kPopzVar});
}

TEST(StatementScripts, ArgumentsInsideAFunctionSetsBitOneAndClearsBitFour) {
    CompileUnit* unit = Compiled("function f(p) { arguments; }\nfunction g(p) { p; }");
    // g is hoisted in front of f.
    ASSERT_EQ(unit->fourthCount, 3);
    ExpectFunction(unit, 1, {"g", "g", 4, {"p"}, "g@arguments=arguments,g@p=p", 4});
    ExpectFunction(unit, 2, {"f", "f", 0x34, {"p"}, "f@arguments=arguments,f@p=p", 1});
    Words words = UnitWords(unit);
    ASSERT_GE(words.size(), 15u);
    EXPECT_EQ(words[1], 0xC005FFF3u);  // p of g: argument depth 0 slot 0
    EXPECT_EQ(words[2], 0xA0000000u);
    EXPECT_EQ(words[13], kPushLocal);   // arguments of f (0x34): a plain local
    EXPECT_EQ(words[14], 0xA0000002u);
}

TEST(StatementScripts, ArgumentsAtTopLevelIsAnUnresolvedName) {
    CompileUnit* unit = Compiled("arguments;");
    ExpectWords(unit, {kPushUnresolved, 0xA0000002, kPopzVar});
    EXPECT_EQ(VarRecords(unit), (std::vector<std::string>{"arguments 0 0x0"}));
    ExpectRootRecord(unit, "", 4);
}

TEST(StatementScripts, ArgumentsOfAnInnerFunctionIsItsOwn) {
    CompileUnit* unit = Compiled("function f() { function g() { arguments; } }");
    ASSERT_EQ(unit->fourthCount, 3);
    ExpectFunction(unit, 1, {"f@g", "g", 8, {}, "f@g@arguments=arguments", 1});
    ExpectFunction(unit, 2, {"f", "f", 4, {}, "f@arguments=arguments,f@g=g", 4});
}

TEST(StatementScripts, ContinueInsideAFunctionInsideALoopTakesTheLoopsTarget) {
    // A function pushes only a break target, so `continue` in its body finds the loop around it.
    CompileUnit* unit = Compiled("while (a) { function f() { continue; } }");
    ExpectWords(unit, {kPushUnresolved, NameRef("a"), kConvVarToBool, 0xB800000C,    // 0x00
                       0xB6000003,                                              // 0x10 b endfunc
                       0xB67FFFFB,                                              // 0x14 continue -> 0x00
                       0x9C0F0000,                                              // 0x18
                       0xC0020000, NameId("f"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("f"),                                   // 0x30
                       0xB67FFFF2});                                            // 0x38
}

TEST(HoistedScripts, VarsOfAForHeadComeBeforeThoseOfItsBody) {
    CompileUnit* unit = Compiled("for (var i = 0; ; ) { var j; }");
    Words words = UnitWords(unit);
    ASSERT_GE(words.size(), 4u);
    // Collected i, j: j ends in front.
    EXPECT_EQ((Words{words[0], words[1], words[2], words[3]}), (Words{kDeclareLocal, NameDecl("j"), kDeclareLocal, NameDecl("i")}));
}

TEST(HoistedScripts, AnyNonZeroFlagSelectsTopLevelMode) {
    EnsureLibraryInitialised();
    CompileUnit* unit = VeltJS_Parse("function f(){}", "test.js", "main");
    ASSERT_EQ(unit->status, 0);
    VeltJS_Compile(unit, 2);
    ASSERT_EQ(unit->status, 0);
    ExpectWords(unit, {0xB6000002, 0x9C0F0000, 0xC0020000, NameId("f"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("f")});
}

TEST(HoistedScripts, SecondCompileOfAUnitStartsFromTheParsersFirstStatement) {
    EnsureLibraryInitialised();
    CompileUnit* unit = VeltJS_Parse("b; function f(){}", "test.js", "main");
    ASSERT_EQ(unit->status, 0);
    VeltJS_Compile(unit, 1);
    ASSERT_EQ(unit->status, 0);
    ExpectWords(unit, {0xB6000002, 0x9C0F0000, 0xC0020000, NameId("f"), 0x07520000, kCall1, NameId("@@script_ref@@"),
                       0x4555FFF5, NameDecl("f"), kPushUnresolved, NameRef("b"), kPopzVar});
    // The function now stands in front of `b`, which the root block still names as its first.
    VeltJS_Compile(unit, 1);
    ASSERT_EQ(unit->status, 0);
    ExpectWords(unit, {kPushUnresolved, NameRef("b"), kPopzVar});
    EXPECT_EQ(unit->fourthCount, 1);
    EXPECT_EQ(unit->varCount, 1);
}
