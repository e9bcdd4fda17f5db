#include "parser/node.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lexer/source_reader.h"
#include "lexer/tokens.h"
#include "support/strings.h"

namespace {

// Fills `copy` from `position`; the copy holds a reference to each of its strings. Inline: every
// node of every tree takes one.
inline __attribute__((always_inline)) SourcePosition* SharePosition(SourcePosition* copy, const SourcePosition* position) {
    *copy = *position;
    if (copy->source) RetainRefString(*copy->source);
    if (copy->fileName) RetainRefString(*copy->fileName);
    return copy;
}

// Completes a zeroed node whose position record is in place.
Node* FillNode(Node* node, uint32_t kind, RefString* text) {
    node->kind = kind;
    node->text = RetainRefString(text);
    return node;
}

}  // namespace

SourcePosition* CopyPosition(const SourcePosition* position) {
    return SharePosition(static_cast<SourcePosition*>(CheckedMalloc(sizeof(SourcePosition))), position);
}

// A node and its position record are carved one after the other; when the current block has room
// for both, they are carved together and written whole, with no separate zeroing.
constexpr size_t kNodeRecordSize = ArenaRecordSize(sizeof(Node));
constexpr size_t kNodeAndPositionSize = kNodeRecordSize + ArenaRecordSize(sizeof(SourcePosition));

Node* MakeNodeIn(Arena& arena, uint32_t kind, RefString* text, const SourcePosition* position) {
#if !defined(VELTJS_FAULT_INJECTION)
    if (uint8_t* record = TakeRoom(arena.next, arena.end, kNodeAndPositionSize)) {
        Node* node = reinterpret_cast<Node*>(record);
        auto* copy = reinterpret_cast<SourcePosition*>(record + kNodeRecordSize);
        // The whole record, padding included, as zeroing it first and then filling it leaves it.
        std::memset(static_cast<void*>(copy), 0, sizeof(SourcePosition));
        *node = Node{};
        node->position = SharePosition(copy, position);
        return FillNode(node, kind, text);
    }
#endif
    // At a block's end: the node and its position take their places one by one, as ever.
    Node* node = static_cast<Node*>(ArenaAllocate(arena, sizeof(Node)));
    node->position = SharePosition(static_cast<SourcePosition*>(ArenaAllocate(arena, sizeof(SourcePosition))), position);
    return FillNode(node, kind, text);
}

Node* MakeNode(uint32_t kind, RefString* text, const SourcePosition* position) {
    Node* node = static_cast<Node*>(CheckedCalloc(1, sizeof(Node)));
    try {
        node->position = CopyPosition(position);
    } catch (...) {
        std::free(node);
        throw;
    }
    return FillNode(node, kind, text);
}

Node* MakeTokenNode(Lexer* lexer) {
    if (lexer->tokenKind == LEX_VAR) lexer->varTokenNodes++;
    return MakeNodeIn(*lexer->nodes, static_cast<uint32_t>(lexer->tokenKind), *lexer->tokenText, &lexer->position);
}

Node* MakeCurrentNode(Lexer* lexer, uint32_t kind) {
    return MakeNodeIn(*lexer->nodes, kind, *lexer->tokenText, &lexer->position);
}

Node* MakeTextNode(Lexer* lexer, uint32_t kind, const char* text) {
    RefString* string = NewRefString(text);
    Node* node;
    try {
        node = MakeNodeIn(*lexer->nodes, kind, string, &lexer->position);
    } catch (...) {
        ReleaseRefString(string);
        throw;
    }
    ReleaseRefString(string);
    return node;
}

namespace {

// Where a rendering of the tree goes: a growable buffer, or a stream written as the walk goes
// (a dump grows with the square of the tree's depth, so only the stream never runs out of room).
struct TreeSink {
    StringBuilder* builder;
    std::FILE* stream;
};

void Put(TreeSink& sink, const char* text) {
    if (!text) return;
    if (sink.stream) {
        std::fputs(text, sink.stream);
    } else {
        AppendText(*sink.builder, text);
    }
}

void PutIndent(TreeSink& sink, int level) {
    if (!sink.stream) {
        for (int i = 0; i < level; i++) AppendText(*sink.builder, "  ");
        return;
    }
    static const char kSpaces[] = "                                                                ";
    constexpr size_t kRun = sizeof(kSpaces) - 1;
    size_t left = 2 * static_cast<size_t>(level < 0 ? 0 : level);
    while (left > 0) {
        size_t run = left < kRun ? left : kRun;
        std::fwrite(kSpaces, 1, run, sink.stream);
        left -= run;
    }
}

// `[ name="text"` at the node's own indentation.
void PutHead(TreeSink& sink, const Node* node, int level) {
    PutIndent(sink, level);
    Put(sink, "[ ");
    RefString* name = TokenKindName(static_cast<int32_t>(node->kind));
    try {
        Put(sink, name->text);
    } catch (...) {
        ReleaseRefString(name);
        std::free(name);
        throw;
    }
    ReleaseRefString(name);
    // The name was made for this call alone, so its record goes with its text.
    std::free(name);
    Put(sink, "=\"");
    Put(sink, node->text ? node->text->text : nullptr);
    Put(sink, "\"");
}

void PutTail(TreeSink& sink, const Node* node, int level) {
    if (node->count < 1) {
        Put(sink, " ");
    } else {
        Put(sink, "\n");
        PutIndent(sink, level);
    }
    Put(sink, "]");
}

// Walks the subtree with an explicit stack of open ancestors: trees can be far deeper than
// the host thread's stack would allow for a recursive walk.
void RenderTree(TreeSink& sink, const Node* node, int level) {
    std::vector<const Node*> open;
    const Node* current = node;
    while (current) {
        PutHead(sink, current, level);
        if (current->first) {
            Put(sink, ", \n");
            open.push_back(current);
            current = current->first;
            level++;
            continue;
        }
        PutTail(sink, current, level);
        // Close finished ancestors until one of them has a next sibling to render.
        for (;;) {
            if (open.empty()) {
                current = nullptr;
                break;
            }
            if (current->next) {
                Put(sink, ", \n");
                current = current->next;
                break;
            }
            current = open.back();
            open.pop_back();
            level--;
            PutTail(sink, current, level);
        }
    }
}

}  // namespace

RefString* DumpTree(const Node* node, int level) {
    StringBuilder builder{};
    try {
        AppendText(builder, "");
        TreeSink sink{&builder, nullptr};
        RenderTree(sink, node, level);
        return AdoptRefString(builder.text);
    } catch (...) {
        FreeStringBuilder(builder);
        throw;
    }
}

void WriteTree(const Node* node, int level, std::FILE* out) {
    TreeSink sink{nullptr, out};
    RenderTree(sink, node, level);
}
