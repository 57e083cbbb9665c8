// Arbitrary bytes as a Galactic SPC file, read by the classic reader.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.spc");
    return 0;
}
