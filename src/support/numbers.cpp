// Number conversions done with exact integer arithmetic (or one IEEE operation where that is
// exact before its single rounding), so that neither the host's locale nor the platform's C
// runtime can change a parsed literal or a listed double.
#include "support/numbers.h"

#include <cfloat>
#include <cstring>

namespace {

// Unsigned integer of fixed capacity, little-endian 32-bit limbs. The largest value any
// conversion below builds is under 2^2700 (a 800-digit mantissa against 5^1125), so 4096 bits
// leave a wide margin; nothing here allocates.
struct BigInt {
    static constexpr int kLimbs = 128;
    uint32_t limb[kLimbs];
    int size;  // limbs in use; the top one is non-zero (size 0 is the value zero)
};

void SetSmall(BigInt& x, uint64_t value) {
    x.size = 0;
    while (value != 0) {
        x.limb[x.size++] = static_cast<uint32_t>(value);
        value >>= 32;
    }
}

void Trim(BigInt& x) {
    while (x.size > 0 && x.limb[x.size - 1] == 0) x.size--;
}

// x = x * factor + addend
void MulAdd(BigInt& x, uint32_t factor, uint32_t addend) {
    uint64_t carry = addend;
    for (int i = 0; i < x.size; i++) {
        uint64_t product = static_cast<uint64_t>(x.limb[i]) * factor + carry;
        x.limb[i] = static_cast<uint32_t>(product);
        carry = product >> 32;
    }
    if (carry != 0) x.limb[x.size++] = static_cast<uint32_t>(carry);
}

void MulPow5(BigInt& x, int64_t exponent) {
    // 5^13 is the largest power of five that fits 32 bits.
    while (exponent >= 13) {
        MulAdd(x, 1220703125u, 0);
        exponent -= 13;
    }
    uint32_t rest = 1;
    while (exponent-- > 0) rest *= 5;
    if (rest != 1) MulAdd(x, rest, 0);
}

void ShiftLeft(BigInt& x, int64_t bits) {
    if (x.size == 0 || bits <= 0) return;
    int limbs = static_cast<int>(bits / 32);
    int shift = static_cast<int>(bits % 32);
    int from = x.size;
    x.size += limbs + 1;
    x.limb[x.size - 1] = 0;
    for (int i = from - 1; i >= 0; i--) {
        uint32_t value = x.limb[i];
        if (shift != 0) {
            x.limb[i + limbs + 1] |= value >> (32 - shift);
            x.limb[i + limbs] = value << shift;
        } else {
            x.limb[i + limbs] = value;
        }
    }
    for (int i = 0; i < limbs; i++) x.limb[i] = 0;
    Trim(x);
}

void ShiftRightOne(BigInt& x) {
    for (int i = 0; i < x.size; i++) {
        uint32_t high = i + 1 < x.size ? x.limb[i + 1] << 31 : 0;
        x.limb[i] = (x.limb[i] >> 1) | high;
    }
    Trim(x);
}

int64_t BitLength(const BigInt& x) {
    if (x.size == 0) return 0;
    uint32_t top = x.limb[x.size - 1];
    int bits = 0;
    while (top != 0) {
        bits++;
        top >>= 1;
    }
    return static_cast<int64_t>(x.size - 1) * 32 + bits;
}

int Compare(const BigInt& a, const BigInt& b) {
    if (a.size != b.size) return a.size < b.size ? -1 : 1;
    for (int i = a.size - 1; i >= 0; i--) {
        if (a.limb[i] != b.limb[i]) return a.limb[i] < b.limb[i] ? -1 : 1;
    }
    return 0;
}

// a -= b, with a >= b.
void Subtract(BigInt& a, const BigInt& b) {
    int64_t borrow = 0;
    for (int i = 0; i < a.size; i++) {
        int64_t difference = static_cast<int64_t>(a.limb[i]) - (i < b.size ? b.limb[i] : 0) - borrow;
        borrow = difference < 0 ? 1 : 0;
        a.limb[i] = static_cast<uint32_t>(difference + (borrow << 32));
    }
    Trim(a);
}

// x /= divisor, returning the remainder.
uint32_t DivSmall(BigInt& x, uint32_t divisor) {
    uint64_t remainder = 0;
    for (int i = x.size - 1; i >= 0; i--) {
        uint64_t current = remainder << 32 | x.limb[i];
        x.limb[i] = static_cast<uint32_t>(current / divisor);
        remainder = current % divisor;
    }
    Trim(x);
    return static_cast<uint32_t>(remainder);
}

bool BitAt(const BigInt& x, int64_t bit) {
    int64_t index = bit / 32;
    return index < x.size && ((x.limb[index] >> (bit % 32)) & 1u) != 0;
}

// Whether any bit below `bit` is set.
bool AnyBitBelow(const BigInt& x, int64_t bit) {
    int64_t whole = bit / 32;
    for (int64_t i = 0; i < whole && i < x.size; i++) {
        if (x.limb[i] != 0) return true;
    }
    if (whole < x.size && bit % 32 != 0) {
        uint32_t mask = (1u << (bit % 32)) - 1;
        if ((x.limb[whole] & mask) != 0) return true;
    }
    return false;
}

double FromBits(uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// The double nearest to (quotient + f) * 2^exponent, where 0 < f < 1 exactly when `inexact`;
// ties go to even. quotient needs at least 55 significant bits whenever inexact is true, so
// the rounding position always lies inside it.
double RoundToDouble(uint64_t quotient, int64_t exponent, bool inexact) {
    if (quotient == 0) return 0.0;
    int length = 64;
    while ((quotient >> (length - 1)) == 0) length--;
    int64_t drop = length - 53;
    if (drop < -1074 - exponent) drop = -1074 - exponent;  // subnormal: the last bit is 2^-1074
    uint64_t mantissa;
    if (drop <= 0) {
        mantissa = quotient;  // exact: no bits are lost
        drop = 0;
    } else if (drop >= 64) {
        // The whole quotient lies below half the smallest subnormal: the value rounds to zero.
        return 0.0;
    } else {
        mantissa = quotient >> drop;
        uint64_t rest = quotient & ((uint64_t{1} << drop) - 1);
        uint64_t half = uint64_t{1} << (drop - 1);
        if (rest > half || (rest == half && (inexact || (mantissa & 1) != 0))) mantissa++;
    }
    int64_t scale = exponent + drop;
    if (mantissa == 0) return 0.0;
    while (mantissa >= (uint64_t{1} << 53)) {
        mantissa >>= 1;
        scale++;
    }
    while (mantissa < (uint64_t{1} << 52) && scale > -1074) {
        mantissa <<= 1;
        scale--;
    }
    if (mantissa < (uint64_t{1} << 52)) return FromBits(mantissa);  // subnormal, scale is -1074
    int64_t biased = scale + 52 + 1023;
    if (biased >= 2047) return FromBits(uint64_t{0x7FF} << 52);
    return FromBits(static_cast<uint64_t>(biased) << 52 | (mantissa & ((uint64_t{1} << 52) - 1)));
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

int DigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'z') return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
    return 99;
}

// Every integer of up to 15 decimal digits, and every power of ten up to 10^22, is a double.
constexpr int kExactDigits = 15;
constexpr int kExactPowerOfTen = 22;
constexpr double kPowersOfTen[kExactPowerOfTen + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                       1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                       1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
// One rounding per operation, in double precision (SSE2 on both targets, not the x87 stack).
static_assert(FLT_EVAL_METHOD == 0, "double operations round to double");

// Decimal halfway points between doubles have at most 767 significant digits, so digits past
// this many only matter as "something non-zero follows", which one extra '1' digit preserves.
constexpr int kMaxDigits = 800;

}  // namespace

double ParseDecimal(const char* text) {
    // A text of up to 15 digits and nothing else, as nearly every number literal is, is the
    // integer itself: exact, as the conversion below would round it.
    uint64_t integer = 0;
    const char* end = text;
    while (IsDigit(*end) && end - text < kExactDigits) integer = integer * 10 + static_cast<uint64_t>(*end++ - '0');
    if (*end == '\0' && end != text) return static_cast<double>(integer);

    const char* p = text;
    while (IsSpace(*p)) p++;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';

    char digits[kMaxDigits + 1];
    int count = 0;
    int64_t decimalExponent = 0;
    bool dropped = false;
    bool anyDigit = false;
    for (; IsDigit(*p); p++) {
        anyDigit = true;
        if (count == 0 && *p == '0') continue;
        if (count < kMaxDigits) {
            digits[count++] = *p;
        } else {
            decimalExponent++;
            if (*p != '0') dropped = true;
        }
    }
    if (*p == '.') {
        p++;
        for (; IsDigit(*p); p++) {
            anyDigit = true;
            if (count == 0 && *p == '0') {
                decimalExponent--;
            } else if (count < kMaxDigits) {
                digits[count++] = *p;
                decimalExponent--;
            } else if (*p != '0') {
                dropped = true;
            }
        }
    }
    // Like atof: without a mantissa digit nothing was converted; an exponent counts only with
    // at least one digit.
    if (!anyDigit) return 0.0;
    if (*p == 'e' || *p == 'E') {
        const char* q = p + 1;
        bool exponentNegative = false;
        if (*q == '+' || *q == '-') exponentNegative = *q++ == '-';
        if (IsDigit(*q)) {
            int64_t exponent = 0;
            for (; IsDigit(*q); q++) {
                // Past a billion the result is already 0 or infinity for any realistic text.
                if (exponent < 1000000000) exponent = exponent * 10 + (*q - '0');
            }
            decimalExponent += exponentNegative ? -exponent : exponent;
        }
    }
    if (dropped) {
        digits[count++] = '1';
        decimalExponent--;
    }
    while (count > 0 && digits[count - 1] == '0') {
        count--;
        decimalExponent++;
    }
    double magnitude;
    if (count <= kExactDigits && decimalExponent >= -kExactPowerOfTen && decimalExponent <= kExactPowerOfTen) {
        // The digits and the power of ten are both exact doubles, so a single multiplication or
        // division rounds the value correctly: the integers and short decimals scripts are
        // full of need no big numbers.
        uint64_t whole = 0;
        for (int i = 0; i < count; i++) whole = whole * 10 + static_cast<uint64_t>(digits[i] - '0');
        double exact = static_cast<double>(whole);
        magnitude = decimalExponent >= 0 ? exact * kPowersOfTen[decimalExponent] : exact / kPowersOfTen[-decimalExponent];
    } else if (count == 0 || count + decimalExponent <= -324) {
        magnitude = 0.0;  // below 1e-324, under half the smallest subnormal
    } else if (count - 1 + decimalExponent >= 309) {
        magnitude = FromBits(uint64_t{0x7FF} << 52);  // at least 1e309
    } else {
        // value = digits * 10^e = numerator / denominator * 2^e, with the powers of five split
        // between the two sides so that both stay integers.
        BigInt numerator;
        SetSmall(numerator, 0);
        for (int i = 0; i < count; i++) MulAdd(numerator, 10, static_cast<uint32_t>(digits[i] - '0'));
        BigInt denominator;
        SetSmall(denominator, 1);
        if (decimalExponent >= 0) {
            MulPow5(numerator, decimalExponent);
        } else {
            MulPow5(denominator, -decimalExponent);
        }
        // Scale so that the quotient has 57 or 58 bits: enough for rounding with a sticky bit.
        int64_t shift = BitLength(denominator) - BitLength(numerator) + 57;
        if (shift > 0) {
            ShiftLeft(numerator, shift);
        } else {
            ShiftLeft(denominator, -shift);
        }
        BigInt step = denominator;
        ShiftLeft(step, 57);
        uint64_t quotient = 0;
        for (int bit = 57; bit >= 0; bit--) {
            if (Compare(numerator, step) >= 0) {
                Subtract(numerator, step);
                quotient |= uint64_t{1} << bit;
            }
            ShiftRightOne(step);
        }
        magnitude = RoundToDouble(quotient, decimalExponent - shift, numerator.size != 0);
    }
    return negative ? -magnitude : magnitude;
}

int32_t ParseLong32(const char* text, int base) {
    const char* p = text;
    while (IsSpace(*p)) p++;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    if ((base == 0 || base == 16) && p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && DigitValue(p[2]) < 16) {
        p += 2;
        base = 16;
    } else if (base == 0) {
        base = p[0] == '0' ? 8 : 10;
    }
    if (base < 2 || base > 36) return 0;
    // Accumulate the magnitude, capped just past what a 32-bit long can hold.
    const uint64_t cap = uint64_t{1} << 32;
    uint64_t magnitude = 0;
    for (; DigitValue(*p) < base; p++) {
        magnitude = magnitude * static_cast<uint64_t>(base) + static_cast<uint64_t>(DigitValue(*p));
        if (magnitude > cap) magnitude = cap;
    }
    if (negative) {
        if (magnitude >= uint64_t{0x80000000}) return INT32_MIN;
        return -static_cast<int32_t>(magnitude);
    }
    if (magnitude > uint64_t{0x7FFFFFFF}) return INT32_MAX;
    return static_cast<int32_t>(magnitude);
}

int32_t TruncateToInt32(double value) {
    // The comparisons are false for NaN, which then falls to the out-of-range result.
    if (value > -2147483649.0 && value < 2147483648.0) return static_cast<int32_t>(value);
    return INT32_MIN;
}

size_t FormatFixed(double value, char* out, size_t size) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    bool negative = (bits >> 63) != 0;
    int biased = static_cast<int>((bits >> 52) & 0x7FF);
    uint64_t fraction = bits & ((uint64_t{1} << 52) - 1);

    // Built backwards from the last digit; the longest result is 1 + 309 + 1 + 6 characters.
    char buffer[kFormatFixedSize];
    char* end = buffer + sizeof buffer;
    char* start = end;
    if (biased == 0x7FF) {
        const char* word = fraction != 0 ? "nan" : "inf";
        start -= 3;
        std::memcpy(start, word, 3);
    } else {
        uint64_t mantissa = biased == 0 ? fraction : (fraction | uint64_t{1} << 52);
        int exponent = (biased == 0 ? 1 : biased) - 1075;
        // The value in millionths, rounded half to even: mantissa * 10^6 * 2^exponent.
        BigInt millionths;
        SetSmall(millionths, mantissa);
        MulAdd(millionths, 1000000, 0);
        if (exponent >= 0) {
            ShiftLeft(millionths, exponent);
        } else {
            int64_t drop = -exponent;
            bool roundBit = BitAt(millionths, drop - 1);
            bool sticky = AnyBitBelow(millionths, drop - 1);
            BigInt whole;
            // Shift right by `drop` bits.
            int64_t limbs = drop / 32;
            int shift = static_cast<int>(drop % 32);
            whole.size = 0;
            for (int64_t i = limbs; i < millionths.size; i++) {
                uint32_t low = millionths.limb[i] >> shift;
                uint32_t high = (shift != 0 && i + 1 < millionths.size) ? millionths.limb[i + 1] << (32 - shift) : 0;
                whole.limb[whole.size++] = low | high;
            }
            Trim(whole);
            bool odd = whole.size != 0 && (whole.limb[0] & 1u) != 0;
            if (roundBit && (sticky || odd)) {
                // Add one; the carry can lengthen the number by a limb.
                int i = 0;
                while (i < whole.size && ++whole.limb[i] == 0) i++;
                if (i == whole.size) whole.limb[whole.size++] = 1;
            }
            millionths = whole;
        }
        int produced = 0;
        while (millionths.size != 0 || produced < 7) {
            uint32_t chunk = DivSmall(millionths, 1000000000u);
            for (int i = 0; i < 9 && (millionths.size != 0 || chunk != 0 || produced < 7); i++) {
                if (produced == 6) *--start = '.';
                *--start = static_cast<char>('0' + chunk % 10);
                chunk /= 10;
                produced++;
            }
        }
    }
    if (negative) *--start = '-';
    size_t length = static_cast<size_t>(end - start);
    if (size != 0) {
        size_t copied = length < size - 1 ? length : size - 1;
        std::memcpy(out, start, copied);
        out[copied] = '\0';
    }
    return length;
}
