// JCAMP-DX through the driver: crafted files compared byte for byte (the
// summary, the decoded echo, the ".odf"), the AFFN/ASDF choice and the ASDF
// forms, the refusals and run-time errors, the first-"." naming, and the
// real samples against values established independently.
#include <algorithm>
#include <filesystem>

#include "TestSupport.h"
#include "core/runtime/NumberTextExtras.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::writeFile;
using JcampTest = testing::ConversionTest;

// A header text as the user's settings write it.
std::string local(std::string text) {
    std::replace(text.begin(), text.end(), '.', localeDecimalSeparator());
    return text;
}

// A file of one block: the labels given, the data lines, "##END=".
std::string jcamp(const std::string& labels, const std::string& lines) {
    return "##TITLE=test\r\n##JCAMP-DX=4.24\r\n" + labels + "##XYDATA=(X++(Y..Y))\r\n" + lines + "##END=\r\n";
}
std::string scaled(int points, const std::string& yFactor = "1") {
    return "##XFACTOR=1\r\n##YFACTOR=" + yFactor + "\r\n##DELTAX=1\r\n##NPOINTS=" + std::to_string(points) + "\r\n";
}

// One ".odf" line: Str(X), Str(Y) from column 25.
std::string point(const std::string& x, const std::string& y) {
    return x + std::string(24 - x.size(), ' ') + y + "\r\n";
}

// The echo lines of the ".hdrx", after "## Data segment:".
std::string echo(const std::string& hdrx) {
    const std::string mark = "## Data segment:\r\n";
    return hdrx.substr(hdrx.find(mark) + mark.size());
}

TEST_F(JcampTest, AffnBlockGivesSummaryEchoAndColumns) {
    // No DELTAX: it follows from FIRSTX, LASTX and NPOINTS. The "$$" comment
    // is cut and the cut line stands before its echo; a second block is not read.
    const std::string bytes = "##TITLE=t\r\n##JCAMP-DX=5.01 $$ x\r\n##ORIGIN=lab\r\n##XFACTOR=1\r\n##YFACTOR=2\r\n"
                              "##FIRSTX=100\r\n##LASTX=104\r\n##FIRSTY=10.5\r\n##NPOINTS=5\r\n"
                              "##XYDATA=(X++(Y..Y))\r\n100 5 6 7 $$ first\r\n103,-0.25\r\n##END=\r\n"
                              "##XYDATA=(X++(Y..Y))\r\n1 2 3\r\n##END=\r\n";
    EXPECT_EQ(converted("s.jdx", bytes, "s.odf"),
              point(" 100", " 10") + point(" 101", " 12") + point(" 102", " 14") + point(" 103", "-0.5") + point(" 0", " 0"));
    EXPECT_EQ(output("s.hdrx"), "##JCAMP-DX=5.01 $$ x\r\n##Xscale = 1\r\n##Yscale = 2\r\n"
                                "##start_X = 100\tstop_X = 104\t delta_X = 1\r\n##start_Y = " +
                                    local("10.5") +
                                    "\r\n##Data points: 5; data found at line 11\r\n##XYDATA=(X++(Y..Y))\r\n"
                                    "## Data segment:\r\n100 5 6 7 \r\n100 10 12 14\r\n103 " +
                                    local("-0.5") + "\r\n");
    EXPECT_EQ(host.statuses.front().first, dir.file("s.odf") + " done");
    EXPECT_TRUE(host.boxes.empty());
}

TEST_F(JcampTest, AsdfFormsDecodeAsTheTablesSay) {
    struct Case { const char* line; const char* echo; };
    const Case cases[] = {
        {"100@A1", "100 0 11"},          // one token: ASDF; "@" and "A" start values
        {"100 A5", "100 15 15"},         // two tokens, the second ASDF: its one value stored twice
        {"100 -5", "100 -5"},            // two tokens, the second "-": AFFN
        {"100A%J", "100 1 1"},           // DIF: the last difference is the line's check
        {"100A2T", "100 12 12"},         // DUP: "T" makes two
        {"100A2S0%", "100 12 12 12 12 12 12 12 12 12 12"},  // "S0" makes ten; the "%" is the check
        {"100A1?B2", "100 22 22"},       // "?" repeats its token no time: A1 is gone
        {"100A1jT", "100 11 10"},         // a repeated difference: once applied, once the check
        {"-100@A1", "0 -100"},           // "-" first makes two tokens, the second AFFN
        {"100a12J5b", "100 -112 -97 -2"}, // negative SQZ, a difference, a last SQZ value stored
    };
    for (const Case& c : cases) {
        converted("a.jdx", jcamp(scaled(12), std::string(c.line) + "\r\n"), "a.odf");
        EXPECT_EQ(echo(output("a.hdrx")), local(c.echo) + "\r\n") << c.line;
    }
    // X steps by DELTAX within a line; Y scaled by YFACTOR, X by XFACTOR.
    EXPECT_EQ(converted("b.dx", jcamp("##XFACTOR=0.5\r\n##YFACTOR=3\r\n##DELTAX=2\r\n##NPOINTS=3\r\n", "10A1J1K%\r\n"),
                        "b.odf"),
              point(" 5", " 33") + point(" 7", " 66") + point(" 9", " 72"));
}

TEST_F(JcampTest, UnknownSchemesAndTableFormsAreRefused) {
    form.boxes.DsGr = true;
    // No "##XYDATA=": the header holds the "##JCAMP" line alone; GRAPH is unticked.
    convert("n.jdx", "##JCAMP-DX=4.24\r\n##NPOINTS=3\r\n##END=\r\n");
    EXPECT_EQ(message(), "Data is not bivariate (e.g. a table). Conversion not possible!");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::None);
    EXPECT_EQ(output("n.hdrx"), "##JCAMP-DX=4.24\r\n");
    EXPECT_FALSE(written("n.odf") || form.boxes.DsGr);

    // (XY..XY): the line, then the refusal.
    convert("p.jdx", "##JCAMP-DX=4.24\r\n##NPOINTS=3\r\n##XYDATA= (XY..XY)\r\n1 2\r\n##END=\r\n");
    ASSERT_EQ(host.boxes.size(), 3u);
    EXPECT_EQ(host.boxes[1].text, "##XYDATA= (XY..XY)");
    EXPECT_EQ(host.boxes[1].icon, BoxIcon::Information);
    EXPECT_EQ(message(), "Data is not single measurement bivariate {X,Y}, automatic extraction not possible!");
    EXPECT_EQ(host.boxes.back().icon, BoxIcon::Critical);
    EXPECT_NE(output("p.hdrx").find("data found at line 4\r\n##XYDATA= (XY..XY)\r\n"), std::string::npos);
    EXPECT_FALSE(written("p.odf"));

    // Two tokens whose second starts with neither kind: the input stays
    // open, so the next JCAMP file of the run cannot open it.
    queue("w.jdx", jcamp(scaled(4), "100 5\r\n100 x\r\n"));
    queue("next.jdx", jcamp(scaled(1), "1 2\r\n"));
    EXPECT_EQ(run(), RunOutcome::ErrorHandled);
    EXPECT_EQ(host.boxes[host.boxes.size() - 2].text,
              "W#1: not AFFN or ASDF: unkonwn coding scheme. No further processing!");
    EXPECT_EQ(host.boxes[host.boxes.size() - 2].openFiles, (std::vector<int>{1, 3}));
    EXPECT_EQ(message(), testing::failureBox("Error 55 File already open"));
    EXPECT_EQ(echo(output("w.hdrx")), "100 5\r\n");
    EXPECT_FALSE(written("w.odf") || written("next.odf"));
}

TEST_F(JcampTest, BadBlocksEndTheRunAfterEarlierFilesAreWritten) {
    struct Bad { const char* what; std::string bytes; const char* error; };
    const Bad cases[] = {
        {"no ##JCAMP", "##TITLE=x\r\n##XYDATA=(X++(Y..Y))\r\n", "Error 62 Input past end of file"},
        {"no ##END=", "##JCAMP-DX=4\r\n##NPOINTS=2\r\n##XYDATA=(X++(Y..Y))\r\n1 2 3\r\n", "Error 62 Input past end of file"},
        {"NPOINTS above 32767", jcamp(scaled(32768), "1 2\r\n"), "Error 6 Overflow"},
        {"NPOINTS of 0", jcamp(scaled(0), "1 2\r\n"), "Error 9 Subscript out of range"},
        {"negative NPOINTS", jcamp(scaled(-3), "1 2\r\n"), "Error 9 Subscript out of range"},
        {"more points than NPOINTS", jcamp(scaled(2), "1 2 3\r\n3 4\r\n"), "Error 9 Subscript out of range"},
        {"a DUP count past NPOINTS", jcamp(scaled(3), "1A1S99999999999\r\n"), "Error 9 Subscript out of range"},
        {"an empty data line", jcamp(scaled(2), "\r\n"), "Error 9 Subscript out of range"},
        {"one NPOINTS, no DELTAX", jcamp("##FIRSTX=1\r\n##LASTX=2\r\n##NPOINTS=1\r\n", "1 2\r\n"),
         "Error 11 Division by zero"},
    };
    for (const Bad& c : cases) {
        queue("good.jdx", jcamp(scaled(1), "7 8\r\n"));
        queue("bad.jdx", c.bytes);
        EXPECT_EQ(run(), RunOutcome::ErrorHandled) << c.what;
        EXPECT_EQ(message(), testing::failureBox(c.error)) << c.what;
        EXPECT_EQ(output("good.odf"), point(" 7", " 8")) << c.what;
        EXPECT_FALSE(written("bad.odf")) << c.what;
        EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(3)) << c.what;
    }
    // The echo keeps the lines stored before the point past the end.
    queue("over.jdx", jcamp(scaled(2), "1 2 3\r\n5 6 7\r\n"));
    run();
    EXPECT_EQ(echo(output("over.hdrx")), "1 2 3\r\n");
}

TEST_F(JcampTest, OutputsStopAtTheFirstDotOfThePath) {
    std::filesystem::create_directory(dir.file("run.1"));
    const std::string path = dir.file("run.1/sample.jdx");
    writeFile(path, jcamp(scaled(1), "1 2\r\n"));
    form.addToQueue("sample.jdx", path);
    // Not through run(): its LF-only twin would sit in a folder without the dot.
    EXPECT_EQ(RunCode_Click(form), RunOutcome::Finished);
    EXPECT_EQ(output("run.odf"), point(" 1", " 2"));
    EXPECT_TRUE(written("run.hdrx"));
    // The driver names the result by the last ".".
    EXPECT_EQ(host.statuses.front().first, dir.file("run.1/sample.odf") + " done");
}

// ---- the real samples ----

struct SamplePoint { size_t index; const char* x; const char* y; };
struct Sample { const char* name; size_t points; std::vector<SamplePoint> checks; bool lfOnly; };

// Point counts and Y values as jcampconverter 12.5 reads the same files
// (npm package jcampconverter, run outside the suite); X where the file's
// own X values give it. sqzdupd1 writes its line X values to two decimals,
// which the decoding takes as they stand: its X differ from FIRSTX + i x
// DELTAX by at most 0.005.
const Sample RealSamples[] = {
    {"benzene", 3343, {{0, " 452", " 0.8787"}, {1671, " 2123", " 0.861"}, {3342, " 3794", " 0.8684"}}, true},
    {"dupinc1", 440, {{0, " 250", " 1.1663"}, {1, " 250.5", " 1.1295"}, {220, " 360", " 1.2257"}, {439, " 469.5", " 0.1626"}},
     false},
    {"pacdec1", 3301, {{0, " 4000", " 101.6"}, {1650, " 2350", " 100.13"}, {3300, " 700", " 101.24"}}, false},
    {"sqzdupd1", 18669,
     {{0, " 5000.03", " 0.982870257537"}, {9334, " 2749.99624145", " 1.003952431854"},
      {18668, " 499.95835815", " 1.265022320346"}},
     true},
};

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    for (size_t at = 0, end; (end = text.find("\r\n", at)) != std::string::npos; at = end + 2)
        out.push_back(text.substr(at, end - at + 2));
    return out;
}

TEST_F(JcampTest, RealSamplesGiveTheirSpectra) {
    form.boxes.DsGr = true;
    for (const Sample& s : RealSamples)
        queue(std::string(s.name) + ".jdx", readFile(std::string(KESTRO_SAMPLES_DIR "/jcamp/") + s.name + ".jdx"));
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_TRUE(host.boxes.empty());
    ASSERT_EQ(host.plots.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        const Sample& s = RealSamples[i];
        const std::vector<std::string> odf = lines(output(std::string(s.name) + ".odf"));
        ASSERT_EQ(odf.size(), s.points) << s.name;
        EXPECT_EQ(host.plots[i].count, static_cast<int64_t>(s.points)) << s.name;
        for (const SamplePoint& p : s.checks) EXPECT_EQ(odf[p.index], point(p.x, p.y)) << s.name << " " << p.index;
    }
}

TEST_F(JcampTest, LfOnlySamplesConvertAsTheirCrLfTwins) {
    // The engine reads text with LF alone as its CR LF twin: the same
    // lines, the same line numbers in the summary, the same bytes out.
    for (const Sample& s : RealSamples) {
        if (!s.lfOnly) continue;
        std::string lf = readFile(std::string(KESTRO_SAMPLES_DIR "/jcamp/") + s.name + ".jdx");
        ASSERT_EQ(lf.find('\r'), std::string::npos) << s.name;
        std::string crLf;
        for (char c : lf) crLf += c == '\n' ? std::string("\r\n") : std::string(1, c);
        queue("lf.jdx", lf);
        queue("crlf.jdx", crLf);
        EXPECT_EQ(run(), RunOutcome::Finished) << s.name;
        EXPECT_EQ(output("lf.odf"), output("crlf.odf")) << s.name;
        EXPECT_EQ(output("lf.hdrx"), output("crlf.hdrx")) << s.name;
        EXPECT_EQ(lines(output("lf.odf")).size(), s.name == std::string("benzene") ? 3343u : 18669u);
    }
}

}  // namespace
}  // namespace kestro
