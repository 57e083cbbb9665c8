#pragma once
// For the tests: a fresh folder, whole-file writes and reads, the run-time
// error an action raises, and conversions run as a front end runs them.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <utime.h>
#ifdef KESTRO_CONVERT
#include <sys/wait.h>
#endif

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "batch/Driver.h"
#include "core/FormatTable.h"
#include "core/Host.h"
#include "core/RunOutputGuard.h"
#include "core/Session.h"
#include "core/runtime/BinaryOutput.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/System.h"
#include "core/runtime/TextInput.h"

namespace kestro::testing {

class TempDir {
public:
    TempDir() {
#ifdef _WIN32
        // No mkdtemp: kestro-test-<process>-<count>, made where it is free.
        static std::atomic<unsigned> count{0};
        std::filesystem::path made;
        do {
            made = std::filesystem::temp_directory_path() / "kestro-test-";
            made += std::to_string(sys::processId()) + "-" + std::to_string(++count);
        } while (!std::filesystem::create_directory(made));
        path_ = made.string();
#else
        std::string pattern = (std::filesystem::temp_directory_path() / "kestro-test-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
#endif
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Sets a file's modification time, in whole seconds.
inline void setFileTime(const std::string& path, std::time_t when) {
#ifdef __EMSCRIPTEN__
    // The web build's runtime hands milliseconds to node as seconds: it is
    // given the seconds as milliseconds, so that node receives seconds.
    const timespec times[2] = {{when / 1000, (when % 1000) * 1000000}, {when / 1000, (when % 1000) * 1000000}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
#else
    utimbuf times{when, when};
    utime(path.c_str(), &times);
#endif
}

// Sets a file's modification time and returns how line 4 of an SPE file shows it.
inline std::string setModified(const std::string& path, std::time_t when) {
    setFileTime(path, when);
    const std::tm tm = sys::localTime(when);
    char text[32];
    std::strftime(text, sizeof text, "%d-%m-%Y  %H:%M:%S", &tm);
    return text;
}

// The error raised, or number 0 when the action raised nothing.
template <typename Action>
RuntimeError raised(Action&& action) {
    try {
        action();
    } catch (const RuntimeError& e) {
        return e;
    }
    return RuntimeError(0, "nothing raised");
}

// Records every status text, message box, plot and wait, and answers Yes/No
// questions from a script.
class ScriptedHost : public Host {
public:
    // openFiles: the numbered files open while the box showed.
    struct Box { std::string text; BoxIcon icon; BoxButtons buttons; std::vector<int> openFiles; };
    struct Plot { PlotPoints points; int64_t count; std::string name; bool logarithmic = false; };
    std::vector<std::pair<std::string, StatusColour>> statuses;
    std::vector<int> progress;
    std::vector<Box> boxes;
    std::vector<Plot> plots;
    Answer answer = Answer::No;  // to every Yes/No question
    int beeps = 0;
    double waited = 0;
    const FileTable* files = nullptr;  // when set, each box records the files open

    void showStatus(const std::string& text, StatusColour colour) override { statuses.emplace_back(text, colour); }
    void showProgress(int value) override { progress.push_back(value); }
    void beep() override { ++beeps; }
    Answer messageBox(const std::string& text, BoxIcon icon, BoxButtons buttons) override {
        std::vector<int> open;
        for (int n = 1; files && n <= 7; ++n)
            if (files->isOpen(n)) open.push_back(n);
        boxes.push_back({text, icon, buttons, open});
        return buttons == BoxButtons::Ok ? Answer::Ok : answer;
    }
    void plot(const PlotPoints& points, int64_t count, const std::string& name) override {
        plots.push_back({points, count, name});
    }
    void applyScale(bool logarithmic) override { if (!plots.empty()) plots.back().logarithmic = logarithmic; }
    void wait(double seconds) override { waited += seconds; }
    void boxesChanged() override {}
    void queueChanged() override {}
    std::vector<RunLog> runLogs;  // the record of each run, as handed over at its end
    void runLogged(const RunLog& log) override { runLogs.push_back(log); }
};

constexpr std::time_t SomeTime = 1763700000;  // a fixed modification time

// The message the driver shows when a run fails, for an "Error N Text".
inline std::string failureBox(const std::string& error) {
    return "! CHECK FOR ERROR !\n" + error + " in 'ODF writing'       \n\n";
}

// An input that is to end the run, the "Error N Text" it is to show, and
// the files the failed reader leaves open until the run ends: 1 the input,
// 2 the output too.
struct BadInput { const char* what; std::string bytes; const char* error; int open; bool spe = false, spo = false; };

// The line-end rule, checked on every crafted text input: a copy of the
// queue with each CR LF made LF alone converts exactly as the original.
class LfTwinRun {
public:
    static std::unique_ptr<LfTwinRun> prepare(const Session& form, const ScriptedHost& host,
                                              const TempDir& originalDir) {
        if (form.List2.empty()) return nullptr;
        for (const std::string& path : form.List2)
            if (!isTextInput(path) || !isCrLfText(readFile(path))) return nullptr;
        auto twin = std::unique_ptr<LfTwinRun>(new LfTwinRun(host));
        Session& copy = twin->form_;
        formLoad(copy);
        copy.formatOption = form.formatOption;
        copy.commandLine = form.commandLine;
        copy.boxes = form.boxes;
        copy.sharedRealTime = form.sharedRealTime;
        // Folders in the way of an output stand in the twin's way too.
        for (const auto& entry : std::filesystem::directory_iterator(originalDir.path()))
            if (entry.is_directory()) std::filesystem::create_directory(twin->dir_.file(entry.path().filename().string()));
        for (size_t i = 0; i < form.List2.size(); ++i) {
            const std::string& path = form.List2[i];
            const std::string copyPath = twin->dir_.file(std::filesystem::path(path).filename().string());
            std::string lf = readFile(path);
            std::erase(lf, '\r');
            writeFile(copyPath, lf);
            struct stat original {};
            stat(path.c_str(), &original);
            setFileTime(copyPath, original.st_mtime);
            copy.addToQueue(form.List1[i], copyPath);
        }
        return twin;
    }

    void expectAlike(RunOutcome outcome, const ScriptedHost& host, const TempDir& originalDir) {
        const std::set<std::string> inputs(form_.List1.begin(), form_.List1.end());
        const auto current = std::filesystem::current_path();
        std::filesystem::current_path(dir_.path());
        const RunOutcome twinOutcome = RunCode_Click(form_);
        std::filesystem::current_path(current);
        const auto inOriginal = [&](std::string text) {
            for (size_t at; (at = text.find(dir_.path())) != std::string::npos;)
                text.replace(at, dir_.path().size(), originalDir.path());
            return text;
        };
        EXPECT_EQ(twinOutcome, outcome) << "LF-only twin";
        // The original's host holds earlier runs too: this run's part is its tail.
        ASSERT_EQ(host_.boxes.size(), host.boxes.size() - boxesBefore_) << "LF-only twin";
        for (size_t i = 0; i < host_.boxes.size(); ++i)
            EXPECT_EQ(inOriginal(host_.boxes[i].text), host.boxes[boxesBefore_ + i].text) << "LF-only twin";
        ASSERT_EQ(host_.statuses.size(), host.statuses.size() - statusesBefore_) << "LF-only twin";
        for (size_t i = 0; i < host_.statuses.size(); ++i)
            EXPECT_EQ(inOriginal(host_.statuses[i].first), host.statuses[statusesBefore_ + i].first) << "LF-only twin";
        for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
            const std::string name = entry.path().filename().string();
            if (inputs.count(name) || entry.is_directory() || name == RunOutputGuard::RecordName) continue;
            EXPECT_EQ(inOriginal(readFile(entry.path().string())), readFile(originalDir.file(name)))
                << "LF-only twin of " << name;
        }
    }

private:
    explicit LfTwinRun(const ScriptedHost& host)
        : boxesBefore_(host.boxes.size()), statusesBefore_(host.statuses.size()), form_(host_) {
        host_.answer = host.answer;
    }

    static bool isTextInput(const std::string& path) {
        static const std::set<std::string> text = {".spe", ".asc", ".rbs", ".sim", ".dat", ".odf",
                                                   ".spx", ".xml", ".mpa", ".mp", ".jdx", ".dx"};
        std::string extension = std::filesystem::path(path).extension().string();
        for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return text.count(extension) != 0;
    }
    // Lines that all end in CR LF, with no other CR or LF: its LF-only copy
    // has that very text as its twin.
    static bool isCrLfText(const std::string& bytes) {
        if (bytes.find("\r\n") == std::string::npos) return false;
        for (size_t i = 0; i < bytes.size(); ++i) {
            if (bytes[i] == '\r' && (i + 1 == bytes.size() || bytes[i + 1] != '\n')) return false;
            if (bytes[i] == '\n' && (i == 0 || bytes[i - 1] != '\r')) return false;
        }
        return true;
    }

    const size_t boxesBefore_, statusesBefore_;
    TempDir dir_;
    ScriptedHost host_;
    Session form_;
};

class ConversionTest : public ::testing::Test {
protected:
    // Runs in its own folder, where files written to the current folder (the CNF debug log) land.
    ConversionTest() : form(host) {
        formLoad(form);
        host.files = &form.files;
        std::filesystem::current_path(dir.path());
    }
    ~ConversionTest() override { std::filesystem::current_path(startFolder); }

    // Writes an input into the folder and queues it; returns its full path.
    std::string queue(const std::string& name, const std::string& bytes) {
        const std::string path = dir.file(name);
        writeFile(path, bytes);
        form.addToQueue(name, path);
        return path;
    }
    void tick(bool spe, bool spo) { form.boxes.SPE = spe; form.boxes.SPO = spo; }
    // One run. Where every queued input is CR LF text, its LF-only twin is
    // converted too, by a fresh window with the same settings in a folder of
    // its own, and must give the same outcome, messages and bytes.
    // Every input stays byte for byte as it was.
    RunOutcome run() {
        std::unique_ptr<LfTwinRun> twin = LfTwinRun::prepare(form, host, dir);
        std::vector<std::pair<std::string, std::string>> inputs;
        for (const std::string& path : form.List2) inputs.emplace_back(path, readFile(path));
        const RunOutcome outcome = RunCode_Click(form);
        for (const auto& [path, bytes] : inputs) EXPECT_TRUE(readFile(path) == bytes) << path << " changed by its conversion";
        if (twin) twin->expectAlike(outcome, host, dir);
        return outcome;
    }
    // One input, the boxes as given, one run.
    RunOutcome convert(const std::string& name, const std::string& bytes, bool spe = false, bool spo = false) {
        queue(name, bytes);
        tick(spe, spo);
        return run();
    }
    std::string output(const std::string& name) const { return readFile(dir.file(name)); }
    // Converts one input, which is to finish, and returns the output named.
    std::string converted(const std::string& name, const std::string& bytes, const std::string& out, bool spe = false,
                          bool spo = false) {
        EXPECT_EQ(convert(name, bytes, spe, spo), RunOutcome::Finished) << name;
        return output(out);
    }
    bool written(const std::string& name) const { return std::filesystem::exists(dir.file(name)); }
    // The text of the last message box; "" when none was shown.
    std::string message() const { return host.boxes.empty() ? std::string() : host.boxes.back().text; }

    // Each input ends its run with its error, shown while the failed reader's
    // files are still open; the run then ends with every file closed.
    void expectFailures(const std::string& name, const std::vector<BadInput>& cases) {
        for (const BadInput& c : cases) {
            EXPECT_EQ(convert(name, c.bytes, c.spe, c.spo), RunOutcome::ErrorHandled) << c.what;
            EXPECT_EQ(message(), failureBox(c.error)) << c.what;
            const std::vector<int> open = c.open == 2 ? std::vector<int>{1, 2} : std::vector<int>{1};
            if (!host.boxes.empty()) {
                EXPECT_EQ(host.boxes.back().openFiles, open) << c.what;
            }
            EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(2)) << c.what;
        }
    }

    const std::filesystem::path startFolder = std::filesystem::current_path();
    TempDir dir;
    ScriptedHost host;
    Session form;
};

#ifdef KESTRO_CONVERT
// kestro-convert run in `dir` as a script runs it: both outputs to files.
// KESTRO_CONVERT_COMMAND, when set, runs another build of it instead (the
// WebAssembly one under node).
struct ConverterRun { int status; std::string out; std::string err; };

inline ConverterRun runConverter(const TempDir& dir, const std::string& arguments) {
    const char* other = std::getenv("KESTRO_CONVERT_COMMAND");
    const std::string converter = other ? other : "'" KESTRO_CONVERT "'";
    std::string command = "cd '" + dir.path() + "' && " + converter + " " + arguments + " >out.txt 2>err.txt";
    int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readFile(dir.file("out.txt")), readFile(dir.file("err.txt"))};
}
#endif

}  // namespace kestro::testing
