// Arbitrary bytes as a SpecTech SPU file, after various real times left by
// a previous file.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.spu", [](kestro::Session& form, unsigned choice) {
        static const double realTimes[] = {0, 1800.5, -3.5, 3e12};
        if (choice & 4) form.sharedRealTime = kestro::Value::ofDouble(realTimes[choice & 3]);
    });
    return 0;
}
