// Readers of older Canberra multichannel-analyser dumps: ".bin" files and
// the S-100 and 35/40 ".mca" files. Each writes the counts as a bare ".dat"
// data block beside the input, whatever the SPE and SPO boxes hold, and
// leaves that name for the two-column pass. No header, date or calibration.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputNumber = 1;
constexpr int OutputNumber = 2;

constexpr size_t BinHeaderBytes = 1024;

constexpr int64_t S100FirstTimeAt = 48;
constexpr int64_t S100SecondTimeAt = 52;
constexpr int64_t S100HeaderBytes = 128;

constexpr size_t S35HeaderBytes = 270;
constexpr size_t S35BlockHeaderBytes = 5;
constexpr int S35ChannelsPerBlock = 256;
constexpr size_t S35BlockBytes = S35BlockHeaderBytes + 3 * S35ChannelsPerBlock;  // 773
constexpr size_t S35TrailerBytes = 52;

// The input as file 1 and its ".dat" as file 2, for one conversion. A reader
// that fails leaves both open, as the driver expects of every reader.
class DatConversion {
public:
    DatConversion(Session& form, std::string& fileName)
        : form_(form),
          input_(form.files.openBinary(InputNumber, fileName)),
          output_(form.files.openOutput(OutputNumber, dropLast(fileName, 4) + ".dat")),
          block_(output_.buffer()) {
        fileName = output_.path();
    }

    const BinaryReader& input() const { return input_; }

    void write(int64_t value) {
        block_.count(value);
        output_.flushIfFull();
    }

    // Input first: a write error raised while closing the output then
    // leaves no file open.
    void close() {
        form_.files.close(InputNumber);
        form_.files.close(OutputNumber);
    }

private:
    Session& form_;
    const BinaryReader& input_;
    TextWriter& output_;
    DataBlock block_;
};

// Reads `width` bytes at `at` into `bytes`, fewer at the end of the file; the
// bytes not read keep what the previous channel left there. Returns the
// position after the bytes read.
size_t readChannelBytes(const std::string& data, size_t at, uint8_t* bytes, size_t width) {
    const size_t available = at < data.size() ? std::min(width, data.size() - at) : 0;
    std::memcpy(bytes, data.data() + at, available);
    return at + available;
}

// A ".bin" count: two little-endian 16-bit words, the high word first
// (deliberate, kept as it always was). It must fit a signed 32-bit integer.
int64_t highWordFirst(const uint8_t b[4]) {
    const int64_t value = (b[0] + 256 * b[1]) * int64_t{65536} + (b[2] + 256 * b[3]);
    if (value > std::numeric_limits<int32_t>::max()) raise(err::Overflow);
    return value;
}

// A 35/40 channel: the most significant byte, then the least significant,
// then the middle one (deliberate, kept as it always was).
int64_t highLowMiddle(const uint8_t c[3]) { return c[0] * int64_t{65536} + c[1] + c[2] * 256; }

// An S-100 time, assembled in signed 32-bit arithmetic: a top byte of 128 or
// more overflows.
int32_t s100Time(const BinaryReader& input, int64_t offset) {
    const uint32_t raw = input.u32(offset);
    if (raw > static_cast<uint32_t>(std::numeric_limits<int32_t>::max())) raise(err::Overflow);
    return static_cast<int32_t>(raw);
}

// The S-100 channel array holds channels 1 .. size; storing a time in a
// channel outside it is the subscript error.
void requireS100Channel(int64_t channel, int32_t size) {
    if (channel > size) raise(err::SubscriptOutOfRange);
}

}  // namespace

void ConvFileOld(Session& form, std::string& fileName) {
    DatConversion conversion(form, fileName);
    const std::string& data = conversion.input().bytes();
    uint8_t bytes[4] = {};
    for (size_t at = BinHeaderBytes; at < data.size();) {
        at = readChannelBytes(data, at, bytes, sizeof bytes);
        conversion.write(highWordFirst(bytes));
    }
    conversion.close();
}

void ConvS100File(Session& form, std::string& fileName) {
    DatConversion conversion(form, fileName);
    const BinaryReader& input = conversion.input();
    const int32_t firstTime = s100Time(input, S100FirstTimeAt);
    const int32_t secondTime = s100Time(input, S100SecondTimeAt);
    // Kept raw, in hundredths of a second.
    form.sharedRealTime = Value::ofInteger(secondTime);

    // The count comes from the length and may have a fraction: the array is
    // sized to it rounded, the loop writes its whole part only.
    const double channelCount = static_cast<double>(input.length() - S100HeaderBytes) / 4;
    const int32_t arraySize = roundToInt32(channelCount);
    form.valueCount = arraySize;
    if (arraySize < 0) raise(err::SubscriptOutOfRange);  // a file shorter than its header

    // The times in seconds always take the place of the first two counts,
    // whatever the command line says; above 32767.5 s they overflow.
    const int64_t firstSeconds = roundToInt16(firstTime / 100.0);
    requireS100Channel(1, arraySize);
    const int64_t secondSeconds = roundToInt16(secondTime / 100.0);
    requireS100Channel(2, arraySize);

    const int64_t channelsWritten = static_cast<int64_t>(std::floor(channelCount));
    for (int64_t channel = 1; channel <= channelsWritten; ++channel) {
        if (channel == 1) conversion.write(firstSeconds);
        else if (channel == 2) conversion.write(secondSeconds);
        else conversion.write(input.i32(S100HeaderBytes + 4 * (channel - 1)));
    }
    conversion.close();
}

void ConvS35sFile(Session& form, std::string& fileName) {
    DatConversion conversion(form, fileName);
    const std::string& data = conversion.input().bytes();
    const auto length = static_cast<double>(data.size());
    // The expected number of channels. When it is not whole the counter never
    // meets it and the reader runs to the end of the file.
    const double channelCount = S35ChannelsPerBlock * (length - (S35HeaderBytes + S35TrailerBytes)) /
                                static_cast<double>(S35BlockBytes);

    size_t at = S35HeaderBytes;
    int64_t channelsWritten = 0;
    bool countReached = false;
    uint8_t bytes[3] = {};
    // The stop is tested between blocks only, so a block is always written
    // whole: past the end of the file its channels repeat the last bytes read.
    while (at < data.size() && !countReached) {
        at = std::min(at + S35BlockHeaderBytes, data.size());
        for (int k = 0; k < S35ChannelsPerBlock; ++k) {
            at = readChannelBytes(data, at, bytes, sizeof bytes);
            ++channelsWritten;
            if (static_cast<double>(channelsWritten) == channelCount) countReached = true;
            conversion.write(highLowMiddle(bytes));
        }
    }
    conversion.close();
}

}  // namespace kestro
