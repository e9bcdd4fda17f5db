// Placeholder until the statement parser lands.
#include "parser/parser.h"

#include "api/strings.h"
#include "lexer/tokens.h"

Parser* MakeParser(Lexer* lexer) {
    Parser* parser = static_cast<Parser*>(CheckedCalloc(1, sizeof(Parser)));
    parser->lexer = lexer;
    parser->root.kind = '{';
    parser->root.text = NewRefString("{");
    parser->root.position = CopyPosition(&lexer->position);
    parser->position = lexer->position;
    return parser;
}

void ParseStatement(Parser*, Node*) {}
