#include "support/crc32.h"

// Zero until VeltJS_Init builds it; hashing before that uses the zero table.
uint32_t Crc32Table[256];

void BuildCrc32Table() {
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; bit++) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        Crc32Table[i] = c;
    }
}

uint32_t NameHash(const char* name) {
    uint32_t hash = 0xFFFFFFFFu;
    if (!name) return hash;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p; p++) {
        hash = (hash >> 8) ^ Crc32Table[(*p ^ hash) & 255];
    }
    return hash;
}
