// ORTEC CHN and SpecTech SPU files through the driver: crafted files compared
// byte for byte, the errors, and the real CHN samples checked against
// Maestro's own exports.
#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;
using ChnReaderTest = testing::ConversionTest;
using SpuReaderTest = testing::ConversionTest;

// The header fields the reader uses, at offsets 8, 12 and 30; the counts from 32.
std::string chnFile(int32_t firstTicks, int32_t secondTicks, uint16_t n, const std::vector<int32_t>& counts) {
    BinaryBuilder b;
    b.i16(-1).i16(1).i16(1).i16(0).i32(firstTicks).i32(secondTicks).padTo(30).u16(n);
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

const std::vector<int32_t> TenCounts = {11, 22, 3, -4, 123456789, 0, 7, 8, 9, 10};

TEST_F(ChnReaderTest, SpeHeaderAndDataBlockShowTheTicksOverTwenty) {
    const std::string path = queue("m.chn", chnFile(1000, 30, 10, TenCounts));
    const std::string when = testing::setModified(path, testing::SomeTime);
    tick(true, false);
    ASSERT_EQ(run(), RunOutcome::Finished);
    // 1000 / 20 = 50; 30 / 20 = 1.5 rounds to 2. The counts stay as read.
    EXPECT_EQ(output("m.spe"), "$SPEC_ID:\r\n" + path + "\r\n$DATE_MEA:\r\n" + when +
                                   "\r\n$MEAS_TIM:\r\n        50         2\r\n$DATA:\r\n         0         9\r\n"
                                   "      11      22       3      -4 123456789       0       7       8\r\n"
                                   "       9      10");
    EXPECT_EQ(form.valueCount, 10);
    EXPECT_EQ(form.sharedRealTime.toNumber(), 30);  // the raw ticks

    // Only the data block carries the times. Three counts for ten channels: the missing ones read as 0.
    const std::string shortFile = chnFile(50, 1000, 10, {11, 22, 3});
    EXPECT_EQ(converted("s.chn", shortFile, "s.spo", false, true),
              " 10           0\r\n      11      22       3       0       0       0       0       0\r\n"
              "       0       0");

    EXPECT_EQ(converted("d.chn", shortFile, "d.dat"),
              "       2      50       3       0       0       0       0       0\r\n       0       0");

    // No channels: a header with last channel -1 and nothing after it.
    const std::string spe = converted("e.chn", chnFile(0, 0, 0, {}), "e.spe", true);
    EXPECT_EQ(spe.substr(spe.size() - 30), "$DATA:\r\n         0        -1\r\n");
}

TEST_F(ChnReaderTest, EightChannelsGiveEightOdfLinesInEveryLayout) {
    const std::string eight = chnFile(0, 0, 8, {1, 2, 3, 4, 5, 6, 7, 8});
    for (const auto& [spe, spo] : {std::pair{true, false}, {false, true}, {false, false}}) {
        const std::string odf = converted("e.chn", eight, "e.odf", spe, spo);
        EXPECT_EQ(form.valueCount, 8) << spe << spo;
        EXPECT_EQ(odf.substr(odf.size() - 8), " 7  8 \r\n") << spe << spo;
    }
}

TEST_F(ChnReaderTest, BadValuesEndTheRunAndLeaveTheFilesOpen) {
    expectFailures("bad.chn", {
        {"top bit of the first time", chnFile(-1, 0, 10, TenCounts), "Error 6 Overflow", 2, true},
        {"top bit of the second time", chnFile(0, INT32_MIN, 10, TenCounts), "Error 6 Overflow", 2, false, true},
        {"no channels for the times", chnFile(0, 0, 0, {}), "Error 9 Subscript out of range", 2},
        {"one channel for the times", chnFile(0, 0, 1, {5}), "Error 9 Subscript out of range", 2},
        {"both boxes", chnFile(0, 0, 10, TenCounts), "Error 9 Subscript out of range", 1, true, true},
    });
}

TEST_F(ChnReaderTest, RealFilesMatchTheirKnownTimesAndMaestroExports) {
    const std::string samples = KESTRO_SAMPLES_DIR;
    auto convertSample = [&](const std::string& name) {
        const std::string spe =
            converted(name, readFile(samples + "/chn/" + name), name.substr(0, name.size() - 4) + ".spe", true);
        return spe.substr(spe.find("$MEAS_TIM:\r\n") + 12, 20);  // the two times
    };

    // SOURCES.md: 905.42 s real time, which is 45271 ticks of 1/50 s at
    // offset 8; over 20 that is 2263.55, printed as 2264.
    EXPECT_EQ(convertSample("Alcatraz14.chn").substr(0, 10), "      2264");
    EXPECT_EQ(form.valueCount, 8192);
    EXPECT_EQ(convertSample("Mendocino_07-10-13_Acq-10-10-13.CHN").size(), 20u);
    EXPECT_EQ(form.valueCount, 8192);

    // Maestro exported the same measurements as SPE text (SOURCES.md), with
    // real times 437903 s and 16557 s: 21895150 and 827850 ticks of 1/50 s
    // at offset 8. Over 20 both end in .5 and round half to even. The
    // two-column files made from the CHN and the SPE hold the same counts.
    const struct { const char* chn; const char* spe; const char* firstTime; } pairs[] = {
        {"1110C NAA cave background May 2017.CHN", "1110C NAA cave background May 2017.spe", "   1094758"},
        {"1110C NAA cave pottery.CHN", "1110C NAA cave pottery.Spe", "     41392"},
    };
    for (const auto& p : pairs) {
        const std::string chn = p.chn;
        EXPECT_EQ(convertSample(chn).substr(0, 10), p.firstTime);
        const std::string fromChn = output(chn.substr(0, chn.size() - 4) + ".odf");
        EXPECT_EQ(convert("maestro.spe", readFile(samples + "/spe/" + p.spe)), RunOutcome::Finished);
        EXPECT_EQ(form.valueCount, 16384);
        EXPECT_TRUE(output("maestro.odf") == fromChn) << chn;
    }
}

// SPU files are always a bare data block, with channel 2 taken from the
// previous conversion.
std::string spuFile(uint32_t n, const std::vector<int32_t>& counts) {
    BinaryBuilder b;
    b.u32(n);
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

TEST_F(SpuReaderTest, ChannelTwoIsTheRealTimeTheLastFileLeftAndMissingCountsAreZeros) {
    // A fresh session has no real time. With the SPE box the reader still
    // writes the bare block, and the driver wraps it.
    EXPECT_EQ(converted("a.spu", spuFile(3, {5, 6, 7}), "a.dat", true), "       0       0       7");
    EXPECT_EQ(output("a.odf"), " 0  0 \r\n 1  0 \r\n 2  7 \r\n");
    EXPECT_TRUE(written("a.spe"));

    // A CHN file leaves its raw second time value, not seconds.
    convert("c.chn", chnFile(0, 123456, 2, {1, 2}));
    EXPECT_EQ(converted("b.spu", spuFile(9, {5, 6, 7, 8, 9, 10, 11, 12, 13}), "b.dat"),
              "       0  123456       7       8       9      10      11      12\r\n      13");

    // Counts past the end are streamed as zeros.
    const std::string block = converted("big.spu", spuFile(100000, {}), "big.dat");
    ASSERT_EQ(block.size(), 100000u / 8 * 66);
    EXPECT_EQ(block.substr(block.size() - 66), "       0       0       0       0       0       0       0       0\r\n");
    EXPECT_EQ(form.valueCount, 100000);
}

TEST_F(SpuReaderTest, BadChannelCountsEndTheRunAndLeaveTheFilesOpen) {
    expectFailures("bad.spu", {
        {"2^29 channels", spuFile(1u << 29, {}), "Error 6 Overflow", 2},
        {"more than 2^31 channels", spuFile(0x80000000u, {}), "Error 6 Overflow", 2},
        {"one channel", spuFile(1, {5}), "Error 9 Subscript out of range", 2},
        {"an empty file", "", "Error 9 Subscript out of range", 2},
    });
}

}  // namespace
}  // namespace kestro
