// The compile context, scopes, labels and the patch operations of the code generator.
#pragma once

#include <cstdint>
#include <vector>

#include "bytecode/code_buffer.h"
#include "bytecode/instruction.h"
#include "state/process_state.h"
#include "support/hash_table.h"
#include "support/stack_guard.h"
#include "support/strings.h"
#include "veltjs.h"

struct Node;

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
};

void ListPush(List& list, void* value);
// Removes the last node and returns its value (null when empty).
void* ListPop(List& list);
// The value `steps` nodes from the first, or null when the walk runs off the list.
void* ListAt(const List& list, int32_t steps);

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

// A new label with depth -1; labels are never freed while their fix-ups are pending.
BranchLabel* NewLabel(const char* name);

struct VarEntry {
    RefString** name;   // handle to a private copy of the name
    uint32_t kind;      // 0 plain variable, 1 parameter
    uint32_t slot;
};

struct ScopeRecord {
    HashTable vars;       // VarEntry: declared variables and parameters
    HashTable slots;      // VarEntry: names that took a slot from the process-wide counter
    HashTable extra;      // FunctionRecord: functions declared in this scope, by declared name
    FunctionRecord* function;
};

struct CodeGenContext {
    VMBuffer* code;
    VMBuffer* code2;
    uint32_t* typeStack;
    int32_t typeDepth;
    int32_t typeCapacity;
    int32_t typeHighWater;
    uint8_t topLevel;
    char* scriptName;
    List scopes;
    List breakTargets;
    List continueTargets;
    HashTable labelTable;
    HashTable slotTable;
    const Node* statement;   // the innermost statement being compiled, where branch errors point
    StackGuard guard;        // the recursion of this compile
};

// Type stack: pushes grow the stack; a pop of an empty stack yields 15 (.e).
void PushType(CodeGenContext& cx, uint32_t type);
uint32_t PopType(CodeGenContext& cx);
// True when the type stack is empty (callers that emit a different word in that case).
inline bool TypeStackEmpty(const CodeGenContext& cx) { return cx.typeDepth <= 0; }
inline uint32_t TopType(const CodeGenContext& cx) { return cx.typeDepth > 0 ? cx.typeStack[cx.typeDepth - 1] : TYPE_SHORT; }

// Writes words into the code buffer.
void Emit(CodeGenContext& cx, std::initializer_list<uint32_t> words);
inline int64_t CodeOffset(const CodeGenContext& cx) { return CurrentOffset(*cx.code); }

int32_t InternName(const char* text);
uint32_t AddVarAndPatch(CodeGenContext& cx, const char* name, uint32_t kind);
uint32_t AddFuncAndPatch(CodeGenContext& cx, const char* name);
void AddStringAndPatch(CodeGenContext& cx, const char* text);
// Emits call (0xD9, .i, argument count) with the AddFuncAndPatch index of `name`.
void EmitCall(CodeGenContext& cx, const char* name, uint32_t argumentCount);
// opcode<<24 | type<<16, then the operand by type. For .d the value is used as a double; for
// .f narrowed to float; for .i, .v, .s, .b its integer value; .l takes `longBits` as the 8 bytes.
void EmitPushConstant(CodeGenContext& cx, uint32_t opcode, uint32_t type, double value, uint64_t longBits = 0);

VarEntry* LookupName(CodeGenContext& cx, const char* name, int32_t* depth);
VarEntry* DeclareLocal(CodeGenContext& cx, const char* name, uint32_t kind, uint32_t slot);
VarEntry* DeclareSlot(CodeGenContext& cx, const char* name);
RefString* QualifiedName(CodeGenContext& cx, const char* name);
// Pushes a new scope (three 16-bucket tables) for `function`.
ScopeRecord* PushScope(CodeGenContext& cx, FunctionRecord* function);
// Fills the innermost scope's FunctionRecord locals/slots from its tables.
void FillScopeRecord(CodeGenContext& cx, ScopeRecord* scope);

// Unit set-up before the driver: buffers, first-compile records, the global scope.
void BeginCompile(CodeGenContext& cx, const char* scriptName, uint8_t topLevel);
// Finishes both buffers and hands them out; fills the global scope's record; unlinks its scope.
void EndCompile(CodeGenContext& cx, VMBuffer** code, VMBuffer** code2);
// Frees the context's tables, targets and scopes; the type stack too when `success`. Never
// allocates, so it cannot fail on the failure path.
void CleanUpContext(CodeGenContext& cx, bool success);

// Labels and branches: forward branches are written with offset 0 and patched when placed.
// A branch whose word offset does not fit the signed 23-bit field (2^22 words or more either
// way) ends the compile with "branch offset out of range" at the current statement.
void PlaceLabel(CodeGenContext& cx, BranchLabel* label);
void BranchToLabel(CodeGenContext& cx, BranchLabel* label, uint32_t opcode);
