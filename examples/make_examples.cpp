// Writes Kestro's example inputs: one small spectrum in each channel-data
// text format and each instrument format Kestro reads, all from the same 64
// counts (256 for the 35/40 dump, whose blocks hold 256), so their outputs
// can be compared; the event list holds event energies instead.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/BinaryOutput.h"
#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/TextOutput.h"
#include "readers/ionbeam/Omdaq.h"

using namespace kestro;

namespace {

constexpr int Channels = 64;
constexpr int LiveTime = 100;
constexpr int RealTime = 104;

// A falling background with one photopeak near channel 40.
std::vector<int64_t> counts() {
    std::vector<int64_t> c(Channels);
    for (int i = 0; i < Channels; ++i) {
        double background = 400.0 * std::exp(-i / 20.0);
        double peak = 900.0 * std::exp(-0.5 * std::pow((i - 40) / 2.0, 2));
        c[static_cast<size_t>(i)] = std::llround(background + peak) + 3;
    }
    return c;
}

void headerLines(TextWriter& out, const char* kind, int lines) {
    for (int i = 1; i <= lines; ++i) {
        out.text("# ").text(kind).text(" example header line ").text(plainText(i)).endLine();
    }
}

void valuesOnePerLine(TextWriter& out, const std::vector<int64_t>& c) {
    for (int64_t v : c) out.text(rightAligned(plainText(v), 8)).endLine();
}

void writeSpe(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/iaea.spe");
    out.text("$SPEC_ID:").endLine().text("Kestro example spectrum").endLine();
    out.text("$SPEC_REM:").endLine().text("made by kestro-examples").endLine();
    out.text("$DATE_MEA:").endLine().text("11/21/2026 09:30:00").endLine();
    out.text("$MEAS_TIM:").endLine().text(plainText(LiveTime)).text(" ").text(plainText(RealTime)).endLine();
    out.text("$DATA:").endLine().text("0 ").text(plainText(Channels - 1)).endLine();
    valuesOnePerLine(out, c);
    out.text("$ROI:").endLine().text("0").endLine();
    out.close();
}

void writeWithHeader(const std::string& path, const char* kind, int lines, const std::vector<int64_t>& c) {
    TextWriter out(path);
    headerLines(out, kind, lines);
    valuesOnePerLine(out, c);
    out.close();
}

// A data block whose channels 0 and 1 carry live and real time.
void writeDat(const std::string& dir, const std::vector<int64_t>& c) {
    std::string block;
    DataBlock fields(block);
    fields.field(static_cast<int64_t>(LiveTime));
    fields.field(static_cast<int64_t>(RealTime));
    for (size_t i = 2; i < c.size(); ++i) fields.field(c[i]);
    TextWriter out(dir + "/block.dat");
    out.text(block);
    out.close();
}

void writeOdf(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/twocolumn.odf");
    out.item(int64_t{0}).item(int64_t{LiveTime}).endLine();
    out.item(int64_t{1}).item(int64_t{RealTime}).endLine();
    for (size_t i = 2; i < c.size(); ++i) out.item(static_cast<int64_t>(i)).item(c[i]).endLine();
    out.close();
}

// ---- instrument formats ----

void writeBytes(const std::string& path, const BinaryBuilder& b) { writeWholeFile(path, b.bytes()); }

// Genie2K: the channel-count signature D0 01 N, a time record (marker 01,
// start ticks, then real and live ticks stored complemented), the counts last.
void writeCnf(const std::string& dir, const std::vector<int64_t>& c) {
    constexpr uint64_t TicksPerSecond = 10'000'000;
    // 21-11-2026 09:30:00, counted from 17-11-1858.
    const uint64_t start = (61365ull * 86400 + 9 * 3600 + 30 * 60) * TicksPerSecond;
    BinaryBuilder b;
    b.padTo(0x100).u8(0xD0).u8(0x01).i16(static_cast<int16_t>(c.size()));
    b.padTo(0x180).u8(0x01).u64(start).u64(~(RealTime * TicksPerSecond)).u64(~(LiveTime * TicksPerSecond));
    b.padTo(0x200);
    for (int64_t v : c) b.i32(static_cast<int32_t>(v));
    writeBytes(dir + "/genie.cnf", b);
}

// ORTEC: times in ticks of 20 ms at 8 and 12, the channel count at 30, counts from 32.
void writeChn(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.i16(-1).i16(1).i16(1).text("00").i32(RealTime * 50).i32(LiveTime * 50).text("21NOV261").text("0930");
    b.i16(0).u16(static_cast<uint16_t>(c.size()));
    for (int64_t v : c) b.i32(static_cast<int32_t>(v));
    writeBytes(dir + "/ortec.chn", b);
}

// SpecTech: the channel count, then the counts.
void writeSpu(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.u32(static_cast<uint32_t>(c.size()));
    for (int64_t v : c) b.i32(static_cast<int32_t>(v));
    writeBytes(dir + "/spectech.spu", b);
}

// Canberra MCA dump: a 1024-byte header, then counts as two 16-bit words, high word first.
void writeBin(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.padTo(1024);
    for (int64_t v : c) b.u16(static_cast<uint16_t>(v >> 16)).u16(static_cast<uint16_t>(v & 0xFFFF));
    writeBytes(dir + "/canberra.bin", b);
}

// Canberra S-100: times in hundredths of a second at 48 and 52, counts from 128.
void writeS100(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.padTo(48).i32(LiveTime * 100).i32(RealTime * 100).padTo(128);
    for (int64_t v : c) b.i32(static_cast<int32_t>(v));
    writeBytes(dir + "/s100.mca", b);
}

// Canberra 35/40: a 270-byte header, one block (5 bytes, then 256 channels of
// 3 bytes: high, low, middle), a 52-byte trailer.
void writeS35(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.padTo(270 + 5);
    for (int ch = 0; ch < 256; ++ch) {
        int64_t v = c[static_cast<size_t>(ch) % c.size()];
        b.u8(static_cast<uint8_t>(v >> 16)).u8(static_cast<uint8_t>(v & 0xFF)).u8(static_cast<uint8_t>((v >> 8) & 0xFF));
    }
    b.padTo(b.size() + 52);
    writeBytes(dir + "/canberra3540.mca", b);
}

// FastComtec: a text header, four ADC sections (the first active), then the
// first ADC's spectrum as text ("asc").
void writeMpa(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/fastcomtec.mpa");
    out.text("mpafmt=asc").endLine().text("sephead=0").endLine();
    for (int adc = 1; adc <= 4; ++adc) {
        out.text("[ADC").text(plainText(adc)).text("]").endLine();
        out.text("range=").text(plainText(static_cast<int64_t>(c.size()))).endLine();
        out.text("active=").text(adc == 1 ? "1" : "0").endLine();
        out.text("realtime=").text(plainText(RealTime)).text(".000000").endLine();
        out.text("livetime=").text(plainText(LiveTime)).text(".000000").endLine();
    }
    out.text("[DATA0,").text(plainText(static_cast<int64_t>(c.size()))).text(" ]").endLine();
    valuesOnePerLine(out, c);
    out.close();
}

// Bruker Esprit: one element a line, the channel list on the <Channels> line.
void writeSpx(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/bruker.spx");
    out.text("<?xml version=\"1.0\" encoding=\"WINDOWS-1252\" standalone=\"yes\"?>").endLine();
    out.text("<TRTSpectrum>").endLine();
    out.text("<ClassInstance Type=\"XXXSpectrum\" Name=\"Kestro example\">").endLine();
    out.text("<RealTime>").text(plainText(RealTime)).text("</RealTime>").endLine();
    out.text("<LifeTime>").text(plainText(LiveTime)).text("</LifeTime>").endLine();
    out.text("<Date>21.11.2026</Date>").endLine();
    out.text("<Time>09:30:00</Time>").endLine();
    out.text("<ChannelCount>").text(plainText(static_cast<int64_t>(c.size()))).text("</ChannelCount>").endLine();
    out.text("<CalibAbs>-0.95</CalibAbs>").endLine();
    out.text("<CalibLin>0.01</CalibLin>").endLine();
    out.text("<Channels>");
    for (size_t i = 0; i < c.size(); ++i) out.text(i ? "," : "").text(plainText(c[i]));
    out.text("</Channels>").endLine().text("</ClassInstance>").endLine().text("</TRTSpectrum>").endLine();
    out.close();
}

// Generic XML: a data block of <Data> groups, each an X and a Y element.
void writeXml(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/generic.xml");
    out.text("<?xml version=\"1.0\"?>").endLine().text("<DataBlock>").endLine();
    for (size_t i = 0; i < c.size(); ++i) {
        out.text("<Data>").endLine();
        out.text("<X>").text(formatNumber(0.5 * static_cast<double>(i), "0.0")).text("</X>").endLine();
        out.text("<Y>").text(plainText(c[i])).text("</Y>").endLine();
        out.text("</Data>").endLine();
    }
    out.text("</DataBlock>").endLine();
    out.close();
}

// ---- ion-beam formats ----

// One count in the OMDAQ compressed form: a literal below 32, else base-32
// digits, all but the last in mode-5 bytes.
void compressCount(BinaryBuilder& b, int64_t v) {
    if (v < 32) {
        b.u8(static_cast<uint8_t>(0xE0 | v));
        return;
    }
    std::vector<uint8_t> digits;
    for (; v > 0; v /= 32) digits.insert(digits.begin(), static_cast<uint8_t>(v % 32));
    for (size_t i = 0; i + 1 < digits.size(); ++i) b.u8(static_cast<uint8_t>(0xA0 | digits[i]));
    b.u8(digits.back());
}

// An OMDAQ version-13 file, compressed, from a 2 MeV proton beam on a PIXE detector.
void writeOmdaq(const std::string& dir, const std::vector<int64_t>& c) {
    const OmdaqLayout& layout = *omdaqLayout(13);
    const int64_t E = layout.runBlock;
    const int64_t S = layout.spectrum;
    const int64_t record = S + OmdaqRecordBase;
    BinaryBuilder b;
    b.u8(13).u8(OmdaqSignature).padTo(OmdaqChannelsAt).i16(static_cast<int16_t>(c.size()));
    b.padTo(static_cast<size_t>(layout.date)).text("21/11/2026 09:30:00").text("Kestro example target: Fe on C");
    b.at(E - 10, 2.0f).at<int16_t>(E - 6, 1).at<int16_t>(E - 4, 1).at<int16_t>(E - 2, 1);
    b.at<int32_t>(E, RealTime).at<int32_t>(E + 4, 5000);
    b.at<int32_t>(E + 8, RealTime * 100000).at<int32_t>(E + 12, LiveTime * 100000).at<int32_t>(E + 16, LiveTime * 100000);
    b.at(E + 20, 1.0f).at(E + 24, 1e-12f);
    int64_t total = 0, maximum = 0;
    for (int64_t v : c) {
        total += v;
        maximum = std::max(maximum, v);
    }
    b.at<int16_t>(S, 1).at<int16_t>(S + 2, 1).at(S + 4, static_cast<int32_t>(maximum)).at(S + 8, static_cast<int32_t>(total));
    b.at(record + layout.calibration, 1.5f).at(record + layout.calibration + 4, 10.0f);
    b.at<int16_t>(record + layout.radiation, 0);
    const float geometry[5] = {30, 50, 135, 0, 0};
    for (int k = 0; k < 5; ++k) b.at(record + layout.radiation + 2 + 4 * k, geometry[k]);
    b.padTo(static_cast<size_t>(layout.dataOffset()));
    for (int64_t v : c) compressCount(b, v);
    writeBytes(dir + "/omdaq._", b);
}

// Channel, counts and background, with a header that ends in a comma.
void writeCsv(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/table.csv");
    out.text("channel,counts,background,").endLine();
    for (size_t i = 0; i < c.size(); ++i) {
        const double background = std::round(400.0 * std::exp(-static_cast<double>(i) / 20.0) * 10) / 10 + 3;
        out.text(plainText(static_cast<int64_t>(i)) + "," + plainText(c[i]) + "," + plainText(background)).endLine();
    }
    out.close();
}

// 256 event energies in keV, 8-byte reals.
void writeEvt(const std::string& dir) {
    BinaryBuilder b;
    for (int i = 0; i < 256; ++i) b.f64(1000.0 + 0.25 * ((i * 37) % 400));
    writeBytes(dir + "/events.evt", b);
}

// ---- diffraction scans: the counts as intensities over 2-theta from 20 by 0.05 ----

constexpr double ScanStart = 20.0;
constexpr double ScanStep = 0.05;

// Bruker/AXS RAW4.00 "HRXRD": two ranges of the same steps, each range's data
// followed by the 1776-byte header of the next; the second range at half
// the intensity.
void writeRaw(const std::string& dir, const std::vector<int64_t>& c) {
    constexpr size_t FirstData = 3726;
    constexpr size_t Supplement = 1776;
    BinaryBuilder b;
    b.text("RAW4.00").padTo(12).text("11/21/26").padTo(22).text("09:30:00").padTo(142).text("HRXRD");
    b.at(299, 1.5406).at(307, 1.54439).at(1954, static_cast<int32_t>(c.size())).at(2030, ScanStep).at(2394, ScanStart);
    b.padTo(FirstData);
    for (int64_t v : c) b.f32(static_cast<float>(v));
    b.padTo(b.size() + Supplement);
    for (int64_t v : c) b.f32(static_cast<float>(v) / 2);
    writeBytes(dir + "/brukeraxs.raw", b);
}

// PANalytical RD: wavelengths, step, start and stop in a 250-byte header,
// then 16-bit intensities.
void writeRd(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.text("V3RD").at(94, 1.5406).at(102, 1.54439).at(110, 0.5);
    b.at(214, ScanStep).at(222, ScanStart).at(230, ScanStart + ScanStep * static_cast<double>(c.size() - 1)).padTo(250);
    for (int64_t v : c) b.i16(static_cast<int16_t>(v));
    writeBytes(dir + "/panalytical.rd", b);
}

// DICOM: the counts as an 8 x 8 image of 16-bit values with a rescale
// intercept, a private tag, and the "DICOM.tags" that names it.
void writeDicom(const std::string& dir, const std::vector<int64_t>& c) {
    DcmFileFormat file;
    DcmDataset& d = *file.getDataset();
    d.putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    d.putAndInsertString(DCM_SOPInstanceUID, "1.2.826.0.1.3680043.10.1427.1.1");
    d.putAndInsertString(DCM_Modality, "OT");
    d.putAndInsertString(DCM_PatientName, "Example^Kestro");
    d.putAndInsertString(DcmTag(0x0009, 0x0010, EVR_LO), "KESTRO EXAMPLE");
    d.putAndInsertString(DcmTag(0x0009, 0x1001, EVR_LO), "the 64 counts of the example spectrum");
    d.putAndInsertUint16(DCM_SamplesPerPixel, 1);
    d.putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME2");
    d.putAndInsertUint16(DCM_Rows, 8);
    d.putAndInsertUint16(DCM_Columns, 8);
    d.putAndInsertUint16(DCM_BitsAllocated, 16);
    d.putAndInsertUint16(DCM_BitsStored, 16);
    d.putAndInsertUint16(DCM_HighBit, 15);
    d.putAndInsertUint16(DCM_PixelRepresentation, 0);
    d.putAndInsertString(DCM_RescaleIntercept, "-3");
    d.putAndInsertString(DCM_RescaleSlope, "1");
    std::vector<Uint16> pixels(c.begin(), c.end());
    d.putAndInsertUint16Array(DCM_PixelData, pixels.data(), static_cast<unsigned long>(pixels.size()));
    if (file.saveFile((dir + "/image.dcm").c_str(), EXS_LittleEndianExplicit).bad()) std::exit(1);
    TextWriter tags(dir + "/DICOM.tags");
    tags.text("# Names for the private tags of image.dcm, in DCMTK's dictionary format").endLine();
    tags.text("(0009,\"KESTRO EXAMPLE\",01)\tLO\tExampleSource\t1\tPrivateTag").endLine();
    tags.close();
}

// ---- JCAMP-DX, Shimadzu and TA Instruments ----

// The JCAMP spectra: the counts as absorbance (YFACTOR 0.001) over
// wavenumbers from 400 in steps of 2, 8 values a line.
constexpr int JcampFirstX = 400;
constexpr int JcampStepX = 2;
constexpr size_t JcampPerLine = 8;

void writeJcampHeader(TextWriter& out, const char* title, size_t points) {
    out.text("##TITLE=").text(title).endLine().text("##JCAMP-DX=4.24").endLine();
    out.text("##DATA TYPE=INFRARED SPECTRUM").endLine().text("##ORIGIN=kestro-examples").endLine();
    out.text("##XUNITS=1/CM").endLine().text("##YUNITS=ABSORBANCE").endLine();
    out.text("##XFACTOR=1").endLine().text("##YFACTOR=0.001").endLine();
    out.text("##FIRSTX=").text(plainText(int64_t{JcampFirstX})).endLine();
    out.text("##LASTX=").text(plainText(int64_t{JcampFirstX + JcampStepX * static_cast<int64_t>(points - 1)})).endLine();
    out.text("##DELTAX=").text(plainText(int64_t{JcampStepX})).endLine();
    out.text("##NPOINTS=").text(plainText(static_cast<int64_t>(points))).endLine();
    out.text("##XYDATA=(X++(Y..Y))").endLine();
}

std::string jcampX(size_t k) { return plainText(int64_t{JcampFirstX} + JcampStepX * static_cast<int64_t>(k)); }

void writeJcampAffn(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/jcamp-affn.jdx");
    writeJcampHeader(out, "Kestro example spectrum, AFFN", c.size());
    for (size_t k = 0; k < c.size(); k += JcampPerLine) {
        out.text(jcampX(k));
        for (size_t i = k; i < std::min(k + JcampPerLine, c.size()); ++i) out.text(" ").text(plainText(c[i]));
        out.endLine();
    }
    out.text("##END=").endLine();
    out.close();
}

// A number with its sign and first digit as one ASDF character: 123 is
// "A23" in SQZ, -15 "j5" in DIF; a repeat count's first digit is a DUP
// character ("T" is 2).
std::string asdf(int64_t v, const char* positive, const char* negative) {
    std::string digits = plainText(v < 0 ? -v : v);
    digits[0] = (v < 0 ? negative : positive)[digits[0] - '0'];
    return digits;
}
std::string sqz(int64_t v) { return asdf(v, "@ABCDEFGHI", "@abcdefghi"); }
std::string dif(int64_t v) { return asdf(v, "%JKLMNOPQR", "%jklmnopqr"); }
std::string dup(int64_t count) { return asdf(count, "?STUVWXYZs", "?STUVWXYZs"); }

// Each line: X, the first value in SQZ, differences in DIF (repeats in
// DUP) up to the next line's first value, which is the line's check; the
// last line holds the last value alone.
void writeJcampAsdf(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/jcamp-asdf.jdx");
    writeJcampHeader(out, "Kestro example spectrum, ASDF", c.size());
    size_t k = 0;
    for (; k + 1 < c.size(); k += JcampPerLine) {
        const size_t end = std::min(k + JcampPerLine, c.size() - 1);
        out.text(jcampX(k)).text(sqz(c[k]));
        for (size_t i = k + 1; i <= end;) {
            size_t same = 1;
            while (i + same <= end && c[i + same] - c[i + same - 1] == c[i] - c[i - 1]) ++same;
            out.text(dif(c[i] - c[i - 1]));
            if (same > 1) out.text(dup(static_cast<int64_t>(same)));
            i += same;
        }
        out.endLine();
    }
    out.text(jcampX(c.size() - 1)).text(sqz(c.back())).endLine();
    out.text("##END=").endLine();
    out.close();
}

// Shimadzu photometric file: recorded 21-11-2026 09:30:00.0, one
// measurement for each eighth count, as absorbance and twice that.
void writePho(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.at(40, int16_t{2026}).u8(11).u8(21).u8(9).u8(30).u8(0).u8(0);
    const int32_t measurements = static_cast<int32_t>(c.size() / 8);
    b.at(114, measurements).padTo(128);
    for (int32_t i = 1; i <= measurements; ++i) b.i32(i);
    for (int32_t i = 0; i < measurements; ++i) {
        const float absorbance = static_cast<float>(c[static_cast<size_t>(8 * i)]) / 1000.0f;
        b.f32(absorbance).f32(2 * absorbance);
    }
    writeBytes(dir + "/shimadzu.pho", b);
}

// TA Instruments TGA run: a text header ending in the "Time" line, two
// separator bytes, then time (min), temperature (C) and weight (mg) as Singles.
void writeTa(const std::string& dir, const std::vector<int64_t>& c) {
    BinaryBuilder b;
    b.text("Instrument: TGA 2950\r\nSample: kestro-examples\r\nSize: 10.000 mg\r\n");
    b.text("Time (min)\tTemperature (C)\tWeight (mg)\r\n").u8(0).u8(0);
    for (size_t i = 0; i < c.size(); ++i) {
        const float minutes = 0.5f * static_cast<float>(i);
        b.f32(minutes).f32(25 + 10 * minutes).f32(10.0f - static_cast<float>(c[i]) / 1000.0f);
    }
    writeBytes(dir + "/tainstruments.001", b);
}

// ---- infrared and UV spectra: the counts as absorbance (thousandths) over
// wavenumbers from 4000 down by 50 ----

constexpr float FirstWavenumber = 4000;
constexpr float WavenumberStep = -50;

float wavenumber(size_t i) { return FirstWavenumber + WavenumberStep * static_cast<float>(i); }

// Thermo SPA: the fixed fields, then CR LF CR LF and three zeros before the data.
void writeSpa(const std::string& dir, const std::vector<int64_t>& c) {
    constexpr size_t DataAt = 1024;
    BinaryBuilder b;
    b.text("Spectral Data File").at(386, static_cast<int32_t>(DataAt)).at(564, static_cast<int32_t>(c.size()));
    b.at(576, wavenumber(0)).at(580, wavenumber(c.size() - 1)).at(584, 0.002f).at(588, static_cast<int32_t>(c.size()));
    b.padTo(DataAt - 7).text(std::string("\r\n\r\n\0\0\0", 7));
    for (int64_t v : c) b.f32(static_cast<float>(v) / 1000);
    writeBytes(dir + "/thermo.spa", b);
}

// Galactic SPC, Y only (in thousandths): 32-bit integers scaled by 2^16 / 2^32,
// dated 21 Nov 2026 09:30.
void writeSpc(const std::string& dir, const std::vector<int64_t>& c) {
    constexpr int32_t Date = 30 | 9 << 6 | 21 << 11 | 11 << 16 | 2026 << 20;
    BinaryBuilder b;
    b.u8(0).u8(0x4B).u8(0).u8(16).i32(static_cast<int32_t>(c.size()));
    b.f64(wavenumber(0)).f64(wavenumber(c.size() - 1)).i32(1).padTo(32).i32(Date).padTo(544);
    for (int64_t v : c) b.i32(static_cast<int32_t>(v * 65536));
    writeBytes(dir + "/galactic.spc", b);
}

// Base64 of little-endian Singles, 76 characters a line.
std::string base64Lines(const std::vector<float>& values) {
    static constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    BinaryBuilder b;
    for (float v : values) b.f32(v);
    const std::string& bytes = b.bytes();
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t bits = 0;
        for (size_t k = 0; k < 3; ++k) bits = bits << 8 | (i + k < bytes.size() ? static_cast<uint8_t>(bytes[i + k]) : 0u);
        for (size_t k = 0; k < 4; ++k) text += k <= bytes.size() - i ? Alphabet[bits >> (18 - 6 * k) & 63] : '=';
    }
    std::string lines;
    for (size_t i = 0; i < text.size(); i += 76) lines += text.substr(i, 76) + "\r\n";
    return lines;
}

// GAML: one trace, its X and Y arrays with their tags at the line starts.
void writeGaml(const std::string& dir, const std::vector<int64_t>& c) {
    std::vector<float> xs, ys;
    for (size_t i = 0; i < c.size(); ++i) {
        xs.push_back(wavenumber(i));
        ys.push_back(static_cast<float>(c[i]) / 1000);
    }
    const std::string n = plainText(static_cast<int64_t>(c.size()));
    TextWriter out(dir + "/spectrum.gaml");
    out.text("<?xml version=\"1.0\" encoding=\"UTF-8\"?>").endLine();
    out.text("<GAML version=\"1.20\" name=\"Kestro example\">").endLine();
    out.text("<experiment name=\"example\">").endLine().text("<trace name=\"absorbance\" technique=\"IR\">").endLine();
    out.text("<Xdata label=\"Wavenumbers (cm-1)\" units=\"WAVENUMBER\">").endLine();
    out.text("<values byteorder=\"INTEL\" format=\"FLOAT32\" numvalues=\"" + n + "\">").text(base64Lines(xs));
    out.text("</values>").endLine().text("<Ydata label=\"Absorbance\" units=\"ABSORBANCE\">").endLine();
    out.text("<values byteorder=\"INTEL\" format=\"FLOAT32\" numvalues=\"" + n + "\">").text(base64Lines(ys));
    out.text("</values>").endLine().text("</Ydata>").endLine().text("</Xdata>").endLine();
    out.text("</trace>").endLine().text("</experiment>").endLine().text("</GAML>").endLine();
    out.close();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kestro-examples FOLDER\n");
        return 2;
    }
    const std::string dir = argv[1];
    const std::vector<int64_t> c = counts();
    writeSpe(dir, c);
    writeWithHeader(dir + "/ascii.asc", "ASC", 54, c);
    writeWithHeader(dir + "/rutherford.rbs", "RBS", 12, c);
    writeWithHeader(dir + "/simulated.sim", "SIM", 12, c);
    writeDat(dir, c);
    writeOdf(dir, c);
    writeCnf(dir, c);
    writeChn(dir, c);
    writeSpu(dir, c);
    writeBin(dir, c);
    writeS100(dir, c);
    writeS35(dir, c);
    writeMpa(dir, c);
    writeSpx(dir, c);
    writeXml(dir, c);
    writeOmdaq(dir, c);
    writeCsv(dir, c);
    writeEvt(dir);
    writeRaw(dir, c);
    writeRd(dir, c);
    writeDicom(dir, c);
    writeJcampAffn(dir, c);
    writeJcampAsdf(dir, c);
    writePho(dir, c);
    writeTa(dir, c);
    writeSpa(dir, c);
    writeSpc(dir, c);
    writeGaml(dir, c);
    return 0;
}
