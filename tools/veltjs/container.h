// The unit container (.vjc): compiled units with the names they use, in a small little-endian
// format laid out byte by byte in docs/cli.md.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "unit_data.h"

constexpr uint32_t kContainerVersion = 1;
// Name ids at or above this are refused when reading: more names than any project has, and a
// bound on what a damaged file can make the reader allocate.
constexpr uint32_t kContainerMaxNameId = 1u << 24;

struct Container {
    std::vector<std::pair<uint32_t, std::string>> names;   // (id, text), ids ascending
    std::vector<UnitData> units;
};

// The container's bytes. Names are taken from this process's name table: every id that one
// of the units uses (NamesUsed) and the table holds.
std::string EncodeContainer(const std::vector<UnitData>& units);

// True when the bytes start with the container's magic.
bool LooksLikeContainer(const std::string& bytes);

// Reads a container; false with `error` set ("truncated section", ...) when the bytes are not
// a well-formed container of a version this tool reads.
bool DecodeContainer(const std::string& bytes, Container& container, std::string& error);
