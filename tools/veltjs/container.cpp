#include "container.h"

#include <algorithm>
#include <cstring>

namespace {

const char kMagic[4] = {'V', 'J', 'C', '\0'};
constexpr uint32_t kWholeContainer = 0xFFFFFFFFu;
constexpr uint32_t kUnitTopLevel = 1;

// Section tags, as their four ASCII bytes read as a little-endian word.
constexpr uint32_t Tag(const char (&text)[5]) {
    return static_cast<uint32_t>(static_cast<unsigned char>(text[0])) |
           static_cast<uint32_t>(static_cast<unsigned char>(text[1])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(text[2])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(text[3])) << 24;
}
constexpr uint32_t kNames = Tag("NAME");
constexpr uint32_t kUnit = Tag("UNIT");
constexpr uint32_t kCode = Tag("CODE");
constexpr uint32_t kPositions = Tag("POSN");
constexpr uint32_t kVariablePatches = Tag("VARP");
constexpr uint32_t kFunctionPatches = Tag("FUNP");
constexpr uint32_t kStringPatches = Tag("STRP");
constexpr uint32_t kFunctionRecords = Tag("FREC");

struct Writer {
    std::string bytes;
};

void Put32(Writer& out, uint32_t value) {
    for (int i = 0; i < 4; i++) out.bytes += static_cast<char>((value >> (8 * i)) & 0xFF);
}

void Put64(Writer& out, uint64_t value) {
    Put32(out, static_cast<uint32_t>(value));
    Put32(out, static_cast<uint32_t>(value >> 32));
}

void PadTo4(Writer& out) {
    while (out.bytes.size() % 4) out.bytes += '\0';
}

void PutText(Writer& out, const std::string& text) {
    Put32(out, static_cast<uint32_t>(text.size()));
    out.bytes += text;
    PadTo4(out);
}

void PutWords(Writer& out, const std::vector<uint32_t>& words) {
    for (uint32_t word : words) Put32(out, word);
}

void PutSection(Writer& out, uint32_t tag, uint32_t unit, const Writer& payload, uint32_t& sections) {
    Put32(out, tag);
    Put32(out, unit);
    Put64(out, payload.bytes.size());
    out.bytes += payload.bytes;
    PadTo4(out);
    sections++;
}

Writer Patches(const std::vector<PatchRecord>& records) {
    Writer payload;
    Put32(payload, static_cast<uint32_t>(records.size()));
    for (const PatchRecord& record : records) {
        Put32(payload, record.nameIndex);
        Put32(payload, record.kind);
        Put64(payload, record.codeOffset);
    }
    return payload;
}

Writer Functions(const std::vector<FunctionData>& functions) {
    Writer payload;
    Put32(payload, static_cast<uint32_t>(functions.size()));
    for (const FunctionData& function : functions) {
        Put32(payload, function.nameIndex);
        Put32(payload, function.declaredNameIndex);
        Put64(payload, function.codeOffset);
        Put32(payload, static_cast<uint32_t>(function.paramCount));
        Put32(payload, static_cast<uint32_t>(function.params.size()));
        Put32(payload, static_cast<uint32_t>(function.locals.size() / 2));
        Put32(payload, static_cast<uint32_t>(function.slots.size() / 2));
        Put32(payload, function.flags);
        PutWords(payload, function.params);
        PutWords(payload, function.locals);
        PutWords(payload, function.slots);
    }
    return payload;
}

// Reads little-endian values from a range; every read is checked against the range's end.
struct Reader {
    const unsigned char* at;
    const unsigned char* end;
    bool failed = false;

    size_t Left() const { return static_cast<size_t>(end - at); }

    bool Take(size_t count) {
        if (failed || Left() < count) {
            failed = true;
            return false;
        }
        return true;
    }

    uint32_t Get32() {
        if (!Take(4)) return 0;
        uint32_t value = static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
                         static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24;
        at += 4;
        return value;
    }

    uint64_t Get64() {
        uint64_t low = Get32();
        uint64_t high = Get32();
        return low | high << 32;
    }

    void Skip(size_t count) {
        if (Take(count)) at += count;
    }

    void SkipPadding(size_t length) { Skip((4 - length % 4) % 4); }

    std::string GetText() {
        uint32_t length = Get32();
        if (!Take(length)) return std::string();
        std::string text(reinterpret_cast<const char*>(at), length);
        at += length;
        SkipPadding(length);
        return text;
    }

    // `count` words, refused when the range cannot hold them (no allocation from a bad count).
    std::vector<uint32_t> GetWords(uint64_t count) {
        if (count > Left() / 4) {
            failed = true;
            return {};
        }
        std::vector<uint32_t> words(static_cast<size_t>(count));
        for (uint32_t& word : words) word = Get32();
        return words;
    }
};

bool ReadPatches(Reader& in, std::vector<PatchRecord>& records) {
    uint32_t count = in.Get32();
    if (count > in.Left() / 16) return false;
    records.resize(count);
    for (PatchRecord& record : records) {
        record.nameIndex = in.Get32();
        record.kind = in.Get32();
        record.codeOffset = in.Get64();
    }
    return !in.failed;
}

bool ReadFunctions(Reader& in, std::vector<FunctionData>& functions) {
    uint32_t count = in.Get32();
    if (count > in.Left() / 36) return false;
    functions.resize(count);
    for (FunctionData& function : functions) {
        function.nameIndex = in.Get32();
        function.declaredNameIndex = in.Get32();
        function.codeOffset = in.Get64();
        function.paramCount = static_cast<int32_t>(in.Get32());
        uint32_t params = in.Get32();
        uint32_t locals = in.Get32();
        uint32_t slots = in.Get32();
        function.flags = in.Get32();
        function.params = in.GetWords(params);
        function.locals = in.GetWords(2ull * locals);
        function.slots = in.GetWords(2ull * slots);
        if (in.failed) return false;
    }
    return true;
}

bool ReadNames(Reader& in, Container& container) {
    uint32_t count = in.Get32();
    if (count > in.Left() / 8) return false;
    container.names.reserve(count);
    for (uint32_t i = 0; i < count; i++) {
        uint32_t id = in.Get32();
        std::string text = in.GetText();
        if (in.failed || id >= kContainerMaxNameId) return false;
        if (!container.names.empty() && id <= container.names.back().first) return false;
        if (text.find('\0') != std::string::npos) return false;
        container.names.emplace_back(id, std::move(text));
    }
    return true;
}

}  // namespace

std::string EncodeContainer(const std::vector<UnitData>& units) {
    std::vector<uint32_t> ids;
    for (const UnitData& unit : units) {
        std::vector<uint32_t> used = NamesUsed(unit);
        ids.insert(ids.end(), used.begin(), used.end());
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());

    Writer body;
    uint32_t sections = 0;
    Writer names;
    uint32_t nameCount = 0;
    for (uint32_t id : ids) {
        const char* text = NameText(id);
        if (text && id < kContainerMaxNameId) nameCount++;
    }
    Put32(names, nameCount);
    for (uint32_t id : ids) {
        const char* text = NameText(id);
        if (!text || id >= kContainerMaxNameId) continue;
        Put32(names, id);
        PutText(names, text);
    }
    PutSection(body, kNames, kWholeContainer, names, sections);

    for (size_t i = 0; i < units.size(); i++) {
        const UnitData& unit = units[i];
        uint32_t index = static_cast<uint32_t>(i);
        Writer header;
        Put32(header, unit.topLevel ? kUnitTopLevel : 0);
        PutText(header, unit.file);
        PutText(header, unit.script);
        PutSection(body, kUnit, index, header, sections);
        Writer code;
        PutWords(code, unit.code);
        code.bytes.resize(static_cast<size_t>(unit.codeBytes));
        PutSection(body, kCode, index, code, sections);
        Writer positions;
        PutWords(positions, unit.positions);
        PutSection(body, kPositions, index, positions, sections);
        PutSection(body, kVariablePatches, index, Patches(unit.variablePatches), sections);
        PutSection(body, kFunctionPatches, index, Patches(unit.functionPatches), sections);
        PutSection(body, kStringPatches, index, Patches(unit.stringPatches), sections);
        PutSection(body, kFunctionRecords, index, Functions(unit.functions), sections);
    }

    Writer out;
    out.bytes.append(kMagic, sizeof kMagic);
    Put32(out, kContainerVersion);
    Put32(out, static_cast<uint32_t>(units.size()));
    Put32(out, sections);
    out.bytes += body.bytes;
    return out.bytes;
}

bool LooksLikeContainer(const std::string& bytes) {
    return bytes.size() >= sizeof kMagic && std::memcmp(bytes.data(), kMagic, sizeof kMagic) == 0;
}

bool DecodeContainer(const std::string& bytes, Container& container, std::string& error) {
    container = Container{};
    if (!LooksLikeContainer(bytes)) {
        error = "not a unit container";
        return false;
    }
    const unsigned char* start = reinterpret_cast<const unsigned char*>(bytes.data());
    Reader in{start + sizeof kMagic, start + bytes.size()};
    uint32_t version = in.Get32();
    uint32_t unitCount = in.Get32();
    uint32_t sectionCount = in.Get32();
    if (in.failed) {
        error = "truncated header";
        return false;
    }
    if (version != kContainerVersion) {
        error = "format version " + std::to_string(version) + " (this veltjs reads version " +
                std::to_string(kContainerVersion) + ")";
        return false;
    }
    // Every unit has at least its UNIT section, 16 bytes of header and 12 of payload.
    if (unitCount > in.Left() / 28) {
        error = "unit count larger than the file";
        return false;
    }
    container.units.resize(unitCount);
    std::vector<bool> seen(unitCount, false);
    bool namesSeen = false;
    for (uint32_t i = 0; i < sectionCount; i++) {
        uint32_t tag = in.Get32();
        uint32_t unit = in.Get32();
        uint64_t length = in.Get64();
        if (in.failed || length > in.Left()) {
            error = "truncated section";
            return false;
        }
        Reader payload{in.at, in.at + length};
        in.Skip(static_cast<size_t>(length));
        in.SkipPadding(static_cast<size_t>(length % 4));
        if (in.failed) {
            error = "truncated section";
            return false;
        }
        bool ok = true;
        if (tag == kNames) {
            ok = unit == kWholeContainer && !namesSeen && ReadNames(payload, container);
            namesSeen = true;
        } else if (tag == kUnit || tag == kCode || tag == kPositions || tag == kVariablePatches ||
                   tag == kFunctionPatches || tag == kStringPatches || tag == kFunctionRecords) {
            if (unit >= unitCount) {
                error = "section for unit " + std::to_string(unit) + " of " + std::to_string(unitCount);
                return false;
            }
            UnitData& data = container.units[unit];
            if (tag == kUnit) {
                uint32_t flags = payload.Get32();
                data.topLevel = (flags & kUnitTopLevel) != 0;
                data.file = payload.GetText();
                data.script = payload.GetText();
                ok = !payload.failed;
                seen[unit] = true;
            } else if (tag == kCode) {
                data.codeBytes = length;
                data.code.assign((length + 3) / 4, 0);
                for (uint64_t b = 0; b < length; b++) {
                    data.code[b / 4] |= static_cast<uint32_t>(payload.at[b]) << (8 * (b % 4));
                }
            } else if (tag == kPositions) {
                data.positions = payload.GetWords(length / 8 * 2);
                ok = !payload.failed && length % 8 == 0;
            } else if (tag == kVariablePatches) {
                ok = ReadPatches(payload, data.variablePatches);
            } else if (tag == kFunctionPatches) {
                ok = ReadPatches(payload, data.functionPatches);
            } else if (tag == kStringPatches) {
                ok = ReadPatches(payload, data.stringPatches);
            } else {
                ok = ReadFunctions(payload, data.functions);
            }
        }
        // Sections with other tags are skipped: a later tool may add sections that this one ignores.
        if (!ok || payload.failed) {
            error = "malformed section";
            return false;
        }
    }
    for (uint32_t unit = 0; unit < unitCount; unit++) {
        if (!seen[unit]) {
            error = "unit " + std::to_string(unit) + " has no UNIT section";
            return false;
        }
    }
    return true;
}
