// Helpers shared by the code generator's tests: compiling scripts through the exports, hand-built
// syntax trees, a code generator context set up for one compile, listings and captured output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "codegen/codegen.h"
#include "veltjs.h"

// ---------------------------------------------------------------------------------------------
// Whole scripts through VeltJS_Parse and VeltJS_Compile.

// Calls VeltJS_Init (the name hash needs its table; every test starts without it).
void EnsureLibraryInitialised();

// Parses and compiles `source`; the unit is never freed (as the library's own contract says).
// The parse status is checked by the caller through unit->status.
CompileUnit* ParseAndCompile(const std::string& source, bool topLevel = true,
                             const char* scriptName = "main", const char* fileName = "test.js");

// The words of a successfully compiled unit (the test fails when it did not compile).
std::vector<uint32_t> UnitWords(const CompileUnit* unit);
// The position buffer's words.
std::vector<uint32_t> UnitPositionWords(const CompileUnit* unit);

// Parses and compiles, expects status 0 and returns the code words.
std::vector<uint32_t> CompileWords(const std::string& source, bool topLevel = true,
                                   const char* scriptName = "main");
// Parses and compiles, expects a failure and returns the one error message ("" when none).
std::string CompileError(const std::string& source, bool topLevel = true,
                         const char* scriptName = "main", const char* fileName = "test.js");

// The first top-level statement of `source` as the parser built it (null when the parse failed
// or the script is empty). Top-level expression statements are the expression nodes themselves.
Node* ParseFirst(const std::string& source, const char* scriptName = "main");

// ---------------------------------------------------------------------------------------------
// Listings and names.

// VeltJS_Disasm of the words as a std::string ("" for no words).
std::string Listing(const std::vector<uint32_t>& words);
std::string Listing(const uint32_t* code, int64_t bytes);
// The NameArray index of a name, or -1 (exact text, first match).
int32_t NameIndex(const char* text);
// The same as an operand: all ones for a name never interned, which matches no word the compiler
// writes for a name.
uint32_t NameId(const char* text);
// The operand of a variable reference, and of a declaration, of the name `text`.
uint32_t NameRef(const char* text);
uint32_t NameDecl(const char* text);
// The words formatted "%08x" one per line, for readable failure output.
std::string HexWords(const std::vector<uint32_t>& words);
// The text of a file under tests/data.
std::string ReadTestData(const char* name);

// ---------------------------------------------------------------------------------------------
// Hand-built trees.

// A source position in file "test.js" at `line` (shared by every node made with it).
const SourcePosition* TestPosition(int32_t line = 1);
// A node of `kind` with `text`, at TestPosition(line).
Node* N(uint32_t kind, const char* text, std::initializer_list<Node*> children = {}, int32_t line = 1);
// Shorthands.
Node* Id(const char* name);
Node* Int(const char* text);
Node* Str(const char* text);
Node* Op(uint32_t kind, std::initializer_list<Node*> children);

// ---------------------------------------------------------------------------------------------
// A context set up by BeginCompile, cleaned up when the fixture goes.

struct TestCompile {
    explicit TestCompile(const char* scriptName = "main", uint8_t topLevel = 1);
    ~TestCompile();
    TestCompile(const TestCompile&) = delete;
    TestCompile& operator=(const TestCompile&) = delete;

    // Words written to the code buffer so far.
    std::vector<uint32_t> Words() const;
    // The type stack from bottom to top.
    std::vector<uint32_t> Types() const;

    CodeGenContext cx{};
};

// The words written and the type stack left by compiling one expression in a fresh compile.
struct ExpressionResult {
    std::vector<uint32_t> words;
    std::vector<uint32_t> types;
};
ExpressionResult CompileExpressionNode(Node* node, bool withScope = false, const char* scriptName = "main");
// The same for the first statement's expression in `source`.
ExpressionResult CompileExpressionSource(const std::string& source, bool withScope = false);

// Runs `body` and returns the compile error text it raised ("" when none was raised).
std::string ErrorOf(const std::function<void()>& body);

// ---------------------------------------------------------------------------------------------
// Process facilities.

// Standard output written while `body` runs.
std::string CaptureStdout(const std::function<void()>& body);
// Runs `body` on a new thread with a stack of `stackBytes`; exceptions are rethrown here.
void RunOnThreadWithStack(size_t stackBytes, const std::function<void()>& body);
