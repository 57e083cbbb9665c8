// Arbitrary bytes as a Shimadzu photometric file (format "Shim_PHO").
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.pho", [](kestro::Session& form, unsigned) {
        kestro::Combo1_Click(form, kestro::formatIndexOf("Shimadzu *.pho"));
    });
    return 0;
}
