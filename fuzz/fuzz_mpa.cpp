// Arbitrary bytes as a FastComtec file, under each kind of name the reader
// tells apart (".mpa", ".mp", two dots, upper case).
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const names[] = {"in.mpa", "in.mp", "in.x.mpa", "in.MPA"};
    kestro::fuzzing::runThroughDriver(data, size, names[size ? (data[0] >> 3) & 3 : 0]);
    return 0;
}
