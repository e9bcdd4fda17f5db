// Statements and control flow: labels, loops, switch, try, declarations.
#include <cstdlib>
#include <vector>

#include "codegen/codegen.h"
#include "state/process_state.h"
#include "support/diagnostics.h"
#include "support/stack_guard.h"

namespace {

// Makes `node` the statement that branch errors point at while it compiles.
struct CurrentStatement {
    CurrentStatement(CodeGenContext& cx, const Node* node) : cx(cx), saved(cx.statement) { cx.statement = node; }
    ~CurrentStatement() { cx.statement = saved; }
    CurrentStatement(const CurrentStatement&) = delete;
    CurrentStatement& operator=(const CurrentStatement&) = delete;
    CodeGenContext& cx;
    const Node* saved;
};

// The second-type nibble that marks a declaration's pop word.
constexpr uint32_t kDeclarationType = 9;
constexpr uint32_t kBoolConvField = 0x0100u;
constexpr uint32_t kHookOperandUnset = 0xFFFFFFFFu;

// pop.v with the declaration nibble and selector -12: declares a local.
constexpr uint32_t kWordDeclareLocal = MakeWord(OP_POP, TYPE_VARIABLE, kDeclarationType, SelectorField(SEL_LOCAL));
// The for-in loop's end test, written as a fixed word (declaration nibble included).
constexpr uint32_t kWordForInDone = MakeWord(OP_SET, TYPE_VARIABLE, kDeclarationType, CMP_SEQ << 8);
constexpr uint32_t kWordDupVar = MakeWord1(OP_DUP, TYPE_VARIABLE, 0);

// A switch clause waiting for its statements to be compiled after the dispatch code.
struct ClauseRecord {
    BranchLabel* label;
    Node* statements;
};

void PushTargets(CodeGenContext& cx, BranchLabel* breakTarget, BranchLabel* continueTarget) {
    ListPush(cx.breakTargets, breakTarget);
    ListPush(cx.continueTargets, continueTarget);
}

void PopTargets(CodeGenContext& cx) {
    ListPop(cx.breakTargets);
    ListPop(cx.continueTargets);
}

void CompileOptionalStatement(CodeGenContext& cx, Node* node, int flag) {
    if (node) CompileStatement(cx, node, flag);
}

// conv.T.b unless the popped type T is already .b
void PopAsBool(CodeGenContext& cx) {
    uint32_t type = PopType(cx);
    if (type != TYPE_BOOL) Emit(cx, {MakeWord(OP_CONV, type, TYPE_BOOL, kBoolConvField)});
}

// Discards the value whose type is popped; a .e (or an empty type stack) has nothing to discard.
void EmitCommonTail(CodeGenContext& cx) {
    uint32_t type = PopType(cx);
    if (type != TYPE_SHORT) Emit(cx, {MakeWord1(OP_POPZ, type, 0)});
}

// pop.v(9) -12 declaration of the node's name as a local, with the given operand marker.
void EmitLocalDeclaration(CodeGenContext& cx, const Node* node, uint32_t marker) {
    uint32_t index = AddNodeVarAndPatch(cx, node, kPatchLocal);
    Emit(cx, {kWordDeclareLocal, index | marker});
}

void StoreTo(CodeGenContext& cx, Node* target, int32_t kind, uint32_t type) {
    CompileStore(cx, target, &kind, type);
}

// value; pop into target
void CompileAssignmentStatement(CodeGenContext& cx, Node* node) {
    Node* target = node->first;
    CompileIfPresent(cx, target ? target->next : nullptr);
    uint32_t type = PopType(cx);
    StoreTo(cx, target, VarUnknown, type);
}

// cond; conv.T.b; bf else; then; [b endif;] else: [else-statement;] endif:
void CompileIf(CodeGenContext& cx, Node* node) {
    BranchLabel* endIf = NewLabel(cx, "endif");
    BranchLabel* elseLabel = NewLabel(cx, "else");
    Node* condition = node->first;
    CompileIfPresent(cx, condition);
    PopAsBool(cx);
    BranchToLabel(cx, elseLabel, OP_BF);
    Node* thenStatement = condition ? condition->next : nullptr;
    CompileOptionalStatement(cx, thenStatement, 1);
    if (node->count > 2) BranchToLabel(cx, endIf, OP_B);
    PlaceLabel(cx, elseLabel);
    CompileOptionalStatement(cx, thenStatement ? thenStatement->next : nullptr, 1);
    PlaceLabel(cx, endIf);
    ReleaseLabel(cx, elseLabel);
    ReleaseLabel(cx, endIf);
}

// startdo: body; iteratedo: cond; conv.T.b; bt startdo; enddo:
void CompileDo(CodeGenContext& cx, Node* node) {
    BranchLabel* startDo = NewLabel(cx, "startdo");
    BranchLabel* endDo = NewLabel(cx, "enddo");
    BranchLabel* iterateDo = NewLabel(cx, "iteratedo");
    PlaceLabel(cx, startDo);
    PushTargets(cx, endDo, iterateDo);
    Node* body = node->first;
    CompileOptionalStatement(cx, body, 1);
    PopTargets(cx);
    PlaceLabel(cx, iterateDo);
    CompileIfPresent(cx, body ? body->next : nullptr);
    PopAsBool(cx);
    BranchToLabel(cx, startDo, OP_BT);
    PlaceLabel(cx, endDo);
    ReleaseLabel(cx, startDo);
    ReleaseLabel(cx, endDo);
    ReleaseLabel(cx, iterateDo);
}

// startwhile: cond; conv.T.b; bf endwhile; body; b startwhile; endwhile:
void CompileWhile(CodeGenContext& cx, Node* node) {
    BranchLabel* startWhile = NewLabel(cx, "startwhile");
    BranchLabel* endWhile = NewLabel(cx, "endwhile");
    PlaceLabel(cx, startWhile);
    Node* condition = node->first;
    CompileIfPresent(cx, condition);
    PopAsBool(cx);
    BranchToLabel(cx, endWhile, OP_BF);
    PushTargets(cx, endWhile, startWhile);
    CompileOptionalStatement(cx, condition ? condition->next : nullptr, 1);
    PopTargets(cx);
    BranchToLabel(cx, startWhile, OP_B);
    PlaceLabel(cx, endWhile);
    ReleaseLabel(cx, startWhile);
    ReleaseLabel(cx, endWhile);
}

// init; startfor: cond; conv.T.b; bf endfor; body; iteratefor: step; [popz.T;] b startfor; endfor:
void CompileClassicFor(CodeGenContext& cx, Node* node) {
    Node* initializer = node->first;
    Node* condition = initializer ? initializer->next : nullptr;
    Node* iteration = condition ? condition->next : nullptr;
    Node* body = iteration ? iteration->next : nullptr;
    CompileOptionalStatement(cx, initializer, 1);
    BranchLabel* startFor = NewLabel(cx, "startfor");
    BranchLabel* endFor = NewLabel(cx, "endfor");
    BranchLabel* iterateFor = NewLabel(cx, "iteratefor");
    PlaceLabel(cx, startFor);
    CompileIfPresent(cx, condition);
    PopAsBool(cx);
    BranchToLabel(cx, endFor, OP_BF);
    PushTargets(cx, endFor, iterateFor);
    CompileOptionalStatement(cx, body, 1);
    PopTargets(cx);
    PlaceLabel(cx, iterateFor);
    CompileIfPresent(cx, iteration);
    EmitCommonTail(cx);
    BranchToLabel(cx, startFor, OP_B);
    PlaceLabel(cx, endFor);
    ReleaseLabel(cx, startFor);
    ReleaseLabel(cx, endFor);
    ReleaseLabel(cx, iterateFor);
}

// [decl var;] obj; conv; call @@ForInIterator@@ 1; dup.v; set; bt endforin;
// startforin: dup.v; call @@ForInIteratorGetNext@@ 1; dup.v; pop var; set; bt endforin; body;
// b startforin; endforin: call @@ForInIteratorDelete@@ 1; popz.T
void CompileForIn(CodeGenContext& cx, Node* node) {
    Node* variable = node->first;
    Node* inNode = variable->next;
    Node* object = inNode->next;
    Node* body = object ? object->next : nullptr;

    Node* target = variable;
    int32_t storeKind = VarUnknown;
    if (variable->kind == LEX_VAR) {
        target = variable->first;
        DeclareNodeLocal(cx, target, kVarEntryVariable, kUnsetSlot);
        // The loop variable's declaration carries the reference marker (0xA), not 0xB: the runner
        // reads it as the loop's own variable (StatementScripts.ForInWithVarDeclaresTheVariableAndStoresItAsLocal).
        EmitLocalDeclaration(cx, target, kVarReference);
        storeKind = VarLocal;
    }

    BranchLabel* startForIn = NewLabel(cx, "startforin");
    BranchLabel* endForIn = NewLabel(cx, "endforin");
    CompileIfPresent(cx, object);
    EmitConvToVariable(cx, PopType(cx));
    EmitCall(cx, "@@ForInIterator@@", 1);
    PushType(cx, TYPE_VARIABLE);
    Emit(cx, {kWordDupVar, kWordForInDone});
    BranchToLabel(cx, endForIn, OP_BT);

    PlaceLabel(cx, startForIn);
    Emit(cx, {kWordDupVar});
    EmitCall(cx, "@@ForInIteratorGetNext@@", 1);
    Emit(cx, {kWordDupVar});
    StoreTo(cx, target, storeKind, TYPE_VARIABLE);
    Emit(cx, {kWordForInDone});
    BranchToLabel(cx, endForIn, OP_BT);

    PushTargets(cx, endForIn, startForIn);
    CompileOptionalStatement(cx, body, 1);
    PopTargets(cx);
    BranchToLabel(cx, startForIn, OP_B);
    PlaceLabel(cx, endForIn);
    ReleaseLabel(cx, startForIn);
    ReleaseLabel(cx, endForIn);

    if (TopType(cx) != TYPE_VARIABLE) {
        ReportError(node->position, "VM::CompileFor : For-in loop not left with iterator on the stack at the end");
    }
    EmitCall(cx, "@@ForInIteratorDelete@@", 1);
    Emit(cx, {MakeWord1(OP_POPZ, PopType(cx), 0)});
}

void CompileFor(CodeGenContext& cx, Node* node) {
    Node* second = node->first ? node->first->next : nullptr;
    if (second && second->kind == LEX_IN) {
        CompileForIn(cx, node);
    } else {
        CompileClassicFor(cx, node);
    }
}

// The label that `break` or `continue` leaves through: the named label's depth on the stack, or
// the newest entry. The depth counts continue targets even for `break`: inside a function the
// break stack holds "endcompile" below the loops, so `break name` lands one lower, which compiled
// scripts depend on (LabelDepth.BreakToALabelInAFunctionLeavesThroughEndcompileSkippingTheCodeAfterTheLoop).
BranchLabel* JumpTarget(CodeGenContext& cx, Node* node, const List& targets, const char* noContext) {
    Node* labelName = node->first;
    if (labelName) {
        const char* name = labelName->text->text;
        HashEntry* entry = HashFindFirst(cx.labelTable, NameHash(name));
        BranchLabel* named = entry ? static_cast<BranchLabel*>(entry->value) : nullptr;
        BranchLabel* target = named ? static_cast<BranchLabel*>(ListAt(targets, named->depth)) : nullptr;
        if (!target) ReportError(node->position, "unable to find target label %s", name);
        return target;
    }
    if (targets.count == 0) ReportError(node->position, "%s", noContext);
    return static_cast<BranchLabel*>(targets.last->value);
}

// b target
void CompileBreak(CodeGenContext& cx, Node* node) {
    BranchToLabel(cx, JumpTarget(cx, node, cx.breakTargets, "break with no context"), OP_B);
}

// b target
void CompileContinue(CodeGenContext& cx, Node* node) {
    BranchToLabel(cx, JumpTarget(cx, node, cx.continueTargets, "continue with no context"), OP_B);
}

// name: (no code; records the continue-target depth for `break name` / `continue name`)
void CompileNamedLabel(CodeGenContext& cx, Node* node) {
    Node* identifier = node->first;
    if (!identifier) return;
    const char* name = identifier->text->text;
    uint32_t hash = NameHash(name);
    HashEntry* entry = HashFindFirst(cx.labelTable, hash);
    BranchLabel* label = entry ? static_cast<BranchLabel*>(entry->value) : nullptr;
    if (!label) {
        label = NewLabel(name);
        HashInsertHashed(cx.labelTable, hash, label);
    }
    label->depth = cx.continueTargets.count;
    PlaceLabel(cx, label);
}

// value; conv.T.v; ret.v   or   ret.e, leaving a .e on the type stack that the statement's common
// tail and the for-in check then see (Statements.ReturnWithoutValueLeavesAShortTypeOnTheTypeStack)
void CompileReturn(CodeGenContext& cx, Node* node) {
    if (node->first) {
        CompileExpression(cx, node->first, false);
        EmitConvToVariable(cx, PopType(cx));
        Emit(cx, {MakeWord1(OP_RET, TYPE_VARIABLE, 0)});
    } else {
        Emit(cx, {MakeWord1(OP_RET, TYPE_SHORT, 0)});
        PushType(cx, TYPE_SHORT);
    }
}

// value; conv.T.v; call @@throw@@ 1
void CompileThrow(CodeGenContext& cx, Node* node) {
    CompileIfPresent(cx, node->first);
    EmitConvToVariable(cx, PopType(cx));
    EmitCall(cx, "@@throw@@", 1);
}

// per declarator: pop.v(9) -12 0xB name; [initializer; pop into name]
void CompileVar(CodeGenContext& cx, Node* node) {
    for (Node* declarator = node->first; declarator; declarator = declarator->next) {
        DeclareNodeLocal(cx, declarator, kVarEntryVariable, kUnsetSlot);
        EmitLocalDeclaration(cx, declarator, kVarDeclaration);
        if (declarator->first) {
            CompileExpression(cx, declarator->first, false);
            uint32_t type = PopType(cx);
            StoreTo(cx, declarator, VarUnknown, type);
        }
    }
}

// function; then top level: pop.v.v -11 0xB name; inside: pop.v(9) -12 0xB name; pop.v.v -12 0xB name
void CompileFunctionDeclaration(CodeGenContext& cx, Node* node) {
    Node* nameNode = node->first;
    if (!nameNode) return;
    const char* name = nameNode->text->text;
    CompileFunction(cx, nameNode, name);
    if (cx.topLevel) {
        // The name's use tells the enclosing functions' records, as a read would.
        UseName(cx, name, nullptr);
        uint32_t index = AddVarAndPatch(cx, name, kPatchSelf);
        Emit(cx, {MakeWord(OP_POP, TYPE_VARIABLE, TYPE_VARIABLE, SelectorField(SEL_UNRESOLVED)), index | kVarDeclaration});
    } else {
        DeclareNodeLocal(cx, nameNode, kVarEntryVariable, kUnsetSlot);
        EmitLocalDeclaration(cx, nameNode, kVarDeclaration);
        uint32_t index = AddNodeVarAndPatch(cx, nameNode, kPatchLocal);
        Emit(cx, {MakeWord(OP_POP, TYPE_VARIABLE, TYPE_VARIABLE, SelectorField(SEL_LOCAL)), index | kVarDeclaration});
    }
}

// disc; per case: dup.D; value; set.C.D ===; bt case; [b default;] b endSwitch;
// clauses in order; endSwitch: startSwitch: popz.D
// A `continue` inside the switch lands on its final popz, not on an enclosing loop; the runner's
// switch depends on the discriminant being popped (Statements.ContinueInsideSwitchLandsOnTheSwitchsFinalPop).
void CompileSwitch(CodeGenContext& cx, Node* node) {
    BranchLabel* endSwitch = NewLabel(cx, "endSwitch");
    BranchLabel* startSwitch = NewLabel(cx, "startSwitch");
    Node* discriminant = node->first;
    CompileIfPresent(cx, discriminant);
    uint32_t discriminantType = PopType(cx);
    ListPush(cx.continueTargets, startSwitch);
    ListPush(cx.breakTargets, endSwitch);

    std::vector<ClauseRecord> clauses;
    BranchLabel* defaultLabel = nullptr;
    for (Node* clause = discriminant ? discriminant->next : nullptr; clause; clause = clause->next) {
        if (clause->kind == LEX_CASE) {
            Node* value = clause->first;
            BranchLabel* label = NewLabel(cx, "case");
            clauses.push_back({label, value ? value->next : nullptr});
            Emit(cx, {MakeWord1(OP_DUP, discriminantType, 0)});
            CompileIfPresent(cx, value);
            uint32_t valueType = PopType(cx);
            Emit(cx, {MakeWord(OP_SET, valueType, discriminantType, CMP_SEQ << 8)});
            BranchToLabel(cx, label, OP_BT);
        } else if (clause->kind == LEX_DEFAULT) {
            if (defaultLabel) ReportError(node->position, "multiple default clause in switch");
            defaultLabel = NewLabel(cx, "default");
            clauses.push_back({defaultLabel, clause->first});
        } else {
            ReportError(node->position, "switch should have case and default clauses");
        }
    }
    if (defaultLabel) BranchToLabel(cx, defaultLabel, OP_B);
    BranchToLabel(cx, endSwitch, OP_B);

    for (const ClauseRecord& clause : clauses) {
        PlaceLabel(cx, clause.label);
        CompileStatements(cx, clause.statements, 1);
    }
    PlaceLabel(cx, endSwitch);
    PlaceLabel(cx, startSwitch);
    Emit(cx, {MakeWord1(OP_POPZ, discriminantType, 0)});
    ListPop(cx.continueTargets);
    ListPop(cx.breakTargets);
    for (const ClauseRecord& clause : clauses) ReleaseLabel(cx, clause.label);
    ReleaseLabel(cx, endSwitch);
    ReleaseLabel(cx, startSwitch);
}

// A: push.i -1; conv.i.v; B: push.i -1; conv.i.v; call @@try_hook@@ 2; try;
// [b finally; catch: [pop e;] call @@try_unhook@@; body; call @@finish_catch@@;]
// finally: call @@try_unhook@@; [body; call @@finish_finally@@]
// The hook's operands become the byte offsets of catch (at B) and finally (at A).
void CompileTry(CodeGenContext& cx, Node* node) {
    BranchLabel* catchLabel = NewLabel(cx, "catch");
    BranchLabel* finallyLabel = NewLabel(cx, "finally");
    Node* tryBlock = node->first;
    Node* catchClause = nullptr;
    Node* finallyClause = nullptr;
    for (Node* clause = tryBlock ? tryBlock->next : nullptr; clause; clause = clause->next) {
        if (clause->kind == LEX_CATCH) {
            if (catchClause) ReportError(node->position, "Multiple catch clauses found");
            catchClause = clause;
        } else if (clause->kind == LEX_FINALLY) {
            if (finallyClause) ReportError(node->position, "Multiple finally clauses found");
            finallyClause = clause;
        }
    }

    const uint32_t pushUnset[] = {MakeWord1(OP_PUSH, TYPE_INT, 0), kHookOperandUnset};
    const uint32_t convToVariable = MakeWord(OP_CONV, TYPE_INT, TYPE_VARIABLE, 0);
    int64_t finallyHook = CodeOffset(cx);
    Emit(cx, {pushUnset[0], pushUnset[1], convToVariable});
    int64_t catchHook = CodeOffset(cx);
    Emit(cx, {pushUnset[0], pushUnset[1], convToVariable});
    EmitCall(cx, "@@try_hook@@", 2);

    CompileOptionalStatement(cx, tryBlock, 1);

    if (catchClause) {
        BranchToLabel(cx, finallyLabel, OP_B);
        PlaceLabel(cx, catchLabel);
        Node* catchBody = catchClause->first;
        if (catchBody && catchBody->kind == LEX_ID) {
            PushType(cx, TYPE_VARIABLE);
            PopType(cx);
            StoreTo(cx, catchBody, VarUnknown, TYPE_VARIABLE);
            catchBody = catchBody->next;
        }
        EmitCall(cx, "@@try_unhook@@", 0);
        CompileOptionalStatement(cx, catchBody, 1);
        EmitCall(cx, "@@finish_catch@@", 0);
    }
    PlaceLabel(cx, finallyLabel);
    EmitCall(cx, "@@try_unhook@@", 0);
    if (finallyClause) {
        CompileOptionalStatement(cx, finallyClause->first, 1);
        EmitCall(cx, "@@finish_finally@@", 0);
    }

    if (catchClause) PatchWord(*cx.code, catchHook + 4, static_cast<uint32_t>(catchLabel->offset));
    if (finallyClause) PatchWord(*cx.code, finallyHook + 4, static_cast<uint32_t>(finallyLabel->offset));
    ReleaseLabel(cx, catchLabel);
    ReleaseLabel(cx, finallyLabel);
}

// The position pair (code offset, source character offset) that maps code back to the statement.
void RecordPosition(CodeGenContext& cx, const Node* node) {
    if (!node->position) return;
    WriteWords(*cx.code2, {static_cast<uint32_t>(CodeOffset(cx)), static_cast<uint32_t>(node->position->offset)});
}

}  // namespace

void CompileStatement(CodeGenContext& cx, Node* node, int flag) {
    PrefetchNodesAhead(node);
    NestingLevel nesting(cx.guard, node->position, kMaxCompileNesting);
    CurrentStatement current(cx, node);
    RecordPosition(cx, node);
    switch (node->kind) {
        case '{':
            CompileStatements(cx, node->first, flag);
            break;
        case '(':
            CompileCall(cx, node, false);
            EmitCommonTail(cx);
            break;
        case ':':
            CompileNamedLabel(cx, node);
            break;
        case ';':
            break;
        case '=':
            CompileAssignmentStatement(cx, node);
            break;
        case LEX_IF:
            CompileIf(cx, node);
            break;
        case LEX_DO:
            CompileDo(cx, node);
            break;
        case LEX_WHILE:
            CompileWhile(cx, node);
            break;
        case LEX_FOR:
            CompileFor(cx, node);
            break;
        case LEX_BREAK:
            CompileBreak(cx, node);
            break;
        case LEX_CONTINUE:
            CompileContinue(cx, node);
            break;
        case LEX_RETURN:
            CompileReturn(cx, node);
            break;
        case LEX_VAR:
            CompileVar(cx, node);
            break;
        case LEX_NEW:
            // No common tail: the value stays on the stack and on the type stack, where the next
            // statement's scope check finds it (Statements.NewStatementKeepsItsValue).
            CompileNew(cx, node, false);
            break;
        case LEX_TRY:
            CompileTry(cx, node);
            break;
        case LEX_THROW:
            CompileThrow(cx, node);
            break;
        case LEX_DELETE:
            CompileDelete(cx, node);
            EmitCommonTail(cx);
            break;
        case LEX_SWITCH:
            CompileSwitch(cx, node);
            break;
        case LEX_FUNCTION:
            CompileFunctionDeclaration(cx, node);
            break;
        default:
            CompileExpression(cx, node, false);
            EmitCommonTail(cx);
            break;
    }
}
