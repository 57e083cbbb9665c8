// Reader of Galactic ".spc" files holding one measurement: Y values alone
// (evenly spaced X) or after one X array. Writes a ".hdr" listing of the file
// header and a two-column ".odf"; other layouts are refused.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int DataFile = 2;
constexpr int HeaderFile = 3;

constexpr int64_t XArrayAt = 512;
constexpr int64_t YAt = 544;  // after the file header and one sub-header
constexpr uint8_t OldVersion = 'M';
constexpr uint8_t OneXArray = 128;
constexpr int64_t DataColumn = 20;

struct SpcHeader {
    uint8_t flags;
    uint8_t version;
    uint8_t experiment;
    uint8_t exponent;  // unsigned, as it has always been read
    int32_t points;
    double firstX;
    double lastX;
    int32_t date;
    int precision;  // bits of a Y integer, by the flags
};

SpcHeader readHeader(const BinaryReader& in) {
    SpcHeader h{in.u8(0), in.u8(1), in.u8(2), in.u8(3), in.i32(4), in.f64(8), in.f64(16), in.i32(32), 32};
    if (h.flags & 1) h.precision = 16;
    return h;
}

void writeLayoutLines(TextWriter& header, const SpcHeader& h) {
    if ((h.flags & 4) / 4 == 1) {
        header.text("File has multiple measurements").endLine();
        header.text((h.flags & 64) / 64 == 1 ? "File is {XY} values" : "File is one-X set, multiple-Y").endLine();
    } else {
        header.text("File has single measurement").endLine();
        header.text((h.flags & 128) / 128 == 1 ? "File is {XY} values" : "File is Y-only  values").endLine();
    }
    header.text(h.precision == 32 ? "Y data with 32-bit precision" : "Y data with 16-bit precision").endLine();
}

void refuse(Session& form, TextWriter& header, const std::string& text) {
    form.host().messageBox(text, BoxIcon::Critical, BoxButtons::Ok);
    header.text(text).endLine();
    form.files.close(HeaderFile);
    form.files.close(InputFile);
}

// The type line for a layout the reader converts; otherwise the refusal.
bool acceptType(Session& form, TextWriter& header, uint8_t flags) {
    const std::string type = "File of type " + plainText(int{flags});
    switch (flags) {
    case 0:
    case 2: header.text(type + ": Y only data stored in 32-bit precision").endLine(); return true;
    case OneXArray: header.text(type + ": XY data").endLine(); return true;
    case 4:
    case 8:
    case 16:
    case 32:
    case 64: refuse(form, header, type + ": multifile. Conversion not yet possible!"); return false;
    default: refuse(form, header, type + ": not single measurement. Conversion not yet possible!"); return false;
    }
}

// Evenly spaced X values, each kept as a Single. A value beyond a Single's
// range is the Overflow error; the largest lie at the two ends.
class EvenX {
public:
    EvenX(const SpcHeader& h)
        : first_(h.firstX), step_(divide(h.lastX - h.firstX, static_cast<double>(h.points) - 1)) {
        if (h.points <= 0) raise(err::SubscriptOutOfRange);
        at(0);
        at(h.points - 1);
    }
    float at(int64_t i) const { return toSingle(first_ + static_cast<double>(i) * step_); }
    double step() const { return step_; }

private:
    double first_;
    double step_;
};

const char* const Months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string dateText(int32_t date) {
    const int minute = date & 63;
    const int hour = (date & 1984) / (1 << 6);
    const int day = (date & 63488) / (1 << 11);
    const int month = (date & 983040) / (1 << 16);
    const int year = (date & 2146435072) / (1 << 20);
    if (month < 1 || month > 12) raise(err::SubscriptOutOfRange);
    return formatNumber(day, "00") + Months[month - 1] + plainText(year) + ", Time (hh:mm): " +
           formatNumber(hour, "00") + ":" + formatNumber(minute, "00");
}

void writeValueLines(TextWriter& header, const SpcHeader& h, double step) {
    header.text("SPC version: " + hexText(h.version)).endLine();
    header.text("Experiment : " + plainText(int{h.experiment})).endLine();
    header.text("Exponent is: " + plainText(int{h.exponent})).endLine();
    header.text("Number of data points : " + plainText(int{h.points})).endLine();
    header.text("1st_X, last_X, X-step : " + plainText(h.firstX) + " " + plainText(h.lastX) + " " + plainText(step))
        .endLine();
    header.text("Compressed data string: " + hexText(h.date)).endLine();
    header.text("Decompressed date is  : " + dateText(h.date)).endLine();
}

// N values of 4 bytes from `offset` on; a file that ends before them is read
// past its end.
const char* valuesAt(const BinaryReader& in, int64_t offset, int32_t points) {
    if (offset + 4 * int64_t{points} > in.length()) raise(err::InputPastEnd);
    return in.bytes().data() + offset;
}

float singleAt(const char* values, int64_t i) {
    float v;
    std::memcpy(&v, values + 4 * i, sizeof v);
    return v;
}

// Y as Singles: the integers scaled by 2^exponent / 2^precision (read as 32
// bits even when the flags say 16), or the singles of an X-array file as
// they stand.
std::vector<float> readY(const BinaryReader& in, const SpcHeader& h, bool xArray) {
    const int64_t offset = xArray ? YAt + 4 * int64_t{h.points} : YAt;
    const char* values = valuesAt(in, offset, h.points);
    std::vector<float> y(static_cast<size_t>(h.points));
    if (xArray) {
        std::memcpy(y.data(), values, y.size() * sizeof(float));
        return y;
    }
    const double scale = std::exp2(h.exponent) / std::exp2(h.precision);
    for (size_t i = 0; i < y.size(); ++i) {
        int32_t raw;
        std::memcpy(&raw, values + 4 * i, sizeof raw);
        y[i] = toSingle(raw * scale);
    }
    return y;
}

// X and Y by the signed-text rule, Y at column 20.
void writePoints(TextWriter& out, const std::vector<float>& y, const EvenX& evenX, const char* xArray) {
    constexpr size_t LongestLine = 128;  // room for the writes, not only the text
    LineBlock lines(out);
    for (size_t i = 0; i < y.size(); ++i) {
        const float x = xArray ? singleAt(xArray, static_cast<int64_t>(i)) : evenX.at(static_cast<int64_t>(i));
        char* line = lines.lineStart(LongestLine);
        char* end = writeSignedText(tabInLine(line, writeSignedText(line, x), DataColumn), y[i]);
        *end++ = '\r';
        *end++ = '\n';
        lines.lineEnd(end);
    }
    lines.handOver();
}

}  // namespace

void ConvFileSPC(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(InputFile, fileName);
    const std::string stem = dropLast(fileName, 4);
    TextWriter& header = form.files.openOutput(HeaderFile, stem + ".hdr");
    const SpcHeader h = readHeader(in);
    writeLayoutLines(header, h);
    if (h.version == OldVersion) return refuse(form, header, "Old format (LabCalc) version. Conversion not possible!");
    if (!acceptType(form, header, h.flags)) return;

    const EvenX evenX(h);
    const bool xArray = h.flags == OneXArray;
    const char* xValues = xArray ? valuesAt(in, XArrayAt, h.points) : nullptr;
    writeValueLines(header, h, evenX.step());
    form.files.close(HeaderFile);

    TextWriter& out = form.files.openOutput(DataFile, stem + ".odf");
    const std::vector<float> y = readY(in, h, xArray);
    writePoints(out, y, evenX, xValues);
    form.files.close(DataFile);
    form.files.close(InputFile);
}

}  // namespace kestro
