#include "corpus.h"

#include <string>

namespace bench {

namespace {

// A small deterministic generator (xorshift32): the same seed gives the same scripts everywhere.
struct Random {
    uint32_t state;
    uint32_t Next() {
        if (state == 0) state = 0x9E3779B9u;
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    }
    int Below(int limit) { return static_cast<int>(Next() % static_cast<uint32_t>(limit)); }
};

std::string Num(long long value) { return std::to_string(value); }

// Fills a script unit by unit until it reaches the size.
template <typename Unit>
std::string Fill(size_t bytes, Unit unit) {
    std::string out;
    out.reserve(bytes + 4096);
    for (int n = 0; out.size() < bytes; n++) unit(out, n);
    return out;
}

// Ordinary game code: functions with locals, loops, object and array literals with an accessor,
// for-in, switch, try/catch/finally, function expressions and `new`.
void AppendGameFunction(std::string& out, const std::string& s, Random& random) {
    std::string k = Num(random.Below(100));
    out += "function update_" + s + "(self, delta, options) {\n";
    out += "  var speed_" + s + " = options.speed * delta + " + k + ";\n";
    out += "  var items_" + s + " = [1, 2, 3, self.x, self.y, , \"tag_" + s + "\"];\n";
    out += "  var state_" + s + " = { name: \"enemy_" + s + "\", hp: " + Num(50 + random.Below(100)) +
           ", pos: { x: self.x, y: self.y },\n";
    out += "    get alive() { return this.hp > 0; }, set alive(v) { this.hp = v ? 1 : 0; } };\n";
    out += "  for (var i = 0; i < items_" + s + ".length; i++) {\n";
    out += "    if (items_" + s + "[i] === undefined) { continue; }\n";
    out += "    state_" + s + ".hp -= items_" + s + "[i] * 2 % 7;\n";
    out += "    while (state_" + s + ".hp > 50 && speed_" + s + " >= 0) { state_" + s + ".hp = state_" + s +
           ".hp - 1; speed_" + s + "--; }\n";
    out += "  }\n";
    out += "  for (var key_" + s + " in state_" + s + ") { self[key_" + s + "] = state_" + s + "[key_" + s + "]; }\n";
    out += "  switch (self.mode) {\n";
    out += "    case 1: self.x += speed_" + s + "; break;\n";
    out += "    case 2: self.y -= speed_" + s + " / " + Num(1 + random.Below(9)) + "; break;\n";
    out += "    default: self.x = (self.x << 1) | 0;\n";
    out += "  }\n";
    out += "  try {\n";
    out += "    helper_" + s + "(self, typeof options == \"object\" ? options : null);\n";
    out += "  } catch (e) {\n";
    out += "    log(\"failed \" + e);\n";
    out += "  } finally {\n";
    out += "    self.updated = true;\n";
    out += "  }\n";
    out += "  var callback_" + s + " = function (a, b) { return a * b + speed_" + s + "; };\n";
    out += "  do { speed_" + s + " = callback_" + s + "(speed_" + s + ", 0.5); } while (speed_" + s + " > 1);\n";
    out += "  return new Result(self, state_" + s + ", !state_" + s + ".alive);\n";
    out += "}\n";
    out += "function helper_" + s + "(target, extra) {\n";
    out += "  if (extra) { target.extra = extra; } else { target.extra = [target.x, target.y]; }\n";
    out += "  return target.extra;\n";
    out += "}\n\n";
}

std::string Realistic(size_t bytes, uint32_t seed) {
    Random random{seed};
    return Fill(bytes, [&](std::string& out, int n) {
        if (n % 16 == 0) {
            out += "var config_" + Num(n) + " = { width: 640, height: 480, title: \"level " + Num(n) + "\" };\n";
        }
        AppendGameFunction(out, Num(n), random);
    });
}

// Thousands of small top-level functions.
std::string Flat(size_t bytes, uint32_t seed) {
    Random random{seed};
    return Fill(bytes, [&](std::string& out, int n) {
        std::string s = Num(n);
        out += "function step_" + s + "(a, b) { var t = a * " + Num(random.Below(1000)) + " + b; return t > " +
               Num(random.Below(100)) + " ? t : step_" + Num(n > 0 ? n - 1 : 0) + "; }\n";
    });
}

// One array literal of small object literals.
std::string Data(size_t bytes, uint32_t seed) {
    Random random{seed};
    std::string out = "var data = [\n";
    out += Fill(bytes, [&](std::string& o, int n) {
        o += "  { id: " + Num(n) + ", name: \"item " + Num(random.Below(100000)) + "\", x: " +
             Num(random.Below(640)) + ".5, y: " + Num(random.Below(480)) + ", tags: [\"a\", \"b\", " +
             Num(random.Below(10)) + "] },\n";
    });
    out += "  null\n];\n";
    return out;
}

// One object literal with a key per unit (100,000 keys at about 1.6 MB).
std::string BigObject(size_t bytes, uint32_t seed) {
    Random random{seed};
    std::string out = "var table = {\n";
    out += Fill(bytes, [&](std::string& o, int n) { o += "  key_" + Num(n) + ": " + Num(random.Below(100000)) + ",\n"; });
    out += "  last: 0\n};\n";
    return out;
}

// Assignments to many globals.
std::string Globals(size_t bytes, uint32_t seed) {
    Random random{seed};
    return Fill(bytes, [&](std::string& out, int n) {
        out += "global_" + Num(n) + " = global_" + Num(random.Below(n + 1)) + " + " + Num(random.Below(1000)) + ";\n";
    });
}

// Groups of 200 nested function declarations, each level with a local and a call.
std::string Nested(size_t bytes, uint32_t seed) {
    Random random{seed};
    constexpr int kDepth = 200;
    return Fill(bytes, [&](std::string& out, int n) {
        std::string group = Num(n);
        for (int level = 0; level < kDepth; level++) {
            std::string s = group + "_" + Num(level);
            out += "function nest_" + s + "(a) { var v_" + s + " = a + " + Num(random.Below(100)) + ";\n";
        }
        for (int level = kDepth - 1; level >= 0; level--) {
            std::string s = group + "_" + Num(level);
            out += "return v_" + s + "; }\n";
        }
    });
}

// Long string literals and regular-expression literals.
std::string LongLiterals(size_t bytes, uint32_t seed) {
    Random random{seed};
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.,;:-";
    return Fill(bytes, [&](std::string& out, int n) {
        std::string text;
        int length = 200 + random.Below(2000);
        for (int i = 0; i < length; i++) text += kLetters[random.Below(sizeof kLetters - 1)];
        out += "var text_" + Num(n) + " = \"" + text + "\\n\\t\\u0041\";\n";
        std::string pattern;
        int parts = 20 + random.Below(200);
        for (int i = 0; i < parts; i++) pattern += i % 3 == 0 ? "[a-z0-9]+" : (i % 3 == 1 ? "\\d{2,4}" : "(?:ab|cd)*");
        out += "var pattern_" + Num(n) + " = /" + pattern + "/gi;\n";
    });
}

// Object literals made of getters and setters.
std::string Accessors(size_t bytes, uint32_t seed) {
    Random random{seed};
    return Fill(bytes, [&](std::string& out, int n) {
        out += "var object_" + Num(n) + " = {\n";
        for (int i = 0; i < 20; i++) {
            std::string p = "p" + Num(random.Below(1000));
            out += "  get " + p + "_" + Num(i) + "() { return this._" + p + " + " + Num(i) + "; },\n";
            out += "  set " + p + "_" + Num(i) + "(v) { this._" + p + " = v; },\n";
        }
        out += "  done: true\n};\n";
    });
}

// Functions holding every `var` declaration: one up to 4 MB, then one per 4 MB, since a function
// the size of 16 MB of declarations jumps over more code than a branch reaches (2^22 words).
std::string ManyVars(size_t bytes, uint32_t seed) {
    constexpr size_t kBytesPerFunction = size_t{4} << 20;
    Random random{seed};
    std::string out;
    for (size_t done = 0, function = 0; done < bytes; done += kBytesPerFunction, function++) {
        size_t part = bytes - done < kBytesPerFunction ? bytes - done : kBytesPerFunction;
        out += function == 0 ? "function all_vars(a) {\n" : "function all_vars_" + Num(static_cast<int>(function)) + "(a) {\n";
        out += Fill(part, [&](std::string& o, int n) {
            o += "  var local_" + Num(n) + " = a + " + Num(random.Below(1000)) + ";\n";
        });
        out += "  return a;\n}\n";
    }
    return out;
}

// Labelled loops with `break` and `continue` to their labels.
std::string Labels(size_t bytes, uint32_t seed) {
    Random random{seed};
    return Fill(bytes, [&](std::string& out, int n) {
        std::string s = Num(n);
        out += "outer_" + s + ": for (var i_" + s + " = 0; i_" + s + " < " + Num(random.Below(10)) + "; i_" + s +
               "++) { inner_" + s + ": while (true) { if (i_" + s + ") break outer_" + s + "; continue outer_" + s +
               "; } }\n";
    });
}

}  // namespace

const std::vector<Shape>& Shapes() {
    static const std::vector<Shape> shapes = {
        {"realistic", "game code: functions, loops, object literals, switch, try", Realistic},
        {"flat", "thousands of small top-level functions", Flat},
        {"data", "one array literal of small object literals", Data},
        {"object", "one object literal with a key per line", BigObject},
        {"globals", "assignments to many globals", Globals},
        {"nested", "groups of 200 nested function declarations", Nested},
        {"literals", "long string and regular-expression literals", LongLiterals},
        {"accessors", "object literals of getters and setters", Accessors},
        {"vars", "functions of up to 4 MB of var declarations each", ManyVars},
        {"labels", "labelled loops with break and continue", Labels},
    };
    return shapes;
}

const Shape* FindShape(const std::string& name) {
    for (const Shape& shape : Shapes()) {
        if (name == shape.name) return &shape;
    }
    return nullptr;
}

std::string MakeShape(const Shape& shape, size_t bytes, uint32_t seed) { return shape.make(bytes, seed); }

std::string MakeProjectScript(int index, uint32_t seed) {
    Random random{seed + static_cast<uint32_t>(index) * 2654435761u};
    std::string out = "// generated script " + Num(index) + "\n";
    out += "var config_" + Num(index) + " = { width: 640, height: 480, title: \"level " + Num(index) + "\" };\n\n";
    for (int f = 0; f < 12; f++) AppendGameFunction(out, Num(index) + "_" + Num(f), random);
    out += "update_" + Num(index) + "_0(this, 1, config_" + Num(index) + ");\n";
    return out;
}

}  // namespace bench
