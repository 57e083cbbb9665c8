// The Bruker SPX and generic XML readers through the driver: crafted files
// compared byte for byte, and the real SPX files as they are and with CR LF
// line ends.
#include <sstream>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::failureBox;
using testing::readFile;
using XmlReadersTest = testing::ConversionTest;

std::string spxWithChannels(const std::string& times, const std::string& channels) {
    return "<?xml version=\"1.0\"?>\r\n" + times + channels + "</ClassInstance>\r\n";
}

TEST_F(XmlReadersTest, SpxBecomesSpeWithItsHeaderValues) {
    const std::string spx =
        "<?xml version=\"1.0\"?>\r\n<ClassInstance Type=\"XXXSpectrum\" Name=\"Sample 7\">\r\n"
        "    <RealTime>1234</RealTime>\r\n"  // indented: the text taken runs into the closing tag
        "<LifeTime>1200</LifeTime>\r\n<Date>15.11.2019</Date>\r\n<Time>9:05:03</Time>\r\n"
        "<ChannelCount>10</ChannelCount>\r\n<CalibAbs>-0.5</CalibAbs>\r\n<CalibLin>1E-2</CalibLin>\r\n"
        "<Channels>1,2,3,4,5,6,7,8,123456789,-10</Channels>\r\n<RealTime>99</RealTime>\r\n";
    EXPECT_EQ(converted("a.spx", spx, "a.spe", true),
              "$SPEC_ID:\r\nSample 7\r\n$DATE_MEA:\r\n15-11-2019  09:05:03\r\n$MEAS_TIM:\r\n      1200      1234\r\n"
              "$DATA:\r\n         0         9\r\n"
              "       1       2       3       4       5       6       7       8\r\n 123456789     -10");
    EXPECT_EQ(form.sharedRealTime.toNumber(), 1234);
    EXPECT_EQ(form.CalibOff, -0.5);
    EXPECT_EQ(form.CalibLin, 0.01);
    // The driver reads the SPE back after its 8 header lines.
    EXPECT_EQ(form.valueCount, 10);
    const std::string odf = output("a.odf"), tail = " 8  123456789 \r\n 9 -10 \r\n";
    EXPECT_EQ(odf.substr(odf.size() - tail.size()), tail);
    EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(2));
}

TEST_F(XmlReadersTest, SpxSpoAndDatOutputs) {
    // A list over several lines drops a field before every value.
    const std::string list = "<Channels>9\r\n10,11,12,13,14,15\r\n";
    EXPECT_EQ(converted("b.spx", spxWithChannels("<ChannelCount>3</ChannelCount>\r\n", list), "b.spo", false, true),
              " 3            0\r\n      10      12      14");

    // DAT output carries the times in its first two fields. The patched text is
    // one character short of the field: "30" over "     150" leaves "     300".
    const std::string times = "<LifeTime>30</LifeTime>\r\n<RealTime>45</RealTime>\r\n"
                              "<ChannelCount>3</ChannelCount>\r\n";
    EXPECT_EQ(converted("c.spx", spxWithChannels(times, "<Channels>150,7,8</Channels>\r\n"), "c.dat"),
              "     300     457       8");
    // A live time of 8 characters leaves the real time unpadded as well.
    const std::string longer = "<LifeTime>1234567</LifeTime>\r\n<RealTime>45</RealTime>\r\n"
                               "<ChannelCount>2</ChannelCount>\r\n";
    EXPECT_EQ(converted("d.spx", spxWithChannels(longer, "<Channels>150,7</Channels>\r\n"), "d.dat"),
              "1234567045     7");
}

TEST_F(XmlReadersTest, FailuresEndTheRunAndLeaveTheFilesOpen) {
    expectFailures("bad.spx", {
        {"live time too long to pad",
         spxWithChannels("<LifeTime>123456789</LifeTime>\r\n<ChannelCount>1</ChannelCount>\r\n",
                         "<Channels>1</Channels>\r\n"),
         "Error 5 Invalid procedure call or argument", 2},
        {"element shorter than its fixed length", "<RealTime>5\r\n<Channels>\r\n",
         "Error 5 Invalid procedure call or argument", 2, true},
        {"count beyond 32 bits", spxWithChannels("<ChannelCount>1</ChannelCount>\r\n", "<Channels>3e10</Channels>\r\n"),
         "Error 6 Overflow", 2, true},
        {"fewer values than channels", spxWithChannels("<ChannelCount>4</ChannelCount>\r\n", "<Channels>1,2\r\n"),
         "Error 62 Input past end of file", 2, true},
    });
    expectFailures("bad.xml", {
        {"short element", "<DataBlock>\r\n<Data>\r\n<X>\r\n<Y>2</Y>\r\n</Data>\r\n",
         "Error 5 Invalid procedure call or argument", 2},
        {"early end", "<DataBlock>\r\n<Data>\r\n<X>1</X>\r\n", "Error 62 Input past end of file", 2},
    });

    // Both boxes ticked: no output extension, and no output file.
    EXPECT_EQ(convert("both.spx", "<Channels>\r\n", true, true), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), failureBox("Error 9 Subscript out of range"));
    EXPECT_FALSE(written("both.spe") || written("both.spo") || written("both.dat"));
}

TEST_F(XmlReadersTest, GenericXmlDataGroupsBecomeXYLines) {
    queue("g.xml",
          "<?xml version=\"1.0\"?>\r\n<Root>\r\n  <Data>\r\n<X>0</X>\r\n<Y>0</Y>\r\n</Data>\r\n"
          "  <DataBlock>\r\n"
          "    <Data>\r\n      <X>1.5</X>\r\n      <Y>20</Y>\r\n    </Data>\r\n"
          "    <Data>,<X>2.5e1</X>,<Y>-3</Y>,</Data>\r\n"
          "    <Note>skipped</Note>\r\n"
          "    <Data>\r\n<x>a b</x>\r\n<y>  </y>\r\n</Data>\r\n"
          "  </DataBlock>\r\n"
          "  <Data>\r\n<X>9</X>\r\n<Y>9</Y>\r\n</Data>\r\n");
    tick(true, false);  // the boxes make no difference here
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("g.odf"), "1.5 20\r\n2.5e1 -3\r\na b   \r\n");
    EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(2));

    queue("none.xml", "<Root>\r\n<Data>\r\n<X>1</X>\r\n<Y>2</Y>\r\n</Data>\r\n</Root>\r\n");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("none.odf"), "");
}

TEST_F(XmlReadersTest, RealSpxFilesConvert) {
    // What each file's own elements hold (<RealTime>, <LifeTime>, <Date>,
    // <Time>, read in the file), and its channel count from SOURCES.md, which
    // the test checks against the file's <Channels> list.
    const struct { const char* stem; const char* realTime; size_t channels; const char* header; } samples[] = {
        {"bruker_nano", "      7575", 4096, "02-03-2018  13:53:04\r\n$MEAS_TIM:\r\n      7385      7575\r\n$DATA:\r\n"
                                             "         0      4095"},
        {"extracted_from_bcf", "        40", 1548, "04-03-2018  10:06:04\r\n$MEAS_TIM:\r\n        25        40\r\n"
                                                   "$DATA:\r\n         0      1547"},
        {"bruker_m6_jetstream_file_example", "     30000", 4096,
         "23-03-2021  10:57:41\r\n$MEAS_TIM:\r\n     28046     30000\r\n$DATA:\r\n         0      4095"},
    };
    for (const auto& s : samples) {
        const std::string stem = s.stem, lf = readFile(KESTRO_SAMPLES_DIR "/spx/" + stem + ".spx");
        ASSERT_EQ(lf.find('\r'), std::string::npos) << stem;

        // These files end their lines with LF alone, and read as their CR LF
        // twins: the indented elements give their values and the whole list
        // on the <Channels> line is read.
        std::string odf;
        const size_t list = lf.find("<Channels>") + 10;
        std::istringstream counts(lf.substr(list, lf.find("</Channels>", list) - list));
        size_t channels = 0;
        for (std::string count; std::getline(counts, count, ',');)
            odf += " " + std::to_string(channels++) + "  " + count + " \r\n";
        ASSERT_EQ(channels, s.channels) << stem;
        const std::string spe = converted(stem + ".spx", lf, stem + ".spe", true);
        EXPECT_NE(spe.find("\r\n$DATE_MEA:\r\n" + std::string(s.header) + "\r\n"), std::string::npos) << stem;
        EXPECT_EQ(form.valueCount, static_cast<int64_t>(channels)) << stem;
        EXPECT_EQ(form.sharedRealTime.toNumber(), std::stoi(s.realTime)) << stem;
        EXPECT_EQ(output(stem + ".odf"), odf) << stem;
        EXPECT_EQ(converted("twin.spx", crLfTwin(lf), "twin.spe", true), spe) << stem;
    }
}

}  // namespace
}  // namespace kestro
