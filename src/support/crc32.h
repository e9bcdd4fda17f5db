// CRC-32 with the reflected polynomial 0xEDB88320, start 0xFFFFFFFF and no final inversion: the
// name hash. The table lives in the process state (NameHash).
#pragma once

#include <cstdint>

void FillCrc32Table(uint32_t (&table)[256]);
// A null or empty text gives 0xFFFFFFFF.
uint32_t Crc32WithoutFinalXor(const uint32_t (&table)[256], const char* text);
