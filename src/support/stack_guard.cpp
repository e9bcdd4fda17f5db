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

uintptr_t CurrentFrame() {
    return reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
}

}  // namespace

void BeginStackGuard(StackGuard& guard) {
    guard.nesting = 0;
#if defined(_WIN32)
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    guard.limit = static_cast<uintptr_t>(low) + kSafetyMargin;
#else
    pthread_attr_t attributes;
    guard.limit = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        void* address = nullptr;
        size_t size = 0;
        if (pthread_attr_getstack(&attributes, &address, &size) == 0) {
            guard.limit = reinterpret_cast<uintptr_t>(address) + kSafetyMargin;
        }
        pthread_attr_destroy(&attributes);
    }
#endif
}

bool StackIsLow(const StackGuard& guard) {
    return guard.limit != 0 && CurrentFrame() < guard.limit;
}

NestingLevel::NestingLevel(StackGuard& guard, const SourcePosition* where, int32_t limit) : guard(guard) {
    if (guard.nesting >= limit || StackIsLow(guard)) ReportError(where, "nesting too deep");
    guard.nesting++;
}

NestingLevel::~NestingLevel() { guard.nesting--; }
