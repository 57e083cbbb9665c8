#pragma once
// The operating system under the engine, in one small interface: files and
// folders, processes, the clock's local time, the user's decimal separator
// and the terminal. Paths are UTF-8 everywhere; on Windows they become
// UTF-16 for the system's wide-character calls, so that any file name works.
// A failed call leaves the classic error number in errno (ENOENT, EACCES,
// ENOSPC, EEXIST, else EIO), whatever the system reported.
// SystemPosix.cpp serves Linux, macOS and the browser; SystemWindows.cpp
// serves Windows.
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kestro::sys {

// Windows takes "\" as a folder separator as well as "/".
#ifdef _WIN32
inline constexpr bool BackslashSeparates = true;
#else
inline constexpr bool BackslashSeparates = false;
#endif

// The separator the system itself writes between folder and name.
inline constexpr char FolderSeparator = BackslashSeparates ? '\\' : '/';

inline bool isFolderSeparator(char c) { return c == '/' || (BackslashSeparates && c == '\\'); }

// The position of the last folder separator in `path`, npos when none.
inline size_t lastSeparator(std::string_view path) {
    return path.find_last_of(BackslashSeparates ? std::string_view("/\\") : std::string_view("/"));
}

// Windows sets a written file's modification time again as it is closed:
// what an open file tells of it holds only elsewhere.
#ifdef _WIN32
inline constexpr bool ModifiedTimeSetAtClose = true;
#else
inline constexpr bool ModifiedTimeSetAtClose = false;
#endif

// Whether `path` names its file without the current folder's help.
bool isAbsolute(const std::string& path);
// The current folder, absolute.
std::string currentFolder();

// As std::fopen; an "x" in the mode opens only a file made anew.
std::FILE* openFile(const std::string& path, const char* mode);
bool removeFile(const std::string& path);
// Renames `from` to `to`, replacing a file of that name.
bool renameReplacing(const std::string& from, const std::string& to);
// Gives `from` the name `to` only if no file has that name; false when one
// has, or when the system cannot rename that way (the caller then looks and
// renames as usual).
bool renameToFreeName(const std::string& from, const std::string& to);
// The error number of a write to `path` or its close that failed just now.
// Windows' C library may call a full disk EINVAL: a volume without room
// left is taken as the cause there.
int lastWriteError(const std::string& path);
// Cuts the file back to `length` bytes.
bool truncateFile(const std::string& path, int64_t length);

struct FileInfo {
    uint64_t size = 0;
    int64_t modified = 0;  // the system's own clock, finer than seconds: for comparing only
    std::time_t modifiedSeconds = 0;
    bool folder = false;
    bool link = false;
};
// The file or folder at `path` (through a link), false when there is none.
bool pathInfo(const std::string& path, FileInfo& info);
// The same, of a link itself rather than its target.
bool linkInfo(const std::string& path, FileInfo& info);
// The same, of an open file.
bool openFileInfo(std::FILE* file, FileInfo& info);
// The file a link leads to, absolute; empty when it leads nowhere.
std::string linkTarget(const std::string& path);
// Whether this process may write to the existing file `path`.
bool writable(const std::string& path);

// The user's own data folder: $XDG_DATA_HOME, by default ~/.local/share;
// on Windows the local application data. Empty when there is none.
std::string userDataFolder();

long processId();
// Whether the process of that id still runs.
bool processRuns(long pid);

// A hint that the memory is best backed by large pages; none on Windows.
void adviseLargePages(void* begin, size_t length);

// The local time of a moment, as the user's settings give it.
std::tm localTime(std::time_t t);
// The decimal separator of the user's numeric settings; 0 when none is set
// or it is more than one byte.
char userDecimalSeparator();

// The width of the terminal on descriptor `fd`, 0 when it is unknown.
size_t terminalColumns(int fd);
// Standard output and error as on every system: bytes as written (Windows
// would turn each LF into CR LF, and a CR LF into CR CR LF), and a terminal
// that shows UTF-8 text as such.
void useStandardStreamsAsWritten();

// The program's arguments as UTF-8 (Windows passes them in its own code page).
std::vector<std::string> arguments(int argc, char** argv);

// std::filesystem paths to and from UTF-8 text.
inline std::filesystem::path fsPath(const std::string& utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}
inline std::string utf8Path(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

}  // namespace kestro::sys
