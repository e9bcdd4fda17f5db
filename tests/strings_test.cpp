#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#if defined(__linux__)
#include <sys/resource.h>
#endif

#include "helpers/mappings.h"
#include "support/strings.h"

TEST(RefString, NewStringStartsWithOneReference) {
    RefString* string = NewRefString("abc");
    EXPECT_STREQ(string->text, "abc");
    EXPECT_EQ(string->refs, 1u);
    ReleaseRefString(string);
    std::free(string);
}

TEST(RefString, ReleasingTheLastReferenceFreesTheTextButKeepsTheRecord) {
    RefString* string = NewRefString("abc");
    RetainRefString(string);
    ReleaseRefString(string);
    EXPECT_STREQ(string->text, "abc");
    ReleaseRefString(string);
    EXPECT_EQ(string->text, nullptr);
    EXPECT_EQ(string->refs, 0u);
    std::free(string);
}

TEST(RefString, ArenaStringKeepsItsRecordAndTextInTheArenasAndItsLastReleaseOnlyClearsTheText) {
    Arena records{};
    Arena texts{};
    RefString* string = NewArenaRefString(records, texts, "name");
    RefString* other = NewArenaRefString(records, texts, nullptr);
    EXPECT_EQ(string->refs, 1u);
    EXPECT_STREQ(string->text, "name");
    EXPECT_STREQ(other->text, "");
    // Both records come from one arena, both texts from the other, one after another.
    EXPECT_EQ(reinterpret_cast<char*>(other), reinterpret_cast<char*>(string) + sizeof(RefString));
    char* text = string->text;
    EXPECT_EQ(other->text, text + 5);
    RetainRefString(string);
    ReleaseRefString(string);
    EXPECT_EQ(string->text, text);
    ReleaseRefString(string);
    EXPECT_EQ(string->text, nullptr);
    EXPECT_EQ(string->refs, 0u);
    // Nothing was freed: the bytes are still the arena's (the sanitizers would report a free of them).
    EXPECT_STREQ(text, "name");
}

TEST(RefString, AnArenaStringOnlyItsMakerHoldsIsTakenBackWhenItEndsBothArenas) {
    Arena records{};
    Arena texts{};
    RefString* first = NewArenaRefString(records, texts, "first");
    char* firstText = first->text;
    EXPECT_TRUE(TakeBackArenaRefString(records, texts, first));
    // The next string takes the same record and the same place for its text.
    RefString* second = NewArenaRefString(records, texts, "second, longer");
    EXPECT_EQ(second, first);
    EXPECT_EQ(second->text, firstText);
    EXPECT_STREQ(second->text, "second, longer");
    EXPECT_EQ(second->refs, 1u);
}

TEST(RefString, AStringSomeoneElseHoldsOrThatIsNotLastOrNotInAnArenaIsNotTakenBack) {
    Arena records{};
    Arena texts{};
    RefString* held = NewArenaRefString(records, texts, "held");
    RetainRefString(held);
    EXPECT_FALSE(TakeBackArenaRefString(records, texts, held));
    EXPECT_EQ(held->refs, 2u);
    EXPECT_STREQ(held->text, "held");

    // A record after it in the record arena, or a text after it in the text arena.
    RefString* before = NewArenaRefString(records, texts, "before");
    ArenaAllocate(records, 8);
    EXPECT_FALSE(TakeBackArenaRefString(records, texts, before));
    RefString* early = NewArenaRefString(records, texts, "early");
    ArenaCopyText(texts, "later", 5);
    EXPECT_FALSE(TakeBackArenaRefString(records, texts, early));
    EXPECT_STREQ(early->text, "early");
    RefString* next = NewArenaRefString(records, texts, "next");
    EXPECT_NE(next, early);
    EXPECT_STREQ(early->text, "early");

    RefString* heap = NewRefString("heap");
    EXPECT_FALSE(TakeBackArenaRefString(records, texts, heap));
    EXPECT_STREQ(heap->text, "heap");
    ReleaseRefString(heap);
    std::free(heap);
    EXPECT_FALSE(TakeBackArenaRefString(records, texts, nullptr));
}

TEST(SharedTexts, SameBytesAgreesWithMemcmpAtEveryLengthAndEveryDifferingByte) {
    for (size_t length = 0; length <= 40; length++) {
        // Blocks of exactly the text's size, so that a read outside them is a sanitizer report.
        std::vector<char> a(length), b(length);
        for (size_t i = 0; i < length; i++) a[i] = b[i] = static_cast<char>('a' + i % 26);
        EXPECT_TRUE(SameBytes(a.data(), b.data(), length)) << length;
        for (size_t at = 0; at < length; at++) {
            b[at] = static_cast<char>(b[at] ^ 0x20);
            EXPECT_FALSE(SameBytes(a.data(), b.data(), length)) << length << " " << at;
            EXPECT_EQ(SameBytes(a.data(), b.data(), length), std::memcmp(a.data(), b.data(), length) == 0);
            b[at] = a[at];
        }
    }
}

TEST(SharedTexts, ATextIsFoundOnlyUnderItsHashWithItsLengthAndItsBytes) {
    Arena records{};
    Arena texts{};
    SharedTexts table{};
    EXPECT_EQ(FindSharedText(table, "ab", 2, 7), nullptr);
    RefString* ab = NewArenaRefString(records, texts, "ab");
    AddSharedText(table, ab, 2, 7);
    EXPECT_EQ(FindSharedText(table, "ab", 2, 7), ab);
    // The same bytes under another hash, a longer or shorter text under the same hash, and
    // other bytes of the same length are other texts.
    EXPECT_EQ(FindSharedText(table, "ab", 2, 8), nullptr);
    EXPECT_EQ(FindSharedText(table, "abc", 3, 7), nullptr);
    EXPECT_EQ(FindSharedText(table, "a", 1, 7), nullptr);
    EXPECT_EQ(FindSharedText(table, "ac", 2, 7), nullptr);
    // The table holds no reference of its own.
    EXPECT_EQ(ab->refs, 1u);
    // A text added under the same slot takes it.
    RefString* ac = NewArenaRefString(records, texts, "ac");
    AddSharedText(table, ac, 2, 7 + kFirstSharedTextSlots);
    EXPECT_EQ(FindSharedText(table, "ac", 2, 7 + kFirstSharedTextSlots), ac);
    EXPECT_EQ(FindSharedText(table, "ab", 2, 7), nullptr);
    FreeSharedTexts(table);
    EXPECT_EQ(table.slots, nullptr);
    EXPECT_STREQ(ab->text, "ab");
}

TEST(SharedTexts, ARecordReleasedToZeroIsNeverHandedOutAgain) {
    Arena records{};
    Arena texts{};
    SharedTexts table{};
    RefString* gone = NewArenaRefString(records, texts, "gone");
    AddSharedText(table, gone, 4, TextHash("gone", 4));
    ReleaseRefString(gone);
    EXPECT_EQ(FindSharedText(table, "gone", 4, TextHash("gone", 4)), nullptr);
    // A new record of the same text takes its place for later lookups.
    RefString* again = NewArenaRefString(records, texts, "gone");
    AddSharedText(table, again, 4, TextHash("gone", 4));
    EXPECT_EQ(FindSharedText(table, "gone", 4, TextHash("gone", 4)), again);
    FreeSharedTexts(table);
}

TEST(SharedTexts, TheTableDoublesAfterTwiceItsSlotsInTextsKeepingThemUpToItsLimit) {
    Arena records{};
    Arena texts{};
    SharedTexts table{};
    std::vector<RefString*> strings;
    auto add = [&](uint32_t hash) {
        strings.push_back(NewArenaRefString(records, texts, ("t" + std::to_string(hash)).c_str()));
        std::string text = strings.back()->text;
        AddSharedText(table, strings.back(), text.size(), hash);
    };
    auto found = [&](uint32_t hash, size_t index) {
        std::string text = "t" + std::to_string(hash);
        return FindSharedText(table, text.c_str(), text.size(), hash) == strings[index];
    };
    // Twice the first slots: the second half of the texts took the first half's slots.
    for (uint32_t hash = 0; hash < 2 * kFirstSharedTextSlots; hash++) add(hash);
    EXPECT_EQ(table.mask + 1, kFirstSharedTextSlots);
    EXPECT_FALSE(found(0, 0));
    EXPECT_TRUE(found(kFirstSharedTextSlots, kFirstSharedTextSlots));
    // The next text doubles the table, and every text it held is still found.
    add(4 * kFirstSharedTextSlots + 3);
    EXPECT_EQ(table.mask + 1, 2 * kFirstSharedTextSlots);
    for (uint32_t hash = kFirstSharedTextSlots; hash < 2 * kFirstSharedTextSlots; hash++) {
        EXPECT_TRUE(found(hash, hash)) << hash;
    }
    EXPECT_TRUE(found(4 * kFirstSharedTextSlots + 3, 2 * kFirstSharedTextSlots));
    // However many texts come, the table stops at its limit and holds the latest in each slot.
    for (uint32_t hash = 0; hash < 20000; hash++) add(100000 + hash);
    EXPECT_EQ(table.mask + 1, kMaxSharedTextSlots);
    size_t first = strings.size() - 20000;
    for (uint32_t hash = 20000 - kMaxSharedTextSlots; hash < 20000; hash++) {
        ASSERT_TRUE(found(100000 + hash, first + hash)) << hash;
    }
    EXPECT_FALSE(found(100000, first));
    FreeSharedTexts(table);
}

TEST(RefString, ArenaPaddedCopyEndsInZeroBytesAndKeepsItsTextInTheArena) {
    Arena records{};
    Arena texts{};
    RefString* string = NewArenaPaddedRefString(records, texts, "ab", 8);
    EXPECT_STREQ(string->text, "ab");
    EXPECT_EQ(string->refs, 1u);
    for (int i = 2; i < 11; i++) EXPECT_EQ(string->text[i], '\0') << i;
    char* text = string->text;
    ReleaseRefString(string);
    EXPECT_EQ(string->text, nullptr);
    EXPECT_EQ(text[0], 'a');
}

TEST(RefString, PaddedCopyEndsInZeroBytes) {
    RefString* string = NewPaddedRefString("ab", 8);
    for (int i = 2; i < 11; i++) EXPECT_EQ(string->text[i], '\0') << i;
    ReleaseRefString(string);
    std::free(string);
}

TEST(StringBuilder, AppendingEmptyTextToEmptyBuilderAllocatesOneByte) {
    StringBuilder builder{};
    AppendText(builder, "");
    EXPECT_EQ(builder.capacity, 1);
    EXPECT_EQ(builder.length, 0u);
    EXPECT_STREQ(builder.text, "");
    FreeStringBuilder(builder);
}

TEST(StringBuilder, AppendingNullTextDoesNothing) {
    StringBuilder builder{};
    AppendText(builder, nullptr);
    EXPECT_EQ(builder.text, nullptr);
    EXPECT_EQ(builder.capacity, 0);
}

TEST(StringBuilder, AppendTextGrowsByHalfAgainOrToFitTheNeed) {
    StringBuilder builder{};
    AppendText(builder, "abc");          // need 4: 4 * 3 / 2 = 6
    EXPECT_EQ(builder.capacity, 6);
    AppendText(builder, "d");            // need 2, room 6 - 3 - 1 = 2: fits
    EXPECT_EQ(builder.capacity, 6);
    AppendText(builder, "efgh");         // need 5, room 1: 6 * 3 / 2 = 9, not below 5 + 4
    EXPECT_EQ(builder.capacity, 9);
    AppendText(builder, "ijklmnopqrstuvwxyz");  // need 19: 9 * 3 / 2 = 13 < 19 + 8, so 27 * 3 / 2
    EXPECT_EQ(builder.capacity, 40);
    EXPECT_STREQ(builder.text, "abcdefghijklmnopqrstuvwxyz");
    EXPECT_EQ(builder.length, 26u);
    FreeStringBuilder(builder);
}

TEST(StringBuilder, ARequestOneByteLargerThanTheRoomGrowsTheBuilder) {
    StringBuilder builder{};
    AppendText(builder, "abc");          // capacity 6, room 6 - 3 - 1 = 2
    ReserveText(builder, 2);
    EXPECT_EQ(builder.capacity, 6);
    ReserveText(builder, 3);             // 6 * 3 / 2 = 9
    EXPECT_EQ(builder.capacity, 9);
    EXPECT_STREQ(builder.text, "abc");
    FreeStringBuilder(builder);
}

TEST(StringBuilder, AppendFormatOnEmptyBuilderReservesSixteen) {
    StringBuilder builder{};
    AppendFormat(builder, "%d", 7);      // want 16: 16 * 3 / 2 = 24
    EXPECT_EQ(builder.capacity, 24);
    EXPECT_STREQ(builder.text, "7");
    EXPECT_EQ(builder.length, 1u);
    FreeStringBuilder(builder);
}

TEST(StringBuilder, FormattedPieceThatExactlyFillsTheRoomIsGrownAndKeptWhole) {
    StringBuilder builder{};
    AppendFormat(builder, "%s", "");     // capacity 24, room 23
    std::string piece(23, 'x');
    AppendFormat(builder, "%s", piece.c_str());
    EXPECT_EQ(std::string(builder.text), piece);
    EXPECT_EQ(builder.length, 23u);
    FreeStringBuilder(builder);
}

TEST(StringBuilder, LongFormattedTextIsKeptWhole) {
    StringBuilder builder{};
    std::string piece(100000, 'q');
    AppendFormat(builder, "<%s>", piece.c_str());
    EXPECT_EQ(std::string(builder.text), "<" + piece + ">");
    EXPECT_EQ(builder.length, 100002u);
    FreeStringBuilder(builder);
}

TEST(StringBuilder, FormatDecimalSpellsANumberAsPercentDDoes) {
    std::vector<int32_t> values = {0, 1, -1, 9, 10, -10, 99, 100, 123456789, INT32_MAX, INT32_MIN, INT32_MIN + 1};
    std::mt19937 random(12345);
    std::uniform_int_distribution<int> shift(0, 30);
    for (int i = 0; i < 10000; i++) {
        // Numbers of every length: random bits shifted down by a random amount.
        values.push_back(static_cast<int32_t>(random()) >> shift(random));
    }
    for (int32_t value : values) {
        char expected[16];
        std::snprintf(expected, sizeof expected, "%d", value);
        DecimalText decimal = FormatDecimal(value);
        ASSERT_EQ(std::string(decimal.text, decimal.length), expected) << value;
        EXPECT_EQ(decimal.text[decimal.length], '\0') << value;
    }
}

TEST(StringBuilder, AppendPiecesJoinsThemWithOneReservationForAll) {
    StringBuilder builder{};
    DecimalText number = FormatDecimal(-42);
    AppendPieces(builder, {"__", "getfn", {number.text, number.length}, ""});   // need 11: 16
    EXPECT_EQ(builder.capacity, 16);
    EXPECT_STREQ(builder.text, "__getfn-42");
    EXPECT_EQ(builder.length, 10u);
    AppendPieces(builder, {"ab", "cdefgh"});   // need 9, room 5: 16 * 3 / 2 = 24
    EXPECT_EQ(builder.capacity, 24);
    EXPECT_STREQ(builder.text, "__getfn-42abcdefgh");
    EXPECT_EQ(builder.length, 18u);
    FreeStringBuilder(builder);
}

TEST(PtrArray, NinthPushReallocatesToTwelveAndTenthAgainToTwelve) {
    PtrArray array{};
    InitPtrArray(array, 8);
    for (intptr_t i = 0; i < 8; i++) {
        EXPECT_EQ(PushPtr(array, reinterpret_cast<void*>(i + 1)), i);
        EXPECT_EQ(array.lastGrowth, 0);
    }
    PushPtr(array, reinterpret_cast<void*>(9));
    EXPECT_EQ(array.lastGrowth, 12);
    EXPECT_EQ(array.capacity, 8);
    PushPtr(array, reinterpret_cast<void*>(10));
    EXPECT_EQ(array.lastGrowth, 12);
    PushPtr(array, reinterpret_cast<void*>(11));
    PushPtr(array, reinterpret_cast<void*>(12));
    EXPECT_EQ(array.lastGrowth, 12);
    PushPtr(array, reinterpret_cast<void*>(13));
    EXPECT_EQ(array.lastGrowth, 13);
    EXPECT_EQ(array.count, 13);
    for (intptr_t i = 0; i < 13; i++) EXPECT_EQ(array.data[i], reinterpret_cast<void*>(i + 1));
    FreePtrArray(array);
}

TEST(PtrArray, ReallocatingPushWipesEntriesStoredPastTheCount) {
    PtrArray array{};
    InitPtrArray(array, 8);
    for (intptr_t i = 0; i < 8; i++) PushPtr(array, reinterpret_cast<void*>(i + 1));
    StorePtr(array, 11, reinterpret_cast<void*>(99));
    StorePtr(array, 8, reinterpret_cast<void*>(98));
    PushPtr(array, reinterpret_cast<void*>(9));   // a reallocation: the array is rebuilt
    EXPECT_EQ(array.data[8], reinterpret_cast<void*>(9));
    EXPECT_EQ(array.data[11], nullptr);
    EXPECT_EQ(array.data[9], nullptr);
    FreePtrArray(array);
}

TEST(PtrArray, PushWithinTheFirstEightKeepsEntriesStoredPastTheCount) {
    PtrArray array{};
    InitPtrArray(array, 8);
    StorePtr(array, 5, reinterpret_cast<void*>(55));
    PushPtr(array, reinterpret_cast<void*>(1));
    EXPECT_EQ(array.data[5], reinterpret_cast<void*>(55));
    FreePtrArray(array);
}

TEST(PtrArray, EntryAtTheCountIsAlwaysAddressableAndZero) {
    PtrArray array{};
    InitPtrArray(array, 8);
    for (intptr_t i = 0; i < 1000; i++) {
        PushPtr(array, reinterpret_cast<void*>(i + 1));
        ASSERT_EQ(array.data[array.count], nullptr);
        ASSERT_GT(array.reserved, array.count);
    }
    FreePtrArray(array);
}

TEST(PtrArray, TheInlinePushAgreesWithTheGeneralOneUnderStoresPastTheCountAndRollBacks) {
    for (int32_t capacity : {0, 1, 8, 20}) {
        PtrArray inlined{};
        PtrArray general{};
        InitPtrArray(inlined, capacity);
        InitPtrArray(general, capacity);
        std::mt19937 random(2024u + static_cast<uint32_t>(capacity));
        std::uniform_int_distribution<int> percent(0, 99);
        std::uniform_int_distribution<int32_t> pastTheCount(0, 5);
        int32_t inlinePushes = 0;
        for (int step = 0; step < 20000; step++) {
            int choice = percent(random);
            void* value = reinterpret_cast<void*>(static_cast<uintptr_t>(step + 1));
            if (choice < 80) {
                bool fast = inlined.count + 2 <= inlined.reserved && inlined.dirtyEnd <= inlined.count;
                inlinePushes += fast ? 1 : 0;
                ASSERT_EQ(PushPtr(inlined, value), PushPtrAny(general, value)) << step;
            } else if (choice < 90) {
                int32_t index = inlined.count + pastTheCount(random);
                StorePtr(inlined, index, value);
                StorePtr(general, index, value);
            } else if (choice < 95) {
                ClearPtrArrayTail(inlined);
                ClearPtrArrayTail(general);
            } else {
                PtrArray before = inlined;
                before.count = inlined.count / 2;
                before.dirtyEnd = before.count;
                RollBackPtrArray(inlined, before);
                RollBackPtrArray(general, before);
            }
            ASSERT_EQ(inlined.count, general.count) << step;
            ASSERT_EQ(inlined.dirtyEnd, general.dirtyEnd) << step;
            ASSERT_EQ(inlined.lastGrowth, general.lastGrowth) << step;
            ASSERT_EQ(inlined.reserved, general.reserved) << step;
            int32_t end = std::max(inlined.count, inlined.dirtyEnd) + 1;
            for (int32_t i = 0; i < end; i++) ASSERT_EQ(inlined.data[i], general.data[i]) << step << " at " << i;
        }
        // Both paths were taken many times.
        EXPECT_GT(inlinePushes, 5000) << capacity;
        FreePtrArray(inlined);
        FreePtrArray(general);
    }
}

#if defined(__linux__)
// From a quarter of a mebibyte on (32,768 entries and the two header words), an array grows into
// address space of its own, resident as far as it is filled, rather than copying itself into heap
// blocks of 512 KiB and 1 MiB and keeping them.
TEST(PtrArray, AnArrayOfAQuarterMebibyteGrowsIntoAddressSpace) {
    rlimit addressSpace{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &addressSpace), 0);
    if (addressSpace.rlim_cur != RLIM_INFINITY) GTEST_SKIP() << "the address space is limited";
    PtrArray array{};
    InitPtrArray(array, 8);
    for (intptr_t i = 0; i < 16383; i++) PushPtr(array, reinterpret_cast<void*>(i + 1));
    EXPECT_EQ(array.reserved, 16384);   // a heap block of 128 KiB and the header words
    void** heapBlock = array.data;
    PushPtr(array, reinterpret_cast<void*>(16384));
    ASSERT_NE(array.data, heapBlock);
    EXPECT_EQ(array.reserved, (1 << 27) - 2);
    EXPECT_FALSE(AdvisedForHugePages(array.data));
    for (intptr_t i = 0; i < 16384; i++) ASSERT_EQ(array.data[i], reinterpret_cast<void*>(i + 1));
    for (intptr_t i = 0; i < 16383; i++) ASSERT_EQ(heapBlock[i], reinterpret_cast<void*>(i + 1));
    FreePtrArray(array);
}
#endif

TEST(PtrArray, ALargeArrayGrowsInPlaceAndEveryEarlierViewStaysReadable) {
    PtrArray array{};
    InitPtrArray(array, 8);
    std::vector<void**> views;
    std::vector<int32_t> counts;
    constexpr intptr_t kEntries = 1500000;   // 12 MB of entries: well past the 2 MiB blocks
    for (intptr_t i = 0; i < kEntries; i++) {
        void** before = array.data;
        PushPtr(array, reinterpret_cast<void*>(i + 1));
        if (array.data != before) {
            views.push_back(array.data);
            counts.push_back(array.count);
        }
        ASSERT_EQ(array.data[array.count], nullptr);
    }
    for (intptr_t i = 0; i < kEntries; i++) ASSERT_EQ(array.data[i], reinterpret_cast<void*>(i + 1));
    // A unit keeps the data pointer of its time: whatever block it was, its entries are still there.
    for (size_t v = 0; v < views.size(); v++) {
        for (int32_t i = 0; i < counts[v]; i++) ASSERT_EQ(views[v][i], reinterpret_cast<void*>(i + 1)) << v;
    }
#if defined(__linux__)
    // From 2 MiB on the array has address space to grow into, unless the process's address space is
    // limited: it moved at most once past that size.
    rlimit addressSpace{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &addressSpace), 0);
    if (addressSpace.rlim_cur != RLIM_INFINITY) {
        FreePtrArray(array);
        return;
    }
    size_t moves = 0;
    for (void** view : views) moves += view == array.data ? 1 : 0;
    EXPECT_EQ(moves, 1u);
    EXPECT_LT(views.size(), 20u);
    EXPECT_EQ(array.reserved, (1 << 27) - 2);   // 1 GiB of address space less the two header words
#endif
    FreePtrArray(array);
}
