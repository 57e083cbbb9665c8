// Reader of JCAMP-DX spectra in the (X++(Y..Y)) table form. The labelled
// header gives the scaling; each data line is AFFN (plain numbers) or ASDF
// (the SQZ, DIF and DUP characters), decided line by line. Writes a ".hdrx"
// with a scaling summary and the decoded echo of every data line, and, once
// the block's "##END=" is reached, a two-column ".odf".
#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "core/runtime/NumberText.h"
#include "core/runtime/NumberTextExtras.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputNumber = 1;
constexpr int DataNumber = 2;
constexpr int HeaderNumber = 3;

constexpr std::string_view StartLabel = "##JCAMP";
constexpr std::string_view DataLabel = "##XYDATA=";
constexpr std::string_view EndLabel = "##END=";
constexpr std::string_view CommentMark = "$$";
constexpr std::string_view TableForm = "(X++(Y..Y))";
constexpr int64_t YColumn = 25;  // of the ".odf"

bool contains(std::string_view line, std::string_view label) { return line.find(label) != std::string_view::npos; }

// ---- the header ----

struct Scaling {
    double xFactor = 0, yFactor = 0, firstX = 0, firstY = 0, lastX = 0, deltaX = 0;
    int16_t points = 0;
};

// Tested in this order after "##XYDATA=", the first match deciding; no
// member for "##NPOINTS=", which is whole.
struct Label {
    std::string_view text;
    double Scaling::*value;
};
constexpr Label Labels[] = {
    {"##XFACTOR=", &Scaling::xFactor}, {"##YFACTOR=", &Scaling::yFactor}, {"##FIRSTX=", &Scaling::firstX},
    {"##FIRSTY=", &Scaling::firstY},   {"##LASTX=", &Scaling::lastX},     {"##DELTAX=", &Scaling::deltaX},
    {"##NPOINTS=", nullptr},
};

// A label counts wherever it stands, but its value is read as if the label
// began the line: an indented label reads a wrong value, as it always has.
void readLabel(std::string_view line, Scaling& scaling) {
    for (const Label& label : Labels) {
        if (!contains(line, label.text)) continue;
        const double value = leadingNumber(line.substr(label.text.size()));
        if (label.value) scaling.*label.value = value;
        else scaling.points = roundToInt16(value);
        return;
    }
}

// NPOINTS - 1 in 16-bit arithmetic.
int16_t lastIndex(int16_t points) {
    if (points == std::numeric_limits<int16_t>::min()) raise(err::Overflow);
    return static_cast<int16_t>(points - 1);
}

std::string localeText(double v) {
    std::string s;
    appendLocalePlainText(s, v);
    return s;
}

void writeSummary(TextWriter& header, const Scaling& s, int64_t dataLine, std::string_view dataLabelLine) {
    header.text("##Xscale = " + localeText(s.xFactor) + "\r\n##Yscale = " + localeText(s.yFactor) +
                "\r\n##start_X = " + localeText(s.firstX) + "\tstop_X = " + localeText(s.lastX) +
                "\t delta_X = " + localeText(s.deltaX) + "\r\n##start_Y = " + localeText(s.firstY))
        .endLine();
    header.text("##Data points: " + plainText(int64_t{s.points}) + "; data found at line " + plainText(dataLine))
        .endLine();
    header.text(dataLabelLine).endLine();
}

bool isTableForm(std::string_view dataLabelLine) {
    std::string_view form = dataLabelLine.substr(DataLabel.size());
    const size_t first = form.find_first_not_of(' ');
    if (first == std::string_view::npos) return false;
    form = form.substr(first, form.find_last_not_of(' ') - first + 1);
    return form == TableForm;
}

// ---- the character tables ----

// Position i of a table stands for the digit text at position i of the
// replacements; a DUP character's count is the SQZ text at its position, so
// "?" counts 0 and a "?" in a line repeats its token no time at all.
constexpr std::string_view SqzCharacters = "@ABCDEFGHIabcdefghi";
constexpr std::string_view DifCharacters = "%JKLMNOPQRjklmnopqr";
constexpr std::string_view DupCharacters = "?STUVWXYZs";
constexpr std::string_view DigitTexts[] = {"0",  "1",  "2",  "3",  "4",  "5",  "6",  "7",  "8", "9",
                                           "-1", "-2", "-3", "-4", "-5", "-6", "-7", "-8", "-9"};

enum class Kind : uint8_t { Other, Blank, Sqz, Dif, Dup };
struct Code {
    Kind kind = Kind::Other;
    uint8_t position = 0;  // in its table
};

constexpr std::array<Code, 256> buildCodes() {
    std::array<Code, 256> codes{};
    codes[' '] = {Kind::Blank, 0};
    for (size_t i = 0; i < SqzCharacters.size(); ++i)
        codes[static_cast<unsigned char>(SqzCharacters[i])] = {Kind::Sqz, static_cast<uint8_t>(i)};
    for (size_t i = 0; i < DifCharacters.size(); ++i)
        codes[static_cast<unsigned char>(DifCharacters[i])] = {Kind::Dif, static_cast<uint8_t>(i)};
    for (size_t i = 0; i < DupCharacters.size(); ++i)
        codes[static_cast<unsigned char>(DupCharacters[i])] = {Kind::Dup, static_cast<uint8_t>(i)};
    return codes;
}
constexpr std::array<Code, 256> Codes = buildCodes();

Code codeOf(char c) { return Codes[static_cast<unsigned char>(c)]; }

// ---- one data line ----

// Appends a blank unless the text already ends in one: blanks stay single.
void blank(std::string& out) {
    if (out.empty() || out.back() != ' ') out += ' ';
}

// Blanks trimmed, "," and "+" made blanks, "-" a blank and "-", blanks single.
void normalise(std::string_view line, std::string& out) {
    out.clear();
    const size_t first = line.find_first_not_of(' ');
    if (first == std::string_view::npos) return;
    line = line.substr(first, line.find_last_not_of(' ') - first + 1);
    for (char c : line) {
        if (c == ' ' || c == ',' || c == '+') {
            blank(out);
        } else if (c == '-') {
            blank(out);
            out += '-';
        } else {
            out += c;
        }
    }
}

enum class Scheme { Affn, Asdf, Unknown };

// By the tokens of the normalised line: three or more are AFFN, one (or
// none) ASDF, and of two the first character of the second decides.
Scheme schemeOf(std::string_view normal) {
    const size_t firstBlank = normal.find(' ');
    if (firstBlank == std::string_view::npos) return Scheme::Asdf;
    if (normal.find(' ', firstBlank + 1) != std::string_view::npos) return Scheme::Affn;
    const char c = firstBlank + 1 < normal.size() ? normal[firstBlank + 1] : '\0';
    if (c == '@' || (c >= 'A' && c <= 'S') || c == '%' || (c >= 'a' && c <= 's')) return Scheme::Asdf;
    if (c == '+' || c == '-' || (c >= '0' && c <= '9')) return Scheme::Affn;
    return Scheme::Unknown;
}

// Every SQZ and DIF character written out as a blank and its digit text, a
// DIF's marked with "!" as a difference: "A23" becomes " 123", "j5" " !-15".
void expandCharacters(std::string_view normal, std::string& out) {
    out.clear();
    for (char c : normal) {
        const Code code = codeOf(c);
        if (code.kind == Kind::Sqz || code.kind == Kind::Dif || code.kind == Kind::Blank) blank(out);
        if (code.kind == Kind::Dif) out += '!';
        if (code.kind == Kind::Sqz || code.kind == Kind::Dif) out += DigitTexts[code.position];
        else if (code.kind != Kind::Blank) out += c;
    }
}

// The value of a token: whole numbers, nearly all of them, without the
// general parser.
double valueOf(std::string_view token) {
    int64_t whole;
    if (parseDecimalDigits(token, whole)) return whole == 0 && token[0] == '-' ? -0.0 : static_cast<double>(whole);
    return leadingNumber(token);
}

// A token standing `count` times in the line's token list.
struct Run {
    std::string_view token;
    int64_t count;
};

// Far more than any line can store: the point past NPOINTS ends it first.
constexpr int64_t CountLimit = int64_t{1} << 40;

// The run of a token: the first DUP character in table order that it holds
// makes it stand that many times, its digit and what follows read as the
// count, less its last character.
Run dupRun(std::string_view token, std::string& countText) {
    size_t at = std::string_view::npos;
    int best = static_cast<int>(DupCharacters.size());
    for (size_t i = 0; i < token.size(); ++i) {
        const Code code = codeOf(token[i]);
        if (code.kind == Kind::Dup && code.position < best) {
            best = code.position;
            at = i;
        }
    }
    if (at == std::string_view::npos) return {token, 1};
    countText.assign(DigitTexts[static_cast<size_t>(best)]);
    if (at + 1 < token.size()) countText.append(token.substr(at + 1));
    // A count with a fraction stands as many whole times as it reaches.
    const double count = valueOf(countText);
    const int64_t times = count < 1 ? 0 : count >= static_cast<double>(CountLimit) ? CountLimit : static_cast<int64_t>(count);
    return {token.substr(0, token.size() - 1), times};
}

// The tokens of a line, t0 (the X value) to tu, read in order.
class Tokens {
public:
    explicit Tokens(const std::vector<Run>& runs) : runs_(runs) {
        for (const Run& r : runs) {
            total_ = std::min(total_ + r.count, CountLimit);
            if (r.count > 0) last_ = r.token;
        }
        // A list of a single empty token, joined and split again, is no list.
        if (total_ == 1 && last_.empty()) total_ = 0;
    }
    int64_t count() const { return total_; }
    std::string_view last() const { return last_; }
    // The next token; past the last, "Subscript out of range".
    std::string_view next() {
        if (taken_ >= total_) raise(err::SubscriptOutOfRange);
        ++taken_;
        while (used_ >= runs_[run_].count) {
            ++run_;
            used_ = 0;
        }
        ++used_;
        return runs_[run_].token;
    }

private:
    const std::vector<Run>& runs_;
    int64_t total_ = 0;
    int64_t taken_ = 0;
    size_t run_ = 0;
    int64_t used_ = 0;
    std::string_view last_;
};

// The X and Y arrays, filled line by line, and the echo of each line.
class Spectrum {
public:
    Spectrum(const Scaling& scaling, std::string& echo)
        : s_(scaling), x_(static_cast<size_t>(scaling.points)), y_(x_.size()), echo_(echo) {}

    // Point k of the line, from its X and first Y tokens.
    void startLine(std::string_view xToken, double yValue) {
        xLine_ = valueOf(xToken) * s_.xFactor;
        store(0, xLine_, yValue);
        appendLocalePlainText(echo_, xLine_);
        echo_ += ' ';
        appendLocalePlainText(echo_, yValue);
    }
    // Point k + i.
    void add(int64_t i, double yValue) {
        store(i, xLine_ + static_cast<double>(i) * s_.deltaX, yValue);
        echo_ += ' ';
        appendLocalePlainText(echo_, yValue);
    }
    double y(int64_t i) const { return y_[static_cast<size_t>(k_ + i)]; }
    double scaled(std::string_view token) const { return valueOf(token) * s_.yFactor; }
    void endLine(int64_t advance) {
        echo_ += "\r\n";
        k_ += advance;
    }

    // Str(X), on to column 25, Str(Y): points no line filled are 0.
    void writeOdf(TextWriter& out) const {
        constexpr size_t LongestLine = 160;  // room for the writes, not only the text
        LineBlock lines(out);
        for (size_t i = 0; i < x_.size(); ++i) {
            char* line = lines.lineStart(LongestLine);
            char* end = writeSignedText(tabInLine(line, writeSignedText(line, x_[i]), YColumn), y_[i]);
            *end++ = '\r';
            *end++ = '\n';
            lines.lineEnd(end);
        }
        lines.handOver();
    }

private:
    void store(int64_t i, double x, double y) {
        const int64_t at = k_ + i;
        if (at < 0 || at >= static_cast<int64_t>(x_.size())) raise(err::SubscriptOutOfRange);
        x_[static_cast<size_t>(at)] = x;
        y_[static_cast<size_t>(at)] = y;
    }

    const Scaling& s_;
    std::vector<double> x_, y_;
    std::string& echo_;
    int64_t k_ = 0;
    double xLine_ = 0;
};

// Token lists and texts reused from line to line.
struct LineWork {
    std::string normal, expanded, countText;
    std::vector<Run> runs;
};

void splitAtBlanks(std::string_view text, std::vector<Run>& runs) {
    runs.clear();
    if (text.empty()) return;
    for (size_t start = 0;;) {
        const size_t end = text.find(' ', start);
        runs.push_back({text.substr(start, end - start), 1});
        if (end == std::string_view::npos) return;
        start = end + 1;
    }
}

void storeAffn(Spectrum& spectrum, LineWork& work) {
    splitAtBlanks(work.normal, work.runs);
    Tokens t(work.runs);
    const int64_t u = t.count() - 1;
    const std::string_view xToken = t.next();
    spectrum.startLine(xToken, spectrum.scaled(t.next()));
    for (int64_t i = 1; i <= u - 1; ++i) spectrum.add(i, spectrum.scaled(t.next()));
    spectrum.endLine(u);
}

void storeAsdf(Spectrum& spectrum, LineWork& work) {
    expandCharacters(work.normal, work.expanded);
    splitAtBlanks(work.expanded, work.runs);
    for (Run& r : work.runs) r = dupRun(r.token, work.countText);
    Tokens t(work.runs);
    const int64_t u = t.count() - 1;
    const std::string_view xToken = t.next();
    spectrum.startLine(xToken, spectrum.scaled(t.next()));
    for (int64_t i = 1; i <= u - 2; ++i) {
        const std::string_view token = t.next();
        if (token.starts_with('!')) spectrum.add(i, spectrum.y(i - 1) + spectrum.scaled(token.substr(1)));
        else spectrum.add(i, spectrum.scaled(token));
    }
    // A last difference is the check value of the line, not a point.
    if (t.last().starts_with('!')) {
        spectrum.endLine(u - 1);
        return;
    }
    spectrum.add(u - 1, spectrum.scaled(t.last()));
    spectrum.endLine(u);
}

// ---- the conversion ----

void critical(Session& form, const std::string& text) { form.host().messageBox(text, BoxIcon::Critical, BoxButtons::Ok); }

// Data lines up to "##END="; false when a line's scheme is unknown (the
// message shown and the files closed as that case closes them).
bool readDataLines(Session& form, TextReader& in, TextWriter& header, Spectrum& spectrum) {
    LineWork work;
    for (;;) {
        std::string_view line = in.lineInput();
        if (contains(line, EndLabel)) return true;
        if (const size_t cut = line.find(CommentMark); cut != std::string_view::npos) {
            line = line.substr(0, cut);
            header.text(line).endLine();
        }
        normalise(line, work.normal);
        switch (schemeOf(work.normal)) {
        case Scheme::Affn: storeAffn(spectrum, work); break;
        case Scheme::Asdf: storeAsdf(spectrum, work); break;
        case Scheme::Unknown:
            critical(form, "W#1: not AFFN or ASDF: unkonwn coding scheme. No further processing!");
            // The input stays open on this path, as it always has.
            form.files.close(HeaderNumber);
            return false;
        default:
            critical(form, "W#2: Not AFFN or ASDF: unkonwn coding scheme. No further processing!");
            form.files.close(HeaderNumber);
            form.files.close(InputNumber);
            return false;
        }
        header.flushIfFull();
    }
}

void closeHeaderAndInput(Session& form) {
    form.files.close(HeaderNumber);
    form.files.close(InputNumber);
}

}  // namespace

void ConvFileJCAMP(Session& form, std::string& fileName) {
    // Up to the first "." of the whole path, a folder's included.
    const std::string base = fileName.substr(0, fileName.find('.'));
    TextReader& in = form.files.openInput(InputNumber, fileName);
    int64_t lineCount = 0;
    std::string_view line;
    do {
        line = in.lineInput();
        ++lineCount;
    } while (!contains(line, StartLabel));
    TextWriter& header = form.files.openOutput(HeaderNumber, base + ".hdrx");
    header.text(line).endLine();

    Scaling scaling;
    std::string_view dataLabelLine;
    while (!in.eof() && dataLabelLine.empty()) {
        line = in.lineInput();
        ++lineCount;
        if (contains(line, DataLabel)) dataLabelLine = line;
        else readLabel(line, scaling);
    }
    if (dataLabelLine.empty()) {
        form.host().messageBox("Data is not bivariate (e.g. a table). Conversion not possible!", BoxIcon::None,
                               BoxButtons::Ok);
        closeHeaderAndInput(form);
        form.changeBoxes([](Boxes& b) { b.DsGr = false; });
        return;
    }

    if (scaling.deltaX == 0) scaling.deltaX = divide(scaling.lastX - scaling.firstX, lastIndex(scaling.points));
    writeSummary(header, scaling, lineCount + 1, dataLabelLine);
    if (!isTableForm(dataLabelLine)) {
        form.host().messageBox(std::string(dataLabelLine), BoxIcon::Information, BoxButtons::Ok);
        critical(form, "Data is not single measurement bivariate {X,Y}, automatic extraction not possible!");
        closeHeaderAndInput(form);
        return;
    }

    if (lastIndex(scaling.points) < 0) raise(err::SubscriptOutOfRange);
    Spectrum spectrum(scaling, header.buffer());
    header.text("## Data segment:").endLine();
    if (!readDataLines(form, in, header, spectrum)) return;

    closeHeaderAndInput(form);
    TextWriter& out = form.files.openOutput(DataNumber, base + ".odf");
    spectrum.writeOdf(out);
    form.files.close(DataNumber);
}

}  // namespace kestro
