#include "bytecode/code_buffer.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "support/strings.h"

VMBuffer::~VMBuffer() {
    if (!dataInArena) FreeBlock(data, static_cast<size_t>(size), dataMapped);
    data = nullptr;
}

VMWriteBuffer::~VMWriteBuffer() = default;

VMWriteBuffer* CreateWriteBuffer() {
    VMWriteBuffer* buffer = new VMWriteBuffer();
    try {
        buffer->data = static_cast<uint8_t*>(CheckedMalloc(256));
    } catch (...) {
        delete buffer;
        throw;
    }
    buffer->size = 256;
    buffer->cursor = buffer->data;
    return buffer;
}

VMWriteBuffer* CreateWriteBufferFrom(SpareBlock& spare) {
    if (!spare.data) return CreateWriteBuffer();
    VMWriteBuffer* buffer = new VMWriteBuffer();
    buffer->data = spare.data;
    buffer->size = spare.size;
    buffer->cursor = buffer->data;
    spare = SpareBlock{nullptr, 0};
    return buffer;
}

void MakeRoomForWords(VMBuffer& buffer, int64_t needed) {
    int64_t written = buffer.cursor - buffer.data;
    if (buffer.size - written >= needed) return;
    int64_t size = buffer.size;
    while (size - written < needed) size *= 2;
    // Nothing refers to the old block, so it may move: a large block is then remapped rather
    // than copied into fresh pages.
    uint8_t* block = GrowBlock(buffer.data, static_cast<size_t>(buffer.size), static_cast<size_t>(written),
                               static_cast<size_t>(size), buffer.dataMapped);
    buffer.data = block;
    buffer.size = size;
    buffer.cursor = block + written;
}

void PatchWord(VMBuffer& buffer, int64_t offset, uint32_t word) { StoreWord(buffer.data + offset, word); }

uint32_t ReadWord(const VMBuffer& buffer, int64_t offset) { return LoadWord(buffer.data + offset); }

void FinishBuffer(VMBuffer& buffer) {
    int64_t written = buffer.cursor - buffer.data;
    // Only a mapped block gives pages back, and a mapped block is never copied to an arena.
    TrimBlock(buffer.data, static_cast<size_t>(buffer.size), static_cast<size_t>(written), buffer.dataMapped);
    buffer.size = written;
}

uint8_t* CopyWritten(const VMBuffer& buffer, Arena& arena) {
    int64_t written = buffer.cursor - buffer.data;
    if (static_cast<uint64_t>(written) > kArenaLargestCarvedBlock) return nullptr;
    return static_cast<uint8_t*>(ArenaCopyBlock(arena, buffer.data, static_cast<size_t>(written)));
}

void FinishWithCopy(VMBuffer& buffer, uint8_t* copy, SpareBlock& spare) {
    if (copy) {
        int64_t written = buffer.cursor - buffer.data;
        // What was copied fits an arena block, so the buffer's own block is a heap block.
        if (!spare.data) {
            spare = SpareBlock{buffer.data, buffer.size};
        } else {
            std::free(buffer.data);
        }
        buffer.data = copy;
        buffer.cursor = copy + written;
        buffer.dataInArena = true;
    }
    FinishBuffer(buffer);
}
