#include <gtest/gtest.h>

#include <cstdlib>

#include "state/process_state.h"
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
