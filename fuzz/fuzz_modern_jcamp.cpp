// Arbitrary bytes as a JCAMP-DX file, read by the modern reader. Choice bits
// put a block's labels in front (an evenly spaced table, a pair table, or
// an NTUPLES page), so that most inputs reach the data lines.
#include <string>

#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const char* const Fronts[] = {
        "",
        "##TITLE=f\r\n##FIRSTX=0\r\n##LASTX=63\r\n##NPOINTS=64\r\n##XYDATA=(X++(Y..Y))\r\n",
        "##TITLE=f\r\n##XYPOINTS=(XY..XY)\r\n",
        ("##TITLE=f\r\n##NTUPLES=NMR\r\n##SYMBOL=X,R,I\r\n##VAR_DIM=16,16,16\r\n##FIRST=0,0,0\r\n##LAST=15,0,0\r\n"
         "##PAGE=N=1\r\n##DATA TABLE=(X++(R..R)), XYDATA\r\n"),
    };
    std::string bytes(reinterpret_cast<const char*>(data), size);
    bytes.insert(1, Fronts[(data[0] >> 3) & 3]);
    kestro::fuzzing::runThroughDriver(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), "in.jdx",
                                      [](kestro::Session& form, unsigned) { form.boxes.ModernRead = true; });
    return 0;
}
