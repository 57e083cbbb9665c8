#pragma once
// Sequential binary reads of a file that need not fit in memory: a block at
// a time from the start, with the bytes past the end reading as zero, as
// positioned reads have them.
#include <cstdint>
#include <cstdio>
#include <string>

namespace kestro {

class BinaryStream {
public:
    // "File not found" (53) when it does not exist, "Path/File access
    // error" (75) when it cannot be read.
    explicit BinaryStream(const std::string& path);
    ~BinaryStream();
    BinaryStream(const BinaryStream&) = delete;
    BinaryStream& operator=(const BinaryStream&) = delete;

    int64_t length() const { return length_; }
    // Fills `count` bytes from the current position on, zeros past the end;
    // returns how many came from the file.
    size_t read(char* to, size_t count);

private:
    std::FILE* file_ = nullptr;
    int64_t length_ = 0;
};

}  // namespace kestro
