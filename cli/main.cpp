// kestro-convert: the batch driver without a window, for scripts and tests.
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "batch/Driver.h"
#include "cli/ProgressLine.h"
#include "core/FormatTable.h"
#include "core/Session.h"
#include "core/runtime/System.h"

namespace {

using namespace kestro;

const char* const Version = "kestro-convert 0.1.0";

const char* const Usage =
    "Usage: kestro-convert [OPTIONS] FILE...\n"
    "Converts the files as one batch, as the convert button of the window does.\n"
    "\n"
    "  --format N            choose entry N (0-23) of the format selector, or the entry named N\n"
    "  --type TEXT           type TEXT into the \"type extension\" box (\"-dat\", \"-odat\", patterns)\n"
    "  --spe, --spo          tick SPE or SPO\n"
    "  --omdaq, --dxp        tick the OMDAQ or DXP output box\n"
    "  --graph               tick GRAPH (the plot stage runs; nothing is drawn)\n"
    "  --log                 tick the logarithmic scale\n"
    "  --modern              tick \"Modern readers\": Kestro's own readers for the GAML, SPA, SPC,\n"
    "                        RAW, MPA and CNF files that the classic rules misread\n"
    "  --replace             replace existing files in place, as the classic program did, instead\n"
    "                        of moving a file that Kestro did not write to the trash first\n"
    "  --answer yes|no       the answer to every Yes/No question (default: no)\n"
    "  --command-line TEXT   the program's command-line text as the readers see it\n"
    "  --help, --version\n"
    "\n"
    "Status texts go to standard output, message boxes to standard error.\n"
    "Exit status: 0 the run came to its end, 1 it was ended early, 2 bad command line.\n";

// Status texts to standard output, message boxes to standard error; no waits.
// On a terminal the progress line is erased before either is written.
class ConsoleHost : public Host {
public:
    explicit ConsoleHost(Answer answer) : answer_(answer), progress_(ProgressLine::onStandardError()) {}

    void showStatus(const std::string& text, StatusColour) override {
        progress_.erase();
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fputc('\n', stdout);
    }
    void showProgress(int) override {}
    void beep() override {}
    Answer messageBox(const std::string& text, BoxIcon icon, BoxButtons buttons) override {
        std::fflush(stdout);
        progress_.erase();
        std::string line = std::string(kindOf(icon, buttons)) + ": " + text;
        Answer a = buttons == BoxButtons::YesNo ? answer_ : Answer::Ok;
        if (buttons == BoxButtons::YesNo) line += a == Answer::Yes ? " -> yes" : " -> no";
        line += '\n';
        std::fwrite(line.data(), 1, line.size(), stderr);
        // Windows buffers a redirected stderr too: the message keeps its place.
        std::fflush(stderr);
        return a;
    }
    void plot(const PlotPoints&, int64_t, const std::string&) override {}
    void applyScale(bool) override {}
    void wait(double) override {}
    void boxesChanged() override {}
    void queueChanged() override {}
    void startingFile(size_t index, size_t count, const std::string& name) override {
        progress_.show(index, count, name);
    }
    void endRun() { progress_.erase(); }

private:
    static const char* kindOf(BoxIcon icon, BoxButtons buttons) {
        switch (icon) {
        case BoxIcon::Critical: return "critical";
        case BoxIcon::Exclamation: return "exclamation";
        case BoxIcon::Information: return "information";
        case BoxIcon::Question: return "question";
        case BoxIcon::None: break;
        }
        return buttons == BoxButtons::YesNo ? "question" : "plain";
    }

    Answer answer_;
    ProgressLine progress_;
};

struct Options {
    std::optional<int> format;
    std::optional<std::string> typed;
    Boxes boxes;
    Answer answer = Answer::No;
    std::string commandLine;
    bool replace = false;
    std::vector<std::string> files;
};

int badUsage(const std::string& why) {
    std::cerr << "kestro-convert: " << why << "\n" << "Try 'kestro-convert --help'.\n";
    return 2;
}

std::optional<int> formatChoice(const std::string& text) {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos && text.size() <= 2) {
        int n = std::stoi(text);
        if (n < FormatCount) return n;
    }
    int byName = formatIndexOf(text);
    if (byName >= 0) return byName;
    return std::nullopt;
}

std::string absolutePath(const std::string& path) {
    if (sys::isAbsolute(path)) return path;
    const std::string dir = sys::currentFolder();
    // A folder that ends in its separator: "/", or a drive's "C:\".
    return !dir.empty() && sys::isFolderSeparator(dir.back()) ? dir + path : dir + sys::FolderSeparator + path;
}

std::string baseName(const std::string& path) {
    size_t slash = sys::lastSeparator(path);
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Returns an exit status when the program is to stop at once.
std::optional<int> parse(const std::vector<std::string>& argv, Options& o) {
    const size_t argc = argv.size();
    bool onlyFiles = false;
    for (size_t i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) return false;
            out = argv[++i];
            return true;
        };
        std::string v;
        if (onlyFiles || a.empty() || a[0] != '-' || a == "-") o.files.push_back(a);
        else if (a == "--") onlyFiles = true;
        else if (a == "--help" || a == "-h") { std::cout << Usage; return 0; }
        else if (a == "--version") { std::cout << Version << "\n"; return 0; }
        else if (a == "--spe") o.boxes.SPE = true;
        else if (a == "--spo") o.boxes.SPO = true;
        else if (a == "--omdaq") o.boxes.cOMDAQ = true;
        else if (a == "--dxp") o.boxes.cDXP = true;
        else if (a == "--graph") o.boxes.DsGr = true;
        else if (a == "--log") o.boxes.LogScale = true;
        else if (a == "--modern") o.boxes.ModernRead = true;
        else if (a == "--replace") o.replace = true;
        else if (a == "--format") {
            if (!value(v)) return badUsage("--format needs an entry number or text");
            o.format = formatChoice(v);
            if (!o.format) return badUsage("no format entry '" + v + "' (0 to 23, or an entry's text)");
        } else if (a == "--type") {
            if (!value(v)) return badUsage("--type needs a text");
            o.typed = v;
        } else if (a == "--answer") {
            if (!value(v) || (v != "yes" && v != "no")) return badUsage("--answer takes yes or no");
            o.answer = v == "yes" ? Answer::Yes : Answer::No;
        } else if (a == "--command-line") {
            if (!value(o.commandLine)) return badUsage("--command-line needs a text");
        } else {
            return badUsage("unknown option '" + a + "'");
        }
    }
    return std::nullopt;
}

int exitStatus(RunOutcome outcome) {
    switch (outcome) {
    case RunOutcome::Finished:
    case RunOutcome::NothingQueued:
    case RunOutcome::EndedByReader: return 0;
    case RunOutcome::ErrorHandled:
    case RunOutcome::ReaderRefused:
    case RunOutcome::OptionRefused:
    case RunOutcome::Declined: break;
    }
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    sys::useStandardStreamsAsWritten();
    Options options;
    if (auto stop = parse(sys::arguments(argc, argv), options)) return *stop;

    ConsoleHost host(options.answer);
    Session form(host);
    formLoad(form);
    form.commandLine = options.commandLine;
    form.replaceInPlace = options.replace;
    // The format first, then the typed text, then the boxes, as documented.
    if (options.format) Combo1_Click(form, *options.format);
    if (options.typed) Text1_Change(form, *options.typed);
    form.changeBoxes([&](Boxes& b) {
        b.SPE |= options.boxes.SPE;
        b.SPO |= options.boxes.SPO;
        b.cOMDAQ |= options.boxes.cOMDAQ;
        b.cDXP |= options.boxes.cDXP;
        b.DsGr |= options.boxes.DsGr;
        b.LogScale |= options.boxes.LogScale;
        b.ModernRead |= options.boxes.ModernRead;
    });
    for (const std::string& file : options.files) form.addToQueue(baseName(file), absolutePath(file));

    const int status = exitStatus(RunCode_Click(form));
    host.endRun();
    std::fflush(stdout);
    return status;
}
