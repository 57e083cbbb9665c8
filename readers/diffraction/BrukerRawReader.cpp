// Reader of Bruker/AXS diffractometer ".raw" scans (and the Rigaku-DIFFRAC
// files that call themselves RAW4.00): one two-column ".odf" of 2-theta and
// intensity per scan range. The variants differ only in where their fields
// sit, so one table describes them all and one routine reads any of them.
#include <cstdint>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <string_view>

#include "core/Writers.h"
#include "core/runtime/Dates.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/System.h"
#include "readers/Readers.h"
#include "readers/diffraction/RawScanLines.h"

namespace kestro {

namespace {

constexpr int InputNumber = 1;
constexpr int OutputNumber = 2;
constexpr int LogNumber = 3;

constexpr int64_t SignatureLength = 7;
constexpr int64_t TagAt = 142;
constexpr int64_t TagLength = 5;

enum class TagTest { Any, FirstThree, Whole };

// What a header field is read for. Dates, times, wavelengths and the rest
// are read (they move the read position) but go to no output.
enum class Role { None, Unused, RangeHeaderLength, SupplementLength, Steps, Step, Start };
enum class Type { Long, Single, Double, Text10 };

struct Field {
    Role role;
    Type type;
    int64_t at;
};

// Where a range's intensities begin.
enum class DataAt {
    Fixed,                // at dataOffset
    AfterRangeHeader,     // range header offset + its length + the supplement length
    LastBytesOfFile,      // the last 4 x steps bytes of the file
};

struct Variant {
    std::string_view signature = {};  // compared with as many leading characters
    std::string_view tag = {};
    TagTest tagTest = TagTest::Any;
    int64_t headerLength = 0;              // H
    int64_t supplement = 0;                // G: the gap between ranges
    bool severalRanges = false;            // (length - H) / (4 x steps + G) ranges, else one
    bool fieldsFollowRangeHeader = false;  // offsets after the range header length count from its end
    DataAt dataAt = DataAt::Fixed;
    int64_t dataOffset = 0;
    bool warnFirst = false;  // not a first-instance format: say so and read on
    Field fields[16] = {};   // in reading order; the list ends at the first Role::None
};

constexpr Field Date(int64_t at) { return {Role::Unused, Type::Text10, at}; }
constexpr Field Wavelength(int64_t at) { return {Role::Unused, Type::Double, at}; }

// Tried top to bottom; the first that matches is read.
constexpr Variant Variants[] = {
    {.signature = "RAW1.01",
     .headerLength = 712,
     .dataAt = DataAt::AfterRangeHeader,
     .fields = {Date(16), Date(26), Wavelength(616), Wavelength(624), Wavelength(632), Wavelength(640),
                Wavelength(648), {Role::RangeHeaderLength, Type::Long, 712}, {Role::Steps, Type::Long, 716},
                {Role::Unused, Type::Double, 720}, {Role::Start, Type::Double, 728}, {Role::Step, Type::Double, 888},
                {Role::Unused, Type::Long, 904}, {Role::Unused, Type::Long, 912}, {Role::Unused, Type::Long, 916},
                {Role::SupplementLength, Type::Long, 968}}},
    {.signature = "RAW4.00",
     .tag = "XRD",
     .tagTest = TagTest::FirstThree,
     .headerLength = 584,
     .dataAt = DataAt::LastBytesOfFile,
     .fields = {Date(12), Date(22), {Role::Step, Type::Double, 580}, {Role::Steps, Type::Long, 588},
                {Role::Unused, Type::Double, 852}, {Role::Start, Type::Double, 944}}},
    {.signature = "RAW4.00",
     .tag = "HRXRD",
     .tagTest = TagTest::Whole,
     .headerLength = 1950,
     .supplement = 1776,
     .severalRanges = true,
     .dataAt = DataAt::Fixed,
     .dataOffset = 3726,
     .fields = {Date(12), Date(22), Wavelength(299), Wavelength(307), Wavelength(315), Wavelength(323),
                {Role::Steps, Type::Long, 1954}, {Role::Step, Type::Double, 2030}, {Role::Unused, Type::Double, 2302},
                {Role::Start, Type::Double, 2394}}},
    {.signature = "RAW4-00",
     .tag = "V2.8.",
     .tagTest = TagTest::Whole,
     .headerLength = 581,
     .supplement = 1216,
     .severalRanges = true,
     .dataAt = DataAt::LastBytesOfFile,
     .fields = {Date(12), Date(22), Wavelength(387), Wavelength(395), Wavelength(403), Wavelength(411),
                {Role::Steps, Type::Long, 585}, {Role::Step, Type::Double, 661}, {Role::Unused, Type::Double, 933},
                {Role::Start, Type::Double, 1025}}},
    // Declared as RAW4.00 but not a recognized 4.00 variant: attempting to
    // read based on a Rigaku-DIFFRAC/RAW4.00 variant type.
    {.signature = "RAW4.00",
     .headerLength = 201,
     .fieldsFollowRangeHeader = true,
     .dataAt = DataAt::LastBytesOfFile,
     .fields = {Wavelength(141), Wavelength(149), Wavelength(157), Wavelength(165),
                {Role::RangeHeaderLength, Type::Long, 201}, {Role::Steps, Type::Long, 0},
                {Role::Step, Type::Double, 76}, {Role::Start, Type::Double, 212}, {Role::Unused, Type::Double, 304}}},
    // Version 2.
    {.signature = "RAW ",
     .headerLength = 156,
     .dataAt = DataAt::Fixed,
     .dataOffset = 156,
     .warnFirst = true,
     .fields = {{Role::Steps, Type::Long, 4}, {Role::Unused, Type::Long, 8}, {Role::Step, Type::Single, 12},
                {Role::Start, Type::Single, 24}, {Role::Unused, Type::Single, 28}}},
};

const Variant* variantOf(std::string_view signature, std::string_view tag) {
    for (const Variant& v : Variants) {
        if (signature.substr(0, v.signature.size()) != v.signature) continue;
        if (v.tagTest == TagTest::FirstThree && tag.substr(0, 3) != v.tag) continue;
        if (v.tagTest == TagTest::Whole && tag != v.tag) continue;
        return &v;
    }
    return nullptr;
}

// Whole-number arithmetic of the header is 32-bit: a result outside it is
// an overflow.
int32_t asLong(int64_t v) { return roundToInt32(static_cast<double>(v)); }

// The input with the position of the last read, for the error log.
class Input {
public:
    void attach(const BinaryReader& in) { in_ = &in; }
    int64_t length() const { return in_->length(); }
    // Where the next read would start, counted from 1.
    int64_t position() const { return position_; }

    double number(Type type, int64_t at) {
        switch (type) {
        case Type::Long: return read(at, 4, in_->i32(at));
        case Type::Single: return read(at, 4, in_->f32(at));
        case Type::Double: return read(at, 8, in_->f64(at));
        case Type::Text10: read(at, 10, in_->text(at, 10)); break;
        }
        return 0;
    }
    std::string text(int64_t at, int64_t count) { return read(at, count, in_->text(at, count)); }

    // The bytes of `steps` intensities from `at`. A range that starts past
    // the end reads as zeros, as any binary read there does; one that the
    // end cuts short, or more steps than the whole file holds, is a damaged
    // scan.
    const char* intensities(int64_t at, int64_t steps) {
        if (steps < 0) raise(err::SubscriptOutOfRange);
        if (at < 0) raise(err::BadRecordNumber);
        const bool pastTheEnd = at >= length() && 4 * steps <= length();
        if (!pastTheEnd && (at > length() || 4 * steps > length() - at)) raise(err::InputPastEnd);
        position_ = at + 4 * steps + 1;
        if (pastTheEnd) {
            zeros_.assign(static_cast<size_t>(4 * steps), '\0');
            return zeros_.data();
        }
        return in_->bytes().data() + at;
    }

private:
    template <typename T>
    T read(int64_t at, int64_t width, T value) {
        position_ = at + width + 1;
        return value;
    }

    const BinaryReader* in_ = nullptr;
    int64_t position_ = 1;
    std::string zeros_;
};

struct Scan {
    int32_t steps = 0;        // N
    double step = 0;          // delta
    double start = 0;         // theta 0
    int32_t firstData = 0;    // offset of the first range's intensities
    int32_t ranges = 1;
};

Scan readScan(const Variant& v, Input& in) {
    Scan s;
    int32_t rangeHeaderAt = 0, rangeHeaderLength = 0, supplementLength = 0, base = 0;
    for (const Field& f : v.fields) {
        if (f.role == Role::None) break;
        const double value = in.number(f.type, base + f.at);
        switch (f.role) {
        case Role::None:
        case Role::Unused: break;
        case Role::RangeHeaderLength:
            rangeHeaderAt = static_cast<int32_t>(f.at);
            rangeHeaderLength = static_cast<int32_t>(value);
            if (v.fieldsFollowRangeHeader) base = asLong(int64_t{rangeHeaderAt} + rangeHeaderLength);
            break;
        case Role::SupplementLength: supplementLength = static_cast<int32_t>(value); break;
        case Role::Steps: s.steps = static_cast<int32_t>(value); break;
        case Role::Step: s.step = value; break;
        case Role::Start: s.start = value; break;
        }
    }
    const int32_t rangeBytes = asLong(4 * int64_t{s.steps});
    switch (v.dataAt) {
    case DataAt::Fixed: s.firstData = static_cast<int32_t>(v.dataOffset); break;
    case DataAt::AfterRangeHeader:
        s.firstData = asLong(int64_t{asLong(int64_t{rangeHeaderAt} + rangeHeaderLength)} + supplementLength);
        break;
    case DataAt::LastBytesOfFile: s.firstData = asLong(in.length() - rangeBytes); break;
    }
    if (v.severalRanges) {
        const int32_t distance = asLong(int64_t{rangeBytes} + v.supplement);
        if (distance == 0) raise(err::DivisionByZero);
        s.ranges = asLong((in.length() - v.headerLength) / distance);
    }
    return s;
}

ScanAxis axisOf(const Scan& s) { return {s.steps, s.start, s.step}; }

void writeRange(TextWriter& out, const Scan& s, const char* intensities) {
    writeScanLines(out, axisOf(s), [intensities](int64_t i) {
        float intensity;
        std::memcpy(&intensity, intensities + 4 * i, sizeof intensity);
        return intensity;
    });
}

std::string rangeOutputName(const std::string& fileName, const Scan& s, int32_t range) {
    const std::string stem = dropLast(fileName, 4);
    return s.ranges > 1 ? stem + "_" + plainText(range) + ".odf" : stem + ".odf";
}

void convertScan(Session& form, const std::string& fileName, Input& in) {
    const std::string signature = in.text(0, SignatureLength);
    const std::string tag = in.text(TagAt, TagLength);
    const Variant* variant = variantOf(signature, tag);
    if (!variant) {
        form.host().messageBox("Not a recognized RAW data format or multiple range data the code cannot yet deal with!",
                               BoxIcon::Critical, BoxButtons::Ok);
        form.files.close(InputNumber);
        return;
    }
    if (variant->warnFirst)
        form.host().messageBox(
            "Not a 1st instance recognized RAW data format:\r\n   - attempting to read as binary RAW version 2",
            BoxIcon::Exclamation, BoxButtons::Ok);

    const Scan scan = readScan(*variant, in);
    form.valueCount = scan.steps;
    checkScanAngles(axisOf(scan));
    int32_t dataAt = scan.firstData;
    for (int32_t range = 1; range <= scan.ranges; ++range) {
        const char* intensities = in.intensities(dataAt, scan.steps);
        TextWriter& out = form.files.openOutput(OutputNumber, rangeOutputName(fileName, scan, range));
        writeRange(out, scan, intensities);
        form.files.close(OutputNumber);
        dataAt = asLong(int64_t{dataAt} + asLong(4 * int64_t{scan.steps} + variant->supplement));
    }
    form.files.close(InputNumber);
}

// The log goes beside the input, where whoever looks at the failed file
// finds it.
std::string errorLogPath(const std::string& fileName) {
    const size_t slash = sys::lastSeparator(fileName);
    return slash == std::string::npos ? "KestroErr.log" : fileName.substr(0, slash + 1) + "KestroErr.log";
}

void errorExit(Session& form, const std::string& fileName, int64_t position, int number, const std::string& text) {
    // The batch goes on: the next file may use the same numbers.
    form.files.close(OutputNumber);
    form.files.close(InputNumber);
    const std::string errorNumber = plainText(static_cast<int64_t>(number));
    form.host().messageBox("Unknown error while reading/attempting to read file " + fileName + ". Error " +
                               errorNumber + " > " + text + ". See error log file!",
                           BoxIcon::Critical, BoxButtons::Ok);
    const DateValue now = dateFromUnixSeconds(std::time(nullptr));
    TextWriter& log = form.files.openAppend(LogNumber, errorLogPath(fileName));
    log.text("Error " + errorNumber + " while reading/attempting to read file " + fileName + ".").endLine();
    log.text("Error > " + text + ". Time stamp: " + formatDate(now, "dd-mm-yyyy hh:mm:ss")).endLine();
    log.text("Last known good record read: " + plainText(position)).endLine();
    form.files.close(LogNumber);
}

}  // namespace

void ConvAXSraw(Session& form, std::string& fileName) {
    Input in;
    try {
        in.attach(form.files.openBinary(InputNumber, fileName));
        convertScan(form, fileName, in);
    } catch (const RuntimeError& e) {
        errorExit(form, fileName, in.position(), e.number(), e.description());
    } catch (const std::bad_alloc&) {
        errorExit(form, fileName, in.position(), err::OutOfMemory, errorDescription(err::OutOfMemory));
    }
}

}  // namespace kestro
