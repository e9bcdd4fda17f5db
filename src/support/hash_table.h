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

struct HashTable {
    HashBucket* buckets;
    int32_t mask;
    int32_t count;
};

// bucketCount must be a power of two.
void InitHashTable(HashTable& table, int32_t bucketCount);
// Appends at the tail of the hash's bucket; no duplicate check. (HashInsert, which hashes a name
// with NameHash, belongs to the process state.)
HashEntry* HashInsertHashed(HashTable& table, uint32_t hash, void* value);
// The first entry of the bucket whose hash equals, or null.
HashEntry* HashFindFirst(const HashTable& table, uint32_t hash);
// Detaches every chain from the last bucket down, frees the entries (not their values) and
// the bucket array.
void ClearHashTable(HashTable& table);
