// Listing of bytecode, one line per instruction.
#pragma once

#include <cstdint>

#include "api/strings.h"

// Appends the line of the instruction at byte `position` and returns the next position.
int32_t DisassembleOne(const uint32_t* code, int32_t position, StringBuilder& out);
// The whole listing of `length` bytes, or null when length < 1 or nothing was written.
char* Disassemble(const uint32_t* code, int64_t length);
