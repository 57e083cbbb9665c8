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
        const size_t end = std::min(bytes_.find_first_of("\r\n", pos_), bytes_.size());
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
    int number = 0;      // n of [DATAn,...]
    int64_t size = 0;    // values held
    size_t offset = 0;   // where the values start
};

struct MpaFile {
    std::string mpaFormat, mpFormat;
    double sephead = 0;
    std::vector<AdcRecord> adcs;  // in file order: the n-th section goes with [DATAn-1]
    std::vector<Spectrum> spectra;
};

// "[DATA0,8192 ]" gives 0 and 8192.
// Numbers past any the file could hold are cut to a bound it cannot reach.
void sectionNumbers(std::string_view line, size_t nameLength, int& number, int64_t& size) {
    number = static_cast<int>(std::clamp(leadingNumber(line.substr(nameLength)), -1.0, 1e6));
    const size_t comma = line.find(',');
    const double declared = comma == std::string_view::npos ? 0 : leadingNumber(line.substr(comma + 1));
    size = static_cast<int64_t>(std::clamp(declared, 0.0, 1e15));
}

// Skips a data block: `size` 32-bit values, or text lines up to the next section.
void skipBlock(Lines& lines, bool binary, int64_t size, std::string_view& line, bool& haveLine) {
    if (binary) {
        lines.skipBytes(static_cast<size_t>(std::max<int64_t>(size, 0)) * 4);
        haveLine = lines.next(line);
        return;
    }
    while ((haveLine = lines.next(line)) && !startsWith(line, "[")) {}
}

MpaFile readLayout(std::string_view bytes, bool mpExtension) {
    MpaFile file;
    Lines lines(bytes);
    std::string_view line;
    bool haveLine = lines.next(line);
    if (haveLine && startsWith(line, "[MPA")) haveLine = lines.next(line);  // the signature line
    for (; haveLine && !startsWith(line, "["); haveLine = lines.next(line)) {
        if (startsWith(line, "mpafmt=")) file.mpaFormat = line.substr(7);
        else if (startsWith(line, "fmt=")) file.mpFormat = line.substr(4);
        else if (startsWith(line, "sephead=")) file.sephead = valueOf(line);
    }
    const bool binary = (mpExtension ? file.mpFormat : file.mpaFormat) == "dat";
    while (haveLine) {
        if (startsWith(line, "[ADC")) {
            AdcRecord& adc = file.adcs.emplace_back();
            while ((haveLine = lines.next(line)) && !startsWith(line, "[")) {
                if (startsWith(line, "realtime=")) adc.realTime = valueOf(line);
                else if (startsWith(line, "livetime=")) adc.liveTime = valueOf(line);
            }
        } else if (startsWith(line, "[DATA") || startsWith(line, "[CDAT")) {
            Spectrum s;
            sectionNumbers(line, 5, s.number, s.size);
            s.offset = lines.position();
            if (startsWith(line, "[DATA") && s.size > 0) file.spectra.push_back(s);
            skipBlock(lines, binary, s.size, line, haveLine);
        } else {
            while ((haveLine = lines.next(line)) && !startsWith(line, "[")) {}
        }
    }
    return file;
}

// Channels 0 and 1 hold the times, as in every spectrum the reader writes;
// the values from channel 2 on follow at their own channel numbers.
void writeSpectrum(Session& form, std::string_view bytes, const Spectrum& s, bool binary, const AdcRecord& adc,
                   const std::string& path) {
    TextWriter& out = openDataFile(form, path, adc);
    if (binary) {
        if (static_cast<int64_t>((bytes.size() - s.offset) / 4) < s.size) raise(err::InputPastEnd);
        for (int64_t i = 2; i < s.size; ++i) {
            int32_t count;
            std::memcpy(&count, bytes.data() + s.offset + 4 * static_cast<size_t>(i), 4);
            out.item(i).item(int64_t{count}).endLine();
            out.flushIfFull();
        }
    } else {
        Lines lines(bytes);
        lines.skipBytes(s.offset);
        std::string_view line;
        for (int64_t i = 0; i < s.size; ++i) {
            if (!lines.next(line) || startsWith(line, "[")) raise(err::InputPastEnd);
            if (i < 2) continue;
            bool quoted = false;
            TextReader value = TextReader::over(line);
            const std::string_view field = value.eof() ? std::string_view() : value.listField(quoted);
            out.item(i).item(TextReader::fieldValue(field, quoted)).endLine();
            out.flushIfFull();
        }
    }
    form.files.close(DataFile);
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
    const MpaFile file = readLayout(bytes, mp);
    const std::string& format = mp ? file.mpFormat : file.mpaFormat;
    // Spectra with a header text of their own read as they always did.
    if (format != "asc" && format != "dat") return ConvMpaFile(form, fileName, shownName);
    if (!mp) form.changeBoxes([](Boxes& b) { b.DsGr = false; });  // several spectra: nothing to plot
    if (file.spectra.empty() && file.sephead == 1) {
        form.host().messageBox("Spec files already separated...", BoxIcon::None, BoxButtons::Ok);
        return;
    }
    const OutputNames names = outputNames(fileName, shownName);
    for (const Spectrum& s : file.spectra) {
        const size_t adc = static_cast<size_t>(s.number);
        writeSpectrum(form, bytes, s, format == "dat", adc < file.adcs.size() ? file.adcs[adc] : AdcRecord{},
                      names.path(s.number, ".odf"));
    }
}

}  // namespace kestro
