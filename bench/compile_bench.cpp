// Compiles 5,000 generated scripts in one process and reports the throughput and whether compiles
// slow down as the process-wide tables grow (time of the last 500 over time of the first 500).
// The scripts are the project that `veltjs_corpus --project` writes and bench/compare-commits.sh
// compares.
//
//   compile_bench [--scripts 5000] [--join 1]
//
// `--join N` makes each script of N of the project's scripts one after the other (about 16 KB
// each): a project of larger scripts, whose memory the process takes in larger steps. The windows
// are a tenth of the scripts.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/resource.h>
#endif

#include <CLI/CLI.hpp>

#include "corpus.h"
#include "veltjs.h"

namespace {


// The process's CPU time so far, in user mode and in the kernel (page faults are kernel time).
struct CpuTimes {
    double user;
    double kernel;
};

CpuTimes ProcessCpuTimes() {
#if defined(_WIN32)
    FILETIME created, exited, kernel, user;
    if (!GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user)) return {0, 0};
    auto seconds = [](const FILETIME& time) {
        return static_cast<double>((static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) / 1e7;
    };
    return {seconds(user), seconds(kernel)};
#else
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& time) { return static_cast<double>(time.tv_sec) + time.tv_usec / 1e6; };
    return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
#endif
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Compiles a project of generated scripts (5,000 by default) in one process and reports the\n"
                 "throughput and whether compiles slow down as the process-wide tables grow (the last tenth\n"
                 "of the scripts over the first tenth).",
                 "compile_bench"};
    int scriptCount = 5000;
    int join = 1;
    app.add_option("--scripts", scriptCount, "Number of scripts")->check(CLI::Range(10, 1000000));
    app.add_option("--join", join, "Project scripts joined into each script")->check(CLI::Range(1, 1000));
    CLI11_PARSE(app, argc, argv);
    const int windowSize = scriptCount / 10;   // a tenth of the scripts

    VeltJS_Init();
    VeltJS_AddBuiltInFunction("log");

    std::vector<std::string> sources;
    sources.reserve(scriptCount);
    size_t totalBytes = 0;
    size_t totalLines = 0;
    for (int i = 0; i < scriptCount; i++) {
        std::string source;
        for (int piece = 0; piece < join; piece++) source += bench::MakeProjectScript(i * join + piece);
        sources.push_back(std::move(source));
        totalBytes += sources.back().size();
        for (char c : sources.back()) totalLines += c == '\n';
    }

    std::vector<double> seconds(scriptCount);
    // The CPU times at the start of each window, and at the end of the last.
    std::vector<CpuTimes> windowCpu;
    int failures = 0;
    using Clock = std::chrono::steady_clock;
    Clock::time_point allStart = Clock::now();
    for (int i = 0; i < scriptCount; i++) {
        if (i % windowSize == 0) windowCpu.push_back(ProcessCpuTimes());
        std::string name = "script" + std::to_string(i);
        Clock::time_point start = Clock::now();
        CompileUnit* unit = VeltJS_Parse(sources[i].c_str(), (name + ".js").c_str(), name.c_str());
        if (unit->status == 0) VeltJS_Compile(unit, 1);
        seconds[i] = std::chrono::duration<double>(Clock::now() - start).count();
        if (unit->status != 0) {
            if (failures++ == 0) std::fprintf(stderr, "script %d failed: %s", i, unit->errors[0]);
        }
    }
    double total = std::chrono::duration<double>(Clock::now() - allStart).count();
    windowCpu.push_back(ProcessCpuTimes());

    double first = 0;
    double last = 0;
    for (int i = 0; i < windowSize; i++) {
        first += seconds[i];
        last += seconds[scriptCount - windowSize + i];
    }
    // The trend across the run: the time of each window of scripts, its slowest script, and its CPU
    // time split into user mode and the kernel: a window slower for the kernel's page clearing
    // alone is the machine's fresh memory getting dearer, not the library doing more per script.
    for (int start = 0, window = 0; start < scriptCount; start += windowSize, window++) {
        double sum = 0;
        double slowest = 0;
        for (int i = start; i < start + windowSize && i < scriptCount; i++) {
            sum += seconds[i];
            if (seconds[i] > slowest) slowest = seconds[i];
        }
        const CpuTimes& from = windowCpu[static_cast<size_t>(window)];
        const CpuTimes& to = windowCpu[static_cast<size_t>(window) + 1];
        std::printf("scripts %4d-%4d: %.3f s (slowest %.1f ms; CPU %.3f s user, %.3f s kernel)\n", start,
                    start + windowSize - 1, sum, slowest * 1000, to.user - from.user, to.kernel - from.kernel);
    }
    double megabytes = static_cast<double>(totalBytes) / (1024.0 * 1024.0);
    std::printf("scripts: %d (%zu lines, %.1f MB, %d failed)\n", scriptCount, totalLines, megabytes, failures);
    std::printf("total: %.3f s, %.2f MB/s\n", total, megabytes / total);
    std::printf("first %d: %.3f s, last %d: %.3f s, ratio %.3f\n", windowSize, first, windowSize, last, last / first);
    return failures == 0 && last / first < 1.3 ? 0 : 1;
}
