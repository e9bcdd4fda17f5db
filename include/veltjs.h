/* VeltJS: a compiler for a subset of JavaScript into bytecode for a stack-based game runner.
 * The seven exports and the records they exchange with a host. Valid C (C11) and C++. */
#ifndef VELTJS_H
#define VELTJS_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#  if defined(VELTJS_BUILDING)
#    define VELTJS_API __declspec(dllexport)
#  else
#    define VELTJS_API __declspec(dllimport)
#  endif
#else
#  define VELTJS_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#  define VELTJS_STATIC_ASSERT(cond, text) static_assert(cond, text)
extern "C" {
#else
#  define VELTJS_STATIC_ASSERT(cond, text) _Static_assert(cond, text)
#endif

/* One use site of a variable, function or string name: the host re-maps nameIndex into its
 * runner's tables and patches the word at codeOffset (all ones: no use site). */
typedef struct PatchRecord {
    uint32_t nameIndex;
    uint32_t kind;
    uint64_t codeOffset;
} PatchRecord;

/* One compiled function. locals and slots are arrays of (qualifiedIndex, nameIndex) pairs. */
typedef struct FunctionRecord {
    uint32_t nameIndex;
    uint32_t declaredNameIndex;
    uint64_t codeOffset;
    uint32_t reserved0;
    uint32_t reserved1;
    int32_t paramCount;
    uint32_t padding0;
    uint32_t* params;
    uint32_t localCount;
    uint32_t padding1;
    uint32_t* locals;
    uint32_t slotCount;
    uint32_t padding2;
    uint32_t* slots;
    uint32_t flags;
    uint32_t padding3;
} FunctionRecord;

/* What VeltJS_Parse returns and VeltJS_Compile fills in. Never freed by the library. */
typedef struct CompileUnit {
    int32_t status;          /* 0 success, 1 compile error, -1 other failure */
    int32_t padding0;
    void* parser;            /* parser record holding the syntax tree */
    char* scriptName;
    uint32_t* code;          /* bytecode words */
    int64_t codeSize;        /* in bytes */
    uint32_t* code2;         /* (code offset, source offset) pairs, one per statement */
    int64_t code2Size;       /* in bytes */
    int32_t errorCount;
    int32_t padding1;
    char** errors;
    int32_t nameCount;
    int32_t padding2;
    char** names;            /* the whole name table; entry i is the text of name id i */
    int32_t varCount;        /* records this compile added to each process-wide list */
    int32_t padding3;
    PatchRecord** vars;
    int32_t funcCount;
    int32_t padding4;
    PatchRecord** funcs;
    int32_t stringCount;
    int32_t padding5;
    PatchRecord** strings;
    int32_t fourthCount;
    int32_t padding6;
    FunctionRecord** fourth;
} CompileUnit;

VELTJS_STATIC_ASSERT(sizeof(PatchRecord) == 16, "PatchRecord is 16 bytes");
VELTJS_STATIC_ASSERT(offsetof(PatchRecord, nameIndex) == 0, "PatchRecord.nameIndex");
VELTJS_STATIC_ASSERT(offsetof(PatchRecord, kind) == 4, "PatchRecord.kind");
VELTJS_STATIC_ASSERT(offsetof(PatchRecord, codeOffset) == 8, "PatchRecord.codeOffset");

VELTJS_STATIC_ASSERT(sizeof(FunctionRecord) == 80, "FunctionRecord is 80 bytes");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, nameIndex) == 0, "FunctionRecord.nameIndex");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, declaredNameIndex) == 4, "FunctionRecord.declaredNameIndex");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, codeOffset) == 8, "FunctionRecord.codeOffset");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, reserved0) == 16, "FunctionRecord.reserved0");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, reserved1) == 20, "FunctionRecord.reserved1");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, paramCount) == 24, "FunctionRecord.paramCount");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, params) == 32, "FunctionRecord.params");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, localCount) == 40, "FunctionRecord.localCount");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, locals) == 48, "FunctionRecord.locals");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, slotCount) == 56, "FunctionRecord.slotCount");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, slots) == 64, "FunctionRecord.slots");
VELTJS_STATIC_ASSERT(offsetof(FunctionRecord, flags) == 72, "FunctionRecord.flags");

VELTJS_STATIC_ASSERT(sizeof(CompileUnit) == 152, "CompileUnit is 152 bytes");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, status) == 0, "CompileUnit.status");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, parser) == 8, "CompileUnit.parser");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, scriptName) == 16, "CompileUnit.scriptName");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, code) == 24, "CompileUnit.code");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, codeSize) == 32, "CompileUnit.codeSize");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, code2) == 40, "CompileUnit.code2");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, code2Size) == 48, "CompileUnit.code2Size");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, errorCount) == 56, "CompileUnit.errorCount");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, errors) == 64, "CompileUnit.errors");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, nameCount) == 72, "CompileUnit.nameCount");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, names) == 80, "CompileUnit.names");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, varCount) == 88, "CompileUnit.varCount");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, vars) == 96, "CompileUnit.vars");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, funcCount) == 104, "CompileUnit.funcCount");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, funcs) == 112, "CompileUnit.funcs");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, stringCount) == 120, "CompileUnit.stringCount");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, strings) == 128, "CompileUnit.strings");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, fourthCount) == 136, "CompileUnit.fourthCount");
VELTJS_STATIC_ASSERT(offsetof(CompileUnit, fourth) == 144, "CompileUnit.fourth");

/* Builds the name-hash table; call once before anything that hashes names. */
VELTJS_API void VeltJS_Init(void);
/* Does nothing; the tables live until the library is unloaded. */
VELTJS_API void VeltJS_Quit(void);
/* Parses a NUL-terminated UTF-8 script into a new unit (status 1 and one message on error). */
VELTJS_API CompileUnit* VeltJS_Parse(const char* source, const char* fileName, const char* scriptName);
/* Compiles a parsed unit in place and returns it. */
VELTJS_API CompileUnit* VeltJS_Compile(CompileUnit* unit, uint8_t topLevel);
/* Lists length bytes of bytecode; the caller frees the text with free(). Null for length < 1. */
VELTJS_API char* VeltJS_Disasm(const uint32_t* code, int64_t length);
/* Places the name pointer (not a copy) at a fixed name id. */
VELTJS_API void VeltJS_AddName(const char* name, int32_t index);
/* Declares the name of a runner built-in function. */
VELTJS_API void VeltJS_AddBuiltInFunction(const char* name);

#ifdef __cplusplus
}
#endif

#endif
