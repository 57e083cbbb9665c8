#pragma once
// Positioned little-endian reads at 0-based offsets over a whole file held in
// memory. Bytes past the end read as zero, as the readers expect.
#include <cstdint>
#include <cstring>
#include <bit>
#include <string>

#include "core/runtime/RuntimeError.h"

namespace kestro {

static_assert(std::endian::native == std::endian::little, "the readers assume a little-endian machine");

class BinaryReader {
public:
    BinaryReader() = default;
    explicit BinaryReader(std::string bytes) : data_(std::move(bytes)) {}

    int64_t length() const { return static_cast<int64_t>(data_.size()); }
    const std::string& bytes() const { return data_; }

    uint8_t u8(int64_t offset) const { return read<uint8_t>(offset); }
    int16_t i16(int64_t offset) const { return read<int16_t>(offset); }
    uint16_t u16(int64_t offset) const { return read<uint16_t>(offset); }
    int32_t i32(int64_t offset) const { return read<int32_t>(offset); }
    uint32_t u32(int64_t offset) const { return read<uint32_t>(offset); }
    int64_t i64(int64_t offset) const { return read<int64_t>(offset); }
    float f32(int64_t offset) const { return read<float>(offset); }
    double f64(int64_t offset) const { return read<double>(offset); }

    // count bytes as text, zeros past the end.
    std::string text(int64_t offset, int64_t count) const {
        if (count < 0) raise(err::InvalidCall);
        std::string out(static_cast<size_t>(count), '\0');
        copy(offset, out.data(), static_cast<size_t>(count));
        return out;
    }

private:
    void copy(int64_t offset, void* to, size_t count) const {
        if (offset < 0) raise(err::BadRecordNumber);
        std::memset(to, 0, count);
        if (offset >= length()) return;
        size_t start = static_cast<size_t>(offset);
        std::memcpy(to, data_.data() + start, std::min(count, data_.size() - start));
    }

    template <typename T>
    T read(int64_t offset) const {
        T v;
        // This platform is little-endian, as the files are.
        if (offset >= 0 && offset <= length() - static_cast<int64_t>(sizeof v))
            std::memcpy(&v, data_.data() + offset, sizeof v);
        else
            copy(offset, &v, sizeof v);
        return v;
    }

    std::string data_;
};

}  // namespace kestro
