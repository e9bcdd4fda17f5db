// Guards the recursive parser and code generator against overflowing the host thread's stack.
#pragma once

#include "api/diagnostics.h"

// Records the calling thread's stack bounds; every export that parses or compiles calls it.
void BeginStackGuard();
// True when less than the safety margin is left below the current frame.
bool StackIsLow();
// Reports "nesting too deep" at `where` when the stack is low.
void CheckNesting(const SourcePosition* where);
