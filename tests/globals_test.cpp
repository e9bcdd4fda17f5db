#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "codegen/context.h"
#include "helpers/unit_report.h"
#include "state/process_state.h"
#include "veltjs.h"

namespace {

// What a front-to-back strcmp scan of the entries below the count answers.
int32_t ScanForName(const char* text) {
    for (int32_t i = 0; i < NameArray.count; i++) {
        const char* entry = static_cast<const char*>(NameArray.data[i]);
        if (entry && std::strcmp(entry, text) == 0) return i;
    }
    return -1;
}

// `count` texts made by `make`, kept until the process ends: the name table holds pointers into
// them.
const std::vector<std::string>& LastingTexts(int count, const std::function<std::string(int)>& make) {
    static std::list<std::vector<std::string>> kept;
    std::vector<std::string>& texts = kept.emplace_back();
    texts.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; i++) texts.push_back(make(i));
    return texts;
}

}  // namespace

TEST(NameTable, FindAgreesWithAScanUnderPushesAndHostPlacements) {
    VeltJS_Init();
    std::mt19937 random(12345);
    const std::vector<std::string>* texts =
        &LastingTexts(40000, [&](int) { return "n" + std::to_string(random() % 6000); });
    size_t next = 0;
    for (int step = 0; step < 30000; step++) {
        const std::string& text = (*texts)[next++ % texts->size()];
        int action = static_cast<int>(random() % 100);
        if (action < 70) {
            if (FindName(text.c_str()) < 0) PushName(text.c_str());
        } else if (action < 85 && NameArray.count > 0) {
            VeltJS_AddName(text.c_str(), static_cast<int32_t>(random() % static_cast<uint32_t>(NameArray.count)));
        } else if (action < 90 && NameArray.count > 0) {
            VeltJS_AddName(nullptr, static_cast<int32_t>(random() % static_cast<uint32_t>(NameArray.count)));
        } else {
            VeltJS_AddName(text.c_str(), NameArray.count + static_cast<int32_t>(random() % 4));
        }
        const std::string& probe = (*texts)[random() % texts->size()];
        ASSERT_EQ(FindName(probe.c_str()), ScanForName(probe.c_str())) << "step " << step << " " << probe;
    }
}

TEST(NameTable, InterningIndexesANewNameWhereItsLookupEndedUnderGrowthAndHostPlacements) {
    VeltJS_Init();
    std::mt19937 random(2026);
    const std::vector<std::string>* texts =
        &LastingTexts(60000, [&](int) { return "m" + std::to_string(random() % 8000); });
    // First growth alone: the index doubles several times while every name is new.
    const std::vector<std::string>* fresh = &LastingTexts(5000, [](int i) { return "fresh" + std::to_string(i); });
    for (int i = 0; i < 5000; i++) {
        ASSERT_EQ(i % 2 ? InternCopy((*fresh)[i].c_str()) : InternName((*fresh)[i].c_str()), i);
        // An index more than half full would be one push from a probe that never ends.
        ASSERT_LE(static_cast<uint64_t>(State().nameIndex.used) * 2, State().nameIndex.mask + 1) << i;
    }
    for (int i = 0; i < 5000; i++) ASSERT_EQ(FindName((*fresh)[i].c_str()), i);
    // The last growth, at 4,097 names, has moved the outgrown table's 8,192 slots on since.
    EXPECT_EQ(State().nameIndex.previous, nullptr);
    size_t next = 0;
    for (int step = 0; step < 20000; step++) {
        const std::string& text = (*texts)[next++ % texts->size()];
        int action = static_cast<int>(random() % 100);
        if (action < 60) {
            int32_t expected = ScanForName(text.c_str());
            int32_t count = NameArray.count;
            int32_t id = InternName(text.c_str());
            ASSERT_EQ(id, expected >= 0 ? expected : count) << "step " << step << " " << text;
        } else if (action < 90) {
            int32_t expected = ScanForName(text.c_str());
            int32_t count = NameArray.count;
            int32_t id = InternCopy(text.c_str());
            ASSERT_EQ(id, expected >= 0 ? expected : count) << "step " << step << " " << text;
            if (expected < 0) {
                ASSERT_NE(NameArray.data[id], static_cast<const void*>(text.c_str()));
            }
        } else if (action < 97 && NameArray.count > 0) {
            VeltJS_AddName(text.c_str(), static_cast<int32_t>(random() % static_cast<uint32_t>(NameArray.count)));
        } else {
            VeltJS_AddName(text.c_str(), NameArray.count + static_cast<int32_t>(random() % 3));
        }
        ASSERT_LE(static_cast<uint64_t>(State().nameIndex.used) * 2, State().nameIndex.mask + 1) << step;
        const std::string& probe = (*texts)[random() % texts->size()];
        ASSERT_EQ(FindName(probe.c_str()), ScanForName(probe.c_str())) << "step " << step << " " << probe;
    }
}

TEST(NameTable, AskingAheadForALookupsMemoryChangesNothing) {
    VeltJS_Init();
    // Every step asks on an index not made yet, on one that grows (so that an outgrown table is
    // still being moved), on one that a host's placement left stale, and for texts held, never
    // held, and held past an equal text.
    const std::vector<std::string>* texts = &LastingTexts(3000, [](int i) { return "ahead" + std::to_string(i % 2500); });
    auto snapshot = [] {
        const NameIndex& index = State().nameIndex;
        std::string bytes = DescribeTables();
        bytes.append(reinterpret_cast<const char*>(&index), sizeof index);
        if (index.slots) bytes.append(reinterpret_cast<const char*>(index.slots), (index.mask + 1) * sizeof(NameSlot));
        if (index.previous) {
            bytes.append(reinterpret_cast<const char*>(index.previous), (index.previousMask + 1) * sizeof(NameSlot));
        }
        return bytes;
    };
    auto askEveryStep = [&](const std::string& text) {
        for (NameStep step : {kNameStepSlot, kNameStepEntry, kNameStepText}) PrefetchNameStep(TextHash(text.c_str()), step);
    };
    ASSERT_EQ(State().nameIndex.slots, nullptr);
    bool sawGrowth = false;
    for (size_t i = 0; i < texts->size(); i++) {
        std::string before = snapshot();
        askEveryStep((*texts)[i]);
        askEveryStep((*texts)[(i * 7919) % texts->size()]);
        askEveryStep("never" + std::to_string(i));
        ASSERT_EQ(snapshot(), before) << i;
        sawGrowth = sawGrowth || State().nameIndex.previous != nullptr;
        if (i % 3 == 0) InternName((*texts)[i].c_str());
        if (i % 500 == 250) {
            // The index is behind the table now, until the next lookup; a step reads it as it stands.
            VeltJS_AddName((*texts)[i].c_str(), static_cast<int32_t>(i / 4));
            ASSERT_TRUE(State().nameIndex.stale);
            std::string stale = snapshot();
            askEveryStep((*texts)[i]);
            askEveryStep((*texts)[i / 4]);
            ASSERT_EQ(snapshot(), stale) << i;
        }
    }
    EXPECT_TRUE(sawGrowth);
    EXPECT_EQ(CheckTableConsistency(), "");
    for (size_t i = 0; i < texts->size(); i += 37) {
        EXPECT_EQ(FindName((*texts)[i].c_str()), ScanForName((*texts)[i].c_str())) << i;
    }
}

TEST(NameTable, FindReturnsTheLowestIdOfEqualTexts) {
    VeltJS_Init();
    PushName("a");
    PushName("b");
    PushName("c");
    VeltJS_AddName("c", 0);
    EXPECT_EQ(FindName("c"), 0);
    EXPECT_EQ(FindName("a"), -1);
    VeltJS_AddName("x", 0);
    EXPECT_EQ(FindName("c"), 2);
}

TEST(NameTable, ALastingNameIsInternedOnceAndBelievedOnlyInItsOwnGeneration) {
    VeltJS_Init();
    static char text[] = "alpha";
    int32_t first = InternLastingName(text);
    EXPECT_EQ(first, ScanForName("alpha"));
    EXPECT_EQ(LastingNameHash(text), NameHash("alpha"));
    // Pushes leave the first holder of the text its id.
    PushName("beta");
    PushName("alpha");
    EXPECT_EQ(InternLastingName(text), first);
    // A host's placement over that entry begins a new generation: the text is looked up again.
    VeltJS_AddName("gamma", first);
    int32_t again = InternLastingName(text);
    EXPECT_EQ(again, ScanForName("alpha"));
    EXPECT_NE(again, first);
    // A text changed in place is believed in a new generation only.
    std::memcpy(text, "delta", 5);
    BeginLastingNames();
    int32_t changed = InternLastingName(text);
    EXPECT_EQ(changed, ScanForName("delta"));
    EXPECT_GE(changed, 0);
    EXPECT_EQ(LastingNameHash(text), NameHash("delta"));
    EXPECT_EQ(InternLastingName(nullptr), -1);
}

TEST(NameTable, ALastingNameTakenBackWithItsCallIsInternedAnewAfterwards) {
    VeltJS_Init();
    PushName("first");
    static char text[] = "epsilon";
    StateMark mark;
    BeginStateMark(mark);
    int32_t pushed = InternLastingName(text);
    EXPECT_EQ(pushed, 1);
    RollBackState(mark);
    EndStateMark(mark);
    EXPECT_EQ(NameArray.count, 1);
    EXPECT_EQ(InternLastingName(text), 1);
    EXPECT_EQ(NameArray.count, 2);
}

TEST(NameTable, EveryCompileBeginsAGenerationOfLastingNames) {
    VeltJS_Init();
    uint64_t before = State().lastingGeneration;
    CompileUnit* unit = VeltJS_Parse("var a = b;", "a.js", "a");
    ASSERT_NE(VeltJS_Compile(unit, 1), nullptr);
    EXPECT_EQ(unit->status, 0);
    unit = VeltJS_Parse("b = a;", "b.js", "b");
    ASSERT_NE(VeltJS_Compile(unit, 1), nullptr);
    EXPECT_EQ(State().lastingGeneration, before + 2);
}

TEST(NameTable, ManyNamesAreEachFoundAtTheirOwnId) {
    VeltJS_Init();
    const std::vector<std::string>* texts = &LastingTexts(200000, [](int i) { return "name_" + std::to_string(i); });
    for (const std::string& text : *texts) ASSERT_EQ(FindName(text.c_str()), -1);
    for (const std::string& text : *texts) PushName(text.c_str());
    for (int i = 0; i < 200000; i++) ASSERT_EQ(FindName((*texts)[i].c_str()), i);
    EXPECT_EQ(FindName("name_200000"), -1);
}

TEST(NameTable, TextHashReadsEveryByteOfTextsOfEveryLengthAndTheTextAloneDecides) {
    // Texts up to 40 bytes, so every length of the last word is read; a change in any one byte
    // changes the hash, and a text hashed with its length hashes as the plain call does.
    std::string text;
    for (int length = 0; length <= 40; length++) {
        uint32_t hash = TextHash(text.c_str());
        EXPECT_EQ(TextHash(text.c_str(), text.size()), hash) << length;
        EXPECT_EQ(HashText(text.c_str(), text.size()).hash, hash) << length;
        for (int at = 0; at < length; at++) {
            std::string changed = text;
            changed[static_cast<size_t>(at)] ^= 0x20;
            EXPECT_NE(TextHash(changed.c_str()), hash) << length << " " << at;
        }
        text.push_back(static_cast<char>('a' + length % 26));
    }
    // A shorter text is not its longer self padded with zeros.
    EXPECT_NE(TextHash("ab", 2), TextHash("ab\0", 3));
}

// Qualified names are hashed from the state their shared beginning left: resumed from any such
// state, and carried on in any steps, the hash is the plain one of the whole text.
TEST(NameTable, TextHashResumedFromTheStateOfABeginningIsThePlainHash) {
    std::mt19937 random(2026);
    for (int round = 0; round < 2000; round++) {
        std::string text;
        size_t length = std::uniform_int_distribution<size_t>(0, 300)(random);
        for (size_t i = 0; i < length; i++) text.push_back(static_cast<char>(std::uniform_int_distribution<int>(1, 255)(random)));
        size_t first = std::uniform_int_distribution<size_t>(0, length)(random);
        size_t second = std::uniform_int_distribution<size_t>(first, length)(random);
        TextHashState state = TextHashWords(TextHashState{}, text.c_str(), first);
        ASSERT_EQ(state.hashed, first & ~size_t{7}) << round;
        ASSERT_EQ(TextHashFrom(state, text.c_str(), length), TextHash(text.c_str(), length)) << round;
        state = TextHashWords(state, text.c_str(), second);
        ASSERT_EQ(TextHashFrom(state, text.c_str(), length), TextHash(text.c_str(), length)) << round;
    }
}

TEST(NameTable, LookupsAndPushesWithAKnownHashAgreeWithThePlainOnes) {
    VeltJS_Init();
    const std::vector<std::string>* texts = &LastingTexts(
        5000, [](int i) { return std::string(static_cast<size_t>(i % 300), 'q') + std::to_string(i); });
    for (int i = 0; i < 5000; i++) {
        const std::string& text = (*texts)[static_cast<size_t>(i)];
        HashedText hashed = HashText(text.c_str(), text.size());
        ASSERT_EQ(FindName(hashed), -1);
        int32_t id = i % 2 == 0 ? PushName(hashed) : PushName(text.c_str());
        ASSERT_EQ(FindName(hashed), id);
        ASSERT_EQ(FindName(text.c_str()), id);
    }
    // Equal texts at other addresses are found by their text.
    for (int i = 0; i < 5000; i += 97) {
        std::string copy = (*texts)[static_cast<size_t>(i)];
        EXPECT_EQ(FindName(HashText(copy.c_str(), copy.size())), ScanForName(copy.c_str())) << i;
    }
}

TEST(NameTable, EveryNameIsFoundWhileTheIndexMovesItsSlotsToALargerTable) {
    // The index grows at half full and moves the old table's slots over the next insertions: a
    // name must be found at its id whichever table holds it at the time.
    VeltJS_Init();
    const std::vector<std::string>* texts = &LastingTexts(100000, [](int i) { return "grow_" + std::to_string(i); });
    for (int i = 0; i < 100000; i++) {
        ASSERT_EQ(PushName((*texts)[static_cast<size_t>(i)].c_str()), i);
        for (int earlier : {0, i / 3, i / 2, i > 0 ? i - 1 : 0, i}) {
            ASSERT_EQ(FindName((*texts)[static_cast<size_t>(earlier)].c_str()), earlier) << i << " " << earlier;
        }
    }
}

TEST(NameTable, ANameFoundBeforeTheHostPlacesItLowerIsFoundAtTheLowerIdAfter) {
    // Lookups remember what they found; a host placement below the count must not leave an
    // answer that is no longer the lowest id, nor one whose entry now holds another text.
    VeltJS_Init();
    PushName("first");
    PushName("second");
    PushName("third");
    EXPECT_EQ(FindName("third"), 2);
    EXPECT_EQ(FindName("third"), 2);
    VeltJS_AddName("third", 0);
    EXPECT_EQ(FindName("third"), 0);
    EXPECT_EQ(FindName("first"), -1);
    VeltJS_AddName("other", 0);
    EXPECT_EQ(FindName("third"), 2);
    VeltJS_AddName("other", 2);
    EXPECT_EQ(FindName("third"), -1);
}
