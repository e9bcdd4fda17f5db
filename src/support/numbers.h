// Number conversions that give the same results on every platform and in every locale.
#pragma once

#include <cstddef>
#include <cstdint>

// atof of a decimal literal as the scanner delivers it (digits, '.', exponent), in the "C"
// locale whatever the host process set, correctly rounded to the nearest double.
double ParseDecimal(const char* text);
// strtol with the 32-bit long of the Windows runtime: saturates at INT32_MIN / INT32_MAX.
int32_t ParseLong32(const char* text, int base);
// What the x86 truncating conversion gives: INT32_MIN for NaN and values out of range.
int32_t TruncateToInt32(double value);
// printf("%f") in the "C" locale: six decimals, correctly rounded (ties to even on the exact
// binary value); "inf", "-inf", "nan" and "-nan" for the special values. Returns the length.
size_t FormatFixed(double value, char* out, size_t size);
// Enough room for any FormatFixed result.
constexpr size_t kFormatFixedSize = 330;
