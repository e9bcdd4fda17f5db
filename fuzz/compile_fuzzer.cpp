// Parses and compiles one script through the exports, then lists the code it produced.
// Input: byte 0 holds the flags (bit 0: top level; bit 1: compile even after a failed parse),
// then the script name up to the first newline (at most 64 bytes), then the source.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "veltjs.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    VeltJS_Init();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t flags = data[0];
    size_t at = 1;
    std::string scriptName;
    while (at < size && data[at] != '\n' && scriptName.size() < 64) scriptName += static_cast<char>(data[at++]);
    if (at < size && data[at] == '\n') at++;
    // The exports take NUL-terminated text: a NUL inside the input ends the source there.
    std::string source(reinterpret_cast<const char*>(data + at), size - at);

    CompileUnit* unit = VeltJS_Parse(source.c_str(), "fuzz.js", scriptName.c_str());
    if (!unit) return 0;
    if (unit->status == 0 || (flags & 2)) VeltJS_Compile(unit, flags & 1);
    if (unit->status == 0 && unit->code && unit->codeSize > 0) {
        char* listing = VeltJS_Disasm(unit->code, unit->codeSize);
        std::free(listing);
    }
    // Units and what they hold belong to the host, which here keeps them: the library's own
    // records point into them.
    return 0;
}
