// Parsing throughput and memory: scripts of 1, 10 and 50 MB of ordinary game code, parsed
// through VeltJS_Parse. Prints MB/s and the peak resident memory added per MB of source.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>

#include "veltjs.h"

namespace {

// One function of typical runner script: locals, loops, object and array literals, calls,
// conditionals, string and number literals, a switch and a try.
void AppendChunk(std::string& out, int n) {
    std::string id = std::to_string(n);
    out += "// Enemy behaviour " + id + "\n";
    out += "function enemy_step_" + id + "(self, other, dt) {\n";
    out += "    var speed = self.speed * dt + 0.5, dir = point_direction(self.x, self.y, other.x, other.y);\n";
    out += "    var state = { hp: self.hp - 1, name: \"enemy" + id + "\", pos: [self.x, self.y], "
           "get alive() { return this.hp > 0; } };\n";
    out += "    for (var i = 0; i < self.targets.length; i++) {\n";
    out += "        if (self.targets[i].hp <= 0 && !self.targets[i].dead) { self.targets[i].dead = true; continue; }\n";
    out += "        self.score += (self.targets[i].value * 2 + 1) % 7 | 0;\n";
    out += "    }\n";
    out += "    for (var key in state) { if (typeof state[key] === 'number') total += state[key]; }\n";
    out += "    while (speed > 10) speed = speed / 2;\n";
    out += "    switch (self.mode) {\n";
    out += "        case 0: self.x += lengthdir_x(speed, dir); break;\n";
    out += "        case 1: self.y -= lengthdir_y(speed, dir) >> 1; break;\n";
    out += "        default: self.mode = self.mode == 2 ? 0 : 1;\n";
    out += "    }\n";
    out += "    try { self.callback(function (a, b) { return a.id - b.id; }); } catch (e) { show_debug_message(e); }\n";
    out += "    return state.alive ? new Point(self.x, self.y) : null;\n";
    out += "}\n";
}

std::string MakeScript(size_t bytes) {
    std::string out;
    out.reserve(bytes + 2048);
    for (int n = 0; out.size() < bytes; n++) AppendChunk(out, n);
    return out;
}

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long PeakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Parses generated scripts of 1, 10 and 50 MB through VeltJS_Parse and prints wall and CPU\n"
                 "throughput and the peak resident memory added per MB of source.",
                 "parse_bench"};
    CLI11_PARSE(app, argc, argv);

    VeltJS_Init();
    // Wall time depends on what else runs on the machine; CPU time (user + system) does not.
    std::printf("%-6s %10s %10s %10s %12s %14s\n", "size", "wall s", "wall MB/s", "cpu s", "cpu MB/s",
                "peak MB/MB");
    for (size_t megabytes : {1u, 10u, 50u}) {
        std::string script = MakeScript(megabytes * 1024 * 1024);
        double sizeMb = static_cast<double>(script.size()) / (1024.0 * 1024.0);
        long before = PeakKilobytes();
        double cpuStart = CpuSeconds();
        auto start = std::chrono::steady_clock::now();
        CompileUnit* unit = VeltJS_Parse(script.c_str(), "bench.js", "bench");
        auto stop = std::chrono::steady_clock::now();
        double cpu = CpuSeconds() - cpuStart;
        long after = PeakKilobytes();
        if (unit->status != 0) {
            std::printf("parse failed: %s", unit->errors[0]);
            return 1;
        }
        double seconds = std::chrono::duration<double>(stop - start).count();
        double peakMb = static_cast<double>(after - before) / 1024.0;
        std::printf("%3zu MB %10.3f %10.1f %10.3f %12.1f %14.1f\n", megabytes, seconds, sizeMb / seconds, cpu,
                    sizeMb / cpu, peakMb / sizeMb);
    }
    return 0;
}
