#include <gtest/gtest.h>

#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <string>

#include "support/numbers.h"
#include "veltjs.h"

namespace {

uint64_t Bits(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double FromBits(uint64_t bits) {
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::string Fixed(double value) {
    char text[kFormatFixedSize];
    size_t length = FormatFixed(value, text, sizeof text);
    EXPECT_EQ(length, std::strlen(text));
    return text;
}

std::string LibcFixed(double value) {
    char text[400];
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

// The reference results come from glibc in the "C" locale, which the test process runs in.
void ExpectParsesLikeLibc(const std::string& text) {
    double expected = std::strtod(text.c_str(), nullptr);
    double actual = ParseDecimal(text.c_str());
    ASSERT_EQ(Bits(actual), Bits(expected)) << "text: " << text << "\nexpected " << expected << " got " << actual;
}

void ExpectFormatsLikeLibc(double value) {
    ASSERT_EQ(Fixed(value), LibcFixed(value)) << "bits: " << std::hex << Bits(value);
}

double RandomFiniteDouble(std::mt19937_64& random) {
    for (;;) {
        double value = FromBits(random());
        if (std::isfinite(value)) return value;
    }
}

}  // namespace

TEST(ParseDecimal, AnIntegerTextIsTheValueTheFullConversionGivesAtEveryLength) {
    std::mt19937_64 random(15);
    for (int length = 1; length <= 20; length++) {
        for (int round = 0; round < 200; round++) {
            std::string digits;
            for (int i = 0; i < length; i++) digits += static_cast<char>('0' + random() % 10);
            // A fraction or an exponent sends the same value through the full conversion.
            double plain = ParseDecimal(digits.c_str());
            EXPECT_EQ(plain, ParseDecimal((digits + ".0").c_str())) << digits;
            EXPECT_EQ(plain, ParseDecimal((digits + "e0").c_str())) << digits;
            EXPECT_EQ(plain, std::strtod(digits.c_str(), nullptr)) << digits;
        }
    }
    EXPECT_EQ(ParseDecimal("0"), 0.0);
    EXPECT_FALSE(std::signbit(ParseDecimal("0")));
    EXPECT_EQ(ParseDecimal("000000000000000000042"), 42.0);
    EXPECT_EQ(ParseDecimal("999999999999999"), 999999999999999.0);
    EXPECT_EQ(ParseDecimal("9007199254740993"), 9007199254740992.0);
}

TEST(ParseDecimal, SimpleValues) {
    EXPECT_EQ(ParseDecimal("1.5"), 1.5);
    EXPECT_EQ(ParseDecimal("0"), 0.0);
    EXPECT_EQ(ParseDecimal("0.5"), 0.5);
    EXPECT_EQ(ParseDecimal(".5"), 0.5);
    EXPECT_EQ(ParseDecimal("1."), 1.0);
    EXPECT_EQ(ParseDecimal("123456789"), 123456789.0);
    EXPECT_EQ(Bits(ParseDecimal("0.1")), Bits(0.1));
    EXPECT_EQ(Bits(ParseDecimal("0.3")), Bits(0.3));
    EXPECT_EQ(Bits(ParseDecimal("3.141592653589793")), Bits(3.141592653589793));
    EXPECT_EQ(ParseDecimal("1e3"), 1000.0);
    EXPECT_EQ(ParseDecimal("1E3"), 1000.0);
    EXPECT_EQ(ParseDecimal("1e+3"), 1000.0);
    EXPECT_EQ(ParseDecimal("1e-3"), 0.001);
    EXPECT_EQ(ParseDecimal("2.5e1"), 25.0);
    EXPECT_EQ(ParseDecimal("9007199254740993"), 9007199254740992.0);  // tie, rounds to even
    EXPECT_EQ(ParseDecimal("9007199254740995"), 9007199254740996.0);  // tie, rounds to even
}

TEST(ParseDecimal, IncompleteExponentIsIgnored) {
    EXPECT_EQ(ParseDecimal("1e"), 1.0);
    EXPECT_EQ(ParseDecimal("1e+"), 1.0);
    EXPECT_EQ(ParseDecimal("1E-"), 1.0);
    EXPECT_EQ(ParseDecimal("2.5e"), 2.5);
    EXPECT_EQ(ParseDecimal(".5e"), 0.5);
}

TEST(ParseDecimal, TextWithoutDigitsIsZero) {
    EXPECT_EQ(Bits(ParseDecimal("")), Bits(0.0));
    EXPECT_EQ(Bits(ParseDecimal(".")), Bits(0.0));
    EXPECT_EQ(Bits(ParseDecimal(".e5")), Bits(0.0));
    EXPECT_EQ(Bits(ParseDecimal("-")), Bits(0.0));
}

TEST(ParseDecimal, SignsAndWhitespace) {
    EXPECT_EQ(ParseDecimal("  -2.5"), -2.5);
    EXPECT_EQ(ParseDecimal("+2.5"), 2.5);
    EXPECT_EQ(Bits(ParseDecimal("-0")), Bits(-0.0));
    EXPECT_EQ(Bits(ParseDecimal("-0.0e10")), Bits(-0.0));
}

TEST(ParseDecimal, StopsAtFirstCharacterThatDoesNotBelong) {
    EXPECT_EQ(ParseDecimal("1.5.3"), 1.5);
    EXPECT_EQ(ParseDecimal("12abc"), 12.0);
    EXPECT_EQ(ParseDecimal("1e5x"), 100000.0);
}

TEST(ParseDecimal, Extremes) {
    EXPECT_EQ(ParseDecimal("1.7976931348623157e308"), DBL_MAX);
    // Just below the halfway point to the first value past DBL_MAX still rounds down.
    EXPECT_EQ(ParseDecimal("1.7976931348623158e308"), DBL_MAX);
    EXPECT_EQ(ParseDecimal("1.7976931348623159e308"), HUGE_VAL);
    EXPECT_EQ(ParseDecimal("1e309"), HUGE_VAL);
    EXPECT_EQ(ParseDecimal("1e99999999999999999999999"), HUGE_VAL);
    EXPECT_EQ(ParseDecimal("2.2250738585072014e-308"), DBL_MIN);
    EXPECT_EQ(Bits(ParseDecimal("4.9406564584124654e-324")), 1u);
    EXPECT_EQ(Bits(ParseDecimal("5e-324")), 1u);
    EXPECT_EQ(Bits(ParseDecimal("2.4703282292062328e-324")), 1u);  // above half the smallest
    EXPECT_EQ(Bits(ParseDecimal("2.4703282292062327e-324")), 0u);  // below it
    EXPECT_EQ(Bits(ParseDecimal("1e-400")), 0u);
    EXPECT_EQ(Bits(ParseDecimal("1e-99999999999999999999999")), 0u);
}

TEST(ParseDecimal, HalfTheSmallestSubnormalIsATieThatRoundsToZero) {
    if (LDBL_MANT_DIG < 64) GTEST_SKIP() << "long double cannot hold the value";
    char text[1200];
    std::snprintf(text, sizeof text, "%.800Le", std::ldexp(1.0L, -1075));
    EXPECT_EQ(Bits(ParseDecimal(text)), 0u) << text;
    std::snprintf(text, sizeof text, "%.800Le", std::ldexp(3.0L, -1075));
    EXPECT_EQ(Bits(ParseDecimal(text)), 2u) << text;  // 1.5 units: the tie goes to even
}

TEST(ParseDecimal, VeryLongDigitStrings) {
    std::string ones(5000, '1');
    ExpectParsesLikeLibc(ones);
    ExpectParsesLikeLibc("0." + ones);
    ExpectParsesLikeLibc("0." + std::string(5000, '0') + "123e5000");
    ExpectParsesLikeLibc(std::string(5000, '0') + "1.5");
    ExpectParsesLikeLibc("1" + std::string(4000, '0') + "e-4000");
    ExpectParsesLikeLibc("1" + std::string(4000, '0') + "1e-4000");
    ExpectParsesLikeLibc("9" + std::string(400, '9') + "e-500");
    EXPECT_EQ(ParseDecimal(("1" + std::string(4000, '0') + "e-4000").c_str()), 1.0);
}

TEST(ParseDecimal, MatchesLibcOnRandomShortTexts) {
    std::mt19937_64 random(12345);
    for (int round = 0; round < 200000; round++) {
        std::string text;
        int integerDigits = static_cast<int>(random() % 22);
        int fractionDigits = static_cast<int>(random() % 22);
        for (int i = 0; i < integerDigits; i++) text += static_cast<char>('0' + random() % 10);
        if (fractionDigits > 0 || random() % 2) {
            text += '.';
            for (int i = 0; i < fractionDigits; i++) text += static_cast<char>('0' + random() % 10);
        }
        if (integerDigits + fractionDigits == 0) text += '7';
        if (random() % 3 != 0) {
            text += random() % 2 ? 'e' : 'E';
            int sign = static_cast<int>(random() % 3);
            if (sign == 1) text += '+';
            if (sign == 2) text += '-';
            text += std::to_string(random() % 360);
        }
        ExpectParsesLikeLibc(text);
    }
}

// Up to 15 digits scaled by at most 10^22 either way are computed with one double operation;
// everything else by big integers. Both sides of both limits, with digits that need rounding.
TEST(ParseDecimal, MatchesLibcAroundTheLimitsOfTheOneOperationPath) {
    std::mt19937_64 random(2211);
    for (int round = 0; round < 2000; round++) {
        for (int digits = 13; digits <= 17; digits++) {
            std::string mantissa(1, static_cast<char>('1' + random() % 9));
            for (int i = 1; i < digits; i++) mantissa += static_cast<char>('0' + random() % 10);
            for (int exponent = -24; exponent <= 24; exponent++) {
                ExpectParsesLikeLibc(mantissa + "e" + std::to_string(exponent));
                // The same digits around a decimal point: the exponent then counts from there.
                std::string pointed = mantissa.substr(0, 3) + "." + mantissa.substr(3);
                ExpectParsesLikeLibc(pointed + "e" + std::to_string(exponent));
            }
        }
    }
}

TEST(ParseDecimal, MatchesLibcOnPrintedDoubles) {
    std::mt19937_64 random(777);
    char text[1200];
    for (int round = 0; round < 50000; round++) {
        double value = std::fabs(RandomFiniteDouble(random));
        for (int digits : {15, 16, 17, 18, 20, 25}) {
            std::snprintf(text, sizeof text, "%.*e", digits - 1, value);
            ExpectParsesLikeLibc(text);
        }
        std::snprintf(text, sizeof text, "%.17g", value);
        ExpectParsesLikeLibc(text);
    }
    // Full exact expansions, and the same cut short.
    for (int round = 0; round < 2000; round++) {
        double value = std::fabs(RandomFiniteDouble(random));
        std::snprintf(text, sizeof text, "%.1000e", value);
        ExpectParsesLikeLibc(text);
        std::string cut(text);
        size_t e = cut.find('e');
        for (size_t keep : {30u, 300u, 760u, 800u}) {
            ExpectParsesLikeLibc(cut.substr(0, keep) + cut.substr(e));
        }
    }
}

TEST(ParseDecimal, MatchesLibcOnSmallAndSubnormalValues) {
    std::mt19937_64 random(4242);
    char text[1200];
    for (int round = 0; round < 20000; round++) {
        double value = FromBits(random() % (uint64_t{1} << 53));  // subnormals and the smallest normals
        std::snprintf(text, sizeof text, "%.17e", value);
        ExpectParsesLikeLibc(text);
        std::snprintf(text, sizeof text, "%.25e", value);
        ExpectParsesLikeLibc(text);
    }
}

// Exact decimal halfway points between neighbouring doubles, and texts just below and above.
// An x87 long double holds every such midpoint exactly, and glibc prints it exactly.
TEST(ParseDecimal, HalfwayCasesMatchLibc) {
    if (LDBL_MANT_DIG < 64) GTEST_SKIP() << "long double cannot hold the midpoints";
    std::mt19937_64 random(99);
    char text[1200];
    for (int round = 0; round < 6000; round++) {
        double low;
        switch (round % 4) {
            case 0: low = std::fabs(RandomFiniteDouble(random)); break;
            case 1: low = FromBits(random() % (uint64_t{1} << 52)); break;  // subnormal
            case 2: low = static_cast<double>(random() >> 10); break;        // integers near 2^53
            default: low = FromBits(Bits(DBL_MAX) - random() % 1000); break;
        }
        // Past DBL_MAX the next step would be 2^1024; that midpoint must round to infinity.
        long double high = low == DBL_MAX ? std::ldexp(1.0L, 1024) : std::nextafter(low, HUGE_VAL);
        long double middle = (static_cast<long double>(low) + high) / 2;
        std::snprintf(text, sizeof text, "%.800Le", middle);
        std::string exact(text);
        size_t e = exact.find('e');
        ExpectParsesLikeLibc(exact);
        ExpectParsesLikeLibc(exact.substr(0, e) + "1" + exact.substr(e));
        // Cut the mantissa after its last non-zero digit minus one: just below the midpoint.
        size_t last = exact.find_last_not_of('0', e - 1);
        ExpectParsesLikeLibc(exact.substr(0, last) + exact.substr(e));
        ExpectParsesLikeLibc(exact.substr(0, 20) + exact.substr(e));
    }
}

TEST(ParseLong32, BasicValues) {
    EXPECT_EQ(ParseLong32("0", 8), 0);
    EXPECT_EQ(ParseLong32("010", 8), 8);
    EXPECT_EQ(ParseLong32("09", 8), 0);
    EXPECT_EQ(ParseLong32("0777", 8), 511);
    EXPECT_EQ(ParseLong32("0x10", 16), 16);
    EXPECT_EQ(ParseLong32("0X1f", 16), 31);
    EXPECT_EQ(ParseLong32("ff", 16), 255);
    EXPECT_EQ(ParseLong32("0xg", 16), 0);
    EXPECT_EQ(ParseLong32("0x", 16), 0);
    EXPECT_EQ(ParseLong32("12z", 10), 12);
    EXPECT_EQ(ParseLong32("", 10), 0);
    EXPECT_EQ(ParseLong32("xyz", 10), 0);
    EXPECT_EQ(ParseLong32("  \t\n-42", 10), -42);
    EXPECT_EQ(ParseLong32("+42", 10), 42);
    EXPECT_EQ(ParseLong32("-0x10", 16), -16);
    EXPECT_EQ(ParseLong32("z", 36), 35);
    EXPECT_EQ(ParseLong32("0x1A", 0), 26);
    EXPECT_EQ(ParseLong32("017", 0), 15);
    EXPECT_EQ(ParseLong32("17", 0), 17);
}

TEST(ParseLong32, SaturatesAtThirtyTwoBits) {
    EXPECT_EQ(ParseLong32("2147483647", 10), INT32_MAX);
    EXPECT_EQ(ParseLong32("2147483648", 10), INT32_MAX);
    EXPECT_EQ(ParseLong32("-2147483648", 10), INT32_MIN);
    EXPECT_EQ(ParseLong32("-2147483649", 10), INT32_MIN);
    EXPECT_EQ(ParseLong32("0x7fffffff", 16), INT32_MAX);
    EXPECT_EQ(ParseLong32("0x80000000", 16), INT32_MAX);
    EXPECT_EQ(ParseLong32("0xffffffff", 16), INT32_MAX);
    EXPECT_EQ(ParseLong32("0xffffffffffffffffffffffff", 16), INT32_MAX);
    EXPECT_EQ(ParseLong32("-0x80000000", 16), INT32_MIN);
    EXPECT_EQ(ParseLong32("-0xffffffffffffffffffff", 16), INT32_MIN);
    EXPECT_EQ(ParseLong32("077777777777777777777777", 8), INT32_MAX);
    EXPECT_EQ(ParseLong32("020000000000", 8), INT32_MAX);
    EXPECT_EQ(ParseLong32("017777777777", 8), INT32_MAX);
    EXPECT_EQ(ParseLong32("-020000000000", 8), INT32_MIN);
}

TEST(ParseLong32, MatchesLibcWithinRange) {
    std::mt19937_64 random(5);
    for (int round = 0; round < 100000; round++) {
        int32_t value = static_cast<int32_t>(random());
        char text[64];
        int base = round % 3 == 0 ? 16 : (round % 3 == 1 ? 8 : 10);
        const char* format = base == 16 ? "%s0x%x" : (base == 8 ? "%s0%o" : "%s%u");
        uint32_t magnitude = value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
        std::snprintf(text, sizeof text, format, value < 0 ? "-" : "", magnitude);
        long expected = std::strtol(text, nullptr, base);
        if (expected > INT32_MAX) expected = INT32_MAX;
        if (expected < INT32_MIN) expected = INT32_MIN;
        ASSERT_EQ(ParseLong32(text, base), expected) << text;
    }
}

TEST(TruncateToInt32, TruncatesTowardZero) {
    EXPECT_EQ(TruncateToInt32(0.0), 0);
    EXPECT_EQ(TruncateToInt32(-0.0), 0);
    EXPECT_EQ(TruncateToInt32(1.9), 1);
    EXPECT_EQ(TruncateToInt32(-1.9), -1);
    EXPECT_EQ(TruncateToInt32(2147483647.0), INT32_MAX);
    EXPECT_EQ(TruncateToInt32(2147483647.9), INT32_MAX);
    EXPECT_EQ(TruncateToInt32(-2147483648.0), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(-2147483648.9), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(5e-324), 0);
}

TEST(TruncateToInt32, OutOfRangeAndNaNGiveIntMin) {
    EXPECT_EQ(TruncateToInt32(2147483648.0), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(-2147483649.0), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(1e300), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(-1e300), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(HUGE_VAL), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(-HUGE_VAL), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(std::numeric_limits<double>::quiet_NaN()), INT32_MIN);
    EXPECT_EQ(TruncateToInt32(-std::numeric_limits<double>::quiet_NaN()), INT32_MIN);
}

TEST(FormatFixed, ExactTexts) {
    EXPECT_EQ(Fixed(1.5), "1.500000");
    EXPECT_EQ(Fixed(0.0), "0.000000");
    EXPECT_EQ(Fixed(-0.0), "-0.000000");
    EXPECT_EQ(Fixed(-1e-10), "-0.000000");
    EXPECT_EQ(Fixed(5e-324), "0.000000");
    EXPECT_EQ(Fixed(0.1), "0.100000");
    EXPECT_EQ(Fixed(123456789.0), "123456789.000000");
    EXPECT_EQ(Fixed(-2.5), "-2.500000");
    EXPECT_EQ(Fixed(0.0000005), "0.000000");   // the double is a little below 5e-7
    EXPECT_EQ(Fixed(0.0000015), "0.000002");   // a little above 1.5e-6
    EXPECT_EQ(Fixed(0.0078125), "0.007812");   // exact tie, even stays
    EXPECT_EQ(Fixed(0.0234375), "0.023438");   // exact tie, odd goes up
    EXPECT_EQ(Fixed(0.9999995), "1.000000");
    EXPECT_EQ(Fixed(1e21), "1000000000000000000000.000000");
    EXPECT_EQ(Fixed(HUGE_VAL), "inf");
    EXPECT_EQ(Fixed(-HUGE_VAL), "-inf");
    EXPECT_EQ(Fixed(std::numeric_limits<double>::quiet_NaN()), "nan");
    EXPECT_EQ(Fixed(-std::numeric_limits<double>::quiet_NaN()), "-nan");
    EXPECT_EQ(Fixed(FromBits(0x7FF0000000000001)), "nan");
    EXPECT_EQ(Fixed(FromBits(0xFFF0000000000001)), "-nan");
    EXPECT_EQ(Fixed(DBL_MAX),
              "17976931348623157081452742373170435679807056752584499659891747680315726078002853876058955863"
              "27668781715404589535143824642343213268894641827684675467035375169860499105765512820762454900"
              "90389328944075868508455133942304583236903222948165808559332123348274797826204144723168738177"
              "180919299881250404026184124858368.000000");
    EXPECT_EQ(Fixed(-DBL_MAX).size(), 317u);
}

TEST(FormatFixed, ReturnsFullLengthAndTruncatesToTheBuffer) {
    char text[4];
    EXPECT_EQ(FormatFixed(1.5, text, sizeof text), 8u);
    EXPECT_STREQ(text, "1.5");
    char untouched = 'x';
    EXPECT_EQ(FormatFixed(-HUGE_VAL, &untouched, 0), 4u);
    EXPECT_EQ(untouched, 'x');
}

TEST(FormatFixed, MatchesLibcOnRandomBitPatterns) {
    std::mt19937_64 random(2024);
    for (int round = 0; round < 200000; round++) ExpectFormatsLikeLibc(FromBits(random()));
}

TEST(FormatFixed, MatchesLibcOnWidenedFloats) {
    std::mt19937_64 random(31);
    for (int round = 0; round < 200000; round++) {
        uint32_t bits = static_cast<uint32_t>(random());
        float value;
        std::memcpy(&value, &bits, sizeof value);
        ExpectFormatsLikeLibc(static_cast<double>(value));
    }
}

TEST(FormatFixed, MatchesLibcNearRoundingPoints) {
    std::mt19937_64 random(8);
    char text[64];
    for (int round = 0; round < 100000; round++) {
        // Dyadic values with few fraction bits: many exact ties at the seventh decimal.
        double dyadic = std::ldexp(static_cast<double>(random() >> (11 + random() % 40)), -static_cast<int>(random() % 64));
        ExpectFormatsLikeLibc(dyadic);
        ExpectFormatsLikeLibc(-dyadic);
        // The doubles nearest to a decimal that ends in 5 at the seventh place.
        std::snprintf(text, sizeof text, "%llu.%06llu5", static_cast<unsigned long long>(random() % 100000000),
                      static_cast<unsigned long long>(random() % 1000000));
        double near = std::strtod(text, nullptr);
        ExpectFormatsLikeLibc(near);
        ExpectFormatsLikeLibc(std::nextafter(near, HUGE_VAL));
        ExpectFormatsLikeLibc(std::nextafter(near, -HUGE_VAL));
    }
}

TEST(FormatFixed, MatchesLibcOnLargeIntegersAndPowers) {
    for (int exponent = -1074; exponent <= 1023; exponent++) {
        double power = std::ldexp(1.0, exponent);
        ExpectFormatsLikeLibc(power);
        ExpectFormatsLikeLibc(std::nextafter(power, HUGE_VAL));
        ExpectFormatsLikeLibc(std::nextafter(power, 0.0));
    }
    for (int exponent = -330; exponent <= 308; exponent++) {
        ExpectFormatsLikeLibc(std::pow(10.0, exponent));
    }
}

// Finds or builds a locale whose decimal point is ',' and makes it the process's locale.
// Without root, a missing locale can still be compiled into a private directory that LOCPATH
// points at. Returns false when neither works.
namespace {

class DecimalCommaLocale {
public:
    ~DecimalCommaLocale() {
        std::setlocale(LC_ALL, "C");
        if (!directory_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(directory_, ignored);
            unsetenv("LOCPATH");
        }
    }

    bool Activate() {
        const char* const names[] = {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "fr_FR.utf8",
                                     "fr_FR", "nl_NL.UTF-8", "ru_RU.UTF-8", "es_ES.UTF-8", "it_IT.UTF-8"};
        for (const char* name : names) {
            if (TrySet(name)) return true;
        }
        char pattern[] = "/tmp/veltjs-locale-XXXXXX";
        if (!mkdtemp(pattern)) return false;
        directory_ = pattern;
        std::string command =
            "localedef -i de_DE -f UTF-8 " + directory_ + "/de_DE.UTF-8 >/dev/null 2>&1";
        int ignored = std::system(command.c_str());
        (void)ignored;
        setenv("LOCPATH", directory_.c_str(), 1);
        return TrySet("de_DE.UTF-8");
    }

    std::string name;

private:
    bool TrySet(const char* candidate) {
        if (!std::setlocale(LC_ALL, candidate)) return false;
        if (std::strcmp(std::localeconv()->decimal_point, ",") == 0) {
            name = candidate;
            return true;
        }
        std::setlocale(LC_ALL, "C");
        return false;
    }

    std::string directory_;
};

}  // namespace

TEST(Numbers, IndependentOfTheHostLocale) {
    DecimalCommaLocale locale;
    if (!locale.Activate()) GTEST_SKIP() << "no locale with a decimal comma is available";
    // The locale is really in effect for the C runtime.
    EXPECT_EQ(LibcFixed(1.5), "1,500000") << locale.name;
    EXPECT_EQ(std::atof("1.5"), 1.0) << locale.name;

    EXPECT_EQ(ParseDecimal("1.5"), 1.5);
    EXPECT_EQ(ParseDecimal("2.5e-1"), 0.25);
    EXPECT_EQ(Fixed(1.5), "1.500000");
    EXPECT_EQ(Fixed(-0.25), "-0.250000");

    const uint32_t code[] = {0xC0000000u, 0x00000000u, 0x3FF80000u};
    char* listing = VeltJS_Disasm(code, sizeof code);
    ASSERT_NE(listing, nullptr);
    EXPECT_STREQ(listing, "00000000 : 000000c0000000000000f83f push.d    1.500000\n");
    std::free(listing);
}
