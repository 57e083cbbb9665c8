#pragma once
// What every fuzz target shares: a Host that shows nothing and answers yes,
// a private work folder, a cap on output size, and one run of the fuzz bytes
// through the driver as a queued file.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "batch/Driver.h"
#include "core/FormatTable.h"
#include "core/Session.h"

namespace kestro::fuzzing {

class QuietHost : public Host {
public:
    void showStatus(const std::string&, StatusColour) override {}
    void showProgress(int) override {}
    void beep() override {}
    Answer messageBox(const std::string&, BoxIcon, BoxButtons) override { return Answer::Yes; }
    void plot(const PlotPoints&, int64_t, const std::string&) override {}
    void applyScale(bool) override {}
    void wait(double) override {}
    void boxesChanged() override {}
    void queueChanged() override {}
};

// A private folder, removed when the fuzzer exits: the outputs can be large.
// Its name is a plain array, so it is still there when the exit handler runs.
inline const char* workFolder() {
    static char dir[] = "/tmp/kestro-fuzz-XXXXXX";
    [[maybe_unused]] static const bool made = [] {
        if (!mkdtemp(dir)) return false;
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(dir, ignored);
        });
        return true;
    }();
    return dir;
}

// A legal header may declare far more output than the disk should take: past
// 8 MiB a write fails, as on a full disk, instead of filling it. Writing much
// more under the sanitizers takes longer than a fuzz run allows one input.
inline bool limitOutputSize() {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{8 << 20, 8 << 20};
    return setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

// The first fuzz byte ticks SPE (bit 0), SPO (bit 1) and GRAPH (bit 2); its
// other 5 bits are `choice`, for the target's own settings. The rest is the
// file `fileName` in the work folder, queued and converted in one run there
// (files written "in the current folder" land in the work folder too).
inline void runThroughDriver(const uint8_t* data, size_t size, const std::string& fileName,
                             const std::function<void(Session&, unsigned choice)>& prepare = {}) {
    [[maybe_unused]] static const bool limited = limitOutputSize();
    if (size == 0) return;
    const unsigned mode = data[0];
    const std::string input = std::string(workFolder()) + "/" + fileName;
    if (std::FILE* f = std::fopen(input.c_str(), "wb")) {
        std::fwrite(data + 1, 1, size - 1, f);
        std::fclose(f);
    }
    QuietHost host;
    Session form(host);
    formLoad(form);
    if (prepare) prepare(form, mode >> 3);
    form.boxes.SPE = (mode & 1) != 0;
    form.boxes.SPO = (mode & 2) != 0;
    form.boxes.DsGr = (mode & 4) != 0;
    form.addToQueue(fileName, input);
    // The work folder holds nothing of the user's: nothing goes to the trash.
    form.replaceInPlace = true;
    static const std::filesystem::path callersFolder = std::filesystem::current_path();
    std::filesystem::current_path(workFolder());
    std::remove("Test.txt");  // appended to on every debug run
    RunCode_Click(form);
    std::filesystem::current_path(callersFolder);
}

}  // namespace kestro::fuzzing
