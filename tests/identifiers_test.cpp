// Identifiers, members and elements: reads, stores, delete and simple assignment. Each test runs
// in its own process: the first interned name has index 3.
#include <gtest/gtest.h>

#include "helpers/compile_support.h"
#include "state/process_state.h"

namespace {

using Words = std::vector<uint32_t>;
using Types = std::vector<uint32_t>;

constexpr uint32_t Ref(uint32_t index) { return 0xA0000000u | index; }

const char* Name(uint32_t index) { return static_cast<const char*>(NameArray.data[index]); }

PatchRecord* LastVarPatch() { return static_cast<PatchRecord*>(GlobalVarList.data[GlobalVarList.count - 1]); }

Words ReadWords(TestCompile& t, Node* node, int32_t kind, bool wantObject = false) {
    CompileVariable(t.cx, node, &kind, wantObject);
    return t.Words();
}

}  // namespace

// ---- reads

TEST(Identifier, UnresolvedNameReadsWithSelectorMinus11) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, Id("x"), &kind, false);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF5u, Ref(3)}));
    EXPECT_EQ(kind, VarUnresolved);
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
    EXPECT_EQ(LastVarPatch()->kind, 0u);
    EXPECT_EQ(LastVarPatch()->codeOffset, 0u);
}

TEST(Identifier, ThisAndOtherCompileToCalls) {
    TestCompile t;
    int32_t thisKind = VarUnknown;
    CompileVariable(t.cx, Id("this"), &thisKind, false);
    int32_t otherKind = VarUnknown;
    CompileVariable(t.cx, Id("other"), &otherKind, false);
    EXPECT_EQ(t.Words(), (Words{0xD9020000u, 3, 0xD9020000u, 4}));
    EXPECT_STREQ(Name(3), "@@This@@");
    EXPECT_STREQ(Name(4), "@@Other@@");
    EXPECT_EQ(thisKind, VarMember);
    EXPECT_EQ(otherKind, VarMember);
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE, TYPE_VARIABLE}));
}

TEST(Identifier, CapitalisedThisIsAnOrdinaryName) {
    TestCompile t;
    EXPECT_EQ(ReadWords(t, Id("This"), VarUnknown), (Words{0xC005FFF5u, Ref(3)}));
    EXPECT_STREQ(Name(3), "This");
}

TEST(Identifier, ThisKeywordWithObjectDuplicatesTheCall) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, N(LEX_THIS, "this"), &kind, true);
    EXPECT_EQ(t.Words(), (Words{0xD9020000u, 3, 0x86050000u}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE, TYPE_VARIABLE}));
}

TEST(Identifier, BuiltInNameForACallPushesThisAsTheObject) {
    TestCompile t;
    VeltJS_AddBuiltInFunction("show");
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, Id("show"), &kind, true);
    EXPECT_EQ(t.Words(), (Words{0xD9020000u, 3, 0xC005FFF5u, Ref(4)}));
    EXPECT_STREQ(Name(3), "@@This@@");
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE, TYPE_VARIABLE}));
}

TEST(Identifier, OtherNameForACallPushesTheGlobalScope) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, Id("foo"), &kind, true);
    EXPECT_EQ(t.Words(), (Words{0xD9020000u, 3, 0xC005FFF5u, Ref(4)}));
    EXPECT_STREQ(Name(3), "@@GlobalScope@@");
}

TEST(Identifier, LocalVariableReadsWithSelectorMinus12) {
    TestCompile t;
    FunctionRecord f{};
    f.flags = 4;
    PushScope(t.cx, &f);
    DeclareLocal(t.cx, "v", 0, 0xFFFFFFFFu);
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, Id("v"), &kind, false);
    EXPECT_EQ(kind, VarLocal);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF4u, Ref(3)}));
    EXPECT_EQ(LastVarPatch()->kind, 2u);
}

TEST(Identifier, ParameterReadsWithDepthAndSlotAndNoPatch) {
    TestCompile t;
    FunctionRecord outer{};
    FunctionRecord inner{};
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "p", 1, 0);
    DeclareLocal(t.cx, "q", 1, 2);
    PushScope(t.cx, &inner);
    int32_t patches = GlobalVarList.count;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, Id("q"), &kind, false);
    EXPECT_EQ(kind, VarArgument);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF3u, 0xA0000102u}));
    EXPECT_EQ(GlobalVarList.count, patches);
    EXPECT_EQ(outer.flags, 1u);
}

TEST(Identifier, OwnParameterHasDepthZero) {
    TestCompile t;
    FunctionRecord f{};
    PushScope(t.cx, &f);
    DeclareLocal(t.cx, "p", 1, 1);
    EXPECT_EQ(ReadWords(t, Id("p"), VarUnknown), (Words{0xC005FFF3u, 0xA0000001u}));
}

TEST(Identifier, ParameterWithoutSlotTakesItsOperandFromAPatch) {
    TestCompile t;
    FunctionRecord f{};
    PushScope(t.cx, &f);
    VarEntry* p = DeclareLocal(t.cx, "p", 1, 0);
    p->slot = 0xFFFFFFFFu;
    int32_t patches = GlobalVarList.count;
    EXPECT_EQ(ReadWords(t, Id("p"), VarUnknown), (Words{0xC005FFF3u, 0xA0000000u | 3u}));
    EXPECT_EQ(GlobalVarList.count, patches + 1);
    EXPECT_EQ(LastVarPatch()->kind, 5u);
}

// A kind given by the caller survives only for a name in the slot table; otherwise the search
// among functions turns it into VarUnresolved.
TEST(Identifier, BuiltinKindReadsWithPushbAndMinus6) {
    TestCompile t;
    DeclareSlot(t.cx, "b");
    EXPECT_EQ(ReadWords(t, Id("b"), VarBuiltin), (Words{0xC305FFFAu, Ref(3)}));
    EXPECT_EQ(LastVarPatch()->kind, 1u);
}

TEST(Identifier, SelfKindReadsWithMinus1) {
    TestCompile t;
    DeclareSlot(t.cx, "prototype");
    EXPECT_EQ(ReadWords(t, Id("prototype"), VarSelf), (Words{0xC005FFFFu, Ref(0)}));
}

TEST(Identifier, GivenKindOfANameOutsideTheSlotTableBecomesUnresolved) {
    TestCompile t;
    int32_t kind = VarBuiltin;
    CompileVariable(t.cx, Id("b"), &kind, false);
    EXPECT_EQ(kind, VarUnresolved);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF5u, Ref(3)}));
}

TEST(Identifier, MemberKindStaysForAName) {
    TestCompile t;
    EXPECT_EQ(ReadWords(t, Id("m"), VarMember), (Words{0xC005FFF7u, Ref(3)}));
}

TEST(Identifier, UnknownKindIsReportedAsMinus12) {
    TestCompile t;
    DeclareSlot(t.cx, "z");
    int32_t kind = 9;
    std::string error = ErrorOf([&] { CompileVariable(t.cx, Id("z"), &kind, false); });
    EXPECT_EQ(error, "Error : test.js(1) : unknown var type when compiling LEX_ID type=-12\n");
}

TEST(Identifier, NameInTheSlotTableIsNotSearchedAmongFunctions) {
    TestCompile t;
    DeclareSlot(t.cx, "s");
    FunctionRecord s{};
    s.declaredNameIndex = static_cast<uint32_t>(InternName("s"));
    s.nameIndex = s.declaredNameIndex;
    ScopeRecord* global = static_cast<ScopeRecord*>(t.cx.scopes.last->value);
    HashInsert(global->extra, "s", &s);
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, Id("s"), &kind, false);
    EXPECT_EQ(kind, VarUnresolved);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF5u, Ref(3)}));
}

TEST(Identifier, DeclaredFunctionIsReadAsAScriptReference) {
    TestCompile t;
    FunctionRecord f{};
    f.declaredNameIndex = static_cast<uint32_t>(InternName("f"));   // 3
    f.nameIndex = static_cast<uint32_t>(InternName("g@f"));         // 4
    ScopeRecord* global = static_cast<ScopeRecord*>(t.cx.scopes.last->value);
    HashInsert(global->extra, "f", &f);
    FunctionRecord g{};
    PushScope(t.cx, &g);
    int32_t patches = GlobalVarList.count;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, Id("f"), &kind, false);
    EXPECT_EQ(kind, VarLocal);
    EXPECT_EQ(t.Words(), (Words{0xC0020000u, 4, 0x07520000u, 0xD9020001u, 5}));
    EXPECT_STREQ(Name(5), "@@script_ref@@");
    EXPECT_EQ(GlobalVarList.count, patches);
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}

TEST(Identifier, FunctionWithAnEqualHashButAnotherNameIsNotFound) {
    TestCompile t;
    FunctionRecord f{};
    f.declaredNameIndex = static_cast<uint32_t>(InternName("plumless"));   // 3
    f.nameIndex = f.declaredNameIndex;
    ScopeRecord* global = static_cast<ScopeRecord*>(t.cx.scopes.last->value);
    HashInsert(global->extra, "plumless", &f);
    EXPECT_EQ(ReadWords(t, Id("buckeroo"), VarUnknown), (Words{0xC005FFF5u, Ref(4)}));
}

TEST(Identifier, DeclaredFunctionIsFoundThroughTheWholeCompile) {
    CompileUnit* unit = ParseAndCompile("function f() {}\nf;");
    ASSERT_EQ(unit->status, 0) << unit->errors[0];
    std::vector<uint32_t> words = UnitWords(unit);
    int32_t f = NameIndex("f");
    int32_t scriptRef = NameIndex("@@script_ref@@");
    ASSERT_GE(words.size(), 6u);
    // The statement `f;`: the reference, then its discard.
    Words tail(words.end() - 6, words.end());
    EXPECT_EQ(tail, (Words{0xC0020000u, static_cast<uint32_t>(f), 0x07520000u, 0xD9020001u,
                           static_cast<uint32_t>(scriptRef), 0x9E050000u}))
        << HexWords(words);
}

// ---- members and elements

TEST(Member, ReadsTheObjectThenThePropertyWithMinus9) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, ParseFirst("a.b"), &kind, false);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF5u, Ref(3), 0xC005FFF7u, Ref(4)}));
    EXPECT_EQ(kind, VarMember);
    EXPECT_EQ(LastVarPatch()->kind, 4u);
}

TEST(Member, ForACallDuplicatesTheObject) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, ParseFirst("a.b"), &kind, true);
    EXPECT_EQ(t.Words(), (Words{0xC005FFF5u, Ref(3), 0x86050000u, 0xC005FFF7u, Ref(4)}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE, TYPE_VARIABLE}));
}

TEST(Member, ObjectOfAnotherTypeIsConverted) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, ParseFirst("'s'.length"), &kind, false);
    EXPECT_EQ(t.Words(), (Words{0xC0060000u, 3, 0x07560000u, 0xC005FFF7u, Ref(4)}));
}

TEST(Element, ReadPushesIndexThenArray) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, ParseFirst("a[1]"), &kind, false);
    EXPECT_EQ(t.Words(), (Words{0xC00F0001u, 0x07520000u, 0xC005FFF5u, Ref(3), 0x8055FFF6u}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}

TEST(Element, ReadKeepingTheReference) {
    TestCompile t;
    int32_t kind = VarUnknown;
    CompileVariable(t.cx, ParseFirst("a[i]"), &kind, true);
    Words expected = {0xC005FFF5u, Ref(3), 0xC005FFF5u, Ref(4), 0x86050001u, 0x8055FFF6u, 0x8605FF21u, 0x9E050000u};
    EXPECT_EQ(t.Words(), expected) << HexWords(t.Words());
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE, TYPE_VARIABLE}));
}

TEST(Element, ArrayPartTakesTheCallersKind) {
    TestCompile t;
    FunctionRecord f{};
    PushScope(t.cx, &f);
    DeclareLocal(t.cx, "a", 0, 0xFFFFFFFFu);
    int32_t kind = VarUnknown;
    CompileElementRead(t.cx, ParseFirst("a[0]"), &kind, false);
    EXPECT_EQ(kind, VarLocal);
    EXPECT_EQ(t.Words(), (Words{0xC00F0000u, 0x07520000u, 0xC005FFF4u, Ref(3), 0x8055FFF6u}));
}

TEST(Element, NonReferenceIsAnUnknownLexicalType) {
    TestCompile t;
    int32_t kind = VarUnknown;
    std::string error = ErrorOf([&] { CompileVariable(t.cx, Int("1"), &kind, false); });
    EXPECT_EQ(error, "Error : test.js(1) : unknown lexical type\n");
}

// ---- stores

TEST(Store, UnresolvedAssignmentStoresAndReadsBack) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("x = 1"), false);
    EXPECT_EQ(t.Words(), (Words{0xC00F0001u, 0x4525FFF5u, Ref(3), 0xC005FFF5u, Ref(3)}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}

TEST(Store, MemberAssignmentWritesWithMinus9AndReadsTheObjectTwice) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("a.b = 1"), false);
    Words expected = {0xC00F0001u, 0xC005FFF5u, Ref(3), 0x4525FFF7u, Ref(4),
                      0xC005FFF5u, Ref(3), 0xC005FFF7u, Ref(4)};
    EXPECT_EQ(t.Words(), expected) << HexWords(t.Words());
}

TEST(Store, ElementAssignmentUsesPopv) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("a[0] = 's'"), false);
    // 's' 3, a 4
    Words expected = {0xC0060000u, 3, 0xC00F0000u, 0x07520000u, 0xC005FFF5u, Ref(4), 0x0565FFF6u,
                      0xC00F0000u, 0x07520000u, 0xC005FFF5u, Ref(4), 0x8055FFF6u};
    EXPECT_EQ(t.Words(), expected) << HexWords(t.Words());
}

TEST(Store, ElementOfACallResultIsAnUnknownLexicalType) {
    EXPECT_EQ(CompileError("f()[0] = 1;"), "Error : test.js(1) : unknown lexical type\n");
}

TEST(Store, ThisIsNotAnAssignableTarget) {
    TestCompile t;
    std::string error = ErrorOf([&] { CompileAssignment(t.cx, N('=', "=", {N(LEX_THIS, "this"), Int("1")})); });
    EXPECT_EQ(error, "Error : test.js(1) : Assignment error - left hand side is malformed\n");
}

TEST(Store, LiteralTargetIsMalformed) {
    TestCompile t;
    int32_t kind = VarUnknown;
    std::string error = ErrorOf([&] { CompileStore(t.cx, N(LEX_INT, "1", {}, 4), &kind, TYPE_INT); });
    EXPECT_EQ(error, "Error : test.js(4) : Assignment error - left hand side is malformed\n");
}

TEST(Store, EveryKindsWriteSelector) {
    struct Case {
        int32_t kind;
        uint32_t word;
    };
    const Case cases[] = {
        {VarUnresolved, 0x4525FFF5u}, {VarBuiltin, 0x4525FFFBu}, {VarLocal, 0x4525FFF4u},
        {VarSelf, 0x4525FFFFu},       {VarMember, 0x4525FFF7u},  {7, 0x4525FFF4u},
    };
    for (const Case& c : cases) {
        TestCompile t;
        int32_t kind = c.kind;
        CompileStore(t.cx, Id("n"), &kind, TYPE_INT);
        Words words = t.Words();
        ASSERT_EQ(words.size(), 2u);
        EXPECT_EQ(words[0], c.word) << c.kind;
        EXPECT_EQ(words[1] >> 28, 0xAu);
        EXPECT_STREQ(Name(words[1] & 0x0FFFFFFFu), "n");
        EXPECT_EQ(LastVarPatch()->kind, static_cast<uint32_t>(c.kind));
    }
}

TEST(Store, ParameterIsWrittenWithMinus13AndItsSlot) {
    TestCompile t;
    FunctionRecord outer{};
    FunctionRecord inner{};
    PushScope(t.cx, &outer);
    DeclareLocal(t.cx, "p", 1, 4);
    PushScope(t.cx, &inner);
    int32_t patches = GlobalVarList.count;
    int32_t kind = VarUnknown;
    CompileStore(t.cx, Id("p"), &kind, TYPE_STRING);
    EXPECT_EQ(t.Words(), (Words{0x4565FFF3u, 0xA0000104u}));
    EXPECT_EQ(GlobalVarList.count, patches);
}

TEST(Store, LocalVariableIsWrittenWithMinus12) {
    TestCompile t;
    FunctionRecord f{};
    PushScope(t.cx, &f);
    DeclareLocal(t.cx, "v", 0, 0xFFFFFFFFu);
    int32_t kind = VarUnknown;
    CompileStore(t.cx, Id("v"), &kind, TYPE_VARIABLE);
    EXPECT_EQ(kind, VarLocal);
    EXPECT_EQ(t.Words(), (Words{0x4555FFF4u, Ref(3)}));
}

// ---- delete

TEST(Delete, OfAConstantDiscardsItAndYieldsTrue) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("delete 5"), false);
    EXPECT_EQ(t.Words(), (Words{0xC00F0005u, 0x9E020000u, 0xC0040000u, 0x00000001u, 0x07540000u}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}

TEST(Delete, OfANameIsAStoreWithValueType8) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("delete x"), false);
    EXPECT_EQ(t.Words(), (Words{0x4585FFF5u, Ref(3)}));
    EXPECT_EQ(t.Types(), (Types{TYPE_VARIABLE}));
}

TEST(Delete, OfAMemberAndOfAnElement) {
    TestCompile t;
    CompileExpression(t.cx, ParseFirst("delete a.b"), false);
    CompileExpression(t.cx, ParseFirst("delete a[0]"), false);
    Words expected = {0xC005FFF5u, Ref(3), 0x4585FFF7u, Ref(4),
                      0xC00F0000u, 0x07520000u, 0xC005FFF5u, Ref(3), 0x0585FFF6u};
    EXPECT_EQ(t.Words(), expected) << HexWords(t.Words());
}

TEST(Delete, OfThisIsNotAReference) {
    TestCompile t;
    CompileDelete(t.cx, N(LEX_DELETE, "delete", {N(LEX_THIS, "this")}));
    EXPECT_EQ(t.Words(), (Words{0xD9020000u, 3, 0x9E050000u, 0xC0040000u, 0x00000001u, 0x07540000u}));
}

TEST(Delete, WithoutChildTakesTheNextSibling) {
    TestCompile t;
    Node* parent = N(';', ";", {N(LEX_DELETE, "delete"), Id("y")});
    CompileDelete(t.cx, parent->first);
    EXPECT_EQ(t.Words(), (Words{0x4585FFF5u, Ref(3)}));
}
