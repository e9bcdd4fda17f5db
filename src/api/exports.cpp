// The seven exports: the only entry points of the library.
#include <cstdlib>
#include <cstring>
#include <new>

#include "api/crc32.h"
#include "api/diagnostics.h"
#include "api/globals.h"
#include "api/stack_guard.h"
#include "api/strings.h"
#include "bytecode/disassembler.h"
#include "codegen/codegen.h"
#include "lexer/source_reader.h"
#include "parser/parser.h"
#include "veltjs.h"

namespace {

const char kUnknownError[] = "Unknown error";

void RecordFailure(CompileUnit* unit, int32_t status, char* message) {
    unit->status = status;
    unit->errorCount = 1;
    unit->errors = static_cast<char**>(CheckedMalloc(sizeof(char*)));
    unit->errors[0] = message;
}

void RecordCompileException(CompileUnit* unit, const CompileException& exception) {
    RecordFailure(unit, 1, CheckedStrdup(exception.what()));
}

// Units belong to the host; the library never frees one.
__attribute__((noinline)) CompileUnit* NewCompileUnit(const char* scriptName) {
    CompileUnit* unit = static_cast<CompileUnit*>(CheckedCalloc(1, sizeof(CompileUnit)));
    unit->scriptName = CheckedStrdup(scriptName ? scriptName : "");
    return unit;
}

// The first entry that this compile added to a process-wide list.
template <typename Record>
Record** AddedSince(const PtrArray& list, int32_t before, int32_t* count) {
    *count = list.count - before;
    return reinterpret_cast<Record**>(list.data) + before;
}

}  // namespace

extern "C" {

VELTJS_API void VeltJS_Init(void) { BuildCrc32Table(); }

VELTJS_API void VeltJS_Quit(void) {}

VELTJS_API CompileUnit* VeltJS_Parse(const char* source, const char* fileName, const char* scriptName) {
    CompileUnit* unit = NewCompileUnit(scriptName);
    BeginStackGuard();
    RefString* sourceText = nullptr;
    RefString* fileText = nullptr;
    try {
        sourceText = NewPaddedRefString(source ? source : "", kSourcePadding);
        fileText = NewRefString(fileName ? fileName : "");
        Lexer* lexer = MakeLexer(sourceText, fileText);
        Parser* parser = MakeParser(lexer);
        while (lexer->tokenKind != LEX_EOF) ParseStatement(parser, &parser->root);
        unit->parser = parser;
    } catch (const CompileException& exception) {
        RecordCompileException(unit, exception);
    }
    ReleaseRefString(sourceText);
    ReleaseRefString(fileText);
    return unit;
}

VELTJS_API CompileUnit* VeltJS_Compile(CompileUnit* unit, uint8_t topLevel) {
    if (!unit) return unit;
    unit->status = 0;
    BeginStackGuard();
    CodeGenContext cx{};
    int32_t functionsBefore = GlobalFuncList.count;
    int32_t varsBefore = GlobalVarList.count;
    int32_t stringsBefore = GlobalStringList.count;
    int32_t recordsBefore = GlobalFunctionRecords.count;
    try {
        BeginCompile(cx, unit->scriptName, topLevel);
        Parser* parser = static_cast<Parser*>(unit->parser);
        if (parser) CompileProgram(cx, parser->root.first);
        VMBuffer* code = nullptr;
        VMBuffer* code2 = nullptr;
        EndCompile(cx, &code, &code2);
        unit->code = reinterpret_cast<uint32_t*>(code->data);
        unit->codeSize = code->size;
        unit->code2 = reinterpret_cast<uint32_t*>(code2->data);
        unit->code2Size = code2->size;
        unit->nameCount = NameArray.count;
        unit->names = reinterpret_cast<char**>(NameArray.data);
        unit->vars = AddedSince<PatchRecord>(GlobalVarList, varsBefore, &unit->varCount);
        unit->funcs = AddedSince<PatchRecord>(GlobalFuncList, functionsBefore, &unit->funcCount);
        unit->strings = AddedSince<PatchRecord>(GlobalStringList, stringsBefore, &unit->stringCount);
        unit->fourth = AddedSince<FunctionRecord>(GlobalFunctionRecords, recordsBefore, &unit->fourthCount);
        CleanUpContext(cx, true);
    } catch (const CompileException& exception) {
        CleanUpContext(cx, false);
        RecordCompileException(unit, exception);
    } catch (...) {
        CleanUpContext(cx, false);
        RecordFailure(unit, -1, const_cast<char*>(kUnknownError));
    }
    return unit;
}

VELTJS_API char* VeltJS_Disasm(const uint32_t* code, int64_t length) { return Disassemble(code, length); }

VELTJS_API void VeltJS_AddName(const char* name, int32_t index) { PlaceName(name, index); }

VELTJS_API void VeltJS_AddBuiltInFunction(const char* name) {
    RefString* text = NewRefString(name);
    HashInsert(BuiltInFunctionTable, text->text, text);
}

}  // extern "C"
