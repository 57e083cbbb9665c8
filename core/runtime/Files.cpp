#include "core/runtime/Files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <optional>

#include "core/runtime/RuntimeError.h"
#include "core/runtime/TextInput.h"

namespace kestro {

namespace {

[[noreturn]] void raiseForErrno(int e) {
    if (e == ENOENT) raise(err::FileNotFound);
    raise(err::PathFileAccess);
}

struct stat statOrRaise(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) raiseForErrno(errno);
    return st;
}

}  // namespace

std::string reserveLarge(size_t capacity) {
    std::string s;
    s.reserve(capacity);
    constexpr uintptr_t LargePage = uintptr_t{2} << 20;
    if (capacity >= 2 * LargePage) {
        uintptr_t begin = (reinterpret_cast<uintptr_t>(s.data()) + LargePage - 1) & ~(LargePage - 1);
        uintptr_t end = (reinterpret_cast<uintptr_t>(s.data()) + capacity) & ~(LargePage - 1);
        if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    }
    return s;
}

std::string readWholeFile(const std::string& path) {
    std::FILE* f = std::fopen(inputLocation(path).c_str(), "rb");
    if (!f) raiseForErrno(errno);
    struct stat st {};
    if (::fstat(fileno(f), &st) != 0 || S_ISDIR(st.st_mode)) {
        std::fclose(f);
        raise(err::PathFileAccess);
    }
    std::string data = reserveLarge(static_cast<size_t>(st.st_size));
    data.resize(static_cast<size_t>(st.st_size));
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
    return dateFromUnixSeconds(statOrRaise(inputLocation(path)).st_mtime);
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
    if (e == ENOSPC || e == EDQUOT) raise(err::DiskFull);
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
    struct stat st {};
    exists = ::lstat(path.c_str(), &st) == 0;
    if (!exists) return path;  // a new file, the common case
    std::string target = path;
    if (S_ISLNK(st.st_mode)) {
        char* resolved = ::realpath(path.c_str(), nullptr);
        if (!resolved) return path;  // a dangling link is replaced by the file
        target = resolved;
        std::free(resolved);
        if (::stat(target.c_str(), &st) != 0) return target;
    }
    if (S_ISDIR(st.st_mode) || ::access(target.c_str(), W_OK) != 0) raise(err::PathFileAccess);
    return target;
}

FileStamp stampOf(const struct stat& st) {
#ifdef __APPLE__
    const struct timespec& m = st.st_mtimespec;
#else
    const struct timespec& m = st.st_mtim;
#endif
    return {static_cast<uint64_t>(st.st_size), static_cast<int64_t>(m.tv_sec) * 1000000000 + m.tv_nsec};
}

// Gives `from` the name `to` only if no file has that name; false when one
// has, or when the system cannot rename that way (the caller then looks and
// renames as usual).
bool renameToFreeName(const std::string& from, const std::string& to) {
#if defined(__linux__) && !defined(__EMSCRIPTEN__) && defined(RENAME_NOREPLACE)
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
#elif defined(__APPLE__)
    return ::renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0;
#else
    (void)from;
    (void)to;
    return false;
#endif
}
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
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    static const std::string process = std::to_string(currentProcessId());
    return folder + TemporaryPrefix + process + "~" + std::to_string(++count);
}

bool fileStamp(const std::string& path, FileStamp& stamp) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return false;
    stamp = stampOf(st);
    return true;
}

std::string userDataFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return data;
    const char* home = std::getenv("HOME");
    if (home && home[0] == '/') return std::string(home) + "/.local/share";
    return {};
}

std::string inputLocation(const std::string& path) { return outputGuard ? outputGuard->readFrom(path) : path; }

bool isTemporaryOutputName(const std::string& name, long& pid) {
    constexpr size_t n = sizeof TemporaryPrefix - 1;
    if (name.compare(0, n, TemporaryPrefix) != 0) return false;
    char* end = nullptr;
    pid = std::strtol(name.c_str() + n, &end, 10);
    return end != name.c_str() + n && *end == '~';
}

long currentProcessId() { return static_cast<long>(::getpid()); }

bool processRuns(long pid) {
    return pid > 0 && (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

OutputFile::OutputFile(const std::string& path, Mode mode) : path_(path), mode_(mode) {
    if (outputObserver) outputObserver->outputOpened(path, mode);
    if (injectedFault && injectedFault->kind == WriteFault::Kind::AccessDenied) raiseOpenError(EACCES);
    if (mode == Mode::Append) {
        target_ = path;
        if (outputGuard) outputGuard->appending(target_);
        file_ = std::fopen(target_.c_str(), "ab");
        if (!file_) raiseOpenError(errno);
        struct stat st {};
        if (::fstat(fileno(file_), &st) == 0) appendFrom_ = static_cast<int64_t>(st.st_size);
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
    file_ = std::fopen(temporary_.c_str(), "wbx");
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
    if (allowed && std::fwrite(bytes.data(), 1, allowed, file_) != allowed) fail(errno);
    if (faultError) fail(faultError);
    if (error_) raiseWriteError(error_);
}

void OutputFile::close() {
    if (!file_) return;
    FileStamp stamp;
    const bool stamped = stampBeforeClose(stamp);
    std::FILE* f = file_;
    file_ = nullptr;
    if (std::fclose(f) != 0) fail(errno);
    finish(stamped ? &stamp : nullptr);
    if (error_) raiseWriteError(error_);
}

// The run's record of the file as written, taken from the open file once
// everything is flushed: the close and the rename leave the length and the
// modification time as they are, and no second look by name is needed.
bool OutputFile::stampBeforeClose(FileStamp& stamp) {
    if (!outputGuard || error_) return false;
    if (std::fflush(file_) != 0) {
        fail(errno);
        return false;
    }
    struct stat st {};
    if (::fstat(fileno(file_), &st) != 0) return false;
    stamp = stampOf(st);
    return true;
}

// After the close: the new file takes its name, or a failed one goes.
void OutputFile::finish(const FileStamp* stamp) {
    if (mode_ == Mode::Append) {
        if (error_) {
            if (::truncate(target_.c_str(), static_cast<off_t>(appendFrom_)) != 0) return;
        } else if (outputGuard) {
            outputGuard->written(target_, stamp);
        }
        return;
    }
    if (!error_) takeFinalName();
    if (error_) {
        std::remove(temporary_.c_str());
        if (outputGuard) outputGuard->removed(target_);
        return;
    }
    if (outputGuard) outputGuard->written(target_, stamp);
}

void OutputFile::takeFinalName() {
    if (!mayReplace_ && renameToFreeName(temporary_, target_)) return;
    try {
        if (outputGuard) outputGuard->replacing(target_);
    } catch (...) {
        std::remove(temporary_.c_str());
        throw;
    }
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail(errno);
}

}  // namespace kestro
