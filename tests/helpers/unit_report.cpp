#include "helpers/unit_report.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <unordered_map>

#include "codegen/context.h"
#include "state/process_state.h"

namespace {

const char* Text(const void* text) { return text ? static_cast<const char*>(text) : "(null)"; }

void AppendPairs(std::ostringstream& out, const char* what, uint32_t count, const uint32_t* pairs) {
    out << " " << what << "[" << count << "]";
    for (uint32_t i = 0; pairs && i < count; i++) out << " " << pairs[2 * i] << "/" << pairs[2 * i + 1];
}

void AppendFunctionRecord(std::ostringstream& out, const FunctionRecord* record) {
    if (!record) {
        out << "null";
        return;
    }
    out << "name " << record->nameIndex << " declared " << record->declaredNameIndex << " at "
        << record->codeOffset << " reserved " << record->reserved0 << "," << record->reserved1 << " params["
        << record->paramCount << "]";
    for (int32_t i = 0; record->params && i < record->paramCount; i++) out << " " << record->params[i];
    AppendPairs(out, "locals", record->localCount, record->locals);
    AppendPairs(out, "slots", record->slotCount, record->slots);
    out << " flags " << record->flags;
}

void AppendPatchRecords(std::ostringstream& out, const char* what, int32_t count, PatchRecord* const* records) {
    out << what << " " << count << "\n";
    for (int32_t i = 0; records && i < count; i++) {
        const PatchRecord* record = records[i];
        out << "  " << record->nameIndex << " kind " << record->kind << " at " << record->codeOffset << "\n";
    }
}

void AppendWords(std::ostringstream& out, const char* what, const uint32_t* words, int64_t bytes) {
    out << what << " " << bytes << ":";
    char word[12];
    for (int64_t i = 0; words && i < bytes / 4; i++) {
        std::snprintf(word, sizeof word, " %08x", words[i]);
        out << word;
    }
    out << "\n";
}

void AppendArray(std::ostringstream& out, const char* what, const PtrArray& array, bool records) {
    out << what << " count " << array.count << " dirtyEnd " << array.dirtyEnd << " lastGrowth " << array.lastGrowth
        << "\n";
    int32_t end = (array.count > array.dirtyEnd ? array.count : array.dirtyEnd) + 1;
    for (int32_t i = 0; i < end; i++) {
        out << "  " << i << " " << array.data[i];
        if (!records) {
            out << " " << Text(array.data[i]);
        } else if (array.data[i] && &array == &GlobalFunctionRecords) {
            out << " ";
            AppendFunctionRecord(out, static_cast<const FunctionRecord*>(array.data[i]));
        } else if (array.data[i]) {
            const PatchRecord* record = static_cast<const PatchRecord*>(array.data[i]);
            out << " " << record->nameIndex << " kind " << record->kind << " at " << record->codeOffset;
        }
        out << "\n";
    }
}

}  // namespace

std::string DescribeFunctionRecord(const FunctionRecord* record) {
    std::ostringstream out;
    AppendFunctionRecord(out, record);
    return out.str();
}

std::string FirstDifference(const std::string& expected, const std::string& got) {
    if (expected == got) return "";
    std::istringstream expectedLines(expected);
    std::istringstream gotLines(got);
    std::string left;
    std::string right;
    for (int line = 1;; line++) {
        bool moreLeft = static_cast<bool>(std::getline(expectedLines, left));
        bool moreRight = static_cast<bool>(std::getline(gotLines, right));
        if (!moreLeft && !moreRight) return "the texts differ only in their last line break";
        if (!moreLeft) left = "(end)";
        if (!moreRight) right = "(end)";
        if (left != right || !moreLeft || !moreRight) {
            return "line " + std::to_string(line) + "\n  expected: " + left + "\n  got:      " + right + "\n";
        }
    }
}

std::string DescribeUnit(const CompileUnit* unit) {
    std::ostringstream out;
    if (!unit) return "no unit\n";
    out << "status " << unit->status << " errors " << unit->errorCount << "\n";
    for (int32_t i = 0; unit->errors && i < unit->errorCount; i++) out << "  " << Text(unit->errors[i]);
    out << "parser " << (unit->parser ? "present" : "null") << " script " << Text(unit->scriptName) << "\n";
    AppendWords(out, "code", unit->code, unit->codeSize);
    AppendWords(out, "positions", unit->code2, unit->code2Size);
    out << "names " << unit->nameCount << "\n";
    for (int32_t i = 0; unit->names && i < unit->nameCount; i++) {
        out << "  " << i << " " << Text(unit->names[i]) << "\n";
    }
    AppendPatchRecords(out, "vars", unit->varCount, unit->vars);
    AppendPatchRecords(out, "funcs", unit->funcCount, unit->funcs);
    AppendPatchRecords(out, "strings", unit->stringCount, unit->strings);
    out << "records " << unit->fourthCount << "\n";
    for (int32_t i = 0; unit->fourth && i < unit->fourthCount; i++) {
        out << "  ";
        AppendFunctionRecord(out, unit->fourth[i]);
        out << "\n";
    }
    if (unit->code && unit->codeSize > 0) {
        char* listing = VeltJS_Disasm(unit->code, unit->codeSize);
        out << Text(listing);
        std::free(listing);
    }
    return out.str();
}

std::string DescribeTables() {
    std::ostringstream out;
    AppendArray(out, "names", NameArray, false);
    AppendArray(out, "strings", GlobalStringList, true);
    AppendArray(out, "vars", GlobalVarList, true);
    AppendArray(out, "funcs", GlobalFuncList, true);
    AppendArray(out, "records", GlobalFunctionRecords, true);
    out << "built-ins " << BuiltInFunctionTable.count << "\n";
    for (int32_t bucket = 0; BuiltInFunctionTable.buckets && bucket <= BuiltInFunctionTable.mask; bucket++) {
        for (HashEntry* entry = BuiltInFunctionTable.buckets[bucket].first; entry; entry = entry->next) {
            const RefString* text = static_cast<const RefString*>(entry->value);
            out << "  " << bucket << " " << entry << " " << entry->hash << " " << Text(text ? text->text : nullptr)
                << "\n";
        }
    }
    const CodeGenGlobals& state = CodeGenState();
    out << "root " << state.root << " slots " << state.slotCounter << " anonymous " << state.anonymousCounter
        << " accessors " << state.accessorCounter << " renames " << NameOverwrites() << "\n  ";
    AppendFunctionRecord(out, state.root);
    out << "\n";
    return out.str();
}

std::string CheckTableConsistency() {
    std::ostringstream problems;
    std::unordered_map<std::string, int32_t> first;
    for (int32_t i = 0; i < NameArray.count; i++) {
        const char* text = static_cast<const char*>(NameArray.data[i]);
        if (text) first.emplace(text, i);
    }
    for (int32_t i = 0; i < NameArray.count; i++) {
        const char* text = static_cast<const char*>(NameArray.data[i]);
        if (!text) continue;
        int32_t found = FindName(text);
        if (found != first[text]) problems << "name " << i << " '" << text << "' found at " << found << "\n";
    }
    if (FindName("\x01 not a name") != -1) problems << "a name never added is found\n";
    const PtrArray* arrays[] = {&NameArray, &GlobalStringList, &GlobalVarList, &GlobalFuncList, &GlobalFunctionRecords};
    for (const PtrArray* array : arrays) {
        if (array->data[array->count] != nullptr) problems << "the entry at a count is not zero\n";
    }
    if (!FunctionRecordIndexAgrees()) problems << "the function-record index disagrees with the list\n";
    if (NameOverwrites() == 0) {
        for (int32_t position = 0; position < GlobalFunctionRecords.count; position++) {
            const FunctionRecord* record = static_cast<const FunctionRecord*>(GlobalFunctionRecords.data[position]);
            if (!record || record == CodeGenState().root) continue;
            const char* name = static_cast<const char*>(NameArray.data[record->nameIndex]);
            if (FindFunctionRecord(name) != position) {
                problems << "record " << position << " '" << Text(name) << "' is found at "
                         << FindFunctionRecord(name) << "\n";
            }
        }
    }
    return problems.str();
}
