/* An example host: compiles one script with VeltJS and prints what a host receives.
 *
 *   host SCRIPT.js [BUILTINS.txt]
 *
 * BUILTINS.txt names the runner's built-in functions, one per line. The listing, the position
 * pairs, the patch records and the function records go to standard output; a diagnostic goes to
 * standard error. The exit status is 0 when the script compiled and 1 otherwise. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "veltjs.h"

/* The whole file as a NUL-terminated string, or NULL. The caller frees it. */
static char* ReadFile(const char* path) {
    FILE* file = fopen(path, "rb");
    if (!file) return NULL;
    size_t size = 0, capacity = 4096;
    char* text = malloc(capacity);
    size_t read;
    while (text && (read = fread(text + size, 1, capacity - size - 1, file)) > 0) {
        size += read;
        if (capacity - size - 1 == 0) {
            char* grown = realloc(text, capacity * 2);
            if (!grown) free(text);
            text = grown;
            capacity *= 2;
        }
    }
    if (text && ferror(file)) {
        free(text);
        text = NULL;
    }
    fclose(file);
    if (text) text[size] = '\0';
    return text;
}

/* Declares every non-empty line of the file as a built-in function (the library copies it). */
static int DeclareBuiltIns(const char* path) {
    char* text = ReadFile(path);
    if (!text) return 0;
    for (char* line = strtok(text, "\r\n"); line; line = strtok(NULL, "\r\n")) {
        VeltJS_AddBuiltInFunction(line);
    }
    free(text);
    return 1;
}

/* The script name names anonymous functions: the file name without folders and extension. */
static void ScriptNameOf(const char* path, char* name, size_t size) {
    const char* start = path;
    for (const char* p = path; *p; p++) {
        if (*p == '/' || *p == '\\') start = p + 1;
    }
    snprintf(name, size, "%s", start);
    char* dot = strrchr(name, '.');
    if (dot && dot != name) *dot = '\0';
}

/* Entry i of the name table is the text of name id i; ids past the count have no text. */
static const char* NameOf(const CompileUnit* unit, uint32_t id) {
    if (id >= (uint32_t)unit->nameCount || !unit->names[id]) return "?";
    return unit->names[id];
}

/* The disassembly of the code: one line per instruction, a text the caller frees. */
static void PrintListing(const CompileUnit* unit) {
    printf("code (%" PRId64 " bytes)\n", unit->codeSize);
    char* listing = VeltJS_Disasm(unit->code, unit->codeSize);
    if (listing) fputs(listing, stdout);
    free(listing);
}

/* One (code offset, source offset) pair per compiled statement. */
static void PrintPositions(const CompileUnit* unit) {
    printf("positions (%" PRId64 ")\n", unit->code2Size / 8);
    for (int64_t i = 0; i < unit->code2Size / 8; i++) {
        printf("  code 0x%08" PRIx32 "  source %" PRIu32 "\n", unit->code2[2 * i],
               unit->code2[2 * i + 1]);
    }
}

/* Variable and function patches point at the instruction word: the host rewrites the operand
 * word after it. A string patch points at that operand word itself. */
static void PrintPatches(const CompileUnit* unit, const char* title, PatchRecord** records,
                         int32_t count, uint64_t operandDistance) {
    printf("%s (%d)\n", title, count);
    for (int32_t i = 0; i < count; i++) {
        const PatchRecord* record = records[i];
        printf("  %-16s id %-4" PRIu32 " kind %" PRIu32, NameOf(unit, record->nameIndex),
               record->nameIndex, record->kind);
        if (record->codeOffset == UINT64_MAX) {
            printf("  no use site\n");
            continue;
        }
        uint64_t operand = record->codeOffset + operandDistance;
        printf("  at 0x%08" PRIx64, record->codeOffset);
        if (operand + 4 > (uint64_t)unit->codeSize) {
            printf("  operand outside the code\n");
        } else {
            printf("  operand 0x%08" PRIx64 " = 0x%08" PRIx32 "\n", operand, unit->code[operand / 4]);
        }
    }
}

/* locals and slots hold (qualified name id, name id) pairs. */
static void PrintPairs(const CompileUnit* unit, const char* what, const uint32_t* pairs,
                       uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        printf("    %s %s (id %" PRIu32 "), qualified %s (id %" PRIu32 ")\n", what,
               NameOf(unit, pairs[2 * i + 1]), pairs[2 * i + 1], NameOf(unit, pairs[2 * i]),
               pairs[2 * i]);
    }
}

static void PrintFunctionRecords(const CompileUnit* unit) {
    printf("function records (%d)\n", unit->fourthCount);
    for (int32_t i = 0; i < unit->fourthCount; i++) {
        const FunctionRecord* record = unit->fourth[i];
        if (record->nameIndex == UINT32_MAX) {
            printf("  (script)");
        } else {
            printf("  %s (id %" PRIu32 "), declared %s (id %" PRIu32 ")",
                   NameOf(unit, record->nameIndex), record->nameIndex,
                   NameOf(unit, record->declaredNameIndex), record->declaredNameIndex);
        }
        printf("  code 0x%08" PRIx64 "  flags %" PRIu32 "\n", record->codeOffset, record->flags);
        for (int32_t p = 0; p < record->paramCount; p++) {
            printf("    param %s (id %" PRIu32 ")\n", NameOf(unit, record->params[p]),
                   record->params[p]);
        }
        PrintPairs(unit, "local", record->locals, record->localCount);
        PrintPairs(unit, "slot", record->slots, record->slotCount);
    }
}

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fputs("usage: host SCRIPT.js [BUILTINS.txt]\n", stderr);
        return 1;
    }
    char* source = ReadFile(argv[1]);
    if (!source) {
        fprintf(stderr, "host: cannot read %s\n", argv[1]);
        return 1;
    }

    VeltJS_Init();
    if (argc == 3 && !DeclareBuiltIns(argv[2])) {
        fprintf(stderr, "host: cannot read %s\n", argv[2]);
        free(source);
        return 1;
    }

    char scriptName[256];
    ScriptNameOf(argv[1], scriptName, sizeof scriptName);
    CompileUnit* unit = VeltJS_Parse(source, argv[1], scriptName);
    free(source); /* the unit keeps its own copies */
    if (!unit) {
        fputs("host: out of memory\n", stderr);
        return 1;
    }
    if (unit->status == 0) VeltJS_Compile(unit, 0);
    if (unit->status != 0) {
        fputs(unit->errors[0], stderr); /* "Error : file(line) : message\n" */
        return 1;
    }

    PrintListing(unit);
    PrintPositions(unit);
    PrintPatches(unit, "variable patches", unit->vars, unit->varCount, 4);
    PrintPatches(unit, "function patches", unit->funcs, unit->funcCount, 4);
    PrintPatches(unit, "string patches", unit->strings, unit->stringCount, 0);
    PrintFunctionRecords(unit);
    return 0;
}
