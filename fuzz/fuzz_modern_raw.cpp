// Arbitrary bytes as a Bruker RAW scan, read by the modern reader. The choice
// bits of the first byte may stamp a signature over the file's first bytes,
// so that every layout gets its share of the inputs.
#include <algorithm>
#include <string>

#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string signatures[] = {"", "RAW1.01", "RAW4.00", "RAW2", "RAW "};
    if (size == 0) return 0;
    std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string& signature = signatures[std::min(data[0] >> 3 & 7, 4)];
    // One byte of fuzz settings comes first, so the file starts at 1.
    if (bytes.size() < 1 + signature.size()) bytes.resize(1 + signature.size());
    bytes.replace(1, signature.size(), signature);
    kestro::fuzzing::runThroughDriver(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), "in.raw",
                                      [](kestro::Session& form, unsigned) { form.boxes.ModernRead = true; });
    return 0;
}
