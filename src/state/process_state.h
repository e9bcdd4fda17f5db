// The process-wide tables: they live from library load to unload and grow across compiles.
#pragma once

#include <cstdint>

#include "support/hash_table.h"
#include "support/strings.h"

extern HashTable BuiltInFunctionTable;   // RefString payloads keyed by NameHash
extern PtrArray NameArray;               // entry i is the text of name id i
extern PtrArray GlobalStringList;        // PatchRecord*
extern PtrArray GlobalVarList;           // PatchRecord*
extern PtrArray GlobalFuncList;          // PatchRecord*
extern PtrArray GlobalFunctionRecords;   // FunctionRecord* (the unit's fourth list)

// The index of the first NameArray entry below count whose text equals `text`, or -1.
// Answers as a front-to-back strcmp scan would, through an index kept in step with the array.
int32_t FindName(const char* text);
// Appends the pointer itself (not a copy) and returns its index. Either it throws with nothing
// changed or the name is in the table.
int32_t PushName(const char* text);
// VeltJS_AddName's placement rules; count never changes. Throws with nothing changed when the
// entry cannot be made addressable.
void PlaceName(const char* name, int32_t index);
// How many times a host has overwritten a name below the count; indexes keyed by name text
// are exact only while this is zero.
uint64_t NameOverwrites();
// True when the built-in table holds this name (same hash, same text in the first hash match).
bool IsBuiltInFunction(const char* name);

// The state of the five process-wide arrays when a call began, so that a call that fails for
// memory can take back everything it added. While a mark is active, the first name pushed saves
// the host-placed entries past the count that the push may wipe.
struct TableMark {
    PtrArray names;
    PtrArray strings;
    PtrArray vars;
    PtrArray funcs;
    PtrArray records;
    void** savedTail;        // host-placed entries from names.count on, or null
    int32_t savedTailLength;
    bool tailSaved;
};

// Records the arrays' state and makes the mark the active one. Never allocates.
void BeginTableMark(TableMark& mark);
// Puts the arrays back as they were at the mark (entries replaced in place are not the arrays'
// business; the code generator takes those back itself). Never allocates.
void RollBackTables(TableMark& mark);
// Releases the mark. Never allocates.
void EndTableMark(TableMark& mark);
