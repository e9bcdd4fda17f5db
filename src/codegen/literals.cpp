// Object and array literals, built by calls of the runner's @@NewObject@@, @@NewProperty@@ and
// @@NewArray@@.

#include "codegen/codegen.h"
#include "state/process_state.h"
#include "support/hash_table.h"
#include "support/stack_guard.h"
#include "support/strings.h"

namespace {

constexpr int32_t kAccessorBuckets = 8;

struct AccessorRecord {
    const char* name;
    Node* getter;
    Node* setter;
};

// The accessor's property name: the text of its name child.
const char* AccessorName(const Node* accessor) { return TextOf(accessor->first); }

// Only the literal's compile reads an accessor record: it is one of the compile's scratch records.
__attribute__((noinline)) AccessorRecord* NewAccessorRecord(const char* name) {
    AccessorRecord* record = static_cast<AccessorRecord*>(CompileRecord(sizeof(AccessorRecord)));
    record->name = name;
    return record;
}

// "__getfn%d" / "__setfn%d"; the text is never freed.
__attribute__((noinline)) const char* AccessorFunctionName(const char* prefix) {
    DecimalText counter = FormatDecimal(CodeGenState().accessorCounter++);
    StringBuilder name{};
    AppendPieces(name, {"__", prefix, ViewOf(counter)});
    return name.text;
}

// Records are found by hash alone: two names with one hash share a record, like every name the
// code generator tells apart (ObjectLiteral.NamesWithEqualHashShareOneAccessorRecord).
AccessorRecord* FindOrAddAccessor(HashTable& table, const char* name) {
    uint32_t hash = NameHash(name);
    if (HashEntry* entry = HashFindFirst(table, hash)) return static_cast<AccessorRecord*>(entry->value);
    AccessorRecord* record = NewAccessorRecord(name);
    HashInsertHashed(table, hash, record);
    return record;
}

void AddAccessor(HashTable& table, Node* child) {
    const char* name = AccessorName(child);
    AccessorRecord* record = FindOrAddAccessor(table, name);
    if (child->kind == LEX_GETTER) {
        if (record->getter) ReportError(child->position, "getter has already been set for property %s", name);
        record->getter = child;
    } else {
        if (record->setter) ReportError(child->position, "setter has already been set for property %s", name);
        record->setter = child;
    }
}

// value; [conv.T.v]; push.s name; conv.s.v
void CompilePlainProperty(CodeGenContext& cx, Node* child) {
    if (child->first) CompileExpression(cx, child->first, false);
    EmitConvToVariable(cx, PopType(cx));
    AddStringAndPatch(cx, TextOf(child));
    Emit(cx, {MakeWord(OP_CONV, TYPE_STRING, TYPE_VARIABLE, 0)});
}

// The accessor function named "__getfn<n>" / "__setfn<n>", or push.v -11 undefined.
void CompileAccessorFunction(CodeGenContext& cx, Node* accessor, const char* prefix) {
    if (!accessor) {
        EmitPushUndefined(cx);
        return;
    }
    CompileFunction(cx, accessor->first, AccessorFunctionName(prefix));
}

// The key a plain property's compile interns (AddStringAndPatch), for the look-ahead; nothing
// for an accessor, a key without text, or no property.
void TakeKey(const Node* child, NamesAhead& ahead) {
    if (!child || child->kind == LEX_GETTER || child->kind == LEX_SETTER) return;
    if (const char* key = TextOf(child)) AddNameAhead(ahead, TextHash(key));
}

// One property on: the keys ahead take their next steps, and the key of `next` (three on from the
// property about to be compiled) is taken.
void LookAtNextKey(NamesAhead& keys, const Node*& next) {
    StepNamesAhead(keys);
    TakeKey(next, keys);
    next = NextOf(next);
}

// A literal of thousands of properties interns thousands of keys, most of them names the
// processor's caches no longer hold, each lookup three waits for memory: it looks ahead at the
// keys of the properties after the one it compiles (NamesAhead), as the loop over short top-level
// statements does at their names. One property apart is as far as it pays: a property compiles in
// a fraction of a microsecond, and asking further ahead measured slower. A small literal's keys
// are mostly names its script uses again and again, which the caches hold: only a literal of
// kKeysAheadProperties or more looks ahead (by its node's count of children).
constexpr uint32_t kKeysAheadProperties = 64;

}  // namespace

// per plain property: value, name; per accessor (bucket order): getter, setter,
// call @@NewProperty@@ 2, name; call @@NewObject@@ count
void CompileObjectLiteral(CodeGenContext& cx, Node* node) {
    uint32_t count = 0;
    HashTable accessors{};
    InitHashTable(accessors, kAccessorBuckets, &cx.tableEntries);
    bool lookAhead = node->count >= kKeysAheadProperties;
    NamesAhead keys;   // read only while looking ahead
    const Node* next = node->first;   // the property whose key is taken next
    if (lookAhead) {
        ClearNamesAhead(keys);
        for (int32_t taken = 0; taken < 3; taken++) LookAtNextKey(keys, next);
    }
    try {
        for (Node* child = node->first; child; child = child->next) {
            if (lookAhead) LookAtNextKey(keys, next);
            if (child->kind == LEX_GETTER || child->kind == LEX_SETTER) {
                AddAccessor(accessors, child);
            } else {
                CompilePlainProperty(cx, child);
                count += 2;
            }
        }
        for (int32_t bucket = 0; accessors.buckets && bucket <= accessors.mask; bucket++) {
            for (HashEntry* entry = accessors.buckets[bucket].first; entry; entry = entry->next) {
                AccessorRecord* record = static_cast<AccessorRecord*>(entry->value);
                CompileAccessorFunction(cx, record->getter, "getfn");
                CompileAccessorFunction(cx, record->setter, "setfn");
                EmitCall(cx, "@@NewProperty@@", 2);
                AddStringAndPatch(cx, record->name);
                Emit(cx, {MakeWord(OP_CONV, TYPE_STRING, TYPE_VARIABLE, 0)});
                count += 2;
            }
        }
        EmitCall(cx, "@@NewObject@@", count & 0xFFFFu);
        PushType(cx, TYPE_VARIABLE);
    } catch (...) {
        ClearHashTable(accessors);
        throw;
    }
    ClearHashTable(accessors);
}

// elements last to first, each [conv.T.v]; call @@NewArray@@ count
void CompileArrayLiteral(CodeGenContext& cx, Node* node) {
    uint32_t count = 0;
    for (Node* element = node->last; element; element = element == node->first ? nullptr : element->prev) {
        CompileExpression(cx, element, false);
        EmitConvToVariable(cx, PopType(cx));
        count++;
    }
    EmitCall(cx, "@@NewArray@@", count & 0xFFFFu);
    PushType(cx, TYPE_VARIABLE);
}
