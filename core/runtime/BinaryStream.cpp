#include "core/runtime/BinaryStream.h"

#include <cerrno>
#include <cstring>

#include "core/runtime/Files.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/System.h"

namespace kestro {

BinaryStream::BinaryStream(const std::string& path) {
    file_ = sys::openFile(inputLocation(path), "rb");
    if (!file_) raise(errno == ENOENT ? err::FileNotFound : err::PathFileAccess);
    sys::FileInfo info;
    if (!sys::openFileInfo(file_, info) || info.folder) {
        std::fclose(file_);
        file_ = nullptr;
        raise(err::PathFileAccess);
    }
    length_ = static_cast<int64_t>(info.size);
}

BinaryStream::~BinaryStream() {
    if (file_) std::fclose(file_);
}

size_t BinaryStream::read(char* to, size_t count) {
    const size_t got = std::fread(to, 1, count, file_);
    if (got < count && std::ferror(file_)) raise(err::PathFileAccess);
    std::memset(to + got, 0, count - got);
    return got;
}

}  // namespace kestro
