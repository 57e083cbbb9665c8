// Modern readers still to come: until each lands, the classic reader reads.
#include "readers/Readers.h"

namespace kestro {

void ConvCnfFileModern(Session& form, std::string& fileName) { ConvFile(form, fileName); }
void ConvMpaFileModern(Session& form, std::string& fileName, const std::string& shownName) {
    ConvMpaFile(form, fileName, shownName);
}

}  // namespace kestro
