// Throughput, linearity and memory on every shape of script, VeltJS beside Duktape.
//
//   shapes_bench [--sizes 1,4,16] [--shapes realistic,flat,...] [--runs 3]
//
// Each measurement runs in a child process of its own, so that process-wide tables and the peak
// resident set start from nothing: the child generates the script, then parses and compiles it
// through the exports (VeltJS) or compiles it with duk_pcompile_lstring (Duktape), and reports the
// time and the growth of its peak resident set. The best time of the runs is kept; a run longer
// than 20 s is not repeated.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "corpus.h"
#include "duktape.h"
#include "veltjs.h"

namespace {

struct Measure {
    double seconds = -1;
    double peakBytes = 0;
    int status = 0;
};

long PeakResidentKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

Measure RunVeltJS(const std::string& source) {
    VeltJS_Init();
    VeltJS_AddBuiltInFunction("log");
    long before = PeakResidentKiB();
    auto start = std::chrono::steady_clock::now();
    CompileUnit* unit = VeltJS_Parse(source.c_str(), "bench.js", "bench");
    if (unit->status == 0) VeltJS_Compile(unit, 0);
    Measure m;
    m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m.peakBytes = static_cast<double>(PeakResidentKiB() - before) * 1024.0;
    m.status = unit->status;
    if (unit->status != 0 && unit->errors) std::fprintf(stderr, "veltjs: %s", unit->errors[0]);
    return m;
}

Measure RunDuktape(const std::string& source) {
    duk_context* ctx = duk_create_heap_default();
    long before = PeakResidentKiB();
    auto start = std::chrono::steady_clock::now();
    int failed = duk_pcompile_lstring(ctx, 0, source.data(), source.size());
    Measure m;
    m.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m.peakBytes = static_cast<double>(PeakResidentKiB() - before) * 1024.0;
    m.status = failed;
    if (failed) std::fprintf(stderr, "duktape: %s\n", duk_safe_to_string(ctx, -1));
    duk_destroy_heap(ctx);
    return m;
}

// Runs one measurement in a child process and reads its result back through a pipe.
Measure InChild(const bench::Shape& shape, size_t bytes, bool duktape) {
    int fds[2];
    if (pipe(fds) != 0) return {};
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        std::string source = bench::MakeShape(shape, bytes);
        Measure m = duktape ? RunDuktape(source) : RunVeltJS(source);
        ssize_t written = write(fds[1], &m, sizeof m);
        _exit(written == static_cast<ssize_t>(sizeof m) ? 0 : 1);
    }
    close(fds[1]);
    Measure m;
    if (read(fds[0], &m, sizeof m) != static_cast<ssize_t>(sizeof m)) m = Measure{};
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return m;
}

Measure Best(const bench::Shape& shape, size_t bytes, bool duktape, int runs) {
    Measure best;
    for (int run = 0; run < runs; run++) {
        Measure m = InChild(shape, bytes, duktape);
        if (m.seconds < 0) return m;
        if (best.seconds < 0 || m.seconds < best.seconds) best = m;
        if (m.seconds > 20) break;
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<int> sizes = {1, 4, 16};
    std::vector<std::string> shapeNames;
    int runs = 3;
    std::vector<std::string> allShapes;
    for (const bench::Shape& shape : bench::Shapes()) allShapes.push_back(shape.name);
    CLI::App app{"Throughput, linearity and memory on every shape of script, VeltJS beside Duktape.\n"
                 "Each measurement runs in a child process of its own; the best time of the runs is kept.",
                 "shapes_bench"};
    app.add_option("--sizes", sizes, "Sizes of each script, in MB, comma-separated")
        ->delimiter(',')
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option("--shapes", shapeNames, "Shapes to measure, comma-separated (default: all)")
        ->delimiter(',')
        ->check(CLI::IsMember(allShapes));
    app.add_option("--runs", runs, "Runs of each measurement (a run over 20 s is not repeated)")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    std::vector<const bench::Shape*> shapes;
    for (const std::string& name : shapeNames) shapes.push_back(bench::FindShape(name));
    if (shapes.empty()) {
        for (const bench::Shape& shape : bench::Shapes()) shapes.push_back(&shape);
    }

    std::printf("| shape | size | VeltJS s | VeltJS MB/s | Duktape MB/s | ratio | time/MB vs 1 MB | peak bytes per source byte |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    int failures = 0;
    for (const bench::Shape* shape : shapes) {
        double perMegabyteAtOne = 0;
        for (int mb : sizes) {
            size_t bytes = static_cast<size_t>(mb) << 20;
            Measure velt = Best(*shape, bytes, false, runs);
            Measure duk = Best(*shape, bytes, true, runs);
            failures += velt.status != 0 || velt.seconds < 0;
            double megabytes = static_cast<double>(bench::MakeShape(*shape, bytes).size()) / (1 << 20);
            double perMegabyte = velt.seconds / megabytes;
            if (mb == 1) perMegabyteAtOne = perMegabyte;
            char relative[32] = "-";
            if (perMegabyteAtOne > 0) std::snprintf(relative, sizeof relative, "%.2f", perMegabyte / perMegabyteAtOne);
            // Duktape refuses some shapes (more constants in one function than it allows).
            char peer[32] = "fails";
            char ratio[32] = "-";
            if (duk.status == 0 && duk.seconds > 0) {
                std::snprintf(peer, sizeof peer, "%.1f", megabytes / duk.seconds);
                std::snprintf(ratio, sizeof ratio, "%.2f", duk.seconds / velt.seconds);
            }
            // A compile that ended with a message is marked: its figures are of the work up to it.
            const char* ended = velt.status != 0 ? " (error)" : "";
            std::printf("| %s | %d MB | %.3f%s | %.1f | %s | %s | %s | %.1f |\n", shape->name, mb, velt.seconds, ended,
                        megabytes / velt.seconds, peer, ratio, relative, velt.peakBytes / (megabytes * (1 << 20)));
            std::fflush(stdout);
        }
    }
    return failures == 0 ? 0 : 1;
}
