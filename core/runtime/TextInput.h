#pragma once
// Text input over a whole file held in memory: line input and list input
// with the classic rules, end of file, length, position and seek.
#include <cstdint>
#include <memory>
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
    TextReader();
    explicit TextReader(std::string bytes);
    // Reads text that the caller keeps alive for as long as the reader.
    static TextReader over(std::string_view text) { return TextReader(text, Borrowed{}); }
    // Reads the file a block at a time, for text that need not fit in memory;
    // LF-only text reads as its CR LF twin, as readTextFile has it. The same
    // lines, fields, positions and length as a reader over the whole file;
    // a line or field it returns stays valid until the next read.
    static TextReader streaming(const std::string& path) { return TextReader(path, Streamed{}); }
    TextReader(const TextReader&) = delete;
    TextReader& operator=(const TextReader&) = delete;
    ~TextReader();

    bool eof() const { return pos_ >= data_.size() && !moreToRead(); }
    int64_t length() const;
    // Next byte to read, counted from 1.
    int64_t position() const { return windowStart_ + static_cast<int64_t>(pos_) + 1; }
    void seek(int64_t position);
    // The bytes held: all of them, or for a streaming reader those of the
    // current block.
    std::string_view bytes() const { return data_; }
    // Hands over the bytes; the reader is empty afterwards. Not for a
    // streaming reader.
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
    // (CR, LF or CR LF), a comma directly before a line end being one
    // separator with it; a quoted field is a text. A field that is a number
    // reads as a Double, an empty one as nothing, any other as a text.
    Value listInput();
    // List input into a number: a text field counts by the leading-number rule.
    double listInputNumber();

    // The parts of list input, for loops that take whole numbers first:
    // the next field as it stands (quoted: it was a quoted text), and the
    // value a field reads as.
    std::string_view listField(bool& quoted);
    static Value fieldValue(std::string_view field, bool quoted);
    // Moves past blanks, tabs and line ends, so that eof() tells whether a
    // further field follows: an empty line holds none.
    void skipBlanksAndLineEnds();

private:

    struct Borrowed {};
    TextReader(std::string_view text, Borrowed);
    struct Streamed {};
    TextReader(const std::string& path, Streamed);

    // Streaming: the file behind the window of bytes held.
    struct Source;
    bool moreToRead() const;
    // Before a line or field: the window holds it whole, up to its line end
    // (crOnly: a CR; else a CR or LF), or the file has no more.
    void holdLineAhead(bool crOnly) {
        if (source_ && static_cast<int64_t>(pos_) > (crOnly ? lastCr_ : lastBreak_)) readMore(crOnly);
    }
    void readMore(bool crOnly);
    bool readBlock();
    void holdThroughQuote();

    std::string owned_;
    std::string_view data_;
    size_t pos_ = 0;
    std::unique_ptr<Source> source_;
    int64_t windowStart_ = 0;  // bytes of the text before the window
    int64_t lastCr_ = -1;      // the last line end in the window whose line is whole
    int64_t lastBreak_ = -1;
};

}  // namespace kestro
