#pragma once
// What the engine asks of a front end (the window, the headless converter,
// the tests). Nothing else crosses from the engine to a screen.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/RunLog.h"

namespace kestro {

enum class StatusColour { Blue, Red };
enum class BoxIcon { None, Critical, Exclamation, Information, Question };
enum class BoxButtons { Ok, YesNo };
enum class Answer { Ok, Yes, No };

using PlotPoints = std::vector<std::array<double, 2>>;

class Host {
public:
    virtual ~Host() = default;

    // The status box Text2: its text and colour.
    virtual void showStatus(const std::string& text, StatusColour colour) = 0;
    // ProgressBar1, 0 to 100.
    virtual void showProgress(int value) = 0;
    virtual void beep() = 0;
    // A modal message box with the default title; returns the button pressed.
    virtual Answer messageBox(const std::string& text, BoxIcon icon, BoxButtons buttons) = 0;
    // The plot hand-off: n rows of X and Y, n, and the file name as title;
    // then the scale step with the LogScale state.
    virtual void plot(const PlotPoints& points, int64_t count, const std::string& name) = 0;
    virtual void applyScale(bool logarithmic) = 0;
    // The wait after a plot and at the end of a run (keeps a window painted).
    virtual void wait(double seconds) = 0;
    // A box state, a box's visibility, the typed texts or the queue changed.
    virtual void boxesChanged() = 0;
    virtual void queueChanged() = 0;
    // The batch is about to convert entry `index` (0-based) of `count`; a
    // front end may show it. Nothing else depends on it.
    virtual void startingFile(size_t index, size_t count, const std::string& name) {
        (void)index, (void)count, (void)name;
    }
    // The run is over; its record stays valid until the next run starts.
    virtual void runLogged(const RunLog& log) { (void)log; }
};

}  // namespace kestro
