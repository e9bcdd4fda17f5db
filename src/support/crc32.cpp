#include "support/crc32.h"

void FillCrc32Table(uint32_t (&table)[256]) {
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; bit++) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        table[i] = c;
    }
}

uint32_t Crc32WithoutFinalXor(const uint32_t (&table)[256], const char* text) {
    uint32_t hash = 0xFFFFFFFFu;
    if (!text) return hash;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++) {
        hash = (hash >> 8) ^ table[(*p ^ hash) & 255];
    }
    return hash;
}
