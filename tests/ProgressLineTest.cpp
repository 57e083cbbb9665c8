// kestro-convert's progress line: drawn on a terminal, absent otherwise, and
// never mixed into what standard output says.
#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "TestSupport.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::writeFile;

using Outcome = testing::ConverterRun;

std::string erased(size_t width) {
    std::string blank(width + 2, ' ');
    blank.front() = blank.back() = '\r';
    return blank;
}

class ProgressLineTest : public ::testing::Test {
protected:
    // Runs the converter in `dir` with standard output to a file and standard
    // error on a raw pseudo-terminal `columns` wide.
    Outcome onTerminal(const std::vector<std::string>& arguments, unsigned short columns) {
        int master = -1, slave = -1;
        winsize size{};
        size.ws_row = 24;
        size.ws_col = columns;
        termios raw{};
        cfmakeraw(&raw);
        if (openpty(&master, &slave, nullptr, &raw, &size) != 0) ADD_FAILURE() << "no pseudo-terminal";
        const pid_t child = fork();
        if (child == 0) {
            const int out = open(dir.file("out.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (chdir(dir.path().c_str()) != 0 || out < 0) _exit(99);
            dup2(out, STDOUT_FILENO);
            dup2(slave, STDERR_FILENO);
            std::vector<char*> argv{const_cast<char*>(KESTRO_CONVERT)};
            for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
            argv.push_back(nullptr);
            execv(KESTRO_CONVERT, argv.data());
            _exit(98);
        }
        close(slave);
        std::string err;
        char buffer[4096];
        for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) err.append(buffer, static_cast<size_t>(n));
        close(master);
        int raw_status = 0;
        waitpid(child, &raw_status, 0);
        return {WIFEXITED(raw_status) ? WEXITSTATUS(raw_status) : -1, readFile(dir.file("out.txt")), err};
    }

    Outcome redirected(const std::string& arguments) { return testing::runConverter(dir, arguments); }

    testing::TempDir dir;
};

TEST_F(ProgressLineTest, RedrawnPerFileOnATerminalAndErasedAtTheEnd) {
    writeFile(dir.file("a.odf"), "0 10\r\n1 20\r\n");
    writeFile(dir.file("b.dat"), "1 2\r\n");
    const Outcome terminal = onTerminal({"--spo", "a.odf", "b.dat"}, 80);
    EXPECT_EQ(terminal.status, 0);
    EXPECT_EQ(terminal.err, "\r0/2 files (0%) a.odf" + erased(20) + "\r1/2 files (50%) b.dat" + erased(21));

    // Redirected, standard error stays empty and standard output is the same.
    const Outcome piped = redirected("--spo a.odf b.dat");
    EXPECT_EQ(piped.err, "");
    EXPECT_EQ(piped.out, terminal.out);
    EXPECT_EQ(piped.out, dir.file("a.odf") + " done\n" + dir.file("b.odf") + " done\nFinished 2 files\n");
}

TEST_F(ProgressLineTest, MessagesAndNarrowTerminals) {
    // A message box erases the line first and is written as it always is.
    const Outcome missing = onTerminal({"gone.dat"}, 80);
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "\r0/1 files (0%) gone.dat" + erased(23) + redirected("gone.dat").err);

    // A long name loses its beginning: the line keeps one column free so it never wraps.
    const std::string name = std::string(60, 'n') + "-tail.odf";
    writeFile(dir.file(name), "0 1\r\n");
    const Outcome narrow = onTerminal({name}, 40);
    EXPECT_EQ(narrow.err, "\r0/1 files (0%) ..." + name.substr(name.size() - 21) + erased(39));

    // The empty queue draws nothing.
    EXPECT_EQ(onTerminal({}, 80).err, "");
}

}  // namespace
}  // namespace kestro
