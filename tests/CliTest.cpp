// kestro-convert as scripts see it: standard output, standard error, exit status.
#include <sys/wait.h>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::writeFile;

using Result = testing::ConverterRun;

class CliTest : public ::testing::Test {
protected:
    Result convert(const std::string& arguments) { return testing::runConverter(dir, arguments); }
    testing::TempDir dir;
};

TEST_F(CliTest, ConvertsQueuedFilesAndReportsEach) {
    writeFile(dir.file("a.odf"), "0 10\r\n1 20\r\n");
    writeFile(dir.file("b.dat"), "1 2\r\n");
    Result r = convert("--spo a.odf b.dat");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, dir.file("a.odf") + " done\n" + dir.file("b.odf") + " done\nFinished 2 files\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(readFile(dir.file("a.spo")), " 2            0\r\n      10      20\r\n");

    // A typed "-odat" token wraps the block.
    writeFile(dir.file("k.dat"), "      10      11       3\r\n");
    EXPECT_EQ(convert("--type -odat k.dat").status, 0);
    EXPECT_EQ(readFile(dir.file("k.spo")), " 0            0\r\n      10      11       3\r\n\r\n");

    // "Modern readers": the MPA4A-style file gives its spectrum.
    writeFile(dir.file("m.mpa"), "[MPA4A] 404\r\nmpafmt=asc\r\n[ADC1]\r\nlivetime=2\r\n[DATA0,3 ]\r\n1\r\n2\r\n3\r\n");
    EXPECT_EQ(convert("m.mpa").status, 1);  // the classic rules run out of ADC sections
    EXPECT_FALSE(std::filesystem::exists(dir.file("F0m.odf")));
    EXPECT_EQ(convert("--modern m.mpa").status, 0);
    EXPECT_EQ(readFile(dir.file("F0m.odf")), " 0  2 \r\n 1  0 \r\n 2  3 \r\n");

    // An empty queue is not a failure.
    r = convert("");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Add files first !\n");
}

TEST_F(CliTest, MessagesGoToStandardErrorAndFailuresSetTheExitStatus) {
    Result missing = convert("gone.dat");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "information: ! CHECK FOR ERROR !\nError 53 File not found in 'ODF writing'       \n\n\n");

    writeFile(dir.file("x.foo"), "5\r\n");
    Result yes = convert("--answer yes --format 6 x.foo");  // "S100" has no route of its own
    EXPECT_EQ(yes.status, 0);
    EXPECT_EQ(yes.err, "question: WARNING: format option not recognized! Conversion may be awkward, proceed? -> yes\n");
    Result no = convert("--format 'Canberra 35/40 *.mca' x.foo");
    EXPECT_EQ(no.status, 1);
    EXPECT_NE(no.err.find("-> no"), std::string::npos);

    Result refused = convert("--type -dat x.foo");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              "critical: Option no longer supported! Set the SPE/SPO appropriate selection and try again!!\n");

    // Bad command lines convert nothing.
    writeFile(dir.file("a.odf"), "0 1\r\n");
    for (const char* args : {"--format 24 a.odf", "--format Genie a.odf", "--bogus a.odf", "--answer maybe a.odf"}) {
        Result r = convert(args);
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_EQ(r.out, "") << args;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("a.dat")));
}

}  // namespace
}  // namespace kestro
