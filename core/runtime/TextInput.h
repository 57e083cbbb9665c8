#pragma once
// Text input over a whole file held in memory: line input and list input
// with the classic rules, end of file, length, position and seek.
#include <cstdint>
#include <string>
#include <string_view>

#include "core/runtime/Value.h"

namespace kestro {

// Unix-style text, with line feeds but no carriage return anywhere, is read
// exactly as its CR LF twin: the same lines, lengths and positions. Any other
// bytes come back as they are, so a file holding a single CR keeps the
// classic line input (a lone LF stays inside the line).
std::string crLfTwin(std::string bytes);

class TextReader {
public:
    TextReader() = default;
    explicit TextReader(std::string bytes) : owned_(std::move(bytes)), data_(owned_) {}
    // Reads text that the caller keeps alive for as long as the reader.
    static TextReader over(std::string_view text) { return TextReader(text, Borrowed{}); }
    TextReader(const TextReader&) = delete;
    TextReader& operator=(const TextReader&) = delete;

    bool eof() const { return pos_ >= data_.size(); }
    int64_t length() const { return static_cast<int64_t>(data_.size()); }
    // Next byte to read, counted from 1.
    int64_t position() const { return static_cast<int64_t>(pos_) + 1; }
    void seek(int64_t position);
    std::string_view bytes() const { return data_; }
    // Hands over the bytes; the reader is empty afterwards.
    std::string release() {
        std::string out = data_.data() == owned_.data() ? std::move(owned_) : std::string(data_);
        owned_.clear();
        data_ = {};
        pos_ = 0;
        return out;
    }

    // Line input: a line ends at CR or CR LF; a lone LF stays in the line.
    // Past the end: "Input past end of file".
    std::string_view lineInput();

    // List input: fields are separated by commas, blanks, tabs or line ends
    // (CR, LF or CR LF); a quoted field is a text. A field that is a number
    // reads as a Double, an empty one as nothing, any other as a text.
    Value listInput();
    // List input into a number: a text field counts by the leading-number rule.
    double listInputNumber();

    // The parts of list input, for loops that take whole numbers first:
    // the next field as it stands (quoted: it was a quoted text), and the
    // value a field reads as.
    std::string_view listField(bool& quoted);
    static Value fieldValue(std::string_view field, bool quoted);

private:

    struct Borrowed {};
    TextReader(std::string_view text, Borrowed) : data_(text) {}

    std::string owned_;
    std::string_view data_;
    size_t pos_ = 0;
};

}  // namespace kestro
