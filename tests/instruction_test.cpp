#include <gtest/gtest.h>

#include "bytecode/instruction.h"

TEST(Instruction, ShortPushCarriesItsValueInTheSmallField) {
    uint32_t word = MakeWord1(OP_PUSH, TYPE_SHORT, static_cast<uint32_t>(-5));
    EXPECT_EQ(word, 0xC00FFFFBu);
    EXPECT_EQ(InstructionLength(word), 4u);
}

TEST(Instruction, BranchToItselfHasOffsetZeroAndToThePreviousWordAllOnes) {
    EXPECT_EQ(MakeBranch(OP_B, 0), 0xB6000000u);
    EXPECT_EQ(MakeBranch(OP_BT, -1), 0xB77FFFFFu);
    EXPECT_EQ(MakeBranch(OP_BF, 3), 0xB8000003u);
}

TEST(Instruction, CallWithOperandIsEightBytes) {
    EXPECT_EQ(MakeWord1(OP_CALL, TYPE_INT, 3), 0xD9020003u);
    EXPECT_EQ(InstructionLength(0xD9020003u), 8u);
}

TEST(Instruction, LengthFollowsTheOperandBitAndFirstType) {
    EXPECT_EQ(InstructionLength(0xC0000000u), 12u);  // push.d
    EXPECT_EQ(InstructionLength(0xC0030000u), 12u);  // push.l
    EXPECT_EQ(InstructionLength(0xC0010000u), 8u);   // push.f
    EXPECT_EQ(InstructionLength(0xC0060000u), 8u);   // push.s
    EXPECT_EQ(InstructionLength(0xC0070000u), 4u);   // no operand for types 7-15
    EXPECT_EQ(InstructionLength(0x45050000u), 8u);   // pop.v.v
    EXPECT_EQ(InstructionLength(0x9C0F0000u), 4u);   // ret
    EXPECT_EQ(InstructionLength(0xFF020000u), 8u);   // break has an operand
    EXPECT_EQ(InstructionLength(0xB6000005u), 4u);
}

TEST(Instruction, UndefinedOpcodeStillHasALength) {
    EXPECT_EQ(InstructionLength(0x06000000u), 4u);
    EXPECT_STREQ(OpcodeMnemonic(0x06), "unknown");
    for (uint32_t opcode = 0; opcode <= 4; opcode++) EXPECT_STREQ(OpcodeMnemonic(opcode), "unknown");
}

TEST(Instruction, TwoTypeWordsPutTheSecondTypeAbove) {
    EXPECT_EQ(MakeWord(OP_ADD, TYPE_INT, TYPE_VARIABLE, 0x0100), 0x0C520100u);
    EXPECT_EQ(MakeWord(OP_CONV, TYPE_INT, TYPE_VARIABLE, 0), 0x07520000u);
    EXPECT_EQ(MakeWord(OP_SET, TYPE_VARIABLE, 9, CMP_SEQ << 8), 0x15950E00u);
}

TEST(Instruction, MnemonicsAndSuffixes) {
    EXPECT_STREQ(OpcodeMnemonic(OP_CALLV), "call");
    EXPECT_STREQ(OpcodeMnemonic(OP_CALL), "call");
    EXPECT_STREQ(OpcodeMnemonic(OP_PUSHENV), "pushenv");
    EXPECT_STREQ(OpcodeMnemonic(OP_BREAK), "break");
    EXPECT_STREQ(TypeSuffix(TYPE_SHORT), ".e");
    EXPECT_STREQ(TypeSuffix(TYPE_STRING), ".s");
    for (uint32_t type = 7; type <= 14; type++) EXPECT_STREQ(TypeSuffix(type), "");
}

TEST(Instruction, OpcodeTableGivesEveryMnemonicAndNoOtherValueHasOne) {
    int known = 0;
    for (uint32_t value = 0; value < 256; value++) {
        const OpcodeEntry* row = nullptr;
        for (const OpcodeEntry& entry : kOpcodeTable) {
            if (entry.value == value) row = &entry;
        }
        if (row) {
            EXPECT_STREQ(OpcodeMnemonic(value), row->mnemonic) << value;
            known++;
        } else {
            EXPECT_STREQ(OpcodeMnemonic(value), "unknown") << value;
        }
    }
    EXPECT_EQ(known, 35);
}

TEST(Instruction, OpcodeTableRowsReadAsTheirWordsDo) {
    for (const OpcodeEntry& entry : kOpcodeTable) {
        uint32_t word = entry.value << 24 | TYPE_INT << 16;
        EXPECT_EQ(InstructionLength(word), entry.operand == kOperandByType ? 8u : 4u) << entry.mnemonic;
        EXPECT_EQ(IsBranch(entry.value), entry.types == kBranch) << entry.mnemonic;
        EXPECT_EQ(TypeLayoutOf(entry.value), entry.types) << entry.mnemonic;
    }
    EXPECT_EQ(TypeLayoutOf(0x06), kTwoTypes);
    EXPECT_EQ(TypeLayoutOf(0xA0), kBranch);
    EXPECT_EQ(TypeLayoutOf(0xE0), kNoTypes);
}
