// Compiles 5,000 generated scripts in one process and reports the throughput and whether compiles
// slow down as the process-wide tables grow (time of the last 500 over time of the first 500).
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "veltjs.h"

namespace {

constexpr int kScripts = 5000;
constexpr int kWindow = 500;
constexpr int kFunctionsPerScript = 12;

// One function of a few dozen lines; every name carries the script and function numbers.
void AppendFunction(std::string& out, int script, int index) {
    std::string s = std::to_string(script) + "_" + std::to_string(index);
    out += "function update_" + s + "(self, delta, options) {\n";
    out += "  var speed_" + s + " = options.speed * delta + " + std::to_string(index) + ";\n";
    out += "  var items_" + s + " = [1, 2, 3, self.x, self.y, , \"tag_" + s + "\"];\n";
    out += "  var state_" + s + " = { name: \"enemy_" + s + "\", hp: 100, pos: { x: self.x, y: self.y },\n";
    out += "    get alive() { return this.hp > 0; }, set alive(v) { this.hp = v ? 1 : 0; } };\n";
    out += "  for (var i = 0; i < items_" + s + ".length; i++) {\n";
    out += "    if (items_" + s + "[i] === undefined) { continue; }\n";
    out += "    state_" + s + ".hp -= items_" + s + "[i] * 2 % 7;\n";
    out += "    while (state_" + s + ".hp > 50 && speed_" + s + " >= 0) { state_" + s + ".hp = state_" + s +
           ".hp - 1; speed_" + s + "--; }\n";
    out += "  }\n";
    out += "  for (var key_" + s + " in state_" + s + ") { self[key_" + s + "] = state_" + s + "[key_" + s + "]; }\n";
    out += "  switch (self.mode) {\n";
    out += "    case 1: self.x += speed_" + s + "; break;\n";
    out += "    case 2: self.y -= speed_" + s + "; break;\n";
    out += "    default: self.x = (self.x << 1) | 0;\n";
    out += "  }\n";
    out += "  try {\n";
    out += "    helper_" + s + "(self, typeof options == \"object\" ? options : null);\n";
    out += "  } catch (e) {\n";
    out += "    log(\"failed \" + e);\n";
    out += "  } finally {\n";
    out += "    self.updated = true;\n";
    out += "  }\n";
    out += "  var callback_" + s + " = function (a, b) { return a * b + speed_" + s + "; };\n";
    out += "  do { speed_" + s + " = callback_" + s + "(speed_" + s + ", 0.5); } while (speed_" + s + " > 1);\n";
    out += "  return new Result(self, state_" + s + ", !state_" + s + ".alive);\n";
    out += "}\n";
    out += "function helper_" + s + "(target, extra) {\n";
    out += "  if (extra) { target.extra = extra; } else { target.extra = [target.x, target.y]; }\n";
    out += "  return target.extra;\n";
    out += "}\n\n";
}

std::string MakeScript(int script) {
    std::string out = "// generated script " + std::to_string(script) + "\n";
    out += "var config_" + std::to_string(script) + " = { width: 640, height: 480, title: \"level " +
           std::to_string(script) + "\" };\n\n";
    for (int index = 0; index < kFunctionsPerScript; index++) AppendFunction(out, script, index);
    out += "update_" + std::to_string(script) + "_0(this, 1, config_" + std::to_string(script) + ");\n";
    return out;
}

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
        sources.push_back(MakeScript(i));
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
