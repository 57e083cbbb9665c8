// Reader of Thermo-Scientific ".spa" spectra: a few fixed header fields, and
// the Y values found behind a byte signature searched for from byte 593 on.
// Writes a ".hdr" listing and a two-column ".odf" of X and Y.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int DataFile = 2;
constexpr int HeaderFile = 3;

constexpr int64_t OffsetAt = 386;
constexpr int64_t PointsAt = 564;
constexpr int64_t FirstXAt = 576;
constexpr int64_t LastXAt = 580;
constexpr int64_t NoiseAt = 584;
constexpr int64_t CollectedAt = 588;
// 1-based: the byte right after the last fixed field.
constexpr int64_t SearchStart = 593;

constexpr std::string_view LongSignature{"\r\n\r\n\0\0\0", 7};
constexpr std::string_view ShortSignature{"\r\n\r\n\0", 5};

constexpr int64_t DataColumn = 20;

// The 1-based position of the first match at positions 593 up to the file's
// length less one, bytes past the end reading as zero; 0 when there is none.
// The search stops only when the position reaches the file's length, so a
// file no longer than 593 bytes keeps it going until the position overflows.
int64_t findSignature(const std::string& bytes, std::string_view signature) {
    const int64_t length = static_cast<int64_t>(bytes.size());
    if (length <= SearchStart) raise(err::Overflow);
    const int64_t sigLength = static_cast<int64_t>(signature.size());
    // Matches lying wholly inside the file.
    const int64_t lastWhole = length - sigLength;
    for (int64_t i = SearchStart - 1; i <= lastWhole;) {
        const void* cr = std::memchr(bytes.data() + i, '\r', static_cast<size_t>(lastWhole - i + 1));
        if (!cr) break;
        i = static_cast<const char*>(cr) - bytes.data();
        if (std::memcmp(bytes.data() + i, signature.data(), signature.size()) == 0) return i + 1;
        ++i;
    }
    // Matches running past the end, where the missing bytes read as zero.
    for (int64_t i = std::max(lastWhole + 1, SearchStart - 1); i < length - 1; ++i) {
        const auto held = static_cast<size_t>(length - i);
        if (std::memcmp(bytes.data() + i, signature.data(), held) == 0 &&
            signature.find_first_not_of('\0', held) == std::string_view::npos)
            return i + 1;
    }
    return 0;
}

struct SpaHeader {
    int32_t points;
    float firstX;
    double step;
};

// Reads the fixed fields and lists them in the header file.
SpaHeader listFixedFields(TextWriter& header, const BinaryReader& in) {
    const int32_t points = in.i32(PointsAt);
    const float firstX = in.f32(FirstXAt);
    const float lastX = in.f32(LastXAt);
    const double step = divide(static_cast<double>(lastX) - firstX, static_cast<double>(points) - 1);
    header.text("Offset: ").item(int64_t{in.i32(OffsetAt)}).endLine();
    header.text("Number of data points : ").item(int64_t{points}).endLine();
    header.text("1st_X, last_X, X-step : ")
        .item(Value::ofSingle(firstX))
        .item(Value::ofSingle(lastX))
        .item(step)
        .endLine();
    header.text("Estimated noise level : ").item(Value::ofSingle(in.f32(NoiseAt))).endLine();
    header.text("Total points collected: ").item(int64_t{in.i32(CollectedAt)}).endLine();
    return {points, firstX, step};
}

// The written-list line of one point: X, the list delimiter, Y at column 20.
void writePoints(TextWriter& out, const char* ys, const SpaHeader& h) {
    constexpr size_t LongestLine = 128;  // room for the writes, not only the text
    LineBlock lines(out);
    for (int64_t i = 0; i < h.points; ++i) {
        float y;
        std::memcpy(&y, ys + 4 * i, sizeof y);
        char* line = lines.lineStart(LongestLine);
        char* end = writePlainText(line, h.firstX + static_cast<double>(i) * h.step);
        *end++ = ',';
        end = writePlainText(tabInLine(line, end, DataColumn), y);
        *end++ = '\r';
        *end++ = '\n';
        lines.lineEnd(end);
    }
    lines.handOver();
}

}  // namespace

void ConvFileSPA(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(InputFile, fileName);
    const std::string stem = dropLast(fileName, 4);
    TextWriter& out = form.files.openOutput(DataFile, stem + ".odf");
    TextWriter& header = form.files.openOutput(HeaderFile, stem + ".hdr");
    const SpaHeader h = listFixedFields(header, in);

    int64_t found = findSignature(in.bytes(), LongSignature);
    int64_t dataStart = found + static_cast<int64_t>(LongSignature.size());
    if (!found) {
        header.text("Data segment signature not found. Attempting short signature...").endLine();
        found = findSignature(in.bytes(), ShortSignature);
        dataStart = found + static_cast<int64_t>(ShortSignature.size());
    }
    if (!found) {
        // Every file stays open and the ".odf" empty, as the reader has always left them.
        const std::string text = "Data segment signature not found. Unable to find data segment... extraction halted!";
        header.text(text).endLine();
        form.host().messageBox(text, BoxIcon::None, BoxButtons::Ok);
        form.changeBoxes([](Boxes& b) { b.DsGr = false; });
        return;
    }
    header.text("Data segment signature found at byte ").item(found).endLine();
    header.text("End-of-header at byte :").item(found).endLine();
    header.text("1st_Y sp_data at byte :").item(dataStart).endLine();
    form.files.close(HeaderFile);

    if (h.points <= 0) raise(err::SubscriptOutOfRange);
    if (dataStart - 1 + 4 * int64_t{h.points} > in.length()) raise(err::InputPastEnd);
    writePoints(out, in.bytes().data() + dataStart - 1, h);
    form.files.close(DataFile);
    form.files.close(InputFile);
}

}  // namespace kestro
