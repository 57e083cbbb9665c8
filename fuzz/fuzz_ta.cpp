// Arbitrary bytes as an old TA Instruments run file (format "ATA").
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.001", [](kestro::Session& form, unsigned) {
        kestro::Combo1_Click(form, kestro::formatIndexOf("Old TA Instr TGA/DSC"));
    });
    return 0;
}
