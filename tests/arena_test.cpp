#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#if defined(__linux__)
#include <sys/resource.h>
#endif

#include "helpers/mappings.h"
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

TEST(Arena, TextsArePackedOneAfterAnotherAndEndInZero) {
    Arena arena{};
    char* first = ArenaCopyText(arena, "abc", 3);
    char* second = ArenaCopyText(arena, "de", 2);
    EXPECT_STREQ(first, "abc");
    EXPECT_STREQ(second, "de");
    EXPECT_EQ(second, first + 4);
    // A length shorter than the text copies only that much.
    EXPECT_STREQ(ArenaCopyText(arena, "xyz", 1), "x");
    EXPECT_STREQ(ArenaCopyText(arena, "", 0), "");
}

TEST(Arena, ALongTextGetsABlockOfItsOwn) {
    Arena arena{};
    std::string longText(100000, 'q');
    char* small = ArenaCopyText(arena, "a", 1);
    char* copy = ArenaCopyText(arena, longText.c_str(), longText.size());
    EXPECT_EQ(std::string(copy), longText);
    EXPECT_EQ(ArenaCopyText(arena, "b", 1), small + 2);
}

TEST(Arena, TheLastRecordOrTextCanBeRewoundAndTheNextRequestGetsItsBytes) {
    Arena records{};
    EXPECT_FALSE(ArenaEndsWithRecord(records, nullptr, 16));
    uint8_t* first = static_cast<uint8_t*>(ArenaAllocate(records, 24));
    uint8_t* second = static_cast<uint8_t*>(ArenaAllocate(records, 10));
    // Sizes count as the arena rounds them.
    EXPECT_TRUE(ArenaEndsWithRecord(records, second, 10));
    EXPECT_TRUE(ArenaEndsWithRecord(records, second, 16));
    EXPECT_FALSE(ArenaEndsWithRecord(records, first, 24));
    second[0] = 0x5A;
    ArenaRewind(records, second);
    uint8_t* again = static_cast<uint8_t*>(ArenaAllocate(records, 16));
    EXPECT_EQ(again, second);
    EXPECT_EQ(again[0], 0);   // zeroed again

    Arena texts{};
    char* a = ArenaCopyText(texts, "abc", 3);
    char* b = ArenaCopyText(texts, "de", 2);
    EXPECT_TRUE(ArenaEndsWithText(texts, b, 2));
    EXPECT_FALSE(ArenaEndsWithText(texts, a, 3));
    ArenaRewind(texts, b);
    EXPECT_TRUE(ArenaEndsWithText(texts, a, 3));
    EXPECT_EQ(ArenaCopyText(texts, "xyz", 3), b);
    EXPECT_STREQ(a, "abc");
}

TEST(Arena, BlocksUpToTheLargestCarvedSizeComeFromTheBlocksAndLargerOnesGetTheirOwn) {
    Arena arena{};
    uint8_t* small = static_cast<uint8_t*>(ArenaAllocate(arena, 16));
    std::vector<uint8_t> data(100000, 0x3C);
    // Larger than the first block: a new block big enough is taken, and later records follow it.
    uint8_t* block = static_cast<uint8_t*>(ArenaCopyBlock(arena, data.data(), data.size()));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
    EXPECT_EQ(block[0], 0x3C);
    EXPECT_EQ(block[data.size() - 1], 0x3C);
    uint8_t* after = static_cast<uint8_t*>(ArenaAllocate(arena, 16));
    EXPECT_EQ(after, block + data.size());
    EXPECT_NE(after, small + 16);
    // One byte past the largest carved size: a block of its own, and the current block goes on.
    std::vector<uint8_t> large(kArenaLargestCarvedBlock + 1, 0x11);
    uint8_t* own = static_cast<uint8_t*>(ArenaCopyBlock(arena, large.data(), large.size()));
    EXPECT_EQ(own[large.size() - 1], 0x11);
    EXPECT_EQ(static_cast<uint8_t*>(ArenaAllocate(arena, 16)), after + 16);
}

TEST(Arena, ALongTextCopyEndsInTheZerosAskedFor) {
    Arena arena{};
    std::string text(70000, 'k');
    char* copy = ArenaCopyLongText(arena, text.c_str(), text.size(), 9);
    EXPECT_EQ(std::string(copy, text.size()), text);
    for (size_t i = 0; i < 9; i++) EXPECT_EQ(copy[text.size() + i], '\0') << i;
    // Texts are packed: the next one starts right after the zeros.
    EXPECT_EQ(ArenaCopyText(arena, "z", 1), copy + text.size() + 9);
}

TEST(Arena, TablesOfEverySizeCanBeWrittenWholeAndGivenBack) {
    for (size_t bytes : {size_t{0}, size_t{64}, kArenaLargestBlock - 8, kArenaLargestBlock, 3 * kArenaLargestBlock + 24}) {
        uint8_t* table = static_cast<uint8_t*>(AllocateTable(bytes));
        ASSERT_NE(table, nullptr) << bytes;
        for (size_t i = 0; i < bytes; i++) table[i] = static_cast<uint8_t>(i);
        for (size_t i = 0; i < bytes; i += 4099) ASSERT_EQ(table[i], static_cast<uint8_t>(i)) << bytes;
#if defined(__linux__)
        // Large tables start at a largest block's boundary.
        if (bytes >= kArenaLargestBlock) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(table) % kArenaLargestBlock, 0u);
        }
#endif
        FreeTable(table, bytes);
    }
    FreeTable(nullptr, 0);
}

TEST(Arena, ZeroedTablesAreZeroAtEverySize) {
    for (size_t bytes : {size_t{1}, size_t{4096}, kArenaLargestBlock, 2 * kArenaLargestBlock + 8}) {
        uint8_t* table = static_cast<uint8_t*>(AllocateZeroedTable(bytes));
        for (size_t i = 0; i < bytes; i++) ASSERT_EQ(table[i], 0) << bytes << " at " << i;
        FreeTable(table, bytes);
    }
}

TEST(Arena, BlocksDoubleFromTheFirstSizeToTheLargestAndTheLargestAreAligned) {
    Arena arena{};
    uint8_t* first = static_cast<uint8_t*>(ArenaAllocate(arena, 16));
    EXPECT_EQ(static_cast<size_t>(arena.end - first), kArenaFirstBlock);
    size_t expected = kArenaFirstBlock;
    // Each new block is twice the one before until the largest size; requests of the largest
    // size that still counts as small fill the blocks quickly.
    for (int block = 0; block < 8; block++) {
        uint8_t* start = nullptr;
        while (!start) {
            uint8_t* before = arena.end;
            uint8_t* record = static_cast<uint8_t*>(ArenaAllocate(arena, kArenaLargeRequest));
            if (arena.end != before) start = record;
        }
        expected = expected * 2 > kArenaLargestBlock ? kArenaLargestBlock : expected * 2;
        EXPECT_EQ(static_cast<size_t>(arena.end - start), expected) << block;
#if defined(__linux__)
        // Aligned, so that a kernel that backs memory with huge pages of its own accord can.
        if (expected == kArenaLargestBlock) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(start) % kArenaLargestBlock, 0u) << block;
        }
#endif
    }
    EXPECT_EQ(arena.blockSize, kArenaLargestBlock);
}

// A parse that expects a tree of half a largest block or more passes over the doubling; one that
// expects less leaves it as it was.
TEST(Arena, ExpectingHalfALargestBlockOrMoreMakesTheNextBlockTheLargest) {
    Arena fresh{};
    ArenaExpect(fresh, kArenaExpectedLarge - 1);
    uint8_t* first = static_cast<uint8_t*>(ArenaAllocate(fresh, 16));
    EXPECT_EQ(static_cast<size_t>(fresh.end - first), kArenaFirstBlock);
    EXPECT_EQ(fresh.blockSize, 2 * kArenaFirstBlock);

    Arena expecting{};
    ArenaExpect(expecting, kArenaExpectedLarge);
    first = static_cast<uint8_t*>(ArenaAllocate(expecting, 16));
    EXPECT_EQ(static_cast<size_t>(expecting.end - first), kArenaLargestBlock);
#if defined(__linux__)
    EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % kArenaLargestBlock, 0u);
#endif

    // An arena part way up the doubling: its current block is used to the end, and the next one
    // is the largest.
    Arena growing{};
    ArenaAllocate(growing, 16);
    uint8_t* currentEnd = growing.end;
    ArenaExpect(growing, 3 * kArenaLargestBlock);
    uint8_t* next = nullptr;
    while (growing.end == currentEnd) {
        uint8_t* record = static_cast<uint8_t*>(ArenaAllocate(growing, kArenaLargeRequest));
        if (growing.end != currentEnd) next = record;
        else EXPECT_LE(record + kArenaLargeRequest, currentEnd);
    }
    EXPECT_EQ(static_cast<size_t>(growing.end - next), kArenaLargestBlock);
}

TEST(Scratch, RecordsAreZeroedAlignedAndDistinctAndAResetHandsTheSameBytesOutAgain) {
    Scratch scratch{};
    std::vector<uint8_t*> first;
    for (int i = 0; i < 5000; i++) {
        uint8_t* record = static_cast<uint8_t*>(ScratchAllocate(scratch, 24 + static_cast<size_t>(i % 50)));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(record) % alignof(std::max_align_t), 0u);
        for (size_t k = 0; k < 24; k++) ASSERT_EQ(record[k], 0) << i;
        std::memset(record, 0xEE, 24);
        first.push_back(record);
    }
    for (uint8_t* record : first) ASSERT_EQ(record[23], 0xEE);
    ResetScratch(scratch);
    // The same requests get the same bytes, zeroed again: no new block was needed.
    for (int i = 0; i < 5000; i++) {
        uint8_t* record = static_cast<uint8_t*>(ScratchAllocate(scratch, 24 + static_cast<size_t>(i % 50)));
        ASSERT_EQ(record, first[static_cast<size_t>(i)]) << i;
        ASSERT_EQ(record[0], 0) << i;
    }
}

TEST(Scratch, ARequestLargerThanABlockGetsABlockOfItsOwnThatLaterRequestsReuse) {
    Scratch scratch{};
    uint8_t* small = static_cast<uint8_t*>(ScratchAllocate(scratch, 16));
    uint8_t* large = static_cast<uint8_t*>(ScratchAllocate(scratch, 3 * kArenaLargestBlock));
    large[3 * kArenaLargestBlock - 1] = 1;
    ResetScratch(scratch);
    EXPECT_EQ(static_cast<uint8_t*>(ScratchAllocate(scratch, 16)), small);
    // Too large for the first block: the chain's next block, the large one, serves it.
    uint8_t* again = static_cast<uint8_t*>(ScratchAllocate(scratch, 2 * kArenaLargestBlock));
    EXPECT_EQ(again, large);
    EXPECT_EQ(again[3 * kArenaLargestBlock - 1], 1);   // beyond the request: not cleared
    EXPECT_EQ(again[2 * kArenaLargestBlock - 1], 0);
}

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
// (The sanitizers reserve terabytes of address space of their own, so no limit can be set there.)
TEST(Arena, AddressSpaceIsReservedOnlyWhenItIsNotLimited) {
    constexpr size_t kBytes = size_t{1} << 30;
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    if (before.rlim_cur == RLIM_INFINITY) {
        void* reserved = ReserveZeroedTable(kBytes);
        ASSERT_NE(reserved, nullptr);
        // Zero, and writable at both ends.
        uint8_t* bytes = static_cast<uint8_t*>(reserved);
        EXPECT_EQ(bytes[0], 0);
        EXPECT_EQ(bytes[kBytes - 1], 0);
        bytes[0] = 1;
        bytes[kBytes - 1] = 1;
        FreeTable(reserved, kBytes);
    }

    rlimit limited = before;
    limited.rlim_cur = rlim_t{64} << 30;
    if (before.rlim_cur != RLIM_INFINITY && before.rlim_cur < limited.rlim_cur) limited.rlim_cur = before.rlim_cur;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limited), 0);
    void* underLimit = ReserveZeroedTable(kBytes);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(underLimit, nullptr);
}
#endif

// A growable block keeps what it holds at every doubling. From kMappedBlockMin up it is, on Linux,
// a mapping at a largest block's boundary, left to ordinary pages, and it keeps being one as it grows
// (its pages moved, not copied); below that, and elsewhere, a heap block.
TEST(GrowableBlock, KeepsItsBytesAtEveryDoublingAndIsMappedFromTheMappedSizeUp) {
    bool mapped = false;
    size_t size = 256;
    uint8_t* data = GrowBlock(nullptr, 0, 0, size, mapped);
    EXPECT_FALSE(mapped);
    for (size_t i = 0; i < size; i++) data[i] = static_cast<uint8_t>(i * 7);
    while (size < 4 * kMappedBlockMin) {
        size_t grown = size * 2;
        data = GrowBlock(data, size, size, grown, mapped);
        for (size_t i = 0; i < size; i += 1021) ASSERT_EQ(data[i], static_cast<uint8_t>(i * 7)) << grown;
        ASSERT_EQ(data[size - 1], static_cast<uint8_t>((size - 1) * 7)) << grown;
        for (size_t i = size; i < grown; i++) data[i] = static_cast<uint8_t>(i * 7);
        size = grown;
#if defined(__linux__)
        EXPECT_EQ(mapped, size >= kMappedBlockMin) << size;
        if (mapped) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % kArenaLargestBlock, 0u) << size;
            EXPECT_FALSE(AdvisedForHugePages(data)) << size;
        }
#else
        EXPECT_FALSE(mapped);
#endif
    }
    // Only the bytes the caller says it uses need to survive a growth.
    size_t used = 3 * kMappedBlockMin + 5;
    TrimBlock(data, size, used, mapped);
    for (size_t i = 0; i < used; i += 4093) ASSERT_EQ(data[i], static_cast<uint8_t>(i * 7));
    EXPECT_EQ(data[used - 1], static_cast<uint8_t>((used - 1) * 7));
#if defined(__linux__)
    // The pages past the used bytes are given back.
    MappingInfo after = MappingOf(data + used - 1);
    ASSERT_TRUE(after.found);
    EXPECT_EQ(after.end, (reinterpret_cast<uintptr_t>(data) + used + 4095) & ~uintptr_t{4095});
    EXPECT_FALSE(MappingOf(data + size - 1).found);
#endif
    FreeBlock(data, used, mapped);
}

// A heap block that crosses into the mapped size keeps only its used bytes: the rest is not read.
TEST(GrowableBlock, AHeapBlockBecomingMappedKeepsItsUsedBytes) {
    bool mapped = false;
    size_t size = kMappedBlockMin / 2;
    uint8_t* data = GrowBlock(nullptr, 0, 0, size, mapped);
    std::memset(data, 0x5A, 100);
    data = GrowBlock(data, size, 100, kMappedBlockMin, mapped);
    for (size_t i = 0; i < 100; i++) ASSERT_EQ(data[i], 0x5A) << i;
    data[kMappedBlockMin - 1] = 1;
    FreeBlock(data, kMappedBlockMin, mapped);
}

#if defined(__linux__)
// A script's source of megabytes is a block of its own: a mapping at a largest block's boundary,
// left to ordinary pages.
TEST(Arena, ABlockOfItsOwnOfMegabytesIsMappedAtALargestBlocksBoundary) {
    Arena texts{};
    std::string text(2 * kArenaLargestBlock + 100, 'q');
    char* copy = ArenaCopyLongText(texts, text.data(), text.size(), 64);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(copy) % kArenaLargestBlock, 0u);
    EXPECT_EQ(std::string(copy, text.size()), text);
    for (size_t i = 0; i < 64; i++) ASSERT_EQ(copy[text.size() + i], 0) << i;
    EXPECT_TRUE(MappingOf(copy + text.size() - 1).found);
    EXPECT_FALSE(AdvisedForHugePages(copy));
}

TEST(Arena, CopyBytesCopiesEveryLengthExactlyAndWritesNothingAround) {
    for (size_t length = 0; length <= 40; length++) {
        // Blocks of exactly the length, so that a byte read or written outside them is a sanitizer
        // report; the guard bytes around the target show any write outside it here as well.
        std::vector<char> from(length);
        for (size_t i = 0; i < length; i++) from[i] = static_cast<char>('A' + i);
        std::vector<char> to(length + 2, '#');
        CopyBytes(to.data() + 1, from.data(), length);
        EXPECT_EQ(to.front(), '#') << length;
        EXPECT_EQ(to.back(), '#') << length;
        EXPECT_EQ(std::string(to.data() + 1, length), std::string(from.data(), length)) << length;
    }
}

// The scratch's largest blocks are mappings of their own at a largest block's boundary, their
// header inside, left to ordinary pages.
TEST(Scratch, TheLargestBlocksAreMappingsAtALargestBlocksBoundary) {
    Scratch scratch{};
    std::vector<uint8_t*> records;
    for (int i = 0; i < 4000; i++) records.push_back(static_cast<uint8_t*>(ScratchAllocate(scratch, 4096)));
    // 4000 records of 4 KiB fill the doubling blocks (64 KiB to 1 MiB) and several of the largest.
    uint8_t* last = records.back();
    uintptr_t block = reinterpret_cast<uintptr_t>(last) & ~(uintptr_t{kArenaLargestBlock} - 1);
    EXPECT_FALSE(AdvisedForHugePages(last));
    EXPECT_LE(reinterpret_cast<uintptr_t>(last) + 4096, block + kArenaLargestBlock);
    // A request that fills a whole largest block cannot share one with its header: it gets a block
    // of its own, and the records before it are untouched.
    std::memset(last, 0x33, 4096);
    uint8_t* whole = static_cast<uint8_t*>(ScratchAllocate(scratch, kArenaLargestBlock));
    whole[kArenaLargestBlock - 1] = 1;
    EXPECT_EQ(last[4095], 0x33);
}

// A compile that expects half a largest block or more of scratch adds the largest blocks at once;
// the blocks the scratch has are still used first.
TEST(Scratch, ExpectingHalfALargestBlockOrMoreMakesTheNewBlocksTheLargest) {
    Scratch small{};
    ScratchExpect(small, kArenaExpectedLarge - 1);
    std::vector<uint8_t*> records;
    for (int i = 0; i < 32; i++) records.push_back(static_cast<uint8_t*>(ScratchAllocate(small, 4096)));
    // 32 records of 4 KiB: the 64 KiB first block, then the 128 KiB one.
    EXPECT_GT(records.back() - records.front(), static_cast<ptrdiff_t>(kArenaFirstBlock));

    Scratch expecting{};
    uint8_t* first = static_cast<uint8_t*>(ScratchAllocate(expecting, 4096));
    ScratchExpect(expecting, kArenaExpectedLarge);
    // The first block (64 KiB) serves until it is full; the block after it is a largest one.
    uint8_t* record = first;
    for (size_t used = 4096; used + 4096 <= kArenaFirstBlock; used += 4096) {
        record = static_cast<uint8_t*>(ScratchAllocate(expecting, 4096));
    }
    EXPECT_LT(record, first + kArenaFirstBlock);
    uint8_t* next = static_cast<uint8_t*>(ScratchAllocate(expecting, 4096));
    EXPECT_TRUE(next < first || next >= first + kArenaFirstBlock);
    // A largest block whose header alone comes before the record.
    EXPECT_LT(reinterpret_cast<uintptr_t>(next) % kArenaLargestBlock, 64u);
    // A reset hands out the first block again.
    ResetScratch(expecting);
    EXPECT_EQ(static_cast<uint8_t*>(ScratchAllocate(expecting, 4096)), first);
}
#endif

// ArenaAllocate carves a record that fits the current block inline; ArenaAllocateAny does every
// case. The same requests get the same layout from both: each record at the same distance from
// the one before, a new block at the same request, every record zeroed.
TEST(Arena, TheInlineAllocationLaysRecordsOutAsTheFullOneDoes) {
    Arena inlined{};
    Arena full{};
    uint8_t* previousInlined = nullptr;
    uint8_t* previousFull = nullptr;
    for (int i = 0; i < 40000; i++) {
        size_t size = static_cast<size_t>((i * 37) % 97);   // 0 included
        uint8_t* endBefore = inlined.end;
        uint8_t* a = static_cast<uint8_t*>(ArenaAllocate(inlined, size));
        uint8_t* b = static_cast<uint8_t*>(ArenaAllocateAny(full, size));
        ASSERT_EQ(inlined.end - a, full.end - b) << i;
        if (previousInlined && inlined.end == endBefore) {
            ASSERT_EQ(a - previousInlined, b - previousFull) << i;
        }
        for (size_t k = 0; k < size; k++) ASSERT_EQ(a[k], 0) << i;
        std::memset(a, 0xCD, size);
        previousInlined = a;
        previousFull = b;
    }
}

// The same for texts: ArenaCopyText copies a text that fits inline, ArenaCopyTextAny every text.
TEST(Arena, TheInlineTextCopyPacksTextsAsTheFullOneDoes) {
    Arena inlined{};
    Arena full{};
    std::string source(300, 'x');
    for (size_t i = 0; i < source.size(); i++) source[i] = static_cast<char>('a' + i % 26);
    char* previousInlined = nullptr;
    char* previousFull = nullptr;
    for (int i = 0; i < 40000; i++) {
        size_t length = static_cast<size_t>((i * 53) % 211);   // 0 included
        uint8_t* endBefore = inlined.end;
        char* a = ArenaCopyText(inlined, source.data() + i % 50, length);
        char* b = ArenaCopyTextAny(full, source.data() + i % 50, length);
        ASSERT_EQ(reinterpret_cast<char*>(inlined.end) - a, reinterpret_cast<char*>(full.end) - b) << i;
        if (previousInlined && inlined.end == endBefore) {
            ASSERT_EQ(a - previousInlined, b - previousFull) << i;
        }
        ASSERT_EQ(std::memcmp(a, source.data() + i % 50, length), 0) << i;
        ASSERT_EQ(a[length], '\0') << i;
        previousInlined = a;
        previousFull = b;
    }
}

// A text fits a block only with its NUL: one byte short of that, it goes to a new block.
TEST(Arena, ATextFitsTheBlockOnlyWithItsTerminatingZero) {
    std::string chunk(999, 'c');
    for (bool withRoomForTheZero : {true, false}) {
        Arena texts{};
        ArenaCopyText(texts, "start", 5);
        while (texts.end - texts.next > 1000) ArenaCopyText(texts, chunk.data(), chunk.size());
        uint8_t* blockEnd = texts.end;
        size_t room = static_cast<size_t>(texts.end - texts.next);
        size_t length = withRoomForTheZero ? room - 1 : room;
        char* copy = ArenaCopyText(texts, chunk.data(), length);
        EXPECT_EQ(copy[length], '\0');
        if (withRoomForTheZero) {
            EXPECT_EQ(texts.end, blockEnd);   // the block is now full
            EXPECT_EQ(texts.next, blockEnd);
        } else {
            EXPECT_NE(texts.end, blockEnd);   // a new block took the text
            EXPECT_LE(reinterpret_cast<uint8_t*>(copy) + length + 1, texts.end);
        }
    }
}
