// Formats still to come in this family.
#include "readers/Pending.h"
#include "readers/Readers.h"

namespace kestro {

void ConvAXSraw(Session&, std::string&) { notAvailable("Bruker/AXS RAW"); }
void ConvPANrd(Session&, std::string&) { notAvailable("PANalytical RD"); }

}  // namespace kestro
