// Reader of SpecTech SPU files: a channel count and the counts after it,
// written as a bare data block whatever the SPE and SPO boxes say.
#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int64_t CountsOffset = 4;

// The count must fit a signed 32-bit integer, and so must four times it:
// 2^29 channels or more is an overflow.
int32_t channelCount(const BinaryReader& in) {
    const int32_t n = roundToInt32(in.u32(0));
    return roundToInt32(4.0 * n) / 4;
}

}  // namespace

void ConvSpec(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(1, fileName);
    fileName = dropLast(fileName, 4) + ".dat";
    TextWriter& out = form.files.openOutput(2, fileName);

    const int64_t n = channelCount(in);
    form.valueCount = n;
    if (n < 2) raise(err::SubscriptOutOfRange);  // channels 1 and 2 are always replaced

    // Channel 1 holds a live time this format never carries, channel 2 the
    // real time the previous conversion left (a CHN file leaves its raw ticks).
    DataBlock block(out.buffer());
    block.count(0);
    block.count(roundToInt32(form.sharedRealTime.toNumber()));
    // A count past the end of the file reads as 0; the values are streamed, so
    // a count far larger than the file allocates nothing.
    for (int64_t i = 3; i <= n; ++i) {
        block.count(in.i32(CountsOffset + 4 * (i - 1)));
        out.flushIfFull();
    }

    form.files.close(2);
    form.files.close(1);
}

}  // namespace kestro
