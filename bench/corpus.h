// Generated benchmark scripts: one generator per shape of script, each deterministic for a given
// size and seed, so that two commits (or VeltJS and a peer engine) compile the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Shape {
    const char* name;
    const char* description;
    std::string (*make)(size_t bytes, uint32_t seed);
};

// Every shape, in the order the benchmarks report them.
const std::vector<Shape>& Shapes();

// The shape of that name, or null.
const Shape* FindShape(const std::string& name);

// A script of at least `bytes` bytes (a little more: whole units of the shape).
std::string MakeShape(const Shape& shape, size_t bytes, uint32_t seed = 20261124);

// One script of a project of realistic scripts: every script has names of its own.
std::string MakeProjectScript(int index, uint32_t seed = 20261124);

}  // namespace bench
