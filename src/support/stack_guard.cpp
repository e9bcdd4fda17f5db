#include "support/stack_guard.h"

#include <cstdint>

#if defined(_WIN32)
#include <windows.h>
#else
#include <pthread.h>
#endif

namespace {

// Enough for a diagnostic, its formatting and the unwinding that follows it.
constexpr uintptr_t kSafetyMargin = 160 * 1024;

#if !defined(_WIN32)
// The lowest address this thread's stack may reach plus the margin, or 0 when unknown. Read once
// per thread: for the main thread the C library finds it by reading /proc/self/maps, which a
// project of thousands of scripts would otherwise do for every parse and every compile.
uintptr_t ThreadStackLimit() {
    thread_local bool known = false;
    thread_local uintptr_t limit = 0;
    if (known) return limit;
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        void* address = nullptr;
        size_t size = 0;
        if (pthread_attr_getstack(&attributes, &address, &size) == 0) {
            limit = reinterpret_cast<uintptr_t>(address) + kSafetyMargin;
            known = true;
        }
        pthread_attr_destroy(&attributes);
    }
    return limit;
}
#endif

}  // namespace

void BeginStackGuard(StackGuard& guard) {
    guard.nesting = 0;
#if defined(_WIN32)
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    guard.limit = static_cast<uintptr_t>(low) + kSafetyMargin;
#else
    guard.limit = ThreadStackLimit();
#endif
}

void ReportNestingTooDeep(const SourcePosition* where) {
    ReportError(where, "nesting too deep");
}
