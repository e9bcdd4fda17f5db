// The seven exports: the only entry points of the library.
#include <cstdlib>
#include <cstring>
#include <new>

#include "bytecode/disassembler.h"
#include "codegen/codegen.h"
#include "lexer/source_reader.h"
#include "parser/parser.h"
#include "state/process_state.h"
#include "support/diagnostics.h"
#include "support/strings.h"
#include "veltjs.h"

namespace {

const char kUnknownError[] = "Unknown error";

// The error list of a unit whose failure could not get memory even for a one-entry list.
char* kUnknownErrorList[1] = {const_cast<char*>(kUnknownError)};
// The script name of a unit that could not get memory for its copy.
char kNoScriptName[] = "";

// A one-entry error list, or null when there is no memory for it.
__attribute__((noinline)) char** NewErrorList(char* message) {
    char** list = static_cast<char**>(TryMalloc(sizeof(char*)));
    if (list) list[0] = message;
    return list;
}

void RecordFailure(CompileUnit* unit, int32_t status, char** errors) {
    unit->status = status;
    unit->errorCount = 1;
    unit->errors = errors;
}

// Status -1 and "Unknown error" (the constant, not a copy). Never fails: without memory for the
// list, the unit gets a static one.
void RecordUnknownError(CompileUnit* unit) noexcept {
    char** list = NewErrorList(const_cast<char*>(kUnknownError));
    RecordFailure(unit, -1, list ? list : kUnknownErrorList);
}

// A copy of the exception's message for the unit (kept by the host).
__attribute__((noinline)) char* CopyMessage(const CompileException& exception) {
    return CheckedStrdup(exception.what());
}

// Status 1 with a copy of the message. False, with the unit untouched, when there is no memory
// for the copy or the list.
bool RecordCompileException(CompileUnit* unit, const CompileException& exception) noexcept {
    char* message;
    try {
        message = CopyMessage(exception);
    } catch (...) {
        return false;
    }
    char** list = NewErrorList(message);
    if (!list) {
        std::free(message);
        return false;
    }
    RecordFailure(unit, 1, list);
    return true;
}

// Units belong to the host; the library never frees one. Null when there is no memory for it.
__attribute__((noinline)) CompileUnit* NewCompileUnit() noexcept {
    return static_cast<CompileUnit*>(TryCalloc(1, sizeof(CompileUnit)));
}

// The unit's private copy of the script name.
__attribute__((noinline)) char* CopyScriptName(const char* scriptName) {
    return CheckedStrdup(scriptName ? scriptName : "");
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

// Only allocation failure can raise anything but a CompileException here; whatever it is, it
// ends in the unit (status -1) and never crosses into the host. Null only when there is no
// memory for the unit itself.
VELTJS_API CompileUnit* VeltJS_Parse(const char* source, const char* fileName, const char* scriptName) {
    CompileUnit* unit = NewCompileUnit();
    if (!unit) return nullptr;
    RefString* sourceText = nullptr;
    RefString* fileText = nullptr;
    Lexer* lexer = nullptr;
    try {
        unit->scriptName = CopyScriptName(scriptName);
        // Kept with the tree, whose positions share it.
        if (!source) source = "";
        size_t length = std::strlen(source);
        sourceText = NewArenaPaddedRefString(State().records, State().texts, source, length, kSourcePadding);
        fileText = NewRefString(fileName ? fileName : "");
        lexer = MakeLexer(sourceText, fileText, State().records, State().texts);
        ArenaExpect(State().records, static_cast<size_t>(lexer->length) * kTreeBytesPerSourceByte);
        Parser* parser = MakeParser(lexer);
        while (lexer->tokenKind != LEX_EOF) ParseTopLevelStatement(parser);
        unit->parser = parser;
    } catch (const CompileException& exception) {
        State().lastError = exception.location;
        if (!RecordCompileException(unit, exception)) RecordUnknownError(unit);
    } catch (...) {
        RecordUnknownError(unit);
    }
    if (!unit->scriptName) unit->scriptName = kNoScriptName;
    if (lexer) EndLexing(lexer);
    ReleaseRefString(sourceText);
    ReleaseRefString(fileText);
    return unit;
}

// A compile that ends with status -1 takes back everything it added to the process-wide tables,
// so the next compile gives exactly what it would have given without it. A compile error
// (status 1) leaves its additions, as it always has.
VELTJS_API CompileUnit* VeltJS_Compile(CompileUnit* unit, uint8_t topLevel) {
    if (!unit) return unit;
    unit->status = 0;
    CodeGenContext cx{};
    ParsedTree parsed{};
    int32_t functionsBefore = GlobalFuncList.count;
    int32_t varsBefore = GlobalVarList.count;
    int32_t stringsBefore = GlobalStringList.count;
    int32_t recordsBefore = GlobalFunctionRecords.count;
    StateMark mark;
    BeginStateMark(mark);
    bool failedForMemory = false;
    try {
        Parser* parser = static_cast<Parser*>(unit->parser);
        BeginCompile(cx, unit->scriptName, topLevel);
        if (parser) {
            int64_t varNodes = ParsedVarNodesOutsideFunctions(parser);
            if (varNodes >= 0) {
                parsed = ParsedTree{parser->statements, parser->statementCount, static_cast<uint64_t>(varNodes)};
                cx.parsed = &parsed;
            }
            parser->hoisted = true;
            ScratchExpect(State().compileScratch, static_cast<size_t>(parser->lexer->length) * kScratchBytesPerSourceByte);
            CompileProgram(cx, parser->root.first);
            // Only the first compile reads the statements' array.
            ReleaseParsedStatements(parser);
        }
        VMBuffer* code = nullptr;
        VMBuffer* code2 = nullptr;
        EndCompile(cx, &code, &code2);
        // Nothing below allocates: the unit is filled in whole or not at all.
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
        CleanUpContext(cx);
    } catch (const CompileException& exception) {
        State().lastError = exception.location;
        CleanUpContext(cx);
        failedForMemory = !RecordCompileException(unit, exception);
    } catch (...) {
        CleanUpContext(cx);
        failedForMemory = true;
    }
    if (failedForMemory) {
        RollBackState(mark);
        RecordUnknownError(unit);
    }
    EndStateMark(mark);
    // The compile's scratch records (labels, branch sites, scope entries, its tables' entries,
    // accessor records) served it only.
    ResetScratch(State().compileScratch);
    return unit;
}

// Null when there is nothing to list or no memory for the listing.
VELTJS_API char* VeltJS_Disasm(const uint32_t* code, int64_t length) {
    if (!code) return nullptr;
    try {
        return Disassemble(code, length, NameArray);
    } catch (...) {
        return nullptr;
    }
}

// A placement that cannot get its memory leaves the name table as it was.
VELTJS_API void VeltJS_AddName(const char* name, int32_t index) {
    try {
        PlaceName(name, index);
    } catch (...) {
    }
}

// The name and its table entry are made before the table changes; without memory for them the
// table stays as it was.
VELTJS_API void VeltJS_AddBuiltInFunction(const char* name) {
    try {
        AddBuiltInFunction(name);
    } catch (...) {
    }
}

}  // extern "C"
