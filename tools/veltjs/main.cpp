// veltjs: compiles scripts in one process, as a host does, and shows what a host receives.
#include <cstdio>

#include "command_line.h"
#include "platform.h"
#include "run.h"
#include "veltjs.h"

extern "C" void __lsan_do_leak_check(void) __attribute__((weak));

int main(int argc, char** argv) {
    UseBinaryStandardStreams();
    Options options;
    int status = ParseCommandLine(CommandLineArguments(argc, argv), VELTJS_VERSION_STRING, options, stdout, stderr);
    if (status < 0) status = options.mode == Mode::Disasm ? RunDisasm(options) : RunCompile(options, VELTJS_VERSION_STRING);
    std::fflush(stdout);
    // In sanitizer builds, look for leaks while the library's tables still hold what they keep.
    if (__lsan_do_leak_check) __lsan_do_leak_check();
    return status;
}
