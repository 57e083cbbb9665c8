// Arbitrary bytes as a Genie2K CNF file, with each command-line switch.
#include "fuzz/FuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kestro::fuzzing::runThroughDriver(data, size, "in.cnf", [](kestro::Session& form, unsigned choice) {
        static const char* const switches[] = {"", "/noTime", "/t", "/d", "/debug /time", "/time", "/deb", ""};
        form.commandLine = switches[choice & 7];
        if (choice & 8) form.sharedRealTime = kestro::Value::ofDouble(-2.5);
    });
    return 0;
}
