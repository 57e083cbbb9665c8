// Reader of FastComtec MPA files: not built yet, the stub says so plainly.
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

[[noreturn]] void notAvailable(const char* format) {
    raise(err::NotAvailable, std::string("The ") + format + " input format is not available yet");
}

}  // namespace

void ConvMpaFile(Session&, std::string&, const std::string&) { notAvailable("FastComtec MPA"); }

}  // namespace kestro
