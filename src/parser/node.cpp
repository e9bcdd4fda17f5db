#include "parser/node.h"

#include <cstdlib>
#include <vector>

#include "api/strings.h"
#include "lexer/source_reader.h"
#include "lexer/tokens.h"

SourcePosition* CopyPosition(const SourcePosition* position) {
    SourcePosition* copy = static_cast<SourcePosition*>(CheckedMalloc(sizeof(SourcePosition)));
    *copy = *position;
    if (copy->source) RetainRefString(*copy->source);
    if (copy->fileName) RetainRefString(*copy->fileName);
    return copy;
}

Node* MakeNode(uint32_t kind, RefString* text, const SourcePosition* position) {
    Node* node = static_cast<Node*>(CheckedCalloc(1, sizeof(Node)));
    try {
        node->position = CopyPosition(position);
    } catch (...) {
        std::free(node);
        throw;
    }
    node->kind = kind;
    node->text = RetainRefString(text);
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

namespace {

void AppendIndent(StringBuilder& builder, int level) {
    for (int i = 0; i < level; i++) AppendText(builder, "  ");
}

// `[ name="text"` at the node's own indentation.
void AppendHead(StringBuilder& builder, const Node* node, int level) {
    AppendIndent(builder, level);
    AppendText(builder, "[ ");
    RefString* name = TokenKindName(static_cast<int32_t>(node->kind));
    try {
        AppendText(builder, name->text);
    } catch (...) {
        ReleaseRefString(name);
        std::free(name);
        throw;
    }
    ReleaseRefString(name);
    // The name was made for this call alone, so its record goes with its text.
    std::free(name);
    AppendText(builder, "=\"");
    AppendText(builder, node->text ? node->text->text : nullptr);
    AppendText(builder, "\"");
}

void AppendTail(StringBuilder& builder, const Node* node, int level) {
    if (node->count < 1) {
        AppendText(builder, " ");
    } else {
        AppendText(builder, "\n");
        AppendIndent(builder, level);
    }
    AppendText(builder, "]");
}

// Walks the subtree with an explicit stack of open ancestors: trees can be far deeper than
// the host thread's stack would allow for a recursive walk.
void AppendTree(StringBuilder& builder, const Node* node, int level) {
    AppendText(builder, "");
    std::vector<const Node*> open;
    const Node* current = node;
    while (current) {
        AppendHead(builder, current, level);
        if (current->first) {
            AppendText(builder, ", \n");
            open.push_back(current);
            current = current->first;
            level++;
            continue;
        }
        AppendTail(builder, current, level);
        // Close finished ancestors until one of them has a next sibling to render.
        for (;;) {
            if (open.empty()) {
                current = nullptr;
                break;
            }
            if (current->next) {
                AppendText(builder, ", \n");
                current = current->next;
                break;
            }
            current = open.back();
            open.pop_back();
            level--;
            AppendTail(builder, current, level);
        }
    }
}

}  // namespace

RefString* DumpTree(const Node* node, int level) {
    StringBuilder builder{};
    try {
        AppendTree(builder, node, level);
        return AdoptRefString(builder.text);
    } catch (...) {
        FreeStringBuilder(builder);
        throw;
    }
}
