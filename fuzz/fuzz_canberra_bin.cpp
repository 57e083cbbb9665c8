// Arbitrary bytes as a Canberra MCA ".bin" dump.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.bin");
    return 0;
}
