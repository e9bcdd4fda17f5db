// veltjs: the command-line host.
#include <cstdio>
#include <cstring>

#include "veltjs.h"

int main(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0) {
        std::printf("usage: veltjs FILE.js | veltjs disasm FILE | veltjs --help\n");
        return argc < 2 ? 2 : 0;
    }
    VeltJS_Init();
    return 0;
}
