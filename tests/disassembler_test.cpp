#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "state/process_state.h"
#include "veltjs.h"

namespace {

std::string Listing(const std::vector<uint32_t>& words, int64_t length = -1) {
    char* text = VeltJS_Disasm(words.data(), length < 0 ? static_cast<int64_t>(words.size() * 4) : length);
    if (!text) return "<null>";
    std::string result(text);
    std::free(text);
    return result;
}

// Words as the code buffer stores them, with a word at byte position `at`.
std::vector<uint32_t> At(uint32_t at, std::initializer_list<uint32_t> words) {
    std::vector<uint32_t> code(at / 4, 0);
    code.insert(code.end(), words);
    return code;
}

std::string LineAt(const std::string& listing, uint32_t position) {
    char prefix[16];
    std::snprintf(prefix, sizeof prefix, "%08x : ", position);
    size_t start = listing.find(prefix);
    if (start == std::string::npos) return "<missing>";
    return listing.substr(start, listing.find('\n', start) - start + 1);
}

void NamesUpTo(int count) {
    static const char* const kNames[] = {"n0", "n1", "n2", "n3", "n4", "foo", "n6", "n7", "n8", "n9"};
    for (int i = 0; i < count; i++) PushName(kNames[i]);
}

}  // namespace

TEST(Disassembler, SamplePushInt) {
    EXPECT_EQ(Listing({0xC0020000u, 7u}), "00000000 : 000002c007000000         push.i    7\n");
}

TEST(Disassembler, SampleBackwardBranch) {
    EXPECT_EQ(LineAt(Listing(At(0x10, {0xB67FFFFDu})), 0x10),
              "00000010 : fdff7fb6                 b         0x00000004\n");
}

TEST(Disassembler, SampleConversionEndsInPaddingSpaces) {
    EXPECT_EQ(LineAt(Listing(At(8, {0x07520000u})), 8), "00000008 : 00005207                 conv.i.v  \n");
}

TEST(Disassembler, SampleCallByName) {
    NamesUpTo(6);
    EXPECT_EQ(LineAt(Listing(At(0x20, {0xD9020003u, 5u})), 0x20),
              "00000020 : 030002d905000000         call.i    foo\n");
}

TEST(Disassembler, SamplePushDouble) {
    EXPECT_EQ(LineAt(Listing(At(0x28, {0xC0000000u, 0u, 0x3FF80000u})), 0x28),
              "00000028 : 000000c0000000000000f83f push.d    1.500000\n");
}

TEST(Disassembler, LengthZeroOrNegativeGivesNull) {
    EXPECT_EQ(VeltJS_Disasm(nullptr, 0), nullptr);
    uint32_t word = 0x9C0F0000u;
    EXPECT_EQ(VeltJS_Disasm(&word, -4), nullptr);
    EXPECT_EQ(VeltJS_Disasm(&word, 0), nullptr);
}

TEST(Disassembler, LengthOneToFourPrintsExactlyOneLine) {
    std::vector<uint32_t> code = {0x9C0F0000u, 0x9C050000u};
    for (int64_t length = 1; length <= 4; length++) {
        EXPECT_EQ(Listing(code, length), "00000000 : 00000f9c                 ret.e     \n") << length;
    }
}

TEST(Disassembler, LastInstructionIsPrintedWholeBeyondTheLength) {
    EXPECT_EQ(Listing({0xC0020000u, 42u}, 4), "00000000 : 000002c02a000000         push.i    42\n");
}

TEST(Disassembler, CallOperandOfAHundredThousandOrMorePrintsTheNumber) {
    NamesUpTo(6);
    EXPECT_EQ(Listing({0xD9020000u, 100000u}), "00000000 : 000002d9a0860100         call.i    100000\n");
}

TEST(Disassembler, NegativeCallOperandPrintsUnknown) {
    EXPECT_EQ(Listing({0xD9020000u, 0xFFFFFFFFu}), "00000000 : 000002d9ffffffff         call.i    <unknown>\n");
}

TEST(Disassembler, CallOperandAtTheCountPrintsUnknown) {
    NamesUpTo(3);
    EXPECT_EQ(Listing({0xD9020001u, 3u}), "00000000 : 010002d903000000         call.i    <unknown>\n");
}

TEST(Disassembler, StringIndexEqualToTheCountReadsThatSlot) {
    NamesUpTo(2);
    EXPECT_EQ(Listing({0xC0060000u, 2u}), "00000000 : 000006c002000000         push.s    \"(null)\"\n");
    VeltJS_AddName("placed", 2);
    EXPECT_EQ(Listing({0xC0060000u, 2u}), "00000000 : 000006c002000000         push.s    \"placed\"\n");
}

TEST(Disassembler, StringIndexBeyondTheCountPrintsNull) {
    NamesUpTo(2);
    EXPECT_EQ(Listing({0xC0060000u, 1u}), "00000000 : 000006c001000000         push.s    \"n1\"\n");
    EXPECT_EQ(Listing({0xC0060000u, 3u}), "00000000 : 000006c003000000         push.s    \"(null)\"\n");
    EXPECT_EQ(Listing({0xC0060000u, 0xFFFFFFFFu}), "00000000 : 000006c0ffffffff         push.s    \"(null)\"\n");
}

TEST(Disassembler, TwelveByteInstructionFillsTheHexColumnToThirtyFive) {
    std::string line = Listing({0xC0030000u, 5u, 0u});
    EXPECT_EQ(line, "00000000 : 000003c00500000000000000 push.l    5\n");
    EXPECT_EQ(line.find("push"), 36u);
}

TEST(Disassembler, ReturnWordPrintsItsSuffixButNoValue) {
    EXPECT_EQ(Listing({0x9C0F0000u}), "00000000 : 00000f9c                 ret.e     \n");
}

TEST(Disassembler, ShortPushPrintsTheSignedSmallField) {
    EXPECT_EQ(Listing({0xC00FFFFBu}), "00000000 : fbff0fc0                 push.e    -5\n");
    EXPECT_EQ(Listing({0xC00F7FFEu}), "00000000 : fe7f0fc0                 push.e    32766\n");
}

TEST(Disassembler, BooleanFallsThroughIntoTheVariableForm) {
    NamesUpTo(2);
    EXPECT_EQ(Listing({0xC0040000u, 1u}), "00000000 : 000004c001000000         push.b    true$n1$\n");
    EXPECT_EQ(Listing({0xC0040000u, 0u}), "00000000 : 000004c000000000         push.b    false$n0$\n");
    EXPECT_EQ(Listing({0xC0040000u, 7u}), "00000000 : 000004c007000000         push.b    false$<unknown>$\n");
}

TEST(Disassembler, VariableOperandMasksTheTopNibble) {
    NamesUpTo(2);
    EXPECT_EQ(Listing({0xC005FFF5u, 0xA0000001u}), "00000000 : f5ff05c0010000a0         push.v    $n1$\n");
    EXPECT_EQ(Listing({0x4595FFF4u, 0xB0000005u}), "00000000 : f4ff9545050000b0         pop.v   $<unknown>$\n");
}

TEST(Disassembler, TypesSevenToFourteenHaveEmptySuffixesAndCountTwoColumns) {
    // Column 36 + mnemonic + 2 per suffix, padded to 46.
    EXPECT_EQ(Listing({0x86070000u}), "00000000 : 00000786                 dup     \n");
    EXPECT_EQ(Listing({0x07780000u}), "00000000 : 00007807                 conv  \n");
    EXPECT_EQ(Listing({0xC0080000u}), "00000000 : 000008c0                 push    \n");
}

TEST(Disassembler, FloatOperandWidensToDouble) {
    EXPECT_EQ(Listing({0xC0010000u, 0x3FC00000u}), "00000000 : 000001c00000c03f         push.f    1.500000\n");
}

TEST(Disassembler, UnknownOpcodesAreSteppedOverByTheLengthRule) {
    EXPECT_EQ(Listing({0x06000000u, 0x01000000u, 0x41000000u, 0u, 0u}),
              "00000000 : 00000006                 unknown.d.d\n"
              "00000004 : 00000001                 unknown.d.d\n"
              "00000008 : 000000410000000000000000 unknown.d.d0.000000\n");
}

TEST(Disassembler, BranchTargetsForwardAndBackward) {
    EXPECT_EQ(Listing({0xB8000002u, 0u, 0xB77FFFFEu}),
              "00000000 : 020000b8                 bf        0x00000008\n"
              "00000004 : 00000000                 unknown.d.d\n"
              "00000008 : feff7fb7                 bt        0x00000000\n");
}

TEST(Disassembler, BranchWithoutTypeSuffixAndEnvironmentOpcodes) {
    EXPECT_EQ(Listing({0xBA000001u}), "00000000 : 010000ba                 pushenv   0x00000004\n");
}

TEST(Disassembler, LongAndTwoTypeWords) {
    EXPECT_EQ(Listing({0xC0030000u, 0xFFFFFFFFu, 0xFFFFFFFFu}),
              "00000000 : 000003c0ffffffffffffffff push.l    -1\n");
    EXPECT_EQ(Listing({0x0C520100u}), "00000000 : 0001520c                 add.i.v   \n");
    EXPECT_EQ(Listing({0x15950E00u}), "00000000 : 000e9515                 set.v   \n");
}

TEST(Disassembler, BreakOpcodeHasOperandButNoSuffix) {
    EXPECT_EQ(Listing({0xFF020000u, 12u}), "00000000 : 000002ff0c000000         break     12\n");
}
