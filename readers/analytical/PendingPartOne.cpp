// Formats still to come in this family.
#include "readers/Pending.h"
#include "readers/Readers.h"

namespace kestro {

void ConvFileSPA(Session&, std::string&) { notAvailable("Thermo SPA"); }
void ConvFileSPC(Session&, std::string&) { notAvailable("Galactic SPC"); }
void ConvFileGAML(Session&, std::string&) { notAvailable("GAML"); }

}  // namespace kestro
