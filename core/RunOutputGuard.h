#pragma once
// Keeps a run from losing any file that was there before it. A file that an
// output is about to replace goes to the trash first, unless Kestro wrote it
// and it is unchanged since, or this run wrote it; a queued input that an
// output replaces before its turn is read from where it went.
//
// Kestro knows its own files by a small record in each folder it writes in,
// ".kestro-outputs": the name, length and modification time of each output
// it wrote there. A line is added as each output takes its name, so that a
// killed run's finished outputs count as Kestro's too; at the end of the run
// the record is rewritten with one line a file where earlier runs left lines.
//
// The names in a folder are listed once, when the run first writes there, so
// that a new output needs no look before it is opened.
//
// Each run notes the folders it writes in, in a journal of its own under the
// user's data folder (kestro/runs/run-PID), removed when the run ends. The
// next run clears the temporary files of any run whose journal is left and
// whose process is gone, wherever they are.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/runtime/Files.h"
#include "core/runtime/Trash.h"

namespace kestro {

class Session;
struct RunLogFile;

class RunOutputGuard : public OutputGuard {
public:
    static constexpr const char* RecordName = ".kestro-outputs";

    // Takes the queue as it stands; `replaceInPlace` replaces every file in
    // place, as the classic program did.
    RunOutputGuard(Session& form, Trash& trash);
    ~RunOutputGuard() override;  // saves the records of the folders written in

    // The journals of runs, by default under the user's data folder.
    static std::string journalFolder();
    // Clears the temporary files of the runs that were killed, as their
    // journals in `journals` name them, and those journals.
    static void clearKilledRuns(const std::string& journals);

    // The queued file of that index is being converted.
    void startingFile(size_t index) { current_ = index; }

    bool mayExist(const std::string& path) override;
    void appending(const std::string& path) override;
    void replacing(const std::string& path) override;
    void written(const std::string& path, const FileStamp* stamp) override;
    void removed(const std::string& path) override;
    std::string readFrom(const std::string& path) override;

private:
    struct Folder {
        std::map<std::string, FileStamp> own;
        std::unordered_set<std::string> present;  // names there at the first look, letters folded
        bool listed = false;                      // that look succeeded
        std::set<std::string> writtenNow;         // names this run wrote
        std::FILE* log = nullptr;                 // the record, open for a line per output
        bool hadRecord = false;                   // lines from earlier runs, to be checked at the end
        bool repeated = false;                    // a name written twice: its older line goes
    };
    Folder& folderOf(const std::string& path, std::string& name);
    bool ownUnchanged(const std::string& path);
    bool writtenThisRun(const std::string& path);
    bool waitingInQueue(const std::string& path) const;
    RunLogFile* logEntry();
    void record(const std::string& dir, Folder& folder, const std::string& name, const FileStamp& stamp);
    void saveRecord(const std::string& dir, const Folder& folder) const;
    void noteInJournal(const std::string& dir);

    Session& form_;
    Trash& trash_;
    std::vector<std::string> queue_;  // full paths, normalised
    std::unordered_map<std::string, size_t> lastInQueue_;
    size_t current_ = 0;
    std::set<std::string> foreignAppends_;       // appends to a file Kestro did not write
    std::map<std::string, std::string> moved_;  // a queued input, and where it is now
    std::vector<std::string> copies_;           // kept copies of queued inputs, removed at the end
    std::map<std::string, Folder> folders_;
    std::chrono::steady_clock::time_point flushed_ = std::chrono::steady_clock::now();
    std::string journal_;  // this run's journal; empty when it has none
    std::FILE* journalFile_ = nullptr;
};

}  // namespace kestro
