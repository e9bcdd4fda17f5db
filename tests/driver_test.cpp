// The compile driver: hoisting on the tree, the statement list, and var-name collection.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "codegen/codegen.h"
#include "helpers/compile_support.h"
#include "parser/parser.h"

namespace {

Node* Function(const char* name, std::initializer_list<Node*> body = {}) {
    return N(LEX_FUNCTION, "function", {Id(name), N('(', "("), N('{', "{", body)});
}

Node* Var(const char* name, Node* initializer = nullptr) {
    Node* declarator = Id(name);
    if (initializer) AppendChild(declarator, initializer);
    return N(LEX_VAR, "var", {declarator});
}

Node* Call(const char* name) { return N('(', "(", {Id(name)}); }

// The list's head, found by walking back from any node of it.
Node* HeadOf(Node* node) {
    while (node->prev) node = node->prev;
    return node;
}

// "var a", "function f", or the node's text.
std::vector<std::string> Describe(Node* head) {
    std::vector<std::string> items;
    for (Node* node = head; node; node = node->next) {
        if (node->kind == LEX_VAR) {
            items.push_back(std::string("var ") + node->first->text->text);
        } else if (node->kind == LEX_FUNCTION) {
            items.push_back(std::string("function ") + node->first->text->text);
        } else {
            items.push_back(node->text->text);
        }
    }
    return items;
}

using Items = std::vector<std::string>;

}  // namespace

TEST(Driver, FunctionIsCompiledBeforeTheCallThatPrecedesIt) {
    TestCompile t("main", 0);
    Node* root = N('{', "{", {Call("x"), Function("x")});
    CompileProgram(t.cx, root->first);
    // One function heads the list, so even without the top-level flag it gets no `var`.
    EXPECT_EQ(Describe(HeadOf(root->first)), (Items{"function x", "("}));
    std::vector<uint32_t> words = t.Words();
    ASSERT_FALSE(words.empty());
    EXPECT_EQ(words[0] >> 24, static_cast<uint32_t>(OP_B));
}

TEST(Driver, TwoFunctionsWithoutTopLevelGetTwoVarsForTheFirst) {
    TestCompile t("main", 0);
    Node* root = N('{', "{", {Function("f"), Function("g"), Int("1")});
    CompileProgram(t.cx, root->first);
    EXPECT_EQ(Describe(HeadOf(root->first)), (Items{"var f", "var f", "function g", "function f", "1"}));
}

// Declaring the function names walks the hoisted list only as far as the script's first statement:
// every other function declaration was moved in front of it. A first statement that is a function
// itself still gets its `var`, and so does every function hoisted from far down the list.
TEST(Driver, DeclaringFunctionNamesCoversEveryFunctionUpToTheFirstStatement) {
    TestCompile t("main", 0);
    Node* root = N('{', "{", {Function("first"), Int("1"), Function("second"), Int("2"), Function("third")});
    CompileProgram(t.cx, root->first);
    EXPECT_EQ(Describe(HeadOf(root->first)), (Items{"var second", "var first", "var first", "var second", "function third",
                                                    "function second", "function first", "1", "2"}));

    TestCompile u("main", 0);
    std::vector<Node*> statements{Int("0")};
    for (int i = 0; i < 200; i++) statements.push_back(Int("1"));
    statements.push_back(Function("late"));
    statements.push_back(Function("last"));
    Node* list = N('{', "{", {});
    for (Node* statement : statements) AppendChild(list, statement);
    CompileProgram(u.cx, list->first);
    Items described = Describe(HeadOf(list->first));
    ASSERT_EQ(described.size(), 205u);
    EXPECT_EQ(Items(described.begin(), described.begin() + 5),
              (Items{"var late", "var late", "function last", "function late", "0"}));
}

TEST(Driver, ShortTopLevelStatementsReadAndStoreTheNamesTheyWrite) {
    // Twelve thousand `vI = vJ + K;` (J at random up to I), in runs of short statements broken
    // by long ones and by a short one between two long ones: the top-level loop looks ahead at
    // the names of the runs, and each read and store must still name what the source says.
    std::mt19937 random(77);
    std::string source;
    std::vector<std::string> expected;   // each variable patch's name, in code order
    const std::string longStatement = "if (1) { " + [] {
        std::string numbers;
        for (int i = 0; i < 40; i++) numbers += "1; ";
        return numbers;
    }() + "}\n";
    for (int i = 0; i < 12000; i++) {
        if (i % 50 == 49) source += longStatement + "2;\n" + longStatement;
        std::string stored = "v" + std::to_string(i);
        std::string read = "v" + std::to_string(random() % static_cast<uint32_t>(i + 1));
        source += stored + " = " + read + " + " + std::to_string(random() % 1000) + ";\n";
        expected.push_back(read);
        expected.push_back(stored);
    }
    CompileUnit* unit = ParseAndCompile(source);
    ASSERT_NE(unit, nullptr);
    ASSERT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "");
    ASSERT_GE(unit->varCount, static_cast<int32_t>(expected.size()));
    // The records before the script's own: the ones every first compile makes.
    int32_t first = unit->varCount - static_cast<int32_t>(expected.size());
    // Each name is interned once: a record holds its text's lowest index in the table.
    std::unordered_map<std::string, uint32_t> lowest;
    for (int32_t i = unit->nameCount - 1; i >= 0; i--) {
        if (unit->names[i]) lowest[unit->names[i]] = static_cast<uint32_t>(i);
    }
    std::vector<std::string> seen;
    for (int32_t i = first; i < unit->varCount; i++) {
        uint32_t index = unit->vars[i]->nameIndex;
        ASSERT_LT(static_cast<int32_t>(index), unit->nameCount) << i;
        ASSERT_NE(unit->names[index], nullptr) << i;
        seen.push_back(unit->names[index]);
        ASSERT_EQ(lowest[seen.back()], index) << i << " " << seen.back();
    }
    EXPECT_EQ(seen, expected);
}

TEST(Driver, TwoFunctionsAtTopLevelAreOnlyReordered) {
    TestCompile t("main", 1);
    Node* root = N('{', "{", {Function("f"), Function("g"), Int("1")});
    CompileProgram(t.cx, root->first);
    EXPECT_EQ(Describe(HeadOf(root->first)), (Items{"function g", "function f", "1"}));
}

TEST(Driver, FirstStatementFunctionStaysBehindLaterFunctions) {
    TestCompile t("main", 1);
    Node* root = N('{', "{", {Function("first"), Int("1"), Function("second"), Int("2"), Function("third")});
    CompileProgram(t.cx, root->first);
    EXPECT_EQ(Describe(HeadOf(root->first)), (Items{"function third", "function second", "function first", "1", "2"}));
}

TEST(Driver, NestedVarsAreHoistedButNotThoseInsideFunctions) {
    TestCompile t("main", 1);
    Node* ifNode = N(LEX_IF, "if", {Id("c"), N('{', "{", {Var("a", Int("1"))})});
    Node* root = N('{', "{", {ifNode, Var("b"), Function("h", {Var("z")})});
    CompileProgram(t.cx, root->first);
    EXPECT_EQ(Describe(HeadOf(root->first)), (Items{"var b", "var a", "function h", "if", "var b"}));
}

TEST(Driver, SyntheticDeclarationsAreCompleteNodesAtTheHeadsPosition) {
    TestCompile t("main", 0);
    Node* f = Function("f");
    Node* g = Function("g");
    f->position->offset = 11;
    g->position->offset = 22;
    Node* root = N('{', "{", {f, g});
    CompileProgram(t.cx, root->first);
    Node* head = HeadOf(root->first);
    // var f (collected), var f (for the functions), g, f
    ASSERT_EQ(Describe(head), (Items{"var f", "var f", "function g", "function f"}));
    for (Node* declaration : {head, head->next}) {
        EXPECT_EQ(declaration->count, 1u);
        EXPECT_STREQ(declaration->text->text, "var");
        ASSERT_NE(declaration->first, nullptr);
        EXPECT_EQ(declaration->first, declaration->last);
        EXPECT_EQ(declaration->first->kind, static_cast<uint32_t>(LEX_ID));
        EXPECT_EQ(declaration->first->text, f->first->text);   // shared, not copied
        EXPECT_EQ(declaration->first->next, nullptr);
        EXPECT_NE(declaration->position, g->position);
        EXPECT_EQ(declaration->position->offset, 22);   // g headed the list when both were made
        EXPECT_EQ(declaration->first->position->offset, 22);
    }
}

TEST(Driver, EmptyProgramEmitsNothing) {
    TestCompile t("main", 1);
    CompileProgram(t.cx, nullptr);
    EXPECT_TRUE(t.Words().empty());
    EXPECT_EQ(CurrentOffset(*t.cx.code2), 0);
}

TEST(Driver, StatementsAreCompiledInOrderWithPositions) {
    TestCompile t("main", 1);
    Node* root = N('{', "{", {Int("1"), Int("2")});
    CompileProgram(t.cx, root->first);
    EXPECT_EQ(t.Words(), (std::vector<uint32_t>{0xC00F0001, 0x9E020000, 0xC00F0002, 0x9E020000}));
    EXPECT_EQ(CurrentOffset(*t.cx.code2), 16);
}

TEST(Driver, CollectVarNamesTakesEachNodesOwnNamesBeforeItsChildren) {
    EnsureLibraryInitialised();
    // var t1 = { var t2 } (a hand-built nesting), then while (...) { var t3, t4 }, then var t5.
    Node* outer = Var("t1", N('{', "{", {Var("t2")}));
    Node* both = N(LEX_VAR, "var", {Id("t3"), Id("t4")});
    Node* loop = N(LEX_WHILE, "while", {Id("c"), N('{', "{", {both})});
    Node* root = N('{', "{", {outer, loop, Function("skip", {Var("inside")}), Var("t5")});
    uint32_t refsBefore = outer->first->text->refs;
    std::vector<RefString*> names;
    CollectVarNames(root->first, names);
    std::vector<std::string> texts;
    for (RefString* name : names) texts.push_back(name->text);
    EXPECT_EQ(texts, (Items{"t1", "t2", "t3", "t4", "t5"}));
    EXPECT_EQ(names[0], outer->first->text);
    EXPECT_EQ(outer->first->text->refs, refsBefore + 1);
    for (RefString* name : names) ReleaseRefString(name);
}

namespace {

std::vector<std::string> Texts(const std::vector<RefString*>& names) {
    std::vector<std::string> texts;
    for (RefString* name : names) texts.push_back(name->text);
    return texts;
}

// The parser record of `source` through VeltJS_Parse (null, with a failure, when it did not parse).
Parser* Parsed(const std::string& source) {
    CompileUnit* unit = VeltJS_Parse(source.c_str(), "test.js", "main");
    EXPECT_EQ(unit->status, 0) << source;
    EXPECT_NE(unit->parser, nullptr) << source;
    return static_cast<Parser*>(unit->parser);
}

// What VeltJS_Compile hands the hoisting of a tree no compile has hoisted into.
ParsedTree TreeOf(const Parser* parser) {
    return ParsedTree{parser->statements, parser->statementCount, static_cast<uint64_t>(ParsedVarNodesOutsideFunctions(parser))};
}

// What the hoisting walk of a parsed script's first compile takes: the statement places' walk
// when it meets as many `var` nodes as the parser counted outside functions, else the whole walk.
struct HoistedNames {
    bool fromStatements;
    Items names;
};

HoistedNames CollectBothWays(const char* source) {
    Parser* parser = Parsed(source);
    if (!parser) return {false, {}};
    EXPECT_GE(ParsedVarNodesOutsideFunctions(parser), 0) << source;
    Node* list = parser->root.first;
    std::vector<RefString*> whole;
    CollectVarNames(list, whole);
    // Each record's count before the walk, and how often the names take it.
    std::unordered_map<RefString*, std::pair<uint32_t, uint32_t>> refs;
    for (RefString* name : whole) {
        refs[name].first = name->refs;
        refs[name].second++;
    }
    std::vector<RefString*> statements;
    bool met = CollectStatementVarNames(TreeOf(parser), list, 0, statements);
    if (met) {
        // The very records, in the same order, each taken once more for every time it is named.
        EXPECT_EQ(statements, whole) << source;
    } else {
        // Nothing taken, nothing kept.
        EXPECT_TRUE(statements.empty()) << source;
    }
    for (const auto& [name, counts] : refs) EXPECT_EQ(name->refs, counts.first + (met ? counts.second : 0u)) << source;
    for (RefString* name : statements) ReleaseRefString(name);
    for (RefString* name : whole) ReleaseRefString(name);
    return {met, Texts(whole)};
}

}  // namespace

// The hoisting walk of a parsed tree enters only statement places when the parser's count of
// `var` nodes outside functions shows that is where they all are: the names are then those of the
// whole walk, in its order. A `var` statement inside an expression (an accessor's or an arrow
// function's body) or an object literal's key `var` (whose value the whole walk takes as a name)
// makes it decline, and the whole walk stands.
TEST(Driver, TheStatementWalkTakesTheWholeWalksNamesOrDeclines) {
    EnsureLibraryInitialised();
    HoistedNames every = CollectBothWays(
        "var a = 1, a2 = { k: 1, get: 2, v: function () { var inFunction; } };"
        "if (c) { var b; } else var b2;"
        "for (var i = 0; i < 2; i++) { var d; }"
        "for (var k in o) { var e; }"
        "while (x) { var w1; } do { var w2; } while (y); with (o) { var w3; }"
        "switch (s) { case 1: var m; default: var n; }"
        "try { var p; } catch (err) { var q; } finally { var r; }"
        "outer: for (;;) { var s1; break outer; }"
        "{ { var deep; } }"
        "function f() { var inside; var o = { get v() { var inAccessor; return 1; } }; }"
        "g(function () { var inExpression; }, x => x + 1);"
        "var late = { get v() { return 1; } };");
    EXPECT_TRUE(every.fromStatements);
    EXPECT_EQ(every.names, (Items{"a", "a2", "b", "b2", "i", "d", "k", "e", "w1", "w2", "w3", "m", "n", "p", "q",
                                  "r", "s1", "deep", "late"}));

    HoistedNames none = CollectBothWays("x = 1; function f() { var inside; }");
    EXPECT_TRUE(none.fromStatements);
    EXPECT_TRUE(none.names.empty());

    HoistedNames accessor = CollectBothWays("var o = { get v() { var hidden = 1; return hidden; } }; var after;");
    EXPECT_FALSE(accessor.fromStatements);
    EXPECT_EQ(accessor.names, (Items{"o", "hidden", "after"}));

    HoistedNames arrow = CollectBothWays("g(x => { var arrowVar; }); var after;");
    EXPECT_FALSE(arrow.fromStatements);
    EXPECT_EQ(arrow.names, (Items{"arrowVar", "after"}));

    // The nested function's `var` lies under both functions' nodes and is left out of the count once.
    HoistedNames nested = CollectBothWays("function f() { function g() { var n1; } } var o = { get v() { var hidden; } };");
    EXPECT_FALSE(nested.fromStatements);
    EXPECT_EQ(nested.names, (Items{"o", "hidden"}));

    // The key `var` is a `LEX_VAR` node whose child, the value, the whole walk takes as a name.
    HoistedNames key = CollectBothWays("var o = { var: one }; var after;");
    EXPECT_FALSE(key.fromStatements);
    EXPECT_EQ(key.names, (Items{"o", "one", "after"}));
}

// A compile inserts `var` statements of its own into the tree, which the parser never counted:
// from then on the count is unknown and every later compile of the tree walks it whole.
TEST(Driver, ACompiledTreeNoLongerCountsItsVarNodes) {
    EnsureLibraryInitialised();
    CompileUnit* unit = VeltJS_Parse("var a; x = { get v() { var h; } }; function f() { var inside; }", "test.js", "main");
    auto* parser = static_cast<Parser*>(unit->parser);
    ASSERT_NE(parser, nullptr);
    EXPECT_EQ(ParsedVarNodesOutsideFunctions(parser), 2);
    VeltJS_Compile(unit, 1);
    ASSERT_EQ(unit->status, 0);
    EXPECT_EQ(ParsedVarNodesOutsideFunctions(parser), -1);
}

namespace {

// The list from its head: each node described, and whether every link agrees with its neighbour's.
struct ListShape {
    Items items;
    bool linked;
};

ListShape ShapeOf(Node* head) {
    ListShape shape{{}, head->prev == nullptr};
    // A list of a test script is short: a longer one runs in a circle.
    size_t steps = 0;
    for (Node* node = head; node; node = node->next) {
        if (++steps > 1000) return {{"(no end)"}, false};
        if (node->next && node->next->prev != node) shape.linked = false;
    }
    shape.items = Describe(head);
    return shape;
}

// The hoisted list of `source` compiled with `topLevel`, the hoisting read from the parser's array
// (`fromArray`) or along the list.
ListShape Hoisted(const std::string& source, uint8_t topLevel, bool fromArray) {
    Parser* parser = Parsed(source);
    if (!parser || !parser->root.first) return {{}, true};
    EXPECT_EQ(parser->statements[0], parser->root.first);
    ParsedTree tree = TreeOf(parser);
    TestCompile t("main", topLevel);
    if (fromArray) t.cx.parsed = &tree;
    CompileProgram(t.cx, parser->root.first);
    return ShapeOf(HeadOf(parser->root.first));
}

}  // namespace

// The hoisting steps read a parsed tree's top-level statements from the parser's array: the list
// they leave, with every link, the `var` statements they put in front and their order are those
// they leave from the list gathered as it stands (and the names of the whole walk), with and
// without the top-level flag, whatever mix and order of functions (the first statement one or
// not), `var`s, blocks, labels, empty statements, and expressions whose `var`s send the names back
// to the whole walk.
TEST(Driver, HoistingFromTheParsersArrayLeavesTheListTheWalkLeaves) {
    EnsureLibraryInitialised();
    const std::vector<std::string> pieces{
        "function f#(a) { var inner#; }", "var v# = 1, w#;", "x# = 1;", "if (c) { var i#; } else { y# = 2; }",
        "{ var b#; }", "l#: for (;;) { break l#; }", ";", "function g#() {}",
        "o# = { get g() { var acc#; return 1; } };", "for (var k# in o) { var e#; }"};
    std::mt19937 random(20261126);
    for (int script = 0; script < 300; script++) {
        std::string source;
        int count = static_cast<int>(random() % 12);
        for (int at = 0; at < count; at++) {
            std::string piece = pieces[random() % pieces.size()];
            for (size_t mark; (mark = piece.find('#')) != std::string::npos;) piece.replace(mark, 1, std::to_string(at));
            source += piece + "\n";
        }
        for (uint8_t topLevel : {0, 1}) {
            ListShape walked = Hoisted(source, topLevel, false);
            ListShape read = Hoisted(source, topLevel, true);
            EXPECT_EQ(read.items, walked.items) << source << "top level " << int{topLevel};
            EXPECT_TRUE(walked.linked) << source;
            EXPECT_TRUE(read.linked) << source;
        }
    }
}

// The `var` statements the hoisting put in front of the list are met first and counted with the
// parser's: with them the walk still meets all there are.
TEST(Driver, TheStatementWalkMeetsTheVarStatementsPutInFrontFirst) {
    EnsureLibraryInitialised();
    Parser* parser = Parsed("var a; if (c) { var b; } x = 1;");
    ASSERT_NE(parser, nullptr);
    ParsedTree tree = TreeOf(parser);
    Node* list = parser->root.first;
    Node* second = Var("g");
    Node* first = Var("f");
    first->next = second;
    second->prev = first;
    second->next = list;
    std::vector<RefString*> names;
    EXPECT_TRUE(CollectStatementVarNames(tree, first, 2, names));
    EXPECT_EQ(Texts(names), (Items{"f", "g", "a", "b"}));
    for (RefString* name : names) ReleaseRefString(name);
    names.clear();
    // With one more `var` node than it meets in the tree, the walk has not met them all.
    ParsedTree more{tree.statements, tree.statementCount, tree.varNodes + 1};
    EXPECT_FALSE(CollectStatementVarNames(more, first, 2, names));
    EXPECT_TRUE(names.empty());
}

// A run of `var` statements looks ahead at the names it will declare (the nodes, the texts, the
// global scope's slots): thousands of hoisted ones for a script's functions, then thousands
// written in the source. Every declaration still names its own variable, once each, at the
// name's lowest index.
TEST(Driver, ARunOfVarStatementsDeclaresEachNameItLooksAheadAt) {
    constexpr int kFunctions = 2000;
    constexpr int kVars = 2000;
    std::string source;
    for (int i = 0; i < kFunctions; i++) source += "function f" + std::to_string(i) + "() {}\n";
    for (int i = 0; i < kVars; i++) source += "var w" + std::to_string(i) + ";\n";
    CompileUnit* unit = ParseAndCompile(source, false);
    ASSERT_NE(unit, nullptr);
    ASSERT_EQ(unit->status, 0) << (unit->errorCount > 0 ? unit->errors[0] : "");
    std::unordered_map<std::string, uint32_t> lowest;
    for (int32_t i = unit->nameCount - 1; i >= 0; i--) {
        if (unit->names[i]) lowest[unit->names[i]] = static_cast<uint32_t>(i);
    }
    std::unordered_map<std::string, int> declared;
    for (int32_t i = 0; i < unit->varCount; i++) {
        uint32_t index = unit->vars[i]->nameIndex;
        ASSERT_LT(static_cast<int32_t>(index), unit->nameCount) << i;
        ASSERT_NE(unit->names[index], nullptr) << i;
        std::string name = unit->names[index];
        EXPECT_EQ(lowest[name], index) << name;
        declared[name]++;
    }
    // Every function but the one heading the hoisted list (the last) gets its `var`, which the
    // names' walk collects and hoists again: two declarations more than the last function's names
    // have. Every `w` is declared twice, hoisted and where it is written.
    int last = declared["f" + std::to_string(kFunctions - 1)];
    for (int i = 0; i < kFunctions - 1; i++) EXPECT_EQ(declared["f" + std::to_string(i)], last + 2) << i;
    for (int i = 0; i < kVars; i++) EXPECT_EQ(declared["w" + std::to_string(i)], 2) << i;
}
