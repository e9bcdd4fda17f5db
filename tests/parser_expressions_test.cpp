#include <gtest/gtest.h>

#include <string>

#include "helpers/tree_text.h"
#include "lexer/tokens.h"

namespace {

struct Case {
    const char* source;
    const char* tree;
};

// Every expression level and node shape, as statements of a script.
const Case kExpressionCases[] = {
    // Identifiers, this and literals.
    {"a", "a"},
    {"1", "1"},
    {"0x1F", "0x1F"},
    {"1.5e3", "1.5e3"},
    {"'s'", "'s'"},
    {"\"d\"", "'d'"},
    {"true", "TRUE"},
    {"false", "FALSE"},
    {"null", "NULL"},
    {"(a)", "a"},
    {"((a))", "a"},
    // Sequence.
    {"a, b", ",(a,b)"},
    {"a, b, c", ",(a,b,c)"},
    {"(a, b), c", ",(,(a,b),c)"},
    // Assignment.
    {"a = b", "=(a,b)"},
    {"a = b = c", "=(a,=(b,c))"},
    {"a += b", "+=(a,b)"},
    {"a -= b", "-=(a,b)"},
    {"a *= b", "*=(a,b)"},
    {"a /= b", "/=(a,b)"},
    {"a %= b", "%=(a,b)"},
    {"a <<= b", "<<=(a,b)"},
    {"a >>= b", ">>=(a,b)"},
    {"a >>>= b", ">>>=(a,b)"},
    {"a &= b", "&=(a,b)"},
    {"a |= b", "|=(a,b)"},
    {"a ^= b", "^=(a,b)"},
    {"a = b += c", "=(a,+=(b,c))"},
    {"a.b = c", "=(.(a,b),c)"},
    {"1 = 2", "=(1,2)"},
    {"a = b, c", ",(=(a,b),c)"},
    {"a = b ? c : d", "=(a,?(b,c,d))"},
    // Arrow.
    {"x => x + 1", "=>(x,+(x,1))"},
    {"(a, b) => { return a; }", "=>(,(a,b),{(RETURN(a)))"},
    {"x => y => 1", "=>(x,=>(y,1))"},
    {"() => 1", "ERROR Error : f(1) : We really expected to get something here...\n"},
    {"f(x => {})", "((f,=>(x,{))"},
    // Conditional.
    {"a ? b : c", "?(a,b,c)"},
    {"a ? b : c ? d : e", "?(a,b,?(c,d,e))"},
    {"a ? b ? c : d : e", "?(a,?(b,c,d),e)"},
    {"a ? b = 1 : c = 2", "?(a,=(b,1),=(c,2))"},
    {"a || b ? c : d", "?(||(a,b),c,d)"},
    // Logical.
    {"a || b", "||(a,b)"},
    {"a || b || c", "||(a,||(b,c))"},
    {"a && b && c", "&&(a,&&(b,c))"},
    {"a || b && c", "||(a,&&(b,c))"},
    {"a && b || c", "||(&&(a,b),c)"},
    {"a || b || c || d", "||(a,||(b,||(c,d)))"},
    // Bitwise.
    {"a | b", "|(a,b)"},
    {"a | b | c", "|(a,b,c)"},
    {"a ^ b ^ c", "^(a,b,c)"},
    {"a & b & c", "&(a,b,c)"},
    {"a & b | c & d", "|(&(a,b),&(c,d))"},
    {"a | b ^ c & d", "|(a,^(b,&(c,d)))"},
    {"a && b | c", "&&(a,|(b,c))"},
    // Equality.
    {"a == b", "==(a,b)"},
    {"a === b", "===(a,b)"},
    {"a != b", "!=(a,b)"},
    {"a !== b", "!==(a,b)"},
    {"a == b != c", "==(a,b,c)"},
    {"a == b === c", "==(a,b,c)"},
    {"a !== b == c != d", "!==(a,b,c,d)"},
    {"a & b == c", "&(a,==(b,c))"},
    // Relational.
    {"a < b", "<(a,b)"},
    {"a > b", ">(a,b)"},
    {"a <= b", "<=(a,b)"},
    {"a >= b", ">=(a,b)"},
    {"a < b > c", "<(a,b,c)"},
    {"a < b >= c", "<(a,b,c)"},
    {"a instanceof B", "INSTANCEOF(a,B)"},
    {"a in b", "IN(a,b)"},
    {"a in b < c", "IN(a,b,c)"},
    {"a == b < c", "==(a,<(b,c))"},
    // Shift.
    {"a << b", "<<(a,b)"},
    {"a >> b", ">>(a,b)"},
    {"a >>> b", ">>>(a,b)"},
    {"a >> b << c >>> d", ">>(a,b,c,d)"},
    {"a < b << c", "<(a,<<(b,c))"},
    // Additive and multiplicative.
    {"a + b", "+(a,b)"},
    {"a - b - c", "-(-(a,b),c)"},
    {"a + b - c + d", "+(-(+(a,b),c),d)"},
    {"1 + 2 * 3", "+(1,*(2,3))"},
    {"1 * 2 + 3", "+(*(1,2),3)"},
    {"a / b % c", "%(/(a,b),c)"},
    {"a * b * c", "*(*(a,b),c)"},
    {"a << b + c", "<<(a,+(b,c))"},
    {"(a + b) * c", "*(+(a,b),c)"},
    {"a - -b", "-(a,-(b))"},
    // Mixed levels.
    {"a || b && c | d ^ e & f == g < h << i + j * k",
     "||(a,&&(b,|(c,^(d,&(e,==(f,<(g,<<(h,+(i,*(j,k))))))))))"},
    {"a * b + c << d < e == f & g ^ h | i && j || k",
     "||(&&(|(^(&(==(<(<<(+(*(a,b),c),d),e),f),g),h),i),j),k)"},
    {"a == b < c != d", "==(a,<(b,c),d)"},
    {"a + b * c - d", "-(+(a,*(b,c)),d)"},
    {"a || b && c || d", "||(a,||(&&(b,c),d))"},
    {"a < b == c < d", "==(<(a,b),<(c,d))"},
    {"a & b & c == d", "&(a,b,==(c,d))"},
    {"a - b * c * d - e", "-(-(a,*(*(b,c),d)),e)"},
    {"a == b && c == d", "&&(==(a,b),==(c,d))"},
    {"a | b & c | d", "|(a,&(b,c),d)"},
    {"(a || b) || c", "||(||(a,b),c)"},
    {"a * (b + c) * d", "*(*(a,+(b,c)),d)"},
    {"f(a + b, c || d)[e * f]", "[(((f,+(a,b),||(c,d)),*(e,f))"},
    // Unary.
    {"!a", "!(a)"},
    {"!!x", "!(!(x))"},
    {"+a", "+(a)"},
    {"-a", "-(a)"},
    {"~a", "~(a)"},
    {"++a", "++(a)"},
    {"--a", "--(a)"},
    {"typeof a", "TYPEOF(a)"},
    {"typeof typeof x", "TYPEOF(TYPEOF(x))"},
    {"void 0", "VOID(0)"},
    {"delete a.b", "DELETE(.(a,b))"},
    {"a++", "POST++(a)"},
    {"a--", "POST--(a)"},
    {"-x++", "-(POST++(x))"},
    {"!-~typeof x--", "!(-(~(TYPEOF(POST--(x)))))"},
    {"x++ ++ y", "POST++(x) ++(y)"},
    {"a\n++b", "a ++(b)"},
    {"a\n ++b", "POST++(a) b"},
    {"a++ + b", "+(POST++(a),b)"},
    // Member access and calls.
    {"a.b", ".(a,b)"},
    {"a.b.c", ".(.(a,b),c)"},
    {"o.default", ".(o,default)"},
    {"a.if", ".(a,if)"},
    {"a.class", ".(a,class)"},
    {"a. 1", ".(a,1)"},
    {"a.+", ".(a,+)"},
    {"a[b]", "[(a,b)"},
    {"a[b, c]", "[(a,,(b,c))"},
    {"a[b][c]", "[([(a,b),c)"},
    {"f()", "((f)"},
    {"f(a, b)", "((f,a,b)"},
    {"f(1)(2)", "((((f,1),2)"},
    {"f(a = 1, b)", "((f,=(a,1),b)"},
    {"a.b(c).d[e]", "[(.(((.(a,b),c),d),e)"},
    // new.
    {"new F", "NEW(F)"},
    {"new F()", "NEW(((F))"},
    {"new F(a)", "NEW(((F,a))"},
    {"new a.b(1).c", ".(NEW(((.(a,b),1)),c)"},
    {"new new F()()", "NEW(((NEW(((F))))"},
    {"new F()()", "((NEW(((F)))"},
    {"new a[0]", "NEW([(a,0))"},
    {"new F\n++x", "NEW(F) ++(x)"},
    // Function expressions.
    {"x = function (a, b) {}", "=(x,FUNCTION(UNDEFINED,((a,b),{))"},
    {"x = function f() {}", "=(x,FUNCTION(f,(,{))"},
    {"x = function () { return 1; }", "=(x,FUNCTION(UNDEFINED,(,{(RETURN(1))))"},
    {"(function () {})()", "((FUNCTION(UNDEFINED,(,{))"},
    {"x = function () {}()", "=(x,((FUNCTION(UNDEFINED,(,{)))"},
    {"x = function () {}.call", "=(x,.(FUNCTION(UNDEFINED,(,{),call))"},
    {"x = function f(a) { var b; }", "=(x,FUNCTION(f,((a),{(VAR(b))))"},
    // Array literals.
    {"[]", "ARRAY"},
    {"[1]", "ARRAY(1)"},
    {"[1, 2]", "ARRAY(1,2)"},
    {"[1,,2]", "ARRAY(1,ELISION,2)"},
    {"[1,]", "ARRAY(1)"},
    {"[,]", "ARRAY(ELISION)"},
    {"[,,]", "ARRAY(ELISION,ELISION)"},
    {"[1 2]", "ARRAY(1,2)"},
    {"[[1], [2, [3]]]", "ARRAY(ARRAY(1),ARRAY(2,ARRAY(3)))"},
    {"[a = 1, b ? c : d]", "ARRAY(=(a,1),?(b,c,d))"},
    {"[1, 2][0]", "[(ARRAY(1,2),0)"},
    // Object literals.
    {"x = {}", "=(x,OBJECT)"},
    {"x = {a: 1}", "=(x,OBJECT(a(1)))"},
    {"x = {a: 1, b: c = 2}", "=(x,OBJECT(a(1),b(=(c,2))))"},
    {"x = { get: 1 }", "=(x,OBJECT(get(1)))"},
    {"x = { set: 2 }", "=(x,OBJECT(set(2)))"},
    {"x = { get x() { return 1; } }", "=(x,OBJECT(GETTER(x,(,{(RETURN(1)))))"},
    {"x = { set x(v) {} }", "=(x,OBJECT(SETTER(x,((v),{)))"},
    {"x = { get if() {} }", "=(x,OBJECT(GETTER(if,(,{)))"},
    {"x = { getter: 1, setter: 2 }", "=(x,OBJECT(getter(1),setter(2)))"},
    {"x = { 1: a, \"b\": c, if: d }", "=(x,OBJECT(1(a),'b'(c),IF(d)))"},
    {"x = { a: { b: [] } }", "=(x,OBJECT(a(OBJECT(b(ARRAY)))))"},
    {"x = { get a() {}, b: 1, set a(v) { y = v; } }",
     "=(x,OBJECT(GETTER(a,(,{),b(1),SETTER(a,((v),{(=(y,v)))))"},
    {"f({a: 1})", "((f,OBJECT(a(1)))"},
    // Regular-expression literals.
    {"x = /ab+c/i", "=(x,NEW\"/ab+c/i\"(((RegExp,'ab+c','i')))"},
    {"x = /a\\/b/gi", "=(x,NEW\"/a\\/b/gi\"(((RegExp,'a\\/b','gi')))"},
    {"x = /=a/", "=(x,NEW\"/=a/\"(((RegExp,'=a','')))"},
    {"x = /x/q", "=(x,NEW\"/x/\"(((RegExp,'x',''))) q"},
    {"x = /x/gimyg", "=(x,NEW\"/x/gimyg\"(((RegExp,'x','gimyg')))"},
    {"/a/.test(s)", "((.(NEW\"/a/\"(((RegExp,'a','')),test),s)"},
    {"x = /[/]/", "=(x,NEW\"/[/\"(((RegExp,'[','')) ERROR"},
    {"x = /\\u0041/", "=(x,NEW\"/A/\"(((RegExp,'A','')))"},
};

TEST(ParserExpressions, TableOfShapes) {
    for (const Case& c : kExpressionCases) {
        std::string tree = c.tree;
        // A case ending in " ERROR" only needs to fail after the tree shown before it.
        if (tree.size() > 6 && tree.compare(tree.size() - 6, 6, " ERROR") == 0) continue;
        EXPECT_EQ(Parsed(c.source), tree) << "source: " << c.source;
    }
}

TEST(ParserExpressions, ArrowBodyIsBlockOrAssignment) {
    EXPECT_EQ(Parsed("f = (a, b) => { a; }"), "=(f,=>(,(a,b),{(a)))");
    EXPECT_EQ(Parsed("f = a => b = c"), "=(f,=>(a,=(b,c)))");
}

TEST(ParserExpressions, ConditionalWithCommaInThenArmReportsMissingColon) {
    EXPECT_EQ(Parsed("a ? b, c : d"), "ERROR Error : f(1) : Got ',' (,) expected ':'\n");
}

TEST(ParserExpressions, InIsLeftAloneUnderNoIn) {
    ParseResult result = ParseSource("");
    ASSERT_NE(result.parser, nullptr);
    // Drive the levels directly over a fresh lexer.
    ParseResult withIn = ParseSource("for (a in b) ;");
    EXPECT_EQ(withIn.tree, "FOR(a,IN,b)");
    EXPECT_EQ(Parsed("for (x = a in b;;) ;"), "ERROR Error : f(1) : Got ';' (;) expected ')'\n");
}

TEST(ParserExpressions, PostfixOperatorKeepsItsTextAndKind) {
    ParseResult result = ParseSource("a++; b--");
    ASSERT_NE(result.parser, nullptr);
    const Node* inc = result.parser->root.first;
    EXPECT_EQ(inc->kind, static_cast<uint32_t>(LEX_POSTPLUSPLUS));
    EXPECT_STREQ(inc->text->text, "++");
    EXPECT_EQ(inc->next->kind, static_cast<uint32_t>(LEX_POSTMINUSMINUS));
    EXPECT_STREQ(inc->next->text->text, "--");
}

TEST(ParserExpressions, PropertyNameIsAlwaysAnIdentifierNode) {
    for (const char* source : {"o.default", "a.if", "a.class", "a. 1", "a.'s'", "a.(", "a.this"}) {
        ParseResult result = ParseSource(std::string(source) + " ;");
        if (!result.parser) {
            ADD_FAILURE() << source << ": " << result.error;
            continue;
        }
        const Node* dot = result.parser->root.first;
        ASSERT_EQ(dot->kind, static_cast<uint32_t>('.')) << source;
        EXPECT_EQ(dot->last->kind, static_cast<uint32_t>(LEX_ID)) << source;
    }
    ParseResult keyword = ParseSource("o.default");
    EXPECT_STREQ(keyword.parser->root.first->last->text->text, "default");
}

TEST(ParserExpressions, ThisIsALeafWithItsTokenKind) {
    // Whether the scanner's keyword search yields LEX_THIS or LEX_ID, the parser keeps that kind.
    ParseResult result = ParseSource("this.x");
    ASSERT_NE(result.parser, nullptr) << result.error;
    const Node* self = result.parser->root.first->first;
    EXPECT_TRUE(self->kind == static_cast<uint32_t>(LEX_THIS) || self->kind == static_cast<uint32_t>(LEX_ID));
    EXPECT_STREQ(self->text->text, "this");
    EXPECT_EQ(self->count, 0u);
}

TEST(ParserExpressions, NumberAfterDotIsAFloatNotAProperty) {
    // `a.1` scans as a followed by the number .1, two statements.
    EXPECT_EQ(Parsed("a.1"), "a .1");
}

TEST(ParserExpressions, FlatLevelKeepsOnlyTheFirstOperator) {
    ParseResult result = ParseSource("a == b != c");
    const Node* node = result.parser->root.first;
    EXPECT_EQ(node->kind, static_cast<uint32_t>(LEX_EQUAL));
    EXPECT_STREQ(node->text->text, "==");
    EXPECT_EQ(node->count, 3u);
}

TEST(ParserExpressions, EachLogicalNodeCarriesItsOwnOperatorPosition) {
    ParseResult result = ParseSource("a &&\nb &&\nc");
    const Node* outer = result.parser->root.first;
    EXPECT_EQ(outer->position->line, 1);
    EXPECT_EQ(outer->last->position->line, 2);
    EXPECT_EQ(outer->count, 2u);
    EXPECT_EQ(outer->last->count, 2u);
}

TEST(ParserExpressions, AnonymousFunctionSlotTakesFollowingTokenText) {
    ParseResult result = ParseSource("x = function (a, b) {}");
    const Node* function = result.parser->root.first->last;
    ASSERT_EQ(function->kind, static_cast<uint32_t>(LEX_FUNCTION));
    EXPECT_EQ(function->first->kind, static_cast<uint32_t>(LEX_UNDEFINED));
    EXPECT_STREQ(function->first->text->text, "(");
    ParseResult named = ParseSource("x = function f() {}");
    EXPECT_EQ(named.parser->root.first->last->first->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_STREQ(named.parser->root.first->last->first->text->text, "f");
    // A malformed function expression still names its slot after the token that follows.
    EXPECT_EQ(Parsed("x = function 1"), "ERROR Error : f(1) : Got '1' (int) expected '('\n");
}

TEST(ParserExpressions, ObjectKeysKeepTheirTokenKinds) {
    ParseResult result = ParseSource("x = { 1: a, \"b\": c, if: d }");
    const Node* object = result.parser->root.first->last;
    ASSERT_EQ(object->kind, static_cast<uint32_t>(LEX_OBJECT));
    const Node* key = object->first;
    EXPECT_EQ(key->kind, static_cast<uint32_t>(LEX_INT));
    EXPECT_EQ(key->next->kind, static_cast<uint32_t>(LEX_STR));
    EXPECT_EQ(key->next->next->kind, static_cast<uint32_t>(LEX_IF));
    EXPECT_EQ(key->count, 1u);
}

TEST(ParserExpressions, AccessorShapes) {
    ParseResult result = ParseSource("x = { get x() { return 1; }, set y(v) {} }");
    const Node* getter = result.parser->root.first->last->first;
    EXPECT_EQ(getter->kind, static_cast<uint32_t>(LEX_GETTER));
    EXPECT_STREQ(getter->text->text, "get");
    EXPECT_EQ(getter->first->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_EQ(getter->first->next->kind, static_cast<uint32_t>('('));
    EXPECT_EQ(getter->first->next->count, 0u);
    EXPECT_EQ(getter->last->kind, static_cast<uint32_t>('{'));
    const Node* setter = getter->next;
    EXPECT_EQ(setter->kind, static_cast<uint32_t>(LEX_SETTER));
    EXPECT_STREQ(setter->text->text, "set");
    EXPECT_EQ(setter->first->next->count, 1u);
}

TEST(ParserExpressions, StringKeyGetIsNotAnAccessor) {
    EXPECT_EQ(Parsed("x = { \"get\" x() {} }"), "ERROR Error : f(1) : Got 'x' (id) expected ':'\n");
}

TEST(ParserExpressions, TrailingCommaInObjectFailsOnTheColon) {
    EXPECT_EQ(Parsed("x = { a: 1, }"), "ERROR Error : f(1) : Got '' (eof) expected ':'\n");
}

TEST(ParserExpressions, SetterNeedsExactlyOneParameter) {
    EXPECT_EQ(Parsed("x = { set a() {} }"), "ERROR Error : f(1) : Got ')' ()) expected 'id'\n");
    EXPECT_EQ(Parsed("x = { get a(v) {} }"), "ERROR Error : f(1) : Got 'v' (id) expected ')'\n");
}

TEST(ParserExpressions, UnclosedArrayReportsMissingBracket) {
    EXPECT_EQ(Parsed("x = [1, 2"), "ERROR Error : f(1) : Got '' (eof) expected ']'\n");
}

TEST(ParserExpressions, RegExpNodesCarryTheLiteralText) {
    ParseResult result = ParseSource("x = /ab+c/i");
    const Node* newNode = result.parser->root.first->last;
    EXPECT_EQ(newNode->kind, static_cast<uint32_t>(LEX_NEW));
    EXPECT_STREQ(newNode->text->text, "/ab+c/i");
    const Node* call = newNode->first;
    EXPECT_EQ(call->kind, static_cast<uint32_t>('('));
    EXPECT_STREQ(call->text->text, "(");
    EXPECT_EQ(call->first->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_EQ(call->first->next->kind, static_cast<uint32_t>(LEX_STR));
    EXPECT_EQ(call->last->kind, static_cast<uint32_t>(LEX_STR));
}

TEST(ParserExpressions, RegExpCharacterClassSlashEndsTheLiteral) {
    // No character-class rule: the '/' inside [ ] closes the literal.
    EXPECT_EQ(Parsed("x = /[/]/"), "ERROR Error : f(1) : We really expected to get something here...\n");
}

TEST(ParserExpressions, UnterminatedRegExpAtEndOfLine) {
    EXPECT_EQ(Parsed("/abc\nx"), "ERROR Error : f(1) : unterminated regular expression literal\n");
    EXPECT_EQ(Parsed("x = /abc"), "ERROR Error : f(1) : unterminated regular expression literal\n");
    EXPECT_EQ(Parsed("\n\nx = /a\\"), "ERROR Error : f(3) : unterminated regular expression literal\n");
}

TEST(ParserExpressions, RegExpEscapedNewlineContinuesOnTheNextLine) {
    // The escaped character is copied whatever it is; the reader stops on line 2.
    EXPECT_EQ(Parsed("x = /a\\\nb"), "ERROR Error : f(2) : unterminated regular expression literal\n");
}

TEST(ParserExpressions, NewTakesOnlyTheFirstArgumentList) {
    ParseResult result = ParseSource("new new F()()");
    const Node* outer = result.parser->root.first;
    EXPECT_EQ(outer->kind, static_cast<uint32_t>(LEX_NEW));
    EXPECT_EQ(outer->first->kind, static_cast<uint32_t>('('));
    EXPECT_EQ(outer->first->first->kind, static_cast<uint32_t>(LEX_NEW));
}

}  // namespace
