// Reader of SpecTech SPU files: not built yet, the stub says so plainly.
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

[[noreturn]] void notAvailable(const char* format) {
    raise(err::NotAvailable, std::string("The ") + format + " input format is not available yet");
}

}  // namespace

void ConvSpec(Session&, std::string&) { notAvailable("SpecTech SPU"); }

}  // namespace kestro
