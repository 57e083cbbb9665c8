// Reader of ORTEC/Maestro CHN files: a fixed header at fixed offsets, the
// counts after it. The acquisition date is the file's modification time.
#include <vector>

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

// Channels 1..N, counted from 1 as the file's channels are.
int32_t& channel(std::vector<int32_t>& counts, int64_t i) {
    if (i < 1 || i > static_cast<int64_t>(counts.size())) raise(err::SubscriptOutOfRange);
    return counts[static_cast<size_t>(i - 1)];
}

std::vector<int32_t> readCounts(const BinaryReader& in, int64_t n) {
    std::vector<int32_t> counts(static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i) counts[static_cast<size_t>(i)] = in.i32(CountsOffset + 4 * i);
    return counts;
}

void writeCounts(TextWriter& out, const std::vector<int32_t>& counts) {
    DataBlock block(out.buffer());
    for (int32_t c : counts) block.count(c);
}

}  // namespace

void ConvChnFile(Session& form, std::string& fileName) {
    const std::string inputPath = fileName;
    const BinaryReader& in = form.files.openBinary(1, inputPath);
    fileName = spectrumOutputPath(form, inputPath);
    TextWriter& out = form.files.openOutput(2, fileName);

    const int32_t firstTicks = tickValue(in, FirstTimeOffset);
    const int32_t secondTicks = tickValue(in, SecondTimeOffset);
    const int64_t n = in.u16(ChannelCountOffset);
    std::vector<int32_t> counts = readCounts(in, n);
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
        channel(counts, 1) = tickSeconds(firstTicks);
        channel(counts, 2) = tickSeconds(secondTicks);
    }
    writeCounts(out, counts);

    form.files.close(2);
    form.files.close(1);
}

}  // namespace kestro
