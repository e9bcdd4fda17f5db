// Scopes and lookup: one scope per function being compiled (the global scope first), each with
// its declared variables, the names that took a slot, and the functions declared in it.
#include "codegen/context.h"
#include "parser/node.h"

#include <cstdlib>
#include <cstring>
#include <new>

// A variable entry with its name's handle and record, in one scratch record of the compile. The
// entries of a function's variables are done with when its scope is popped (GiveBackVarEntries):
// the next declarations take them again, so that a script of thousands of functions does not
// hold every function's entries to the end of its compile.
struct VarEntryRecord {
    VarEntry entry;             // first: a VarEntry* of the record is the record's address
    RefString* handle;
    RefString name;
    // A lasting text of the same name (the declaring node's, or one of the library's literal
    // names), or null. The name's id is remembered under it (InternLastingName) across the
    // functions that declare the name, where the entry's own copy is new with each declaration.
    const char* lastingText;
    VarEntryRecord* nextSpare;  // while given back: the next of CodeGenContext::spareVarEntries
};

namespace {

constexpr int32_t kScopeBuckets = 16;

ScopeRecord* ScopeOf(const ListNode* node) { return static_cast<ScopeRecord*>(node->value); }

const char* VarEntryText(const VarEntry* entry) { return (*entry->name)->text; }

VarEntry* NewVarEntry(CodeGenContext& cx, const char* name, uint32_t kind, uint32_t slot, const char* lasting = nullptr) {
    // The copy of the name is kept for the life of the process, as the name table may take it;
    // it is made first, so that a failure takes no spare record.
    char* copy = KeepText(name ? name : "");
    VarEntryRecord* record = cx.spareVarEntries;
    if (record) {
        cx.spareVarEntries = record->nextSpare;
        record->nextSpare = nullptr;
    } else {
        record = static_cast<VarEntryRecord*>(CompileRecord(sizeof(VarEntryRecord)));
    }
    record->handle = InitArenaRefString(&record->name, copy);
    record->entry.name = &record->handle;
    record->entry.kind = kind;
    record->entry.slot = slot;
    record->lastingText = lasting;
    return &record->entry;
}

// InternLastingName of the entry's name. The copy the entry holds is what the table takes when the
// name is new; the id, the same for any text of the name, is remembered under the entry's lasting
// text, where the next function that declares the name finds it.
int32_t InternVarEntryName(const VarEntry* var) {
    const char* lasting = reinterpret_cast<const VarEntryRecord*>(var)->lastingText;
    if (!lasting) return InternLastingName(VarEntryText(var));
    if (const LastingName& known = LastingNameEntry(lasting); known.known & kKnownNameId) return known.id;
    int32_t id = InternLastingName(VarEntryText(var));
    // Taken again: the copy's own entry may have replaced it.
    LastingName& entry = LastingNameEntry(lasting);
    entry.id = id;
    entry.known |= kKnownNameId;
    return id;
}

uint32_t NextSlot() { return CodeGenState().slotCounter++; }

// The first entry of the key's bucket with an equal hash, if it carries a value.
void* FindValue(const HashTable& table, uint32_t hash) {
    HashEntry* entry = HashFindFirst(table, hash);
    return entry ? entry->value : nullptr;
}

// Qualified names a table's pairs take in one batch: their hashes are taken and their slots in the
// name index asked for first, so that the reads of the slots of new names (each a wait for memory
// in a large index) overlap instead of following one another.
constexpr int32_t kNamePairsBatch = 16;

// Pairs (qualified name index, name index) for every entry in bucket order, kept with the
// function record for the life of the process. The names are interned in that order, batch by
// batch, exactly as one entry after the other would. A batch's qualified names are written once,
// one after the other, and interned from there.
uint32_t* NamePairs(CodeGenContext& cx, const HashTable& table) {
    uint32_t* pairs = static_cast<uint32_t*>(KeepRecord(static_cast<size_t>(table.count) * 8));
    if (!table.buckets) return pairs;
    int32_t used = 0;
    int32_t bucket = 0;
    const HashEntry* entry = table.buckets[0].first;
    StringBuilder& batch = cx.batchNames;
    for (;;) {
        const VarEntry* vars[kNamePairsBatch];
        uint32_t hashes[kNamePairsBatch];
        size_t offsets[kNamePairsBatch];
        size_t lengths[kNamePairsBatch];
        int32_t taken = 0;
        batch.length = 0;
        for (; taken < kNamePairsBatch; entry = entry->next) {
            while (!entry && bucket < table.mask) entry = table.buckets[++bucket].first;
            if (!entry) break;
            vars[taken] = static_cast<const VarEntry*>(entry->value);
            const char* name = VarEntryText(vars[taken]);
            offsets[taken] = batch.length;
            lengths[taken] = AppendQualifiedName(cx, name, batch);
            hashes[taken] = HashQualifiedName(cx, batch.text + offsets[taken], lengths[taken]).hash;
            PrefetchNameStep(hashes[taken++], kNameStepSlot);
        }
        if (taken == 0) return pairs;
        for (int32_t i = 0; i < taken; i++, used++) {
            HashedText qualified{batch.text + offsets[i], hashes[i]};
            pairs[used * 2] = static_cast<uint32_t>(InternCopy(qualified, lengths[i]));
            // The entry's copy of its name is kept for the life of the process: lasting.
            pairs[used * 2 + 1] = static_cast<uint32_t>(InternVarEntryName(vars[i]));
        }
    }
}

}  // namespace

NameLookup FindDeclaration(const CodeGenContext& cx, const char* name) {
    return FindDeclaration(cx, NameHash(name));
}

NameLookup FindDeclaration(const CodeGenContext& cx, uint32_t hash) {
    NameLookup found{nullptr, -1, nullptr};
    for (ListNode* node = cx.scopes.last; node; node = node->prev) {
        found.depth++;
        if (VarEntry* entry = static_cast<VarEntry*>(FindValue(ScopeOf(node)->vars, hash))) {
            found.entry = entry;
            found.scope = ScopeOf(node);
            break;
        }
    }
    return found;
}

VarEntry* LookupName(const CodeGenContext& cx, const char* name, int32_t* depth) {
    NameLookup found = FindDeclaration(cx, name);
    if (depth) *depth = found.depth;
    return found.entry;
}

void RecordNameUse(CodeGenContext& cx, const char* name, const NameLookup& found) {
    if (!found.entry) return;
    FunctionRecord* record = found.scope->function;
    bool parameter = found.entry->kind == kVarEntryParameter;
    bool variable = found.entry->kind == kVarEntryVariable;
    // The first letter first: nearly every name is another.
    if (name && name[0] == 'a' && std::strcmp(name, "arguments") == 0) {
        if (record) record->flags |= kFlagArgumentsOrOuterParameter;
    } else if (record) {
        if (variable && found.depth > 0) record->flags |= kFlagOuterVariable;
        if (parameter && found.depth >= 1) record->flags |= kFlagArgumentsOrOuterParameter;
    }
    // A variable (even the function's own) or an outer parameter is a use that reaches out of
    // every function from the innermost to the declaring one.
    bool outerUse = variable || (parameter && found.depth >= 1);
    if (!outerUse) return;
    for (ListNode* node = cx.scopes.last; node; node = node->prev) {
        ScopeRecord* scope = ScopeOf(node);
        if (scope->function) scope->function->flags &= ~kFlagNoOuterUse;
        if (scope == found.scope) break;
    }
}

VarEntry* UseName(CodeGenContext& cx, const char* name, int32_t* depth) {
    return UseName(cx, name, NameHash(name), depth);
}

VarEntry* UseName(CodeGenContext& cx, const char* name, uint32_t hash, int32_t* depth) {
    NameLookup found = FindDeclaration(cx, hash);
    if (depth) *depth = found.depth;
    RecordNameUse(cx, name, found);
    return found.entry;
}

VarEntry* DeclareLocal(CodeGenContext& cx, const char* name, uint32_t kind, uint32_t slot) {
    return DeclareLocal(cx, name, NameHash(name), kind, slot);
}

VarEntry* DeclareNodeLocal(CodeGenContext& cx, const Node* node, uint32_t kind, uint32_t slot) {
    const char* text = node->text->text;
    return DeclareLocal(cx, text, NodeNameHash(node), kind, slot, IsLastingText(node->text) ? text : nullptr);
}

VarEntry* DeclareLocal(CodeGenContext& cx, const char* name, uint32_t hash, uint32_t kind, uint32_t slot, const char* lasting) {
    ScopeRecord* scope = ScopeOf(cx.scopes.last);
    if (VarEntry* existing = static_cast<VarEntry*>(FindValue(scope->vars, hash))) return existing;
    VarEntry* entry = NewVarEntry(cx, name, kind, slot == kUnsetSlot ? NextSlot() : slot, lasting);
    HashInsertHashed(scope->vars, hash, entry);
    return entry;
}

VarEntry* DeclareSlot(CodeGenContext& cx, const char* name) {
    ScopeRecord* scope = ScopeOf(cx.scopes.last);
    uint32_t hash = NameHash(name);
    if (VarEntry* existing = static_cast<VarEntry*>(FindValue(scope->slots, hash))) return existing;
    VarEntry* entry = NewVarEntry(cx, name, kVarEntryVariable, NextSlot());
    HashInsertHashed(scope->slots, hash, entry);
    HashInsertHashed(cx.slotTable, hash, entry);
    return entry;
}

namespace {

// The declared name a function contributes to qualified names, or null. Read when its scope is
// pushed: the name table's entries below the count do not change during a compile.
const char* QualifierOf(const FunctionRecord* record) {
    if (!record || record->declaredNameIndex >= static_cast<uint32_t>(NameArray.count)) return nullptr;
    const char* declared = static_cast<const char*>(NameArray.data[record->declaredNameIndex]);
    return declared && declared[0] ? declared : nullptr;
}

// Back to what the prefix was before `scope` added to it.
void TruncatePrefix(CodeGenContext& cx, const ScopeRecord* scope) {
    cx.qualifierHash = scope->prefixHashBefore;
    if (!cx.qualifierPrefix.text) return;
    cx.qualifierPrefix.length = scope->prefixBefore;
    cx.qualifierPrefix.text[scope->prefixBefore] = '\0';
}

}  // namespace

size_t AppendQualifiedName(CodeGenContext& cx, const char* name, StringBuilder& out) {
    if (!name) name = "";
    // The enclosing names are kept joined in the prefix: in deeply nested functions the qualified
    // names run to thousands of characters, and every local of every function has one.
    const StringBuilder& prefix = cx.qualifierPrefix;
    size_t nameLength = std::strlen(name);
    size_t length = prefix.length + nameLength;
    if (static_cast<uint64_t>(out.length) + length + 1 >= INT32_MAX) throw std::bad_alloc();
    ReserveText(out, static_cast<uint32_t>(length + 1));
    char* at = out.text + out.length;
    if (prefix.length > 0) std::memcpy(at, prefix.text, prefix.length);
    std::memcpy(at + prefix.length, name, nameLength + 1);
    out.length += static_cast<uint32_t>(length + 1);
    return length;
}

const char* WriteQualifiedName(CodeGenContext& cx, const char* name, StringBuilder& out) {
    out.length = 0;
    // AppendQualifiedName counts the NUL in the builder's length, for the next text of a batch;
    // a written name's length is its text's alone (HashQualifiedName reads it so).
    out.length = static_cast<uint32_t>(AppendQualifiedName(cx, name, out));
    return out.text;
}

HashedText HashQualifiedName(const CodeGenContext& cx, const char* text, size_t length) {
    // The prefix's words were hashed when its scope was pushed.
    return {text, TextHashFrom(cx.qualifierHash, text, length)};
}

HashedText HashQualifiedName(const CodeGenContext& cx, const StringBuilder& written) {
    return HashQualifiedName(cx, written.text, written.length);
}

RefString* QualifiedName(CodeGenContext& cx, const char* name) {
    StringBuilder text{};
    try {
        WriteQualifiedName(cx, name, text);
        return AdoptRefString(text.text);
    } catch (...) {
        FreeStringBuilder(text);
        throw;
    }
}

// A zeroed scope record: one a popped scope left, else a new scratch record of the compile.
ScopeRecord* NewScope(CodeGenContext& cx) {
    if (ScopeRecord* scope = cx.spareScopes) {
        cx.spareScopes = scope->nextSpare;
        *scope = ScopeRecord{};
        return scope;
    }
    return static_cast<ScopeRecord*>(CompileRecord(sizeof(ScopeRecord)));
}

ScopeRecord* PushScope(CodeGenContext& cx, FunctionRecord* function) {
    ScopeRecord* scope = NewScope(cx);
    scope->prefixBefore = cx.qualifierPrefix.length;
    scope->prefixHashBefore = cx.qualifierHash;
    try {
        InitHashTable(scope->vars, kScopeBuckets, &cx.tableEntries);
        InitHashTable(scope->slots, kScopeBuckets, &cx.tableEntries);
        InitHashTable(scope->extra, kScopeBuckets, &cx.tableEntries);
        scope->function = function;
        if (const char* declared = QualifierOf(function)) {
            AppendText(cx.qualifierPrefix, declared);
            AppendText(cx.qualifierPrefix, "@");
            cx.qualifierHash = TextHashWords(cx.qualifierHash, cx.qualifierPrefix.text, cx.qualifierPrefix.length);
        }
        ListPush(cx.scopes, scope);
    } catch (...) {
        TruncatePrefix(cx, scope);
        FreeScope(cx, scope);
        throw;
    }
    return scope;
}

void FreeScope(CodeGenContext& cx, ScopeRecord* scope) {
    ClearHashTable(scope->vars);
    ClearHashTable(scope->slots);
    ClearHashTable(scope->extra);
    scope->nextSpare = cx.spareScopes;
    cx.spareScopes = scope;
}

void GiveBackVarEntries(CodeGenContext& cx, const ScopeRecord& scope) {
    const HashTable& vars = scope.vars;
    for (int32_t bucket = 0; vars.buckets && bucket <= vars.mask; bucket++) {
        for (const HashEntry* entry = vars.buckets[bucket].first; entry; entry = entry->next) {
            auto* record = static_cast<VarEntryRecord*>(entry->value);
            record->nextSpare = cx.spareVarEntries;
            cx.spareVarEntries = record;
        }
    }
}

void PopScope(CodeGenContext& cx) {
    ScopeRecord* scope = static_cast<ScopeRecord*>(ListPop(cx.scopes));
    if (!scope) return;
    TruncatePrefix(cx, scope);
    FreeScope(cx, scope);
}

// Both arrays are made before the record changes, so a host never sees a count that does not
// match its array.
void FillScopeRecord(CodeGenContext& cx, ScopeRecord* scope) {
    FunctionRecord* record = scope->function;
    if (!record) return;
    uint32_t* locals = NamePairs(cx, scope->vars);
    uint32_t* slots = NamePairs(cx, scope->slots);
    record->localCount = static_cast<uint32_t>(scope->vars.count);
    record->locals = locals;
    record->slotCount = static_cast<uint32_t>(scope->slots.count);
    record->slots = slots;
}

FunctionRecord* FindDeclaredFunction(const CodeGenContext& cx, const char* name) {
    return FindDeclaredFunction(cx, name, NameHash(name));
}

FunctionRecord* FindDeclaredFunction(const CodeGenContext& cx, const char* name, uint32_t hash) {
    for (ListNode* node = cx.scopes.last; node; node = node->prev) {
        FunctionRecord* record = static_cast<FunctionRecord*>(FindValue(ScopeOf(node)->extra, hash));
        if (!record || record->declaredNameIndex >= static_cast<uint32_t>(NameArray.count)) continue;
        const char* declared = static_cast<const char*>(NameArray.data[record->declaredNameIndex]);
        if (declared && name && std::strcmp(declared, name) == 0) return record;
    }
    return nullptr;
}
