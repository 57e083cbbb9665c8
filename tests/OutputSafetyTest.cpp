// Nothing a run replaces is lost: outputs are written under a temporary name
// and take their own only when whole; a file Kestro did not write goes to the
// trash first; a full disk says so; a queued input reads as it was.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "core/RunOutputGuard.h"
#include "core/runtime/Files.h"
#include "core/runtime/TextOutput.h"
#include "core/runtime/Trash.h"

namespace kestro {
namespace {

namespace fs = std::filesystem;
using testing::raised;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

// The names in a folder, Kestro's record left out.
std::vector<std::string> namesIn(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir))
        if (entry.path().filename() != RunOutputGuard::RecordName) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// A trash of the test's own, as $XDG_DATA_HOME/Trash.
class OwnTrash {
public:
    OwnTrash() {
        const char* old = std::getenv("XDG_DATA_HOME");
        if (old) previous_ = old;
        hadPrevious_ = old != nullptr;
        setenv("XDG_DATA_HOME", home_.path().c_str(), 1);
    }
    ~OwnTrash() {
        if (hadPrevious_) setenv("XDG_DATA_HOME", previous_.c_str(), 1);
        else unsetenv("XDG_DATA_HOME");
    }
    std::vector<std::string> files() const {
        return fs::exists(home_.file("Trash/files")) ? namesIn(home_.file("Trash/files")) : std::vector<std::string>{};
    }
    std::string file(const std::string& name) const { return readFile(home_.file("Trash/files/" + name)); }
    std::string info(const std::string& name) const { return readFile(home_.file("Trash/info/" + name + ".trashinfo")); }

private:
    TempDir home_;
    std::string previous_;
    bool hadPrevious_ = false;
};

// ---- the file layer alone ----

TEST(OutputFileTest, AFailedWriteLeavesNoFileCutShortAndTheEarlierFileAsItWas) {
    TempDir dir;
    const std::string path = dir.file("out.odf");
    writeFile(path, "earlier");
    {
        InjectingWriteFault full({WriteFault::Kind::NoSpace, 10});
        const RuntimeError e = raised([&] { writeWholeFile(path, std::string(100, 'x')); });
        EXPECT_EQ(e.number(), err::DiskFull);
        EXPECT_EQ(e.description(), "Disk full");
    }
    {
        InjectingWriteFault broken({WriteFault::Kind::DeviceError, 0});
        EXPECT_EQ(raised([&] { writeWholeFile(path, "new"); }).number(), err::PathFileAccess);
    }
    {
        InjectingWriteFault refused({WriteFault::Kind::AccessDenied});
        EXPECT_EQ(raised([&] { writeWholeFile(path, "new"); }).number(), err::PathFileAccess);
    }
    EXPECT_EQ(readFile(path), "earlier");
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"out.odf"});  // no temporary left either

    // The bytes count over every output: the first is whole, the second fails.
    InjectingWriteFault full({WriteFault::Kind::NoSpace, 5});
    writeWholeFile(dir.file("first"), "12345");
    EXPECT_EQ(raised([&] { writeWholeFile(dir.file("second"), "6"); }).number(), err::DiskFull);
    EXPECT_EQ(namesIn(dir.path()), (std::vector<std::string>{"first", "out.odf"}));
}

TEST(OutputFileTest, AnOpenOutputHasATemporaryNameAndADroppedOneTakesItsNameUnlessItFailed) {
    TempDir dir;
    const std::string path = dir.file("a.spe");
    writeFile(path, "earlier");
    {
        TextWriter out(path);
        out.text("whole").endLine();
        out.flushIfFull();
        EXPECT_EQ(readFile(path), "earlier");  // a killed run would leave this
        const std::vector<std::string> names = namesIn(dir.path());
        ASSERT_EQ(names.size(), 2u);
        long pid = 0;
        EXPECT_TRUE(isTemporaryOutputName(names[0], pid)) << names[0];
        EXPECT_EQ(pid, static_cast<long>(getpid()));
        EXPECT_TRUE(sys::processRuns(pid));
    }  // dropped by an error path elsewhere: what it holds takes the name
    EXPECT_EQ(readFile(path), "whole\r\n");

    {
        InjectingWriteFault full({WriteFault::Kind::NoSpace, 3});
        TextWriter out(path);
        // A whole block goes straight to the file, and fails.
        EXPECT_EQ(raised([&] { out.text(std::string(2 << 20, 'y')); }).number(), err::DiskFull);
    }
    // Its destructor could not report it: the failed file is gone all the same.
    EXPECT_EQ(readFile(path), "whole\r\n");
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"a.spe"});
}

TEST(OutputFileTest, AppendsGoToTheFileAndAFailedOneIsCutBack) {
    TempDir dir;
    const std::string path = dir.file("Test.txt");
    writeFile(path, "line 1\r\n");
    {
        OutputFile log(path, OutputFile::Mode::Append);
        log.write("line 2\r\n");
        log.close();
    }
    EXPECT_EQ(readFile(path), "line 1\r\nline 2\r\n");
    InjectingWriteFault full({WriteFault::Kind::NoSpace, 4});
    OutputFile log(path, OutputFile::Mode::Append);
    EXPECT_EQ(raised([&] { log.write("line 3\r\n"); }).number(), err::DiskFull);
    EXPECT_EQ(raised([&] { log.close(); }).number(), err::DiskFull);
    EXPECT_EQ(readFile(path), "line 1\r\nline 2\r\n");
}

TEST(OutputFileTest, FilesThatRefusedWritingStillDoAndLinksAreWrittenThrough) {
    TempDir dir;
    fs::create_directory(dir.file("folder.odf"));
    EXPECT_EQ(raised([&] { writeWholeFile(dir.file("folder.odf"), "x"); }).number(), err::PathFileAccess);
    EXPECT_EQ(raised([&] { writeWholeFile(dir.file("none/a.odf"), "x"); }).number(), err::PathNotFound);
    writeFile(dir.file("target.odf"), "old");
    fs::create_symlink(dir.file("target.odf"), dir.file("link.odf"));
    writeWholeFile(dir.file("link.odf"), "new");
    EXPECT_TRUE(fs::is_symlink(dir.file("link.odf")));
    EXPECT_EQ(readFile(dir.file("target.odf")), "new");
    if (geteuid() != 0) {  // root writes anyway
        writeFile(dir.file("locked.odf"), "kept");
        fs::permissions(dir.file("locked.odf"), fs::perms::owner_read);
        EXPECT_EQ(raised([&] { writeWholeFile(dir.file("locked.odf"), "x"); }).number(), err::PathFileAccess);
        EXPECT_EQ(readFile(dir.file("locked.odf")), "kept");
    }
}

TEST(TrashTest, FreedesktopTrashKeepsTheFileAndWhereItCameFrom) {
    OwnTrash trash;
    TempDir dir;
    for (int i = 0; i < 2; ++i) {
        writeFile(dir.file("a b%.spe"), "original " + std::to_string(i));
        std::string where;
        ASSERT_TRUE(systemTrash().moveToTrash(dir.file("a b%.spe"), where));
        EXPECT_FALSE(fs::exists(dir.file("a b%.spe")));
        EXPECT_EQ(readFile(where), "original " + std::to_string(i));
    }
    EXPECT_EQ(trash.files(), (std::vector<std::string>{"a b%.spe", "a b%.spe.2"}));
    EXPECT_EQ(trash.file("a b%.spe.2"), "original 1");
    const std::string info = trash.info("a b%.spe");
    EXPECT_EQ(info.substr(0, 13 + 5), "[Trash Info]\nPath=");
    EXPECT_NE(info.find("/a%20b%25.spe\nDeletionDate=20"), std::string::npos) << info;
    std::string where;
    EXPECT_FALSE(systemTrash().moveToTrash(dir.file("missing"), where));
}

// ---- a run under its guard ----

class GuardedRunTest : public testing::ConversionTest {
protected:
    OwnTrash trash;
};

const std::string TwoColumns = " 0  5 \r\n 1  7 \r\n";

TEST_F(GuardedRunTest, AnInstrumentsFileGoesToTheTrashAndKestrosOwnAreReplacedInPlace) {
    const std::string instrument = "instrument's own data\r\n";
    writeFile(dir.file("run1.dat"), instrument);
    ASSERT_EQ(convert("run1.odf", TwoColumns), RunOutcome::Finished);
    const std::string dat = output("run1.dat");
    EXPECT_NE(dat, instrument);
    EXPECT_EQ(trash.files(), std::vector<std::string>{"run1.dat"});
    EXPECT_EQ(trash.file("run1.dat"), instrument);
    ASSERT_EQ(form.runLog.files.size(), 1u);
    EXPECT_EQ(form.runLog.files[0].replaced, std::vector<std::string>{dir.file("run1.dat")});

    // The same batch again: its outputs are Kestro's and unchanged.
    form.addToQueue("run1.odf", dir.file("run1.odf"));
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("run1.dat"), dat);
    EXPECT_EQ(trash.files().size(), 1u);

    // Edited since: it goes to the trash as anyone's file would.
    writeFile(dir.file("run1.dat"), dat + "a note\r\n");
    form.addToQueue("run1.odf", dir.file("run1.odf"));
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("run1.dat"), dat);
    EXPECT_EQ(trash.files(), (std::vector<std::string>{"run1.dat", "run1.dat.2"}));
    EXPECT_EQ(trash.file("run1.dat.2"), dat + "a note\r\n");

    // Replacing in place, as the classic program did.
    writeFile(dir.file("run1.dat"), instrument);
    form.replaceInPlace = true;
    form.addToQueue("run1.odf", dir.file("run1.odf"));
    ASSERT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("run1.dat"), dat);
    EXPECT_EQ(trash.files().size(), 2u);
}

TEST_F(GuardedRunTest, AQueuedInputThatAnOutputReplacesIsReadAsItWas) {
    const std::string cnf = readFile(KESTRO_SAMPLES_DIR "/cnf/SMP00011.CNF");
    const std::string spe = readFile(KESTRO_SAMPLES_DIR "/spe/SGM102432.spe");
    // What "a.spe" gives in a folder of its own.
    TempDir alone;
    writeFile(alone.file("a.spe"), spe);
    form.addToQueue("a.spe", alone.file("a.spe"));
    tick(true, false);
    ASSERT_EQ(RunCode_Click(form), RunOutcome::Finished);
    const std::string speGives = readFile(alone.file("a.odf"));

    writeFile(dir.file("a.cnf"), cnf);
    writeFile(dir.file("a.spe"), spe);
    form.addToQueue("a.cnf", dir.file("a.cnf"));
    form.addToQueue("a.spe", dir.file("a.spe"));
    ASSERT_EQ(RunCode_Click(form), RunOutcome::Finished);
    EXPECT_EQ(output("a.odf"), speGives);
    EXPECT_NE(output("a.spe"), spe);  // the CNF's spectrum
    EXPECT_EQ(trash.files(), std::vector<std::string>{"a.spe"});
    EXPECT_EQ(trash.file("a.spe"), spe);
    EXPECT_EQ(output("a.cnf"), cnf);
}

TEST_F(GuardedRunTest, AFullDiskSaysSoAndLeavesTheEarlierOutputsWhole) {
    std::string big;
    for (int i = 0; i < 20000; ++i) big.append(" ").append(std::to_string(i)).append("  7 \r\n");
    writeFile(dir.file("b.dat"), "an earlier b.dat\r\n");
    queue("a.odf", TwoColumns);
    queue("b.odf", big);
    tick(false, false);
    {
        InjectingWriteFault full({WriteFault::Kind::NoSpace, 100000});
        ASSERT_EQ(RunCode_Click(form), RunOutcome::ErrorHandled);
    }
    EXPECT_EQ(message(), testing::failureBox("Error 61 Disk full"));
    EXPECT_EQ(output("b.dat"), "an earlier b.dat\r\n");
    EXPECT_EQ(namesIn(dir.path()), (std::vector<std::string>{"a.dat", "a.odf", "b.dat", "b.odf"}));
    EXPECT_TRUE(trash.files().empty());
}

TEST_F(GuardedRunTest, AKilledRunsTemporaryFilesGoAtTheNextRun) {
    const std::string stale = ".kestro~999999999~1";
    const std::string live = ".kestro~" + std::to_string(getpid()) + "~999999";
    writeFile(dir.file(stale), "cut sh");
    writeFile(dir.file(live), "another run's, still being written");
    ASSERT_EQ(convert("run1.odf", TwoColumns), RunOutcome::Finished);
    EXPECT_EQ(namesIn(dir.path()), (std::vector<std::string>{live, "run1.dat", "run1.odf"}));
}

TEST(ConverterTest, ReplaceWritesOverEveryFileInPlace) {
    OwnTrash trash;
    TempDir dir;
    writeFile(dir.file("a.odf"), TwoColumns);
    writeFile(dir.file("a.dat"), "mine");
    EXPECT_EQ(testing::runConverter(dir, "--replace a.odf").status, 0);
    EXPECT_TRUE(trash.files().empty());
    writeFile(dir.file("a.dat"), "mine");
    EXPECT_EQ(testing::runConverter(dir, "a.odf").status, 0);
    EXPECT_EQ(trash.files(), std::vector<std::string>{"a.dat"});
    EXPECT_EQ(trash.file("a.dat"), "mine");
}

TEST(RunOutputGuardTest, TheRunLogNamesFilesMovedToTheTrashAndFailedOutputs) {
    OwnTrash trash;
    TempDir dir;
    testing::ScriptedHost host;
    Session form(host);
    form.runLog.files.resize(1);
    form.runLog.currentIndex = 0;
    writeFile(dir.file("x.hdr"), "someone's");
    {
        RunOutputGuard guard(form, systemTrash());
        GuardingOutputs guarding(&guard);
        writeWholeFile(dir.file("x.hdr"), "new");
        writeWholeFile(dir.file("x.hdr"), "newer");  // written by this run: in place
        InjectingWriteFault full({WriteFault::Kind::NoSpace, 0});
        EXPECT_EQ(raised([&] { writeWholeFile(dir.file("x.odf"), "1"); }).number(), err::DiskFull);
    }
    EXPECT_EQ(form.runLog.files[0].replaced, std::vector<std::string>{dir.file("x.hdr")});
    EXPECT_EQ(form.runLog.files[0].removed, std::vector<std::string>{dir.file("x.odf")});
    EXPECT_EQ(trash.files(), std::vector<std::string>{"x.hdr"});
    EXPECT_EQ(readFile(dir.file("x.hdr")), "newer");
    EXPECT_TRUE(fs::exists(dir.file(RunOutputGuard::RecordName)));
}

// A run lists each folder's names once and skips the look before opening an
// output whose name was free: a file that takes the name meanwhile, or a
// link that was there, must still be handled as if it had been looked at.
TEST(RunOutputGuardTest, ANameTakenAfterTheFolderWasListedIsStillKept) {
    OwnTrash trash;
    TempDir dir;
    testing::ScriptedHost host;
    Session form(host);
    writeFile(dir.file("target.odf"), "old");
    fs::create_symlink(dir.file("target.odf"), dir.file("link.odf"));
    {
        RunOutputGuard guard(form, systemTrash());
        GuardingOutputs guarding(&guard);
        writeWholeFile(dir.file("first.odf"), "1");
        OutputFile late(dir.file("late.dat"));
        late.write("new");
        writeFile(dir.file("late.dat"), "someone's");
        late.close();
        writeWholeFile(dir.file("link.odf"), "through the link");
    }
    EXPECT_EQ(readFile(dir.file("late.dat")), "new");
    EXPECT_TRUE(fs::is_symlink(dir.file("link.odf")));
    EXPECT_EQ(readFile(dir.file("target.odf")), "through the link");
    EXPECT_EQ(trash.files(), (std::vector<std::string>{"late.dat", "target.odf"}));
    EXPECT_EQ(trash.file("late.dat"), "someone's");
}

// The record grows a line per output during a run and keeps one line a file
// still there once the run is over.
TEST(RunOutputGuardTest, TheRecordKeepsOneLineAFileThatIsStillThere) {
    OwnTrash trash;
    TempDir dir;
    testing::ScriptedHost host;
    Session form(host);
    auto run = [&](const std::vector<std::string>& names) {
        RunOutputGuard guard(form, systemTrash());
        GuardingOutputs guarding(&guard);
        for (const std::string& name : names) writeWholeFile(dir.file(name), name);
    };
    auto recordLines = [&] {
        const std::string text = readFile(dir.file(RunOutputGuard::RecordName));
        return std::count(text.begin(), text.end(), '\n');
    };
    run({"a.odf", "b.odf", "a.odf"});
    EXPECT_EQ(recordLines(), 3);  // the heading, a.odf, b.odf
    run({"a.odf"});
    EXPECT_EQ(recordLines(), 3);
    fs::remove(dir.file("b.odf"));
    run({"a.odf"});
    EXPECT_EQ(recordLines(), 2);
    EXPECT_TRUE(trash.files().empty());  // Kestro's own outputs, replaced in place
}

// A killed run's temporary files go at the next start, also from a folder
// that no later run writes in: each run keeps a journal of its folders.
TEST(RunOutputGuardTest, AKilledRunsTemporaryFilesGoAtTheNextStartWhereverTheyAre) {
    OwnTrash home;  // the journals live under the same data folder
    TempDir dir;
    testing::ScriptedHost host;
    Session form(host);
    const long gone = 4194311;  // beyond any process id Linux hands out
    const std::string journals = RunOutputGuard::journalFolder();
    const std::string killed = dir.file(".kestro~" + std::to_string(gone) + "~3");
    const std::string running = dir.file(".kestro~" + std::to_string(sys::processId()) + "~999");
    writeFile(killed, "cut sh");
    writeFile(running, "being written");
    fs::create_directories(journals);
    writeFile(journals + "/run-" + std::to_string(gone), dir.path() + "\n");
    TempDir elsewhere;
    {
        RunOutputGuard guard(form, systemTrash());
        GuardingOutputs guarding(&guard);
        EXPECT_FALSE(fs::exists(killed));
        EXPECT_TRUE(fs::exists(running));
        EXPECT_FALSE(fs::exists(journals + "/run-" + std::to_string(gone)));
        writeWholeFile(elsewhere.file("a.odf"), "1");
        EXPECT_EQ(readFile(journals + "/run-" + std::to_string(sys::processId())), elsewhere.path() + "\n");
    }
    EXPECT_TRUE(fs::is_empty(journals));  // a run that ends leaves no journal
}

}  // namespace
}  // namespace kestro
