// Placeholder until the compile driver lands.
#include "codegen/codegen.h"

void CompileProgram(CodeGenContext&, Node*) {}
