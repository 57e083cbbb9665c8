// FastComtec MPA and MP files: a text header, one section per ADC, then the
// spectra. Every active ADC becomes a two-column ".odf" file whose first two
// lines carry its live and real time; the "spe" and "emsa" data formats also
// get a copy of the header text that comes with the spectrum.
#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>

#include "core/runtime/NumberText.h"
#include "readers/Readers.h"
#include "readers/nuclear/MpaReader.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int HeaderFile = 3;

struct FileHeader {
    std::string mpaFormat;  // "mpafmt": the data format of an ".mpa" file
    std::string mpFormat;   // "fmt": the data format of an ".mp" file
    double sephead = 0;     // 1: the spectra are already in files of their own
};

bool startsWith(std::string_view line, std::string_view key) { return line.substr(0, key.size()) == key; }

// The line less its first `count` characters (the key and its "=").
std::string_view valueAfter(std::string_view line, size_t count) { return line.substr(std::min(count, line.size())); }

FileHeader readFileHeader(TextReader& in) {
    FileHeader header;
    for (;;) {
        const std::string_view line = in.lineInput();
        if (startsWith(line, "mpafmt")) header.mpaFormat = valueAfter(line, 7);
        else if (startsWith(line, "sephead")) header.sephead = leadingNumber(valueAfter(line, 8));
        else if (startsWith(line, "fmt")) header.mpFormat = valueAfter(line, 4);
        else if (startsWith(line, "[")) return header;
    }
}

// Reads one section up to the next "[" line; returns that line's length.
size_t readAdcSection(TextReader& in, AdcRecord& adc) {
    for (;;) {
        const std::string_view line = in.lineInput();
        if (startsWith(line, "range")) adc.range = roundToInt16(leadingNumber(valueAfter(line, 6)));
        else if (startsWith(line, "active")) adc.active = roundToInt16(leadingNumber(valueAfter(line, 7)));
        else if (startsWith(line, "realtime")) adc.realTime = leadingNumber(valueAfter(line, 9));
        else if (startsWith(line, "livetime")) adc.liveTime = leadingNumber(valueAfter(line, 9));
        else if (startsWith(line, "[")) return line.size();
    }
}

// The lower-case text after the first "." of the shown name; "a.b.mpa" gives
// "b.mpa", which no rule takes.
std::string lowerExtension(const std::string& shownName) {
    const size_t dot = shownName.find('.');
    std::string extension = dot == std::string::npos ? std::string() : shownName.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

// Channels 2 to range - 1, one list-input value each.
void writeTextValues(TextReader& in, TextWriter& out, const AdcRecord& adc) {
    for (int64_t i = 3; i <= adc.range; ++i) {
        out.item(i - 1).item(in.listInput()).endLine();
        out.flushIfFull();
    }
}

void skipLinesThrough(TextReader& in, std::string_view mark) {
    while (!startsWith(in.lineInput(), mark)) {
    }
}

void readSpeSpectrum(Session& form, TextReader& in, int64_t p, const OutputNames& names, int a, const AdcRecord& adc) {
    in.lineInput();
    TextWriter& header = form.files.openOutput(HeaderFile, names.path(a, ".spe"));
    while (!in.eof()) {
        const std::string_view line = in.lineInput();
        if (startsWith(line, "[")) break;
        header.text(line).endLine();
    }
    form.files.close(HeaderFile);
    TextWriter& out = openDataFile(form, names.path(a, ".odf"), adc);
    in.seek(p);
    in.lineInput();
    skipLinesThrough(in, "$DATA:");
    in.lineInput();  // the channel range
    in.listInput();
    in.listInput();
    writeTextValues(in, out, adc);
    form.files.close(DataFile);
}

void readEmsaSpectrum(Session& form, TextReader& in, int64_t p, const OutputNames& names, int a, const AdcRecord& adc) {
    in.lineInput();
    TextWriter& header = form.files.openOutput(HeaderFile, names.path(a, ".sde"));
    while (!in.eof()) {
        const std::string_view line = in.lineInput();
        header.text(line).endLine();
        if (startsWith(line, "#ENDOFDATA")) break;
    }
    form.files.close(HeaderFile);
    TextWriter& out = openDataFile(form, names.path(a, ".odf"), adc);
    in.seek(p);
    in.lineInput();
    skipLinesThrough(in, "#SPECTRUM");
    in.listInput();
    in.listInput();
    writeTextValues(in, out, adc);
    form.files.close(DataFile);
    in.lineInput();
}

// Unlike "spe" and "emsa", no two values are discarded first: kept as it
// always was.
void readAscSpectrum(Session& form, TextReader& in, const OutputNames& names, int a, const AdcRecord& adc) {
    in.lineInput();
    TextWriter& out = openDataFile(form, names.path(a, ".odf"), adc);
    in.lineInput();
    in.lineInput();
    writeTextValues(in, out, adc);
    form.files.close(DataFile);
}

// Binary counts right after the 15-byte section line ("[DATA0,1024 ]" and
// CR LF). The input is reopened for binary reading and stays so; returns the
// position (from 1) after the counts read.
int64_t readBinarySpectrum(Session& form, const std::string& fileName, int64_t position, const OutputNames& names,
                           int a, const AdcRecord& adc) {
    const int64_t q = position + 15;
    form.files.close(InputFile);
    const BinaryReader& in = form.files.openTextAsBinary(InputFile, fileName);
    TextWriter& out = openDataFile(form, names.path(a, ".odf"), adc);
    for (int64_t i = 3; i <= adc.range; ++i) {
        out.item(i - 1).item(static_cast<int64_t>(in.i32(q - 1 + 4 * (i - 1)))).endLine();
        out.flushIfFull();
    }
    form.files.close(DataFile);
    return q + 4 * std::max<int64_t>(adc.range, 0);
}

}  // namespace

OutputNames outputNames(const std::string& fullName, const std::string& shownName) {
    const size_t slash = fullName.find_last_of("/\\");
    const std::string folder = slash == std::string::npos ? std::string() : fullName.substr(0, slash + 1);
    return {folder, shownName.substr(0, shownName.find('.'))};
}

TextWriter& openDataFile(Session& form, const std::string& path, const AdcRecord& adc) {
    TextWriter& out = form.files.openOutput(DataFile, path);
    out.item(int64_t{0}).item(static_cast<int64_t>(roundToInt32(adc.liveTime))).endLine();
    out.item(int64_t{1}).item(static_cast<int64_t>(roundToInt32(adc.realTime))).endLine();
    return out;
}

void ConvMpaFile(Session& form, std::string& fileName, const std::string& shownName) {
    TextReader& text = form.files.openInput(InputFile, fileName);
    const FileHeader header = readFileHeader(text);

    // An unknown extension, like the sephead message, leaves the input open:
    // kept as it always was.
    const std::string extension = lowerExtension(shownName);
    int lastAdc;
    std::string format;
    if (extension == "mpa") {
        lastAdc = 3;
        format = header.mpaFormat;
        form.changeBoxes([](Boxes& b) { b.DsGr = false; });  // several spectra: nothing to plot
    } else if (extension == "mp") {
        lastAdc = 0;
        format = header.mpFormat;
    } else {
        return;
    }
    if (header.sephead == 1) {
        form.host().messageBox("Spec files already separated...", BoxIcon::None, BoxButtons::Ok);
        return;
    }

    std::array<AdcRecord, 4> adcs{};
    size_t lastLineLength = 0;
    for (int a = 0; a <= lastAdc; ++a) lastLineLength = readAdcSection(text, adcs[static_cast<size_t>(a)]);
    // The spectra start at the "[" line that ended the last section.
    int64_t p = text.position() - static_cast<int64_t>(lastLineLength) - 2;
    text.seek(p);

    const OutputNames names = outputNames(fileName, shownName);
    bool binary = false;
    int64_t binaryPosition = 0;
    for (int a = 0; a <= lastAdc; ++a) {
        const AdcRecord& adc = adcs[static_cast<size_t>(a)];
        if (adc.active != 1) continue;
        if (format == "dat") {
            const int64_t position = binary ? binaryPosition : form.files.input(InputFile).position();
            binaryPosition = readBinarySpectrum(form, fileName, position, names, a, adc);
            binary = true;
            continue;
        }
        TextReader& in = form.files.input(InputFile);
        if (format == "spe") readSpeSpectrum(form, in, p, names, a, adc);
        else if (format == "emsa") readEmsaSpectrum(form, in, p, names, a, adc);
        else if (format == "asc") readAscSpectrum(form, in, names, a, adc);
        else continue;
        p = in.position();
    }
    form.files.close(InputFile);
}

}  // namespace kestro
