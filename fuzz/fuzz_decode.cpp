// Arbitrary text through the GAML reader's base64 decoding.
#include "fuzz/FuzzHarness.h"
#include "readers/analytical/GamlReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::QuietHost host;
    kestro::Session form(host);
    std::string decoded;
    kestro::Decode(form, std::string_view(reinterpret_cast<const char*>(data), size), decoded);
    // Four characters give at most three bytes.
    if (decoded.size() > (size + 3) / 4 * 3) __builtin_trap();
    return 0;
}
