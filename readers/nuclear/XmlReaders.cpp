// Bruker/AXS SDD spectra (".spx") and generic XML data blocks (".xml"). No
// XML parsing: both scan for fixed tag texts, as these files have always
// been read, so indentation and line layout decide what is found.
#include <algorithm>
#include <string>
#include <string_view>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"
#include "readers/nuclear/SpxHeader.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int ResultFile = 2;
constexpr size_t npos = std::string_view::npos;

// `length` characters from the 1-based `start`; a negative length is the
// "Invalid procedure call" error, as it always was.
std::string_view mid(std::string_view text, int64_t start, int64_t length) {
    if (length < 0) raise(err::InvalidCall);
    const size_t from = std::min(static_cast<size_t>(start - 1), text.size());
    return text.substr(from, static_cast<size_t>(length));
}

// ---- Bruker SPX ----

// The class name is the one this reader has always required.
constexpr std::string_view SpectrumTag = "<ClassInstance Type=\"XXXSpectrum\" Name=\"";

// The fixed lengths assume an element alone on its line; an indented one
// gives text that runs into the closing tag, which the leading-number rule
// ignores.
double numberAfterTag(std::string_view line, size_t at, size_t tagLength, int64_t tagsLength) {
    const int64_t start = static_cast<int64_t>(at + tagLength) + 1;
    return leadingNumber(mid(line, start, static_cast<int64_t>(line.size()) - tagsLength));
}

// The text between a 6-character tag and the last 7 characters of the line.
std::string_view textAfterTag(std::string_view line, size_t at) {
    const int64_t pos = static_cast<int64_t>(at) + 1;
    return mid(line, pos + 6, static_cast<int64_t>(line.size()) - pos - 12);
}

// "15.11.2019" reads as "15-11-2019": the first two "." become "-".
std::string dashedDate(std::string_view text) {
    std::string date(text);
    size_t at = 0;
    for (int k = 0; k < 2 && (at = date.find('.', at)) != std::string::npos; ++k) date[at] = '-';
    return date;
}

// Reads lines up to and including the one that holds "<Channels>" (or to the
// end); returns the last line read.
std::string_view scanSpxHeader(Session& form, TextReader& in, SpxHeader& h) {
    std::string_view line;
    while (!in.eof()) {
        line = in.lineInput();
        takeSpxTag(form, line, h);
        if (line.find("<Channels>") != npos) break;
    }
    return line;
}

// Puts the text at the byte offset of the output, over what is there; a gap
// past the end reads as zero bytes, as a file written past its end does.
void overwriteAt(std::string& out, size_t offset, std::string_view text) {
    if (out.size() < offset + text.size()) out.resize(offset + text.size(), '\0');
    std::copy(text.begin(), text.end(), out.begin() + static_cast<std::ptrdiff_t>(offset));
}

// The ".dat" output carries the times in its first two fields, written over
// them without their last character. The real time's padding depends on the
// live time's text: an asymmetry kept as it always was.
void patchTimesIntoBlock(std::string& out, int32_t liveTime, int32_t realTime) {
    const int64_t liveLength = static_cast<int64_t>(signedText(liveTime).size());
    overwriteAt(out, 0, spaces(8 - liveLength) + plainText(liveTime));
    const int64_t realPadding = liveLength < 8 ? 8 - static_cast<int64_t>(signedText(realTime).size()) : 0;
    overwriteAt(out, 8, spaces(realPadding) + plainText(realTime));
}

// ---- generic XML ----

// A field: blanks skipped, then the text up to the next comma or line end,
// which is taken too.
std::string_view readTextField(TextReader& in) {
    const std::string_view data = in.bytes();
    size_t at = static_cast<size_t>(in.position() - 1);
    while (at < data.size() && (data[at] == ' ' || data[at] == '\t')) ++at;
    if (at >= data.size()) raise(err::InputPastEnd);
    const size_t end = std::min(data.find_first_of(",\r\n", at), data.size());
    size_t next = end;
    if (next < data.size()) next += data.compare(next, 2, "\r\n") == 0 ? 2 : 1;
    in.seek(static_cast<int64_t>(next) + 1);
    return data.substr(at, end - at);
}

// "<X>1.5</X>" gives "1.5": the field less its first 3 and last 4 characters.
std::string_view elementValue(std::string_view field) { return mid(field, 4, static_cast<int64_t>(field.size()) - 7); }

}  // namespace

// Only the first tag found, in this order, counts for a line.
void takeSpxTag(Session& form, std::string_view line, SpxHeader& h) {
    size_t at = npos;
    auto holds = [&](std::string_view tag) { return (at = line.find(tag)) != npos; };
    if (holds(SpectrumTag)) {
        const std::string_view rest = line.substr(at + SpectrumTag.size());
        h.id = mid(rest, 1, static_cast<int64_t>(rest.size()) - 2);
    } else if (holds("<RealTime>")) {
        h.realTime = roundToInt32(numberAfterTag(line, at, 10, 21));
        form.sharedRealTime = Value::ofInteger(h.realTime);
    } else if (holds("<LifeTime>")) {
        h.liveTime = roundToInt32(numberAfterTag(line, at, 10, 21));
    } else if (holds("<Date>")) {
        h.date = dashedDate(textAfterTag(line, at));
    } else if (holds("<Time>")) {
        h.time = textAfterTag(line, at);
    } else if (holds("<ChannelCount>")) {
        h.channels = roundToInt32(numberAfterTag(line, at, 14, 29));
    } else if (holds("<CalibAbs>")) {
        form.CalibOff = numberAfterTag(line, at, 10, 21);
    } else if (holds("<CalibLin>")) {
        form.CalibLin = numberAfterTag(line, at, 10, 21);
    }
}

void writeSpxHeader(Session& form, TextWriter& out, const SpxHeader& h) {
    if (form.boxes.SPE) {
        const DateTimeTexts when{formatText(h.date, "dd-mm-yyyy"), formatText(h.time, "hh:mm:ss")};
        writeSpeHeader(out,
                       {h.id, when, Value::ofInteger(h.liveTime), Value::ofInteger(h.realTime), int64_t{h.channels} - 1},
                       TimePadding::Strict);
    } else if (form.boxes.SPO) {
        writeSpoHeader(out, h.channels);
    }
}

void ConvFileXML(Session& form, std::string& fileName) {
    TextReader& in = form.files.openInput(InputFile, fileName);
    const std::string outputPath = spectrumOutputPath(form, fileName);
    TextWriter& out = form.files.openOutput(ResultFile, outputPath);
    fileName = outputPath;

    SpxHeader header;
    const std::string_view line = scanSpxHeader(form, in, header);
    writeSpxHeader(form, out, header);

    // Back to just after the tag: the line starts its length and a CR LF
    // before the current position.
    const size_t tagAt = line.find("<Channels>");
    const int64_t tagPosition = tagAt == npos ? 0 : static_cast<int64_t>(tagAt) + 1;
    const int64_t lineStart = in.position() - 2 - static_cast<int64_t>(line.size());
    in.seek(lineStart + (tagPosition - 1) + 10);
    // A list that runs on past its line is read with one field dropped before
    // every value: kept as it always was.
    const bool listEndsOnLine = line.find("</Channels>") != npos;

    const bool datOutput = !form.boxes.SPE && !form.boxes.SPO;
    DataBlock block(out.buffer());
    for (int64_t i = 1; i <= header.channels; ++i) {
        if (!listEndsOnLine) {
            bool quoted;
            in.listField(quoted);
        }
        block.count(roundToInt32(in.listInputNumber()));
        if (!datOutput) out.flushIfFull();  // the ".dat" start is patched below, so it stays in memory
    }
    if (datOutput) patchTimesIntoBlock(out.buffer(), header.liveTime, header.realTime);
    form.files.close(ResultFile);
    form.files.close(InputFile);
}

void ConvFileG_XML(Session& form, std::string& fileName) {
    TextReader& in = form.files.openInput(InputFile, fileName);
    const std::string outputPath = dropLast(fileName, 4) + ".odf";
    TextWriter& out = form.files.openOutput(ResultFile, outputPath);
    fileName = outputPath;

    while (!in.eof() && readTextField(in) != "<DataBlock>") {
    }
    while (!in.eof()) {
        const std::string_view field = readTextField(in);
        if (field == "</DataBlock>") break;
        if (field != "<Data>") continue;
        const std::string_view x = elementValue(readTextField(in));
        const std::string_view y = elementValue(readTextField(in));
        readTextField(in);
        out.text(x).text(" ").text(y).endLine();
        out.flushIfFull();
    }
    form.files.close(ResultFile);
    form.files.close(InputFile);
}

}  // namespace kestro
