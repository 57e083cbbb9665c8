// Bruker SPX spectra read for what they hold, long acquisitions included:
// the header elements as the classic reader takes them, with the live and
// real times turned from the milliseconds the file stores into whole
// seconds, and the first <Channels> list read value by value, whatever its
// line ends and however it is wrapped, for exactly <ChannelCount> counts.
// The times then take channels 0 and 1 of the ".dat" and the SPO as whole
// counts of their own, so no text of 8 digits or more runs into the next.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"
#include "readers/nuclear/SpxHeader.h"

namespace kestro {

namespace {

constexpr size_t npos = std::string_view::npos;
constexpr std::string_view ListTag = "<Channels>";

bool isLineEnd(char c) { return c == '\r' || c == '\n'; }
bool isSpace(char c) { return c == ' ' || c == '\t' || isLineEnd(c); }

// The header lines up to and including the one that holds the list's tag,
// ended by CR, LF or CR LF alike.
void scanHeader(Session& form, std::string_view text, size_t listAt, SpxHeader& h) {
    size_t start = 0;
    while (start <= listAt) {
        size_t end = start;
        while (end < text.size() && !isLineEnd(text[end])) ++end;
        takeSpxTag(form, text.substr(start, end - start), h);
        if (end < text.size() && text[end] == '\r') ++end;
        if (end < text.size() && text[end] == '\n') ++end;
        if (end == start) break;  // the end of the text
        start = end;
    }
}

// Up to `wanted` counts separated by commas, blanks and line ends; the list
// ends at the next tag or at the end of the text. An empty field between
// two commas is a count of 0.
std::vector<int32_t> readCounts(std::string_view text, size_t at, size_t wanted) {
    std::vector<int32_t> counts;
    counts.reserve(std::min(wanted, (text.size() - at) / 2 + 1));  // a count takes two bytes at least
    auto skipSpaces = [&] {
        while (at < text.size() && isSpace(text[at])) ++at;
    };
    while (counts.size() < wanted) {
        skipSpaces();
        if (at >= text.size() || text[at] == '<') break;
        size_t end = at;
        while (end < text.size() && text[end] != ',' && text[end] != '<' && !isSpace(text[end])) ++end;
        counts.push_back(roundToInt32(leadingNumber(text.substr(at, end - at))));
        at = end;
        skipSpaces();
        if (at < text.size() && text[at] == ',') ++at;
    }
    return counts;
}

// Milliseconds to whole seconds, half to even.
int32_t seconds(int32_t milliseconds) { return roundToInt32(milliseconds / 1000.0); }

}  // namespace

void ConvFileXMLModern(Session& form, std::string& fileName) {
    const std::string_view text = form.files.openInput(1, fileName).bytes();
    const size_t listAt = text.find(ListTag);
    if (listAt == npos) raise(err::BadFileFormat, "Invalid file format: no <Channels> list in this SPX file");
    SpxHeader h;
    scanHeader(form, text, listAt, h);
    if (h.channels < 1) raise(err::BadFileFormat, "Invalid file format: no <ChannelCount> in this SPX file");
    std::vector<int32_t> counts = readCounts(text, listAt + ListTag.size(), static_cast<size_t>(h.channels));
    if (counts.size() < static_cast<size_t>(h.channels))
        raise(err::BadFileFormat, "Invalid file format: the <Channels> list of this SPX file holds fewer than " +
                                      plainText(int64_t{h.channels}) + " counts");

    h.liveTime = seconds(h.liveTime);
    h.realTime = seconds(h.realTime);
    form.sharedRealTime = Value::ofInteger(h.realTime);
    // The SPE shows the times in its header and its counts as they are.
    if (!form.boxes.SPE) {
        counts[0] = h.liveTime;
        if (counts.size() > 1) counts[1] = h.realTime;
    }

    fileName = spectrumOutputPath(form, fileName);
    TextWriter& out = form.files.openOutput(2, fileName);
    writeSpxHeader(form, out, h);
    DataBlock block(out.buffer());
    for (int32_t c : counts) {
        block.count(c);
        out.flushIfFull();
    }
    form.files.close(2);
    form.files.close(1);
}

}  // namespace kestro
