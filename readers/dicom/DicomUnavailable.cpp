// The DICOM reader in a build without DCMTK (the web page): the file is
// refused with a message that sends it to the desktop program.
#include "readers/Readers.h"
#include "core/Session.h"

namespace kestro {

void ConvFileDICoM(Session& form, std::string& fileName) {
    (void)fileName;
    form.host().messageBox("DICOM files need the desktop program: this version of Kestro cannot read them.",
                           BoxIcon::Critical, BoxButtons::Ok);
}

}  // namespace kestro
