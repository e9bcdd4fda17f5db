// The name hash: CRC-32 (reflected 0xEDB88320) without the final inversion.
#pragma once

#include <cstdint>

extern uint32_t Crc32Table[256];

void BuildCrc32Table();
// A null or empty name hashes to 0xFFFFFFFF.
uint32_t NameHash(const char* name);
