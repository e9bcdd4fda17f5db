#include <gtest/gtest.h>

#include <cstdlib>

#include "bytecode/code_buffer.h"
#include "helpers/mappings.h"

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

// A finished buffer's words are copied to the arena, and the block they were written in is left
// for the next buffer, which writes into it from the start.
TEST(CodeBuffer, AFinishedBufferKeepsACopyInTheArenaAndLeavesItsBlockForTheNext) {
    Arena records{};
    SpareBlock spare{nullptr, 0};
    VMWriteBuffer* first = CreateWriteBufferFrom(spare);
    EXPECT_EQ(first->size, 256);
    for (uint32_t i = 0; i < 100; i++) WriteWords(*first, {i * 3});
    uint8_t* block = first->data;
    int64_t capacity = first->size;
    uint8_t* copy = CopyWritten(*first, records);
    ASSERT_NE(copy, nullptr);
    FinishWithCopy(*first, copy, spare);
    EXPECT_EQ(first->data, copy);
    EXPECT_EQ(first->size, 400);
    for (uint32_t i = 0; i < 100; i++) EXPECT_EQ(ReadWord(*first, i * 4), i * 3);
    EXPECT_EQ(spare.data, block);
    EXPECT_EQ(spare.size, capacity);

    VMWriteBuffer* second = CreateWriteBufferFrom(spare);
    EXPECT_EQ(second->data, block);
    EXPECT_EQ(second->size, capacity);
    EXPECT_EQ(CurrentOffset(*second), 0);
    EXPECT_EQ(spare.data, nullptr);
    WriteWords(*second, {7u});
    // The first buffer's words are its own.
    EXPECT_EQ(ReadWord(*first, 0), 0u);
    EXPECT_EQ(ReadWord(*second, 0), 7u);
    // Deleting a buffer whose data is in the arena frees only its own block, if any.
    delete first;
    delete second;
}

TEST(CodeBuffer, ABufferTooLargeToCarveKeepsItsOwnBlock) {
    Arena records{};
    SpareBlock spare{nullptr, 0};
    VMWriteBuffer* buffer = CreateWriteBufferFrom(spare);
    uint32_t words = static_cast<uint32_t>(kArenaLargestCarvedBlock / 4) + 1;
    for (uint32_t i = 0; i < words; i++) WriteWords(*buffer, {i});
    uint8_t* block = buffer->data;
    uint8_t* copy = CopyWritten(*buffer, records);
    EXPECT_EQ(copy, nullptr);
    FinishWithCopy(*buffer, copy, spare);
    EXPECT_EQ(buffer->data, block);
    EXPECT_EQ(buffer->size, static_cast<int64_t>(words) * 4);
    EXPECT_EQ(ReadWord(*buffer, (words - 1) * 4), words - 1);
    EXPECT_EQ(spare.data, nullptr);
    delete buffer;
}

TEST(CodeBuffer, AnEmptyFinishedBufferStillHasData) {
    Arena records{};
    SpareBlock spare{nullptr, 0};
    VMWriteBuffer* buffer = CreateWriteBufferFrom(spare);
    FinishWithCopy(*buffer, CopyWritten(*buffer, records), spare);
    EXPECT_EQ(buffer->size, 0);
    EXPECT_NE(buffer->data, nullptr);
    EXPECT_NE(spare.data, nullptr);
    delete buffer;
    std::free(spare.data);
}

// The code of a script of megabytes: past kMappedBlockMin the buffer is, on Linux, a mapped block
// that grows without copying; finished, it keeps every word and gives back the pages past them.
TEST(CodeBuffer, ABufferOfMegabytesKeepsEveryWordAndFinishesWithNoPagesPastThem) {
    Arena records{};
    SpareBlock spare{nullptr, 0};
    VMWriteBuffer* buffer = CreateWriteBufferFrom(spare);
    uint32_t words = static_cast<uint32_t>(kMappedBlockMin / 4) * 2 + 3;
    for (uint32_t i = 0; i < words; i++) WriteWords(*buffer, {i ^ 0x5A5A5A5Au});
#if defined(__linux__)
    EXPECT_TRUE(buffer->dataMapped);
#else
    EXPECT_FALSE(buffer->dataMapped);
#endif
    FinishWithCopy(*buffer, CopyWritten(*buffer, records), spare);
    EXPECT_FALSE(buffer->dataInArena);
    EXPECT_EQ(buffer->size, static_cast<int64_t>(words) * 4);
    for (uint32_t i = 0; i < words; i += 997) ASSERT_EQ(ReadWord(*buffer, static_cast<int64_t>(i) * 4), i ^ 0x5A5A5A5Au);
    EXPECT_EQ(ReadWord(*buffer, static_cast<int64_t>(words - 1) * 4), (words - 1) ^ 0x5A5A5A5Au);
#if defined(__linux__)
    MappingInfo mapping = MappingOf(buffer->data + buffer->size - 1);
    ASSERT_TRUE(mapping.found);
    EXPECT_EQ(mapping.end, (reinterpret_cast<uintptr_t>(buffer->data) + static_cast<uintptr_t>(buffer->size) + 4095) &
                               ~uintptr_t{4095});
#endif
    EXPECT_EQ(spare.data, nullptr);
    delete buffer;
}
