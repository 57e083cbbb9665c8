// Reader of Philips/PANalytical ".rd" scans: a fixed 250-byte header, then
// 16-bit intensities to the end of the file. Writes a header listing with
// every point, and a two-column ".odf" of point index and intensity.
#include <cstdint>
#include <cstring>
#include <string>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/TextOutput.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputNumber = 1;
constexpr int OutputNumber = 2;
constexpr int HeaderNumber = 5;

constexpr int64_t HeaderBytes = 250;
constexpr int64_t Alpha1At = 94;
constexpr int64_t Alpha2At = 102;
constexpr int64_t RatioAt = 110;
constexpr int64_t StepAt = 214;
constexpr int64_t StartAt = 222;
constexpr int64_t StopAt = 230;

void writeScanHeader(TextWriter& header, const BinaryReader& in, const std::string& fileName, int64_t points) {
    header.text("File " + fileName + " is " + plainText(in.length()) + " bytes long!").endLine();
    header.text("Spec " + fileName + " has " + plainText(points) + " intensity values!").endLine();
    // Angstrom to nm.
    header.text("kAlpha1/nm = " + signedText(in.f64(Alpha1At) / 10)).endLine();
    header.text("kAlpha2/nm = " + signedText(in.f64(Alpha2At) / 10)).endLine();
    header.text("k2/1 ratio = " + signedText(in.f64(RatioAt))).endLine();
}

// Room for the writes of one line, not only its text.
constexpr size_t LongestLine = 128;

// The print item of an intensity, written once for both lines of its point.
struct IntensityItem {
    static constexpr size_t Room = 24;  // what writePrintItem needs
    char text[Room];
    size_t length;

    explicit IntensityItem(int16_t intensity) : length(writePrintItem(text, int64_t{intensity}) - text) {}
    // Copies the whole room, so the copy is a fixed-size one.
    char* copyTo(char* out) const {
        std::memcpy(out, text, Room);
        return out + length;
    }
};

// The listing line of one point: its angle, its squared value and its
// intensity. The angle and the squared value are kept as Singles, and the
// intensity is squared on purpose, as it always was.
char* writeListingLine(char* line, float angle, int16_t intensity, const IntensityItem& item) {
    const float value = static_cast<float>(intensity);
    char* end = writePrintItemOfSingle(line, angle);
    end = item.copyTo(writePrintItemOfSingle(end, value * value / 100.0f));
    *end++ = '\r';
    *end++ = '\n';
    return end;
}

// Both outputs a line per point, built in place. The first ".odf" column is
// the point's index, not its angle.
void writePoints(TextWriter& header, TextWriter& out, const char* intensities, int64_t points, double start,
                 double step) {
    LineBlock listing(header);
    LineBlock lines(out);
    CountingPrintItems index;
    try {
        for (int64_t i = 0; i < points; ++i, index.next()) {
            // An angle beyond a Single faults before either line of its point.
            const float angle = toSingle(start + step * static_cast<double>(i));
            int16_t intensity;
            std::memcpy(&intensity, intensities + 2 * i, sizeof intensity);
            const IntensityItem item(intensity);
            listing.lineEnd(writeListingLine(listing.lineStart(LongestLine), angle, intensity, item));
            char* line = lines.lineStart(LongestLine);
            char* end = item.copyTo(zoneInLine(line, index.write(line)));
            *end++ = '\r';
            *end++ = '\n';
            lines.lineEnd(end);
        }
    } catch (...) {
        // The points before the fault stay written.
        listing.handOver();
        lines.handOver();
        throw;
    }
    listing.handOver();
    lines.handOver();
}

}  // namespace

void ConvPANrd(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(InputNumber, fileName);
    // An odd last byte is not read.
    const int64_t points = (in.length() - HeaderBytes) / 2;
    TextWriter& header = form.files.openOutput(HeaderNumber, fileName + ".hdr");
    writeScanHeader(header, in, fileName, points);

    double step = in.f64(StepAt);
    const double start = in.f64(StartAt);
    const double stop = in.f64(StopAt);
    header.text("Start2theta = " + signedText(start)).endLine();
    header.text("Stop 2theta = " + signedText(stop)).endLine();
    header.text("2theta step = " + signedText(step)).endLine();
    // Reported only: the file's length decides how many points there are.
    const int32_t calculated = roundToInt32(divide(stop - start, step));
    header.text("Calculated number of data points = " + plainText(calculated)).endLine();
    // A step of 0 has already faulted in the count above, so this never
    // takes effect; the reading has always had it.
    if (step == 0) step = 1;

    if (points < 0) raise(err::SubscriptOutOfRange);
    // A file one byte short of the header also holds no point.
    const std::string intensities = points == 0 ? std::string() : in.bytes().substr(HeaderBytes, 2 * points);
    form.files.close(InputNumber);

    TextWriter& out = form.files.openOutput(OutputNumber, dropLast(fileName, 3) + ".odf");
    writePoints(header, out, intensities.data(), points, start, step);
    form.files.close(HeaderNumber);
    form.files.close(OutputNumber);
}

}  // namespace kestro
