#pragma once
// The batch driver behind the convert button: every queued file goes to the
// reader its extension (or else the format option) names, then through the
// two-column pass to an ".odf", and on to the plot when GRAPH is ticked.
#include "core/Session.h"

namespace kestro {

// How a run ended, for front ends that report it (the window needs none of it).
enum class RunOutcome {
    Finished,        // "Finished N files"
    NothingQueued,   // "Add files first !"
    EndedByReader,   // a ".csv" input ends the run by design
    ErrorHandled,    // the write-failure handler showed its message
    ReaderRefused,   // a reader refused a file (readerStatus 7)
    OptionRefused,   // "-dat" with an extension no rule names
    Declined,        // "no" to the unknown-option question
};

RunOutcome RunCode_Click(Session& form);

// A result ".odf" read back as the plot takes it: one row of X and Y a line.
PlotPoints readPlotPoints(const std::string& odfName);

// The message of the write-failure handler for an error number and text.
std::string writeFailureMessage(int number, const std::string& description);

}  // namespace kestro
