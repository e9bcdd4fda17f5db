// veltjs: the command-line host. Compiles scripts in one process, as a host tool does, and
// prints what a host would receive.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "api/strings.h"
#include "parser/node.h"
#include "parser/parser.h"
#include "veltjs.h"

namespace {

const char kUsage[] =
    "usage: veltjs [options] FILE.js...   compile the scripts in order and print the results\n"
    "       veltjs --tree FILE.js         print the syntax tree of a script\n"
    "       veltjs disasm FILE            list a raw little-endian bytecode file\n"
    "       veltjs --help                 show this help\n"
    "\n"
    "options:\n"
    "  --json               print the results as JSON\n"
    "  --top-level          compile with the top-level flag set\n"
    "  --builtin NAME       declare a runner built-in function (repeatable)\n"
    "  --builtins FILE      declare the built-in functions listed in FILE, one per line\n"
    "\n"
    "The exit status is 0 when every script compiled, 1 when one failed, 2 on a usage error.\n";

bool ReadFile(const char* path, std::string& contents) {
    FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    char buffer[65536];
    size_t read;
    while ((read = std::fread(buffer, 1, sizeof buffer, file)) > 0) contents.append(buffer, read);
    bool ok = !std::ferror(file);
    std::fclose(file);
    return ok;
}

// The script name a host would use: the file name without folders and extension.
std::string ScriptNameOf(const char* path) {
    std::string name(path);
    size_t slash = name.find_last_of("/\\");
    if (slash != std::string::npos) name = name.substr(slash + 1);
    size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name = name.substr(0, dot);
    return name;
}

std::string JsonString(const char* text) {
    if (!text) return "null";
    std::string out = "\"";
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++) {
        switch (*p) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (*p < 0x20) {
                    char escape[8];
                    std::snprintf(escape, sizeof escape, "\\u%04x", *p);
                    out += escape;
                } else {
                    out += static_cast<char>(*p);
                }
        }
    }
    return out + "\"";
}

const char* NameOf(const CompileUnit* unit, uint32_t index) {
    if (index >= static_cast<uint32_t>(unit->nameCount) || !unit->names[index]) return nullptr;
    return unit->names[index];
}

void PrintPatches(const CompileUnit* unit, const char* title, PatchRecord** records, int32_t count) {
    std::printf("%s (%d):\n", title, count);
    for (int32_t i = 0; i < count; i++) {
        const PatchRecord* record = records[i];
        const char* name = NameOf(unit, record->nameIndex);
        if (record->codeOffset == ~0ull) {
            std::printf("  %-24s kind %u  no use site\n", name ? name : "?", record->kind);
        } else {
            std::printf("  %-24s kind %u  at 0x%08llx\n", name ? name : "?", record->kind,
                        static_cast<unsigned long long>(record->codeOffset));
        }
    }
}

void PrintPairs(const CompileUnit* unit, const char* title, const uint32_t* pairs, uint32_t count) {
    std::printf("      %s:", title);
    for (uint32_t i = 0; i < count; i++) {
        const char* qualified = NameOf(unit, pairs[2 * i]);
        std::printf(" %s", qualified ? qualified : "?");
    }
    std::printf("\n");
}

void PrintText(const CompileUnit* unit, const char* path) {
    std::printf("== %s\n", path);
    std::printf("status %d\n", unit->status);
    for (int32_t i = 0; i < unit->errorCount; i++) std::printf("%s", unit->errors[i]);
    if (unit->status != 0) return;
    std::printf("code (%lld bytes):\n", static_cast<long long>(unit->codeSize));
    char* listing = VeltJS_Disasm(unit->code, unit->codeSize);
    if (listing) std::printf("%s", listing);
    std::free(listing);
    std::printf("positions (%lld pairs):", static_cast<long long>(unit->code2Size / 8));
    for (int64_t i = 0; i < unit->code2Size / 8; i++) std::printf(" %u@%u", unit->code2[2 * i], unit->code2[2 * i + 1]);
    std::printf("\nnames (%d):\n", unit->nameCount);
    for (int32_t i = 0; i < unit->nameCount; i++) std::printf("  %5d %s\n", i, unit->names[i] ? unit->names[i] : "(null)");
    PrintPatches(unit, "variable patches", unit->vars, unit->varCount);
    PrintPatches(unit, "function patches", unit->funcs, unit->funcCount);
    PrintPatches(unit, "string patches", unit->strings, unit->stringCount);
    std::printf("function records (%d):\n", unit->fourthCount);
    for (int32_t i = 0; i < unit->fourthCount; i++) {
        const FunctionRecord* record = unit->fourth[i];
        const char* name = NameOf(unit, record->nameIndex);
        std::printf("  %s  code 0x%08llx  params %d  locals %u  slots %u  flags %u\n", name ? name : "(global)",
                    static_cast<unsigned long long>(record->codeOffset), record->paramCount, record->localCount,
                    record->slotCount, record->flags);
        if (record->localCount) PrintPairs(unit, "locals", record->locals, record->localCount);
        if (record->slotCount) PrintPairs(unit, "slots", record->slots, record->slotCount);
    }
}

void PrintJsonPatches(const CompileUnit* unit, const char* key, PatchRecord** records, int32_t count) {
    std::printf(",\"%s\":[", key);
    for (int32_t i = 0; i < count; i++) {
        const PatchRecord* record = records[i];
        std::printf("%s{\"nameIndex\":%u,\"name\":%s,\"kind\":%u,\"codeOffset\":%lld}", i ? "," : "", record->nameIndex,
                    JsonString(NameOf(unit, record->nameIndex)).c_str(), record->kind,
                    record->codeOffset == ~0ull ? -1LL : static_cast<long long>(record->codeOffset));
    }
    std::printf("]");
}

void PrintJsonPairs(const char* key, const uint32_t* pairs, uint32_t count) {
    std::printf(",\"%s\":[", key);
    for (uint32_t i = 0; i < count; i++) std::printf("%s[%u,%u]", i ? "," : "", pairs[2 * i], pairs[2 * i + 1]);
    std::printf("]");
}

void PrintJson(const CompileUnit* unit, const char* path, bool first) {
    std::printf("%s{\"file\":%s,\"status\":%d,\"errors\":[", first ? "" : ",", JsonString(path).c_str(), unit->status);
    for (int32_t i = 0; i < unit->errorCount; i++) std::printf("%s%s", i ? "," : "", JsonString(unit->errors[i]).c_str());
    std::printf("]");
    if (unit->status == 0) {
        std::printf(",\"code\":[");
        for (int64_t i = 0; i < unit->codeSize / 4; i++) std::printf("%s%u", i ? "," : "", unit->code[i]);
        std::printf("]");
        char* listing = VeltJS_Disasm(unit->code, unit->codeSize);
        std::printf(",\"listing\":%s", JsonString(listing ? listing : "").c_str());
        std::free(listing);
        std::printf(",\"positions\":[");
        for (int64_t i = 0; i < unit->code2Size / 8; i++)
            std::printf("%s[%u,%u]", i ? "," : "", unit->code2[2 * i], unit->code2[2 * i + 1]);
        std::printf("],\"names\":[");
        for (int32_t i = 0; i < unit->nameCount; i++) std::printf("%s%s", i ? "," : "", JsonString(unit->names[i]).c_str());
        std::printf("]");
        PrintJsonPatches(unit, "variablePatches", unit->vars, unit->varCount);
        PrintJsonPatches(unit, "functionPatches", unit->funcs, unit->funcCount);
        PrintJsonPatches(unit, "stringPatches", unit->strings, unit->stringCount);
        std::printf(",\"functionRecords\":[");
        for (int32_t i = 0; i < unit->fourthCount; i++) {
            const FunctionRecord* record = unit->fourth[i];
            std::printf("%s{\"nameIndex\":%d,\"name\":%s,\"declaredNameIndex\":%d,\"codeOffset\":%llu,\"paramCount\":%d",
                        i ? "," : "", static_cast<int32_t>(record->nameIndex), JsonString(NameOf(unit, record->nameIndex)).c_str(),
                        static_cast<int32_t>(record->declaredNameIndex),
                        static_cast<unsigned long long>(record->codeOffset), record->paramCount);
            std::printf(",\"params\":[");
            for (int32_t p = 0; p < record->paramCount; p++) std::printf("%s%u", p ? "," : "", record->params[p]);
            std::printf("]");
            PrintJsonPairs("locals", record->locals, record->localCount);
            PrintJsonPairs("slots", record->slots, record->slotCount);
            std::printf(",\"flags\":%u}", record->flags);
        }
        std::printf("]");
    }
    std::printf("}");
}

int Disasm(const char* path) {
    std::string contents;
    if (!ReadFile(path, contents)) {
        std::fprintf(stderr, "veltjs: cannot read %s\n", path);
        return 2;
    }
    // Whole words only, padded with zeros so an instruction cut off at the end reads safely.
    std::vector<uint32_t> words((contents.size() + 3) / 4 + 3, 0);
    std::memcpy(words.data(), contents.data(), contents.size());
    char* listing = VeltJS_Disasm(words.data(), static_cast<int64_t>(contents.size()));
    if (listing) std::fputs(listing, stdout);
    std::free(listing);
    return 0;
}

int Tree(const char* path) {
    std::string source;
    if (!ReadFile(path, source)) {
        std::fprintf(stderr, "veltjs: cannot read %s\n", path);
        return 2;
    }
    CompileUnit* unit = VeltJS_Parse(source.c_str(), path, ScriptNameOf(path).c_str());
    if (unit->status != 0) {
        for (int32_t i = 0; i < unit->errorCount; i++) std::fputs(unit->errors[i], stderr);
        return 1;
    }
    RefString* dump = DumpTree(&static_cast<Parser*>(unit->parser)->root, 0);
    std::printf("%s\n", dump->text);
    return 0;
}

bool DeclareBuiltIns(const char* path) {
    std::string contents;
    if (!ReadFile(path, contents)) return false;
    size_t start = 0;
    while (start < contents.size()) {
        size_t end = contents.find_first_of("\r\n", start);
        if (end == std::string::npos) end = contents.size();
        std::string name = contents.substr(start, end - start);
        // The table keeps its own copy of the name.
        if (!name.empty()) VeltJS_AddBuiltInFunction(name.c_str());
        start = end + 1;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    VeltJS_Init();
    if (std::strcmp(argv[1], "disasm") == 0) {
        if (argc != 3) {
            std::fputs(kUsage, stderr);
            return 2;
        }
        return Disasm(argv[2]);
    }
    if (std::strcmp(argv[1], "--tree") == 0) {
        if (argc != 3) {
            std::fputs(kUsage, stderr);
            return 2;
        }
        return Tree(argv[2]);
    }

    bool json = false;
    uint8_t topLevel = 0;
    std::vector<const char*> files;
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--json") == 0) {
            json = true;
        } else if (std::strcmp(argv[i], "--top-level") == 0) {
            topLevel = 1;
        } else if (std::strcmp(argv[i], "--builtin") == 0 && i + 1 < argc) {
            VeltJS_AddBuiltInFunction(argv[++i]);
        } else if (std::strcmp(argv[i], "--builtins") == 0 && i + 1 < argc) {
            if (!DeclareBuiltIns(argv[++i])) {
                std::fprintf(stderr, "veltjs: cannot read %s\n", argv[i]);
                return 2;
            }
        } else if (argv[i][0] == '-' && argv[i][1] == '-') {
            std::fprintf(stderr, "veltjs: unknown option %s\n", argv[i]);
            return 2;
        } else {
            files.push_back(argv[i]);
        }
    }
    if (files.empty()) {
        std::fputs(kUsage, stderr);
        return 2;
    }

    int exitCode = 0;
    if (json) std::printf("[");
    for (size_t i = 0; i < files.size(); i++) {
        std::string source;
        if (!ReadFile(files[i], source)) {
            std::fprintf(stderr, "veltjs: cannot read %s\n", files[i]);
            return 2;
        }
        CompileUnit* unit = VeltJS_Parse(source.c_str(), files[i], ScriptNameOf(files[i]).c_str());
        if (unit->status == 0) VeltJS_Compile(unit, topLevel);
        if (unit->status != 0) exitCode = 1;
        if (json) {
            PrintJson(unit, files[i], i == 0);
        } else {
            PrintText(unit, files[i]);
        }
    }
    if (json) std::printf("]\n");
    return exitCode;
}
