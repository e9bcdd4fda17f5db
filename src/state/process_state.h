// The process state: every table and counter that lives from library load to unload and grows
// across compiles, in one record with one definition.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/diagnostics.h"
#include "support/hash_table.h"
#include "support/strings.h"
#include "veltjs.h"

// Index from name text to the lowest id holding it, for entries below the name table's count:
// open addressing with linear probing; each slot keeps its name's hash, so growth never rereads
// text. Rebuilt lazily when the host overwrites an entry below the count.
// Eight bytes, so that the index of a table of millions of names misses the cache less.
struct NameSlot {
    uint32_t hash;
    uint32_t idPlusOne;   // 0: empty, so that a fresh zeroed table is empty without a write
};

struct NameIndex {
    NameSlot* slots;
    uint64_t mask;
    int64_t used;      // names in both tables
    int32_t indexed;   // entries [0, indexed) are in the index
    bool stale;
    // While the index grows: the table it outgrew, whose slots are moved into `slots` a few at
    // each insertion (the first `moved` of them so far), so that no single lookup rehashes
    // millions of names. Lookups read both tables; a text is in one of them only.
    NameSlot* previous;
    uint64_t previousMask;
    uint64_t moved;
};

// Gives back both tables of the index.
void FreeNameIndex(NameIndex& index);

// The names looked up lately, by hash: a script names the same few things again and
// again, and this small table stays in the cache where the index's millions of slots do not.
// An entry is a hint, checked against the name table before it is believed; emptied whenever the
// index is rebuilt.
struct NameCacheEntry {
    uint32_t hash;
    uint32_t idPlusOne;   // 0: empty
};
constexpr uint32_t kNameCacheEntries = 4096;

// What a lasting text's name id (InternName) and NameHash were, remembered by the text's address.
// A text is lasting when it stays at its address, unchanged, for as long as one generation is
// asked: a token's text in a tree's arena, a kept copy of a name, one of the library's literal
// names. A generation begins with every compile, and with every change to the name table other
// than a push (a host's placement, a call taken back, a reset), so an entry of an earlier one is
// never believed: a script's names are looked up and hashed once each, not at every use.
struct LastingName {
    const char* text;      // null: empty
    uint64_t generation;
    uint32_t known;        // kKnownNameId | kKnownNameHash
    int32_t id;
    uint32_t nameHash;
};
constexpr uint32_t kLastingNameEntries = 4096;
constexpr uint32_t kKnownNameId = 1;
constexpr uint32_t kKnownNameHash = 2;

// Positions in the function-record list by qualified name: open addressing with linear probing.
// A slot keeps the name's hash, the position and a text of the name that lives as long as the
// process: the name table's copy when the compile made it, else one of its own (in the text arena).
// An empty index allocates nothing.
struct FunctionSlot {
    uint32_t hash;
    int32_t position;   // -1: empty
    const char* text;
};

struct FunctionIndex {
    FunctionSlot* slots;
    uint64_t mask;
    int64_t used;
};

// The code generator's share: made on the first compile.
struct CodeGenGlobals {
    FunctionRecord* root;
    uint32_t slotCounter;
    int32_t anonymousCounter;   // "__%s_%d__anonfn%d"
    int32_t accessorCounter;    // "__getfn%d" / "__setfn%d"
};

struct StateMark;

struct ProcessState {
    uint32_t crc32Table[256];          // zero until VeltJS_Init builds it
    HashTable builtInFunctionTable;    // RefString payloads keyed by NameHash
    PtrArray nameArray;                // entry i is the text of name id i
    PtrArray stringList;               // PatchRecord*
    PtrArray varList;                  // PatchRecord*
    PtrArray funcList;                 // PatchRecord*
    PtrArray functionRecords;          // FunctionRecord* (a unit's fourth list)
    NameIndex nameIndex;
    NameCacheEntry nameCache[kNameCacheEntries];
    uint64_t nameOverwrites;           // entries below the count a host has overwritten
    LastingName lastingNames[kLastingNameEntries];
    uint64_t lastingGeneration;
    // Qualified name -> position in functionRecords, in step with the list.
    FunctionIndex functionIndex;
    CodeGenGlobals codegen;
    StateMark* activeMark;             // the call that may have to be taken back, or null
    DiagnosticLocation lastError;      // where the last compile error of a call was raised
    // What the library keeps for the life of the process, in blocks shared by every call: the
    // syntax trees with their token texts, patch and function records, finished code buffers, and
    // the copies of names in the name table.
    Arena records;
    Arena texts;
    // What only the running compile uses (branch labels and sites, scope entries, accessor
    // records); reset when a compile ends.
    Scratch compileScratch;
    // The blocks the last compile's code and position buffers wrote into, once their contents
    // were copied to `records`.
    SpareBlock spareCode;
    SpareBlock spareCode2;
};

// The one state of the process (defined in process_state.cpp). Inline: it is reached on every
// name lookup and record, hundreds of thousands of times per MB of script.
extern ProcessState TheProcessState;
inline ProcessState& State() { return TheProcessState; }

// A zeroed record, and a copy of a text, kept for the life of the process in the shared blocks.
inline void* KeepRecord(size_t size) { return ArenaAllocate(State().records, size); }
// A zeroed record for the running compile only: gone when the compile ends (VeltJS_Compile).
inline void* CompileRecord(size_t size) { return ScratchAllocate(State().compileScratch, size); }
char* KeepText(const char* text);

// The names the rest of the library uses for the record's tables.
extern uint32_t (&Crc32Table)[256];
extern HashTable& BuiltInFunctionTable;
extern PtrArray& NameArray;
extern PtrArray& GlobalStringList;
extern PtrArray& GlobalVarList;
extern PtrArray& GlobalFuncList;
extern PtrArray& GlobalFunctionRecords;
inline CodeGenGlobals& CodeGenState() { return State().codegen; }

// For the tests only: the state as it is at load. The tables the old state held stay allocated
// and reachable, because units made before still point into them.
void ResetProcessState();

// ---------------------------------------------------------------------------------------------
// Name hashing and built-in functions.

// VeltJS_Init: builds the CRC table that NameHash uses.
void BuildCrc32Table();
// CRC-32 (reflected 0xEDB88320) without the final inversion, through the process's table; a null
// or empty name hashes to 0xFFFFFFFF.
uint32_t NameHash(const char* name);

// The entry of a lasting text (see LastingName) in the current generation: its own, or a cleared
// one that it takes over. Inline, with LastingNameHash: every use of a name in a compile asks.
inline LastingName& LastingNameEntry(const char* text) {
    // The address's bits above the lowest few, folded: texts lie a few bytes apart.
    uint64_t mixed = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(text)) * 0x9E3779B97F4A7C15ull;
    LastingName& entry = State().lastingNames[mixed >> 52 & (kLastingNameEntries - 1)];
    if (entry.text != text || entry.generation != State().lastingGeneration) {
        entry = LastingName{text, State().lastingGeneration, 0, -1, 0};
    }
    return entry;
}

// NameHash of a lasting text, remembered.
inline uint32_t LastingNameHash(const char* text) {
    LastingName& entry = LastingNameEntry(text);
    if (!(entry.known & kKnownNameHash)) {
        entry.nameHash = NameHash(text);
        entry.known |= kKnownNameHash;
    }
    return entry.nameHash;
}
// Appends at the tail of the bucket of the key's NameHash; no duplicate check.
HashEntry* HashInsert(HashTable& table, const char* key, void* value);
// True when the built-in table holds this name (same hash, same text in the first hash match).
bool IsBuiltInFunction(const char* name);
// VeltJS_AddBuiltInFunction: the name and its table entry are made before the table changes.
void AddBuiltInFunction(const char* name);

// ---------------------------------------------------------------------------------------------
// The name table.

// A text with its TextHash, for callers that look the same text up in more than one index.
struct HashedText {
    const char* text;
    uint32_t hash;
};
HashedText HashText(const char* text, size_t length);

// The index of the first NameArray entry below count whose text equals `text`, or -1.
// Answers as a front-to-back strcmp scan would, through an index kept in step with the array.
int32_t FindName(const char* text);
int32_t FindName(const HashedText& text);
// FindName that, when the text is not in the table, also gives the place in the index where it
// would go, for PushNewName; null when there is none to give.
int32_t FindNameOrPlace(const HashedText& text, NameSlot** place);
// PushName of a text that FindNameOrPlace has just not found (nothing in between changed the
// table or its index), indexed at the place it gave without looking the text up again.
int32_t PushNewName(const HashedText& text, NameSlot* place);
// The three waits of a lookup of a text with this TextHash that finds it, asked for one at a time,
// each once the one before it has arrived: kNameStepSlot asks for the text's slot in the index
// (the first memory any lookup reads, so that a caller with several names to look up can have
// their waits overlap), kNameStepEntry (which reads that slot) for the name-table entry it points
// at, kNameStepText (which reads that entry) for the held text that the lookup compares. A caller
// that looks ahead of its lookups takes each text through the steps in order, some time apart.
// Changes nothing.
enum NameStep : int32_t { kNameStepSlot, kNameStepEntry, kNameStepText };
void PrefetchNameStep(uint32_t hash, NameStep step);
// Appends the pointer itself (not a copy) and returns its index. Either it throws with nothing
// changed or the name is in the table.
int32_t PushName(const char* text);
int32_t PushName(const HashedText& text);
// Ends the current generation of lasting names.
void BeginLastingNames();
// VeltJS_AddName's placement rules; count never changes. Throws with nothing changed when the
// entry cannot be made addressable.
void PlaceName(const char* name, int32_t index);
// How many times a host has overwritten a name below the count; indexes keyed by name text
// are exact only while this is zero.
uint64_t NameOverwrites();

// ---------------------------------------------------------------------------------------------
// Function records by qualified name.

// Positions in the process-wide function-record list by qualified name (-1 when absent).
int32_t FindFunctionRecord(const char* qualifiedName);
int32_t FindFunctionRecord(const HashedText& qualifiedName);
// Asks for the index slot where a lookup of a qualified name with this TextHash starts; changes
// nothing.
void PrefetchFunctionRecord(uint32_t hash);
// Replaces the record at `position`, or (position -1) appends it and indexes its name; the index
// keeps its own copy of the name.
void SetFunctionRecord(const char* qualifiedName, int32_t position, FunctionRecord* record);
// The same with the name's hash known; when `nameIsKept` the text is a copy kept for the life of
// the process (`KeepText`), which the index points at instead of copying it again.
void SetFunctionRecord(const HashedText& qualifiedName, bool nameIsKept, int32_t position, FunctionRecord* record);
// True when every entry of the index by qualified name points below the list's count, at a record
// of that name (read through the name table while no host has renamed an entry).
bool FunctionRecordIndexAgrees();
// Takes every position from `count` on out of the index (a call taken back); never allocates.
void DropFunctionPositionsFrom(int32_t count);

// ---------------------------------------------------------------------------------------------
// Taking back a call that failed for memory.

// A function record that a compile replaced in place in the process-wide list.
struct ReplacedRecord {
    int32_t position;
    void* previous;
};

// What a call changes in the process state, recorded so that a call that fails for memory can be
// taken back whole: the arrays, the code generator's counters and root record, and the function
// records replaced in place (journaled as they are replaced). While a mark is active, the first
// name pushed saves the host-placed entries past the count that the push may wipe.
struct StateMark {
    PtrArray names;
    PtrArray strings;
    PtrArray vars;
    PtrArray funcs;
    PtrArray records;
    void** savedTail;        // host-placed entries from names.count on, or null
    int32_t savedTailLength;
    bool tailSaved;
    CodeGenGlobals codegen;
    FunctionRecord root;
    std::vector<ReplacedRecord> replaced;
};

// Records the state and makes the mark the active one. Never allocates.
void BeginStateMark(StateMark& mark);
// Puts everything back as it was at the mark: names, lists, the function-record index, counters,
// the root record. Never allocates.
void RollBackState(StateMark& mark);
// Releases the mark. Never allocates.
void EndStateMark(StateMark& mark);

// ---------------------------------------------------------------------------------------------
// Diagnostics for hosts that show more than the message's line.

// Where the last error was raised, as the position record said then (line and column as the
// lexer counts them, offset in characters advanced over). The message text keeps only the line;
// a host that wants more (the command-line tool's caret) reads it here.
DiagnosticLocation LastErrorLocation();
void ForgetLastErrorLocation();
