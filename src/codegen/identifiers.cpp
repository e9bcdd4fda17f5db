// References: identifiers, member and element accesses; their reads, stores, delete and simple
// assignment.
#include <cstring>

#include "codegen/codegen.h"
#include "state/process_state.h"
#include "support/stack_guard.h"

namespace {

// The value-type nibble with which a store is written as a deletion.
constexpr uint32_t kDeleteType = 8;
// The type the error names for every unknown variable kind, whatever the kind was; hosts match
// the message's text (Identifier.UnknownKindIsReportedAsMinus12).
constexpr int32_t kReportedUnknownKind = -12;
constexpr uint32_t kWordDupVar = MakeWord1(OP_DUP, TYPE_VARIABLE, 0);
constexpr uint32_t kWordDupVarOne = MakeWord1(OP_DUP, TYPE_VARIABLE, 1);
constexpr uint32_t kWordDupVarElement = MakeWord1(OP_DUP, TYPE_VARIABLE, 0xFF21);
constexpr uint32_t kWordElementRead = MakeWord(OP_PUSHV, TYPE_VARIABLE, TYPE_VARIABLE, SelectorField(SEL_ELEMENT));

bool IsIdentifier(const Node* node) { return node->kind == LEX_ID || node->kind == LEX_THIS; }

// A this keyword reads as the name "this".
const char* IdentifierName(const Node* node) { return node->kind == LEX_THIS ? "this" : TextOf(node); }

// Whether the node's name is lasting (see LastingName): the keyword's literal, or a token's text
// in the tree's arena, which nothing changes or frees while the compile runs. The compile
// driver's own nodes have heap texts and are looked up afresh at every use.
bool HasLastingName(const Node* node) {
    return node->kind == LEX_THIS || IsLastingText(node->text);
}

// What a name refers to where it is used.
struct Reference {
    int32_t kind;                // a VarKind
    VarEntry* entry;             // the variable or parameter a scope declares, if looked up
    int32_t depth;               // scopes out to the declaring one
    FunctionRecord* function;    // a function found by its declared name instead
};

// A name of a store, or of a read before its other rules: a kind other than VarUnknown stands;
// VarUnknown is looked up (a use, which the function records learn of): a plain variable is
// VarLocal, a parameter VarArgument, nothing VarUnresolved. `hash` is the name's NameHash (read
// only for VarUnknown).
Reference ResolveVariable(CodeGenContext& cx, const char* name, uint32_t hash, int32_t kind) {
    Reference reference{kind, nullptr, -1, nullptr};
    if (kind != VarUnknown) return reference;
    reference.entry = UseName(cx, name, hash, &reference.depth);
    if (!reference.entry) reference.kind = VarUnresolved;
    else reference.kind = reference.entry->kind == kVarEntryVariable ? VarLocal : VarArgument;
    return reference;
}

// A name that is read: when neither a declared variable nor a name with a slot, a function
// declared under the name makes it a local reference to that function; else it is unresolved,
// unless a member. The name is hashed once for the scopes' tables, the slot table and the
// functions' tables alike.
Reference ResolveRead(CodeGenContext& cx, const char* name, int32_t kind, bool lasting) {
    uint32_t hash = NameHashOf(name, lasting);
    Reference reference = ResolveVariable(cx, name, hash, kind);
    bool foundSomething = reference.entry != nullptr;
    if (reference.kind != VarLocal && reference.kind != VarArgument) {
        foundSomething = HashFindFirst(cx.slotTable, hash) != nullptr;
    }
    if (!foundSomething) {
        reference.function = FindDeclaredFunction(cx, name, hash);
        if (reference.function) reference.kind = VarLocal;
        else if (reference.kind != VarMember) reference.kind = VarUnresolved;
    }
    return reference;
}

// 0xA0000000 + depth * 256 | slot
uint32_t ArgumentOperand(int32_t depth, uint32_t slot) {
    return (kVarReference + ((static_cast<uint32_t>(depth) & 0xFFu) << 8)) | slot;
}

int32_t ReadSelector(int32_t kind) {
    switch (kind) {
    case VarUnresolved: return SEL_UNRESOLVED;
    case VarBuiltin: return SEL_BUILTIN_READ;
    case VarLocal: return SEL_LOCAL;
    case VarSelf: return SEL_SELF;
    case VarMember: return SEL_MEMBER;
    default: return SEL_ARGUMENT;
    }
}

// Builtins are read with pushb and -6 but written with push's -5: the runner's built-in store
// takes -5 (Store.EveryKindsWriteSelector, Identifier.BuiltinKindReadsWithPushbAndMinus6).
int32_t WriteSelector(int32_t kind) {
    switch (kind) {
    case VarUnresolved: return SEL_UNRESOLVED;
    case VarBuiltin: return SEL_BUILTIN_WRITE;
    case VarSelf: return SEL_SELF;
    case VarMember: return SEL_MEMBER;
    case VarArgument: return SEL_ARGUMENT;
    default: return SEL_LOCAL;
    }
}

// push.v sel name | pushb.v -6 name | push.v -13 depth:slot
void EmitRead(CodeGenContext& cx, const Node* node, const char* name, const Reference& reference, bool lasting) {
    int32_t kind = reference.kind;
    if (kind < VarUnresolved || kind > VarArgument) {
        ReportError(node->position, "unknown var type when compiling LEX_ID type=%d", kReportedUnknownKind);
    }
    uint32_t opcode = kind == VarBuiltin ? OP_PUSHB : OP_PUSH;
    uint32_t word = MakeWord1(opcode, TYPE_VARIABLE, SelectorField(ReadSelector(kind)));
    if (kind != VarArgument) {
        uint32_t index = AddVarAndPatch(cx, name, PatchKindOf(kind), lasting);
        Emit(cx, {word, index | kVarReference});
        return;
    }
    uint32_t slot = reference.entry ? reference.entry->slot : kUnsetSlot;
    if (slot == kUnsetSlot) slot = AddVarAndPatch(cx, name, PatchKindOf(kind), lasting);
    Emit(cx, {word, ArgumentOperand(reference.depth, slot)});
}

// [call @@This@@ | call @@GlobalScope@@ | dup.v]; read; or the function found by name:
// push.i qualified; conv.i.v; call @@script_ref@@ 1
void CompileIdentifier(CodeGenContext& cx, Node* node, int32_t* kind, bool wantObject) {
    const char* name = IdentifierName(node);
    // The first letter first: nearly every identifier is neither.
    if ((name[0] == 'o' && std::strcmp(name, "other") == 0) || (name[0] == 't' && std::strcmp(name, "this") == 0)) {
        *kind = VarMember;
        EmitCall(cx, name[0] == 'o' ? "@@Other@@" : "@@This@@", 0);
        if (wantObject) {
            Emit(cx, {kWordDupVar});
            PushType(cx, TYPE_VARIABLE);
        }
        PushType(cx, TYPE_VARIABLE);
        return;
    }
    bool lasting = HasLastingName(node);
    Reference reference = ResolveRead(cx, name, *kind, lasting);
    *kind = reference.kind;
    if (wantObject) {
        if (reference.kind != VarMember) EmitCall(cx, IsBuiltInFunction(name) ? "@@This@@" : "@@GlobalScope@@", 0);
        else Emit(cx, {kWordDupVar});
        PushType(cx, TYPE_VARIABLE);
    }
    if (reference.function) {
        Emit(cx, {MakeWord1(OP_PUSH, TYPE_INT, 0), reference.function->nameIndex,
                  MakeWord(OP_CONV, TYPE_INT, TYPE_VARIABLE, 0)});
        EmitCall(cx, "@@script_ref@@", 1);
    } else {
        EmitRead(cx, node, name, reference, lasting);
    }
    PushType(cx, TYPE_VARIABLE);
}

}  // namespace

// per '.': object; [conv.T.v]; [dup.v]; then the property read with -9 (or the element read)
void CompileVariable(CodeGenContext& cx, Node* node, int32_t* kind, bool wantObject) {
    while (node->kind == '.') {
        Node* object = node->first;
        if (!object || !object->next) ReportError(node->position, "unknown lexical type");
        CompileExpression(cx, object, false);
        EmitConvToVariable(cx, PopType(cx));
        *kind = VarMember;
        if (wantObject) {
            Emit(cx, {kWordDupVar});
            PushType(cx, TYPE_VARIABLE);
        }
        node = object->next;
        wantObject = false;
    }
    if (node->kind == '[') {
        CompileElementRead(cx, node, kind, wantObject);
    } else if (IsIdentifier(node)) {
        CompileIdentifier(cx, node, kind, wantObject);
    } else {
        ReportError(node->position, "unknown lexical type");
    }
}

// index; [conv]; array; [conv]; then dup.v 1; pushv.v -10; dup.v 0xFF21; popz.v (keeping the
// reference) or pushv.v -10
void CompileElementRead(CodeGenContext& cx, Node* node, int32_t* kind, bool keepReference) {
    Node* array = node->first;
    if (array && array->next) CompileExpression(cx, array->next, false);
    EmitConvToVariable(cx, PopType(cx));
    if (array) CompileExpression(cx, array, false, kind);
    EmitConvToVariable(cx, PopType(cx));
    if (keepReference) {
        Emit(cx, {kWordDupVarOne, kWordElementRead, kWordDupVarElement, MakeWord1(OP_POPZ, TYPE_VARIABLE, 0)});
        PushType(cx, TYPE_VARIABLE);
        PushType(cx, TYPE_VARIABLE);
        return;
    }
    Emit(cx, {kWordElementRead});
    PushType(cx, TYPE_VARIABLE);
}

// objects of '.'; then popv.v.T -10 for '[' or pop.v.T sel name / pop.v.T -13 depth:slot
void CompileStore(CodeGenContext& cx, Node* target, int32_t* kind, uint32_t type) {
    while (target->kind == '.') {
        Node* object = target->first;
        if (!object || !object->next) break;
        CompileExpression(cx, object, false);
        PopType(cx);
        *kind = VarMember;
        target = object->next;
    }
    if (target->kind == '[') {
        Node* array = target->first;
        if (array && array->next) CompileExpression(cx, array->next, false);
        EmitConvToVariable(cx, PopType(cx));
        int32_t arrayKind = VarUnknown;
        if (array) CompileVariable(cx, array, &arrayKind, false);
        PopType(cx);
        Emit(cx, {MakeWord(OP_POPV, TYPE_VARIABLE, type, SelectorField(SEL_ELEMENT))});
        return;
    }
    if (target->kind != LEX_ID) ReportError(target->position, "Assignment error - left hand side is malformed");
    const char* name = TextOf(target);
    bool lasting = HasLastingName(target);
    // Only a name that is looked up is hashed.
    uint32_t hash = *kind == VarUnknown ? NameHashOf(name, lasting) : 0;
    Reference reference = ResolveVariable(cx, name, hash, *kind);
    *kind = reference.kind;
    uint32_t word = MakeWord(OP_POP, TYPE_VARIABLE, type, SelectorField(WriteSelector(reference.kind)));
    if (reference.kind == VarArgument) {
        Emit(cx, {word, ArgumentOperand(reference.depth, reference.entry ? reference.entry->slot : kUnsetSlot)});
        return;
    }
    uint32_t index = AddVarAndPatch(cx, name, PatchKindOf(reference.kind), lasting);
    Emit(cx, {word, index | kVarReference});
}

// operand; popz.T; push.b 1; conv.b.v — or a store with value type 8 for a reference
void CompileDelete(CodeGenContext& cx, Node* node) {
    Node* operand = node->first ? node->first : node->next;
    if (operand && (operand->kind == LEX_ID || operand->kind == '.' || operand->kind == '[')) {
        int32_t kind = VarUnknown;
        CompileStore(cx, operand, &kind, kDeleteType);
    } else {
        if (operand) CompileExpression(cx, operand, false);
        Emit(cx, {MakeWord1(OP_POPZ, PopType(cx), 0)});
        EmitPushConstant(cx, OP_PUSH, TYPE_BOOL, 1);
        Emit(cx, {MakeWord(OP_CONV, TYPE_BOOL, TYPE_VARIABLE, 0)});
    }
    PushType(cx, TYPE_VARIABLE);
}

// value; store target; read target. The read compiles the target's object expressions a second
// time, which the runner relies on to leave the assigned value on the stack
// (ExpressionsEndToEnd.NestedMemberAssignmentEvaluatesTheObjectTwice).
void CompileAssignment(CodeGenContext& cx, Node* node) {
    Node* target = node->first;
    if (!target) ReportError(node->position, "Assignment error - left hand side is malformed");
    if (target->next) CompileExpression(cx, target->next, false);
    uint32_t type = PopType(cx);
    int32_t storeKind = VarUnknown;
    CompileStore(cx, target, &storeKind, type);
    int32_t loadKind = VarUnknown;
    CompileVariable(cx, target, &loadKind, false);
}
