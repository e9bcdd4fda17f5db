// The statement parser: one statement per call, appended to the given parent.
#include "lexer/scanner.h"
#include "lexer/tokens.h"
#include "parser/parser.h"
#include "support/diagnostics.h"
#include "support/stack_guard.h"
#include "support/strings.h"

Parser* MakeParser(Lexer* lexer) {
    Parser* parser = static_cast<Parser*>(CheckedCalloc(1, sizeof(Parser)));
    parser->lexer = lexer;
    parser->root.kind = '{';
    parser->root.text = NewRefString("{");
    parser->root.position = CopyPosition(&lexer->position);
    parser->position = lexer->position;
    BeginStackGuard(parser->guard);
    return parser;
}

namespace {

// Node from the keyword token, appended to `parent`, keyword consumed.
Node* StartStatement(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = MakeTokenNode(lexer);
    MatchToken(lexer, lexer->tokenKind);
    AppendChild(parent, node);
    return node;
}

// '(' Expression ')' appended to `node`.
void ParseCondition(Parser* parser, Node* node) {
    Lexer* lexer = parser->lexer;
    MatchToken(lexer, '(');
    AppendChild(node, ParseExpression(parser));
    MatchToken(lexer, ')');
}

// IfStatement -> 'if' '(' Expression ')' Statement [ 'else' Statement ]
void ParseIf(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    ParseCondition(parser, node);
    ParseStatement(parser, node);
    if (lexer->tokenKind == LEX_ELSE) {
        ConsumeToken(lexer);
        ParseStatement(parser, node);
    }
}

// DoStatement -> 'do' Statement 'while' '(' Expression ')'
void ParseDo(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    ParseStatement(parser, node);
    // The body is always the first child, so an empty one gets a ';' filler (do only).
    if (node->count == 0) AppendChild(node, MakeTextNode(lexer, ';', ";"));
    MatchToken(lexer, LEX_WHILE);
    ParseCondition(parser, node);
}

// WhileStatement -> 'while' '(' Expression ')' Statement; WithStatement likewise with 'with'
void ParseWhileOrWith(Parser* parser, Node* parent) {
    Node* node = StartStatement(parser, parent);
    ParseCondition(parser, node);
    ParseStatement(parser, node);
}

// VarDeclaration -> ('var' | 'const') id ['=' Assignment] (',' id ['=' Assignment])*
Node* ParseVarDeclaration(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = MakeTokenNode(lexer);
    AppendChild(parent, node);
    do {
        ConsumeToken(lexer);
        Node* name = MakeTokenNode(lexer);
        AppendChild(node, name);
        MatchToken(lexer, LEX_ID);
        if (lexer->tokenKind == '=') {
            ConsumeToken(lexer);
            AppendChild(name, ParseAssignment(parser));
        }
    } while (lexer->tokenKind == ',');
    return node;
}

// ForStatement -> 'for' '(' [VarDeclaration | Expression] ';' [Expression] ';' [Expression] ')'
//                 Statement
//               | 'for' '(' (VarDeclaration | Expression) 'in' Expression ')' Statement
void ParseFor(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    MatchToken(lexer, '(');
    uint32_t flags = parser->flags;
    parser->flags |= kParserNoIn;
    if (lexer->tokenKind == LEX_VAR) {
        ParseVarDeclaration(parser, node);
    } else if (lexer->tokenKind == ';') {
        AppendChild(node, MakeTokenNode(lexer));
    } else {
        AppendChild(node, ParseExpression(parser));
    }
    parser->flags = flags;
    if (lexer->tokenKind != ';') {
        Node* in = MakeTokenNode(lexer);
        MatchToken(lexer, LEX_IN);
        AppendChild(node, in);
        AppendChild(node, ParseExpression(parser));
        MatchToken(lexer, ')');
        ParseStatement(parser, node);
        return;
    }
    ConsumeToken(lexer);
    if (lexer->tokenKind == ';') {
        // An absent condition reads as true; its text is that of the ';' standing there.
        AppendChild(node, MakeNodeIn(*lexer->nodes, LEX_TRUE, *lexer->tokenText, &lexer->position));
    } else {
        AppendChild(node, ParseExpression(parser));
    }
    MatchToken(lexer, ';');
    if (lexer->tokenKind == ')') {
        AppendChild(node, MakeTextNode(lexer, ';', ";"));
    } else {
        AppendChild(node, ParseExpression(parser));
    }
    MatchToken(lexer, ')');
    ParseStatement(parser, node);
}

// BreakStatement -> 'break' [id]; ContinueStatement -> 'continue' [id]
void ParseBreakOrContinue(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    if (lexer->tokenKind == LEX_ID) {
        AppendChild(node, MakeTokenNode(lexer));
        MatchToken(lexer, LEX_ID);
    }
}

// ReturnStatement -> 'return' [Expression]; ThrowStatement -> 'throw' [Expression]
void ParseReturnOrThrow(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    if (lexer->tokenKind != ';' && lexer->tokenKind != '}') AppendChild(node, ParseExpression(parser));
}

// TryStatement -> 'try' Block [ 'catch' '(' id ')' Block ] [ 'finally' Block ]
void ParseTry(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    ParseBlock(parser, node);
    if (lexer->tokenKind == LEX_CATCH) {
        Node* clause = StartStatement(parser, node);
        MatchToken(lexer, '(');
        AppendChild(clause, MakeTokenNode(lexer));
        MatchToken(lexer, LEX_ID);
        MatchToken(lexer, ')');
        ParseBlock(parser, clause);
    }
    if (lexer->tokenKind == LEX_FINALLY) {
        Node* clause = StartStatement(parser, node);
        ParseBlock(parser, clause);
    }
}

bool EndsClause(int32_t kind) {
    return kind == '}' || kind == LEX_CASE || kind == LEX_DEFAULT || kind == LEX_EOF;
}

// SwitchStatement -> 'switch' '(' Expression ')' '{' ( 'case' Expression ':' Statement*
//                    | 'default' ':' Statement* )* '}'
void ParseSwitch(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    ParseCondition(parser, node);
    MatchToken(lexer, '{');
    while (lexer->tokenKind != '}' && lexer->tokenKind != LEX_EOF) {
        if (lexer->tokenKind != LEX_CASE && lexer->tokenKind != LEX_DEFAULT) {
            MatchEitherToken(lexer, LEX_CASE, LEX_DEFAULT);
        }
        bool isCase = lexer->tokenKind == LEX_CASE;
        Node* clause = StartStatement(parser, node);
        if (isCase) AppendChild(clause, ParseExpression(parser));
        MatchToken(lexer, ':');
        while (!EndsClause(lexer->tokenKind)) ParseStatement(parser, clause);
    }
    MatchToken(lexer, '}');
}

// FunctionDeclaration -> 'function' id '(' [id (',' id)*] ')' Block
void ParseFunctionDeclaration(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* node = StartStatement(parser, parent);
    AppendChild(node, MakeTokenNode(lexer));
    MatchToken(lexer, LEX_ID);
    ParseParameters(parser, node);
    ParseFunctionBody(parser, node);
}

// ExpressionStatement -> Expression; LabelledStatement -> id ':' (the statement follows as a
// sibling)
void ParseExpressionOrLabel(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* expression = ParseExpression(parser);
    if (lexer->tokenKind == ':' && expression->kind == LEX_ID) {
        Node* label = MakeTokenNode(lexer);
        ConsumeToken(lexer);
        AppendChild(label, expression);
        AppendChild(parent, label);
        return;
    }
    AppendChild(parent, expression);
}

}  // namespace

void ParseTopLevelStatement(Parser* parser) {
    Node* last = parser->root.last;
    ParseStatement(parser, &parser->root);
    for (Node* node = last ? last->next : parser->root.first; node; node = node->next) {
        if (parser->statementCount == parser->statementCapacity) GrowParserArray(parser->statements, parser->statementCapacity);
        parser->statements[parser->statementCount++] = node;
    }
}

void ReleaseParsedStatements(Parser* parser) {
    std::free(parser->statements);
    parser->statements = nullptr;
    parser->statementCount = parser->statementCapacity = 0;
}

int64_t ParsedVarNodesOutsideFunctions(const Parser* parser) {
    if (parser->hoisted) return -1;
    return static_cast<int64_t>(parser->lexer->varTokenNodes - parser->varTokenNodesInFunctions);
}

// Statement -> Block | If | Do | While | For | Break | Continue | Return | Var | With | Try
//            | Throw | Switch | FunctionDeclaration | ';' | ExpressionStatement | Label, [';']
void ParseStatement(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    NestingLevel nesting(parser->guard, &lexer->position, kMaxParseNesting);
    switch (lexer->tokenKind) {
        case LEX_EOF:
            return;
        case ';':
            ConsumeToken(lexer);
            break;
        case '{':
            ParseBlock(parser, parent);
            break;
        case LEX_IF:
            ParseIf(parser, parent);
            break;
        case LEX_DO:
            ParseDo(parser, parent);
            break;
        case LEX_WHILE:
        case LEX_WITH:
            ParseWhileOrWith(parser, parent);
            break;
        case LEX_FOR:
            ParseFor(parser, parent);
            break;
        case LEX_BREAK:
        case LEX_CONTINUE:
            ParseBreakOrContinue(parser, parent);
            break;
        case LEX_RETURN:
        case LEX_THROW:
            ParseReturnOrThrow(parser, parent);
            break;
        case LEX_VAR:
        case LEX_CONST:
            ParseVarDeclaration(parser, parent);
            break;
        case LEX_TRY:
            ParseTry(parser, parent);
            break;
        case LEX_SWITCH:
            ParseSwitch(parser, parent);
            break;
        case LEX_FUNCTION:
            ParseFunctionDeclaration(parser, parent);
            break;
        default:
            // 'let' is no statement keyword: it takes this route and fails as an expression, with
            // the message scripts get for it (ParserStatements.LetTakesTheExpressionRoute).
            ParseExpressionOrLabel(parser, parent);
            break;
    }
    // Every statement's terminating ';' is optional.
    if (lexer->tokenKind == ';') ConsumeToken(lexer);
}
