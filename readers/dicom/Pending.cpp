// Formats still to come in this family.
#include "readers/Pending.h"
#include "readers/Readers.h"

namespace kestro {

void ConvFileDICoM(Session&, std::string&) { notAvailable("DICOM"); }

}  // namespace kestro
