// The expression compiler: one dispatch on the node kind; every kind leaves one type on the
// compile-time type stack (two when the caller asks for a scope).
#include <cstring>
#include <string>

#include "codegen/codegen.h"
#include "support/numbers.h"
#include "support/stack_guard.h"
#include "support/strings.h"

namespace {

constexpr uint32_t kEmptySequenceType = 0xFFFFFFFFu;
// The unary operators leave the second type nibble at zero.
constexpr uint32_t kNoSecondType = 0;
constexpr uint32_t kFieldFlag1 = 0x0100;
constexpr uint32_t kFieldFlag2 = 0x0200;
constexpr int32_t kShortMin = -32767;
constexpr int32_t kShortMax = 32766;
constexpr int32_t kIntMin = -2147483647;
constexpr int32_t kIntMax = 2147483646;

std::string KindName(uint32_t kind) {
    RefString* name = TokenKindName(static_cast<int32_t>(kind));
    try {
        std::string text = name && name->text ? name->text : "";
        ReleaseRefString(name);
        return text;
    } catch (...) {
        ReleaseRefString(name);
        throw;
    }
}

void EmitGlobalScope(CodeGenContext& cx) {
    EmitCall(cx, "@@GlobalScope@@", 0);
    PushType(cx, TYPE_VARIABLE);
}

// operand; op.T field
void CompileUnary(CodeGenContext& cx, Node* node, uint32_t opcode, uint32_t secondType, uint32_t field,
                  uint32_t resultType) {
    if (node->first) CompileExpression(cx, node->first, false);
    Emit(cx, {MakeWord(opcode, PopType(cx), secondType, field)});
    PushType(cx, resultType);
}

// '-' with one operand: push.d -0 for a literal 0, else operand; neg.T (second type 0) 0x0100
void CompileNegate(CodeGenContext& cx, Node* node) {
    Node* operand = node->first;
    bool literalZero = operand && (operand->kind == LEX_INT || operand->kind == LEX_FLOAT) &&
                       std::strcmp(TextOf(operand), "0") == 0;
    if (literalZero) {
        EmitPushConstant(cx, OP_PUSH, TYPE_DOUBLE, -0.0);
        PushType(cx, TYPE_DOUBLE);
        return;
    }
    CompileUnary(cx, node, OP_NEG, kNoSecondType, kFieldFlag1, TYPE_VARIABLE);
}

// each child; popz.T of the previous one before every child but the first
void CompileSequence(CodeGenContext& cx, Node* node) {
    if (!node->first) {
        PushType(cx, kEmptySequenceType);
        return;
    }
    for (Node* child = node->first; child; child = child->next) {
        if (child != node->first) Emit(cx, {MakeWord1(OP_POPZ, PopType(cx), 0)});
        CompileExpression(cx, child, false);
    }
}

// push.v -11 undefined
void CompileUndefined(CodeGenContext& cx) {
    EmitPushUndefined(cx);
    PushType(cx, TYPE_VARIABLE);
}

// push.e value | push.i value | push.l value | push.d value
void CompileNumber(CodeGenContext& cx, Node* node) {
    const char* text = TextOf(node);
    double value;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        value = ParseLong32(text, 16);
    } else if (text[0] == '0' && text[1] != '.') {
        // A leading zero means octal, so "09" reads as 0: scripts written for the runner count on
        // it (NumberLiteral.LeadingZeroBeforeANonOctalDigitReadsAsZero).
        value = ParseLong32(text, 8);
    } else {
        value = ParseDecimal(text);
    }
    int32_t truncated = TruncateToInt32(value);
    if (static_cast<double>(truncated) != value) {
        EmitPushConstant(cx, OP_PUSH, TYPE_DOUBLE, value);
        PushType(cx, TYPE_DOUBLE);
    } else if (truncated >= kShortMin && truncated <= kShortMax) {
        Emit(cx, {MakeWord1(OP_PUSH, TYPE_SHORT, static_cast<uint32_t>(truncated))});
        PushType(cx, TYPE_INT);
    } else if (truncated >= kIntMin && truncated <= kIntMax) {
        EmitPushConstant(cx, OP_PUSH, TYPE_INT, truncated);
        PushType(cx, TYPE_INT);
    } else {
        EmitPushConstant(cx, OP_PUSH, TYPE_LONG, 0, static_cast<uint32_t>(truncated));
        PushType(cx, TYPE_LONG);
    }
}

const char* TypeofText(uint32_t type) {
    switch (type) {
    case TYPE_DOUBLE:
    case TYPE_FLOAT:
    case TYPE_INT:
    case TYPE_LONG:
        return "number";
    case TYPE_BOOL:
        return "boolean";
    case TYPE_STRING:
        return "string";
    default:
        return "[[unknown]]";
    }
}

// operand; call @@typeof@@ 1 for .v, else popz.T; push.s "<type name>"
void CompileTypeof(CodeGenContext& cx, Node* node) {
    if (node->first) CompileExpression(cx, node->first, false);
    uint32_t type = PopType(cx);
    if (type == TYPE_VARIABLE) {
        EmitCall(cx, "@@typeof@@", 1);
        PushType(cx, TYPE_VARIABLE);
        return;
    }
    Emit(cx, {MakeWord1(OP_POPZ, type, 0)});
    AddStringAndPatch(cx, TypeofText(type));
    PushType(cx, TYPE_STRING);
}

// operand; popz.T; push.v -11 undefined
void CompileVoid(CodeGenContext& cx, Node* node) {
    if (node->first) CompileExpression(cx, node->first, false);
    Emit(cx, {MakeWord1(OP_POPZ, PopType(cx), 0)});
    CompileUndefined(cx);
}

// left; right; call @@instanceof@@ 2
void CompileInstanceof(CodeGenContext& cx, Node* node) {
    Node* left = node->first;
    if (left) CompileExpression(cx, left, false);
    PopType(cx);
    if (left && left->next) CompileExpression(cx, left->next, false);
    PopType(cx);
    EmitCall(cx, "@@instanceof@@", 2);
    PushType(cx, TYPE_VARIABLE);
}

// load; push.e 1; add.i.v 0x0200 | sub.i.v 0x0100; dup.v; store
void CompilePrefixStep(CodeGenContext& cx, Node* node, bool increment) {
    int32_t loadKind = VarUnknown;
    CompileVariable(cx, node->first, &loadKind, false);
    Emit(cx, {MakeWord1(OP_PUSH, TYPE_SHORT, 1),
              increment ? MakeWord(OP_ADD, TYPE_INT, TYPE_VARIABLE, kFieldFlag2)
                        : MakeWord(OP_SUB, TYPE_INT, TYPE_VARIABLE, kFieldFlag1),
              MakeWord1(OP_DUP, TYPE_VARIABLE, 0)});
    int32_t storeKind = VarUnknown;
    CompileStore(cx, node->first, &storeKind, PopType(cx));
    PushType(cx, TYPE_VARIABLE);
}

// load; conv.v.v 0x0200; dup.v; push.e 1; add.i.v 0x0200 | sub.i.v 0x0100; store
void CompilePostfixStep(CodeGenContext& cx, Node* node, bool increment) {
    int32_t loadKind = VarUnknown;
    CompileVariable(cx, node->first, &loadKind, false);
    Emit(cx, {MakeWord(OP_CONV, TYPE_VARIABLE, TYPE_VARIABLE, kFieldFlag2), MakeWord1(OP_DUP, TYPE_VARIABLE, 0),
              MakeWord1(OP_PUSH, TYPE_SHORT, 1),
              increment ? MakeWord(OP_ADD, TYPE_INT, TYPE_VARIABLE, kFieldFlag2)
                        : MakeWord(OP_SUB, TYPE_INT, TYPE_VARIABLE, kFieldFlag1)});
    int32_t storeKind = VarUnknown;
    CompileStore(cx, node->first, &storeKind, PopType(cx));
    PushType(cx, TYPE_VARIABLE);
}

// The generated name of an anonymous function; the copy is interned later and never freed.
__attribute__((noinline)) const char* AnonymousFunctionName(CodeGenContext& cx, const Node* node) {
    DecimalText line = FormatDecimal(node->position ? node->position->line : 0);
    DecimalText counter = FormatDecimal(CodeGenState().anonymousCounter++);
    StringBuilder name{};
    AppendPieces(name, {"__", cx.scriptName ? cx.scriptName : "", "_", ViewOf(line), "__anonfn", ViewOf(counter)});
    return name.text;
}

// b endfunc; body; ret; endfunc: push.i name; conv.i.v; call @@script_ref@@ 1 [; dup.v]
void CompileFunctionExpression(CodeGenContext& cx, Node* node, bool withScope) {
    const char* name = TextOf(node->first);
    if (!name || std::strcmp(name, "(") == 0) name = AnonymousFunctionName(cx, node);
    CompileFunction(cx, node->first, name);
    PushType(cx, TYPE_VARIABLE);
    if (withScope) {
        Emit(cx, {MakeWord1(OP_DUP, TYPE_VARIABLE, 0)});
        PushType(cx, TYPE_VARIABLE);
    }
}

// A this keyword is compiled by the identifier routine wherever an identifier would be.
void CompileReference(CodeGenContext& cx, Node* node, bool withScope, int32_t* mode) {
    CompileVariable(cx, node, mode, withScope);
}

[[noreturn]] __attribute__((noinline)) void ReportUnhandled(const Node* node) {
    std::string name = KindName(node->kind);
    ReportError(node->position, "VM::CompileExpression : Unhandled node type - %s", name.c_str());
}

// The scope below the value must be a .v; the type stack is left as it was.
__attribute__((noinline)) void CheckScope(CodeGenContext& cx, const Node* node) {
    bool enough = cx.typeDepth >= 2;
    uint32_t value = PopType(cx);
    uint32_t scope = PopType(cx);
    if (!enough || scope != TYPE_VARIABLE) {
        std::string name = KindName(node->kind);
        ReportError(node->position, "VM::CompileExpression : Duplicate scope not handled correctly for node of type - %s",
                    name.c_str());
    }
    PushType(cx, scope);
    PushType(cx, value);
}

// Kinds whose value gets the global scope below it when the caller asks for a scope.
bool TakesGlobalScope(const Node* node) {
    switch (node->kind) {
    case '!': case '~': case '%': case '&': case '*': case '/': case '^': case '|':
    case LEX_LSHIFT: case LEX_RSHIFT: case LEX_RSHIFTU:
    case '<': case '>': case LEX_EQUAL: case LEX_TYPEEQUAL: case LEX_NEQUAL: case LEX_NTYPEEQUAL:
    case LEX_LEQUAL: case LEX_GEQUAL: case LEX_IN:
    case '=': case LEX_INT: case LEX_FLOAT: case LEX_STR: case LEX_TRUE: case LEX_FALSE:
    case LEX_TYPEOF: case LEX_VOID: case LEX_INSTANCEOF: case LEX_UNDEFINED: case LEX_ELISION:
        return true;
    default:
        return false;
    }
}

}  // namespace

void EmitPushUndefined(CodeGenContext& cx) {
    uint32_t index = AddVarAndPatch(cx, "undefined", kPatchUnresolved);
    Emit(cx, {MakeWord1(OP_PUSH, TYPE_VARIABLE, SelectorField(SEL_UNRESOLVED)), index | kVarReference});
}

void CompileExpression(CodeGenContext& cx, Node* node, bool withScope, int32_t* mode) {
    PrefetchNodesAhead(node);
    NestingLevel nesting(cx.guard, node->position, kMaxCompileNesting);
    int32_t localMode = VarUnknown;
    if (!mode) mode = &localMode;
    if (withScope && TakesGlobalScope(node)) EmitGlobalScope(cx);

    switch (node->kind) {
    case '!': CompileUnary(cx, node, OP_NOT, kNoSecondType, kFieldFlag1, TYPE_BOOL); break;
    case '~': CompileUnary(cx, node, OP_NOT, kNoSecondType, kFieldFlag2, TYPE_VARIABLE); break;
    case '+':
        if (node->count != 1) CompileBinaryExpression(cx, node);
        else CompileUnary(cx, node, OP_CONV, TYPE_VARIABLE, kFieldFlag2, TYPE_VARIABLE);
        break;
    case '-':
        if (node->count != 1) CompileBinaryExpression(cx, node);
        else CompileNegate(cx, node);
        break;
    case '%': case '&': case '*': case '/': case '^': case '|':
    case LEX_LSHIFT: case LEX_RSHIFT: case LEX_RSHIFTU:
        CompileBinaryExpression(cx, node);
        break;
    case '<': case '>': case LEX_EQUAL: case LEX_TYPEEQUAL: case LEX_NEQUAL: case LEX_NTYPEEQUAL:
    case LEX_LEQUAL: case LEX_GEQUAL: case LEX_IN:
        CompileComparison(cx, node);
        break;
    case ',': CompileSequence(cx, node); break;
    case '(': CompileCall(cx, node, withScope); break;
    case '.': case '[': case LEX_ID: case LEX_THIS: CompileReference(cx, node, withScope, mode); break;
    case ';': break;
    case '=': CompileAssignment(cx, node); break;
    case '?': CompileConditional(cx, node); break;
    case LEX_PLUSPLUS: CompilePrefixStep(cx, node, true); break;
    case LEX_MINUSMINUS: CompilePrefixStep(cx, node, false); break;
    case LEX_POSTPLUSPLUS: CompilePostfixStep(cx, node, true); break;
    case LEX_POSTMINUSMINUS: CompilePostfixStep(cx, node, false); break;
    case LEX_ANDAND: CompileLogicalAnd(cx, node); break;
    case LEX_OROR: CompileLogicalOr(cx, node); break;
    case LEX_INT: case LEX_FLOAT: CompileNumber(cx, node); break;
    case LEX_PLUSEQUAL: case LEX_MINUSEQUAL: case LEX_ASTERISKEQUAL: case LEX_SLASHEQUAL:
    case LEX_PERCENTEQUAL: case LEX_LSHIFTEQUAL: case LEX_RSHIFTEQUAL: case LEX_RSHIFTUEQUAL:
    case LEX_ANDEQUAL: case LEX_OREQUAL: case LEX_XOREQUAL:
        CompileCompoundAssignment(cx, node);
        break;
    case LEX_STR:
        AddStringAndPatch(cx, TextOf(node));
        PushType(cx, TYPE_STRING);
        break;
    case LEX_REGEXP: break;
    case LEX_TRUE:
        Emit(cx, {MakeWord1(OP_PUSH, TYPE_SHORT, 1)});
        PushType(cx, TYPE_BOOL);
        break;
    case LEX_FALSE:
        Emit(cx, {MakeWord1(OP_PUSH, TYPE_SHORT, 0)});
        PushType(cx, TYPE_BOOL);
        break;
    case LEX_NULL:
        EmitCall(cx, "@@Null@@", 0);
        PushType(cx, TYPE_VARIABLE);
        break;
    case LEX_NEW: CompileNew(cx, node, withScope); break;
    case LEX_TYPEOF: CompileTypeof(cx, node); break;
    case LEX_VOID: CompileVoid(cx, node); break;
    case LEX_DELETE: CompileDelete(cx, node); break;
    case LEX_INSTANCEOF: CompileInstanceof(cx, node); break;
    case LEX_UNDEFINED: CompileUndefined(cx); break;
    case LEX_ELISION:
        Emit(cx, {MakeWord1(OP_PUSH, TYPE_VARIABLE, SelectorField(SEL_ELISION)), kVarReference});
        PushType(cx, TYPE_VARIABLE);
        break;
    case LEX_FUNCTION: CompileFunctionExpression(cx, node, withScope); break;
    case LEX_OBJECT: CompileObjectLiteral(cx, node); break;
    case LEX_ARRAY: CompileArrayLiteral(cx, node); break;
    default: ReportUnhandled(node);
    }

    if (withScope) CheckScope(cx, node);
}
