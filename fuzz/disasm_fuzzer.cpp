// Lists raw words. The disassembler trusts its pointer (it reads a whole instruction at each
// position below the length), so the words are copied into a buffer with zeroed room for the
// longest instruction past the end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "veltjs.h"

namespace {
// A word plus the largest operand, rounded up.
constexpr size_t kPadding = 16;
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint32_t> words((size + kPadding + 3) / 4, 0);
    if (size) std::memcpy(words.data(), data, size);
    char* listing = VeltJS_Disasm(words.data(), static_cast<int64_t>(size));
    if (size == 0 && listing) __builtin_trap();  // nothing to list gives no text
    std::free(listing);
    return 0;
}
