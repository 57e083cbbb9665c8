// Reader of Canberra multichannel-analyser dumps: not built yet, the stub says so plainly.
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

[[noreturn]] void notAvailable(const char* format) {
    raise(err::NotAvailable, std::string("The ") + format + " input format is not available yet");
}

}  // namespace

void ConvFileOld(Session&, std::string&) { notAvailable("Canberra MCA .bin"); }
void ConvS100File(Session&, std::string&) { notAvailable("Canberra S-100 .mca"); }
void ConvS35sFile(Session&, std::string&) { notAvailable("Canberra 35/40 .mca"); }

}  // namespace kestro
