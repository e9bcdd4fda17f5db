// The compile context: type stack, name interning, patch records, scopes, labels and the
// set-up and tear-down of one compile.
#include "codegen/context.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "parser/node.h"
#include "state/process_state.h"
#include "support/diagnostics.h"
#include "support/strings.h"

namespace {

constexpr int32_t kTypeStackEntries = 1024;
constexpr int32_t kScopeBuckets = 16;
constexpr int32_t kSlotTableBuckets = 16;
constexpr int32_t kLabelTableBuckets = 4;
constexpr uint32_t kUnsetSlot = 0xFFFFFFFFu;
constexpr uint32_t kNoName = 0xFFFFFFFFu;
constexpr uint64_t kNoUseSite = ~0ull;
constexpr uint32_t kInitialFunctionFlags = 4;
constexpr uint32_t kFlagArgumentsOrOuterParameter = 1;
constexpr uint32_t kFlagOuterVariable = 2;
constexpr uint32_t kFlagNoOuterUse = 4;
constexpr uint32_t kKindVariable = 0;
constexpr uint32_t kKindParameter = 1;
// Kinds of the variable patch records made for every first compile.
constexpr uint32_t kPatchKindSelf = 3;
constexpr uint32_t kPatchKindLocal = 2;

ScopeRecord* ScopeOf(const ListNode* node) { return static_cast<ScopeRecord*>(node->value); }

const char* VarEntryText(const VarEntry* entry) { return (*entry->name)->text; }

PatchRecord* NewPatchRecord(uint32_t nameIndex, uint32_t kind, uint64_t codeOffset) {
    PatchRecord* record = static_cast<PatchRecord*>(CheckedMalloc(sizeof(PatchRecord)));
    record->nameIndex = nameIndex;
    record->kind = kind;
    record->codeOffset = codeOffset;
    return record;
}

FunctionRecord* NewFunctionRecord(uint32_t nameIndex, uint32_t declaredNameIndex, uint64_t codeOffset) {
    FunctionRecord* record = static_cast<FunctionRecord*>(CheckedCalloc(1, sizeof(FunctionRecord)));
    record->nameIndex = nameIndex;
    record->declaredNameIndex = declaredNameIndex;
    record->codeOffset = codeOffset;
    record->flags = kInitialFunctionFlags;
    return record;
}

VarEntry* NewVarEntry(const char* name, uint32_t kind, uint32_t slot) {
    VarEntry* entry = static_cast<VarEntry*>(CheckedMalloc(sizeof(VarEntry)));
    entry->name = NewRefHandle(NewRefString(name));
    entry->kind = kind;
    entry->slot = slot;
    return entry;
}

uint32_t NextSlot() { return CodeGenState().slotCounter++; }

// The first entry of the key's bucket with an equal hash, if it carries a value.
void* FindValue(const HashTable& table, uint32_t hash) {
    HashEntry* entry = HashFindFirst(table, hash);
    return entry ? entry->value : nullptr;
}

// Interns a generated text by pointer: the table keeps it when it took it, else it is released.
int32_t InternGenerated(RefString* text) {
    int32_t index;
    try {
        index = InternName(text->text);
    } catch (...) {
        ReleaseRefString(text);
        throw;
    }
    if (NameArray.data[index] != text->text) ReleaseRefString(text);
    return index;
}

// Pairs (qualified name index, name index) for every entry in bucket order.
uint32_t* NamePairs(CodeGenContext& cx, const HashTable& table) {
    uint32_t* pairs = static_cast<uint32_t*>(CheckedMalloc(static_cast<size_t>(table.count) * 8));
    int32_t used = 0;
    if (!table.buckets) return pairs;
    try {
        for (int32_t bucket = 0; bucket <= table.mask; bucket++) {
            for (HashEntry* entry = table.buckets[bucket].first; entry; entry = entry->next) {
                const VarEntry* var = static_cast<const VarEntry*>(entry->value);
                int32_t qualifiedIndex = InternGenerated(QualifiedName(cx, VarEntryText(var)));
                pairs[used * 2] = static_cast<uint32_t>(qualifiedIndex);
                pairs[used * 2 + 1] = static_cast<uint32_t>(InternName(VarEntryText(var)));
                used++;
            }
        }
    } catch (...) {
        std::free(pairs);
        throw;
    }
    return pairs;
}

// A copy of a name for the name table, which keeps it for the life of the process.
__attribute__((noinline)) char* CopyNameForTable(const char* text) { return CheckedStrdup(text); }

// Interns a copy of `text` that lives for the process, unless the text is already a name.
int32_t InternCopy(const char* text) {
    int32_t index = FindName(text);
    if (index >= 0) return index;
    char* copy = CopyNameForTable(text);
    try {
        return PushName(copy);
    } catch (...) {
        std::free(copy);
        throw;
    }
}

void FreeScope(ScopeRecord* scope) {
    ClearHashTable(scope->vars);
    ClearHashTable(scope->slots);
    ClearHashTable(scope->extra);
    std::free(scope);
}

void FreeLabel(BranchLabel* label) {
    BranchSite* site = label->pending;
    while (site) {
        BranchSite* next = site->next;
        std::free(site);
        site = next;
    }
    std::free(label);
}

bool ListHolds(const List& list, const void* value) {
    for (const ListNode* node = list.first; node; node = node->next) {
        if (node->value == value) return true;
    }
    return false;
}

// Frees the list's nodes and the labels they hold; a label still held further down this list or
// by `other` is left to be freed there, so each is freed once. Never allocates: it runs on the
// failure path, where memory may have run out.
void FreeTargets(List& targets, const List& other) {
    while (targets.count > 0) {
        BranchLabel* label = static_cast<BranchLabel*>(ListPop(targets));
        if (label && !ListHolds(targets, label) && !ListHolds(other, label)) FreeLabel(label);
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Lists and labels.

void ListPush(List& list, void* value) {
    ListNode* node = static_cast<ListNode*>(CheckedMalloc(sizeof(ListNode)));
    node->value = value;
    node->next = nullptr;
    node->prev = list.last;
    if (list.last) {
        list.last->next = node;
    } else {
        list.first = node;
    }
    list.last = node;
    list.count++;
}

void* ListPop(List& list) {
    ListNode* node = list.last;
    if (!node) return nullptr;
    list.last = node->prev;
    if (list.last) {
        list.last->next = nullptr;
    } else {
        list.first = nullptr;
    }
    list.count--;
    void* value = node->value;
    std::free(node);
    return value;
}

void* ListAt(const List& list, int32_t steps) {
    if (steps < 0) return nullptr;
    ListNode* node = list.first;
    for (int32_t i = 0; node && i < steps; i++) node = node->next;
    return node ? node->value : nullptr;
}

BranchLabel* NewLabel(const char* name) {
    BranchLabel* label = static_cast<BranchLabel*>(CheckedCalloc(1, sizeof(BranchLabel)));
    label->name = name;
    label->depth = -1;
    return label;
}

// label: each pending site's word keeps its opcode and gets the word offset to here.
namespace {

// Branch offsets count words in a signed 23-bit field; masking one that does not fit would
// jump somewhere else entirely, so such a compile fails instead.
constexpr int64_t kBranchWordLimit = int64_t{1} << 22;

int32_t BranchWords(const CodeGenContext& cx, int64_t from, int64_t to) {
    int64_t words = (to - from) >> 2;
    if (words >= kBranchWordLimit || words <= -kBranchWordLimit) {
        ReportError(cx.statement ? cx.statement->position : nullptr, "branch offset out of range");
    }
    return static_cast<int32_t>(words);
}

}  // namespace

void PlaceLabel(CodeGenContext& cx, BranchLabel* label) {
    label->offset = CodeOffset(cx);
    label->defined = 1;
    BranchSite* site = label->pending;
    while (site) {
        BranchSite* next = site->next;
        uint32_t word = ReadWord(*cx.code, site->offset);
        int32_t words = BranchWords(cx, site->offset, label->offset);
        PatchWord(*cx.code, site->offset, MakeBranch(word >> 24, words) | site->extra);
        std::free(site);
        site = next;
    }
    label->pending = nullptr;
}

// op target: backward with the known offset, forward as op 0 patched by PlaceLabel.
void BranchToLabel(CodeGenContext& cx, BranchLabel* label, uint32_t opcode) {
    int64_t here = CodeOffset(cx);
    if (label->defined) {
        Emit(cx, {MakeBranch(opcode, BranchWords(cx, here, label->offset))});
        return;
    }
    BranchSite* site = static_cast<BranchSite*>(CheckedMalloc(sizeof(BranchSite)));
    site->next = label->pending;
    site->offset = here;
    site->extra = 0;
    label->pending = site;
    Emit(cx, {MakeBranch(opcode, 0)});
}

// ---------------------------------------------------------------------------------------------
// Type stack and emitting.

void PushType(CodeGenContext& cx, uint32_t type) {
    if (cx.typeDepth >= cx.typeCapacity || !cx.typeStack) {
        int32_t capacity = cx.typeCapacity > 0 ? cx.typeCapacity * 2 : kTypeStackEntries;
        uint32_t* grown = static_cast<uint32_t*>(CheckedMalloc(static_cast<size_t>(capacity) * sizeof(uint32_t)));
        if (cx.typeStack && cx.typeDepth > 0) {
            std::memcpy(grown, cx.typeStack, static_cast<size_t>(cx.typeDepth) * sizeof(uint32_t));
        }
        std::free(cx.typeStack);
        cx.typeStack = grown;
        cx.typeCapacity = capacity;
    }
    cx.typeStack[cx.typeDepth++] = type;
    if (cx.typeDepth > cx.typeHighWater) cx.typeHighWater = cx.typeDepth;
}

uint32_t PopType(CodeGenContext& cx) {
    if (cx.typeDepth <= 0) return TYPE_SHORT;
    return cx.typeStack[--cx.typeDepth];
}

void Emit(CodeGenContext& cx, std::initializer_list<uint32_t> words) { WriteWords(*cx.code, words); }

// op.T with the operand sized by T.
void EmitPushConstant(CodeGenContext& cx, uint32_t opcode, uint32_t type, double value, uint64_t longBits) {
    uint32_t word = MakeWord1(opcode, type, 0);
    switch (type) {
    case TYPE_DOUBLE: {
        uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        Emit(cx, {word, static_cast<uint32_t>(bits), static_cast<uint32_t>(bits >> 32)});
        break;
    }
    case TYPE_FLOAT: {
        float narrow = static_cast<float>(value);
        uint32_t bits;
        std::memcpy(&bits, &narrow, sizeof bits);
        Emit(cx, {word, bits});
        break;
    }
    case TYPE_INT:
    case TYPE_VARIABLE:
    case TYPE_STRING:
        Emit(cx, {word, static_cast<uint32_t>(static_cast<int64_t>(value))});
        break;
    case TYPE_LONG:
        Emit(cx, {word, static_cast<uint32_t>(longBits), static_cast<uint32_t>(longBits >> 32)});
        break;
    case TYPE_BOOL:
        Emit(cx, {word, value != 0 ? 1u : 0u});
        break;
    default:
        Emit(cx, {word});
        break;
    }
}

// ---------------------------------------------------------------------------------------------
// Names and patch records.

int32_t InternName(const char* text) {
    if (!text) return -1;
    int32_t index = FindName(text);
    return index >= 0 ? index : PushName(text);
}

uint32_t AddVarAndPatch(CodeGenContext& cx, const char* name, uint32_t kind) {
    if (!name) {
        std::printf("ERROR! :: AddVarAndPatch :: Invalid NULL\n");
        return kNoName;
    }
    uint32_t index = static_cast<uint32_t>(InternName(name));
    PushPtr(GlobalVarList, NewPatchRecord(index, kind, static_cast<uint64_t>(CodeOffset(cx))));
    return index;
}

uint32_t AddFuncAndPatch(CodeGenContext& cx, const char* name) {
    if (!name) {
        std::printf("ERROR! :: AddFuncAndPatch :: Invalid NULL\n");
        return kNoName;
    }
    uint32_t index = static_cast<uint32_t>(InternName(name));
    PushPtr(GlobalFuncList, NewPatchRecord(index, 0, static_cast<uint64_t>(CodeOffset(cx))));
    return index;
}

// push.s index (the patch record points at the operand word).
void AddStringAndPatch(CodeGenContext& cx, const char* text) {
    Emit(cx, {MakeWord1(OP_PUSH, TYPE_STRING, 0)});
    if (!text) {
        // "Error!" is capitalised unlike the other two messages, deliberately: hosts match it.
        std::printf("Error! :: AddStringAndPatch :: Invalid NULL\n");
        Emit(cx, {kNoName});
        return;
    }
    uint32_t index = static_cast<uint32_t>(InternName(text));
    PushPtr(GlobalStringList, NewPatchRecord(index, 0, static_cast<uint64_t>(CodeOffset(cx))));
    Emit(cx, {index});
}

// call.i argumentCount, name index
void EmitCall(CodeGenContext& cx, const char* name, uint32_t argumentCount) {
    uint32_t index = AddFuncAndPatch(cx, name);
    Emit(cx, {MakeWord1(OP_CALL, TYPE_INT, argumentCount & 0xFFFFu), index});
}

// ---------------------------------------------------------------------------------------------
// Scopes.

VarEntry* LookupName(CodeGenContext& cx, const char* name, int32_t* depthOut) {
    uint32_t hash = NameHash(name);
    int32_t depth = -1;
    VarEntry* found = nullptr;
    ScopeRecord* foundScope = nullptr;
    // Names are told apart by hash alone here, deliberately: equal hashes share one variable.
    for (ListNode* node = cx.scopes.last; node; node = node->prev) {
        depth++;
        VarEntry* entry = static_cast<VarEntry*>(FindValue(ScopeOf(node)->vars, hash));
        if (entry) {
            found = entry;
            foundScope = ScopeOf(node);
            break;
        }
    }
    if (depthOut) *depthOut = depth;
    if (!found) return nullptr;

    FunctionRecord* record = foundScope->function;
    if (name && std::strcmp(name, "arguments") == 0) {
        if (record) record->flags |= kFlagArgumentsOrOuterParameter;
    } else if (record) {
        if (found->kind == kKindVariable && depth > 0) record->flags |= kFlagOuterVariable;
        if (found->kind == kKindParameter && depth >= 1) record->flags |= kFlagArgumentsOrOuterParameter;
    }
    bool outerUse = found->kind == kKindVariable || (found->kind == kKindParameter && depth >= 1);
    if (!outerUse) return found;

    for (ListNode* node = cx.scopes.last; node; node = node->prev) {
        ScopeRecord* scope = ScopeOf(node);
        if (scope->function) scope->function->flags &= ~kFlagNoOuterUse;
        if (FindValue(scope->vars, hash)) break;
    }
    return found;
}

VarEntry* DeclareLocal(CodeGenContext& cx, const char* name, uint32_t kind, uint32_t slot) {
    ScopeRecord* scope = ScopeOf(cx.scopes.last);
    uint32_t hash = NameHash(name);
    if (VarEntry* existing = static_cast<VarEntry*>(FindValue(scope->vars, hash))) return existing;
    VarEntry* entry = NewVarEntry(name, kind, slot == kUnsetSlot ? NextSlot() : slot);
    HashInsertHashed(scope->vars, hash, entry);
    return entry;
}

VarEntry* DeclareSlot(CodeGenContext& cx, const char* name) {
    ScopeRecord* scope = ScopeOf(cx.scopes.last);
    uint32_t hash = NameHash(name);
    if (VarEntry* existing = static_cast<VarEntry*>(FindValue(scope->slots, hash))) return existing;
    VarEntry* entry = NewVarEntry(name, kKindVariable, NextSlot());
    HashInsertHashed(scope->slots, hash, entry);
    HashInsertHashed(cx.slotTable, hash, entry);
    return entry;
}

RefString* QualifiedName(CodeGenContext& cx, const char* name) {
    StringBuilder text{};
    try {
        for (ListNode* node = cx.scopes.first; node; node = node->next) {
            const FunctionRecord* record = ScopeOf(node)->function;
            if (!record || record->declaredNameIndex >= static_cast<uint32_t>(NameArray.count)) continue;
            const char* declared = static_cast<const char*>(NameArray.data[record->declaredNameIndex]);
            if (!declared || !declared[0]) continue;
            AppendText(text, declared);
            AppendText(text, "@");
        }
        AppendText(text, name ? name : "");
        return AdoptRefString(text.text);
    } catch (...) {
        FreeStringBuilder(text);
        throw;
    }
}

ScopeRecord* PushScope(CodeGenContext& cx, FunctionRecord* function) {
    ScopeRecord* scope = static_cast<ScopeRecord*>(CheckedCalloc(1, sizeof(ScopeRecord)));
    try {
        InitHashTable(scope->vars, kScopeBuckets);
        InitHashTable(scope->slots, kScopeBuckets);
        InitHashTable(scope->extra, kScopeBuckets);
        scope->function = function;
        ListPush(cx.scopes, scope);
    } catch (...) {
        FreeScope(scope);
        throw;
    }
    return scope;
}

// Both arrays are made before the record changes, so a host never sees a count that does not
// match its array.
void FillScopeRecord(CodeGenContext& cx, ScopeRecord* scope) {
    FunctionRecord* record = scope->function;
    if (!record) return;
    uint32_t* locals = NamePairs(cx, scope->vars);
    uint32_t* slots;
    try {
        slots = NamePairs(cx, scope->slots);
    } catch (...) {
        std::free(locals);
        throw;
    }
    record->localCount = static_cast<uint32_t>(scope->vars.count);
    record->locals = locals;
    record->slotCount = static_cast<uint32_t>(scope->slots.count);
    record->slots = slots;
}

// ---------------------------------------------------------------------------------------------
// One compile.

void BeginCompile(CodeGenContext& cx, const char* scriptName, uint8_t topLevel) {
    BeginStackGuard(cx.guard);
    cx.scriptName = CheckedStrdup(scriptName ? scriptName : "");
    cx.topLevel = topLevel ? 1 : 0;
    cx.code = CreateWriteBuffer();
    cx.code2 = CreateWriteBuffer();
    cx.typeStack = static_cast<uint32_t*>(CheckedMalloc(kTypeStackEntries * sizeof(uint32_t)));
    cx.typeCapacity = kTypeStackEntries;
    cx.typeDepth = 0;
    cx.typeHighWater = 0;
    InitHashTable(cx.labelTable, kLabelTableBuckets);
    InitHashTable(cx.slotTable, kSlotTableBuckets);

    if (NameArray.count == 0) {
        PushPtr(GlobalVarList, NewPatchRecord(static_cast<uint32_t>(InternName("prototype")), kPatchKindSelf, kNoUseSite));
        PushPtr(GlobalVarList, NewPatchRecord(static_cast<uint32_t>(InternName("@@array@@")), kPatchKindSelf, kNoUseSite));
        PushPtr(GlobalVarList, NewPatchRecord(static_cast<uint32_t>(InternName("arguments")), kPatchKindLocal, kNoUseSite));
    }

    if (std::strcmp(cx.scriptName, "global") == 0) {
        // A record made for a script named "global" and dropped unused, deliberately; only its
        // interned name remains.
        uint32_t index = static_cast<uint32_t>(InternCopy(cx.scriptName));
        std::free(NewFunctionRecord(index, index, static_cast<uint64_t>(CodeOffset(cx))));
    }

    CodeGenGlobals& state = CodeGenState();
    if (!state.root) state.root = NewFunctionRecord(kNoName, kNoName, 0);
    PushScope(cx, state.root);
    PushPtr(GlobalFunctionRecords, state.root);
}

// The global scope's record is filled before the buffers are handed out: until then a failure
// leaves both buffers to the context's clean-up.
void EndCompile(CodeGenContext& cx, VMBuffer** code, VMBuffer** code2) {
    if (cx.scopes.last) {
        ScopeRecord* scope = ScopeOf(cx.scopes.last);
        FillScopeRecord(cx, scope);
        ListPop(cx.scopes);
        FreeScope(scope);
    }
    FinishBuffer(*cx.code);
    FinishBuffer(*cx.code2);
    *code = cx.code;
    *code2 = cx.code2;
    cx.code = nullptr;
    cx.code2 = nullptr;
}

void CleanUpContext(CodeGenContext& cx, bool) {
    ClearHashTable(cx.slotTable);
    ClearHashTable(cx.labelTable);
    FreeTargets(cx.continueTargets, cx.breakTargets);
    FreeTargets(cx.breakTargets, cx.continueTargets);
    while (cx.scopes.count > 0) FreeScope(static_cast<ScopeRecord*>(ListPop(cx.scopes)));
    std::free(cx.typeStack);
    cx.typeStack = nullptr;
    cx.typeDepth = cx.typeCapacity = 0;
    delete cx.code;
    delete cx.code2;
    cx.code = cx.code2 = nullptr;
    std::free(cx.scriptName);
    cx.scriptName = nullptr;
}
