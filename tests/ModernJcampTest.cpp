// The modern JCAMP-DX reader ("Modern readers" ticked): the real samples,
// crafted files in each form real programs write, and damaged files, each of
// which is to name its problem and leave what came before it in place.
#include <cmath>
#include <sstream>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;

class ModernJcampTest : public testing::ConversionTest {
protected:
    ModernJcampTest() { form.boxes.ModernRead = true; }

    // The X,Y points of an ".odf".
    std::vector<std::pair<double, double>> points(const std::string& odf) const {
        std::istringstream in(output(odf));
        std::vector<std::pair<double, double>> p;
        for (double x, y; in >> x >> y;) p.emplace_back(x, y);
        return p;
    }
    void expectPoints(const std::string& odf, const std::vector<std::pair<double, double>>& expected) const {
        const auto p = points(odf);
        ASSERT_EQ(p.size(), expected.size()) << odf;
        for (size_t i = 0; i < p.size(); ++i) {
            EXPECT_NEAR(p[i].first, expected[i].first, 1e-9 * std::max(1.0, std::fabs(expected[i].first))) << odf << i;
            EXPECT_NEAR(p[i].second, expected[i].second, 1e-12 * std::max(1.0, std::fabs(expected[i].second))) << odf << i;
        }
    }
};

// One block around labels and data lines.
std::string block(const std::string& labels, const std::string& table, const std::string& lines) {
    return "##TITLE=t\r\n##JCAMP-DX=4.24\r\n" + labels + table + "\r\n" + lines + "##END=\r\n";
}

// ---- real files ----

TEST_F(ModernJcampTest, RealSamplesGiveWhatJcampconverterReads) {
    // jcampconverter 12.5.3 (npm) on the same files: point count, first and
    // last X, Y at points 0 and 100, and the sum of Y.
    struct Real {
        const char* name;
        size_t points;
        double firstX, lastX, y0, y100, ySum;
    };
    const Real reals[] = {
        {"benzene", 3343, 452, 3794, 0.8787, 0.8764, 2718.6325999999876},          // AFFN, no DELTAX
        {"dupinc1", 440, 250, 469.5, 1.1663, 0.1853, 164.76039999999998},          // DIF, DUP, X factor 0.1
        {"pacdec1", 3301, 4000, 700, 101.6, 101.66, 330088.9899999992},            // PAC, X falling
        {"sqzdupd1", 18669, 5000.0323, 499.95502, 0.982870257537, 0.982410950907,  // SQZ, DUP
         17560.794076065486},
    };
    for (const Real& r : reals) queue(std::string(r.name) + ".jdx", readFile(KESTRO_SAMPLES_DIR "/jcamp/" + std::string(r.name) + ".jdx"));
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_TRUE(host.boxes.empty()) << message();
    for (const Real& r : reals) {
        const auto p = points(std::string(r.name) + ".odf");
        ASSERT_EQ(p.size(), r.points) << r.name;
        EXPECT_NEAR(p.front().first, r.firstX, 1e-9) << r.name;
        EXPECT_NEAR(p.back().first, r.lastX, 1e-9) << r.name;
        EXPECT_NEAR(p[0].second, r.y0, 1e-12) << r.name;
        EXPECT_NEAR(p[100].second, r.y100, 1e-12) << r.name;
        double sum = 0;
        for (const auto& xy : p) sum += xy.second;
        EXPECT_NEAR(sum, r.ySum, 1e-9 * r.ySum) << r.name;
    }
    // The listing holds every label line, continuation lines too, as written.
    const std::string hdrx = output("pacdec1.hdrx");
    EXPECT_TRUE(hdrx.starts_with("##TITLE= pacdec1.jdx\r\n##JCAMP-DX= 4.24 $$ not known\r\n"));
    EXPECT_NE(hdrx.find("##SPECTROMETER SETTINGS= DETECTOR=;\r\n  MODENAME=;ID=\r\n"), std::string::npos);
    EXPECT_NE(hdrx.find("##XYDATA= (X++(Y..Y))\r\nWritten to " + dir.file("pacdec1.odf") + ": 3301 points\r\n##END=\r\n"),
              std::string::npos);
}

// ---- the forms ----

TEST_F(ModernJcampTest, LabelsAreComparedWithoutBlanksCaseDashesAndUnderscores) {
    // jcampconverter 12.5.3 gives X 100 to 107 and Y 0.1 to 0.8.
    const std::string bytes = "## TITLE = labels\r\n##JCAMP_DX = 4.24\r\n##Data-Type= INFRARED SPECTRUM\r\n"
                              "##DATA CLASS = XYDATA\r\n##First X = 100\r\n##last_x=107\r\n##x factor = 0.5\r\n"
                              "##Y/FACTOR = 0.01\r\n##N POINTS = 8\r\n##XYDATA = (X++(Y..Y))\r\n"
                              "200 10 20 30 40\r\n208 50 60 70 80\r\n## END =\r\n";
    convert("l.jdx", bytes);
    expectPoints("l.odf", {{100, 0.1}, {101, 0.2}, {102, 0.3}, {103, 0.4}, {104, 0.5}, {105, 0.6}, {106, 0.7}, {107, 0.8}});
    // Laid out as the classic reader lays it out: Y from column 25.
    EXPECT_TRUE(output("l.odf").starts_with(" 100" + std::string(20, ' ') + " 0.1\r\n 101"));
    EXPECT_TRUE(host.boxes.empty()) << message();
}

TEST_F(ModernJcampTest, EveryAsdfFormWithItsChecks) {
    // SQZ; DIF with a DUP of a difference; DIF lines whose next line repeats
    // the last value as its check; SQZ after a check; PAC. jcampconverter
    // 12.5.3 gives these 20 points.
    const std::string lines = "0@A1B2C3d4\r\n5A0J5KLTm\r\n10B9%T\r\n12B9J0\r\n13C9Ea5F\r\n17+7-8+9\r\n";
    convert("a.jdx", block("##YFACTOR=0.5\r\n##FIRSTX=0\r\n##LASTX=19\r\n##NPOINTS=20\r\n", "##XYDATA=(X++(Y..Y))", lines));
    const double y[] = {0, 11, 22, 33, -44, 10, 25, 27, 30, 33, 29, 29, 29, 39, 5, -15, 6, 7, -8, 9};
    std::vector<std::pair<double, double>> expected;
    for (int i = 0; i < 20; ++i) expected.emplace_back(i, y[i] * 0.5);
    expectPoints("a.odf", expected);

    // AFFN with powers of ten, and "?" for a missing value, which has no
    // line (by hand: jcampconverter reads neither). "E" before a digit is
    // the SQZ character 5, so "1E5" is the values 1 and 55.
    convert("e.jdx", block("##FIRSTX=100\r\n##LASTX=105\r\n##NPOINTS=6\r\n", "##XYDATA=(X++(Y..Y))",
                           "100 1.5E+02 -2.5E-01 ?\r\n103,1E5,7\r\n"));
    expectPoints("e.odf", {{100, 150}, {101, -0.25}, {103, 1}, {104, 55}, {105, 7}});
    EXPECT_TRUE(host.boxes.empty()) << message();
}

TEST_F(ModernJcampTest, PairAndPeakTables) {
    // (XY..XY) under ##XYDATA=: jcampconverter 12.5.3 gives these points.
    convert("p.jdx", block("##XFACTOR=2\r\n##YFACTOR=0.5\r\n##NPOINTS=5\r\n", "##XYDATA=(XY..XY)",
                           "100,1.5E+02 101,-2.5e-01\r\n102,3; 103,4\r\n104.5,-7\r\n"));
    expectPoints("p.odf", {{200, 75}, {202, -0.125}, {204, 1.5}, {206, 2}, {209, -3.5}});
    // ##XYPOINTS= with blanks, commas and semicolons, and a missing Y; and a
    // peak table with widths (by hand: jcampconverter reads no XYPOINTS and
    // takes (XYW..XYW) as pairs).
    convert("q.jdx", block("##YFACTOR=2\r\n", "##XYPOINTS=(XY..XY)", "1.5, 10; 2.25, 11 3.0,12\r\n4.5 ,13;7, ?\r\n"));
    expectPoints("q.odf", {{1.5, 20}, {2.25, 22}, {3, 24}, {4.5, 26}});
    convert("w.jdx", block("", "##PEAK TABLE=(XYW..XYW)", "15,100,1.5 27,250,2\r\n43,999,0.5\r\n"));
    expectPoints("w.odf", {{15, 100}, {27, 250}, {43, 999}});
    EXPECT_TRUE(host.boxes.empty()) << message();
}

TEST_F(ModernJcampTest, LinkedBlocksGiveOneOdfEachInFileOrder) {
    // jcampconverter 12.5.3 gives the same two spectra.
    const std::string bytes = "##TITLE=link\r\n##JCAMP-DX=4.24\r\n##DATA TYPE=LINK\r\n##BLOCKS=2\r\n"
                              "##TITLE=first\r\n##BLOCK_ID=1\r\n##FIRSTX=10\r\n##LASTX=13\r\n##NPOINTS=4\r\n"
                              "##XYDATA=(X++(Y..Y))\r\n10 1 2 3 4\r\n##END=\r\n"
                              "##TITLE=second\r\n##BLOCK_ID=2\r\n##NPOINTS=2\r\n##PEAK TABLE=(XY..XY)\r\n5,50 6,60\r\n"
                              "##END=\r\n##END=\r\n";
    form.boxes.DsGr = true;
    convert("k.jdx", bytes);
    expectPoints("k_1.odf", {{10, 1}, {11, 2}, {12, 3}, {13, 4}});
    expectPoints("k_2.odf", {{5, 50}, {6, 60}});
    EXPECT_FALSE(written("k.odf"));
    EXPECT_EQ(output("k.hdrx"), "##TITLE=link\r\n##JCAMP-DX=4.24\r\n##DATA TYPE=LINK\r\n##BLOCKS=2\r\n"
                                "##TITLE=first\r\n##BLOCK_ID=1\r\n##FIRSTX=10\r\n##LASTX=13\r\n##NPOINTS=4\r\n"
                                "##XYDATA=(X++(Y..Y))\r\nWritten to " + dir.file("k_1.odf") + ": 4 points\r\n##END=\r\n"
                                "##TITLE=second\r\n##BLOCK_ID=2\r\n##NPOINTS=2\r\n##PEAK TABLE=(XY..XY)\r\n"
                                "Written to " + dir.file("k_2.odf") + ": 2 points\r\n##END=\r\n##END=\r\n");
    // The report and the plot show the first.
    EXPECT_EQ(host.statuses.at(0).first, dir.file("k_1.odf") + " done");
    ASSERT_EQ(host.plots.size(), 1u);
    EXPECT_EQ(host.plots[0].name, dir.file("k_1.odf"));
}

// An NMR NTUPLES of 8 points, X in Hz from 4000 down to 500 (data-line X
// times 0.5), the real page Y times 2, the imaginary times 3.
std::string ntuples(const std::string& realLines, const std::string& imaginaryLines,
                    const std::string& imaginaryLabels = "") {
    return "##TITLE=nmr\r\n##JCAMP-DX=5.01\r\n##DATA TYPE=NMR SPECTRUM\r\n##DATA CLASS=NTUPLES\r\n"
           "##.OBSERVE FREQUENCY=400.13\r\n##NTUPLES=NMR SPECTRUM\r\n"
           "##VAR_NAME=FREQUENCY, SPECTRUM/REAL, SPECTRUM/IMAG, PAGE NUMBER\r\n##SYMBOL=X, R, I, N\r\n"
           "##VAR_DIM=8, 8, 8, 2\r\n##UNITS=HZ, ARBITRARY UNITS, ARBITRARY UNITS,\r\n"
           "##FIRST=4000, 0, 0, 1\r\n##LAST=500, 0, 0, 2\r\n##FACTOR=0.5, 2, 3, 1\r\n"
           "##PAGE=N=1\r\n##DATA TABLE=(X++(R..R)), XYDATA\r\n" + realLines +
           "##PAGE=N=2\r\n" + imaginaryLabels + "##DATA TABLE=(X++(I..I)), XYDATA\r\n" + imaginaryLines + "##END NTUPLES=NMR SPECTRUM\r\n##END=\r\n";
}

TEST_F(ModernJcampTest, NtuplesPagesKeepXInTheFilesUnit) {
    // jcampconverter 12.5.3 gives these Y; its X is in ppm (Hz over the
    // observe frequency, 400.13): X here stays in Hz, as the file has it.
    convert("n.jdx", ntuples("8000@A1B2C3\r\n4000D4E5F6G7\r\n", "8000a1J%jT\r\n4000a2J%J\r\n"));
    const double r[] = {0, 22, 44, 66, 88, 110, 132, 154}, i[] = {-33, -30, -30, -33, -36, -33, -33, -30};
    std::vector<std::pair<double, double>> real, imaginary;
    for (int k = 0; k < 8; ++k) {
        real.emplace_back(4000 - 500 * k, r[k]);
        imaginary.emplace_back(4000 - 500 * k, i[k]);
    }
    expectPoints("n_1.odf", real);
    expectPoints("n_2.odf", imaginary);

    // Pages with their variables but no ##NTUPLES= before them, as some
    // programs write them: jcampconverter 12.5.3 gives the same two pages.
    convert("p.jdx", "##TITLE=re im\r\n##SYMBOL=X, R, I, N\r\n##VAR_DIM=3, 3, 3, 2\r\n##FIRST=1, 0, 0, 1\r\n"
                     "##LAST=3, 0, 0, 2\r\n##PAGE= N=1\r\n##DATA TABLE=(X++(R..R)), XYDATA\r\n1 2 3 4\r\n"
                     "##PAGE= N=2\r\n##DATA TABLE=(X++(I..I)), XYDATA\r\n1 3 4 5\r\n##END=\r\n");
    expectPoints("p_1.odf", {{1, 2}, {2, 3}, {3, 4}});
    expectPoints("p_2.odf", {{1, 3}, {2, 4}, {3, 5}});
    EXPECT_TRUE(host.boxes.empty()) << message();
}

TEST_F(ModernJcampTest, NamesFollowTheExtensionNotAFolder) {
    std::filesystem::create_directory(dir.file("run.1"));
    const std::string path = dir.file("run.1/s.jdx");
    testing::writeFile(path, block("##FIRSTX=1\r\n##LASTX=2\r\n", "##XYDATA=(X++(Y..Y))", "1 5 6\r\n"));
    form.addToQueue("s.jdx", path);
    // Not through run(): its LF-only twin would sit in a folder without the dot.
    EXPECT_EQ(RunCode_Click(form), RunOutcome::Finished);
    expectPoints("run.1/s.odf", {{1, 5}, {2, 6}});
    EXPECT_TRUE(written("run.1/s.hdrx"));
    EXPECT_FALSE(written("run.odf"));
}

// ---- damaged files ----

TEST_F(ModernJcampTest, DamagedTablesNameTheirProblem) {
    const std::string even = "##XYDATA=(X++(Y..Y))";
    const std::string range = "##FIRSTX=0\r\n##LASTX=3\r\n";
    struct Bad {
        const char* what;
        std::string bytes;
        std::string message;
    };
    const Bad bad[] = {
        {"label without value", block("##FIRSTX=\r\n##LASTX=3\r\n", even, "0 1 2 3 4\r\n"), "##FIRSTX= has no number"},
        {"needed label missing", block("##LASTX=3\r\n", even, "0 1 2 3 4\r\n"), "no ##FIRSTX= for the table"},
        {"fewer points than NPOINTS", block(range + "##NPOINTS=5\r\n", even, "0 1 2 3 4\r\n"),
         "##NPOINTS= gives 5 points, the data hold 4"},
        {"more points than NPOINTS", block(range + "##NPOINTS=3\r\n", even, "0 1 2 3 4\r\n"),
         "line 7: more points than ##NPOINTS= gives (3)"},
        {"DIF check fails", block(range, even, "0A1J\r\n1B3J\r\n"),
         "line 7: the Y check value 23 is not the value before it (12)"},
        {"line X off by a point", block(range, even, "0 1 2\r\n3 3 4\r\n"),
         "line 7: X is 3, but point 3 lies at 2 by FIRSTX, LASTX and the point count"},
        {"endless DUP", block(range, even, "0A1S9999999999999999999999\r\n"),
         "line 6: more points than a file of this size can hold"},
        {"endless DUP, a count declared", block(range + "##NPOINTS=1E15\r\n", even, "0A1S99999999999999\r\n"),
         "line 7: more points than a file of this size can hold"},
        {"DUP of nothing", block(range, even, "0S3\r\n"), "line 6: a repeat count (DUP) with no value before it"},
        {"no number character", block(range, even, "0 1 #\r\n"), "line 6: \"#\" is no JCAMP-DX number character"},
        {"table form unknown", block("", "##XYDATA=(XYZ)", "1 2\r\n"),
         "##XYDATA=(XYZ) is a table form this reader does not take"},
        {"table without its form", block("", "##PEAK TABLE=", "1 2\r\n"), "##PEAK TABLE= names no table form"},
        {"group cut short", block("", "##XYPOINTS=(XY..XY)", "1,2 3\r\n"), "the table ends inside a group of 2 values"},
        {"no data table", "##TITLE=t\r\n##JCAMP-DX=4.24\r\n##END=\r\n",
         "no data table (##XYDATA=, ##XYPOINTS=, ##PEAK TABLE= or ##DATA TABLE=) in this file"},
        {"NTUPLES pages of different lengths", ntuples("8000@A1B2C3\r\n4000D4E5F6G7\r\n", "8000a1J%jT\r\n", "##NPOINTS=5\r\n"),
         "table 2 (line 20): NTUPLES page 2 holds 5 points, the first one 8: the pages differ in length"},
    };
    form.boxes.DsGr = true;
    for (const Bad& b : bad) {
        // A good file before and after: the one before stays, the one after converts.
        queue("before.jdx", block(range, even, "0 1 2 3 4\r\n"));
        queue("bad.jdx", b.bytes);
        queue("after.jdx", block(range, even, "0 1 2 3 4\r\n"));
        EXPECT_EQ(run(), RunOutcome::Finished) << b.what;
        EXPECT_EQ(message(), "bad.jdx: " + b.message) << b.what;
        EXPECT_TRUE(written("before.odf") && written("after.odf")) << b.what;
        EXPECT_NE(output("bad.hdrx").find("Problem: " + b.message + "\r\n"), std::string::npos) << b.what;
        std::filesystem::remove(dir.file("before.odf"));
        std::filesystem::remove(dir.file("after.odf"));
        host.boxes.clear();
    }
    // The NTUPLES page that did come whole is kept; nothing else was written.
    EXPECT_TRUE(written("bad_1.odf"));
    EXPECT_FALSE(written("bad.odf") || written("bad_2.odf"));
}

TEST_F(ModernJcampTest, ABlockWithoutEndKeepsItsData) {
    convert("c.jdx", "##TITLE=cut\r\n##FIRSTX=0\r\n##LASTX=1\r\n##XYDATA=(X++(Y..Y))\r\n0 7 8\r\n");
    expectPoints("c.odf", {{0, 7}, {1, 8}});
    EXPECT_EQ(message(), "c.jdx: the block \"cut\" from line 1 has no ##END=");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::Exclamation);
}

TEST_F(ModernJcampTest, UntickedTheClassicReaderStays) {
    form.boxes.ModernRead = false;
    convert("u.jdx", block("", "##XYPOINTS=(XY..XY)", "1,2\r\n"));
    EXPECT_EQ(message(), "Data is not bivariate (e.g. a table). Conversion not possible!");
    EXPECT_FALSE(written("u.odf"));
}

}  // namespace
}  // namespace kestro
