/* Branches at the edge of their field, through a library loaded by path (argv[1]), on every
 * platform. A branch word holds a signed 23-bit word offset; a compile whose branch would need
 * 2^22 words or more either way fails with "branch offset out of range" instead of writing a
 * masked offset that jumps elsewhere.
 *
 * The scripts pad a block with "x = x + 1;" (6 words each), "1;" (2 words) and "x;" (3 words):
 *   if (a) { BODY }: the bf after the condition's three words jumps 1 + |BODY| words forward;
 *   do { BODY } while (a);: the bt after BODY and the condition's three words jumps
 *   |BODY| + 3 words back to the start of BODY.
 *   outer: do { break outer; BODY } while (a);: the b of the break jumps over itself, BODY, the
 *   condition's three words and the bt, |BODY| + 5 words forward, to the loop's end; the bt jumps
 *   one word less back, so the break is the longest branch.
 * Prints one line per check and exits non-zero when any fails. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "load_exports.h"
#include "veltjs.h"

static VeltJSExports api;
static int failures;

static void Check(const char* name, int ok, const char* detail) {
    printf("%s %s", ok ? "PASS" : "FAIL", name);
    if (!ok && detail) printf(": %s", detail);
    printf("\n");
    fflush(stdout);
    if (!ok) failures++;
}

static void CheckWord(const char* name, uint32_t got, uint32_t expected) {
    char detail[64];
    snprintf(detail, sizeof detail, "got %08X, expected %08X", got, expected);
    Check(name, got == expected, detail);
}

/* prefix, `count` copies of `unit`, suffix: one NUL-terminated script. */
static char* Script(const char* prefix, const char* pad, const char* unit, long count, const char* suffix) {
    size_t unitLength = strlen(unit);
    size_t size = strlen(prefix) + strlen(pad) + unitLength * (size_t)count + strlen(suffix) + 1;
    char* text = (char*)malloc(size);
    if (!text) return NULL;
    char* at = text;
    at += sprintf(at, "%s%s", prefix, pad);
    for (long i = 0; i < count; i++, at += unitLength) memcpy(at, unit, unitLength);
    strcpy(at, suffix);
    return text;
}

static CompileUnit* ParseAndCompile(char* source) {
    if (!source) return NULL;
    CompileUnit* unit = api.Parse(source, "range.js", "range");
    free(source);
    if (unit && unit->status == 0) api.Compile(unit, 1);
    return unit;
}

static const char kIncrement[] = "x = x + 1;";
static const char kOutOfRange[] = "Error : range.js(2) : branch offset out of range\n";

static void CheckOutOfRange(const char* name, const CompileUnit* unit) {
    char label[128];
    snprintf(label, sizeof label, "%s: status 1", name);
    Check(label, unit && unit->status == 1, NULL);
    snprintf(label, sizeof label, "%s: the message", name);
    Check(label, unit && unit->errorCount == 1 && unit->errors && strcmp(unit->errors[0], kOutOfRange) == 0,
          unit && unit->errorCount > 0 && unit->errors ? unit->errors[0] : "no message");
}

/* bf over 1 + 6 * 699050 + 2 = 4194303 = 2^22 - 1 words: the longest forward branch. */
static void CheckForwardAtTheLimit(void) {
    CompileUnit* unit = ParseAndCompile(Script("y = 0;\nif (a) {\n", "1;", kIncrement, 699050, "\n} y = 2;"));
    Check("forward 2^22 - 1 words: status 0", unit && unit->status == 0, NULL);
    if (!unit || unit->status != 0 || !unit->code) return;
    /* y = 0 (3 words), a and its conversion (3 words), then the bf. */
    const int64_t words = unit->codeSize / 4;
    Check("forward 2^22 - 1 words: code size", words == 3 + 3 + 1 + 4194302 + 3, NULL);
    if (words != 3 + 3 + 1 + 4194302 + 3) return;
    CheckWord("forward 2^22 - 1 words: the bf", unit->code[6], 0xB83FFFFFu);
    /* Its target, 4194303 words on, is the first word of y = 2 (push of 2). */
    CheckWord("forward 2^22 - 1 words: its target", unit->code[6 + 4194303], 0xC00F0002u);
}

/* bf over 1 + 6 * 699050 + 3 = 2^22 words. */
static void CheckForwardPastTheLimit(void) {
    CheckOutOfRange("forward 2^22 words",
                    ParseAndCompile(Script("y = 0;\nif (a) {\n", "x;", kIncrement, 699050, "\n} y = 2;")));
}

/* bt back over 6 * 699050 + 3 = 4194303 words: the longest backward branch. */
static void CheckBackwardAtTheLimit(void) {
    CompileUnit* unit = ParseAndCompile(Script("y = 0;\ndo {\n", "", kIncrement, 699050, "\n} while (a);"));
    Check("backward 2^22 - 1 words: status 0", unit && unit->status == 0, NULL);
    if (!unit || unit->status != 0 || !unit->code) return;
    const int64_t words = unit->codeSize / 4;
    Check("backward 2^22 - 1 words: code size", words == 3 + 4194300 + 3 + 1, NULL);
    if (words != 3 + 4194300 + 3 + 1) return;
    /* -4194303 in 23 bits is 0x400001; the target is the body's first word (push of x). */
    CheckWord("backward 2^22 - 1 words: the bt", unit->code[words - 1], 0xB7400001u);
    CheckWord("backward 2^22 - 1 words: its target", unit->code[words - 1 - 4194303], 0xC005FFF5u);
    Check("backward 2^22 - 1 words: the target starts the body", words - 1 - 4194303 == 3, NULL);
}

/* bt back over 6 * 699049 + 3 + 2 * 2 + 3 = 2^22 words. */
static void CheckBackwardPastTheLimit(void) {
    CheckOutOfRange("backward 2^22 words",
                    ParseAndCompile(Script("y = 0;\ndo {\n", "x;1;1;", kIncrement, 699049, "\n} while (a);")));
}

static const char kNamedBreak[] = "y = 0;\nouter: do {\nbreak outer;\n";
static const char kNamedBreakEnd[] = "\n} while (a);\ny = 2;";

/* break outer over 6 * 699049 + 2 * 2 + 5 = 4194303 words: the longest forward branch, through
 * a named label. */
static void CheckNamedBreakAtTheLimit(void) {
    CompileUnit* unit = ParseAndCompile(Script(kNamedBreak, "1;1;", kIncrement, 699049, kNamedBreakEnd));
    Check("named break 2^22 - 1 words: status 0", unit && unit->status == 0, NULL);
    if (!unit || unit->status != 0 || !unit->code) return;
    /* y = 0 (3 words), the break's b, the body, the condition (3 words), the bt, y = 2 (3 words). */
    const int64_t words = unit->codeSize / 4;
    Check("named break 2^22 - 1 words: code size", words == 3 + 1 + 4194298 + 3 + 1 + 3, NULL);
    if (words != 3 + 1 + 4194298 + 3 + 1 + 3) return;
    CheckWord("named break 2^22 - 1 words: the b", unit->code[3], 0xB63FFFFFu);
    /* Its target, 4194303 words on, is the first word of y = 2 (push of 2). */
    CheckWord("named break 2^22 - 1 words: its target", unit->code[3 + 4194303], 0xC00F0002u);
}

/* break outer over 6 * 699049 + 3 + 2 + 5 = 2^22 words. */
static void CheckNamedBreakPastTheLimit(void) {
    CheckOutOfRange("named break 2^22 words",
                    ParseAndCompile(Script(kNamedBreak, "x;1;", kIncrement, 699049, kNamedBreakEnd)));
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <path of the VeltJS library>\n", argv[0]);
        return 2;
    }
    const char* missing = LoadExports(argv[1], &api);
    if (missing) {
        fprintf(stderr, "cannot load %s: %s\n", argv[1], missing);
        return 1;
    }
    api.Init();
    CheckForwardAtTheLimit();
    CheckForwardPastTheLimit();
    CheckBackwardAtTheLimit();
    CheckBackwardPastTheLimit();
    CheckNamedBreakAtTheLimit();
    CheckNamedBreakPastTheLimit();
    printf("%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
