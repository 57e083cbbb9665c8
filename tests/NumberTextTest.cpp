// Numbers and dates to text and back: the digit rules every output depends
// on, the leading-number rule, rounding into integers, patterns,
// hexadecimal, and day numbers from 30-Dec-1899.
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>

#include "TestSupport.h"
#include "core/runtime/Dates.h"
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
    const std::pair<std::string, const char*> values[] = {{plainText(Value::ofSingle(0.1f)), "0.1"},
        {plainText(Value::ofDouble(0.1f)), "0.100000001490116"}, {plainText(Value::ofInteger(-42)), "-42"},
        {plainText(Value::ofText(" x ")), " x "}, {plainText(Value{}), ""}};
    for (const auto& [text, expected] : values) EXPECT_EQ(text, expected);
    std::string out = "n=";
    appendPlainText(out, 2.5e-6);
    appendPlainText(out, int64_t{-7});
    EXPECT_EQ(out, "n=2.5E-06-7");
}

TEST(NumberTextTest, SignedTextPrintItemsAndPadding) {
    const std::pair<std::string, const char*> texts[] = {
        {signedText(2.5), " 2.5"}, {signedText(-2.5), "-2.5"}, {signedText(-0.0), " 0"}, {signedText(-0.0f), " 0"},
        {signedText(0), " 0"}, {signedText(int64_t{-7}), "-7"}, {signedText(1e-5f), " 1E-05"},
        {signedText(Value::ofText("-3 kg")), "-3"}, {printItem(Value::ofDouble(3)), " 3 "},
        {printItem(Value::ofDouble(-0.0)), " 0 "}, {printItem(Value::ofInteger(-12)), "-12 "},
        {printItem(Value::ofSingle(1.0f / 3)), " 0.3333333 "}, {printItem(Value::ofText("ab")), "ab"},
        {printItem(Value{}), ""}, {rightAligned("42", 5), "   42"}, {rightAligned("12345678", 8), "12345678"},
        {rightAligned("123456789", 8), "123456789"} /* never cut */, {spaces(0), ""}, {spaces(3), "   "},
    };
    for (const auto& [text, expected] : texts) EXPECT_EQ(text, expected);
    std::string line = "x";
    appendPrintItem(line, 1e15);
    appendPrintItem(line, int64_t{-1});
    appendPrintItem(line, int64_t{0});
    EXPECT_EQ(line, "x 1E+15 -1  0 ");
    EXPECT_EQ(raised([] { spaces(-1); }).number(), err::InvalidCall);
}

// The in-place forms of the two-column lines must give the print items of
// the general rule, digit carries and leading zeros included.
TEST(NumberTextTest, InPlacePrintItemsMatchTheGeneralRule) {
    CountingPrintItems channel;
    for (int64_t n = 0; n <= 1001; channel.next(), ++n) {
        char buf[32];
        ASSERT_EQ(std::string(buf, channel.write(buf)), printItem(Value::ofInteger(n))) << n;
    }
    std::vector<std::string> plain = {"0", "7", "-12", "123456789012345", "1.5", "-0.0001", "0.123456789012345",
                                      "12345678901234.5", "0.000123456789012345"};
    for (double v = 1e-4 * 1.37; std::fabs(v) < 1e15; v *= -7.31) plain.push_back(plainText(v));
    for (const std::string& text : plain) {
        char buf[32];
        char* end = writePrintItemOfPlainText(buf, text);
        ASSERT_NE(end, nullptr) << text;
        EXPECT_EQ(std::string(buf, end), printItem(Value::ofDouble(leadingNumber(text)))) << text;
    }
    // Texts whose print item differs from the text: left to the general rule.
    for (const char* text : {"007", "-0", "1234567890123456", "", "-", "12a", "1.50", ".5", "1.", "0.00001",
                             "-0.0", "00.5", "1.2.3", "1e5", "1234567890123.456", "0.0001234567890123456"}) {
        char buf[32];
        EXPECT_EQ(writePrintItemOfPlainText(buf, text), nullptr) << text;
    }
}

TEST(NumberTextTest, LeadingNumberRuleAndHexText) {
    struct Case { const char* text; double v; };
    const Case cases[] = {
        {"  1 2", 12}, {"\t3\n4", 34}, {"- 4", -4}, {"+7", 7}, {"1,5", 1}, {"5-3", 5},
        {"1.2.3", 1.2}, {"2.5E-1 kg", 0.25}, {"-.5e1", -5}, {"1D2", 100}, {"1e", 1}, {"1e+", 1},
        {"abc", 0}, {"", 0}, {".", 0}, {"e5", 0}, {"1e-999", 0},
        {"&HFFFF", -1}, {"&H10", 16}, {"&hff", 255}, {"&H8000", -32768}, {"&H10000", 65536},
        {"&HFFFFFFFF", -1}, {"&O17", 15}, {"&H", 0},
    };
    for (const Case& c : cases) EXPECT_EQ(leadingNumber(c.text), c.v) << '"' << c.text << '"';
    // And back to hexadecimal text, in two's complement.
    const std::pair<std::string, const char*> hex[] = {{hexText(-1, 16), "FFFF"}, {hexText(-1, 32), "FFFFFFFF"},
        {hexText(-1), "FFFFFFFF"}, {hexText(-32768, 16), "8000"}, {hexText(255), "FF"}, {hexText(0xABCDEF), "ABCDEF"},
        {hexText(0), "0"}};
    for (const auto& [text, expected] : hex) EXPECT_EQ(text, expected);
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

TEST(NumberTextTest, SinglesAndDivisionFaults) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(toSingle(22.02), 22.02f);
    EXPECT_EQ(toSingle(-3.4028234663852886e38), -std::numeric_limits<float>::max());
    for (double v : {3.5e38, -1e300, nan, inf})
        EXPECT_EQ(raised([v] { toSingle(v); }).number(), err::Overflow) << v;
    std::string s;
    appendPrintItem(s, 0.04f);
    appendSignedText(s, -1e8f);
    EXPECT_EQ(s, " 0.04 -1E+08");

    EXPECT_EQ(divide(1, 4), 0.25);
    EXPECT_EQ(raised([] { divide(1, 0); }).number(), err::DivisionByZero);
    EXPECT_EQ(raised([] { divide(-1, -0.0); }).number(), err::DivisionByZero);
    EXPECT_EQ(raised([] { divide(0, 0); }).number(), err::Overflow);
    EXPECT_EQ(raised([nan] { divide(nan, 2); }).number(), err::Overflow);
    EXPECT_EQ(raised([] { divide(1e300, 1e-300); }).number(), err::Overflow);
}

TEST(NumberTextTest, SingleDigitsAgreeWithTheScientificDigits) {
    // Any Single from 1E-06 to 1E+08 reads back as its 7-digit scientific text does.
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> exponent(-6, 8);
    for (int i = 0; i < 100000; ++i) {
        const float f = static_cast<float>(std::pow(10.0, exponent(rng)));
        char scientific[32];
        std::snprintf(scientific, sizeof scientific, "%.6e", static_cast<double>(f));
        ASSERT_EQ(std::stod(plainText(f)), std::stod(scientific)) << scientific;
    }
    // Exact ties go to the even digit; rounding up may carry into a new decade.
    EXPECT_EQ(plainText(4999999.5f), "5000000");
    EXPECT_EQ(plainText(4999998.5f), "4999998");
    EXPECT_EQ(plainText(0.0099999998f), "0.01");
    EXPECT_EQ(plainText(1.2345678e-5f), "1.234568E-05");
    EXPECT_EQ(plainText(22.02f), "22.02");
}

TEST(NumberTextTest, DoubleDigitsAgreeWithTheScientificDigits) {
    {
        // Any double, and any short decimal scaled as readers scale values read
        // from text, reads back as its 15-digit scientific text does.
        std::mt19937_64 rng(11);
        std::uniform_real_distribution<double> exponent(-7, 16);
        std::uniform_int_distribution<int> whole(-99999, 99999);
        const double factors[] = {1, 0.1, 0.0001, 4.5930663e-05, 0.24105835, 3};
        for (int i = 0; i < 200000; ++i) {
            const double v = i % 2 ? std::pow(10.0, exponent(rng)) : whole(rng) * factors[i / 2 % 6] + (i % 4 == 2);
            char scientific[40];
            std::snprintf(scientific, sizeof scientific, "%.14e", v);
            ASSERT_EQ(std::stod(plainText(v)), std::stod(scientific)) << scientific;
        }
        EXPECT_EQ(plainText(0.1 + 0.2), "0.3");
        EXPECT_EQ(plainText(999999999999999.9), "1E+15");
        EXPECT_EQ(plainText(9.999999999999999e-6), "1E-05");
        EXPECT_EQ(plainText(4999.78894165), "4999.78894165");
    }
    // Any Double from 1E-06 to 1E+16 reads back as its 15-digit scientific text does.
    std::mt19937_64 rng(15);
    std::uniform_real_distribution<double> exponent(-6, 16);
    for (int i = 0; i < 100000; ++i) {
        const double d = std::pow(10.0, exponent(rng)) * (rng() % 2 ? 1 : -1);
        char scientific[40];
        std::snprintf(scientific, sizeof scientific, "%.14e", d);
        ASSERT_EQ(std::stod(plainText(d)), std::stod(scientific)) << scientific;
    }
    // Ties of the exact binary value go to the even digit; powers of ten
    // that are no Double sit on either side of their decade.
    EXPECT_EQ(plainText(10000000000000.25), "10000000000000.2");
    EXPECT_EQ(plainText(10000000000000.75), "10000000000000.8");
    EXPECT_EQ(plainText(0.5000000000000125), "0.500000000000013");
    EXPECT_EQ(plainText(99999999999999.95), "100000000000000");
    EXPECT_EQ(plainText(999999999999999.4), "999999999999999");
    EXPECT_EQ(plainText(1e-4), "0.0001");
    EXPECT_EQ(plainText(0.001), "0.001");
    EXPECT_EQ(plainText(1e-5), "1E-05");
    EXPECT_EQ(plainText(5999.71337890625 - 0.964274092208763), "5998.74910481404");
}

TEST(NumberTextTest, ScaledIntegersWriteAsTheirDoubles) {
    // Integers scaled by a power of two, the short way and the general one
    // alike, write what the signed-text rule writes for the Double.
    const auto scaled = [](int64_t whole, int bits) {
        char text[64];
        return std::string(text, writeSignedScaledText(text, whole, bits));
    };
    const auto general = [](int64_t whole, int bits) { return signedText(static_cast<double>(whole) * std::exp2(-bits)); };
    std::mt19937_64 rng(21);
    for (int i = 0; i < 300000; ++i) {
        const int bits = static_cast<int>(rng() % 80) - 10;
        int64_t whole = i % 3 == 0 ? static_cast<int32_t>(rng()) : i % 3 == 1 ? static_cast<int16_t>(rng())
                                                                              : static_cast<int64_t>(rng() >> (rng() % 64));
        // Fourteen-digit whole parts with a few fraction bits hold exact ties.
        if (i % 5 == 0) whole = static_cast<int64_t>(10'000'000'000'000 + rng() % 89'999'999'999'999) << 2 | (rng() & 3);
        ASSERT_EQ(scaled(whole, i % 5 == 0 ? 2 : bits), general(whole, i % 5 == 0 ? 2 : bits)) << whole << " " << bits;
    }
    const std::pair<std::string, const char*> texts[] = {
        {scaled(99'614'632, 16), " 1519.99865722656"}, {scaled(-3, 1), "-1.5"}, {scaled(7, 0), " 7"},
        {scaled((int64_t{40'000'000'000'000} << 2) | 1, 2), " 40000000000000.2"},  // a tie, to the even digit
        {scaled((int64_t{99'999'999'999'999} << 5) | 31, 5), " 100000000000000"},  // rounding carries
        {scaled(1, 20), " 9.5367431640625E-07"}, {scaled(0, 16), " 0"},
    };
    for (const auto& [text, expected] : texts) EXPECT_EQ(text, expected);
    char text[64];
    EXPECT_EQ(std::string(text, writeSignedText(text, -0.1)), "-0.1");
    EXPECT_EQ(std::string(text, writeSignedText(text, 2.5e20)), " 2.5E+20");
}

TEST(NumberTextTest, NumberAndTextPatterns) {
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

    // Text patterns format what the text holds.
    struct TextCase { const char* text; const char* pattern; const char* result; };
    const TextCase texts[] = {
        {"7", "@@@", "  7"}, {"1234", "@@@", "1234"}, {"", "@@", "  "},
        {"2.675", "0.00", "2.68"}, {" 1.5 ", " 0.####0", " 1.50000"}, {"1D2", "0.0", "100.0"},
        {"21-11-2026", "dd-mm-yyyy", "21-11-2026"}, {"2026-11-21", "dd-mmm-yyyy", "21-Nov-2026"},
        {"04:43:34", "hh:mm:ss", "04:43:34"},
        // Neither a number nor a date: unchanged.
        {"abc", "0.00", "abc"}, {"1,5", "0.0", "1,5"}, {"12 kg", "0.0", "12 kg"},
        {"abc", "dd-mm-yyyy", "abc"}, {"31-02-2026", "dd-mm-yyyy", "31-02-2026"},
    };
    for (const auto& c : texts) EXPECT_EQ(formatText(c.text, c.pattern), c.result) << c.text << " with " << c.pattern;
}

std::array<int, 6> fields(const DateParts& p) { return {p.year, p.month, p.day, p.hour, p.minute, p.second}; }

DateValue at(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) { return makeDate({y, mo, d, h, mi, s}); }

TEST(DatesTest, DayNumbersAndPartsRoundTrip) {
    struct Case { DateParts p; DateValue day; };
    const Case cases[] = {
        {{1899, 12, 30}, 0}, {{1899, 12, 31}, 1}, {{1900, 1, 1}, 2}, {{1900, 3, 1}, 61},
        {{1970, 1, 1}, 25569}, {{2000, 2, 29}, 36585}, {{2026, 11, 21}, 46347},
        {{1858, 11, 17}, -15018}, {{1899, 12, 29}, -1},
        // Before day 0 the time still counts forward from midnight.
        {{1858, 11, 17, 12}, -15018.5}, {{1899, 12, 29, 6}, -1.25}, {{2026, 11, 21, 18}, 46347.75},
    };
    for (const Case& c : cases) {
        EXPECT_DOUBLE_EQ(makeDate(c.p), c.day) << c.p.year << '-' << c.p.month << '-' << c.p.day;
        EXPECT_EQ(fields(splitDate(c.day)), fields(c.p)) << c.day;
    }
    const DateParts times[] = {{2026, 11, 21, 4, 43, 34}, {1899, 12, 30, 23, 59, 59}, {1858, 11, 17, 23, 59, 59},
                               {2024, 2, 29, 0, 0, 1}, {9999, 12, 31, 12, 0, 0}};
    for (const DateParts& p : times) EXPECT_EQ(fields(splitDate(makeDate(p))), fields(p)) << makeDate(p);

    // To the nearest second, on into the next day on either side of day 0.
    EXPECT_EQ(fields(splitDate(46347 + 86399.6 / 86400)), fields({2026, 11, 22}));
    EXPECT_EQ(fields(splitDate(-15018 - 86399.6 / 86400)), fields({1858, 11, 18}));
    EXPECT_EQ(fields(splitDate(46347 + 1.4 / 86400)), fields({2026, 11, 21, 0, 0, 1}));
}

TEST(DatesTest, DateTextsAndTextsReadBack) {
    const DateValue when = at(2026, 11, 21, 4, 43, 34);
    const std::pair<std::string, const char*> general[] = {{generalDate(when), "21-11-2026 04:43:34"},
        {generalDate(at(2026, 11, 21)), "21-11-2026"}, {generalDate(0.75), "18:00:00"},
        {generalDate(at(2026, 11, 21) + 0.4 / 86400), "21-11-2026"} /* under half a second */,
        {generalDate(at(1899, 12, 30, 0, 0, 5)), "00:00:05"},
        {generalDate(at(1858, 11, 17, 12)), "17-11-1858 12:00:00"}};
    for (const auto& [text, expected] : general) EXPECT_EQ(text, expected);

    struct Case { const char* pattern; const char* text; };
    const Case cases[] = {
        {"dd-mmm-yyyy", "21-Nov-2026"}, {"dd-mm-yyyy hh:mm:ss", "21-11-2026 04:43:34"},
        {"hh:mm", "04:43"}, {"HH:MM", "04:43"}, {"h:n:s", "4:43:34"}, {"hhmmss", "044334"},
        {"mm/dd/yy", "11/21/26"}, {"d/m/yyyy", "21/11/2026"}, {"dddd d mmmm yyyy", "Saturday 21 November 2026"},
        {"ddd", "Sat"}, {"yyyy-mm-dd", "2026-11-21"},
    };
    for (const Case& c : cases) EXPECT_EQ(formatDate(when, c.pattern), c.text) << c.pattern;
    EXPECT_EQ(formatDate(at(1858, 11, 17), "ddd dd-mm-yy"), "Wed 17-11-58");

    // And date texts read back.
    struct Parsed { const char* text; DateValue day; };
    const Parsed accepted[] = {
        {"21-11-2026 04:43:34", at(2026, 11, 21, 4, 43, 34)}, {"2026-11-21", at(2026, 11, 21)},
        {"15.11.2019", at(2019, 11, 15)}, {"21-Nov-2026", at(2026, 11, 21)}, {"21/11/2026", at(2026, 11, 21)},
        {"21 november 2026 4:43", at(2026, 11, 21, 4, 43)}, {"21-11-26", at(2026, 11, 21)},
        {"1-1-45", at(1945, 1, 1)}, {"29-02-2024", at(2024, 2, 29)}, {"12:30", at(1899, 12, 30, 12, 30)},
        {"17-11-1858 12:00", at(1858, 11, 17, 12)},
    };
    for (const Parsed& c : accepted) {
        DateValue d = -1e9;
        EXPECT_TRUE(parseDateText(c.text, d)) << c.text;
        EXPECT_DOUBLE_EQ(d, c.day) << c.text;
    }
    const char* rejected[] = {"-11-2026", "31-02-2026", "29-02-2025", "21-13-2026", "0-11-2026",  "21-11",
                              "",         "abc",        "21-Xyz-2026", "24:00",     "12:60",      "12",
                              "21-11-2026 04", "2026-11-21T04:43", "21_11_2026", "21-11-2026 04:43:34:00"};
    DateValue ignored = 0;
    for (const char* text : rejected) EXPECT_FALSE(parseDateText(text, ignored)) << text;
}

}  // namespace
}  // namespace kestro
