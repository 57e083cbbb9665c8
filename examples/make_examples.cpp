// Writes Kestro's example inputs: one small spectrum in each channel-data
// text format, all from the same 64 counts, so their outputs can be compared.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/TextOutput.h"

using namespace kestro;

namespace {

constexpr int Channels = 64;
constexpr int LiveTime = 100;
constexpr int RealTime = 104;

// A falling background with one photopeak near channel 40.
std::vector<int64_t> counts() {
    std::vector<int64_t> c(Channels);
    for (int i = 0; i < Channels; ++i) {
        double background = 400.0 * std::exp(-i / 20.0);
        double peak = 900.0 * std::exp(-0.5 * std::pow((i - 40) / 2.0, 2));
        c[static_cast<size_t>(i)] = std::llround(background + peak) + 3;
    }
    return c;
}

void headerLines(TextWriter& out, const char* kind, int lines) {
    for (int i = 1; i <= lines; ++i) {
        out.text("# ").text(kind).text(" example header line ").text(plainText(i)).endLine();
    }
}

void valuesOnePerLine(TextWriter& out, const std::vector<int64_t>& c) {
    for (int64_t v : c) out.text(rightAligned(plainText(v), 8)).endLine();
}

void writeSpe(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/iaea.spe");
    out.text("$SPEC_ID:").endLine().text("Kestro example spectrum").endLine();
    out.text("$SPEC_REM:").endLine().text("made by kestro-examples").endLine();
    out.text("$DATE_MEA:").endLine().text("11/21/2026 09:30:00").endLine();
    out.text("$MEAS_TIM:").endLine().text(plainText(LiveTime)).text(" ").text(plainText(RealTime)).endLine();
    out.text("$DATA:").endLine().text("0 ").text(plainText(Channels - 1)).endLine();
    valuesOnePerLine(out, c);
    out.text("$ROI:").endLine().text("0").endLine();
    out.close();
}

void writeWithHeader(const std::string& path, const char* kind, int lines, const std::vector<int64_t>& c) {
    TextWriter out(path);
    headerLines(out, kind, lines);
    valuesOnePerLine(out, c);
    out.close();
}

// A data block whose channels 0 and 1 carry live and real time.
void writeDat(const std::string& dir, const std::vector<int64_t>& c) {
    std::string block;
    DataBlock fields(block);
    fields.field(static_cast<int64_t>(LiveTime));
    fields.field(static_cast<int64_t>(RealTime));
    for (size_t i = 2; i < c.size(); ++i) fields.field(c[i]);
    TextWriter out(dir + "/block.dat");
    out.text(block);
    out.close();
}

void writeOdf(const std::string& dir, const std::vector<int64_t>& c) {
    TextWriter out(dir + "/twocolumn.odf");
    out.item(int64_t{0}).item(int64_t{LiveTime}).endLine();
    out.item(int64_t{1}).item(int64_t{RealTime}).endLine();
    for (size_t i = 2; i < c.size(); ++i) out.item(static_cast<int64_t>(i)).item(c[i]).endLine();
    out.close();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kestro-examples FOLDER\n");
        return 2;
    }
    const std::string dir = argv[1];
    const std::vector<int64_t> c = counts();
    writeSpe(dir, c);
    writeWithHeader(dir + "/ascii.asc", "ASC", 54, c);
    writeWithHeader(dir + "/rutherford.rbs", "RBS", 12, c);
    writeWithHeader(dir + "/simulated.sim", "SIM", 12, c);
    writeDat(dir, c);
    writeOdf(dir, c);
    return 0;
}
