// The compile driver: hoists declarations on the tree, then compiles the top-level statements.
#include <vector>

#include "codegen/codegen.h"
#include "support/strings.h"

namespace {

// Inserts `node` in front of `head` and returns it as the new head.
Node* InsertAsHead(Node* head, Node* node) {
    node->prev = nullptr;
    node->next = head;
    head->prev = node;
    return node;
}

// Takes `node` (not the head) out of its list.
void Unlink(Node* node) {
    if (node->prev) node->prev->next = node->next;
    if (node->next) node->next->prev = node->prev;
    node->prev = nullptr;
    node->next = nullptr;
}

// A synthetic `var name` statement positioned at `where`.
Node* MakeVarDeclaration(RefString* name, const SourcePosition* where) {
    RefString* keyword = NewRefString("var");
    Node* declaration;
    try {
        declaration = MakeNode(LEX_VAR, keyword, where);
    } catch (...) {
        ReleaseRefString(keyword);
        throw;
    }
    ReleaseRefString(keyword);
    AppendChild(declaration, MakeNode(LEX_ID, name, where));
    return declaration;
}

// Function declarations first, the later ones in front; the first node of the list stays behind them.
Node* HoistFunctions(Node* head) {
    for (Node* node = head; node;) {
        Node* successor = node->next;
        if (node->kind == LEX_FUNCTION && node != head) {
            Unlink(node);
            head = InsertAsHead(head, node);
        }
        node = successor;
    }
    return head;
}

// A `var` for every function declaration but the one heading the list; that exception is
// deliberate (the last function in the source gets no declaration).
Node* DeclareFunctionNames(Node* head) {
    for (Node* node = head; node; node = node->next) {
        if (node->kind != LEX_FUNCTION || node == head || !node->first) continue;
        head = InsertAsHead(head, MakeVarDeclaration(node->first->text, head->position));
    }
    return head;
}

}  // namespace

// Walks the statements depth first (skipping function bodies) without recursing on the host's
// stack: each node's own `var` names, then those inside its children, then its successors.
void CollectVarNames(Node* list, std::vector<RefString*>& names) {
    std::vector<Node*> resume;
    Node* node = list;
    for (;;) {
        if (!node) {
            if (resume.empty()) return;
            node = resume.back();
            resume.pop_back();
            continue;
        }
        if (node->kind == LEX_VAR) {
            for (Node* name = node->first; name; name = name->next) {
                names.push_back(name->text);
                RetainRefString(name->text);
            }
        }
        if (node->kind != LEX_FUNCTION && node->first) {
            resume.push_back(node->next);
            node = node->first;
        } else {
            node = node->next;
        }
    }
}

void CompileStatements(CodeGenContext& cx, Node* list, int flag) {
    for (Node* node = list; node; node = node->next) CompileStatement(cx, node, flag);
}

// Hoisted: var declarations (reverse collection order), functions (reverse source order), the rest.
void CompileProgram(CodeGenContext& cx, Node* firstStatement) {
    if (!firstStatement) return;
    Node* head = HoistFunctions(firstStatement);
    if (!cx.topLevel) head = DeclareFunctionNames(head);
    std::vector<RefString*> names;
    try {
        CollectVarNames(head, names);
        for (RefString* name : names) head = InsertAsHead(head, MakeVarDeclaration(name, head->position));
    } catch (...) {
        for (RefString* name : names) ReleaseRefString(name);
        throw;
    }
    for (RefString* name : names) ReleaseRefString(name);
    CompileStatements(cx, head, 1);
}
