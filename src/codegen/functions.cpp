// Functions compiled inline, calls through function values, and `new`.
#include <cstdlib>

#include "codegen/codegen.h"
#include "state/process_state.h"
#include "support/strings.h"

namespace {


// The enclosing code's view of the function: a reference made by the runner from its name index.
// push.i qualified; conv.i.v; call @@script_ref@@ 1
void EmitFunctionReference(CodeGenContext& cx, uint32_t qualifiedIndex) {
    AddFuncPatch(cx, qualifiedIndex);
    Emit(cx, {MakeWord1(OP_PUSH, TYPE_INT, 0), qualifiedIndex});
    Emit(cx, {MakeWord(OP_CONV, TYPE_INT, TYPE_VARIABLE, 0)});
    EmitCall(cx, "@@script_ref@@", 1);
}

// The parameters' name indices in declaration order (null when there are none).
uint32_t* InternParameters(const Node* parameterList, int32_t* count) {
    *count = parameterList ? static_cast<int32_t>(parameterList->count) : 0;
    if (*count == 0) return nullptr;
    // Kept with the function record, for the life of the process.
    uint32_t* indices = static_cast<uint32_t*>(KeepRecord(sizeof(uint32_t) * static_cast<size_t>(*count)));
    int32_t i = 0;
    for (const Node* parameter = parameterList->first; parameter; parameter = parameter->next) {
        indices[i++] = static_cast<uint32_t>(InternName(parameter->text->text));
    }
    return indices;
}

// Pops the value's type and converts it to .v unless it already is.
void PopAsVariable(CodeGenContext& cx) { EmitConvToVariable(cx, PopType(cx)); }

}  // namespace

// b endfunc; body; endcompile: ret; endfunc: push.i name; conv.i.v; call @@script_ref@@ 1
void CompileFunction(CodeGenContext& cx, Node* node, const char* name) {
    uint8_t savedTopLevel = cx.topLevel;
    cx.topLevel = 0;
    // The enclosing scope's function table takes the function once its body is compiled: in a
    // script of thousands of functions its slot for the name is long out of the caches by then
    // unless asked for now.
    uint32_t nameHash = NameHash(name);
    HashPrefetch(static_cast<ScopeRecord*>(cx.scopes.last->value)->extra, nameHash);

    // Built in the context's scratch text and copied into the name table when it is new; nothing
    // below writes the scratch text before that. Hashed once for both indexes.
    WriteQualifiedName(cx, name, cx.nameScratch);
    HashedText qualified = HashQualifiedName(cx, cx.nameScratch);
    Node* parameterList = node->next;
    Node* body = parameterList ? parameterList->next : nullptr;
    int32_t position = FindFunctionRecord(qualified);
    int32_t parameterCount = 0;
    uint32_t* parameters = InternParameters(parameterList, &parameterCount);
    BranchLabel* endFunction = NewLabel(cx, "endfunc");
    BranchLabel* endCompile = NewLabel(cx, "endcompile");
    BranchToLabel(cx, endFunction, OP_B);
    FunctionRecord* record = NewFunctionRecord(0, 0, 0);
    int32_t namesBefore = NameArray.count;
    record->nameIndex = static_cast<uint32_t>(InternCopy(qualified));
    // A new entry is the library's own copy, kept for the process's life; an older one may be a
    // host's text, which the function index copies.
    bool nameIsKept = static_cast<int32_t>(record->nameIndex) >= namesBefore;
    qualified.text = static_cast<const char*>(NameArray.data[record->nameIndex]);
    record->declaredNameIndex = static_cast<uint32_t>(InternName(name));
    record->codeOffset = static_cast<uint64_t>(CodeOffset(cx));
    record->paramCount = parameterCount;
    record->params = parameters;

    ScopeRecord* scope = PushScope(cx, record);
    // The literal is lasting, as are the parameters' texts in the tree.
    DeclareLocal(cx, "arguments", LastingNameHash("arguments"), kVarEntryVariable, kUnsetSlot, "arguments");
    uint32_t slot = 0;
    for (Node* parameter = parameterList ? parameterList->first : nullptr; parameter; parameter = parameter->next) {
        DeclareNodeLocal(cx, parameter, kVarEntryParameter, slot++);
    }

    ListPush(cx.breakTargets, endCompile);
    if (body) CompileStatement(cx, body, 1);
    ListPop(cx.breakTargets);

    FillScopeRecord(cx, scope);
    GiveBackVarEntries(cx, *scope);
    PopScope(cx);

    PlaceLabel(cx, endCompile);
    Emit(cx, {MakeWord1(OP_RET, TYPE_SHORT, 0)});
    PlaceLabel(cx, endFunction);

    ScopeRecord* enclosing = static_cast<ScopeRecord*>(cx.scopes.last->value);
    HashInsertHashed(enclosing->extra, nameHash, record);
    SetFunctionRecord(qualified, nameIsKept, position, record);

    // The name's first id, which is what interning its text again would return.
    EmitFunctionReference(cx, record->nameIndex);
    ReleaseLabel(cx, endFunction);
    ReleaseLabel(cx, endCompile);
    cx.topLevel = savedTopLevel;
}

// scope, callee; conv; for each argument from the last: arg; conv; dup.v 0xFF12; call.v count
void CompileCall(CodeGenContext& cx, Node* node, bool withScope) {
    Node* callee = node->first;
    if (callee) CompileExpression(cx, callee, true);
    PopAsVariable(cx);
    PopType(cx);

    uint32_t count = 0;
    for (Node* argument = node->last; argument && argument != callee; argument = argument->prev) {
        CompileExpression(cx, argument, false);
        PopAsVariable(cx);
        Emit(cx, {kWordDupVarCallArg});
        count++;
    }
    Emit(cx, {MakeWord1(OP_CALLV, TYPE_VARIABLE, count & 0xFFFFu)});
    PushType(cx, TYPE_VARIABLE);
    if (withScope) {
        Emit(cx, {MakeWord1(OP_DUP, TYPE_VARIABLE, 0)});
        PushType(cx, TYPE_VARIABLE);
    }
}

// arguments from the last, each conv'd; constructor; conv; call @@new@@ (count + 1)
void CompileNew(CodeGenContext& cx, Node* node, bool keep) {
    Node* constructor = node->first;
    uint32_t count = 0;
    if (constructor && constructor->kind == '(') {
        Node* call = constructor;
        constructor = call->first;
        for (Node* argument = call->last; argument && argument != constructor; argument = argument->prev) {
            CompileExpression(cx, argument, false);
            PopAsVariable(cx);
            count++;
        }
    }
    if (constructor) CompileExpression(cx, constructor, false);
    PopAsVariable(cx);
    EmitCall(cx, "@@new@@", count + 1);
    PushType(cx, TYPE_VARIABLE);
    if (keep) {
        Emit(cx, {MakeWord1(OP_DUP, TYPE_VARIABLE, 0)});
        PushType(cx, TYPE_VARIABLE);
    }
}
