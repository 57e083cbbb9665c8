// Day numbers from 30-Dec-1899, their texts, and the date texts read back.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "core/runtime/Dates.h"

namespace kestro {
namespace {

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

TEST(DatesTest, SecondsFromTheModifiedJulianEpoch) {
    // A count of seconds from 17-Nov-1858 becomes a day number by seconds/86400 - 15018.
    const double seconds = (46347.0 + 15018.0) * 86400 + 4 * 3600 + 43 * 60 + 34;
    EXPECT_EQ(generalDate(seconds / 86400 - 15018), "21-11-2026 04:43:34");
    EXPECT_DOUBLE_EQ(makeDate({1858, 11, 17}), -15018);
}

TEST(DatesTest, GeneralAndPatternTexts) {
    const DateValue when = at(2026, 11, 21, 4, 43, 34);
    EXPECT_EQ(generalDate(when), "21-11-2026 04:43:34");
    EXPECT_EQ(generalDate(at(2026, 11, 21)), "21-11-2026");
    EXPECT_EQ(generalDate(at(2026, 11, 21) + 0.4 / 86400), "21-11-2026");  // under half a second
    EXPECT_EQ(generalDate(0.75), "18:00:00");
    EXPECT_EQ(generalDate(at(1899, 12, 30, 0, 0, 5)), "00:00:05");
    EXPECT_EQ(generalDate(at(1858, 11, 17, 12)), "17-11-1858 12:00:00");

    struct Case { const char* pattern; const char* text; };
    const Case cases[] = {
        {"dd-mmm-yyyy", "21-Nov-2026"}, {"dd-mm-yyyy hh:mm:ss", "21-11-2026 04:43:34"},
        {"hh:mm", "04:43"}, {"HH:MM", "04:43"}, {"h:n:s", "4:43:34"}, {"hhmmss", "044334"},
        {"mm/dd/yy", "11/21/26"}, {"d/m/yyyy", "21/11/2026"}, {"dddd d mmmm yyyy", "Saturday 21 November 2026"},
        {"ddd", "Sat"}, {"yyyy-mm-dd", "2026-11-21"},
    };
    for (const Case& c : cases) EXPECT_EQ(formatDate(when, c.pattern), c.text) << c.pattern;
    EXPECT_EQ(formatDate(at(1858, 11, 17), "ddd dd-mm-yy"), "Wed 17-11-58");
}

TEST(DatesTest, DateTextsReadBack) {
    struct Case { const char* text; DateValue day; };
    const Case accepted[] = {
        {"21-11-2026 04:43:34", at(2026, 11, 21, 4, 43, 34)}, {"2026-11-21", at(2026, 11, 21)},
        {"15.11.2019", at(2019, 11, 15)}, {"21-Nov-2026", at(2026, 11, 21)}, {"21/11/2026", at(2026, 11, 21)},
        {"21 november 2026 4:43", at(2026, 11, 21, 4, 43)}, {"21-11-26", at(2026, 11, 21)},
        {"1-1-45", at(1945, 1, 1)}, {"29-02-2024", at(2024, 2, 29)}, {"12:30", at(1899, 12, 30, 12, 30)},
        {"17-11-1858 12:00", at(1858, 11, 17, 12)},
    };
    for (const Case& c : accepted) {
        DateValue d = -1e9;
        EXPECT_TRUE(parseDateText(c.text, d)) << c.text;
        EXPECT_DOUBLE_EQ(d, c.day) << c.text;
    }
    const char* rejected[] = {"-11-2026", "31-02-2026", "29-02-2025", "21-13-2026", "0-11-2026",  "21-11",
                              "",         "abc",        "21-Xyz-2026", "24:00",     "12:60",      "12",
                              "21-11-2026 04", "2026-11-21T04:43", "21_11_2026", "21-11-2026 04:43:34:00"};
    for (const char* text : rejected) {
        DateValue d = 0;
        EXPECT_FALSE(parseDateText(text, d)) << text;
    }
}

}  // namespace
}  // namespace kestro
