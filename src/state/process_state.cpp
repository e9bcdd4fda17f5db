#include "state/process_state.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "support/crc32.h"

// The one definition. Its tables are made at load (a plain static: nothing is allocated on first
// use, so using them can never fail halfway) and released at unload.
ProcessState TheProcessState{};

namespace {

void InitTables(ProcessState& state) {
    InitHashTable(state.builtInFunctionTable, 32);
    InitPtrArray(state.nameArray, 8);
    InitPtrArray(state.stringList, 8);
    InitPtrArray(state.varList, 8);
    InitPtrArray(state.funcList, 8);
    InitPtrArray(state.functionRecords, 8);
}

void FreeTables(ProcessState& state) {
    ClearHashTable(state.builtInFunctionTable);
    FreePtrArray(state.nameArray);
    FreePtrArray(state.stringList);
    FreePtrArray(state.varList);
    FreePtrArray(state.funcList);
    FreePtrArray(state.functionRecords);
    FreeNameIndex(state.nameIndex);
    state.nameIndex = NameIndex{};
    if (state.functionIndex.slots) {
        FreeTable(state.functionIndex.slots, (state.functionIndex.mask + 1) * sizeof(FunctionSlot));
    }
    state.functionIndex = FunctionIndex{};
}

struct Lifetime {
    Lifetime() { InitTables(TheProcessState); }
    ~Lifetime() { FreeTables(TheProcessState); }
};

Lifetime lifetime;

// States that ResetProcessState replaced: kept whole, so what earlier units point at stays
// allocated and reachable.
std::vector<ProcessState*>& RetiredStates() {
    static std::vector<ProcessState*> retired;
    return retired;
}

}  // namespace


uint32_t (&Crc32Table)[256] = TheProcessState.crc32Table;
HashTable& BuiltInFunctionTable = TheProcessState.builtInFunctionTable;
PtrArray& NameArray = TheProcessState.nameArray;
PtrArray& GlobalStringList = TheProcessState.stringList;
PtrArray& GlobalVarList = TheProcessState.varList;
PtrArray& GlobalFuncList = TheProcessState.funcList;
PtrArray& GlobalFunctionRecords = TheProcessState.functionRecords;

char* KeepText(const char* text) { return ArenaCopyText(State().texts, text, std::strlen(text)); }

void ResetProcessState() {
    RetiredStates().push_back(new ProcessState(std::move(TheProcessState)));
    TheProcessState = ProcessState{};
    InitTables(TheProcessState);
}

void BuildCrc32Table() { FillCrc32Table(TheProcessState.crc32Table); }

uint32_t NameHash(const char* name) { return Crc32WithoutFinalXor(TheProcessState.crc32Table, name); }

HashEntry* HashInsert(HashTable& table, const char* key, void* value) {
    return HashInsertHashed(table, NameHash(key), value);
}

bool IsBuiltInFunction(const char* name) {
    HashEntry* entry = HashFindFirst(BuiltInFunctionTable, NameHash(name));
    if (!entry) return false;
    const RefString* text = static_cast<const RefString*>(entry->value);
    return text && text->text && name && std::strcmp(text->text, name) == 0;
}

void AddBuiltInFunction(const char* name) {
    RefString* text = NewRefString(name);
    try {
        HashInsert(BuiltInFunctionTable, text->text, text);
    } catch (...) {
        ReleaseRefString(text);
        std::free(text);
        throw;
    }
}

DiagnosticLocation LastErrorLocation() { return TheProcessState.lastError; }

void ForgetLastErrorLocation() { TheProcessState.lastError = DiagnosticLocation{}; }
