// Siemens spectroscopy with Modern readers ticked: the fuzz bytes become the
// CSA header and the complex points of a DICOM file that is otherwise well
// formed, so every run reaches the CSA reading. `choice` bit 0: the bytes are
// split into a DataPointColumns text and the points, inside a valid header;
// bit 1: the raw header starts with "SV10"; bit 2: it is the series header.
#include <cstring>

#include "fuzz/FuzzHarness.h"

namespace {

std::string le16(uint16_t v) { return {char(v & 0xFF), char(v >> 8)}; }
std::string le32(uint32_t v) { return le16(uint16_t(v)) + le16(uint16_t(v >> 16)); }

std::string shortElement(uint16_t group, uint16_t element, const char* vr, std::string value) {
    if (value.size() % 2) value += ' ';
    return le16(group) + le16(element) + vr + le16(uint16_t(value.size())) + value;
}

std::string longElement(uint16_t group, uint16_t element, std::string value) {
    if (value.size() % 2) value += '\0';
    return le16(group) + le16(element) + "OB" + std::string(2, '\0') + le32(uint32_t(value.size())) + value;
}

// A header of the "SV10" layout with one element of one item.
std::string oneElementHeader(const std::string& name, const std::string& text) {
    std::string field = name;
    field.resize(64, '\0');
    const auto n = uint32_t(text.size());
    return "SV10" + std::string("\4\3\2\1", 4) + le32(1) + le32(77) + field + le32(1) + std::string("IS\0\0", 4) +
           le32(6) + le32(1) + le32(77) + le32(n) + le32(n) + le32(77) + le32(n) + text +
           std::string((4 - n % 4) % 4, '\0');
}

std::string dicomFile(const std::string& header, bool series, const std::string& points) {
    const std::string syntax("1.2.840.10008.1.2.1\0", 20);
    std::string file(128, '\0');
    file += "DICM";
    file += shortElement(0x0002, 0x0000, "UL", le32(uint32_t(8 + syntax.size())));
    file += shortElement(0x0002, 0x0010, "UI", syntax);
    file += shortElement(0x0029, 0x0011, "LO", "SIEMENS CSA HEADER");
    file += longElement(0x0029, series ? 0x1120 : 0x1110, header);
    file += shortElement(0x7FE1, 0x0010, "LO", "SIEMENS CSA NON-IMAGE");
    file += longElement(0x7FE1, 0x1010, points);
    return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const unsigned choice = data[0] >> 3;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::string file;
    if (choice & 1) {
        const size_t cut = std::min<size_t>(bytes.size(), 12);
        file = dicomFile(oneElementHeader("DataPointColumns", bytes.substr(0, cut)), choice & 4, bytes.substr(cut));
    } else {
        file = dicomFile((choice & 2 ? "SV10" : "") + bytes, choice & 4, std::string(64, '\1'));
    }
    const std::string input = std::string(1, char(data[0])) + file;
    kestro::fuzzing::runThroughDriver(reinterpret_cast<const uint8_t*>(input.data()), input.size(), "in.dcm",
                                      [](kestro::Session& form, unsigned) { form.boxes.ModernRead = true; });
    return 0;
}
