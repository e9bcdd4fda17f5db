// Growable buffers of 32-bit words: the code buffer and the position buffer of a compile.
#pragma once

#include <cstdint>
#include <initializer_list>

class VMBuffer {
public:
    VMBuffer() = default;
    VMBuffer(const VMBuffer&) = delete;
    VMBuffer& operator=(const VMBuffer&) = delete;
    virtual ~VMBuffer();

    int64_t size = 0;          // capacity while writing; bytes written once finished
    uint8_t* data = nullptr;
    uint8_t* cursor = nullptr;
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
// Appends the words in order, doubling the block as often as needed.
void WriteWords(VMBuffer& buffer, std::initializer_list<uint32_t> words);
// The byte offset where the next word goes.
inline int64_t CurrentOffset(const VMBuffer& buffer) { return buffer.cursor - buffer.data; }
// Rewrites the word at a byte offset already written.
void PatchWord(VMBuffer& buffer, int64_t offset, uint32_t word);
uint32_t ReadWord(const VMBuffer& buffer, int64_t offset);
// size becomes the number of bytes written.
void FinishBuffer(VMBuffer& buffer);
