// ORTEC CHN files through the driver: crafted files compared byte for byte,
// the errors, and the real samples checked against Maestro's own exports.
#include <gtest/gtest.h>

#include <vector>

#include "ScriptedHost.h"
#include "TestFiles.h"
#include "core/Driver.h"
#include "core/FormatTable.h"
#include "core/Session.h"
#include "core/runtime/BinaryOutput.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::writeFile;

constexpr std::time_t SomeTime = 1763700000;  // a fixed modification time

// The header fields the reader uses, at offsets 8, 12 and 30; the counts from 32.
std::string chnFile(int32_t firstTicks, int32_t secondTicks, uint16_t n, const std::vector<int32_t>& counts) {
    BinaryBuilder b;
    b.i16(-1).i16(1).i16(1).i16(0).i32(firstTicks).i32(secondTicks).padTo(30).u16(n);
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

const std::vector<int32_t> TenCounts = {11, 22, 3, -4, 123456789, 0, 7, 8, 9, 10};

class ChnReaderTest : public ::testing::Test {
protected:
    ChnReaderTest() : form(host) { formLoad(form); }

    std::string queue(const std::string& name, const std::string& bytes) {
        std::string path = dir.file(name);
        writeFile(path, bytes);
        form.addToQueue(name, path);
        return path;
    }
    RunOutcome run(bool spe, bool spo) {
        form.boxes.SPE = spe;
        form.boxes.SPO = spo;
        return RunCode_Click(form);
    }
    std::string output(const std::string& name) { return readFile(dir.file(name)); }
    std::string lastMessage() const { return host.boxes.empty() ? "" : host.boxes.back().text; }

    testing::TempDir dir;
    testing::ScriptedHost host;
    Session form;
};

TEST_F(ChnReaderTest, SpeShowsThePathTheFileDateAndTicksOverTwenty) {
    const std::string path = queue("m.chn", chnFile(1000, 30, 10, TenCounts));
    const std::string when = testing::setModified(path, SomeTime);
    ASSERT_EQ(run(true, false), RunOutcome::Finished);
    // 1000 / 20 = 50; 30 / 20 = 1.5 rounds to 2. The counts stay as read.
    EXPECT_EQ(output("m.spe"), "$SPEC_ID:\r\n" + path + "\r\n$DATE_MEA:\r\n" + when +
                                   "\r\n$MEAS_TIM:\r\n        50         2\r\n$DATA:\r\n         0         9\r\n"
                                   "      11      22       3      -4 123456789       0       7       8\r\n"
                                   "       9      10");
    EXPECT_EQ(form.valueCount, 10);
    EXPECT_EQ(form.sharedRealTime.toNumber(), 30);  // the raw ticks
    EXPECT_EQ(output("m.odf").substr(0, 18), " 0  11 \r\n 1  22 \r\n");
}

TEST_F(ChnReaderTest, OnlyTheDataBlockCarriesTheTimes) {
    // Three counts for ten channels: the missing ones read as 0.
    const std::string shortFile = chnFile(50, 1000, 10, {11, 22, 3});
    queue("s.chn", shortFile);
    run(false, true);
    EXPECT_EQ(output("s.spo"), " 10           0\r\n      11      22       3       0       0       0       0       0\r\n"
                               "       0       0");

    queue("d.chn", shortFile);
    run(false, false);
    EXPECT_EQ(output("d.dat"), "       2      50       3       0       0       0       0       0\r\n       0       0");

    // No channels: a header with last channel -1 and nothing after it.
    queue("e.chn", chnFile(0, 0, 0, {}));
    EXPECT_EQ(run(true, false), RunOutcome::Finished);
    const std::string spe = output("e.spe");
    EXPECT_EQ(spe.substr(spe.size() - 30), "$DATA:\r\n         0        -1\r\n");
}

TEST_F(ChnReaderTest, BadValuesEndTheRun) {
    struct Case {
        const char* what;
        std::string bytes;
        bool spe, spo;
        const char* error;
    } cases[] = {
        {"top bit of the first time", chnFile(-1, 0, 10, TenCounts), true, false, "Error 6 Overflow"},
        {"top bit of the second time", chnFile(0, INT32_MIN, 10, TenCounts), false, true, "Error 6 Overflow"},
        {"no channels for the times", chnFile(0, 0, 0, {}), false, false, "Error 9 Subscript out of range"},
        {"one channel for the times", chnFile(0, 0, 1, {5}), false, false, "Error 9 Subscript out of range"},
        {"both boxes", chnFile(0, 0, 10, TenCounts), true, true, "Error 9 Subscript out of range"},
    };
    for (const Case& c : cases) {
        queue("bad.chn", c.bytes);
        EXPECT_EQ(run(c.spe, c.spo), RunOutcome::ErrorHandled) << c.what;
        EXPECT_NE(lastMessage().find(c.error), std::string::npos) << c.what << ": " << lastMessage();
        form.files.closeAll();  // a failed reader leaves them open
    }
}

TEST_F(ChnReaderTest, RealFilesMatchTheirKnownTimesAndMaestroExports) {
    const std::string samples = KESTRO_SAMPLES_DIR;
    auto convertSample = [&](const std::string& name) {
        queue(name, readFile(samples + "/chn/" + name));
        EXPECT_EQ(run(true, false), RunOutcome::Finished) << name;
        const std::string spe = output(name.substr(0, name.size() - 4) + ".spe");
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
    struct Pair {
        const char* chn;
        const char* spe;
        const char* firstTime;
    } pairs[] = {
        {"1110C NAA cave background May 2017.CHN", "1110C NAA cave background May 2017.spe", "   1094758"},
        {"1110C NAA cave pottery.CHN", "1110C NAA cave pottery.Spe", "     41392"},
    };
    for (const Pair& p : pairs) {
        const std::string chn = p.chn;
        EXPECT_EQ(convertSample(chn).substr(0, 10), p.firstTime);
        const std::string fromChn = output(chn.substr(0, chn.size() - 4) + ".odf");
        queue("maestro.spe", readFile(samples + "/spe/" + p.spe));
        EXPECT_EQ(run(false, false), RunOutcome::Finished);
        EXPECT_EQ(form.valueCount, 16384);
        EXPECT_TRUE(output("maestro.odf") == fromChn) << chn;
    }
}

}  // namespace
}  // namespace kestro
