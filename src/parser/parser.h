// The recursive-descent parser.
#pragma once

#include <cstdint>

#include "lexer/source_reader.h"
#include "parser/node.h"
#include "support/stack_guard.h"

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
};

// The parser record with its root '{' node (text "{").
Parser* MakeParser(Lexer* lexer);

void ParseStatement(Parser* parser, Node* parent);
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
void ParseParameters(Parser* parser, Node* function);
