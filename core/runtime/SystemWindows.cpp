// The system interface on Windows (see System.h): UTF-8 paths become UTF-16
// for the wide-character calls, and the system's errors become errno.
#ifdef _WIN32

#include "core/runtime/System.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>
#include <shellapi.h>

#include <cerrno>

namespace kestro::sys {

namespace {

std::wstring wide(const std::string& text) {
    if (text.empty()) return {};
    const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
    return out;
}

std::string narrow(const wchar_t* text, int length = -1) {
    const int n = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
    if (n <= 0) return {};
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, length, out.data(), n, nullptr, nullptr);
    if (length < 0) out.pop_back();  // the terminating zero
    return out;
}

// The system's last error as the classic error number.
void setErrnoFromSystem() {
    switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_NETPATH:
        errno = ENOENT;
        break;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
        errno = EACCES;
        break;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
        errno = ENOSPC;
        break;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        errno = EEXIST;
        break;
    default:
        errno = EIO;
    }
}

// File times count 100 ns from 1601; the engine's count nanoseconds from 1970.
constexpr int64_t From1601To1970 = 116444736000000000;

FileInfo infoOf(DWORD attributes, DWORD sizeHigh, DWORD sizeLow, const FILETIME& written) {
    FileInfo info;
    info.size = (uint64_t{sizeHigh} << 32) | sizeLow;
    const int64_t ticks = static_cast<int64_t>((uint64_t{written.dwHighDateTime} << 32) | written.dwLowDateTime);
    info.modified = (ticks - From1601To1970) * 100;
    info.modifiedSeconds = static_cast<std::time_t>((ticks - From1601To1970) / 10000000);
    info.folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info.link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    return info;
}

bool handleInfo(HANDLE h, FileInfo& info) {
    BY_HANDLE_FILE_INFORMATION data{};
    if (!GetFileInformationByHandle(h, &data)) {
        setErrnoFromSystem();
        return false;
    }
    info = infoOf(data.dwFileAttributes, data.nFileSizeHigh, data.nFileSizeLow, data.ftLastWriteTime);
    return true;
}

// The file or folder itself, through links; folders open only with
// backup semantics.
HANDLE openExisting(const std::string& path, DWORD access) {
    const HANDLE h = CreateFileW(wide(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                 nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE) setErrnoFromSystem();
    return h;
}

}  // namespace

bool isAbsolute(const std::string& path) {
    // "C:\x", "\\server\share", and "\x" on the current drive.
    return (!path.empty() && isFolderSeparator(path[0])) || (path.size() >= 2 && path[1] == ':');
}

std::string currentFolder() {
    const DWORD n = GetCurrentDirectoryW(0, nullptr);
    std::wstring buffer(n, L'\0');
    const DWORD got = GetCurrentDirectoryW(n, buffer.data());
    return narrow(buffer.data(), static_cast<int>(got));
}

std::FILE* openFile(const std::string& path, const char* mode) {
    // The C library allows 512 open files unless asked for more; a run can
    // hold as many open as file numbers go, as on other systems.
    static const bool raised [[maybe_unused]] = _setmaxstdio(2048) > 0;
    std::string plain;
    for (const char* m = mode; *m; ++m)
        if (*m != 'x') plain += *m;
    if (plain.size() == std::char_traits<char>::length(mode)) return _wfopen(wide(path).c_str(), wide(mode).c_str());
    // A file made anew only: the C library of older Windows knows no "x".
    const int fd = _wopen(wide(path).c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    if (fd < 0) return nullptr;
    errno = 0;
    std::FILE* file = _fdopen(fd, plain.c_str());
    if (!file) {
        const int error = errno ? errno : EMFILE;
        _close(fd);
        _wremove(wide(path).c_str());
        errno = error;
    }
    return file;
}

bool removeFile(const std::string& path) { return _wremove(wide(path).c_str()) == 0; }

bool renameReplacing(const std::string& from, const std::string& to) {
    if (MoveFileExW(wide(from).c_str(), wide(to).c_str(), MOVEFILE_REPLACE_EXISTING)) return true;
    setErrnoFromSystem();
    return false;
}

bool renameToFreeName(const std::string& from, const std::string& to) {
    if (MoveFileExW(wide(from).c_str(), wide(to).c_str(), 0)) return true;
    setErrnoFromSystem();
    return false;
}

int lastWriteError(const std::string& path) {
    const int error = errno;
    if (error == ENOSPC) return error;
    const size_t slash = lastSeparator(path);
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    ULARGE_INTEGER free{};
    if (GetDiskFreeSpaceExW(wide(folder).c_str(), &free, nullptr, nullptr) && free.QuadPart < 65536) return ENOSPC;
    return error;
}

bool truncateFile(const std::string& path, int64_t length) {
    const int fd = _wopen(wide(path).c_str(), _O_WRONLY | _O_BINARY);
    if (fd < 0) return false;
    const bool ok = _chsize_s(fd, length) == 0;
    _close(fd);
    return ok;
}

bool pathInfo(const std::string& path, FileInfo& info) {
    const HANDLE h = openExisting(path, FILE_READ_ATTRIBUTES);
    if (h == INVALID_HANDLE_VALUE) return false;
    const bool ok = handleInfo(h, info);
    CloseHandle(h);
    return ok;
}

bool linkInfo(const std::string& path, FileInfo& info) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(wide(path).c_str(), GetFileExInfoStandard, &data)) {
        setErrnoFromSystem();
        return false;
    }
    info = infoOf(data.dwFileAttributes, data.nFileSizeHigh, data.nFileSizeLow, data.ftLastWriteTime);
    return true;
}

bool openFileInfo(std::FILE* file, FileInfo& info) {
    const HANDLE h = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
    return h != INVALID_HANDLE_VALUE && handleInfo(h, info);
}

std::string linkTarget(const std::string& path) {
    const HANDLE h = openExisting(path, 0);
    if (h == INVALID_HANDLE_VALUE) return {};
    std::wstring buffer(MAX_PATH, L'\0');
    DWORD n = GetFinalPathNameByHandleW(h, buffer.data(), static_cast<DWORD>(buffer.size()), FILE_NAME_NORMALIZED);
    if (n >= buffer.size()) {
        buffer.resize(n + 1);
        n = GetFinalPathNameByHandleW(h, buffer.data(), static_cast<DWORD>(buffer.size()), FILE_NAME_NORMALIZED);
    }
    CloseHandle(h);
    if (n == 0 || n >= buffer.size()) return {};
    buffer.resize(n);
    // The system answers in its long form: \\?\C:\... or \\?\UNC\server\...
    if (buffer.compare(0, 8, L"\\\\?\\UNC\\") == 0) buffer.replace(0, 8, L"\\\\");
    else if (buffer.compare(0, 4, L"\\\\?\\") == 0) buffer.erase(0, 4);
    return narrow(buffer.data(), static_cast<int>(buffer.size()));
}

bool writable(const std::string& path) {
    // Opened for writing and closed untouched: read-only files, the access
    // rules and a file another program holds all answer.
    const HANDLE h = openExisting(path, GENERIC_WRITE);
    if (h == INVALID_HANDLE_VALUE) return false;
    CloseHandle(h);
    return true;
}

std::string userDataFolder() {
    const wchar_t* local = _wgetenv(L"LOCALAPPDATA");
    return local && *local ? narrow(local) : std::string();
}

long processId() { return static_cast<long>(GetCurrentProcessId()); }

bool processRuns(long pid) {
    if (pid <= 0) return false;
    const HANDLE h = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(pid));
    if (!h) return GetLastError() == ERROR_ACCESS_DENIED;  // another user's, running
    DWORD code = 0;
    const bool runs = GetExitCodeProcess(h, &code) && code == STILL_ACTIVE;
    CloseHandle(h);
    return runs;
}

void adviseLargePages(void*, size_t) {}

std::tm localTime(std::time_t t) {
    std::tm tm{};
    localtime_s(&tm, &t);
    return tm;
}

char userDecimalSeparator() {
    wchar_t text[8] = {};
    if (GetLocaleInfoEx(LOCALE_NAME_USER_DEFAULT, LOCALE_SDECIMAL, text, 8) <= 0) return 0;
    const std::string separator = narrow(text);
    return separator.size() == 1 ? separator[0] : 0;
}

size_t terminalColumns(int fd) {
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    const HANDLE h = reinterpret_cast<HANDLE>(_get_osfhandle(fd));
    if (h == INVALID_HANDLE_VALUE || !GetConsoleScreenBufferInfo(h, &screen)) return 0;
    return static_cast<size_t>(screen.srWindow.Right - screen.srWindow.Left + 1);
}

void useStandardStreamsAsWritten() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
}

std::vector<std::string> arguments(int argc, char** argv) {
    int n = 0;
    wchar_t** given = CommandLineToArgvW(GetCommandLineW(), &n);
    if (!given) return std::vector<std::string>(argv, argv + argc);
    std::vector<std::string> out;
    for (int i = 0; i < n; ++i) out.push_back(narrow(given[i]));
    LocalFree(given);
    return out;
}

}  // namespace kestro::sys

#endif
