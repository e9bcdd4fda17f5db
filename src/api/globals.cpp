#include "api/globals.h"

#include <cstring>
#include <string_view>
#include <unordered_map>

#include "api/crc32.h"

HashTable BuiltInFunctionTable;
PtrArray NameArray;
PtrArray GlobalStringList;
PtrArray GlobalVarList;
PtrArray GlobalFuncList;
PtrArray GlobalFunctionRecords;

namespace {

// Index from name text to the lowest id holding it, for entries below NameArray.count.
// Rebuilt lazily when the host overwrites an entry below count.
struct NameIndex {
    std::unordered_map<std::string_view, int32_t> ids;
    int32_t indexed = 0;   // entries [0, indexed) are in ids
    bool stale = false;
};

NameIndex& Names() {
    static NameIndex* index = new NameIndex();
    return *index;
}

void CatchUp(NameIndex& index) {
    if (index.stale) {
        index.ids.clear();
        index.indexed = 0;
        index.stale = false;
    }
    char** data = reinterpret_cast<char**>(NameArray.data);
    for (; index.indexed < NameArray.count; index.indexed++) {
        const char* text = data[index.indexed];
        if (text) index.ids.emplace(std::string_view(text), index.indexed);
    }
}

struct Tables {
    Tables() {
        InitHashTable(BuiltInFunctionTable, 32);
        InitPtrArray(NameArray, 8);
        InitPtrArray(GlobalStringList, 8);
        InitPtrArray(GlobalVarList, 8);
        InitPtrArray(GlobalFuncList, 8);
        InitPtrArray(GlobalFunctionRecords, 8);
    }
    ~Tables() {
        ClearHashTable(BuiltInFunctionTable);
        FreePtrArray(NameArray);
        FreePtrArray(GlobalStringList);
        FreePtrArray(GlobalVarList);
        FreePtrArray(GlobalFuncList);
        FreePtrArray(GlobalFunctionRecords);
    }
};

Tables tables;
uint64_t overwrites = 0;

}  // namespace

int32_t FindName(const char* text) {
    NameIndex& index = Names();
    CatchUp(index);
    auto found = index.ids.find(std::string_view(text));
    return found == index.ids.end() ? -1 : found->second;
}

int32_t PushName(const char* text) {
    int32_t id = PushPtr(NameArray, const_cast<char*>(text));
    CatchUp(Names());
    return id;
}

void PlaceName(const char* name, int32_t index) {
    char* pointer = const_cast<char*>(name);
    if (index < 0) index = 0;
    if (index > NameArray.count) {
        // The host gets a fresh zeroed array beyond count, with its entry in place.
        ClearPtrArrayTail(NameArray);
    }
    StorePtr(NameArray, index, pointer);
    if (index < NameArray.count) {
        Names().stale = true;
        overwrites++;
    }
}

uint64_t NameOverwrites() { return overwrites; }

bool IsBuiltInFunction(const char* name) {
    HashEntry* entry = HashFindFirst(BuiltInFunctionTable, NameHash(name));
    if (!entry) return false;
    const RefString* text = static_cast<const RefString*>(entry->value);
    return text && text->text && name && std::strcmp(text->text, name) == 0;
}
