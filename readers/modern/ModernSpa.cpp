// Kestro's own reader of Thermo OMNIC ".spa" files, after the layout that
// SpectroChemPy's OMNIC reader (spectrochempy, read_omnic) documents: the
// file's directory of typed blocks leads to the spectrum header and to the
// data, so no byte signature is searched for.
#include <algorithm>
#include <cstring>
#include <string>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "readers/Readers.h"
#include "readers/modern/ModernOutputs.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int DataFile = 2;
constexpr int HeaderFile = 3;

// The directory: its entry count, then 16-byte entries of a block type, the
// block's offset and its size.
constexpr int64_t EntryCountOffset = 294;
constexpr int64_t DirectoryOffset = 304;
constexpr int64_t EntrySize = 16;
constexpr int64_t TitleOffset = 30;
constexpr int64_t TitleSize = 256;

enum BlockType : uint8_t {
    SpectrumHeader = 2,
    Intensities = 3,               // the spectrum, or the interferogram of an interferogram-only file
    SampleInterferogram = 102,
    BackgroundInterferogram = 103,
};

struct Block {
    int64_t offset = -1;
    int64_t size = 0;
    bool found() const { return offset >= 0; }
};

// The first block of that type whose extent lies inside the file.
Block findBlock(const BinaryReader& in, uint8_t type) {
    const int64_t entries = std::min<int64_t>(in.u16(EntryCountOffset), (in.length() - DirectoryOffset) / EntrySize);
    for (int64_t k = 0; k < entries; ++k) {
        const int64_t entry = DirectoryOffset + k * EntrySize;
        if (in.u8(entry) != type) continue;
        const Block b{in.u32(entry + 2), in.u32(entry + 6)};
        if (b.offset + b.size <= in.length()) return b;
    }
    return {};
}

// The spectrum header block: point count, X range, noise, points collected.
struct SpectrumInfo {
    int64_t points = 0;
    float firstX = 0;
    float lastX = 0;
    float noise = 0;
    int64_t collected = 0;
};

SpectrumInfo readSpectrumInfo(const BinaryReader& in, const Block& header) {
    const int64_t h = header.offset;
    return {in.u32(h + 4), in.f32(h + 16), in.f32(h + 20), in.f32(h + 24), in.u32(h + 28)};
}

std::string title(const BinaryReader& in) {
    std::string t = in.text(TitleOffset, TitleSize);
    return t.substr(0, t.find('\0'));
}

// X and Y in the classic layout: X as a double, a comma, Y (a single) at
// column 20.
void writePoints(TextWriter& out, const BinaryReader& in, const Block& data, int64_t count, double firstX,
                 double step) {
    constexpr size_t LongestLine = 128;  // room for the writes, not only the text
    constexpr int64_t DataColumn = 20;
    const char* ys = in.bytes().data() + data.offset;  // count values lie inside the block
    LineBlock lines(out);
    for (int64_t i = 0; i < count; ++i) {
        float y;
        std::memcpy(&y, ys + 4 * i, sizeof y);
        char* line = lines.lineStart(LongestLine);
        char* end = writePlainText(line, firstX + static_cast<double>(i) * step);
        *end++ = ',';
        end = writePlainText(tabInLine(line, end, DataColumn), y);
        *end++ = '\r';
        *end++ = '\n';
        lines.lineEnd(end);
    }
    lines.handOver();
}

}  // namespace

void ConvFileSPAModern(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(InputFile, fileName);
    const std::string stem = dropLast(fileName, 4);
    TextWriter& header = form.files.openOutput(HeaderFile, stem + ".hdr");

    const Block info = findBlock(in, SpectrumHeader);
    Block data = findBlock(in, Intensities);
    // Without a spectrum block, an interferogram, counted by its points.
    bool byPointIndex = false;
    for (uint8_t type : {SampleInterferogram, BackgroundInterferogram})
        if (!data.found() && (data = findBlock(in, type)).found()) byPointIndex = true;
    if (!info.found() || !data.found()) {
        modern::refuse(form, &header, "No spectrum found in the directory of this SPA file. Conversion aborted!");
        form.files.close(HeaderFile);
        form.files.close(InputFile);
        return;
    }

    SpectrumInfo s = readSpectrumInfo(in, info);
    const int64_t stored = data.size / 4;
    if (byPointIndex) s = {stored, 0, static_cast<float>(std::max<int64_t>(stored - 1, 0)), s.noise, s.collected};
    // The header's count, unless the block holds fewer values.
    const int64_t count = std::min(s.points, stored);
    const double step = s.points > 1 ? (static_cast<double>(s.lastX) - s.firstX) / static_cast<double>(s.points - 1) : 0;

    header.text("Title: ").text(title(in)).endLine();
    header.text("Number of data points : ").item(s.points).endLine();
    header.text("1st_X, last_X, X-step : ")
        .item(Value::ofSingle(s.firstX))
        .item(Value::ofSingle(s.lastX))
        .item(step)
        .endLine();
    header.text("Estimated noise level : ").item(Value::ofSingle(s.noise)).endLine();
    header.text("Total points collected: ").item(s.collected).endLine();
    if (byPointIndex) header.text("Interferogram only: X is the point index").endLine();
    header.text("1st_Y sp_data at byte :").item(data.offset + 1).endLine();
    form.files.close(HeaderFile);

    TextWriter& out = form.files.openOutput(DataFile, modern::odfName(stem, 0, 1));
    writePoints(out, in, data, count, s.firstX, step);
    form.files.close(DataFile);
    form.files.close(InputFile);
}

}  // namespace kestro
