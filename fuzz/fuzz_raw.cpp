// Arbitrary bytes as a Bruker/AXS RAW scan. The choice bits of the first
// byte may stamp a signature and a tag over the bytes, so that every variant
// of the reader gets its share of the inputs.
#include <algorithm>
#include <string>

#include "fuzz/FuzzHarness.h"

namespace {

void stamp(std::string& bytes, size_t at, const std::string& text) {
    if (bytes.size() < at + text.size()) bytes.resize(at + text.size());
    bytes.replace(at, text.size(), text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string signatures[] = {"", "RAW1.01", "RAW4.00", "RAW4-00", std::string("RAW \0", 5)};
    static const std::string tags[] = {"", "XRD", "HRXRD", "V2.8."};
    if (size == 0) return 0;
    std::string bytes(reinterpret_cast<const char*>(data), size);
    const unsigned choice = data[0] >> 3;
    // One byte of fuzz settings comes first, so the file starts at 1.
    stamp(bytes, 1, signatures[std::min(choice & 7, 4u)]);
    stamp(bytes, 1 + 142, tags[(choice >> 3) & 3]);
    kestro::fuzzing::runThroughDriver(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), "in.raw");
    return 0;
}
