#include "readers/modern/ModernOutputs.h"

namespace kestro::modern {

std::string odfName(const std::string& stem, size_t index, size_t count) {
    if (count <= 1) return stem + ".odf";
    return stem + "_" + std::to_string(index + 1) + ".odf";
}

void refuse(Session& form, TextWriter* header, const std::string& text) {
    if (header) header->text(text).endLine();
    form.host().messageBox(text, BoxIcon::Critical, BoxButtons::Ok);
    form.changeBoxes([](Boxes& b) { b.DsGr = false; });
}

}  // namespace kestro::modern
