#pragma once
// Text output that keeps track of the print column, for print zones and
// tabs, with CR LF line ends; built in memory and written in large blocks.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/runtime/Files.h"
#include "core/runtime/Value.h"

namespace kestro {

class TextWriter {
public:
    static constexpr int ZoneWidth = 14;

    explicit TextWriter(const std::string& path, OutputFile::Mode mode = OutputFile::Mode::Replace);
    ~TextWriter();  // flushes what is left, quietly
    TextWriter(const TextWriter&) = delete;
    TextWriter& operator=(const TextWriter&) = delete;

    // Text exactly as given.
    TextWriter& text(std::string_view s);
    // A number or text as a print item (see printItem).
    TextWriter& item(const Value& v);
    TextWriter& item(double v);
    TextWriter& item(int64_t v);
    // The comma separator: on to the start of the next 14-column zone.
    TextWriter& zone();
    // On to column n (from 1); past it already, the next line's column n.
    TextWriter& tab(int64_t n);
    // CR LF.
    TextWriter& endLine();
    // The written-list style: numbers bare, texts quoted, commas between, CR LF.
    TextWriter& writeList(std::initializer_list<Value> values);

    // Print column of the next character, counted from 1.
    int64_t column() const;
    // The buffer, for appending in hot loops; call flushIfFull() now and then.
    std::string& buffer() { return buffer_; }
    void flushIfFull();
    // Writes out everything and closes; errors are raised here.
    void close();
    const std::string& path() const { return file_.path(); }

private:
    void flush();

    OutputFile file_;
    std::string buffer_;
    int64_t flushed_ = 0;    // bytes already written to the file
    mutable int64_t lineStart_ = 0;  // stream offset where the current line began
    mutable size_t scanned_ = 0;     // buffer bytes already searched for line ends
};

// Lines built in place in a local block and handed to a TextWriter a block
// at a time, for the hot loops. Each line starts a new line of the output.
class LineBlock {
public:
    explicit LineBlock(TextWriter& out) : out_(out) {}
    LineBlock(const LineBlock&) = delete;
    LineBlock& operator=(const LineBlock&) = delete;

    // Where the next line goes, with room for `bytes`.
    char* lineStart(size_t bytes) {
        if (end_ + bytes > block_ + Size) handOver();
        return end_;
    }
    // The line written up to `end`.
    void lineEnd(char* end) { end_ = end; }
    // Gives the writer what is held; call it at the end and before an error.
    void handOver();

private:
    static constexpr size_t Size = 1 << 16;
    TextWriter& out_;
    char block_[Size];
    char* end_ = block_;
};

// The tab rule for a line built in place: on to column n (from 1) of the
// line that begins at lineStart, or past it already, a new line's column n.
// Needs room for n + 1 bytes at `end`; returns the new end.
char* tabInLine(const char* lineStart, char* end, int64_t n);
// The zone rule (the comma separator) for a line built in place: on to the
// start of the next 14-column zone. Needs room for 16 bytes at `end`.
char* zoneInLine(const char* lineStart, char* end);

}  // namespace kestro
