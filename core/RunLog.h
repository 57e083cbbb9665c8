#pragma once
// What the last run did, file by file, for a front end that shows it once
// the run is over (the window's "Details" list). The headless converter
// prints none of it: its output is fixed.
#include <string>
#include <vector>

namespace kestro {

struct RunLogFile {
    enum class State {
        NotReached,  // still queued when the run ended
        Converted,
        Failed,      // a run-time error or a reader's refusal stopped it
    };
    std::string name;                  // as the queue showed it
    State state = State::NotReached;
    std::vector<std::string> outputs;  // full paths of the files written, in order
    std::vector<std::string> replaced; // earlier files moved aside before an output took their name
    std::vector<std::string> removed;  // outputs whose write failed and that were removed
    std::string message;               // the message or error that stopped it
};

struct RunLog {
    std::vector<RunLogFile> files;
    // A box a reader or the format choice changed, in the words a user reads.
    std::vector<std::string> notes;
    // The file being converted, or null between files.
    RunLogFile* current() { return currentIndex < files.size() ? &files[currentIndex] : nullptr; }
    size_t currentIndex = static_cast<size_t>(-1);
};

}  // namespace kestro
