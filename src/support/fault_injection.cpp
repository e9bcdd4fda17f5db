#include "support/fault_injection.h"

#if defined(VELTJS_FAULT_INJECTION)

namespace {

bool armed = false;
bool persistentFailure = false;
bool failed = false;
int64_t counted = 0;
int64_t failAt = 0;

}  // namespace

bool AllocationShouldFail() {
    if (!armed) return false;
    counted++;
    if (counted == failAt || (persistentFailure && counted > failAt)) {
        failed = true;
        return true;
    }
    return false;
}

void ArmAllocationFailure(int64_t nth, bool persistent) {
    armed = true;
    persistentFailure = persistent;
    failed = false;
    counted = 0;
    failAt = nth;
}

int64_t DisarmAllocationFailure() {
    armed = false;
    return counted;
}

bool AllocationFailureHappened() { return failed; }

#endif
