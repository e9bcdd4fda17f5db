#include "support/arena.h"

#include <cstdlib>
#include <cstring>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#include <sys/resource.h>
#endif

#include "support/fault_injection.h"
#include "support/strings.h"

namespace {

static_assert(kArenaLargestCarvedBlock <= kArenaLargestBlock, "a carved block fits the largest block");

#if defined(__linux__)
constexpr size_t kPageBytes = 4096;

size_t RoundToPage(size_t bytes) { return (bytes + kPageBytes - 1) & ~(kPageBytes - 1); }

// `bytes` (whole pages) mapped at a kArenaLargestBlock boundary, or null. `flags` are added to the
// mapping's. The library does not advise its mappings for huge pages: on a virtual machine that
// hands its free 2 MiB blocks back to its host (the machines it is measured on), a fresh huge page
// is cheap only when the process freed huge pages a moment before, and otherwise costs several
// times the 4 KiB pages the kernel has at hand. The boundary lets a system that backs anonymous
// memory with huge pages of its own accord give a block whole ones.
uint8_t* MapAligned(size_t bytes, int flags = 0) {
    size_t span = bytes + kArenaLargestBlock;
    void* mapped = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | flags, -1, 0);
    if (mapped == MAP_FAILED) return nullptr;
    uintptr_t start = reinterpret_cast<uintptr_t>(mapped);
    uintptr_t aligned = (start + kArenaLargestBlock - 1) & ~(uintptr_t{kArenaLargestBlock} - 1);
    if (aligned > start) munmap(mapped, aligned - start);
    uintptr_t tail = aligned + bytes;
    if (start + span > tail) munmap(reinterpret_cast<void*>(tail), start + span - tail);
    return reinterpret_cast<uint8_t*>(aligned);
}

size_t RoundToLargestBlock(size_t bytes) { return (bytes + kArenaLargestBlock - 1) & ~(kArenaLargestBlock - 1); }
#endif

// A block of the largest size. On Linux it comes from a mapping of kArenaRegion bytes that the
// arena reserves at a 2 MiB boundary (made larger by one block, the unaligned ends given back);
// pages are resident only once records reach them. Reserving many
// blocks at once keeps the process's mappings few: each is a line of /proc/self/maps, which the
// C library reads to find the main thread's stack for every call's stack guard. Elsewhere, and
// when mapping fails, a block is an ordinary heap block. Never freed.
uint8_t* NewLargestBlock(Arena& arena) {
#if defined(__linux__)
    if (static_cast<size_t>(arena.regionEnd - arena.regionNext) < kArenaLargestBlock) {
        if (uint8_t* region = MapAligned(kArenaRegion)) {
            arena.regionNext = region;
            arena.regionEnd = region + kArenaRegion;
        }
    }
    if (static_cast<size_t>(arena.regionEnd - arena.regionNext) >= kArenaLargestBlock) {
        uint8_t* block = arena.regionNext;
        arena.regionNext += kArenaLargestBlock;
        return block;
    }
#else
    (void)arena;
#endif
    return static_cast<uint8_t*>(std::malloc(kArenaLargestBlock));
}

// `size` bytes from the current block, or from a new one. A test build may make any request fail,
// as it may any heap allocation, so that the failure path of every record is run; otherwise only
// a new block can fail.
uint8_t* Carve(Arena& arena, size_t size, size_t largestCarved = kArenaLargeRequest) {
    if (AllocationShouldFail()) throw std::bad_alloc();
    if (uint8_t* block = TakeRoom(arena.next, arena.end, size)) return block;
    if (size > largestCarved) {
#if defined(__linux__)
        // A block of its own of megabytes (a script's source copy): a mapping at a 2 MiB boundary.
        if (size >= kArenaLargestBlock) {
            if (uint8_t* own = MapAligned(RoundToPage(size))) return own;
        }
#endif
        void* own = std::malloc(size);
        if (!own) throw std::bad_alloc();
        return static_cast<uint8_t*>(own);
    }
    size_t blockSize = arena.blockSize != 0 ? arena.blockSize : kArenaFirstBlock;
    while (blockSize < size) blockSize *= 2;   // a block request: never past the largest size
    uint8_t* block = blockSize >= kArenaLargestBlock ? NewLargestBlock(arena)
                                                     : static_cast<uint8_t*>(std::malloc(blockSize));
    if (!block) throw std::bad_alloc();
    arena.next = block + size;
    arena.end = block + blockSize;
    arena.blockSize = blockSize >= kArenaLargestBlock ? kArenaLargestBlock : 2 * blockSize;
    return block;
}

}  // namespace

struct ScratchBlock {
    ScratchBlock* next;
    size_t size;   // bytes after the header
};

namespace {

constexpr size_t kScratchHeader = ArenaRecordSize(sizeof(ScratchBlock));

uint8_t* ScratchData(ScratchBlock* block) { return reinterpret_cast<uint8_t*>(block) + kScratchHeader; }

// A block with room for `size` bytes after its header (at least `needed` of them), or null. The
// largest are, on Linux, mappings of their own at a 2 MiB boundary, the header inside: resident
// only as far as records reach.
ScratchBlock* NewScratchBlock(size_t size, size_t needed) {
    void* block = nullptr;
#if defined(__linux__)
    if (size == kArenaLargestBlock && needed <= kArenaLargestBlock - kScratchHeader) {
        block = MapAligned(kArenaLargestBlock);
        if (block) size -= kScratchHeader;
    }
#else
    (void)needed;
#endif
    if (!block) block = std::malloc(kScratchHeader + size);
    if (!block) return nullptr;
    ScratchBlock* scratchBlock = static_cast<ScratchBlock*>(block);
    scratchBlock->next = nullptr;
    scratchBlock->size = size;
    return scratchBlock;
}

}  // namespace

// Zeroed here, record by record, rather than a block at a time: the bytes are written while they
// are in the cache anyway, and pages of a block are touched only as records reach them.
void* ArenaAllocateAny(Arena& arena, size_t size) {
    size = ArenaRecordSize(size);
    return std::memset(Carve(arena, size), 0, size);
}

void ArenaExpect(Arena& arena, size_t bytes) {
    if (bytes >= kArenaExpectedLarge) arena.blockSize = kArenaLargestBlock;
}

char* ArenaCopyTextAny(Arena& arena, const char* text, size_t length) {
    char* copy = reinterpret_cast<char*>(Carve(arena, length + 1));
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

void* ArenaCopyBlock(Arena& arena, const void* data, size_t size) {
    uint8_t* copy = Carve(arena, ArenaRecordSize(size), kArenaLargestCarvedBlock);
    if (size != 0) std::memcpy(copy, data, size);
    return copy;
}

char* ArenaCopyLongText(Arena& arena, const char* text, size_t length, size_t zeros) {
    char* copy = reinterpret_cast<char*>(Carve(arena, length + zeros, kArenaLargestCarvedBlock));
    std::memcpy(copy, text, length);
    std::memset(copy + length, 0, zeros);
    return copy;
}

void* AllocateTable(size_t bytes) {
    if (AllocationShouldFail()) throw std::bad_alloc();
#if defined(__linux__)
    if (bytes >= kArenaLargestBlock) {
        uint8_t* table = MapAligned(RoundToLargestBlock(bytes));
        if (!table) throw std::bad_alloc();
        return table;
    }
#endif
    void* table = std::malloc(bytes == 0 ? 1 : bytes);
    if (!table) throw std::bad_alloc();
    return table;
}

void* AllocateZeroedTable(size_t bytes) {
#if defined(__linux__)
    if (bytes >= kArenaLargestBlock) return AllocateTable(bytes);   // a fresh mapping is zero
#endif
    if (AllocationShouldFail()) throw std::bad_alloc();
    // calloc leaves pages the heap has just taken from the system untouched.
    void* table = std::calloc(bytes == 0 ? 1 : bytes, 1);
    if (!table) throw std::bad_alloc();
    return table;
}

void* ReserveZeroedTable(size_t bytes) noexcept {
#if defined(__linux__)
    // Address space that is only reserved still counts against a limit on it: a host running
    // under one keeps every byte of it for memory it uses.
    struct rlimit limit;
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY) return nullptr;
    return MapAligned(RoundToLargestBlock(bytes), MAP_NORESERVE);
#else
    (void)bytes;
    return nullptr;
#endif
}

void FreeTable(void* table, size_t bytes) {
    if (!table) return;
#if defined(__linux__)
    if (bytes >= kArenaLargestBlock) {
        munmap(table, RoundToLargestBlock(bytes));
        return;
    }
#endif
    (void)bytes;
    std::free(table);
}

uint8_t* GrowBlock(uint8_t* data, size_t size, size_t used, size_t newSize, bool& mapped) {
#if defined(__linux__)
    if (newSize >= kMappedBlockMin) {
        if (AllocationShouldFail()) throw std::bad_alloc();
        if (uint8_t* grown = MapAligned(RoundToPage(newSize))) {
            if (!mapped) {
                if (used > 0) std::memcpy(grown, data, used);
                std::free(data);
                mapped = true;
                return grown;
            }
            // The pages move to the start of the new mapping, in place of its untouched ones.
            if (mremap(data, RoundToPage(size), RoundToPage(size), MREMAP_MAYMOVE | MREMAP_FIXED, grown) != MAP_FAILED) {
                return grown;
            }
            munmap(grown, RoundToPage(newSize));
        }
        if (mapped) throw std::bad_alloc();
    }
#else
    (void)size;
    (void)used;
    (void)mapped;
#endif
    return static_cast<uint8_t*>(CheckedRealloc(data, newSize));
}

void TrimBlock(uint8_t* data, size_t size, size_t used, bool mapped) {
#if defined(__linux__)
    size_t kept = RoundToPage(used == 0 ? 1 : used);
    if (mapped && kept < RoundToPage(size)) munmap(data + kept, RoundToPage(size) - kept);
#else
    (void)data;
    (void)size;
    (void)used;
    (void)mapped;
#endif
}

void FreeBlock(uint8_t* data, size_t size, bool mapped) {
#if defined(__linux__)
    if (mapped) {
        munmap(data, RoundToPage(size == 0 ? 1 : size));
        return;
    }
#else
    (void)size;
    (void)mapped;
#endif
    std::free(data);
}

void* ScratchAllocateAny(Scratch& scratch, size_t size) {
    if (AllocationShouldFail()) throw std::bad_alloc();
    size = ArenaRecordSize(size);
    uint8_t* record;
    while (!(record = TakeRoom(scratch.next, scratch.end, size))) {
        // The next block of the chain (a block too small for this request is passed over), or a
        // new one at its end, doubling up to the largest block size.
        ScratchBlock* following = scratch.current ? scratch.current->next : scratch.first;
        if (!following) {
            size_t blockSize = scratch.largestBlocks ? kArenaLargestBlock
                               : scratch.current      ? 2 * scratch.current->size
                                                      : kArenaFirstBlock;
            if (blockSize > kArenaLargestBlock) blockSize = kArenaLargestBlock;
            if (blockSize < size) blockSize = size;
            following = NewScratchBlock(blockSize, size);
            if (!following) throw std::bad_alloc();
            if (scratch.current) {
                scratch.current->next = following;
            } else {
                scratch.first = following;
            }
        }
        scratch.current = following;
        scratch.next = ScratchData(following);
        scratch.end = scratch.next + following->size;
    }
    return std::memset(record, 0, size);
}

void ScratchExpect(Scratch& scratch, size_t bytes) {
    if (bytes >= kArenaExpectedLarge) scratch.largestBlocks = true;
}

void ResetScratch(Scratch& scratch) {
    scratch.current = nullptr;
    scratch.next = nullptr;
    scratch.end = nullptr;
}
