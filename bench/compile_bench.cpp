// Compiles 5,000 generated scripts in one process and reports the throughput and whether compiles
// slow down as the process-wide tables grow (time of the last 500 over time of the first 500).
// The scripts are the project that `veltjs_corpus --project` writes and bench/compare-commits.sh
// compares.
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "corpus.h"
#include "veltjs.h"

namespace {

constexpr int kScripts = 5000;
constexpr int kWindow = 500;

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Compiles 5,000 generated scripts in one process and reports the throughput and whether\n"
                 "compiles slow down as the process-wide tables grow (last 500 scripts over first 500).",
                 "compile_bench"};
    CLI11_PARSE(app, argc, argv);

    VeltJS_Init();
    VeltJS_AddBuiltInFunction("log");

    std::vector<std::string> sources;
    sources.reserve(kScripts);
    size_t totalBytes = 0;
    size_t totalLines = 0;
    for (int i = 0; i < kScripts; i++) {
        sources.push_back(bench::MakeProjectScript(i));
        totalBytes += sources.back().size();
        for (char c : sources.back()) totalLines += c == '\n';
    }

    std::vector<double> seconds(kScripts);
    int failures = 0;
    using Clock = std::chrono::steady_clock;
    Clock::time_point allStart = Clock::now();
    for (int i = 0; i < kScripts; i++) {
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

    double first = 0;
    double last = 0;
    for (int i = 0; i < kWindow; i++) {
        first += seconds[i];
        last += seconds[kScripts - kWindow + i];
    }
    // The trend across the run: the time of each window of scripts, and its slowest script.
    for (int start = 0; start < kScripts; start += kWindow) {
        double sum = 0;
        double slowest = 0;
        for (int i = start; i < start + kWindow && i < kScripts; i++) {
            sum += seconds[i];
            if (seconds[i] > slowest) slowest = seconds[i];
        }
        std::printf("scripts %4d-%4d: %.3f s (slowest %.1f ms)\n", start, start + kWindow - 1, sum, slowest * 1000);
    }
    double megabytes = static_cast<double>(totalBytes) / (1024.0 * 1024.0);
    std::printf("scripts: %d (%zu lines, %.1f MB, %d failed)\n", kScripts, totalLines, megabytes, failures);
    std::printf("total: %.3f s, %.2f MB/s\n", total, megabytes / total);
    std::printf("first %d: %.3f s, last %d: %.3f s, ratio %.3f\n", kWindow, first, kWindow, last, last / first);
    return failures == 0 && last / first < 1.3 ? 0 : 1;
}
