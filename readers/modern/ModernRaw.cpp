// Kestro's own reader of Bruker/Siemens DIFFRAC ".raw" scans, after the
// layouts the open-source xylib project documents in its bruker_raw reader
// (from the DIFFRAC-AT manual's raw data file appendix and the DIFFRAC plus
// XCH manual's appendix A), the RAW4.00 range walk as GSAS-II's Bruker RAW
// import also reads it. Every range of the file goes to its own ".odf":
//  - "RAW ": ranges one after another from byte 4 (a later one may repeat
//    the signature): steps at +0, step at +8 and start at +20 (Singles), a
//    non-zero word at +148 when another range follows, intensities from +152;
//  - "RAW2": the range count (2 bytes) at 4, ranges from 256: header length
//    (2 bytes) at +0, steps (2 bytes) at +2, step at +12 and start at +16
//    (Singles), intensities after the header;
//  - "RAW1.01": the range count at 12, ranges from 712: header length at +0,
//    steps at +4, start 2-theta at +16 and step at +176 (Doubles), the bytes
//    a step takes at +252, a supplement's length at +256, the steps after
//    the header and the supplement;
//  - "RAW4.00": blocks of (kind, length) from byte 61, where kind 0 or 160
//    opens a range instead: a 160-byte header with start at +72 and step at
//    +80 (Doubles), steps at +88, the bytes a step takes at +136 and the
//    length of the range's own blocks at +140, the steps after those.
// A step's intensity is the Single its record begins with; a 2-byte record
// holds a 16-bit count. Files of any other signature read as before.
#include <cstring>
#include <string>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"
#include "readers/diffraction/RawScanLines.h"
#include "readers/modern/ModernOutputs.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int DataFile = 2;

constexpr int64_t SingleRecord = 4;
constexpr int64_t CountRecord = 2;  // a 16-bit count per step

// One scan range: its angles and where its step records lie in the file.
struct Range {
    ScanAxis axis;
    int64_t dataAt = 0;
    int64_t recordSize = SingleRecord;
};

// Why a file cannot be converted, as its refusal says it.
struct Unreadable {
    std::string why;
};

[[noreturn]] void unreadable(const std::string& why) { throw Unreadable{why + " Conversion aborted!"}; }

std::string rangeText(size_t index) { return "Range " + plainText(static_cast<int64_t>(index + 1)); }

// The range as found, once its records are known to lie in the file.
Range located(const BinaryReader& in, const ScanAxis& axis, int64_t dataAt, int64_t recordSize, size_t index) {
    if (recordSize != CountRecord && recordSize < SingleRecord)
        unreadable(rangeText(index) + " of this RAW file has steps of " + plainText(recordSize) +
                   " bytes, which hold no intensity.");
    if (dataAt > in.length() || axis.steps > (in.length() - dataAt) / recordSize)
        unreadable(rangeText(index) + " of this RAW file runs past the end of the file.");
    return {axis, dataAt, recordSize};
}

// A range header of `length` bytes at `at`, of which `needed` hold the fields.
void checkHeader(const BinaryReader& in, int64_t at, int64_t length, int64_t needed, size_t index) {
    if (length < needed || at > in.length() || length > in.length() - at)
        unreadable(rangeText(index) + " of this RAW file has a damaged header.");
}

std::vector<Range> rangesOfRawSpace(const BinaryReader& in) {
    constexpr int64_t HeaderLength = 152;
    std::vector<Range> ranges;
    int64_t at = 4;
    for (;;) {
        if (!ranges.empty() && in.text(at, 4) == "RAW ") at += 4;
        checkHeader(in, at, HeaderLength, HeaderLength, ranges.size());
        const ScanAxis axis{in.u32(at), in.f32(at + 20), in.f32(at + 8)};
        const bool anotherFollows = in.u32(at + 148) != 0;
        const Range& r = ranges.emplace_back(located(in, axis, at + HeaderLength, SingleRecord, ranges.size()));
        at = r.dataAt + SingleRecord * r.axis.steps;
        if (!anotherFollows || at >= in.length()) return ranges;
    }
}

// `count` ranges one after another from `at`: readRange(at, index) reads the
// one at `at`, and the next begins where its records end.
template <typename ReadRange>
std::vector<Range> rangesInTurn(int64_t count, int64_t at, ReadRange readRange) {
    std::vector<Range> ranges;
    while (static_cast<int64_t>(ranges.size()) < count) {
        const Range& r = ranges.emplace_back(readRange(at, ranges.size()));
        at = r.dataAt + r.recordSize * r.axis.steps;
    }
    return ranges;
}

std::vector<Range> rangesOfRaw2(const BinaryReader& in) {
    constexpr int64_t FieldsLength = 48;
    return rangesInTurn(in.u16(4), 256, [&in](int64_t at, size_t index) {
        const int64_t headerLength = in.u16(at);
        checkHeader(in, at, headerLength, FieldsLength, index);
        const ScanAxis axis{in.u16(at + 2), in.f32(at + 16), in.f32(at + 12)};
        return located(in, axis, at + headerLength, SingleRecord, index);
    });
}

std::vector<Range> rangesOfRaw101(const BinaryReader& in) {
    constexpr int64_t FieldsLength = 260;
    return rangesInTurn(in.u32(12), 712, [&in](int64_t at, size_t index) {
        const int64_t headerLength = in.u32(at);
        checkHeader(in, at, headerLength, FieldsLength, index);
        const ScanAxis axis{in.u32(at + 4), in.f64(at + 16), in.f64(at + 176)};
        const int64_t recordSize = in.u32(at + 252);  // 0 in files that predate the field
        const int64_t dataAt = at + headerLength + in.u32(at + 256);
        return located(in, axis, dataAt, recordSize == 0 ? SingleRecord : recordSize, index);
    });
}

std::vector<Range> rangesOfRaw400(const BinaryReader& in) {
    constexpr int64_t RangeHeaderLength = 160;
    constexpr int64_t BlockHeaderLength = 8;
    std::vector<Range> ranges;
    for (int64_t at = 61; at < in.length();) {
        const uint32_t kind = in.u32(at);
        if (kind == 0 || kind == 160) {
            checkHeader(in, at, RangeHeaderLength, RangeHeaderLength, ranges.size());
            const ScanAxis axis{in.u32(at + 88), in.f64(at + 72), in.f64(at + 80)};
            const int64_t dataAt = at + RangeHeaderLength + in.u32(at + 140);
            const Range& r = ranges.emplace_back(located(in, axis, dataAt, in.u32(at + 136), ranges.size()));
            at = r.dataAt + r.recordSize * r.axis.steps;
            continue;
        }
        const int64_t length = in.u32(at + 4);
        if (length < BlockHeaderLength || length > in.length() - at)
            unreadable("The block at byte " + plainText(at) + " of this RAW4.00 file is damaged.");
        at += length;
    }
    return ranges;
}

using RangeFinder = std::vector<Range> (*)(const BinaryReader&);

RangeFinder finderFor(const BinaryReader& in) {
    const std::string signature = in.text(0, 7);
    if (signature.starts_with("RAW1.01")) return rangesOfRaw101;
    if (signature.starts_with("RAW4.00")) return rangesOfRaw400;
    if (signature.starts_with("RAW2")) return rangesOfRaw2;
    if (signature.starts_with("RAW ")) return rangesOfRawSpace;
    return nullptr;
}

// Every range, each known to lie in the file with angles a Single holds,
// before any output is written.
std::vector<Range> readableRanges(const BinaryReader& in, RangeFinder find) {
    std::vector<Range> ranges = find(in);
    if (ranges.empty()) unreadable("No scan range in this RAW file.");
    for (size_t k = 0; k < ranges.size(); ++k) {
        try {
            checkScanAngles(ranges[k].axis);
        } catch (const RuntimeError&) {
            unreadable(rangeText(k) + " of this RAW file has angles too large to write.");
        }
    }
    return ranges;
}

void writeRange(TextWriter& out, const BinaryReader& in, const Range& r) {
    const char* records = in.bytes().data() + r.dataAt;
    if (r.recordSize == CountRecord) {
        writeScanLines(out, r.axis, [records](int64_t i) {
            uint16_t count;
            std::memcpy(&count, records + CountRecord * i, sizeof count);
            return count;
        });
        return;
    }
    writeScanLines(out, r.axis, [records, size = r.recordSize](int64_t i) {
        float intensity;
        std::memcpy(&intensity, records + size * i, sizeof intensity);
        return intensity;
    });
}

}  // namespace

void ConvAXSrawModern(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(InputFile, fileName);
    const RangeFinder find = finderFor(in);
    if (!find) {
        form.files.close(InputFile);
        return ConvAXSraw(form, fileName);
    }
    std::vector<Range> ranges;
    try {
        ranges = readableRanges(in, find);
    } catch (const Unreadable& e) {
        modern::refuse(form, nullptr, e.why);
        return form.files.close(InputFile);
    }
    form.valueCount = ranges.front().axis.steps;
    const std::string stem = dropLast(fileName, 4);
    for (size_t k = 0; k < ranges.size(); ++k) {
        const std::string name = modern::odfName(stem, k, ranges.size());
        writeRange(form.files.openOutput(DataFile, name), in, ranges[k]);
        form.files.close(DataFile);
        if (k == 0 && ranges.size() > 1) fileName = name;  // the one the plot shows
    }
    form.files.close(InputFile);
}

}  // namespace kestro
