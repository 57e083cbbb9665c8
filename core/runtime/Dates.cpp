#include "core/runtime/Dates.h"

#include <cctype>
#include <cmath>
#include <ctime>
#include <vector>

#include "core/runtime/System.h"

namespace kestro {

namespace {

const char* const MonthNames[12] = {"January", "February", "March",     "April",   "May",      "June",
                                    "July",    "August",   "September", "October", "November", "December"};
const char* const DayNames[7] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

// Days from 1970-01-01 in the proleptic Gregorian calendar.
int64_t daysFromCivil(int64_t y, int m, int d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civilFromDays(int64_t z, int& y, int& m, int& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(yoe + era * 400 + (m <= 2));
}

const int64_t EpochOffset = daysFromCivil(1899, 12, 30);

// Day number and seconds into that day; before 1899 the fraction still
// counts forward from midnight, as the day numbers have always done.
void dayAndSeconds(DateValue d, int64_t& day, int64_t& seconds) {
    if (!std::isfinite(d) || std::fabs(d) > 3e6) d = 0;
    double whole = std::trunc(d);
    int64_t secs = std::llround(std::fabs(d - whole) * 86400.0);
    day = static_cast<int64_t>(whole);
    if (secs >= 86400) {
        // Rounded up to the next midnight: the next calendar day is one day
        // number up on either side of day 0.
        secs -= 86400;
        ++day;
    }
    seconds = secs;
}

void appendTwo(std::string& out, int v) {
    out += static_cast<char>('0' + (v / 10) % 10);
    out += static_cast<char>('0' + v % 10);
}

}  // namespace

DateValue makeDate(const DateParts& p) {
    double day = static_cast<double>(daysFromCivil(p.year, p.month, p.day) - EpochOffset);
    double time = (p.hour * 3600.0 + p.minute * 60.0 + p.second) / 86400.0;
    return day >= 0 ? day + time : day - time;
}

DateParts splitDate(DateValue d) {
    int64_t day, seconds;
    dayAndSeconds(d, day, seconds);
    DateParts p;
    civilFromDays(day + EpochOffset, p.year, p.month, p.day);
    p.hour = static_cast<int>(seconds / 3600);
    p.minute = static_cast<int>(seconds / 60 % 60);
    p.second = static_cast<int>(seconds % 60);
    return p;
}

DateValue dateFromUnixSeconds(int64_t seconds) {
    std::time_t t = static_cast<std::time_t>(seconds);
    const std::tm tm = sys::localTime(t);
    return makeDate({tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec});
}

std::string generalDate(DateValue d) {
    int64_t day, seconds;
    dayAndSeconds(d, day, seconds);
    if (day == 0) return formatDate(d, "hh:mm:ss");
    if (seconds == 0) return formatDate(d, "dd-mm-yyyy");
    return formatDate(d, "dd-mm-yyyy hh:mm:ss");
}

std::string formatDate(DateValue d, std::string_view pattern) {
    const DateParts p = splitDate(d);
    std::string out;
    bool afterHour = false;
    size_t i = 0;
    while (i < pattern.size()) {
        char c = static_cast<char>(std::tolower(static_cast<unsigned char>(pattern[i])));
        size_t run = 1;
        while (i + run < pattern.size() &&
               std::tolower(static_cast<unsigned char>(pattern[i + run])) == static_cast<unsigned char>(c))
            ++run;
        switch (c) {
        case 'd':
            if (run == 1) out += std::to_string(p.day);
            else if (run == 2) appendTwo(out, p.day);
            else {
                int weekday = static_cast<int>(((daysFromCivil(p.year, p.month, p.day) % 7) + 11) % 7);
                std::string name = DayNames[weekday];
                out += run == 3 ? name.substr(0, 3) : name;
            }
            break;
        case 'm':
            if (afterHour && run <= 2) {
                if (run == 1) out += std::to_string(p.minute);
                else appendTwo(out, p.minute);
            } else if (run == 1) out += std::to_string(p.month);
            else if (run == 2) appendTwo(out, p.month);
            else {
                std::string name = MonthNames[p.month - 1];
                out += run == 3 ? name.substr(0, 3) : name;
            }
            break;
        case 'y':
            if (run <= 2) appendTwo(out, p.year % 100);
            else out += std::to_string(p.year);
            break;
        case 'h':
            if (run == 1) out += std::to_string(p.hour);
            else appendTwo(out, p.hour);
            break;
        case 'n':
            if (run == 1) out += std::to_string(p.minute);
            else appendTwo(out, p.minute);
            break;
        case 's':
            if (run == 1) out += std::to_string(p.second);
            else appendTwo(out, p.second);
            break;
        default: out.append(pattern.substr(i, run)); break;
        }
        if (c == 'h') afterHour = true;
        else if (c != ':' && c != ' ') afterHour = false;
        i += run;
    }
    return out;
}

namespace {

struct Token {
    bool number;
    int value;
    size_t length;
    std::string word;
};

int monthFromWord(const std::string& w) {
    if (w.size() < 3) return 0;
    for (int m = 0; m < 12; ++m) {
        std::string name = MonthNames[m];
        bool same = w.size() <= name.size();
        for (size_t k = 0; same && k < w.size(); ++k)
            same = std::tolower(static_cast<unsigned char>(w[k])) == std::tolower(static_cast<unsigned char>(name[k]));
        if (same) return m + 1;
    }
    return 0;
}

bool validDay(int y, int m, int d) {
    if (m < 1 || m > 12 || d < 1 || y < 100 || y > 9999) return false;
    int y2, m2, d2;
    civilFromDays(daysFromCivil(y, m, d), y2, m2, d2);
    return m2 == m && d2 == d;
}

}  // namespace

bool parseDateText(std::string_view text, DateValue& out) {
    // A zero character ends the text, as in the fixed-width date fields of
    // binary headers, where the padding follows the date.
    text = text.substr(0, text.find('\0'));
    std::vector<Token> date, time;
    bool inTime = false;
    size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        if (std::isdigit(static_cast<unsigned char>(c))) {
            size_t j = i;
            int v = 0;
            while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j])) && j - i < 6)
                v = v * 10 + (text[j++] - '0');
            Token t{true, v, j - i, {}};
            bool timeNext = j < text.size() && text[j] == ':';
            if (timeNext || inTime) {
                inTime = timeNext || (inTime && time.size() < 3);
                time.push_back(t);
            } else {
                date.push_back(t);
            }
            i = j;
        } else if (std::isalpha(static_cast<unsigned char>(c))) {
            size_t j = i;
            while (j < text.size() && std::isalpha(static_cast<unsigned char>(text[j]))) ++j;
            date.push_back({false, 0, j - i, std::string(text.substr(i, j - i))});
            i = j;
        } else if (c == ' ' || c == '-' || c == '/' || c == '.' || c == ',' || c == ':') {
            ++i;
        } else {
            return false;
        }
    }
    if (date.size() > 3 || time.size() > 3 || (date.empty() && time.empty())) return false;
    DateParts p;
    if (date.size() == 3) {
        if (!date[0].number || !date[2].number) return false;
        int month = date[1].number ? date[1].value : monthFromWord(date[1].word);
        if (date[0].length == 4) {
            p.year = date[0].value;
            p.month = month;
            p.day = date[2].value;
        } else {
            p.day = date[0].value;
            p.month = month;
            p.year = date[2].value;
            if (date[2].length <= 2) p.year += p.year < 30 ? 2000 : 1900;
        }
        if (!validDay(p.year, p.month, p.day)) return false;
    } else if (!date.empty()) {
        return false;
    }
    if (!time.empty()) {
        if (time.size() < 2) return false;
        p.hour = time[0].value;
        p.minute = time[1].value;
        p.second = time.size() > 2 ? time[2].value : 0;
        if (p.hour > 23 || p.minute > 59 || p.second > 59) return false;
    }
    out = makeDate(p);
    return true;
}

}  // namespace kestro
