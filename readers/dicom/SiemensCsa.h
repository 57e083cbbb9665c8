#pragma once
// Siemens CSA headers: the private DICOM values (0029,xx10) and (0029,xx20)
// in which Siemens scanners keep a list of named elements, each with a few
// text items. Both layouts are read: the newer one starts with "SV10" and
// four more bytes, the older one with the element count directly. All
// numbers are little-endian, whatever the file's own byte order.
#include <string>
#include <string_view>

namespace kestro {

struct CsaItem {
    bool found = false;
    std::string text;     // the first item that is not blank, blanks and the trailing zero bytes cut
    std::string problem;  // why the header could not be read up to that element; "" when it could
};

// The first non-blank item of the element called `name` (not found when the
// header has no such element, or the element only blank items).
CsaItem findCsaItem(std::string_view header, std::string_view name);

}  // namespace kestro
