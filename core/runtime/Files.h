#pragma once
// File-system access with the classic error numbers: whole-file reads and
// writes, modification time, and an output file written in blocks.
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "core/runtime/Dates.h"

namespace kestro {

// An empty text with room for `capacity` bytes; large ones are backed by
// large memory pages where the system offers them, which saves most of the
// cost of first touching the memory.
std::string reserveLarge(size_t capacity);

// The whole file; "File not found" (53) when it does not exist,
// "Path/File access error" (75) when it cannot be read.
std::string readWholeFile(const std::string& path);
// The whole file for line input: a text whose lines end in LF alone reads as
// its CR LF twin (see crLfTwin).
std::string readTextFile(const std::string& path);
DateValue fileModified(const std::string& path);
// Replaces the file with these bytes.
void writeWholeFile(const std::string& path, std::string_view bytes);

// A file's length and modification time (nanoseconds since 1970): enough to
// tell whether a file is still as Kestro wrote it.
struct FileStamp {
    uint64_t size = 0;
    int64_t modified = 0;
    bool operator==(const FileStamp&) const = default;
};
// False when there is no such file.
bool fileStamp(const std::string& path, FileStamp& stamp);

// Where an input named `path` is to be read from: its own name, unless the
// run moved it aside before an output took that name.
std::string inputLocation(const std::string& path);

// A file opened for writing or appending. A file written anew goes under a
// temporary name in its folder and takes its own name only once closed
// whole, so that a failed write or a killed run never leaves a file cut
// short under that name; a failed write removes it and any earlier file of
// that name stays as it was. An append goes to the file itself and, should
// it fail, the file is cut back to its earlier length.
class OutputFile {
public:
    enum class Mode { Replace, Append };
    OutputFile(const std::string& path, Mode mode = Mode::Replace);
    ~OutputFile();  // closes quietly: what was written takes its name
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // A failure raises "Disk full" when the space ran out, else
    // "Path/File access error".
    void write(std::string_view bytes);
    void close();
    const std::string& path() const { return path_; }

private:
    void fail(int error);
    bool stampBeforeClose(FileStamp& stamp);
    void finish(const FileStamp* stamp);
    void takeFinalName();

    std::FILE* file_ = nullptr;
    std::string path_;
    std::string target_;     // the file written: a link's target
    std::string temporary_;  // empty when appending
    Mode mode_;
    bool mayReplace_ = true; // a file of that name may be there: look before the rename
    int error_ = 0;          // the system's error number of the first failure
    int64_t appendFrom_ = 0; // the length before an append
};

// A temporary name in the folder of `path`, unique to this process.
std::string temporaryNameBeside(const std::string& path);
// Temporary names are recognisable: a leading ".kestro~", the process id,
// a count. True for such a name; `pid` is the process that made it (whether
// it still runs: sys::processRuns).
bool isTemporaryOutputName(const std::string& name, long& pid);

// What a run decides about the files around its outputs. Installed by the
// driver for the run; without one, outputs replace files in place.
class OutputGuard {
public:
    virtual ~OutputGuard() = default;
    // Whether a file named `path` may be there already. False lets a new
    // output skip looking before it opens; a file that takes the name
    // meanwhile is still found at the rename.
    virtual bool mayExist(const std::string& path) = 0;
    // Before an append to `path`.
    virtual void appending(const std::string& path) = 0;
    // Just before the output written for `path` takes that name.
    virtual void replacing(const std::string& path) = 0;
    // `path` holds an output as written (whole, or appended to); `stamp` is
    // the file as it was closed, or null when that could not be told.
    virtual void written(const std::string& path, const FileStamp* stamp) = 0;
    // The output for `path` failed to write and was removed.
    virtual void removed(const std::string& path) = 0;
    // Where the input `path` is to be read from (see inputLocation).
    virtual std::string readFrom(const std::string& path) = 0;
};

// For tests: the outputs fail as a full disk, a refused access or a failing
// device would make them fail, until the object goes out of scope.
struct WriteFault {
    enum class Kind { NoSpace, AccessDenied, DeviceError };
    Kind kind;
    // NoSpace and DeviceError: the bytes, counted over every output opened
    // since, that are written before the failure.
    int64_t afterBytes = 0;
};

class InjectingWriteFault {
public:
    explicit InjectingWriteFault(WriteFault fault);
    ~InjectingWriteFault();
    InjectingWriteFault(const InjectingWriteFault&) = delete;
    InjectingWriteFault& operator=(const InjectingWriteFault&) = delete;
};

// Told of every output file as it is opened, so that a run can keep its
// record of what it wrote. A run installs one for its own duration.
class OutputObserver {
public:
    virtual ~OutputObserver() = default;
    virtual void outputOpened(const std::string& path, OutputFile::Mode mode) = 0;
};

// Installs a run's hook (an OutputGuard or an OutputObserver) until the
// object goes out of scope; the previous one comes back then.
template <typename Hook>
class Installing {
public:
    explicit Installing(Hook* hook) : previous_(slot()) { slot() = hook; }
    ~Installing() { slot() = previous_; }
    Installing(const Installing&) = delete;
    Installing& operator=(const Installing&) = delete;

private:
    static Hook*& slot();
    Hook* previous_;
};
template <>
OutputGuard*& Installing<OutputGuard>::slot();
template <>
OutputObserver*& Installing<OutputObserver>::slot();

using GuardingOutputs = Installing<OutputGuard>;
using ObservingOutputs = Installing<OutputObserver>;

}  // namespace kestro
