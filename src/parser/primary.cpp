// The tightest levels: new, function expressions, member access and calls, primary
// expressions and literals, and brace-delimited blocks.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lexer/scanner.h"
#include "lexer/tokens.h"
#include "parser/parser.h"
#include "support/stack_guard.h"

namespace {

// The helpers below stay out of line so that ParsePrimary and ParseMemberCall, which every
// level of nesting passes through, keep small stack frames.

// FunctionExpression -> 'function' [id] '(' [id (',' id)*] ')' Block
[[gnu::noinline]] Node* ParseFunctionExpression(Parser* parser) {
    Lexer* lexer = parser->lexer;
    Node* f = MakeTokenNode(lexer);
    ScanToken(lexer);
    if (lexer->tokenKind == LEX_ID) {
        AppendChild(f, MakeTokenNode(lexer));
        MatchToken(lexer, LEX_ID);
    } else {
        // The anonymous name slot takes the following token's text ("(" normally): the code
        // generator recognises an anonymous function by it (ParserExpressions.AnonymousFunctionSlotTakesFollowingTokenText).
        AppendChild(f, MakeCurrentNode(lexer, LEX_UNDEFINED));
    }
    ParseParameters(parser, f);
    ParseFunctionBody(parser, f);
    return f;
}

// ArrayLiteral -> '[' (Assignment | ',')* ']'
[[gnu::noinline]] Node* ParseArrayLiteral(Parser* parser) {
    Lexer* lexer = parser->lexer;
    Node* arr = MakeCurrentNode(lexer, LEX_ARRAY);
    ScanToken(lexer);
    for (;;) {
        switch (lexer->tokenKind) {
            case ']':
                ScanToken(lexer);
                return arr;
            case LEX_EOF:
                MatchToken(lexer, ']');
                return arr;
            case ',':
                AppendChild(arr, MakeCurrentNode(lexer, LEX_ELISION));
                ConsumeToken(lexer);
                break;
            default:
                // A missing comma between elements is tolerated: [1 2] has two, and existing
                // scripts rely on it (FrontEnd.ArrayLiteralLeniency).
                AppendChild(arr, ParseAssignment(parser));
                if (lexer->tokenKind == ',') ConsumeToken(lexer);
                break;
        }
    }
}

// Accessor -> ('get' | 'set') name '(' [id] ')' Block, with the key node already made.
void ParseAccessor(Parser* parser, Node* obj, Node* key, uint32_t kind) {
    Lexer* lexer = parser->lexer;
    key->kind = kind;
    AppendChild(obj, key);
    AppendChild(key, MakeCurrentNode(lexer, LEX_ID));
    ScanToken(lexer);
    Node* params = MakeTokenNode(lexer);
    AppendChild(key, params);
    MatchToken(lexer, '(');
    if (kind == LEX_SETTER) {
        Node* p = MakeTokenNode(lexer);
        MatchToken(lexer, LEX_ID);
        AppendChild(params, p);
    }
    MatchToken(lexer, ')');
    ParseBlock(parser, key);
}

bool IsAccessorWord(const Lexer* lexer, const Node* key, const char* word) {
    return lexer->previousKind == LEX_ID && std::strcmp(key->text->text, word) == 0 &&
           lexer->tokenKind != ':';
}

// ObjectLiteral -> '{' [ Property (',' Property)* ] '}'
// Property -> key ':' Assignment | Accessor
[[gnu::noinline]] Node* ParseObjectLiteral(Parser* parser) {
    Lexer* lexer = parser->lexer;
    Node* obj = MakeCurrentNode(lexer, LEX_OBJECT);
    ScanToken(lexer);
    if (lexer->tokenKind == '}') {
        ScanToken(lexer);
        return obj;
    }
    do {
        Node* key = MakeTokenNode(lexer);
        ScanToken(lexer);
        if (IsAccessorWord(lexer, key, "get")) {
            ParseAccessor(parser, obj, key, LEX_GETTER);
        } else if (IsAccessorWord(lexer, key, "set")) {
            ParseAccessor(parser, obj, key, LEX_SETTER);
        } else {
            AppendChild(obj, key);
            MatchToken(lexer, ':');
            AppendChild(key, ParseAssignment(parser));
        }
    } while (MatchEitherToken(lexer, ',', '}') != '}');
    return obj;
}

// Replaces the lexer's token text by `text`.
void SetTokenText(Lexer* lexer, RefString* text) {
    RefString* old = *lexer->tokenText;
    *lexer->tokenText = text;
    ReleaseRefString(old);
}

// The next character of the regular-expression reader; \u escapes resolve here as anywhere
// outside strings.
void AdvanceCharacter(Lexer* lexer) {
    Advance(lexer);
    ResolveEscape(lexer);
}

void AppendCurrent(StringBuilder& builder, Lexer* lexer) {
    AppendCodePoint(builder, lexer->current);
    AdvanceCharacter(lexer);
}

// RegExp -> '/' chars '/' flags, re-read from the characters after the '/' or '/=' token and
// rewritten to new RegExp(pattern, flags).
// The literal's characters after the token's own text: the pattern up to the closing '/', then
// the flags. Reports an unterminated literal.
void ReadRegExp(Lexer* lexer, StringBuilder& builder) {
    AppendText(builder, (*lexer->tokenText)->text);
    bool found = false;
    for (;;) {
        uint32_t c = lexer->current;
        if (c == '/') {
            found = true;
            break;
        }
        if (c == 0 || c == '\n') break;
        if (c == '\\') {
            AppendCurrent(builder, lexer);
            if (lexer->current == 0) break;
        }
        AppendCurrent(builder, lexer);
    }
    if (!found) ReportError(&lexer->position, "unterminated regular expression literal");
    AppendCurrent(builder, lexer);
    while (lexer->current == 'g' || lexer->current == 'i' || lexer->current == 'm' ||
           lexer->current == 'y') {
        AppendCurrent(builder, lexer);
    }
}

// The pattern and the flags of the literal as two string nodes of `call`.
void AppendRegExpArguments(Lexer* lexer, Node* call, const char* literal) {
    char* copy = CheckedStrdup(literal);
    try {
        char* lastSlash = std::strrchr(copy, '/');
        *lastSlash = '\0';
        AppendChild(call, MakeTextNode(lexer, LEX_STR, std::strchr(copy, '/') + 1));
        AppendChild(call, MakeTextNode(lexer, LEX_STR, lastSlash + 1));
    } catch (...) {
        std::free(copy);
        throw;
    }
    std::free(copy);
}

[[gnu::noinline]] Node* ParseRegExp(Parser* parser) {
    Lexer* lexer = parser->lexer;
    StringBuilder builder{};
    RefString* literal;
    try {
        ReadRegExp(lexer, builder);
        literal = AdoptRefString(builder.text);
    } catch (...) {
        FreeStringBuilder(builder);
        throw;
    }
    lexer->tokenKind = LEX_REGEXP;
    SetTokenText(lexer, literal);

    Node* n = MakeNodeIn(*lexer->nodes, LEX_NEW, literal, &lexer->position);
    Node* c = MakeTextNode(lexer, '(', "(");
    AppendChild(n, c);
    AppendChild(c, MakeTextNode(lexer, LEX_ID, "RegExp"));
    AppendRegExpArguments(lexer, c, literal->text);
    ScanToken(lexer);
    return n;
}

// The tree so far on standard output, as a debugging aid before the error below.
[[noreturn]] void ReportNoOperand(Parser* parser) {
    // Streamed, never built whole: its size grows with the square of the tree's depth. Written
    // verbatim: a '%' in the dump is an ordinary character.
    WriteTree(&parser->root, 0, stdout);
    std::fputs("\n", stdout);
    std::fputs("\n\n", stdout);
    std::fflush(stdout);
    ReportError(&parser->lexer->position, "We really expected to get something here...");
}

}  // namespace

// MemberCall -> ('new' MemberCall | FunctionExpression | Primary)
//               ('.' anytoken | '[' Expression ']' | '(' [Assignment (',' Assignment)*] ')')*
Node* ParseMemberCall(Parser* parser, bool inNew) {
    Lexer* lexer = parser->lexer;
    NestingLevel nesting(parser->guard, &lexer->position, kMaxParseNesting);
    Node* expr;
    if (lexer->tokenKind == LEX_NEW) {
        expr = MakeTokenNode(lexer);
        ScanToken(lexer);
        AppendChild(expr, ParseMemberCall(parser, true));
    } else if (lexer->tokenKind == LEX_FUNCTION) {
        expr = ParseFunctionExpression(parser);
    } else {
        expr = ParsePrimary(parser);
    }
    for (;;) {
        switch (lexer->tokenKind) {
            case '.': {
                Node* d = MakeTokenNode(lexer);
                AppendChild(d, expr);
                ScanToken(lexer);
                // Any token names the property, keywords and punctuation included.
                Node* name = MakeCurrentNode(lexer, LEX_ID);
                ScanToken(lexer);
                AppendChild(d, name);
                expr = d;
                break;
            }
            case '[': {
                Node* b = MakeTokenNode(lexer);
                AppendChild(b, expr);
                ScanToken(lexer);
                AppendChild(b, ParseExpression(parser));
                MatchToken(lexer, ']');
                expr = b;
                break;
            }
            case '(': {
                Node* c = MakeTokenNode(lexer);
                AppendChild(c, expr);
                ScanToken(lexer);
                if (lexer->tokenKind == ')') {
                    ScanToken(lexer);
                } else {
                    do {
                        AppendChild(c, ParseAssignment(parser));
                    } while (MatchEitherToken(lexer, ',', ')') != ')');
                }
                // The first argument list belongs to the enclosing 'new'.
                if (inNew) return c;
                expr = c;
                break;
            }
            default:
                return expr;
        }
    }
}

// Primary -> literal | 'this' | id | ArrayLiteral | ObjectLiteral | RegExp | '(' Expression ')'
Node* ParsePrimary(Parser* parser) {
    Lexer* lexer = parser->lexer;
    NestingLevel nesting(parser->guard, &lexer->position, kMaxParseNesting);
    switch (lexer->tokenKind) {
        case '/':
        case LEX_SLASHEQUAL:
            return ParseRegExp(parser);
        case LEX_INT:
        case LEX_STR:
        case LEX_FLOAT:
        case LEX_TRUE:
        case LEX_FALSE:
        case LEX_NULL: {
            Node* literal = MakeCurrentNode(lexer, static_cast<uint32_t>(lexer->tokenKind));
            ScanToken(lexer);
            return literal;
        }
        case LEX_THIS:
        case LEX_ID: {
            Node* name = MakeTokenNode(lexer);
            ScanToken(lexer);
            return name;
        }
        case '[':
            return ParseArrayLiteral(parser);
        case '{':
            return ParseObjectLiteral(parser);
        case '(': {
            ScanToken(lexer);
            Node* e = ParseExpression(parser);
            MatchToken(lexer, ')');
            return e;
        }
        default:
            ReportNoOperand(parser);
    }
}

// Parameters -> '(' [id (',' id)*] ')', as a '(' node of the function
void ParseParameters(Parser* parser, Node* function) {
    Lexer* lexer = parser->lexer;
    Node* params = MakeTokenNode(lexer);
    AppendChild(function, params);
    MatchToken(lexer, '(');
    if (lexer->tokenKind == ')') {
        ScanToken(lexer);
        return;
    }
    do {
        AppendChild(params, MakeTokenNode(lexer));
        MatchToken(lexer, LEX_ID);
    } while (MatchEitherToken(lexer, ',', ')') != ')');
}

void ParseFunctionBody(Parser* parser, Node* function) {
    uint64_t before = parser->lexer->varTokenNodes;
    parser->functionDepth++;
    ParseBlock(parser, function);
    // A failed parse leaves no tree, so the count need not survive an error.
    if (--parser->functionDepth == 0) parser->varTokenNodesInFunctions += parser->lexer->varTokenNodes - before;
}

// Block -> '{' Statement* '}'
void ParseBlock(Parser* parser, Node* parent) {
    Lexer* lexer = parser->lexer;
    Node* b = MakeTokenNode(lexer);
    AppendChild(parent, b);
    MatchToken(lexer, '{');
    while (lexer->tokenKind != '}' && lexer->tokenKind != LEX_EOF) ParseStatement(parser, b);
    MatchToken(lexer, '}');
}
