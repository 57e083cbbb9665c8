// The modern Bruker RAW reader ("Modern readers" ticked): every range of the
// real samples, crafted files of the layouts no sample has, refusals that
// write nothing and let the batch go on, and the classic reading unticked.
#include <sstream>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;

class ModernRawTest : public testing::ConversionTest {
protected:
    ModernRawTest() { form.boxes.ModernRead = true; }

    std::string sample(const std::string& name) { return readFile(KESTRO_SAMPLES_DIR "/raw/" + name); }
};

// A range's lines as an ".odf" holds them.
struct ScanLines {
    std::vector<std::string> lines;
    double sum = 0;

    explicit ScanLines(const std::string& odf) {
        std::istringstream in(odf);
        for (std::string line; std::getline(in, line);) {
            line.pop_back();  // CR
            sum += std::stod(line.substr(14));
            lines.push_back(line);
        }
    }
    double intensity(size_t step) const { return std::stod(lines.at(step).substr(14)); }
};

TEST_F(ModernRawTest, RealScansGiveEveryRange) {
    // Cu3Au-1, format1 and brk_raw1: steps, first and last lines, intensities
    // and sums as xyconv (libxy-bin 1.6, type bruker_raw) reads them, its
    // angles rounded to Singles. TwoTheta_scan_scrambled (RAW4.00, which that
    // xyconv refuses): decoded by a short script walking its blocks from byte
    // 61 to the range at 447 (start 10, step 0.0105203, 7134 records of 8
    // bytes from 1311, each a Single and the word 1), which ends the file.
    const struct {
        const char* odf;
        size_t steps;
        const char* first;
        const char* last;
        size_t at;
        double intensity, sum;
    } ranges[] = {
        {"Cu3Au-1.odf", 3901, " 22            48", " 100           11", 20, 33, 59299},
        {"format1_1.odf", 101, " 10            10", " 20            9", 10, 7, 873},
        {"format1_2.odf", 26, " 30            6", " 35            5", 10, 4, 169},
        {"format1_3.odf", 51, " 40            4", " 45            7", 10, 3, 390},
        {"brk_raw1.odf", 876, " 4.98          665", " 39.98         266", 10, 575, 550306},
        {"TwoTheta_scan_scrambled.odf", 7134, " 10            283.7692", " 85.0413      -105.7783", 1000, 45.78576,
         2107237.94},
    };
    for (const char* name : {"Cu3Au-1.raw", "format1.raw", "brk_raw1.raw", "TwoTheta_scan_scrambled.raw"})
        queue(name, sample(name));
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_TRUE(host.boxes.empty());  // "RAW " is a layout this reader knows: no warning
    for (const auto& r : ranges) {
        const ScanLines scan(output(r.odf));
        ASSERT_EQ(scan.lines.size(), r.steps) << r.odf;
        EXPECT_EQ(scan.lines.front(), r.first) << r.odf;
        EXPECT_EQ(scan.lines.back(), r.last) << r.odf;
        EXPECT_EQ(scan.intensity(r.at), r.intensity) << r.odf;
        EXPECT_NEAR(scan.sum, r.sum, 0.5) << r.odf;  // 7 digits a line
    }
    EXPECT_FALSE(written("format1.odf"));
}

TEST_F(ModernRawTest, UntickedTheClassicReadingStays) {
    const std::string cu3au = sample("Cu3Au-1.raw"), format1 = sample("format1.raw"), v2 = sample("brk_raw1.raw");
    const std::string modernCu3au = converted("m1.raw", cu3au, "m1.odf");
    const std::string modernFirst = converted("m2.raw", format1, "m2_1.odf");
    const std::string modernV2 = converted("m3.raw", v2, "m3.odf");

    form.boxes.ModernRead = false;
    EXPECT_EQ(converted("c1.raw", cu3au, "c1.odf"), modernCu3au);
    // The first range alone, under the plain name.
    EXPECT_EQ(converted("c2.raw", format1, "c2.odf"), modernFirst);
    EXPECT_FALSE(written("c2_1.odf") || written("c2_2.odf"));
    EXPECT_EQ(converted("c3.raw", v2, "c3.odf"), modernV2);
    EXPECT_NE(message().find("attempting to read as binary RAW version 2"), std::string::npos);
    EXPECT_EQ(converted("c4.raw", sample("TwoTheta_scan_scrambled.raw"), "c4.odf"), "");
}

// Three steps from 10 by 0.5, and their lines.
const std::vector<float> Intensities = {1.5f, -2, 1e8f};
const std::string ThreeSteps = " 10            1.5\r\n 10.5         -2\r\n 11            1E+08\r\n";
const std::string TwoSteps = " 20            7\r\n 19.75         65535\r\n";  // from 20 by -0.25

// Records of `size` bytes, each beginning with its intensity: a Single, or a
// 16-bit count when the records take 2 bytes.
void putRecords(BinaryBuilder& b, const std::vector<float>& intensities, size_t size) {
    for (float v : intensities) {
        const size_t at = b.size();
        if (size == 2) b.u16(static_cast<uint16_t>(v));
        else b.f32(v).padTo(at + size, '\x01');
    }
}

// A RAW4.00 range: marker, the 160-byte header, one drive block of its own, the records.
void raw4Range(BinaryBuilder& b, uint32_t marker, double start, double step, const std::vector<float>& intensities,
               uint32_t recordSize) {
    const size_t at = b.size();
    b.at(at, marker).at(at + 72, start).at(at + 80, step).at(at + 88, static_cast<uint32_t>(intensities.size()));
    b.at(at + 136, recordSize).at(at + 140, uint32_t{92}).padTo(at + 160);
    b.u32(50).u32(92).u32(1).text("2Theta").padTo(at + 160 + 56).f64(start).padTo(at + 160 + 92);
    putRecords(b, intensities, recordSize);
}

BinaryBuilder raw4Preamble() {
    BinaryBuilder b;
    b.text("RAW4.00").padTo(12).text("04/07/2025").padTo(61);
    b.u32(10).u32(39).u32(0).text("USER").padTo(61 + 36).text("Lab");
    return b;
}

TEST_F(ModernRawTest, Raw400RangesFollowTheirHeadersWhateverTheirRecords) {
    // Two ranges with a block between them: 8-byte records (a Single and a
    // word), then 4-byte ones; each range to its own file.
    BinaryBuilder two = raw4Preamble();
    raw4Range(two, 0, 10, 0.5, Intensities, 8);
    two.u32(30).u32(136).padTo(two.size() + 128);
    raw4Range(two, 160, 20, -0.25, {7, 65535}, 4);
    EXPECT_EQ(converted("two.raw", two.bytes(), "two_1.odf"), ThreeSteps);
    EXPECT_EQ(output("two_2.odf"), TwoSteps);
    EXPECT_FALSE(written("two.odf"));

    // 2-byte records hold 16-bit counts.
    BinaryBuilder counts = raw4Preamble();
    raw4Range(counts, 0, 20, -0.25, {7, 65535}, 2);
    EXPECT_EQ(converted("counts.raw", counts.bytes(), "counts.odf"), TwoSteps);
}

TEST_F(ModernRawTest, OlderLayoutsReadEveryRange) {
    // RAW1.01: two ranges, the first with an 8-byte supplement and no record
    // size (files before the field), the second with 12-byte records.
    BinaryBuilder v101;
    v101.text("RAW1.01").at(12, uint32_t{2}).padTo(712);
    v101.u32(304).u32(3).padTo(712 + 16).f64(10).padTo(712 + 176).f64(0.5).padTo(712 + 256).u32(8).padTo(712 + 312);
    putRecords(v101, Intensities, 4);
    const size_t second = v101.size();
    v101.u32(304).u32(2).padTo(second + 16).f64(20).padTo(second + 176).f64(-0.25).padTo(second + 252).u32(12);
    v101.padTo(second + 304);
    putRecords(v101, {7, 65535}, 12);
    EXPECT_EQ(converted("v101.raw", v101.bytes(), "v101_1.odf"), ThreeSteps);
    EXPECT_EQ(output("v101_2.odf"), TwoSteps);

    // RAW2: the range count at 4, ranges from 256 with 2-byte header length and steps.
    BinaryBuilder v2;
    v2.text("RAW2").u16(2).padTo(256);
    v2.u16(64).u16(3).padTo(256 + 12).f32(0.5f).f32(10).padTo(256 + 64);
    putRecords(v2, Intensities, 4);
    const size_t next = v2.size();
    v2.u16(48).u16(2).padTo(next + 12).f32(-0.25f).f32(20).padTo(next + 48);
    putRecords(v2, {7, 65535}, 4);
    EXPECT_EQ(converted("v2.raw", v2.bytes(), "v2_1.odf"), ThreeSteps);
    EXPECT_EQ(output("v2_2.odf"), TwoSteps);

    // "RAW ": the second range repeats the signature; its "another follows"
    // word is set, but the file ends there.
    BinaryBuilder space;
    space.text("RAW ").u32(3).padTo(12).f32(0.5f).padTo(24).f32(10).padTo(152).u32(1);
    putRecords(space, Intensities, 4);
    const size_t again = space.size();
    space.text("RAW ").u32(2).padTo(again + 12).f32(-0.25f).padTo(again + 24).f32(20).padTo(again + 152).u32(1);
    putRecords(space, {7, 65535}, 4);
    EXPECT_EQ(converted("space.raw", space.bytes(), "space_1.odf"), ThreeSteps);
    EXPECT_EQ(output("space_2.odf"), TwoSteps);
}

TEST_F(ModernRawTest, ABadFileIsRefusedWithNothingWrittenAndTheBatchGoesOn) {
    BinaryBuilder cut = raw4Preamble();
    raw4Range(cut, 0, 10, 0.5, Intensities, 4);
    BinaryBuilder oddRecords = raw4Preamble();
    raw4Range(oddRecords, 0, 10, 0.5, Intensities, 3);
    BinaryBuilder noRange = raw4Preamble();
    BinaryBuilder damaged = raw4Preamble();
    damaged.u32(10).u32(4);
    // The second range's angles overflow a Single: the first is not written either.
    BinaryBuilder wide = raw4Preamble();
    raw4Range(wide, 0, 10, 0.5, Intensities, 4);
    raw4Range(wide, 0, 1e39, 1, Intensities, 4);
    BinaryBuilder shortHeader;
    shortHeader.text("RAW2").u16(1).padTo(256).u16(20).u16(0).padTo(300);

    const struct { const char* what; std::string bytes; const char* why; } cases[] = {
        {"records cut short", cut.bytes().substr(0, cut.size() - 1),
         "Range 1 of this RAW file runs past the end of the file."},
        {"3-byte records", oddRecords.bytes(),
         "Range 1 of this RAW file has steps of 3 bytes, which hold no intensity."},
        {"no range", noRange.bytes(), "No scan range in this RAW file."},
        {"damaged block", damaged.bytes(), "The block at byte 100 of this RAW4.00 file is damaged."},
        {"angles", wide.bytes(), "Range 2 of this RAW file has angles too large to write."},
        {"short header", shortHeader.bytes(), "Range 1 of this RAW file has a damaged header."},
    };
    for (const auto& c : cases) {
        host.boxes.clear();
        queue("bad.raw", c.bytes);
        queue("good.raw", sample("Cu3Au-1.raw"));
        EXPECT_EQ(run(), RunOutcome::Finished) << c.what;
        ASSERT_EQ(host.boxes.size(), 1u) << c.what;
        EXPECT_EQ(message(), std::string(c.why) + " Conversion aborted!") << c.what;
        EXPECT_EQ(host.boxes.back().icon, BoxIcon::Critical) << c.what;
        EXPECT_FALSE(written("bad.odf") || written("bad_1.odf")) << c.what;
        EXPECT_TRUE(written("good.odf")) << c.what;
        std::filesystem::remove(dir.file("good.odf"));
    }
}

TEST_F(ModernRawTest, OtherSignaturesReadAsTheClassicReaderReadsThem) {
    convert("other.raw", "RAW9.99" + std::string(300, '\0'));
    EXPECT_EQ(message(), "Not a recognized RAW data format or multiple range data the code cannot yet deal with!");
    EXPECT_FALSE(written("other.odf"));
}

TEST_F(ModernRawTest, ThePlotShowsTheFirstRange) {
    form.boxes.DsGr = true;
    converted("format1.raw", sample("format1.raw"), "format1_1.odf");
    ASSERT_EQ(host.plots.size(), 1u);
    EXPECT_EQ(host.plots.back().count, 101);
    EXPECT_NE(host.plots.back().name.find("format1_1.odf"), std::string::npos);
}

}  // namespace
}  // namespace kestro
