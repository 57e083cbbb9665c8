// Two-column text to an OMDAQ file of header version 4, for tools that take
// nothing else. The file reads back through the OMDAQ reader; its target
// text warns that OMDAQ never acquired the spectrum.
#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/BinaryOutput.h"
#include "core/runtime/Dates.h"
#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "readers/Readers.h"
#include "readers/ionbeam/Omdaq.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr OmdaqLayout Layout = OmdaqLayouts[3];
static_assert(Layout.version == 4);

constexpr const char* NotNativeTarget = "[!!!Warning: NNO (not native OMDAQ)! Spectrum not collected in OMDAQ!!!]";
constexpr float BeamEnergyMeV = 2.0f;
constexpr int32_t TimeUnitsPerSecond = 100000;  // the three times count 10 us units
constexpr int32_t ElapsedSeconds = 100;
constexpr float ChargeFactor = 1.0f;
constexpr float ChargePerPulse = 1e-14f;
// A helium beam, as for most two-column RBS spectra; the spectra read as RBS.
constexpr int16_t BeamZ = 2, BeamA = 4, BeamQ = 1;
constexpr int16_t RbsRadiation = 1;

// The second value of every pair, rounded to a whole count. The channel
// count must fit the header's 16-bit field, which is checked before anything
// is held for it.
std::vector<int32_t> readCounts(TextReader& in) {
    int64_t values = 0;
    while (!in.eof()) {
        bool quoted;
        in.listField(quoted);
        ++values;
    }
    const int16_t channels = roundToInt16(static_cast<double>(values / 2));
    in.seek(1);
    std::vector<int32_t> counts(static_cast<size_t>(channels));
    for (int32_t& c : counts) {
        in.listInputNumber();
        c = roundToInt32(in.listInputNumber());
    }
    return counts;
}

std::string omdaqFile(const std::vector<int32_t>& counts, DateValue modified) {
    const int64_t E = Layout.runBlock;
    const int64_t S = Layout.spectrum;
    const int64_t record = S + OmdaqRecordBase;
    const int32_t maximum = counts.empty() ? 0 : *std::max_element(counts.begin(), counts.end());
    int64_t total = 0;
    for (int32_t c : counts) total += c;
    total = std::clamp<int64_t>(total, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());

    std::string target(NotNativeTarget);
    target.resize(OmdaqTargetChars, ' ');
    BinaryBuilder b;
    b.at<uint8_t>(OmdaqVersionAt, static_cast<uint8_t>(Layout.version)).at(OmdaqSignatureAt, OmdaqSignature);
    b.at(OmdaqChannelsAt, static_cast<int16_t>(counts.size()));
    b.padTo(Layout.date).text(formatDate(modified, "dd-mmm-yyyy"));
    b.padTo(Layout.date + 11 + 2).text(formatDate(modified, "hh:mm"));
    b.padTo(Layout.date + OmdaqDateChars).text(target);
    b.at(E - 10, BeamEnergyMeV).at(E - 6, BeamZ).at(E - 4, BeamA).at(E - 2, BeamQ);
    b.at(E, ElapsedSeconds).at(E + 4, int32_t{0});
    for (int64_t k = 0; k < 3; ++k) b.at(E + 8 + 4 * k, ElapsedSeconds * TimeUnitsPerSecond);
    b.at(E + 20, ChargeFactor).at(E + 24, ChargePerPulse);
    b.at(S, int16_t{0}).at(S + 2, int16_t{0}).at(S + 4, maximum).at(S + 8, static_cast<int32_t>(total));
    // Calibration: 0 keV offset, 1 keV a channel.
    b.at(record + Layout.calibration, 0.0f).at(record + Layout.calibration + 4, 1.0f);
    b.at(record + Layout.calibration + 8, 0.0f);
    b.at(record + Layout.radiation, RbsRadiation);
    b.padTo(record + Layout.radiation + 2 + 5 * 4);  // geometry unknown: zeros
    b.padTo(Layout.dataOffset());
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

}  // namespace

void Conv2OMDAQ(Session& form, std::string& fileName) {
    TextReader& in = form.files.openInput(InputFile, fileName);
    const std::vector<int32_t> counts = readCounts(in);
    form.files.close(InputFile);
    writeWholeFile(pathWithoutExtension(fileName) + "._", omdaqFile(counts, fileModified(fileName)));
}

}  // namespace kestro
