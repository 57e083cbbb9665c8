// Reader of GAML files: XML read line by line, whose first X and Y arrays are
// base64 text of little-endian Singles. Writes a ".hdr" with the lines that
// introduce the data and the decoded lengths, and a two-column ".odf".
#include "readers/analytical/GamlReader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>

#include "core/Writers.h"
#include "core/runtime/Dates.h"
#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/System.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

// ---- base64 ----

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// What the cleaning pass does with a character.
enum Kind : uint8_t { Kept = 0, Dropped = 1, Refused = 2 };

struct Base64Tables {
    std::array<uint8_t, 256> kinds{};
    std::array<uint8_t, 256> values{};  // "=" is worth 0 inside a group
};

constexpr Base64Tables makeTables() {
    Base64Tables t;
    t.kinds.fill(Refused);
    for (size_t i = 0; i < Alphabet.size(); ++i) {
        t.kinds[static_cast<uint8_t>(Alphabet[i])] = Kept;
        t.values[static_cast<uint8_t>(Alphabet[i])] = static_cast<uint8_t>(i);
    }
    t.kinds['='] = Kept;
    t.kinds['\r'] = Dropped;
    t.kinds['\n'] = Dropped;
    return t;
}
constexpr Base64Tables Tables = makeTables();

// The 24 bits of up to four characters, missing ones worth 0.
uint32_t groupBits(std::string_view group) {
    uint32_t bits = 0;
    for (size_t k = 0; k < 4; ++k)
        bits = bits << 6 | (k < group.size() ? Tables.values[static_cast<uint8_t>(group[k])] : 0u);
    return bits;
}

void writeGroup(char* out, uint32_t bits) {
    out[0] = static_cast<char>(bits >> 16);
    out[1] = static_cast<char>(bits >> 8);
    out[2] = static_cast<char>(bits);
}

// Where the quick pass of Decode stops at the latest: at the first of the
// last four characters that cleaning keeps, when the last of them is "=".
size_t quickPassLimit(std::string_view text) {
    size_t at = text.size(), kept = 0;
    while (at > 0 && kept < 4) {
        --at;
        if (Tables.kinds[static_cast<uint8_t>(text[at])] == Dropped) continue;
        if (kept++ == 0 && text[at] != '=') return text.size();
    }
    return kept == 0 ? text.size() : at;
}

// What every character of the text does, together.
uint8_t kindsIn(std::string_view text) {
    uint8_t kinds = 0;
    for (char c : text) kinds |= Tables.kinds[static_cast<uint8_t>(c)];
    return kinds;
}

// ---- the GAML text ----

constexpr int InputFile = 1;
constexpr int DataFile = 2;
constexpr int HeaderFile = 3;
constexpr const char* WorkFile = "std_crlf.gaml";

// Blanks off both ends, tabs kept.
std::string_view trimmed(std::string_view s) {
    const size_t first = s.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

bool startsWith(std::string_view s, std::string_view start) { return s.substr(0, start.size()) == start; }

// Reads on to the first line whose trimmed text begins with `start`.
bool findLine(TextReader& in, std::string_view start, std::string_view& line) {
    while (!in.eof()) {
        line = in.lineInput();
        if (startsWith(trimmed(line), start)) return true;
    }
    return false;
}

// The part of a "<values" line up to its first ">" goes to the header; the
// base64 text starts after it (the whole line when it has none).
std::string_view afterValuesTag(TextWriter& header, std::string_view line) {
    const size_t gt = line.find('>');
    header.text(gt == std::string_view::npos ? std::string_view{} : line.substr(0, gt + 1)).endLine();
    return gt == std::string_view::npos ? line : line.substr(gt + 1);
}

// X: the rest of the "<values" line and every line after it, as read, up to
// the line that is "</values>".
std::string readXText(TextReader& in, TextWriter& header, std::string_view valuesLine) {
    std::string text(afterValuesTag(header, valuesLine));
    while (!in.eof()) {
        const std::string_view line = in.lineInput();
        if (trimmed(line) == "</values>") {
            header.text("</values>").endLine();
            break;
        }
        text += line;
    }
    return text;
}

// Y: the characters after the "<values" tag up to the next "<", line ends
// left out.
std::string readYText(TextReader& in, TextWriter& header, std::string_view valuesLine) {
    const std::string_view rest = afterValuesTag(header, valuesLine);
    const size_t lt = rest.find('<');
    if (lt != std::string_view::npos) return std::string(rest.substr(0, lt));
    std::string text(rest);
    std::string_view after = in.bytes().substr(static_cast<size_t>(in.position() - 1));
    after = after.substr(0, after.find('<'));
    text.reserve(text.size() + after.size());
    while (!after.empty()) {
        const size_t lf = std::min(after.find('\n'), after.size());
        std::string_view line = after.substr(0, lf);
        for (size_t cr; (cr = line.find('\r')) != std::string_view::npos; line.remove_prefix(cr + 1))
            text.append(line.substr(0, cr));
        text.append(line);
        after.remove_prefix(std::min(lf + 1, after.size()));
    }
    return text;
}

void writeDecodedLength(TextWriter& header, const std::string& decoded, const char* axis) {
    header.text("Length of decoded string " + plainText(static_cast<int64_t>(decoded.size())) + "; number of " +
                axis + " points ")
        .item(static_cast<int64_t>(decoded.size() / 4))
        .endLine();
}

float singleAt(const std::string& bytes, size_t i) {
    float v;
    std::memcpy(&v, bytes.data() + 4 * i, sizeof v);
    return v;
}

// The written-list lines of X and Y. A Y value without its X is out of range.
void writePoints(TextWriter& out, const std::string& xs, const std::string& ys) {
    constexpr size_t LongestLine = 128;  // room for the writes, not only the text
    LineBlock lines(out);
    const size_t xPoints = xs.size() / 4, yPoints = ys.size() / 4;
    for (size_t i = 0; i < yPoints; ++i) {
        if (i >= xPoints) {
            lines.handOver();
            raise(err::SubscriptOutOfRange);
        }
        char* end = writePlainText(lines.lineStart(LongestLine), singleAt(xs, i));
        *end++ = ',';
        end = writePlainText(end, singleAt(ys, i));
        *end++ = '\r';
        *end++ = '\n';
        lines.lineEnd(end);
    }
    lines.handOver();
}

// A refusal: the message, both files closed, the converted copy deleted.
void refuse(Session& form, const std::string& text, const std::string& workFile) {
    form.host().messageBox(text, BoxIcon::Critical, BoxButtons::Ok);
    form.files.close(InputFile);
    form.files.close(HeaderFile);
    if (!workFile.empty()) sys::removeFile(workFile);
}

// The copy never takes the name of the input it is made from: an input that
// is itself the current folder's "std_crlf.gaml" gets a copy of another name.
std::string workFileFor(const std::string& fileName) {
    std::error_code e;
    return std::filesystem::equivalent(sys::fsPath(fileName), WorkFile, e) ? std::string(WorkFile) + ".crlf" : WorkFile;
}

// A file without a single CR is read from a copy with CR LF line ends,
// written to the current folder. Returns the copy's name, or "" when none
// was made.
std::string openWithStandardLineEnds(Session& form, const std::string& fileName) {
    TextReader& in = form.files.openInputAsWritten(InputFile, fileName);
    if (static_cast<int64_t>(in.lineInput().size()) != in.length()) {
        in.seek(1);
        return {};
    }
    form.host().messageBox("File with non-standard termination (CR or CR+LF) will be converted to standard!",
                           BoxIcon::Exclamation, BoxButtons::Ok);
    const std::string_view text = in.bytes();
    std::string standard;
    standard.reserve(text.size() + text.size() / 16);
    for (size_t from = 0; from < text.size();) {
        size_t lf = text.find('\n', from);
        if (lf == std::string_view::npos) lf = text.size();
        standard.append(text.substr(from, lf - from));
        if (lf < text.size()) standard += "\r\n";
        from = lf + 1;
    }
    form.files.close(InputFile);
    const std::string workFile = workFileFor(fileName);
    writeWholeFile(workFile, standard);
    form.files.openInputAsWritten(InputFile, workFile);
    return workFile;
}

// The points the reader hands to the plot: as many rows as valueCount says,
// whatever the file held; rows past the points stay 0.
void handToPlot(Session& form, const std::string& xs, const std::string& ys, size_t points, const std::string& name) {
    const size_t rows = form.valueCount > 0 ? static_cast<size_t>(form.valueCount) : 0;
    PlotPoints plot(rows, {0.0, 0.0});
    for (size_t i = 0; i < rows && i < points; ++i) plot[i] = {singleAt(xs, i), singleAt(ys, i)};
    form.host().plot(plot, static_cast<int64_t>(rows), name);
    form.host().applyScale(form.boxes.LogScale);
}

}  // namespace

void Decode(Session& form, std::string_view base64, std::string& decoded) {
    // Full groups of four characters of the alphabet (or "=") are decoded
    // in a quick first pass, up to the first group with a line end or a
    // refused character, and never into the padded last group.
    const size_t limit = quickPassLimit(base64);
    decoded.resize(limit / 4 * 3);
    const auto* in = reinterpret_cast<const uint8_t*>(base64.data());
    size_t i = 0;
    for (; i + 4 <= limit; i += 4) {
        if (Tables.kinds[in[i]] | Tables.kinds[in[i + 1]] | Tables.kinds[in[i + 2]] | Tables.kinds[in[i + 3]]) break;
        const uint32_t bits = uint32_t{Tables.values[in[i]]} << 18 | uint32_t{Tables.values[in[i + 1]]} << 12 |
                              uint32_t{Tables.values[in[i + 2]]} << 6 | Tables.values[in[i + 3]];
        writeGroup(decoded.data() + i / 4 * 3, bits);
    }
    decoded.resize(i / 4 * 3);

    // The rest, cleaned of its line ends.
    const std::string_view tail = base64.substr(i);
    if (kindsIn(tail) & Refused) {
        decoded.clear();
        form.host().messageBox("Not a legal or RFC 2045 compliant base64 string: conversion aborted!", BoxIcon::None,
                               BoxButtons::Ok);
        return;
    }
    std::string cleaned;
    for (char c : tail)
        if (c != '\r' && c != '\n') cleaned += c;
    std::string_view rest = cleaned, padded;
    if (!rest.empty() && rest.back() == '=') {
        const size_t last = std::min<size_t>(4, rest.size());
        padded = rest.substr(rest.size() - last);
        rest.remove_suffix(last);
    }
    for (size_t k = 0; k + 4 <= rest.size(); k += 4) {
        decoded.resize(decoded.size() + 3);
        writeGroup(decoded.data() + decoded.size() - 3, groupBits(rest.substr(k, 4)));
    }
    // A group ending in "==" gives one byte, one ending in a single "=" two.
    if (!padded.empty()) {
        const uint32_t bits = groupBits(padded);
        decoded += static_cast<char>(bits >> 16);
        if (!padded.ends_with("==")) decoded += static_cast<char>(bits >> 8);
    }
}

void ConvFileGAML(Session& form, std::string& fileName) {
    const std::string workFile = openWithStandardLineEnds(form, fileName);
    TextReader& in = form.files.input(InputFile);
    const std::string stem = dropLast(fileName, 5);
    const std::string headerName = stem + ".hdr";
    TextWriter& header = form.files.openOutput(HeaderFile, headerName);
    const DateValue now = dateFromUnixSeconds(std::time(nullptr));
    header.text("header file for " + fileName + " read on the " + generalDate(now)).endLine();

    if (!startsWith(in.lineInput(), "<?xml"))
        form.host().messageBox("Not a XML type file. Probably not a GAML file!", BoxIcon::Exclamation, BoxButtons::Ok);
    const std::string_view second = in.lineInput();
    if (!startsWith(second, "<GAML")) {
        form.files.close(InputFile);
        form.files.close(HeaderFile);
        form.host().messageBox("Not a GAML type file. Conversion aborted!", BoxIcon::Critical, BoxButtons::Ok);
        return;
    }
    header.text(second).endLine();

    std::string_view line;
    if (!findLine(in, "<Xdata", line)) return refuse(form, "No X data found. Conversion aborted!", workFile);
    header.text(trimmed(line)).endLine();
    if (!findLine(in, "<values", line)) return refuse(form, "No X values found. Conversion aborted!", workFile);
    std::string xs;
    Decode(form, readXText(in, header, line), xs);
    writeDecodedLength(header, xs, "X");
    form.files.close(HeaderFile);
    // The input stays open: the reader has always ended so here.
    if (xs.empty()) return;

    TextWriter& more = form.files.openAppend(HeaderFile, headerName);
    if (!findLine(in, "<Ydata", line)) return refuse(form, "No Y data found. Conversion aborted!", workFile);
    more.text(trimmed(line)).endLine();
    if (!findLine(in, "<values", line)) return refuse(form, "No Y values found. Conversion aborted!", workFile);
    const std::string yText = readYText(in, more, line);
    form.files.close(InputFile);
    std::string ys;
    Decode(form, yText, ys);
    writeDecodedLength(more, ys, "Y");
    form.files.close(HeaderFile);
    if (ys.empty()) return;

    const size_t yPoints = ys.size() / 4;
    const std::string dataName = stem + ".odf";
    writePoints(form.files.openOutput(DataFile, dataName), xs, ys);
    form.files.close(DataFile);
    if (form.boxes.DsGr) handToPlot(form, xs, ys, yPoints, dataName);
}

}  // namespace kestro
