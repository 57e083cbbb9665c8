// Formats Kestro does not read yet.
#include "readers/Pending.h"

#include <string>

#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

void notAvailable(const char* format) {
    raise(err::NotAvailable, std::string("The ") + format + " input format is not available yet");
}

void ConvDXP(Session&, std::string&) { notAvailable("DXP"); }
void Conv2DXP(Session&, std::string&) { notAvailable("DXP output"); }

}  // namespace kestro
