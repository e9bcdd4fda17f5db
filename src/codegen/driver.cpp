// The compile driver: sets up and tears down one compile, hoists declarations on the tree, then
// compiles the top-level statements.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "codegen/codegen.h"
#include "support/strings.h"

namespace {

constexpr int32_t kTypeStackEntries = 1024;
constexpr int32_t kSlotTableBuckets = 16;
constexpr int32_t kLabelTableBuckets = 4;
constexpr uint32_t kNoName = 0xFFFFFFFFu;

// Frees the list's nodes; the labels they hold, with their sites, are the compile's scratch
// records. Never allocates: it runs on the failure path, where memory may have run out.
void FreeTargets(List& targets) {
    while (targets.count > 0) ListPop(targets);
}

// Inserts `node` in front of `head` and returns it as the new head.
Node* InsertAsHead(Node* head, Node* node) {
    node->prev = nullptr;
    node->next = head;
    head->prev = node;
    return node;
}

// A synthetic `var name` statement positioned at `where`.
// The declaration joins the tree, so it is made in the tree's arena like the parser's nodes.
Node* MakeVarDeclaration(RefString* name, const SourcePosition* where) {
    Arena& records = State().records;
    RefString* keyword = NewArenaRefString(records, State().texts, "var");
    Node* declaration = MakeNodeIn(records, LEX_VAR, keyword, where);
    ReleaseRefString(keyword);
    AppendChild(declaration, MakeNodeIn(records, LEX_ID, name, where));
    return declaration;
}

// A `var` for every function declaration but the one heading the list (the last function in the
// source gets none): the runner finds that one by its function record instead
// (Driver.TwoFunctionsWithoutTopLevelGetTwoVarsForTheFirst). HoistFunctions moved every function
// declaration but `firstStatement` (the list's first before it) in front of that one, so none comes
// after it and the walk ends there, not at the end of a script of thousands of statements; the
// nodes it reads are those HoistFunctions has just linked. `declared` counts the `var` statements
// made.
Node* DeclareFunctionNames(Node* head, const Node* firstStatement, uint64_t& declared) {
    for (Node* node = head; node; node = node->next) {
        if (node->kind == LEX_FUNCTION && node != head && node->first) {
            head = InsertAsHead(head, MakeVarDeclaration(node->first->text, head->position));
            declared++;
        }
        if (node == firstStatement) break;
    }
    return head;
}

// How many statements on from the one at hand a walk of the parser's array asks for: a large
// script's top-level statements lie kilobytes apart, so each is a wait for memory otherwise.
constexpr size_t kStatementsAhead = 8;

void PrefetchStatementAhead(const ParsedTree& tree, size_t at) {
    if (at + kStatementsAhead < tree.statementCount) PrefetchNodesAhead(tree.statements[at + kStatementsAhead], 0);
}

// Function declarations first, the later ones in front; the first statement stays behind them, and
// the others follow in order. Reads the statements from the array, not along the list, and writes
// the links of the statements that stay only where they change. Allocates nothing: the list is
// relinked whole or not at all.
Node* HoistFunctions(const ParsedTree& tree) {
    Node* first = tree.statements[0];
    Node* head = first;
    Node* kept = first;
    for (size_t at = 1; at < tree.statementCount; at++) {
        PrefetchStatementAhead(tree, at);
        Node* node = tree.statements[at];
        if (node->kind == LEX_FUNCTION) {
            node->prev = nullptr;
            node->next = head;
            head->prev = node;
            head = node;
        } else {
            if (kept->next != node) kept->next = node;
            if (node->prev != kept) node->prev = kept;
            kept = node;
        }
    }
    if (kept->next) kept->next = nullptr;
    return head;
}

}  // namespace

void BeginCompile(CodeGenContext& cx, const char* scriptName, uint8_t topLevel) {
    BeginStackGuard(cx.guard);
    // Texts the last compile remembered may have moved or changed since (a later parse reuses the
    // places of tokens no node took).
    BeginLastingNames();
    cx.scriptName = CheckedStrdup(scriptName ? scriptName : "");
    cx.topLevel = topLevel ? 1 : 0;
    cx.code = CreateWriteBufferFrom(State().spareCode);
    cx.code2 = CreateWriteBufferFrom(State().spareCode2);
    cx.typeStack = static_cast<uint32_t*>(CheckedMalloc(kTypeStackEntries * sizeof(uint32_t)));
    cx.typeCapacity = kTypeStackEntries;
    cx.typeDepth = 0;
    cx.typeHighWater = 0;
    cx.tableEntries = HashEntryPool{&State().compileScratch, nullptr};
    cx.tableEntries.poolsBuckets = true;
    // The lists' nodes are the compile's scratch records, reused as they are popped.
    cx.scopes.spare = &cx.spareListNodes;
    cx.breakTargets.spare = &cx.spareListNodes;
    cx.continueTargets.spare = &cx.spareListNodes;
    InitHashTable(cx.labelTable, kLabelTableBuckets, &cx.tableEntries);
    InitHashTable(cx.slotTable, kSlotTableBuckets, &cx.tableEntries);

    if (NameArray.count == 0) {
        AddVarRecordWithoutSite("prototype", kPatchSelf);
        AddVarRecordWithoutSite("@@array@@", kPatchSelf);
        AddVarRecordWithoutSite("arguments", kPatchLocal);
    }

    if (std::strcmp(cx.scriptName, "global") == 0) {
        // A record made for a script named "global" and dropped unused: only its interned name
        // remains, and the name ids of everything after it depend on that
        // (BeginCompile.ScriptNamedGlobalInternsItsNameAndDropsTheRecord).
        uint32_t index = static_cast<uint32_t>(InternCopy(cx.scriptName));
        NewFunctionRecord(index, index, static_cast<uint64_t>(CodeOffset(cx)));
    }

    CodeGenGlobals& state = CodeGenState();
    if (!state.root) state.root = NewFunctionRecord(kNoName, kNoName, 0);
    PushScope(cx, state.root);
    PushPtr(GlobalFunctionRecords, state.root);
}

// The global scope's record is filled before the buffers are handed out: until then a failure
// leaves both buffers to the context's clean-up.
void EndCompile(CodeGenContext& cx, VMBuffer** code, VMBuffer** code2) {
    if (cx.scopes.last) {
        FillScopeRecord(cx, static_cast<ScopeRecord*>(cx.scopes.last->value));
        PopScope(cx);
    }
    // The finished code is kept with the process's records; the blocks it was written in serve
    // the next compile.
    uint8_t* codeCopy = CopyWritten(*cx.code, State().records);
    uint8_t* code2Copy = CopyWritten(*cx.code2, State().records);
    FinishWithCopy(*cx.code, codeCopy, State().spareCode);
    FinishWithCopy(*cx.code2, code2Copy, State().spareCode2);
    *code = cx.code;
    *code2 = cx.code2;
    cx.code = nullptr;
    cx.code2 = nullptr;
}

void CleanUpContext(CodeGenContext& cx) {
    ClearHashTable(cx.slotTable);
    ClearHashTable(cx.labelTable);
    FreeTargets(cx.continueTargets);
    FreeTargets(cx.breakTargets);
    while (cx.scopes.count > 0) PopScope(cx);
    // Every table of the compile is cleared: its entries and bucket arrays go with the scratch.
    cx.tableEntries.spare = nullptr;
    for (HashBucket*& buckets : cx.tableEntries.spareBuckets) buckets = nullptr;
    std::free(cx.typeStack);
    cx.typeStack = nullptr;
    cx.typeDepth = cx.typeCapacity = 0;
    delete cx.code;
    delete cx.code2;
    cx.code = cx.code2 = nullptr;
    std::free(cx.scriptName);
    cx.scriptName = nullptr;
    FreeStringBuilder(cx.nameScratch);
    FreeStringBuilder(cx.batchNames);
    FreeStringBuilder(cx.qualifierPrefix);
    cx.spareLabels = nullptr;
    cx.spareSites = nullptr;
    cx.spareListNodes = nullptr;
    cx.spareScopes = nullptr;
    cx.spareVarEntries = nullptr;
}

namespace {

// Whether a node of this kind may have statements among its children: a block, a compound
// statement, a clause of `try` or `switch`. (An object literal is `LEX_OBJECT`, never '{'.)
bool MayHoldStatements(uint32_t kind) {
    switch (kind) {
        case '{':
        case LEX_IF:
        case LEX_DO:
        case LEX_WHILE:
        case LEX_WITH:
        case LEX_FOR:
        case LEX_TRY:
        case LEX_CATCH:
        case LEX_FINALLY:
        case LEX_SWITCH:
        case LEX_CASE:
        case LEX_DEFAULT:
            return true;
        default:
            return false;
    }
}

// The names a `LEX_VAR` node declares, each taken once more.
void TakeNames(const Node* declaration, std::vector<RefString*>& names) {
    for (Node* name = declaration->first; name; name = name->next) {
        names.push_back(name->text);
        RetainRefString(name->text);
    }
}

// Walks the list depth first without recursing on the host's stack: each `LEX_VAR` node's names,
// then the nodes inside those of its children that `enter` admits, then its successors. Returns
// how many `LEX_VAR` nodes it met.
template <typename Enter>
uint64_t TakeVarNames(Node* list, std::vector<RefString*>& names, Enter enter) {
    uint64_t met = 0;
    std::vector<Node*> resume;
    Node* node = list;
    for (;;) {
        if (!node) {
            if (resume.empty()) return met;
            node = resume.back();
            resume.pop_back();
            continue;
        }
        PrefetchNodesAhead(node, kLightWalkPrefetchDistance);
        if (node->kind == LEX_VAR) {
            met++;
            TakeNames(node, names);
        }
        if (node->first && enter(node->kind)) {
            resume.push_back(node->next);
            node = node->first;
        } else {
            node = node->next;
        }
    }
}

}  // namespace

// Every node but a function's children.
void CollectVarNames(Node* list, std::vector<RefString*>& names) {
    TakeVarNames(list, names, [](uint32_t kind) { return kind != LEX_FUNCTION; });
}

bool CollectStatementVarNames(const ParsedTree& tree, Node* head, uint64_t declared, std::vector<RefString*>& names) {
    size_t start = names.size();
    // The `var` statements the hoisting put in front, then the statements in their order: the
    // walk of the hoisted list meets them so, and enters none of the hoisted functions.
    uint64_t met = 0;
    Node* node = head;
    for (uint64_t at = 0; at < declared && node; at++, node = node->next) {
        met++;
        TakeNames(node, names);
    }
    for (size_t at = 0; at < tree.statementCount; at++) {
        PrefetchStatementAhead(tree, at);
        Node* statement = tree.statements[at];
        if (statement->kind == LEX_VAR) {
            met++;
            TakeNames(statement, names);
        } else if (statement->first && MayHoldStatements(statement->kind)) {
            met += TakeVarNames(statement->first, names, MayHoldStatements);
        }
    }
    if (met == tree.varNodes + declared) return true;
    for (size_t at = start; at < names.size(); at++) ReleaseRefString(names[at]);
    names.resize(start);
    return false;
}

namespace {

// A short statement's successor begins less than this far after it. The parser carves a
// statement's nodes one after the other (`a = b + 1;` is six nodes, under 700 bytes with their
// position and text records), so the nodes of a few short statements lie within a few of these.
constexpr uintptr_t kShortStatementBytes = 1024;

bool IsShortStatement(const Node* statement) {
    uintptr_t at = reinterpret_cast<uintptr_t>(statement);
    uintptr_t next = reinterpret_cast<uintptr_t>(statement->next);
    return next > at && next - at < kShortStatementBytes;
}

// The identifiers with a lasting text among the first kNamesPerItemAhead nodes of a short
// statement, depth first, for the look-ahead; none for a function declaration, nor inside a
// function. Reads the nodes and changes nothing.
void TakeStatementNames(const Node* statement, NamesAhead& ahead) {
    if (!statement || statement->kind == LEX_FUNCTION || !IsShortStatement(statement)) return;
    const Node* resume[kNamesPerItemAhead];
    int32_t depth = 0;
    const Node* node = statement;
    for (int32_t seen = 0; node && seen < kNamesPerItemAhead; seen++) {
        if (node->kind == LEX_ID && IsLastingText(node->text)) AddNameAhead(ahead, TextHash(node->text->text));
        if (node->first && node->kind != LEX_FUNCTION) {
            if (node != statement) resume[depth++] = node->next;
            node = node->first;
        } else {
            node = node != statement ? node->next : nullptr;
        }
        while (!node && depth > 0) node = resume[--depth];
    }
}

// Asks for the `bytes` from the node on: the records the parser carved after it.
void PrefetchCarvedAfter(const Node* node, uintptr_t bytes) {
    if (!node) return;
    uintptr_t at = reinterpret_cast<uintptr_t>(node);
    for (uintptr_t offset = 0; offset < bytes; offset += 64) __builtin_prefetch(reinterpret_cast<const void*>(at + offset));
}

// The memory of the next short statements, which the next looks ahead will read.
void PrefetchNodesAfter(const Node* statement) { PrefetchCarvedAfter(statement, 2 * kShortStatementBytes); }

// A statement's node, and the records carved right after it: a hoisted `var`'s name node, a
// function's name and its text record.
constexpr uintptr_t kStatementHeadBytes = 256;

// A run of `var` statements looks ahead at their names in four steps, each this many statements
// before the declaration: the statement's nodes (the hoisted ones were made long before, a
// statement and its name one after the other), the name's text record, its text, then (hashed)
// its slot in the global scope's variable index.
constexpr int32_t kVarStepNodes = 16;
constexpr int32_t kVarStepRecord = 12;
constexpr int32_t kVarStepText = 8;
constexpr int32_t kVarStepSlot = 4;

// The statements each step looks at, while a run of `var` statements lasts (null past the list's
// end).
struct VarRunAhead {
    const Node* nodes;
    const Node* record;
    const Node* text;
    const Node* slot;
};

const Node* StatementsOn(const Node* node, int32_t count) {
    for (int32_t step = 0; step < count && node; step++) node = node->next;
    return node;
}

// One step of the run's look-ahead at each of its statements that is a `var` statement. Only
// reads and asks for memory.
void StepVarRunAhead(const CodeGenContext& cx, VarRunAhead& ahead) {
    PrefetchCarvedAfter(ahead.nodes, kStatementHeadBytes);
    if (ahead.record && ahead.record->kind == LEX_VAR) {
        for (const Node* name = ahead.record->first; name; name = name->next) __builtin_prefetch(name->text);
    }
    if (ahead.text && ahead.text->kind == LEX_VAR) {
        for (const Node* name = ahead.text->first; name; name = name->next) {
            if (name->text) __builtin_prefetch(name->text->text);
        }
    }
    if (ahead.slot && ahead.slot->kind == LEX_VAR) {
        const HashTable& vars = static_cast<const ScopeRecord*>(cx.scopes.last->value)->vars;
        for (const Node* name = ahead.slot->first; name; name = name->next) HashPrefetch(vars, NodeNameHash(name));
    }
}

// A function declaration's name (its first child's lasting text), or null.
const char* DeclaredName(const Node* statement) {
    if (!statement || statement->kind != LEX_FUNCTION || !statement->first) return nullptr;
    const RefString* text = statement->first->text;
    return IsLastingText(text) ? text->text : nullptr;
}

// The top-level loop looks ahead at the function declarations to come in three steps: three
// statements on, the nodes (a function's node, its name's text record and its name's node are
// carved one after the other); two on, the name's text; the next one, the slots of the function
// index and the name index where the function's qualified name (at the top level, its name) will
// be looked up. Only reads and asks for memory.
void StepFunctionsAhead(const CodeGenContext& cx, const Node* nodes, const Node* text, const Node* slots) {
    PrefetchCarvedAfter(nodes, kStatementHeadBytes);
    if (const char* name = DeclaredName(text)) __builtin_prefetch(name);
    if (const char* name = DeclaredName(slots)) {
        uint32_t hash = HashQualifiedName(cx, name, std::strlen(name)).hash;
        PrefetchFunctionRecord(hash);
        PrefetchNameStep(hash, kNameStepSlot);
    }
}

// A script of many short top-level statements (`a = b + 1;` a hundred thousand times) spends
// most of its compile waiting for the name table: each name read is a lookup of one of thousands
// of names, whose slot, entry and text the processor's caches no longer hold. Compiling such a
// statement takes several times as long as a read from memory, so while the statements are short
// the loop looks ahead (NamesAhead), having asked for the nodes after the statement three on
// first. Among long statements it looks at the names inside nothing ahead: their few lookups are a
// small part of their compile. It does look at the function declarations to come (their nodes,
// their names and the index slots their names take: StepFunctionsAhead) and at the names a run of
// `var` statements declares (VarRunAhead). Nothing ahead is changed, only read.
void CompileTopLevelStatements(CodeGenContext& cx, Node* list) {
    NamesAhead names;
    ClearNamesAhead(names);
    const Node* ahead = nullptr;   // three statements on, while the statements are short
    bool previousShort = false;
    // A run of `var` statements (the hoisted ones head the list: thousands in a script of thousands
    // of functions) declares a new name in the global scope at each, a lookup in an index far
    // larger than the caches: the run looks ahead at the names (VarRunAhead) while it lasts.
    VarRunAhead vars{};
    bool inVarRun = false;
    for (Node* node = list; node; node = node->next) {
        if (node->kind != LEX_VAR) {
            inVarRun = false;
        } else {
            if (!inVarRun) {
                vars = VarRunAhead{StatementsOn(node, kVarStepNodes), StatementsOn(node, kVarStepRecord),
                                   StatementsOn(node, kVarStepText), StatementsOn(node, kVarStepSlot)};
                inVarRun = true;
            } else {
                vars = VarRunAhead{NextOf(vars.nodes), NextOf(vars.record), NextOf(vars.text), NextOf(vars.slot)};
            }
            StepVarRunAhead(cx, vars);
        }
        // The statements to come, while this one compiles: a function's whole tree lies between two
        // top-level functions.
        const Node* slots = node->next;
        const Node* text = NextOf(slots);
        StepFunctionsAhead(cx, NextOf(text), text, slots);
        bool isShort = IsShortStatement(node);
        if (!isShort) {
            ahead = nullptr;
        } else if (ahead || previousShort) {
            // A look ahead starts at the second short statement in a row: a short statement
            // between long ones (a label before its loop) starts none.
            if (!ahead) {
                ahead = NextOf(NextOf(node));
                ClearNamesAhead(names);
            }
            ahead = NextOf(ahead);
            PrefetchNodesAfter(ahead);
            StepNamesAhead(names);
            TakeStatementNames(ahead, names);
        }
        previousShort = isShort;
        CompileStatement(cx, node, 1);
    }
}

}  // namespace

void CompileStatements(CodeGenContext& cx, Node* list, int flag) {
    for (Node* node = list; node; node = node->next) CompileStatement(cx, node, flag);
}

// Hoisted: var declarations (reverse collection order), functions (reverse source order), the rest.
void CompileProgram(CodeGenContext& cx, Node* firstStatement) {
    if (!firstStatement) return;
    // The top-level statements: the parser's array when it is this list's, else the list gathered
    // into one (a tree compiled before, or built by hand), whose `var` nodes nobody counted.
    bool parsed = cx.parsed && cx.parsed->statementCount > 0 && cx.parsed->statements[0] == firstStatement;
    std::vector<Node*> gathered;
    if (!parsed) {
        for (Node* node = firstStatement; node; node = node->next) {
            PrefetchNodesAhead(node, kLightWalkPrefetchDistance);
            gathered.push_back(node);
        }
    }
    const ParsedTree tree = parsed ? *cx.parsed : ParsedTree{gathered.data(), gathered.size(), 0};
    Node* head = HoistFunctions(tree);
    uint64_t declared = 0;
    if (!cx.topLevel) head = DeclareFunctionNames(head, firstStatement, declared);
    std::vector<RefString*> names;
    try {
        if (!parsed || !CollectStatementVarNames(tree, head, declared, names)) CollectVarNames(head, names);
        for (RefString* name : names) head = InsertAsHead(head, MakeVarDeclaration(name, head->position));
    } catch (...) {
        for (RefString* name : names) ReleaseRefString(name);
        throw;
    }
    for (RefString* name : names) ReleaseRefString(name);
    CompileTopLevelStatements(cx, head);
}
