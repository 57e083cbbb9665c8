#pragma once
// Dates as day numbers counted from 30-Dec-1899, the time of day being the
// fraction of a day; and their texts.
#include <cstdint>
#include <string>
#include <string_view>

namespace kestro {

using DateValue = double;

struct DateParts {
    int year = 1899, month = 12, day = 30;
    int hour = 0, minute = 0, second = 0;
};

DateValue makeDate(const DateParts& p);
DateParts splitDate(DateValue d);  // rounded to the nearest second

// Seconds since 1970-01-01 00:00 UTC, shown in local time.
DateValue dateFromUnixSeconds(int64_t seconds);

// The general date form "dd-mm-yyyy hh:mm:ss"; the date alone when the time
// is midnight, the time alone when the day is 30-Dec-1899 (day number 0).
std::string generalDate(DateValue d);

// Date patterns: d dd ddd mmm mmmm m mm yy yyyy h hh n nn s ss; "m"/"mm"
// directly after an hour means minutes. Other characters stand as they are.
std::string formatDate(DateValue d, std::string_view pattern);

// Reads "dd-mm-yyyy", "dd/mm/yyyy", "dd.mm.yyyy", "yyyy-mm-dd", "dd-mmm-yyyy"
// with an optional "hh:mm[:ss]" after it, or a time alone; a zero character
// ends the text.
bool parseDateText(std::string_view text, DateValue& out);

}  // namespace kestro
