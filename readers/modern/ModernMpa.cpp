// FastComtec MPA files as the MPA-3 and MPA-4A system manuals describe their
// data file: a text header of key=value lines ("[MPA4A]" files open with that
// signature line), one [ADCn] section per ADC with its range, active flag,
// real and live time, then one [DATAn,size ] section per spectrum holding
// `size` values, one a line when mpafmt is "asc" or as 32-bit integers right
// after the section line when it is "dat". [CDATn,size ] holds a coincidence
// matrix, which is no spectrum. Any line end is taken.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/TextInput.h"
#include "readers/Readers.h"
#include "readers/nuclear/MpaReader.h"

namespace kestro {

namespace {

// Lines ending in CR LF, LF or CR, over bytes that may hold binary blocks.
class Lines {
public:
    explicit Lines(std::string_view bytes) : bytes_(bytes) {}
    bool next(std::string_view& line) {
        if (pos_ >= bytes_.size()) return false;
        size_t end = pos_;
        while (end < bytes_.size() && bytes_[end] != '\r' && bytes_[end] != '\n') ++end;
        line = bytes_.substr(pos_, end - pos_);
        pos_ = end;
        if (pos_ < bytes_.size() && bytes_[pos_] == '\r') ++pos_;
        if (pos_ < bytes_.size() && bytes_[pos_] == '\n') ++pos_;
        return true;
    }
    size_t position() const { return pos_; }
    void skipBytes(size_t count) { pos_ = std::min(bytes_.size(), pos_ + count); }
    size_t bytesLeft() const { return bytes_.size() - pos_; }

private:
    std::string_view bytes_;
    size_t pos_ = 0;
};

bool startsWith(std::string_view line, std::string_view key) { return line.substr(0, key.size()) == key; }

double valueOf(std::string_view line) { return leadingNumber(line.substr(std::min(line.find('=') + 1, line.size()))); }

struct Spectrum {
    int number = 0;    // n of [DATAn,...]
    int64_t size = 0;  // values held
};

struct FileHeader {
    std::string mpaFormat, mpFormat;
    double sephead = 0;
};

// "[DATA0,8192 ]" gives 0 and 8192. Numbers past any the file could hold
// are cut to a bound it cannot reach.
Spectrum sectionNumbers(std::string_view line) {
    Spectrum s;
    s.number = static_cast<int>(std::clamp(leadingNumber(line.substr(5)), -1.0, 1e6));
    const size_t comma = line.find(',');
    const double declared = comma == std::string_view::npos ? 0 : leadingNumber(line.substr(comma + 1));
    s.size = static_cast<int64_t>(std::clamp(declared, 0.0, 1e15));
    return s;
}

FileHeader readHeader(Lines& lines, std::string_view& line, bool& haveLine) {
    FileHeader header;
    haveLine = lines.next(line);
    if (haveLine && startsWith(line, "[MPA")) haveLine = lines.next(line);  // the signature line
    for (; haveLine && !startsWith(line, "["); haveLine = lines.next(line)) {
        if (startsWith(line, "mpafmt=")) header.mpaFormat = line.substr(7);
        else if (startsWith(line, "fmt=")) header.mpFormat = line.substr(4);
        else if (startsWith(line, "sephead=")) header.sephead = valueOf(line);
    }
    return header;
}

AdcRecord readAdcSection(Lines& lines, std::string_view& line, bool& haveLine) {
    AdcRecord adc;
    while ((haveLine = lines.next(line)) && !startsWith(line, "[")) {
        if (startsWith(line, "realtime=")) adc.realTime = valueOf(line);
        else if (startsWith(line, "livetime=")) adc.liveTime = valueOf(line);
    }
    return adc;
}

// One value a line; whole counts, by far the most common, take the short way.
void writeTextValues(Lines& lines, TextWriter& out, int64_t size) {
    std::string_view line;
    for (int64_t i = 0; i < size; ++i) {
        if (!lines.next(line) || startsWith(line, "[")) raise(err::InputPastEnd);
        if (i < 2) continue;
        out.item(i);
        int64_t whole;
        if (parseDecimalDigits(line, whole)) {
            out.item(whole);
        } else {
            bool quoted = false;
            TextReader value = TextReader::over(line);
            const std::string_view field = value.eof() ? std::string_view() : value.listField(quoted);
            out.item(TextReader::fieldValue(field, quoted));
        }
        out.endLine();
        out.flushIfFull();
    }
}

void writeBinaryValues(Lines& lines, std::string_view bytes, TextWriter& out, int64_t size) {
    if (static_cast<int64_t>(lines.bytesLeft() / 4) < size) raise(err::InputPastEnd);
    const char* counts = bytes.data() + lines.position();
    for (int64_t i = 2; i < size; ++i) {
        int32_t count;
        std::memcpy(&count, counts + 4 * i, 4);
        out.item(i).item(int64_t{count}).endLine();
        out.flushIfFull();
    }
    lines.skipBytes(static_cast<size_t>(size) * 4);
}

std::string lowerExtension(const std::string& name) {
    const size_t dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

}  // namespace

void ConvMpaFileModern(Session& form, std::string& fileName, const std::string& shownName) {
    const std::string bytes = readWholeFile(fileName);
    const bool mp = lowerExtension(shownName) == "mp";
    Lines lines(bytes);
    std::string_view line;
    bool haveLine;
    const FileHeader header = readHeader(lines, line, haveLine);
    const std::string& format = mp ? header.mpFormat : header.mpaFormat;
    // Spectra with a header text of their own read as they always did.
    if (format != "asc" && format != "dat") return ConvMpaFile(form, fileName, shownName);
    const bool binary = format == "dat";
    if (!mp) form.changeBoxes([](Boxes& b) { b.DsGr = false; });  // several spectra: nothing to plot

    const OutputNames names = outputNames(fileName, shownName);
    std::vector<AdcRecord> adcs;  // in file order: the n-th section goes with [DATAn-1]
    bool anySpectrum = false;
    while (haveLine) {
        if (startsWith(line, "[ADC")) {
            adcs.push_back(readAdcSection(lines, line, haveLine));
            continue;
        }
        const bool spectrum = startsWith(line, "[DATA");
        if (spectrum || startsWith(line, "[CDAT")) {
            const Spectrum s = sectionNumbers(line);
            if (spectrum && s.size > 0) {
                anySpectrum = true;
                const size_t adc = static_cast<size_t>(s.number);
                TextWriter& out = openDataFile(form, names.path(s.number, ".odf"), adc < adcs.size() ? adcs[adc] : AdcRecord{});
                if (binary) writeBinaryValues(lines, bytes, out, s.size);
                else writeTextValues(lines, out, s.size);
                form.files.close(DataFile);
            } else if (binary) {
                lines.skipBytes(static_cast<size_t>(s.size) * 4);  // a coincidence matrix
            }
        }
        // On to the next section line.
        while ((haveLine = lines.next(line)) && !startsWith(line, "[")) {}
    }
    if (!anySpectrum && header.sephead == 1)
        form.host().messageBox("Spec files already separated...", BoxIcon::None, BoxButtons::Ok);
}

}  // namespace kestro
