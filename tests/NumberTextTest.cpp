// Numbers to text and back: the digit rules every output depends on, the
// leading-number rule, rounding into integers, patterns and hexadecimal.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "Raised.h"
#include "core/runtime/NumberText.h"

namespace kestro {
namespace {

using testing::raised;

TEST(NumberTextTest, PlainTextDigitsAndExponentForm) {
    struct Case { double v; const char* text; };
    const Case doubles[] = {
        {0.5, "0.5"}, {-0.5, "-0.5"}, {0.1 + 0.2, "0.3"}, {1.0 / 3, "0.333333333333333"},
        {-2.0 / 3, "-0.666666666666667"}, {12345.678, "12345.678"}, {100, "100"}, {-0.0, "0"},
        {0.0001, "0.0001"}, {1e-5, "1E-05"}, {-1.25e-7, "-1.25E-07"}, {1e-300, "1E-300"},
        {123456789012345.0, "123456789012345"}, {999999999999999.9, "1E+15"},
        {1e15, "1E+15"}, {1.5e20, "1.5E+20"}, {-1e100, "-1E+100"},
    };
    for (const Case& c : doubles) EXPECT_EQ(plainText(c.v), c.text) << c.v;

    const Case singles[] = {
        {1e7, "1E+07"}, {9999999, "9999999"}, {1.0 / 3, "0.3333333"}, {0.1, "0.1"},
        {123.456, "123.456"}, {16777216, "1.677722E+07"}, {-2.5e-5, "-2.5E-05"},
    };
    for (const Case& c : singles) EXPECT_EQ(plainText(static_cast<float>(c.v)), c.text) << c.v;

    // A Single keeps its 7 digits through a Value; the same bits as a Double show their error.
    EXPECT_EQ(plainText(Value::ofSingle(0.1f)), "0.1");
    EXPECT_EQ(plainText(Value::ofDouble(0.1f)), "0.100000001490116");
    EXPECT_EQ(plainText(Value::ofInteger(-42)), "-42");
    EXPECT_EQ(plainText(Value::ofText(" x ")), " x ");
    EXPECT_EQ(plainText(Value{}), "");
    std::string out = "n=";
    appendPlainText(out, 2.5e-6);
    appendPlainText(out, int64_t{-7});
    EXPECT_EQ(out, "n=2.5E-06-7");
}

TEST(NumberTextTest, SignedTextPrintItemsAndPadding) {
    EXPECT_EQ(signedText(2.5), " 2.5");
    EXPECT_EQ(signedText(-2.5), "-2.5");
    EXPECT_EQ(signedText(-0.0), " 0");
    EXPECT_EQ(signedText(-0.0f), " 0");
    EXPECT_EQ(signedText(0), " 0");
    EXPECT_EQ(signedText(int64_t{-7}), "-7");
    EXPECT_EQ(signedText(1e-5f), " 1E-05");
    EXPECT_EQ(signedText(Value::ofText("-3 kg")), "-3");

    EXPECT_EQ(printItem(Value::ofDouble(3)), " 3 ");
    EXPECT_EQ(printItem(Value::ofDouble(-0.0)), " 0 ");
    EXPECT_EQ(printItem(Value::ofInteger(-12)), "-12 ");
    EXPECT_EQ(printItem(Value::ofSingle(1.0f / 3)), " 0.3333333 ");
    EXPECT_EQ(printItem(Value::ofText("ab")), "ab");
    EXPECT_EQ(printItem(Value{}), "");
    std::string line = "x";
    appendPrintItem(line, 1e15);
    appendPrintItem(line, int64_t{-1});
    appendPrintItem(line, int64_t{0});
    EXPECT_EQ(line, "x 1E+15 -1  0 ");

    EXPECT_EQ(rightAligned("42", 5), "   42");
    EXPECT_EQ(rightAligned("12345678", 8), "12345678");
    EXPECT_EQ(rightAligned("123456789", 8), "123456789");  // never cut
    EXPECT_EQ(spaces(0), "");
    EXPECT_EQ(spaces(3), "   ");
    EXPECT_EQ(raised([] { spaces(-1); }).number(), err::InvalidCall);
}

TEST(NumberTextTest, LeadingNumberRule) {
    struct Case { const char* text; double v; };
    const Case cases[] = {
        {"  1 2", 12}, {"\t3\n4", 34}, {"- 4", -4}, {"+7", 7}, {"1,5", 1}, {"5-3", 5},
        {"1.2.3", 1.2}, {"2.5E-1 kg", 0.25}, {"-.5e1", -5}, {"1D2", 100}, {"1e", 1}, {"1e+", 1},
        {"abc", 0}, {"", 0}, {".", 0}, {"e5", 0}, {"1e-999", 0},
        {"&HFFFF", -1}, {"&H10", 16}, {"&hff", 255}, {"&H8000", -32768}, {"&H10000", 65536},
        {"&HFFFFFFFF", -1}, {"&O17", 15}, {"&H", 0},
    };
    for (const Case& c : cases) EXPECT_EQ(leadingNumber(c.text), c.v) << '"' << c.text << '"';
    EXPECT_EQ(raised([] { leadingNumber("1e999"); }).number(), err::Overflow);
    EXPECT_EQ(raised([] { leadingNumber("-1D400"); }).number(), err::Overflow);
    EXPECT_EQ(raised([] { leadingNumber("&H100000000"); }).number(), err::Overflow);
}

TEST(NumberTextTest, RoundingHalfToEvenIntoIntegers) {
    struct Case { double v; int r; };
    const Case cases[] = {
        {0.5, 0}, {1.5, 2}, {2.5, 2}, {3.5, 4}, {-0.5, 0}, {-1.5, -2}, {-2.5, -2},
        {0.49999999999999994, 0}, {32766.5, 32766}, {32767.4, 32767}, {-32768.5, -32768},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(roundToInt16(c.v), c.r) << c.v;
        EXPECT_EQ(roundToInt32(c.v), c.r) << c.v;
    }
    EXPECT_EQ(roundToInt32(2147483646.5), 2147483646);
    EXPECT_EQ(roundToInt32(-2147483648.5), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(roundToInt32(32767.5), 32768);

    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (double v : {32767.5, -32768.6, 1e10, nan, inf})
        EXPECT_EQ(raised([v] { roundToInt16(v); }).number(), err::Overflow) << v;
    for (double v : {2147483647.5, -2147483649.0, nan, -inf})
        EXPECT_EQ(raised([v] { roundToInt32(v); }).number(), err::Overflow) << v;
}

TEST(NumberTextTest, NumberPatternsRoundHalfAwayFromZero) {
    struct Case { double v; const char* pattern; const char* text; };
    const Case cases[] = {
        // Rounding is on the 15-digit decimal, so 2.675 and 1.005 round up.
        {0.125, "0.00", "0.13"}, {2.675, "0.00", "2.68"}, {-2.675, "0.00", "-2.68"},
        {1.005, "0.00", "1.01"}, {0.005, "0.00", "0.01"}, {0.0049, "0.00", "0.00"},
        {0.0004, "0.00", "0.00"}, {1234567.891, "0.00", "1234567.89"},
        {0.05, "0.0", "0.1"}, {9.96, "0.0", "10.0"}, {3, "0.0", "3.0"}, {-0.04, "0.0", "-0.0"},
        {1e20, "0.0", "100000000000000000000.0"}, {0.5, "0", "1"}, {2.5, "0", "3"},
        {0.5, "###.0", ".5"}, {0, "###.0", ".0"}, {12.34, "###.0", "12.3"}, {1234.5, "###.0", "1234.5"},
        {99.96, "###.0", "100.0"},
        {1.5, " 0.####0", " 1.50000"}, {1.234567, " 0.####0", " 1.23457"}, {0, " 0.####0", " 0.00000"},
        {5, "00", "05"}, {123, "00", "123"}, {-5, "00", "-05"}, {0.4, "00", "00"},
    };
    for (const Case& c : cases) EXPECT_EQ(formatNumber(c.v, c.pattern), c.text) << c.v << " with " << c.pattern;
}

TEST(NumberTextTest, TextPatternsFormatWhatTheTextHolds) {
    struct Case { const char* text; const char* pattern; const char* result; };
    const Case cases[] = {
        {"7", "@@@", "  7"}, {"1234", "@@@", "1234"}, {"", "@@", "  "},
        {"2.675", "0.00", "2.68"}, {" 1.5 ", " 0.####0", " 1.50000"}, {"1D2", "0.0", "100.0"},
        {"21-11-2026", "dd-mm-yyyy", "21-11-2026"}, {"2026-11-21", "dd-mmm-yyyy", "21-Nov-2026"},
        {"04:43:34", "hh:mm:ss", "04:43:34"},
        // Neither a number nor a date: unchanged.
        {"abc", "0.00", "abc"}, {"1,5", "0.0", "1,5"}, {"12 kg", "0.0", "12 kg"},
        {"abc", "dd-mm-yyyy", "abc"}, {"31-02-2026", "dd-mm-yyyy", "31-02-2026"},
    };
    for (const Case& c : cases) EXPECT_EQ(formatText(c.text, c.pattern), c.result) << c.text << " with " << c.pattern;
}

TEST(NumberTextTest, HexTextInTwosComplement) {
    EXPECT_EQ(hexText(-1, 16), "FFFF");
    EXPECT_EQ(hexText(-1, 32), "FFFFFFFF");
    EXPECT_EQ(hexText(-1), "FFFFFFFF");
    EXPECT_EQ(hexText(-32768, 16), "8000");
    EXPECT_EQ(hexText(255), "FF");
    EXPECT_EQ(hexText(0xABCDEF), "ABCDEF");
    EXPECT_EQ(hexText(0), "0");
}

}  // namespace
}  // namespace kestro
