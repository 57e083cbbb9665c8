#pragma once
// What the modern readers of spectroscopy files share: the names of their
// ".odf" files when one input holds several data sets, and how they turn a
// file down.
#include <cstddef>
#include <string>

#include "core/Session.h"
#include "core/runtime/TextOutput.h"

namespace kestro::modern {

// stem + ".odf" for an input of one data set; stem + "_1.odf", "_2.odf", ...
// (index from 0) when it holds more.
std::string odfName(const std::string& stem, size_t index, size_t count);

// An input the reader cannot convert: the text goes to the header listing
// (when one is open) and into a critical message box. No ".odf" is written,
// so the plot is unticked, as the classic readers do on a failed file.
void refuse(Session& form, TextWriter* header, const std::string& text);

}  // namespace kestro::modern
