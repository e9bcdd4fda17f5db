// Growable buffers of 32-bit words: the code buffer and the position buffer of a compile.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "support/arena.h"

class VMBuffer {
public:
    VMBuffer() = default;
    VMBuffer(const VMBuffer&) = delete;
    VMBuffer& operator=(const VMBuffer&) = delete;
    virtual ~VMBuffer();

    int64_t size = 0;          // capacity while writing; bytes written once finished
    uint8_t* data = nullptr;
    uint8_t* cursor = nullptr;
    bool dataInArena = false;  // the finished data was copied to an arena: not freed with the buffer
    bool dataMapped = false;   // the data is a mapped block (GrowBlock), not a heap block
};

class VMWriteBuffer : public VMBuffer {
public:
    ~VMWriteBuffer() override;
};

// 32-bit words are stored little-endian whatever the host's byte order.
inline void StoreWord(uint8_t* at, uint32_t word) {
    at[0] = static_cast<uint8_t>(word);
    at[1] = static_cast<uint8_t>(word >> 8);
    at[2] = static_cast<uint8_t>(word >> 16);
    at[3] = static_cast<uint8_t>(word >> 24);
}

inline uint32_t LoadWord(const uint8_t* at) {
    return static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 | static_cast<uint32_t>(at[2]) << 16 |
           static_cast<uint32_t>(at[3]) << 24;
}

// A buffer of 256 bytes, nothing written.
VMWriteBuffer* CreateWriteBuffer();
// A buffer that writes into the spare block, taking it, or a new one of 256 bytes when there is
// none.
VMWriteBuffer* CreateWriteBufferFrom(SpareBlock& spare);
// Doubles the block as often as needed for `needed` more bytes.
void MakeRoomForWords(VMBuffer& buffer, int64_t needed);
// Appends the words in order, doubling the block as often as needed (inline: every instruction
// of a compile is written here).
inline void WriteWords(VMBuffer& buffer, std::initializer_list<uint32_t> words) {
    int64_t needed = static_cast<int64_t>(words.size()) * 4;
    if (buffer.size - (buffer.cursor - buffer.data) < needed) MakeRoomForWords(buffer, needed);
    for (uint32_t word : words) {
        StoreWord(buffer.cursor, word);
        buffer.cursor += 4;
    }
}
// The byte offset where the next word goes.
inline int64_t CurrentOffset(const VMBuffer& buffer) { return buffer.cursor - buffer.data; }
// Rewrites the word at a byte offset already written.
void PatchWord(VMBuffer& buffer, int64_t offset, uint32_t word);
uint32_t ReadWord(const VMBuffer& buffer, int64_t offset);
// size becomes the number of bytes written; a mapped block gives back the pages past them.
void FinishBuffer(VMBuffer& buffer);
// Keeping what a buffer wrote with the process's records, in two steps so that a compile can
// copy both of its buffers before it changes either:
// a copy in `arena` of what was written, or null when it is too large to be carved there (the
// buffer then keeps its own block). Throws with nothing changed when the copy cannot be had.
uint8_t* CopyWritten(const VMBuffer& buffer, Arena& arena);
// Never fails: the buffer's data becomes `copy` (when not null) and its own block the spare one
// (or is freed when there is a spare already); then FinishBuffer.
void FinishWithCopy(VMBuffer& buffer, uint8_t* copy, SpareBlock& spare);
