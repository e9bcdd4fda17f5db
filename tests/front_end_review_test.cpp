// The scanner and the parser seen through VeltJS_Parse: the trees that tricky sources give, the
// kinds and texts of their leaves, the messages with their lines, and the tree dump written to
// standard output before "We really expected to get something here...".
#include <gtest/gtest.h>

#include <string>

#include "helpers/compile_support.h"
#include "helpers/tree_text.h"
#include "lexer/tokens.h"
#include "parser/node.h"
#include "parser/parser.h"

namespace {

// The first top-level statement of a source that must parse.
const Node* First(const std::string& source) {
    ParseResult result = ParseSource(source);
    EXPECT_EQ(result.error, "") << source;
    if (!result.parser) return nullptr;
    return result.parser->root.first;
}

std::string Text(const Node* node) { return node && node->text && node->text->text ? node->text->text : "<none>"; }

// The leaf that `source` parses to (a literal or identifier statement), as kind and text.
void ExpectLeaf(const std::string& source, uint32_t kind, const std::string& text) {
    const Node* node = First(source);
    ASSERT_NE(node, nullptr) << source;
    EXPECT_EQ(node->kind, kind) << source;
    EXPECT_EQ(Text(node), text) << source;
    EXPECT_EQ(node->next, nullptr) << source;
}

// The error message of a source that must fail, in file "f".
std::string ErrorOf(const std::string& source) {
    ParseResult result = ParseSource(source);
    EXPECT_EQ(result.unit->status, 1) << source;
    EXPECT_EQ(result.unit->errorCount, 1) << source;
    EXPECT_EQ(result.parser, nullptr) << source;
    return result.error;
}

struct Case {
    const char* source;
    const char* expected;   // tree text, or "ERROR " and the message
};

void ExpectCases(const Case* cases, size_t count) {
    for (size_t i = 0; i < count; i++) {
        testing::internal::CaptureStdout();
        std::string got = Parsed(cases[i].source);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(got, cases[i].expected) << "source: " << cases[i].source;
    }
}

// Parses with standard output captured; returns the output and stores the message.
std::string DumpOf(const std::string& source, std::string* error) {
    testing::internal::CaptureStdout();
    ParseResult result = ParseSource(source);
    std::string out = testing::internal::GetCapturedStdout();
    *error = result.error;
    return out;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The automatic semicolon before "++" and "--" at the start of a line.

TEST(FrontEnd, NewlineDirectlyBeforeIncrementOrDecrementSeparatesStatements) {
    const Case cases[] = {
        {"a\n++b", "a ++(b)"},
        {"a\n--b", "a --(b)"},
        {"a\r\n++b", "a ++(b)"},
        {"a\r++b", "a ++(b)"},
        {"a\n ++b", "POST++(a) b"},
        {"a\n\t--b", "POST--(a) b"},
        {"a\n+b", "+(a,b)"},
        {"a\n-b", "-(a,b)"},
        {"a\n+-b", "+(a,-(b))"},
        {"a\n+ +b", "+(a,+(b))"},
        {"a\n++\nb", "a ++(b)"},
        {"a++\n++b", "POST++(a) ++(b)"},
        {"a // c\n++b", "POST++(a) b"},
        {"a /* c */\n++b", "a ++(b)"},
        {"a /* c\n*/++b", "POST++(a) b"},
        {"x = a\n++b\n", "=(x,a) ++(b)"},
        {"\n++a", "++(a)"},
        {"a\xC2\xA0\n++b", "a ++(b)"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

// ---------------------------------------------------------------------------------------------
// Comments.

TEST(FrontEnd, CommentsIncludingSlashStarSlash) {
    const Case cases[] = {
        {"/*/ a; b", "a b"},
        {"/*/ a */ b", "ERROR Error : f(1) : unterminated regular expression literal\n"},
        {"/**/ a", "a"},
        {"/***/ a", "a"},
        {"a /* b", "a"},
        {"a // b */ c\nd", "a d"},
        {"a /* // */ b", "a b"},
        {"a/**/b", "a b"},
        {"a /*\n\n*/ b", "a b"},
        {"// only", ""},
        {"a //", "a"},
        {"a / /b/", "/(a,NEW\"/b/\"(((RegExp,'b','')))"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, LinesInsideCommentsCountForMessages) {
    EXPECT_EQ(ErrorOf("/* one\r\ntwo\r\n*/ )"), "Error : f(3) : We really expected to get something here...\n");
    EXPECT_EQ(ErrorOf("// one\n// two\n)"), "Error : f(3) : We really expected to get something here...\n");
}

// ---------------------------------------------------------------------------------------------
// \u escapes outside strings: identifiers, whitespace, numbers, operators, comments; never in
// strings.

TEST(FrontEnd, UnicodeEscapesOutsideStringsBecomeCharacters) {
    const Case cases[] = {
        {"\\u0061 = 1", "=(a,1)"},
        {"a\\u0062g", "abg"},
        {"a\\u0062c", "a\xD8\xAC"},  // every hexadecimal digit counts: U+062C
        {"a\\u0020z", "a z"},
        {"a\\u000Az", "a z"},
        {"a\\u000Ab", "ERROR Error : f(1) : We really expected to get something here...\n"},  // U+00AB
        {"1\\u0032", "12"},
        {"a \\u003D 1", "=(a,1)"},
        {"a \\u003D\\u003D b", "==(a,b)"},
        {"// c \\u000A b", "b"},
        {"/* \\u002A/ a", "a"},
        {"\\u0076\\u0061r x", "VAR(x)"},
        {"'x'\\u0041", "'x' A"},
        {"'\\\\u0041'", "'\\u0041'"},
        {"x = /\\u0061/", "=(x,NEW\"/a/\"(((RegExp,'a','')))"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, UnicodeEscapeWithManyDigitsIsOneCharacter) {
    // U+41BC is a letter (Lo), so it forms an identifier of its own: E4 86 BC.
    const Node* node = First("\\u0041BC");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_EQ(Text(node), "\xE4\x86\xBC");
}

TEST(FrontEnd, UnicodeEscapeInsideAStringTakesAtMostFourDigits) {
    ExpectLeaf("'\\u004142'", LEX_STR, "A42");
    ExpectLeaf("'\\u41'", LEX_STR, "A");
    ExpectLeaf("'a\\u'", LEX_STR, "a");
}

// ---------------------------------------------------------------------------------------------
// Numbers.

TEST(FrontEnd, NumberKindsAndTexts) {
    ExpectLeaf(".5", LEX_FLOAT, ".5");
    ExpectLeaf("1.e5", LEX_FLOAT, "1.e5");
    ExpectLeaf("1.", LEX_FLOAT, "1.");
    ExpectLeaf("0.5", LEX_FLOAT, "0.5");
    ExpectLeaf("08", LEX_INT, "08");
    ExpectLeaf("09", LEX_INT, "09");
    ExpectLeaf("09.5", LEX_FLOAT, "09.5");
    ExpectLeaf("08e1", LEX_FLOAT, "08e1");
    ExpectLeaf("0777", LEX_INT, "0777");
    ExpectLeaf("0", LEX_INT, "0");
    ExpectLeaf("0x", LEX_INT, "0x");
    ExpectLeaf("0X1fA", LEX_INT, "0X1fA");
    ExpectLeaf("0x1e5", LEX_INT, "0x1e5");
    ExpectLeaf("1e", LEX_FLOAT, "1e");
    ExpectLeaf("1e+", LEX_FLOAT, "1e+");
    ExpectLeaf("1E-", LEX_FLOAT, "1E-");
    ExpectLeaf("1e+2", LEX_FLOAT, "1e+2");
    ExpectLeaf("1.5e-3", LEX_FLOAT, "1.5e-3");
    ExpectLeaf("0e1", LEX_FLOAT, "0e1");
    ExpectLeaf("123", LEX_INT, "123");
}

TEST(FrontEnd, NumbersEndWhereTheirRuleEnds) {
    const Case cases[] = {
        {"0777.5", "0777 .5"},
        {"0x1.5", "0x1 .5"},
        {"1.5.3", "1.5 .3"},
        {"1..a", ".(1.,a)"},
        {"1x", "1 x"},
        {"0xg", "0x g"},
        {"1e+ 2", "1e+ 2"},
        {"1e+-2", "-(1e+,2)"},
        {"08.toString()", "08. ((toString)"},
        {"a.1", "a .1"},
        {"a. 1", ".(a,1)"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

// ---------------------------------------------------------------------------------------------
// Strings.

TEST(FrontEnd, EveryStringEscape) {
    ExpectLeaf("'\\a\\b\\f\\n\\r\\t\\v'", LEX_STR, "\x07\x08\x0C\x0A\x0D\x09\x0B");
    ExpectLeaf("\"\\\"\\'\\\\\\q\\8\"", LEX_STR, "\"'\\q8");
    ExpectLeaf("'\\x41\\x4'", LEX_STR, "A\x04");
    ExpectLeaf("'\\x414'", LEX_STR, "A4");
    ExpectLeaf("'\\101\\1012'", LEX_STR, "AA2");
    ExpectLeaf("'\\18'", LEX_STR, "\x01" "8");
    ExpectLeaf("'\\3777'", LEX_STR, "\xC3\xBF" "7");
    ExpectLeaf("'a\\0b'", LEX_STR, "a");
    ExpectLeaf("'\\u00e9'", LEX_STR, "\xC3\xA9");
    ExpectLeaf("'a\\\nb'", LEX_STR, "ab");
    ExpectLeaf("'a\\\r\nb'", LEX_STR, "ab");
    ExpectLeaf("'a\\\rb'", LEX_STR, "ab");
    ExpectLeaf("\"it's\"", LEX_STR, "it's");
    ExpectLeaf("'say \"hi\"'", LEX_STR, "say \"hi\"");
    ExpectLeaf("''", LEX_STR, "");
}

TEST(FrontEnd, StringErrorsAreReportedOnTheLineWhereTheScannerStopped) {
    EXPECT_EQ(ErrorOf("x = 1;\r\ny = 'abc"), "Error : f(2) : unterminated string literal\n");
    // The continuation moves to line 3; the raw line end after "cd" is still on line 3.
    EXPECT_EQ(ErrorOf("a = 1;\r\n'ab\\\r\ncd\r\nef'"), "Error : f(3) : unterminated string literal\n");
    EXPECT_EQ(ErrorOf("'ab\ncd'"), "Error : f(1) : unterminated string literal\n");
    EXPECT_EQ(ErrorOf("'ab\\"), "Error : f(1) : unterminated string literal\n");
    EXPECT_EQ(ErrorOf("\n\n'\\xg'"), "Error : f(3) : malformed hexadecimal character escape sequence\n");
    EXPECT_EQ(ErrorOf("\r\n'\\x'"), "Error : f(2) : malformed hexadecimal character escape sequence\n");
    EXPECT_EQ(ErrorOf("\"ab'"), "Error : f(1) : unterminated string literal\n");
}

// ---------------------------------------------------------------------------------------------
// Every operator token, through the expression that it forms.

TEST(FrontEnd, EveryOperatorTokenFormsItsNode) {
    const Case cases[] = {
        {"a == b", "==(a,b)"},    {"a === b", "===(a,b)"},  {"a != b", "!=(a,b)"},
        {"a !== b", "!==(a,b)"},  {"a => b", "=>(a,b)"},    {"a <= b", "<=(a,b)"},
        {"a >= b", ">=(a,b)"},    {"a << b", "<<(a,b)"},    {"a >> b", ">>(a,b)"},
        {"a >>> b", ">>>(a,b)"},  {"++a", "++(a)"},         {"--a", "--(a)"},
        {"a && b", "&&(a,b)"},    {"a || b", "||(a,b)"},    {"a += b", "+=(a,b)"},
        {"a -= b", "-=(a,b)"},    {"a *= b", "*=(a,b)"},    {"a /= b", "/=(a,b)"},
        {"a %= b", "%=(a,b)"},    {"a <<= b", "<<=(a,b)"},  {"a >>= b", ">>=(a,b)"},
        {"a >>>= b", ">>>=(a,b)"}, {"a &= b", "&=(a,b)"},   {"a |= b", "|=(a,b)"},
        {"a ^= b", "^=(a,b)"},    {"a = b", "=(a,b)"},      {"a < b", "<(a,b)"},
        {"a > b", ">(a,b)"},      {"a + b", "+(a,b)"},      {"a - b", "-(a,b)"},
        {"a * b", "*(a,b)"},      {"a / b", "/(a,b)"},      {"a % b", "%(a,b)"},
        {"a & b", "&(a,b)"},      {"a | b", "|(a,b)"},      {"a ^ b", "^(a,b)"},
        {"!a", "!(a)"},           {"~a", "~(a)"},           {"-a", "-(a)"},
        {"+a", "+(a)"},           {"a ? b : c", "?(a,b,c)"}, {"a, b", ",(a,b)"},
        {"a.b", ".(a,b)"},        {"a[b]", "[(a,b)"},       {"a(b)", "((a,b)"},
        {"a in b", "IN(a,b)"},    {"a instanceof b", "INSTANCEOF(a,b)"},
        {"typeof a", "TYPEOF(a)"}, {"void a", "VOID(a)"},   {"delete a", "DELETE(a)"},
        {"a++", "POST++(a)"},     {"a--", "POST--(a)"},
        // Longest match only, and the tokens that follow.
        {"a>>>=b", ">>>=(a,b)"},  {"a>>>b", ">>>(a,b)"},    {"a>>=b", ">>=(a,b)"},
        {"a<<=b", "<<=(a,b)"},    {"a===b", "===(a,b)"},    {"a!==b", "!==(a,b)"},
        {"a=>b", "=>(a,b)"},      {"a+++b", "+(POST++(a),b)"}, {"a---b", "-(POST--(a),b)"},
        {"a====b", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"a&&=b", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"a - -b", "-(a,-(b))"},  {"a--b", "POST--(a) b"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, UnknownCharactersAreTokensThatNoRuleAccepts) {
    EXPECT_EQ(ErrorOf("a @ b"), "Error : f(1) : We really expected to get something here...\n");
    EXPECT_EQ(ErrorOf("a # b"), "Error : f(1) : We really expected to get something here...\n");
    EXPECT_EQ(ErrorOf("if (a\n\n@"), "Error : f(3) : Got '@' (@) expected ')'\n");
    EXPECT_EQ(ErrorOf("f(a b"), "Error : f(1) : Got 'b' (id) expected ',' or ')'\n");
}

// ---------------------------------------------------------------------------------------------
// Regular-expression literals.

TEST(FrontEnd, RegularExpressionLiterals) {
    const Case cases[] = {
        {"x = /ab+c/gimyq", "=(x,NEW\"/ab+c/gimy\"(((RegExp,'ab+c','gimy'))) q"},
        {"x = /a\\/b/gi", "=(x,NEW\"/a\\/b/gi\"(((RegExp,'a\\/b','gi')))"},
        {"x = /=a/", "=(x,NEW\"/=a/\"(((RegExp,'=a','')))"},
        {"x = /a/ggi", "=(x,NEW\"/a/ggi\"(((RegExp,'a','ggi')))"},
        {"x = /a/g.test(s)", "=(x,((.(NEW\"/a/g\"(((RegExp,'a','g')),test),s))"},
        {"x = /\\\\/", "=(x,NEW\"/\\\\/\"(((RegExp,'\\\\','')))"},
        {"x = /[/", "=(x,NEW\"/[/\"(((RegExp,'[','')))"},
        {"/a/", "NEW\"/a/\"(((RegExp,'a',''))"},
        {"x = a / b / c", "=(x,/(/(a,b),c))"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, UnterminatedRegularExpressionIsReportedWhereTheReaderStopped) {
    EXPECT_EQ(ErrorOf("x = /abc"), "Error : f(1) : unterminated regular expression literal\n");
    EXPECT_EQ(ErrorOf("x = /abc\ny/"), "Error : f(1) : unterminated regular expression literal\n");
    EXPECT_EQ(ErrorOf("x = /ab\\\ncd\ny/"), "Error : f(2) : unterminated regular expression literal\n");
    EXPECT_EQ(ErrorOf("x = /ab\\\r\ncd\r\ny/"), "Error : f(2) : unterminated regular expression literal\n");
    EXPECT_EQ(ErrorOf("x = /ab\\"), "Error : f(1) : unterminated regular expression literal\n");
}

// ---------------------------------------------------------------------------------------------
// Object and array literals.

TEST(FrontEnd, ObjectLiteralAccessorRules) {
    const Case cases[] = {
        {"x = { get: 1, set: 2 }", "=(x,OBJECT(get(1),set(2)))"},
        {"x = { get a() { return 1; } }", "=(x,OBJECT(GETTER(a,(,{(RETURN(1)))))"},
        {"x = { set b(v) {} }", "=(x,OBJECT(SETTER(b,((v),{)))"},
        {"x = { getter: 3, setter: 4 }", "=(x,OBJECT(getter(3),setter(4)))"},
        {"x = { 'get': 4 }", "=(x,OBJECT('get'(4)))"},
        {"x = { get 1() {} }", "=(x,OBJECT(GETTER(1,(,{)))"},
        {"x = { get if() {}, set 'k'(v) {} }", "=(x,OBJECT(GETTER(if,(,{),SETTER(k,((v),{)))"},
        {"x = { 1: a, 'b': c, if: d, 1.5: e }", "=(x,OBJECT(1(a),'b'(c),IF(d),1.5(e)))"},
        {"x = {}", "=(x,OBJECT)"},
        {"x = { a: 1, a: 2 }", "=(x,OBJECT(a(1),a(2)))"},
        {"x = { get }", "ERROR Error : f(1) : Got '' (eof) expected '('\n"},
        {"x = { set x() {} }", "ERROR Error : f(1) : Got ')' ()) expected 'id'\n"},
        {"x = { get x(v) {} }", "ERROR Error : f(1) : Got 'v' (id) expected ')'\n"},
        {"x = { a: 1, };", "ERROR Error : f(1) : Got ';' (;) expected ':'\n"},
        {"x = { 'get' a() {} }", "ERROR Error : f(1) : Got 'a' (id) expected ':'\n"},
        {"x = { a: 1 b: 2 }", "ERROR Error : f(1) : Got 'b' (id) expected ',' or '}'\n"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, ArrayLiteralLeniency) {
    const Case cases[] = {
        {"x = [1,,2]", "=(x,ARRAY(1,ELISION,2))"},
        {"x = [1 2]", "=(x,ARRAY(1,2))"},
        {"x = [,]", "=(x,ARRAY(ELISION))"},
        {"x = [,,]", "=(x,ARRAY(ELISION,ELISION))"},
        {"x = [1,]", "=(x,ARRAY(1))"},
        {"x = [1,,]", "=(x,ARRAY(1,ELISION))"},
        {"x = []", "=(x,ARRAY)"},
        {"x = [a = 1, b]", "=(x,ARRAY(=(a,1),b))"},
        {"x = [[]]", "=(x,ARRAY(ARRAY))"},
        {"x = [1", "ERROR Error : f(1) : Got '' (eof) expected ']'\n"},
        {"x = [1,\n\n", "ERROR Error : f(3) : Got '' (eof) expected ']'\n"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

// ---------------------------------------------------------------------------------------------
// new and calls.

TEST(FrontEnd, NewAndCallShapes) {
    const Case cases[] = {
        {"new a.b(1).c", ".(NEW(((.(a,b),1)),c)"},
        {"new F", "NEW(F)"},
        {"new F()", "NEW(((F))"},
        {"new F(a, b)", "NEW(((F,a,b))"},
        {"new new F()()", "NEW(((NEW(((F))))"},
        {"new F()()", "((NEW(((F)))"},
        {"new a[0](1)", "NEW((([(a,0),1))"},
        {"f(1)(2)", "((((f,1),2)"},
        {"x = function(){}()", "=(x,((FUNCTION(UNDEFINED,(,{)))"},
        {"x = function f(a, b) { }", "=(x,FUNCTION(f,((a,b),{))"},
        {"a.b.c", ".(.(a,b),c)"},
        {"a[b][c]", "[([(a,b),c)"},
        {"a.if", ".(a,if)"},
        {"this.x", ".(THIS,x)"},
        {"a.b(c)[d]", "[(((.(a,b),c),d)"},
        {"f(a, b, c)", "((f,a,b,c)"},
        {"f()", "((f)"},
        {"x = function(a,) {}", "ERROR Error : f(1) : Got ')' ()) expected 'id'\n"},
        {"f(a,)", "ERROR Error : f(1) : We really expected to get something here...\n"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, AnonymousFunctionPlaceholderTakesTheTextOfTheNextToken) {
    const Node* node = First("x = function (a) {}");
    ASSERT_NE(node, nullptr);
    const Node* function = node->last;
    ASSERT_EQ(function->kind, static_cast<uint32_t>(LEX_FUNCTION));
    EXPECT_EQ(function->first->kind, static_cast<uint32_t>(LEX_UNDEFINED));
    EXPECT_EQ(Text(function->first), "(");
}

// ---------------------------------------------------------------------------------------------
// The dump written before "We really expected to get something here...".

TEST(FrontEnd, DumpOfAPartialFunctionDeclarationThenTheMessage) {
    std::string error;
    std::string out = DumpOf("function f(a) {\n  return\n    )\n}", &error);
    EXPECT_EQ(out,
              "[ {=\"{\", \n"
              "  [ 324=\"function\", \n"
              "    [ id=\"f\" ], \n"
              "    [ (=\"(\", \n"
              "      [ id=\"a\" ]\n"
              "    ], \n"
              "    [ {=\"{\", \n"
              "      [ return=\"return\" ]\n"
              "    ]\n"
              "  ]\n"
              "]\n\n\n");
    EXPECT_EQ(error, "Error : f(3) : We really expected to get something here...\n");
}

TEST(FrontEnd, DumpOfAnEmptyRootWhenTheFirstStatementFails) {
    std::string error;
    std::string out = DumpOf("x = )", &error);
    EXPECT_EQ(out, "[ {=\"{\" ]\n\n\n");
    EXPECT_EQ(error, "Error : f(1) : We really expected to get something here...\n");
}

TEST(FrontEnd, DumpShowsEarlierStatementsWithTheirKindNames) {
    std::string error;
    std::string out = DumpOf("a: 1.5;\r\nvar v = 'x';\r\nfor (;;) { ] }", &error);
    EXPECT_EQ(out,
              "[ {=\"{\", \n"
              "  [ :=\":\", \n"
              "    [ id=\"a\" ]\n"
              "  ], \n"
              "  [ float=\"1.5\" ], \n"
              "  [ var=\"var\", \n"
              "    [ id=\"v\", \n"
              "      [ str=\"x\" ]\n"
              "    ]\n"
              "  ], \n"
              "  [ for=\"for\", \n"
              "    [ ;=\";\" ], \n"
              "    [ true=\";\" ], \n"
              "    [ ;=\";\" ], \n"
              "    [ {=\"{\" ]\n"
              "  ]\n"
              "]\n\n\n");
    EXPECT_EQ(error, "Error : f(3) : We really expected to get something here...\n");
}

TEST(FrontEnd, NoDumpForOtherErrors) {
    std::string error;
    std::string out = DumpOf("var 1;", &error);
    EXPECT_EQ(out, "");
    EXPECT_EQ(error, "Error : f(1) : Got '1' (int) expected 'id'\n");
}

// ---------------------------------------------------------------------------------------------
// Statements: labels, the do filler, switch and function declaration errors.

TEST(FrontEnd, Labels) {
    const Case cases[] = {
        {"a: b;", ":(a) b"},
        {"(a): b", ":(a) b"},
        {"a: b: while (1) break a;", ":(a) :(b) WHILE(1,BREAK(a))"},
        {"a:", ":(a)"},
        {"a.b: c", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"1: c", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"default: x", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"break\nouter;", "BREAK(outer)"},
        {"continue 1", "CONTINUE 1"},
        {"return\nx", "RETURN(x)"},
        {"{ return }", "{(RETURN)"},
        {"throw;", "THROW"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, DoBodyIsNeverMissing) {
    const Case cases[] = {
        {"do ; while (x)", "DO(;,x)"},
        {"do ;; while (x)", "DO(;,x)"},
        {"do {} while (x)", "DO({,x)"},
        {"do a; while (x)", "DO(a,x)"},
        {"do a while (x)", "DO(a,x)"},
        {"do ;;; while (x)", "ERROR Error : f(1) : Got ';' (;) expected 'while'\n"},
        {"do a; b; while (x)", "ERROR Error : f(1) : Got 'b' (id) expected 'while'\n"},
        {"do a; while x", "ERROR Error : f(1) : Got 'x' (id) expected '('\n"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, DoFillerIsMadeAtTheLexersPositionAfterTheBody) {
    const Node* node = First("do ;\n\n while (x)");
    ASSERT_NE(node, nullptr);
    ASSERT_NE(node->first, nullptr);
    EXPECT_EQ(node->first->kind, static_cast<uint32_t>(';'));
    EXPECT_EQ(Text(node->first), ";");
    // The current token is `while` (line 3); the lexer stands after it.
    EXPECT_EQ(node->first->position->line, 3);
    EXPECT_EQ(node->first->position->offset, 14);
}

TEST(FrontEnd, SwitchShapesAndErrors) {
    const Case cases[] = {
        {"switch (a) { case 1: b; c; default: d; case 2: }", "SWITCH(a,CASE(1,b,c),DEFAULT(d),CASE(2))"},
        {"switch (a) {}", "SWITCH(a)"},
        {"switch (a) { default: default: }", "SWITCH(a,DEFAULT,DEFAULT)"},
        {"switch (a) { case 1, 2: }", "SWITCH(a,CASE(,(1,2)))"},
        {"switch (a) { x }", "ERROR Error : f(1) : Got 'x' (id) expected 'case' or 'default'\n"},
        {"switch (a) {\n case 1:\n", "ERROR Error : f(3) : Got '' (eof) expected '}'\n"},
        {"switch (a) case", "ERROR Error : f(1) : Got 'case' (case) expected '{'\n"},
        {"switch (a) { case 1 }", "ERROR Error : f(1) : Got '}' (}) expected ':'\n"},
        {"switch (a) { default }", "ERROR Error : f(1) : Got '}' (}) expected ':'\n"},
        {"switch a", "ERROR Error : f(1) : Got 'a' (id) expected '('\n"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, FunctionDeclarationShapesAndErrors) {
    const Case cases[] = {
        {"function f(a, b) {}", "FUNCTION(f,((a,b),{)"},
        {"function f() { return a; }", "FUNCTION(f,(,{(RETURN(a)))"},
        {"function (a) {}", "ERROR Error : f(1) : Got '(' (() expected 'id'\n"},
        {"function f(a b) {}", "ERROR Error : f(1) : Got 'b' (id) expected ',' or ')'\n"},
        {"function f(1) {}", "ERROR Error : f(1) : Got '1' (int) expected 'id'\n"},
        {"function f() x", "ERROR Error : f(1) : Got 'x' (id) expected '{'\n"},
        {"function f(a,) {}", "ERROR Error : f(1) : Got ')' ()) expected 'id'\n"},
        {"function f", "ERROR Error : f(1) : Got '' (eof) expected '('\n"},
        {"function if() {}", "ERROR Error : f(1) : Got 'if' (if) expected 'id'\n"},
        {"function f() {\n\n", "ERROR Error : f(3) : Got '' (eof) expected '}'\n"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, OtherStatementErrorsAndShapes) {
    const Case cases[] = {
        {"try {} catch (e) {} finally {}", "TRY({,CATCH(e,{),FINALLY({))"},
        {"try {} finally {} catch (e) {}", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"try x", "ERROR Error : f(1) : Got 'x' (id) expected '{'\n"},
        {"try {} catch e {}", "ERROR Error : f(1) : Got 'e' (id) expected '('\n"},
        {"try {} catch (1) {}", "ERROR Error : f(1) : Got '1' (int) expected 'id'\n"},
        {"var a = 1, b = a, c;", "VAR(a(1),b(a),c)"},
        {"const k = 1", "CONST(k(1))"},
        {"var a, ;", "ERROR Error : f(1) : Got ';' (;) expected 'id'\n"},
        {"var a = 1, b = 2 c", "VAR(a(1),b(2)) c"},
        {"for (k in o) ;", "FOR(k,IN,o)"},
        {"for (var k in o) a", "FOR(VAR(k),IN,o,a)"},
        {"for (var k = 1 in o) a", "FOR(VAR(k(1)),IN,o,a)"},
        {"for (k of o) a", "ERROR Error : f(1) : Got 'of' (id) expected 'in'\n"},
        {"for (a; b) c", "ERROR Error : f(1) : Got ')' ()) expected ';'\n"},
        {"with (o) { a }", "WITH(o,{(a))"},
        {"let x = 1", "ERROR Error : f(1) : We really expected to get something here...\n"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

// ---------------------------------------------------------------------------------------------
// Escapes resolved twice, and right after a string.

TEST(FrontEnd, EscapedBackslashIsResolvedAgainAtTheStartOfAToken) {
    const Case cases[] = {
        {"\\u005Cu0061 = 1", "=(a,1)"},
        {"x\\u005Cu0061", "x a"},
        {"a\\u000A++b", "a ++(b)"},
        // After a string the escape is resolved only once whitespace skipping has stopped, so
        // the space it gives is a token of its own kind (32).
        {"x = 'a'\\u0020", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"x = 'a'\\u0020 + 1", "ERROR Error : f(1) : We really expected to get something here...\n"},
        // An escaped slash right after the opening one closes the literal at once.
        {"x = /a\\u002F", "=(x,NEW\"/a/\"(((RegExp,'a','')))"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, SpaceFromAnEscapeAfterAStringIsReportedAsItsOwnKind) {
    EXPECT_EQ(ErrorOf("f('a'\\u0020)"), "Error : f(1) : Got ' ' ( ) expected ',' or ')'\n");
}

// ---------------------------------------------------------------------------------------------
// Kind names in the match messages.

TEST(FrontEnd, KindNamesInMessages) {
    EXPECT_EQ(ErrorOf("function f(a =>) {}"), "Error : f(1) : Got '=>' (260) expected ',' or ')'\n");
    EXPECT_EQ(ErrorOf("function f(this) {}"), "Error : f(1) : Got 'this' (319) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var function"), "Error : f(1) : Got 'function' (324) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var yield"), "Error : f(1) : Got 'yield' (337) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var let"), "Error : f(1) : Got 'let' (let) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var 1.5"), "Error : f(1) : Got '1.5' (float) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var 'x'"), "Error : f(1) : Got 'x' (str) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var ==="), "Error : f(1) : Got '===' (typeequal) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var >>>="), "Error : f(1) : Got '>>>=' (rshiftuequal) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var |="), "Error : f(1) : Got '|=' (orequal) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var ||"), "Error : f(1) : Got '||' (oror) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var instanceof"), "Error : f(1) : Got 'instanceof' (instanceof) expected 'id'\n");
    // Character kinds print through "%c": a kind from 128 to 255 is one byte.
    EXPECT_EQ(ErrorOf("var \xC3\x97"), "Error : f(1) : Got '\xC3\x97' (\xD7) expected 'id'\n");
    // Above 255 the kind prints as its number: U+03F6 is a math symbol.
    EXPECT_EQ(ErrorOf("var \xCF\xB6"), "Error : f(1) : Got '\xCF\xB6' (1014) expected 'id'\n");
}

TEST(FrontEnd, ObjectKeyGetFollowedByACommaIsAGetterNamedByTheComma) {
    EXPECT_EQ(ErrorOf("x = { get, a: 1 }"), "Error : f(1) : Got 'a' (id) expected '('\n");
}

TEST(FrontEnd, ForInHeadShapes) {
    const Case cases[] = {
        {"for (var a in b in c) ;", "FOR(VAR(a),IN,IN(b,c))"},
        {"for (x = a in b) ;", "FOR(=(x,a),IN,b)"},
        {"for (a in b;;) ;", "ERROR Error : f(1) : Got ';' (;) expected ')'\n"},
        {"for (var a = 1, b = 2; ;) ;", "FOR(VAR(a(1),b(2)),TRUE\";\",;)"},
        // The flag is not reset inside parentheses.
        {"for ((a in b);;) ;", "ERROR Error : f(1) : Got 'in' (in) expected ')'\n"},
        {"for (a;b in c;) ;", "FOR(a,IN(b,c),;)"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, MessagesCarryTheLineWhereTheLexerStandsNotWhereTheTokenStarted) {
    // The string token starts on line 1 and ends on line 2.
    EXPECT_EQ(ErrorOf("var 'a\\\nb'"), "Error : f(2) : Got 'ab' (str) expected 'id'\n");
    EXPECT_EQ(ErrorOf("var /*\n\n*/ 1"), "Error : f(3) : Got '1' (int) expected 'id'\n");
    EXPECT_EQ(ErrorOf("x = \n\n)"), "Error : f(3) : We really expected to get something here...\n");
    EXPECT_EQ(ErrorOf("x = )\n\n"), "Error : f(1) : We really expected to get something here...\n");
    EXPECT_EQ(ErrorOf("x = \n\n"), "Error : f(3) : We really expected to get something here...\n");
    // The inserted ';' is made after the newline has been left.
    EXPECT_EQ(ErrorOf("f(a\n++b)"), "Error : f(2) : Got ';' (;) expected ',' or ')'\n");
}

TEST(FrontEnd, EscapesFormNumbersStringsAndOperators) {
    // A digit after an escape would be one more hexadecimal digit of it.
    ExpectLeaf("1\\u002E\\u0035", LEX_FLOAT, "1.5");
    ExpectLeaf("\\u0027xyz'", LEX_STR, "xyz");
    ExpectLeaf("\\u0031\\u0030", LEX_INT, "10");
    const Case cases[] = {
        {"a =\\u003D b", "==(a,b)"},
        {"a \\u0026\\u0026 b", "&&(a,b)"},
        {"x = /a/ / 2", "=(x,/(NEW\"/a/\"(((RegExp,'a','')),2))"},
        {"x = //a/", "ERROR Error : f(1) : We really expected to get something here...\n"},
        {"x = /a/gx", "=(x,NEW\"/a/g\"(((RegExp,'a','g'))) x"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
}

TEST(FrontEnd, EscapesMeetTheNewlineRuleAndTheLineCount) {
    const Case cases[] = {
        // The newline is followed by '+' and then an escape: no ';', and the escape joins "++".
        {"a\n+\\u002Bz", "POST++(a) z"},
        // The newline is followed by the escape itself: not the rule's case.
        {"a\n\\u002B+b", "POST++(a) b"},
        {"a\\u000A\\u002B+b", "POST++(a) b"},
    };
    ExpectCases(cases, sizeof cases / sizeof cases[0]);
    // An escaped line feed counts as a line when it is left.
    EXPECT_EQ(ErrorOf("a\\u000A)"), "Error : f(2) : We really expected to get something here...\n");
}
