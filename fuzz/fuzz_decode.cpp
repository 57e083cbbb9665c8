// Arbitrary text through the GAML reader's base64 decoding, checked against
// the described steps done the plain way: clean, split off a padded last
// group, decode full groups, then the padded one.
#include <string_view>

#include "fuzz/FuzzHarness.h"
#include "readers/analytical/GamlReader.h"

namespace {

constexpr std::string_view Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 24 bits of up to four characters; "=" and missing ones are worth 0.
unsigned bitsOf(std::string_view group) {
    unsigned bits = 0;
    for (size_t k = 0; k < 4; ++k) {
        const size_t v = k < group.size() ? Alphabet.find(group[k]) : 0;
        bits = bits << 6 | static_cast<unsigned>(v == std::string_view::npos ? 0 : v);
    }
    return bits;
}

// Empty when a character is refused.
std::string described(std::string_view text) {
    std::string cleaned;
    for (char c : text) {
        if (c == '\r' || c == '\n') continue;
        if (c != '=' && Alphabet.find(c) == std::string_view::npos) return "";
        cleaned += c;
    }
    std::string_view body = cleaned, padded;
    if (!body.empty() && body.back() == '=') {
        padded = body.substr(body.size() - std::min<size_t>(4, body.size()));
        body.remove_suffix(padded.size());
    }
    std::string bytes;
    for (size_t i = 0; i + 4 <= body.size(); i += 4) {
        const unsigned bits = bitsOf(body.substr(i, 4));
        bytes += {static_cast<char>(bits >> 16), static_cast<char>(bits >> 8), static_cast<char>(bits)};
    }
    if (!padded.empty()) {
        const unsigned bits = bitsOf(padded);
        bytes += static_cast<char>(bits >> 16);
        if (!padded.ends_with("==")) bytes += static_cast<char>(bits >> 8);
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::QuietHost host;
    kestro::Session form(host);
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string decoded;
    kestro::Decode(form, text, decoded);
    if (decoded != described(text)) __builtin_trap();
    return 0;
}
