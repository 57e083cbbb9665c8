// The modern CNF, MPA and SPX readers ("Modern readers" ticked): the real samples
// give the spectra they hold, crafted files cover the layouts no sample has,
// and with the box unticked the classic reading stays.
#include <numeric>
#include <sstream>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;

class ModernNuclearTest : public testing::ConversionTest {
protected:
    ModernNuclearTest() { form.boxes.ModernRead = true; }

    // The ".odf" as channel/value pairs.
    std::vector<std::pair<int64_t, int64_t>> pairs(const std::string& name) {
        std::istringstream in(output(name));
        std::vector<std::pair<int64_t, int64_t>> out;
        for (int64_t c, v; in >> c >> v;) out.emplace_back(c, v);
        return out;
    }
    static int64_t sumFromChannel2(const std::vector<std::pair<int64_t, int64_t>>& p) {
        int64_t sum = 0;
        for (const auto& [c, v] : p)
            if (c >= 2) sum += v;
        return sum;
    }
};

TEST_F(ModernNuclearTest, RealCnfFilesGiveTheirChannelBlocks) {
    // Channel count, times and counts decoded independently by a short
    // script that follows the block directory as xylib's CNF reader describes
    // it (entry id 0x00012005, size at +6, offset at +10, counts 512 bytes
    // into the block; the times at acquisition block + 48 + its word at +36),
    // and for the three files xylib reads, the same counts from xyconv.
    const struct {
        const char* name;
        int64_t channels;
        const char* header;  // "$DATE_MEA:" to the channel range
        int64_t sum, channel100;
    } samples[] = {
        {"SMP00011.CNF", 8192, "08-09-2011  08:04:38\r\n$MEAS_TIM:\r\n        53        60\r\n$DATA:\r\n         0      8191",
         430160, 6},
        {"background_8.CNF", 8192, "20-11-2015  00:05:36\r\n$MEAS_TIM:\r\n       161       161\r\n$DATA:\r\n         0      8191",
         17714, 35},
        {"01122014152731-GT01122014182338-GA37.4963000N-GO122.4633000W.cnf", 4096,
         "12-01-2014  15:12:28\r\n$MEAS_TIM:\r\n       841       850\r\n$DATA:\r\n         0      4095", 683658, 1576},
        // No times in this newer layout (SOURCES.md): no real time carries over either.
        {"2025-11-11_17-43-19-121196.cnf", 4096,
         "17-11-1858  00:00:00\r\n$MEAS_TIM:\r\n         0         0\r\n$DATA:\r\n         0      4095", 31320, 151},
    };
    for (const auto& s : samples) {
        const std::string name = s.name, stem = name.substr(0, name.size() - 4);
        const std::string spe = converted(name, readFile(KESTRO_SAMPLES_DIR "/cnf/" + name), stem + ".spe", true);
        EXPECT_NE(spe.find("$DATE_MEA:\r\n" + std::string(s.header) + "\r\n"), std::string::npos) << name;
        const auto odf = pairs(stem + ".odf");
        ASSERT_EQ(static_cast<int64_t>(odf.size()), s.channels) << name;
        EXPECT_EQ(sumFromChannel2(odf), s.sum) << name;
        EXPECT_EQ(odf[100].second, s.channel100) << name;
    }

    // Unticked, the newer file reads as the classic rules read it.
    form.boxes.ModernRead = false;
    const std::string newer = readFile(KESTRO_SAMPLES_DIR "/cnf/2025-11-11_17-43-19-121196.cnf");
    converted("classic.cnf", newer, "classic.spe", true);
    EXPECT_NE(sumFromChannel2(pairs("classic.odf")), 31320);
}

TEST_F(ModernNuclearTest, CnfWithoutAChannelBlockIsRefused) {
    EXPECT_EQ(convert("none.cnf", std::string(300, '\0')), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 321 Invalid file format: no channel data block in this CNF file"));
    // A block that claims more counts than the file holds.
    BinaryBuilder b;
    b.padTo(112).u32(0x00012005).u16(0).u32(0x10000).u32(512);
    b.padTo(512).u32(0x00012005).padTo(600);
    EXPECT_EQ(convert("short.cnf", b.bytes()), RunOutcome::ErrorHandled);
    EXPECT_NE(message().find("does not hold its counts"), std::string::npos);
}

TEST_F(ModernNuclearTest, RealMpa4aFileGivesEveryAdcWithData) {
    // "[DATA0,8192 ]" and "[DATA1,8192 ]" go with the first two ADC sections,
    // [ADC1] and [ADC2]: their live and real times, then the values of the
    // file's own lines from channel 2 on (read in the test from the file).
    const std::string sample = readFile(KESTRO_SAMPLES_DIR "/mpa/Sample1_raw_data.mpa");
    converted("Sample1_raw_data.mpa", sample, "F0Sample1_raw_data.odf");
    for (int adc : {0, 1}) {
        const std::string section = "[DATA" + std::to_string(adc) + ",8192 ]\r\n";
        std::istringstream values(sample.substr(sample.find(section) + section.size()));
        int64_t sum = 0, v;
        for (int i = 0; i < 8192 && values >> v; ++i) sum += i >= 2 ? v : 0;
        const auto odf = pairs("F" + std::to_string(adc) + "Sample1_raw_data.odf");
        ASSERT_EQ(odf.size(), 8192u) << adc;
        EXPECT_EQ(odf[0].second, adc == 0 ? 72381 : 72707);  // livetime=72381.404, 72706.837
        EXPECT_EQ(odf[1].second, 81378);                      // realtime=81378.343
        EXPECT_EQ(sumFromChannel2(odf), sum) << adc;
        EXPECT_GT(sum, 0) << adc;
    }
    EXPECT_FALSE(written("F2Sample1_raw_data.odf"));
}

TEST_F(ModernNuclearTest, MpaBinaryDataLfLineEndsAndSpectraWithAHeaderOfTheirOwn) {
    // Binary counts right after each section line, with LF line ends.
    BinaryBuilder b;
    b.text("[MPA4A] 404\nmpafmt=dat\n[ADC1]\nrealtime=10.5\nlivetime=9.5\n[ADC2]\nrealtime=3\n[DATA0,4 ]\n");
    b.i32(1).i32(2).i32(30).i32(-40);
    b.text("[DATA1,3 ]\n").i32(5).i32(6).i32(7).text("[CDAT0,2 ]\n").i32(8).i32(9);
    converted("bin.mpa", b.bytes(), "F0bin.odf");
    EXPECT_EQ(output("F0bin.odf"), " 0  10 \r\n 1  10 \r\n 2  30 \r\n 3 -40 \r\n");
    EXPECT_EQ(output("F1bin.odf"), " 0  0 \r\n 1  3 \r\n 2  7 \r\n");
    EXPECT_FALSE(written("F2bin.odf"));

    // Counts the file does not hold end the run as a short file does.
    EXPECT_EQ(convert("cut.mpa", "mpafmt=dat\n[ADC1]\n[DATA0,9 ]\nabc"), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 62 Input past end of file"));

    // "spe" data read as the classic reader reads them.
    converted("s.mp", "fmt=spe\r\n[ADC0]\r\nrange=3\r\nactive=1\r\n[DATA]\r\n$SPEC_ID:\r\n$DATA:\r\n0 2\r\n1 2 3\r\n",
              "F0s.odf");
    EXPECT_EQ(output("F0s.spe"), "$SPEC_ID:\r\n$DATA:\r\n0 2\r\n1 2 3\r\n");
}

// An SPX file laid out as the instrument writes it (indented elements), its
// times in milliseconds and `perLine` counts a line, each wrapped line ending
// in a comma. Count i is (37 i) mod 1000.
std::string spxFile(int64_t liveMs, int64_t realMs, int channels, const std::string& eol, int perLine) {
    std::string s = "<?xml version=\"1.0\"?>" + eol + "<TRTSpectrum>" + eol +
                    "  <ClassInstance Type=\"TRTSpectrum\" Name=\"long\">" + eol + "        <RealTime>" +
                    std::to_string(realMs) + "</RealTime>" + eol + "        <LifeTime>" + std::to_string(liveMs) +
                    "</LifeTime>" + eol + "      <Date>1.2.2024</Date>" + eol + "      <Time>8:5:3</Time>" + eol +
                    "      <ChannelCount>" + std::to_string(channels) + "</ChannelCount>" + eol + "      <Channels>";
    for (int i = 0; i < channels; ++i) {
        s += std::to_string(37 * i % 1000);
        if (i + 1 < channels) s += (i + 1) % perLine == 0 ? "," + eol : ",";
    }
    return s + "</Channels>" + eol + "  </ClassInstance>" + eol + "</TRTSpectrum>" + eol;
}

TEST_F(ModernNuclearTest, LongSpxAcquisitionsKeepEveryChannel) {
    const struct { int64_t liveMs, realMs; int channels; const char* eol; int perLine; int64_t live, real; } cases[] = {
        {1000000, 1001500, 4096, "\n", 4096, 1000, 1002},          // 1,000 s; half a second rounds to even
        {99999400, 100000000, 16384, "\r\n", 16384, 99999, 100000},  // 100,000 s
        {1000000, 2000000, 4096, "\r", 100, 1000, 2000},           // CR line ends, the list wrapped
        {5000000, 5000000, 4096, "\r\n", 7, 5000, 5000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.channels << " channels, " << c.perLine << " a line");
        const std::string spx = spxFile(c.liveMs, c.realMs, c.channels, c.eol, c.perLine);
        for (const auto& [spe, spo] : {std::pair{false, false}, {false, true}, {true, false}}) {
            converted("long.spx", spx, "long.odf", spe, spo);
            const auto odf = pairs("long.odf");
            ASSERT_EQ(static_cast<int64_t>(odf.size()), c.channels);
            EXPECT_EQ(form.valueCount, c.channels);
            // Channels 0 and 1 hold the times in the ".dat" and the SPO; the SPE keeps its counts there.
            EXPECT_EQ(odf[0].second, spe ? 0 : c.live);
            EXPECT_EQ(odf[1].second, spe ? 37 : c.real);
            for (int i = 2; i < c.channels; ++i) ASSERT_EQ(odf[i], std::make_pair(int64_t{i}, int64_t{37 * i % 1000}));
            EXPECT_EQ(form.sharedRealTime.toNumber(), c.real);
        }
        const std::string speText = output("long.spe");
        const auto pad = [](int64_t v) { return std::string(9 - std::to_string(v).size(), ' ') + " " + std::to_string(v); };
        EXPECT_EQ(speText.substr(0, speText.find("$DATA:")),
                  "$SPEC_ID:\r\n\r\n$DATE_MEA:\r\n01-02-2024  08:05:03\r\n$MEAS_TIM:\r\n" + pad(c.live) + pad(c.real) + "\r\n");
    }

    // Unticked, the 1,000 s times run together in the ".dat", as described:
    // the ".odf" reads them as one number and holds one channel fewer.
    form.boxes.ModernRead = false;
    converted("classic.spx", spxFile(1000000, 1001500, 4096, "\r\n", 4096), "classic.odf");
    EXPECT_EQ(output("classic.dat").substr(0, 16), "1000000010015007");
    const std::string classic = output("classic.odf");
    EXPECT_EQ(std::count(classic.begin(), classic.end(), '\n'), 4095);
    // Channel 2's count comes one place early.
    EXPECT_EQ(classic.substr(0, 36), " 0  1.00000001001501E+15 \r\n 1  74 \r\n");
}

TEST_F(ModernNuclearTest, RealSpxFilesGiveTheirTimesInSeconds) {
    // Times from each file's <LifeTime> and <RealTime> in milliseconds, counts
    // from its first <Channels> list (SOURCES.md).
    const struct { const char* stem; size_t channels; const char* times; int64_t live, real; } samples[] = {
        {"bruker_nano", 4096, "         7         8", 7, 8},
        {"extracted_from_bcf", 1548, "         0         0", 0, 0},
        {"bruker_m6_jetstream_file_example", 4096, "        28        30", 28, 30},
    };
    for (const auto& s : samples) {
        const std::string stem = s.stem, lf = readFile(KESTRO_SAMPLES_DIR "/spx/" + stem + ".spx");
        const size_t list = lf.find("<Channels>") + 10;
        std::istringstream fields(lf.substr(list, lf.find("</Channels>", list) - list));
        std::vector<int64_t> counts;
        for (std::string count; std::getline(fields, count, ',');) counts.push_back(std::stoll(count));
        ASSERT_EQ(counts.size(), s.channels) << stem;

        const std::string spe = converted(stem + ".spx", lf, stem + ".spe", true);
        EXPECT_NE(spe.find("$MEAS_TIM:\r\n" + std::string(s.times) + "\r\n"), std::string::npos) << stem;
        auto odf = pairs(stem + ".odf");
        ASSERT_EQ(odf.size(), s.channels) << stem;
        for (size_t i = 0; i < odf.size(); ++i) ASSERT_EQ(odf[i].second, counts[i]) << stem << " channel " << i;

        // The same file with CR LF line ends and its list wrapped 10 counts a line gives the same SPO.
        std::string wrapped = crLfTwin(lf);
        for (size_t at = wrapped.find("<Channels>"), k = 0; (at = wrapped.find(',', at + 1)) < wrapped.find("</Channels>");)
            if (++k % 10 == 0) wrapped.insert(at + 1, "\r\n");
        const std::string spo = converted(stem + ".spx", lf, stem + ".spo", false, true);
        EXPECT_EQ(converted("w.spx", wrapped, "w.spo", false, true), spo) << stem;
        odf = pairs("w.odf");
        ASSERT_EQ(odf.size(), s.channels) << stem;
        EXPECT_EQ(odf[0].second, s.live) << stem;
        EXPECT_EQ(odf[1].second, s.real) << stem;
    }
}

TEST_F(ModernNuclearTest, SpxWithoutItsCountsIsRefused) {
    const struct { const char* what; std::string bytes; const char* text; } cases[] = {
        {"no list", "<ChannelCount>4</ChannelCount>\r\n", "no <Channels> list in this SPX file"},
        {"no count", "<Channels>1,2,3</Channels>\r\n", "no <ChannelCount> in this SPX file"},
        {"a short list", "<ChannelCount>4</ChannelCount>\r\n<Channels>1,2,\r\n3,</Channels>\r\n",
         "the <Channels> list of this SPX file holds fewer than 4 counts"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(convert("bad.spx", c.bytes), RunOutcome::ErrorHandled) << c.what;
        EXPECT_EQ(message(), testing::failureBox("Error 321 Invalid file format: " + std::string(c.text))) << c.what;
        EXPECT_FALSE(written("bad.dat")) << c.what;
    }
}

}  // namespace
}  // namespace kestro
