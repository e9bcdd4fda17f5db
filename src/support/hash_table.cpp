#include "support/hash_table.h"

#include <cstdlib>
#include <new>

#include "support/arena.h"
#include "support/strings.h"

namespace {

// Chains longer than this on average make a table worth an index.
constexpr int32_t kEntriesPerBucketBeforeIndex = 4;

// A 32-bit mix, so that hashes that differ only in high bits spread over the index.
uint32_t Spread(uint32_t hash) {
    hash ^= hash >> 16;
    hash *= 0x7FEB352Du;
    hash ^= hash >> 15;
    return hash;
}

// The slot holding `hash`, or the empty slot where it would go.
HashIndexSlot* Probe(HashIndexSlot* slots, uint32_t mask, uint32_t hash) {
    for (uint32_t at = Spread(hash) & mask;; at = (at + 1) & mask) {
        if (!slots[at].entry || slots[at].hash == hash) return &slots[at];
    }
}

// Records `entry` unless an earlier entry has its hash (chains are appended to, so the first entry
// of a hash in its chain is the first one inserted).
void IndexEntry(HashIndexSlot* slots, uint32_t mask, HashEntry* entry, uint32_t* used) {
    HashIndexSlot* slot = Probe(slots, mask, entry->hash);
    if (slot->entry) return;
    slot->hash = entry->hash;
    slot->entry = entry;
    (*used)++;
}

// A new index of `capacity` slots over every entry in chain order; false (index dropped) when
// there is no memory for it.
bool Reindex(HashTable& table, uint32_t capacity) {
    HashIndexSlot* slots = static_cast<HashIndexSlot*>(TryCalloc(capacity, sizeof(HashIndexSlot)));
    std::free(table.index);
    table.index = slots;
    table.indexMask = capacity - 1;
    table.indexUsed = 0;
    if (!slots) return false;
    for (int32_t bucket = 0; bucket <= table.mask; bucket++) {
        for (HashEntry* entry = table.buckets[bucket].first; entry; entry = entry->next) {
            IndexEntry(slots, table.indexMask, entry, &table.indexUsed);
        }
    }
    return true;
}

// Slots for `count` entries at most a quarter full.
uint32_t CapacityFor(int32_t count) {
    uint32_t capacity = 256;
    while (capacity < static_cast<uint32_t>(count) * 4) capacity *= 2;
    return capacity;
}

// The index at twice its capacity, made from its own slots: they hold every hash of the table
// with its first entry already, in one array, where the chains interleave the buckets' entries
// across the pool (each chain's walk would touch every line of a large table's entries again).
// False (index dropped) when there is no memory for it.
bool GrowIndex(HashTable& table) {
    uint32_t oldCapacity = table.indexMask + 1;
    uint32_t mask = oldCapacity * 2 - 1;
    HashIndexSlot* slots = static_cast<HashIndexSlot*>(TryCalloc(static_cast<size_t>(mask) + 1, sizeof(HashIndexSlot)));
    HashIndexSlot* old = table.index;
    for (uint32_t at = 0; slots && at < oldCapacity; at++) {
        if (old[at].entry) *Probe(slots, mask, old[at].hash) = old[at];
    }
    std::free(old);
    table.index = slots;
    table.indexMask = slots ? mask : 0;
    if (!slots) table.indexUsed = 0;
    return slots != nullptr;
}

// Keeps the index in step with an entry just linked in; never throws.
void UpdateIndex(HashTable& table, HashEntry* entry) {
    if (!table.index) {
        if (table.count > (table.mask + 1) * kEntriesPerBucketBeforeIndex) Reindex(table, CapacityFor(table.count));
        return;
    }
    if ((table.indexUsed + 1) * 2 > table.indexMask + 1 && !GrowIndex(table)) return;
    IndexEntry(table.index, table.indexMask, entry, &table.indexUsed);
}

// A heap block, or an entry of the table's pool: a cleared table's, else a new scratch record.
HashEntry* NewEntry(HashTable& table) {
    if (!table.entries) return static_cast<HashEntry*>(CheckedMalloc(sizeof(HashEntry)));
    HashEntryPool& pool = *table.entries;
    if (HashEntry* entry = pool.spare) {
        pool.spare = entry->next;
        return entry;
    }
    return static_cast<HashEntry*>(ScratchAllocate(*pool.scratch, sizeof(HashEntry)));
}

void GiveBack(HashTable& table, HashEntry* entry) {
    if (!table.entries) {
        std::free(entry);
        return;
    }
    entry->next = table.entries->spare;
    table.entries->spare = entry;
}

// The pool's size class of the table's bucket arrays, or -1 when they are heap blocks.
int32_t BucketSizeClass(const HashTable& table) {
    if (!table.entries || !table.entries->poolsBuckets) return -1;
    int32_t size = __builtin_ctz(static_cast<uint32_t>(table.mask) + 1);
    return size < kPooledBucketSizes ? size : -1;
}

// Empty buckets for the table's first entry: a cleared table's array of the same size, a new
// scratch record, or a heap block; null when there is no memory.
HashBucket* NewBuckets(HashTable& table) noexcept {
    size_t count = static_cast<size_t>(table.mask) + 1;
    int32_t size = BucketSizeClass(table);
    if (size < 0) return static_cast<HashBucket*>(TryCalloc(count, sizeof(HashBucket)));
    HashEntryPool& pool = *table.entries;
    if (HashBucket* buckets = pool.spareBuckets[size]) {
        pool.spareBuckets[size] = reinterpret_cast<HashBucket*>(buckets[0].first);
        buckets[0].first = nullptr;
        return buckets;
    }
    try {
        return static_cast<HashBucket*>(ScratchAllocate(*pool.scratch, count * sizeof(HashBucket)));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// `buckets`, all empty, back to where they came from.
void ReleaseBuckets(HashTable& table, HashBucket* buckets) {
    int32_t size = BucketSizeClass(table);
    if (size < 0) {
        std::free(buckets);
        return;
    }
    HashEntryPool& pool = *table.entries;
    buckets[0].first = reinterpret_cast<HashEntry*>(pool.spareBuckets[size]);
    pool.spareBuckets[size] = buckets;
}

}  // namespace

void InitHashTable(HashTable& table, int32_t bucketCount, HashEntryPool* entries) {
    // The buckets come with the first entry: most of a compile's tables (a scope's slots, its
    // functions) never get one.
    table.buckets = nullptr;
    table.mask = bucketCount - 1;
    table.count = 0;
    table.entries = entries;
    table.index = nullptr;
    table.indexMask = 0;
    table.indexUsed = 0;
}

HashEntry* HashInsertHashed(HashTable& table, uint32_t hash, void* value) {
    HashEntry* entry = NewEntry(table);
    if (!table.buckets) {
        table.buckets = NewBuckets(table);
        if (!table.buckets) {
            GiveBack(table, entry);
            throw std::bad_alloc();
        }
    }
    HashBucket& bucket = table.buckets[hash & static_cast<uint32_t>(table.mask)];
    entry->hash = hash;
    entry->value = value;
    entry->next = nullptr;
    entry->prev = bucket.last;
    if (bucket.last) {
        bucket.last->next = entry;
    } else {
        bucket.first = entry;
    }
    bucket.last = entry;
    table.count++;
    UpdateIndex(table, entry);
    return entry;
}

HashEntry* HashFindFirst(const HashTable& table, uint32_t hash) {
    if (!table.buckets) return nullptr;
    if (table.index) return Probe(table.index, table.indexMask, hash)->entry;
    for (HashEntry* entry = table.buckets[hash & static_cast<uint32_t>(table.mask)].first; entry; entry = entry->next) {
        if (entry->hash == hash) return entry;
    }
    return nullptr;
}

void HashPrefetch(const HashTable& table, uint32_t hash) {
    if (!table.buckets) return;
    if (table.index) {
        __builtin_prefetch(&table.index[Spread(hash) & table.indexMask]);
    } else {
        __builtin_prefetch(&table.buckets[hash & static_cast<uint32_t>(table.mask)]);
    }
}

void ClearHashTable(HashTable& table) {
    std::free(table.index);
    table.index = nullptr;
    table.indexMask = 0;
    table.indexUsed = 0;
    if (!table.buckets) return;
    if (HashEntryPool* pool = table.entries) {
        // A chain is linked through `next` as the pool's spare entries are: each goes onto the
        // spare list whole, without a walk along it.
        for (int32_t index = table.mask; index >= 0; index--) {
            HashBucket& bucket = table.buckets[index];
            if (!bucket.first) continue;
            bucket.last->next = pool->spare;
            pool->spare = bucket.first;
            bucket.first = bucket.last = nullptr;
        }
        table.count = 0;
        ReleaseBuckets(table, table.buckets);
        table.buckets = nullptr;
        return;
    }
    for (int32_t index = table.mask; index >= 0; index--) {
        HashBucket& bucket = table.buckets[index];
        HashEntry* entry = bucket.first;
        bucket.first = bucket.last = nullptr;
        while (entry) {
            HashEntry* next = entry->next;
            GiveBack(table, entry);
            table.count--;
            entry = next;
        }
    }
    ReleaseBuckets(table, table.buckets);
    table.buckets = nullptr;
}
