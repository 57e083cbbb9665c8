#include "core/runtime/Trash.h"

#include "core/runtime/System.h"

#if defined(_WIN32)

#include <windows.h>
#include <shellapi.h>

#include <vector>

namespace kestro {

namespace {

// The Recycle Bin, through the shell: it keeps where each file came from.
class RecycleBin : public Trash {
public:
    bool available() const override { return true; }
    bool saysWhere() const override { return false; }
    bool moveToTrash(const std::string& path, std::string& where) override {
        where.clear();
        const int n = MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, nullptr, 0);
        if (n <= 0) return false;
        std::vector<wchar_t> wide(static_cast<size_t>(n));
        MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, wide.data(), n);
        const DWORD full = GetFullPathNameW(wide.data(), 0, nullptr, nullptr);
        if (full == 0) return false;
        // The shell takes a list of names ended by an empty one.
        std::vector<wchar_t> from(full + 2, L'\0');
        if (GetFullPathNameW(wide.data(), full, from.data(), nullptr) == 0) return false;
        // Where the volume has no Recycle Bin (a network share; wine without
        // its trash folder) the shell would delete the file for good.
        SHQUERYRBINFO bin{};
        bin.cbSize = sizeof bin;
        if (FAILED(SHQueryRecycleBinW(from.data(), &bin))) return false;
        SHFILEOPSTRUCTW op{};
        op.wFunc = FO_DELETE;
        op.pFrom = from.data();
        op.fFlags = FOF_ALLOWUNDO | FOF_NOCONFIRMATION | FOF_SILENT | FOF_NOERRORUI;
        return SHFileOperationW(&op) == 0 && !op.fAnyOperationsAborted &&
               GetFileAttributesW(from.data()) == INVALID_FILE_ATTRIBUTES;
    }
};

}  // namespace

Trash& systemTrash() {
    static RecycleBin bin;
    return bin;
}

}  // namespace kestro

#elif defined(__EMSCRIPTEN__)

namespace kestro {

namespace {

class NoTrash : public Trash {
public:
    bool available() const override { return false; }
    bool moveToTrash(const std::string&, std::string& where) override {
        where.clear();
        return false;
    }
};

}  // namespace

Trash& systemTrash() {
    static NoTrash none;
    return none;
}

}  // namespace kestro

#else

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace kestro {

namespace {

// The home trash: $XDG_DATA_HOME/Trash, by default ~/.local/share/Trash.
std::string homeTrash() {
    const std::string data = sys::userDataFolder();
    return data.empty() ? data : data + "/Trash";
}

bool makeFolders(const std::string& path) {
    std::error_code e;
    std::filesystem::create_directories(path, e);
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    // A trash made here is the user's alone.
    if (!e) ::chmod(path.c_str(), st.st_mode & 07777 & ~077u);
    return true;
}

// The path in a ".trashinfo": every byte but the unreserved ones and "/" as %XX.
std::string percentEncoded(const std::string& path) {
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if (std::isalnum(c) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

std::string deletionDate() {
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
    return text;
}

bool exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

// Moves the file into the trash folder `trash` under a free name, its info
// file written first to claim that name. `infoPath` is the path the info
// file records. `copy`: across volumes, copied and then removed.
bool moveInto(const std::string& trash, const std::string& path, const std::string& infoPath, std::string& where,
              bool copy = false) {
    if (!makeFolders(trash + "/files") || !makeFolders(trash + "/info")) return false;
    const std::string base = path.substr(path.rfind('/') + 1);
    for (int n = 1; n < 100000; ++n) {
        const std::string name = n == 1 ? base : base + "." + std::to_string(n);
        const std::string info = trash + "/info/" + name + ".trashinfo";
        const std::string target = trash + "/files/" + name;
        if (exists(target)) continue;
        const int fd = ::open(info.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return false;
        }
        const std::string text = "[Trash Info]\nPath=" + percentEncoded(infoPath) + "\nDeletionDate=" + deletionDate() + "\n";
        bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ok = ::close(fd) == 0 && ok;
        if (ok && !copy) ok = std::rename(path.c_str(), target.c_str()) == 0;
        if (ok && copy) {
            std::error_code e;
            ok = std::filesystem::copy_file(path, target, e) && ::unlink(path.c_str()) == 0;
            if (!ok) ::unlink(target.c_str());
        }
        if (ok) {
            where = target;
            return true;
        }
        ::unlink(info.c_str());
        return false;
    }
    return false;
}

// The top folder of the volume that holds `folder`.
std::string topOfVolume(std::string folder, dev_t device) {
    while (folder != "/") {
        const size_t slash = folder.rfind('/');
        const std::string parent = slash == 0 ? "/" : folder.substr(0, slash);
        struct stat st {};
        if (::stat(parent.c_str(), &st) != 0 || st.st_dev != device) break;
        folder = parent;
    }
    return folder;
}

// The trash of the file's own volume: $top/.Trash/$uid where the
// administrator made a shared ".Trash" (a real folder, sticky), else
// $top/.Trash-$uid. Its info files name the path from the volume's top.
bool moveToVolumeTrash(const std::string& path, dev_t device, std::string& where) {
    const std::string top = topOfVolume(path.substr(0, std::max<size_t>(path.rfind('/'), 1)), device);
    const std::string prefix = top == "/" ? "" : top;
    const std::string relative = path.substr(prefix.size() + 1);
    const std::string uid = std::to_string(::getuid());
    struct stat st {};
    const std::string shared = prefix + "/.Trash";
    if (::lstat(shared.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX) &&
        moveInto(shared + "/" + uid, path, relative, where))
        return true;
    const std::string own = prefix + "/.Trash-" + uid;
    if (::lstat(own.c_str(), &st) == 0 && (!S_ISDIR(st.st_mode) || st.st_uid != ::getuid())) return false;
    return moveInto(own, path, relative, where);
}

class FreedesktopTrash : public Trash {
public:
    bool available() const override { return true; }
    bool moveToTrash(const std::string& given, std::string& where) override {
        where.clear();
        std::error_code e;
        const std::string path = std::filesystem::absolute(given, e).lexically_normal().string();
        struct stat file {};
        if (e || ::lstat(path.c_str(), &file) != 0) return false;
        const std::string home = homeTrash();
        struct stat trash {};
        const bool haveHome = !home.empty() && makeFolders(home) && ::stat(home.c_str(), &trash) == 0;
        if (haveHome && trash.st_dev == file.st_dev) return moveInto(home, path, path, where);
        if (moveToVolumeTrash(path, file.st_dev, where)) return true;
        // No trash on that volume: the home trash takes a copy.
        return haveHome && S_ISREG(file.st_mode) && moveInto(home, path, path, where, true);
    }
};

}  // namespace

Trash& systemTrash() {
    static FreedesktopTrash trash;
    return trash;
}

}  // namespace kestro

#endif
