// The modern CNF and MPA readers ("Modern readers" ticked): the real samples
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

}  // namespace
}  // namespace kestro
