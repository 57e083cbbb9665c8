// Reader of old TA Instruments TGA/DSC run files: a text header whose last
// line begins with "Time", two separator bytes, then records of three
// Singles to the end of the file. Copies the header to a ".hdr" and lists
// the records in three columns in an ".odf".
#include <cctype>
#include <cstdint>
#include <string>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputNumber = 1;
constexpr int DataNumber = 2;
constexpr int HeaderNumber = 3;

constexpr int64_t SeparatorBytes = 2;
constexpr int64_t ValuesPerRecord = 3;
constexpr int64_t ColumnStarts[] = {1, 15, 30};

// "run.001" gives "run001": the run's number stays in the output names.
std::string outputStem(const std::string& fileName) {
    const size_t dot = fileName.find('.');
    std::string extension = dot == std::string::npos ? fileName : fileName.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return dropLast(fileName, 4) + extension;
}

// Copies the header through its "Time" line (case matters) and returns the
// 1-based position of the first data byte, past the separator.
int64_t copyHeader(TextReader& in, TextWriter& header) {
    for (;;) {
        const std::string_view line = in.lineInput();
        header.text(line).endLine();
        if (line.substr(0, 4) == "Time") return in.position() + SeparatorBytes;
    }
}

}  // namespace

void ConvATA_b(Session& form, std::string& fileName) {
    const std::string stem = outputStem(fileName);
    // Read as written: the header is CR LF text, and the Singles after it
    // must not be taken for line ends.
    TextReader& text = form.files.openInputAsWritten(InputNumber, fileName);
    TextWriter& header = form.files.openOutput(HeaderNumber, stem + ".hdr");
    const int64_t dataStart = copyHeader(text, header);
    form.files.close(InputNumber);
    form.files.close(HeaderNumber);

    const BinaryReader& in = form.files.openBinary(InputNumber, fileName);
    TextWriter& out = form.files.openOutput(DataNumber, stem + ".odf");
    const int64_t values = roundToInt64(static_cast<double>(in.length() - dataStart + 1) / 4);
    if (values < 1) raise(err::SubscriptOutOfRange);
    const int64_t firstByte = dataStart - 1;
    for (int64_t i = 0; i < values; i += ValuesPerRecord) {
        // An incomplete last record: its missing values are past the array.
        if (i + ValuesPerRecord > values) raise(err::SubscriptOutOfRange);
        for (int64_t c = 0; c < ValuesPerRecord; ++c) {
            out.tab(ColumnStarts[c]);
            appendPrintItem(out.buffer(), in.f32(firstByte + 4 * (i + c)));
        }
        out.endLine();
        out.flushIfFull();
    }
    form.files.close(InputNumber);
    form.files.close(DataNumber);
}

}  // namespace kestro
