// Kestro's own reader of Galactic (GRAMS) ".spc" files, after the layout of
// Galactic's "SPC file format" description (the SPC.H header of the GRAMS
// SDK), as cheminfo/spc-parser and rohanisaac/spc document it: Y-only, one-X
// and XY data, single and multi-file, 16- and 32-bit integer Y scaled by the
// exponent or float Y, and the old LabCalc layout (version byte 4D).
#include <algorithm>
#include <string>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "readers/Readers.h"
#include "readers/modern/ModernOutputs.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int DataFile = 2;
constexpr int HeaderFile = 3;

constexpr uint8_t NewVersion = 0x4B;
constexpr uint8_t BigEndianVersion = 0x4C;
constexpr uint8_t OldVersion = 0x4D;

// Type flags.
constexpr uint8_t ShortY = 0x01;      // 16-bit integer Y
constexpr uint8_t MultiFile = 0x04;
constexpr uint8_t OwnXArrays = 0x40;  // each sub-file has its X array
constexpr uint8_t OneXArray = 0x80;   // one X array before the sub-files

constexpr int64_t NewHeaderSize = 512;
constexpr int64_t OldFirstSubfile = 224;  // the old header ends in the first sub-file's header
constexpr int64_t SubheaderSize = 32;
constexpr int FloatExponent = -128;  // exponent byte 80h: Y stored as singles

// What the main header says, in the terms of either layout.
struct SpcHeader {
    uint8_t flags = 0;
    uint8_t version = 0;
    uint8_t experiment = 0;
    int exponent = 0;
    int64_t points = 0;
    double firstX = 0;
    double lastX = 0;
    int64_t subfiles = 1;
    int64_t dateWord = 0;  // new layout only
    DateParts date;
    bool hasDate = false;
    int64_t firstSubfile = NewHeaderSize;
    int64_t directory = 0;  // of XY sub-files, when the file has one
};

bool has(const SpcHeader& h, uint8_t flag) { return (h.flags & flag) != 0; }

void readDateWord(SpcHeader& h) {
    const int64_t d = h.dateWord;
    h.date = {static_cast<int>(d >> 20 & 0xFFF), static_cast<int>(d >> 16 & 0xF), static_cast<int>(d >> 11 & 0x1F),
              static_cast<int>(d >> 6 & 0x1F), static_cast<int>(d & 0x3F), 0};
    h.hasDate = h.date.month >= 1 && h.date.month <= 12 && h.date.day >= 1;
}

SpcHeader readNewHeader(const BinaryReader& in) {
    SpcHeader h;
    h.flags = in.u8(0);
    h.version = in.u8(1);
    h.experiment = in.u8(2);
    h.exponent = static_cast<int8_t>(in.u8(3));
    h.points = in.i32(4);
    h.firstX = in.f64(8);
    h.lastX = in.f64(16);
    h.subfiles = has(h, MultiFile) ? std::max<int64_t>(in.i32(24), 1) : 1;
    h.dateWord = in.u32(32);
    readDateWord(h);
    // XY sub-files may be listed in a directory, whose offset then stands in
    // the point count.
    if (has(h, OwnXArrays)) {
        h.directory = h.points;
        h.points = 0;
    }
    if (has(h, OneXArray) && !has(h, OwnXArrays)) h.firstSubfile = NewHeaderSize + 4 * std::max<int64_t>(h.points, 0);
    return h;
}

SpcHeader readOldHeader(const BinaryReader& in) {
    SpcHeader h;
    h.flags = in.u8(0);
    h.version = in.u8(1);
    h.exponent = in.i16(2);
    const float points = in.f32(4);
    h.points = points >= 0 && points < 2e9f ? static_cast<int64_t>(points) : 0;
    h.firstX = in.f32(8);
    h.lastX = in.f32(12);
    h.date = {in.u16(18) & 0xFFF, in.u8(20), in.u8(21), in.u8(22), in.u8(23), 0};
    h.hasDate = h.date.month >= 1 && h.date.month <= 12 && h.date.day >= 1;
    h.flags &= ~(OneXArray | OwnXArrays);  // the old layout has evenly spaced X only
    // The old layout keeps no sub-file count: a multi-file runs to the end.
    h.subfiles = has(h, MultiFile) ? (in.length() - OldFirstSubfile) / SubheaderSize : 1;
    h.firstSubfile = OldFirstSubfile;
    return h;
}

// One sub-file: where its X and Y values stand and how Y is stored.
struct Subfile {
    int64_t points = 0;
    int64_t xOffset = -1;  // its own X array; -1: the file's X
    int64_t yOffset = 0;
    int exponent = 0;
    int64_t end = 0;
};

int64_t yBytes(const SpcHeader& h, const Subfile& s) {
    return s.exponent != FloatExponent && has(h, ShortY) ? 2 : 4;
}

// The sub-files of a multi-file carry their own exponents; a single one
// follows the main header's. The old layout marks float Y in either.
int exponentOf(const SpcHeader& h, int subExponent) {
    if (h.version == OldVersion)
        return subExponent == FloatExponent || h.exponent == 128 ? FloatExponent : h.exponent;
    return has(h, MultiFile) ? subExponent : h.exponent;
}

// The sub-file whose header is at `at`; false when its data run past the end.
bool readSubfile(const BinaryReader& in, const SpcHeader& h, int64_t at, Subfile& s) {
    s.exponent = exponentOf(h, static_cast<int8_t>(in.u8(at + 1)));
    s.points = h.points;
    if (has(h, OwnXArrays) || (h.version == OldVersion && in.u32(at + 16) > 0)) s.points = in.u32(at + 16);
    s.yOffset = at + SubheaderSize;
    if (has(h, OwnXArrays)) {
        s.xOffset = s.yOffset;
        s.yOffset += 4 * s.points;
    }
    s.end = s.yOffset + yBytes(h, s) * s.points;
    return s.points > 0 && s.end <= in.length();
}

// Every sub-file, in file order, as far as the file holds them whole. Each
// starts after the one before, so no byte is read twice.
std::vector<Subfile> readSubfiles(const BinaryReader& in, const SpcHeader& h) {
    std::vector<Subfile> subs;
    int64_t at = h.firstSubfile;
    for (int64_t k = 0; k < h.subfiles; ++k) {
        const int64_t previousEnd = at;
        // A directory entry: the sub-file's offset, its size and its Z value.
        if (h.directory > 0) at = in.i32(h.directory + 12 * k);
        Subfile s;
        if (at < previousEnd || at + SubheaderSize > in.length() || !readSubfile(in, h, at, s)) break;
        subs.push_back(s);
        at = s.end;
    }
    return subs;
}

double xStep(const SpcHeader& h) {
    return h.points > 1 ? (h.lastX - h.firstX) / static_cast<double>(h.points - 1) : 0;
}

// The lines of a sub-file, X and Y by the signed-text rule with Y at column
// 20: the classic layout. X comes from the sub-file's own array, the file's
// one array, or evenly spaced; yText(out, i) writes Y number i.
template <typename YText>
void writeLines(TextWriter& out, const BinaryReader& in, const SpcHeader& h, const Subfile& s, YText yText) {
    constexpr size_t LongestLine = 128;  // room for the writes, not only the text
    constexpr int64_t DataColumn = 20;
    const double step = xStep(h);
    const int64_t xArray = s.xOffset >= 0 ? s.xOffset : has(h, OneXArray) ? NewHeaderSize : -1;
    LineBlock lines(out);
    for (int64_t i = 0; i < s.points; ++i) {
        const float x = xArray >= 0 ? in.f32(xArray + 4 * i) : static_cast<float>(h.firstX + static_cast<double>(i) * step);
        char* line = lines.lineStart(LongestLine);
        char* end = yText(tabInLine(line, writeSignedText(line, x), DataColumn), i);
        *end++ = '\r';
        *end++ = '\n';
        lines.lineEnd(end);
    }
    lines.handOver();
}

// Float Y (exponent 80h) has a single's 7 digits; integer Y, scaled by
// 2^exponent / 2^bits, a double's 15. The old layout stores a 32-bit
// integer with its high word first.
void writeSubfile(TextWriter& out, const BinaryReader& in, const SpcHeader& h, const Subfile& s) {
    const int64_t y = s.yOffset;
    if (s.exponent == FloatExponent)
        return writeLines(out, in, h, s, [&](char* at, int64_t i) { return writeSignedText(at, in.f32(y + 4 * i)); });
    const int fractionBits = (has(h, ShortY) ? 16 : 32) - s.exponent;
    if (has(h, ShortY))
        return writeLines(out, in, h, s, [&](char* at, int64_t i) {
            return writeSignedScaledText(at, in.i16(y + 2 * i), fractionBits);
        });
    if (h.version == OldVersion)
        return writeLines(out, in, h, s, [&](char* at, int64_t i) {
            const int32_t raw = static_cast<int32_t>(static_cast<uint32_t>(in.u16(y + 4 * i)) << 16 | in.u16(y + 4 * i + 2));
            return writeSignedScaledText(at, raw, fractionBits);
        });
    writeLines(out, in, h, s, [&](char* at, int64_t i) { return writeSignedScaledText(at, in.i32(y + 4 * i), fractionBits); });
}

const char* const Months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string dateText(const SpcHeader& h) {
    if (!h.hasDate) return "none";
    const DateParts& d = h.date;
    return formatNumber(d.day, "00") + Months[d.month - 1] + plainText(d.year) + ", Time (hh:mm): " +
           formatNumber(d.hour, "00") + ":" + formatNumber(d.minute, "00");
}

void writeHeaderListing(TextWriter& out, const SpcHeader& h, size_t subfiles) {
    if (has(h, MultiFile)) {
        out.text("File has multiple measurements").endLine();
        out.text(has(h, OwnXArrays) ? "File is {XY} values" : "File is one-X set, multiple-Y").endLine();
    } else {
        out.text("File has single measurement").endLine();
        out.text(has(h, OneXArray) ? "File is {XY} values" : "File is Y-only  values").endLine();
    }
    if (h.exponent == FloatExponent || h.exponent == 128) out.text("Y data as single-precision reals").endLine();
    else out.text(has(h, ShortY) ? "Y data with 16-bit precision" : "Y data with 32-bit precision").endLine();
    out.text("SPC version: " + hexText(h.version)).endLine();
    out.text("Experiment : " + plainText(int{h.experiment})).endLine();
    out.text("Exponent is: " + plainText(h.exponent)).endLine();
    out.text("Number of data points : " + plainText(h.points)).endLine();
    out.text("1st_X, last_X, X-step : " + plainText(h.firstX) + " " + plainText(h.lastX) + " " +
             plainText(xStep(h)))
        .endLine();
    if (h.version == NewVersion) out.text("Compressed data string: " + hexText(h.dateWord)).endLine();
    out.text("Decompressed date is  : " + dateText(h)).endLine();
    out.text("Number of sub-files  : " + plainText(static_cast<int64_t>(subfiles))).endLine();
}

// Not a Galactic file: the reason in the user's terms.
std::string notGalactic(const BinaryReader& in) {
    if (in.u32(0) == 0xE011CFD0)
        return "Not a Galactic SPC file: this is a compound document, as Shimadzu UVProbe writes. "
               "Choose the Shimadzu SPC format for it. Conversion aborted!";
    if (in.u8(1) == BigEndianVersion)
        return "Galactic SPC file with its numbers high byte first: not readable. Conversion aborted!";
    return "Not a Galactic SPC file (version byte " + hexText(in.u8(1)) + "). Conversion aborted!";
}

void closeInputs(Session& form) {
    form.files.close(HeaderFile);
    form.files.close(InputFile);
}

}  // namespace

void ConvFileSPCModern(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(InputFile, fileName);
    const std::string stem = dropLast(fileName, 4);
    TextWriter& header = form.files.openOutput(HeaderFile, stem + ".hdr");

    const uint8_t version = in.u8(1);
    if (version != NewVersion && version != OldVersion) {
        modern::refuse(form, &header, notGalactic(in));
        return closeInputs(form);
    }
    const SpcHeader h = version == NewVersion ? readNewHeader(in) : readOldHeader(in);
    const std::vector<Subfile> subs = readSubfiles(in, h);
    writeHeaderListing(header, h, subs.size());
    if (subs.empty()) {
        modern::refuse(form, &header, "No complete spectrum in this SPC file. Conversion aborted!");
        return closeInputs(form);
    }
    form.files.close(HeaderFile);

    for (size_t k = 0; k < subs.size(); ++k) {
        const std::string name = modern::odfName(stem, k, subs.size());
        TextWriter& out = form.files.openOutput(DataFile, name);
        writeSubfile(out, in, h, subs[k]);
        form.files.close(DataFile);
        if (k == 0 && subs.size() > 1) fileName = name;  // the one the plot shows
    }
    form.files.close(InputFile);
}

}  // namespace kestro
