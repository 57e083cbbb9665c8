#pragma once
// "DICOM.tags": a lab's own names for DICOM tags (its private ones above
// all), in the text format of DCMTK's data dictionary. Read from the current
// folder; the names it gives come before DCMTK's own.
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "core/Session.h"

class DcmTag;

namespace kestro {

// Inclusive range of group or element numbers; `parity` 'e' even only,
// 'o' odd only, 'u' any, as the dictionary format writes ranges.
struct DicomNumberRange {
    uint16_t first = 0;
    uint16_t last = 0;
    char parity = 'u';
    bool contains(uint16_t n) const;
};

struct DicomTagTable {
    // The names a dictionary text gives; lines it cannot read are kept in
    // `malformed`, the rest is used.
    static DicomTagTable parse(const std::string& text);

    // The name for a tag, or nullptr; `privateCreator` is the creator of a
    // private element's block ("" when there is none).
    const std::string* nameOf(uint16_t group, uint16_t element, const std::string& privateCreator) const;

    // The name an element's tag is listed by: this table's, else DCMTK's
    // dictionary's, else "Unknown". Remembered, as a batch meets the same
    // tags in every file.
    const std::string& listedName(DcmTag& tag) const;

    struct Line {
        int64_t number;
        std::string text;
    };
    std::vector<Line> malformed;

    // Which file this is, to read it again when it changes.
    bool exists = false;
    uintmax_t size = 0;
    std::filesystem::file_time_type modified;
    int64_t reportedInRun = 0;

private:
    struct RangeEntry {
        DicomNumberRange group, element;  // a private entry's element: the low byte
        bool isPrivate;
        std::string creator;
        std::string name;
    };
    using PrivateKey = std::tuple<uint16_t, std::string, uint8_t>;  // group, creator, element's low byte
    bool addLine(std::string_view line);
    std::unordered_map<uint32_t, std::string> exact_;
    std::map<PrivateKey, std::string> privates_;
    std::vector<RangeEntry> ranges_;  // later lines override earlier ones
    mutable std::unordered_map<uint32_t, std::string> listedPublic_;
    mutable std::map<std::pair<uint32_t, std::string>, std::string> listedPrivate_;
};

inline constexpr const char* DicomTagsFile = "DICOM.tags";

// The table of "DICOM.tags" in the current folder (empty when there is
// none), read again only when the file changed; its unreadable lines are
// shown once a run, in an exclamation box.
const DicomTagTable& currentDicomTags(Session& form);

}  // namespace kestro
