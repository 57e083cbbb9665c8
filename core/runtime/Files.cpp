#include "core/runtime/Files.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>

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
    std::FILE* f = std::fopen(path.c_str(), "rb");
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

DateValue fileModified(const std::string& path) { return dateFromUnixSeconds(statOrRaise(path).st_mtime); }

void writeWholeFile(const std::string& path, std::string_view bytes) {
    OutputFile out(path);
    out.write(bytes);
    out.close();
}

namespace {
// One run at a time converts; the DICOM reader's own thread writes while the
// run's thread waits for it, so a plain pointer serves both.
OutputObserver* outputObserver = nullptr;
}  // namespace

ObservingOutputs::ObservingOutputs(OutputObserver* observer) : previous_(outputObserver) { outputObserver = observer; }
ObservingOutputs::~ObservingOutputs() { outputObserver = previous_; }

OutputFile::OutputFile(const std::string& path, Mode mode) : path_(path) {
    if (outputObserver) outputObserver->outputOpened(path, mode);
    file_ = std::fopen(path.c_str(), mode == Mode::Append ? "ab" : "wb");
    if (!file_) {
        if (errno == ENOENT) raise(err::PathNotFound);
        raise(err::PathFileAccess);
    }
}

OutputFile::~OutputFile() {
    if (file_) std::fclose(file_);
}

void OutputFile::write(std::string_view bytes) {
    if (bytes.empty()) return;
    if (!file_) raise(err::BadFileNameOrNumber);
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) failed_ = true;
    if (failed_) raise(err::PathFileAccess);
}

void OutputFile::close() {
    if (!file_) return;
    bool bad = std::fclose(file_) != 0 || failed_;
    file_ = nullptr;
    if (bad) raise(err::PathFileAccess);
}

}  // namespace kestro
