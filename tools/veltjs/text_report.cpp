#include "text_report.h"

#include <cinttypes>

namespace {

void WritePatches(FILE* out, const char* title, const std::vector<PatchRecord>& records) {
    std::fprintf(out, "%s (%zu):\n", title, records.size());
    for (const PatchRecord& record : records) {
        std::string name = DisplayName(record.nameIndex);
        if (record.codeOffset == kNoUseSite) {
            std::fprintf(out, "  %-24s kind %" PRIu32 "  no use site\n", name.c_str(), record.kind);
        } else {
            std::fprintf(out, "  %-24s kind %" PRIu32 "  at 0x%08" PRIx64 "\n", name.c_str(), record.kind,
                         record.codeOffset);
        }
    }
}

void WritePairs(FILE* out, const char* title, const std::vector<uint32_t>& pairs) {
    if (pairs.empty()) return;
    std::fprintf(out, "    %s:", title);
    for (size_t i = 0; i + 1 < pairs.size(); i += 2) std::fprintf(out, " %s", DisplayName(pairs[i]).c_str());
    std::fprintf(out, "\n");
}

void WriteFunction(FILE* out, const FunctionData& function) {
    std::string name = function.nameIndex == kNoName ? "(global)" : DisplayName(function.nameIndex);
    std::fprintf(out, "  %s", name.c_str());
    if (function.declaredNameIndex != kNoName) {
        std::fprintf(out, "  declared %s", DisplayName(function.declaredNameIndex).c_str());
    }
    std::fprintf(out, "  code 0x%08" PRIx64 "  params %" PRId32, function.codeOffset, function.paramCount);
    if (!function.params.empty()) {
        std::fprintf(out, " (");
        for (size_t i = 0; i < function.params.size(); i++) {
            std::fprintf(out, "%s%s", i ? ", " : "", DisplayName(function.params[i]).c_str());
        }
        std::fprintf(out, ")");
    }
    std::fprintf(out, "  locals %zu  slots %zu  flags %" PRIu32 "\n", function.locals.size() / 2,
                 function.slots.size() / 2, function.flags);
    WritePairs(out, "locals", function.locals);
    WritePairs(out, "slots", function.slots);
}

}  // namespace

std::string DisplayName(uint32_t id) {
    if (id >= NameTableCount()) return "<unknown " + std::to_string(id) + ">";
    const char* text = NameText(id);
    if (!text) return "(null)";
    std::string shown;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++) {
        switch (*p) {
            case '\\': shown += "\\\\"; break;
            case '\n': shown += "\\n"; break;
            case '\r': shown += "\\r"; break;
            case '\t': shown += "\\t"; break;
            default:
                if (*p < 0x20 || *p == 0x7F) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\x%02x", *p);
                    shown += escape;
                } else {
                    shown += static_cast<char>(*p);
                }
        }
    }
    return shown;
}

void WriteUnitText(FILE* out, const UnitData& unit, const std::string& listing, const char* namesTitle,
                   const std::vector<uint32_t>& nameIds) {
    std::fprintf(out, "== %s\n", unit.file.c_str());
    std::fprintf(out, "code (%" PRIu64 " bytes):\n", unit.codeBytes);
    std::fwrite(listing.data(), 1, listing.size(), out);
    std::fprintf(out, "positions (%zu):", unit.positions.size() / 2);
    for (size_t i = 0; i + 1 < unit.positions.size(); i += 2) {
        std::fprintf(out, " %" PRIu32 "@%" PRIu32, unit.positions[i], unit.positions[i + 1]);
    }
    std::fprintf(out, "\n%s (%zu):\n", namesTitle, nameIds.size());
    for (uint32_t id : nameIds) std::fprintf(out, "  %6" PRIu32 "  %s\n", id, DisplayName(id).c_str());
    WritePatches(out, "variable patches", unit.variablePatches);
    WritePatches(out, "function patches", unit.functionPatches);
    WritePatches(out, "string patches", unit.stringPatches);
    std::fprintf(out, "function records (%zu):\n", unit.functions.size());
    for (const FunctionData& function : unit.functions) WriteFunction(out, function);
}
