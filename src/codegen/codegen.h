// The compile routines of the code generator.
#pragma once

#include <cstdint>
#include <vector>

#include "codegen/context.h"
#include "lexer/tokens.h"
#include "parser/node.h"

// Variable kinds of the identifier routine.
enum VarKind : int32_t {
    VarUnresolved = 0,
    VarBuiltin = 1,
    VarLocal = 2,
    VarSelf = 3,
    VarMember = 4,
    VarArgument = 5,
    VarUnknown = 6,
};

// The patch kind of a variable reached as `kind`: the kinds from VarUnresolved to VarArgument are
// the patch kinds, value for value.
constexpr uint32_t PatchKindOf(int32_t kind) { return static_cast<uint32_t>(kind); }
static_assert(PatchKindOf(VarUnresolved) == kPatchUnresolved && PatchKindOf(VarBuiltin) == kPatchBuiltin &&
                  PatchKindOf(VarLocal) == kPatchLocal && PatchKindOf(VarSelf) == kPatchSelf &&
                  PatchKindOf(VarMember) == kPatchMember && PatchKindOf(VarArgument) == kPatchArgument,
              "variable kinds and patch kinds agree");

constexpr uint32_t kWordDupVarCallArg = 0x8605FF12u;

// A node's text, or null when there is no node or no text.
inline const char* TextOf(const Node* node) { return node && node->text ? node->text->text : nullptr; }
// The node after `node` in its list; null after the last and for no node.
inline const Node* NextOf(const Node* node) { return node ? node->next : nullptr; }

// Instance selectors in the small field of variable reads and writes.
enum InstanceSelector : int32_t {
    SEL_SELF = -1,
    SEL_BUILTIN_WRITE = -5,
    SEL_BUILTIN_READ = -6,
    SEL_MEMBER = -9,
    SEL_ELEMENT = -10,
    SEL_UNRESOLVED = -11,
    SEL_LOCAL = -12,
    SEL_ARGUMENT = -13,
    SEL_ELISION = -14,
};
// The selector as the 16-bit small field of a word.
constexpr uint32_t SelectorField(int32_t selector) { return static_cast<uint32_t>(selector) & 0xFFFFu; }

// Expressions: pushes one type (two with withScope). mode null means a local mode of 6.
void CompileExpression(CodeGenContext& cx, Node* node, bool withScope, int32_t* mode = nullptr);
// A missing child compiles to nothing; the following pop then yields whatever is there.
inline void CompileIfPresent(CodeGenContext& cx, Node* node) {
    if (node) CompileExpression(cx, node, false);
}

// Operators.
void CompileBinaryExpression(CodeGenContext& cx, Node* node);
void CompileComparison(CodeGenContext& cx, Node* node);
void CompileCompoundAssignment(CodeGenContext& cx, Node* node);
void CompileLogicalAnd(CodeGenContext& cx, Node* node);
void CompileLogicalOr(CodeGenContext& cx, Node* node);
void CompileConditional(CodeGenContext& cx, Node* node);
// conv from `type` to .v unless it already is.
void EmitConvToVariable(CodeGenContext& cx, uint32_t type);
// push.v -11 of the variable "undefined"; pushes no type.
void EmitPushUndefined(CodeGenContext& cx);

// Literals.
void CompileObjectLiteral(CodeGenContext& cx, Node* node);
void CompileArrayLiteral(CodeGenContext& cx, Node* node);

// Driver.
void CompileProgram(CodeGenContext& cx, Node* firstStatement);
// Appends the names of every `LEX_VAR` node in the list and below it, a `LEX_FUNCTION` node's
// children excepted, each name taken once more: depth first, a node's own names before those
// inside its children, then its successors'.
void CollectVarNames(Node* list, std::vector<RefString*>& names);
// CollectVarNames of the list CompileProgram hoisted from a parsed tree (`head`, with the `declared`
// `var` statements it put in front of the hoisted functions), when its `LEX_VAR` nodes lie in
// statement places only: in the list itself, in blocks and compound statements, never inside an
// expression (an accessor's or an arrow function's body, an object literal's key `var`). Reads
// the top-level statements from the tree's array and walks only those places, without entering a
// `var` statement's initialisers or any other expression, counting the `LEX_VAR` nodes it meets.
// The tree's `varNodes` and the `declared` are the most the list can hold outside `LEX_FUNCTION`
// nodes' children; meeting that many, it met them all, and the names are CollectVarNames's.
// Otherwise it appends nothing and returns false.
bool CollectStatementVarNames(const ParsedTree& tree, Node* head, uint64_t declared, std::vector<RefString*>& names);
void CompileStatements(CodeGenContext& cx, Node* list, int flag);

// Functions and calls.
void CompileFunction(CodeGenContext& cx, Node* node, const char* name);
void CompileCall(CodeGenContext& cx, Node* node, bool withScope);
void CompileNew(CodeGenContext& cx, Node* node, bool keep);

// Identifiers and assignment.
void CompileVariable(CodeGenContext& cx, Node* node, int32_t* kind, bool wantObject);
void CompileStore(CodeGenContext& cx, Node* target, int32_t* kind, uint32_t type);
void CompileElementRead(CodeGenContext& cx, Node* node, int32_t* kind, bool keepReference);
void CompileDelete(CodeGenContext& cx, Node* node);
void CompileAssignment(CodeGenContext& cx, Node* node);

// Statements.
void CompileStatement(CodeGenContext& cx, Node* node, int flag);
