#pragma once
// Keeps a run from losing any file that was there before it. A file that an
// output is about to replace goes to the trash first, unless Kestro wrote it
// and it is unchanged since, or this run wrote it; a queued input that an
// output replaces before its turn is read from where it went.
//
// Kestro knows its own files by a small record in each folder it writes in,
// ".kestro-outputs": the name, length and modification time of each output
// it wrote there. A line is added as each output takes its name, so that a
// killed run's finished outputs count as Kestro's too; the record is
// rewritten once at the end of the run with one line a file.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
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

    // The queued file of that index is being converted.
    void startingFile(size_t index) { current_ = index; }

    void appending(const std::string& path) override;
    void replacing(const std::string& path) override;
    void written(const std::string& path) override;
    void removed(const std::string& path) override;
    std::string readFrom(const std::string& path) override;

private:
    struct Stamp {
        uint64_t size = 0;
        int64_t time = 0;
        bool operator==(const Stamp&) const = default;
    };
    struct Folder {
        std::map<std::string, Stamp> own;
        std::FILE* log = nullptr;  // the record, open for a line per output
        bool changed = false;
    };
    Folder& folderOf(const std::string& path, std::string& name);
    bool ownUnchanged(const std::string& path);
    bool waitingInQueue(const std::string& path) const;
    RunLogFile* logEntry();
    void record(const std::string& dir, Folder& folder, const std::string& name, const Stamp& stamp);

    Session& form_;
    Trash& trash_;
    std::vector<std::string> queue_;  // full paths, normalised
    std::unordered_map<std::string, size_t> lastInQueue_;
    size_t current_ = 0;
    std::set<std::string> writtenThisRun_;
    std::set<std::string> foreignAppends_;       // appends to a file Kestro did not write
    std::map<std::string, std::string> moved_;  // a queued input, and where it is now
    std::vector<std::string> copies_;           // kept copies of queued inputs, removed at the end
    std::map<std::string, Folder> folders_;
    std::chrono::steady_clock::time_point flushed_ = std::chrono::steady_clock::now();
};

}  // namespace kestro
