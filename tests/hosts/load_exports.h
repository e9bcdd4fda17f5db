/* Loading the library by path and resolving its seven exports, as a game tool's host does it:
 * dlopen and dlsym on Linux, LoadLibraryA and GetProcAddress on Windows. Shared by the C hosts
 * of the tests, which then reach the library only through these pointers and veltjs.h. */
#ifndef VELTJS_TESTS_LOAD_EXPORTS_H
#define VELTJS_TESTS_LOAD_EXPORTS_H

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <dlfcn.h>
#endif

#include <stdint.h>
#include <string.h>

#include "veltjs.h"

typedef struct VeltJSExports {
    void (*Init)(void);
    void (*Quit)(void);
    CompileUnit* (*Parse)(const char* source, const char* fileName, const char* scriptName);
    CompileUnit* (*Compile)(CompileUnit* unit, uint8_t topLevel);
    char* (*Disasm)(const uint32_t* code, int64_t bytes);
    void (*AddName)(const char* name, int32_t index);
    void (*AddBuiltIn)(const char* name);
} VeltJSExports;

/* Function and object pointers are converted by copying the bits: ISO C has no cast between
 * them, and the loaders hand out one kind for the other. */
#define VELTJS_RESOLVE(library, target, name)            \
    do {                                                 \
        void* address = ResolveExport(library, name);    \
        if (!address) return name;                       \
        memcpy(&(target), &address, sizeof(target));     \
    } while (0)

static void* ResolveExport(void* library, const char* name) {
#if defined(_WIN32)
    FARPROC address = GetProcAddress((HMODULE)library, name);
    void* pointer;
    memcpy(&pointer, &address, sizeof pointer);
    return pointer;
#else
    return dlsym(library, name);
#endif
}

/* Loads the library at `path` and fills `exports`. Returns NULL when every export resolved, else
 * what failed: "the library itself" or the name of the missing export. */
static const char* LoadExports(const char* path, VeltJSExports* exports) {
#if defined(_WIN32)
    void* library = (void*)LoadLibraryA(path);
#else
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
#endif
    if (!library) return "the library itself";
    VELTJS_RESOLVE(library, exports->Init, "VeltJS_Init");
    VELTJS_RESOLVE(library, exports->Quit, "VeltJS_Quit");
    VELTJS_RESOLVE(library, exports->Parse, "VeltJS_Parse");
    VELTJS_RESOLVE(library, exports->Compile, "VeltJS_Compile");
    VELTJS_RESOLVE(library, exports->Disasm, "VeltJS_Disasm");
    VELTJS_RESOLVE(library, exports->AddName, "VeltJS_AddName");
    VELTJS_RESOLVE(library, exports->AddBuiltIn, "VeltJS_AddBuiltInFunction");
    return NULL;
}

#undef VELTJS_RESOLVE

#endif
