// Kestro's own reader of GAML files, after the GAML 1.20 schema and its
// description ("Generalized Analytical Markup Language", gaml.org): traces
// hold Xdata elements, each with its X values and one or more Ydata; values
// are base64 (RFC 2045) of FLOAT32 or FLOAT64 numbers in the byte order the
// element names. Every Y array becomes one ".odf" with the X array it
// belongs to.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/Dates.h"
#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "readers/Readers.h"
#include "readers/modern/ModernOutputs.h"

namespace kestro {

namespace {

constexpr int DataFile = 2;
constexpr int HeaderFile = 3;
constexpr size_t npos = std::string_view::npos;

// ---- base64 as RFC 2045 reads it ----

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> alphabetValues() {
    std::array<int8_t, 256> values{};
    values.fill(-1);
    for (size_t i = 0; i < Alphabet.size(); ++i) values[static_cast<uint8_t>(Alphabet[i])] = static_cast<int8_t>(i);
    return values;
}
constexpr std::array<int8_t, 256> AlphabetValues = alphabetValues();

// Characters outside the alphabet (line ends, indentation) are ignored;
// "=" ends the data. Runs of whole groups of four are decoded a group at a
// time; the characters between them one by one.
std::string decodeBase64(std::string_view text) {
    std::string bytes(text.size() / 4 * 3 + 3, '\0');
    char* out = bytes.data();
    const auto* in = reinterpret_cast<const uint8_t*>(text.data());
    const uint8_t* const end = in + text.size();
    const auto writeGroup = [&out](uint32_t bits) {
        out[0] = static_cast<char>(bits >> 16);
        out[1] = static_cast<char>(bits >> 8);
        out[2] = static_cast<char>(bits);
        out += 3;
    };
    uint32_t bits = 0;
    int held = 0;  // characters of the group under way
    while (in < end) {
        for (; held == 0 && end - in >= 4; in += 4) {
            const int a = AlphabetValues[in[0]], b = AlphabetValues[in[1]], c = AlphabetValues[in[2]],
                      d = AlphabetValues[in[3]];
            if ((a | b | c | d) < 0) break;
            writeGroup(static_cast<uint32_t>(a) << 18 | static_cast<uint32_t>(b) << 12 |
                       static_cast<uint32_t>(c) << 6 | static_cast<uint32_t>(d));
        }
        if (in == end || *in == '=') break;
        const int v = AlphabetValues[*in++];
        if (v < 0) continue;
        bits = bits << 6 | static_cast<uint32_t>(v);
        if (++held == 4) {
            writeGroup(bits);
            held = 0;
        }
    }
    // Two characters left over give one byte, three give two.
    if (held >= 2) *out++ = static_cast<char>(bits >> (6 * held - 8));
    if (held == 3) *out++ = static_cast<char>(bits >> 2);
    bytes.resize(static_cast<size_t>(out - bytes.data()));
    return bytes;
}

// ---- just enough XML ----

struct Tag {
    std::string_view name;
    std::string_view text;  // from "<" to ">"
    bool closing = false;
    bool empty = false;  // "<x/>"
};

// Past the comment, declaration, processing instruction or CDATA section
// that starts at `at`; `at` itself when none does.
size_t pastNonElement(std::string_view xml, size_t at) {
    static constexpr std::pair<std::string_view, std::string_view> Kinds[] = {
        {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}, {"<!", ">"}};
    for (const auto& [open, close] : Kinds)
        if (xml.substr(at).starts_with(open)) {
            const size_t end = xml.find(close, at + open.size());
            return end == npos ? xml.size() : end + close.size();
        }
    return at;
}

// The end of the tag that starts at `at`: its ">" outside quoted attribute
// values; npos when the text ends first.
size_t tagEnd(std::string_view xml, size_t at) {
    char quote = 0;
    for (size_t end = at + 1; end < xml.size(); ++end) {
        const char c = xml[end];
        if (quote) quote = c == quote ? 0 : quote;
        else if (c == '"' || c == '\'') quote = c;
        else if (c == '>') return end;
    }
    return npos;
}

// The next element tag at or after `at`; `at` moves past it. False at the
// end of the text.
bool nextTag(std::string_view xml, size_t& at, Tag& tag) {
    while ((at = xml.find('<', at)) != npos) {
        const size_t past = pastNonElement(xml, at);
        if (past != at) {
            at = past;
            continue;
        }
        const size_t end = tagEnd(xml, at);
        if (end == npos) return false;
        tag.text = xml.substr(at, end + 1 - at);
        tag.closing = tag.text[1] == '/';
        tag.empty = tag.text.size() > 2 && tag.text[tag.text.size() - 2] == '/';
        const size_t nameStart = tag.closing ? 2 : 1;
        const size_t nameEnd = std::min(tag.text.find_first_of(" \t\r\n/>", nameStart), tag.text.size());
        tag.name = tag.text.substr(nameStart, nameEnd - nameStart);
        at = end + 1;
        return true;
    }
    return false;
}

// The value of an attribute of a start tag; "" when it has none.
std::string_view attribute(std::string_view tag, std::string_view name) {
    for (size_t at = tag.find(name); at != npos; at = tag.find(name, at + 1)) {
        const bool wordStart = at > 0 && std::string_view(" \t\r\n").find(tag[at - 1]) != npos;
        size_t eq = at + name.size();
        while (eq < tag.size() && (tag[eq] == ' ' || tag[eq] == '\t')) ++eq;
        if (!wordStart || eq >= tag.size() || tag[eq] != '=') continue;
        size_t open = eq + 1;
        while (open < tag.size() && (tag[open] == ' ' || tag[open] == '\t')) ++open;
        if (open >= tag.size() || (tag[open] != '"' && tag[open] != '\'')) return {};
        const size_t close = tag.find(tag[open], open + 1);
        if (close == npos) return {};
        return tag.substr(open + 1, close - open - 1);
    }
    return {};
}

// ---- values arrays ----

// A decoded array of numbers, read in place.
struct Values {
    BinaryReader bytes;
    int width = 4;  // 4: FLOAT32, 8: FLOAT64
    int64_t count = 0;
    int64_t decodedBytes = 0;
    std::string startTag;

    // The number in the classic plain-text layout, 7 digits for FLOAT32, 15
    // for FLOAT64, written at `out` (room for 49); returns the end. i is
    // below count.
    char* writeText(char* out, int64_t i) const {
        const char* at = bytes.bytes().data() + width * i;
        if (width == 4) {
            float v;
            std::memcpy(&v, at, sizeof v);
            return writePlainText(out, v);
        }
        double v;
        std::memcpy(&v, at, sizeof v);
        return writePlainText(out, v);
    }
};

// A "<values>" element's numbers. False when its format is not one GAML
// numbers are stored in.
bool readValues(std::string_view startTag, std::string_view content, Values& v) {
    const std::string_view format = attribute(startTag, "format");
    if (format == "FLOAT32") v.width = 4;
    else if (format == "FLOAT64") v.width = 8;
    else return false;
    std::string bytes = decodeBase64(content);
    if (attribute(startTag, "byteorder") == "MOTOROLA")
        for (size_t at = 0; at + static_cast<size_t>(v.width) <= bytes.size(); at += static_cast<size_t>(v.width))
            std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                         bytes.begin() + static_cast<std::ptrdiff_t>(at) + v.width);
    v.decodedBytes = static_cast<int64_t>(bytes.size());
    v.count = v.decodedBytes / v.width;
    int64_t declared;
    if (parseDecimalDigits(attribute(startTag, "numvalues"), declared) && declared >= 0)
        v.count = std::min(v.count, declared);
    v.bytes = BinaryReader(std::move(bytes));
    v.startTag = startTag;
    return true;
}

// One Y array and the X array of its Xdata.
struct Series {
    size_t x;  // index into the X arrays
    Values y;
    std::vector<std::string> listing;  // the header lines that introduce it
};

struct GamlContent {
    std::string gamlTag;
    std::vector<Values> xArrays;
    std::vector<Series> series;
};

std::string lengthLine(const Values& v, const char* axis) {
    return "Length of decoded string " + plainText(v.decodedBytes) + "; number of " + axis + " points " +
           printItem(Value::ofInteger(v.count));
}

// Walks the elements; "<values>" counts as X directly inside an Xdata and as
// Y directly inside a Ydata (others, such as a trace's coordinates, are not
// data to convert).
GamlContent scanGaml(std::string_view xml) {
    GamlContent g;
    std::vector<std::string_view> open;
    std::vector<std::string> pending;  // listing lines since the last Y array
    // The X array of the Xdata being read: a Y array without one is no data.
    constexpr size_t NoX = SIZE_MAX;
    size_t currentX = NoX;
    size_t at = 0;
    Tag tag;
    while (nextTag(xml, at, tag)) {
        if (tag.closing) {
            // A closing tag that closes nothing open is ignored.
            if (!open.empty() && open.back() == tag.name) open.pop_back();
            continue;
        }
        if (tag.name == "GAML" && g.gamlTag.empty()) g.gamlTag = tag.text;
        if (tag.name == "trace" || tag.name == "Xdata" || tag.name == "Ydata") pending.emplace_back(tag.text);
        if (tag.name == "Xdata") currentX = NoX;
        if (tag.name != "values") {
            if (!tag.empty) open.push_back(tag.name);
            continue;
        }
        const size_t contentEnd = tag.empty ? at : std::min(xml.find("</values", at), xml.size());
        const std::string_view content = xml.substr(at, contentEnd - at);
        at = contentEnd;
        const std::string_view parent = open.empty() ? std::string_view() : open.back();
        Values v;
        if ((parent != "Xdata" && parent != "Ydata") || !readValues(tag.text, content, v)) continue;
        pending.push_back(v.startTag);
        pending.push_back(lengthLine(v, parent == "Xdata" ? "X" : "Y"));
        if (parent == "Xdata") {
            currentX = g.xArrays.size();
            g.xArrays.push_back(std::move(v));
        } else if (currentX != NoX) {
            g.series.push_back({currentX, std::move(v), std::move(pending)});
            pending.clear();
        }
    }
    return g;
}

void writeSeries(TextWriter& out, const Values& x, const Values& y) {
    constexpr size_t LongestLine = 128;  // room for the writes, not only the text
    LineBlock lines(out);
    const int64_t points = std::min(x.count, y.count);
    for (int64_t i = 0; i < points; ++i) {
        char* end = x.writeText(lines.lineStart(LongestLine), i);
        *end++ = ',';
        end = y.writeText(end, i);
        *end++ = '\r';
        *end++ = '\n';
        lines.lineEnd(end);
    }
    lines.handOver();
}

}  // namespace

void ConvFileGAMLModern(Session& form, std::string& fileName) {
    // The text goes as soon as its arrays are decoded.
    const GamlContent g = scanGaml(readWholeFile(fileName));
    const std::string stem = dropLast(fileName, 5);
    TextWriter& header = form.files.openOutput(HeaderFile, stem + ".hdr");
    header.text("header file for " + fileName + " read on the " +
                generalDate(dateFromUnixSeconds(static_cast<int64_t>(std::time(nullptr)))))
        .endLine();

    if (g.gamlTag.empty()) {
        modern::refuse(form, &header, "Not a GAML type file. Conversion aborted!");
        return form.files.close(HeaderFile);
    }
    header.text(g.gamlTag).endLine();
    if (g.series.empty()) {
        modern::refuse(form, &header, "No Y data found. Conversion aborted!");
        return form.files.close(HeaderFile);
    }
    // The listing is whole before the data files are written: one output
    // buffer at a time.
    const size_t count = g.series.size();
    for (size_t k = 0; k < count; ++k) {
        for (const std::string& line : g.series[k].listing) header.text(line).endLine();
        header.text("Written to " + modern::odfName(stem, k, count)).endLine();
    }
    form.files.close(HeaderFile);
    for (size_t k = 0; k < count; ++k) {
        const std::string name = modern::odfName(stem, k, count);
        writeSeries(form.files.openOutput(DataFile, name), g.xArrays[g.series[k].x], g.series[k].y);
        form.files.close(DataFile);
        if (k == 0 && count > 1) fileName = name;  // the one the plot shows
    }
}

}  // namespace kestro
