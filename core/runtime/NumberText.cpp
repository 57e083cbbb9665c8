#include "core/runtime/NumberText.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "core/runtime/Dates.h"
#include "core/runtime/Portable.h"
#include "core/runtime/RuntimeError.h"

namespace kestro {

namespace {

constexpr int DoubleDigits = 15;
constexpr int SingleDigits = 7;

// Room for the longest text of a number, and for the fixed-size copies
// that build it.
constexpr size_t TextRoom = 48;
constexpr size_t MantissaRoom = 32;

// Writes significant digits mantissa[0..n) (no trailing zeros; the array
// has MantissaRoom bytes), the first of them at the decimal `exponent`, in
// the fixed or the exponent form, at p (TextRoom bytes); returns the end.
char* layOut(char* p, const char* mantissa, int n, int exponent, int digits) {
    // Always 16 bytes, so no call is made for a few: the room allows it.
    const auto copy = [&p](const char* from, int count) {
        std::memcpy(p, from, 16);
        p += count;
    };
    if (exponent >= digits || exponent < -4) {
        *p++ = mantissa[0];
        if (n > 1) {
            *p++ = '.';
            copy(mantissa + 1, n - 1);
        }
        *p++ = 'E';
        *p++ = exponent < 0 ? '-' : '+';
        const int ax = std::abs(exponent);
        if (ax < 10) *p++ = '0';
        return std::to_chars(p, p + 3, ax).ptr;
    }
    if (exponent < 0) {
        *p++ = '0';
        *p++ = '.';
        std::memset(p, '0', 4);
        p += -exponent - 1;
        copy(mantissa, n);
        return p;
    }
    const int whole = exponent + 1;
    if (n <= whole) {
        copy(mantissa, n);
        std::memset(p, '0', 16);
        return p + (whole - n);
    }
    copy(mantissa, whole);
    *p++ = '.';
    copy(mantissa + whole, n - whole);
    return p;
}

constexpr char DigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

constexpr uint64_t FivePowers[] = {1,           5,           25,          125,           625,
                                   3125,        15625,       78125,       390625,        1953125,
                                   9765625,     48828125,    244140625,   1220703125,    6103515625,
                                   30517578125, 152587890625, 762939453125, 3814697265625, 19073486328125};

// The `count` last decimal digits of m, ending at `end`.
void writeLastDigits(char* end, uint32_t m, int count) {
    for (; count >= 2; count -= 2, m /= 100) {
        end -= 2;
        std::memcpy(end, DigitPairs + (m % 100) * 2, 2);
    }
    if (count) end[-1] = static_cast<char>('0' + m % 10);
}

// Writes the decimal digits of m (below 10^digits), trailing zeros dropped, laid out.
char* writeDigitsOf(char* p, uint64_t m, int exponent, int digits) {
    char mantissa[MantissaRoom];
    // Eight digits at a time, in 32 bits.
    constexpr uint64_t EightDigits = 100'000'000;
    if (digits > 8) {
        writeLastDigits(mantissa + digits, static_cast<uint32_t>(m % EightDigits), 8);
        writeLastDigits(mantissa + digits - 8, static_cast<uint32_t>(m / EightDigits), digits - 8);
    } else {
        writeLastDigits(mantissa + digits, static_cast<uint32_t>(m), digits);
    }
    int n = digits;
    while (n > 1 && mantissa[n - 1] == '0') --n;
    return layOut(p, mantissa, n, exponent, digits);
}

// m x 2^twos rounded half to even to a whole number; twos is above -64.
uint64_t roundedShift(uint64_t m, int twos) {
    if (twos >= 0) return m << twos;
    const uint64_t whole = m >> -twos;
    const uint64_t rest = m & ((uint64_t{1} << -twos) - 1);
    const uint64_t half = uint64_t{1} << (-twos - 1);
    return whole + (rest > half || (rest == half && whole % 2 != 0));
}

__extension__ typedef unsigned __int128 Wide;

Wide roundedShift(Wide m, int twos) {
    if (twos >= 0) return m << twos;
    const Wide one = 1;
    const Wide whole = m >> -twos;
    const Wide rest = m & ((one << -twos) - 1);
    const Wide half = one << (-twos - 1);
    return whole + (rest > half || (rest == half && whole % 2 != 0));
}

// The decimal exponent of a from 1E-05 on, below the last power of ten in
// `tens` (which starts at 1E-05): from a's binary exponent p, it is
// p x log10(2) or one more.
template <size_t N>
int decimalExponent(double a, int p, const double (&tens)[N]) {
    int exponent = std::max(-5, (p * 78913) >> 18);
    while (a >= tens[exponent + 6]) ++exponent;
    return exponent;
}

constexpr double Tens[] = {1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1,    1e1,  1e2,  1e3,  1e4, 1e5,
                           1e6,  1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

// The 15 significant digits of a Double between 1E-05 and 1E+15, without a
// round trip through a scientific text. A Double is M x 2^E with M below
// 2^53, so a x 10^k (k <= 19) is M x 5^k x 2^(E + k), whose M x 5^k fits
// 128 bits: its whole part and the rest are exact, and rounding half to even
// gives the digits the general rule gives. X values of spectra are nearly
// all such values. Returns nullptr for any other value.
char* writeDoubleDigits(char* p, double a) {
    constexpr uint64_t Lowest = 100'000'000'000'000;  // 10^14
    if (!(a >= 1e-5 && a < 1e15)) return nullptr;
    const auto bits = portable::bitCast<uint64_t>(a);
    const uint64_t significand = (bits & 0xFFFFFFFFFFFFFull) | 0x10000000000000ull;
    const int binaryExponent = static_cast<int>((bits >> 52) & 0x7FF) - 1075;
    int exponent = decimalExponent(a, binaryExponent + 52, Tens);
    // A power of ten that is no Double may have put the exponent one too high.
    const auto digitsFor = [&](int e) {
        const int k = DoubleDigits - 1 - e;
        return static_cast<uint64_t>(roundedShift(static_cast<Wide>(significand) * FivePowers[k], binaryExponent + k));
    };
    uint64_t m = digitsFor(exponent);
    if (m < Lowest) m = digitsFor(--exponent);
    if (m >= 10 * Lowest) {
        m = Lowest;
        ++exponent;
    }
    return writeDigitsOf(p, m, exponent, DoubleDigits);
}

// The 7 significant digits of a Single between 1E-05 and 1E+07, in the same
// way: M below 2^24 and k <= 11, so M x 5^k fits 64 bits. Angles of scans
// are nearly all such values. Returns nullptr for any other value.
char* writeSingleDigits(char* p, double a) {
    if (!(a >= 1e-5 && a < 1e7) || static_cast<double>(static_cast<float>(a)) != a) return nullptr;
    const auto bits = portable::bitCast<uint32_t>(static_cast<float>(a));
    const int binaryExponent = static_cast<int>((bits >> 23) & 0xFF) - 150;
    int exponent = decimalExponent(a, binaryExponent + 23, Tens);
    const int k = SingleDigits - 1 - exponent;
    uint64_t m = roundedShift(((bits & 0x7FFFFFu) | 0x800000u) * FivePowers[k], binaryExponent + k);
    if (m == 10'000'000) {
        m = 1'000'000;
        ++exponent;
    }
    return writeDigitsOf(p, m, exponent, SingleDigits);
}

// Writes |v|'s digits (no sign) with the given number of significant digits
// at p (TextRoom bytes); returns the end.
char* writeMagnitude(char* p, double v, int digits) {
    const double a = std::fabs(v);
    if (a == 0) {
        *p = '0';
        return p + 1;
    }
    if (std::isinf(a)) return std::copy_n("1.#INF", 6, p);
    if (std::isnan(a)) return std::copy_n("1.#QNAN", 7, p);
    const double wholeLimit = digits == DoubleDigits ? 1e15 : 1e7;
    if (a < wholeLimit && a == std::trunc(a)) return std::to_chars(p, p + 24, static_cast<int64_t>(a)).ptr;
    if (char* end = digits == SingleDigits ? writeSingleDigits(p, a) : writeDoubleDigits(p, a)) return end;
    char buf[48];
    auto r = portable::toScientific(buf, buf + sizeof buf, a, digits - 1);
    // buf holds d[.ddd]e[+-]xx
    char* e = static_cast<char*>(std::memchr(buf, 'e', static_cast<size_t>(r.ptr - buf)));
    int exponent = 0;
    std::from_chars(e + 1 + (e[1] == '+'), r.ptr, exponent);
    char mantissa[MantissaRoom];
    int n = 0;
    for (char* q = buf; q < e; ++q)
        if (*q != '.') mantissa[n++] = *q;
    while (n > 1 && mantissa[n - 1] == '0') --n;
    return layOut(p, mantissa, n, exponent, digits);
}

void appendMagnitude(std::string& out, double v, int digits) {
    char text[TextRoom];
    out.append(text, writeMagnitude(text, v, digits));
}

void appendNumber(std::string& out, double v, int digits) {
    if (v < 0) out += '-';
    appendMagnitude(out, v, digits);
}

void appendSignedNumber(std::string& out, double v, int digits) {
    out += v < 0 ? '-' : ' ';
    appendMagnitude(out, v, digits);
}

int digitsOf(const Value& v) { return v.kind == Value::Kind::Single ? SingleDigits : DoubleDigits; }

}  // namespace

double Value::toNumber() const {
    switch (kind) {
    case Kind::Integer: return static_cast<double>(integer);
    case Kind::Single:
    case Kind::Double: return number;
    case Kind::Text: return leadingNumber(text);
    case Kind::Empty: break;
    }
    return 0;
}

std::string plainText(double v) { std::string s; appendNumber(s, v, DoubleDigits); return s; }
std::string plainText(float v) { std::string s; appendNumber(s, v, SingleDigits); return s; }
std::string plainText(int64_t v) { return std::to_string(v); }
std::string plainText(int v) { return std::to_string(v); }

std::string plainText(const Value& v) {
    switch (v.kind) {
    case Value::Kind::Integer: return plainText(v.integer);
    case Value::Kind::Single:
    case Value::Kind::Double: {
        std::string s;
        appendNumber(s, v.number, digitsOf(v));
        return s;
    }
    case Value::Kind::Text: return v.text;
    case Value::Kind::Empty: break;
    }
    return {};
}

std::string signedText(double v) { std::string s; appendSignedNumber(s, v, DoubleDigits); return s; }
std::string signedText(float v) { std::string s; appendSignedNumber(s, v, SingleDigits); return s; }
std::string signedText(int64_t v) { return v < 0 ? std::to_string(v) : ' ' + std::to_string(v); }
std::string signedText(int v) { return signedText(static_cast<int64_t>(v)); }

std::string signedText(const Value& v) {
    switch (v.kind) {
    case Value::Kind::Integer: return signedText(v.integer);
    case Value::Kind::Single:
    case Value::Kind::Double: {
        std::string s;
        appendSignedNumber(s, v.number, digitsOf(v));
        return s;
    }
    case Value::Kind::Text: return signedText(leadingNumber(v.text));
    case Value::Kind::Empty: break;
    }
    return " 0";
}

void appendPlainText(std::string& out, double v) { appendNumber(out, v, DoubleDigits); }
void appendPlainText(std::string& out, float v) { appendNumber(out, v, SingleDigits); }

// The fast paths come first here: for the values they take, whole numbers
// included, they give the very digits of the general rule.
char* writePlainText(char* out, float v) {
    if (v < 0) *out++ = '-';
    if (char* end = writeSingleDigits(out, std::fabs(v))) return end;
    return writeMagnitude(out, v, SingleDigits);
}

char* writePlainText(char* out, double v) {
    if (v < 0) *out++ = '-';
    if (char* end = writeDoubleDigits(out, std::fabs(v))) return end;
    return writeMagnitude(out, v, DoubleDigits);
}

char* writeSignedText(char* out, float v) {
    *out++ = v < 0 ? '-' : ' ';
    if (char* end = writeSingleDigits(out, std::fabs(v))) return end;
    return writeMagnitude(out, v, SingleDigits);
}

char* writePrintItemOfSingle(char* out, float v) {
    char* end = writeSignedText(out, v);
    *end = ' ';
    return end + 1;
}

char* writeSignedText(char* out, double v) {
    *out++ = v < 0 ? '-' : ' ';
    if (char* end = writeDoubleDigits(out, std::fabs(v))) return end;
    return writeMagnitude(out, v, DoubleDigits);
}

namespace {

// The 8 decimal digits of n (below 10^8, leading zeros kept) at `out`, two
// at a time from the top: n / 10^6 in fixed point with 57 fraction bits,
// rounded up, is close enough that each hundredfold's whole part is the
// next pair (checked for every n).
void writeEightDigits(char* out, uint32_t n) {
    constexpr int Point = 57;
    constexpr uint64_t Mask = (uint64_t{1} << Point) - 1;
    const auto pairAt = [](char* at, uint64_t t) { std::memcpy(at, DigitPairs + 2 * (t >> Point), 2); };
    uint64_t t = uint64_t{n} * 144'115'188'076;  // 2^57 / 10^6, rounded up
    pairAt(out, t);
    pairAt(out + 2, t = (t & Mask) * 100);
    pairAt(out + 4, t = (t & Mask) * 100);
    pairAt(out + 6, (t & Mask) * 100);
}

}  // namespace

// The fraction is exact in `fractionBits` bits, so the 15 significant
// digits are an exact product, and what is left rounds half to even, as the
// general rule does; from 1 to 1E+14 the rule's layout is the fixed one.
char* writeSignedScaledText(char* out, int64_t whole, int fractionBits) {
    constexpr uint64_t ExactLimit = uint64_t{1} << 53;  // a Double holds every whole number below
    constexpr uint64_t Lowest = 100'000'000'000'000;   // 10^14, the lowest mantissa of 15 digits
    constexpr uint64_t EightDigits = 100'000'000;
    const uint64_t magnitude = whole < 0 ? uint64_t{0} - static_cast<uint64_t>(whole) : static_cast<uint64_t>(whole);
    const uint64_t units = fractionBits >= 0 && fractionBits < 64 ? magnitude >> fractionBits : 0;
    if (magnitude >= ExactLimit || units == 0 || units >= Lowest)
        return writeSignedText(out, static_cast<double>(whole) * std::exp2(-fractionBits));
    *out++ = whole < 0 ? '-' : ' ';
    const uint64_t fraction = magnitude & ((uint64_t{1} << fractionBits) - 1);
    int exponent = decimalExponent(static_cast<double>(units), std::bit_width(units) - 1, Tens);
    const int kept = DoubleDigits - 1 - exponent;  // fraction digits: 1 to 14
    const uint64_t scale = FivePowers[kept] * (uint64_t{1} << kept);
    // The product mostly fits 64 bits, whose shift is the quicker.
    const bool narrow = std::bit_width(fraction) + std::bit_width(scale) <= 64;
    uint64_t m = units * scale + (narrow ? roundedShift(fraction * scale, -fractionBits)
                                        : static_cast<uint64_t>(roundedShift(static_cast<Wide>(fraction) * scale, -fractionBits)));
    if (m == 10 * Lowest) {
        m = Lowest;
        ++exponent;
    }
    char digits[MantissaRoom];  // a leading 0, then the 15 digits
    writeEightDigits(digits, static_cast<uint32_t>(m / EightDigits));
    writeEightDigits(digits + 8, static_cast<uint32_t>(m % EightDigits));
    const char* mantissa = digits + 1;
    const int wholeDigits = exponent + 1;
    int n = DoubleDigits;
    while (n > wholeDigits && mantissa[n - 1] == '0') --n;
    std::memcpy(out, mantissa, 16);  // the room allows whole copies
    out += wholeDigits;
    if (n == wholeDigits) return out;
    *out++ = '.';
    std::memcpy(out, mantissa + wholeDigits, 16);
    return out + (n - wholeDigits);
}

void appendPlainText(std::string& out, int64_t v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
}

char* writePrintItem(char* p, int64_t v) {
    *p++ = v < 0 ? '-' : ' ';
    uint64_t u = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    // The digits are written in place from the last one back, two at a time:
    // no library call for a few bytes.
    static constexpr uint64_t Tens[] = {10ull,
                                        100ull,
                                        1000ull,
                                        10000ull,
                                        100000ull,
                                        1000000ull,
                                        10000000ull,
                                        100000000ull,
                                        1000000000ull,
                                        10000000000ull,
                                        100000000000ull,
                                        1000000000000ull,
                                        10000000000000ull,
                                        100000000000000ull,
                                        1000000000000000ull,
                                        10000000000000000ull,
                                        100000000000000000ull,
                                        1000000000000000000ull,
                                        10000000000000000000ull};
    int length = 1;
    while (length < 20 && u >= Tens[length - 1]) ++length;
    char* end = p + length;
    char* d = end;
    while (u >= 100) {
        d -= 2;
        std::memcpy(d, DigitPairs + (u % 100) * 2, 2);
        u /= 100;
    }
    if (u >= 10) {
        d -= 2;
        std::memcpy(d, DigitPairs + u * 2, 2);
    } else {
        *--d = static_cast<char>('0' + u);
    }
    *end++ = ' ';
    return end;
}

void appendPrintItem(std::string& out, double v) {
    if (std::fabs(v) < 1e15 && v == std::trunc(v)) {
        char buf[24];
        out.append(buf, writePrintItem(buf, static_cast<int64_t>(v)));
        return;
    }
    appendSignedNumber(out, v, DoubleDigits);
    out += ' ';
}

void appendPrintItem(std::string& out, float v) {
    appendSignedNumber(out, v, SingleDigits);
    out += ' ';
}

void appendSignedText(std::string& out, float v) { appendSignedNumber(out, v, SingleDigits); }

void appendPrintItem(std::string& out, int64_t v) {
    char buf[24];
    out.append(buf, writePrintItem(buf, v));
}

void appendPrintItem(std::string& out, const Value& v) {
    switch (v.kind) {
    case Value::Kind::Integer: appendPrintItem(out, v.integer); break;
    case Value::Kind::Double: appendPrintItem(out, v.number); break;
    case Value::Kind::Single:
        appendSignedNumber(out, v.number, SingleDigits);
        out += ' ';
        break;
    case Value::Kind::Text: out += v.text; break;
    case Value::Kind::Empty: break;
    }
}

std::string printItem(const Value& v) {
    std::string s;
    appendPrintItem(s, v);
    return s;
}

void appendRightAligned(std::string& out, std::string_view text, size_t width) {
    if (text.size() < width) out.append(width - text.size(), ' ');
    out += text;
}

std::string rightAligned(std::string_view text, size_t width) {
    std::string s;
    appendRightAligned(s, text, width);
    return s;
}

std::string spaces(int64_t n) {
    if (n < 0) raise(err::InvalidCall);
    return std::string(static_cast<size_t>(n), ' ');
}

std::string hexText(int64_t v, int bits) {
    uint64_t u = static_cast<uint64_t>(v);
    if (bits < 64) u &= (uint64_t{1} << bits) - 1;
    char buf[20];
    auto r = std::to_chars(buf, buf + sizeof buf, u, 16);
    std::string s(buf, r.ptr);
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// ---- text to number ----

namespace {

bool isSkippedBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

double radixNumber(std::string_view s, size_t i, int radix) {
    uint64_t value = 0;
    int digits = 0;
    for (; i < s.size(); ++i) {
        char c = s[i];
        if (isSkippedBlank(c)) continue;
        int d = (c >= '0' && c <= '9') ? c - '0'
              : (radix == 16 && c >= 'a' && c <= 'f') ? c - 'a' + 10
              : (radix == 16 && c >= 'A' && c <= 'F') ? c - 'A' + 10
              : 99;
        if (d >= radix) break;
        value = value * static_cast<uint64_t>(radix) + static_cast<uint64_t>(d);
        if (++digits > 11 || value > 0xFFFFFFFFull) raise(err::Overflow);
    }
    // Values that fit 16 bits are read as 16-bit, others as 32-bit, both signed.
    if (value <= 0xFFFF) return static_cast<int16_t>(static_cast<uint16_t>(value));
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

}  // namespace

double leadingNumber(std::string_view s) {
    size_t i = 0;
    while (i < s.size() && isSkippedBlank(s[i])) ++i;
    if (i + 1 < s.size() && s[i] == '&') {
        char k = static_cast<char>(std::toupper(static_cast<unsigned char>(s[i + 1])));
        if (k == 'H') return radixNumber(s, i + 2, 16);
        if (k == 'O') return radixNumber(s, i + 2, 8);
    }
    std::string clean;
    auto put = [&](char c) { clean += c; };
    enum Stage { Sign, Whole, Fraction, ExpSign, ExpDigits } stage = Sign;
    bool anyDigit = false;
    for (; i < s.size(); ++i) {
        char c = s[i];
        if (isSkippedBlank(c)) continue;
        if ((c == '+' || c == '-') && (stage == Sign || stage == ExpSign)) {
            put(c);
            stage = stage == Sign ? Whole : ExpDigits;
        } else if (c >= '0' && c <= '9' && stage != ExpSign) {
            put(c);
            if (stage == Sign) stage = Whole;
            if (stage != ExpDigits) anyDigit = true;
        } else if (c >= '0' && c <= '9') {
            put(c);
            stage = ExpDigits;
        } else if (c == '.' && (stage == Sign || stage == Whole)) {
            put(c);
            stage = Fraction;
        } else if ((c == 'e' || c == 'E' || c == 'd' || c == 'D') && anyDigit &&
                   (stage == Whole || stage == Fraction)) {
            put('e');
            stage = ExpSign;
        } else {
            break;
        }
    }
    if (!anyDigit) return 0;
    const char* first = clean.data();
    const char* end = first + clean.size();
    if (*first == '+') ++first;
    double v = 0;
    auto r = portable::fromChars(first, end, v);
    if (r.ec == std::errc::result_out_of_range) {
        // Underflow reads as zero; anything larger than a double is Overflow.
        size_t e = clean.find('e');
        if (e != std::string::npos && e + 1 < clean.size() && clean[e + 1] == '-') return 0;
        raise(err::Overflow);
    }
    return v;
}

char* writePrintItemOfPlainText(char* out, std::string_view s) {
    const char* p = s.data();
    const char* const end = p + s.size();
    const bool negative = p != end && *p == '-';
    p += negative;
    const char* point = p;
    while (point != end && static_cast<unsigned>(*point - '0') <= 9) ++point;
    const size_t whole = static_cast<size_t>(point - p);
    if (whole == 0 || whole > 15 || (*p == '0' && whole > 1)) return nullptr;
    if (point == end) {
        if (*p == '0' && negative) return nullptr;  // "-0" prints as 0
    } else {
        // A fraction as the rule writes it: no trailing zero, at most 15
        // significant digits (which survive the trip through a double), and
        // no exponent form (below 0.0001).
        if (*point != '.') return nullptr;
        const char* fraction = point + 1;
        const char* last = fraction;
        while (last != end && static_cast<unsigned>(*last - '0') <= 9) ++last;
        if (last != end || last == fraction || last[-1] == '0') return nullptr;
        size_t significant = whole + static_cast<size_t>(last - fraction);
        if (*p == '0') {
            const char* firstNonZero = fraction;
            while (*firstNonZero == '0') ++firstNonZero;
            if (firstNonZero - fraction > 3) return nullptr;
            significant = static_cast<size_t>(last - firstNonZero);
        }
        if (significant > 15) return nullptr;
    }
    *out++ = negative ? '-' : ' ';
    std::memcpy(out, p, static_cast<size_t>(end - p));
    out += end - p;
    *out++ = ' ';
    return out;
}

char* CountingPrintItems::write(char* out) const {
    *out++ = ' ';
    for (int i = 0; i < length_; ++i) *out++ = digits_[i];
    *out++ = ' ';
    return out;
}

void CountingPrintItems::next() {
    ++value_;
    for (int i = length_ - 1; i >= 0; --i) {
        if (digits_[i] != '9') {
            ++digits_[i];
            return;
        }
        digits_[i] = '0';
    }
    // All nines: one digit more, "1" then zeros.
    digits_[0] = '1';
    digits_[length_++] = '0';
}

bool parseDecimalDigits(std::string_view s, int64_t& out) {
    size_t i = !s.empty() && s[0] == '-' ? 1 : 0;
    if (s.size() == i || s.size() - i > 15) return false;
    int64_t v = 0;
    for (size_t k = i; k < s.size(); ++k) {
        unsigned d = static_cast<unsigned char>(s[k]) - static_cast<unsigned>('0');
        if (d > 9) return false;
        v = v * 10 + d;
    }
    out = i ? -v : v;
    return true;
}

namespace {

// The common case of channel data, exact in a double without the general parser.
bool wholeDigits(std::string_view s, double& out) {
    int64_t v;
    if (!parseDecimalDigits(s, v)) return false;
    out = v == 0 && s[0] == '-' ? -0.0 : static_cast<double>(v);
    return true;
}

}  // namespace

bool parseWholeNumber(std::string_view s, double& out) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    if (s.empty() || s.size() > 80) return false;
    if (wholeDigits(s, out)) return true;
    char buf[96];
    size_t n = 0;
    size_t i = 0;
    if (s[0] == '+' || s[0] == '-') {
        if (s[0] == '-') buf[n++] = '-';
        i = 1;
    }
    bool digits = false;
    for (; i < s.size(); ++i) {
        char c = s[i];
        if (c >= '0' && c <= '9') digits = true;
        else if (c == 'd' || c == 'D') c = 'e';
        else if (c != '.' && c != 'e' && c != 'E' && c != '+' && c != '-') return false;
        buf[n++] = c;
    }
    if (!digits) return false;
    auto r = portable::fromChars(buf, buf + n, out);
    if (r.ec == std::errc::result_out_of_range) raise(err::Overflow);
    return r.ec == std::errc() && r.ptr == buf + n;
}

namespace {

template <typename Int>
Int roundHalfEven(double v) {
    double r = std::nearbyint(v);  // the default rounding mode: half to even
    if (!(r >= static_cast<double>(std::numeric_limits<Int>::min()) &&
          r <= static_cast<double>(std::numeric_limits<Int>::max())))
        raise(err::Overflow);
    return static_cast<Int>(r);
}

}  // namespace

int16_t roundToInt16(double v) { return roundHalfEven<int16_t>(v); }
int32_t roundToInt32(double v) { return roundHalfEven<int32_t>(v); }

int64_t roundToInt64(double v) {
    const double r = std::nearbyint(v);
    // 2^63 itself does not fit; every double below it does.
    if (!(r >= -9223372036854775808.0 && r < 9223372036854775808.0)) raise(err::Overflow);
    return static_cast<int64_t>(r);
}

float toSingle(double v) {
    if (!(std::fabs(v) <= std::numeric_limits<float>::max())) raise(err::Overflow);
    return static_cast<float>(v);
}

double divide(double dividend, double divisor) {
    if (divisor == 0) raise(dividend == 0 || std::isnan(dividend) ? err::Overflow : err::DivisionByZero);
    const double quotient = dividend / divisor;
    if (!std::isfinite(quotient)) raise(err::Overflow);
    return quotient;
}

// ---- format patterns ----

namespace {

// |v| as decimal digits: value = 0.d1d2d3... x 10^pointPos.
struct Decimal {
    std::string digits;
    int pointPos = 0;
};

Decimal toDecimal(double v) {
    Decimal d;
    double a = std::fabs(v);
    if (a == 0 || !std::isfinite(a)) return d;
    char buf[48];
    auto r = portable::toScientific(buf, buf + sizeof buf, a, DoubleDigits - 1);
    char* e = static_cast<char*>(std::memchr(buf, 'e', static_cast<size_t>(r.ptr - buf)));
    int exponent = 0;
    std::from_chars(e + 1 + (e[1] == '+'), r.ptr, exponent);
    for (char* p = buf; p < e; ++p)
        if (*p != '.') d.digits += *p;
    d.pointPos = exponent + 1;
    return d;
}

// Whole and fraction digit texts of |v| rounded half away from zero to `decimals` places.
void roundedParts(double v, int decimals, std::string& whole, std::string& fraction) {
    Decimal d = toDecimal(v);
    int keep = d.pointPos + decimals;  // digits kept from d.digits
    if (keep < 0) {
        d.digits.clear();
        d.pointPos = 0;
    } else if (keep < static_cast<int>(d.digits.size())) {
        bool up = d.digits[static_cast<size_t>(keep)] >= '5';
        d.digits.resize(static_cast<size_t>(keep));
        for (int i = keep - 1; up && i >= 0; --i) {
            char& c = d.digits[static_cast<size_t>(i)];
            if (c == '9') c = '0';
            else { ++c; up = false; }
        }
        if (up) {
            d.digits.insert(d.digits.begin(), '1');
            ++d.pointPos;
        }
    }
    whole.clear();
    fraction.clear();
    for (int i = 0; i < d.pointPos; ++i)
        whole += i < static_cast<int>(d.digits.size()) ? d.digits[static_cast<size_t>(i)] : '0';
    for (int i = 0; i < decimals; ++i) {
        int k = d.pointPos + i;
        fraction += (k >= 0 && k < static_cast<int>(d.digits.size())) ? d.digits[static_cast<size_t>(k)] : '0';
    }
    size_t nz = whole.find_first_not_of('0');
    whole = nz == std::string::npos ? std::string() : whole.substr(nz);
}

bool isDigitPlaceholder(char c) { return c == '0' || c == '#'; }

bool isDatePatternText(std::string_view p) {
    bool any = false;
    for (char c : p) {
        char l = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (l == '0' || l == '#' || l == '@') return false;
        if (l == 'd' || l == 'm' || l == 'y' || l == 'h' || l == 'n' || l == 's') any = true;
    }
    return any;
}

}  // namespace

std::string formatNumber(double v, std::string_view pattern) {
    size_t semi = pattern.find(';');
    bool negative = v < 0;
    std::string_view section = pattern.substr(0, semi);
    if (negative && semi != std::string_view::npos) {
        section = pattern.substr(semi + 1);
        section = section.substr(0, section.find(';'));
    }
    size_t first = 0;
    while (first < section.size() && !isDigitPlaceholder(section[first]) && section[first] != '.') ++first;
    size_t last = first;
    while (last < section.size() && (isDigitPlaceholder(section[last]) || section[last] == '.' || section[last] == ','))
        ++last;
    std::string_view prefix = section.substr(0, first);
    std::string_view body = section.substr(first, last - first);
    std::string_view suffix = section.substr(last);

    size_t point = body.find('.');
    std::string_view wholeSpec = body.substr(0, point);
    std::string_view fractionSpec = point == std::string_view::npos ? std::string_view() : body.substr(point + 1);
    int decimals = 0, minDecimals = 0, minWhole = 0;
    for (size_t i = 0; i < fractionSpec.size(); ++i) {
        if (!isDigitPlaceholder(fractionSpec[i])) continue;
        ++decimals;
        if (fractionSpec[i] == '0') minDecimals = decimals;
    }
    for (char c : wholeSpec) minWhole += c == '0';

    std::string whole, fraction;
    roundedParts(v, decimals, whole, fraction);
    while (static_cast<int>(fraction.size()) > minDecimals && fraction.back() == '0') fraction.pop_back();
    if (static_cast<int>(whole.size()) < minWhole) whole.insert(0, static_cast<size_t>(minWhole) - whole.size(), '0');

    std::string out;
    if (negative && semi == std::string_view::npos) out += '-';
    out += prefix;
    out += whole;
    if (point != std::string_view::npos) {
        out += '.';
        out += fraction;
    }
    out += suffix;
    return out;
}

std::string formatText(std::string_view text, std::string_view pattern) {
    if (!pattern.empty() && pattern.find_first_not_of('@') == std::string_view::npos)
        return rightAligned(text, pattern.size());
    if (isDatePatternText(pattern)) {
        DateValue d;
        if (parseDateText(text, d)) return formatDate(d, pattern);
        return std::string(text);
    }
    double v;
    if (parseWholeNumber(text, v)) return formatNumber(v, pattern);
    return std::string(text);
}

}  // namespace kestro
