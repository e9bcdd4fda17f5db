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
