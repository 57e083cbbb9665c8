// Arbitrary bytes as a DICOM file; when choice bit 0 is set, the same bytes
// are also the folder's "DICOM.tags", so the dictionary lines get read too.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string tags = std::string(kestro::fuzzing::workFolder()) + "/DICOM.tags";
    kestro::fuzzing::runThroughDriver(data, size, "in.dcm", [&](kestro::Session&, unsigned choice) {
        std::remove(tags.c_str());
        if ((choice & 1) == 0) return;
        if (std::FILE* f = std::fopen(tags.c_str(), "wb")) {
            std::fwrite(data + 1, 1, size - 1, f);
            std::fclose(f);
        }
    });
    return 0;
}
