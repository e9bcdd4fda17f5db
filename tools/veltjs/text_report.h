// The plain-text report of one compiled script: its code listing, positions, names and records,
// with every name id shown as its text.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "unit_data.h"

// A name for a human reader: control characters and backslashes escaped ("\n", "\x01", "\\"),
// "<unknown N>" for an id the table does not hold, "(null)" for an empty slot.
std::string DisplayName(uint32_t id);

// Writes "== FILE", then the sections. `namesTitle` heads the list of `nameIds` ("names added",
// "names used").
void WriteUnitText(FILE* out, const UnitData& unit, const std::string& listing, const char* namesTitle,
                   const std::vector<uint32_t>& nameIds);
