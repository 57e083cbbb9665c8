// The batch driver and the shared writers, through the same Session a front
// end uses; outputs compared byte for byte.
#include <gtest/gtest.h>

#include "ScriptedHost.h"
#include "TestFiles.h"
#include "core/Driver.h"
#include "core/FormatTable.h"
#include "core/Session.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::setModified;
using testing::writeFile;

constexpr std::time_t SomeTime = 1763700000;  // a fixed modification time

class DriverTest : public ::testing::Test {
protected:
    DriverTest() : form(host) { formLoad(form); }

    // Writes a queued input file and returns its full path.
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

    testing::TempDir dir;
    testing::ScriptedHost host;
    Session form;
};

TEST_F(DriverTest, EmptyQueueSaysAddFilesFirstInRed) {
    EXPECT_EQ(run(), RunOutcome::NothingQueued);
    ASSERT_EQ(host.statuses.size(), 1u);
    EXPECT_EQ(host.statuses[0].first, "Add files first !");
    EXPECT_EQ(host.statuses[0].second, StatusColour::Red);
    EXPECT_EQ(host.beeps, 1);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST_F(DriverTest, TwoColumnFileBecomesSpeWithTimesShownAsZero) {
    std::string odf = queue("x.odf", "1 2000\r\n2 1800\r\n3 5\r\n");
    std::string when = setModified(odf, SomeTime);
    tick(true, false);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("x.spe")),
              "$SPEC_ID:\r\n" + odf + "\r\n$DATE_MEA:\r\n" + when +
                  "\r\n$MEAS_TIM:\r\n      2000      1800\r\n$DATA:\r\n         0         2\r\n"
                  "       0       0       5\r\n");
    EXPECT_EQ(form.valueCount, 3);
    EXPECT_EQ(form.sharedRealTime.toNumber(), 1800);
    EXPECT_EQ(host.statuses.front().first, dir.file("x.odf") + " done");
    EXPECT_EQ(host.lastStatus(), "Finished 1 files");
    EXPECT_EQ(host.statuses.back().second, StatusColour::Blue);
    EXPECT_EQ(host.progress, (std::vector<int>{100, 0}));
    EXPECT_TRUE(form.List1.empty() && form.List2.empty());
    EXPECT_EQ(host.waited, 1);
}

TEST_F(DriverTest, TwoColumnFileBecomesBareDataBlock) {
    // Decimal commas, tabs and runs of blanks; a 9-character value shifts the line.
    queue("a.odf", "0,5 100\r\n1\t\t7\r\n  2   123456789  \r\n");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("a.dat")), "     100       7123456789");

    std::string sixteen;
    for (int i = 0; i < 16; ++i) sixteen += std::to_string(i) + " " + std::to_string(i * 10) + "\r\n";
    queue("b.odf", sixteen);
    run();
    std::string block = readFile(dir.file("b.dat"));
    ASSERT_EQ(block.size(), 132u);
    EXPECT_EQ(block.substr(0, 66), "       0      10      20      30      40      50      60      70\r\n");
}

TEST_F(DriverTest, SpoIsCutBeforeTheFirstDollar) {
    queue("c.odf", "0 5\r\n1 7\r\n2 $end\r\n3 9\r\n");
    tick(false, true);
    run();
    // The padding of the "$" field stays; only the text from "$" on goes.
    EXPECT_EQ(readFile(dir.file("c.spo")), " 4            0\r\n       5       7    \r\n");
}

TEST_F(DriverTest, MissingSecondColumnAndBothBoxesReachTheErrorHandler) {
    queue("one.odf", "1 2\r\n");
    queue("bad.odf", "1 2\r\n3\r\n");
    queue("never.odf", "1 2\r\n");
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_TRUE(testing::exists(dir.file("one.dat")));
    EXPECT_FALSE(testing::exists(dir.file("never.dat")));
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(host.boxes[0].text, "! CHECK FOR ERROR !\nError 9 Subscript out of range in 'ODF writing'       \n\n");
    EXPECT_EQ(host.boxes[0].icon, BoxIcon::Information);
    EXPECT_TRUE(form.List1.empty());
    EXPECT_EQ(host.progress.back(), 0);

    host.boxes.clear();
    queue("both.odf", "1 2\r\n");
    tick(true, true);
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_NE(host.boxes.at(0).text.find("Error 9 Subscript out of range"), std::string::npos);
}

TEST_F(DriverTest, UnwritableOutputGivesTheLockedForWritingMessage) {
    queue("locked.spe", "$DATA:\r\n0 1\r\n5\r\n6\r\n");
    std::filesystem::create_directory(dir.file("locked.odf"));
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_EQ(host.boxes.at(0).text,
              "! CHECK PATH/FOLDER USERS PERMISSIONS !\nError 75 Path/File access error in 'ODF writing'       \n\n"
              "PROBABLY LOCKED FOR WRITING\nUNLOCK IT or CHOOSE a DIFFERENT FOLDER!");
}

TEST_F(DriverTest, MissingInputNamesTheErrorAndKeepsEarlierOutputs) {
    queue("first.dat", "1 2 3\r\n");
    form.addToQueue("gone.dat", dir.file("gone.dat"));
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_EQ(readFile(dir.file("first.odf")), " 0  1 \r\n 1  2 \r\n 2  3 \r\n");
    EXPECT_NE(host.boxes.at(0).text.find("Error 53 File not found in 'ODF writing'"), std::string::npos);
}

TEST_F(DriverTest, SpeInputIsReadAfterItsDataLineUpToTheNextSection) {
    // Seven header lines, "$DATA:" on line 8, the channel range on line 9.
    queue("s.spe",
          "$SPEC_ID:\r\nid\r\n$DATE_MEA:\r\nd\r\n$MEAS_TIM:\r\n1 2\r\n$SPEC_REM:\r\n$DATA:\r\n0 3\r\n"
          "      5\r\n     -6\r\n    1.50\r\n  7\r\n$ROI:\r\n1\r\n");
    run();
    EXPECT_EQ(readFile(dir.file("s.odf")), " 0  5 \r\n 1 -6 \r\n 2  1.5 \r\n 3  7 \r\n");
    EXPECT_EQ(form.valueCount, 4);
}

TEST_F(DriverTest, FixedHeadersOfAscRbsAndSimAreSkipped) {
    auto withHeader = [](int lines) {
        std::string s;
        for (int i = 0; i < lines; ++i) s += "header 99\r\n";
        return s + "4,5\r\nabc\r\n";
    };
    queue("a.asc", withHeader(54));
    queue("r.rbs", withHeader(12));
    queue("m.sim", withHeader(12));
    EXPECT_EQ(run(), RunOutcome::Finished);
    for (const char* odf : {"a.odf", "r.odf", "m.odf"})
        EXPECT_EQ(readFile(dir.file(odf)), " 0  4 \r\n 1  5 \r\n 2 abc\r\n") << odf;
}

TEST_F(DriverTest, DatBlockIsWrappedAsSpeOrSpo) {
    std::string block = "    1000    1010       7       8\r\n";
    std::string dat = queue("d.dat", block);
    std::string when = setModified(dat, SomeTime);
    tick(true, false);
    run();
    EXPECT_EQ(readFile(dir.file("d.odf")), " 0  1000 \r\n 1  1010 \r\n 2  7 \r\n 3  8 \r\n");
    EXPECT_EQ(readFile(dir.file("d.spe")),
              "$SPEC_ID:\r\n" + dat + "\r\n$DATE_MEA:\r\n" + when +
                  "\r\n$MEAS_TIM:\r\n      1000      1010\r\n$DATA:\r\n         0         3\r\n"
                  "       0       0       7       8\r\n\r\n");

    form.addToQueue("d.dat", dat);
    tick(false, true);
    run();
    EXPECT_EQ(readFile(dir.file("d.spo")), " 4            0\r\n" + block + "\r\n");
}

TEST_F(DriverTest, DatOptionCopiesTheBlockAndCountsFullLines) {
    std::string line = "       1       2       3       4       5       6       7       8\r\n";
    std::string block;
    for (int i = 0; i < 10; ++i) block += line;
    ASSERT_EQ(block.size(), 660u);
    queue("k.dat", block);
    Text1_Change(form, "-dat");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(form.valueCount, 80);
    EXPECT_EQ(readFile(dir.file("k.odf")), block);
    std::string spe = readFile(dir.file("k.spe"));
    EXPECT_NE(spe.find("\r\n         0        79\r\n       0       0       3"), std::string::npos);
}

TEST_F(DriverTest, OptionDispatchWhenNoExtensionMatches) {
    queue("x.foo", "1 2\r\n");
    Text1_Change(form, "-dat");
    EXPECT_EQ(run(), RunOutcome::OptionRefused);
    EXPECT_EQ(host.boxes.at(0).text,
              "Option no longer supported! Set the SPE/SPO appropriate selection and try again!!");
    EXPECT_EQ(host.boxes.at(0).icon, BoxIcon::Critical);
    EXPECT_EQ(form.List1.size(), 1u);

    form.formatOption = "S35F";  // no option route of its own
    host.boxes.clear();
    EXPECT_EQ(run(), RunOutcome::Declined);
    EXPECT_EQ(host.boxes.at(0).text, "WARNING: format option not recognized! Conversion may be awkward, proceed?");
    EXPECT_EQ(host.boxes.at(0).buttons, BoxButtons::YesNo);
    EXPECT_EQ(form.formatOption, "");
    EXPECT_TRUE(form.List1.empty());

    queue("x.foo", "1 2\r\n");
    host.answers.push_back(Answer::Yes);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(readFile(dir.file("x.odf")), " 0  1 \r\n 1  2 \r\n");
}

TEST_F(DriverTest, FormatsStillToComeSayTheyAreNotAvailable) {
    queue("g.raw", "");
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_EQ(host.boxes.at(0).text,
              "! CHECK FOR ERROR !\nError 1004 The Bruker/AXS RAW input format is not available yet in 'ODF writing'"
              "       \n\n");
}

TEST_F(DriverTest, PlotStageHandsOverTheOdfPairs) {
    queue("p.dat", "3 -4 5\r\n");
    queue("q.odf", "0 1\r\n1 2\r\n");
    form.boxes.DsGr = true;
    form.boxes.LogScale = true;
    run();
    ASSERT_EQ(host.plots.size(), 2u);
    EXPECT_EQ(host.plots[0].name, dir.file("p.odf"));
    EXPECT_EQ(host.plots[0].count, 3);
    EXPECT_EQ(host.plots[0].points, (PlotPoints{{0, 3}, {1, -4}, {2, 5}}));
    EXPECT_TRUE(host.plots[0].logarithmic);
    EXPECT_EQ(host.plots[1].points, (PlotPoints{{0, 1}, {1, 2}}));
    EXPECT_EQ(host.waited, 3);  // one second after each plot and at the end
    EXPECT_EQ(host.progress, (std::vector<int>{50, 100, 0}));
}

TEST_F(DriverTest, RealSpeFilesConvert) {
    // Maestro exports with CR LF line ends; 16384 and 1024 channels (see SOURCES.md).
    const std::string samples = KESTRO_SAMPLES_DIR "/spe/";
    struct Case {
        const char* name;
        int64_t channels;
    } cases[] = {{"1110C NAA cave pottery.Spe", 16384}, {"digibase_5min_30_1.spe", 1024}};
    for (const Case& c : cases) {
        std::string copy = dir.file(c.name);
        writeFile(copy, readFile(samples + c.name));
        form.addToQueue(c.name, copy);
        EXPECT_EQ(run(), RunOutcome::Finished) << c.name;
        EXPECT_EQ(form.valueCount, c.channels) << c.name;
    }
    // This one ends its lines with LF alone, so line input sees one long line
    // and never finds "$DATA:": the pass runs out of lines and says so.
    std::string lf = dir.file("SGM102432.spe");
    writeFile(lf, readFile(samples + "SGM102432.spe"));
    form.addToQueue("SGM102432.spe", lf);
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_NE(host.boxes.back().text.find("Error 62 Input past end of file"), std::string::npos);
}

}  // namespace
}  // namespace kestro
