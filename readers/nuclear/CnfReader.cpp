// Reader of Genie2K CNF files: not built yet, the stub says so plainly.
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

[[noreturn]] void notAvailable(const char* format) {
    raise(err::NotAvailable, std::string("The ") + format + " input format is not available yet");
}

}  // namespace

void ConvFile(Session&, std::string&) { notAvailable("Genie2K CNF"); }

}  // namespace kestro
