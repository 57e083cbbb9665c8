// Formats still to come in this family.
#include "readers/Pending.h"
#include "readers/Readers.h"

namespace kestro {

void ConvShim_SPCbin(Session&, std::string&) { notAvailable("Shimadzu SPC"); }
void ConvShim_PHObin(Session&, std::string&) { notAvailable("Shimadzu PHO"); }
void ConvFileJCAMP(Session&, std::string&) { notAvailable("JCAMP-DX"); }
void ConvATA_b(Session&, std::string&) { notAvailable("TA Instruments"); }

}  // namespace kestro
