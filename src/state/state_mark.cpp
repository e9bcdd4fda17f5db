// Taking back a call that failed for memory, so the next call gives exactly what it would have
// given without it.
#include <cstdlib>
#include <cstring>

#include "state/process_state.h"

void BeginStateMark(StateMark& mark) {
    mark.names = NameArray;
    mark.strings = GlobalStringList;
    mark.vars = GlobalVarList;
    mark.funcs = GlobalFuncList;
    mark.records = GlobalFunctionRecords;
    mark.savedTail = nullptr;
    mark.savedTailLength = 0;
    mark.tailSaved = false;
    mark.codegen = CodeGenState();
    mark.root = mark.codegen.root ? *mark.codegen.root : FunctionRecord{};
    mark.replaced.clear();
    State().activeMark = &mark;
}

void RollBackState(StateMark& mark) {
    for (auto entry = mark.replaced.rbegin(); entry != mark.replaced.rend(); ++entry) {
        GlobalFunctionRecords.data[entry->position] = entry->previous;
    }
    mark.replaced.clear();
    RollBackPtrArray(GlobalStringList, mark.strings);
    RollBackPtrArray(GlobalVarList, mark.vars);
    RollBackPtrArray(GlobalFuncList, mark.funcs);
    RollBackPtrArray(GlobalFunctionRecords, mark.records);
    if (NameArray.count != mark.names.count || mark.tailSaved) {
        RollBackPtrArray(NameArray, mark.names);
        if (mark.savedTail) {
            std::memcpy(NameArray.data + mark.names.count, mark.savedTail,
                        static_cast<size_t>(mark.savedTailLength) * sizeof(void*));
        }
        // Entries the index knew may be gone: it is rebuilt at the next lookup, and no lasting
        // name's id is believed.
        State().nameIndex.stale = true;
        BeginLastingNames();
    }
    DropFunctionPositionsFrom(mark.records.count);
    // A root record made by this call is dropped: the next compile makes a fresh one.
    if (mark.codegen.root) *mark.codegen.root = mark.root;
    CodeGenState() = mark.codegen;
}

void EndStateMark(StateMark& mark) {
    std::free(mark.savedTail);
    mark.savedTail = nullptr;
    if (State().activeMark == &mark) State().activeMark = nullptr;
}
