// Readers of Shimadzu files: the photometric measurement file (".pho"),
// listed as its recording time, its count and a table of the measurements;
// and the ".spc" choice, which Kestro does not convert and says so.
#include <cstdint>
#include <string>

#include "core/runtime/NumberText.h"
#include "core/runtime/NumberTextExtras.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputNumber = 1;
constexpr int HeaderNumber = 3;

constexpr int64_t YearAt = 40;  // then month, day, hour, minute, second, fraction: a byte each
constexpr int64_t MeasurementsAt = 114;
constexpr int64_t IndexesAt = 128;  // M indexes, then M pairs of Singles

constexpr const char* ValuePattern = " 0.####0";

// The fields a step reads must be in the file.
void needBytes(const BinaryReader& in, int64_t end) {
    if (in.length() < end) raise(err::InputPastEnd);
}

// Each number as it stands, without padding: 2019-3-7 9:5:2.0 is possible.
std::string recordedTime(const BinaryReader& in) {
    needBytes(in, YearAt + 8);
    std::string text = plainText(int64_t{in.i16(YearAt)});
    const char* separators[] = {"-", "-", " ", ":", ":", "."};
    for (int i = 0; i < 6; ++i) text += separators[i] + plainText(int64_t{in.u8(YearAt + 2 + i)});
    return text;
}

}  // namespace

void ConvShim_PHObin(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(InputNumber, fileName);
    TextWriter& out = form.files.openOutput(HeaderNumber, fileName.substr(0, fileName.find('.')) + ".hdrx");
    out.text("Recorded date-time as yyyy-mm-dd hh:mm:ss is " + recordedTime(in)).endLine();
    needBytes(in, MeasurementsAt + 4);
    const int64_t count = in.i32(MeasurementsAt);
    out.text("Recorded number of measurements is ").item(count).endLine();

    if (count <= 0) raise(err::SubscriptOutOfRange);
    needBytes(in, IndexesAt + 4 * count);
    out.text("### Absorbance k*Absorbance").endLine();
    const int64_t pairsAt = IndexesAt + 4 * count;
    needBytes(in, pairsAt + 8 * count);

    for (int64_t i = 0; i < count; ++i) {
        out.text(formatText(plainText(int64_t{in.i32(IndexesAt + 4 * i)}), "@@@"))
            .text(" ")
            .text(formatSingle(in.f32(pairsAt + 8 * i), ValuePattern))
            .text("     ")
            .text(formatSingle(in.f32(pairsAt + 8 * i + 4), ValuePattern))
            .endLine();
        out.flushIfFull();
    }
    form.files.close(InputNumber);
    form.files.close(HeaderNumber);
}

void ConvShim_SPCbin(Session& form, std::string&) {
    form.host().messageBox("Shimadzu .spc conversion not yet available, please be patient grassshopper",
                           BoxIcon::None, BoxButtons::Ok);
}

}  // namespace kestro
