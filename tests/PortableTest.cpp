// The number texts of every build come from the same digits: the web
// build's stand-ins for to_chars and from_chars must give, value for value,
// what the native library gives. The digests below are the native results;
// both builds run this test.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "core/runtime/Portable.h"

namespace kestro {
namespace {

using portable::bitCast;
using portable::fromChars;
using portable::toScientific;

uint64_t splitMix(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

struct Digest {
    uint64_t value = 0xCBF29CE484222325ull;
    void add(const char* p, size_t n) {
        for (size_t i = 0; i < n; ++i) value = (value ^ static_cast<unsigned char>(p[i])) * 0x100000001B3ull;
    }
    void add(uint64_t bits) { add(reinterpret_cast<const char*>(&bits), sizeof bits); }
};

// Values as files hold them: any bit pattern, and short decimals of every size.
double someValue(uint64_t& state, int i) {
    const uint64_t r = splitMix(state);
    if (i % 2) {
        const double v = bitCast<double>(r);
        return std::isfinite(v) ? v : static_cast<double>(r >> 11);
    }
    const double mantissa = static_cast<double>(r % 100000000) / std::pow(10.0, static_cast<double>(r >> 60));
    return std::ldexp(mantissa, static_cast<int>((r >> 40) % 200) - 100) * (r & (1ull << 32) ? -1 : 1);
}

TEST(PortableTest, ScientificDigitsMatchTheNativeLibrary) {
    Digest digest;
    uint64_t state = 21;
    char buf[64];
    for (int i = 0; i < 1000000; ++i) {
        const double v = someValue(state, i);
        for (int precision : {14, 6, 16}) {
            const auto r = toScientific(buf, buf + sizeof buf, v, precision);
            ASSERT_EQ(r.ec, std::errc());
            digest.add(buf, static_cast<size_t>(r.ptr - buf));
        }
    }
    EXPECT_EQ(digest.value, 9430708041529693705ull);
}

TEST(PortableTest, ParsedValuesMatchTheNativeLibrary) {
    Digest digest;
    uint64_t state = 7;
    char buf[64];
    for (int i = 0; i < 2000000; ++i) {
        // Round trips of printed values, and decimal texts of up to 20 digits
        // with exponents that reach past both ends of the range.
        int n;
        if (i % 2) {
            n = static_cast<int>(toScientific(buf, buf + sizeof buf, someValue(state, i), 16).ptr - buf);
        } else {
            const uint64_t r = splitMix(state);
            const int digits = 1 + static_cast<int>(r % 20);
            const uint64_t d = splitMix(state);
            n = 0;
            if (r & 0x100) buf[n++] = '-';
            for (int k = 0; k < digits; ++k) {
                if (k == static_cast<int>((r >> 12) % 21)) buf[n++] = '.';
                buf[n++] = static_cast<char>('0' + (d >> (3 * k % 61)) % 10);
            }
            n += std::snprintf(buf + n, 16, "e%d", static_cast<int>((r >> 20) % 700) - 350);
        }
        double v = -1;
        const auto r = fromChars(buf, buf + n, v);
        digest.add(static_cast<uint64_t>(r.ec == std::errc() ? 0 : 1 + (r.ec == std::errc::result_out_of_range)));
        digest.add(static_cast<uint64_t>(r.ptr - buf));
        digest.add(bitCast<uint64_t>(v));
    }
    EXPECT_EQ(digest.value, 18342041987851416815ull);
}

TEST(PortableTest, ParsingStopsAndRefusesAsTheStandardSays) {
    struct Case { const char* text; int used; std::errc ec; double value; };
    const double untouched = 7;
    const Case cases[] = {
        {"1e-310", 6, std::errc(), 1e-310},
        {"4.9e-324", 8, std::errc(), 4.9e-324},
        {"2.4e-324", 8, std::errc::result_out_of_range, untouched},  // rounds to zero
        {"1e-400", 6, std::errc::result_out_of_range, untouched},
        {"1e400", 5, std::errc::result_out_of_range, untouched},
        {"1.7976931348623159e308", 22, std::errc::result_out_of_range, untouched},
        {"1.7976931348623158e308", 22, std::errc(), 1.7976931348623158e308},
        {"0e999", 5, std::errc(), 0},
        {"00.000e-9999", 12, std::errc(), 0},
        {".5", 2, std::errc(), 0.5},
        {"5.", 2, std::errc(), 5},
        {"1e", 1, std::errc(), 1},
        {"1e+", 1, std::errc(), 1},
        {"0x10", 1, std::errc(), 0},
        {"1.5e3x", 5, std::errc(), 1500},
        {"+1", 0, std::errc::invalid_argument, untouched},
        {" 1", 0, std::errc::invalid_argument, untouched},
        {".", 0, std::errc::invalid_argument, untouched},
        {"-", 0, std::errc::invalid_argument, untouched},
    };
    for (const Case& c : cases) {
        double v = untouched;
        const auto r = fromChars(c.text, c.text + std::strlen(c.text), v);
        EXPECT_EQ(r.ptr - c.text, c.used) << c.text;
        EXPECT_EQ(r.ec, c.ec) << c.text;
        EXPECT_EQ(v, c.value) << c.text;
    }
    const std::string minusZero = "-0", minusInfinity = "-inf";
    double v = 0;
    fromChars(minusZero.data(), minusZero.data() + 2, v);
    EXPECT_TRUE(std::signbit(v));
    fromChars(minusInfinity.data(), minusInfinity.data() + 4, v);
    EXPECT_EQ(v, -HUGE_VAL);
}

}  // namespace
}  // namespace kestro
