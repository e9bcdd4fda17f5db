#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/arena.h"

TEST(Arena, RecordsAreZeroedAlignedAndDistinct) {
    Arena arena{};
    std::vector<uint8_t*> records;
    for (int i = 0; i < 10000; i++) {
        size_t size = 1 + static_cast<size_t>(i % 100);
        uint8_t* record = static_cast<uint8_t*>(ArenaAllocate(arena, size));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(record) % alignof(std::max_align_t), 0u);
        for (size_t k = 0; k < size; k++) ASSERT_EQ(record[k], 0) << i;
        for (size_t k = 0; k < size; k++) record[k] = 0xAB;
        records.push_back(record);
    }
    // Every record kept what was written into it: none overlaps a later one.
    for (size_t i = 0; i < records.size(); i++) {
        size_t size = 1 + i % 100;
        for (size_t k = 0; k < size; k++) ASSERT_EQ(records[i][k], 0xAB) << i;
    }
}

TEST(Arena, ALargeRecordGetsABlockOfItsOwnAndTheCurrentBlockGoesOn) {
    Arena arena{};
    uint8_t* small = static_cast<uint8_t*>(ArenaAllocate(arena, 32));
    uint8_t* large = static_cast<uint8_t*>(ArenaAllocate(arena, 1 << 20));
    uint8_t* next = static_cast<uint8_t*>(ArenaAllocate(arena, 32));
    EXPECT_EQ(large[0], 0);
    EXPECT_EQ(large[(1 << 20) - 1], 0);
    EXPECT_EQ(next, small + 32);
}
