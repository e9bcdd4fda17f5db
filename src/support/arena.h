// Memory for records that live as long as the process: blocks are carved up front to back and
// never freed, as the syntax trees that units keep are never freed. A record then costs no
// allocation header and no call of the allocator.
#pragma once

#include <cstddef>
#include <cstdint>

struct Arena {
    uint8_t* next;   // the first free byte of the current block
    uint8_t* end;    // one past the current block
};

// `size` zeroed bytes, aligned for any record. Throws std::bad_alloc with the arena unchanged
// when a new block cannot be had.
void* ArenaAllocate(Arena& arena, size_t size);
