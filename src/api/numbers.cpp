// Placeholder until the portable conversions land.
#include "api/numbers.h"

#include <cstdio>
#include <cstdlib>

double ParseDecimal(const char* text) { return std::atof(text); }
int32_t ParseLong32(const char* text, int base) { return static_cast<int32_t>(std::strtol(text, nullptr, base)); }
int32_t TruncateToInt32(double value) { return static_cast<int32_t>(value); }
size_t FormatFixed(double value, char* out, size_t size) {
    return static_cast<size_t>(std::snprintf(out, size, "%f", value));
}
