// Arbitrary bytes as an OMDAQ "_" file, or as any file with the "OMD" option.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const bool byOption = size && (data[0] & 8);
    kestro::fuzzing::runThroughDriver(data, size, byOption ? "in" : "in._", [](kestro::Session& form, unsigned choice) {
        if (choice & 1) kestro::Combo1_Click(form, kestro::formatIndexOf("OMDAQ"));
    });
    return 0;
}
