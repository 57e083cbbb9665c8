// Genie2K CNF files through the driver: crafted files compared byte for
// byte, the command-line switches, the errors, and the real samples.
#include <optional>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;

// 15-03-2019 (day 43539) 14:07:55 in 100 ns ticks from 17-Nov-1858.
constexpr uint64_t StartTicks = ((43539ull + 15018) * 86400 + 14 * 3600 + 7 * 60 + 55) * 10'000'000;

// Durations as the file holds them: minus the tick count, which reads back
// one tick short, so 60 s shows as 59.9999999 s before rounding.
struct Times { uint64_t start = StartTicks; int64_t realTicks = 600'000'000; int64_t liveTicks = 531'700'000; };

std::string timeRecord(const Times& t) {
    return BinaryBuilder().u8(0x01).u64(t.start).i64(-t.realTicks).i64(-t.liveTicks).bytes();
}

// An unrelated 0xD0 before the channel count, then a 0x01 whose 24 bytes
// fail the test and hide a whole time record (100 s real), then the record
// itself, and the counts at the end.
std::string cnfFile(uint16_t n, std::optional<Times> times, const std::vector<int32_t>& counts) {
    BinaryBuilder b;
    b.u8(0xD0).u8(0x02).u8(0xD0).u8(0x01).u16(n);
    b.padTo(32).u8(0x01).padTo(37).text(timeRecord({StartTicks, 1'000'000'000, 500'000'000}));
    if (times) b.padTo(64).text(timeRecord(*times));
    b.padTo(96);
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

const std::vector<int32_t> TenCounts = {111, 222, 3, -4, 123456789, 0, 7, 8, 9, 10};
const std::string FirstLineAfterTimes = "       3      -4 123456789       0       7       8\r\n";

using CnfReaderTest = testing::ConversionTest;  // "Test.txt" goes to the current folder, the test's own

TEST_F(CnfReaderTest, TimesGoToTheSpeHeaderOrToTheFirstTwoChannels) {
    EXPECT_EQ(converted("g.cnf", cnfFile(10, Times{}, TenCounts), "g.spe", true),
              "$SPEC_ID:\r\n\r\n$DATE_MEA:\r\n15-03-2019  14:07:55\r\n$MEAS_TIM:\r\n        53        60\r\n"
              "$DATA:\r\n         0         9\r\n       0       0" +
                  FirstLineAfterTimes + "       9      10");
    EXPECT_EQ(form.sharedRealTime.toNumber(), 60);
    // The pass read the 10 values after the 8 header lines.
    EXPECT_EQ(form.valueCount, 10);

    // SPO and DAT keep the times in channels 1 and 2.
    form.commandLine = "/t";
    // The start time continues the open last line, as it always did.
    EXPECT_EQ(converted("o.cnf", cnfFile(10, Times{}, TenCounts), "o.spo", false, true),
              " 10           0\r\n      53      60" + FirstLineAfterTimes +
                  "       9      10Acq_Start_time: 15-03-2019 14:07:55\r\n");

    form.commandLine = "/time";
    const std::vector<int32_t> eight(TenCounts.begin(), TenCounts.begin() + 8);
    EXPECT_EQ(converted("d.cnf", cnfFile(8, Times{}, eight), "d.dat"),
              "      53      60" + FirstLineAfterTimes + "Acq_Start_time: 15-03-2019 14:07:55\r\n");
}

TEST_F(CnfReaderTest, SwitchesAndMissingTimeRecords) {
    convert("first.cnf", cnfFile(10, Times{}, TenCounts));

    form.commandLine = "/noTime";
    const std::string skipped =
        converted("skipped.cnf", cnfFile(10, Times{0, 9'990'000'000, 9'990'000'000}, TenCounts), "skipped.spe", true);
    EXPECT_NE(skipped.find("$DATE_MEA:\r\n17-11-1858  00:00:00\r\n$MEAS_TIM:\r\n         0        60\r\n"),
              std::string::npos);

    // The decoy's hidden record is never found: no time record at all.
    form.commandLine = "";
    form.sharedRealTime = Value::ofDouble(7.5);
    EXPECT_EQ(converted("none.cnf", cnfFile(10, std::nullopt, TenCounts), "none.dat").substr(0, 16),
              "       0       8");  // 7.5 rounds half to even

    // Two switches on one line match neither.
    form.commandLine = "/debug /time";
    EXPECT_EQ(converted("both.cnf", cnfFile(8, Times{}, std::vector<int32_t>(8)), "both.dat").find("Acq_Start_time"),
              std::string::npos);
    EXPECT_FALSE(written("Test.txt"));

    // "/deb" appends the decoded times to Test.txt.
    form.commandLine = "/deb";
    convert("t.cnf", cnfFile(10, Times{}, TenCounts), true);
    // Without a time record only the opening lines; the log is closed either way.
    ASSERT_EQ(convert("none.cnf", cnfFile(10, std::nullopt, TenCounts), true), RunOutcome::Finished);

    // The current date and time ("dd-mm-yyyyat hh:mm:ss") are masked.
    std::string log = output("Test.txt");
    const std::string opened = " on the ";
    for (size_t at = log.find(opened); at != std::string::npos; at = log.find(opened, at + 1))
        log.replace(at + opened.size(), 21, "<now>");
    const std::string rule = std::string(20, '_') + "\r\n";
    EXPECT_EQ(log, rule + "Opened file " + dir.file("t.cnf") + " on the <now>\r\n\r\n" +
                       "Tempo/100 ns = 5.059375675E+16 Tempo (referido a 17-Nov-1858, 00:00:00): 5059375675 s, ou "
                       "15-03-2019 14:07:55\r\n"
                       "Tempo/100 ns = 599999999  Tempo/s = 59.9999999 RealTime/s = 60 \r\n"
                       "Tempo/100 ns = 531699999  Tempo/s = 53.1699999 LiveTime/s = 53 \r\n" +
                       rule + "Opened file " + dir.file("none.cnf") + " on the <now>\r\n\r\n");
}

TEST_F(CnfReaderTest, BadValuesEndTheRunAndLeaveTheFilesOpen) {
    expectFailures("bad.cnf", {
        {"no channel count", std::string(100, '\0'), "Error 9 Subscript out of range", 1},
        {"one channel", cnfFile(1, Times{}, {5}), "Error 9 Subscript out of range", 1},
        {"32768 channels", cnfFile(0x8000, Times{}, {}), "Error 6 Overflow", 1},
        {"more counts than bytes", cnfFile(100, Times{}, {}), "Error 63 Bad record number", 1},
        {"both boxes", cnfFile(10, Times{}, TenCounts), "Error 9 Subscript out of range", 1, true, true},
        {"real time beyond 32 bits", cnfFile(10, Times{StartTicks, 21'474'836'480'000'000, 10'000'000}, TenCounts),
         "Error 6 Overflow", 1},
        {"11-character live time", cnfFile(10, Times{StartTicks, 10'000'000, 10'000'000'010'000'000}, TenCounts),
         "Error 5 Invalid procedure call or argument", 2, true},
    });
}

TEST_F(CnfReaderTest, RealFilesGiveTheirKnownChannelCountsAndTimes) {
    const std::string samples = KESTRO_SAMPLES_DIR "/cnf/";
    // The SPE lines after "$DATE_MEA:", "$MEAS_TIM:" and "$DATA:".
    auto convertSample = [&](const std::string& name) {
        const std::string spe =
            converted(name, readFile(samples + name), name.substr(0, name.size() - 4) + ".spe", true);
        auto after = [&](const std::string& tag) { return spe.substr(spe.find(tag) + tag.size() + 2, 20); };
        return std::vector<std::string>{after("$DATE_MEA:"), after("$MEAS_TIM:"), after("$DATA:")};
    };

    // SOURCES.md: 8192 channels and 60 s real time, and 8192 channels, 161 s.
    EXPECT_EQ(convertSample("SMP00011.CNF")[1].substr(10), "        60");
    EXPECT_EQ(form.valueCount, 8192);
    EXPECT_EQ(convertSample("background_8.CNF")[1].substr(10), "       161");
    EXPECT_EQ(form.valueCount, 8192);

    // A Falcon field measurement of 4096 channels (SOURCES.md); its name
    // begins with the date written month first, 01122014.
    EXPECT_EQ(convertSample("01122014152731-GT01122014182338-GA37.4963000N-GO122.4633000W.cnf")[0].substr(0, 10),
              "12-01-2014");
    EXPECT_EQ(form.valueCount, 4096);

    // The newer layout has no acquisition times (SOURCES.md): the date is
    // the epoch, live time 0, and the real time is the previous file's.
    // Its channel block comes first, so the 4096 channels are found, but the
    // counts taken from the end of the file are not the spectrum (some run
    // together in the data lines, so the pass finds fewer values).
    EXPECT_EQ(convertSample("2025-11-11_17-43-19-121196.cnf"),
              (std::vector<std::string>{"17-11-1858  00:00:00", "         0       850", "         0      4095"}));
}

}  // namespace
}  // namespace kestro
