#pragma once
// Little-endian binary output built in memory: for the files that Kestro
// writes in binary, and for packing crafted inputs in tests and examples.
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kestro {

class BinaryBuilder {
public:
    BinaryBuilder& u8(uint8_t v) { return put(v); }
    BinaryBuilder& i16(int16_t v) { return put(v); }
    BinaryBuilder& u16(uint16_t v) { return put(v); }
    BinaryBuilder& i32(int32_t v) { return put(v); }
    BinaryBuilder& u32(uint32_t v) { return put(v); }
    BinaryBuilder& i64(int64_t v) { return put(v); }
    BinaryBuilder& u64(uint64_t v) { return put(v); }
    BinaryBuilder& f32(float v) { return put(v); }
    BinaryBuilder& f64(double v) { return put(v); }
    BinaryBuilder& text(std::string_view s) {
        bytes_ += s;
        return *this;
    }
    // Zero bytes up to the offset (nothing when already past it).
    BinaryBuilder& padTo(size_t offset, char fill = '\0') {
        if (bytes_.size() < offset) bytes_.append(offset - bytes_.size(), fill);
        return *this;
    }
    // Writes a value over the bytes at the offset, growing the data if needed.
    template <typename T>
    BinaryBuilder& at(size_t offset, T v) {
        static_assert(std::endian::native == std::endian::little);
        padTo(offset + sizeof v);
        std::memcpy(bytes_.data() + offset, &v, sizeof v);
        return *this;
    }

    size_t size() const { return bytes_.size(); }
    const std::string& bytes() const { return bytes_; }

private:
    template <typename T>
    BinaryBuilder& put(T v) {
        static_assert(std::endian::native == std::endian::little);
        char raw[sizeof v];
        std::memcpy(raw, &v, sizeof v);
        bytes_.append(raw, sizeof v);
        return *this;
    }

    std::string bytes_;
};

}  // namespace kestro
