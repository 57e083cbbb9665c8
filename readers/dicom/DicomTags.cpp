// The "DICOM.tags" dictionary: DCMTK's data-dictionary lines, one entry a
// line, fields separated by tabs: tag, VR, name, VM and an optional version.
// Tags are "(gggg,eeee)", ranges "(gggg-gggg,eeee)" (even numbers),
// "-o-" (odd) or "-u-" (any), private ones "(gggg,"creator",ee)".
#include "readers/dicom/DicomTags.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctag.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <charconv>
#include <memory>
#include <optional>
#include <string_view>

#include "core/Host.h"
#include "core/runtime/Files.h"

namespace kestro {

namespace {

std::string_view trimmed(std::string_view s) {
    const size_t first = s.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

std::vector<std::string_view> tabFields(std::string_view line) {
    std::vector<std::string_view> fields;
    for (size_t start = 0;;) {
        const size_t tab = line.find('\t', start);
        fields.push_back(trimmed(line.substr(start, tab - start)));
        if (tab == std::string_view::npos) return fields;
        start = tab + 1;
    }
}

std::optional<uint16_t> hexNumber(std::string_view s) {
    s = trimmed(s);
    unsigned value = 0;
    if (s.empty() || s.size() > 4) return std::nullopt;
    auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value, 16);
    if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
    return static_cast<uint16_t>(value);
}

// "gggg", "gggg-gggg", "gggg-o-gggg", "gggg-e-gggg" or "gggg-u-gggg".
std::optional<DicomNumberRange> numberRange(std::string_view s) {
    const size_t dash = s.find('-');
    if (dash == std::string_view::npos) {
        const auto n = hexNumber(s);
        if (!n) return std::nullopt;
        return DicomNumberRange{*n, *n, 'u'};
    }
    std::string_view rest = s.substr(dash + 1);
    char parity = 'e';
    if (rest.size() > 2 && rest[1] == '-') {
        parity = rest[0];
        if (parity != 'o' && parity != 'e' && parity != 'u') return std::nullopt;
        rest.remove_prefix(2);
    }
    const auto first = hexNumber(s.substr(0, dash));
    const auto last = hexNumber(rest);
    if (!first || !last || *first > *last) return std::nullopt;
    return DicomNumberRange{*first, *last, parity};
}

struct ParsedTag {
    DicomNumberRange group, element;
    bool isPrivate = false;
    std::string creator;
};

std::optional<ParsedTag> parseTag(std::string_view s) {
    if (s.size() < 5 || s.front() != '(' || s.back() != ')') return std::nullopt;
    s = s.substr(1, s.size() - 2);
    const size_t comma = s.find(',');
    if (comma == std::string_view::npos) return std::nullopt;
    ParsedTag tag;
    std::string_view elementPart = s.substr(comma + 1);
    if (!elementPart.empty() && elementPart.front() == '"') {
        const size_t close = elementPart.find('"', 1);
        if (close == std::string_view::npos || elementPart.substr(close + 1, 1) != ",") return std::nullopt;
        tag.isPrivate = true;
        tag.creator = std::string(elementPart.substr(1, close - 1));
        elementPart.remove_prefix(close + 2);
    }
    const auto group = numberRange(s.substr(0, comma));
    const auto element = numberRange(elementPart);
    if (!group || !element || (tag.isPrivate && element->last > 0xFF)) return std::nullopt;
    tag.group = *group;
    tag.element = *element;
    return tag;
}

bool knownVr(std::string_view vr) {
    return vr.size() == 2 && DcmVR(std::string(vr).c_str()).getEVR() != EVR_UNKNOWN;
}

uint32_t tagKey(uint16_t group, uint16_t element) { return uint32_t{group} << 16 | element; }

}  // namespace

bool DicomNumberRange::contains(uint16_t n) const {
    if (n < first || n > last) return false;
    return parity == 'u' || (n % 2 == 0) == (parity == 'e');
}

bool DicomTagTable::addLine(std::string_view line) {
    const std::vector<std::string_view> fields = tabFields(line);
    if (fields.size() < 4 || fields.size() > 5 || fields[2].empty() || fields[3].empty() || !knownVr(fields[1]))
        return false;
    const auto tag = parseTag(fields[0]);
    if (!tag) return false;
    std::string name(fields[2]);
    const bool single = tag->group.first == tag->group.last && tag->element.first == tag->element.last;
    if (single && tag->isPrivate)
        privates_[{tag->group.first, tag->creator, static_cast<uint8_t>(tag->element.first)}] = std::move(name);
    else if (single)
        exact_[tagKey(tag->group.first, tag->element.first)] = std::move(name);
    else
        ranges_.push_back({tag->group, tag->element, tag->isPrivate, tag->creator, std::move(name)});
    return true;
}

DicomTagTable DicomTagTable::parse(const std::string& text) {
    DicomTagTable table;
    int64_t number = 0;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        const std::string_view line(text.data() + start, end - start);
        start = end + 1;
        ++number;
        const std::string_view content = trimmed(line);
        if (content.empty() || content.front() == '#') continue;
        if (!table.addLine(line)) table.malformed.push_back({number, std::string(content)});
    }
    return table;
}

const std::string* DicomTagTable::nameOf(uint16_t group, uint16_t element, const std::string& privateCreator) const {
    // A private element (gggg,xxee) belongs to the block its creator (gggg,00xx) reserved.
    const bool inPrivateBlock = group % 2 == 1 && element >= 0x1000 && !privateCreator.empty();
    if (inPrivateBlock) {
        auto found = privates_.find({group, privateCreator, static_cast<uint8_t>(element & 0xFF)});
        if (found != privates_.end()) return &found->second;
    } else if (auto found = exact_.find(tagKey(group, element)); found != exact_.end()) {
        return &found->second;
    }
    for (auto entry = ranges_.rbegin(); entry != ranges_.rend(); ++entry) {
        if (entry->isPrivate != inPrivateBlock || !entry->group.contains(group)) continue;
        if (inPrivateBlock ? entry->creator == privateCreator && entry->element.contains(element & 0xFF)
                           : entry->element.contains(element))
            return &entry->name;
    }
    return nullptr;
}

const std::string& DicomTagTable::listedName(DcmTag& tag) const {
    const char* creatorText = tag.getPrivateCreator();
    const std::string creator = creatorText ? creatorText : "";
    const uint32_t key = tagKey(tag.getGTag(), tag.getETag());
    std::string* name = creator.empty() ? &listedPublic_[key] : &listedPrivate_[{key, creator}];
    if (name->empty()) {
        const char* known = nullptr;
        if (const std::string* own = nameOf(tag.getGTag(), tag.getETag(), creator)) *name = *own;
        else if ((known = tag.getTagName()) && std::string_view(known) != DcmTag_ERROR_TagName) *name = known;
        else *name = "Unknown";
    }
    return *name;
}

namespace {

bool sameFile(const DicomTagTable& table, bool exists, uintmax_t size, std::filesystem::file_time_type modified) {
    return table.exists == exists && (!exists || (table.size == size && table.modified == modified));
}

void reportMalformed(Session& form, DicomTagTable& table) {
    if (table.malformed.empty() || table.reportedInRun == form.runNumber) return;
    table.reportedInRun = form.runNumber;
    std::string text = std::string(DicomTagsFile) + ": these lines are not tag definitions and are ignored:";
    constexpr size_t Shown = 10;
    for (size_t i = 0; i < table.malformed.size() && i < Shown; ++i)
        text += "\nline " + std::to_string(table.malformed[i].number) + ": " + table.malformed[i].text;
    if (table.malformed.size() > Shown)
        text += "\n(and " + std::to_string(table.malformed.size() - Shown) + " more)";
    form.host().messageBox(text, BoxIcon::Exclamation, BoxButtons::Ok);
}

}  // namespace

const DicomTagTable& currentDicomTags(Session& form) {
    std::error_code ec;
    const bool exists = std::filesystem::is_regular_file(DicomTagsFile, ec);
    const uintmax_t size = exists ? std::filesystem::file_size(DicomTagsFile, ec) : 0;
    const auto modified = exists ? std::filesystem::last_write_time(DicomTagsFile, ec) : std::filesystem::file_time_type();
    if (!form.dicomTags || !sameFile(*form.dicomTags, exists, size, modified)) {
        auto table = std::make_shared<DicomTagTable>(exists ? DicomTagTable::parse(readWholeFile(DicomTagsFile))
                                                            : DicomTagTable());
        table->exists = exists;
        table->size = size;
        table->modified = modified;
        form.dicomTags = std::move(table);
    }
    reportMalformed(form, *form.dicomTags);
    return *form.dicomTags;
}

}  // namespace kestro
