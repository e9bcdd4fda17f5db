// The tree dump written before "We really expected to get something here..." goes to standard
// output as it is produced. The expected outputs under data/tree_dumps were recorded from the
// library when it still built the whole dump in one string before writing it; the streamed
// dump must give the same bytes. A left-nested '+' chain dumps with two more spaces per level,
// so the text grows with the square of the depth: 23,000 levels write about 1.6 GB, which the
// library must stream to completion without holding it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "helpers/compile_support.h"
#include "parser/node.h"
#include "parser/parser.h"
#include "support/strings.h"
#include "veltjs.h"

namespace {

// What a reader of a stream saw: how many bytes, and whether they all matched what was expected.
struct StreamCheck {
    uint64_t bytes = 0;
    bool matches = true;
    uint64_t firstMismatch = 0;
};

// Produces an expected text piece by piece; returns false when there is nothing more.
using PieceSource = std::function<bool(std::string& piece)>;

// Runs `body` with standard output on a pipe; a reader thread compares every byte written with
// the text `expected` produces, holding no more than one piece and one read at a time.
StreamCheck StreamStdout(const std::function<void()>& body, const PieceSource& expected) {
    StreamCheck check;
    int ends[2];
    if (pipe(ends) != 0) {
        ADD_FAILURE() << "pipe failed";
        return check;
    }
    std::thread reader([&] {
        std::string piece;
        size_t used = 0;
        bool more = true;
        static char buffer[1 << 16];
        for (;;) {
            ssize_t got = read(ends[0], buffer, sizeof buffer);
            if (got <= 0) break;
            for (ssize_t i = 0; i < got; i++, check.bytes++) {
                while (more && used == piece.size()) {
                    piece.clear();
                    used = 0;
                    more = expected(piece);
                }
                if (!check.matches) continue;
                if (used == piece.size() || piece[used] != buffer[i]) {
                    check.matches = false;
                    check.firstMismatch = check.bytes;
                    continue;
                }
                used++;
            }
        }
        while (more && used == piece.size()) {
            piece.clear();
            used = 0;
            more = expected(piece);
        }
        if (check.matches && used != piece.size()) {
            check.matches = false;
            check.firstMismatch = check.bytes;
        }
    });
    std::fflush(stdout);
    int saved = dup(1);
    dup2(ends[1], 1);
    close(ends[1]);
    body();
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    reader.join();
    close(ends[0]);
    return check;
}

PieceSource WholeText(const std::string& text) {
    auto given = std::make_shared<bool>(false);
    return [text, given](std::string& piece) {
        if (*given) return false;
        piece = text;
        *given = true;
        return true;
    };
}

std::string Indent(uint64_t level) { return std::string(2 * level, ' '); }

// The dump of "a" followed by `depth` times "+a", derived from the dump's format: the root
// block holds the outermost '+', each '+' holds the next inner one (or, innermost, an `a`) and
// then an `a`; heads end ", \n", a leaf closes with " ]" on its own line, a parent with "]" on a
// line of its own at its indentation; then the line break after the dump and "\n\n".
PieceSource NestedPlusDump(uint64_t depth) {
    auto step = std::make_shared<uint64_t>(0);
    return [depth, step](std::string& piece) {
        const uint64_t n = depth;
        const uint64_t at = (*step)++;
        if (at == 0) {
            piece = "[ {=\"{\", \n";
        } else if (at <= n) {
            piece = Indent(at) + "[ +=\"+\", \n";
        } else if (at == n + 1) {
            piece = Indent(n + 1) + "[ id=\"a\" ], \n";
        } else if (at == n + 2) {
            piece = Indent(n + 1) + "[ id=\"a\" ]";
        } else if (at < 2 * n + 3) {
            uint64_t level = n - (at - (n + 3));
            piece = "\n" + Indent(level) + "]";
            if (level > 1) piece += ", \n" + Indent(level) + "[ id=\"a\" ]";
        } else if (at == 2 * n + 3) {
            piece = "\n]\n\n\n";
        } else {
            return false;
        }
        return true;
    };
}

std::string NestedPlusScript(int depth) {
    std::string source = "a";
    for (int i = 0; i < depth; i++) source += "+a";
    return source + ";)";
}

// Parses with standard output streamed into `expected`; the parse must fail with the dump's error.
StreamCheck ParseStreaming(const std::string& source, const char* fileName, const PieceSource& expected,
                           std::string* error) {
    EnsureLibraryInitialised();
    CompileUnit* unit = nullptr;
    StreamCheck check = StreamStdout([&] { unit = VeltJS_Parse(source.c_str(), fileName, "dump"); }, expected);
    if (unit && unit->errorCount == 1) *error = unit->errors[0];
    EXPECT_NE(unit, nullptr);
    if (unit) {
        EXPECT_EQ(unit->status, 1);
    }
    return check;
}

void ExpectRecordedDump(const char* name) {
    std::string script = ReadTestData((std::string("tree_dumps/") + name + ".js").c_str());
    std::string recorded = ReadTestData((std::string("tree_dumps/") + name + ".out").c_str());
    ASSERT_FALSE(recorded.empty()) << name;
    std::string fileName = std::string(name) + ".js";
    std::string error;
    StreamCheck check = ParseStreaming(script, fileName.c_str(), WholeText(recorded), &error);
    EXPECT_TRUE(check.matches) << name << ": first difference at byte " << check.firstMismatch;
    EXPECT_EQ(check.bytes, recorded.size()) << name;
    EXPECT_NE(error.find("We really expected to get something here..."), std::string::npos) << error;
}

TEST(TreeDump, StreamedDumpsMatchTheRecordedOutput) {
    for (const char* name : {"paren", "nested_plus", "after_statements", "object", "percent", "control",
                             "try", "unicode", "empty", "deep"}) {
        ExpectRecordedDump(name);
    }
}

TEST(TreeDump, NestedPlusDerivationMatchesTheRecordedOutput) {
    // The derived text of the deep case below, checked against the recording at a small depth.
    std::string recorded = ReadTestData("tree_dumps/nested_plus.out");
    ASSERT_EQ(ReadTestData("tree_dumps/nested_plus.js"), NestedPlusScript(40));
    std::string derived;
    PieceSource pieces = NestedPlusDump(40);
    std::string piece;
    while (pieces(piece)) derived += piece;
    EXPECT_EQ(derived, recorded);
}

TEST(TreeDump, WriteTreeWritesWhatDumpTreeReturns) {
    EnsureLibraryInitialised();
    for (const char* source :
         {"", "var x = 1, y;", "function f(a, b) { if (a) return [a, , b]; else throw {k: b}; }",
          "for (var k in o) { switch (k) { case 'a': break; default: continue; } }",
          "x = { get p() { return 1; }, set p(v) {} }; y = /re%d/g; z = '%s%%';",
          "try { a(); } catch (e) { b(e); } finally { c(); } do x--; while (x);"}) {
        CompileUnit* unit = VeltJS_Parse(source, "w.js", "w");
        ASSERT_EQ(unit->status, 0) << source;
        const Node* root = &static_cast<Parser*>(unit->parser)->root;
        for (int level : {0, 3}) {
            RefString* whole = DumpTree(root, level);
            std::string expected = whole->text;
            ReleaseRefString(whole);
            std::free(whole);
            FILE* file = std::tmpfile();
            ASSERT_NE(file, nullptr);
            WriteTree(root, level, file);
            std::rewind(file);
            std::string written;
            char buffer[4096];
            size_t got;
            while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) written.append(buffer, got);
            std::fclose(file);
            EXPECT_EQ(written, expected) << source << " at level " << level;
        }
    }
}

TEST(TreeDump, DeepNestedPlusChainStreamsToTheEnd) {
    // The script of the size that once exhausted memory while the dump was built in one string.
    // The sanitizer build runs a tenth of it (about 16 MB of dump) to keep the test short.
#if defined(__SANITIZE_ADDRESS__)
    const int depth = 2300;
#else
    const int depth = 23000;
#endif
    std::string error;
    StreamCheck check = ParseStreaming(NestedPlusScript(depth), "deep.js", NestedPlusDump(depth), &error);
    const uint64_t n = static_cast<uint64_t>(depth);
    // Each level writes a '+' head (2L + 10 bytes), its closing line (2L + 2, and ", \n" when
    // inner), and the trailing `a` one level down (2L + 12); plus the root, the innermost `a` and
    // the three closing line breaks.
    EXPECT_EQ(check.bytes, 3 * n * n + 32 * n + 27);
    EXPECT_TRUE(check.matches) << "first difference at byte " << check.firstMismatch;
    EXPECT_EQ(error, "Error : deep.js(1) : We really expected to get something here...\n");
}

}  // namespace
