// Placeholder until the compile context lands: an empty program compiles to nothing.
#include "codegen/context.h"

#include <cstdlib>

#include "api/strings.h"

void BeginCompile(CodeGenContext& cx, const char* scriptName, uint8_t topLevel) {
    cx.scriptName = CheckedStrdup(scriptName ? scriptName : "");
    cx.topLevel = topLevel ? 1 : 0;
    cx.code = CreateWriteBuffer();
    cx.code2 = CreateWriteBuffer();
}

void EndCompile(CodeGenContext& cx, VMBuffer** code, VMBuffer** code2) {
    FinishBuffer(*cx.code);
    FinishBuffer(*cx.code2);
    *code = cx.code;
    *code2 = cx.code2;
    cx.code = nullptr;
    cx.code2 = nullptr;
}

void CleanUpContext(CodeGenContext& cx, bool) {
    delete cx.code;
    delete cx.code2;
    cx.code = cx.code2 = nullptr;
}
