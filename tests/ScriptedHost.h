#pragma once
// A Host for tests: records every status text, message box, plot and wait,
// and answers Yes/No questions from a script.
#include <deque>
#include <string>
#include <vector>

#include "core/Host.h"

namespace kestro::testing {

struct RecordedBox {
    std::string text;
    BoxIcon icon;
    BoxButtons buttons;
};

struct RecordedPlot {
    PlotPoints points;
    int64_t count;
    std::string name;
    bool logarithmic = false;
};

class ScriptedHost : public Host {
public:
    std::vector<std::pair<std::string, StatusColour>> statuses;
    std::vector<int> progress;
    std::vector<RecordedBox> boxes;
    std::vector<RecordedPlot> plots;
    std::deque<Answer> answers;  // taken in order; "No" once they run out
    int beeps = 0;
    double waited = 0;
    int boxChanges = 0;
    int queueChanges = 0;

    void showStatus(const std::string& text, StatusColour colour) override { statuses.emplace_back(text, colour); }
    void showProgress(int value) override { progress.push_back(value); }
    void beep() override { ++beeps; }
    Answer messageBox(const std::string& text, BoxIcon icon, BoxButtons buttons) override {
        boxes.push_back({text, icon, buttons});
        if (buttons == BoxButtons::Ok) return Answer::Ok;
        if (answers.empty()) return Answer::No;
        Answer a = answers.front();
        answers.pop_front();
        return a;
    }
    void plot(const PlotPoints& points, int64_t count, const std::string& name) override {
        plots.push_back({points, count, name});
    }
    void applyScale(bool logarithmic) override {
        if (!plots.empty()) plots.back().logarithmic = logarithmic;
    }
    void wait(double seconds) override { waited += seconds; }
    void boxesChanged() override { ++boxChanges; }
    void queueChanged() override { ++queueChanges; }

    std::string lastStatus() const { return statuses.empty() ? std::string() : statuses.back().first; }
};

}  // namespace kestro::testing
