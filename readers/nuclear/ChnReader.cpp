// Reader of ORTEC/Maestro CHN files: a fixed header at fixed offsets, the
// counts after it. The acquisition date is the file's modification time.
#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int64_t FirstTimeOffset = 8;
constexpr int64_t SecondTimeOffset = 12;
constexpr int64_t ChannelCountOffset = 30;
constexpr int64_t CountsOffset = 32;

// Four bytes summed in signed 32-bit arithmetic: a top byte of 128 or more
// is an overflow.
int32_t tickValue(const BinaryReader& in, int64_t offset) { return roundToInt32(in.u32(offset)); }

// Ticks to whole seconds by dividing by 20, deliberately, as it always was.
int32_t tickSeconds(int32_t ticks) { return roundToInt32(ticks / 20.0); }

}  // namespace

void ConvChnFile(Session& form, std::string& fileName) {
    const std::string inputPath = fileName;
    const BinaryReader& in = form.files.openBinary(1, inputPath);
    fileName = spectrumOutputPath(form, inputPath);
    TextWriter& out = form.files.openOutput(2, fileName);

    const int32_t firstTicks = tickValue(in, FirstTimeOffset);
    const int32_t secondTicks = tickValue(in, SecondTimeOffset);
    const int64_t n = in.u16(ChannelCountOffset);
    ChannelCounts counts(in, CountsOffset, n);
    // The raw ticks, not seconds: what the next reader finds there.
    form.sharedRealTime = Value::ofInteger(secondTicks);
    form.valueCount = n;

    if (form.boxes.SPE) {
        const SpeHeader header{inputPath, modificationTexts(inputPath), Value::ofInteger(tickSeconds(firstTicks)),
                               Value::ofInteger(tickSeconds(secondTicks)), n - 1};
        writeSpeHeader(out, header, TimePadding::Strict);
    } else if (form.boxes.SPO) {
        writeSpoHeader(out, n);
    } else {
        // Only the bare data block carries the times, in channels 1 and 2.
        counts[1] = tickSeconds(firstTicks);
        counts[2] = tickSeconds(secondTicks);
    }
    counts.writeTo(out);

    form.files.close(2);
    form.files.close(1);
}

}  // namespace kestro
