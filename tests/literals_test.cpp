// Object and array literals. Each test runs in its own process: the first interned name has
// index 3.
#include <gtest/gtest.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "helpers/compile_support.h"
#include "state/process_state.h"

namespace {

using Words = std::vector<uint32_t>;
using Types = std::vector<uint32_t>;


std::string ErrorCompiling(const std::string& source) {
    TestCompile t;
    Node* node = ParseFirst(source);
    return ErrorOf([&] { CompileExpression(t.cx, node, false); });
}

const char* Name(uint32_t index) { return static_cast<const char*>(NameArray.data[index]); }

// One instruction: its word and its first operand word (0 when it has none).
struct Instruction {
    uint32_t word;
    uint32_t operand;
};

std::vector<Instruction> Decode(const Words& words) {
    std::vector<Instruction> out;
    for (size_t i = 0; i < words.size();) {
        uint32_t length = InstructionLength(words[i]) / 4;
        out.push_back({words[i], length > 1 && i + 1 < words.size() ? words[i + 1] : 0});
        i += length;
    }
    return out;
}

// The names pushed right after each call of @@NewProperty@@, in code order.
std::vector<std::string> AccessorPropertyNames(const Words& words) {
    std::vector<Instruction> code = Decode(words);
    std::vector<std::string> names;
    for (size_t i = 0; i + 1 < code.size(); i++) {
        if (code[i].word == 0xD9020002u && std::string(Name(code[i].operand)) == "@@NewProperty@@") {
            EXPECT_EQ(code[i + 1].word, 0xC0060000u);
            names.push_back(Name(code[i + 1].operand));
        }
    }
    return names;
}

// The call words of the named runner function, in code order.
std::vector<uint32_t> CallsOf(const Words& words, const char* name) {
    std::vector<uint32_t> calls;
    for (const Instruction& instruction : Decode(words)) {
        if ((instruction.word >> 24) == OP_CALL && std::string(Name(instruction.operand)) == name) {
            calls.push_back(instruction.word);
        }
    }
    return calls;
}

}  // namespace

TEST(ObjectLiteral, PlainPropertiesPushValueThenName) {
    ExpressionResult r = CompileExpressionSource("({a: 1, b: 'x'})");
    // "a" 3, "x" 4, "b" 5, "@@NewObject@@" 6
    Words expected = {0xC00F0001u, 0x07520000u, 0xC0060000u, 3, 0x07560000u,
                      0xC0060000u, 4, 0x07560000u, 0xC0060000u, 5, 0x07560000u,
                      0xD9020004u, 6};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_STREQ(Name(6), "@@NewObject@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(ObjectLiteral, EmptyObjectIsOnlyTheCall) {
    ExpressionResult r = CompileExpressionSource("({})");
    EXPECT_EQ(r.words, (Words{0xD9020000u, 3}));
    EXPECT_STREQ(Name(3), "@@NewObject@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(ObjectLiteral, VariableValueIsNotConverted) {
    ExpressionResult r = CompileExpressionSource("({k: v})");
    // "v" 3, "k" 4
    EXPECT_EQ(r.words, (Words{0xC005FFF5u, 0xA0000003u, 0xC0060000u, 4, 0x07560000u, 0xD9020002u, 5}));
}

TEST(ObjectLiteral, GetterAlonePassesUndefinedAsTheSetter) {
    ExpressionResult r = CompileExpressionSource("({get x() {}})");
    std::vector<Instruction> code = Decode(r.words);
    // ... function reference; push.v undefined; call @@NewProperty@@ 2; push.s "x"; conv.s.v;
    // call @@NewObject@@ 2
    ASSERT_GE(code.size(), 5u);
    size_t n = code.size();
    EXPECT_EQ(code[n - 5].word, 0xC005FFF5u);
    EXPECT_STREQ(Name(code[n - 5].operand & 0x0FFFFFFFu), "undefined");
    EXPECT_EQ(code[n - 5].operand >> 28, 0xAu);
    EXPECT_EQ(code[n - 4].word, 0xD9020002u);
    EXPECT_STREQ(Name(code[n - 4].operand), "@@NewProperty@@");
    EXPECT_EQ(code[n - 3].word, 0xC0060000u);
    EXPECT_STREQ(Name(code[n - 3].operand), "x");
    EXPECT_EQ(code[n - 2].word, 0x07560000u);
    EXPECT_EQ(code[n - 1].word, 0xD9020002u);
    EXPECT_STREQ(Name(code[n - 1].operand), "@@NewObject@@");
    EXPECT_GE(NameIndex("__getfn0"), 0);
    EXPECT_EQ(CodeGenState().accessorCounter, 1);
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(ObjectLiteral, SetterAloneHasUndefinedAsTheGetter) {
    ExpressionResult r = CompileExpressionSource("({set x(v) {}})");
    std::vector<Instruction> code = Decode(r.words);
    ASSERT_GE(code.size(), 1u);
    EXPECT_EQ(code[0].word, 0xC005FFF5u);
    EXPECT_STREQ(Name(code[0].operand & 0x0FFFFFFFu), "undefined");
    EXPECT_GE(NameIndex("__setfn0"), 0);
    EXPECT_EQ(AccessorPropertyNames(r.words), (std::vector<std::string>{"x"}));
}

TEST(ObjectLiteral, GetterAndSetterShareOneRecordAndOneCall) {
    ExpressionResult r = CompileExpressionSource("({get x() {}, set x(v) {}})");
    EXPECT_EQ(AccessorPropertyNames(r.words), (std::vector<std::string>{"x"}));
    EXPECT_EQ(CallsOf(r.words, "@@NewObject@@"), (std::vector<uint32_t>{0xD9020002u}));
    EXPECT_GE(NameIndex("__getfn0"), 0);
    EXPECT_GE(NameIndex("__setfn1"), 0);
    EXPECT_EQ(CodeGenState().accessorCounter, 2);
}

TEST(ObjectLiteral, SecondGetterForANameFails) {
    EXPECT_EQ(ErrorCompiling("({get x() {},\n get x() {}})"),
              "Error : test.js(2) : getter has already been set for property x\n");
}

TEST(ObjectLiteral, SecondSetterForANameFails) {
    EXPECT_EQ(ErrorCompiling("({set x(a) {}, set x(b) {}})"),
              "Error : test.js(1) : setter has already been set for property x\n");
}

TEST(ObjectLiteral, NamesWithEqualHashShareOneAccessorRecord) {
    ASSERT_EQ(NameHash("plumless"), NameHash("buckeroo"));
    ExpressionResult r = CompileExpressionSource("({get plumless() {}, set buckeroo(v) {}})");
    EXPECT_EQ(AccessorPropertyNames(r.words), (std::vector<std::string>{"plumless"}));
    EXPECT_EQ(CallsOf(r.words, "@@NewObject@@"), (std::vector<uint32_t>{0xD9020002u}));
}

TEST(ObjectLiteral, GetterForANameWithTheSameHashAsAnotherGetterFails) {
    EXPECT_EQ(ErrorCompiling("({get plumless() {}, get buckeroo() {}})"),
              "Error : test.js(1) : getter has already been set for property buckeroo\n");
}

TEST(ObjectLiteral, AccessorsFollowInBucketOrderAfterThePlainProperties) {
    // Buckets (NameHash & 7): a 4, b 6, c 0, d 3.
    ExpressionResult r = CompileExpressionSource("({get a() {}, get b() {}, p: 1, get c() {}, get d() {}})");
    EXPECT_EQ(AccessorPropertyNames(r.words), (std::vector<std::string>{"c", "d", "a", "b"}));
    // The plain property comes first.
    std::vector<Instruction> code = Decode(r.words);
    EXPECT_EQ(code[0].word, 0xC00F0001u);
    EXPECT_STREQ(Name(code[2].operand), "p");
    // Generated names follow the bucket order too.
    EXPECT_LT(NameIndex("__getfn0"), NameIndex("__getfn1"));
    int32_t c = NameIndex("__getfn0");
    int32_t a = NameIndex("__getfn2");
    ASSERT_GE(c, 0);
    ASSERT_GE(a, 0);
    EXPECT_EQ(CallsOf(r.words, "@@NewObject@@"), (std::vector<uint32_t>{0xD902000Au}));
}

TEST(ObjectLiteral, EveryKeyOfALargeLiteralIsTheNameItsPropertyWrites) {
    // Twenty thousand properties, keys new and repeated, with accessors among them: the literal's
    // compile looks ahead at the keys of the properties after the one it compiles, and every
    // plain property must still write its own key, at the key's lowest index.
    std::string source = "x = {";
    std::vector<std::string> keys;
    for (int i = 0; i < 20000; i++) {
        if (i % 1000 == 500) source += "get g" + std::to_string(i) + "() { return 1; }, ";
        std::string key = i % 3 == 0 ? "k" + std::to_string(i % 700) : "key" + std::to_string(i);
        source += key + ": " + std::to_string(i) + ", ";
        keys.push_back(key);
    }
    source += "last: 0};";
    keys.push_back("last");
    CompileUnit* unit = ParseAndCompile(source);
    ASSERT_NE(unit, nullptr);
    ASSERT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "");
    // The plain properties' keys, in order, then the twenty accessors' names.
    ASSERT_EQ(unit->stringCount, static_cast<int32_t>(keys.size()) + 20);
    std::unordered_map<std::string, uint32_t> lowest;
    for (int32_t i = unit->nameCount - 1; i >= 0; i--) {
        if (unit->names[i]) lowest[unit->names[i]] = static_cast<uint32_t>(i);
    }
    for (size_t i = 0; i < keys.size(); i++) {
        uint32_t index = unit->strings[i]->nameIndex;
        ASSERT_LT(static_cast<int32_t>(index), unit->nameCount) << i;
        ASSERT_NE(unit->names[index], nullptr) << i;
        ASSERT_EQ(std::string(unit->names[index]), keys[i]) << i;
        ASSERT_EQ(lowest[keys[i]], index) << i;
    }
}

TEST(ArrayLiteral, ElementsArePushedLastFirst) {
    ExpressionResult r = CompileExpressionSource("[1, 2, 3]");
    Words expected = {0xC00F0003u, 0x07520000u, 0xC00F0002u, 0x07520000u, 0xC00F0001u, 0x07520000u,
                      0xD9020003u, 3};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
    EXPECT_STREQ(Name(3), "@@NewArray@@");
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(ArrayLiteral, EmptyArrayIsOnlyTheCall) {
    ExpressionResult r = CompileExpressionSource("[]");
    EXPECT_EQ(r.words, (Words{0xD9020000u, 3}));
    EXPECT_EQ(r.types, (Types{TYPE_VARIABLE}));
}

TEST(ArrayLiteral, HolesPushTheElisionValue) {
    ExpressionResult r = CompileExpressionSource("[1, , 'a']");
    // "a" 3, "@@NewArray@@" 4
    Words expected = {0xC0060000u, 3, 0x07560000u, 0xC005FFF2u, 0xA0000000u, 0xC00F0001u, 0x07520000u,
                      0xD9020003u, 4};
    EXPECT_EQ(r.words, expected) << HexWords(r.words);
}

TEST(ArrayLiteral, CompilesByHandBuiltTreeWithoutParser) {
    TestCompile t;
    CompileArrayLiteral(t.cx, N(LEX_ARRAY, "[", {Id("a"), Int("7")}));
    EXPECT_EQ(t.Words(), (Words{0xC00F0007u, 0x07520000u, 0xC005FFF5u, 0xA0000003u, 0xD9020002u, 4}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}
