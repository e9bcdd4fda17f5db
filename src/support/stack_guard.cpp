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

uintptr_t stackLimit = 0;
int32_t nesting = 0;

uintptr_t CurrentFrame() {
    return reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
}

}  // namespace

void BeginStackGuard() {
    nesting = 0;
#if defined(_WIN32)
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    stackLimit = static_cast<uintptr_t>(low) + kSafetyMargin;
#else
    pthread_attr_t attributes;
    stackLimit = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        void* address = nullptr;
        size_t size = 0;
        if (pthread_attr_getstack(&attributes, &address, &size) == 0) {
            stackLimit = reinterpret_cast<uintptr_t>(address) + kSafetyMargin;
        }
        pthread_attr_destroy(&attributes);
    }
#endif
}

bool StackIsLow() {
    return stackLimit != 0 && CurrentFrame() < stackLimit;
}

NestingLevel::NestingLevel(const SourcePosition* where, int32_t limit) {
    if (nesting >= limit || StackIsLow()) ReportError(where, "nesting too deep");
    nesting++;
}

NestingLevel::~NestingLevel() { nesting--; }
