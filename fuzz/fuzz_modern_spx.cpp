// Arbitrary bytes as a Bruker SPX file, read by the modern reader.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.spx",
                                      [](kestro::Session& form, unsigned) { form.boxes.ModernRead = true; });
    return 0;
}
