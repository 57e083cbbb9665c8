// Arbitrary bytes as a GAML file, read by the classic reader; `choice` sets
// the row count the reader hands to the plot.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.gaml", [](kestro::Session& form, unsigned choice) {
        form.valueCount = static_cast<int64_t>(choice) - 4;
    });
    return 0;
}
