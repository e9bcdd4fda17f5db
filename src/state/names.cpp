// The name table: ids handed out in order, found by text through an index kept in step.
#include <cstdlib>
#include <cstring>
#include <new>

#include "state/process_state.h"

namespace {

constexpr uint64_t kFirstNameSlots = 1024;
// Slots of the outgrown table moved per insertion: the new table has twice the slots, so at two
// per insertion the move would end just before the new table is half full. While it goes on, a
// lookup that misses the new table reads the old one too, a second cache miss for every new name;
// at 64 the old table is gone after a thirty-second of the insertions between two growths, and
// one insertion's share is still a few hundred bytes read in order.
constexpr uint64_t kSlotsMovedPerInsert = 64;

// Zeroed, so empty: a large table is a fresh mapping whose pages are touched only as names land.
NameSlot* NewTable(uint64_t capacity) {
    return static_cast<NameSlot*>(AllocateZeroedTable(capacity * sizeof(NameSlot)));
}

int32_t IdOf(const NameSlot& slot) { return static_cast<int32_t>(slot.idPlusOne) - 1; }

// Whether name `id` (below the count) is `text`: the same pointer, or an equal text.
bool IdHolds(int32_t id, const char* text) {
    const char* held = static_cast<const char*>(NameArray.data[id]);
    return held == text || (held && std::strcmp(held, text) == 0);
}

// The slot of `slots` holding `text`, or the empty slot where it would go.
NameSlot& Probe(NameSlot* slots, uint64_t mask, const char* text, uint32_t hash) {
    uint64_t at = hash & mask;
    for (;;) {
        NameSlot& slot = slots[at];
        if (slot.idPlusOne == 0) return slot;
        if (slot.hash == hash && IdHolds(IdOf(slot), text)) return slot;
        at = (at + 1) & mask;
    }
}

int32_t Lookup(NameIndex& index, const char* text, uint32_t hash) {
    int32_t id = IdOf(Probe(index.slots, index.mask, text, hash));
    if (id < 0 && index.previous) id = IdOf(Probe(index.previous, index.previousMask, text, hash));
    return id;
}

// A slot of the outgrown table into the current one: its text is in no other slot of either.
void Place(NameIndex& index, const NameSlot& slot) {
    uint64_t at = slot.hash & index.mask;
    while (index.slots[at].idPlusOne != 0) at = (at + 1) & index.mask;
    index.slots[at] = slot;
}

void MoveSlots(NameIndex& index, uint64_t count) {
    for (; index.previous && count > 0; count--) {
        const NameSlot& slot = index.previous[index.moved];
        if (slot.idPlusOne != 0) Place(index, slot);
        if (index.moved++ == index.previousMask) {
            FreeTable(index.previous, (index.previousMask + 1) * sizeof(NameSlot));
            index.previous = nullptr;
        }
    }
}

// Room for one more name: at half full, a table twice the size takes over and the old one's
// slots follow over the next insertions. Throws std::bad_alloc with the index unchanged.
void MakeRoom(NameIndex& index) {
    if (static_cast<uint64_t>(index.used + 1) * 2 <= index.mask + 1) return;
    MoveSlots(index, ~0ull);   // only when a growth has not ended yet: never in practice
    NameSlot* slots = NewTable((index.mask + 1) * 2);
    index.previous = index.slots;
    index.previousMask = index.mask;
    index.moved = 0;
    index.slots = slots;
    index.mask = index.previousMask * 2 + 1;
}

NameCacheEntry& CacheEntryFor(uint32_t hash) { return State().nameCache[hash & (kNameCacheEntries - 1)]; }

void Remember(uint32_t hash, int32_t id) { CacheEntryFor(hash) = {hash, static_cast<uint32_t>(id) + 1}; }

// The id the cache holds for the text, when the name table still says so, or -1.
int32_t Recall(const char* text, uint32_t hash) {
    const NameCacheEntry& entry = CacheEntryFor(hash);
    if (entry.idPlusOne == 0 || entry.hash != hash) return -1;
    int32_t id = static_cast<int32_t>(entry.idPlusOne) - 1;
    return id < NameArray.count && IdHolds(id, text) ? id : -1;
}

// Whether the catch-up below has anything to do: the index is stale after a host's placement, not
// made yet, or short of the table's count.
bool IndexIsBehind(const NameIndex& index) {
    return index.stale || !index.slots || index.indexed < NameArray.count;
}

// Indexes the entries pushed since the last catch-up; `known` is the hash of `knownText`, which
// saves hashing the entry just pushed again.
void CatchUp(NameIndex& index, const char* knownText = nullptr, uint32_t known = 0) {
    if (index.stale || !index.slots) {
        // What the cache remembers may no longer be the lowest id of its text.
        std::memset(State().nameCache, 0, sizeof State().nameCache);
        FreeNameIndex(index);
        index.slots = NewTable(kFirstNameSlots);
        index.mask = kFirstNameSlots - 1;
    }
    for (; index.indexed < NameArray.count; index.indexed++) {
        const char* text = static_cast<const char*>(NameArray.data[index.indexed]);
        if (!text) continue;
        uint32_t hash = text == knownText ? known : TextHash(text);
        if (Lookup(index, text, hash) >= 0) continue;   // an earlier id already holds this text
        MakeRoom(index);
        NameSlot& slot = Probe(index.slots, index.mask, text, hash);
        slot.hash = hash;
        slot.idPlusOne = static_cast<uint32_t>(index.indexed) + 1;
        index.used++;
        MoveSlots(index, kSlotsMovedPerInsert);
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

HashedText HashText(const char* text, size_t length) { return {text, TextHash(text, length)}; }

int32_t FindName(const char* text) { return FindName(HashedText{text, TextHash(text)}); }

int32_t FindName(const HashedText& text) {
    NameSlot* unused;
    return FindNameOrPlace(text, &unused);
}

int32_t FindNameOrPlace(const HashedText& text, NameSlot** place) {
    NameIndex& index = State().nameIndex;
    *place = nullptr;
    // Nearly always the index is current: only a push or a host's placement puts it behind.
    if (IndexIsBehind(index)) CatchUp(index);
    int32_t id = Recall(text.text, text.hash);
    if (id >= 0) return id;
    // Lookup's two probes, keeping the empty slot of the current table where the text would go.
    NameSlot& slot = Probe(index.slots, index.mask, text.text, text.hash);
    id = IdOf(slot);
    if (id < 0 && index.previous) id = IdOf(Probe(index.previous, index.previousMask, text.text, text.hash));
    if (id >= 0) {
        Remember(text.hash, id);
        return id;
    }
    *place = &slot;
    return -1;
}

void PrefetchNameStep(uint32_t hash, NameStep step) {
    const NameIndex& index = State().nameIndex;
    if (!index.slots) return;
    const NameSlot& slot = index.slots[hash & index.mask];
    if (step == kNameStepSlot) {
        __builtin_prefetch(&slot);
        return;
    }
    // Only the text's first slot is read: most texts are there, and a text that is not is merely
    // not asked for.
    if (slot.idPlusOne == 0 || slot.hash != hash) return;
    int32_t id = IdOf(slot);
    if (id >= NameArray.count) return;
    if (step == kNameStepEntry) __builtin_prefetch(&NameArray.data[id]);
    else __builtin_prefetch(NameArray.data[id]);
}

int32_t PushName(const char* text) { return PushName(HashedText{text, text ? TextHash(text) : 0}); }

int32_t PushNewName(const HashedText& text, NameSlot* place) {
    NameIndex& index = State().nameIndex;
    // The place stands while the index is as FindNameOrPlace left it (current, every name up to
    // the count in it) and needs no room: then the push indexes its name there, as the catch-up
    // would (its lookup would miss, and its probe end at the same empty slot).
    bool placeStands = place && !IndexIsBehind(index) && static_cast<uint64_t>(index.used + 1) * 2 <= index.mask + 1;
    if (!placeStands) return PushName(text);
    StateMark* mark = State().activeMark;
    if (mark && !mark->tailSaved) SaveNameTail(*mark);
    int32_t id = PushPtr(NameArray, const_cast<char*>(text.text));
    place->hash = text.hash;
    place->idPlusOne = static_cast<uint32_t>(id) + 1;
    index.used++;
    index.indexed = id + 1;
    MoveSlots(index, kSlotsMovedPerInsert);
    return id;
}

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

void BeginLastingNames() {
    // A fresh state starts at generation 0 with every entry empty; an entry is believed only in
    // its own generation.
    State().lastingGeneration++;
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
    BeginLastingNames();
    if (index < NameArray.count) {
        State().nameIndex.stale = true;
        State().nameOverwrites++;
    }
}

uint64_t NameOverwrites() { return State().nameOverwrites; }

void FreeNameIndex(NameIndex& index) {
    if (index.slots) FreeTable(index.slots, (index.mask + 1) * sizeof(NameSlot));
    if (index.previous) FreeTable(index.previous, (index.previousMask + 1) * sizeof(NameSlot));
    index = NameIndex{};
}
