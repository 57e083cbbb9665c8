// The batch driver and the shared writers, through the same Session a front
// end uses; outputs compared byte for byte.
#include "TestSupport.h"

namespace kestro {
namespace {

using testing::failureBox;
using testing::setModified;
using testing::SomeTime;
using DriverTest = testing::ConversionTest;

TEST_F(DriverTest, EmptyQueueSaysAddFilesFirstInRed) {
    EXPECT_EQ(run(), RunOutcome::NothingQueued);
    EXPECT_EQ(host.statuses, (decltype(host.statuses){{"Add files first !", StatusColour::Red}}));
    EXPECT_EQ(host.beeps, 1);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST_F(DriverTest, TwoColumnFilesBecomeSpeWithZeroTimesOrBareBlockOrSpo) {
    std::string odf = queue("x.odf", "1 2000\r\n2 1800\r\n3 5\r\n");
    std::string when = setModified(odf, SomeTime);
    tick(true, false);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("x.spe"), "$SPEC_ID:\r\n" + odf + "\r\n$DATE_MEA:\r\n" + when +
                                   "\r\n$MEAS_TIM:\r\n      2000      1800\r\n$DATA:\r\n         0         2\r\n"
                                   "       0       0       5\r\n");
    EXPECT_EQ(form.valueCount, 3);
    EXPECT_EQ(form.sharedRealTime.toNumber(), 1800);
    EXPECT_EQ(host.statuses, (decltype(host.statuses){{odf + " done", StatusColour::Blue},
                                                       {"Finished 1 files", StatusColour::Blue}}));
    EXPECT_TRUE(form.List1.empty() && form.List2.empty());

    // A bare data block from decimal commas, tabs and runs of blanks; a 9-character value shifts the line.
    queue("a.odf", "0,5 100\r\n1\t\t7\r\n  2   123456789  \r\n");
    std::string sixteen;
    for (int i = 0; i < 16; ++i) sixteen += std::to_string(i) + " " + std::to_string(i * 10) + "\r\n";
    queue("b.odf", sixteen);
    tick(false, false);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("a.dat"), "     100       7123456789");
    std::string block = output("b.dat");
    ASSERT_EQ(block.size(), 132u);
    EXPECT_EQ(block.substr(0, 66), "       0      10      20      30      40      50      60      70\r\n");

    // The padding of the "$" field stays; only the text from "$" on goes.
    EXPECT_EQ(converted("c.odf", "0 5\r\n1 7\r\n2 $end\r\n3 9\r\n", "c.spo", false, true),
              " 4            0\r\n       5       7    \r\n");
}

TEST_F(DriverTest, AFailureEndsTheRunWithItsMessageAndKeepsEarlierOutputs) {
    queue("one.odf", "1 2\r\n");
    queue("bad.odf", "1 2\r\n3\r\n");  // no second column
    queue("never.odf", "1 2\r\n");
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_TRUE(written("one.dat"));
    EXPECT_FALSE(written("never.dat"));
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(message(), failureBox("Error 9 Subscript out of range"));
    EXPECT_TRUE(form.List1.empty());
    EXPECT_EQ(host.progress.back(), 0);

    // More messages; a missing input's, and the icons, are pinned by the command-line tests.
    std::filesystem::create_directory(dir.file("locked.odf"));
    const struct { const char* name; const char* bytes; bool spe, spo; std::string text; } cases[] = {
        {"both.odf", "1 2\r\n", true, true, failureBox("Error 9 Subscript out of range")},
        {"locked.spe", "$DATA:\r\n0 1\r\n5\r\n6\r\n", false, false,
         "! CHECK PATH/FOLDER USERS PERMISSIONS !\nError 75 Path/File access error in 'ODF writing'       \n\n"
         "PROBABLY LOCKED FOR WRITING\nUNLOCK IT or CHOOSE a DIFFERENT FOLDER!"},
        // Formats still to come say so.
        {"g.dxp", "", false, false, failureBox("Error 1004 The DXP input format is not available yet")},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(convert(c.name, c.bytes, c.spe, c.spo), RunOutcome::ErrorHandled) << c.name;
        EXPECT_EQ(message(), c.text) << c.name;
    }
}

TEST_F(DriverTest, TextMixingCrLfAndLoneLfKeepsTheClassicLines) {
    // "3 4\n5 6" is one line: its second column is "4\n5".
    EXPECT_EQ(converted("mixed.odf", "1 2\r\n3 4\n5 6\r\n", "mixed.dat"), "       2     4\n5");
    EXPECT_EQ(converted("lf.odf", "1 2\n3 4\n5 6\n", "lf.dat"), "       2       4       6");
}

TEST_F(DriverTest, HeadersBeforeTheDataAreSkipped) {
    // Seven header lines, "$DATA:" on line 8, the channel range on line 9.
    queue("s.spe",
          "$SPEC_ID:\r\nid\r\n$DATE_MEA:\r\nd\r\n$MEAS_TIM:\r\n1 2\r\n$SPEC_REM:\r\n$DATA:\r\n0 3\r\n"
          "      5\r\n     -6\r\n    1.50\r\n  7\r\n$ROI:\r\n1\r\n");
    run();
    EXPECT_EQ(output("s.odf"), " 0  5 \r\n 1 -6 \r\n 2  1.5 \r\n 3  7 \r\n");
    EXPECT_EQ(form.valueCount, 4);

    // ".asc", ".rbs" and ".sim" have fixed headers.
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
        EXPECT_EQ(output(odf), " 0  4 \r\n 1  5 \r\n 2 abc\r\n") << odf;
}

TEST_F(DriverTest, DatBlockIsWrappedAsSpeOrSpoOrCopied) {
    std::string block = "    1000    1010       7       8\r\n";
    std::string dat = queue("d.dat", block);
    std::string when = setModified(dat, SomeTime);
    tick(true, false);
    run();
    EXPECT_EQ(output("d.odf"), " 0  1000 \r\n 1  1010 \r\n 2  7 \r\n 3  8 \r\n");
    EXPECT_EQ(output("d.spe"), "$SPEC_ID:\r\n" + dat + "\r\n$DATE_MEA:\r\n" + when +
                                   "\r\n$MEAS_TIM:\r\n      1000      1010\r\n$DATA:\r\n         0         3\r\n"
                                   "       0       0       7       8\r\n\r\n");

    form.addToQueue("d.dat", dat);
    tick(false, true);
    run();
    EXPECT_EQ(output("d.spo"), " 4            0\r\n" + block + "\r\n");
    // A time text longer than 10 characters still gets |10 - length| blanks in front.
    const std::string spe = converted("long.dat", " 123456789012       7\r\n", "long.spe", true);
    EXPECT_NE(spe.find("$MEAS_TIM:\r\n    123456789012         7\r\n"), std::string::npos);

    // The "-dat" option copies the block and counts full lines.
    std::string lines;
    for (int i = 0; i < 10; ++i) lines += "       1       2       3       4       5       6       7       8\r\n";
    queue("k.dat", lines);
    Text1_Change(form, "-dat");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(form.valueCount, 80);
    EXPECT_EQ(output("k.odf"), lines);
    EXPECT_NE(output("k.spe").find("\r\n         0        79\r\n       0       0       3"), std::string::npos);
}

TEST_F(DriverTest, BlankLinesHoldNoChannel) {
    const std::string four = " 0  1 \r\n 1  2 \r\n 2  3 \r\n 3  4 \r\n";
    // A last empty line, blank lines between, blanks on an empty line, LF-only text.
    EXPECT_EQ(converted("a.dat", "1 2\r\n3 4\r\n\r\n", "a.odf"), four);
    EXPECT_EQ(form.valueCount, 4);
    EXPECT_EQ(converted("b.dat", "\r\n1 2\r\n\r\n\r\n3\r\n  \t \r\n4\r\n\r\n", "b.odf"), four);
    EXPECT_EQ(converted("c.dat", "1 2\n3 4\n\n", "c.odf"), four);
    EXPECT_EQ(form.valueCount, 4);
    // Streamed a block at a time: runs of line ends across the block edges.
    std::string big;
    for (int i = 0; i < 300000; ++i) big += "7\r\n\r\n";
    const std::string bigOdf = converted("big.dat", big, "big.odf");
    EXPECT_EQ(form.valueCount, 300000);
    EXPECT_EQ(bigOdf.substr(bigOdf.size() - 13), " 299999  7 \r\n");
    // Nothing but line ends: no channel at all.
    EXPECT_EQ(converted("e.dat", "\r\n\r\n", "e.odf"), "");
    EXPECT_EQ(form.valueCount, 0);
    // An empty field between two commas is still a value.
    EXPECT_EQ(converted("f.dat", "1,,2\r\n\r\n", "f.odf"), " 0  1 \r\n 1 \r\n 2  2 \r\n");

    // A wrapped block counts its values, not the line after its last full line.
    const std::string full = "       1       2       3       4       5       6       7       8\r\n";
    const std::string spe = converted("g.dat", full + "\r\n", "g.spe", true);
    EXPECT_NE(spe.find("$DATA:\r\n         0         7\r\n"), std::string::npos);
    EXPECT_EQ(form.valueCount, 8);
    // An SPE whose block ends on a full line, then its further line end and a "$" section.
    EXPECT_EQ(converted("h.spe", "$DATA:\r\n0 7\r\n" + full + "\r\n", "h.odf").substr(56), " 7  8 \r\n");
    EXPECT_EQ(form.valueCount, 8);
}

// The texts of these messages are pinned by the command-line tests.
TEST_F(DriverTest, OptionDispatchWhenNoExtensionMatches) {
    queue("x.foo", "1 2\r\n");
    Text1_Change(form, "-dat");
    EXPECT_EQ(run(), RunOutcome::OptionRefused);
    EXPECT_EQ(form.List1.size(), 1u);

    form.formatOption = "S35F";  // no option route of its own
    EXPECT_EQ(run(), RunOutcome::Declined);
    EXPECT_EQ(host.boxes.size(), 2u);
    EXPECT_EQ(form.formatOption, "");
    EXPECT_TRUE(form.List1.empty());

    queue("x.foo", "1 2\r\n");
    host.answer = Answer::Yes;
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("x.odf"), " 0  1 \r\n 1  2 \r\n");
}

// Each run hands its record to the front end once, however it ends.
TEST_F(DriverTest, EveryRunEndsWithItsRecord) {
    using State = RunLogFile::State;
    run();
    ASSERT_EQ(host.runLogs.size(), 1u);
    EXPECT_TRUE(host.runLogs[0].files.empty());

    queue("a.dat", "1 2\r\n");
    queue("b.foo", "1 2\r\n");
    queue("c.dat", "3\r\n");
    tick(false, true);
    form.formatOption = "S35F";  // no route: the question, answered No
    EXPECT_EQ(run(), RunOutcome::Declined);
    ASSERT_EQ(host.runLogs.size(), 2u);
    const RunLog& declined = host.runLogs[1];
    ASSERT_EQ(declined.files.size(), 3u);
    EXPECT_EQ(declined.files[0].state, State::Converted);
    EXPECT_EQ(declined.files[0].outputs, (std::vector<std::string>{dir.file("a.odf"), dir.file("a.spo")}));
    EXPECT_EQ(declined.files[1].state, State::Failed);
    EXPECT_EQ(declined.files[1].message.rfind("WARNING: format option not recognized!", 0), 0u);
    EXPECT_EQ(declined.files[2].state, State::NotReached);
    EXPECT_EQ(form.runLog.current(), nullptr);

    // A ".csv" ends the run by design: converted, and the rest not reached.
    queue("t.csv", "channel,counts,\r\n0,403\r\n1,383\r\n");
    queue("c.dat", "3\r\n");
    run();
    ASSERT_EQ(host.runLogs.size(), 3u);
    EXPECT_EQ(host.runLogs[2].files[0].state, State::Converted);
    EXPECT_EQ(host.runLogs[2].files[0].outputs, (std::vector<std::string>{dir.file("t-1.dat")}));
    EXPECT_EQ(host.runLogs[2].files[1].state, State::NotReached);
    // The record passes through untouched: the front end sees the same boxes.
    EXPECT_EQ(&form.host(), &host);
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
    // A Maestro export with CR LF line ends and 1024 channels (see SOURCES.md).
    const std::string samples = KESTRO_SAMPLES_DIR "/spe/";
    EXPECT_EQ(convert("d.spe", testing::readFile(samples + "digibase_5min_30_1.spe")), RunOutcome::Finished);
    EXPECT_EQ(form.valueCount, 1024);
    // This one ends its lines with LF alone (8 header lines, then the 4094
    // counts of "0 4093"): it reads as its CR LF twin would.
    const std::string lf = testing::readFile(samples + "SGM102432.spe");
    EXPECT_EQ(convert("SGM102432.spe", lf), RunOutcome::Finished);
    EXPECT_EQ(form.valueCount, 4094);
    EXPECT_EQ(convert("twin.spe", crLfTwin(lf)), RunOutcome::Finished);
    EXPECT_EQ(output("SGM102432.odf"), output("twin.odf"));
}

}  // namespace
}  // namespace kestro
