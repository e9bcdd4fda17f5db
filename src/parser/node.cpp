#include "parser/node.h"

#include "api/strings.h"
#include "lexer/source_reader.h"

SourcePosition* CopyPosition(const SourcePosition* position) {
    SourcePosition* copy = static_cast<SourcePosition*>(CheckedMalloc(sizeof(SourcePosition)));
    *copy = *position;
    if (copy->source) RetainRefString(*copy->source);
    if (copy->fileName) RetainRefString(*copy->fileName);
    return copy;
}

Node* MakeNode(uint32_t kind, RefString* text, const SourcePosition* position) {
    Node* node = static_cast<Node*>(CheckedCalloc(1, sizeof(Node)));
    node->kind = kind;
    node->text = RetainRefString(text);
    node->position = CopyPosition(position);
    return node;
}

Node* MakeTokenNode(Lexer* lexer) {
    return MakeNode(static_cast<uint32_t>(lexer->tokenKind), *lexer->tokenText, &lexer->position);
}

void AppendChild(Node* parent, Node* child) {
    if (parent->last) {
        child->prev = parent->last;
        parent->last->next = child;
    }
    parent->last = child;
    child->next = nullptr;
    if (!parent->first) parent->first = child;
    parent->count++;
}

RefString* DumpTree(const Node*, int) { return NewRefString(""); }
