// Listing of bytecode, one line per instruction.
#pragma once

#include <cstdint>

#include "support/strings.h"

// Names are printed from `names` (entry i is the text of name id i), the table the caller owns.

// Appends the line of the instruction at byte `position` and returns the next position.
int32_t DisassembleOne(const uint32_t* code, int32_t position, const PtrArray& names, StringBuilder& out);
// The whole listing of `length` bytes, or null when length < 1 or nothing was written.
char* Disassemble(const uint32_t* code, int64_t length, const PtrArray& names);
