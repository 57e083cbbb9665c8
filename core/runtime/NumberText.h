#pragma once
// How numbers become text and text becomes numbers. Every number that any
// output holds goes through these rules, so the outputs stay byte-exact.
//
// Digits: 15 significant digits for doubles, 7 for singles, trailing zeros
// dropped, "." as decimal point, a leading "0" before the point, and the
// exponent form ("1E+15", "1.5E-07") outside 1E-05 < |x| < 10^digits.
#include <cstdint>
#include <string>
#include <string_view>

#include "core/runtime/Value.h"

namespace kestro {

// Plain-text rule: the digits alone, "-" in front of a negative number.
std::string plainText(double v);
std::string plainText(float v);
std::string plainText(int64_t v);
std::string plainText(int v);
std::string plainText(const Value& v);  // a text stands as it is; nothing is ""

// Signed-text rule: a leading blank unless negative (negative zero counts as zero).
std::string signedText(double v);
std::string signedText(float v);
std::string signedText(int64_t v);
std::string signedText(int v);
std::string signedText(const Value& v);

// Print item: a number gets a leading blank unless negative and one trailing
// blank; a text stands as it is; nothing prints nothing.
std::string printItem(const Value& v);

// The print item of a whole number written at `out`, which has room for 23
// characters; returns the end. For lines built in place.
char* writePrintItem(char* out, int64_t v);
// When `text` is exactly the plain text of a number of at most 15
// significant digits (an optional "-", digits without a leading zero, and a
// fraction without a trailing zero, not below 0.0001), writes its print item
// at `out` (room for 24 characters) and returns the end; otherwise nullptr.
// Channel data and event values are nearly all such texts, and need no
// conversion at all.
char* writePrintItemOfPlainText(char* out, std::string_view text);
// The plain text of a Single (7 digits) or a Double (15 digits) written at
// `out`, which has room for 49 characters (the text itself takes at most 25);
// returns the end. For lines built in place.
char* writePlainText(char* out, float v);
char* writePlainText(char* out, double v);
// The same by the signed-text rule, for a Single or a Double.
char* writeSignedText(char* out, float v);
char* writeSignedText(char* out, double v);
// What writeSignedText writes for the Double whole x exp2(-fractionBits):
// the integers spectra store scaled by a power of two. Values from 1 to
// 1E+14 take a short way (their fraction's digits come straight from its
// bits).
char* writeSignedScaledText(char* out, int64_t whole, int fractionBits);
// The print item of a Single (7 digits), the same room as writePlainText.
char* writePrintItemOfSingle(char* out, float v);
// The print items of 0, 1, 2, ... in turn, counted in text: the channel
// numbers of a two-column file, without a conversion per line.
class CountingPrintItems {
public:
    // The current number's print item at `out` (room for 22); returns the end.
    char* write(char* out) const;
    void next();
    int64_t value() const { return value_; }

private:
    char digits_[20] = {'0'};
    int length_ = 1;
    int64_t value_ = 0;
};

// A text of an optional "-" and 1 to 15 digits, nothing else: its value.
// Such a text reads the same as a whole number by every rule here.
bool parseDecimalDigits(std::string_view text, int64_t& out);

// Appending forms for the hot loops (no temporary strings).
void appendPlainText(std::string& out, double v);
void appendPlainText(std::string& out, float v);  // a Single, 7 digits
void appendPlainText(std::string& out, int64_t v);
void appendPrintItem(std::string& out, double v);
void appendPrintItem(std::string& out, float v);  // a Single, 7 digits
void appendPrintItem(std::string& out, int64_t v);
void appendSignedText(std::string& out, float v);
void appendPrintItem(std::string& out, const Value& v);

// Right-aligned in a field of width characters; a longer text is kept whole.
std::string rightAligned(std::string_view text, size_t width);
void appendRightAligned(std::string& out, std::string_view text, size_t width);

// n blanks; a negative count is the "Invalid procedure call" error.
std::string spaces(int64_t n);

// Format patterns: numeric ("0.0", "0.00", "###.0", " 0.####0", "00", ...),
// text ("@@@") and date ("dd-mm-yyyy", "hh:mm:ss", ...). Numbers round half
// away from zero, as the patterns always have.
std::string formatNumber(double v, std::string_view pattern);
// A text is formatted as the number or date it holds, else kept as it is;
// "@" patterns right-align it.
std::string formatText(std::string_view text, std::string_view pattern);

// Upper-case hexadecimal of a 16-bit or 32-bit value (negative numbers in
// two's complement of that width), without leading zeros.
std::string hexText(int64_t v, int bits = 32);

// Leading-number rule: blanks, tabs and line feeds are skipped, "." is the
// decimal point, an exponent may follow ("E" or "D"), "&H"/"&O" prefix hex
// and octal; 0 when the text holds no number. Out of range: Overflow.
double leadingNumber(std::string_view text);
// The whole text (after trimming blanks) is a number in the usual notation.
bool parseWholeNumber(std::string_view text, double& out);

// Rounding half to even into 16-bit and 32-bit integers; Overflow when the
// rounded value does not fit.
int16_t roundToInt16(double v);
int32_t roundToInt32(double v);
int64_t roundToInt64(double v);

// A double stored as a Single; beyond a Single's range, infinite or not a
// number: Overflow.
float toSingle(double v);
// Division with the classic faults: by zero, "Division by zero" (0 / 0 is
// Overflow); a result that is infinite or not a number, Overflow.
double divide(double dividend, double divisor);

}  // namespace kestro
