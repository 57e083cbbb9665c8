// Feeds arbitrary bytes through the driver as a channel-data text file: the
// two-column pass, the ".dat" wrapping and ConvOdf. The first byte picks the
// extension and the boxes; nothing may crash, hang or grow without bound.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "core/Driver.h"
#include "core/FormatTable.h"
#include "core/Session.h"

using namespace kestro;

namespace {

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

const std::string& workFolder() {
    static const std::string dir = [] {
        char pattern[] = "/tmp/kestro-fuzz-XXXXXX";
        return std::string(mkdtemp(pattern));
    }();
    return dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t mode = data[0];
    static const char* const extensions[] = {"odf", "dat", "spe", "asc", "rbs", "sim", "foo", "odf"};
    const std::string input = workFolder() + "/in." + extensions[mode & 7];
    if (std::FILE* f = std::fopen(input.c_str(), "wb")) {
        std::fwrite(data + 1, 1, size - 1, f);
        std::fclose(f);
    }
    QuietHost host;
    Session form(host);
    formLoad(form);
    if (mode & 0x40) Text1_Change(form, (mode & 0x80) ? "-odat" : "-dat");
    form.boxes.SPE = (mode & 0x08) != 0;
    form.boxes.SPO = (mode & 0x10) != 0;
    form.boxes.DsGr = (mode & 0x20) != 0;
    form.addToQueue("in", input);
    RunCode_Click(form);
    return 0;
}
