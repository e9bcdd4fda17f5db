#!/usr/bin/env python3
"""Writes a corpus of scripts that exercise every statement and expression form, for comparing
what two builds of the library observably do (Linux against Windows under wine).

    tests/parity/make_corpus.py OUTDIR [COUNT]

Writes OUTDIR/NNNN.js (COUNT generated scripts, 600 by default, deterministic for a given
COUNT), OUTDIR/forms/*.js (one hand-written script per form and per error), OUTDIR/list.txt
(the relative paths, in order) and OUTDIR/builtins.txt. About one generated script in six has a
token dropped, repeated or swapped in, so syntax and compile errors, and the tree dump written
before "We really expected to get something here...", are compared too."""
import os
import random
import sys

# One script per statement form, expression form and error, written out by hand.
FORMS = {
    "var": "var a = 1, b, c = 'x' + a;",
    "const": "const k = 2; k = k * 3;",
    "block": "{ var a = 1; { a = 2; } }",
    "if_else": "if (a < 1) b = 1; else if (a > 2) { b = 2; } else b = 3;",
    "while": "while (i < 10) { i++; if (i == 3) continue; if (i == 7) break; }",
    "do": "do { i -= 1; } while (i > 0);",
    "for": "for (var i = 0, j = 9; i < j; i++, j--) s += i * j;",
    "for_empty": "for (;;) { if (x) break; }",
    "for_in": "for (var k in o) s += o[k]; for (k in o) { delete o[k]; }",
    "switch": "switch (x) { case 1: y = 'one'; break; case 'two': y = 2; default: y = null; }",
    "labels": "outer: for (i = 0; i < 3; i++) { inner: while (1) { if (i) continue outer; break inner; } }",
    "labels_in_function": "function f() { l: while (a) { break l; } b(); m: do { continue m; } while (c); }",
    "return_throw": "function f(a) { if (!a) throw new Error('no a'); return a; } function g() { return; }",
    "try": "try { f(); } catch (e) { g(e); } finally { h(); } try { a(); } finally { b(); } try { c(); } catch (x) {}",
    "functions": "function outer(a, b) { var c = a; function inner(d) { return c + d + b; } return inner(arguments[0]); }",
    "function_expr": "var f = function (x) { return x; }, g = function named(y) { return named(y - 1); };",
    "new": "var a = new Foo, b = new Foo(1, 'two'), c = new a.b.C(d)[0];",
    "object": "var o = { a: 1, 'b c': 'd', 3: [4], get e() { return this.a; }, set e(v) { this.a = v; }, f: function () {} };",
    "accessors": "x = { get f() { return 1; }, set c(v) {}, get a() {}, set a(v) {}, get zz() {} };",
    "array": "var a = [1, , 'x', [2, [3]], , {y: 4}, ]; b = a[0] + a.length;",
    "regexp": "var r = /a+b*c?[d-f]\\/(g|h)/gim, s = /x/; t = r.test('abc');",
    "arithmetic": "x = 1 + 2 - 3 * 4 / 5 % 6; y = -x + +x - ~x; z = !x;",
    "bitwise": "x = a & b | c ^ d << 1 >> 2 >>> 3; x &= 1; x |= 2; x ^= 3; x <<= 4; x >>= 5; x >>>= 6;",
    "compare": "r = [a < b, a <= b, a > b, a >= b, a == b, a != b, a === b, a !== b];",
    "logical": "x = a && b || c && !d; y = a ? b ? 1 : 2 : c ? 3 : 4;",
    "compound": "x += 1; x -= 2.5; x *= 'a'; x /= 4; x %= 5; o.p += 1; o['q'] -= 2; a[i] *= 3;",
    "incdec": "x++; ++x; x--; --x; o.p++; ++o.p; a[0]--; --a[1]; y = x++ + ++x;",
    "typeof_in": "t = typeof x; u = typeof 1; v = typeof 'a'; w = x instanceof Y; z = 'p' in o; void 0;",
    "delete": "delete o.p; delete o['q']; delete a[0]; delete x;",
    "members": "a.b.c = d[e][f]; g = h.i(j).k[l](m, n); this.x = this.y;",
    "calls": "f(); f(1, 2.5, 'three', [4], {five: 5}, function () {}); o.m(); o['n'](1); (function () {})();",
    "strings": "s = 'tab\\tnl\\ncr\\rq\\'dq\\\"bs\\\\hex\\x41uni\\u00e9\\u20ac nul\\0end';",
    "numbers": "n = [0, 7, 0x1F, 0XaB, 017, 08, 1.5, .25, 5., 1e3, 1E-3, 2.5e+10, 4294967295, 4294967296, 1e400, 123456789012345678901];",
    "literals": "x = [true, false, null, undefined, this, NaN, Infinity, -Infinity];",
    "comma": "x = (a, b, c); for (i = 0, j = 1; i < 3; i++, j++) ;",
    "with": "with (o) { p = 1; }",
    "unicode": "var caf\\u00e9 = '\u00e9t\u00e9', \u03c0 = 3.14159, \u540d\u524d = '\u65e5\u672c';",
    "comments": "// line comment\nvar a = 1; /* block\ncomment */ var b = /* inline */ 2; // end",
    "asi": "var a = 1\nvar b = a\n++b\nc = b\n(d)\nreturn\n",
    "crlf": "var a = 1;\r\nif (a)\r\n  b = 2;\r\n",
    "empty_statements": ";;; if (a) ; else ; while (b) ;",
    "deep_expression": "x = ((((((((((1 + 2) * 3) - 4) / 5) % 6) << 1) >> 1) & 7) | 8) ^ 9);",
    "nested_functions": "function a() { function b() { function c() { return [a, b, c]; } return c; } return b; }",
    "for_in_return": "function f(o) { for (var k in o) { return k; } }",
    "builtin_calls": "print_line('x'); show_message(1, 2); var n = array_length([1, 2]);",
    "names_like_helpers": "var prototype = 1, arguments = 2; x = @@Null@@;",
    "err_paren": "a + a + a;)",
    "err_unexpected_dump": "var x = 1;\nfunction f(a) { return a * 2; }\nif (x) { y = [1, , 'two', {k: 3}]; }\nx = ;",
    "err_percent_dump": "s = '100% %d %s %n'; t = /a%b/g; u = *",
    "err_unterminated_string": "var s = 'abc\ndef';",
    "err_unterminated_comment": "var a = 1; /* never closed",
    "err_unterminated_regexp": "var r = /abc\n;",
    "err_hex_escape": "var s = '\\xZZ';",
    "err_two_defaults": "switch (x) { default: a(); default: b(); }",
    "err_switch_clause": "switch (x) { }",
    "err_two_catches": "try { a(); } catch (e) {} catch (f) {}",
    "err_two_finallies": "try { a(); } finally {} finally {}",
    "err_break": "break;",
    "err_continue": "if (a) continue;",
    "err_unknown_label": "while (a) { continue nowhere; }",
    "err_label_later": "while (a) { break l; }\nl: ;",
    "err_assign_target": "1 = 2;",
    "err_assign_call": "f() = 1;",
    "err_two_getters": "x = { get a() {}, get a() {} };",
    "err_two_setters": "x = { set a(v) {}, set a(w) {} };",
    "err_missing_paren": "if (a { b(); }",
    "err_bad_token": "var = 1;",
    "err_for_in_return": "for (var k in o) { return; }",
    "err_deep_parens": "x = " + "(" * 2000 + "1" + ")" * 2000 + ";",
    "err_deep_blocks": "{" * 3000 + "}" * 3000,
    "err_deep_unary": "x = " + "!" * 12000 + "a;",
}

IDENTIFIERS = ["a", "b", "c", "x", "y", "i", "k", "o", "arr", "obj", "count", "name", "caf\\u00e9", "\u00e9l\u00e8ve",
               "print_line", "show_message", "undefined", "arguments", "prototype", "_private", "$dollar"]
STRINGS = ["''", "'a'", "\"b c\"", "'esc\\n\\t\\\\'", "'\\x41\\u0042'", "'%d%s'", "'\u00e9\u20ac'", "'quote\\''"]
NUMBERS = ["0", "1", "2", "7", "42", "255", "65535", "65536", "2147483647", "2147483648", "4294967296", "0x10",
           "0xFFFFFFFF", "010", "1.5", "0.1", ".5", "3.", "1e10", "1e-7", "6.02e23", "1e400", "9007199254740993"]
BINARY = ["+", "-", "*", "/", "%", "<<", ">>", ">>>", "&", "|", "^", "<", "<=", ">", ">=", "==", "!=", "===",
          "!==", "&&", "||", "instanceof", "in"]
ASSIGN = ["=", "+=", "-=", "*=", "/=", "%=", "<<=", ">>=", ">>>=", "&=", "|=", "^="]
UNARY = ["-", "+", "!", "~", "typeof ", "void ", "delete ", "++", "--"]


class Generator:
    def __init__(self, rng):
        self.rng = rng
        self.depth = 0
        self.labels = []

    def pick(self, items):
        return self.rng.choice(items)

    def identifier(self):
        return self.pick(IDENTIFIERS)

    def primary(self):
        r = self.rng.randrange(12)
        if r < 4:
            return self.identifier()
        if r < 6:
            return self.pick(NUMBERS)
        if r < 7:
            return self.pick(STRINGS)
        if r < 8:
            return self.pick(["true", "false", "null", "this", "NaN", "Infinity"])
        if r < 9:
            return self.pick(["/ab+c/", "/[a-z]*/gi", "/\\d+\\/x/m"])
        if r < 10:
            return "[" + ", ".join(self.rng.choice(["", self.expression()]) for _ in range(self.rng.randrange(4))) + "]"
        if r < 11:
            return self.object_literal()
        return "function (" + ", ".join(self.identifier() for _ in range(self.rng.randrange(3))) + ") { " + \
            self.statements(2, in_function=True) + " }"

    def object_literal(self):
        parts = []
        for _ in range(self.rng.randrange(4)):
            r = self.rng.randrange(4)
            key = self.pick(["a", "b", "f", "get", "set", "'s t'", "3", "x"])
            if r < 2:
                parts.append("%s: %s" % (key, self.expression()))
            elif r == 2:
                parts.append("get %s() { return %s; }" % (self.pick(["f", "g", "h", "p"]), self.expression()))
            else:
                parts.append("set %s(v) { %s }" % (self.pick(["f", "q", "r", "p"]), self.statements(1, in_function=True)))
        return "{ " + ", ".join(parts) + " }"

    def postfix(self):
        # Member, element and call forms apply to names: on literals they mostly fail to compile.
        if self.rng.randrange(3):
            return self.primary()
        e = self.identifier()
        for _ in range(1 + self.rng.randrange(2)):
            r = self.rng.randrange(4)
            if r == 0:
                e = "%s.%s" % (e, self.pick(["p", "length", "default", "x"]))
            elif r == 1:
                e = "%s[%s]" % (e, self.expression())
            elif r == 2:
                e = "%s(%s)" % (e, ", ".join(self.expression() for _ in range(self.rng.randrange(3))))
            else:
                e = "new %s(%s)" % (self.identifier(), self.expression())
        return e

    def expression(self):
        self.depth += 1
        try:
            if self.depth > 4:
                return self.pick([self.identifier(), self.pick(NUMBERS), self.pick(STRINGS)])
            r = self.rng.randrange(10)
            if r < 3:
                return self.postfix()
            if r < 6:
                return "%s %s %s" % (self.expression(), self.pick(BINARY), self.expression())
            if r < 7:
                op = self.pick(UNARY)
                target = self.identifier() if op in ("++", "--", "delete ") else self.expression()
                return op + target
            if r < 8:
                # Parenthesised when nested, so that the target stays a name, member or element.
                text = "%s %s %s" % (self.pick([self.identifier(), "o.p", "a[1]"]), self.pick(ASSIGN), self.expression())
                return "(%s)" % text if self.depth > 1 else text
            if r < 9:
                return "%s ? %s : %s" % (self.expression(), self.expression(), self.expression())
            return "(%s)" % self.expression()
        finally:
            self.depth -= 1

    def statement(self, in_function, in_loop):
        self.depth += 1
        try:
            if self.depth > 3:
                return self.expression_statement()
            r = self.rng.randrange(22)
            if r < 4:
                return self.expression_statement()
            if r < 6:
                return "var %s;" % ", ".join(
                    self.identifier() + self.rng.choice(["", " = " + self.expression()]) for _ in range(1 + self.rng.randrange(2)))
            if r == 6:
                return "if (%s) %s" % (self.expression(), self.block(in_function, in_loop))
            if r == 7:
                return "if (%s) %s else %s" % (self.expression(), self.block(in_function, in_loop),
                                              self.block(in_function, in_loop))
            if r == 8:
                return "while (%s) %s" % (self.expression(), self.block(in_function, True))
            if r == 9:
                return "do %s while (%s);" % (self.block(in_function, True), self.expression())
            if r == 10:
                return "for (%s; %s; %s) %s" % (self.rng.choice(["", "var i = 0", "i = 0"]), self.rng.choice(["", "i < 3"]),
                                                 self.rng.choice(["", "i++"]), self.block(in_function, True))
            if r == 11:
                return "for (%s in %s) %s" % (self.rng.choice(["var k", "k"]), self.expression(), self.block(in_function, True))
            if r == 12:
                cases = " ".join("case %s: %s" % (self.pick(NUMBERS + STRINGS), self.statements(2, in_function, True))
                                 for _ in range(1 + self.rng.randrange(3)))
                if self.rng.randrange(2):
                    cases += " default: " + self.statements(1, in_function, True)
                return "switch (%s) { %s }" % (self.expression(), cases)
            if r == 13 and in_loop:
                label = self.labels[-1] if self.labels and self.rng.randrange(2) else ""
                return "%s%s;" % (self.pick(["break", "continue"]), " " + label if label else "")
            if r == 14:
                label = "L%d" % len(self.labels)
                self.labels.append(label)
                loop = self.pick(["while (%s) %s", "for (;%s;) %s"]) % (self.expression(), self.block(in_function, True))
                self.labels.pop()
                return "%s: %s" % (label, loop)
            if r == 15 and in_function:
                return self.rng.choice(["return;", "return %s;" % self.expression()])
            if r == 16:
                return "throw %s;" % self.expression()
            if r == 17:
                text = "try %s" % self.block(in_function, in_loop)
                if self.rng.randrange(3):
                    text += " catch (%s) %s" % (self.identifier(), self.block(in_function, in_loop))
                if self.rng.randrange(2) or "catch" not in text:
                    text += " finally %s" % self.block(in_function, in_loop)
                return text
            if r == 18:
                return "function %s(%s) { %s }" % (self.pick(["f", "g", "h", "inner", "print_line"]),
                                                  ", ".join(self.identifier() for _ in range(self.rng.randrange(3))),
                                                  self.statements(3, in_function=True))
            if r == 19 and self.rng.randrange(8) == 0:
                return "with (%s) %s" % (self.expression(), self.block(in_function, in_loop))
            if r == 20:
                return ";"
            return self.block(in_function, in_loop)
        finally:
            self.depth -= 1

    def expression_statement(self):
        text = self.expression()
        # A statement that starts with "function" or "{" would be a declaration or a block.
        if text.startswith("function") or text.startswith("{"):
            text = "(%s)" % text
        return text + ";"

    def block(self, in_function, in_loop):
        return "{ " + self.statements(3, in_function, in_loop) + " }"

    def statements(self, most, in_function=False, in_loop=False):
        return " ".join(self.statement(in_function, in_loop) for _ in range(self.rng.randrange(most + 1)))

    def script(self):
        lines = [self.statement(False, False) for _ in range(1 + self.rng.randrange(6))]
        return "\n".join(lines) + "\n"


def damage(rng, text):
    """Drops, repeats or replaces one character, to reach the error paths."""
    if not text:
        return ")"
    at = rng.randrange(len(text))
    r = rng.randrange(3)
    if r == 0:
        return text[:at] + text[at + 1:]
    if r == 1:
        return text[:at] + text[at] + text[at:]
    return text[:at] + rng.choice([")", "]", "}", ";", "=", "'", "/", "(", "{", "?", ":", "\\"]) + text[at + 1:]


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    out = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 600
    os.makedirs(os.path.join(out, "forms"), exist_ok=True)
    paths = []
    for name, text in FORMS.items():
        path = os.path.join("forms", name + ".js")
        with open(os.path.join(out, path), "w", encoding="utf-8", newline="") as f:
            f.write(text)
        paths.append(path)
    rng = random.Random(20261124)
    for i in range(count):
        text = Generator(rng).script()
        if rng.randrange(6) == 0:
            text = damage(rng, text)
        path = "%04d.js" % i
        with open(os.path.join(out, path), "w", encoding="utf-8", newline="") as f:
            f.write(text)
        paths.append(path)
    with open(os.path.join(out, "list.txt"), "w", newline="\n") as f:
        f.write("\n".join(paths) + "\n")
    with open(os.path.join(out, "builtins.txt"), "w", newline="\n") as f:
        f.write("print_line\nshow_message\narray_length\n")


if __name__ == "__main__":
    main()
