#include "json_report.h"

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

namespace {

// Bytes that are not UTF-8 become U+FFFD; the document itself is therefore always valid.
std::string Dump(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

void Write(FILE* out, const std::string& text) { std::fwrite(text.data(), 1, text.size(), out); }

Json NameOrNull(uint32_t id) {
    const char* text = id == kNoName ? nullptr : NameText(id);
    return text ? Json(text) : Json(nullptr);
}

Json IndexOrNull(uint32_t id) { return id == kNoName ? Json(nullptr) : Json(id); }

Json Patches(const std::vector<PatchRecord>& records) {
    Json list = Json::array();
    for (const PatchRecord& record : records) {
        list.push_back({{"nameIndex", record.nameIndex},
                        {"name", NameOrNull(record.nameIndex)},
                        {"kind", record.kind},
                        {"codeOffset", record.codeOffset == kNoUseSite ? Json(nullptr) : Json(record.codeOffset)}});
    }
    return list;
}

Json Pairs(const std::vector<uint32_t>& pairs) {
    Json list = Json::array();
    for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
        list.push_back({{"qualifiedIndex", pairs[i]},
                        {"qualified", NameOrNull(pairs[i])},
                        {"nameIndex", pairs[i + 1]},
                        {"name", NameOrNull(pairs[i + 1])}});
    }
    return list;
}

Json Function(const FunctionData& function) {
    Json params = Json::array();
    for (uint32_t id : function.params) params.push_back({{"nameIndex", id}, {"name", NameOrNull(id)}});
    return {{"nameIndex", IndexOrNull(function.nameIndex)},
            {"name", NameOrNull(function.nameIndex)},
            {"declaredNameIndex", IndexOrNull(function.declaredNameIndex)},
            {"declaredName", NameOrNull(function.declaredNameIndex)},
            {"codeOffset", function.codeOffset},
            {"paramCount", function.paramCount},
            {"params", params},
            {"locals", Pairs(function.locals)},
            {"slots", Pairs(function.slots)},
            {"flags", function.flags}};
}

std::string Hex(const char* text) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++) {
        out += kDigits[*p >> 4];
        out += kDigits[*p & 15];
    }
    return out;
}

Json Names(const ScriptResult& result) {
    Json added = Json::array();
    Json invalid = Json::object();
    for (uint32_t id = result.firstName; id < result.nameEnd; id++) {
        const char* text = NameText(id);
        added.push_back(text ? Json(text) : Json(nullptr));
        if (text && !IsValidUtf8(text)) invalid[std::to_string(id)] = Hex(text);
    }
    return {{"first", result.firstName}, {"added", added}, {"invalid", invalid}};
}

Json ScriptObject(const ScriptResult& result) {
    Json errors = Json::array();
    for (const ErrorReport& error : result.errors) {
        errors.push_back({{"text", error.native},
                          {"message", error.message},
                          {"line", error.located ? Json(error.line) : Json(nullptr)},
                          {"column", error.located ? Json(error.column) : Json(nullptr)}});
    }
    Json object = {{"file", result.file},
                   {"script", result.script},
                   {"sourceBytes", result.sourceBytes},
                   {"status", result.status},
                   {"errors", errors},
                   {"output", result.libraryOutput}};
    if (result.status != 0) return object;
    const UnitData& unit = result.unit;
    Json positions = Json::array();
    for (size_t i = 0; i + 1 < unit.positions.size(); i += 2) positions.push_back({unit.positions[i], unit.positions[i + 1]});
    Json functions = Json::array();
    for (const FunctionData& function : unit.functions) functions.push_back(Function(function));
    object["codeBytes"] = unit.codeBytes;
    object["code"] = unit.code;
    object["listing"] = ListingOf(unit);
    object["positions"] = positions;
    object["names"] = Names(result);
    object["variablePatches"] = Patches(unit.variablePatches);
    object["functionPatches"] = Patches(unit.functionPatches);
    object["stringPatches"] = Patches(unit.stringPatches);
    object["functionRecords"] = functions;
    return object;
}

}  // namespace

bool IsValidUtf8(const std::string& text) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* end = p + text.size();
    while (p < end) {
        unsigned char lead = *p;
        if (lead < 0x80) {
            p++;
            continue;
        }
        size_t length;
        uint32_t value;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            value = lead & 0x1Fu;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            value = lead & 0x0Fu;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            value = lead & 0x07u;
        } else {
            return false;
        }
        if (static_cast<size_t>(end - p) < length) return false;
        for (size_t i = 1; i < length; i++) {
            if ((p[i] & 0xC0) != 0x80) return false;
            value = (value << 6) | (p[i] & 0x3Fu);
        }
        if ((length == 3 && value < 0x800) || (length == 4 && value < 0x10000) || value > 0x10FFFF ||
            (value >= 0xD800 && value <= 0xDFFF)) {
            return false;
        }
        p += length;
    }
    return true;
}

void BeginJsonDocument(FILE* out, const std::string& version, bool topLevel) {
    Write(out, "{\"format\":" + std::to_string(kJsonFormat) + ",\"version\":" + Dump(version) +
                   ",\"topLevel\":" + (topLevel ? "true" : "false") + ",\"scripts\":[");
}

void WriteJsonScript(FILE* out, const ScriptResult& result, bool first) {
    Write(out, (first ? "\n" : ",\n") + Dump(ScriptObject(result)));
}

void EndJsonDocument(FILE* out, const std::vector<ScriptResult>& unreadable, const RunTotals& totals) {
    Json failures = Json::array();
    for (const ScriptResult& result : unreadable) failures.push_back({{"file", result.file}, {"reason", result.readError}});
    Json summary = {{"scripts", totals.scripts},
                    {"succeeded", totals.succeeded},
                    {"failed", totals.failed},
                    {"unreadable", totals.unreadable},
                    {"sourceBytes", totals.sourceBytes}};
    Write(out, "\n],\"unreadable\":" + Dump(failures) + ",\"summary\":" + Dump(summary) + "}\n");
}

std::string JsonScriptText(const ScriptResult& result) { return Dump(ScriptObject(result)); }
