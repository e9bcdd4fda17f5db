// Memory for records that live as long as the process: blocks are carved up front to back and
// never freed, as the syntax trees that units keep are never freed. A record then costs no
// allocation header and no call of the allocator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// One arena serves either records (ArenaAllocate) or texts (ArenaCopyText), never both: texts
// leave the free pointer unaligned. A zeroed record is an empty arena.
struct Arena {
    uint8_t* next;        // the first free byte of the current block
    uint8_t* end;         // one past the current block
    size_t blockSize;     // the size of the next block; 0 before the first
    uint8_t* regionNext;  // reserved address space the next largest blocks come from
    uint8_t* regionEnd;
};

// A heap block kept for reuse rather than freed: a compile's code buffers write into the blocks
// the last compile's buffers left, so a project's compiles do not each fault in fresh pages.
struct SpareBlock {
    uint8_t* data;   // null when there is none
    int64_t size;
};

// Blocks start at 64 KiB and double up to 2 MiB, so a small script's arena stays small and a
// large one takes few blocks. 2 MiB blocks are aligned to 2 MiB (Linux).
constexpr size_t kArenaFirstBlock = 64 * 1024;
constexpr size_t kArenaLargestBlock = 2 * 1024 * 1024;
// Address space reserved at a time for the largest blocks (Linux).
constexpr size_t kArenaRegion = 64 * 1024 * 1024;
// A request larger than this gets a heap block of its own, and the current block goes on.
constexpr size_t kArenaLargeRequest = 16 * 1024;

// Up to this size a block filled at once (a finished code buffer, a script's source) is carved
// like a record, a new block being taken when the current one has no room; a larger one gets a
// heap block of its own.
constexpr size_t kArenaLargestCarvedBlock = 512 * 1024;

// What a record of `size` bytes takes in an arena: rounded up to the alignment of any record (a
// request of 0 bytes takes one unit).
constexpr size_t ArenaRecordSize(size_t size) {
    constexpr size_t kAlignment = alignof(std::max_align_t);
    return (size + (size == 0) + kAlignment - 1) & ~(kAlignment - 1);
}

// Tells the arena that about `bytes` more are coming (a parse knows its source's length before it
// builds the tree). From kArenaExpectedLarge on, the next block is a largest one at once, with no
// blocks of the doubling below it: a large tree then takes its memory in few blocks. Less than
// that changes nothing.
void ArenaExpect(Arena& arena, size_t bytes);
// What the doubling would reach its 1 MiB block with, through 960 KiB of smaller ones; a largest
// block in their place makes at most 1 MiB more resident, once.
constexpr size_t kArenaExpectedLarge = kArenaLargestBlock / 2;

// The requests that fit the current block are carved inline below, as every node and token text
// of a tree is; the ...Any routines do every case (and every request of the test build, which may
// make any request fail).

// The first `size` bytes of a block's free room [next, end), `next` moved past them, or null when
// the room is shorter or there is no block yet. Every arena and the scratch carve through it.
inline uint8_t* TakeRoom(uint8_t*& next, const uint8_t* end, size_t size) {
    if (!next || static_cast<size_t>(end - next) < size) return nullptr;
    uint8_t* taken = next;
    next += size;
    return taken;
}

// `size` zeroed bytes, aligned for any record. Throws std::bad_alloc with the arena unchanged
// when a new block cannot be had.
void* ArenaAllocateAny(Arena& arena, size_t size);
inline void* ArenaAllocate(Arena& arena, size_t size) {
#if !defined(VELTJS_FAULT_INJECTION)
    size_t rounded = ArenaRecordSize(size);
    if (uint8_t* record = TakeRoom(arena.next, arena.end, rounded)) return std::memset(record, 0, rounded);
#endif
    return ArenaAllocateAny(arena, size);
}
// Copies the first and the last `Word` of `length` bytes (at least one word, at most two), which
// between them cover all of them.
template <typename Word>
inline void CopyFirstAndLastWords(char* out, const char* in, size_t length) {
    Word first;
    Word last;
    std::memcpy(&first, in, sizeof(Word));
    std::memcpy(&last, in + length - sizeof(Word), sizeof(Word));
    std::memcpy(out, &first, sizeof(Word));
    std::memcpy(out + length - sizeof(Word), &last, sizeof(Word));
}

// Copies `length` bytes between blocks that do not overlap, writing none outside them. A token's
// text or a name is a few bytes: up to 16 are moved a word or two at a time, without a call.
inline void CopyBytes(void* to, const void* from, size_t length) {
    auto* out = static_cast<char*>(to);
    const auto* in = static_cast<const char*>(from);
    if (length > 16) {
        std::memcpy(out, in, length);
    } else if (length >= 8) {
        CopyFirstAndLastWords<uint64_t>(out, in, length);
    } else if (length >= 4) {
        CopyFirstAndLastWords<uint32_t>(out, in, length);
    } else {
        for (size_t at = 0; at < length; at++) out[at] = in[at];
    }
}

// A NUL-terminated copy of `length` bytes of `text`, packed without alignment. Throws
// std::bad_alloc with the arena unchanged when a new block cannot be had.
char* ArenaCopyTextAny(Arena& arena, const char* text, size_t length);
inline char* ArenaCopyText(Arena& arena, const char* text, size_t length) {
#if !defined(VELTJS_FAULT_INJECTION)
    if (char* copy = reinterpret_cast<char*>(TakeRoom(arena.next, arena.end, length + 1))) {
        CopyBytes(copy, text, length);
        copy[length] = '\0';
        return copy;
    }
#endif
    return ArenaCopyTextAny(arena, text, length);
}
// A copy of `size` bytes of `data`, aligned for any record (kArenaLargestCarvedBlock applies).
void* ArenaCopyBlock(Arena& arena, const void* data, size_t size);
// A copy of `length` bytes of `text` followed by `zeros` zero bytes, packed without alignment
// (kArenaLargestCarvedBlock applies).
char* ArenaCopyLongText(Arena& arena, const char* text, size_t length, size_t zeros);

// Whether the `size` bytes at `start` are the last an arena handed out (a record's size is
// rounded as ArenaAllocate rounds it; a text's is its length plus one).
inline bool ArenaEndsWithRecord(const Arena& arena, const void* start, size_t size) {
    return arena.next && static_cast<const uint8_t*>(start) + ArenaRecordSize(size) == arena.next;
}
inline bool ArenaEndsWithText(const Arena& arena, const char* text, size_t length) {
    return arena.next && reinterpret_cast<const uint8_t*>(text) + length + 1 == arena.next;
}
// Takes back everything from `start` on, which must be the start of the last request or of a
// request after which nothing else in the current block was handed out: the next request gets
// the same bytes. Only for a record or text no one holds any longer.
inline void ArenaRewind(Arena& arena, const void* start) {
    arena.next = static_cast<uint8_t*>(const_cast<void*>(start));
}

// A table of `bytes` for an index that is replaced as it grows, so given back rather than kept
// in an arena; its contents are not set. From 2 MiB up, on Linux, it is a mapping of its own at a
// 2 MiB boundary, given back whole when it is replaced. Throws std::bad_alloc.
void* AllocateTable(size_t bytes);
// The same with every byte zero.
void* AllocateZeroedTable(size_t bytes);
// Address space for a table that grows in place up to `bytes`: zero, and resident only as far as
// it is written (Linux: an unreserved mapping). Null when it cannot be had,
// when the process's address space is limited, and always elsewhere; the caller then grows by
// copying. Given back with FreeTable. The test build's failure hook leaves it alone: the copying
// path is the one whose failures matter.
void* ReserveZeroedTable(size_t bytes) noexcept;
// A compile's code and position buffers grow by doubling. Below kMappedBlockMin bytes a buffer is a
// heap block; from there up, on Linux, a mapping at a 2 MiB boundary, grown by moving its pages
// into a larger mapping rather than copying them, and trimmed to the pages written when finished.
// Elsewhere, and when mapping fails, a heap block all along.
constexpr size_t kMappedBlockMin = 4 * 1024 * 1024;
// A buffer grows only when full, so a mapped one holds more than half its size: too much to be
// carved (kArenaLargestCarvedBlock). Mapped blocks are therefore never spare blocks.
static_assert(kMappedBlockMin / 2 > kArenaLargestCarvedBlock, "a mapped buffer is never copied to an arena");
// `data` (`size` bytes, a heap or a mapped block as `mapped` says) grown to `newSize`, its first
// `used` bytes kept; `mapped` says what the result is. Throws std::bad_alloc with the block unchanged.
uint8_t* GrowBlock(uint8_t* data, size_t size, size_t used, size_t newSize, bool& mapped);
// Gives back the pages of a mapped block past its first `used` bytes (a heap block is left as it is).
void TrimBlock(uint8_t* data, size_t size, size_t used, bool mapped);
// Frees a block from GrowBlock: `size` is its size, or what TrimBlock left of it.
void FreeBlock(uint8_t* data, size_t size, bool mapped);

// Gives back a table from AllocateTable, AllocateZeroedTable or ReserveZeroedTable of the same
// size (null is ignored).
void FreeTable(void* table, size_t bytes);

// Memory for records that live only while one compile runs (branch labels and their pending
// sites, scope entries, accessor records): handed out zeroed and aligned like an arena's records, and all taken
// back at once when the compile ends. The blocks stay for the next compile, so the compiles of a
// project reuse the same pages rather than each touching fresh ones. A zeroed record is empty.
struct ScratchBlock;
struct Scratch {
    ScratchBlock* first;     // the blocks, in the order they are used
    ScratchBlock* current;   // null before the first request after a reset
    uint8_t* next;
    uint8_t* end;
    bool largestBlocks;      // new blocks are the largest at once (ScratchExpect)
};

// Throws std::bad_alloc, with the scratch unchanged, when a new block cannot be had. Every label,
// branch site and table entry of a compile is one, so the common case (room in the current
// block) is inline and does exactly what ScratchAllocateAny does then.
void* ScratchAllocateAny(Scratch& scratch, size_t size);
inline void* ScratchAllocate(Scratch& scratch, size_t size) {
#if !defined(VELTJS_FAULT_INJECTION)
    size_t rounded = ArenaRecordSize(size);
    if (uint8_t* record = TakeRoom(scratch.next, scratch.end, rounded)) return std::memset(record, 0, rounded);
#endif
    return ScratchAllocateAny(scratch, size);
}
// Tells the scratch that a compile will ask for about `bytes`; from kArenaExpectedLarge on, the
// blocks it has yet to add are the largest at once, as ArenaExpect does for an arena. The blocks it
// has are used first, as always.
void ScratchExpect(Scratch& scratch, size_t bytes);
// Every record handed out since the last reset is gone; the next request starts at the first block.
void ResetScratch(Scratch& scratch);
