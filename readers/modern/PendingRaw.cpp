// Modern readers still to come: until each lands, the classic reader reads.
#include "readers/Readers.h"

namespace kestro {

void ConvAXSrawModern(Session& form, std::string& fileName) { ConvAXSraw(form, fileName); }

}  // namespace kestro
