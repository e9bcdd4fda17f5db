// The recursive-descent parser.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "lexer/source_reader.h"
#include "parser/node.h"
#include "support/stack_guard.h"
#include "support/strings.h"

constexpr uint32_t kParserNoIn = 1;

// An operator of the binary levels waiting for its operands.
struct PendingOperator {
    Node* node;
    int32_t level;
    uint32_t arity;   // operands it takes: 2, or more for a flat run
};

struct Parser {
    Lexer* lexer;
    Node root;                 // the top-level '{' block
    SourcePosition position;   // copy of the lexer's position when the parser was made
    uint32_t flags;
    // Work stacks of the binary levels, shared by nested expressions: each use takes the part
    // above where it started, so nesting costs no stack of the host thread here.
    Node** operands;
    uint32_t operandCount;
    uint32_t operandCapacity;
    PendingOperator* operators;
    uint32_t operatorCount;
    uint32_t operatorCapacity;
    StackGuard guard;          // the recursion of this parse
    // Function bodies being parsed, and the `LEX_VAR` token nodes (Lexer::varTokenNodes) made
    // inside the outermost ones: every such node lies under a `LEX_FUNCTION` node.
    uint32_t functionDepth;
    uint64_t varTokenNodesInFunctions;
    // Set by the first compile of the tree, which inserts `var` statements of its own.
    bool hoisted;
    // The top-level statements in order, as the root's list holds them until a compile hoists
    // declarations: the compile's hoisting steps read them from here instead of following the
    // list's links from statement to statement, one wait for memory each in a large script.
    Node** statements;
    uint32_t statementCount;
    uint32_t statementCapacity;
};

// A work array of the parser, twice as large (16 entries at first); throws when there is no memory,
// with the array unchanged.
template <typename T>
void GrowParserArray(T*& items, uint32_t& capacity) {
    if (capacity > UINT32_MAX / 2) throw std::bad_alloc();
    uint32_t grown = capacity < 16 ? 16 : capacity * 2;
    T* bigger = static_cast<T*>(CheckedMalloc(sizeof(T) * grown));
    if (items) std::memcpy(bigger, items, sizeof(T) * capacity);
    std::free(items);
    items = bigger;
    capacity = grown;
}

// The parser record with its root '{' node (text "{").
Parser* MakeParser(Lexer* lexer);

void ParseStatement(Parser* parser, Node* parent);
// One top-level statement, appended to the root block and to `Parser::statements`.
void ParseTopLevelStatement(Parser* parser);
Node* ParseExpression(Parser* parser);
Node* ParseAssignment(Parser* parser);
Node* ParseConditional(Parser* parser);
Node* ParseLogicalOr(Parser* parser);
Node* ParseLogicalAnd(Parser* parser);
Node* ParseBitOr(Parser* parser);
Node* ParseBitXor(Parser* parser);
Node* ParseBitAnd(Parser* parser);
Node* ParseEquality(Parser* parser);
Node* ParseRelational(Parser* parser);
Node* ParseShift(Parser* parser);
Node* ParseAdditive(Parser* parser);
Node* ParseMultiplicative(Parser* parser);
Node* ParseUnary(Parser* parser);
Node* ParseMemberCall(Parser* parser, bool inNew);
Node* ParsePrimary(Parser* parser);
void ParseBlock(Parser* parser, Node* parent);
// A function's body block, appended to its `LEX_FUNCTION` node.
void ParseFunctionBody(Parser* parser, Node* function);
// The most `LEX_VAR` nodes the tree can hold outside the children of `LEX_FUNCTION` nodes: those
// the parser made outside function bodies. -1 once a compile has hoisted declarations into the
// tree, as its `var` statements are none of the parser's.
int64_t ParsedVarNodesOutsideFunctions(const Parser* parser);
// Frees `statements` (the tree's list is all there is once a compile has hoisted into it).
void ReleaseParsedStatements(Parser* parser);
void ParseParameters(Parser* parser, Node* function);
