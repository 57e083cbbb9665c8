// Reader of Genie2K CNF files. The block structure is not interpreted: the
// channel count and the acquisition times are found by two byte signatures,
// and the counts are the last 4 x N bytes of the file.
#include <cmath>
#include <ctime>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "core/Writers.h"
#include "core/runtime/Dates.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"
#include "readers/nuclear/CnfReader.h"

namespace kestro {

namespace {

constexpr double TicksPerSecond = 1e7;  // Genie2K counts time in 100 ns ticks
constexpr double SecondsPerDay = 86400;
constexpr double GenieEpochDays = 15018;  // 17-Nov-1858 lies this many days before day 0
constexpr int DebugFile = 7;
constexpr int TimeRecordGroup = 24;  // the bytes that follow a 0x01 marker

// A switch works only when it is the whole command line, exactly.
bool commandLineIs(const Session& form, std::initializer_list<std::string_view> tokens) {
    for (std::string_view t : tokens)
        if (form.commandLine == t) return true;
    return false;
}

// N from the first 0xD0 0x01 pair, 0 when there is none. The sum is 16-bit,
// so a high byte of 128 or more is an overflow.
int16_t channelCount(const BinaryReader& in) {
    const std::string& bytes = in.bytes();
    for (size_t p = 0; p < bytes.size(); ++p) {
        if (static_cast<uint8_t>(bytes[p]) != 0xD0 || in.u8(static_cast<int64_t>(p) + 1) != 0x01) continue;
        const int lo = in.u8(static_cast<int64_t>(p) + 2);
        const int hi = in.u8(static_cast<int64_t>(p) + 3);
        return roundToInt16(hi * 256 + lo);
    }
    return 0;
}

// Offset of the time record's 0x01 marker. A marker whose group fails the
// test has its 24 bytes consumed, so a record starting inside them is never
// found; kept as it always was.
std::optional<int64_t> timeRecordOffset(const BinaryReader& in) {
    const std::string& bytes = in.bytes();
    const int64_t length = in.length();
    int64_t p = 0;
    while (p < length) {
        if (bytes[static_cast<size_t>(p++)] != 0x01) continue;
        const int64_t marker = p - 1;
        p += TimeRecordGroup;
        if (in.u8(marker + 16) == 0xFF && in.u8(marker + 24) == 0xFF) return marker;
    }
    return std::nullopt;
}

// Eight bytes, lowest first, summed in double precision; the durations are
// stored complemented, and decoding them by (255 - b) leaves them one tick
// short of the stored count, as they always were.
double tickSum(const BinaryReader& in, int64_t offset, bool complemented) {
    double sum = 0;
    double scale = 1;
    for (int k = 0; k < 8; ++k) {
        const int b = in.u8(offset + k);
        sum += (complemented ? 255 - b : b) * scale;
        scale *= 256;
    }
    return sum;
}

struct AcquisitionTimes {
    double startTicks = 0;
    double realTicks = 0;
    double liveTicks = 0;
    double startSeconds() const { return startTicks / TicksPerSecond; }
};

AcquisitionTimes readTimes(const BinaryReader& in, int64_t marker) {
    return {tickSum(in, marker + 1, false), tickSum(in, marker + 9, true), tickSum(in, marker + 17, true)};
}

DateValue startDate(double startSeconds) { return startSeconds / SecondsPerDay - GenieEpochDays; }

void writeDebugOpening(Session& form, const std::string& inputPath) {
    const DateValue now = dateFromUnixSeconds(std::time(nullptr));
    TextWriter& log = form.files.openAppend(DebugFile, "Test.txt");
    log.text(std::string(20, '_')).endLine();
    log.text("Opened file " + inputPath + " on the " + formatDate(now, "dd-mm-yyyy") + "at " + formatDate(now, "hh:mm:ss"))
        .endLine();
    log.endLine();
}

void writeDebugTimes(Session& form, const AcquisitionTimes& t, int32_t realTime, int32_t liveTime) {
    TextWriter& log = form.files.output(DebugFile);
    log.text("Tempo/100 ns =").item(t.startTicks).text("Tempo (referido a 17-Nov-1858, 00:00:00):");
    log.item(t.startSeconds()).text("s, ou ").text(generalDate(startDate(t.startSeconds()))).endLine();
    log.text("Tempo/100 ns =").item(t.realTicks).text(" Tempo/s =").item(t.realTicks / TicksPerSecond);
    log.text("RealTime/s =").item(int64_t{realTime}).endLine();
    log.text("Tempo/100 ns =").item(t.liveTicks).text(" Tempo/s =").item(t.liveTicks / TicksPerSecond);
    log.text("LiveTime/s =").item(int64_t{liveTime}).endLine();
    form.files.close(DebugFile);
}

// N from the first 0xD0 0x01 pair and the time record found by its marker;
// the counts are the last 4 x N bytes.
CnfLayout bySignatures(const BinaryReader& in, bool wantTimes) {
    CnfLayout layout;
    layout.channels = channelCount(in);
    if (wantTimes) layout.timeRecord = timeRecordOffset(in);
    layout.countsOffset = in.length() - 4 * int64_t{layout.channels};
    return layout;
}

}  // namespace

void writeCnfOutputs(Session& form, std::string& fileName, const BinaryReader& in, const CnfLayout& layout,
                     bool debug) {
    const int16_t n = layout.channels;
    form.valueCount = n;

    // Without a time record, or with "/noTime", the start and live time stay
    // zero and the real time keeps whatever the previous file left.
    AcquisitionTimes times;
    int32_t liveTime = 0;
    if (layout.timeRecord) {
        times = readTimes(in, *layout.timeRecord);
        const int32_t realTime = roundToInt32(times.realTicks / TicksPerSecond);
        liveTime = roundToInt32(times.liveTicks / TicksPerSecond);
        form.sharedRealTime = Value::ofInteger(realTime);
        if (debug) writeDebugTimes(form, times, realTime, liveTime);
    }
    const DateValue start = startDate(times.startSeconds());
    const DateTimeTexts when{formatDate(start, "dd-mm-yyyy"), formatDate(start - std::floor(start), "hh:mm:ss")};

    // Counts before the start of a short file are "Bad record number".
    ChannelCounts counts(in, layout.countsOffset, n);
    counts[1] = liveTime;
    counts[2] = roundToInt32(form.sharedRealTime.toNumber());

    fileName = spectrumOutputPath(form, fileName);
    TextWriter& out = form.files.openOutput(2, fileName);
    if (form.boxes.SPE) {
        // The identification stays empty on purpose, and the SPE data carry no times.
        writeSpeHeader(out, {"", when, Value::ofInteger(liveTime), form.sharedRealTime, n - 1}, TimePadding::Strict);
        counts[1] = 0;
        counts[2] = 0;
    } else if (form.boxes.SPO) {
        writeSpoHeader(out, n);
    }
    counts.writeTo(out);
    // After an unfinished last line this continues it, as it always did.
    if (commandLineIs(form, {"/time", "/t"})) out.text("Acq_Start_time: ").text(generalDate(start)).endLine();

    form.files.close(2);
    form.files.close(1);
    if (debug) form.files.close(DebugFile);  // still open when the file had no time record
}

void ConvFile(Session& form, std::string& fileName) {
    const bool debug = commandLineIs(form, {"/debug", "/deb", "/d"});
    if (debug) writeDebugOpening(form, fileName);
    const BinaryReader& in = form.files.openBinary(1, fileName);
    writeCnfOutputs(form, fileName, in, bySignatures(in, form.commandLine != "/noTime"), debug);
}

}  // namespace kestro
