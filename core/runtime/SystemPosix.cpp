// The system interface on Linux, macOS and the browser (see System.h).
#ifndef _WIN32

#include "core/runtime/System.h"

#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace kestro::sys {

namespace {

FileInfo infoOf(const struct stat& st) {
    FileInfo info;
    info.size = static_cast<uint64_t>(st.st_size);
#ifdef __APPLE__
    info.modified = static_cast<int64_t>(st.st_mtimespec.tv_sec) * 1000000000 + st.st_mtimespec.tv_nsec;
#else
    info.modified = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
#endif
    info.modifiedSeconds = st.st_mtime;
    info.folder = S_ISDIR(st.st_mode);
    info.link = S_ISLNK(st.st_mode);
    return info;
}

}  // namespace

bool isAbsolute(const std::string& path) { return !path.empty() && path[0] == '/'; }

std::string currentFolder() {
    std::string buffer(4096, '\0');
    while (!::getcwd(buffer.data(), buffer.size())) {
        if (errno != ERANGE) return "/";
        buffer.resize(buffer.size() * 2);
    }
    buffer.resize(std::strlen(buffer.c_str()));
    return buffer;
}

std::FILE* openFile(const std::string& path, const char* mode) { return std::fopen(path.c_str(), mode); }

bool removeFile(const std::string& path) { return std::remove(path.c_str()) == 0; }

bool renameReplacing(const std::string& from, const std::string& to) {
    return std::rename(from.c_str(), to.c_str()) == 0;
}

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

int lastWriteError(const std::string&) { return errno; }

bool truncateFile(const std::string& path, int64_t length) {
    return ::truncate(path.c_str(), static_cast<off_t>(length)) == 0;
}

bool pathInfo(const std::string& path, FileInfo& info) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return false;
    info = infoOf(st);
    return true;
}

bool linkInfo(const std::string& path, FileInfo& info) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return false;
    info = infoOf(st);
    return true;
}

bool openFileInfo(std::FILE* file, FileInfo& info) {
    struct stat st {};
    if (::fstat(fileno(file), &st) != 0) return false;
    info = infoOf(st);
    return true;
}

std::string linkTarget(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved) return {};
    std::string target = resolved;
    std::free(resolved);
    return target;
}

bool writable(const std::string& path) { return ::access(path.c_str(), W_OK) == 0; }

std::string userDataFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return data;
    const char* home = std::getenv("HOME");
    if (home && home[0] == '/') return std::string(home) + "/.local/share";
    return {};
}

long processId() { return static_cast<long>(::getpid()); }

bool processRuns(long pid) {
    return pid > 0 && (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

void adviseLargePages(void* begin, size_t length) { ::madvise(begin, length, MADV_HUGEPAGE); }

std::tm localTime(std::time_t t) {
    std::tm tm{};
    ::localtime_r(&t, &tm);
    return tm;
}

char userDecimalSeparator() {
    locale_t user = ::newlocale(LC_NUMERIC_MASK, "", static_cast<locale_t>(nullptr));
    if (!user) return 0;
    const char* radix = ::nl_langinfo_l(RADIXCHAR, user);
    const char separator = radix && std::strlen(radix) == 1 ? radix[0] : 0;
    ::freelocale(user);
    return separator;
}

size_t terminalColumns(int fd) {
    winsize size{};
    return ::ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void useStandardStreamsAsWritten() {}

std::vector<std::string> arguments(int argc, char** argv) { return std::vector<std::string>(argv, argv + argc); }

}  // namespace kestro::sys

#endif
