// Kestro's own reader of JCAMP-DX files, after the published standards:
//   R. S. McDonald and P. A. Wilks, "JCAMP-DX: A Standard Form for Exchange
//   of Infrared Spectra in Computer Readable Form", Appl. Spectrosc. 42
//   (1988) 151-162: labelled data records, AFFN and the ASDF forms (SQZ,
//   DIF, DUP, PAC) with the Y check of DIF lines;
//   its revision 4.24: linked blocks (##BLOCKS=), (XY..XY) tables and peak
//   tables;
//   JCAMP-DX 5.01 for NMR (A. N. Davies and P. Lampen, Appl. Spectrosc. 47
//   (1993) 1093-1099): ##NTUPLES= with their ##PAGE=s and ##DATA TABLE=s.
//
// Every data table of the file (##XYDATA=, ##XYPOINTS=, ##PEAK TABLE=, the
// ##DATA TABLE= of each NTUPLES page) gives one ".odf" of X and Y, in file
// order. Labels are compared as the standard compares them: blanks, "-",
// "_" and "/" left out, in upper case. The ".hdrx" lists every label line of
// every block as the file writes it, and what became of each table.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/runtime/NumberText.h"
#include "core/runtime/Portable.h"
#include "readers/Readers.h"
#include "readers/modern/ModernOutputs.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int DataFile = 2;
constexpr int HeaderFile = 3;
constexpr int64_t YColumn = 25;  // of the ".odf", as the classic reader writes it

// A file makes at most this many points a byte of its size. Real files take
// two bytes or more a point; runs of equal values (DUP) pack more, but not
// over a whole file. It bounds what a declared point count or an endless DUP
// count can make the reader hold (512 bytes a byte of input) or write.
constexpr int64_t PointsPerByte = 64;

// What is wrong with a table or a block, in words for the user.
struct Problem {
    std::string text;
};

[[noreturn]] void fail(std::string text) { throw Problem{std::move(text)}; }

std::string lineText(int64_t number) { return "line " + plainText(number) + ": "; }

std::string_view trimmed(std::string_view s) {
    const size_t first = s.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// Text from "$$" on is a comment.
std::string_view withoutComment(std::string_view s) { return s.substr(0, s.find("$$")); }

// ---- lines and labels ----

// The lines of a text, whatever their ends: CR LF, LF or CR.
class Lines {
public:
    explicit Lines(std::string_view text) : text_(text) {}
    bool next(std::string_view& line) {
        if (pos_ >= text_.size()) return false;
        const char* const begin = text_.data() + pos_;
        const char* const end = text_.data() + text_.size();
        const char* p = begin;
        while (p < end && *p != '\n' && *p != '\r') ++p;
        line = std::string_view(begin, static_cast<size_t>(p - begin));
        if (p < end && *p == '\r' && p + 1 < end && p[1] == '\n') ++p;
        pos_ = static_cast<size_t>(p - text_.data()) + 1;
        ++number_;
        return true;
    }
    int64_t number() const { return number_; }

private:
    std::string_view text_;
    size_t pos_ = 0;
    int64_t number_ = 0;
};

// A line that starts a labelled record: "##LABEL=value".
struct LabelLine {
    std::string label;      // as the standard compares it
    std::string_view name;  // as the file writes it, for messages
    std::string_view value;
};

bool readLabel(std::string_view line, LabelLine& out) {
    size_t at = line.find_first_not_of(" \t");
    if (at == std::string_view::npos || line.compare(at, 2, "##") != 0) return false;
    at += 2;
    const size_t equals = line.find('=', at);
    out.name = trimmed(line.substr(at, equals == std::string_view::npos ? std::string_view::npos : equals - at));
    out.label.clear();
    for (char c : out.name) {
        if (c == ' ' || c == '\t' || c == '-' || c == '_' || c == '/') continue;
        out.label += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    }
    out.value = equals == std::string_view::npos ? std::string_view() : line.substr(equals + 1);
    return true;
}

bool isDataLabel(std::string_view label) {
    return label == "XYDATA" || label == "XYPOINTS" || label == "PEAKTABLE" || label == "DATATABLE";
}

// The labels of a block, or of an NTUPLES page, that place and scale its
// tables (the others are only listed); a label given again counts from there
// on. Keeping only these bounds the list, however many labels a file has.
class Labels {
public:
    void set(const std::string& label, std::string_view value) {
        static constexpr std::string_view Kept[] = {"FIRSTX", "LASTX", "XFACTOR", "YFACTOR", "NPOINTS", "SYMBOL",
                                                    "FIRST",  "LAST",  "FACTOR",  "VARDIM",  "BLOCKS"};
        last_ = nullptr;
        if (std::find(std::begin(Kept), std::end(Kept), label) == std::end(Kept)) return;
        for (auto& [name, text] : entries_)
            if (name == label) {
                text.assign(value);
                last_ = &text;
                clip(text);
                return;
            }
        entries_.emplace_back(label, std::string(value));
        last_ = &entries_.back().second;
        clip(*last_);
    }
    // A line that continues the last label's value.
    void append(std::string_view more) {
        if (!last_) return;
        last_->append(" ").append(more);
        clip(*last_);
    }
    const std::string* find(std::string_view label) const {
        for (const auto& [name, text] : entries_)
            if (name == label) return &text;
        return nullptr;
    }
    void clear() {
        entries_.clear();
        last_ = nullptr;
    }

private:
    // Every table reads these values again; a real one is a number or a
    // list of a few, so what lies past this many characters is not read.
    static void clip(std::string& value) {
        constexpr size_t Longest = 1024;
        if (value.size() > Longest) value.resize(Longest);
    }

    std::vector<std::pair<std::string, std::string>> entries_;
    std::string* last_ = nullptr;
};

// ---- numbers ----

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// An AFFN number at text[i]: a sign, digits with a point, and a power of ten
// only as "E" followed by a sign and digits (an "E" before a digit is the
// SQZ character 5; a label's value, which holds no ASDF, may leave the sign
// out). Advances i past it; false when it holds no digit.
// `unit`, when asked for, is the value of one in its last digit.
bool readAffn(std::string_view text, size_t& i, double& value, double* unit = nullptr, bool unsignedPower = false) {
    const size_t n = text.size();
    size_t p = i;
    const bool negative = p < n && text[p] == '-';
    if (p < n && (text[p] == '+' || text[p] == '-')) ++p;
    const size_t digitsFrom = p;
    int64_t whole = 0;
    int digits = 0;
    while (p < n && isDigit(text[p])) {
        if (digits < 18) whole = whole * 10 + (text[p] - '0');
        ++digits;
        ++p;
    }
    int decimals = 0;
    const bool point = p < n && text[p] == '.';
    if (point)
        for (++p; p < n && isDigit(text[p]); ++p) ++decimals;
    if (digits + decimals == 0) return false;
    int power = 0;
    const bool signedPower = p + 2 < n && (text[p + 1] == '+' || text[p + 1] == '-') && isDigit(text[p + 2]);
    const bool exponent = p + 1 < n && (text[p] == 'E' || text[p] == 'e') &&
                          (signedPower || (unsignedPower && isDigit(text[p + 1])));
    if (exponent) {
        const bool down = text[p + 1] == '-';
        for (p += signedPower ? 2 : 1; p < n && isDigit(text[p]); ++p) power = std::min(power * 10 + (text[p] - '0'), 9999);
        if (down) power = -power;
    }
    if (!point && !exponent && digits <= 18) {
        value = negative ? -static_cast<double>(whole) : static_cast<double>(whole);
    } else {
        const auto r = portable::fromChars(text.data() + digitsFrom, text.data() + p, value);
        // Beyond the range of a double: infinite, or too small to tell from 0.
        if (r.ec == std::errc::result_out_of_range)
            value = (exponent && power < 0) ? 0.0 : std::numeric_limits<double>::infinity();
        if (negative) value = -value;
    }
    if (unit) *unit = std::pow(10.0, power - decimals);
    i = p;
    return true;
}

// The number a label's value begins with; nullopt when it holds none.
std::optional<double> leadingAffn(std::string_view text) {
    text = trimmed(withoutComment(text));
    size_t i = 0;
    double v;
    if (!readAffn(text, i, v, nullptr, true)) return std::nullopt;
    return v;
}

// The items of a list value ("X, R, I, N"), blanks trimmed.
std::vector<std::string_view> listItems(std::string_view text) {
    std::vector<std::string_view> items;
    text = withoutComment(text);
    for (size_t start = 0;;) {
        const size_t comma = text.find(',', start);
        items.push_back(trimmed(text.substr(start, comma == std::string_view::npos ? comma : comma - start)));
        if (comma == std::string_view::npos) return items;
        start = comma + 1;
    }
}

// ---- the characters of a data line ----

enum class Kind : uint8_t { Other, Separator, Affn, Sqz, Dif, Dup, Missing };
struct Code {
    Kind kind = Kind::Other;
    int8_t digit = 0;  // signed for SQZ and DIF: "a" is -1
};

constexpr std::array<Code, 256> buildCodes() {
    std::array<Code, 256> codes{};
    for (unsigned char c : std::string_view(" \t,;")) codes[c] = {Kind::Separator, 0};
    for (unsigned char c : std::string_view("0123456789+-.")) codes[c] = {Kind::Affn, 0};
    codes['@'] = {Kind::Sqz, 0};
    codes['%'] = {Kind::Dif, 0};
    codes['?'] = {Kind::Missing, 0};
    for (int d = 1; d <= 9; ++d) {
        codes['A' + d - 1] = {Kind::Sqz, static_cast<int8_t>(d)};
        codes['a' + d - 1] = {Kind::Sqz, static_cast<int8_t>(-d)};
        codes['J' + d - 1] = {Kind::Dif, static_cast<int8_t>(d)};
        codes['j' + d - 1] = {Kind::Dif, static_cast<int8_t>(-d)};
    }
    for (int d = 1; d <= 8; ++d) codes['S' + d - 1] = {Kind::Dup, static_cast<int8_t>(d)};
    codes['s'] = {Kind::Dup, 9};
    return codes;
}
constexpr std::array<Code, 256> Codes = buildCodes();

Code codeOf(char c) { return Codes[static_cast<unsigned char>(c)]; }

void skipSeparators(std::string_view text, size_t& i) {
    while (i < text.size() && codeOf(text[i]).kind == Kind::Separator) ++i;
}

// The digits that follow an ASDF character, its own digit leading: "A23"
// is 123 (a point may follow, rarely).
double readAsdfDigits(std::string_view text, size_t& i, int lead) {
    const size_t n = text.size();
    size_t p = i;
    int64_t whole = lead;
    int digits = 1;
    while (p < n && isDigit(text[p])) {
        if (digits < 18) whole = whole * 10 + (text[p] - '0');
        ++digits;
        ++p;
    }
    if (digits <= 18 && !(p < n && text[p] == '.')) {
        i = p;
        return static_cast<double>(whole);
    }
    if (p < n && text[p] == '.')
        for (++p; p < n && isDigit(text[p]); ++p) {
        }
    std::string number(1, static_cast<char>('0' + lead));
    number.append(text.substr(i, p - i));
    double value = std::numeric_limits<double>::infinity();
    portable::fromChars(number.data(), number.data() + number.size(), value);
    i = p;
    return value;
}

// The repeat count of a DUP character: its digit leading the digits after it.
int64_t readCount(std::string_view text, size_t& i, int lead) {
    constexpr int64_t Saturated = int64_t{1} << 62;
    int64_t count = lead;
    for (; i < text.size() && isDigit(text[i]); ++i)
        count = count >= Saturated / 10 ? Saturated : count * 10 + (text[i] - '0');
    return count;
}

bool sameValue(double a, double b) {
    if (std::isnan(a) || std::isnan(b)) return true;  // a missing value checks nothing
    return std::fabs(a - b) <= 1e-9 * std::max({1.0, std::fabs(a), std::fabs(b)});
}

// ---- tables ----

// What a table's variable list says: "(X++(Y..Y))" is Y at evenly spaced X,
// "(XY..XY)" or "(XYW..XYW)" groups of values, X and Y first.
struct TableForm {
    bool evenlySpaced = false;
    std::string xSymbol, ySymbol;
    size_t groupSize = 0;
};

std::optional<TableForm> formOf(std::string_view value) {
    std::string compact;
    for (char c : withoutComment(value))
        if (c != ' ' && c != '\t') compact += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    // What follows the list (", XYDATA", ", PEAKS") names the kind of table.
    const size_t close = compact.rfind(')');
    if (close == std::string::npos || compact[0] != '(') return std::nullopt;
    const std::string_view list = std::string_view(compact).substr(0, close + 1);
    TableForm form;
    if (const size_t plus = list.find("++("); plus != std::string_view::npos) {
        const size_t dots = list.find("..", plus);
        if (dots == std::string_view::npos || !list.ends_with("))")) return std::nullopt;
        form.evenlySpaced = true;
        form.xSymbol = list.substr(1, plus - 1);
        form.ySymbol = list.substr(plus + 3, dots - plus - 3);
        if (form.xSymbol.empty() || form.ySymbol.empty() ||
            list.substr(dots + 2, list.size() - dots - 4) != form.ySymbol)
            return std::nullopt;
        return form;
    }
    const size_t dots = list.find("..");
    if (dots == std::string_view::npos) return std::nullopt;
    const std::string_view group = list.substr(1, dots - 1);
    if (group.size() < 2 || list.substr(dots + 2, list.size() - dots - 3) != group) return std::nullopt;
    form.xSymbol = group.substr(0, 1);
    form.ySymbol = group.substr(1, 1);
    form.groupSize = group.size();
    return form;
}

// The numbers that place and scale a table's values.
struct Scaling {
    double firstX = 0, lastX = 0;  // evenly spaced tables only
    double xFactor = 1, yFactor = 1;
    std::optional<int64_t> points;  // as the file declares
    std::string pointsLabel;        // that declares them, for messages
    int64_t limit = 0;              // the most points the table may make
};

// The decoded values of one table and how to write them.
class Table {
public:
    Table(const TableForm& form, const Scaling& scaling, int64_t fileSize) : form_(form), s_(scaling) {
        // Room for what the file declares, up to a point a byte; more only as
        // the data come.
        ys_.reserve(static_cast<size_t>(std::min({s_.points.value_or(0), s_.limit, fileSize})));
        if (!form_.evenlySpaced) xs_.reserve(ys_.capacity());
    }

    void line(std::string_view text, int64_t number) {
        text = withoutComment(text);
        if (form_.evenlySpaced) evenLine(text, number);
        else groupLine(text, number);
    }

    // The checks that need the whole table; then the X of each point.
    void finish() {
        const int64_t n = points();
        if (!form_.evenlySpaced && groupValues_ % static_cast<int64_t>(form_.groupSize) != 0)
            fail("the table ends inside a group of " + plainText(static_cast<int64_t>(form_.groupSize)) + " values");
        if (n == 0) fail("the table holds no points");
        if (s_.points && *s_.points != n)
            fail("##" + s_.pointsLabel + "= gives " + plainText(*s_.points) + " points, the data hold " + plainText(n));
        if (form_.evenlySpaced) checkLineX(n);
        const double delta = step(n);
        for (size_t i = 0; i < ys_.size(); ++i) {
            const auto [x, y] = pointAt(i, delta);
            if (std::isinf(y) || std::isinf(x) || (std::isnan(y) && !std::isnan(ys_[i])))
                fail("point " + plainText(static_cast<int64_t>(i) + 1) + " lies beyond the range of numbers");
        }
    }

    int64_t points() const { return static_cast<int64_t>(ys_.size()); }

    // X and Y a line, Y from column 25; a missing value has no line.
    void write(TextWriter& out) const {
        constexpr size_t LongestLine = 160;  // room for the writes, not only the text
        const double delta = step(points());
        LineBlock lines(out);
        for (size_t i = 0; i < ys_.size(); ++i) {
            const auto [x, y] = pointAt(i, delta);
            if (std::isnan(y) || std::isnan(x)) continue;
            char* line = lines.lineStart(LongestLine);
            char* end = writeSignedText(tabInLine(line, writeSignedText(line, x), YColumn), y);
            *end++ = '\r';
            *end++ = '\n';
            lines.lineEnd(end);
        }
        lines.handOver();
    }

private:
    // Where a line of an evenly spaced table starts, to check its X.
    struct LineStart {
        int64_t number;
        double x;
        double unit;  // of the X text's last digit
        int64_t point;
    };
    // The tokens of the line so far.
    enum class Last : uint8_t { None, Value, Difference };

    void push(double v, int64_t number) {
        if (points() >= s_.limit) tooMany(number);
        ys_.push_back(v);
    }

    [[noreturn]] void tooMany(int64_t number) const {
        if (s_.points && *s_.points == s_.limit)
            fail(lineText(number) + "more points than ##" + s_.pointsLabel + "= gives (" + plainText(s_.limit) + ")");
        fail(lineText(number) + "more points than a file of this size can hold");
    }

    // X, then Y values in any mix of AFFN and the ASDF forms.
    void evenLine(std::string_view text, int64_t number) {
        size_t i = 0;
        skipSeparators(text, i);
        if (i == text.size()) return;
        LineStart start{number, 0, 0, -1};
        if (!readAffn(text, i, start.x, &start.unit)) fail(lineText(number) + "the line does not begin with an X value");
        Last last = Last::None;
        const auto value = [&](double v) {
            // After a line that ended in differences, the first value repeats
            // the last one as its check, and is no new point.
            if (last == Last::None && checkPending_) {
                if (!sameValue(v, last_))
                    fail(lineText(number) + "the Y check value " + plainText(v) + " is not the value before it (" +
                         plainText(last_) + ")");
                start.point = points() - 1;
            } else {
                if (last == Last::None) start.point = points();
                push(v, number);
            }
            last_ = v;
            last = Last::Value;
        };
        while (true) {
            skipSeparators(text, i);
            if (i >= text.size()) break;
            const Code code = codeOf(text[i]);
            switch (code.kind) {
            case Kind::Affn: {
                double v;
                if (!readAffn(text, i, v))
                    fail(lineText(number) + "\"" + std::string(1, text[i]) + "\" without a number after it");
                value(v);
                break;
            }
            case Kind::Sqz: {
                ++i;
                const double magnitude = readAsdfDigits(text, i, std::abs(code.digit));
                value(code.digit < 0 ? -magnitude : magnitude);
                break;
            }
            case Kind::Dif: {
                ++i;
                const double magnitude = readAsdfDigits(text, i, std::abs(code.digit));
                if (points() == 0) fail(lineText(number) + "a difference (DIF) with no value before it");
                if (last == Last::None) start.point = points();
                difference_ = code.digit < 0 ? -magnitude : magnitude;
                last_ += difference_;
                push(last_, number);
                last = Last::Difference;
                break;
            }
            case Kind::Dup: {
                ++i;
                const int64_t count = readCount(text, i, code.digit);
                if (last == Last::None) fail(lineText(number) + "a repeat count (DUP) with no value before it");
                if (count - 1 > s_.limit - points()) tooMany(number);
                for (int64_t k = 1; k < count; ++k) {
                    if (last == Last::Difference) last_ += difference_;
                    ys_.push_back(last_);
                }
                break;
            }
            case Kind::Missing:
                ++i;
                value(std::numeric_limits<double>::quiet_NaN());
                break;
            default:
                fail(lineText(number) + "\"" + std::string(1, text[i]) + "\" is no JCAMP-DX number character");
            }
        }
        if (last == Last::None) return;  // an X alone places nothing
        checkPending_ = last == Last::Difference;
        starts_.push_back(start);
    }

    // Groups of values, X and Y first: AFFN numbers, "?" for a missing one,
    // and further members (a width, a multiplicity) taken as they stand.
    void groupLine(std::string_view text, int64_t number) {
        const int64_t size = static_cast<int64_t>(form_.groupSize);
        for (size_t i = 0;;) {
            while (i < text.size() && (codeOf(text[i]).kind == Kind::Separator || text[i] == '(' || text[i] == ')'))
                ++i;
            if (i >= text.size()) return;
            const int64_t member = groupValues_ % size;
            double v = std::numeric_limits<double>::quiet_NaN();
            if (member >= 2) {
                while (i < text.size() && codeOf(text[i]).kind != Kind::Separator && text[i] != ')') ++i;
            } else if (text[i] == '?') {
                ++i;
            } else if (!readAffn(text, i, v)) {
                fail(lineText(number) + "\"" + std::string(1, text[i]) + "\" where a number was expected");
            }
            if (member == 0) {
                if (points() >= s_.limit) tooMany(number);
                xs_.push_back(v);
            } else if (member == 1) {
                ys_.push_back(v);
            }
            ++groupValues_;
        }
    }

    // X and Y of point i, the factors applied; `delta` is the step of an
    // evenly spaced table.
    std::pair<double, double> pointAt(size_t i, double delta) const {
        const double x = form_.evenlySpaced ? s_.firstX + static_cast<double>(i) * delta : xs_[i] * s_.xFactor;
        return {x, ys_[i] * s_.yFactor};
    }

    double step(int64_t n) const { return n > 1 ? (s_.lastX - s_.firstX) / static_cast<double>(n - 1) : 0.0; }

    // Each line's X against the X of the point it starts with, from FIRSTX,
    // LASTX and the point count: within half a step (a point more or less
    // is a whole step off), or, when its digits are coarser, within what
    // they can say.
    void checkLineX(int64_t n) const {
        const double delta = step(n);
        for (const LineStart& s : starts_) {
            const double expected = s_.firstX + static_cast<double>(s.point) * delta;
            const double x = s.x * s_.xFactor;
            const double room = 0.5 * std::max(std::fabs(delta), s.unit * std::fabs(s_.xFactor)) +
                                1e-9 * std::max(std::fabs(expected), std::fabs(x));
            if (!(std::fabs(x - expected) <= room))
                fail(lineText(s.number) + "X is " + plainText(x) + ", but point " + plainText(s.point + 1) +
                     " lies at " + plainText(expected) + " by FIRSTX, LASTX and the point count");
        }
    }

    TableForm form_;
    Scaling s_;
    std::vector<double> xs_, ys_;  // as written, before the factors
    std::vector<LineStart> starts_;
    int64_t groupValues_ = 0;
    double last_ = 0;
    double difference_ = 0;
    bool checkPending_ = false;
};

// ---- the file ----

struct Block {
    Labels labels;
    std::string title;
    bool titled = false;
    int64_t firstLine = 0;
    int64_t children = 0;
};

class JcampFile {
public:
    JcampFile(Session& form, TextWriter& header, std::string stem, int64_t tables, int64_t fileSize)
        : form_(form),
          header_(header),
          stem_(std::move(stem)),
          tables_(tables),
          fileSize_(fileSize),
          budget_(std::max<int64_t>(fileSize, 1) * PointsPerByte) {}

    void read(std::string_view text) {
        Lines lines(text);
        std::string_view line;
        LabelLine label;
        while (lines.next(line)) {
            if (readLabel(line, label)) {
                endTable();
                header_.text(line).endLine();
                onLabel(label, lines.number());
            } else if (inData_) {
                if (!table_) continue;
                try {
                    table_->line(line, lines.number());
                } catch (Problem& p) {
                    dropTable(p.text);
                }
            } else if (!blocks_.empty()) {
                header_.text(line).endLine();
                scope().append(trimmed(line));
            }
            header_.flushIfFull();
        }
        endTable();
        for (auto b = blocks_.rbegin(); b != blocks_.rend(); ++b)
            problem("the block \"" + b->title + "\" from line " + plainText(b->firstLine) + " has no ##END=");
        if (tables_ == 0) problem("no data table (##XYDATA=, ##XYPOINTS=, ##PEAK TABLE= or ##DATA TABLE=) in this file");
    }

    const std::vector<std::string>& problems() const { return problems_; }
    const std::string& firstWritten() const { return firstWritten_; }

    // Numbers the tables of a file before any is written, for their names.
    static int64_t countTables(std::string_view text) {
        Lines lines(text);
        std::string_view line;
        LabelLine label;
        int64_t count = 0;
        while (lines.next(line))
            if (readLabel(line, label) && isDataLabel(label.label)) ++count;
        return count;
    }

private:
    Labels& scope() { return inPage_ ? page_ : blocks_.back().labels; }

    const std::string* find(std::string_view label) const {
        if (inPage_)
            if (const std::string* v = page_.find(label)) return v;
        return blocks_.back().labels.find(label);
    }

    void problem(std::string text) {
        header_.text("Problem: " + text).endLine();
        problems_.push_back(std::move(text));
    }

    void onLabel(const LabelLine& label, int64_t number) {
        const std::string& name = label.label;
        if (name == "END") {
            if (!blocks_.empty()) closeBlock();
            return;
        }
        if (blocks_.empty() || (name == "TITLE" && blocks_.back().titled)) {
            if (!blocks_.empty()) ++blocks_.back().children;
            blocks_.push_back({});
            blocks_.back().firstLine = number;
        }
        Block& block = blocks_.back();
        if (name == "TITLE") {
            block.titled = true;
            block.title = trimmed(withoutComment(label.value));
        } else if (name == "NTUPLES") {
            enterNtuples();
        } else if (name == "ENDNTUPLES") {
            leaveNtuples();
        } else if (name == "PAGE") {
            // Pages without an ##NTUPLES= before them are read as its pages.
            if (!inNtuples_) enterNtuples();
            page_.clear();
            inPage_ = true;
            ++pages_;
        } else if (isDataLabel(name)) {
            startTable(label.name, label.value, number);
            return;
        }
        scope().set(name, label.value);
    }

    void enterNtuples() {
        inNtuples_ = true;
        pageLength_ = -1;
        pages_ = 0;
    }

    void leaveNtuples() {
        inNtuples_ = false;
        inPage_ = false;
        page_.clear();
    }

    void closeBlock() {
        const Block& b = blocks_.back();
        if (const std::string* said = b.labels.find("BLOCKS")) {
            const std::optional<double> n = leadingAffn(*said);
            if (!n || *n != static_cast<double>(b.children))
                problem("the block \"" + b.title + "\" says ##BLOCKS=" + std::string(trimmed(withoutComment(*said))) +
                        " but holds " + plainText(b.children) + " blocks");
        }
        if (inNtuples_) leaveNtuples();
        blocks_.pop_back();
    }

    // ---- one table ----

    // A number label of the table's scope; a label that is there without a
    // number is a problem, as is a needed one that is not there.
    std::optional<double> labelNumber(std::string_view label, bool needed) const {
        const std::string* text = find(label);
        if (!text) {
            if (needed) fail("no ##" + std::string(label) + "= for the table");
            return std::nullopt;
        }
        const std::optional<double> v = leadingAffn(*text);
        if (!v) fail("##" + std::string(label) + "= has no number");
        return v;
    }

    // Item `index` of an NTUPLES list label (##FIRST=, ##FACTOR=, ...).
    std::optional<double> listNumber(std::string_view label, size_t index, bool needed,
                                     const std::string& symbol) const {
        const std::string* text = find(label);
        const std::vector<std::string_view> items = text ? listItems(*text) : std::vector<std::string_view>();
        if (index >= items.size() || items[index].empty()) {
            if (needed) fail("no ##" + std::string(label) + "= for " + symbol);
            return std::nullopt;
        }
        const std::optional<double> v = leadingAffn(items[index]);
        if (!v) fail("##" + std::string(label) + "= has no number for " + symbol);
        return v;
    }

    static int64_t pointCount(double v, const std::string& label) {
        if (!(v >= 1 && v <= 9e15) || v != std::floor(v)) fail("##" + label + "= " + plainText(v) + " is no point count");
        return static_cast<int64_t>(v);
    }

    Scaling scalingOf(const TableForm& form) const {
        Scaling s;
        const std::string* symbols = find("SYMBOL");
        if (symbols) {
            const std::vector<std::string_view> list = listItems(*symbols);
            const auto indexOf = [&](const std::string& symbol) {
                for (size_t k = 0; k < list.size(); ++k)
                    if (list[k].size() == symbol.size() &&
                        std::equal(symbol.begin(), symbol.end(), list[k].begin(),
                                   [](char a, char b) { return a == (b >= 'a' && b <= 'z' ? b - 'a' + 'A' : b); }))
                        return k;
                fail("the table's variable " + symbol + " is not in ##SYMBOL=");
            };
            const size_t xi = indexOf(form.xSymbol);
            const size_t yi = indexOf(form.ySymbol);
            if (form.evenlySpaced) {
                s.firstX = *listNumber("FIRST", xi, true, form.xSymbol);
                s.lastX = *listNumber("LAST", xi, true, form.xSymbol);
            }
            s.xFactor = listNumber("FACTOR", xi, false, form.xSymbol).value_or(1);
            s.yFactor = listNumber("FACTOR", yi, false, form.ySymbol).value_or(1);
            if (const std::optional<double> n = inPage_ && page_.find("NPOINTS") ? labelNumber("NPOINTS", false) : std::nullopt) {
                s.points = pointCount(*n, "NPOINTS");
                s.pointsLabel = "NPOINTS";
            } else if (const std::optional<double> dim = listNumber("VARDIM", xi, false, form.xSymbol)) {
                s.points = pointCount(*dim, "VAR_DIM");
                s.pointsLabel = "VAR_DIM";
            }
        } else {
            if (form.evenlySpaced) {
                s.firstX = *labelNumber("FIRSTX", true);
                s.lastX = *labelNumber("LASTX", true);
            }
            s.xFactor = labelNumber("XFACTOR", false).value_or(1);
            s.yFactor = labelNumber("YFACTOR", false).value_or(1);
            if (const std::optional<double> n = labelNumber("NPOINTS", false)) {
                s.points = pointCount(*n, "NPOINTS");
                s.pointsLabel = "NPOINTS";
            }
        }
        if (!std::isfinite(s.firstX) || !std::isfinite(s.lastX) || !std::isfinite(s.lastX - s.firstX))
            fail("FIRSTX and LASTX lie beyond the range of numbers");
        s.limit = std::min(s.points.value_or(budget_), budget_);
        return s;
    }

    void startTable(std::string_view label, std::string_view value, int64_t number) {
        name_ = modern::odfName(stem_, static_cast<size_t>(index_++), static_cast<size_t>(tables_));
        tableLine_ = number;
        inData_ = true;
        try {
            const std::optional<TableForm> form = formOf(value);
            const std::string_view written = trimmed(withoutComment(value));
            if (written.empty()) fail("##" + std::string(label) + "= names no table form");
            if (!form)
                fail("##" + std::string(label) + "=" + std::string(written) + " is a table form this reader does not take");
            evenlySpaced_ = form->evenlySpaced;
            table_.emplace(*form, scalingOf(*form), fileSize_);
        } catch (Problem& p) {
            dropTable(p.text);
        }
    }

    // The table cannot be written: the rest of its lines are passed over.
    void dropTable(const std::string& why) {
        table_.reset();
        problem(tableName() + why);
    }

    std::string tableName() const {
        return tables_ > 1 ? "table " + plainText(index_) + " (line " + plainText(tableLine_) + "): " : "";
    }

    void endTable() {
        inData_ = false;
        if (!table_) return;
        try {
            table_->finish();
            // The pages of one NTUPLES give one spectrum, real and imaginary
            // parts, say: a page of another length has lost points.
            if (inNtuples_ && evenlySpaced_) {
                if (pageLength_ < 0) pageLength_ = table_->points();
                else if (table_->points() != pageLength_)
                    fail("NTUPLES page " + plainText(pages_) + " holds " + plainText(table_->points()) + " points, the first one " +
                         plainText(pageLength_) + ": the pages differ in length");
            }
        } catch (Problem& p) {
            dropTable(p.text);
            return;
        }
        TextWriter& out = form_.files.openOutput(DataFile, name_);
        table_->write(out);
        form_.files.close(DataFile);
        budget_ -= table_->points();
        header_.text("Written to " + name_ + ": " + plainText(table_->points()) + " points").endLine();
        if (firstWritten_.empty()) firstWritten_ = name_;
        table_.reset();
    }

    Session& form_;
    TextWriter& header_;
    const std::string stem_;
    const int64_t tables_;
    const int64_t fileSize_;
    int64_t budget_;
    std::vector<Block> blocks_;
    Labels page_;
    bool inNtuples_ = false, inPage_ = false;
    int64_t pages_ = 0, pageLength_ = -1;
    std::optional<Table> table_;
    bool inData_ = false, evenlySpaced_ = false;
    int64_t index_ = 0, tableLine_ = 0;
    std::string name_;
    std::vector<std::string> problems_;
    std::string firstWritten_;
};

}  // namespace

void ConvFileJCAMPModern(Session& form, std::string& fileName) {
    const std::string_view text = form.files.openBinary(InputFile, fileName).bytes();
    // The name up to its extension's ".": a "." in a folder's name is no cut.
    const std::string stem = fileName.substr(0, fileName.rfind('.'));
    const std::string hdrx = stem + ".hdrx";
    TextWriter& header = form.files.openOutput(HeaderFile, hdrx);
    JcampFile file(form, header, stem, JcampFile::countTables(text), static_cast<int64_t>(text.size()));
    file.read(text);
    form.files.close(HeaderFile);
    form.files.close(InputFile);

    const std::vector<std::string>& problems = file.problems();
    if (!problems.empty()) {
        const std::string shown = fileName.substr(fileName.find_last_of("/\\") + 1);
        std::string message = shown + ": " + problems.front();
        if (problems.size() > 1)
            message += " (and " + plainText(static_cast<int64_t>(problems.size() - 1)) + " more, listed in " + hdrx + ")";
        if (file.firstWritten().empty()) modern::refuse(form, nullptr, message);
        else form.host().messageBox(message, BoxIcon::Exclamation, BoxButtons::Ok);
    }
    if (!file.firstWritten().empty()) fileName = file.firstWritten();
}

}  // namespace kestro
