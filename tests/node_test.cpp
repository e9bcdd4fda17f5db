#include <gtest/gtest.h>
#include <pthread.h>
#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <cstdint>
#include <string>

#include "lexer/source_reader.h"
#include "lexer/tokens.h"
#include "parser/node.h"
#include "support/strings.h"
#include "veltjs.h"

namespace {

SourcePosition MakePosition(RefString** source, RefString** file, int32_t line, int32_t offset) {
    SourcePosition position{};
    position.source = source;
    position.fileName = file;
    position.line = line;
    position.column = 1;
    position.offset = offset;
    return position;
}

struct Fixture {
    RefString** source = NewRefHandle(NewRefString("a+b"));
    RefString** file = NewRefHandle(NewRefString("n.js"));
    SourcePosition position = MakePosition(source, file, 4, 9);

    Node* Leaf(uint32_t kind, const char* text) {
        RefString* string = NewRefString(text);
        Node* node = MakeNode(kind, string, &position);
        ReleaseRefString(string);
        return node;
    }
};

std::string Dump(const Node* node, int level) {
    RefString* dump = DumpTree(node, level);
    std::string text = dump->text;
    ReleaseRefString(dump);
    return text;
}

TEST(Node, MakeNodeSharesTextAndCopiesPosition) {
    Fixture f;
    RefString* text = NewRefString("x");
    Node* node = MakeNode(LEX_ID, text, &f.position);
    EXPECT_EQ(node->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_EQ(node->text, text);
    EXPECT_EQ(text->refs, 2u);
    ASSERT_NE(node->position, &f.position);
    EXPECT_EQ(node->position->line, 4);
    EXPECT_EQ(node->position->offset, 9);
    EXPECT_EQ(node->position->source, f.source);
    EXPECT_EQ(node->position->fileName, f.file);
    EXPECT_EQ((*f.source)->refs, 2u);
    EXPECT_EQ((*f.file)->refs, 2u);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->prev, nullptr);
    EXPECT_EQ(node->first, nullptr);
    EXPECT_EQ(node->last, nullptr);
    EXPECT_EQ(node->count, 0u);
}

// Checks a node the arena made: zeroed links, the text and the position shared as MakeNode shares
// them.
void ExpectArenaNode(const Node* node, RefString* text, const Fixture& f, uint32_t references) {
    EXPECT_EQ(node->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_EQ(node->text, text);
    EXPECT_EQ(node->position->line, 4);
    EXPECT_EQ(node->position->column, 1);
    EXPECT_EQ(node->position->offset, 9);
    EXPECT_EQ(node->position->source, f.source);
    EXPECT_EQ(node->position->fileName, f.file);
    EXPECT_EQ((*f.source)->refs, references);
    EXPECT_EQ((*f.file)->refs, references);
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->prev, nullptr);
    EXPECT_EQ(node->first, nullptr);
    EXPECT_EQ(node->last, nullptr);
    EXPECT_EQ(node->count, 0u);
}

TEST(Node, AnArenaNodeIsFollowedByItsPositionAndAtABlocksEndTakesThemOneByOne) {
    Fixture f;
    Arena arena{};
    RefString* text = NewRefString("x");
    Node* first = MakeNodeIn(arena, LEX_ID, text, &f.position);
    ExpectArenaNode(first, text, f, 2u);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(first->position), reinterpret_cast<uint8_t*>(first) + 64);
    // Leave room for a node but not for its position: the node ends this block and its position
    // starts the next, as two requests have always placed them.
    size_t room = static_cast<size_t>(arena.end - arena.next);
    ArenaAllocate(arena, room - 64);
    uint8_t* blockEnd = arena.end;
    Node* last = MakeNodeIn(arena, LEX_ID, text, &f.position);
    ExpectArenaNode(last, text, f, 3u);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(last) + 64, blockEnd);
    EXPECT_NE(reinterpret_cast<uint8_t*>(last->position), blockEnd);
    EXPECT_EQ(arena.next, reinterpret_cast<uint8_t*>(last->position) + 32);
    // A block's room to the byte for both.
    room = static_cast<size_t>(arena.end - arena.next);
    ArenaAllocate(arena, room - 96);
    Node* exact = MakeNodeIn(arena, LEX_ID, text, &f.position);
    ExpectArenaNode(exact, text, f, 4u);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(exact->position), reinterpret_cast<uint8_t*>(exact) + 64);
    EXPECT_EQ(arena.next, arena.end);
    EXPECT_EQ(text->refs, 4u);
}

TEST(Node, FieldOrderIsTheHostLayout) {
    EXPECT_EQ(offsetof(Node, kind), 0u);
    EXPECT_EQ(offsetof(Node, text), 8u);
    EXPECT_EQ(offsetof(Node, position), 16u);
    EXPECT_EQ(offsetof(Node, next), 24u);
    EXPECT_EQ(offsetof(Node, prev), 32u);
    EXPECT_EQ(offsetof(Node, first), 40u);
    EXPECT_EQ(offsetof(Node, last), 48u);
    EXPECT_EQ(offsetof(Node, count), 56u);
}

TEST(Node, MakeTokenNodeTakesTheCurrentToken) {
    VeltJS_Init();
    RefString* source = NewPaddedRefString("  abc + 1", kSourcePadding);
    RefString* file = NewRefString("t.js");
    Lexer* lexer = MakeLexer(source, file);
    ASSERT_EQ(lexer->tokenKind, LEX_ID);
    uint32_t before = (*lexer->tokenText)->refs;
    Node* node = MakeTokenNode(lexer);
    EXPECT_EQ(node->kind, static_cast<uint32_t>(LEX_ID));
    EXPECT_EQ(node->text, *lexer->tokenText);
    EXPECT_EQ(node->text->refs, before + 1);
    EXPECT_STREQ(node->text->text, "abc");
    EXPECT_EQ(node->position->line, lexer->position.line);
    EXPECT_EQ(node->position->offset, lexer->position.offset);
    EXPECT_EQ(node->position->fileName, lexer->position.fileName);
}

TEST(Node, AppendChildLinksInOrder) {
    Fixture f;
    Node* parent = f.Leaf('+', "+");
    Node* a = f.Leaf(LEX_ID, "a");
    Node* b = f.Leaf(LEX_ID, "b");
    Node* c = f.Leaf(LEX_ID, "c");
    AppendChild(parent, a);
    EXPECT_EQ(parent->first, a);
    EXPECT_EQ(parent->last, a);
    EXPECT_EQ(a->prev, nullptr);
    EXPECT_EQ(a->next, nullptr);
    AppendChild(parent, b);
    AppendChild(parent, c);
    EXPECT_EQ(parent->count, 3u);
    EXPECT_EQ(parent->first, a);
    EXPECT_EQ(parent->last, c);
    EXPECT_EQ(a->next, b);
    EXPECT_EQ(b->next, c);
    EXPECT_EQ(c->next, nullptr);
    EXPECT_EQ(c->prev, b);
    EXPECT_EQ(b->prev, a);
}

TEST(Node, AppendChildLeavesPrevOfFirstChildAsItWas) {
    Fixture f;
    Node* parent = f.Leaf('(', "(");
    Node* stray = f.Leaf(LEX_ID, "s");
    Node* child = f.Leaf(LEX_ID, "c");
    child->prev = stray;
    AppendChild(parent, child);
    EXPECT_EQ(child->prev, stray);
}

TEST(Node, DumpOfLeafIsOneLine) {
    Fixture f;
    EXPECT_EQ(Dump(f.Leaf(LEX_ID, "x"), 0), "[ id=\"x\" ]");
    EXPECT_EQ(Dump(f.Leaf(LEX_EOF, ""), 0), "[ eof=\"\" ]");
    EXPECT_EQ(Dump(f.Leaf(LEX_ID, "x"), 2), "    [ id=\"x\" ]");
    EXPECT_EQ(Dump(f.Leaf(LEX_FUNCTION, "function"), 0), "[ 324=\"function\" ]");
    EXPECT_EQ(Dump(f.Leaf(LEX_TYPEEQUAL, "==="), 0), "[ typeequal=\"===\" ]");
}

TEST(Node, DumpOfParentIndentsChildrenAndClosesOnItsOwnLine) {
    Fixture f;
    Node* plus = f.Leaf('+', "+");
    AppendChild(plus, f.Leaf(LEX_ID, "a"));
    AppendChild(plus, f.Leaf(LEX_ID, "b"));
    EXPECT_EQ(Dump(plus, 0), "[ +=\"+\", \n  [ id=\"a\" ], \n  [ id=\"b\" ]\n]");
    EXPECT_EQ(Dump(plus, 1), "  [ +=\"+\", \n    [ id=\"a\" ], \n    [ id=\"b\" ]\n  ]");
}

TEST(Node, DumpOfNestedTreeAndSiblingsOfTheStartAreLeftOut) {
    Fixture f;
    Node* root = f.Leaf('{', "{");
    Node* call = f.Leaf('(', "(");
    Node* minus = f.Leaf('-', "-");
    AppendChild(minus, f.Leaf(LEX_INT, "1"));
    AppendChild(call, f.Leaf(LEX_ID, "f"));
    AppendChild(call, minus);
    AppendChild(call, f.Leaf(LEX_STR, "%s"));
    AppendChild(root, call);
    AppendChild(root, f.Leaf(LEX_ID, "z"));
    EXPECT_EQ(Dump(root, 0),
              "[ {=\"{\", \n"
              "  [ (=\"(\", \n"
              "    [ id=\"f\" ], \n"
              "    [ -=\"-\", \n"
              "      [ int=\"1\" ]\n"
              "    ], \n"
              "    [ str=\"%s\" ]\n"
              "  ], \n"
              "  [ id=\"z\" ]\n"
              "]");
    // Starting at a child renders that subtree only, not its later siblings.
    EXPECT_EQ(Dump(call->first, 0), "[ id=\"f\" ]");
    EXPECT_EQ(Dump(minus, 0), "[ -=\"-\", \n  [ int=\"1\" ]\n]");
}

struct DeepDump {
    Node* top;
    size_t length;
};

void* DumpOnThread(void* argument) {
    DeepDump* job = static_cast<DeepDump*>(argument);
    RefString* dump = DumpTree(job->top, 0);
    job->length = std::string(dump->text).size();
    return nullptr;
}

TEST(Node, DumpOfDeepChainUsesNoHostRecursion) {
    Fixture f;
    const int depth = 3000;
    Node* top = f.Leaf('!', "!");
    Node* cur = top;
    for (int i = 1; i < depth; i++) {
        Node* n = f.Leaf('!', "!");
        AppendChild(cur, n);
        cur = n;
    }
    // A recursive walk would need far more than this small stack for 3000 levels.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
#if defined(__SANITIZE_ADDRESS__)
    pthread_attr_setstacksize(&attributes, 1024 * 1024);
#else
    pthread_attr_setstacksize(&attributes, 64 * 1024);
#endif
    DeepDump job{top, 0};
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, DumpOnThread, &job), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    // Per level: indentation, the head `[ !="!"`, a ", \n" or " " and the closing part.
    size_t expected = 0;
    for (int level = 0; level < depth; level++) {
        size_t indent = 2 * static_cast<size_t>(level);
        expected += indent + 7;                         // [ !="!"
        if (level < depth - 1) {
            expected += 3 + 1 + indent + 1;             // ", \n" ... "\n" indent "]"
        } else {
            expected += 2;                              // " ]"
        }
    }
    EXPECT_EQ(job.length, expected);
}

}  // namespace

// The compile asks for the memory some ten nodes past the one it reads (PrefetchNodesAhead), so at
// the last node of the arena's last block that is memory no one may read. Asking must not fault
// there: a node at the end of a mapping whose next pages are inaccessible. The child leaves by
// _exit, so that no exit-time leak check of the process state decides its status.
TEST(Node, AskingForTheMemoryAheadOfTheLastNodeOfAMappingDoesNotFault) {
#if defined(__linux__)
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t pages = 2 + (kNodePrefetchDistance + 64) / page;
    void* mapping = mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(mapping, MAP_FAILED);
    uint8_t* base = static_cast<uint8_t*>(mapping);
    ASSERT_EQ(mprotect(base + page, (pages - 1) * page, PROT_NONE), 0);
    Node* last = reinterpret_cast<Node*>(base + page - sizeof(Node));
    *last = Node{};
    last->kind = 123;
    EXPECT_EXIT(
        {
            PrefetchNodesAhead(last);
            _exit(last->kind == 123 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    munmap(mapping, pages * page);
#else
    GTEST_SKIP() << "needs a mapping with inaccessible pages";
#endif
}
