// Allocation-failure injection for test builds (VELTJS_FAULT_INJECTION): a countdown that makes a
// chosen allocation of the library fail, so that every allocation's failure path can be run. The
// shipped library is built without it, and then the check below is a constant false.
#pragma once

#include <cstdint>

#if defined(VELTJS_FAULT_INJECTION)

// Counts one allocation while armed; true when this allocation is to fail.
bool AllocationShouldFail();
// From now on the `nth` allocation (from 1) fails; with `persistent`, every later one fails too.
void ArmAllocationFailure(int64_t nth, bool persistent);
// Stops counting and returns how many allocations were counted while armed.
int64_t DisarmAllocationFailure();
// True when an allocation failed since the last arming.
bool AllocationFailureHappened();

#else

inline bool AllocationShouldFail() { return false; }

#endif
