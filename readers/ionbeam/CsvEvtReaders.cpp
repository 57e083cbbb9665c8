// The two list extractors of the ion-beam family: a CSV table split into one
// ".dat" file per column, and an EVT event list of 8-byte reals written as
// text, 256 values a line.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "core/Writers.h"
#include "core/runtime/NumberText.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

constexpr int InputFile = 1;
constexpr int EventTextFile = 2;
constexpr int64_t EventsPerLine = 256;
constexpr size_t EventBlockBytes = size_t{1} << 20;

// ---- CSV ----

// The header's commas plus one.
int64_t headerFieldCount(std::string_view header) {
    return static_cast<int64_t>(std::count(header.begin(), header.end(), ',')) + 1;
}

std::string columnPath(const std::string& input, int64_t column) {
    return dropLast(input, 4) + "-" + plainText(column) + ".dat";
}

// A field is kept as a copy: the table streams, and a later field of the
// line may start a new block.
struct Field {
    std::string text;
    bool quoted;
};

void printField(TextWriter& out, const Field& f) {
    std::string& text = out.buffer();
    char item[24];
    if (char* end = f.quoted ? nullptr : writePrintItemOfPlainText(item, f.text)) {
        text.append(item, end);
    } else {
        appendPrintItem(text, TextReader::fieldValue(f.text, f.quoted));
    }
    text += "\r\n";
    out.flushIfFull();
}

// ---- EVT ----

// Appends one event as a print item, ending the line after every 256th.
class EventLines {
public:
    explicit EventLines(TextWriter& out) : out_(out) {}

    void value(double v) {
        appendPrintItem(out_.buffer(), v);
        endLineAfterEvery256th();
    }

    // The zeros past the end of the list, whole lines at a time once a line
    // has been completed.
    void zeros(int64_t count) {
        std::string& text = out_.buffer();
        while (count > 0 && written_ % EventsPerLine != 0) {
            text += " 0 ";
            endLineAfterEvery256th();
            --count;
        }
        static const std::string zeroLine = [] {
            std::string line;
            for (int64_t k = 0; k < EventsPerLine; ++k) line += " 0 ";
            return line + "\r\n";
        }();
        for (; count >= EventsPerLine; count -= EventsPerLine) {
            text += zeroLine;
            written_ += EventsPerLine;
            out_.flushIfFull();
        }
        for (; count > 0; --count) {
            text += " 0 ";
            endLineAfterEvery256th();
        }
    }

private:
    void endLineAfterEvery256th() {
        if (++written_ % EventsPerLine == 0) {
            out_.buffer() += "\r\n";
            out_.flushIfFull();
        }
    }

    TextWriter& out_;
    int64_t written_ = 0;
};

}  // namespace

void ExtrCSV(Session& form, std::string& fileName) {
    TextReader& in = form.files.openStreamedInput(InputFile, fileName);
    const int64_t n = headerFieldCount(in.lineInput());
    form.host().messageBox("Found " + plainText(n) + " arguments", BoxIcon::None, BoxButtons::Ok);

    // Column k goes to file number k; past the last number a file may have,
    // opening fails with the runtime's error.
    std::vector<TextWriter*> columns;
    for (int64_t k = 2; k <= n - 1; ++k)
        columns.push_back(&form.files.openOutput(static_cast<int>(std::min<int64_t>(k, 1 << 30)), columnPath(fileName, k - 1)));

    // One value fewer than the header has fields, on purpose; a header
    // without commas reads no values and so has no lines to go through.
    const int64_t perLine = n - 1;
    std::vector<Field> fields(static_cast<size_t>(std::max<int64_t>(perLine, 0)));
    while (perLine > 0 && !in.eof()) {
        for (Field& f : fields) f.text = in.listField(f.quoted);
        for (size_t k = 1; k < fields.size(); ++k) printField(*columns[k - 1], fields[k]);
    }

    form.files.close(InputFile);
    for (int64_t k = 2; k <= n - 1; ++k) form.files.close(static_cast<int>(k));
}

void ConvEVT(Session& form, std::string& fileName) {
    BinaryStream& in = form.files.openBinaryStream(InputFile, fileName);
    fileName = dropLast(fileName, 4) + ".dat";
    TextWriter& out = form.files.openOutput(EventTextFile, fileName);

    // The count divides by 4 although each value takes 8 bytes: the list
    // reads on past its end, where the values are zero. Kept on purpose.
    const int64_t count = roundToInt64(static_cast<double>(in.length()) / 4);
    form.valueCount = count;

    // The list streams through a block of values: it may be larger than memory.
    std::vector<char> block(EventBlockBytes);
    EventLines lines(out);
    int64_t done = 0;
    while (done < count) {
        const size_t got = in.read(block.data(), block.size());
        if (got == 0) break;
        const int64_t values = std::min<int64_t>(static_cast<int64_t>((got + 7) / 8), count - done);
        for (int64_t i = 0; i < values; ++i) {
            double v;
            std::memcpy(&v, block.data() + 8 * i, sizeof v);
            lines.value(v);
        }
        done += values;
    }
    lines.zeros(count - done);

    form.files.close(EventTextFile);
    form.files.close(InputFile);
}

}  // namespace kestro
