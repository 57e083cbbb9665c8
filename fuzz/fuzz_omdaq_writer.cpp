// Arbitrary bytes as a two-column file written out as an OMDAQ file, which
// is then read back through the OMDAQ reader.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kestro;
    const std::string written = std::string(fuzzing::workFolder()) + "/in._";
    std::remove(written.c_str());
    fuzzing::runThroughDriver(data, size, "in.odf", [](Session& form, unsigned) { form.boxes.cOMDAQ = true; });
    fuzzing::QuietHost host;
    Session form(host);
    formLoad(form);
    form.boxes.SPE = size && (data[0] & 1);
    form.addToQueue("in._", written);
    form.replaceInPlace = true;
    RunCode_Click(form);
    return 0;
}
