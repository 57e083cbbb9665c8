// Arbitrary bytes as a PANalytical RD scan.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.rd");
    return 0;
}
