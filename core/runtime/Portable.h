#pragma once
// The few standard-library pieces the WebAssembly toolchain's library lacks,
// in one place: bit casts, floating-point to_chars with a precision and
// floating-point from_chars. Natively they are the standard ones; in the
// web build they are rebuilt on the C library's correctly rounded printf and
// strtod, which give the same digits (a test checks millions of values).
// Engine code uses these for doubles, never the std ones, or the web build
// does not compile.
#include <charconv>
#include <cstdint>
#include <system_error>

#ifdef __EMSCRIPTEN__
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#else
#include <unistd.h>

#include <bit>
#endif

namespace kestro::portable {

template <typename To, typename From>
constexpr To bitCast(const From& from) {
#ifdef __EMSCRIPTEN__
    return __builtin_bit_cast(To, from);
#else
    return std::bit_cast<To>(from);
#endif
}

// d.ddd...e[+-]xx with `precision` digits after the point, as
// std::to_chars(first, last, v, std::chars_format::scientific, precision).
inline std::to_chars_result toScientific(char* first, char* last, double v, int precision) {
#ifdef __EMSCRIPTEN__
    char buf[400];
    const int n = std::snprintf(buf, sizeof buf, "%.*e", precision, v);
    if (n < 0 || n > last - first) return {last, std::errc::value_too_large};
    std::memcpy(first, buf, static_cast<size_t>(n));
    return {first + n, std::errc()};
#else
    return std::to_chars(first, last, v, std::chars_format::scientific, precision);
#endif
}

// As std::from_chars(first, last, v) in the general format: an optional
// minus, digits with an optional point, an optional exponent; "inf" and
// "nan" too. Out of range (overflow, or digits that round to zero) leaves v
// as it was.
inline std::from_chars_result fromChars(const char* first, const char* last, double& v) {
#ifdef __EMSCRIPTEN__
    const char* p = first;
    if (p < last && *p == '-') ++p;
    auto lowerIs = [&](const char* at, const char* word) {
        for (; *word; ++at, ++word)
            if (at >= last || (*at | 0x20) != *word) return false;
        return true;
    };
    if (lowerIs(p, "inf") || lowerIs(p, "nan")) {
        const bool nan = (*p | 0x20) == 'n';
        p += 3;
        if (!nan && lowerIs(p, "inity")) p += 5;
        if (nan && p < last && *p == '(') {
            const char* q = p + 1;
            while (q < last && (std::isalnum(static_cast<unsigned char>(*q)) || *q == '_')) ++q;
            if (q < last && *q == ')') p = q + 1;
        }
        const double magnitude = nan ? __builtin_nan("") : __builtin_inf();
        v = *first == '-' ? -magnitude : magnitude;
        return {p, std::errc()};
    }
    bool digits = false, nonZero = false;
    auto scanDigits = [&] {
        for (; p < last && *p >= '0' && *p <= '9'; ++p) {
            digits = true;
            nonZero |= *p != '0';
        }
    };
    scanDigits();
    if (p < last && *p == '.') {
        ++p;
        scanDigits();
    }
    if (!digits) return {first, std::errc::invalid_argument};
    if (p < last && (*p | 0x20) == 'e') {
        const char* q = p + 1;
        if (q < last && (*q == '+' || *q == '-')) ++q;
        if (q < last && *q >= '0' && *q <= '9') {
            while (q < last && *q >= '0' && *q <= '9') ++q;
            p = q;
        }
    }
    char small[128];
    char* text = p - first < static_cast<long>(sizeof small) ? small : static_cast<char*>(std::malloc(p - first + 1));
    std::memcpy(text, first, static_cast<size_t>(p - first));
    text[p - first] = 0;
    errno = 0;
    const double r = std::strtod(text, nullptr);
    const bool overflow = errno == ERANGE && __builtin_isinf(r);
    if (text != small) std::free(text);
    if (overflow || (r == 0 && nonZero)) return {p, std::errc::result_out_of_range};
    v = r;
    return {p, std::errc()};
#else
    return std::from_chars(first, last, v);
#endif
}

// Whether a descriptor is a terminal; the web build's standard streams
// claim to be one always, and never are.
inline bool isTerminal(int fd) {
#ifdef __EMSCRIPTEN__
    (void)fd;
    return false;
#else
    return isatty(fd) != 0;
#endif
}

}  // namespace kestro::portable
