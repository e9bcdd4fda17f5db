// Chained hash table keyed by a 32-bit hash (NameHash), with a fixed number of buckets.
#pragma once

#include <cstdint>

struct HashEntry {
    HashEntry* prev;
    HashEntry* next;
    uint32_t hash;
    void* value;
};

struct HashBucket {
    HashEntry* first;
    HashEntry* last;
};

// Hash -> the first entry inserted with that hash, so a lookup in a table that holds far more
// entries than buckets costs one probe instead of a walk along a long chain.
struct HashIndexSlot {
    uint32_t hash;
    HashEntry* entry;   // null: empty
};

struct Scratch;

// The entries of the tables of one compile: carved from its scratch records, and those of a table
// cleared taken again by the next insertions, so the compile holds no more entries at once than
// its open tables do. The compile clears its tables before its scratch is taken back.
// A pool that also keeps bucket arrays hands them out the same way, by size: a compile's, whose
// tables are many and small (three per function).
constexpr int32_t kPooledBucketSizes = 5;   // arrays of 1, 2, 4, 8 and 16 buckets

struct HashEntryPool {
    Scratch* scratch;
    HashEntry* spare;   // entries of cleared tables, linked through `next`
    // Whether the bucket arrays of the pool's tables are scratch records too (else heap blocks).
    bool poolsBuckets = false;
    // Bucket arrays of cleared tables by the log2 of their bucket count, linked through their
    // first bucket's `first`; every other bucket of a spare array is empty.
    HashBucket* spareBuckets[kPooledBucketSizes] = {};
};

struct HashTable {
    HashBucket* buckets;
    int32_t mask;
    int32_t count;
    HashEntryPool* entries;   // null: a heap block per entry
    // Made once the table holds more than a few entries per bucket; null before, and whenever
    // there was no memory for it (lookups then walk the chains, with the same answers).
    HashIndexSlot* index;
    uint32_t indexMask;
    uint32_t indexUsed;
};

// bucketCount must be a power of two. Allocates nothing: the buckets come with the first entry
// (`buckets` is null until then), so it never throws. With `entries`, the entries come from that
// pool.
void InitHashTable(HashTable& table, int32_t bucketCount, HashEntryPool* entries = nullptr);
// Appends at the tail of the hash's bucket; no duplicate check. (HashInsert, which hashes a name
// with NameHash, belongs to the process state.) Either throws with nothing changed or completes.
HashEntry* HashInsertHashed(HashTable& table, uint32_t hash, void* value);
// The first entry of the bucket whose hash equals, or null.
HashEntry* HashFindFirst(const HashTable& table, uint32_t hash);
// Asks for the memory that a lookup or an insertion of `hash` reads first (its index slot, else
// its bucket), for one that comes later; changes nothing.
void HashPrefetch(const HashTable& table, uint32_t hash);
// Detaches every chain from the last bucket down, frees the entries (or gives them back to their
// pool; never their values), the index and the bucket array.
void ClearHashTable(HashTable& table);
