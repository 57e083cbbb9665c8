#pragma once
// Files for tests: a fresh folder per test, and whole-file writes and reads.
#include <sys/stat.h>
#include <utime.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kestro::testing {

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestro-test-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline bool exists(const std::string& path) { return std::filesystem::exists(path); }

// Sets a file's modification time and returns how line 4 of an SPE file shows it.
inline std::string setModified(const std::string& path, std::time_t when) {
    utimbuf times{when, when};
    utime(path.c_str(), &times);
    std::tm tm{};
    localtime_r(&when, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%d-%m-%Y  %H:%M:%S", &tm);
    return text;
}

}  // namespace kestro::testing
