// Reader of OMDAQ acquisition files ("_" files): a header whose fields move
// with its version, then the counts, plain or compressed. Writes the spectrum
// and a ".hdr" listing of every header field.
#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/Dates.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"
#include "readers/ionbeam/Omdaq.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int SpectrumFile = 2;
constexpr int HeaderFile = 3;
constexpr int RefusedStatus = 7;

constexpr char Degree = '\xBA';  // the degree sign of the 8-bit header text

using RadiationNames = std::array<const char*, 11>;

// From version 5 on, entries 8 and 9 trade places; kept on purpose.
RadiationNames radiationNames(int version) {
    RadiationNames names = {"PIXE", "RBS ", "STIM", "BETA", "IBIC", "ERDA", "GAMA", "IBIL", "PULS", "NRA ", "TOF "};
    if (version > 4) std::swap(names[8], names[9]);
    return names;
}

// Blanks for control and high characters, then trimmed.
std::string cleanTarget(std::string text) {
    for (char& c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code > 0xB0 || code < 0x20) c = ' ';
    }
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// What the spectrum output needs from the header.
struct HeaderFacts {
    int64_t channels = 0;
    std::string date;  // the 19 characters as stored
    int16_t compression = 0;
    int64_t dataOffset = 0;
};

class HeaderListing {
public:
    HeaderListing(const BinaryReader& in, TextWriter& hdr, const OmdaqLayout& layout)
        : in_(in), hdr_(hdr), layout_(layout), E(layout.runBlock), S(layout.spectrum) {}

    HeaderFacts write(int64_t channels) {
        HeaderFacts facts;
        facts.channels = channels;
        hdr_.text("_data size: ").item(channels).endLine();
        facts.date = in_.text(layout_.date, OmdaqDateChars);
        hdr_.text("_date of spectra:  ").text(formatText(facts.date, "dd-mm-yyyy hh:mm:ss")).endLine();
        const std::string target = cleanTarget(in_.text(layout_.date + OmdaqDateChars, OmdaqTargetChars));
        hdr_.text("_target: ").text(target).endLine();
        writeBeam();
        const int32_t elapsed = in_.i32(E);
        writeTimesAndCharge(elapsed);
        facts.compression = writeSpectrumRecord(elapsed);
        writeCalibrationAndGeometry();
        facts.dataOffset = layout_.dataOffset();
        const int64_t length = in_.length();
        hdr_.text("_file length, spec offset and data bytes = ").zone().item(length).zone();
        hdr_.item(facts.dataOffset).zone().item(length - facts.dataOffset).endLine();
        hdr_.text("_target: ").text(target).endLine();
        return facts;
    }

private:
    void writeBeam() {
        hdr_.text("_beam energy/MeV: ").item(Value::ofSingle(in_.f32(E - 10))).endLine();
        hdr_.text("_beam A, Z, Q/e : ").item(int64_t{in_.i16(E - 4)}).zone();
        hdr_.item(int64_t{in_.i16(E - 6)}).zone().item(int64_t{in_.i16(E - 2)}).endLine();
    }

    void writeTimesAndCharge(int32_t elapsed) {
        const DateValue asTime = elapsed / 86400.0;
        hdr_.text("_elapsed time/s : ").item(int64_t{elapsed}).text(" [").text(formatDate(asTime, "hh:mm:ss"));
        hdr_.text("]").endLine();
        const int32_t pulses = in_.i32(E + 4);
        hdr_.text("_No. charge pulses: ").item(int64_t{pulses}).endLine();
        // The three times count 10 us units.
        hdr_.text("_total run time/s : ").item(in_.i32(E + 8) * 1e-5).endLine();
        hdr_.text("_total live time/s: ").item(in_.i32(E + 12) * 1e-5).endLine();
        hdr_.text("_ch.0 live time/s : ").item(in_.i32(E + 16) * 1e-5).endLine();
        const float factor = in_.f32(E + 20);
        const float perPulse = in_.f32(E + 24);
        hdr_.text("_charge conversion factor and charge per pulse/C: ").item(Value::ofSingle(factor)).zone();
        hdr_.item(Value::ofSingle(perPulse)).endLine();
        const double chargeNc = static_cast<double>(factor) * pulses * static_cast<double>(perPulse) * 1e9;
        const double currentPa = elapsed != 0 ? chargeNc / elapsed * 1000 : 0;
        hdr_.text("_beam charge /nC : ").text(formatNumber(chargeNc, "0.0")).endLine();
        hdr_.text("_beam current/pA : ").text(formatNumber(currentPa, "0.0")).endLine();
    }

    int16_t writeSpectrumRecord(int32_t elapsed) {
        const int16_t compression = in_.i16(S + 2);
        const int32_t total = in_.i32(S + 8);
        hdr_.text("_ADC ").item(int64_t{in_.i16(S)}).endLine();
        hdr_.text("_compression (0 = no; 1 = yes): ").item(int64_t{compression}).endLine();
        hdr_.text("_maximum counts  = ").item(int64_t{in_.i32(S + 4)}).endLine();
        hdr_.text("_total of counts = ").text(formatNumber(total, "0.00")).endLine();
        const double rate = elapsed != 0 ? static_cast<double>(total) / elapsed : 0;
        hdr_.text("_Average rate/Hz =  ").text(formatNumber(rate, "0.00")).endLine();
        return compression;
    }

    void writeCalibrationAndGeometry() {
        const int64_t record = S + OmdaqRecordBase;
        const int64_t calibration = record + layout_.calibration;
        hdr_.text("_system calibration: E/keV = ").item(Value::ofSingle(in_.f32(calibration + 4)));
        hdr_.text("*ch + ").item(Value::ofSingle(in_.f32(calibration))).endLine();

        const int64_t radiation = record + layout_.radiation;
        const int16_t type = in_.i16(radiation);
        if (type < 0 || type > 10) raise(err::SubscriptOutOfRange);
        hdr_.text("_radiation type: ").text(radiationNames(layout_.version)[static_cast<size_t>(type)]).endLine();

        // Geometry: area, distance, beam angle and two tilts; the last tilt
        // exists from version 4 on.
        std::array<float, 5> g{};
        const int values = layout_.version >= 4 ? 5 : 4;
        for (int k = 0; k < values; ++k) g[static_cast<size_t>(k)] = in_.f32(radiation + 2 + 4 * k);
        hdr_.text("_det area/mm.sq   =").item(Value::ofSingle(g[0])).endLine();
        hdr_.text("_det_tgt dist/mm  =").item(Value::ofSingle(g[1])).endLine();
        // Without a distance the solid angle keeps its starting value.
        double solidAngle = 0;
        if (g[1] != 0) solidAngle = static_cast<double>(g[0]) / (static_cast<double>(g[1]) * g[1]) * 1000;
        hdr_.text("_det sol_angl/msr = ").text(formatNumber(solidAngle, "###.0")).endLine();
        hdr_.text(std::string("_det_beam angle/") + Degree + " =").item(Value::ofSingle(g[2])).endLine();
        hdr_.text(std::string("_target in-plane tilt/") + Degree + " =").item(Value::ofSingle(g[3])).endLine();
        hdr_.text(std::string("_target out-of-plane tilt/") + Degree + " =").item(Value::ofSingle(g[4])).endLine();
    }

    const BinaryReader& in_;
    TextWriter& hdr_;
    const OmdaqLayout& layout_;
    const int64_t E;  // run block
    const int64_t S;  // spectrum record
};

// The choice lines say when the data segment is too short for plain counts;
// they change nothing, the compression flag alone decides. Kept on purpose.
void writeDecodingChoice(TextWriter& hdr, int64_t channels, int64_t segment) {
    if (4 * channels <= segment) return;
    hdr.text("Info retrieved on compression indicates no compression!").endLine();
    hdr.text(plainText(channels) + " channels require " + plainText(4 * channels) + " bytes. Data segment has only " +
             plainText(segment) + " bytes.")
        .endLine();
    hdr.text("Compression assumed as used.").endLine();
}

// Runs (modes 0-4), base-32 numbers (mode 5), skipped bytes (mode 6) and
// small literals (mode 7). Returns false when the bytes ran out first.
bool decodeCompressed(const std::string& bytes, int64_t from, std::vector<int32_t>& counts) {
    const size_t end = bytes.size();
    size_t pos = from < 0 ? end : static_cast<size_t>(std::min<int64_t>(from, static_cast<int64_t>(end)));
    const size_t n = counts.size();
    size_t channel = 0;
    constexpr int MaxDigits = 6;
    while (channel < n) {
        if (pos >= end) return false;
        const auto byte = static_cast<uint8_t>(bytes[pos++]);
        const int mode = byte >> 5;
        const int32_t value = byte & 31;
        if (mode <= 4) {
            for (int32_t k = 0; k < value && channel < n; ++k) counts[channel++] = mode;
        } else if (mode == 5) {
            // Digits follow while their bytes are mode 5; the first byte of
            // another mode gives the last digit.
            int32_t number = value;
            for (int digits = 1; digits < MaxDigits;) {
                if (pos >= end) return false;
                const auto next = static_cast<uint8_t>(bytes[pos++]);
                number = number * 32 + (next & 31);
                ++digits;
                if (next >> 5 != 5) break;
            }
            counts[channel++] = number;
        } else if (mode == 7) {
            counts[channel++] = value;
        }
    }
    return true;
}

void readPlain(const BinaryReader& in, int64_t from, std::vector<int32_t>& counts) {
    for (size_t i = 0; i < counts.size(); ++i) counts[i] = in.i32(from + 4 * static_cast<int64_t>(i));
}

// SPE: one count a line, each an 8-character data field.
void writeSpe(TextWriter& out, const std::string& id, const std::string& date, const std::vector<int32_t>& counts) {
    const DateTimeTexts when{formatText(date, "dd-mm-yyyy"), formatText(date, "hh:mm:ss")};
    // The OMDAQ times stay in the header listing; the spectrum shows zeros.
    writeSpeHeader(out, {id, when, Value::ofInteger(0), Value::ofInteger(0), static_cast<int64_t>(counts.size()) - 1});
    // Lines are built in place: a count takes at most 11 characters.
    std::string& text = out.buffer();
    const size_t start = text.size();
    text.resize(start + counts.size() * (11 + 2));
    char* p = text.data() + start;
    for (int32_t c : counts) {
        char item[24];
        const size_t length = static_cast<size_t>(writePrintItem(item, c) - 1 - item);  // the signed text
        if (length < DataFieldWidth) p = std::fill_n(p, DataFieldWidth - length, ' ');
        p = std::copy_n(item, length, p);
        *p++ = '\r';
        *p++ = '\n';
    }
    text.resize(static_cast<size_t>(p - text.data()));
    out.flushIfFull();
}

void writeSpo(TextWriter& out, const std::vector<int32_t>& counts) {
    writeSpoHeader(out, static_cast<int64_t>(counts.size()));
    DataBlock block(out.buffer());
    for (int32_t c : counts) block.count(c);
    out.endLine();
}

void refuse(Session& form, const std::string& boxText, BoxIcon icon, const std::string& headerLine) {
    form.host().messageBox(boxText, icon, BoxButtons::Ok);
    if (!headerLine.empty()) form.files.output(HeaderFile).text(headerLine).endLine();
    form.files.close(HeaderFile);
    form.files.close(SpectrumFile);
    form.files.close(InputFile);
    form.readerStatus = RefusedStatus;
}

// The reader's own error exit: errors met while reading the file's fields
// say the contents are not OMDAQ; others, such as a folder not writable,
// ask for a check.
void errorExit(Session& form, const RuntimeError& e, const char* part, bool readingContents) {
    const std::string error = "Error " + plainText(e.number()) + " in " + part;
    const std::string box = readingContents ? "! CONTENTS TYPE NOT OMDAQ! !\n" + error + "\nCHECK CONTENS TYPE !"
                                            : "! CHECK FOR ERROR !\n" + error;
    std::string line = box;
    std::replace(line.begin(), line.end(), '\n', ' ');
    form.host().messageBox(box, BoxIcon::Critical, BoxButtons::Ok);
    // The message has been shown: a listing or spectrum that cannot be
    // written now is left as far as it got.
    for (int number : {HeaderFile, SpectrumFile, InputFile}) {
        try {
            if (number == HeaderFile && form.files.isOpen(HeaderFile)) form.files.output(HeaderFile).text(line).endLine();
            form.files.close(number);
        } catch (const RuntimeError&) {
        }
    }
    form.readerStatus = RefusedStatus;
}

}  // namespace

std::string pathWithoutExtension(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot == std::string::npos ? path : path.substr(0, dot);
}

void ConvOMDAQ(Session& form, std::string& fileName) {
    const char* part = "'file opening'";
    bool readingContents = false;
    try {
        const std::string stem = pathWithoutExtension(fileName);
        const BinaryReader& in = form.files.openBinary(InputFile, fileName);
        TextWriter& out = form.files.openOutput(SpectrumFile, stem + form.outputExtension());
        TextWriter& hdr = form.files.openOutput(HeaderFile, stem + ".hdr");

        part = "'header reading'";
        readingContents = true;
        const uint8_t signature = in.u8(OmdaqSignatureAt);
        if (signature != OmdaqSignature) {
            const std::string hex = hexText(signature);
            refuse(form, "Unknown signature found: " + hex + "\rThis is not a valid OMDAQ file!\r!!! PROCESSING HALTED !!!",
                   BoxIcon::Critical,
                   "Unknown signature found: " + hex + ". This is not a valid OMDAQ file! PROCESSING HALTED.");
            return;
        }
        const int version = in.u8(OmdaqVersionAt);
        hdr.text("_header version ").item(int64_t{version}).endLine();
        const OmdaqLayout* layout = omdaqLayout(version);
        if (!layout) {
            refuse(form, "OMDAQ header type " + plainText(version) + " not recognized", BoxIcon::Exclamation, "");
            return;
        }
        const int64_t channels = in.i16(OmdaqChannelsAt);
        form.valueCount = channels;
        const HeaderFacts facts = HeaderListing(in, hdr, *layout).write(channels);
        form.sharedRealTime = Value::ofInteger(in.i32(layout->runBlock));

        part = "'data reading'";
        writeDecodingChoice(hdr, channels, in.length() - facts.dataOffset);
        if (channels < 1) raise(err::SubscriptOutOfRange);  // no channel 1 to N
        std::vector<int32_t> counts(static_cast<size_t>(channels));
        if (facts.compression == 0) {
            readPlain(in, facts.dataOffset, counts);
        } else if (!decodeCompressed(in.bytes(), facts.dataOffset, counts)) {
            form.host().showStatus("Null data, extraction end!", StatusColour::Blue);
            form.host().wait(0.2);
        }

        part = "'spectrum writing'";
        readingContents = false;
        if (form.boxes.SPE) writeSpe(out, stem, facts.date, counts);
        else writeSpo(out, counts);
        fileName = out.path();
        form.files.close(HeaderFile);
        form.files.close(SpectrumFile);
        form.files.close(InputFile);
    } catch (const RuntimeError& e) {
        errorExit(form, e, part, readingContents);
    }
}

}  // namespace kestro
