// Reader of Bruker SPX and generic XML files: not built yet, the stub says so plainly.
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

[[noreturn]] void notAvailable(const char* format) {
    raise(err::NotAvailable, std::string("The ") + format + " input format is not available yet");
}

}  // namespace

void ConvFileXML(Session&, std::string&) { notAvailable("Bruker SPX"); }
void ConvFileG_XML(Session&, std::string&) { notAvailable("generic XML"); }

}  // namespace kestro
