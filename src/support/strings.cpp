#include "support/strings.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "support/fault_injection.h"

void* TryMalloc(size_t size) noexcept {
    if (AllocationShouldFail()) return nullptr;
    return std::malloc(size == 0 ? 1 : size);
}

void* TryCalloc(size_t count, size_t size) noexcept {
    if (AllocationShouldFail()) return nullptr;
    return std::calloc(count == 0 ? 1 : count, size == 0 ? 1 : size);
}

void* CheckedMalloc(size_t size) {
    void* block = TryMalloc(size);
    if (!block) throw std::bad_alloc();
    return block;
}

void* CheckedCalloc(size_t count, size_t size) {
    void* block = TryCalloc(count, size);
    if (!block) throw std::bad_alloc();
    return block;
}

void* CheckedRealloc(void* block, size_t size) {
    if (AllocationShouldFail()) throw std::bad_alloc();
    void* grown = std::realloc(block, size == 0 ? 1 : size);
    if (!grown) throw std::bad_alloc();
    return grown;
}

char* CheckedStrdup(const char* text) {
    size_t length = std::strlen(text);
    char* copy = static_cast<char*>(CheckedMalloc(length + 1));
    std::memcpy(copy, text, length + 1);
    return copy;
}

RefString* AdoptRefString(char* text) {
    RefString* string = static_cast<RefString*>(CheckedMalloc(sizeof(RefString)));
    string->text = text;
    string->refs = 1;
    string->flags = 0;
    return string;
}

// The copy is freed again when there is no memory for the record.
static RefString* AdoptCopy(char* copy) {
    try {
        return AdoptRefString(copy);
    } catch (...) {
        std::free(copy);
        throw;
    }
}

RefString* NewRefString(const char* text) {
    return AdoptCopy(CheckedStrdup(text ? text : ""));
}

RefString* NewPaddedRefString(const char* text, uint32_t padding) {
    size_t length = std::strlen(text);
    char* copy = static_cast<char*>(CheckedMalloc(length + 1 + padding));
    std::memcpy(copy, text, length);
    std::memset(copy + length, 0, padding + 1);
    return AdoptCopy(copy);
}

RefString* InitArenaRefString(void* record, char* text) {
    RefString* string = static_cast<RefString*>(record);
    string->text = text;
    string->refs = 1;
    string->flags = kRefStringInArena;
    return string;
}

namespace {

// The record in `records` of an arena string whose text is already in the text arena.
RefString* ArenaRecordFor(Arena& records, char* text) {
    return InitArenaRefString(ArenaAllocate(records, sizeof(RefString)), text);
}

}  // namespace

RefString* NewArenaRefString(Arena& records, Arena& texts, const char* text) {
    if (!text) text = "";
    return NewArenaRefString(records, texts, text, std::strlen(text));
}

RefString* NewArenaRefString(Arena& records, Arena& texts, const char* text, size_t length) {
    return ArenaRecordFor(records, ArenaCopyText(texts, text, length));
}

RefString* NewArenaPaddedRefString(Arena& records, Arena& texts, const char* text, uint32_t padding) {
    if (!text) text = "";
    return NewArenaPaddedRefString(records, texts, text, std::strlen(text), padding);
}

RefString* NewArenaPaddedRefString(Arena& records, Arena& texts, const char* text, size_t length, uint32_t padding) {
    return ArenaRecordFor(records, ArenaCopyLongText(texts, text, length, static_cast<size_t>(padding) + 1));
}

bool TakeBackArenaRefString(Arena& records, Arena& texts, RefString* string) {
    if (!string || !string->text) return false;
    return TakeBackArenaRefString(records, texts, string, std::strlen(string->text));
}

bool TakeBackArenaRefString(Arena& records, Arena& texts, RefString* string, size_t length) {
    if (!IsLastArenaRefString(records, texts, string, length)) return false;
    GiveBackArenaRefString(records, texts, string);
    return true;
}

uint32_t TextHash(const char* text) { return TextHash(text, std::strlen(text)); }

void AddSharedText(SharedTexts& table, RefString* string, size_t length, uint32_t hash) {
    uint32_t slotCount = table.mask + 1;
    if (!table.slots || (table.added >= slotCount * 2 && slotCount < kMaxSharedTextSlots)) {
        uint32_t grown = table.slots ? slotCount * 2 : kFirstSharedTextSlots;
        auto* slots = static_cast<SharedTextSlot*>(CheckedCalloc(grown, sizeof(SharedTextSlot)));
        if (table.slots) {
            // Each slot's text goes to one of the two slots its hash picks in the larger table, which
            // no other slot's text picks.
            for (uint32_t at = 0; at < slotCount; at++) {
                if (table.slots[at].string) slots[table.slots[at].hash & (grown - 1)] = table.slots[at];
            }
            std::free(table.slots);
        }
        table.slots = slots;
        table.mask = grown - 1;
        table.added = 0;
    }
    table.slots[hash & table.mask] = SharedTextSlot{string, hash, static_cast<uint32_t>(length)};
    table.added++;
}

void FreeSharedTexts(SharedTexts& table) {
    std::free(table.slots);
    table = SharedTexts{};
}

RefString** NewRefHandle(RefString* string) {
    RefString** handle = static_cast<RefString**>(CheckedMalloc(sizeof(RefString*)));
    *handle = string;
    return handle;
}

static void GrowTo(StringBuilder& builder, int64_t capacity) {
    if (capacity > INT32_MAX) throw std::bad_alloc();
    char* text = static_cast<char*>(CheckedMalloc(static_cast<size_t>(capacity)));
    if (builder.text) {
        std::memcpy(text, builder.text, static_cast<size_t>(builder.capacity));
        std::free(builder.text);
    }
    builder.text = text;
    builder.capacity = static_cast<int32_t>(capacity);
}

void ReserveTextAny(StringBuilder& builder, uint32_t need) {
    if (static_cast<int64_t>(need) <= BuilderRoom(builder)) return;
    int64_t base = builder.capacity != 0 ? builder.capacity : need;
    int64_t capacity = base * 3 / 2;
    if (capacity < static_cast<int64_t>(need) + builder.length) {
        capacity = (static_cast<int64_t>(need) + builder.length) * 3 / 2;
    }
    GrowTo(builder, capacity);
}

void AppendText(StringBuilder& builder, const char* text) {
    if (!text) return;
    size_t length = std::strlen(text);
    if (length >= INT32_MAX) throw std::bad_alloc();
    uint32_t need = static_cast<uint32_t>(length + 1);
    ReserveText(builder, need);
    std::memcpy(builder.text + builder.length, text, need);
    builder.length += need - 1;
}

DecimalText FormatDecimal(int32_t value) {
    DecimalText decimal{};
    std::to_chars_result end = std::to_chars(decimal.text, decimal.text + sizeof decimal.text - 1, value);
    decimal.length = static_cast<uint32_t>(end.ptr - decimal.text);
    return decimal;
}

void AppendPieces(StringBuilder& builder, std::initializer_list<std::string_view> pieces) {
    size_t length = 0;
    for (std::string_view piece : pieces) length += piece.size();
    if (length >= INT32_MAX) throw std::bad_alloc();
    ReserveText(builder, static_cast<uint32_t>(length + 1));
    for (std::string_view piece : pieces) {
        std::memcpy(builder.text + builder.length, piece.data(), piece.size());
        builder.length += static_cast<uint32_t>(piece.size());
    }
    builder.text[builder.length] = '\0';
}

void AppendFormat(StringBuilder& builder, const char* format, ...) {
    va_list args;
    va_start(args, format);
    AppendFormatV(builder, format, args);
    va_end(args);
}

void AppendFormatV(StringBuilder& builder, const char* format, va_list args) {
    int64_t formatLength = static_cast<int64_t>(std::strlen(format));
    int64_t want = formatLength > 16 ? formatLength : 16;
    ReserveText(builder, static_cast<uint32_t>(want));
    builder.text[builder.length] = '\0';
    int64_t minimum = formatLength > 32 ? formatLength : 32;
    for (;;) {
        int64_t room = BuilderRoom(builder);
        va_list attempt;
        va_copy(attempt, args);
        int result = std::vsnprintf(builder.text + builder.length, static_cast<size_t>(room), format, attempt);
        va_end(attempt);
        // An encoding error cannot be cured by growing; append nothing rather than loop.
        if (result < 0) {
            builder.text[builder.length] = '\0';
            return;
        }
        // The piece fits only when its terminating NUL fits as well.
        if (result < room) {
            builder.length += static_cast<uint32_t>(result);
            return;
        }
        // Grow by the builder's rule until the known result fits, then format once more.
        while (result >= BuilderRoom(builder)) {
            int64_t base = builder.capacity != 0 ? builder.capacity : minimum;
            int64_t capacity = base * 3 / 2;
            if (capacity < builder.length + minimum) capacity = (builder.length + minimum) * 3 / 2;
            GrowTo(builder, capacity);
        }
    }
}

void FreeStringBuilder(StringBuilder& builder) {
    std::free(builder.text);
    builder.text = nullptr;
    builder.capacity = 0;
    builder.length = 0;
}

// Every block has two header words in front of `data`: the previous block's start and this
// block's size. A grown array keeps its old blocks instead of freeing them, because compile units
// still point into them. Growth doubles, so the kept blocks together are smaller than the current
// one.
constexpr size_t kPtrBlockHeader = 2;

// A block that reaches this size is instead address space for this many bytes, which the array
// then grows into without moving: no copy, and no old block kept beside it.
constexpr size_t kPtrRegionBytes = size_t{1} << 30;
// The size from which a block is that address space. The blocks of 512 KiB and 1 MiB below 2 MiB
// would each be copied and kept beside the next; an array this large is a script of hundreds of
// kilobytes, and the address space is resident only as far as the array reaches.
constexpr size_t kPtrRegionFrom = 256 * 1024;

// A pointer array's blocks are kept for the array's life, and the large ones are filled a page at
// a time as the array grows: from kPtrRegionFrom up they are mappings, as the indexes' tables are,
// resident only as far as they are written.
static void EnsureReserved(PtrArray& array, int64_t entries) {
    if (entries <= array.reserved) return;
    int64_t reserved = array.reserved > 0 ? array.reserved : 8;
    while (reserved < entries) reserved = reserved * 2;
    if (reserved > INT32_MAX - 1) throw std::bad_alloc();
    // Two header words: the previous block, and this block's size in bytes (for giving it back).
    size_t bytes = (static_cast<size_t>(reserved) + kPtrBlockHeader) * sizeof(void*);
    void** block = nullptr;
    if (bytes >= kPtrRegionFrom && bytes <= kPtrRegionBytes) {
        if ((block = static_cast<void**>(ReserveZeroedTable(kPtrRegionBytes)))) {
            bytes = kPtrRegionBytes;
            reserved = static_cast<int64_t>(bytes / sizeof(void*) - kPtrBlockHeader);
        }
    }
    if (!block) block = static_cast<void**>(AllocateZeroedTable(bytes));
    block[0] = array.data ? static_cast<void*>(array.data - kPtrBlockHeader) : nullptr;
    block[1] = reinterpret_cast<void*>(static_cast<uintptr_t>(bytes));
    void** data = block + kPtrBlockHeader;
    if (array.data) std::memcpy(data, array.data, static_cast<size_t>(array.reserved) * sizeof(void*));
    array.data = data;
    array.reserved = static_cast<int32_t>(reserved);
}

void InitPtrArray(PtrArray& array, int32_t capacity) {
    array.count = 0;
    array.capacity = capacity;
    array.data = nullptr;
    array.reserved = 0;
    array.dirtyEnd = 0;
    array.lastGrowth = 0;
    EnsureReserved(array, capacity + 1);
}

void ClearPtrArrayTail(PtrArray& array) {
    if (array.dirtyEnd > array.count) {
        std::memset(array.data + array.count, 0,
                    static_cast<size_t>(array.dirtyEnd - array.count) * sizeof(void*));
    }
    array.dirtyEnd = array.count;
}

int32_t PushPtrAny(PtrArray& array, void* value) {
    // One spare zero entry past count stays addressable for readers that look one too far. The
    // room comes first, so a push that cannot get its memory changes nothing.
    EnsureReserved(array, static_cast<int64_t>(array.count) + 2);
    array.lastGrowth = ReallocatingPushGrowth(array);
    // A push that reallocates gets a fresh zeroed array past the count.
    if (array.lastGrowth != 0) ClearPtrArrayTail(array);
    int32_t index = array.count;
    array.data[index] = value;
    array.count++;
    if (array.dirtyEnd < array.count) array.dirtyEnd = array.count;
    return index;
}

void ReservePtrArray(PtrArray& array, int32_t index) {
    EnsureReserved(array, static_cast<int64_t>(index) + 2);
}

void StorePtr(PtrArray& array, int32_t index, void* value) {
    ReservePtrArray(array, index);
    array.data[index] = value;
    if (index >= array.count && index + 1 > array.dirtyEnd) array.dirtyEnd = index + 1;
}

void FreePtrArray(PtrArray& array) {
    void** block = array.data ? array.data - kPtrBlockHeader : nullptr;
    while (block) {
        void** previous = static_cast<void**>(block[0]);
        FreeTable(block, static_cast<size_t>(reinterpret_cast<uintptr_t>(block[1])));
        block = previous;
    }
    array.data = nullptr;
    array.count = 0;
    array.reserved = 0;
    array.dirtyEnd = 0;
}

void RollBackPtrArray(PtrArray& array, const PtrArray& before) {
    int32_t end = array.count > array.dirtyEnd ? array.count : array.dirtyEnd;
    if (end > before.count) {
        std::memset(array.data + before.count, 0, static_cast<size_t>(end - before.count) * sizeof(void*));
    }
    array.count = before.count;
    array.dirtyEnd = before.dirtyEnd < before.count ? before.count : before.dirtyEnd;
    array.lastGrowth = before.lastGrowth;
}
