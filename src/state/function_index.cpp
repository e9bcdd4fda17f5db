// Function records by qualified name: a later script that defines a function of the same
// qualified name replaces the record in place.
#include <cstring>

#include "state/process_state.h"

namespace {

// The first record whose qualified name, read through the name table, is this text.
int32_t ScanFunctionRecords(const char* qualifiedName) {
    for (int32_t position = 0; position < GlobalFunctionRecords.count; position++) {
        const FunctionRecord* record = static_cast<const FunctionRecord*>(GlobalFunctionRecords.data[position]);
        if (!record || record->nameIndex >= static_cast<uint32_t>(NameArray.count)) continue;
        const char* text = static_cast<const char*>(NameArray.data[record->nameIndex]);
        if (text && std::strcmp(text, qualifiedName) == 0) return position;
    }
    return -1;
}

}  // namespace

int32_t FindFunctionRecord(const char* qualifiedName) {
    if (!qualifiedName) return -1;
    // Once a host has renamed an entry, names no longer match the index: read them as stored.
    if (NameOverwrites() != 0) return ScanFunctionRecords(qualifiedName);
    auto& positions = State().functionPositions;
    auto found = positions.find(qualifiedName);
    return found == positions.end() ? -1 : found->second;
}

bool FunctionRecordIndexAgrees() {
    for (const auto& entry : State().functionPositions) {
        if (entry.second < 0 || entry.second >= GlobalFunctionRecords.count) return false;
        if (NameOverwrites() != 0) continue;
        const FunctionRecord* record = static_cast<const FunctionRecord*>(GlobalFunctionRecords.data[entry.second]);
        if (!record || record->nameIndex >= static_cast<uint32_t>(NameArray.count)) return false;
        const char* text = static_cast<const char*>(NameArray.data[record->nameIndex]);
        if (!text || entry.first != text) return false;
    }
    return true;
}

void SetFunctionRecord(const char* qualifiedName, int32_t position, FunctionRecord* record) {
    if (position >= 0 && position < GlobalFunctionRecords.count) {
        // Journaled first, so that a compile that fails for memory can put the old one back.
        if (StateMark* mark = State().activeMark) mark->replaced.push_back({position, GlobalFunctionRecords.data[position]});
        GlobalFunctionRecords.data[position] = record;
        return;
    }
    auto& positions = State().functionPositions;
    if (!qualifiedName) {
        PushPtr(GlobalFunctionRecords, record);
        return;
    }
    // The index entry is made first and taken out again when the push fails, so the two always
    // agree.
    auto inserted = positions.emplace(qualifiedName, GlobalFunctionRecords.count);
    try {
        PushPtr(GlobalFunctionRecords, record);
    } catch (...) {
        if (inserted.second) positions.erase(inserted.first);
        throw;
    }
}
