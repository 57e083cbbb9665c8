// The Bruker SPX and generic XML readers through the driver: crafted files
// compared byte for byte, and the real SPX files as they are and with CR LF
// line ends.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <vector>

#include "ScriptedHost.h"
#include "TestFiles.h"
#include "core/Driver.h"
#include "core/FormatTable.h"
#include "core/Session.h"

namespace kestro {
namespace {

using testing::exists;
using testing::readFile;
using testing::writeFile;

class XmlReadersTest : public ::testing::Test {
protected:
    XmlReadersTest() : form(host) { formLoad(form); }

    std::string queue(const std::string& name, const std::string& bytes) {
        std::string path = dir.file(name);
        writeFile(path, bytes);
        form.addToQueue(name, path);
        return path;
    }
    void tick(bool spe, bool spo) {
        form.boxes.SPE = spe;
        form.boxes.SPO = spo;
    }
    RunOutcome run() { return RunCode_Click(form); }
    std::string lastBox() const { return host.boxes.empty() ? std::string() : host.boxes.back().text; }

    testing::TempDir dir;
    testing::ScriptedHost host;
    Session form;
};

std::string spxWithChannels(const std::string& times, const std::string& channels) {
    return "<?xml version=\"1.0\"?>\r\n" + times + channels + "</ClassInstance>\r\n";
}

TEST_F(XmlReadersTest, SpxBecomesSpeWithItsHeaderValues) {
    queue("a.spx",
          "<?xml version=\"1.0\"?>\r\n"
          "<ClassInstance Type=\"XXXSpectrum\" Name=\"Sample 7\">\r\n"
          "    <RealTime>1234</RealTime>\r\n"  // indented: the text taken runs into the closing tag
          "<LifeTime>1200</LifeTime>\r\n"
          "<Date>15.11.2019</Date>\r\n"
          "<Time>9:05:03</Time>\r\n"
          "<ChannelCount>10</ChannelCount>\r\n"
          "<CalibAbs>-0.5</CalibAbs>\r\n"
          "<CalibLin>1E-2</CalibLin>\r\n"
          "<Channels>1,2,3,4,5,6,7,8,123456789,-10</Channels>\r\n"
          "<RealTime>99</RealTime>\r\n");
    tick(true, false);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("a.spe")),
              "$SPEC_ID:\r\nSample 7\r\n$DATE_MEA:\r\n15-11-2019  09:05:03\r\n$MEAS_TIM:\r\n      1200      1234\r\n"
              "$DATA:\r\n         0         9\r\n"
              "       1       2       3       4       5       6       7       8\r\n 123456789     -10");
    EXPECT_EQ(form.sharedRealTime.toNumber(), 1234);
    EXPECT_EQ(form.CalibOff, -0.5);
    EXPECT_EQ(form.CalibLin, 0.01);
    // The driver reads the SPE back after its 8 header lines.
    EXPECT_EQ(form.valueCount, 10);
    std::string odf = readFile(dir.file("a.odf"));
    EXPECT_EQ(odf.substr(0, 16), " 0  1 \r\n 1  2 \r\n");
    const std::string tail = " 8  123456789 \r\n 9 -10 \r\n";
    EXPECT_EQ(odf.substr(odf.size() - tail.size()), tail);
    EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(2));
}

TEST_F(XmlReadersTest, SpxListOverSeveralLinesDropsAFieldBeforeEveryValue) {
    queue("b.spx", spxWithChannels("<ChannelCount>3</ChannelCount>\r\n", "<Channels>9\r\n10,11,12,13,14,15\r\n"));
    tick(false, true);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("b.spo")), " 3            0\r\n      10      12      14");
}

TEST_F(XmlReadersTest, DatOutputCarriesTheTimesInItsFirstTwoFields) {
    // The patched text is one character short of the field: "30" over
    // "     150" leaves "     300".
    queue("c.spx", spxWithChannels("<LifeTime>30</LifeTime>\r\n<RealTime>45</RealTime>\r\n"
                                   "<ChannelCount>3</ChannelCount>\r\n",
                                   "<Channels>150,7,8</Channels>\r\n"));
    tick(false, false);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("c.dat")), "     300     457       8");
    EXPECT_EQ(readFile(dir.file("c.odf")), " 0  300 \r\n 1  457 \r\n 2  8 \r\n");

    // A live time of 8 characters leaves the real time unpadded as well.
    queue("d.spx", spxWithChannels("<LifeTime>1234567</LifeTime>\r\n<RealTime>45</RealTime>\r\n"
                                   "<ChannelCount>2</ChannelCount>\r\n",
                                   "<Channels>150,7</Channels>\r\n"));
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("d.dat")), "1234567045     7");

    // Longer still, the padding count turns negative.
    queue("e.spx", spxWithChannels("<LifeTime>123456789</LifeTime>\r\n<ChannelCount>1</ChannelCount>\r\n",
                                   "<Channels>1</Channels>\r\n"));
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_NE(lastBox().find("Error 5 Invalid procedure call"), std::string::npos);
}

TEST_F(XmlReadersTest, SpxFailuresAreTheRuntimeErrors) {
    struct Case {
        const char* what;
        std::string bytes;
        const char* error;
    } cases[] = {
        {"element shorter than its fixed length", "<RealTime>5\r\n<Channels>\r\n", "Error 5 Invalid procedure call"},
        {"count beyond 32 bits", spxWithChannels("<ChannelCount>1</ChannelCount>\r\n", "<Channels>3e10</Channels>\r\n"),
         "Error 6 Overflow"},
        {"fewer values than channels", spxWithChannels("<ChannelCount>4</ChannelCount>\r\n", "<Channels>1,2\r\n"),
         "Error 62 Input past end of file"},
    };
    for (const Case& c : cases) {
        host.boxes.clear();
        queue("bad.spx", c.bytes);
        tick(true, false);
        EXPECT_EQ(run(), RunOutcome::ErrorHandled) << c.what;
        EXPECT_NE(lastBox().find(c.error), std::string::npos) << c.what << ": " << lastBox();
        EXPECT_TRUE(form.files.isOpen(1) && form.files.isOpen(2)) << c.what;
        form.files.closeAll();
    }

    // Both boxes ticked: no output extension, and no output file.
    queue("both.spx", "<Channels>\r\n");
    tick(true, true);
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_NE(lastBox().find("Error 9 Subscript out of range"), std::string::npos);
    EXPECT_FALSE(exists(dir.file("both.spe")) || exists(dir.file("both.spo")) || exists(dir.file("both.dat")));
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
    EXPECT_EQ(readFile(dir.file("g.odf")), "1.5 20\r\n2.5e1 -3\r\na b   \r\n");
    EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(2));

    queue("none.xml", "<Root>\r\n<Data>\r\n<X>1</X>\r\n<Y>2</Y>\r\n</Data>\r\n</Root>\r\n");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("none.odf")), "");
}

TEST_F(XmlReadersTest, GenericXmlShortElementsAndEarlyEndsAreErrors) {
    queue("short.xml", "<DataBlock>\r\n<Data>\r\n<X>\r\n<Y>2</Y>\r\n</Data>\r\n");
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_NE(lastBox().find("Error 5 Invalid procedure call"), std::string::npos);
    EXPECT_TRUE(form.files.isOpen(1));
    form.files.closeAll();

    queue("cut.xml", "<DataBlock>\r\n<Data>\r\n<X>1</X>\r\n");
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_NE(lastBox().find("Error 62 Input past end of file"), std::string::npos);
}

// ---- the real SPX files ----

// What each file's own elements hold (<RealTime>, <LifeTime>, <Date>,
// <Time>, read in the file), and its channel count from SOURCES.md, which the
// test checks against the file's <Channels> list.
struct SpxSample {
    const char* name;
    int32_t realTime;
    int32_t liveTime;
    int64_t channels;
    const char* date;  // as the SPE shows it
    const char* time;
};

const SpxSample spxSamples[] = {
    {"bruker_nano.spx", 7575, 7385, 4096, "02-03-2018", "13:53:04"},
    {"extracted_from_bcf.spx", 40, 25, 1548, "04-03-2018", "10:06:04"},
    {"bruker_m6_jetstream_file_example.spx", 30000, 28046, 4096, "23-03-2021", "10:57:41"},
};

std::string withCrLf(const std::string& lf) {
    std::string out;
    for (char c : lf) {
        if (c == '\n') out += '\r';
        out += c;
    }
    return out;
}

// The counts of the file's first <Channels> list, read independently.
std::vector<long> firstChannelList(const std::string& file) {
    const size_t begin = file.find("<Channels>") + 10;
    std::istringstream list(file.substr(begin, file.find("</Channels>", begin) - begin));
    std::vector<long> counts;
    for (std::string item; std::getline(list, item, ',');) counts.push_back(std::stol(item));
    return counts;
}

TEST_F(XmlReadersTest, RealSpxFilesConvert) {
    tick(true, false);
    for (const SpxSample& s : spxSamples) {
        const std::string lf = readFile(std::string(KESTRO_SAMPLES_DIR "/spx/") + s.name);
        const std::string stem = dir.file(std::string(s.name).substr(0, std::string(s.name).size() - 4));

        // As they are, these files end their lines with LF alone, which line
        // input does not take as a line end: the whole file is one line, and
        // only its first tag in the reader's order, <RealTime>, counts.
        queue(s.name, lf);
        EXPECT_EQ(run(), RunOutcome::Finished) << s.name;
        char times[32];
        std::snprintf(times, sizeof times, "         0%10d", s.realTime);
        EXPECT_EQ(readFile(stem + ".spe"), "$SPEC_ID:\r\n\r\n$DATE_MEA:\r\n  \r\n$MEAS_TIM:\r\n" + std::string(times) +
                                               "\r\n$DATA:\r\n         0        -1\r\n")
            << s.name;
        EXPECT_EQ(form.sharedRealTime.toNumber(), s.realTime) << s.name;
        EXPECT_EQ(form.valueCount, 0) << s.name;

        // With each LF made CR LF, the indented elements still give their
        // values and the whole list on the <Channels> line is read.
        const std::string crlf = withCrLf(lf);
        const std::vector<long> counts = firstChannelList(crlf);
        ASSERT_EQ(static_cast<int64_t>(counts.size()), s.channels) << s.name;
        queue(s.name, crlf);
        EXPECT_EQ(run(), RunOutcome::Finished) << s.name;
        char header[64];
        std::snprintf(header, sizeof header, "%10d%10d\r\n$DATA:\r\n         0%10lld", s.liveTime, s.realTime,
                      static_cast<long long>(s.channels - 1));
        EXPECT_NE(readFile(stem + ".spe").find(std::string("\r\n$DATE_MEA:\r\n") + s.date + "  " + s.time +
                                               "\r\n$MEAS_TIM:\r\n" + header),
                  std::string::npos)
            << s.name;
        EXPECT_EQ(form.valueCount, s.channels) << s.name;
        std::istringstream pairs(readFile(stem + ".odf"));
        std::vector<long> written;
        for (long channel, value; pairs >> channel >> value;) written.push_back(value);
        EXPECT_EQ(written, counts) << s.name;
    }
}

}  // namespace
}  // namespace kestro
