// Arbitrary bytes as a Canberra 35/40 ".mca" dump.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.mca", [](kestro::Session& form, unsigned) {
        kestro::Combo1_Click(form, kestro::formatIndexOf("Canberra 35/40 *.mca"));
    });
    return 0;
}
