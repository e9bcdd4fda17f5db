#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "state/process_state.h"
#include "support/arena.h"
#include "support/hash_table.h"
#include "veltjs.h"

// "plumless" and "buckeroo" share one CRC-32, hence one name hash.
TEST(HashTable, CollidingNamesReallyShareAHash) {
    BuildCrc32Table();
    EXPECT_EQ(NameHash("plumless"), NameHash("buckeroo"));
}

TEST(HashTable, FindOfSecondCollidingNameComparesTheFirstAndReportsNotFound) {
    VeltJS_Init();
    VeltJS_AddBuiltInFunction("plumless");
    VeltJS_AddBuiltInFunction("buckeroo");
    EXPECT_TRUE(IsBuiltInFunction("plumless"));
    EXPECT_FALSE(IsBuiltInFunction("buckeroo"));
    EXPECT_EQ(BuiltInFunctionTable.count, 2);
}

TEST(HashTable, InsertAppendsAtTheTailOfTheBucket) {
    BuildCrc32Table();
    HashTable table{};
    InitHashTable(table, 4);
    int a = 1, b = 2, c = 3;
    HashEntry* first = HashInsertHashed(table, 5, &a);
    HashEntry* second = HashInsertHashed(table, 9, &b);
    HashEntry* third = HashInsertHashed(table, 1, &c);
    EXPECT_EQ(table.mask, 3);
    EXPECT_EQ(table.count, 3);
    EXPECT_EQ(table.buckets[1].first, first);
    EXPECT_EQ(table.buckets[1].last, third);
    EXPECT_EQ(first->prev, nullptr);
    EXPECT_EQ(first->next, second);
    EXPECT_EQ(second->prev, first);
    EXPECT_EQ(third->prev, second);
    EXPECT_EQ(third->next, nullptr);
    EXPECT_EQ(HashFindFirst(table, 9), second);
    EXPECT_EQ(HashFindFirst(table, 13), nullptr);
    ClearHashTable(table);
    EXPECT_EQ(table.count, 0);
    EXPECT_EQ(table.buckets, nullptr);
}

TEST(HashTable, ATableGetsItsBucketsWithItsFirstEntry) {
    HashTable table{};
    InitHashTable(table, 16);
    // Empty, it holds no memory and answers as an empty table.
    EXPECT_EQ(table.buckets, nullptr);
    EXPECT_EQ(table.mask, 15);
    EXPECT_EQ(table.count, 0);
    EXPECT_EQ(HashFindFirst(table, 3), nullptr);
    ClearHashTable(table);
    EXPECT_EQ(table.buckets, nullptr);

    InitHashTable(table, 16);
    int a = 1, b = 2;
    HashEntry* first = HashInsertHashed(table, 19, &a);
    ASSERT_NE(table.buckets, nullptr);
    HashEntry* second = HashInsertHashed(table, 3, &b);
    // Both in the bucket of their low bits, in the order inserted.
    EXPECT_EQ(table.buckets[3].first, first);
    EXPECT_EQ(table.buckets[3].last, second);
    for (int32_t bucket = 0; bucket <= table.mask; bucket++) {
        if (bucket != 3) {
            EXPECT_EQ(table.buckets[bucket].first, nullptr) << bucket;
        }
    }
    EXPECT_EQ(HashFindFirst(table, 3), second);
    ClearHashTable(table);
    EXPECT_EQ(table.buckets, nullptr);
    EXPECT_EQ(table.count, 0);
}

TEST(HashTable, DuplicatesAreInsertedAgainAndFindReturnsTheFirst) {
    BuildCrc32Table();
    HashTable table{};
    InitHashTable(table, 32);
    int a = 1, b = 2;
    HashEntry* first = HashInsert(table, "x", &a);
    HashInsert(table, "x", &b);
    EXPECT_EQ(table.count, 2);
    EXPECT_EQ(HashFindFirst(table, NameHash("x")), first);
    ClearHashTable(table);
}

TEST(HashTable, BuiltInTableStartsWithThirtyTwoBuckets) {
    EXPECT_EQ(BuiltInFunctionTable.mask, 31);
    EXPECT_EQ(BuiltInFunctionTable.count, 0);
    EXPECT_EQ(NameArray.count, 0);
    EXPECT_EQ(NameArray.capacity, 8);
    EXPECT_EQ(GlobalVarList.capacity, 8);
}

// A table far past a few entries per bucket answers through its index; the answers and the
// chains' order are what a walk along the chains gives.
TEST(HashTable, IndexedTableAnswersAsTheChainsDo) {
    HashTable table{};
    InitHashTable(table, 16);
    std::vector<int> values(20000);
    for (int i = 0; i < 20000; i++) {
        // Every hash twice, and many hashes per bucket.
        HashInsertHashed(table, static_cast<uint32_t>((i % 10000) * 0x10001u), &values[i]);
    }
    ASSERT_NE(table.index, nullptr);
    for (uint32_t k = 0; k < 10000; k++) {
        uint32_t hash = k * 0x10001u;
        HashEntry* walked = nullptr;
        for (HashEntry* entry = table.buckets[hash & 15u].first; entry && !walked; entry = entry->next) {
            if (entry->hash == hash) walked = entry;
        }
        ASSERT_EQ(HashFindFirst(table, hash), walked) << k;
        ASSERT_EQ(walked->value, &values[k]) << k;
    }
    EXPECT_EQ(HashFindFirst(table, 0x12345u), nullptr);
    int order = 0;
    for (HashEntry* entry = table.buckets[0].first; entry; entry = entry->next, order++) {
        if (entry->next) {
            ASSERT_LT(static_cast<int*>(entry->value), static_cast<int*>(entry->next->value));
        }
    }
    EXPECT_EQ(order, 20000 / 16);
    ClearHashTable(table);
    EXPECT_EQ(table.index, nullptr);
}

TEST(HashTable, APoolThatKeepsBucketArraysGivesAClearedTablesArrayToTheNextTableOfItsSize) {
    Scratch scratch{};
    HashEntryPool pool{&scratch, nullptr};
    pool.poolsBuckets = true;
    std::vector<int> values(64);
    HashTable first{};
    InitHashTable(first, 16, &pool);
    HashInsertHashed(first, 0, &values[0]);
    HashBucket* firstBuckets = first.buckets;
    ASSERT_NE(firstBuckets, nullptr);
    // The array is the scratch record carved after the first entry.
    EXPECT_EQ(reinterpret_cast<uint8_t*>(firstBuckets) + 16 * sizeof(HashBucket), scratch.next);
    for (int i = 1; i < 40; i++) HashInsertHashed(first, static_cast<uint32_t>(i * 7), &values[i]);
    ClearHashTable(first);
    EXPECT_EQ(first.buckets, nullptr);
    // A table of another size gets an array of its own; one of the same size gets the cleared
    // array, with every bucket empty but the one its entry went to.
    HashTable other{};
    InitHashTable(other, 8, &pool);
    HashInsertHashed(other, 3, &values[0]);
    EXPECT_NE(other.buckets, firstBuckets);
    HashTable next{};
    InitHashTable(next, 16, &pool);
    HashInsertHashed(next, 5, &values[1]);
    ASSERT_EQ(next.buckets, firstBuckets);
    for (int32_t bucket = 0; bucket < 16; bucket++) {
        if (bucket == 5) continue;
        EXPECT_EQ(next.buckets[bucket].first, nullptr) << bucket;
        EXPECT_EQ(next.buckets[bucket].last, nullptr) << bucket;
    }
    EXPECT_EQ(HashFindFirst(next, 5)->value, &values[1]);
    EXPECT_EQ(HashFindFirst(next, 0), nullptr);
    EXPECT_EQ(next.buckets[5].first, next.buckets[5].last);
    ClearHashTable(next);
    ClearHashTable(other);
}

TEST(HashTable, ATableOfPooledEntriesChainsAsAHeapTableAndItsClearedEntriesServeTheNextTable) {
    Scratch scratch{};
    HashEntryPool pool{&scratch, nullptr};
    HashTable pooled{};
    HashTable onHeap{};
    InitHashTable(pooled, 16, &pool);
    InitHashTable(onHeap, 16);
    std::vector<int> values(300);
    std::vector<HashEntry*> carved;
    for (int i = 0; i < 300; i++) {
        uint32_t hash = static_cast<uint32_t>((i % 120) * 0x9E3779B1u);
        carved.push_back(HashInsertHashed(pooled, hash, &values[i]));
        HashInsertHashed(onHeap, hash, &values[i]);
        // A new scratch record: the last one the scratch handed out.
        ASSERT_EQ(reinterpret_cast<uint8_t*>(carved.back()) + ArenaRecordSize(sizeof(HashEntry)), scratch.next) << i;
    }
    ASSERT_EQ(pooled.count, onHeap.count);
    for (int32_t bucket = 0; bucket < 16; bucket++) {
        HashEntry* a = pooled.buckets[bucket].first;
        HashEntry* b = onHeap.buckets[bucket].first;
        for (; a && b; a = a->next, b = b->next) ASSERT_EQ(a->value, b->value) << bucket;
        ASSERT_EQ(a, nullptr) << bucket;
        ASSERT_EQ(b, nullptr) << bucket;
    }
    for (int i = 0; i < 120; i++) {
        uint32_t hash = static_cast<uint32_t>(i * 0x9E3779B1u);
        ASSERT_EQ(HashFindFirst(pooled, hash)->value, HashFindFirst(onHeap, hash)->value) << i;
    }
    ClearHashTable(pooled);
    ClearHashTable(onHeap);
    EXPECT_EQ(pooled.count, 0);
    EXPECT_EQ(pooled.buckets, nullptr);
    // The next table takes the cleared entries, not new scratch records, and answers as before.
    uint8_t* next = scratch.next;
    HashTable following{};
    InitHashTable(following, 8, &pool);
    std::vector<HashEntry*> reused;
    for (int i = 0; i < 300; i++) {
        HashEntry* entry = HashInsertHashed(following, static_cast<uint32_t>(i), &values[i]);
        ASSERT_NE(std::find(carved.begin(), carved.end(), entry), carved.end()) << i;
        ASSERT_EQ(std::find(reused.begin(), reused.end(), entry), reused.end()) << i;
        reused.push_back(entry);
        ASSERT_EQ(HashFindFirst(following, static_cast<uint32_t>(i))->value, &values[i]) << i;
    }
    EXPECT_EQ(scratch.next, next);
    EXPECT_EQ(pool.spare, nullptr);
    // One more than were cleared is a new scratch record.
    HashEntry* fresh = HashInsertHashed(following, 300u, &values[0]);
    EXPECT_EQ(std::find(carved.begin(), carved.end(), fresh), carved.end());
    EXPECT_EQ(reinterpret_cast<uint8_t*>(fresh) + ArenaRecordSize(sizeof(HashEntry)), scratch.next);
    ClearHashTable(following);
    ResetScratch(scratch);
}

namespace {

// Everything a table holds, as bytes: the record, its buckets, every chain's entries in order and
// its index's slots.
std::vector<uint8_t> TableBytes(const HashTable& table) {
    std::vector<uint8_t> bytes;
    auto add = [&bytes](const void* at, size_t size) {
        const auto* first = static_cast<const uint8_t*>(at);
        bytes.insert(bytes.end(), first, first + size);
    };
    add(&table, sizeof table);
    if (table.buckets) {
        add(table.buckets, sizeof(HashBucket) * (static_cast<size_t>(table.mask) + 1));
        for (int32_t bucket = 0; bucket <= table.mask; bucket++) {
            for (const HashEntry* entry = table.buckets[bucket].first; entry; entry = entry->next) add(entry, sizeof *entry);
        }
    }
    if (table.index) add(table.index, sizeof(HashIndexSlot) * (static_cast<size_t>(table.indexMask) + 1));
    return bytes;
}

}  // namespace

// Asking for the memory of a hash's lookup reads nothing and changes nothing: on a table with no
// buckets yet, one that walks its chains and one with an index, for hashes it holds and others.
TEST(HashTable, AskingForAHashsSlotChangesNothing) {
    std::vector<int> values(5000);
    for (int entries : {0, 3, 5000}) {
        HashTable table{};
        InitHashTable(table, 16);
        for (int i = 0; i < entries; i++) HashInsertHashed(table, static_cast<uint32_t>(i) * 0x9E3779B1u, &values[static_cast<size_t>(i)]);
        EXPECT_EQ(table.index != nullptr, entries == 5000);
        std::vector<uint8_t> before = TableBytes(table);
        for (uint32_t k = 0; k < 6000; k++) HashPrefetch(table, k * 0x9E3779B1u);
        EXPECT_EQ(TableBytes(table), before) << entries;
        for (int i = 0; i < entries; i++) {
            ASSERT_EQ(HashFindFirst(table, static_cast<uint32_t>(i) * 0x9E3779B1u)->value, &values[static_cast<size_t>(i)]);
        }
        ClearHashTable(table);
    }
}
