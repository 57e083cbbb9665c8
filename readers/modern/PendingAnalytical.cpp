// Modern readers still to come: until each lands, the classic reader reads.
#include "readers/Readers.h"

namespace kestro {

void ConvFileSPAModern(Session& form, std::string& fileName) { ConvFileSPA(form, fileName); }
void ConvFileSPCModern(Session& form, std::string& fileName) { ConvFileSPC(form, fileName); }
void ConvFileGAMLModern(Session& form, std::string& fileName) { ConvFileGAML(form, fileName); }

}  // namespace kestro
