// The syntax tree node. The field order is a layout hosts rely on when they walk the tree.
#pragma once

#include <cstdint>
#include <cstdio>

#include "support/arena.h"
#include "support/diagnostics.h"
#include "support/strings.h"

struct Lexer;

struct Node {
    uint32_t kind;
    RefString* text;            // shared, reference counted
    SourcePosition* position;   // owned copy of the lexer's position when the node was made
    Node* next;
    Node* prev;
    Node* first;
    Node* last;
    uint32_t count;
};

// A low estimate of the tree a source byte makes, node and position records together: realistic
// code makes a node (96 bytes with its position) for every 5 bytes or so, about 20 bytes. A parse
// tells the arena to expect this much (ArenaExpect), so the tree of a script of 64 KiB or more
// starts in the largest blocks.
constexpr size_t kTreeBytesPerSourceByte = 16;

// A walk that reads a tree long after the parse wrote it (the compile) reads nodes in about the
// order the parser carved them from the arena, each node followed by its position record: 96
// bytes a node. A large script's tree is far larger than the processor's caches, so the first read
// of each node waited for memory; asking, at each node, for the two cache lines some ten nodes
// further on in the arena has them there in time. A prefetch never faults, past the end of a block
// or of a mapping included, and changes nothing but when memory is read.
constexpr uintptr_t kNodePrefetchDistance = 1024;
// A walk that does next to nothing at each node (following a list's `next`, reading each node's
// kind) would reach nodes 1 KiB on while they are still on their way: it asks 4 KiB ahead.
constexpr uintptr_t kLightWalkPrefetchDistance = 4096;
inline void PrefetchNodesAhead(const Node* node, uintptr_t distance = kNodePrefetchDistance) {
    uintptr_t ahead = reinterpret_cast<uintptr_t>(node) + distance;
    __builtin_prefetch(reinterpret_cast<const void*>(ahead));
    __builtin_prefetch(reinterpret_cast<const void*>(ahead + 64));
}

// A node with the given kind that shares `text` and copies `position`.
Node* MakeNode(uint32_t kind, RefString* text, const SourcePosition* position);
// The same in an arena: the node and its position record take no heap block of their own.
Node* MakeNodeIn(Arena& arena, uint32_t kind, RefString* text, const SourcePosition* position);
// A node from the lexer's current token kind, token text and current position.
Node* MakeTokenNode(Lexer* lexer);
// A node of `kind` carrying the current token's text and the lexer's position.
Node* MakeCurrentNode(Lexer* lexer, uint32_t kind);
// A node with its own copy of `text`, made at the lexer's position.
Node* MakeTextNode(Lexer* lexer, uint32_t kind, const char* text);
// Inline: every node of every tree is appended once.
inline void AppendChild(Node* parent, Node* child) {
    if (parent->last) {
        child->prev = parent->last;
        parent->last->next = child;
    }
    parent->last = child;
    child->next = nullptr;
    if (!parent->first) parent->first = child;
    parent->count++;
}
// The subtree as text (never recursing on the host's stack).
RefString* DumpTree(const Node* node, int level);
// The same text written to `out` piece by piece as the walk goes, never held whole in memory.
void WriteTree(const Node* node, int level, std::FILE* out);
// A copy of a position record sharing its strings.
SourcePosition* CopyPosition(const SourcePosition* position);
