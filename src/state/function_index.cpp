// Function records by qualified name: a later script that defines a function of the same
// qualified name replaces the record in place.
#include <cstdlib>
#include <cstring>
#include <new>

#include "state/process_state.h"

namespace {

constexpr uint64_t kFirstSlots = 64;

// The qualified name of the record at `position`, read through the name table, or null.
const char* RecordName(int32_t position) {
    if (position < 0 || position >= GlobalFunctionRecords.count) return nullptr;
    const FunctionRecord* record = static_cast<const FunctionRecord*>(GlobalFunctionRecords.data[position]);
    if (!record || record->nameIndex >= static_cast<uint32_t>(NameArray.count)) return nullptr;
    return static_cast<const char*>(NameArray.data[record->nameIndex]);
}

// The first record whose qualified name, read through the name table, is this text.
int32_t ScanFunctionRecords(const char* qualifiedName) {
    for (int32_t position = 0; position < GlobalFunctionRecords.count; position++) {
        const char* text = RecordName(position);
        if (text && std::strcmp(text, qualifiedName) == 0) return position;
    }
    return -1;
}

// The slot holding `text`, or the empty slot where it would go. The index must have slots.
FunctionSlot& Probe(FunctionIndex& index, const char* text, uint32_t hash) {
    uint64_t at = hash & index.mask;
    for (;;) {
        FunctionSlot& slot = index.slots[at];
        if (slot.position < 0) return slot;
        if (slot.hash == hash && (slot.text == text || std::strcmp(slot.text, text) == 0)) return slot;
        at = (at + 1) & index.mask;
    }
}

// A table of `capacity` slots (a power of two) holding every slot of the old one. Throws
// std::bad_alloc with the index unchanged.
void Grow(FunctionIndex& index, uint64_t capacity) {
    FunctionSlot* slots = static_cast<FunctionSlot*>(AllocateTable(capacity * sizeof(FunctionSlot)));
    for (uint64_t i = 0; i < capacity; i++) slots[i].position = -1;
    int64_t used = 0;
    for (uint64_t i = 0; index.slots && i <= index.mask; i++) {
        const FunctionSlot& slot = index.slots[i];
        if (slot.position < 0) continue;
        uint64_t at = slot.hash & (capacity - 1);
        while (slots[at].position >= 0) at = (at + 1) & (capacity - 1);
        slots[at] = slot;
        used++;
    }
    if (index.slots) FreeTable(index.slots, (index.mask + 1) * sizeof(FunctionSlot));
    index.slots = slots;
    index.mask = capacity - 1;
    index.used = used;
}

// Empties slot `at` and moves later entries of its run back, so that every entry stays
// reachable from its home slot (deletion without tombstones).
void EraseSlot(FunctionIndex& index, uint64_t at) {
    uint64_t hole = at;
    for (uint64_t next = (at + 1) & index.mask; index.slots[next].position >= 0; next = (next + 1) & index.mask) {
        uint64_t home = index.slots[next].hash & index.mask;
        // The entry may move back only when its home is not within (hole, next].
        bool homeBetween = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
        if (homeBetween) continue;
        index.slots[hole] = index.slots[next];
        hole = next;
    }
    index.slots[hole].position = -1;
    index.used--;
}

}  // namespace

int32_t FindFunctionRecord(const char* qualifiedName) {
    if (!qualifiedName) return -1;
    return FindFunctionRecord(HashedText{qualifiedName, TextHash(qualifiedName)});
}

int32_t FindFunctionRecord(const HashedText& qualifiedName) {
    // Once a host has renamed an entry, names no longer match the index: read them as stored.
    if (NameOverwrites() != 0) return ScanFunctionRecords(qualifiedName.text);
    FunctionIndex& index = State().functionIndex;
    if (!index.slots) return -1;
    return Probe(index, qualifiedName.text, qualifiedName.hash).position;
}

void PrefetchFunctionRecord(uint32_t hash) {
    const FunctionIndex& index = State().functionIndex;
    if (index.slots) __builtin_prefetch(&index.slots[hash & index.mask]);
}

bool FunctionRecordIndexAgrees() {
    FunctionIndex& index = State().functionIndex;
    int64_t used = 0;
    for (uint64_t i = 0; index.slots && i <= index.mask; i++) {
        const FunctionSlot& slot = index.slots[i];
        if (slot.position < 0) continue;
        used++;
        if (slot.position >= GlobalFunctionRecords.count || TextHash(slot.text) != slot.hash) return false;
        if (NameOverwrites() != 0) continue;
        const char* text = RecordName(slot.position);
        if (!text || std::strcmp(text, slot.text) != 0) return false;
        // Reachable from its home slot, and the first entry of its name there.
        if (Probe(index, slot.text, slot.hash).position != slot.position) return false;
    }
    return used == index.used;
}

namespace {

// Replaces in place, or appends and indexes the name: a copy of it unless `kept`.
void PutFunctionRecord(const HashedText* qualifiedName, bool kept, int32_t position, FunctionRecord* record) {
    if (position >= 0 && position < GlobalFunctionRecords.count) {
        // Journaled first, so that a compile that fails for memory can put the old one back.
        if (StateMark* mark = State().activeMark) mark->replaced.push_back({position, GlobalFunctionRecords.data[position]});
        GlobalFunctionRecords.data[position] = record;
        return;
    }
    if (!qualifiedName) {
        PushPtr(GlobalFunctionRecords, record);
        return;
    }
    // Room first, then the push, then the slot: a failure leaves the index and the list in step.
    FunctionIndex& index = State().functionIndex;
    if (!index.slots) {
        Grow(index, kFirstSlots);
    } else if (static_cast<uint64_t>(index.used + 1) * 2 > index.mask + 1) {
        Grow(index, (index.mask + 1) * 2);
    }
    FunctionSlot& slot = Probe(index, qualifiedName->text, qualifiedName->hash);
    // The first record of a name keeps its slot, as an insertion that finds the name does nothing.
    const char* text = nullptr;
    if (slot.position < 0) text = kept ? qualifiedName->text : KeepText(qualifiedName->text);
    int32_t pushed = PushPtr(GlobalFunctionRecords, record);
    if (!text) return;
    slot.hash = qualifiedName->hash;
    slot.position = pushed;
    slot.text = text;
    index.used++;
}

}  // namespace

void SetFunctionRecord(const char* qualifiedName, int32_t position, FunctionRecord* record) {
    if (!qualifiedName) {
        PutFunctionRecord(nullptr, false, position, record);
        return;
    }
    HashedText hashed{qualifiedName, TextHash(qualifiedName)};
    PutFunctionRecord(&hashed, false, position, record);
}

void SetFunctionRecord(const HashedText& qualifiedName, bool nameIsKept, int32_t position, FunctionRecord* record) {
    PutFunctionRecord(&qualifiedName, nameIsKept, position, record);
}

void DropFunctionPositionsFrom(int32_t count) {
    FunctionIndex& index = State().functionIndex;
    for (uint64_t i = 0; index.slots && i <= index.mask;) {
        if (index.slots[i].position < count) {
            i++;
        } else {
            // Erased in place, allocating nothing: this runs when memory has run out. The slot is
            // looked at again, as a later entry of its run may have moved into it.
            EraseSlot(index, i);
        }
    }
}
