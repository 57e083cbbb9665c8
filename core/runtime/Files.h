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

// A file opened for writing (replacing any file of that name) or appending.
class OutputFile {
public:
    enum class Mode { Replace, Append };
    OutputFile(const std::string& path, Mode mode = Mode::Replace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(std::string_view bytes);
    // Closes and reports a failed write as "Path/File access error".
    void close();
    const std::string& path() const { return path_; }

private:
    std::FILE* file_ = nullptr;
    std::string path_;
    bool failed_ = false;
};

// Told of every output file as it is opened, so that a run can keep its
// record of what it wrote. A run installs one for its own duration.
class OutputObserver {
public:
    virtual ~OutputObserver() = default;
    virtual void outputOpened(const std::string& path, OutputFile::Mode mode) = 0;
};

// Installs `observer` until the guard goes out of scope (the previous one is
// restored then).
class ObservingOutputs {
public:
    explicit ObservingOutputs(OutputObserver* observer);
    ~ObservingOutputs();
    ObservingOutputs(const ObservingOutputs&) = delete;
    ObservingOutputs& operator=(const ObservingOutputs&) = delete;

private:
    OutputObserver* previous_;
};

}  // namespace kestro
