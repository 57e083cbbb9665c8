// Arbitrary bytes as a JCAMP-DX file. A choice bit puts a valid start and
// table form in front, so that most inputs reach the data lines.
#include <string>

#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::string bytes(reinterpret_cast<const char*>(data), size);
    if (data[0] & 8) bytes.insert(1, "##JCAMP-DX=4.24\r\n##NPOINTS=64\r\n##XYDATA=(X++(Y..Y))\r\n");
    kestro::fuzzing::runThroughDriver(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), "in.jdx");
    return 0;
}
