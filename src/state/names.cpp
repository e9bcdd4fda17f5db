// The name table: ids handed out in order, found by text through an index kept in step.
#include <cstdlib>
#include <cstring>
#include <new>

#include "state/process_state.h"

namespace {

void FreeIndex(NameIndex& index) {
    if (index.slots) FreeTable(index.slots, (index.mask + 1) * sizeof(NameSlot));
    index.slots = nullptr;
}

void Resize(NameIndex& index, uint64_t capacity) {
    NameSlot* slots = static_cast<NameSlot*>(AllocateTable(capacity * sizeof(NameSlot)));
    for (uint64_t i = 0; i < capacity; i++) slots[i].id = -1;
    for (uint64_t i = 0; index.slots && i <= index.mask; i++) {
        if (index.slots[i].id < 0) continue;
        uint64_t at = index.slots[i].hash & (capacity - 1);
        while (slots[at].id >= 0) at = (at + 1) & (capacity - 1);
        slots[at] = index.slots[i];
    }
    FreeIndex(index);
    index.slots = slots;
    index.mask = capacity - 1;
}

// The slot holding `text`, or the empty slot where it would go.
NameSlot& Probe(NameIndex& index, const char* text, uint32_t hash) {
    uint64_t at = hash & index.mask;
    for (;;) {
        NameSlot& slot = index.slots[at];
        if (slot.id < 0) return slot;
        if (slot.hash == hash) {
            const char* held = static_cast<const char*>(NameArray.data[slot.id]);
            if (held == text || std::strcmp(held, text) == 0) return slot;
        }
        at = (at + 1) & index.mask;
    }
}

// Indexes the entries pushed since the last catch-up; `known` is the hash of `knownText`, which
// saves hashing the entry just pushed again.
void CatchUp(NameIndex& index, const char* knownText = nullptr, uint32_t known = 0) {
    if (index.stale || !index.slots) {
        FreeIndex(index);
        index.used = 0;
        index.indexed = 0;
        index.stale = false;
        Resize(index, 1024);
    }
    for (; index.indexed < NameArray.count; index.indexed++) {
        const char* text = static_cast<const char*>(NameArray.data[index.indexed]);
        if (!text) continue;
        if (static_cast<uint64_t>(index.used + 1) * 2 > index.mask + 1) Resize(index, (index.mask + 1) * 2);
        uint32_t hash = text == knownText ? known : TextHash(text);
        NameSlot& slot = Probe(index, text, hash);
        if (slot.id >= 0) continue;   // an earlier id already holds this text
        slot.hash = hash;
        slot.id = index.indexed;
        index.used++;
    }
}

// Before the first name of a marked call is pushed: a copy of the entries the host placed past
// the count, which that push may wipe (allocated before anything changes).
void SaveNameTail(StateMark& mark) {
    int32_t length = NameArray.dirtyEnd - NameArray.count;
    if (length > 0) {
        mark.savedTail = static_cast<void**>(CheckedMalloc(static_cast<size_t>(length) * sizeof(void*)));
        std::memcpy(mark.savedTail, NameArray.data + NameArray.count, static_cast<size_t>(length) * sizeof(void*));
        mark.savedTailLength = length;
    }
    mark.tailSaved = true;
}

}  // namespace

// Eight bytes at a time, each word mixed in by a multiply, then a final mix, so that nearby texts
// spread over the whole table; folded to 32 bits (the indexes never have more slots than that).
// Only the two indexes read it: no result depends on its values.
uint32_t TextHash(const char* text, size_t length) {
    constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
    uint64_t hash = 0xCBF29CE484222325ull ^ length;
    const char* at = text;
    for (; length >= 8; at += 8, length -= 8) {
        uint64_t word;
        std::memcpy(&word, at, 8);
        hash = (hash ^ word) * kMultiplier;
        hash ^= hash >> 32;
    }
    if (length > 0) {
        uint64_t word = 0;
        std::memcpy(&word, at, length);
        hash = (hash ^ word) * kMultiplier;
        hash ^= hash >> 32;
    }
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    return static_cast<uint32_t>(hash ^ (hash >> 32));
}

uint32_t TextHash(const char* text) { return TextHash(text, std::strlen(text)); }

HashedText HashText(const char* text, size_t length) { return {text, TextHash(text, length)}; }

int32_t FindName(const char* text) { return FindName(HashedText{text, TextHash(text)}); }

int32_t FindName(const HashedText& text) {
    NameIndex& index = State().nameIndex;
    CatchUp(index);
    return Probe(index, text.text, text.hash).id;
}

int32_t PushName(const char* text) { return PushName(HashedText{text, text ? TextHash(text) : 0}); }

int32_t PushName(const HashedText& text) {
    StateMark* mark = State().activeMark;
    if (mark && !mark->tailSaved) SaveNameTail(*mark);
    int32_t id = PushPtr(NameArray, const_cast<char*>(text.text));
    // The name is in the table now. An index that cannot grow just yet catches up at the next
    // lookup, so a push either changes nothing (it threw above) or completes.
    try {
        CatchUp(State().nameIndex, text.text, text.hash);
    } catch (const std::bad_alloc&) {
    }
    return id;
}

void PlaceName(const char* name, int32_t index) {
    char* pointer = const_cast<char*>(name);
    if (index < 0) index = 0;
    // Room first: a placement that cannot get its memory leaves the table as it was.
    ReservePtrArray(NameArray, index);
    if (index > NameArray.count) {
        // The host gets a fresh zeroed array beyond count, with its entry in place.
        ClearPtrArrayTail(NameArray);
    }
    StorePtr(NameArray, index, pointer);
    if (index < NameArray.count) {
        State().nameIndex.stale = true;
        State().nameOverwrites++;
    }
}

uint64_t NameOverwrites() { return State().nameOverwrites; }
