#include <gtest/gtest.h>

#include <string>

#include "helpers/tree_text.h"
#include "lexer/tokens.h"

namespace {

struct Case {
    const char* source;
    const char* tree;
};

// Every statement routine, as whole scripts.
const Case kStatementCases[] = {
    // Empty statements and optional semicolons.
    {"", ""},
    {";", ""},
    {";;;", ""},
    {"a;;b", "a b"},
    {"a b", "a b"},
    {"a; b; c;", "a b c"},
    // Blocks.
    {"{}", "{"},
    {"{ a; { b } }", "{(a,{(b))"},
    {"{ a } b", "{(a) b"},
    // Labels.
    {"a: b;", ":(a) b"},
    {"x: y: z", ":(x) :(y) z"},
    {"outer: for (;;) break outer;", ":(outer) FOR(;,TRUE\";\",;,BREAK(outer))"},
    {"(a): b", ":(a) b"},
    // if.
    {"if (a) b; else c;", "IF(a,b,c)"},
    {"if (a) b", "IF(a,b)"},
    {"if (c) ; else s", "IF(c,s)"},
    {"if (a) if (b) c; else d;", "IF(a,IF(b,c,d))"},
    {"if (a) {} else {}", "IF(a,{,{)"},
    {"if (a, b) c", "IF(,(a,b),c)"},
    {"if (a) b; else if (c) d; else e", "IF(a,b,IF(c,d,e))"},
    // do.
    {"do ; while (x)", "DO(;,x)"},
    {"do x++; while (x < 5)", "DO(POST++(x),<(x,5))"},
    {"do {} while (c)", "DO({,c)"},
    {"do a; while (b); c", "DO(a,b) c"},
    // while and with.
    {"while (a) b;", "WHILE(a,b)"},
    {"while (a) ;", "WHILE(a)"},
    {"while (a) { b; c }", "WHILE(a,{(b,c))"},
    {"with (o) f();", "WITH(o,((f))"},
    {"with (o) ;", "WITH(o)"},
    // for, classic.
    {"for (;;) s", "FOR(;,TRUE\";\",;,s)"},
    {"for (;;) ;", "FOR(;,TRUE\";\",;)"},
    {"for (i = 0; i < n; i++) {}", "FOR(=(i,0),<(i,n),POST++(i),{)"},
    {"for (var i = 0, j; i; ) x;", "FOR(VAR(i(0),j),i,;,x)"},
    {"for (; a; b) c", "FOR(;,a,b,c)"},
    {"for (a, b; ; c) d", "FOR(,(a,b),TRUE\";\",c,d)"},
    {"for (;a in b;) ;", "FOR(;,IN(a,b),;)"},
    {"for (var i = 0; i < 3; i++) for (;;) break;", "FOR(VAR(i(0)),<(i,3),POST++(i),FOR(;,TRUE\";\",;,BREAK))"},
    // for, in.
    {"for (x in o) y;", "FOR(x,IN,o,y)"},
    {"for (var x in o) {}", "FOR(VAR(x),IN,o,{)"},
    {"for (a.b in o);", "FOR(.(a,b),IN,o)"},
    {"for (x in a in b) s", "FOR(x,IN,IN(a,b),s)"},
    {"for (x in a, b) s", "FOR(x,IN,,(a,b),s)"},
    {"for (var x = 1 in o) s", "FOR(VAR(x(1)),IN,o,s)"},
    // break and continue.
    {"break", "BREAK"},
    {"break;", "BREAK"},
    {"break outer", "BREAK(outer)"},
    {"break\nouter;", "BREAK(outer)"},
    {"continue", "CONTINUE"},
    {"continue outer;", "CONTINUE(outer)"},
    {"while (1) { continue; }", "WHILE(1,{(CONTINUE))"},
    // return and throw.
    {"return", "ERROR"},
    {"return;", "RETURN"},
    {"{ return }", "{(RETURN)"},
    {"return a", "RETURN(a)"},
    {"return a, b", "RETURN(,(a,b))"},
    {"return\nx", "RETURN(x)"},
    {"throw e", "THROW(e)"},
    {"throw;", "THROW"},
    {"throw new Error('x')", "THROW(NEW(((Error,'x')))"},
    // var and const.
    {"var a", "VAR(a)"},
    {"var a = 1, b;", "VAR(a(1),b)"},
    {"var a = b = c, d = 1", "VAR(a(=(b,c)),d(1))"},
    {"var a = (b, c)", "VAR(a(,(b,c)))"},
    {"const c = 1;", "CONST(c(1))"},
    {"const c = 1, d = 2", "CONST(c(1),d(2))"},
    // try.
    {"try { x(); }", "TRY({(((x)))"},
    {"try {} catch (e) {}", "TRY({,CATCH(e,{))"},
    {"try {} finally {}", "TRY({,FINALLY({))"},
    {"try {} catch (e) {} finally {}", "TRY({,CATCH(e,{),FINALLY({))"},
    {"try { a } catch (e) { b } finally { c }", "TRY({(a),CATCH(e,{(b)),FINALLY({(c)))"},
    // switch.
    {"switch (x) {}", "SWITCH(x)"},
    {"switch (x) { case 1: a; b; case 2: default: c }", "SWITCH(x,CASE(1,a,b),CASE(2),DEFAULT(c))"},
    {"switch (x) { default: default: }", "SWITCH(x,DEFAULT,DEFAULT)"},
    {"switch (x) { case a ? b : c: d }", "SWITCH(x,CASE(?(a,b,c),d))"},
    {"switch (x) { case 1: { a } break; }", "SWITCH(x,CASE(1,{(a),BREAK))"},
    {"switch (x) { case 1: l: a }", "SWITCH(x,CASE(1,:(l),a))"},
    // function declarations.
    {"function f() {}", "FUNCTION(f,(,{)"},
    {"function f(a, b) {}", "FUNCTION(f,((a,b),{)"},
    {"function f(a) { return a; }", "FUNCTION(f,((a),{(RETURN(a)))"},
    {"function f() { return function () {}; }", "FUNCTION(f,(,{(RETURN(FUNCTION(UNDEFINED,(,{))))"},
    {"function f() { function g() {} }", "FUNCTION(f,(,{(FUNCTION(g,(,{)))"},
    // Expression statements.
    {"f()", "((f)"},
    {"a = 1; b = 2", "=(a,1) =(b,2)"},
    {"[1, 2]", "ARRAY(1,2)"},
    {"new F", "NEW(F)"},
};

bool IsErrorCase(const Case& c) { return std::string(c.tree) == "ERROR"; }

TEST(ParserStatements, TableOfShapes) {
    for (const Case& c : kStatementCases) {
        ParseResult result = ParseSource(c.source);
        if (IsErrorCase(c)) {
            EXPECT_EQ(result.unit->status, 1) << "source: " << c.source;
            continue;
        }
        EXPECT_EQ(result.unit->status, 0) << "source: " << c.source << " " << result.error;
        EXPECT_EQ(result.tree, c.tree) << "source: " << c.source;
    }
}

TEST(ParserStatements, SemicolonsAloneMakeNoNodes) {
    ParseResult result = ParseSource(";;;");
    ASSERT_NE(result.parser, nullptr);
    EXPECT_EQ(result.parser->root.count, 0u);
    EXPECT_EQ(result.parser->root.first, nullptr);
}

TEST(ParserStatements, EmptySourceGivesEmptyRoot) {
    ParseResult result = ParseSource("");
    EXPECT_EQ(result.unit->status, 0);
    ASSERT_NE(result.parser, nullptr);
    EXPECT_EQ(result.parser->root.kind, static_cast<uint32_t>('{'));
    EXPECT_STREQ(result.parser->root.text->text, "{");
    EXPECT_EQ(result.parser->root.count, 0u);
}

TEST(ParserStatements, SyntaxErrorLeavesOneMessageAndNoParser) {
    ParseResult result = ParseSource("var x = (1;", "bad.js");
    EXPECT_EQ(result.unit->status, 1);
    EXPECT_EQ(result.unit->errorCount, 1);
    EXPECT_EQ(result.parser, nullptr);
    EXPECT_EQ(result.error, "Error : bad.js(1) : Got ';' (;) expected ')'\n");
}

TEST(ParserStatements, LabelIsColonNodeFollowedByItsStatement) {
    ParseResult result = ParseSource("a: b;");
    const Node* label = result.parser->root.first;
    EXPECT_EQ(label->kind, static_cast<uint32_t>(':'));
    EXPECT_EQ(label->count, 1u);
    EXPECT_EQ(label->first->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_STREQ(label->first->text->text, "a");
    EXPECT_STREQ(label->next->text->text, "b");
    EXPECT_EQ(result.parser->root.count, 2u);
}

TEST(ParserStatements, ReturnBeforeClosingBraceHasNoChild) {
    ParseResult result = ParseSource("{ return }");
    EXPECT_EQ(result.parser->root.first->first->kind, static_cast<uint32_t>(LEX_RETURN));
    EXPECT_EQ(result.parser->root.first->first->count, 0u);
}

TEST(ParserStatements, TryWithoutClausesIsAccepted) {
    ParseResult result = ParseSource("try { x(); }");
    EXPECT_EQ(result.unit->status, 0);
    EXPECT_EQ(result.tree, "TRY({(((x)))");
}

TEST(ParserStatements, BreakTakesLabelFromNextLine) {
    EXPECT_EQ(Parsed("break\nouter;"), "BREAK(outer)");
}

TEST(ParserStatements, FunctionDeclarationShapeAndMissingComma) {
    EXPECT_EQ(Parsed("function f(a, b) {}"), "FUNCTION(f,((a,b),{)");
    EXPECT_EQ(Parsed("function f(a b)"), "ERROR Error : f(1) : Got 'b' (id) expected ',' or ')'\n");
    EXPECT_EQ(Parsed("function (a) {}"), "ERROR Error : f(1) : Got '(' (() expected 'id'\n");
}

TEST(ParserStatements, DoWithEmptyBodyGetsSemicolonFiller) {
    ParseResult result = ParseSource("do ; while (x)");
    const Node* loop = result.parser->root.first;
    ASSERT_EQ(loop->count, 2u);
    EXPECT_EQ(loop->first->kind, static_cast<uint32_t>(';'));
    EXPECT_STREQ(loop->first->text->text, ";");
    EXPECT_STREQ(loop->last->text->text, "x");
}

TEST(ParserStatements, VarDeclaratorsCarryTheirInitialisers) {
    ParseResult result = ParseSource("var a = 1, b;");
    const Node* declaration = result.parser->root.first;
    EXPECT_EQ(declaration->kind, static_cast<uint32_t>(LEX_VAR));
    ASSERT_EQ(declaration->count, 2u);
    EXPECT_EQ(declaration->first->count, 1u);
    EXPECT_EQ(declaration->first->first->kind, static_cast<uint32_t>(LEX_INT));
    EXPECT_EQ(declaration->last->count, 0u);
}

TEST(ParserStatements, IfElseHasThreeChildren) {
    EXPECT_EQ(Parsed("if (a) b; else c;"), "IF(a,b,c)");
}

TEST(ParserStatements, LetTakesTheExpressionRoute) {
    testing::internal::CaptureStdout();
    std::string result = Parsed("let x = 1");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, "ERROR Error : f(1) : We really expected to get something here...\n");
}

TEST(ParserStatements, ClassicForShapes) {
    ParseResult result = ParseSource("for (;;) s");
    const Node* loop = result.parser->root.first;
    ASSERT_EQ(loop->count, 4u);
    // Absent initialiser: the ';' token itself.
    EXPECT_EQ(loop->first->kind, static_cast<uint32_t>(';'));
    EXPECT_STREQ(loop->first->text->text, ";");
    // Absent condition: true, with the text of the ';' that stood there.
    const Node* condition = loop->first->next;
    EXPECT_EQ(condition->kind, static_cast<uint32_t>(LEX_TRUE));
    EXPECT_STREQ(condition->text->text, ";");
    // Absent update: a ';' node.
    const Node* update = condition->next;
    EXPECT_EQ(update->kind, static_cast<uint32_t>(';'));
    EXPECT_STREQ(update->text->text, ";");
    EXPECT_STREQ(loop->last->text->text, "s");
}

TEST(ParserStatements, ForInShapes) {
    ParseResult result = ParseSource("for (var x in o) s");
    const Node* loop = result.parser->root.first;
    ASSERT_EQ(loop->count, 4u);
    EXPECT_EQ(loop->first->kind, static_cast<uint32_t>(LEX_VAR));
    EXPECT_EQ(loop->first->first->kind, static_cast<uint32_t>(LEX_ID));
    const Node* in = loop->first->next;
    EXPECT_EQ(in->kind, static_cast<uint32_t>(LEX_IN));
    EXPECT_STREQ(in->text->text, "in");
    EXPECT_EQ(in->count, 0u);
    EXPECT_STREQ(in->next->text->text, "o");
    EXPECT_STREQ(loop->last->text->text, "s");
}

TEST(ParserStatements, NoInLastsOnlyForTheInitialiser) {
    // The condition and the object expression see `in` as an operator again.
    EXPECT_EQ(Parsed("for (;a in b;) ;"), "FOR(;,IN(a,b),;)");
    EXPECT_EQ(Parsed("for (x in a in b) s"), "FOR(x,IN,IN(a,b),s)");
    EXPECT_EQ(Parsed("for (;;) ; a in b"), "FOR(;,TRUE\";\",;) IN(a,b)");
}

TEST(ParserStatements, ForOfIsNotSupported) {
    EXPECT_EQ(Parsed("for (x of y) s"), "ERROR Error : f(1) : Got 'of' (id) expected 'in'\n");
}

TEST(ParserStatements, SwitchErrors) {
    EXPECT_EQ(Parsed("switch (x) { foo }"),
              "ERROR Error : f(1) : Got 'foo' (id) expected 'case' or 'default'\n");
    EXPECT_EQ(Parsed("switch (x) {\ncase 1:\n"), "ERROR Error : f(3) : Got '' (eof) expected '}'\n");
}

TEST(ParserStatements, UnclosedBlockReportsMissingBraceAtEnd) {
    EXPECT_EQ(Parsed("{\na;\n"), "ERROR Error : f(3) : Got '' (eof) expected '}'\n");
}

TEST(ParserStatements, MissingParenthesisReportsExpectedKind) {
    EXPECT_EQ(Parsed("if a) b"), "ERROR Error : f(1) : Got 'a' (id) expected '('\n");
    EXPECT_EQ(Parsed("while (a b"), "ERROR Error : f(1) : Got 'b' (id) expected ')'\n");
    EXPECT_EQ(Parsed("do a; (b)"), "ERROR Error : f(1) : Got '(' (() expected 'while'\n");
    EXPECT_EQ(Parsed("try {} catch e {}"), "ERROR Error : f(1) : Got 'e' (id) expected '('\n");
    EXPECT_EQ(Parsed("var 1"), "ERROR Error : f(1) : Got '1' (int) expected 'id'\n");
    EXPECT_EQ(Parsed("for (a; b)"), "ERROR Error : f(1) : Got ')' ()) expected ';'\n");
}

// Every message of the lexer and the parser, with file name and line.
TEST(ParserStatements, LexerAndParserMessages) {
    EXPECT_EQ(ParseSource("a = (b\n;", "main.js").error, "Error : main.js(2) : Got ';' (;) expected ')'\n");
    EXPECT_EQ(ParseSource("\nf(a b)", "g").error, "Error : g(2) : Got 'b' (id) expected ',' or ')'\n");
    EXPECT_EQ(ParseSource("x = '\\xg'", "s.js").error,
              "Error : s.js(1) : malformed hexadecimal character escape sequence\n");
    EXPECT_EQ(ParseSource("\n\nx = 'abc", "s.js").error, "Error : s.js(3) : unterminated string literal\n");
    EXPECT_EQ(ParseSource("x = 'ab\ncd'", "s.js").error, "Error : s.js(1) : unterminated string literal\n");
    EXPECT_EQ(ParseSource("\nx = /abc\n", "r.js").error,
              "Error : r.js(2) : unterminated regular expression literal\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(ParseSource("a;\n\n)", "p.js").error,
              "Error : p.js(3) : We really expected to get something here...\n");
    testing::internal::GetCapturedStdout();
    // "try needs to have catch or finally clause" can never be reached: the try block is always
    // the first child. A bare try is accepted instead.
    EXPECT_EQ(ParseSource("try {}", "t.js").unit->status, 0);
}

TEST(ParserStatements, MissingSemicolonBeforeBraceIsNotAnError) {
    EXPECT_EQ(Parsed("{ a }"), "{(a)");
}

TEST(ParserStatements, DumpPrecedesNoOperandError) {
    testing::internal::CaptureStdout();
    ParseResult result = ParseSource("a;\n)");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "[ {=\"{\", \n  [ id=\"a\" ]\n]\n\n\n");
    EXPECT_EQ(result.error, "Error : f(2) : We really expected to get something here...\n");
    EXPECT_EQ(result.unit->status, 1);
    EXPECT_EQ(result.parser, nullptr);
}

TEST(ParserStatements, DumpOfEmptyRootIsOneLine) {
    testing::internal::CaptureStdout();
    ParseResult result = ParseSource(")");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "[ {=\"{\" ]\n\n\n");
    EXPECT_EQ(result.error, "Error : f(1) : We really expected to get something here...\n");
}

TEST(ParserStatements, DumpShowsPartialStatementsAndPercentVerbatim) {
    testing::internal::CaptureStdout();
    ParseResult result = ParseSource("x = '%d%s%n';\nif (a) { b = ]");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out,
              "[ {=\"{\", \n"
              "  [ ==\"=\", \n"
              "    [ id=\"x\" ], \n"
              "    [ str=\"%d%s%n\" ]\n"
              "  ], \n"
              "  [ if=\"if\", \n"
              "    [ id=\"a\" ], \n"
              "    [ {=\"{\" ]\n"
              "  ]\n"
              "]\n\n\n");
    EXPECT_EQ(result.error, "Error : f(2) : We really expected to get something here...\n");
}

TEST(ParserStatements, TokensThatCannotStartAnExpression) {
    for (const char* source : {")", "]", "}", ":", "else", "case 1:", "catch", "let", "yield", "=> x",
                               "*", "?", ",", "#", "a = ;", "f(,)", "x = (", "@", "a +"}) {
        testing::internal::CaptureStdout();
        ParseResult result = ParseSource(source);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(result.unit->status, 1) << source;
        EXPECT_FALSE(out.empty()) << source;
        EXPECT_NE(result.error.find("We really expected to get something here..."), std::string::npos)
            << source << ": " << result.error;
    }
}

TEST(ParserStatements, NodePositionsAreTheLexerPositionAfterTheToken) {
    // Nodes copy the lexer's position when they are made: the token has been scanned, so the
    // offset counts the characters read up to the one after it (two primed on creation).
    ParseResult result = ParseSource("a + b");
    const Node* plus = result.parser->root.first;
    EXPECT_EQ(plus->position->line, 1);
    EXPECT_EQ(plus->first->position->offset, 3);
    EXPECT_EQ(plus->position->offset, 5);
    EXPECT_EQ(plus->last->position->offset, 7);
    ASSERT_NE(plus->position->fileName, nullptr);
    EXPECT_STREQ((*plus->position->fileName)->text, "f");
}

TEST(ParserStatements, NodeLinesFollowTheSource) {
    ParseResult result = ParseSource("x =\n\n  y;\nif (z)\n  w");
    const Node* assign = result.parser->root.first;
    EXPECT_EQ(assign->position->line, 1);
    EXPECT_EQ(assign->first->position->line, 1);
    EXPECT_EQ(assign->last->position->line, 3);
    const Node* branch = assign->next;
    EXPECT_EQ(branch->position->line, 4);
    EXPECT_EQ(branch->last->position->line, 5);
}

TEST(ParserStatements, MalformedInputsNeverCrash) {
    const char* corpus[] = {
        "'abc", "\"abc\n\"", "/* never closed", "// only a comment", "/abc", "x = /a\\", "'\\x",
        "'\\u", "function", "function f", "function f(", "function f(a,", "function f() {",
        "if", "if (", "if (a", "if (a)", "while (", "do", "do x", "do x while", "for", "for (",
        "for (;", "for (;;", "for (;;)", "for (x in", "for (var", "for (var x", "switch",
        "switch (x", "switch (x) {", "switch (x) { case", "try", "try {", "try {} catch",
        "try {} catch (", "try {} catch (e", "try {} finally", "var", "var x =", "var x,",
        "x = {", "x = { a", "x = { a:", "x = { get", "x = { get a", "x = { get a(", "x = { set a(",
        "x = [", "x = [1,", "a.", "a[", "a[1", "f(", "f(1,", "new", "new F(", "a ?", "a ? b",
        "a ? b :", "x =>", "x => {", "a = ", "!", "typeof", "++", "(", "((a)", ")", "}", "]",
        "\\u0041", "\xff\xfe", "\xe2\x82", "a\x01b", "return", "throw", "break 1", "label:",
        "{ get x() {} }", "x = { , }", "x = {a: 1 b: 2}", "a..b", "a.[", "`tmpl`",
    };
    for (const char* source : corpus) {
        testing::internal::CaptureStdout();
        ParseResult result = ParseSource(source);
        testing::internal::GetCapturedStdout();
        EXPECT_TRUE(result.unit->status == 0 || result.unit->status == 1) << source;
        if (result.unit->status == 1) {
            EXPECT_EQ(result.error.rfind("Error : f(", 0), 0u) << source;
            EXPECT_EQ(result.error.back(), '\n') << source;
        }
    }
}

}  // namespace
