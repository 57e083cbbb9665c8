// The engine as the page's worker sees it: one window's session, driven by
// a few C functions, with every Host call handed to the worker's script
// (Module.kestroHost). Texts cross as UTF-8; the state as JSON.
#include <emscripten.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "batch/Driver.h"
#include "core/FormatTable.h"
#include "core/Session.h"

namespace {

using namespace kestro;

// clang-format off
EM_JS(void, jsStatus, (const char* text, int red), { Module.kestroHost.status(UTF8ToString(text), !!red); });
EM_JS(void, jsProgress, (int value), { Module.kestroHost.progress(value); });
EM_JS(void, jsBeep, (), { Module.kestroHost.beep(); });
EM_JS(int, jsBox, (const char* text, int icon, int yesNo), {
    return Module.kestroHost.box(UTF8ToString(text), icon, !!yesNo) ? 1 : 0;
});
EM_JS(void, jsPlot, (const double* xy, int count, const char* name), {
    Module.kestroHost.plot(HEAPF64.slice(xy >> 3, (xy >> 3) + 2 * count), UTF8ToString(name));
});
EM_JS(void, jsScale, (int logarithmic), { Module.kestroHost.scale(!!logarithmic); });
EM_JS(void, jsChanged, (), { Module.kestroHost.changed(); });
EM_JS(void, jsStarting, (int index, int count, const char* name), {
    Module.kestroHost.starting(index, count, UTF8ToString(name));
});
EM_JS(void, jsOutputs, (const char* json), { Module.kestroHost.outputs(JSON.parse(UTF8ToString(json))); });
// clang-format on

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') out += '\\', out += static_cast<char>(c);
        else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else out += static_cast<char>(c);
    }
    return out + '"';
}

std::string list(const std::vector<std::string>& items) {
    std::string out = "[";
    for (size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + quoted(items[i]);
    return out + ']';
}

class WorkerHost : public Host {
public:
    void showStatus(const std::string& text, StatusColour colour) override {
        jsStatus(text.c_str(), colour == StatusColour::Red);
    }
    void showProgress(int value) override { jsProgress(value); }
    void beep() override { jsBeep(); }
    Answer messageBox(const std::string& text, BoxIcon icon, BoxButtons buttons) override {
        const bool yes = jsBox(text.c_str(), static_cast<int>(icon), buttons == BoxButtons::YesNo);
        if (buttons == BoxButtons::Ok) return Answer::Ok;
        return yes ? Answer::Yes : Answer::No;
    }
    void plot(const PlotPoints& points, int64_t count, const std::string& name) override {
        const int n = static_cast<int>(std::min<int64_t>(count, static_cast<int64_t>(points.size())));
        jsPlot(points.empty() ? nullptr : points[0].data(), n, name.c_str());
    }
    void applyScale(bool logarithmic) override { jsScale(logarithmic); }
    // The worker never blocks the page, so there is nothing to keep painted.
    void wait(double) override {}
    void boxesChanged() override { jsChanged(); }
    void queueChanged() override { jsChanged(); }
    // The files the last file wrote are complete once the next one starts:
    // the worker hands them to the page then, while the run goes on.
    void startingFile(size_t index, size_t count, const std::string& name) override;
    void runLogged(const RunLog& log) override {
        if (const RunLogFile* last = lastReached(log)) jsOutputs(list(last->outputs).c_str());
    }

private:
    static const RunLogFile* lastReached(const RunLog& log) {
        for (auto f = log.files.rbegin(); f != log.files.rend(); ++f)
            if (f->state != RunLogFile::State::NotReached) return &*f;
        return nullptr;
    }
};

WorkerHost host;
Session form(host);
std::string stateText;

void WorkerHost::startingFile(size_t index, size_t count, const std::string& name) {
    if (index > 0 && index - 1 < form.runLog.files.size())
        jsOutputs(list(form.runLog.files[index - 1].outputs).c_str());
    jsStarting(static_cast<int>(index), static_cast<int>(count), name.c_str());
}

}  // namespace

extern "C" {

EMSCRIPTEN_KEEPALIVE void kestro_start() {
    formLoad(form);
}

// The session as the page shows it: texts, boxes and the queue.
EMSCRIPTEN_KEEPALIVE const char* kestro_state() {
    const Boxes& b = form.boxes;
    auto flag = [](const char* name, bool on) { return std::string("\"") + name + "\":" + (on ? "true" : "false"); };
    stateText = "{\"comboText\":" + quoted(form.comboText) + ",\"typedText\":" + quoted(form.typedText) +
                ",\"filePattern\":" + quoted(form.filePattern) + ",\"boxes\":{" + flag("SPE", b.SPE) + "," +
                flag("SPO", b.SPO) + "," + flag("cOMDAQ", b.cOMDAQ) + "," + flag("cDXP", b.cDXP) + "," +
                flag("DsGr", b.DsGr) + "," + flag("LogScale", b.LogScale) + "," + flag("ModernRead", b.ModernRead) +
                "," + flag("omdaqVisible", b.omdaqVisible) + "," + flag("dxpVisible", b.dxpVisible) +
                "},\"queue\":" + list(form.List1) + ",\"paths\":" + list(form.List2) + ",\"formats\":[";
    for (int i = 0; i < FormatCount; ++i)
        stateText += std::string(i ? "," : "") + "{\"text\":" + quoted(formatTable[i].text) +
                     ",\"pattern\":" + quoted(formatTable[i].pattern) + "}";
    stateText += "]}";
    return stateText.c_str();
}

// The selector's entry picked, the selector typed into, the "type extension" box typed into.
EMSCRIPTEN_KEEPALIVE void kestro_pick_format(int index) { Combo1_Click(form, index); }
EMSCRIPTEN_KEEPALIVE void kestro_type_format(const char* text) { Combo1_Change(form, text); }
EMSCRIPTEN_KEEPALIVE void kestro_type_extension(const char* text) { Text1_Change(form, text); }

// One box clicked. SPE and SPO exclude each other, as in the window.
EMSCRIPTEN_KEEPALIVE void kestro_set_box(const char* name, int on) {
    const std::string box = name;
    form.changeBoxes([&](Boxes& b) {
        if (box == "SPE") {
            b.SPE = on;
            if (on) b.SPO = false;
        } else if (box == "SPO") {
            b.SPO = on;
            if (on) b.SPE = false;
        } else if (box == "cOMDAQ") b.cOMDAQ = on;
        else if (box == "cDXP") b.cDXP = on;
        else if (box == "DsGr") b.DsGr = on;
        else if (box == "LogScale") b.LogScale = on;
        else if (box == "ModernRead") b.ModernRead = on;
    });
}

EMSCRIPTEN_KEEPALIVE void kestro_queue_add(const char* shownName, const char* path) {
    form.addToQueue(shownName, path);
}
EMSCRIPTEN_KEEPALIVE void kestro_queue_remove(int index) {
    if (index < 0 || static_cast<size_t>(index) >= form.List1.size()) return;
    form.List1.erase(form.List1.begin() + index);
    form.List2.erase(form.List2.begin() + index);
    host.queueChanged();
}
EMSCRIPTEN_KEEPALIVE void kestro_queue_clear() { form.clearQueue(); }

// Convert: the whole batch, calling back as it goes. Returns the outcome's number.
EMSCRIPTEN_KEEPALIVE int kestro_run() { return static_cast<int>(RunCode_Click(form)); }

}  // extern "C"

int main() { return 0; }
