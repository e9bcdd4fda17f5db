// Guards the recursive parser and code generator against overflowing the host thread's stack.
#pragma once

#include <cstdint>

#include "support/diagnostics.h"

// Fixed recursion limits, counted in guarded routines active at once: the parser's statement,
// assignment, member-call and primary routines, and the code generator's statement and
// expression dispatchers (every recursion of either passes through them). They sit well inside
// what a 1 MiB stack holds on every platform, so a script nests too deeply on all of them or on
// none; the stack check below only matters for hosts whose threads have less.
constexpr int32_t kMaxParseNesting = 2048;
constexpr int32_t kMaxCompileNesting = 1600;

// The recursion state of one parse or one compile: the stack address below which too little is
// left, and the guarded routines active. A zeroed guard counts levels but never finds the stack
// low.
struct StackGuard {
    uintptr_t limit;
    int32_t nesting;
};

// Records the calling thread's stack bounds and clears the nesting count; the parser and the
// code generator call it when a parse or a compile begins.
void BeginStackGuard(StackGuard& guard);
// True when less than the safety margin is left below the current frame (inline: the frame is
// the guarded routine's own).
inline bool StackIsLow(const StackGuard& guard) {
    return guard.limit != 0 && reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) < guard.limit;
}
// Reports "nesting too deep" at `where`.
[[noreturn]] void ReportNestingTooDeep(const SourcePosition* where);

// One level of recursion while the record lives. Reports "nesting too deep" at `where` when
// `limit` levels are already active or the stack is low. Inline: the parser and the code
// generator make one for nearly every node.
struct NestingLevel {
    NestingLevel(StackGuard& guard, const SourcePosition* where, int32_t limit) : guard(guard) {
        if (guard.nesting >= limit || StackIsLow(guard)) ReportNestingTooDeep(where);
        guard.nesting++;
    }
    ~NestingLevel() { guard.nesting--; }
    NestingLevel(const NestingLevel&) = delete;
    NestingLevel& operator=(const NestingLevel&) = delete;
    StackGuard& guard;
};
