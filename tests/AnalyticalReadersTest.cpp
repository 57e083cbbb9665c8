// Thermo SPA, Galactic SPC and GAML read by the classic rules: crafted files
// compared byte for byte, the refusals and run-time errors, base64 decoding,
// and what the real samples give without the modern readers.
#include <cmath>
#include <filesystem>

#include "TestSupport.h"
#include "core/runtime/NumberText.h"
#include "readers/Readers.h"
#include "readers/analytical/GamlReader.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::writeFile;

// An input that ends its run with an error, and the files open when the
// error showed.
struct Failing {
    const char* what;
    std::string bytes;
    const char* error;
    std::vector<int> open;
};

class AnalyticalTest : public testing::ConversionTest {
protected:
    void expectErrors(const std::string& name, const std::vector<Failing>& cases) {
        for (const Failing& c : cases) {
            EXPECT_EQ(convert(name, c.bytes), RunOutcome::ErrorHandled) << c.what;
            EXPECT_EQ(message(), testing::failureBox(c.error)) << c.what;
            EXPECT_EQ(host.boxes.back().openFiles, c.open) << c.what;
            EXPECT_FALSE(form.files.isOpen(1)) << c.what;
        }
    }
};
using SpaTest = AnalyticalTest;
using SpcTest = AnalyticalTest;
using GamlTest = AnalyticalTest;
using AnalyticalSamplesTest = AnalyticalTest;

const std::string LongSignature("\r\n\r\n\0\0\0", 7);
const std::string ShortSignature("\r\n\r\n\0", 5);

// X and Y with Y at column 20, as a row and as a line.
std::string row(const std::string& x, const std::string& y) { return x + std::string(19 - x.size(), ' ') + y; }
std::string line(const std::string& x, const std::string& y) { return row(x, y) + "\r\n"; }

// ---- SPA ----

// The fixed fields, the signature ending right before byte `dataAt` (from 0).
BinaryBuilder spaFile(int32_t points, float firstX, float lastX, const std::vector<float>& ys, size_t dataAt = 700,
                      const std::string& signature = LongSignature) {
    BinaryBuilder b;
    b.at(386, int32_t{1234}).at(564, points).at(576, firstX).at(580, lastX).at(584, 0.5f).at(588, int32_t{99});
    b.padTo(dataAt - signature.size()).text(signature);
    for (float y : ys) b.f32(y);
    return b;
}

const std::string SpaFields =
    "Offset:  1234 \r\nNumber of data points :  3 \r\n1st_X, last_X, X-step :  10  20  5 \r\n"
    "Estimated noise level :  0.5 \r\nTotal points collected:  99 \r\n";

TEST_F(SpaTest, LongSignatureLeadsToTheData) {
    form.boxes.DsGr = true;
    EXPECT_EQ(converted("s.spa", spaFile(3, 10, 20, {1.5f, -2, 0.1f}).bytes(), "s.odf"),
              line("10,", "1.5") + line("15,", "-2") + line("20,", "0.1"));
    EXPECT_EQ(output("s.hdr"), SpaFields +
                                   "Data segment signature found at byte  694 \r\nEnd-of-header at byte : 694 \r\n"
                                   "1st_Y sp_data at byte : 701 \r\n");
    EXPECT_TRUE(host.boxes.empty());
    ASSERT_EQ(host.plots.size(), 1u);  // the driver's plot of the ".odf"

    // X runs down in steps of -1; a name with a longer extension loses 4
    // characters (the driver never calls the reader so, but the rule holds).
    std::string name = queue("x.spa2", spaFile(3601, 4000, 400, std::vector<float>(3601, 0)).bytes());
    ConvFileSPA(form, name);
    const std::string odf = output("x..odf");
    EXPECT_EQ(odf.substr(0, 2 * 22), line("4000,", "0") + line("3999,", "0"));
    EXPECT_TRUE(odf.ends_with(line("401,", "0") + line("400,", "0")));
    EXPECT_TRUE(written("x..hdr"));
    form.clearQueue();

    // An X text that reaches column 20 puts Y on the next line, at column 20.
    form.boxes.DsGr = false;
    EXPECT_EQ(converted("long.spa", spaFile(2, -1.5e-6f, 0, {2, 3}).bytes(), "long.odf"),
              "-1.50000005305628E-06,\r\n" + line("", "2") + line("0,", "3"));
}

TEST_F(SpaTest, ShortSignatureOnlyFromByte593On) {
    // A long signature inside the fixed header is not looked at.
    // (4.1 begins with a byte other than zero: no long signature either.)
    BinaryBuilder b = spaFile(3, 10, 20, {4.1f, 5, 6}, 660, ShortSignature);
    b.at(500, int32_t{0x0A0D0A0D}).at(504, int32_t{0});
    EXPECT_EQ(converted("s.spa", b.bytes(), "s.odf"), line("10,", "4.1") + line("15,", "5") + line("20,", "6"));
    EXPECT_EQ(output("s.hdr"), SpaFields +
                                   "Data segment signature not found. Attempting short signature...\r\n"
                                   "Data segment signature found at byte  656 \r\nEnd-of-header at byte : 656 \r\n"
                                   "1st_Y sp_data at byte : 661 \r\n");
    // A signature cut by the end of the file matches, bytes past the end
    // reading as zero; the data then lie past the end.
    EXPECT_EQ(convert("cut.spa", spaFile(2, 10, 20, {}, 702).bytes().substr(0, 699)), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 62 Input past end of file"));
    EXPECT_TRUE(output("cut.hdr").ends_with("found at byte  696 \r\nEnd-of-header at byte : 696 \r\n"
                                            "1st_Y sp_data at byte : 703 \r\n"));
}

TEST_F(SpaTest, NoSignatureLeavesEveryFileOpen) {
    form.boxes.DsGr = true;
    BinaryBuilder none = spaFile(3, 10, 20, {}, 700, "");
    none.padTo(900, 'x');
    queue("none.spa", none.bytes());
    queue("next.spa", spaFile(3, 10, 20, {1, 2, 3}).bytes());
    // The files the first one left open stop the second.
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    ASSERT_EQ(host.boxes.size(), 2u);
    EXPECT_EQ(host.boxes[0].text, "Data segment signature not found. Unable to find data segment... extraction halted!");
    EXPECT_EQ(host.boxes[0].icon, BoxIcon::None);
    EXPECT_EQ(host.boxes[0].openFiles, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(host.boxes[1].text, testing::failureBox("Error 55 File already open"));
    EXPECT_FALSE(form.boxes.DsGr);
    EXPECT_TRUE(host.plots.empty());
    EXPECT_EQ(output("none.odf"), "");
    EXPECT_EQ(output("none.hdr"), SpaFields +
                                      "Data segment signature not found. Attempting short signature...\r\n"
                                      "Data segment signature not found. Unable to find data segment... extraction "
                                      "halted!\r\n");
    EXPECT_EQ(host.statuses.at(0).first, dir.file("none.odf") + " done");
    EXPECT_FALSE(written("next.hdr"));
}

TEST_F(SpaTest, BadCountsAndShortFilesRaiseTheirErrors) {
    expectErrors("bad.spa", {
        {"one point", spaFile(1, 10, 20, {1}).bytes(), "Error 11 Division by zero", {1, 2, 3}},
        {"one point, X range 0", spaFile(1, 10, 10, {1}).bytes(), "Error 6 Overflow", {1, 2, 3}},
        {"no points", spaFile(0, 10, 20, {1}).bytes(), "Error 9 Subscript out of range", {1, 2}},
        {"negative count", spaFile(-5, 10, 20, {1}).bytes(), "Error 9 Subscript out of range", {1, 2}},
        {"data cut short", spaFile(3, 10, 20, {1, 2}).bytes(), "Error 62 Input past end of file", {1, 2}},
        {"absurd count", spaFile(0x7FFFFFFF, 10, 20, {1}).bytes(), "Error 62 Input past end of file", {1, 2}},
        // The search never reaches the file's end: the position overflows.
        {"no longer than 593 bytes", std::string(593, '\0'), "Error 6 Overflow", {1, 2, 3}},
    });
}

// ---- SPC ----

constexpr int32_t March5th2019At1407 = 7 | 14 << 6 | 5 << 11 | 3 << 16 | 2019 << 20;

BinaryBuilder spcFile(uint8_t flags, uint8_t exponent, int32_t points, double firstX, double lastX,
                      int32_t date = March5th2019At1407, uint8_t version = 0x4B) {
    BinaryBuilder b;
    b.u8(flags).u8(version).u8(3).u8(exponent).i32(points).f64(firstX).f64(lastX).padTo(28).u8(1).u8(2);
    b.padTo(32).i32(date).padTo(512);
    return b;
}

std::string spcValueLines(const std::string& exponent, const std::string& points, const std::string& xs) {
    return "SPC version: 4B\r\nExperiment : 3\r\nExponent is: " + exponent + "\r\nNumber of data points : " + points +
           "\r\n1st_X, last_X, X-step : " + xs +
           "\r\nCompressed data string: 7E332B87\r\nDecompressed date is  : 05Mar2019, Time (hh:mm): 14:07\r\n";
}

TEST_F(SpcTest, YOnlyIntegersScaledByTheExponent) {
    BinaryBuilder b = spcFile(0, 0, 2, 100, 200);
    b.padTo(544).i32(1).i32(2);
    EXPECT_EQ(converted("y.spc", b.bytes(), "y.odf"), line(" 100", " 2.328306E-10") + line(" 200", " 4.656613E-10"));
    EXPECT_EQ(output("y.hdr"),
              "File has single measurement\r\nFile is Y-only  values\r\nY data with 32-bit precision\r\n"
              "File of type 0: Y only data stored in 32-bit precision\r\n" +
                  spcValueLines("0", "2", "100 200 100"));

    // The exponent byte is unsigned; X is kept as a Single.
    BinaryBuilder big = spcFile(2, 100, 3, 0.1, 0.3);
    big.padTo(544).i32(1).i32(-1).i32(0);
    EXPECT_EQ(converted("big.spc", big.bytes(), "big.odf"),
              line(" 0.1", " 2.951479E+20") + line(" 0.2", "-2.951479E+20") + line(" 0.3", " 0"));
}

TEST_F(SpcTest, OneXArrayBeforeSingleY) {
    BinaryBuilder b = spcFile(128, 5, 2, 1, 2);
    b.f32(7.5f).f32(-8).padTo(544).f32(0).f32(0).f32(0.25f).f32(1e10f);
    EXPECT_EQ(converted("xy.spc", b.bytes(), "xy.odf"), line(" 7.5", " 0.25") + line("-8", " 1E+10"));
    EXPECT_EQ(output("xy.hdr"),
              "File has single measurement\r\nFile is {XY} values\r\nY data with 32-bit precision\r\n"
              "File of type 128: XY data\r\n" +
                  spcValueLines("5", "2", "1 2 1"));
}

TEST_F(SpcTest, OtherLayoutsAreRefused) {
    const struct {
        std::string bytes;
        const char* layout;
        const char* message;
    } cases[] = {
        {spcFile(0, 0, 2, 1, 2, 0, 'M').bytes(), "File has single measurement\r\nFile is Y-only  values\r\n",
         "Old format (LabCalc) version. Conversion not possible!"},
        {spcFile(4, 0, 2, 1, 2).bytes(), "File has multiple measurements\r\nFile is one-X set, multiple-Y\r\n",
         "File of type 4: multifile. Conversion not yet possible!"},
        {spcFile(64, 0, 2, 1, 2).bytes(), "File has single measurement\r\nFile is Y-only  values\r\n",
         "File of type 64: multifile. Conversion not yet possible!"},
        {spcFile(0x44, 0, 2, 1, 2).bytes(), "File has multiple measurements\r\nFile is {XY} values\r\n",
         "File of type 68: not single measurement. Conversion not yet possible!"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(convert("r.spc", c.bytes), RunOutcome::Finished) << c.message;
        EXPECT_EQ(message(), c.message);
        EXPECT_EQ(host.boxes.back().icon, BoxIcon::Critical);
        EXPECT_EQ(output("r.hdr"), std::string(c.layout) + "Y data with 32-bit precision\r\n" + c.message + "\r\n");
        EXPECT_FALSE(written("r.odf"));
        EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(3));
    }
    // The 16-bit flag only ever shows in a refused file's listing.
    convert("short.spc", spcFile(1, 0, 2, 1, 2).bytes());
    EXPECT_EQ(output("short.hdr"),
              "File has single measurement\r\nFile is Y-only  values\r\nY data with 16-bit precision\r\n"
              "File of type 1: not single measurement. Conversion not yet possible!\r\n");
}

TEST_F(SpcTest, BadFieldsRaiseTheirErrors) {
    BinaryBuilder full = spcFile(0, 0, 2, 1, 2);
    full.padTo(552);
    BinaryBuilder overflowing = spcFile(0, 255, 2, 1, 2);
    overflowing.padTo(544).i32(1).i32(1);
    expectErrors("bad.spc", {
        {"one point", spcFile(0, 0, 1, 1, 2).bytes() + std::string(36, '\0'), "Error 11 Division by zero", {1, 3}},
        {"no points", spcFile(0, 0, 0, 1, 2).bytes(), "Error 9 Subscript out of range", {1, 3}},
        {"X beyond a Single", spcFile(0, 0, 2, 1e39, 2).bytes(), "Error 6 Overflow", {1, 3}},
        {"month 0", spcFile(0, 0, 2, 1, 2, 5 << 11).bytes(), "Error 9 Subscript out of range", {1, 3}},
        {"month 13", spcFile(0, 0, 2, 1, 2, 13 << 16).bytes(), "Error 9 Subscript out of range", {1, 3}},
        {"X array cut short", spcFile(128, 0, 2, 1, 2).bytes(), "Error 62 Input past end of file", {1, 3}},
        {"Y cut short", full.bytes().substr(0, 551), "Error 62 Input past end of file", {1, 2}},
        {"absurd count", spcFile(0, 0, 0x7FFFFFFF, 1, 2).bytes(), "Error 62 Input past end of file", {1, 2}},
        {"Y beyond a Single", overflowing.bytes(), "Error 6 Overflow", {1, 2}},
    });
}

// ---- base64 and GAML ----

TEST_F(GamlTest, DecodeAsDescribed) {
    const auto decoded = [&](std::string_view text) {
        std::string bytes = "left over";
        Decode(form, text, bytes);
        return bytes;
    };
    EXPECT_EQ(decoded("AAAAAA=="), std::string(4, '\0'));
    EXPECT_EQ(decoded("QUJD"), "ABC");
    EXPECT_EQ(decoded("QUJDRA=="), "ABCD");
    EXPECT_EQ(decoded("QUJDREU="), "ABCDE");
    EXPECT_EQ(decoded("QU\r\nJD\nRA\r=="), "ABCD");
    // Line ends anywhere, the padded group found in the cleaned text.
    EXPECT_EQ(decoded("QUJDRA==\r\n"), "ABCD");
    EXPECT_EQ(decoded("QUJDR\r\nA=="), "ABCD");
    EXPECT_EQ(decoded("QUJDREVG\nR0g="), "ABCDEFGH");
    EXPECT_EQ(decoded("\r\nQQ=="), "A");
    // Characters short of a group are left; an "=" inside the text is worth 0.
    EXPECT_EQ(decoded("QUJDRA"), "ABC");
    EXPECT_EQ(decoded("QU=D"), std::string("A\x40\x03", 3));
    EXPECT_EQ(decoded("="), std::string(2, '\0'));
    EXPECT_EQ(decoded(""), "");
    EXPECT_TRUE(host.boxes.empty());
    for (std::string_view bad : {"QUJD ", "QU\tJD", "QUJD\x80"}) {
        EXPECT_EQ(decoded(bad), "");
        EXPECT_EQ(message(), "Not a legal or RFC 2045 compliant base64 string: conversion aborted!");
        EXPECT_EQ(host.boxes.back().icon, BoxIcon::None);
    }
}

// X 1.5, 2.5 and Y 10, -0.25 (base64 of the little-endian Singles, from Python).
const std::string GamlHead = "<?xml version=\"1.0\"?>\r\n<GAML version=\"1.20\">\r\n<trace>\r\n";
const std::string GamlData =
    "  <Xdata units=\"NM\">\r\n    <values format=\"FLOAT32\">AADAPw\r\nAAIEA=\r\n     </values>\r\n"
    "    <Ydata>\r\n      <values format=\"FLOAT32\">AAAgQQAA\r\ngL4=</values>\r\n    </Ydata>\r\n</Xdata>\r\n"
    "</trace></GAML>\r\n";
const std::string GamlListing =
    "<GAML version=\"1.20\">\r\n<Xdata units=\"NM\">\r\n    <values format=\"FLOAT32\">\r\n</values>\r\n"
    "Length of decoded string 8; number of X points  2 \r\n<Ydata>\r\n      <values format=\"FLOAT32\">\r\n"
    "Length of decoded string 8; number of Y points  2 \r\n";

// The listing less its first line, which holds the time it was read.
std::string listingAfterFirstLine(const std::string& hdr, const std::string& input) {
    const size_t end = hdr.find("\r\n");
    EXPECT_TRUE(hdr.starts_with("header file for " + input + " read on the ")) << hdr;
    return end == std::string::npos ? hdr : hdr.substr(end + 2);
}

TEST_F(GamlTest, XAndYArraysAsWrittenList) {
    const std::string path = queue("g.gaml", GamlHead + GamlData);
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_TRUE(host.boxes.empty()) << message();
    EXPECT_EQ(output("g.odf"), "1.5,10\r\n2.5,-0.25\r\n");
    EXPECT_EQ(listingAfterFirstLine(output("g.hdr"), path), GamlListing);
    // Decoded in memory: no work files.
    EXPECT_FALSE(written("code64float32x.bin") || written("code64float32y.bin") || written("std_crlf.gaml"));

    // LF-only text is read from a CR LF copy in the current folder, which stays.
    std::string lf = GamlHead + GamlData;
    std::erase(lf, '\r');
    const std::string lfPath = queue("lf.gaml", lf);
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(message(), "File with non-standard termination (CR or CR+LF) will be converted to standard!");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::Exclamation);
    EXPECT_EQ(output("lf.odf"), "1.5,10\r\n2.5,-0.25\r\n");
    EXPECT_EQ(listingAfterFirstLine(output("lf.hdr"), lfPath), GamlListing);
    EXPECT_EQ(output("std_crlf.gaml"), GamlHead + GamlData);

    // An input of the work file's own name is not written over (run() checks it).
    queue("std_crlf.gaml", lf);
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("std_crlf.odf"), "1.5,10\r\n2.5,-0.25\r\n");
}

TEST_F(GamlTest, ValuesOnTheirOpeningLine) {
    // The whole X text on the "<values" line, its closing tag on the next;
    // Y up to the "<" on its own line. No "<?xml" first line: a warning only.
    const std::string gaml = "<data>\r\n<GAML>\r\n<Xdata>\r\n<values>AADAPwAAIEA=\r\n</values>\r\n<Ydata>\r\n"
                             "<values a=\"1\">AAAgQQAAgL4=</values></Ydata></Xdata></GAML>\r\n";
    const std::string path = queue("v.gaml", gaml);
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("v.odf"), "1.5,10\r\n2.5,-0.25\r\n");
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(message(), "Not a XML type file. Probably not a GAML file!");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::Exclamation);
    EXPECT_EQ(listingAfterFirstLine(output("v.hdr"), path),
              "<GAML>\r\n<Xdata>\r\n<values>\r\n</values>\r\nLength of decoded string 8; number of X points  2 \r\n"
              "<Ydata>\r\n<values a=\"1\">\r\nLength of decoded string 8; number of Y points  2 \r\n");
    // The "<values" of the Y array is looked for from the line after "<Ydata".
    convert("same.gaml", "<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<values>AADAPwAAIEA=\r\n</values>\r\n"
                         "<Ydata><values>AAAgQQAAgL4=</values></Ydata>\r\n");
    EXPECT_EQ(message(), "No Y values found. Conversion aborted!");
}

TEST_F(GamlTest, MoreYThanXAndThePlotHandOver) {
    const std::string gaml = "<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<values>AADAPwAAIEA=\r\n</values>\r\n"
                             "<Ydata>\r\n<values>AAAgQQAAgL4AAOBA</values></Ydata></Xdata></GAML>\r\n";
    EXPECT_EQ(convert("more.gaml", gaml), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 9 Subscript out of range"));
    EXPECT_EQ(output("more.odf"), "1.5,10\r\n2.5,-0.25\r\n");

    // The reader's own plot has as many rows as valueCount says; the
    // driver's plot of the ".odf" follows.
    const std::string two = "<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<values>AADAPwAAIEA=\r\n</values>\r\n"
                            "<Ydata>\r\n<values>AAAgQQAAgL4=</values></Ydata></Xdata></GAML>\r\n";
    form.boxes.DsGr = true;
    form.valueCount = 3;
    EXPECT_EQ(convert("p.gaml", two), RunOutcome::Finished);
    ASSERT_EQ(host.plots.size(), 2u);
    EXPECT_EQ(host.plots[0].count, 3);
    EXPECT_EQ(host.plots[0].points, (PlotPoints{{1.5, 10}, {2.5, -0.25}, {0, 0}}));
    EXPECT_EQ(host.plots[0].name, dir.file("p.odf"));
    EXPECT_EQ(host.plots[1].points, (PlotPoints{{1.5, 10}, {2.5, -0.25}}));
    form.valueCount = 1;
    EXPECT_EQ(convert("p.gaml", two), RunOutcome::Finished);
    EXPECT_EQ(host.plots[2].points, (PlotPoints{{1.5, 10}}));
}

TEST_F(GamlTest, RefusalsAndBadBase64) {
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"<?xml?>\r\n<gaml>\r\n<Xdata>\r\n", "Not a GAML type file. Conversion aborted!"},
        {"<?xml?>\r\n<GAML>\r\n\t<Xdata>\r\n", "No X data found. Conversion aborted!"},
        {"<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<Ydata>\r\n", "No X values found. Conversion aborted!"},
        {"<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<values>AADAPw==\r\n</values>\r\n<Ydat>\r\n",
         "No Y data found. Conversion aborted!"},
        {"<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<values>AADAPw==\r\n</values>\r\n<Ydata>\r\n<value>\r\n",
         "No Y values found. Conversion aborted!"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(convert("r.gaml", c.text), RunOutcome::Finished) << c.message;
        EXPECT_EQ(message(), c.message);
        EXPECT_EQ(host.boxes.back().icon, BoxIcon::Critical);
        EXPECT_FALSE(written("r.odf"));
        EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(3));
        // Made from an LF-only file, the CR LF copy goes with the refusal.
        std::string lf = c.text;
        std::erase(lf, '\r');
        EXPECT_EQ(convert("lf.gaml", lf), RunOutcome::Finished);
        EXPECT_EQ(message(), c.message);
        // (The first refusal, before any X, keeps it.)
        EXPECT_EQ(written("std_crlf.gaml"), &c == &cases[0]) << c.message;
        std::filesystem::remove(dir.file("std_crlf.gaml"));
    }

    // Y text ending in blanks before its closing tag: no data.
    const std::string indented = "<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<values>AADAPw==\r\n</values>\r\n"
                                 "<Ydata>\r\n<values>AAAgQQ==\r\n  </values>\r\n";
    EXPECT_EQ(convert("i.gaml", indented), RunOutcome::Finished);
    EXPECT_EQ(message(), "Not a legal or RFC 2045 compliant base64 string: conversion aborted!");
    EXPECT_TRUE(output("i.hdr").ends_with("Length of decoded string 0; number of Y points  0 \r\n"));
    EXPECT_FALSE(written("i.odf"));

    // Bad X text ends the reader with its input open: the next GAML file of
    // the batch finds it so.
    queue("x.gaml", "<?xml?>\r\n<GAML>\r\n<Xdata>\r\n<values>AA AA\r\n</values>\r\n");
    queue("next.gaml", GamlHead + GamlData);
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 55 File already open"));
    EXPECT_TRUE(output("x.hdr").ends_with("Length of decoded string 0; number of X points  0 \r\n"));
    EXPECT_FALSE(written("next.odf"));

    // An empty file is read past its end; so is a file of one line.
    EXPECT_EQ(convert("e.gaml", ""), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 62 Input past end of file"));
    EXPECT_EQ(convert("one.gaml", "<?xml?>\r\n"), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 62 Input past end of file"));
}

TEST_F(GamlTest, WorkFilesOfTheUserAreLeftAlone) {
    writeFile(dir.file("code64float32x.bin"), "mine");
    writeFile(dir.file("code64float32y.bin"), "mine too");
    EXPECT_EQ(converted("g.gaml", GamlHead + GamlData, "g.odf"), "1.5,10\r\n2.5,-0.25\r\n");
    EXPECT_EQ(output("code64float32x.bin"), "mine");
    EXPECT_EQ(output("code64float32y.bin"), "mine too");
}

// ---- the real samples, read by the classic rules ----

std::string sample(const char* path) { return readFile(std::string(KESTRO_SAMPLES_DIR "/") + path); }

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    for (size_t from = 0, end; (end = text.find("\r\n", from)) != std::string::npos; from = end + 2)
        out.push_back(text.substr(from, end - from));
    return out;
}

// Values checked against the sample's data as decoded with Python's struct
// module from the offsets the formats document (the same values the modern
// readers' tests hold): where the classic rules read the true data, they
// give these values to 7 significant digits.
TEST_F(AnalyticalSamplesTest, SpaSamples) {
    queue("7.SPA", sample("spa/7_CZ0-100_Pd_101.SPA"));
    queue("2.SPA", sample("spa/2-BaSO4_0.SPA"));
    queue("i.SPA", sample("spa/interfero.SPA"));
    form.boxes.DsGr = true;
    ASSERT_EQ(run(), RunOutcome::Finished);

    // The data follow the long signature at byte 1026: the true spectrum.
    const std::vector<std::string> seven = lines(output("7.odf"));
    ASSERT_EQ(seven.size(), 5549u);
    EXPECT_EQ(seven[0], "5999.71337890625,  1.543567");
    EXPECT_EQ(seven[100].substr(19), "1.500997");
    EXPECT_EQ(seven[1000].substr(19), "1.117474");
    EXPECT_NEAR(std::stod(seven.back()), 649.9207153320312, 1e-9);
    EXPECT_TRUE(output("7.hdr").ends_with("Data segment signature found at byte  1026 \r\nEnd-of-header at byte : "
                                          "1026 \r\n1st_Y sp_data at byte : 1033 \r\n"));

    // The short signature ends one byte before the intensities (which
    // begin at byte 1181): every Y is read out of step.
    const std::vector<std::string> two = lines(output("2.odf"));
    ASSERT_EQ(two.size(), 11098u);
    EXPECT_EQ(two[0], "6000.041015625,    4.187003E-28");
    EXPECT_NE(output("2.hdr").find("Attempting short signature...\r\nData segment signature found at byte  1175 \r\n"
                                   "End-of-header at byte : 1175 \r\n1st_Y sp_data at byte : 1180 \r\n"),
              std::string::npos);

    // No signature at all: an empty ".odf", and no plot from here on.
    EXPECT_EQ(output("i.odf"), "");
    EXPECT_TRUE(output("i.hdr").ends_with("Unable to find data segment... extraction halted!\r\n"));
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_FALSE(form.boxes.DsGr);
    EXPECT_EQ(host.plots.size(), 2u);
}

TEST_F(AnalyticalSamplesTest, SpcSamples) {
    // One X array and float Y: the true data.
    const std::vector<std::string> bc = lines(converted("bc.spc", sample("spc/BC408_5mmHorizontal.spc"), "bc.odf"));
    ASSERT_EQ(bc.size(), 1024u);
    EXPECT_EQ(bc[0], row(" 400.6195", " 7313"));
    EXPECT_EQ(bc[100].substr(19), " 108891");
    EXPECT_EQ(bc[1023], row(" 538.0122", " 9764"));
    EXPECT_NE(output("bc.hdr").find("Decompressed date is  : 08Apr2016, Time (hh:mm): 14:17\r\n"), std::string::npos);

    // Integer Y read as singles: X right (1.086667 ...), Y near 1e-35.
    const std::vector<std::string> xy = lines(converted("xy.spc", sample("spc/s_xy.spc"), "xy.odf"));
    ASSERT_EQ(xy.size(), 512u);
    EXPECT_EQ(xy[0], row(" 1.086667", " 1.285109E-35"));
    EXPECT_EQ(xy[511].substr(0, 9), " 6.017167");

    // Date word 0: month 0 is out of the month table.
    EXPECT_EQ(convert("even.spc", sample("spc/s_evenx.spc")), RunOutcome::ErrorHandled);
    EXPECT_EQ(message(), testing::failureBox("Error 9 Subscript out of range"));
    EXPECT_TRUE(output("even.hdr").ends_with("Number of data points : 1844\r\n1st_X, last_X, X-step : 447.484069824219 "
                                             "4002.28173828125 1.92881045494142\r\nCompressed data string: 0\r\n"));
    EXPECT_FALSE(written("even.odf"));

    // A Shimadzu compound document: its first byte, 208, as the type flags.
    EXPECT_EQ(convert("UV.spc", sample("spc/Shimadzu UV-Vis.spc")), RunOutcome::Finished);
    EXPECT_EQ(message(), "File of type 208: not single measurement. Conversion not yet possible!");
    EXPECT_EQ(output("UV.hdr"),
              "File has single measurement\r\nFile is {XY} values\r\nY data with 32-bit precision\r\n" + message() +
                  "\r\n");
    EXPECT_FALSE(written("UV.odf"));
}

TEST_F(AnalyticalSamplesTest, GamlSamplesGiveNoData) {
    queue("TN.gaml", sample("gaml/TN_OMNIC_FTIR.gaml"));
    queue("AB2.gaml", sample("gaml/TS_AB2_FLSCAN.gaml"));
    queue("He.gaml", sample("gaml/TS_Helios.gaml"));
    ASSERT_EQ(run(), RunOutcome::Finished);
    const std::string copy = "File with non-standard termination (CR or CR+LF) will be converted to standard!";
    const std::string badY = "Not a legal or RFC 2045 compliant base64 string: conversion aborted!";
    ASSERT_EQ(host.boxes.size(), 5u);
    // LF-only: read from a CR LF copy; the X array decodes, the Y text ends
    // in the blanks before its indented closing tag.
    EXPECT_EQ(host.boxes[0].text, copy);
    EXPECT_EQ(host.boxes[1].text, badY);
    EXPECT_TRUE(output("TN.hdr").ends_with(
        "</values>\r\nLength of decoded string 7472; number of X points  1868 \r\n"
        "<Ydata label=\"Absorbance\" units=\"ABSORBANCE\">\r\n"
        "          <values byteorder=\"INTEL\" format=\"FLOAT32\" numvalues=\"1868\">\r\n"
        "Length of decoded string 0; number of Y points  0 \r\n"));
    // One lone CR: not converted, and that CR cuts the first line short.
    EXPECT_EQ(host.boxes[2].text, "Not a GAML type file. Conversion aborted!");
    EXPECT_EQ(lines(output("AB2.hdr")).size(), 1u);
    EXPECT_EQ(host.boxes[3].text, copy);
    EXPECT_EQ(host.boxes[4].text, badY);
    EXPECT_TRUE(output("He.hdr").ends_with("number of X points  201 \r\n<Ydata label=\"Absorbance\" "
                                           "units=\"ABSORBANCE\">\r\n          <values byteorder=\"INTEL\" "
                                           "format=\"FLOAT64\" numvalues=\"201\">\r\nLength of decoded string 0; "
                                           "number of Y points  0 \r\n"));
    EXPECT_FALSE(written("TN.odf") || written("AB2.odf") || written("He.odf"));
    EXPECT_TRUE(written("std_crlf.gaml"));
}

}  // namespace
}  // namespace kestro
