// Sequences of VeltJS_AddName and VeltJS_AddBuiltInFunction interleaved with compiles. The tables
// are process-wide, so each input continues from the state the earlier ones left.
//
// Input: a list of operations, each one byte followed by its operands:
//   op % 4 == 0  AddName: index (2 bytes, little-endian, signed, kept below 4096 in size), name
//   op % 4 == 1  AddBuiltInFunction: name
//   op % 4 == 2  parse and compile a script (top level when bit 2 of op is set): text
//   op % 4 == 3  AddName with a null name at the index that follows (2 bytes)
// where a name is a length byte and that many bytes, and a text a 2-byte length and the bytes.
//
// Indices stay below 4096 because the name table grows to the largest index a host gives it:
// VeltJS_AddName(name, 0x7FFFFFF0) asks for 16 GiB, a documented huge allocation rather than a
// defect, and would only make the fuzzer measure the machine's memory.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "veltjs.h"

namespace {

constexpr int32_t kIndexLimit = 4096;

struct Reader {
    const uint8_t* data;
    size_t size;
    size_t at;
};

bool TakeByte(Reader& r, uint8_t* value) {
    if (r.at >= r.size) return false;
    *value = r.data[r.at++];
    return true;
}

size_t TakeLength(Reader& r, size_t bytes) {
    size_t length = 0;
    for (size_t i = 0; i < bytes; i++) {
        uint8_t b = 0;
        if (!TakeByte(r, &b)) break;
        length |= static_cast<size_t>(b) << (8 * i);
    }
    return length;
}

int32_t TakeIndex(Reader& r) {
    int16_t raw = static_cast<int16_t>(TakeLength(r, 2));
    return raw % kIndexLimit;
}

std::string TakeText(Reader& r, size_t lengthBytes) {
    size_t length = TakeLength(r, lengthBytes);
    if (length > r.size - r.at) length = r.size - r.at;
    std::string text(reinterpret_cast<const char*>(r.data + r.at), length);
    r.at += length;
    return text;
}

// VeltJS_AddName keeps the pointer itself, so the text must outlive every later compile.
const char* KeptCopy(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    VeltJS_Init();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader r{data, size, 0};
    uint8_t op = 0;
    while (TakeByte(r, &op)) {
        switch (op % 4) {
            case 0: {
                int32_t index = TakeIndex(r);
                VeltJS_AddName(KeptCopy(TakeText(r, 1)), index);
                break;
            }
            case 1:
                VeltJS_AddBuiltInFunction(TakeText(r, 1).c_str());
                break;
            case 2: {
                std::string source = TakeText(r, 2);
                CompileUnit* unit = VeltJS_Parse(source.c_str(), "names.js", "names");
                if (unit && unit->status == 0) VeltJS_Compile(unit, (op & 4) != 0);
                break;
            }
            default:
                VeltJS_AddName(nullptr, TakeIndex(r));
                break;
        }
    }
    return 0;
}
