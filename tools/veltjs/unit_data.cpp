#include "unit_data.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "bytecode/instruction.h"
#include "state/process_state.h"

namespace {

std::vector<PatchRecord> CopyPatches(PatchRecord** records, int32_t count) {
    std::vector<PatchRecord> copies;
    copies.reserve(count > 0 ? static_cast<size_t>(count) : 0);
    for (int32_t i = 0; i < count; i++) copies.push_back(*records[i]);
    return copies;
}

std::vector<uint32_t> CopyWords(const uint32_t* words, uint64_t count) {
    if (!words || count == 0) return {};
    return std::vector<uint32_t>(words, words + count);
}

FunctionData CopyFunction(const FunctionRecord& record) {
    FunctionData data;
    data.nameIndex = record.nameIndex;
    data.declaredNameIndex = record.declaredNameIndex;
    data.codeOffset = record.codeOffset;
    data.paramCount = record.paramCount;
    data.params = CopyWords(record.params, record.paramCount > 0 ? static_cast<uint64_t>(record.paramCount) : 0);
    data.locals = CopyWords(record.locals, 2ull * record.localCount);
    data.slots = CopyWords(record.slots, 2ull * record.slotCount);
    data.flags = record.flags;
    return data;
}

uint32_t WordAt(const UnitData& unit, uint64_t byteOffset) {
    uint64_t index = byteOffset / 4;
    return index < unit.code.size() ? unit.code[index] : 0;
}

}  // namespace

UnitData CopyUnit(const CompileUnit* unit, const std::string& file, const std::string& script, bool topLevel) {
    UnitData data;
    data.file = file;
    data.script = script;
    data.topLevel = topLevel;
    data.codeBytes = unit->codeSize > 0 ? static_cast<uint64_t>(unit->codeSize) : 0;
    data.code = CopyWords(unit->code, (data.codeBytes + 3) / 4);
    uint64_t pairs = unit->code2Size > 0 ? static_cast<uint64_t>(unit->code2Size) / 8 : 0;
    data.positions = CopyWords(unit->code2, 2 * pairs);
    data.variablePatches = CopyPatches(unit->vars, unit->varCount);
    data.functionPatches = CopyPatches(unit->funcs, unit->funcCount);
    data.stringPatches = CopyPatches(unit->strings, unit->stringCount);
    for (int32_t i = 0; i < unit->fourthCount; i++) data.functions.push_back(CopyFunction(*unit->fourth[i]));
    return data;
}

std::vector<uint32_t> NamesUsed(const UnitData& unit) {
    std::vector<uint32_t> ids;
    for (uint64_t at = 0; at < unit.codeBytes;) {
        uint32_t word = WordAt(unit, at);
        uint32_t opcode = word >> 24;
        uint32_t type = (word >> 16) & 15u;
        int32_t operand = static_cast<int32_t>(WordAt(unit, at + 4));
        if (HasOperand(opcode)) {
            if (type == TYPE_INT && opcode == OP_CALL && operand >= 0 && operand < 100000) {
                ids.push_back(static_cast<uint32_t>(operand));
            } else if (type == TYPE_BOOL || type == TYPE_VARIABLE) {
                ids.push_back(static_cast<uint32_t>(operand) & 0x0FFFFFFFu);
            } else if (type == TYPE_STRING && operand >= 0) {
                ids.push_back(static_cast<uint32_t>(operand));
            }
        }
        at += InstructionLength(word);
    }
    for (const auto* list : {&unit.variablePatches, &unit.functionPatches, &unit.stringPatches}) {
        for (const PatchRecord& record : *list) ids.push_back(record.nameIndex);
    }
    for (const FunctionData& function : unit.functions) {
        ids.push_back(function.nameIndex);
        ids.push_back(function.declaredNameIndex);
        ids.insert(ids.end(), function.params.begin(), function.params.end());
        ids.insert(ids.end(), function.locals.begin(), function.locals.end());
        ids.insert(ids.end(), function.slots.begin(), function.slots.end());
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    while (!ids.empty() && ids.back() == kNoName) ids.pop_back();
    return ids;
}

uint32_t NameTableCount() { return NameArray.count > 0 ? static_cast<uint32_t>(NameArray.count) : 0; }

const char* NameText(uint32_t id) {
    if (id >= NameTableCount()) return nullptr;
    return static_cast<const char*>(NameArray.data[id]);
}

void AppendNameToTable(const char* text) { PushName(text); }

std::string ListingOf(const UnitData& unit) {
    if (unit.codeBytes == 0) return std::string();
    // The last instruction is listed whole even when its operand runs past the end: pad with
    // zero words so that read stays inside the copy.
    std::vector<uint32_t> words(unit.code);
    words.resize(words.size() + 3, 0);
    char* listing = VeltJS_Disasm(words.data(), static_cast<int64_t>(unit.codeBytes));
    std::string text = listing ? listing : "";
    std::free(listing);
    return text;
}
