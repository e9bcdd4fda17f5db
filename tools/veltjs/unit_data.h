// One compiled script as a host receives it, copied out of the CompileUnit (or read back from a
// unit container), and the names it refers to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "veltjs.h"

constexpr uint32_t kNoName = 0xFFFFFFFFu;
constexpr uint64_t kNoUseSite = ~0ull;

struct FunctionData {
    uint32_t nameIndex = kNoName;
    uint32_t declaredNameIndex = kNoName;
    uint64_t codeOffset = 0;
    int32_t paramCount = 0;
    std::vector<uint32_t> params;
    std::vector<uint32_t> locals;   // (qualifiedIndex, nameIndex) pairs, flattened
    std::vector<uint32_t> slots;    // the same shape
    uint32_t flags = 0;
};

struct UnitData {
    std::string file;
    std::string script;
    bool topLevel = false;
    uint64_t codeBytes = 0;
    std::vector<uint32_t> code;        // codeBytes rounded up to whole words
    std::vector<uint32_t> positions;   // (code offset, source offset) pairs, flattened
    std::vector<PatchRecord> variablePatches;
    std::vector<PatchRecord> functionPatches;
    std::vector<PatchRecord> stringPatches;
    std::vector<FunctionData> functions;
};

// Copies a successfully compiled unit.
UnitData CopyUnit(const CompileUnit* unit, const std::string& file, const std::string& script, bool topLevel);

// The ids the unit's listing and records read from the name table, sorted, each once: operands
// of calls, variable, boolean and string instructions (the disassembler's rules), patch
// records, and function records with their parameters, locals and slots.
std::vector<uint32_t> NamesUsed(const UnitData& unit);

// The library's name table as it stands in this process.
uint32_t NameTableCount();
// Text of a name id below NameTableCount(), else null.
const char* NameText(uint32_t id);
// Appends a name at the next id (the table keeps the pointer).
void AppendNameToTable(const char* text);

// The listing of the unit's code by the library (empty for no code).
std::string ListingOf(const UnitData& unit);
