// The tests' main: runs the leak check (in sanitizer builds) before the library's tables are
// released at exit, so that what those tables still hold is not mistaken for a leak.
#include <gtest/gtest.h>

extern "C" void __lsan_do_leak_check(void) __attribute__((weak));

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    if (__lsan_do_leak_check) __lsan_do_leak_check();
    return result;
}
