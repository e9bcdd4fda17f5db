#include <gtest/gtest.h>

#include "bytecode/code_buffer.h"

TEST(CodeBuffer, NewBufferHas256BytesAndNothingWritten) {
    VMWriteBuffer* buffer = CreateWriteBuffer();
    EXPECT_EQ(buffer->size, 256);
    EXPECT_NE(buffer->data, nullptr);
    EXPECT_EQ(CurrentOffset(*buffer), 0);
    delete buffer;
}

TEST(CodeBuffer, SixtyFourWordsFillItExactlyAndTheNextDoubles) {
    VMWriteBuffer* buffer = CreateWriteBuffer();
    for (uint32_t i = 0; i < 64; i++) WriteWords(*buffer, {i});
    EXPECT_EQ(buffer->size, 256);
    EXPECT_EQ(CurrentOffset(*buffer), 256);
    WriteWords(*buffer, {64});
    EXPECT_EQ(buffer->size, 512);
    EXPECT_EQ(CurrentOffset(*buffer), 260);
    for (uint32_t i = 0; i <= 64; i++) EXPECT_EQ(ReadWord(*buffer, i * 4), i);
    delete buffer;
}

TEST(CodeBuffer, TwoHundredWordsInOneCallGrowTwice) {
    VMWriteBuffer* buffer = CreateWriteBuffer();
    WriteWords(*buffer, {
#define W8 0xABCD0123u, 0xABCD0123u, 0xABCD0123u, 0xABCD0123u, 0xABCD0123u, 0xABCD0123u, 0xABCD0123u, 0xABCD0123u
        W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8, W8
#undef W8
    });
    EXPECT_EQ(buffer->size, 1024);
    EXPECT_EQ(CurrentOffset(*buffer), 800);
    EXPECT_EQ(ReadWord(*buffer, 796), 0xABCD0123u);
    delete buffer;
}

TEST(CodeBuffer, WordsAreStoredLittleEndian) {
    VMWriteBuffer* buffer = CreateWriteBuffer();
    WriteWords(*buffer, {0xC0020000u, 7u});
    const uint8_t expected[8] = {0x00, 0x00, 0x02, 0xC0, 0x07, 0x00, 0x00, 0x00};
    for (int i = 0; i < 8; i++) EXPECT_EQ(buffer->data[i], expected[i]) << i;
    delete buffer;
}

TEST(CodeBuffer, FinishedWithoutWritesHasSizeZeroAndData) {
    VMWriteBuffer* buffer = CreateWriteBuffer();
    FinishBuffer(*buffer);
    EXPECT_EQ(buffer->size, 0);
    EXPECT_NE(buffer->data, nullptr);
    delete buffer;
}

TEST(CodeBuffer, FinishedSizeIsOnePastTheLastInstruction) {
    VMWriteBuffer* buffer = CreateWriteBuffer();
    WriteWords(*buffer, {0xC0000000u, 0u, 0x3FF80000u});
    WriteWords(*buffer, {0x9C0F0000u});
    FinishBuffer(*buffer);
    EXPECT_EQ(buffer->size, 16);
    delete buffer;
}

TEST(CodeBuffer, PatchRewritesAWordInPlace) {
    VMWriteBuffer* buffer = CreateWriteBuffer();
    WriteWords(*buffer, {0xB6000000u, 1u});
    PatchWord(*buffer, 0, 0xB6000002u);
    EXPECT_EQ(ReadWord(*buffer, 0), 0xB6000002u);
    EXPECT_EQ(ReadWord(*buffer, 4), 1u);
    delete buffer;
}
