// OMDAQ files in and out, CSV columns and EVT event lists, through the
// driver: crafted files compared byte for byte, the refusals that end a run,
// and the round trip of a two-column spectrum through an OMDAQ file.
#include "TestSupport.h"
#include "core/runtime/Dates.h"
#include "core/runtime/NumberText.h"

namespace kestro {
namespace {

using testing::failureBox;
using testing::readFile;
using OmdaqTest = testing::ConversionTest;
using CsvEvtTest = testing::ConversionTest;

// Where the fields lie, written out here from the file format itself so
// that a wrong row in the reader's table shows.
struct Offsets { int version; int64_t date, E, S, A, R, D; };
const Offsets V1{1, 24, 1002, 1044, 2, 23, 1230};
const Offsets V4{4, 24, 1002, 3606, 2, 23, 3798};
const Offsets V5{5, 24, 1002, 3615, 2, 103, 3887};
const Offsets V6{6, 35, 3095, 3195, 2, 103, 3467};
const Offsets V13{13, 35, 3095, 3891, 34, 139, 4211};

struct OmdaqFields {
    int16_t channels = 10;
    std::string date = "22/11/2026 14:32:05";
    std::string target = "\x01  Au on C \xC9" "foil\t";
    int32_t elapsed = 3725;
    int16_t compression = 0;
    int16_t radiation = 8;
    float distance = 100;
    std::string data = "";  // the bytes from the data offset on
};

std::string omdaqFile(const Offsets& o, const OmdaqFields& f, uint8_t signature = 0x42) {
    BinaryBuilder b;
    b.u8(static_cast<uint8_t>(o.version)).u8(signature).padTo(4).i16(f.channels);
    b.padTo(static_cast<size_t>(o.date)).text(f.date).text(f.target);
    b.at<float>(o.E - 10, 2.5f).at<int16_t>(o.E - 6, 2).at<int16_t>(o.E - 4, 4).at<int16_t>(o.E - 2, 1);
    b.at<int32_t>(o.E, f.elapsed).at<int32_t>(o.E + 4, 1000);
    b.at<int32_t>(o.E + 8, 12345678).at<int32_t>(o.E + 12, 10000000).at<int32_t>(o.E + 16, 50);
    b.at<float>(o.E + 20, 1.0f).at<float>(o.E + 24, 2e-12f);
    b.at<int16_t>(o.S, 3).at<int16_t>(o.S + 2, f.compression).at<int32_t>(o.S + 4, 500).at<int32_t>(o.S + 8, 1234);
    b.at<float>(o.S + 64 + o.A, 10.5f).at<float>(o.S + 64 + o.A + 4, 2.25f);
    b.at<int16_t>(o.S + 64 + o.R, f.radiation);
    const float geometry[5] = {50, f.distance, 170, 0, -5};
    for (int k = 0; k < (o.version >= 4 ? 5 : 4); ++k) b.at<float>(o.S + 64 + o.R + 2 + 4 * k, geometry[k]);
    b.padTo(static_cast<size_t>(o.D)).text(f.data);
    return b.bytes();
}

std::string plainCounts(std::initializer_list<int32_t> counts) {
    BinaryBuilder b;
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

const std::string TenCounts = plainCounts({5, 0, 7, 123456789, -4, 1, 2, 3, 4, 99});

TEST_F(OmdaqTest, HeaderListingAndSpectrumOfAVersion5File) {
    const std::string path = queue("run5._", omdaqFile(V5, {.data = TenCounts}));
    tick(true, false);
    ASSERT_EQ(run(), RunOutcome::Finished);
    const std::string stem = path.substr(0, path.size() - 2);
    EXPECT_EQ(output("run5.hdr"),
              "_header version  5 \r\n"
              "_data size:  10 \r\n"
              "_date of spectra:  22-11-2026 14:32:05\r\n"
              "_target: Au on C  foil\r\n"
              "_beam energy/MeV:  2.5 \r\n"
              "_beam A, Z, Q/e :  4         2             1 \r\n"
              "_elapsed time/s :  3725  [01:02:05]\r\n"
              "_No. charge pulses:  1000 \r\n"
              "_total run time/s :  123.45678 \r\n"
              "_total live time/s:  100 \r\n"
              "_ch.0 live time/s :  0.0005 \r\n"
              "_charge conversion factor and charge per pulse/C:  1     2E-12 \r\n"
              "_beam charge /nC : 2.0\r\n"
              "_beam current/pA : 0.5\r\n"
              "_ADC  3 \r\n"
              "_compression (0 = no; 1 = yes):  0 \r\n"
              "_maximum counts  =  500 \r\n"
              "_total of counts = 1234.00\r\n"
              "_Average rate/Hz =  0.33\r\n"
              "_system calibration: E/keV =  2.25 *ch +  10.5 \r\n"
              "_radiation type: NRA \r\n"
              "_det area/mm.sq   = 50 \r\n"
              "_det_tgt dist/mm  = 100 \r\n"
              "_det sol_angl/msr = 5.0\r\n"
              "_det_beam angle/\xBA = 170 \r\n"
              "_target in-plane tilt/\xBA = 0 \r\n"
              "_target out-of-plane tilt/\xBA =-5 \r\n"
              "_file length, spec offset and data bytes =               3927          3887          40 \r\n"
              "_target: Au on C  foil\r\n");
    // The OMDAQ times stay in the listing; the spectrum has one count a line.
    EXPECT_EQ(output("run5.spe"), "$SPEC_ID:\r\n" + stem +
                                      "\r\n$DATE_MEA:\r\n22-11-2026  14:32:05\r\n$MEAS_TIM:\r\n         0         0\r\n"
                                      "$DATA:\r\n         0         9\r\n       5\r\n       0\r\n       7\r\n 123456789\r\n"
                                      "      -4\r\n       1\r\n       2\r\n       3\r\n       4\r\n      99\r\n");
    EXPECT_EQ(form.sharedRealTime.toNumber(), 3725);
    // The pass skips the 8 header lines of the SPE file.
    EXPECT_EQ(output("run5.odf").substr(0, 24), " 0  5 \r\n 1  0 \r\n 2  7 \r\n");
    EXPECT_EQ(form.valueCount, 10);
}

TEST_F(OmdaqTest, EachVersionReadsItsOwnOffsetsPlainOrCompressed) {
    // Compressed: a run of three 1s, 34 in base 32, a skipped byte, the
    // literal 5, then six base-32 digits (the limit) and a run cut at the
    // last channel.
    const std::string packed = "\x23\xA1\x02\xC7\xE5\xBF\xBF\xBF\xBF\xBF\xBF\x85";
    const int32_t sixDigits = (1 << 30) - 1;
    const std::string expected = "        1       1       1      34       5 1073741823       4       4\r\n       4       4\r\n";
    ASSERT_EQ(sixDigits, 1073741823);
    for (const Offsets& o : {V1, V4, V5, V6, V13}) {
        for (int16_t compression : {0, 1}) {
            SCOPED_TRACE(::testing::Message() << "version " << o.version << " compression " << compression);
            OmdaqFields f{.compression = compression};
            f.data = compression ? packed : plainCounts({1, 1, 1, 34, 5, sixDigits, 4, 4, 4, 4});
            const std::string spo = converted("v._", omdaqFile(o, f), "v.spo", false, true);
            EXPECT_EQ(spo, " 10           0\r\n" + expected.substr(1));
            const std::string hdr = output("v.hdr");
            EXPECT_NE(hdr.find("_date of spectra:  22-11-2026 14:32:05\r\n_target: Au on C  foil\r\n"), std::string::npos);
            EXPECT_NE(hdr.find(o.version > 4 ? "_radiation type: NRA \r\n" : "_radiation type: PULS\r\n"), std::string::npos);
            EXPECT_NE(hdr.find("_elapsed time/s :  3725 "), std::string::npos);
            EXPECT_NE(hdr.find(" " + std::to_string(o.D) + " "), std::string::npos);
            // Versions 1 to 3 have no fifth geometry value.
            EXPECT_NE(hdr.find(o.version >= 4 ? "tilt/\xBA =-5 " : "tilt/\xBA = 0 "), std::string::npos);
            // The compressed data are shorter than 4 bytes a channel: the
            // lines say so, whatever the flag.
            EXPECT_EQ(hdr.find("Compression assumed as used.") != std::string::npos, compression == 1);
        }
    }
    EXPECT_TRUE(host.statuses.size() == 20);  // no early end anywhere
}

TEST_F(OmdaqTest, ABlockEndingOnAFullLineGivesNoExtraChannel) {
    OmdaqFields f{.channels = 8, .data = plainCounts({1, 2, 3, 4, 5, 6, 7, 8})};
    const std::string spo = converted("e._", omdaqFile(V5, f), "e.spo", false, true);
    // The further line end after a full line makes an empty last line.
    EXPECT_EQ(spo, " 8            0\r\n       1       2       3       4       5       6       7       8\r\n\r\n");
    EXPECT_EQ(form.valueCount, 8);
    const std::string odf = output("e.odf");
    EXPECT_EQ(odf.substr(odf.size() - 8), " 7  8 \r\n");
}

TEST_F(OmdaqTest, ShortDataSegmentsAndEarlyEndsKeepWhatWasRead) {
    // Plain counts in a segment too short: the lines are written, the flag
    // still decides, and the missing counts read as zero.
    converted("p._", omdaqFile(V4, {.channels = 3, .data = plainCounts({9})}), "p.spo", false, true);
    EXPECT_EQ(output("p.spo"), " 3            0\r\n       9       0       0\r\n");
    const std::string hdr = output("p.hdr");
    EXPECT_EQ(hdr.substr(hdr.find("_target", hdr.find("_file length"))),
              "_target: Au on C  foil\r\nInfo retrieved on compression indicates no compression!\r\n"
              "3 channels require 12 bytes. Data segment has only 4 bytes.\r\nCompression assumed as used.\r\n");

    // A compressed stream that ends early, here inside a base-32 number.
    host.waited = 0;
    host.statuses.clear();
    converted("c._", omdaqFile(V13, {.channels = 4, .compression = 1, .data = "\x22\xA1"}), "c.dat");
    EXPECT_EQ(output("c.dat"), " 4            0\r\n       1       1       0       0\r\n");
    EXPECT_EQ(host.statuses.front().first, "Null data, extraction end!");
    EXPECT_DOUBLE_EQ(host.waited, 0.2 + 1);  // the pause, then the end of the run

    // No elapsed time: no current and no rate; no distance: no solid angle.
    converted("z._", omdaqFile(V6, {.elapsed = 0, .distance = 0, .data = TenCounts}), "z.dat");
    const std::string zero = output("z.hdr");
    EXPECT_NE(zero.find("_elapsed time/s :  0  [00:00:00]\r\n"), std::string::npos);
    EXPECT_NE(zero.find("_beam current/pA : 0.0\r\n"), std::string::npos);
    EXPECT_NE(zero.find("_Average rate/Hz =  0.00\r\n"), std::string::npos);
    EXPECT_NE(zero.find("_det sol_angl/msr = .0\r\n"), std::string::npos);
}

TEST_F(OmdaqTest, TheOmdaqFormatChoiceReadsFilesOfAnyName) {
    Combo1_Click(form, formatIndexOf("OMDAQ"));
    queue("RUN001", omdaqFile(V13, {.data = TenCounts}));
    queue("run.002", omdaqFile(V1, {.data = TenCounts}));
    tick(true, false);
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_TRUE(written("RUN001.spe") && written("RUN001.hdr") && written("RUN001.odf"));
    EXPECT_TRUE(written("run.spe") && written("run.hdr") && written("run.odf"));
}

TEST_F(OmdaqTest, RefusalsEndTheRunWithTheirMessages) {
    auto refused = [&](const std::string& bytes) {
        queue("bad._", bytes);
        queue("next._", omdaqFile(V4, {.data = TenCounts}));
        tick(true, false);
        EXPECT_EQ(run(), RunOutcome::ReaderRefused);
        EXPECT_EQ(form.readerStatus, 0);
        EXPECT_FALSE(written("next.spe"));
        EXPECT_EQ(output("bad.spe"), "");
        form.clearQueue();
        return output("bad.hdr");
    };
    EXPECT_EQ(refused(omdaqFile(V4, {}, 0x41)),
              "Unknown signature found: 41. This is not a valid OMDAQ file! PROCESSING HALTED.\r\n");
    EXPECT_EQ(message(), "Unknown signature found: 41\rThis is not a valid OMDAQ file!\r!!! PROCESSING HALTED !!!");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::Critical);
    EXPECT_EQ(host.boxes.back().openFiles, (std::vector<int>{1, 2, 3}));

    for (uint8_t version : {0, 14}) {
        std::string bytes = omdaqFile(V4, {});
        bytes[0] = static_cast<char>(version);
        EXPECT_EQ(refused(bytes), "_header version  " + std::to_string(version) + " \r\n");
        EXPECT_EQ(message(), "OMDAQ header type " + std::to_string(version) + " not recognized");
        EXPECT_EQ(host.boxes.back().icon, BoxIcon::Exclamation);
    }

    // Errors met in the fields end the run through the reader's own exit.
    EXPECT_EQ(refused(omdaqFile(V4, {.radiation = 11})).substr(0, 17), "_header version  ");
    EXPECT_EQ(message(), "! CONTENTS TYPE NOT OMDAQ! !\nError 9 in 'header reading'\nCHECK CONTENS TYPE !");
    EXPECT_NE(output("bad.hdr").find("\r\n! CONTENTS TYPE NOT OMDAQ! ! Error 9 in 'header reading' CHECK CONTENS TYPE !\r\n"),
              std::string::npos);
    refused(omdaqFile(V4, {.channels = -3}));
    EXPECT_EQ(message(), "! CONTENTS TYPE NOT OMDAQ! !\nError 9 in 'data reading'\nCHECK CONTENS TYPE !");
    EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(2) || form.files.isOpen(3));

    // A truncated file reads zeros: a zero signature, refused.
    refused(std::string("\x04", 1));
    EXPECT_EQ(message().substr(0, 26), "Unknown signature found: 0");
}

TEST_F(OmdaqTest, TwoColumnSpectraRoundTripThroughVersion4Files) {
    const std::string odf = " 0  5 \r\n 1  0 \r\n 2  70000 \r\n 3 -4 \r\n 4  2.5 \r\n";
    const std::string path = queue("spec.odf", odf);
    testing::setModified(path, testing::SomeTime);
    form.boxes.cOMDAQ = true;
    ASSERT_EQ(run(), RunOutcome::Finished);
    const std::string file = output("spec._");
    ASSERT_EQ(file.size(), 3798u + 5 * 4);
    EXPECT_EQ(file.substr(0, 2), "\x04\x42");
    const BinaryReader bytes(file);
    EXPECT_EQ(bytes.i16(4), 5);
    const DateValue when = fileModified(path);
    EXPECT_EQ(bytes.text(24, 19), formatDate(when, "dd-mmm-yyyy") + std::string(2, '\0') + formatDate(when, "hh:mm") + '\0');
    EXPECT_EQ(bytes.i32(3798 + 8), 70000);
    EXPECT_EQ(bytes.i32(3798 + 16), 2);  // 2.5 rounds half to even

    form.boxes.cOMDAQ = false;
    EXPECT_EQ(converted("spec._", file, "spec.odf", true), " 0  5 \r\n 1  0 \r\n 2  70000 \r\n 3 -4 \r\n 4  2 \r\n");
    const std::string hdr = output("spec.hdr");
    EXPECT_NE(hdr.find("_target: [!!!Warning: NNO (not native OMDAQ)! Spectrum not collected in OMDAQ!!!]\r\n"),
              std::string::npos);
    EXPECT_NE(hdr.find("_total run time/s :  100 \r\n_total live time/s:  100 \r\n_ch.0 live time/s :  100 \r\n"),
              std::string::npos);
    EXPECT_NE(hdr.find("_compression (0 = no; 1 = yes):  0 \r\n"), std::string::npos);
    EXPECT_EQ(hdr.find("Compression assumed"), std::string::npos);
    // The date field ends at its padding, so the time of day is not read back.
    EXPECT_NE(hdr.find("_date of spectra:  " + formatDate(when, "dd-mm-yyyy") + " 00:00:00\r\n"), std::string::npos);

    // More channels than the 16-bit count holds.
    std::string huge;
    for (int i = 0; i < 32768; ++i) huge += "0 1\r\n";
    form.boxes.cOMDAQ = true;
    expectFailures("huge.odf", {{"32768 channels", huge, "Error 6 Overflow", 1}});
}

TEST_F(CsvEvtTest, CsvColumnsGoToFilesOfTheirOwn) {
    // Three fields and a trailing comma: 4 arguments, three values a line.
    EXPECT_EQ(convert("run.csv", "t,a,b,\r\n1,2.5,-3\r\n4,x,\"q r\"\r\n5,,7\n"), RunOutcome::EndedByReader);
    EXPECT_EQ(message(), "Found 4 arguments");
    EXPECT_EQ(output("run-1.dat"), " 2.5 \r\nx\r\n\r\n");
    EXPECT_EQ(output("run-2.dat"), "-3 \r\nq r\r\n 7 \r\n");
    EXPECT_FALSE(written("run-3.dat"));
    EXPECT_TRUE(host.statuses.empty());  // no "Finished": the run ends with the reader
    EXPECT_EQ(form.List1.size(), 1u);    // and leaves the queue as it was
    form.clearQueue();

    // Header and lines that all end in a comma: the comma ends the record,
    // whatever the line ends, and each column file holds its column.
    for (const char* eol : {"\r\n", "\r", "\n"}) {
        std::string table = "t,a,b,c,";
        for (const char* row : {"1,10,-20,30,", "2,11,-21,31,", "3,12,-22,32,"}) table += eol + std::string(row);
        EXPECT_EQ(convert("end.csv", table + eol), RunOutcome::EndedByReader) << eol;
        EXPECT_EQ(message(), "Found 5 arguments");
        EXPECT_EQ(output("end-1.dat"), " 10 \r\n 11 \r\n 12 \r\n") << eol;
        EXPECT_EQ(output("end-2.dat"), "-20 \r\n-21 \r\n-22 \r\n") << eol;
        EXPECT_EQ(output("end-3.dat"), " 30 \r\n 31 \r\n 32 \r\n") << eol;
        form.clearQueue();
    }

    // No comma: one argument, no file, and the lines are not read.
    EXPECT_EQ(convert("one.csv", "header only\r\n1\r\n2\r\n"), RunOutcome::EndedByReader);
    EXPECT_EQ(message(), "Found 1 arguments");
    EXPECT_FALSE(written("one-1.dat"));
    form.clearQueue();

    // A header alone gives empty column files.
    convert("head.csv", "a,b,c\r\n");
    EXPECT_EQ(output("head-1.dat"), "");
    form.clearQueue();

    // 600 columns open files numbered up to 511, as far as numbers go.
    std::string wide(599, ',');
    EXPECT_EQ(convert("wide.csv", wide + "\r\n"), RunOutcome::ErrorHandled);
    EXPECT_EQ(host.boxes.back().text, failureBox("Error 52 Bad file name or number"));
    EXPECT_TRUE(written("wide-510.dat"));
    EXPECT_FALSE(written("wide-511.dat"));
    std::string widest(510, ',');
    std::string line;
    for (int k = 0; k < 510; ++k) line += std::to_string(k) + (k < 509 ? "," : "");
    EXPECT_EQ(convert("widest.csv", widest + "\r\n" + line + "\r\n"), RunOutcome::EndedByReader);
    EXPECT_EQ(output("widest-509.dat"), " 509 \r\n");
}

TEST_F(CsvEvtTest, ATableLargerThanAReadBlockSplitsAsASmallOneDoes) {
    // About 3 MB, so fields and quoted texts cross the blocks the table is
    // read in; each record runs over two lines, as list input allows, and
    // its fields must still reach their own columns.
    std::string table = "t,a,b,c,\r\n", a, b, c;
    for (int i = 0; i < 120000; ++i) {
        const std::string n = std::to_string(i);
        table += n + "," + n + ".5\r\n\"text " + n + "\",-" + n + "\r\n";
        a += " " + n + ".5 \r\n";
        b += "text " + n + "\r\n";
        c += (i == 0 ? " 0" : "-" + n) + " \r\n";
    }
    EXPECT_EQ(convert("big.csv", table), RunOutcome::EndedByReader);
    EXPECT_EQ(output("big-1.dat"), a);
    EXPECT_EQ(output("big-2.dat"), b);
    EXPECT_EQ(output("big-3.dat"), c);
}

TEST_F(CsvEvtTest, BadCsvTablesEndTheRunWithTheRuntimeError) {
    expectFailures("empty.csv", {{"an empty file", "", "Error 62 Input past end of file", 1}});
    // The column files stay open until the run ends; the complete lines
    // before the ragged one are written.
    EXPECT_EQ(convert("bad.csv", "a,b,c,\r\n1,2,3\r\n4,5\r\n"), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), failureBox("Error 62 Input past end of file"));
    EXPECT_EQ(host.boxes.back().openFiles, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(output("bad-1.dat"), " 2 \r\n");
    EXPECT_EQ(output("bad-2.dat"), " 3 \r\n");
}

// Little-endian reals, as an EVT list holds them.
std::string events(std::initializer_list<double> values) {
    BinaryBuilder b;
    for (double v : values) b.f64(v);
    return b.bytes();
}

TEST_F(CsvEvtTest, EventListsCountALengthOverFourAndReadZerosPastTheEnd) {
    std::string list;
    for (int i = 0; i < 256; ++i) list += events({i + 0.5});
    EXPECT_EQ(convert("e.evt", list), RunOutcome::Finished);
    EXPECT_EQ(form.valueCount, 512);  // the pass counts the .dat values: 2048 / 4
    const std::string text = output("e.dat");
    const size_t firstLineEnd = text.find("\r\n");
    EXPECT_EQ(text.substr(0, 16), " 0.5  1.5  2.5  ");
    EXPECT_EQ(text.substr(firstLineEnd - 6, 8), "255.5 \r\n");
    std::string zeros;
    for (int i = 0; i < 256; ++i) zeros += " 0 ";
    EXPECT_EQ(text.substr(firstLineEnd + 2), zeros + "\r\n");
    // The pass read the ".dat" the reader left.
    EXPECT_EQ(host.statuses.front().first, dir.file("e.odf") + " done");
    EXPECT_EQ(output("e.odf").substr(0, 20), " 0  0.5 \r\n 1  1.5 \r\n");

    // 25 bytes: 6.25 values, so 6: three reals, one from the last byte, and zeros.
    EXPECT_EQ(converted("odd.evt", events({1.5, -2, 3e20}) + '\x01', "odd.dat"),
              " 1.5 -2  3E+20  4.94065645841247E-324  0  0 ");
    // 10 bytes: 2.5 rounds half to even.
    EXPECT_EQ(converted("ten.evt", events({7}) + "\0\0", "ten.dat"), " 7  0 ");
    EXPECT_EQ(converted("empty.evt", "", "empty.dat"), "");
}

}  // namespace
}  // namespace kestro
