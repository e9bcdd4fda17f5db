// veltjs_time: parses and compiles script files through the exports, as shapes_bench does for its
// generated scripts, and prints one line per file. Portable, so that the same measurement runs on
// Linux and, cross-built, under wine (bench/wine-figures.sh drives both).
//
//   veltjs_time FILE...
//
// Each line: FILE  SIZE MB  SECONDS s  MB/s  PEAK bytes/byte, where the last figure is the growth of
// the process's peak memory (Linux: peak resident set; Windows: peak working set) during the parse
// and compile, per byte of source. The library's tables are process-wide and the peak never falls,
// so only the first file of a run starts from nothing: give one file per run for clean figures.
#ifdef _WIN32
// No min and max macros: they would break std::numeric_limits<T>::max() in CLI11.
#define NOMINMAX
#include <windows.h>
// psapi.h needs windows.h first.
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "veltjs.h"

namespace {

double PeakMemoryBytes() {
#ifdef _WIN32
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return 0;
    return static_cast<double>(counters.PeakWorkingSetSize);
#else
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024.0;
#endif
}

bool ReadFile(const std::string& path, std::string& text) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    char buffer[1 << 16];
    size_t count;
    while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, count);
    bool ok = !std::ferror(file);
    std::fclose(file);
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> files;
    CLI::App app{"Parses and compiles each script file through the exports and prints, per file, its size,\n"
                 "the time, the throughput and the peak memory growth per source byte.\n"
                 "The library's tables are process-wide: give one file per run for clean figures.",
                 "veltjs_time"};
    app.add_option("FILE", files, "Script files")->required();
    CLI11_PARSE(app, argc, argv);

    VeltJS_Init();
    VeltJS_AddBuiltInFunction("log");
    int failures = 0;
    for (const std::string& path : files) {
        std::string source;
        if (!ReadFile(path, source)) {
            std::fprintf(stderr, "veltjs_time: cannot read %s\n", path.c_str());
            failures++;
            continue;
        }
        double before = PeakMemoryBytes();
        auto start = std::chrono::steady_clock::now();
        CompileUnit* unit = VeltJS_Parse(source.c_str(), "bench.js", "bench");
        if (unit->status == 0) VeltJS_Compile(unit, 0);
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        double peak = PeakMemoryBytes() - before;
        if (unit->status != 0) {
            if (unit->errors) std::fprintf(stderr, "veltjs_time: %s: %s", path.c_str(), unit->errors[0]);
            failures++;
        }
        double bytes = static_cast<double>(source.size());
        double megabytes = bytes / (1 << 20);
        std::printf("%s %.2f MB %.5f s %.2f MB/s %.2f bytes/byte\n", path.c_str(), megabytes, seconds,
                    megabytes / seconds, peak / bytes);
        std::fflush(stdout);
    }
    return failures == 0 ? 0 : 1;
}
