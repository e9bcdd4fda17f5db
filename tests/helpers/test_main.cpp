// The tests' main: every test starts from the process state as it is at load, so the tests of one
// executable run in one process; the leak check (in sanitizer builds) runs before the library's
// tables are released at exit, so that what those tables still hold is not mistaken for a leak.
#include <gtest/gtest.h>

#include "state/process_state.h"

extern "C" void __lsan_do_leak_check(void) __attribute__((weak));

namespace {

class FreshProcessState : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { ResetProcessState(); }
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new FreshProcessState);
    int result = RUN_ALL_TESTS();
    if (__lsan_do_leak_check) __lsan_do_leak_check();
    return result;
}
