// Placeholder until the source reader lands: every source reads as empty.
#include "lexer/source_reader.h"

#include "api/strings.h"
#include "lexer/tokens.h"

Lexer* MakeLexer(RefString* source, RefString* fileName) {
    Lexer* lexer = static_cast<Lexer*>(CheckedCalloc(1, sizeof(Lexer)));
    lexer->position.source = NewRefHandle(RetainRefString(source));
    lexer->position.fileName = NewRefHandle(RetainRefString(fileName));
    lexer->position.line = 1;
    lexer->position.column = 1;
    lexer->tokenPosition = lexer->position;
    lexer->tokenKind = LEX_EOF;
    lexer->tokenText = NewRefHandle(NewRefString(""));
    return lexer;
}
