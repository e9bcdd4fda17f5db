#include "support/hash_table.h"

#include <cstdlib>

#include "support/strings.h"

void InitHashTable(HashTable& table, int32_t bucketCount) {
    table.buckets = static_cast<HashBucket*>(CheckedCalloc(static_cast<size_t>(bucketCount), sizeof(HashBucket)));
    table.mask = bucketCount - 1;
    table.count = 0;
}

HashEntry* HashInsertHashed(HashTable& table, uint32_t hash, void* value) {
    HashBucket& bucket = table.buckets[hash & static_cast<uint32_t>(table.mask)];
    HashEntry* entry = static_cast<HashEntry*>(CheckedMalloc(sizeof(HashEntry)));
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
    return entry;
}

HashEntry* HashFindFirst(const HashTable& table, uint32_t hash) {
    if (!table.buckets) return nullptr;
    for (HashEntry* entry = table.buckets[hash & static_cast<uint32_t>(table.mask)].first; entry; entry = entry->next) {
        if (entry->hash == hash) return entry;
    }
    return nullptr;
}

void ClearHashTable(HashTable& table) {
    if (!table.buckets) return;
    for (int32_t index = table.mask; index >= 0; index--) {
        HashBucket& bucket = table.buckets[index];
        HashEntry* entry = bucket.first;
        bucket.first = bucket.last = nullptr;
        while (entry) {
            HashEntry* next = entry->next;
            std::free(entry);
            table.count--;
            entry = next;
        }
    }
    std::free(table.buckets);
    table.buckets = nullptr;
}
