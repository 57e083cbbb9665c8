// Shimadzu photometric files, the Shimadzu SPC message, and TA Instruments
// run files through the driver: crafted files compared byte for byte, the
// naming rules, and the errors of cut-short files.
#include <filesystem>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::BadInput;
using testing::readFile;
using testing::writeFile;
using ShimadzuTest = testing::ConversionTest;
using TaTest = testing::ConversionTest;

// A photometric file: the time fields, M, the indexes, the value pairs.
std::string pho(int32_t count, const std::vector<int32_t>& indexes, const std::vector<float>& values) {
    BinaryBuilder b;
    b.at(40, int16_t{2019}).u8(3).u8(7).u8(9).u8(5).u8(2).u8(0).at(114, count).padTo(128);
    for (int32_t i : indexes) b.i32(i);
    for (float v : values) b.f32(v);
    return b.bytes();
}

const std::string PhoHead = "Recorded date-time as yyyy-mm-dd hh:mm:ss is 2019-3-7 9:5:2.0\r\n";

TEST_F(ShimadzuTest, PhotometricFileListsItsMeasurements) {
    form.formatOption = "Shim_PHO";
    form.boxes.DsGr = true;
    // 0.200005 as a Single lies just below the half, but its 7 digits are the half.
    EXPECT_EQ(converted("m.pho", pho(2, {7, 1234}, {0.5f, 1.25f, 0.200005f, 12.3456789f}), "m.hdrx"),
              PhoHead + "Recorded number of measurements is  2 \r\n### Absorbance k*Absorbance\r\n"
                        "  7  0.50000      1.25000\r\n1234  0.20001      12.34568\r\n");
    EXPECT_FALSE(form.boxes.DsGr);  // nothing to plot after a ".pho"
    EXPECT_TRUE(host.plots.empty());
    EXPECT_FALSE(written("m.odf"));

    // One measurement, one line; the name stops at the first "." of the path.
    std::filesystem::create_directory(dir.file("data.2019"));
    writeFile(dir.file("data.2019/run.pho"), pho(1, {1}, {1, 2}));
    form.addToQueue("run.pho", dir.file("data.2019/run.pho"));
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("data.hdrx"), PhoHead + "Recorded number of measurements is  1 \r\n"
                                             "### Absorbance k*Absorbance\r\n  1  1.00000      2.00000\r\n");
}

TEST_F(ShimadzuTest, CutShortPhotometricFilesKeepTheLinesWritten) {
    form.formatOption = "Shim_PHO";
    const std::string full = pho(2, {1, 2}, {1, 2, 3, 4});
    const BadInput cases[] = {
        {"no time fields", full.substr(0, 40), "Error 62 Input past end of file", 1},
        {"no count", full.substr(0, 116), "Error 62 Input past end of file", 1},
        {"no measurements", pho(0, {}, {}), "Error 9 Subscript out of range", 1},
        {"a negative count", pho(-1, {}, {}), "Error 9 Subscript out of range", 1},
        {"indexes only", pho(2, {1, 2}, {}), "Error 62 Input past end of file", 1},
        {"half the pairs", full.substr(0, full.size() - 8), "Error 62 Input past end of file", 1},
    };
    const std::string lines[] = {"", PhoHead, PhoHead + "Recorded number of measurements is  0 \r\n",
                                 PhoHead + "Recorded number of measurements is -1 \r\n",
                                 PhoHead + "Recorded number of measurements is  2 \r\n### Absorbance k*Absorbance\r\n"};
    const size_t kept[] = {0, 1, 2, 3, 4, 4};
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(convert("cut.pho", cases[i].bytes), RunOutcome::ErrorHandled) << cases[i].what;
        EXPECT_EQ(message(), testing::failureBox(cases[i].error)) << cases[i].what;
        EXPECT_EQ(output("cut.hdrx"), lines[kept[i]]) << cases[i].what;
    }
}

TEST_F(ShimadzuTest, ShimadzuSpcOnlySaysSo) {
    form.formatOption = "Shim_SPC";
    EXPECT_EQ(convert("u.spc", readFile(KESTRO_SAMPLES_DIR "/spc/Shimadzu UV-Vis.spc")), RunOutcome::Finished);
    EXPECT_EQ(message(), "Shimadzu .spc conversion not yet available, please be patient grassshopper");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::None);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), std::filesystem::directory_iterator()), 1);  // the input alone
}

// ---- TA Instruments ----

std::string taRun(const std::string& header, const std::vector<float>& values) {
    BinaryBuilder b;
    b.text(header).text("\x01\x02");
    for (float v : values) b.f32(v);
    return b.bytes();
}

const std::string TaHeader = "Instrument: TGA 2950\r\ntime base in min\r\nTime  Temperature  Weight\r\n";

TEST_F(TaTest, HeaderIsCopiedAndRecordsListedInThreeColumns) {
    form.formatOption = "ATA";
    EXPECT_EQ(converted("run.001", taRun(TaHeader, {0, 25.5f, -10, 1.25f, 1234567.9f, 1e-8f}), "run001.odf"),
              " 0             25.5          -10 \r\n"
              " 1.25          1234568        1E-08 \r\n");
    // Through the "Time" line; a "time" line does not end the header.
    EXPECT_EQ(output("run001.hdr"), TaHeader);
    EXPECT_EQ(host.statuses.front().first, dir.file("run.odf") + " done");
}

TEST_F(TaTest, IncompleteRecordEndsTheRunAfterTheCompleteOnes) {
    form.formatOption = "ATA";
    expectFailures("r.002", {{"a record and a half", taRun(TaHeader, {1, 2, 3, 4, 5}), "Error 9 Subscript out of range", 2}});
    EXPECT_EQ(output("r002.odf"), " 1             2              3 \r\n");
    expectFailures("r.002", {{"no records", taRun(TaHeader, {}), "Error 9 Subscript out of range", 2}});
    EXPECT_EQ(output("r002.odf"), "");

    // No "Time" line: the header copy runs past the end.
    EXPECT_EQ(convert("r.003", "Instrument\r\ntime\r\n"), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 62 Input past end of file"));
    EXPECT_EQ(host.boxes.back().openFiles, (std::vector<int>{1, 3}));
    EXPECT_EQ(output("r003.hdr"), "Instrument\r\ntime\r\n");
    EXPECT_FALSE(written("r003.odf"));
}

}  // namespace
}  // namespace kestro
