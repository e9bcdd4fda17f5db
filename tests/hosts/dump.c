/* veltjs_dump: compiles scripts in order through a library loaded by path and writes everything
 * a host can observe of each unit to one file, in a fixed text form. Two builds of the library
 * (two commits, or Linux and Windows) that give the same file give the same results.
 *
 *   veltjs_dump LIBRARY OUTPUT [--top-level] [--no-listing] [--builtins FILE] SCRIPT...
 *   veltjs_dump LIBRARY OUTPUT [options] @LIST      (LIST holds one script path per line)
 *
 * The library's own standard-output writes stay on standard output, each script's preceded by a
 * line "=== N PATH" so that they can be compared too. */
#if defined(_WIN32)
#  include <fcntl.h>
#  include <io.h>
#endif

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "load_exports.h"
#include "veltjs.h"

static VeltJSExports api;

/* The whole file, NUL-terminated; null when it cannot be read. */
static char* ReadWholeFile(const char* path, size_t* size) {
    FILE* file = fopen(path, "rb");
    if (!file) return NULL;
    size_t capacity = 1 << 16, used = 0, got;
    char* data = (char*)malloc(capacity + 1);
    while (data && (got = fread(data + used, 1, capacity - used, file)) > 0) {
        used += got;
        if (used == capacity) {
            capacity *= 2;
            char* grown = (char*)realloc(data, capacity + 1);
            if (!grown) free(data);
            data = grown;
        }
    }
    fclose(file);
    if (!data) return NULL;
    data[used] = '\0';
    if (size) *size = used;
    return data;
}

/* Text with every byte outside printable ASCII, and the backslash, written as \xHH. */
static void WriteEscaped(FILE* out, const char* text) {
    if (!text) {
        fputs("(null)", out);
        return;
    }
    for (const unsigned char* p = (const unsigned char*)text; *p; p++) {
        if (*p >= 0x20 && *p < 0x7F && *p != '\\') fputc(*p, out);
        else fprintf(out, "\\x%02X", *p);
    }
}

static void WriteWords(FILE* out, const char* label, const uint32_t* words, int64_t bytes) {
    fprintf(out, "%s %lld", label, (long long)bytes);
    if (words) {
        for (int64_t i = 0; i < bytes / 4; i++) fprintf(out, " %08X", words[i]);
    }
    fputc('\n', out);
}

static void WritePatches(FILE* out, const char* label, PatchRecord** records, int32_t count) {
    fprintf(out, "%s %d\n", label, count);
    for (int32_t i = 0; records && i < count; i++) {
        const PatchRecord* r = records[i];
        if (!r) {
            fprintf(out, "  null\n");
            continue;
        }
        fprintf(out, "  %u %u %llu\n", r->nameIndex, r->kind, (unsigned long long)r->codeOffset);
    }
}

static void WritePairs(FILE* out, const char* label, const uint32_t* pairs, uint32_t count) {
    fprintf(out, " %s %u", label, count);
    for (uint32_t i = 0; pairs && i < count; i++) fprintf(out, " %u:%u", pairs[2 * i], pairs[2 * i + 1]);
}

static void WriteFunctions(FILE* out, FunctionRecord** records, int32_t count) {
    fprintf(out, "functions %d\n", count);
    for (int32_t i = 0; records && i < count; i++) {
        const FunctionRecord* r = records[i];
        if (!r) {
            fprintf(out, "  null\n");
            continue;
        }
        fprintf(out, "  %u %u %llu %u %u flags %u params %d", r->nameIndex, r->declaredNameIndex,
                (unsigned long long)r->codeOffset, r->reserved0, r->reserved1, r->flags, r->paramCount);
        for (int32_t k = 0; r->params && k < r->paramCount; k++) fprintf(out, " %u", r->params[k]);
        WritePairs(out, "locals", r->locals, r->localCount);
        WritePairs(out, "slots", r->slots, r->slotCount);
        fputc('\n', out);
    }
}

static int32_t namesSeen;

static void WriteUnit(FILE* out, const CompileUnit* unit, int listing) {
    fprintf(out, "status %d\n", unit->status);
    for (int32_t i = 0; unit->errors && i < unit->errorCount; i++) {
        fputs("error ", out);
        WriteEscaped(out, unit->errors[i]);
        fputc('\n', out);
    }
    WriteWords(out, "code", unit->code, unit->codeSize);
    WriteWords(out, "positions", unit->code2, unit->code2Size);
    /* The whole table is repeated in every unit; only the entries new since the last unit are
     * written, with the count, so a project's dump grows linearly. */
    fprintf(out, "names %d\n", unit->nameCount);
    for (int32_t i = namesSeen; unit->names && i < unit->nameCount; i++) {
        fprintf(out, "  %d ", i);
        WriteEscaped(out, unit->names[i]);
        fputc('\n', out);
    }
    if (unit->names && unit->nameCount > namesSeen) namesSeen = unit->nameCount;
    WritePatches(out, "vars", unit->vars, unit->varCount);
    WritePatches(out, "funcs", unit->funcs, unit->funcCount);
    WritePatches(out, "strings", unit->strings, unit->stringCount);
    WriteFunctions(out, unit->fourth, unit->fourthCount);
    if (listing && unit->code && unit->codeSize > 0) {
        char* text = api.Disasm(unit->code, unit->codeSize);
        fputs("listing\n", out);
        WriteEscaped(out, text);
        fputc('\n', out);
        free(text);
    }
}

/* The script name a host would use: the file name without folders and extension. */
static void ScriptNameOf(const char* path, char* name, size_t size) {
    const char* base = path;
    for (const char* p = path; *p; p++) {
        if (*p == '/' || *p == '\\') base = p + 1;
    }
    snprintf(name, size, "%s", base);
    char* dot = strrchr(name, '.');
    if (dot && dot != name) *dot = '\0';
}

static int DumpScript(FILE* out, const char* path, int index, uint8_t topLevel, int listing) {
    char* source = ReadWholeFile(path, NULL);
    printf("=== %d %s\n", index, path);
    fflush(stdout);
    fprintf(out, "=== %d %s\n", index, path);
    if (!source) {
        fprintf(out, "unreadable\n");
        return 1;
    }
    char scriptName[1024];
    ScriptNameOf(path, scriptName, sizeof scriptName);
    CompileUnit* unit = api.Parse(source, path, scriptName);
    if (unit && unit->status == 0) api.Compile(unit, topLevel);
    fflush(stdout);
    if (!unit) fprintf(out, "no unit\n");
    else WriteUnit(out, unit, listing);
    free(source);
    return 0;
}

static void TrimLineEnd(char* line) {
    size_t n = strlen(line);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = '\0';
}

int main(int argc, char** argv) {
#if defined(_WIN32)
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    if (argc < 4) {
        fprintf(stderr, "usage: veltjs_dump LIBRARY OUTPUT [--top-level] [--no-listing] "
                        "[--builtins FILE] SCRIPT...|@LIST\n");
        return 2;
    }
    const char* missing = LoadExports(argv[1], &api);
    if (missing) {
        fprintf(stderr, "veltjs_dump: cannot load %s (%s)\n", argv[1], missing);
        return 2;
    }
    FILE* out = fopen(argv[2], "wb");
    if (!out) {
        fprintf(stderr, "veltjs_dump: cannot write %s\n", argv[2]);
        return 2;
    }
    api.Init();
    uint8_t topLevel = 0;
    int listing = 1, index = 0, unreadable = 0;
    for (int i = 3; i < argc; i++) {
        if (strcmp(argv[i], "--top-level") == 0) {
            topLevel = 1;
        } else if (strcmp(argv[i], "--no-listing") == 0) {
            listing = 0;
        } else if (strcmp(argv[i], "--builtins") == 0 && i + 1 < argc) {
            char* names = ReadWholeFile(argv[++i], NULL);
            if (!names) {
                fprintf(stderr, "veltjs_dump: cannot read %s\n", argv[i]);
                return 2;
            }
            for (char* line = strtok(names, "\n"); line; line = strtok(NULL, "\n")) {
                TrimLineEnd(line);
                if (line[0]) api.AddBuiltIn(line);
            }
            /* The table keeps a copy of each name. */
            free(names);
        } else if (argv[i][0] == '@') {
            FILE* list = fopen(argv[i] + 1, "rb");
            if (!list) {
                fprintf(stderr, "veltjs_dump: cannot read %s\n", argv[i] + 1);
                return 2;
            }
            char line[4096];
            while (fgets(line, sizeof line, list)) {
                TrimLineEnd(line);
                if (line[0]) unreadable += DumpScript(out, line, index++, topLevel, listing);
            }
            fclose(list);
        } else {
            unreadable += DumpScript(out, argv[i], index++, topLevel, listing);
        }
    }
    fclose(out);
    return unreadable ? 1 : 0;
}
