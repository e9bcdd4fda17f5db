#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets: small scripts of every statement and expression
form (compile, names) and, given the path of a built libveltjs.so, the code words they compile to
(disasm). The files it writes are committed.

    fuzz/make_seeds.py [build/linux/libveltjs.so]"""
import ctypes
import os
import struct
import sys

SCRIPTS = {
    "empty": "",
    "var": "var x = 1, y, z = 'a';",
    "const": "const k = 3; k;",
    "block": "{ var a = 1; { a = 2; } }",
    "if": "if (a) b = 1;",
    "if_else": "if (a < 1) { b = 1; } else if (a > 2) b = 2; else { b = 3; }",
    "while": "var i = 0; while (i < 10) { i++; if (i == 5) break; else continue; }",
    "do": "var i = 0; do { i += 2; } while (i < 9);",
    "for": "for (var i = 0; i < 3; i++) { s = s + i; }",
    "for_empty": "for (;;) { break; }",
    "for_in": "var o = {a: 1}; for (var k in o) { s += k; } for (k in o) delete o[k];",
    "switch": "switch (x) { case 1: y = 1; break; case 'a': y = 2; default: y = 3; }",
    "labels": "outer: for (var i = 0; i < 3; i++) { inner: while (true) { if (i) continue outer; break inner; } }",
    "label_fn": "function f() { l: for (var i = 0; i < 2; i++) { if (i) break l; continue l; } var z = 1; return z; }",
    "return": "function f(a, b) { return a + b; } function g() { return; }",
    "throw": "function f() { throw new Error('x'); } throw 1;",
    "try": "try { f(); } catch (e) { g(e); } finally { h(); } try { a(); } finally { b(); }",
    "function": "function f(a, b, c) { var d = a; function inner() { return d; } return inner(); }",
    "function_expr": "var f = function (x) { return x * 2; }; var g = function named() { return named; };",
    "new": "var a = new Foo(1, 2); var b = new Bar; var c = new a.b.C();",
    "object": "var o = { a: 1, 'b': 2, 3: 4, get c() { return 5; }, set c(v) { this.d = v; } };",
    "accessor_last": "({ get f() { return 1; } })",
    "array": "var a = [1, , 3, [4, 5], , ]; a[0] = a[1] + a.length;",
    "regexp": "var r = /ab+c/gi; var s = /[/]\\d/;",
    "arith": "x = 1 + 2 - 3 * 4 / 5 % 6; y = -x; z = +x; w = ~x; v = !x;",
    "bits": "x = a & b | c ^ d << 1 >> 2 >>> 3;",
    "compare": "x = a < b; x = a <= b; x = a > b; x = a >= b; x = a == b; x = a != b; x = a === b; x = a !== b;",
    "logic": "x = a && b || c; y = a ? b : c ? d : e;",
    "assign_ops": "x += 1; x -= 1; x *= 2; x /= 2; x %= 3; x <<= 1; x >>= 1; x >>>= 1; x &= 1; x |= 1; x ^= 1;",
    "incdec": "x++; x--; ++x; --x; o.p++; --o['q']; a[i]++;",
    "typeof": "x = typeof a; y = a instanceof B; z = 'p' in o; delete o.p; void 0;",
    "member": "a.b.c = d[e][f]; g = h.i(j)[k](); this.x = this;",
    "calls": "f(); f(1); f(1, 'two', [3], {four: 4}); o.m(a, b); (function () {})();",
    "strings": "var s = 'a\\tb\\n\\x41\\u0042\\\\\"'; var t = \"it's\";",
    "numbers": "var n = [0, 1, 0x1F, 017, 1.5, .5, 1e3, 1.5e-3, 4294967296, 1e400];",
    "literals": "var a = [true, false, null, undefined, this, NaN, Infinity];",
    "comma": "for (i = 0, j = 1; i < j; i++, j--) x = (a, b, c);",
    "arguments": "function f() { return arguments[0] + arguments.length; }",
    "comments": "// line\nvar a = 1; /* block\n comment */ var b = 2;",
    "asi": "var a = 1\nvar b = a\n++b\nreturn",
    "unicode": "var caf\\u00e9 = '\\u00e9t\\u00e9'; var \u00e9l\u00e8ve = 1;",
    "with": "with (o) { x = 1; }",
    "nested": "function a() { function b() { function c() { return [a, b, c]; } return c; } return b; }",
    "err_paren": "a+a+a;)",
    "err_unterminated": "var s = 'abc",
    "err_regexp": "var r = /abc",
    "err_switch": "switch (x) { default: a(); default: b(); }",
    "err_catch": "try { } catch (a) { } catch (b) { }",
    "err_break": "break;",
    "err_continue": "while (1) { continue nowhere; }",
    "err_assign": "1 = 2;",
    "err_token": "var = ;",
    "err_hex": "var s = '\\xZZ';",
    "err_deep": "((((((((((((((((((((1))))))))))))))))))));" ,
}


def write(path, data):
    with open(path, "wb") as out:
        out.write(data)


def main():
    root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
    for name, script in SCRIPTS.items():
        body = script.encode("utf-8")
        # '1': top level, '0': not, '3': top level and compile even after a failed parse.
        flag = b"3" if name.startswith("err_") else b"1"
        write(os.path.join(root, "compile", name), flag + name.encode() + b"\n" + body)
        ops = bytearray()
        ops += b"\x00" + struct.pack("<h", 3) + bytes([len(name)]) + name.encode()
        ops += b"\x01" + bytes([4]) + b"Foo_"
        ops += b"\x06" + struct.pack("<H", len(body)) + body
        ops += b"\x03" + struct.pack("<h", 5)
        ops += b"\x02" + struct.pack("<H", len(body)) + body
        write(os.path.join(root, "names", name), bytes(ops))
    if len(sys.argv) > 1:
        write_code_seeds(sys.argv[1], os.path.join(root, "disasm"))


def write_code_seeds(library_path, directory):
    """Compiles every script that parses and writes its code words, as the disassembler reads them."""
    lib = ctypes.CDLL(library_path)
    lib.VeltJS_Parse.restype = ctypes.c_void_p
    lib.VeltJS_Parse.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p]
    lib.VeltJS_Compile.restype = ctypes.c_void_p
    lib.VeltJS_Compile.argtypes = [ctypes.c_void_p, ctypes.c_uint8]
    lib.VeltJS_Init()
    for name, script in SCRIPTS.items():
        unit = lib.VeltJS_Parse(script.encode("utf-8"), b"seed.js", name.encode())
        if ctypes.c_int32.from_address(unit).value != 0:
            continue
        lib.VeltJS_Compile(unit, 1)
        if ctypes.c_int32.from_address(unit).value != 0:
            continue
        code = ctypes.c_void_p.from_address(unit + 24).value
        size = ctypes.c_int64.from_address(unit + 32).value
        if code and size > 0:
            write(os.path.join(directory, name), ctypes.string_at(code, size))


if __name__ == "__main__":
    main()
