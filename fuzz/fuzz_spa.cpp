// Arbitrary bytes as a Thermo SPA spectrum, read by the classic reader.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.spa");
    return 0;
}
