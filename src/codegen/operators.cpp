// Arithmetic, bitwise, comparison, compound-assignment and value-selecting operators.

#include "codegen/codegen.h"
#include "support/stack_guard.h"

namespace {

constexpr uint32_t kFieldArithmetic = 0x0100;
constexpr uint32_t kFieldUnsignedShift = 0x8100;
constexpr uint32_t kFieldLogicalAnd = 0x0000;
constexpr uint32_t kFieldToBool = 0x0100;

struct OperatorWord {
    uint32_t opcode;
    uint32_t field;
};

// The opcode and 16-bit field of an arithmetic or bitwise node kind; false outside the table.
bool BinaryOperator(uint32_t kind, OperatorWord* word) {
    switch (kind) {
    case '*': *word = {OP_MUL, kFieldArithmetic}; return true;
    case '/': *word = {OP_DIV, kFieldArithmetic}; return true;
    // '%' is mod, never rem: the runner's mod has the script semantics (BinaryOperators.RemainderIsMod).
    case '%': *word = {OP_MOD, kFieldArithmetic}; return true;
    case '+': *word = {OP_ADD, kFieldArithmetic}; return true;
    case '-': *word = {OP_SUB, kFieldArithmetic}; return true;
    case '&': *word = {OP_AND, kFieldArithmetic}; return true;
    case '|': *word = {OP_OR, kFieldArithmetic}; return true;
    case '^': *word = {OP_XOR, kFieldArithmetic}; return true;
    case LEX_LSHIFT: *word = {OP_SHL, kFieldArithmetic}; return true;
    case LEX_RSHIFT: *word = {OP_SHR, kFieldArithmetic}; return true;
    case LEX_RSHIFTU: *word = {OP_SHR, kFieldUnsignedShift}; return true;
    case LEX_ANDAND: *word = {OP_AND, kFieldLogicalAnd}; return true;
    default: return false;
    }
}

bool ComparisonOperator(uint32_t kind, uint32_t* comparison) {
    switch (kind) {
    case '<': *comparison = CMP_LT; return true;
    case '>': *comparison = CMP_GT; return true;
    case LEX_LEQUAL: *comparison = CMP_LE; return true;
    case LEX_GEQUAL: *comparison = CMP_GE; return true;
    case LEX_IN: *comparison = CMP_IN; return true;
    case LEX_EQUAL: *comparison = CMP_EQ; return true;
    case LEX_NEQUAL: *comparison = CMP_NE; return true;
    case LEX_TYPEEQUAL: *comparison = CMP_SEQ; return true;
    case LEX_NTYPEEQUAL: *comparison = CMP_SNE; return true;
    default: return false;
    }
}

bool CompoundOperator(uint32_t kind, OperatorWord* word) {
    switch (kind) {
    case LEX_PLUSEQUAL: *word = {OP_ADD, kFieldArithmetic}; return true;
    case LEX_MINUSEQUAL: *word = {OP_SUB, kFieldArithmetic}; return true;
    case LEX_ASTERISKEQUAL: *word = {OP_MUL, kFieldArithmetic}; return true;
    case LEX_SLASHEQUAL: *word = {OP_DIV, kFieldArithmetic}; return true;
    case LEX_PERCENTEQUAL: *word = {OP_MOD, kFieldArithmetic}; return true;
    case LEX_LSHIFTEQUAL: *word = {OP_SHL, kFieldArithmetic}; return true;
    case LEX_RSHIFTEQUAL: *word = {OP_SHR, kFieldArithmetic}; return true;
    case LEX_RSHIFTUEQUAL: *word = {OP_SHR, kFieldUnsignedShift}; return true;
    case LEX_ANDEQUAL: *word = {OP_AND, kFieldArithmetic}; return true;
    case LEX_OREQUAL: *word = {OP_OR, kFieldArithmetic}; return true;
    case LEX_XOREQUAL: *word = {OP_XOR, kFieldArithmetic}; return true;
    default: return false;
    }
}

// A: dup.T; conv.T.b 0x0100; <branch> else; [conv.T.v]; b endif;
// else: popz.T; B; [conv.U.v]; endif:
void CompileValueSelect(CodeGenContext& cx, Node* node, uint32_t branchOpcode) {
    Node* left = node->first;
    if (!left) return;
    // Labels are not freed after use (a few bytes each); only those on the target lists are, when a
    // compile fails.
    BranchLabel* endif = NewLabel("endif");
    BranchLabel* otherwise = NewLabel("else");
    CompileExpression(cx, left, false);
    uint32_t type = PopType(cx);
    Emit(cx, {MakeWord1(OP_DUP, type, 0), MakeWord(OP_CONV, type, TYPE_BOOL, kFieldToBool)});
    BranchToLabel(cx, otherwise, branchOpcode);
    EmitConvToVariable(cx, type);
    BranchToLabel(cx, endif, OP_B);
    PlaceLabel(cx, otherwise);
    Emit(cx, {MakeWord1(OP_POPZ, type, 0)});
    CompileIfPresent(cx, left->next);
    EmitConvToVariable(cx, PopType(cx));
    PlaceLabel(cx, endif);
    PushType(cx, TYPE_VARIABLE);
}

}  // namespace

// conv.T.v unless T is .v
void EmitConvToVariable(CodeGenContext& cx, uint32_t type) {
    if (type != TYPE_VARIABLE) Emit(cx, {MakeWord(OP_CONV, type, TYPE_VARIABLE, 0)});
}

// first; then per further operand: operand; op.R.L field
void CompileBinaryExpression(CodeGenContext& cx, Node* node) {
    if (!node->first) return;
    CompileExpression(cx, node->first, false);
    for (Node* operand = node->first->next; operand; operand = operand->next) {
        uint32_t left = PopType(cx);
        OperatorWord word;
        if (!BinaryOperator(node->kind, &word)) {
            ReportError(node->position, "VM::CompileBinaryExpression : Unhandled operator");
        }
        CompileExpression(cx, operand, false);
        uint32_t right = PopType(cx);
        Emit(cx, {MakeWord(word.opcode, right, left, word.field)});
        PushType(cx, node->kind == LEX_ANDAND ? right : static_cast<uint32_t>(TYPE_VARIABLE));
    }
}

// first; then per further operand: operand; set.R.L kind<<8
void CompileComparison(CodeGenContext& cx, Node* node) {
    if (!node->first) return;
    CompileExpression(cx, node->first, false);
    for (Node* operand = node->first->next; operand; operand = operand->next) {
        uint32_t left = PopType(cx);
        CompileExpression(cx, operand, false);
        uint32_t right = PopType(cx);
        uint32_t comparison;
        if (ComparisonOperator(node->kind, &comparison)) {
            Emit(cx, {MakeWord(OP_SET, right, left, comparison << 8)});
        }
        PushType(cx, TYPE_BOOL);
    }
}

// load target; value; op.T.v field; dup.v; store target
void CompileCompoundAssignment(CodeGenContext& cx, Node* node) {
    Node* target = node->first;
    int32_t loadKind = VarUnknown;
    CompileVariable(cx, target, &loadKind, false);
    CompileIfPresent(cx, target ? target->next : nullptr);
    uint32_t type = PopType(cx);
    OperatorWord word;
    if (CompoundOperator(node->kind, &word)) Emit(cx, {MakeWord(word.opcode, type, TYPE_VARIABLE, word.field)});
    Emit(cx, {MakeWord1(OP_DUP, TYPE_VARIABLE, 0)});
    int32_t storeKind = VarUnknown;
    CompileStore(cx, target, &storeKind, PopType(cx));
    PushType(cx, TYPE_VARIABLE);
}

// A truthy A yields B; a falsy A yields A.
void CompileLogicalAnd(CodeGenContext& cx, Node* node) {
    CompileValueSelect(cx, node, OP_BT);
}

// A falsy A yields B; a truthy A yields A.
void CompileLogicalOr(CodeGenContext& cx, Node* node) {
    CompileValueSelect(cx, node, OP_BF);
}

// cond; conv.T.b 0x0100; bf else; then; [conv.U.v]; b endif; else: else; [conv.W.v]; endif:
void CompileConditional(CodeGenContext& cx, Node* node) {
    Node* condition = node->first;
    Node* then = condition ? condition->next : nullptr;
    Node* otherwiseValue = then ? then->next : nullptr;
    BranchLabel* endif = NewLabel("endif");
    BranchLabel* otherwise = NewLabel("else");
    CompileIfPresent(cx, condition);
    Emit(cx, {MakeWord(OP_CONV, PopType(cx), TYPE_BOOL, kFieldToBool)});
    BranchToLabel(cx, otherwise, OP_BF);
    CompileIfPresent(cx, then);
    EmitConvToVariable(cx, PopType(cx));
    BranchToLabel(cx, endif, OP_B);
    PlaceLabel(cx, otherwise);
    CompileIfPresent(cx, otherwiseValue);
    EmitConvToVariable(cx, PopType(cx));
    PlaceLabel(cx, endif);
    PushType(cx, TYPE_VARIABLE);
}
