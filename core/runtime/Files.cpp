#include "core/runtime/Files.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <optional>

#include "core/runtime/RuntimeError.h"
#include "core/runtime/System.h"
#include "core/runtime/TextInput.h"

namespace kestro {

namespace {

[[noreturn]] void raiseForErrno(int e) {
    if (e == ENOENT) raise(err::FileNotFound);
    raise(err::PathFileAccess);
}

sys::FileInfo infoOrRaise(const std::string& path) {
    sys::FileInfo info;
    if (!sys::pathInfo(path, info)) raiseForErrno(errno);
    return info;
}

}  // namespace

std::string reserveLarge(size_t capacity) {
    std::string s;
    s.reserve(capacity);
    constexpr uintptr_t LargePage = uintptr_t{2} << 20;
    if (capacity >= 2 * LargePage) {
        uintptr_t begin = (reinterpret_cast<uintptr_t>(s.data()) + LargePage - 1) & ~(LargePage - 1);
        uintptr_t end = (reinterpret_cast<uintptr_t>(s.data()) + capacity) & ~(LargePage - 1);
        if (end > begin) sys::adviseLargePages(reinterpret_cast<void*>(begin), end - begin);
    }
    return s;
}

std::string readWholeFile(const std::string& path) {
    std::FILE* f = sys::openFile(inputLocation(path), "rb");
    if (!f) raiseForErrno(errno);
    sys::FileInfo info;
    if (!sys::openFileInfo(f, info) || info.folder) {
        std::fclose(f);
        raise(err::PathFileAccess);
    }
    std::string data = reserveLarge(static_cast<size_t>(info.size));
    data.resize(static_cast<size_t>(info.size));
    size_t got = std::fread(data.data(), 1, data.size(), f);
    // A file that grows while it is read is taken as it was at the start;
    // one that shrinks is taken as far as it goes.
    data.resize(got);
    bool bad = std::ferror(f) != 0;
    std::fclose(f);
    if (bad) raise(err::PathFileAccess);
    return data;
}

std::string readTextFile(const std::string& path) { return crLfTwin(readWholeFile(path)); }

DateValue fileModified(const std::string& path) {
    return dateFromUnixSeconds(infoOrRaise(inputLocation(path)).modifiedSeconds);
}

void writeWholeFile(const std::string& path, std::string_view bytes) {
    OutputFile out(path);
    out.write(bytes);
    out.close();
}

namespace {
// One run at a time converts; the DICOM reader's own thread writes while the
// run's thread waits for it, so plain pointers serve both.
OutputObserver* outputObserver = nullptr;
OutputGuard* outputGuard = nullptr;

std::optional<WriteFault> injectedFault;
int64_t bytesBeforeFault = 0;

constexpr const char TemporaryPrefix[] = ".kestro~";

[[noreturn]] void raiseWriteError(int e) {
#ifdef EDQUOT
    if (e == EDQUOT) raise(err::DiskFull);
#endif
    if (e == ENOSPC) raise(err::DiskFull);
    raise(err::PathFileAccess);
}

[[noreturn]] void raiseOpenError(int e) {
    if (e == ENOENT) raise(err::PathNotFound);
    raiseWriteError(e);
}

// The file an output of that name goes to: a link's target, as a write
// through the link would reach it. One that could not be opened for writing
// refuses as before, though the new bytes go elsewhere first. `exists` tells
// whether there was a file (or link) of that name.
std::string writableTarget(const std::string& path, bool& exists) {
    sys::FileInfo info;
    exists = sys::linkInfo(path, info);
    if (!exists) return path;  // a new file, the common case
    std::string target = path;
    if (info.link) {
        target = sys::linkTarget(path);
        if (target.empty()) return path;  // a dangling link is replaced by the file
        if (!sys::pathInfo(target, info)) return target;
    }
    if (info.folder || !sys::writable(target)) raise(err::PathFileAccess);
    return target;
}

FileStamp stampOf(const sys::FileInfo& info) { return {info.size, info.modified}; }
}  // namespace

template <>
OutputObserver*& Installing<OutputObserver>::slot() {
    return outputObserver;
}
template <>
OutputGuard*& Installing<OutputGuard>::slot() {
    return outputGuard;
}

InjectingWriteFault::InjectingWriteFault(WriteFault fault) {
    injectedFault = fault;
    bytesBeforeFault = fault.afterBytes;
}
InjectingWriteFault::~InjectingWriteFault() { injectedFault.reset(); }

std::string temporaryNameBeside(const std::string& path) {
    static std::atomic<unsigned> count{0};
    const size_t slash = sys::lastSeparator(path);
    const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    static const std::string process = std::to_string(sys::processId());
    return folder + TemporaryPrefix + process + "~" + std::to_string(++count);
}

bool fileStamp(const std::string& path, FileStamp& stamp) {
    sys::FileInfo info;
    if (!sys::pathInfo(path, info)) return false;
    stamp = stampOf(info);
    return true;
}

std::string inputLocation(const std::string& path) { return outputGuard ? outputGuard->readFrom(path) : path; }

bool isTemporaryOutputName(const std::string& name, long& pid) {
    constexpr size_t n = sizeof TemporaryPrefix - 1;
    if (name.compare(0, n, TemporaryPrefix) != 0) return false;
    char* end = nullptr;
    pid = std::strtol(name.c_str() + n, &end, 10);
    return end != name.c_str() + n && *end == '~';
}

OutputFile::OutputFile(const std::string& path, Mode mode) : path_(path), mode_(mode) {
    if (outputObserver) outputObserver->outputOpened(path, mode);
    if (injectedFault && injectedFault->kind == WriteFault::Kind::AccessDenied) raiseOpenError(EACCES);
    if (mode == Mode::Append) {
        target_ = path;
        if (outputGuard) outputGuard->appending(target_);
        file_ = sys::openFile(target_, "ab");
        if (!file_) raiseOpenError(errno);
        sys::FileInfo info;
        if (sys::openFileInfo(file_, info)) appendFrom_ = static_cast<int64_t>(info.size);
        return;
    }
    // The run knows which names were there before it; a new one needs no look.
    if (outputGuard && !outputGuard->mayExist(path)) {
        target_ = path;
        mayReplace_ = false;
    } else {
        target_ = writableTarget(path, mayReplace_);
    }
    temporary_ = temporaryNameBeside(target_);
    file_ = sys::openFile(temporary_, "wbx");
    if (!file_) raiseOpenError(errno);
}

OutputFile::~OutputFile() {
    try {
        close();
    } catch (...) {
        // Dropped by an error path: what could be written has its name, a
        // failed write is gone.
    }
}

void OutputFile::fail(int error) {
    if (!error_) error_ = error ? error : EIO;
}

void OutputFile::write(std::string_view bytes) {
    if (bytes.empty()) return;
    if (!file_) raise(err::BadFileNameOrNumber);
    if (error_) raiseWriteError(error_);
    size_t allowed = bytes.size();
    int faultError = 0;
    if (injectedFault && injectedFault->kind != WriteFault::Kind::AccessDenied) {
        if (static_cast<int64_t>(allowed) > bytesBeforeFault) {
            allowed = static_cast<size_t>(std::max<int64_t>(bytesBeforeFault, 0));
            faultError = injectedFault->kind == WriteFault::Kind::NoSpace ? ENOSPC : EIO;
        }
        bytesBeforeFault -= static_cast<int64_t>(allowed);
    }
    if (allowed && std::fwrite(bytes.data(), 1, allowed, file_) != allowed) fail(sys::lastWriteError(target_));
    if (faultError) fail(faultError);
    if (error_) raiseWriteError(error_);
}

void OutputFile::close() {
    if (!file_) return;
    FileStamp stamp;
    bool stamped = stampBeforeClose(stamp);
    std::FILE* f = file_;
    file_ = nullptr;
    if (std::fclose(f) != 0) fail(sys::lastWriteError(target_));
    // Where the close sets the time, the closed file is stamped by name.
    if (!stamped && sys::ModifiedTimeSetAtClose && outputGuard && !error_)
        stamped = fileStamp(mode_ == Mode::Append ? target_ : temporary_, stamp);
    finish(stamped ? &stamp : nullptr);
    if (error_) raiseWriteError(error_);
}

// The run's record of the file as written, taken from the open file once
// everything is flushed: the close and the rename leave the length and the
// modification time as they are, and no second look by name is needed.
bool OutputFile::stampBeforeClose(FileStamp& stamp) {
    if (!outputGuard || error_ || sys::ModifiedTimeSetAtClose) return false;
    if (std::fflush(file_) != 0) {
        fail(sys::lastWriteError(target_));
        return false;
    }
    sys::FileInfo info;
    if (!sys::openFileInfo(file_, info)) return false;
    stamp = stampOf(info);
    return true;
}

// After the close: the new file takes its name, or a failed one goes.
void OutputFile::finish(const FileStamp* stamp) {
    if (mode_ == Mode::Append) {
        if (error_) {
            if (!sys::truncateFile(target_, appendFrom_)) return;
        } else if (outputGuard) {
            outputGuard->written(target_, stamp);
        }
        return;
    }
    if (!error_) takeFinalName();
    if (error_) {
        sys::removeFile(temporary_);
        if (outputGuard) outputGuard->removed(target_);
        return;
    }
    if (outputGuard) outputGuard->written(target_, stamp);
}

void OutputFile::takeFinalName() {
    if (!mayReplace_ && sys::renameToFreeName(temporary_, target_)) return;
    try {
        if (outputGuard) outputGuard->replacing(target_);
    } catch (...) {
        sys::removeFile(temporary_);
        throw;
    }
    if (!sys::renameReplacing(temporary_, target_)) fail(errno);
}

}  // namespace kestro
