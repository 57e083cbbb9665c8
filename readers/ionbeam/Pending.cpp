// Formats still to come in this family.
#include "readers/Pending.h"
#include "readers/Readers.h"

namespace kestro {

void ConvOMDAQ(Session&, std::string&) { notAvailable("OMDAQ"); }
void Conv2OMDAQ(Session&, std::string&) { notAvailable("OMDAQ output"); }
void ExtrCSV(Session&, std::string&) { notAvailable("CSV"); }
void ConvEVT(Session&, std::string&) { notAvailable("EVT event list"); }

}  // namespace kestro
