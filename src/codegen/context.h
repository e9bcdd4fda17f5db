// The compile context and its three concerns: emitting (words, the type stack, labels and
// branches: emit.cpp), names and patch records (names.cpp), scopes and name lookup (scopes.cpp).
#pragma once

#include <cstdint>
#include <initializer_list>

#include "bytecode/code_buffer.h"
#include "bytecode/instruction.h"
#include "state/process_state.h"
#include "support/hash_table.h"
#include "support/stack_guard.h"
#include "support/strings.h"
#include "veltjs.h"

struct Node;
struct VarEntryRecord;

// A parsed tree's top-level statements in order (`Parser::statements`), as its root's list holds
// them, and the most `LEX_VAR` nodes it holds outside functions' children
// (ParsedVarNodesOutsideFunctions).
struct ParsedTree {
    Node* const* statements;
    size_t statementCount;
    uint64_t varNodes;
};

// A doubly linked list of pointers (scopes, break and continue targets).
struct ListNode {
    ListNode* prev;
    ListNode* next;
    void* value;
};

struct List {
    ListNode* first;
    ListNode* last;
    int32_t count;
    // The chain (through `next`) of nodes popped from a compile's lists, which its next pushes
    // take before new scratch records; shared by the lists of one compile. Null: every push is a
    // heap block and every pop frees it.
    ListNode** spare;
};

struct BranchSite {
    BranchSite* next;
    int64_t offset;    // byte offset of the branch word
    uint32_t extra;    // OR-ed into the word when patched
};

struct BranchLabel {
    uint64_t reserved;
    const char* name;
    int64_t offset;
    BranchSite* pending;
    uint32_t defined;
    uint32_t reserved2;
    int32_t depth;     // -1, or for a source label the continue-target count where it stands
};

// A released statement label's memory while it waits for the next label of the compile.
struct SpareLabel {
    SpareLabel* next;
};

// What a declared name is in its scope.
enum VarEntryKind : uint32_t {
    kVarEntryVariable = 0,
    kVarEntryParameter = 1,
};

// A slot that DeclareLocal takes from the process-wide counter, and a variable no scope knows.
constexpr uint32_t kUnsetSlot = 0xFFFFFFFFu;

// About the scratch records (labels, branch sites, scope entries, table entries) a compile takes
// per source byte: realistic code takes 1.1 to 1.2, a function of many variables 2.8, flat
// top-level functions 5. A compile tells the scratch to expect this much (ScratchExpect), so from
// a script of half a megabyte on its new blocks are the largest; the scratch's blocks serve every
// later compile, so too high a guess costs at most one block once.
constexpr size_t kScratchBytesPerSourceByte = 2;

struct VarEntry {
    RefString** name;   // handle to a private copy of the name
    uint32_t kind;      // a VarEntryKind
    uint32_t slot;
};

struct ScopeRecord {
    HashTable vars;       // VarEntry: declared variables and parameters
    HashTable slots;      // VarEntry: names that took a slot from the process-wide counter
    HashTable extra;      // FunctionRecord: functions declared in this scope, by declared name
    FunctionRecord* function;
    uint32_t prefixBefore;   // the context's qualifier prefix length before this scope added to it
    TextHashState prefixHashBefore;   // and the prefix's hash state then
    ScopeRecord* nextSpare;  // while popped: the next of CodeGenContext::spareScopes
};

struct CodeGenContext {
    VMBuffer* code;
    VMBuffer* code2;
    uint32_t* typeStack;
    int32_t typeDepth;
    int32_t typeCapacity;
    int32_t typeHighWater;
    uint8_t topLevel;
    // What the parser knew of the tree when no compile has hoisted into it yet (VeltJS_Compile):
    // the hoisting steps then read the top-level statements from its array and take the `var`
    // names from statement places only (CollectStatementVarNames). Null for a tree built any
    // other way, whose list is walked.
    const ParsedTree* parsed;
    char* scriptName;
    List scopes;
    List breakTargets;
    List continueTargets;
    HashTable labelTable;
    HashTable slotTable;
    const Node* statement;   // the innermost statement being compiled, where branch errors point
    StringBuilder nameScratch;   // where qualified names are built before they are interned
    StringBuilder batchNames;    // a batch of a function record's qualified names, NUL-separated
    // Every open scope's declared function name followed by '@', outermost first: the part that
    // qualified names made in the innermost scope share.
    StringBuilder qualifierPrefix;
    TextHashState qualifierHash;   // the prefix's whole words hashed, for every name it begins
    StackGuard guard;        // the recursion of this compile
    // Scratch records this compile is done with, reused before new ones are taken: the statement
    // labels released so far and the branch sites of placed labels.
    SpareLabel* spareLabels;
    BranchSite* spareSites;
    ListNode* spareListNodes;   // the scopes' and targets' lists' popped nodes (List::spare)
    ScopeRecord* spareScopes;   // popped scope records, for the next pushed scopes
    VarEntryRecord* spareVarEntries;   // popped functions' variable entries (GiveBackVarEntries)
    // Where the compile's tables (scopes, labels, slots, an object literal's accessors) take
    // their entries.
    HashEntryPool tableEntries;
};

// The flags of a FunctionRecord that the scopes keep.
constexpr uint32_t kFlagArgumentsOrOuterParameter = 1;
constexpr uint32_t kFlagOuterVariable = 2;
constexpr uint32_t kFlagNoOuterUse = 4;
// Every record starts with "no outer use" until a use of a variable clears it.
constexpr uint32_t kInitialFunctionFlags = kFlagNoOuterUse;

// ---------------------------------------------------------------------------------------------
// Emitting (emit.cpp).

void ListPush(List& list, void* value);
// Removes the last node and returns its value (null when empty).
void* ListPop(List& list);
// The value `steps` nodes from the first, or null when the walk runs off the list.
void* ListAt(const List& list, int32_t steps);

// Type stack: pushes grow the stack; a pop of an empty stack yields 15 (.e). Inline, as is Emit:
// every operand and instruction of a compile passes through them.
void GrowTypeStack(CodeGenContext& cx);
inline void PushType(CodeGenContext& cx, uint32_t type) {
    if (cx.typeDepth >= cx.typeCapacity || !cx.typeStack) GrowTypeStack(cx);
    cx.typeStack[cx.typeDepth++] = type;
    if (cx.typeDepth > cx.typeHighWater) cx.typeHighWater = cx.typeDepth;
}
inline uint32_t PopType(CodeGenContext& cx) {
    if (cx.typeDepth <= 0) return TYPE_SHORT;
    return cx.typeStack[--cx.typeDepth];
}
inline uint32_t TopType(const CodeGenContext& cx) { return cx.typeDepth > 0 ? cx.typeStack[cx.typeDepth - 1] : TYPE_SHORT; }

// Writes words into the code buffer.
inline void Emit(CodeGenContext& cx, std::initializer_list<uint32_t> words) { WriteWords(*cx.code, words); }
inline int64_t CodeOffset(const CodeGenContext& cx) { return CurrentOffset(*cx.code); }
// opcode<<24 | type<<16, then the operand by type. For .d the value is used as a double; for
// .f narrowed to float; for .i, .v, .s, .b its integer value; .l takes `longBits` as the 8 bytes.
void EmitPushConstant(CodeGenContext& cx, uint32_t opcode, uint32_t type, double value, uint64_t longBits = 0);

// A new label with depth -1, one of the compile's scratch records: it stays until the compile
// ends, as fix-ups and the label table may still point at it after it is placed.
BranchLabel* NewLabel(const char* name);
// The same, reusing a label the compile released when there is one.
BranchLabel* NewLabel(CodeGenContext& cx, const char* name);
// A statement's label once the statement is compiled: placed, on no target stack and waited for
// by no branch, so its memory serves the next label. A label still waited for is left as it is.
void ReleaseLabel(CodeGenContext& cx, BranchLabel* label);
// Labels and branches: forward branches are written with offset 0 and patched when placed.
// A branch whose word offset does not fit the signed 23-bit field (2^22 words or more either
// way) ends the compile with "branch offset out of range" at the current statement.
void PlaceLabel(CodeGenContext& cx, BranchLabel* label);
void BranchToLabel(CodeGenContext& cx, BranchLabel* label, uint32_t opcode);

// ---------------------------------------------------------------------------------------------
// Names and patch records (names.cpp).

// The kind a variable patch record carries: how the runner reaches the name.
enum PatchKind : uint32_t {
    kPatchUnresolved = 0,
    kPatchBuiltin = 1,
    kPatchLocal = 2,
    kPatchSelf = 3,
    kPatchMember = 4,
    kPatchArgument = 5,
};

// The name's index in the name table, adding the pointer itself when the text is new; -1 for null.
int32_t InternName(const char* text);
// The same for a text the table must not keep: a copy is added when the text is new.
int32_t InternCopy(const char* text);
int32_t InternCopy(const HashedText& text);
// The same for a text whose strlen is known.
int32_t InternCopy(const HashedText& text, size_t length);
// InternName of a lasting text (see LastingName): a token's text in a tree's arena, a kept copy of
// a name, one of the library's literal names. Its id is remembered for the rest of the compile.
int32_t InternLastingName(const char* text);
// Whether a node's text is lasting (see LastingName): a token's text in the tree's arena, which
// nothing changes or frees while the compile runs. The compile driver's own nodes have heap texts.
inline bool IsLastingText(const RefString* text) {
    return text && text->text && (text->flags & kRefStringInArena);
}
// A name's NameHash, remembered when the name is lasting.
uint32_t NameHashOf(const char* name, bool lasting);
// The NameHash of a node's text, lasting or not.
uint32_t NodeNameHash(const Node* node);
// `kind` is a PatchKind.
uint32_t AddVarAndPatch(CodeGenContext& cx, const char* name, uint32_t kind);
// The same, the name's id remembered when the name is lasting.
uint32_t AddVarAndPatch(CodeGenContext& cx, const char* name, uint32_t kind, bool lasting);
// AddVarAndPatch of a node's text, lasting or not.
uint32_t AddNodeVarAndPatch(CodeGenContext& cx, const Node* node, uint32_t kind);
// A variable patch record that points at no code (offset all ones).
void AddVarRecordWithoutSite(const char* name, uint32_t kind);
uint32_t AddFuncAndPatch(CodeGenContext& cx, const char* name);
// The same for a name already in the table at `nameIndex`.
void AddFuncPatch(CodeGenContext& cx, uint32_t nameIndex);
void AddStringAndPatch(CodeGenContext& cx, const char* text);

// The names that the items (statements, properties) after the one being compiled will look up,
// taken through PrefetchNameStep's steps one item apart, so that each lookup finds its memory
// there: the names of the item three on are taken and their slots asked for, those of the item two
// on are read for their entries, those of the next item for their held texts. Only reads and asks
// for memory.
constexpr int32_t kNamesPerItemAhead = 24;
struct NamesAhead {
    uint32_t hashes[3][kNamesPerItemAhead];   // the TextHash of each name, by item
    int32_t counts[3];
    int32_t newest;                           // the group of the item three on
};
// Before each item: the group of the item three on begins empty, and the two items before it take
// their next steps.
void StepNamesAhead(NamesAhead& ahead);
// A name the item three on looks up: its slot is asked for. Past kNamesPerItemAhead, ignored.
void AddNameAhead(NamesAhead& ahead, uint32_t hash);
// Forgets every item's names: before the first item, and when the items ahead are no longer the
// ones the loop will compile next.
void ClearNamesAhead(NamesAhead& ahead);
// Emits call (0xD9, .i, argument count) with the AddFuncAndPatch index of `name`, one of the
// library's literal helper names ("@@This@@" and the like), whose id is remembered (lasting).
void EmitCall(CodeGenContext& cx, const char* name, uint32_t argumentCount);
// A zeroed record with its two name indices, code offset and the initial flags. Function records
// belong to the host once compiled; the library never frees them.
FunctionRecord* NewFunctionRecord(uint32_t nameIndex, uint32_t declaredNameIndex, uint64_t codeOffset);

// ---------------------------------------------------------------------------------------------
// Scopes and lookup (scopes.cpp).

// Where a name is declared: the innermost scope whose variable table has the name's hash (names
// are told apart by hash alone, so equal hashes share one variable).
struct NameLookup {
    VarEntry* entry;       // null when no scope declares the name
    int32_t depth;         // scopes out from the innermost to the declaring one
    ScopeRecord* scope;    // the declaring scope
};

// The lookup alone; it changes nothing. `depth` (when given) gets the depth, or the number of
// scopes searched minus one when nothing was found.
VarEntry* LookupName(const CodeGenContext& cx, const char* name, int32_t* depth);
NameLookup FindDeclaration(const CodeGenContext& cx, const char* name);
// The same for a name whose NameHash is `hash` (the scopes' tables tell names apart by it alone).
NameLookup FindDeclaration(const CodeGenContext& cx, uint32_t hash);
// What a use of a found name tells the functions' records: the declaring function learns that
// `arguments`, an outer parameter or an outer variable is used, and every function out to the
// declaring one loses "no outer use".
void RecordNameUse(CodeGenContext& cx, const char* name, const NameLookup& found);
// A use of a name: the lookup, then what the use tells the records.
VarEntry* UseName(CodeGenContext& cx, const char* name, int32_t* depth);
// The same with the name's NameHash already taken.
VarEntry* UseName(CodeGenContext& cx, const char* name, uint32_t hash, int32_t* depth);

VarEntry* DeclareLocal(CodeGenContext& cx, const char* name, uint32_t kind, uint32_t slot);
// The same with the name's NameHash already taken; `lasting`, when not null, is a lasting text of the
// name (see LastingName), which the function record's name pairs look the name's id up by.
VarEntry* DeclareLocal(CodeGenContext& cx, const char* name, uint32_t hash, uint32_t kind, uint32_t slot,
                       const char* lasting = nullptr);
// The same for the name a node spells (its text, hashed as NodeNameHash does).
VarEntry* DeclareNodeLocal(CodeGenContext& cx, const Node* node, uint32_t kind, uint32_t slot);
VarEntry* DeclareSlot(CodeGenContext& cx, const char* name);
// The enclosing functions' declared names and the name, joined by '@'.
RefString* QualifiedName(CodeGenContext& cx, const char* name);
// The same text written into `out` (replacing what it held); valid until `out` is written again.
const char* WriteQualifiedName(CodeGenContext& cx, const char* name, StringBuilder& out);
// The same text and its NUL appended to what `out` holds (a batch of names one after the other);
// returns the text's length.
size_t AppendQualifiedName(CodeGenContext& cx, const char* name, StringBuilder& out);
// A qualified name of the current scopes (`length` bytes at `text`) with its TextHash: the
// prefix's words are not hashed again.
HashedText HashQualifiedName(const CodeGenContext& cx, const char* text, size_t length);
// The same for what WriteQualifiedName wrote into `written`.
HashedText HashQualifiedName(const CodeGenContext& cx, const StringBuilder& written);
// Pushes a new scope (three 16-bucket tables) for `function`.
ScopeRecord* PushScope(CodeGenContext& cx, FunctionRecord* function);
// Unlinks the innermost scope and frees it; its FunctionRecord lives on.
void PopScope(CodeGenContext& cx);
// The entries of the scope's declared variables (not those of its slots, which the compile's slot
// table keeps), for the next declarations: only a scope about to be popped, whose entries nothing
// else holds, gives them back.
void GiveBackVarEntries(CodeGenContext& cx, const ScopeRecord& scope);
// Clears the tables of a scope that is no longer on the list and keeps its record for the next
// pushed scope (scope records are the compile's scratch). Never allocates.
void FreeScope(CodeGenContext& cx, ScopeRecord* scope);
// Fills the scope's FunctionRecord locals/slots from its tables.
void FillScopeRecord(CodeGenContext& cx, ScopeRecord* scope);
// The function declared under `name` in the innermost scope that has one.
FunctionRecord* FindDeclaredFunction(const CodeGenContext& cx, const char* name);
// The same with the name's NameHash already taken.
FunctionRecord* FindDeclaredFunction(const CodeGenContext& cx, const char* name, uint32_t hash);

// ---------------------------------------------------------------------------------------------
// One compile (driver.cpp).

// Unit set-up before the driver: buffers, first-compile records, the global scope.
void BeginCompile(CodeGenContext& cx, const char* scriptName, uint8_t topLevel);
// Finishes both buffers and hands them out; fills the global scope's record; unlinks its scope.
void EndCompile(CodeGenContext& cx, VMBuffer** code, VMBuffer** code2);
// Frees the context's tables, targets and scopes, the type stack and the buffers it still
// holds. Never allocates, so it cannot fail on the failure path.
void CleanUpContext(CodeGenContext& cx);
