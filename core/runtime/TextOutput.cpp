#include "core/runtime/TextOutput.h"

#include <cstring>
#include <string_view>

#include "core/runtime/NumberText.h"

namespace kestro {

namespace {
constexpr size_t FlushSize = 1 << 20;
}

TextWriter::TextWriter(const std::string& path, OutputFile::Mode mode) : file_(path, mode) {
    buffer_.reserve(FlushSize + 4096);
}

TextWriter::~TextWriter() {
    try {
        close();
    } catch (...) {
        // A writer dropped by an error path: what could be written is written.
    }
}

TextWriter& TextWriter::text(std::string_view s) {
    if (s.size() < FlushSize) {
        buffer_ += s;
        return *this;
    }
    // A whole block of text: no copy through the buffer.
    flush();
    file_.write(s);
    size_t lastLineEnd = s.rfind('\n');
    if (lastLineEnd != std::string_view::npos) lineStart_ = flushed_ + static_cast<int64_t>(lastLineEnd) + 1;
    flushed_ += static_cast<int64_t>(s.size());
    return *this;
}

TextWriter& TextWriter::item(const Value& v) {
    appendPrintItem(buffer_, v);
    return *this;
}

TextWriter& TextWriter::item(double v) {
    appendPrintItem(buffer_, v);
    return *this;
}

TextWriter& TextWriter::item(int64_t v) {
    appendPrintItem(buffer_, v);
    return *this;
}

int64_t TextWriter::column() const {
    // Only the part of the buffer not yet searched can hold a newer line end.
    const char* base = buffer_.data();
    if (buffer_.size() > scanned_) {
        const size_t last = std::string_view(base + scanned_, buffer_.size() - scanned_).rfind('\n');
        if (last != std::string_view::npos) lineStart_ = flushed_ + static_cast<int64_t>(scanned_ + last) + 1;
    }
    scanned_ = buffer_.size();
    return flushed_ + static_cast<int64_t>(buffer_.size()) - lineStart_ + 1;
}

TextWriter& TextWriter::zone() {
    int64_t used = column() - 1;
    int64_t next = (used / ZoneWidth + 1) * ZoneWidth;
    buffer_.append(static_cast<size_t>(next - used), ' ');
    return *this;
}

TextWriter& TextWriter::tab(int64_t n) {
    if (n < 1) n = 1;
    int64_t col = column();
    if (col > n) {
        endLine();
        col = 1;
    }
    buffer_.append(static_cast<size_t>(n - col), ' ');
    return *this;
}

TextWriter& TextWriter::endLine() {
    buffer_ += "\r\n";
    return *this;
}

TextWriter& TextWriter::writeList(std::initializer_list<Value> values) {
    bool first = true;
    for (const Value& v : values) {
        if (!first) buffer_ += ',';
        first = false;
        if (v.isText()) {
            buffer_ += '"';
            buffer_ += v.text;
            buffer_ += '"';
        } else if (!v.isEmpty()) {
            buffer_ += plainText(v);
        }
    }
    return endLine();
}

void TextWriter::flushIfFull() {
    if (buffer_.size() >= FlushSize) flush();
}

void TextWriter::flush() {
    column();  // settle the line start before the buffer goes
    file_.write(buffer_);
    flushed_ += static_cast<int64_t>(buffer_.size());
    buffer_.clear();
    scanned_ = 0;
}

void TextWriter::close() {
    flush();
    file_.close();
}

void LineBlock::handOver() {
    out_.buffer().append(block_, end_);
    end_ = block_;
    out_.flushIfFull();
}

char* tabInLine(const char* lineStart, char* end, int64_t n) {
    if (n < 1) n = 1;
    int64_t column = end - lineStart + 1;
    if (column > n) {
        *end++ = '\r';
        *end++ = '\n';
        column = 1;
    }
    std::memset(end, ' ', static_cast<size_t>(n - column));
    return end + (n - column);
}

char* zoneInLine(const char* lineStart, char* end) {
    const int64_t used = end - lineStart;
    const int64_t next = (used / TextWriter::ZoneWidth + 1) * TextWriter::ZoneWidth;
    // Always 16 blanks, so no call is made for a few: the room allows it.
    std::memset(end, ' ', 16);
    return end + (next - used);
}

}  // namespace kestro
