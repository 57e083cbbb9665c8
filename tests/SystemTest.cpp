// The system under the engine: names beyond ASCII, the folder separators of
// each system, the facts the run's record keeps of a file, and processes.
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "core/runtime/Files.h"
#include "core/runtime/System.h"

namespace kestro {
namespace {

using testing::raised;
using testing::TempDir;

TEST(SystemTest, NamesBeyondAsciiAreWrittenReplacedReadAndCutBack) {
    TempDir dir;
    const std::string folder = dir.file("dossier \xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC");  // "dossier é 日本"
    ASSERT_TRUE(std::filesystem::create_directory(sys::fsPath(folder)));
    const std::string path = folder + "/sp\xC3\xABktrum.odf";
    writeWholeFile(path, "first\r\n");
    writeWholeFile(path, "second\r\n");
    EXPECT_EQ(readWholeFile(path), "second\r\n");
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(sys::fsPath(folder)))
        names.push_back(sys::utf8Path(entry.path().filename()));
    EXPECT_EQ(names, std::vector<std::string>{"sp\xC3\xABktrum.odf"});  // no temporary file left

    // By name and open, the same length and time.
    sys::FileInfo byName, open;
    ASSERT_TRUE(sys::pathInfo(path, byName));
    std::FILE* f = sys::openFile(path, "rb");
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(sys::openFileInfo(f, open));
    std::fclose(f);
    EXPECT_EQ(byName.size, 8u);
    EXPECT_EQ(open.size, byName.size);
    EXPECT_EQ(open.modified, byName.modified);
    EXPECT_FALSE(byName.folder);
    ASSERT_TRUE(sys::pathInfo(folder, byName));
    EXPECT_TRUE(byName.folder);

    // "x" makes a file anew only.
    errno = 0;
    EXPECT_EQ(sys::openFile(path, "wbx"), nullptr);
    EXPECT_EQ(errno, EEXIST);
    ASSERT_TRUE(sys::truncateFile(path, 3));
    EXPECT_EQ(readWholeFile(path), "sec");
    EXPECT_TRUE(sys::removeFile(path));
    errno = 0;
    EXPECT_FALSE(sys::pathInfo(path, byName));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(raised([&] { readWholeFile(path); }).number(), err::FileNotFound);
}

TEST(SystemTest, FolderAndNameSplitWhereTheSystemSeparates) {
    const std::string mixed = "C:\\data/run\\c.chn";
    EXPECT_EQ(sys::lastSeparator("a/b/c.chn"), 3u);
    EXPECT_EQ(sys::lastSeparator("c.chn"), std::string::npos);
    if (sys::BackslashSeparates) {
        EXPECT_EQ(sys::lastSeparator(mixed), 11u);
        EXPECT_TRUE(sys::isAbsolute("C:\\data"));
        EXPECT_TRUE(sys::isAbsolute("\\\\server\\share\\a.chn"));
        EXPECT_FALSE(sys::isAbsolute("data\\a.chn"));
        EXPECT_EQ(temporaryNameBeside("run\\c.chn").rfind("run\\.kestro~", 0), 0u);
    } else {
        // A backslash is part of a name.
        EXPECT_EQ(sys::lastSeparator(mixed), 7u);
        EXPECT_TRUE(sys::isAbsolute("/data"));
        EXPECT_FALSE(sys::isAbsolute("C:\\data"));
        EXPECT_EQ(temporaryNameBeside("run\\c.chn").rfind(".kestro~", 0), 0u);
    }
}

TEST(SystemTest, TemporaryNamesTellTheirProcessWhichRuns) {
#ifdef __EMSCRIPTEN__
    GTEST_SKIP() << "the browser has no other processes";
#endif
    long pid = 0;
    ASSERT_TRUE(isTemporaryOutputName(temporaryNameBeside("x"), pid));
    EXPECT_EQ(pid, sys::processId());
    EXPECT_TRUE(sys::processRuns(pid));
    EXPECT_FALSE(sys::processRuns(0));
}

}  // namespace
}  // namespace kestro
