/* A careless host: loads the built library by path (argv[1]) and calls the exports in every way
 * the calling order does not foresee, starting before VeltJS_Init. Each case must behave as the
 * host guide says ("Calls outside the calling order"), the same on Linux and on Windows. Prints
 * one line per check and exits non-zero when any check fails; a crash ends the run early, which
 * the log shows. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "load_exports.h"
#include "veltjs.h"


static VeltJSExports api;
static int failures;

/* Lines are flushed one by one so that the log shows how far a crashing run got. */
static void Check(const char* name, int ok) {
    printf("%s %s\n", ok ? "PASS" : "FAIL", name);
    fflush(stdout);
    if (!ok) failures++;
}

static void CheckLong(const char* name, long long got, long long expected) {
    printf("%s %s", got == expected ? "PASS" : "FAIL", name);
    if (got != expected) printf(": got %lld, expected %lld", got, expected);
    printf("\n");
    fflush(stdout);
    if (got != expected) failures++;
}

static void CheckText(const char* name, const char* got, const char* expected) {
    int ok = got && strcmp(got, expected) == 0;
    printf("%s %s", ok ? "PASS" : "FAIL", name);
    if (!ok) printf(": got \"%s\", expected \"%s\"", got ? got : "(NULL)", expected);
    printf("\n");
    fflush(stdout);
    if (!ok) failures++;
}

static const char* FirstError(const CompileUnit* unit) {
    if (!unit || unit->errorCount < 1 || !unit->errors || !unit->errors[0]) return "(no message)";
    return unit->errors[0];
}

static CompileUnit* ParseAndCompile(const char* source, const char* fileName, const char* scriptName) {
    CompileUnit* unit = api.Parse(source, fileName, scriptName);
    if (unit && unit->status == 0) api.Compile(unit, 1);
    return unit;
}

/* ---- the cases ---- */

static const char kTwoParameters[] = "function g(first, second) { return second; }";

/* Before VeltJS_Init every export works; names hash with an all-zero table. */
static void CheckCallsBeforeInit(void) {
    static const char early[] = "earlyName";
    CompileUnit* unit;
    api.AddBuiltIn("early_builtin");
    api.AddName(early, 3);
    unit = ParseAndCompile(kTwoParameters, "early.js", "early");
    CheckLong("before init: parse and compile succeed", unit ? unit->status : 99, 0);
    /* b end; push.v ...: with every long name hashing alike, `second` is found as the function's
     * `arguments` entry, a plain local (push.v -12), not as a parameter (push.v -13). */
    Check("before init: names share one hash, so a parameter is read as a local",
          unit && unit->codeSize > 12 && unit->code[1] == 0xC005FFF4u);
}

static void CheckCallsAfterInit(void) {
    CompileUnit* unit = ParseAndCompile(kTwoParameters, "late.js", "late");
    CheckLong("after init: parse and compile succeed", unit ? unit->status : 99, 0);
    Check("after init: the parameter is read as the parameter in slot 1",
          unit && unit->codeSize > 12 && unit->code[1] == 0xC005FFF3u && unit->code[2] == 0xA0000001u);
}

static void CheckNullPointers(void) {
    CompileUnit* unit = api.Parse(NULL, NULL, NULL);
    CheckLong("null source, file and script names: status", unit ? unit->status : 99, 0);
    CheckText("null script name: empty script name", unit ? unit->scriptName : NULL, "");
    api.Compile(unit, 0);
    CheckLong("null source compiles to no code", unit ? unit->codeSize : -1, 0);

    unit = api.Parse("var = 1;", NULL, "main");
    CheckText("null file name: empty in the message", FirstError(unit), "Error : (1) : Got '=' (=) expected 'id'\n");

    Check("compile of a null unit returns null", api.Compile(NULL, 0) == NULL && api.Compile(NULL, 1) == NULL);
    Check("disassembly of a null pointer returns null", api.Disasm(NULL, 8) == NULL && api.Disasm(NULL, 0) == NULL);
    api.AddBuiltIn(NULL);
    Check("a null built-in name is accepted", 1);
}

static void CheckEmptyStrings(void) {
    static const uint32_t words[2] = {0xC0020000u, 7u};
    CompileUnit* unit = ParseAndCompile("", "", "");
    CheckLong("empty source, file and script names: status", unit ? unit->status : 99, 0);
    CheckLong("empty source compiles to no code", unit ? unit->codeSize : -1, 0);
    unit = api.Parse("var 1;", "", "");
    CheckText("empty file name: empty in the message", FirstError(unit), "Error : (1) : Got '1' (int) expected 'id'\n");
    api.AddBuiltIn("");
    Check("an empty built-in name is accepted", 1);
    Check("disassembly of no bytes returns null", api.Disasm(words, 0) == NULL && api.Disasm(words, -4) == NULL);
}

static void CheckUnitsUsedTwice(void) {
    CompileUnit* unit = api.Parse("var a = 1; function f() {}", "twice.js", "twice");
    uint32_t* firstCode;
    api.Compile(unit, 0);
    CheckLong("first compile: status", unit->status, 0);
    CheckLong("first compile: code size", unit->codeSize, 72);
    firstCode = unit->code;
    api.Compile(unit, 0);
    CheckLong("second compile of one unit: status", unit->status, 0);
    CheckLong("second compile starts from the first statement again: code size", unit->codeSize, 28);
    Check("second compile: new code, the first kept", unit->code != firstCode && firstCode[0] != 0);

    unit = api.Parse("var = 1;", "bad.js", "bad");
    CheckLong("failed parse: status", unit->status, 1);
    api.Compile(unit, 0);
    CheckLong("compile after a failed parse: status", unit->status, 0);
    CheckLong("compile after a failed parse: no code", unit->codeSize, 0);
    CheckLong("compile after a failed parse: no position pairs", unit->code2Size, 0);
    CheckLong("compile after a failed parse: no patch records",
              (long long)unit->varCount + unit->funcCount + unit->stringCount, 0);
    CheckLong("compile after a failed parse: only the script's own function record", unit->fourthCount, 1);
    CheckLong("compile after a failed parse: the message stays", unit->errorCount, 1);
    CheckText("compile after a failed parse: message", FirstError(unit), "Error : bad.js(1) : Got '=' (=) expected 'id'\n");
}

static void CheckNamesNoMemoryCanHold(void) {
    static const char name[] = "x";
    CompileUnit* unit;
    api.AddName(name, 0x7FFFFFF0);
    api.AddName(name, INT32_MAX);
    Check("names at ids no memory can hold are refused quietly", 1);
    unit = ParseAndCompile("var afterwards = 1;", "after.js", "after");
    CheckLong("the next compile succeeds", unit ? unit->status : 99, 0);
}

static void CheckHundredMegabyteSource(void) {
    const size_t length = 100u * 1024u * 1024u;
    char* source = (char*)malloc(length + 16);
    CompileUnit* unit;
    if (!source) {
        Check("memory for a 100 MB source", 0);
        return;
    }
    memcpy(source, "var s = \"", 9);
    memset(source + 9, 'a', length);
    memcpy(source + 9 + length, "\";", 3);
    unit = ParseAndCompile(source, "big.js", "big");
    CheckLong("100 MB string literal: status", unit ? unit->status : 99, 0);
    CheckLong("100 MB string literal: one string", unit ? unit->stringCount : -1, 1);
    if (unit && unit->status == 0 && unit->stringCount == 1) {
        CheckLong("100 MB string literal: the whole text is a name",
                  (long long)strlen(unit->names[unit->strings[0]->nameIndex]), (long long)length);
    }
    memcpy(source, "/*", 2);
    memset(source + 2, '*', length);
    memcpy(source + 2 + length, "/", 2);
    unit = ParseAndCompile(source, "comment.js", "comment");
    CheckLong("100 MB comment: status", unit ? unit->status : 99, 0);
    CheckLong("100 MB comment: no code", unit ? unit->codeSize : -1, 0);
    free(source);
}

static void CheckMillionLines(void) {
    const int lines = 1000000;
    char* source = (char*)malloc(2u * (size_t)lines + 1);
    CompileUnit* unit;
    int i;
    if (!source) {
        Check("memory for a million lines", 0);
        return;
    }
    for (i = 0; i < lines; i++) {
        source[2 * i] = 'x';
        source[2 * i + 1] = '\n';
    }
    source[2 * lines] = '\0';
    unit = ParseAndCompile(source, "lines.js", "lines");
    CheckLong("a million one-character lines: status", unit ? unit->status : 99, 0);
    CheckLong("a million one-character lines: one position pair each", unit ? unit->code2Size : -1, 8LL * lines);
    if (unit && unit->code2Size == 8LL * lines) {
        CheckLong("a million one-character lines: last statement's offset",
                  (long long)unit->code2[2 * (lines - 1) + 1] - (long long)unit->code2[1], 2LL * (lines - 1));
    }
    source[2 * lines - 2] = '\'';
    source[2 * lines - 1] = '\0';
    unit = api.Parse(source, "lines.js", "lines");
    CheckText("an error on line 1,000,000", FirstError(unit), "Error : lines.js(1000000) : unterminated string literal\n");
    free(source);
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <path of the VeltJS library>\n", argv[0]);
        return 2;
    }
    const char* missing = LoadExports(argv[1], &api);
    Check("load the library and resolve the seven exports", missing == NULL);
    if (missing) {
        printf("missing: %s\n", missing);
        return 1;
    }

    CheckCallsBeforeInit();
    api.Init();
    CheckCallsAfterInit();
    CheckNullPointers();
    CheckEmptyStrings();
    CheckUnitsUsedTwice();
    CheckNamesNoMemoryCanHold();
    CheckHundredMegabyteSource();
    CheckMillionLines();
    api.Quit();

    printf("%d check(s) failed\n", failures);
    return failures == 0 ? 0 : 1;
}
