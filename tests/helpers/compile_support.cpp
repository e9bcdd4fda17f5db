#include "helpers/compile_support.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <sstream>

#include "parser/node.h"
#include "parser/parser.h"
#include "state/process_state.h"
#include "support/diagnostics.h"
#include "support/stack_guard.h"
#include "support/strings.h"

void EnsureLibraryInitialised() { VeltJS_Init(); }

CompileUnit* ParseAndCompile(const std::string& source, bool topLevel, const char* scriptName,
                             const char* fileName) {
    EnsureLibraryInitialised();
    CompileUnit* unit = VeltJS_Parse(source.c_str(), fileName, scriptName);
    if (!unit || unit->status != 0) return unit;
    return VeltJS_Compile(unit, topLevel ? 1 : 0);
}

Node* ParseFirst(const std::string& source, const char* scriptName) {
    EnsureLibraryInitialised();
    CompileUnit* unit = VeltJS_Parse(source.c_str(), "test.js", scriptName);
    EXPECT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "") << "source: " << source;
    Parser* parser = static_cast<Parser*>(unit->parser);
    return parser ? parser->root.first : nullptr;
}

std::vector<uint32_t> UnitWords(const CompileUnit* unit) {
    std::vector<uint32_t> words;
    if (!unit || !unit->code) return words;
    words.assign(unit->code, unit->code + unit->codeSize / 4);
    return words;
}

std::vector<uint32_t> UnitPositionWords(const CompileUnit* unit) {
    std::vector<uint32_t> words;
    if (!unit || !unit->code2) return words;
    words.assign(unit->code2, unit->code2 + unit->code2Size / 4);
    return words;
}

std::vector<uint32_t> CompileWords(const std::string& source, bool topLevel, const char* scriptName) {
    CompileUnit* unit = ParseAndCompile(source, topLevel, scriptName);
    EXPECT_NE(unit, nullptr);
    if (!unit) return {};
    EXPECT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "") << "source: " << source;
    return UnitWords(unit);
}

std::string CompileError(const std::string& source, bool topLevel, const char* scriptName,
                         const char* fileName) {
    CompileUnit* unit = ParseAndCompile(source, topLevel, scriptName, fileName);
    EXPECT_NE(unit, nullptr);
    if (!unit) return "";
    EXPECT_NE(unit->status, 0) << "source: " << source;
    if (unit->errorCount < 1 || !unit->errors || !unit->errors[0]) return "";
    return unit->errors[0];
}

std::string Listing(const uint32_t* code, int64_t bytes) {
    char* text = VeltJS_Disasm(code, bytes);
    if (!text) return "";
    std::string result(text);
    std::free(text);
    return result;
}

std::string Listing(const std::vector<uint32_t>& words) {
    return Listing(words.data(), static_cast<int64_t>(words.size() * 4));
}

int32_t NameIndex(const char* text) {
    char** names = reinterpret_cast<char**>(NameArray.data);
    for (int32_t i = 0; i < NameArray.count; i++) {
        if (names[i] && std::strcmp(names[i], text) == 0) return i;
    }
    return -1;
}

ExpressionResult CompileExpressionNode(Node* node, bool withScope, const char* scriptName) {
    TestCompile t(scriptName);
    CompileExpression(t.cx, node, withScope);
    return {t.Words(), t.Types()};
}

ExpressionResult CompileExpressionSource(const std::string& source, bool withScope) {
    return CompileExpressionNode(ParseFirst(source), withScope);
}

uint32_t NameId(const char* text) { return static_cast<uint32_t>(NameIndex(text)); }
uint32_t NameRef(const char* text) { return 0xA0000000u | NameId(text); }
uint32_t NameDecl(const char* text) { return 0xB0000000u | NameId(text); }

std::string HexWords(const std::vector<uint32_t>& words) {
    std::string text;
    char line[16];
    for (uint32_t word : words) {
        std::snprintf(line, sizeof line, "%08x\n", word);
        text += line;
    }
    return text;
}

std::string ReadTestData(const char* name) {
    std::ifstream file(std::string(VELTJS_TEST_DATA) + "/" + name, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

const SourcePosition* TestPosition(int32_t line) {
    static RefString* source = NewRefString("");
    static RefString* fileName = NewRefString("test.js");
    static RefString** sourceHandle = NewRefHandle(source);
    static RefString** fileHandle = NewRefHandle(fileName);
    // One record per line, kept for the life of the process.
    static std::vector<SourcePosition*> positions;
    for (SourcePosition* position : positions) {
        if (position->line == line) return position;
    }
    SourcePosition* position = new SourcePosition{sourceHandle, fileHandle, line, 1, 0};
    positions.push_back(position);
    return position;
}

Node* N(uint32_t kind, const char* text, std::initializer_list<Node*> children, int32_t line) {
    RefString* string = NewRefString(text);
    Node* node = MakeNode(kind, string, TestPosition(line));
    ReleaseRefString(string);
    for (Node* child : children) AppendChild(node, child);
    return node;
}

Node* Id(const char* name) { return N(LEX_ID, name); }
Node* Int(const char* text) { return N(LEX_INT, text); }
Node* Str(const char* text) { return N(LEX_STR, text); }

Node* Op(uint32_t kind, std::initializer_list<Node*> children) {
    char text[2] = {static_cast<char>(kind < 128 ? kind : '?'), 0};
    return N(kind, text, children);
}

TestCompile::TestCompile(const char* scriptName, uint8_t topLevel) {
    EnsureLibraryInitialised();
    BeginCompile(cx, scriptName, topLevel);
}

TestCompile::~TestCompile() { CleanUpContext(cx); }

std::vector<uint32_t> TestCompile::Words() const {
    std::vector<uint32_t> words;
    if (!cx.code) return words;
    const uint32_t* data = reinterpret_cast<const uint32_t*>(cx.code->data);
    words.assign(data, data + CodeOffset(cx) / 4);
    return words;
}

std::vector<uint32_t> TestCompile::Types() const {
    return std::vector<uint32_t>(cx.typeStack, cx.typeStack + cx.typeDepth);
}

std::string ErrorOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const CompileException& exception) {
        return exception.what();
    }
    return "";
}

std::string CaptureStdout(const std::function<void()>& body) {
    std::fflush(stdout);
    FILE* capture = std::tmpfile();
    int saved = dup(1);
    dup2(fileno(capture), 1);
    try {
        body();
    } catch (...) {
        std::fflush(stdout);
        dup2(saved, 1);
        close(saved);
        std::fclose(capture);
        throw;
    }
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    std::rewind(capture);
    std::string text;
    char buffer[512];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, capture)) > 0) text.append(buffer, got);
    std::fclose(capture);
    return text;
}

namespace {

struct ThreadCall {
    const std::function<void()>* body;
    std::exception_ptr failure;
};

void* RunThreadCall(void* argument) {
    ThreadCall* call = static_cast<ThreadCall*>(argument);
    try {
        (*call->body)();
    } catch (...) {
        call->failure = std::current_exception();
    }
    return nullptr;
}

}  // namespace

void RunOnThreadWithStack(size_t stackBytes, const std::function<void()>& body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
    ThreadCall call{&body, nullptr};
    pthread_t thread;
    int created = pthread_create(&thread, &attributes, RunThreadCall, &call);
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(created, 0);
    pthread_join(thread, nullptr);
    if (call.failure) std::rethrow_exception(call.failure);
}
