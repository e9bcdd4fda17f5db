#include <gtest/gtest.h>

#include "state/process_state.h"

TEST(NameHash, EmptyAndNullNamesHashToAllOnes) {
    BuildCrc32Table();
    EXPECT_EQ(NameHash(""), 0xFFFFFFFFu);
    EXPECT_EQ(NameHash(nullptr), 0xFFFFFFFFu);
}

TEST(NameHash, IsTheComplementOfTheStandardCrc32) {
    BuildCrc32Table();
    // The standard CRC-32 of "a" is 0xE8B7BE43 and of "123456789" is 0xCBF43926.
    EXPECT_EQ(NameHash("a"), ~0xE8B7BE43u);
    EXPECT_EQ(NameHash("123456789"), ~0xCBF43926u);
}

TEST(NameHash, TableIsTheStandardCrc32Table) {
    BuildCrc32Table();
    EXPECT_EQ(Crc32Table[0], 0u);
    EXPECT_EQ(Crc32Table[1], 0x77073096u);
    EXPECT_EQ(Crc32Table[255], 0x2D02EF8Du);
}

TEST(NameHash, BeforeTheTableIsBuiltHashingUsesZeros) {
    EXPECT_EQ(NameHash("a"), 0x00FFFFFFu);
    EXPECT_EQ(NameHash("ab"), 0x0000FFFFu);
}

TEST(NameHash, BuildingTheTableAgainGivesTheSameTable) {
    BuildCrc32Table();
    uint32_t first = NameHash("prototype");
    BuildCrc32Table();
    EXPECT_EQ(NameHash("prototype"), first);
}
