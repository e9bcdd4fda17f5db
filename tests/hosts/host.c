/* Placeholder host: loads the library and resolves the exports. */
#include <stdio.h>
int main(int argc, char** argv) { (void)argc; (void)argv; return 0; }
