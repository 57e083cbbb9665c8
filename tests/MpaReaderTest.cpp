// The FastComtec MPA/MP reader through the driver: crafted files in each
// data format, outputs compared byte for byte, and the files it leaves open.
#include "TestSupport.h"

namespace kestro {
namespace {

using testing::failureBox;
using MpaReaderTest = testing::ConversionTest;

// The sections of ADCs 1 to 3 when only ADC 0 is of interest.
const std::string QuietAdcs = "[ADC1]\r\n[ADC2]\r\n[ADC3]\r\n";

TEST_F(MpaReaderTest, AscSpectraOfActiveAdcsBecomeOneOdfEach) {
    // Times round half to even: live 13.5 gives 14, real 12.5 gives 12.
    queue("run.mpa",
          "range=1024\r\nmpafmt=asc\r\nsephead=0\r\n"
          "[ADC0]\r\nrange=5\r\nactive=1\r\nrealtime=12.5\r\nlivetime=13.5\r\n"
          "[ADC1]\r\nrange=4\r\nactive=0\r\nrealtime=7\r\n"
          "[ADC2]\r\nrange=4\r\nactive=1\r\nrealtime=100\r\nlivetime=99.4\r\n"
          "[ADC3]\r\nactive=2\r\n"
          "[DATA0,5 ]\r\nskipped\r\nskipped\r\n7,1.5 9\r\n"
          "[DATA2,4 ]\r\nskipped\r\nskipped\r\n-3\r\ntext\r\n");
    form.boxes.DsGr = true;
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("F0run.odf"), " 0  14 \r\n 1  12 \r\n 2  7 \r\n 3  1.5 \r\n 4  9 \r\n");
    EXPECT_EQ(output("F2run.odf"), " 0  99 \r\n 1  100 \r\n 2 -3 \r\n 3 text\r\n");
    EXPECT_FALSE(written("F1run.odf") || written("F3run.odf"));
    EXPECT_FALSE(form.boxes.DsGr);  // several spectra: no plot
    EXPECT_TRUE(host.plots.empty());
    EXPECT_FALSE(form.files.isOpen(1));
}

TEST_F(MpaReaderTest, SpeEmsaAndBinaryDataFormats) {
    // "spe": the header copy runs to the next "[" line; two values after the
    // channel-range line are dropped.
    queue("s.mpa",
          "mpafmt=spe\r\n[ADC0]\r\nrange=4\r\nactive=1\r\nrealtime=10\r\nlivetime=9\r\n" + QuietAdcs +
              "[DATA0]\r\n$SPEC_ID:\r\nid\r\n$DATA:\r\n0 3\r\n1 2 30 40\r\n[DATA1]\r\n");
    // "emsa": the copy runs through "#ENDOFDATA"; the next spectrum starts
    // after the line that follows the data.
    queue("e.mpa",
          "mpafmt=emsa\r\n[ADC0]\r\nrange=4\r\nactive=1\r\nrealtime=2\r\nlivetime=1\r\n"
          "[ADC1]\r\nrange=3\r\nactive=1\r\n[ADC2]\r\n[ADC3]\r\n"
          "[DATA0]\r\n#FORMAT : EMSA\r\n#SPECTRUM : \r\n5, 6, 70, 80\r\n#ENDOFDATA : \r\n"
          "[DATA1]\r\n#SPECTRUM : \r\n1, 2, 3\r\n#ENDOFDATA : \r\n");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("F0s.spe"), "$SPEC_ID:\r\nid\r\n$DATA:\r\n0 3\r\n1 2 30 40\r\n");
    EXPECT_EQ(output("F0s.odf"), " 0  9 \r\n 1  10 \r\n 2  30 \r\n 3  40 \r\n");
    EXPECT_EQ(output("F0e.sde"), "#FORMAT : EMSA\r\n#SPECTRUM : \r\n5, 6, 70, 80\r\n#ENDOFDATA : \r\n");
    EXPECT_EQ(output("F0e.odf"), " 0  1 \r\n 1  2 \r\n 2  70 \r\n 3  80 \r\n");
    EXPECT_EQ(output("F1e.sde"), "#SPECTRUM : \r\n1, 2, 3\r\n#ENDOFDATA : \r\n");
    EXPECT_EQ(output("F1e.odf"), " 0  0 \r\n 1  0 \r\n 2  3 \r\n");

    // "dat": binary counts follow each 15-byte section line.
    BinaryBuilder file;
    file.text("mpafmt=dat\r\n[ADC0]\r\nrange=4\r\nactive=1\r\nrealtime=3\r\nlivetime=2\r\n"
              "[ADC1]\r\nrange=5\r\nactive=1\r\nrealtime=5\r\nlivetime=4\r\n[ADC2]\r\n[ADC3]\r\n");
    file.text("[DATA0,4    ]\r\n").i32(100).i32(200).i32(300).i32(-400);
    // The second spectrum is cut short: counts past the end read as 0.
    file.text("[DATA1,5    ]\r\n").i32(1).i32(2).i32(3);
    queue("b.mpa", file.bytes());
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("F0b.odf"), " 0  2 \r\n 1  3 \r\n 2  300 \r\n 3 -400 \r\n");
    EXPECT_EQ(output("F1b.odf"), " 0  4 \r\n 1  5 \r\n 2  3 \r\n 3  0 \r\n 4  0 \r\n");
    EXPECT_FALSE(form.files.isOpen(1));
}

TEST_F(MpaReaderTest, MpFileReadsAdcZeroOnlyAndLeavesThePlotBoxAlone) {
    // range = 2: only the two time lines.
    queue("m.mp", "fmt=asc\r\nmpafmt=spe\r\n[ADC0]\r\nrange=2\r\nactive=1\r\nrealtime=8\r\nlivetime=6\r\n"
                  "[ADC1]\r\nactive=1\r\n[DATA]\r\na\r\nb\r\n");
    form.boxes.DsGr = true;
    run();  // the plot stage then finds no "m.odf": the driver's part
    EXPECT_EQ(output("F0m.odf"), " 0  6 \r\n 1  8 \r\n");
    EXPECT_FALSE(written("F1m.odf"));
    EXPECT_TRUE(form.boxes.DsGr);
}

TEST_F(MpaReaderTest, SeparatedSpectraAndUnknownExtensionsLeaveTheInputOpen) {
    queue("sep.mpa", "mpafmt=asc\r\nsephead=1 \r\n[ADC0]\r\n");
    queue("next.mpa", "[ADC0]\r\n");
    form.boxes.DsGr = true;
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    ASSERT_EQ(host.boxes.size(), 2u);
    EXPECT_EQ(host.boxes[0].text, "Spec files already separated...");
    EXPECT_EQ(host.boxes[0].icon, BoxIcon::None);
    EXPECT_EQ(host.boxes[0].buttons, BoxButtons::Ok);
    EXPECT_FALSE(form.boxes.DsGr);  // unchecked before the message
    // The next file of the same run finds number 1 still in use.
    EXPECT_EQ(host.boxes[1].text, failureBox("Error 55 File already open"));
    EXPECT_EQ(host.boxes[1].openFiles, std::vector<int>{1});

    // The shown name's extension is everything after its first ".". The
    // input stays open to the end of the run, which closes it.
    queue("two.dots.mpa", "mpafmt=asc\r\n[ADC0]\r\nactive=1\r\n" + QuietAdcs + "[DATA]\r\n");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(host.boxes.size(), 2u);
    EXPECT_FALSE(form.files.isOpen(1));
    EXPECT_FALSE(written("F0two.odf"));
}

TEST_F(MpaReaderTest, BadHeadersEndTheRunAndLeaveTheFilesOpen) {
    expectFailures("bad.mpa", {
        {"range beyond 16 bits", "mpafmt=asc\r\n[ADC0]\r\nrange=40000\r\n[ADC1]\r\n", "Error 6 Overflow", 1},
        {"missing section", "mpafmt=asc\r\n[ADC0]\r\n[ADC1]\r\n", "Error 62 Input past end of file", 1},
        {"too few values", "mpafmt=asc\r\n[ADC0]\r\nrange=9\r\nactive=1\r\n" + QuietAdcs + "[D]\r\na\r\nb\r\n1 2\r\n",
         "Error 62 Input past end of file", 2},
        {"time beyond 32 bits", "mpafmt=asc\r\n[ADC0]\r\nactive=1\r\nlivetime=3e9\r\n" + QuietAdcs + "[D]\r\n",
         "Error 6 Overflow", 2},
    });
}

TEST_F(MpaReaderTest, AFailedRunLeavesNoFileOpenForTheNextRun) {
    queue("bad.mpa", "mpafmt=asc\r\n[ADC0]\r\nrange=9\r\nactive=1\r\n" + QuietAdcs + "[D]\r\na\r\nb\r\n1 2\r\n");
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_EQ(host.boxes.back().openFiles, (std::vector<int>{1, 2}));
    // What the failed reader wrote is on disk, up to the channel it failed on.
    EXPECT_EQ(output("F0bad.odf"), " 0  0 \r\n 1  0 \r\n 2  1 \r\n 3  2 \r\n 4 ");

    queue("good.mpa", "mpafmt=asc\r\n[ADC0]\r\nrange=3\r\nactive=1\r\n" + QuietAdcs + "[D]\r\na\r\nb\r\n7\r\n");
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(output("F0good.odf"), " 0  0 \r\n 1  0 \r\n 2  7 \r\n");
}

TEST_F(MpaReaderTest, RealMpa4aFileIsReadAsItsLayoutDirects) {
    const std::string sample = testing::readFile(KESTRO_SAMPLES_DIR "/mpa/Sample1_raw_data.mpa");
    ASSERT_EQ(sample.substr(0, 13), "[MPA4A] 404\r\n");

    // Its first line "[MPA4A] 404" already ends the file header, so the
    // "mpafmt=asc" and "sephead=1" lines below it (SOURCES.md) are never
    // seen: there is no data format, the four sections read without error
    // and nothing is written. None of its ADCs has active=1 anyway (1 and 2
    // are "active=2").
    queue("Sample1_raw_data.mpa", sample);
    form.boxes.DsGr = true;
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_TRUE(host.boxes.empty());
    EXPECT_FALSE(form.boxes.DsGr);
    EXPECT_FALSE(written("F0Sample1_raw_data.odf"));
    EXPECT_FALSE(form.files.isOpen(1));

    // Without that first line the header's "sephead=1" counts.
    queue("untitled.mpa", sample.substr(13));
    EXPECT_EQ(run(), RunOutcome::Finished);
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(host.boxes[0].text, "Spec files already separated...");
    EXPECT_EQ(host.boxes[0].openFiles, std::vector<int>{1});
    EXPECT_FALSE(form.files.isOpen(1));
}

}  // namespace
}  // namespace kestro
