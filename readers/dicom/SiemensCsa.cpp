#include "readers/dicom/SiemensCsa.h"

#include <cstdint>
#include <cstring>

#include "core/runtime/NumberText.h"

namespace kestro {

namespace {

// An element: its name (64 bytes, zero-terminated), VM, VR (4 bytes), the
// Syngo data type, the item count and one more word; each item: four words
// (one of them its length), then its bytes, padded to a multiple of 4.
constexpr size_t NameBytes = 64;
constexpr size_t ElementBytes = NameBytes + 5 * 4;
constexpr size_t ItemHeadBytes = 16;

class Cursor {
public:
    explicit Cursor(std::string_view bytes) : bytes_(bytes) {}
    size_t left() const { return bytes_.size() - at_; }
    size_t at() const { return at_; }
    bool has(uint64_t n) const { return n <= left(); }
    uint32_t word(size_t offset = 0) const {
        uint32_t w;
        std::memcpy(&w, bytes_.data() + at_ + offset, 4);
        return w;  // little-endian on the hosts Kestro builds for
    }
    std::string_view view(size_t n) const { return bytes_.substr(at_, n); }
    void skip(uint64_t n) { at_ += static_cast<size_t>(n); }

private:
    std::string_view bytes_;
    size_t at_ = 0;
};

std::string_view untilZero(std::string_view text) {
    const size_t zero = text.find('\0');
    return zero == std::string_view::npos ? text : text.substr(0, zero);
}

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string overrun(const char* what, uint64_t count, size_t at, size_t left) {
    return std::string("the CSA header claims ") + plainText(static_cast<int64_t>(count)) + " " + what + " at byte " +
           plainText(static_cast<int64_t>(at)) + ", where " + plainText(static_cast<int64_t>(left)) +
           " bytes are left";
}

}  // namespace

CsaItem findCsaItem(std::string_view header, std::string_view name) {
    CsaItem result;
    Cursor c(header);
    const bool signed10 = header.substr(0, 4) == "SV10";
    if (header.size() < (signed10 ? 16u : 8u)) {
        result.problem = "the CSA header is too short (" + plainText(static_cast<int64_t>(header.size())) + " bytes)";
        return result;
    }
    if (signed10) c.skip(8);
    const uint32_t elements = c.word();
    c.skip(8);
    if (uint64_t{elements} * ElementBytes > c.left()) {
        result.problem = overrun("elements", elements, c.at(), c.left());
        return result;
    }
    // The older layout stores each item's length plus the first element's item count.
    uint32_t lengthBias = 0;
    for (uint32_t e = 0; e < elements; ++e) {
        if (!c.has(ElementBytes)) {
            result.problem = overrun("elements", elements - e, c.at(), c.left());
            return result;
        }
        const std::string_view elementName = untilZero(c.view(NameBytes));
        const uint32_t items = c.word(NameBytes + 12);
        if (e == 0 && !signed10) lengthBias = items;
        c.skip(ElementBytes);
        if (uint64_t{items} * ItemHeadBytes > c.left()) {
            result.problem = overrun("items", items, c.at(), c.left());
            return result;
        }
        const bool wanted = elementName == name;
        for (uint32_t i = 0; i < items; ++i) {
            if (!c.has(ItemHeadBytes)) {
                result.problem = overrun("items", items - i, c.at(), c.left());
                return result;
            }
            const uint64_t length = signed10 ? c.word(4) : uint64_t{c.word()} - lengthBias;
            c.skip(ItemHeadBytes);
            const uint64_t padded = (length + 3) / 4 * 4;
            if (length > c.left()) {
                result.problem = overrun("bytes in an item", length, c.at(), c.left());
                return result;
            }
            const std::string_view text = trimmed(untilZero(c.view(static_cast<size_t>(length))));
            if (wanted && !text.empty()) {
                result.found = true;
                result.text = std::string(text);
                return result;
            }
            c.skip(padded <= c.left() ? padded : c.left());
        }
    }
    return result;
}

}  // namespace kestro
