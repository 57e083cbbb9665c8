// Bruker/AXS RAW and PANalytical RD scans through the driver: crafted files
// of every RAW variant and of RD compared byte for byte, the refusal and the
// error exit with its log, and the real RAW samples.
#include <numeric>
#include <sstream>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;
using BrukerRawTest = testing::ConversionTest;
using PanalyticalRdTest = testing::ConversionTest;

void putSteps(BinaryBuilder& b, const std::vector<float>& intensities) {
    for (float v : intensities) b.f32(v);
}

// RAW1.01: the range header (length k) at 712, a supplement of length m
// after it, then the intensities.
std::string raw101(int32_t n, double start, double step, const std::vector<float>& intensities, int32_t k = 304,
                   int32_t m = 8) {
    BinaryBuilder b;
    b.text("RAW1.01").padTo(16).text("22/11/26").padTo(26).text("09:30:00").at(616, 1.5406);
    b.at(712, k).at(716, n).at(728, start).at(888, step).at(968, m).padTo(712 + static_cast<size_t>(k + m));
    putSteps(b, intensities);
    return b.bytes();
}

// A RAW4.00 header with the given tag: steps, step and start where the
// variant reads them, then filler, and the intensities as the last bytes.
std::string raw400(const char* signature, const char* tag, size_t stepsAt, size_t stepAt, size_t startAt,
                   size_t headerEnd, int32_t n, double start, double step, const std::vector<float>& intensities) {
    BinaryBuilder b;
    b.text(signature).padTo(142).text(tag).at(stepsAt, n).at(stepAt, step).at(startAt, start).padTo(headerEnd);
    putSteps(b, intensities);
    return b.bytes();
}

// The lines the RAW reader writes: the angle text, the intensity from the
// next 14-column zone.
const std::string ThreeSteps = " 10            1.5\r\n 10.5         -2\r\n 11            1E+08\r\n";
const std::vector<float> ThreeIntensities = {1.5f, -2, 1e8f};

TEST_F(BrukerRawTest, EveryVariantReadsItsOwnFields) {
    EXPECT_EQ(converted("a.raw", raw101(3, 10, 0.5, ThreeIntensities), "a.odf"), ThreeSteps);
    EXPECT_EQ(form.valueCount, 3);
    // Only the first three characters of the tag count.
    EXPECT_EQ(converted("x.raw", raw400("RAW4.00", "XRDzz", 588, 580, 944, 1000, 3, 10, 0.5, ThreeIntensities), "x.odf"),
              ThreeSteps);
    // Any other tag is the Rigaku-DIFFRAC layout: fields after the range header at 201.
    BinaryBuilder rigaku;
    rigaku.text("RAW4.00").padTo(142).text("XR?D?").at(201, int32_t{100}).at(301, int32_t{3}).at(377, 0.5).at(513, 10.0);
    rigaku.padTo(700);
    putSteps(rigaku, ThreeIntensities);
    EXPECT_EQ(converted("r.raw", rigaku.bytes(), "r.odf"), ThreeSteps);
    // One V2.8. range: the last 4N bytes, after the 1216-byte supplement.
    EXPECT_EQ(converted("v.raw", raw400("RAW4-00", "V2.8.", 585, 661, 1025, 581 + 1216, 3, 10, 0.5, ThreeIntensities),
                        "v.odf"),
              ThreeSteps);
    EXPECT_TRUE(host.boxes.empty());

    // Version 2: Singles for step and start, data from 156, after a warning.
    BinaryBuilder v2;
    v2.text("RAW ").i32(2).i32(0).f32(0.04f).padTo(24).f32(4.98f).padTo(156).f32(665).f32(632);
    EXPECT_EQ(converted("two.raw", v2.bytes(), "two.odf"), " 4.98          665\r\n 5.02          632\r\n");
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(message(), "Not a 1st instance recognized RAW data format:\r\n   - attempting to read as binary RAW version 2");
    EXPECT_EQ(host.boxes[0].icon, BoxIcon::Exclamation);
}

TEST_F(BrukerRawTest, HrxrdRangesGoToNumberedFiles) {
    // Two ranges of two steps, 1776 bytes apart; the file's length says how many.
    BinaryBuilder b;
    b.text("RAW4.00").padTo(142).text("HRXRD").at(1954, int32_t{2}).at(2030, 0.25).at(2394, -1.0).padTo(3726);
    b.f32(7).f32(8).padTo(3726 + 8 + 1776).f32(9).f32(10.5f);
    EXPECT_EQ(converted("h.raw", b.bytes(), "h_1.odf"), "-1             7\r\n-0.75          8\r\n");
    EXPECT_EQ(output("h_2.odf"), "-1             9\r\n-0.75          10.5\r\n");
    EXPECT_FALSE(written("h.odf") || written("h_3.odf"));
}

TEST_F(BrukerRawTest, UnknownSignatureIsRefusedAndTheBatchGoesOn) {
    queue("old.raw", "RAW2" + raw101(3, 10, 0.5, ThreeIntensities).substr(4));
    queue("a.raw", raw101(3, 10, 0.5, ThreeIntensities));
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(message(), "Not a recognized RAW data format or multiple range data the code cannot yet deal with!");
    EXPECT_FALSE(written("old.odf"));
    EXPECT_EQ(output("a.odf"), ThreeSteps);
}

// The error log's three lines, the time stamp left out.
std::string logWithoutTimes(const std::string& log) {
    std::istringstream lines(log);
    std::string line, out;
    while (std::getline(lines, line)) {
        const size_t stamp = line.find(". Time stamp: ");
        if (stamp != std::string::npos) line = line.substr(0, stamp + 13) + "\r";
        out += line + "\n";
    }
    return out;
}

TEST_F(BrukerRawTest, BadScansTakeTheErrorExitAndTheBatchGoesOn) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::string truncated = raw101(3, 10, 0.5, ThreeIntensities);
    truncated.pop_back();
    const struct { const char* what; std::string bytes; int number; int64_t position; } cases[] = {
        {"truncated data", truncated, err::InputPastEnd, 973},
        {"more steps than the file holds", raw101(1 << 28, 10, 0.5, ThreeIntensities), err::InputPastEnd, 973},
        {"negative steps", raw101(-3, 10, 0.5, ThreeIntensities), err::SubscriptOutOfRange, 973},
        {"steps overflow 4N", raw400("RAW4.00", "XRD", 588, 580, 944, 1000, 1 << 30, 0, 1, {}), err::Overflow, 953},
        {"4N before the file", raw400("RAW4.00", "XRD", 588, 580, 944, 1000, 1000, 0, 1, {}), err::BadRecordNumber, 953},
        {"step not a number", raw101(3, 10, nan, ThreeIntensities), err::Overflow, 973},
        {"angles beyond a Single", raw101(3, 1e39, 0.5, ThreeIntensities), err::Overflow, 973},
    };
    for (const auto& c : cases) {
        const std::string path = queue("bad.raw", c.bytes);
        queue("a.raw", raw101(3, 10, 0.5, ThreeIntensities));
        EXPECT_EQ(run(), RunOutcome::Finished) << c.what;
        const std::string number = std::to_string(c.number), text = errorDescription(c.number);
        EXPECT_EQ(message(), "Unknown error while reading/attempting to read file " + path + ". Error " + number +
                                 " > " + text + ". See error log file!")
            << c.what;
        // Beside the input.
        EXPECT_EQ(logWithoutTimes(output("KestroErr.log")),
                  "Error " + number + " while reading/attempting to read file " + path + ".\r\nError > " + text +
                      ". Time stamp:\r\nLast known good record read: " + std::to_string(c.position) + "\r\n")
            << c.what;
        EXPECT_EQ(output("a.odf"), ThreeSteps) << c.what;
        std::filesystem::remove(dir.file("KestroErr.log"));
    }
}

TEST_F(BrukerRawTest, ARangePastTheEndReadsAsZeros) {
    // The first V2.8. range is the last 4N bytes; the second starts 4N + 1216
    // later, past the end, and still gets its file.
    const std::string two = raw400("RAW4-00", "V2.8.", 585, 661, 1025, 581 + 2 * 1216 + 12, 3, 10, 0.5, ThreeIntensities);
    EXPECT_EQ(converted("v.raw", two, "v_1.odf"), ThreeSteps);
    EXPECT_EQ(output("v_2.odf"), " 10            0\r\n 10.5          0\r\n 11            0\r\n");
    EXPECT_TRUE(host.boxes.empty());
    EXPECT_FALSE(written("KestroErr.log"));
}

TEST_F(BrukerRawTest, RealScansMatchAnIndependentReading) {
    // Expected values come from xyconv (libxy-bin, type bruker_raw) on the
    // same files: step counts, angles, and the intensities' sums.
    const std::string samples = std::string(KESTRO_SAMPLES_DIR) + "/raw/";
    const struct { const char* name; int64_t steps; const char* first; const char* last; double sum; } scans[] = {
        {"Cu3Au-1", 3901, " 22            48", " 100           11", 59299},  // RAW1.01, 22 to 100 by 0.02
        {"format1", 101, " 10            10", " 20            9", 873},     // first of its three ranges
        {"brk_raw1", 876, " 4.98          665", " 39.98         266", 550306},  // "RAW ", by 0.04
    };
    for (const auto& s : scans) {
        const std::string odf = converted(std::string(s.name) + ".raw", readFile(samples + s.name + ".raw"),
                                          std::string(s.name) + ".odf");
        EXPECT_EQ(form.valueCount, s.steps) << s.name;
        std::istringstream lines(odf);
        std::string line, first, last;
        double sum = 0;
        int64_t count = 0;
        while (std::getline(lines, line)) {
            line.pop_back();  // CR
            if (count++ == 0) first = line;
            last = line;
            sum += std::stod(line.substr(14));
        }
        EXPECT_EQ(count, s.steps) << s.name;
        EXPECT_EQ(first, s.first) << s.name;
        EXPECT_EQ(last, s.last) << s.name;
        EXPECT_EQ(sum, s.sum) << s.name;
    }
    // Bytes 142-146 are not a tag this reader knows, so the Rigaku layout
    // applies; its range header length (1886596464) points past the end, the
    // step count reads as 0, and the scan converts to an empty file.
    EXPECT_EQ(converted("t.raw", readFile(samples + "TwoTheta_scan_scrambled.raw"), "t.odf"), "");
    EXPECT_EQ(host.boxes.size(), 1u);  // brk_raw1's version-2 warning alone
}

std::string rdFile(double step, double start, double stop, const std::vector<int16_t>& intensities) {
    BinaryBuilder b;
    b.padTo(94).f64(1.5406).f64(1.54439).f64(0.5).padTo(214).f64(step).f64(start).f64(stop).padTo(250);
    for (int16_t v : intensities) b.i16(v);
    return b.bytes();
}

std::string rdHeader(const std::string& path, int64_t bytes, int64_t points, const char* stop, const char* count) {
    return "File " + path + " is " + std::to_string(bytes) + " bytes long!\r\nSpec " + path + " has " +
           std::to_string(points) +
           " intensity values!\r\nkAlpha1/nm =  0.15406\r\nkAlpha2/nm =  0.154439\r\nk2/1 ratio =  0.5\r\n"
           "Start2theta =  10\r\nStop 2theta = " + stop + "\r\n2theta step =  0.02\r\n"
           "Calculated number of data points = " + count + "\r\n";
}

TEST_F(PanalyticalRdTest, HeaderListsEveryPointAndTheOdfHoldsIndexAndIntensity) {
    // One byte more than the points need: it is not read.
    const std::string path = queue("s.rd", rdFile(0.02, 10, 10.04, {30, -2, 1000}) + "x");
    ASSERT_EQ(run(), RunOutcome::Finished);
    // 30 squared over 100 is 9.
    EXPECT_EQ(output("s.rd.hdr"), rdHeader(path, 257, 3, " 10.04", "2") +
                                      " 10  9  30 \r\n 10.02  0.04 -2 \r\n 10.04  10000  1000 \r\n");
    EXPECT_EQ(output("s.odf"), " 0             30 \r\n 1            -2 \r\n 2             1000 \r\n");

    const std::string empty = queue("e.rd", rdFile(0.02, 10, 9, {}));
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("e.rd.hdr"), rdHeader(empty, 250, 0, " 9", "-50"));
    EXPECT_EQ(output("e.odf"), "");

    // One byte short of the header still counts no point.
    const std::string cut = queue("c.rd", rdFile(0.02, 10, 9, {}).substr(0, 249));
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("c.rd.hdr"), rdHeader(cut, 249, 0, " 9", "-50"));
    EXPECT_EQ(output("c.odf"), "");
}

TEST_F(PanalyticalRdTest, FaultsEndTheRunWithTheHeaderOpen) {
    const struct { const char* what; std::string bytes; const char* error; } cases[] = {
        {"step 0", rdFile(0, 10, 20, {1}), "Error 11 Division by zero"},
        {"step 0 over an empty range", rdFile(0, 10, 10, {1}), "Error 6 Overflow"},
        {"a count beyond a Long", rdFile(1e-300, 0, 1, {1}), "Error 6 Overflow"},
        {"shorter than the header", rdFile(1, 0, 1, {}).substr(0, 248), "Error 9 Subscript out of range"},
        {"an angle beyond a Single", rdFile(1, 1e39, 1e39, {1}), "Error 6 Overflow"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(convert("bad.rd", c.bytes), RunOutcome::ErrorHandled) << c.what;
        EXPECT_EQ(message(), testing::failureBox(c.error)) << c.what;
        EXPECT_FALSE(host.boxes.back().openFiles.empty() || host.boxes.back().openFiles.back() != 5) << c.what;
        EXPECT_FALSE(form.files.isOpen(5)) << c.what;
    }
}

}  // namespace
}  // namespace kestro
