// The binary, conditional, assignment and unary levels of the expression grammar.
#include <cstdlib>
#include <cstring>

#include "lexer/scanner.h"
#include "lexer/tokens.h"
#include "parser/parser.h"
#include "support/stack_guard.h"
#include "support/strings.h"

namespace {

bool IsAssignmentOperator(int32_t kind) {
    return kind == '=' || (kind >= LEX_PLUSEQUAL && kind <= LEX_XOREQUAL);
}

// The binary levels from loosest to tightest.
enum BinaryLevel : int32_t {
    kLevelLogicalOr,
    kLevelLogicalAnd,
    kLevelBitOr,
    kLevelBitXor,
    kLevelBitAnd,
    kLevelEquality,
    kLevelRelational,
    kLevelShift,
    kLevelAdditive,
    kLevelMultiplicative,
};

// How a run of one level's operators is shaped.
enum RunShape { kRightNested, kFlat, kLeftNested };

RunShape ShapeOf(int32_t level) {
    if (level <= kLevelLogicalAnd) return kRightNested;
    if (level <= kLevelShift) return kFlat;
    return kLeftNested;
}

// The level of a binary operator token, or -1.
int32_t LevelOf(const Parser* parser, int32_t kind) {
    switch (kind) {
        case LEX_OROR: return kLevelLogicalOr;
        case LEX_ANDAND: return kLevelLogicalAnd;
        case '|': return kLevelBitOr;
        case '^': return kLevelBitXor;
        case '&': return kLevelBitAnd;
        case LEX_EQUAL:
        case LEX_TYPEEQUAL:
        case LEX_NEQUAL:
        case LEX_NTYPEEQUAL:
            return kLevelEquality;
        case '<':
        case '>':
        case LEX_LEQUAL:
        case LEX_GEQUAL:
        case LEX_INSTANCEOF:
            return kLevelRelational;
        case LEX_IN:
            return (parser->flags & kParserNoIn) == 0 ? kLevelRelational : -1;
        case LEX_LSHIFT:
        case LEX_RSHIFT:
        case LEX_RSHIFTU:
            return kLevelShift;
        case '+':
        case '-':
            return kLevelAdditive;
        case '*':
        case '/':
        case '%':
            return kLevelMultiplicative;
        default:
            return -1;
    }
}

void PushOperand(Parser* parser, Node* node) {
    if (parser->operandCount == parser->operandCapacity) GrowParserArray(parser->operands, parser->operandCapacity);
    parser->operands[parser->operandCount++] = node;
}

void PushOperator(Parser* parser, Node* node, int32_t level) {
    if (parser->operatorCount == parser->operatorCapacity) GrowParserArray(parser->operators, parser->operatorCapacity);
    parser->operators[parser->operatorCount++] = PendingOperator{node, level, 2};
}

// Gives the newest pending operator its operands, in source order, and makes it an operand.
void Reduce(Parser* parser) {
    PendingOperator op = parser->operators[--parser->operatorCount];
    uint32_t first = parser->operandCount - op.arity;
    for (uint32_t i = first; i < parser->operandCount; i++) AppendChild(op.node, parser->operands[i]);
    parser->operandCount = first;
    PushOperand(parser, op.node);
}

// The binary levels from `minLevel` down to the multiplicative one, in one loop with explicit
// stacks. The shapes are exactly those of one routine per level: || and && nest to the right,
// + - * / % to the left, and the flat levels gather a run into the node of its first operator.
Node* ParseBinary(Parser* parser, int32_t minLevel) {
    Lexer* lexer = parser->lexer;
    uint32_t operatorBase = parser->operatorCount;
    for (;;) {
        PushOperand(parser, ParseUnary(parser));
        int32_t level = LevelOf(parser, lexer->tokenKind);
        if (level < minLevel) break;
        while (parser->operatorCount > operatorBase) {
            const PendingOperator& top = parser->operators[parser->operatorCount - 1];
            if (top.level < level || (top.level == level && ShapeOf(level) != kLeftNested)) break;
            Reduce(parser);
        }
        PendingOperator* top =
            parser->operatorCount > operatorBase ? &parser->operators[parser->operatorCount - 1] : nullptr;
        if (top && top->level == level && ShapeOf(level) == kFlat) {
            // Later operators of a flat run are consumed but leave no trace; the code
            // generator expects exactly that.
            top->arity++;
        } else {
            PushOperator(parser, MakeTokenNode(lexer), level);
        }
        ConsumeToken(lexer);
    }
    while (parser->operatorCount > operatorBase) Reduce(parser);
    return parser->operands[--parser->operandCount];
}

bool IsPrefixOperator(int32_t kind) {
    switch (kind) {
        case '!':
        case '+':
        case '-':
        case '~':
        case LEX_PLUSPLUS:
        case LEX_MINUSMINUS:
        case LEX_TYPEOF:
        case LEX_VOID:
        case LEX_DELETE:
            return true;
        default:
            return false;
    }
}

// One node for a whole run of one operator: its operands are all children.
template <Node* (*operand)(Parser*)>
Node* ParseFlatSingle(Parser* parser, int32_t op) {
    Lexer* lexer = parser->lexer;
    Node* left = operand(parser);
    if (lexer->tokenKind != op) return left;
    Node* node = MakeTokenNode(lexer);
    AppendChild(node, left);
    do {
        MatchToken(lexer, op);
        AppendChild(node, operand(parser));
    } while (lexer->tokenKind == op);
    return node;
}

}  // namespace

// Expression -> Assignment (',' Assignment)*
Node* ParseExpression(Parser* parser) { return ParseFlatSingle<ParseAssignment>(parser, ','); }

// Assignment -> Conditional [ '=>' (Block | Assignment) | AssignOp Assignment ]
Node* ParseAssignment(Parser* parser) {
    Lexer* lexer = parser->lexer;
    NestingLevel nesting(parser->guard, &lexer->position, kMaxParseNesting);
    Node* left = ParseConditional(parser);
    if (lexer->tokenKind == LEX_ARROW) {
        Node* node = MakeTokenNode(lexer);
        ConsumeToken(lexer);
        AppendChild(node, left);
        if (lexer->tokenKind == '{') {
            ParseBlock(parser, node);
        } else {
            AppendChild(node, ParseAssignment(parser));
        }
        return node;
    }
    if (IsAssignmentOperator(lexer->tokenKind)) {
        Node* node = MakeTokenNode(lexer);
        AppendChild(node, left);
        ConsumeToken(lexer);
        AppendChild(node, ParseAssignment(parser));
        return node;
    }
    return left;
}

// Conditional -> LogicalOr [ '?' Assignment ':' Assignment ]
Node* ParseConditional(Parser* parser) {
    Lexer* lexer = parser->lexer;
    Node* cond = ParseLogicalOr(parser);
    if (lexer->tokenKind != '?') return cond;
    Node* node = MakeTokenNode(lexer);
    AppendChild(node, cond);
    MatchToken(lexer, '?');
    AppendChild(node, ParseAssignment(parser));
    MatchToken(lexer, ':');
    AppendChild(node, ParseAssignment(parser));
    return node;
}

// LogicalOr -> LogicalAnd ('||' LogicalAnd)*
Node* ParseLogicalOr(Parser* parser) { return ParseBinary(parser, kLevelLogicalOr); }

// LogicalAnd -> BitOr ('&&' BitOr)*
Node* ParseLogicalAnd(Parser* parser) { return ParseBinary(parser, kLevelLogicalAnd); }

// BitOr -> BitXor ('|' BitXor)*
Node* ParseBitOr(Parser* parser) { return ParseBinary(parser, kLevelBitOr); }

// BitXor -> BitAnd ('^' BitAnd)*
Node* ParseBitXor(Parser* parser) { return ParseBinary(parser, kLevelBitXor); }

// BitAnd -> Equality ('&' Equality)*
Node* ParseBitAnd(Parser* parser) { return ParseBinary(parser, kLevelBitAnd); }

// Equality -> Relational (('==' | '===' | '!=' | '!==') Relational)*
Node* ParseEquality(Parser* parser) { return ParseBinary(parser, kLevelEquality); }

// Relational -> Shift (('<' | '>' | '<=' | '>=' | 'instanceof' | 'in' unless NoIn) Shift)*
Node* ParseRelational(Parser* parser) { return ParseBinary(parser, kLevelRelational); }

// Shift -> Additive (('<<' | '>>' | '>>>') Additive)*
Node* ParseShift(Parser* parser) { return ParseBinary(parser, kLevelShift); }

// Additive -> Multiplicative (('+' | '-') Multiplicative)*
Node* ParseAdditive(Parser* parser) { return ParseBinary(parser, kLevelAdditive); }

// Multiplicative -> Unary (('*' | '/' | '%') Unary)*
Node* ParseMultiplicative(Parser* parser) { return ParseBinary(parser, kLevelMultiplicative); }

// Longest prefix chain accepted. Collecting the chain costs no stack, but every later walk of
// the tree descends it level by level, so an unbounded chain only moves the failure elsewhere.
constexpr int32_t kMaxPrefixChain = 10000;

// Unary -> PrefixOp* MemberCall [ '++' | '--' ]
Node* ParseUnary(Parser* parser) {
    Lexer* lexer = parser->lexer;
    Node* outermost = nullptr;
    Node* innermost = nullptr;
    int32_t chain = 0;
    while (IsPrefixOperator(lexer->tokenKind)) {
        if (++chain > kMaxPrefixChain) ReportError(&lexer->position, "nesting too deep");
        Node* n = MakeTokenNode(lexer);
        ConsumeToken(lexer);
        if (innermost) {
            AppendChild(innermost, n);
        } else {
            outermost = n;
        }
        innermost = n;
    }
    Node* operand = ParseMemberCall(parser, false);
    if (lexer->tokenKind == LEX_PLUSPLUS || lexer->tokenKind == LEX_MINUSMINUS) {
        Node* p = MakeTokenNode(lexer);
        p->kind = lexer->tokenKind == LEX_PLUSPLUS ? LEX_POSTPLUSPLUS : LEX_POSTMINUSMINUS;
        AppendChild(p, operand);
        ConsumeToken(lexer);
        operand = p;
    }
    if (!innermost) return operand;
    AppendChild(innermost, operand);
    return outermost;
}
