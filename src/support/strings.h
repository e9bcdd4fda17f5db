// Reference-counted strings, the growable text builder and the growable pointer array.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "support/arena.h"

#define VELTJS_PRINTF(fmt, args) __attribute__((format(gnu_printf, fmt, args)))

// A shared, reference-counted, NUL-terminated string. Release frees the text but never the
// record, so a late reader through a stale pointer sees a null text instead of freed memory.
struct RefString {
    char* text;
    uint32_t refs;
    uint32_t flags;   // kRefStringInArena; sits in what would be the record's padding
};

// The text lives in an arena with the syntax tree: the last release clears `text` but frees
// nothing.
constexpr uint32_t kRefStringInArena = 1;

// Copies text (null text gives an empty string). refs starts at 1.
RefString* NewRefString(const char* text);
// Copies text and appends `padding` zero bytes, so readers may look past the end safely.
RefString* NewPaddedRefString(const char* text, uint32_t padding);
// Takes ownership of a malloc'd text; when it throws, the text still belongs to the caller.
RefString* AdoptRefString(char* text);
// Fills `record` (memory of a RefString's size) as an arena string of `text`, a copy that lives in
// an arena: refs 1, marked kRefStringInArena.
RefString* InitArenaRefString(void* record, char* text);
// The record in `records` and a copy of text (up to its first NUL) in `texts`: no allocator
// call unless an arena needs a new block.
RefString* NewArenaRefString(Arena& records, Arena& texts, const char* text);
// The same for a text of `length` bytes, none of them NUL.
RefString* NewArenaRefString(Arena& records, Arena& texts, const char* text, size_t length);
// NewPaddedRefString's copy in the arenas (a script's source, which the tree's positions keep).
RefString* NewArenaPaddedRefString(Arena& records, Arena& texts, const char* text, uint32_t padding);
// The same for a text whose strlen is known.
RefString* NewArenaPaddedRefString(Arena& records, Arena& texts, const char* text, size_t length, uint32_t padding);
// Whether `string` came from NewArenaRefString, only its maker still holds it, and it and its
// text (`length` bytes, its strlen) are the last things the two arenas handed out.
inline bool IsLastArenaRefString(const Arena& records, const Arena& texts, const RefString* string, size_t length) {
    return string && (string->flags & kRefStringInArena) && string->refs == 1 && string->text &&
           ArenaEndsWithRecord(records, string, sizeof(RefString)) && ArenaEndsWithText(texts, string->text, length);
}
// Gives such a string's record and text back to the two arenas (the record is then gone; drop the
// pointer without releasing it).
inline void GiveBackArenaRefString(Arena& records, Arena& texts, RefString* string) {
    ArenaRewind(texts, string->text);
    ArenaRewind(records, string);
}
// When IsLastArenaRefString holds, gives the string back and returns true; otherwise returns
// false and changes nothing.
bool TakeBackArenaRefString(Arena& records, Arena& texts, RefString* string);
// The same for a string whose text's length (its strlen) the caller knows.
bool TakeBackArenaRefString(Arena& records, Arena& texts, RefString* string, size_t length);
// Every node raises its text's count, so these two are inline.
inline RefString* RetainRefString(RefString* string) {
    if (string) string->refs++;
    return string;
}
// The last release frees a heap text (an arena text stays) and clears `text`; the record stays.
inline void ReleaseRefString(RefString* string) {
    if (!string) return;
    if (string->refs-- == 1) {
        if (!(string->flags & kRefStringInArena)) std::free(string->text);
        string->text = nullptr;
    }
}

// The hash texts are indexed by (the name index, the function-record index, a parse's shared
// texts); `length` is the text's strlen. Read a word at a time: qualified names run to thousands
// of characters. No result depends on its values. Inline, with the steps below: the scanner hashes
// nearly every identifier it reads.
uint32_t TextHash(const char* text, size_t length);
uint32_t TextHash(const char* text);

// TextHash in two steps, for texts that begin alike: qualified names begin with the joined names
// of their enclosing functions, thousands of characters deep in nested code, and the state after
// those is taken once. The state has taken the whole eight-byte words of a text's first `hashed`
// bytes; a zeroed state has taken nothing.
struct TextHashState {
    uint64_t hash;
    size_t hashed;   // a multiple of 8
};

namespace text_hash {

inline uint64_t LoadWord(const char* at) {
    uint64_t word;
    std::memcpy(&word, at, 8);
    return word;
}

inline uint64_t LoadHalfWord(const char* at) {
    uint32_t half;
    std::memcpy(&half, at, 4);
    return half;
}

constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;

inline uint64_t MixWord(uint64_t hash, uint64_t word) {
    hash = (hash ^ word) * kMultiplier;
    return hash ^ (hash >> 32);
}

}  // namespace text_hash

// `state`, taken over the first state.hashed bytes of `text`, carried on over its whole words up
// to `length`.
inline TextHashState TextHashWords(TextHashState state, const char* text, size_t length) {
    size_t whole = length & ~size_t{7};
    for (; state.hashed < whole; state.hashed += 8) {
        state.hash = text_hash::MixWord(state.hash, text_hash::LoadWord(text + state.hashed));
    }
    return state;
}

// TextHash of the `length` bytes of `text` (its strlen), of whose first state.hashed bytes
// `state` was taken.
//
// Eight bytes at a time, each word mixed in by a multiply, then a final mix, so that nearby texts
// spread over the whole table; folded to 32 bits (no index has more slots than that). The bytes
// after the last whole word are read as the text's last eight (or, in a text shorter than a
// word, as overlapping halves or three single bytes), so no read goes past the text and none
// copies byte by byte: every token's text is hashed. The length is mixed in last, so texts that
// read alike at different lengths still differ, and the state after a text's first words serves
// every text that begins with them (TextHashWords).
inline uint32_t TextHashFrom(TextHashState state, const char* text, size_t length) {
    using namespace text_hash;
    state = TextHashWords(state, text, length);
    uint64_t hash = state.hash;
    if (length > state.hashed) {
        uint64_t word;
        if (length >= 8) {
            word = LoadWord(text + length - 8);
        } else if (length >= 4) {
            word = LoadHalfWord(text) | LoadHalfWord(text + length - 4) << 32;
        } else {
            auto byte = [text](size_t at) { return static_cast<uint64_t>(static_cast<unsigned char>(text[at])); };
            word = byte(0) | byte(length / 2) << 8 | byte(length - 1) << 16;
        }
        hash = MixWord(hash, word);
    }
    hash = (hash ^ length) * kMultiplier;
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    return static_cast<uint32_t>(hash ^ (hash >> 32));
}

inline uint32_t TextHash(const char* text, size_t length) { return TextHashFrom(TextHashState{}, text, length); }

// The token texts of one parse that some node took lately, found by content, so that a later
// token with the same text shares that record instead of copying it (an identifier used a thousand
// times is one record and one text). A cache, not an index: each text has one slot, chosen by its
// hash, and a text added there takes the slot from the one before. It grows with the texts added,
// up to kMaxSharedTextSlots (64 KiB), so it stays in the processor's cache and every lookup is one
// probe, whatever the script's vocabulary; a script of a hundred thousand distinct names shares
// the ones used near each other. The table holds no reference: a record released to zero (its
// text cleared) is never handed out again. Nothing observable depends on which record a node
// holds, only on its text.
struct SharedTextSlot {
    RefString* string;   // null: empty
    uint32_t hash;       // the key the text was added under
    uint32_t length;     // strlen of the text
};

struct SharedTexts {
    SharedTextSlot* slots;
    uint32_t mask;       // slot count - 1; no slots until the first text is added
    uint32_t added;      // texts added since the table last grew
};

// Texts longer than this are never shared: they seldom repeat, and each would be read twice.
constexpr size_t kSharedTextMax = 64;
constexpr uint32_t kFirstSharedTextSlots = 256;
constexpr uint32_t kMaxSharedTextSlots = 4096;

// Whether the `length` bytes at `a` and at `b` are the same; reads no byte outside them. A token's
// text is a few bytes: up to 16 are compared a word or two at a time, without a call.
inline bool SameBytes(const char* a, const char* b, size_t length) {
    using text_hash::LoadHalfWord;
    using text_hash::LoadWord;
    if (length > 16) return std::memcmp(a, b, length) == 0;
    if (length >= 8) return LoadWord(a) == LoadWord(b) && LoadWord(a + length - 8) == LoadWord(b + length - 8);
    if (length >= 4) {
        return LoadHalfWord(a) == LoadHalfWord(b) && LoadHalfWord(a + length - 4) == LoadHalfWord(b + length - 4);
    }
    for (size_t at = 0; at < length; at++) {
        if (a[at] != b[at]) return false;
    }
    return true;
}

// The live record whose text is `text` (`length` bytes, its strlen) under `hash`, or null. Asked
// for every token, so inline.
inline RefString* FindSharedText(const SharedTexts& table, const char* text, size_t length, uint32_t hash) {
    if (!table.slots) return nullptr;
    const SharedTextSlot& slot = table.slots[hash & table.mask];
    // A released record's text is null: it matches no token.
    if (slot.string && slot.hash == hash && slot.length == length && slot.string->text &&
        SameBytes(slot.string->text, text, length)) {
        return slot.string;
    }
    return nullptr;
}
// Puts `string` (a text of `length` bytes, at most kSharedTextMax) in its slot under `hash`. Once
// twice as many texts were added as the table has slots, it doubles (up to its limit), keeping
// the texts it holds. Throws std::bad_alloc with the table unchanged when it cannot get its slots.
void AddSharedText(SharedTexts& table, RefString* string, size_t length, uint32_t hash);
// Frees the slots; the records stay with their holders.
void FreeSharedTexts(SharedTexts& table);

// A one-pointer heap cell that holds a RefString; positions and the lexer hold these.
RefString** NewRefHandle(RefString* string);

struct StringBuilder {
    char* text;
    int32_t capacity;
    uint32_t length;
};

// The bytes free beside the text and one spare byte.
inline int64_t BuilderRoom(const StringBuilder& builder) {
    return static_cast<int64_t>(builder.capacity) - builder.length - 1;
}
// Grows by the builder's rule when `need` bytes do not fit in its room (the growth is
// ReserveTextAny; the test is inline, as most requests fit).
void ReserveTextAny(StringBuilder& builder, uint32_t need);
inline void ReserveText(StringBuilder& builder, uint32_t need) {
    if (static_cast<int64_t>(need) > BuilderRoom(builder)) ReserveTextAny(builder, need);
}
// A null text appends nothing.
void AppendText(StringBuilder& builder, const char* text);
void AppendFormat(StringBuilder& builder, const char* format, ...) VELTJS_PRINTF(2, 3);
void AppendFormatV(StringBuilder& builder, const char* format, va_list args) VELTJS_PRINTF(2, 0);
// The decimal form of a number, as "%d" prints it.
struct DecimalText {
    char text[12];
    uint32_t length;
};
DecimalText FormatDecimal(int32_t value);
inline std::string_view ViewOf(const DecimalText& decimal) { return {decimal.text, decimal.length}; }
// Appends the pieces one after another, reserving room for all of them at once.
void AppendPieces(StringBuilder& builder, std::initializer_list<std::string_view> pieces);
void FreeStringBuilder(StringBuilder& builder);

// A growable array of pointers. Blocks that the array outgrew are kept for its whole life (units
// point into them), so a pointer into the array stays readable. Growth is geometric in memory, but the contents behave as if
// every push beyond the first `capacity` entries reallocated the array: entries past `count`
// read as zero afterwards (a host can place names there, which such a push wipes out).
struct PtrArray {
    int32_t count;
    int32_t capacity;         // the size allocated at start; never changes
    void** data;
    int32_t reserved;         // entries really allocated (always more than count)
    int32_t dirtyEnd;         // one past the highest entry written at or beyond count
    int32_t lastGrowth;       // entries a reallocating push would have allocated, else 0
};

void InitPtrArray(PtrArray& array, int32_t capacity);
// The `lastGrowth` of a push onto the array as it is: the entries a reallocating push would
// allocate, or 0 for a push within the first `capacity` entries.
inline int32_t ReallocatingPushGrowth(const PtrArray& array) {
    if (array.capacity - array.count >= 1) return 0;
    int64_t grown = static_cast<int64_t>(array.capacity) * 3 / 2;
    return static_cast<int32_t>(grown > array.count + 1 ? grown : array.count + 1);
}
// Returns the index used. Handles every case; PushPtr below is its common case inline.
int32_t PushPtrAny(PtrArray& array, void* value);
// The same, inline when there is room for the entry and the spare one and nothing was written
// past the count (every push of a compile's lists and names, nearly): exactly what PushPtrAny
// does then.
inline int32_t PushPtr(PtrArray& array, void* value) {
    int32_t index = array.count;
    if (static_cast<int64_t>(index) + 2 > array.reserved || array.dirtyEnd > index) return PushPtrAny(array, value);
    array.lastGrowth = ReallocatingPushGrowth(array);
    array.data[index] = value;
    array.count = index + 1;
    array.dirtyEnd = index + 1;
    return index;
}
// Makes entries up to `index` addressable (zeroed), without changing count.
void ReservePtrArray(PtrArray& array, int32_t index);
// Wipes entries from count on, as a replacement by a fresh zeroed array does.
void ClearPtrArrayTail(PtrArray& array);
// Stores at any index (growing as needed), tracking writes beyond count.
void StorePtr(PtrArray& array, int32_t index, void* value);
// Frees the array's block and every block it kept when it grew.
void FreePtrArray(PtrArray& array);
// Takes back the pushes made since `before` (a copy of the record taken earlier): entries from
// its count on read as zero again, and count, dirtyEnd and lastGrowth are as they were. Entries
// the host had placed past that count are not restored here. Never allocates.
void RollBackPtrArray(PtrArray& array, const PtrArray& before);

// Allocation helpers: throw std::bad_alloc on failure. Every allocation of the library goes
// through these (or through operator new, or an arena, which asks the same hook), so a test build
// can make any one of them fail.
void* CheckedMalloc(size_t size);
void* CheckedCalloc(size_t count, size_t size);
char* CheckedStrdup(const char* text);
// Grows or shrinks a heap block; on failure the block is left as it was.
void* CheckedRealloc(void* block, size_t size);
// The same, null on failure, for the places that must not throw.
void* TryMalloc(size_t size) noexcept;
void* TryCalloc(size_t count, size_t size) noexcept;
