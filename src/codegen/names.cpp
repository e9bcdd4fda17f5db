// Names and patch records: interning into the process-wide name table, and the records that tell
// a host where in the code a variable, function or string index is to be filled in.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "codegen/codegen.h"
#include "codegen/context.h"

namespace {

constexpr uint32_t kNoName = 0xFFFFFFFFu;
constexpr uint64_t kNoUseSite = ~0ull;

// Patch and function records are the host's for the life of the process.
PatchRecord* NewPatchRecord(uint32_t nameIndex, uint32_t kind, uint64_t codeOffset) {
    PatchRecord* record = static_cast<PatchRecord*>(KeepRecord(sizeof(PatchRecord)));
    record->nameIndex = nameIndex;
    record->kind = kind;
    record->codeOffset = codeOffset;
    return record;
}

}  // namespace

int32_t InternName(const char* text) {
    if (!text) return -1;
    // Hashed once for the lookup and, when the text is new, for indexing the push.
    HashedText hashed{text, TextHash(text)};
    NameSlot* place;
    int32_t index = FindNameOrPlace(hashed, &place);
    return index >= 0 ? index : PushNewName(hashed, place);
}

int32_t InternLastingName(const char* text) {
    if (!text) return -1;
    LastingName& entry = LastingNameEntry(text);
    if (entry.known & kKnownNameId) return entry.id;
    // The table only grows within a generation, so the first holder of the text stays its id.
    int32_t id = InternName(text);
    entry.id = id;
    entry.known |= kKnownNameId;
    return id;
}

int32_t InternCopy(const char* text) { return InternCopy(HashedText{text, TextHash(text)}); }

int32_t InternCopy(const HashedText& text) { return InternCopy(text, std::strlen(text.text)); }

int32_t InternCopy(const HashedText& text, size_t length) {
    NameSlot* place;
    int32_t index = FindNameOrPlace(text, &place);
    if (index >= 0) return index;
    // The table keeps the copy for the life of the process (and so does the arena when the push
    // fails). Copying changes neither the table nor its index.
    return PushNewName(HashedText{ArenaCopyText(State().texts, text.text, length), text.hash}, place);
}

namespace {

uint32_t AddVarAndPatchAt(CodeGenContext& cx, const char* name, uint32_t kind, int32_t (*intern)(const char*)) {
    if (!name) {
        std::printf("ERROR! :: AddVarAndPatch :: Invalid NULL\n");
        return kNoName;
    }
    uint32_t index = static_cast<uint32_t>(intern(name));
    PushPtr(GlobalVarList, NewPatchRecord(index, kind, static_cast<uint64_t>(CodeOffset(cx))));
    return index;
}

uint32_t AddFuncAndPatchAt(CodeGenContext& cx, const char* name, int32_t (*intern)(const char*)) {
    if (!name) {
        std::printf("ERROR! :: AddFuncAndPatch :: Invalid NULL\n");
        return kNoName;
    }
    uint32_t index = static_cast<uint32_t>(intern(name));
    AddFuncPatch(cx, index);
    return index;
}

}  // namespace

uint32_t AddVarAndPatch(CodeGenContext& cx, const char* name, uint32_t kind) {
    return AddVarAndPatchAt(cx, name, kind, InternName);
}

uint32_t AddVarAndPatch(CodeGenContext& cx, const char* name, uint32_t kind, bool lasting) {
    return AddVarAndPatchAt(cx, name, kind, lasting ? InternLastingName : InternName);
}

uint32_t AddNodeVarAndPatch(CodeGenContext& cx, const Node* node, uint32_t kind) {
    return AddVarAndPatch(cx, TextOf(node), kind, IsLastingText(node->text));
}

uint32_t NameHashOf(const char* name, bool lasting) { return lasting ? LastingNameHash(name) : NameHash(name); }

uint32_t NodeNameHash(const Node* node) { return NameHashOf(TextOf(node), IsLastingText(node->text)); }

void AddVarRecordWithoutSite(const char* name, uint32_t kind) {
    PushPtr(GlobalVarList, NewPatchRecord(static_cast<uint32_t>(InternName(name)), kind, kNoUseSite));
}

uint32_t AddFuncAndPatch(CodeGenContext& cx, const char* name) { return AddFuncAndPatchAt(cx, name, InternName); }

void AddFuncPatch(CodeGenContext& cx, uint32_t nameIndex) {
    PushPtr(GlobalFuncList, NewPatchRecord(nameIndex, 0, static_cast<uint64_t>(CodeOffset(cx))));
}

// push.s index (the patch record points at the operand word)
void AddStringAndPatch(CodeGenContext& cx, const char* text) {
    Emit(cx, {MakeWord1(OP_PUSH, TYPE_STRING, 0)});
    if (!text) {
        // "Error!" is capitalised unlike the other two messages: hosts that scan the library's
        // output match each text as it stands (PatchRecords.NullStringPrintsWithItsOwnCapitalisationAndWritesAllOnes).
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
    // The helpers' names are the library's literals: lasting.
    uint32_t index = AddFuncAndPatchAt(cx, name, InternLastingName);
    Emit(cx, {MakeWord1(OP_CALL, TYPE_INT, argumentCount & 0xFFFFu), index});
}

FunctionRecord* NewFunctionRecord(uint32_t nameIndex, uint32_t declaredNameIndex, uint64_t codeOffset) {
    FunctionRecord* record = static_cast<FunctionRecord*>(KeepRecord(sizeof(FunctionRecord)));
    record->nameIndex = nameIndex;
    record->declaredNameIndex = declaredNameIndex;
    record->codeOffset = codeOffset;
    record->flags = kInitialFunctionFlags;
    return record;
}

namespace {

void StepGroup(const NamesAhead& ahead, int32_t group, NameStep step) {
    for (int32_t i = 0; i < ahead.counts[group]; i++) PrefetchNameStep(ahead.hashes[group][i], step);
}

}  // namespace

void StepNamesAhead(NamesAhead& ahead) {
    ahead.newest = ahead.newest == 2 ? 0 : ahead.newest + 1;
    ahead.counts[ahead.newest] = 0;
    StepGroup(ahead, ahead.newest == 0 ? 2 : ahead.newest - 1, kNameStepEntry);
    StepGroup(ahead, ahead.newest == 2 ? 0 : ahead.newest + 1, kNameStepText);
}

void AddNameAhead(NamesAhead& ahead, uint32_t hash) {
    int32_t& count = ahead.counts[ahead.newest];
    if (count == kNamesPerItemAhead) return;
    ahead.hashes[ahead.newest][count++] = hash;
    PrefetchNameStep(hash, kNameStepSlot);
}

void ClearNamesAhead(NamesAhead& ahead) {
    for (int32_t& count : ahead.counts) count = 0;
    ahead.newest = 0;
}
