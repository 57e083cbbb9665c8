// Arbitrary bytes as a channel-data text file through the driver: the
// two-column pass, the ".dat" wrapping and ConvOdf, with or without "-dat".
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const names[] = {"in.odf", "in.dat", "in.spe", "in.asc", "in.rbs", "in.sim", "in.foo", "in"};
    const unsigned pick = size ? (data[0] >> 3) & 7 : 0;
    kestro::fuzzing::runThroughDriver(data, size, names[pick], [](kestro::Session& form, unsigned choice) {
        if (choice & 8) kestro::Text1_Change(form, (choice & 16) ? "-odat" : "-dat");
    });
    return 0;
}
