// The modern GAML, SPA and SPC readers ("Modern readers" ticked): every real
// sample gives the data it holds, and crafted files cover the layouts no
// sample has.
#include <cmath>
#include <sstream>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;

class ModernAnalyticalTest : public testing::ConversionTest {
protected:
    ModernAnalyticalTest() { form.boxes.ModernRead = true; }

    // Converts one input, which is to finish.
    void convertModern(const std::string& name, const std::string& bytes) {
        EXPECT_EQ(convert(name, bytes), RunOutcome::Finished) << name;
    }
};

// The two columns of an ".odf", whichever separator its layout uses.
struct Points {
    std::vector<double> x, y;
    double ySum() const {
        double s = 0;
        for (double v : y) s += v;
        return s;
    }
};

Points readPoints(std::string text) {
    for (char& c : text)
        if (c == ',') c = ' ';
    std::istringstream in(text);
    Points p;
    double x, y;
    while (in >> x >> y) {
        p.x.push_back(x);
        p.y.push_back(y);
    }
    return p;
}

// What one ".odf" is to hold. The outputs keep 7 significant digits for
// singles, hence the relative tolerance.
struct Expected {
    const char* odf;
    size_t points;
    double firstX, lastX;
    std::vector<std::pair<size_t, double>> ys;  // point index from 0, value
    double ySum;
};

void expectPoints(const Points& p, const Expected& e) {
    const auto near = [](double actual, double expected) {
        EXPECT_NEAR(actual, expected, 1e-6 * std::max(1.0, std::fabs(expected)));
    };
    ASSERT_EQ(p.y.size(), e.points) << e.odf;
    near(p.x.front(), e.firstX);
    near(p.x.back(), e.lastX);
    for (auto [i, y] : e.ys) near(p.y.at(i), y);
    EXPECT_NEAR(p.ySum(), e.ySum, 1e-6 * std::fabs(e.ySum) + 1e-6) << e.odf;
}

struct Sample {
    const char* path;  // under the samples folder
    std::vector<Expected> outputs;
};

// Every value here was decoded independently of Kestro, with Python's struct
// and base64 modules, from the layouts the readers' own comments name:
// GAML: every <values> element's base64 decoded as FLOAT32/FLOAT64;
// SPA: the type-3 block of the directory at 304 (16-byte entries, count at
// 294), X from the type-2 header block (count +4, first X +16, last X +20);
// SPC: the 512-byte header, X array or evenly spaced X, Y after the 32-byte
// sub-header as int32 x 2^(exponent-32) or as singles (exponent 80h). The
// SPC values agree to the last digit with what spc-parser (npm) reads.
const std::vector<Sample> RealSamples = {
    {"gaml/TN_OMNIC_FTIR.gaml",
     {{"TN_OMNIC_FTIR.odf", 1868, 3999.703125, 399.2538146972656,
       {{0, 0.07696206122636795}, {100, 0.0654013603925705}, {1867, 0.03650220111012459}}, 369.18841537833214}}},
    // One CR alone in a parameter, and a one-value <values> of the trace's
    // coordinates before the Xdata: neither is data.
    {"gaml/TS_AB2_FLSCAN.gaml",
     {{"TS_AB2_FLSCAN.odf", 301, 375, 675, {{0, 0.28384724259376526}, {100, 40.60141372680664}}, 4629.352924592793}}},
    // Two traces; the first trace's Y is FLOAT64.
    {"gaml/TS_Helios.gaml",
     {{"TS_Helios_1.odf", 201, 400, 600, {{0, 0.04075202421142832}, {100, 0.03728791109050511}}, 25.12491161023054},
      {"TS_Helios_2.odf", 201, 400, 600, {{0, 91.04329681396484}, {100, 91.77239990234375}}, 16140.623889923096}}},
    {"spa/7_CZ0-100_Pd_101.SPA",
     {{"7_CZ0-100_Pd_101.odf", 5549, 5999.71337890625, 649.9207153320312,
       {{0, 1.5435667037963867}, {100, 1.5009969472885132}, {1000, 1.1174737215042114}}, 4722.647387549281}}},
    // Its only signature lies one byte before the data: the directory is right.
    {"spa/2-BaSO4_0.SPA",
     {{"2-BaSO4_0.odf", 11098, 6000.041015625, 649.9039916992188,
       {{0, 2.281536340713501}, {100, 2.5823230743408203}, {1000, 2.439833164215088}}, 25228.12563198805}}},
    // Interferogram only: X runs over the point index.
    {"spa/interfero.SPA",
     {{"interfero.odf", 4160, 0, 4159,
       {{0, 0.03414197638630867}, {100, -0.00030709232669323683}, {1000, 0.0009591921116225421}},
       1.1902227176531142}}},
    // Date word 0.
    {"spc/s_evenx.spc",
     {{"s_evenx.odf", 1844, 447.48406982421875, 4002.28173828125,
       {{0, 0.008050619624555111}, {100, -0.004553771112114191}, {1843, 0.005854657851159573}}, 23.572040791623294}}},
    // One X array, integer Y with exponent 21.
    {"spc/s_xy.spc",
     {{"s_xy.odf", 512, 1.0866667032241821, 6.017166614532471, {{0, 45333}, {100, 33366}, {511, 22761}}, 30065112}}},
    // One X array, float Y.
    {"spc/BC408_5mmHorizontal.spc",
     {{"BC408_5mmHorizontal.odf", 1024, 400.6195068359375, 538.01220703125, {{0, 7313}, {100, 108891}, {1023, 9764}},
       48102512}}},
};

TEST_F(ModernAnalyticalTest, EveryRealSampleGivesItsData) {
    for (const Sample& s : RealSamples) {
        const std::string name = std::filesystem::path(s.path).filename().string();
        queue(name, readFile(std::string(KESTRO_SAMPLES_DIR "/") + s.path));
    }
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_TRUE(host.boxes.empty()) << message();
    for (const Sample& s : RealSamples)
        for (const Expected& e : s.outputs) expectPoints(readPoints(output(e.odf)), e);
    // Headers list what the files say.
    EXPECT_NE(output("2-BaSO4_0.hdr").find("1st_Y sp_data at byte : 1181 \r\n"), std::string::npos);
    EXPECT_NE(output("s_xy.hdr").find("Decompressed date is  : 09Jan1986, Time (hh:mm): 08:47\r\n"), std::string::npos);
    EXPECT_NE(output("s_evenx.hdr").find("Decompressed date is  : none\r\n"), std::string::npos);
    EXPECT_NE(output("TS_Helios.hdr").find("number of Y points  201 \r\nWritten to " + dir.file("TS_Helios_2.odf")),
              std::string::npos);
}

TEST_F(ModernAnalyticalTest, ShimadzuSpcIsNotGalactic) {
    form.boxes.DsGr = true;
    convertModern("UV.spc", readFile(KESTRO_SAMPLES_DIR "/spc/Shimadzu UV-Vis.spc"));
    EXPECT_EQ(message(),
              "Not a Galactic SPC file: this is a compound document, as Shimadzu UVProbe writes. "
              "Choose the Shimadzu SPC format for it. Conversion aborted!");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::Critical);
    EXPECT_FALSE(written("UV.odf"));
    EXPECT_FALSE(form.boxes.DsGr);  // nothing to plot
    EXPECT_EQ(output("UV.hdr"), message() + "\r\n");
}

// ---- SPC layouts no sample has ----

// A 512-byte main header.
BinaryBuilder spcHeader(uint8_t flags, int8_t exponent, int32_t points, double firstX, double lastX,
                        int32_t subfiles = 1) {
    BinaryBuilder b;
    b.u8(flags).u8(0x4B).u8(0).u8(static_cast<uint8_t>(exponent)).i32(points).f64(firstX).f64(lastX).i32(subfiles);
    b.padTo(512);
    return b;
}

// A 32-byte sub-header.
void subheader(BinaryBuilder& b, int8_t exponent, uint32_t points = 0) {
    const size_t at = b.size();
    b.u8(0).u8(static_cast<uint8_t>(exponent)).padTo(at + 16).u32(points).padTo(at + 32);
}

std::string line(const std::string& x, const std::string& y) { return x + std::string(19 - x.size(), ' ') + y + "\r\n"; }

TEST_F(ModernAnalyticalTest, SpcMultiFileGivesOneOdfPerSubfile) {
    // Evenly spaced X shared by every sub-file; each its own exponent.
    BinaryBuilder b = spcHeader(0x04, 0, 3, 100, 300, 2);
    subheader(b, 32);
    b.i32(1).i32(2).i32(3);
    subheader(b, 31);  // halves
    b.i32(10).i32(-20).i32(7);
    form.boxes.DsGr = true;
    convertModern("m.spc", b.bytes());
    EXPECT_EQ(output("m_1.odf"), line(" 100", " 1") + line(" 200", " 2") + line(" 300", " 3"));
    EXPECT_EQ(output("m_2.odf"), line(" 100", " 5") + line(" 200", "-10") + line(" 300", " 3.5"));
    EXPECT_FALSE(written("m.odf"));
    EXPECT_NE(output("m.hdr").find("File has multiple measurements\r\nFile is one-X set, multiple-Y\r\n"),
              std::string::npos);
    // The report and the plot show the first sub-file.
    EXPECT_EQ(host.statuses.at(0).first, dir.file("m_1.odf") + " done");
    ASSERT_EQ(host.plots.size(), 1u);
    EXPECT_EQ(host.plots[0].name, dir.file("m_1.odf"));
}

TEST_F(ModernAnalyticalTest, SpcXyMultiFileAndItsDirectory) {
    // Each sub-file its own X array and point count; float and integer Y.
    BinaryBuilder b = spcHeader(0xC4, 0, 0, 0, 0, 2);
    subheader(b, -128, 2);
    b.f32(1.5f).f32(2.5f).f32(10).f32(20);
    subheader(b, 32, 1);
    b.f32(7).i32(42);
    convertModern("xy.spc", b.bytes());
    EXPECT_EQ(output("xy_1.odf"), line(" 1.5", " 10") + line(" 2.5", " 20"));
    EXPECT_EQ(output("xy_2.odf"), line(" 7", " 42"));

    // The same sub-files listed in a directory at the end (its offset in the
    // point count), in the opposite order of the bytes: file order is the
    // directory's, and a sub-file before the one read last is not read again.
    const std::string first = b.bytes().substr(512, 32 + 16), second = b.bytes().substr(512 + 48);
    BinaryBuilder d = spcHeader(0xC4, 0, 512 + 48 + 40, 0, 0, 2);
    d.text(first).text(second).i32(512 + 48).i32(40).f32(0).i32(512).i32(48).f32(0);
    convertModern("dir.spc", d.bytes());
    EXPECT_EQ(output("dir.odf"), line(" 7", " 42"));
}

TEST_F(ModernAnalyticalTest, SpcSixteenBitAndOldLayouts) {
    // 16-bit integers, exponent 15: each value halved.
    BinaryBuilder b = spcHeader(0x01, 15, 3, 1, 3);
    subheader(b, 0);
    b.i16(1).i16(-2).i16(300);
    convertModern("short.spc", b.bytes());
    EXPECT_EQ(output("short.odf"), line(" 1", " 0.5") + line(" 2", "-1") + line(" 3", " 150"));
    EXPECT_NE(output("short.hdr").find("Y data with 16-bit precision\r\n"), std::string::npos);

    // The old layout: 256-byte header ending in the first sub-header, point
    // count and X range as singles, 32-bit integers high word first.
    BinaryBuilder old;
    old.u8(0).u8(0x4D).i16(32).f32(2).f32(10).f32(20).padTo(20).u8(3).u8(5).u8(14).u8(7).padTo(256);
    old.u16(0).u16(5).u16(0xFFFE).u16(0xEE90);  // 5 and -70000
    convertModern("old.spc", old.bytes());
    EXPECT_EQ(output("old.odf"), line(" 10", " 5") + line(" 20", "-70000"));
    EXPECT_NE(output("old.hdr").find("Decompressed date is  : 05Mar0, Time (hh:mm): 14:07\r\n"), std::string::npos);
}

TEST_F(ModernAnalyticalTest, SpcRefusals) {
    const struct {
        std::string bytes;
        const char* message;
    } cases[] = {
        {spcHeader(0, 0, 100, 1, 2).bytes() + std::string(32 + 396, '\0'),  // one value short
         "No complete spectrum in this SPC file. Conversion aborted!"},
        {std::string("\x00\x4C", 2) + std::string(600, '\0'),
         "Galactic SPC file with its numbers high byte first: not readable. Conversion aborted!"},
        {"MZ\x90", "Not a Galactic SPC file (version byte 5A). Conversion aborted!"},
    };
    for (const auto& c : cases) {
        convertModern("bad.spc", c.bytes);
        EXPECT_EQ(message(), c.message);
        EXPECT_FALSE(written("bad.odf"));
        EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(3));
    }
}

// ---- GAML layouts no sample has ----

TEST_F(ModernAnalyticalTest, GamlFloat64ByteOrdersAndLineEnds) {
    // CR-only line ends, base64 broken over lines and indented, FLOAT64 X,
    // two Ydata sharing one Xdata, the second big-endian.
    const std::string gaml =
        "<?xml version=\"1.0\"?>\r<GAML version=\"1.20\">\r<experiment><trace name=\"t\">\r"
        "<coordinates><values format=\"FLOAT32\">AADgQAAAAEEAABBB</values></coordinates>\r"
        "<Xdata><!-- <values format=\"FLOAT32\">AADgQA==</values> -->\r"
        "  <values byteorder=\"INTEL\" format=\"FLOAT64\" numvalues=\"2\">AAAAAAAA\r    9D8AAAAAAAAEQA==\r  </values>\r"
        "  <Ydata><values format='FLOAT64'>mpmZmZmZuT8AAAAAAAAIwA==</values></Ydata>\r"
        "  <Ydata label=\"a>b\"><parameter name=\"p\"/><values byteorder=\"MOTOROLA\" format=\"FLOAT32\">"
        "P8AAAEAAAAA=</values></Ydata>\r"
        "</Xdata></trace></experiment></GAML>\r";
    convertModern("f.gaml", gaml);
    EXPECT_EQ(output("f_1.odf"), "1.25,0.1\r\n2.5,-3\r\n");
    EXPECT_EQ(output("f_2.odf"), "1.25,1.5\r\n2.5,2\r\n");
    const std::string hdr = output("f.hdr");
    EXPECT_EQ(hdr.substr(0, hdr.find(" read on the ")), "header file for " + dir.file("f.gaml"));
    EXPECT_NE(hdr.find("\r\n<GAML version=\"1.20\">\r\n<trace name=\"t\">\r\n<Xdata>\r\n"
                       "<values byteorder=\"INTEL\" format=\"FLOAT64\" numvalues=\"2\">\r\n"
                       "Length of decoded string 16; number of X points  2 \r\n"),
              std::string::npos);
}

TEST_F(ModernAnalyticalTest, GamlRefusals) {
    convertModern("x.gaml", "<?xml version=\"1.0\"?>\n<spectrum/>\n");
    EXPECT_EQ(message(), "Not a GAML type file. Conversion aborted!");
    // Y values in a format GAML numbers are not stored in are no data; nor
    // are Y values whose own Xdata has no X values (not even an earlier one's).
    convertModern("y.gaml", "<GAML><Xdata><values format=\"FLOAT32\">AADgQA==</values>"
                            "<Ydata><values format=\"TEXT\">abc</values></Ydata></Xdata>"
                            "<Xdata><Ydata><values format=\"FLOAT32\">AADgQA==</values></Ydata></Xdata></GAML>");
    EXPECT_EQ(message(), "No Y data found. Conversion aborted!");
    EXPECT_FALSE(written("x.odf") || written("y.odf"));
}

// ---- SPA layouts no sample has ----

// A directory of the given blocks (type, offset, size), a spectrum header
// block at 400, and the data at 440.
std::string spa(std::initializer_list<std::tuple<uint8_t, uint32_t, uint32_t>> blocks, uint32_t points, float firstX,
                float lastX, std::initializer_list<float> ys) {
    BinaryBuilder b;
    b.text("Spectral Data File").padTo(30).text("crafted").padTo(294).u16(static_cast<uint16_t>(blocks.size()));
    b.padTo(304);
    for (auto [type, offset, size] : blocks) b.u8(type).u8(0).u32(offset).u32(size).padTo(b.size() + 6);
    b.padTo(404).u32(points).padTo(416).f32(firstX).f32(lastX).padTo(440);
    for (float y : ys) b.f32(y);
    return b.bytes();
}

TEST_F(ModernAnalyticalTest, SpaBlocksFoundThroughTheDirectory) {
    // The header's count, but no more values than the block holds; X step
    // from the header's count.
    convertModern("short.spa", spa({{2, 400, 40}, {3, 440, 8}}, 5, 10, 50, {1, -2}));
    EXPECT_EQ(output("short.odf"), "10," + std::string(16, ' ') + "1\r\n20," + std::string(16, ' ') + "-2\r\n");

    // Only a sample interferogram: its points by index. A block running past
    // the end of the file is not taken.
    convertModern("ifg.spa", spa({{2, 400, 40}, {3, 440, 4000}, {102, 440, 12}}, 99, 7, 8, {1.5f, 2, 3}));
    EXPECT_EQ(output("ifg.odf"), "0," + std::string(17, ' ') + "1.5\r\n1," + std::string(17, ' ') + "2\r\n2," +
                                     std::string(17, ' ') + "3\r\n");
    EXPECT_NE(output("ifg.hdr").find("Interferogram only: X is the point index\r\n"), std::string::npos);

    // An X text that reaches column 20 puts Y on the next line.
    convertModern("long.spa", spa({{2, 400, 40}, {3, 440, 4}}, 1, -1.5e-6f, 0, {2}));
    EXPECT_EQ(output("long.odf"), "-1.50000005305628E-06,\r\n" + std::string(19, ' ') + "2\r\n");

    form.boxes.DsGr = true;
    convertModern("none.spa", spa({{2, 400, 40}}, 1, 0, 0, {}));
    EXPECT_EQ(message(), "No spectrum found in the directory of this SPA file. Conversion aborted!");
    EXPECT_FALSE(written("none.odf"));
    EXPECT_FALSE(form.boxes.DsGr);
}

}  // namespace
}  // namespace kestro
