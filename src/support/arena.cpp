#include "support/arena.h"

#include "support/strings.h"

namespace {

constexpr size_t kAlignment = alignof(std::max_align_t);
constexpr size_t kBlockSize = 64 * 1024;

size_t RoundUp(size_t size) { return (size + kAlignment - 1) & ~(kAlignment - 1); }

}  // namespace

void* ArenaAllocate(Arena& arena, size_t size) {
    size = RoundUp(size == 0 ? 1 : size);
    if (arena.next && static_cast<size_t>(arena.end - arena.next) >= size) {
        void* block = arena.next;
        arena.next += size;
        return block;
    }
    // A large record gets a block of its own; the current block keeps its free room.
    if (size > kBlockSize / 4) return CheckedCalloc(1, size);
    uint8_t* block = static_cast<uint8_t*>(CheckedCalloc(1, kBlockSize));
    arena.next = block + size;
    arena.end = block + kBlockSize;
    return block;
}
