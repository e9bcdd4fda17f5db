/* A host as a game tool would be one: loads the built library by path (argv[1]) with the
 * platform loader, resolves the seven exports by name and drives them only through veltjs.h.
 * Prints one line per check, tagged with the part of the library it depends on, and exits
 * non-zero when any check fails. */
#if defined(_WIN32)
#  include <windows.h>
#else
#  include <pthread.h>
#endif

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "load_exports.h"
#include "veltjs.h"


static VeltJSExports api;
static int failures;
static int failuresByArea[5];
static const char* const areaNames[5] = {"api", "disasm", "parser", "codegen", "nesting"};
enum { AREA_API, AREA_DISASM, AREA_PARSER, AREA_CODEGEN, AREA_NESTING };

/* Lines are flushed one by one so that the log shows how far a crashing run got. */
static void Report(int area, const char* name, int ok, const char* detail) {
    printf("%s [%s] %s", ok ? "PASS" : "FAIL", areaNames[area], name);
    if (!ok && detail && detail[0]) printf(": %s", detail);
    printf("\n");
    fflush(stdout);
    if (!ok) {
        failures++;
        failuresByArea[area]++;
    }
}

static void Check(int area, const char* name, int ok) { Report(area, name, ok, NULL); }

static void CheckInt(int area, const char* name, long long got, long long expected) {
    char detail[96];
    snprintf(detail, sizeof detail, "got %lld, expected %lld", got, expected);
    Report(area, name, got == expected, detail);
}

/* Shows control characters so that a wrong listing can be read in the log. */
static void AppendEscaped(char* out, size_t size, const char* text) {
    size_t used = strlen(out);
    if (!text) text = "(NULL)";
    for (; *text && used + 5 < size; text++) {
        if (*text == '\n') {
            out[used++] = '\\';
            out[used++] = 'n';
        } else {
            out[used++] = *text;
        }
    }
    out[used] = '\0';
}

static void CheckText(int area, const char* name, const char* got, const char* expected) {
    static char detail[8192];
    int ok = got && strcmp(got, expected) == 0;
    detail[0] = '\0';
    if (!ok) {
        AppendEscaped(detail, sizeof detail, "\n    got      \"");
        AppendEscaped(detail, sizeof detail, got);
        AppendEscaped(detail, sizeof detail, "\"\n    expected \"");
        AppendEscaped(detail, sizeof detail, expected);
        AppendEscaped(detail, sizeof detail, "\"");
    }
    Report(area, name, ok, detail);
}

static int EndsWith(const char* text, const char* suffix) {
    size_t length = strlen(text);
    size_t suffixLength = strlen(suffix);
    return length >= suffixLength && strcmp(text + length - suffixLength, suffix) == 0;
}

static const char* FirstError(const CompileUnit* unit) {
    if (!unit || unit->errorCount < 1 || !unit->errors || !unit->errors[0]) return "(no message)";
    return unit->errors[0];
}

/* ---- disassembler ---- */

/* The listing of code, freed; "(NULL)" stands for a null result. */
static void CheckListing(int area, const char* name, const uint32_t* code, int64_t length, const char* expected) {
    char* listing = api.Disasm(code, length);
    CheckText(area, name, listing ? listing : "(NULL)", expected);
    free(listing);
}

/* The nine-line listing that holds the sample lines: push.i 7 at 0, conv.i.v at 8, a branch at
 * 0x10 back to 4, a call of name index 5 with three arguments at 0x20, push.d 1.5 at 0x28. */
static const uint32_t sampleCode[] = {
    0xC0020000u, 0x00000007u,              /* 0x00 push.i 7 */
    0x07520000u,                           /* 0x08 conv.i.v */
    0x9E050000u,                           /* 0x0c popz.v (filler) */
    0xB67FFFFDu,                           /* 0x10 b 0x04 */
    0x9E050000u, 0x9E050000u, 0x9E050000u, /* 0x14 .. 0x1c fillers */
    0xD9020003u, 0x00000005u,              /* 0x20 call.i, three arguments, name 5 */
    0xC0000000u, 0x00000000u, 0x3FF80000u, /* 0x28 push.d 1.5 */
};

static const char sampleHead[] =
    "00000000 : 000002c007000000         push.i    7\n"
    "00000008 : 00005207                 conv.i.v  \n"
    "0000000c : 0000059e                 popz.v    \n"
    "00000010 : fdff7fb6                 b         0x00000004\n"
    "00000014 : 0000059e                 popz.v    \n"
    "00000018 : 0000059e                 popz.v    \n"
    "0000001c : 0000059e                 popz.v    \n";
static const char sampleTail[] = "00000028 : 000000c0000000000000f83f push.d    1.500000\n";

static void CheckSampleListing(int area, const char* name, const char* callee) {
    char expected[1024];
    snprintf(expected, sizeof expected, "%s00000020 : 030002d905000000         call.i    %s\n%s", sampleHead, callee,
             sampleTail);
    CheckListing(area, name, sampleCode, (int64_t)sizeof sampleCode, expected);
}

/* A one-instruction listing at address 0: the bytes in memory order, then the text. */
static void CheckOne(const char* name, const uint32_t* words, int wordCount, const char* mnemonic, const char* operand) {
    char expected[512];
    int column = snprintf(expected, sizeof expected, "00000000 : ");
    const unsigned char* bytes = (const unsigned char*)words;
    for (int i = 0; i < wordCount * 4; i++) column += snprintf(expected + column, sizeof expected - column, "%02x", bytes[i]);
    while (column < 36) expected[column++] = ' ';
    column += snprintf(expected + column, sizeof expected - column, "%s", mnemonic);
    while (column < 46) expected[column++] = ' ';
    snprintf(expected + column, sizeof expected - column, "%s\n", operand);
    CheckListing(AREA_DISASM, name, words, wordCount * 4, expected);
}

static void CheckDouble(const char* name, uint64_t bits, const char* text) {
    uint32_t words[3] = {0xC0000000u, (uint32_t)bits, (uint32_t)(bits >> 32)};
    CheckOne(name, words, 3, "push.d", text);
}

static void CheckFloat(const char* name, uint32_t bits, const char* text) {
    uint32_t words[2] = {0xC0010000u, bits};
    CheckOne(name, words, 2, "push.f", text);
}

static void CheckDisassemblerBasics(void) {
    const uint32_t one = 0x9C0F0000u;
    char* nothing = api.Disasm(&one, 0);
    Check(AREA_DISASM, "length 0 gives NULL", nothing == NULL);
    free(nothing);
    nothing = api.Disasm(&one, -8);
    Check(AREA_DISASM, "negative length gives NULL", nothing == NULL);
    free(nothing);
    CheckListing(AREA_DISASM, "ret.e prints its suffix but no value", &one, 4,
                 "00000000 : 00000f9c                 ret.e     \n");

    /* Doubles print like "%f" in the C locale on every platform, exactly rounded. */
    CheckDouble("push.d 0.1", 0x3FB999999999999Aull, "0.100000");
    CheckDouble("push.d -0.0", 0x8000000000000000ull, "-0.000000");
    CheckDouble("push.d 0.0078125 (tie to even, down)", 0x3F80000000000000ull, "0.007812");
    CheckDouble("push.d 0.0234375 (tie to even, up)", 0x3F98000000000000ull, "0.023438");
    CheckDouble("push.d -2.675", 0xC005666666666666ull, "-2.675000");
    CheckDouble("push.d 5e-7 (just below the half)", 0x3EA0C6F7A0B5ED8Dull, "0.000000");
    CheckDouble("push.d 5e-324", 0x0000000000000001ull, "0.000000");
    CheckDouble("push.d 1e21", 0x444B1AE4D6E2EF50ull, "1000000000000000000000.000000");
    CheckDouble("push.d 1e300", 0x7E37E43C8800759Cull,
                "1000000000000000052504760255204420248704468581108159154915854115511802457988908195786371375080"
                "4478640437044438328838781769425232353604305756447921847867069828483872009265758037378302337947"
                "8809005936895323497079994508111903896764088007465274278014249457925878882005684283811566947219"
                "6386865459400540160.000000");
    CheckDouble("push.d DBL_MAX", 0x7FEFFFFFFFFFFFFFull,
                "1797693134862315708145274237317043567980705675258449965989174768031572607800285387605895586327"
                "6687817154045895351438246423432132688946418276846754670353751698604991057655128207624549009038"
                "9328944075868508455133942304583236903222948165808559332123348274797826204144723168738177180919"
                "299881250404026184124858368.000000");
    CheckDouble("push.d inf", 0x7FF0000000000000ull, "inf");
    CheckDouble("push.d -inf", 0xFFF0000000000000ull, "-inf");
    CheckDouble("push.d nan", 0x7FF8000000000000ull, "nan");
    CheckDouble("push.d -nan", 0xFFF8000000000000ull, "-nan");
    CheckFloat("push.f 0.1f", 0x3DCCCCCDu, "0.100000");
    CheckFloat("push.f FLT_MAX", 0x7F7FFFFFu, "340282346638528859811704183484516925440.000000");
    CheckFloat("push.f -inf", 0xFF800000u, "-inf");
    {
        uint32_t words[3] = {0xC0030000u, 0xFFFFFFFFu, 0xFFFFFFFFu};
        CheckOne("push.l -1", words, 3, "push.l", "-1");
    }
    {
        uint32_t word = 0xC00FFFFBu;
        CheckOne("push.e -5", &word, 1, "push.e", "-5");
    }
}

/* ---- names ---- */

static void CheckString(const char* name, int32_t index, const char* text) {
    uint32_t words[2] = {0xC0060000u, (uint32_t)index};
    CheckOne(name, words, 2, "push.s", text);
}

/* Before any compile the name count is 0, so only entry 0 is visible to the listing (a push.s
 * index may equal the count). */
static void CheckNamesBeforeCompiling(void) {
    api.AddName("alpha", -5);
    CheckString("AddName index -5 writes entry 0", 0, "\"alpha\"");
    api.AddName("beta", 0);
    CheckString("AddName index == count writes entry 0", 0, "\"beta\"");
    CheckString("push.s past the count (0) prints (null)", 1, "\"(null)\"");
    /* Beyond the count the array is rebuilt with only the first `count` (none) entries copied. */
    api.AddName("foo", 5);
    CheckString("AddName beyond count leaves entry 0 empty when the count is 0", 0, "\"(null)\"");
    CheckSampleListing(AREA_DISASM, "sample listing, call index 5 above the count", "<unknown>");
    {
        uint32_t words[2] = {0xD9020000u, 100000u};
        CheckOne("call operand 100000 prints the number", words, 2, "call.i", "100000");
    }
    {
        uint32_t words[2] = {0xD9020000u, 0xFFFFFFFFu};
        CheckOne("negative call operand prints <unknown>", words, 2, "call.i", "<unknown>");
    }
}

/* ---- parsing and compiling ---- */

static CompileUnit* ParseAndCompile(const char* source, const char* name, int expectParsed) {
    CompileUnit* unit = api.Parse(source, "file.js", "main");
    if (!unit) {
        Report(AREA_API, name, 0, "VeltJS_Parse returned NULL");
        return NULL;
    }
    if (expectParsed) {
        char label[160];
        snprintf(label, sizeof label, "%s: parses", name);
        Report(AREA_PARSER, label, unit->status == 0 && unit->parser != NULL, FirstError(unit));
    }
    return api.Compile(unit, 1);
}

static int CheckParsing(void) {
    CompileUnit* empty = api.Parse("", "file.js", "main");
    Check(AREA_API, "parse of the empty source returns a unit", empty != NULL);
    if (!empty) return 0;
    CheckInt(AREA_PARSER, "empty source: status 0", empty->status, 0);
    Check(AREA_PARSER, "empty source: parser record", empty->parser != NULL);
    CheckInt(AREA_PARSER, "empty source: no errors", empty->errorCount, 0);
    CheckText(AREA_API, "parse keeps the script name", empty->scriptName, "main");

    CompileUnit* broken = api.Parse("var a = 1;\nvar = 2;\n", "file.js", "main");
    Check(AREA_API, "parse of a syntax error returns a unit", broken != NULL);
    if (broken) {
        CheckInt(AREA_PARSER, "syntax error: status 1", broken->status, 1);
        CheckInt(AREA_PARSER, "syntax error: one message", broken->errorCount, 1);
        Check(AREA_PARSER, "syntax error: no parser record", broken->parser == NULL);
        CheckText(AREA_PARSER, "syntax error: message", FirstError(broken),
                  "Error : file.js(2) : Got '=' (=) expected 'id'\n");
        Check(AREA_PARSER, "syntax error: message starts with the location",
              strncmp(FirstError(broken), "Error : file.js(", 16) == 0);
    }
    return 1;
}

static void CheckFirstCompile(void) {
    CompileUnit* unit = api.Parse("", "file.js", "main");
    if (!unit) return;
    CompileUnit* compiled = api.Compile(unit, 1);
    Check(AREA_API, "compile returns the unit it was given", compiled == unit);
    CheckInt(AREA_CODEGEN, "empty program: status 0", unit->status, 0);
    CheckInt(AREA_CODEGEN, "empty program: no errors", unit->errorCount, 0);
    CheckInt(AREA_CODEGEN, "empty program: codeSize 0", unit->codeSize, 0);
    Check(AREA_CODEGEN, "empty program: code block present", unit->code != NULL);
    CheckInt(AREA_CODEGEN, "empty program: code2Size 0", unit->code2Size, 0);
    CheckInt(AREA_CODEGEN, "first compile: nameCount 3", unit->nameCount, 3);
    CheckInt(AREA_CODEGEN, "first compile: varCount 3", unit->varCount, 3);
    if (unit->varCount == 3 && unit->vars && unit->names) {
        static const char* const names[3] = {"prototype", "@@array@@", "arguments"};
        static const uint32_t kinds[3] = {3, 3, 2};
        for (int i = 0; i < 3; i++) {
            const PatchRecord* record = unit->vars[i];
            char label[96];
            snprintf(label, sizeof label, "first compile: var record %d is %s", i, names[i]);
            Check(AREA_CODEGEN, label,
                  record && (int32_t)record->nameIndex < unit->nameCount && unit->names[record->nameIndex] &&
                      strcmp(unit->names[record->nameIndex], names[i]) == 0);
            snprintf(label, sizeof label, "first compile: var record %d kind", i);
            CheckInt(AREA_CODEGEN, label, record ? (long long)record->kind : -1, kinds[i]);
            snprintf(label, sizeof label, "first compile: var record %d offset all ones", i);
            Check(AREA_CODEGEN, label, record && record->codeOffset == UINT64_MAX);
        }
    }
    CheckInt(AREA_CODEGEN, "empty program: no function patches", unit->funcCount, 0);
    CheckInt(AREA_CODEGEN, "empty program: no string patches", unit->stringCount, 0);
    CheckInt(AREA_CODEGEN, "empty program: one function record", unit->fourthCount, 1);
    if (unit->fourthCount >= 1 && unit->fourth && unit->fourth[0]) {
        CheckInt(AREA_CODEGEN, "root function record name index", unit->fourth[0]->nameIndex, 0xFFFFFFFFll);
        CheckInt(AREA_CODEGEN, "root function record flags", unit->fourth[0]->flags, 4);
    }

    CompileUnit* again = ParseAndCompile("", "second empty program", 0);
    if (again) {
        CheckInt(AREA_CODEGEN, "second compile: status 0", again->status, 0);
        CheckInt(AREA_CODEGEN, "second compile: no new var records", again->varCount, 0);
        CheckInt(AREA_CODEGEN, "second compile: nameCount unchanged", again->nameCount, unit->nameCount);
    }
}

/* Names placed by the host at fixed ids: entries below the count survive a rebuild, the entry
 * at the count and entries beyond it hold the host's own pointers. */
static void CheckFixedNames(void) {
    static const char fixedAtCount[] = "host_at_count";
    static const char fixedBeyond[] = "host_beyond";
    CompileUnit* before = ParseAndCompile("", "empty program before placing names", 0);
    if (!before || before->status != 0) {
        Report(AREA_CODEGEN, "fixed names: compile of the empty program", 0, FirstError(before));
        return;
    }
    int32_t count = before->nameCount;
    api.AddName(fixedBeyond, count + 4);  /* first: a rebuild copies only entries below the count */
    api.AddName(fixedAtCount, count);
    CompileUnit* after = ParseAndCompile("", "empty program after placing names", 0);
    if (!after || after->status != 0 || !after->names) {
        Report(AREA_CODEGEN, "fixed names: compile after placing names", 0, FirstError(after));
        return;
    }
    CheckInt(AREA_API, "fixed names: AddName leaves the count alone", after->nameCount, count);
    Check(AREA_API, "fixed names: entry at the count is the host's pointer", after->names[count] == fixedAtCount);
    Check(AREA_API, "fixed names: entry beyond the count is the host's pointer", after->names[count + 4] == fixedBeyond);
    Check(AREA_API, "fixed names: entries between are empty",
          after->names[count + 1] == NULL && after->names[count + 2] == NULL && after->names[count + 3] == NULL);
    int kept = 1;
    for (int32_t i = 0; i < count; i++) kept = kept && after->names[i] == before->names[i];
    Check(AREA_API, "fixed names: entries below the count are kept", kept);
    if (count == 3) CheckText(AREA_API, "fixed names: entry 0 still prototype", after->names[0], "prototype");
    {
        char text[64];
        snprintf(text, sizeof text, "\"%s\"", fixedAtCount);
        CheckString("push.s at the count reads the host's name", count, text);
        CheckString("push.s past the count prints (null)", count + 1, "\"(null)\"");
    }
}

static void CheckSampleAfterInterning(void) {
    CompileUnit* unit = ParseAndCompile("var a, b, c, d, e;", "var a, b, c, d, e", 1);
    if (!unit) return;
    CheckInt(AREA_CODEGEN, "var a, b, c, d, e: status 0", unit->status, 0);
    Report(AREA_CODEGEN, "var a, b, c, d, e: more than 5 names interned", unit->nameCount > 5, FirstError(unit));
    if (unit->nameCount > 5) {
        api.AddName("foo", 5);
        CheckSampleListing(AREA_DISASM, "sample listing verbatim, foo at index 5", "foo");
        uint32_t words[2] = {0xC0050000u, 5u};
        CheckOne("push.v of name 5", words, 2, "push.v", "$foo$");
    }
}

/* ---- deep nesting ---- */

static char* Repeat(const char* head, const char* unit, int times, const char* middle, const char* closing, int closeTimes,
                    const char* tail) {
    size_t size = strlen(head) + strlen(unit) * (size_t)times + strlen(middle) + strlen(closing) * (size_t)closeTimes +
                  strlen(tail) + 1;
    char* text = (char*)malloc(size);
    if (!text) return NULL;
    char* p = text;
    p += sprintf(p, "%s", head);
    for (int i = 0; i < times; i++) p += sprintf(p, "%s", unit);
    p += sprintf(p, "%s", middle);
    for (int i = 0; i < closeTimes; i++) p += sprintf(p, "%s", closing);
    sprintf(p, "%s", tail);
    return text;
}

/* The library's fixed nesting limits, counted in guarded routines active at once: the parser's
   statement, assignment, member-call and primary routines, and the code generator's statement and
   expression dispatchers. The deepest accepted nesting of each shape follows from them, and must
   be the same on every platform and on any thread with at least 1 MiB of stack. */
#define PARSE_DEPTH 2048
#define COMPILE_DEPTH 1600
#define PREFIX_CHAIN 10000
#define UNLIMITED 20000 /* the search's upper bound: no limit below it */

struct Nested {
    const char* name;
    const char* head;
    const char* unit;
    const char* middle;
    const char* closing;   /* repeated as often as unit, when not empty */
    const char* tail;
    int deepestParse;      /* the most levels that parse */
    int deepestCompile;    /* the most levels that parse and compile */
};

/* Constructs whose nesting the parser recurses on: 500 levels parse and compile, 100,000 end in
   the nesting diagnostic. The counts: `x = (...)` holds the statement, two assignments and, at
   the innermost literal, a member call and a primary (5), plus a member call, a primary and an
   assignment per parenthesis; statements: one code-generator statement plus one expression
   dispatch per level plus the leaf. */
static const struct Nested nestedConstructs[] = {
    {"parentheses", "x = ", "(", "1", ")", ";", (PARSE_DEPTH - 5) / 3, (PARSE_DEPTH - 5) / 3},
    {"brackets", "x = ", "[", "1", "]", ";", (PARSE_DEPTH - 5) / 3, (PARSE_DEPTH - 5) / 3},
    {"braces", "", "{", "x;", "}", "", PARSE_DEPTH - 4, COMPILE_DEPTH - 2},
    {"object literals", "x = ", "{a:", "1", "}", ";", (PARSE_DEPTH - 5) / 3, (PARSE_DEPTH - 5) / 3},
    {"unary operators", "x = ", "!", "a", "", ";", PREFIX_CHAIN, COMPILE_DEPTH - 2},
    {"news", "x = ", "new ", "F", "", ";", PARSE_DEPTH - 5, COMPILE_DEPTH - 2},
    {"conditionals", "x = ", "a ? b : ", "c", "", ";", PARSE_DEPTH - 5, COMPILE_DEPTH - 2},
    {"assignments", "", "a = ", "b", "", ";", PARSE_DEPTH - 4, COMPILE_DEPTH - 1},
    {"function expressions", "x = ", "function(){ return ", "1", " }", ";", (PARSE_DEPTH - 5) / 3,
     (COMPILE_DEPTH - 2) / 3},
};

/* Chains the parser builds without recursion: 1,000 links compile, 100,000 end in the nesting
   diagnostic at compile time. One expression dispatch per link, plus the statement and the leaf
   (a call statement is dispatched by the statement compiler itself). */
static const struct Nested chains[] = {
    {"'+'", "x = a", " + a", "", "", ";", UNLIMITED, COMPILE_DEPTH - 2},
    {"'&&'", "x = a", " && a", "", "", ";", UNLIMITED, COMPILE_DEPTH - 2},
    {"'||'", "x = a", " || a", "", "", ";", UNLIMITED, COMPILE_DEPTH - 2},
    {"'.'", "x = a", ".b", "", "", ";", UNLIMITED, COMPILE_DEPTH - 2},
    {"'[]'", "x = a", "[0]", "", "", ";", UNLIMITED, COMPILE_DEPTH - 2},
    {"calls", "f", "()", "", "", ";", UNLIMITED, COMPILE_DEPTH - 1},
};

static char* Build(const struct Nested* shape, int times) {
    return Repeat(shape->head, shape->unit, times, shape->middle, shape->closing, shape->closing[0] ? times : 0,
                  shape->tail);
}

static int DeepestAccepted(const struct Nested* shape, int compile);

static void CheckDeepest(const char* where, const struct Nested* shape) {
    char label[200];
    snprintf(label, sizeof label, "%s: deepest %s that parse", where, shape->name);
    CheckInt(AREA_NESTING, label, DeepestAccepted(shape, 0), shape->deepestParse);
    snprintf(label, sizeof label, "%s: deepest %s that compile", where, shape->name);
    CheckInt(AREA_NESTING, label, DeepestAccepted(shape, 1), shape->deepestCompile);
}

static void CheckNesting(const char* where) {
    char label[200];
    for (size_t i = 0; i < sizeof nestedConstructs / sizeof nestedConstructs[0]; i++)
        CheckDeepest(where, &nestedConstructs[i]);
    for (size_t i = 0; i < sizeof chains / sizeof chains[0]; i++) CheckDeepest(where, &chains[i]);
    for (size_t i = 0; i < sizeof nestedConstructs / sizeof nestedConstructs[0]; i++) {
        const struct Nested* shape = &nestedConstructs[i];
        char* source = Build(shape, 100000);
        if (source) {
            CompileUnit* unit = api.Parse(source, "file.js", "main");
            snprintf(label, sizeof label, "%s: 100000 nested %s: nesting too deep", where, shape->name);
            Report(AREA_NESTING, label, unit && unit->status == 1 && EndsWith(FirstError(unit), "nesting too deep\n"),
                   FirstError(unit));
            free(source);
        }
        source = Build(shape, 500);
        if (source) {
            CompileUnit* unit = api.Parse(source, "file.js", "main");
            snprintf(label, sizeof label, "%s: 500 nested %s: parse status 0", where, shape->name);
            Report(AREA_NESTING, label, unit && unit->status == 0, FirstError(unit));
            if (unit && unit->status == 0) {
                api.Compile(unit, 1);
                snprintf(label, sizeof label, "%s: 500 nested %s: compile status 0", where, shape->name);
                Report(AREA_NESTING, label, unit->status == 0, FirstError(unit));
            }
            free(source);
        }
    }
    for (size_t i = 0; i < sizeof chains / sizeof chains[0]; i++) {
        const struct Nested* shape = &chains[i];
        char* source = Build(shape, 1000);
        if (source) {
            CompileUnit* unit = api.Parse(source, "file.js", "main");
            if (unit && unit->status == 0) api.Compile(unit, 1);
            snprintf(label, sizeof label, "%s: 1000 %s: compile status 0", where, shape->name);
            Report(AREA_NESTING, label, unit && unit->status == 0, FirstError(unit));
            free(source);
        }
        source = Build(shape, 100000);
        if (source) {
            CompileUnit* unit = api.Parse(source, "file.js", "main");
            snprintf(label, sizeof label, "%s: 100000 %s: parse status 0", where, shape->name);
            Report(AREA_NESTING, label, unit && unit->status == 0, FirstError(unit));
            if (unit && unit->status == 0) {
                api.Compile(unit, 1);
                snprintf(label, sizeof label, "%s: 100000 %s: compile ends in nesting too deep", where, shape->name);
                Report(AREA_NESTING, label, unit->status == 1 && EndsWith(FirstError(unit), "nesting too deep\n"),
                       FirstError(unit));
            }
            free(source);
        }
    }
}

/* The deepest nesting of a shape that still gets status 0 (parse only, or parse and compile). */
static int Accepts(const struct Nested* shape, int levels, int compile) {
    char* source = Build(shape, levels);
    if (!source) return 0;
    CompileUnit* unit = api.Parse(source, "file.js", "main");
    int ok = unit && unit->status == 0;
    if (ok && compile) {
        api.Compile(unit, 1);
        ok = unit->status == 0;
    }
    free(source);
    return ok;
}

static int DeepestAccepted(const struct Nested* shape, int compile) {
    int low = 1;
    int high = UNLIMITED;
    while (low < high) {
        int middle = (low + high + 1) / 2;
        if (Accepts(shape, middle, compile)) {
            low = middle;
        } else {
            high = middle - 1;
        }
    }
    return low;
}

/* The same checks on a thread with a 1 MiB stack, the size a Windows host's main thread gets.
   Sanitizer builds instrument every frame and need several times the stack. */
#if defined(__SANITIZE_ADDRESS__)
#define SMALL_STACK (4 * 1024 * 1024)
#else
#define SMALL_STACK (1024 * 1024)
#endif
#if defined(_WIN32)
static DWORD WINAPI SmallStackThread(LPVOID argument) {
    (void)argument;
    CheckNesting("1 MiB thread (4 MiB under sanitizers)");
    return 0;
}
static void CheckNestingOnSmallStack(void) {
    HANDLE thread = CreateThread(NULL, SMALL_STACK, SmallStackThread, NULL, STACK_SIZE_PARAM_IS_A_RESERVATION, NULL);
    Check(AREA_API, "start a thread with a 1 MiB stack", thread != NULL);
    if (!thread) return;
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}
#else
static void* SmallStackThread(void* argument) {
    (void)argument;
    CheckNesting("1 MiB thread (4 MiB under sanitizers)");
    return NULL;
}
static void CheckNestingOnSmallStack(void) {
    pthread_attr_t attributes;
    pthread_t thread;
    int ok = pthread_attr_init(&attributes) == 0 && pthread_attr_setstacksize(&attributes, SMALL_STACK) == 0 &&
             pthread_create(&thread, &attributes, SmallStackThread, NULL) == 0;
    Check(AREA_API, "start a thread with a 1 MiB stack", ok);
    if (ok) pthread_join(thread, NULL);
    pthread_attr_destroy(&attributes);
}
#endif

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <path of the VeltJS library>\n", argv[0]);
        return 2;
    }
    const char* missing = LoadExports(argv[1], &api);
    Report(AREA_API, "load the library and resolve the seven exports", missing == NULL, missing);
    if (missing) return 1;

    api.Init();
    api.Init();  /* a second call rebuilds the same table */
    api.AddBuiltIn("show_message");
    api.AddBuiltIn("show_message");  /* duplicates are accepted */
    api.AddBuiltIn("array_length");
    Check(AREA_API, "init and built-in functions", 1);

    CheckDisassemblerBasics();
    CheckNamesBeforeCompiling();
    if (CheckParsing()) {
        CheckFirstCompile();
        CheckFixedNames();
        CheckSampleAfterInterning();
    }
    CheckNesting("main thread");
    CheckNestingOnSmallStack();

    api.Quit();
    printf("%d check(s) failed", failures);
    for (int i = 0; i < 5; i++) {
        if (failuresByArea[i]) printf(", %s: %d", areaNames[i], failuresByArea[i]);
    }
    printf("\n");
    return failures == 0 ? 0 : 1;
}
