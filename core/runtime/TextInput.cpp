#include "core/runtime/TextInput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/System.h"

namespace kestro {

namespace {

constexpr size_t StreamBlock = size_t{1} << 20;

// The bytes with every LF written as CR LF.
void appendWithCrLf(std::string& out, const char* p, const char* end) {
    while (p != end) {
        const char* lf = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
        if (!lf) {
            out.append(p, end);
            return;
        }
        out.append(p, lf);
        out += "\r\n";
        p = lf + 1;
    }
}

}  // namespace

struct TextReader::Source {
    std::FILE* file = nullptr;
    int64_t fileBytes = 0;
    int64_t readBytes = 0;  // of the file, so far
    bool twin = false;      // LF-only: every LF reads as CR LF
    int64_t length = 0;     // of the text as read
    // Sized to the file when it is smaller, and left unfilled: a batch of
    // small files should not clear a whole block each.
    std::unique_ptr<char[]> block;
    size_t blockSize = 0;
    bool held = false;  // the block holds the whole file, read already
    ~Source() {
        if (file) std::fclose(file);
    }
    size_t read() {
        const size_t got = std::fread(block.get(), 1, blockSize, file);
        if (got < blockSize && std::ferror(file)) raise(err::PathFileAccess);
        readBytes += static_cast<int64_t>(got);
        return got;
    }
    void rewind() {
        std::rewind(file);
        readBytes = 0;
        held = false;
    }
};

TextReader::TextReader(const std::string& path, Streamed) : source_(std::make_unique<Source>()) {
    Source& s = *source_;
    s.file = sys::openFile(inputLocation(path), "rb");
    if (!s.file) raise(errno == ENOENT ? err::FileNotFound : err::PathFileAccess);
    sys::FileInfo info;
    if (!sys::openFileInfo(s.file, info) || info.folder) raise(err::PathFileAccess);
    s.blockSize = static_cast<size_t>(std::clamp<int64_t>(static_cast<int64_t>(info.size), 1, static_cast<int64_t>(StreamBlock)));
    s.block.reset(new char[s.blockSize]);
    // The twin rule needs the whole file: a first look stops at the first CR.
    bool anyCr = false;
    int64_t lineFeeds = 0;
    while (!anyCr) {
        const size_t got = s.read();
        if (got == 0) break;
        anyCr = std::memchr(s.block.get(), '\r', got) != nullptr;
        lineFeeds += std::count(s.block.get(), s.block.get() + got, '\n');
    }
    s.fileBytes = std::max<int64_t>(static_cast<int64_t>(info.size), s.readBytes);
    s.twin = !anyCr && lineFeeds > 0;
    s.length = s.fileBytes + (s.twin ? lineFeeds : 0);
    // A file that one block holds is not read twice.
    s.held = s.readBytes > 0 && s.readBytes == s.fileBytes && s.readBytes <= static_cast<int64_t>(s.blockSize);
    if (!s.held) s.rewind();
    owned_.reserve(2 * s.blockSize);
}

TextReader::TextReader() = default;
TextReader::TextReader(std::string bytes) : owned_(std::move(bytes)), data_(owned_) {}
TextReader::TextReader(std::string_view text, Borrowed) : data_(text) {}
TextReader::~TextReader() = default;

int64_t TextReader::length() const { return source_ ? source_->length : static_cast<int64_t>(data_.size()); }

bool TextReader::moreToRead() const {
    return source_ && (source_->held || source_->readBytes < source_->fileBytes);
}

// Drops what has been read, appends the next block; false at the end.
bool TextReader::readBlock() {
    Source& s = *source_;
    if (s.readBytes >= s.fileBytes && !s.held) return false;
    owned_.erase(0, pos_);
    windowStart_ += static_cast<int64_t>(pos_);
    pos_ = 0;
    const size_t got = s.held ? static_cast<size_t>(s.readBytes) : s.read();
    s.held = false;
    if (got == 0) s.fileBytes = s.readBytes;  // it shrank while being read
    const char* p = s.block.get();
    const char* end = p + got;
    if (s.twin) appendWithCrLf(owned_, p, end);
    else owned_.append(p, end);
    data_ = owned_;
    // A CR at the very end may have its LF in the next block: its line is
    // not whole yet.
    const bool more = s.readBytes < s.fileBytes;
    const int64_t last = static_cast<int64_t>(owned_.size()) - 1;
    auto lastOf = [&](auto isEnd) {
        for (int64_t i = last; i >= 0; --i)
            if (isEnd(owned_[static_cast<size_t>(i)]) && !(more && i == last && owned_[static_cast<size_t>(i)] == '\r'))
                return i;
        return int64_t{-1};
    };
    lastCr_ = lastOf([](char c) { return c == '\r'; });
    lastBreak_ = lastOf([](char c) { return c == '\r' || c == '\n'; });
    if (!more) lastCr_ = lastBreak_ = last + 1;  // everything left is whole
    return true;
}

void TextReader::readMore(bool crOnly) {
    while (static_cast<int64_t>(pos_) > (crOnly ? lastCr_ : lastBreak_) && readBlock()) {
    }
}

// A quoted text may run over line ends: hold it up to its closing quote.
void TextReader::holdThroughQuote() {
    while (data_.find('"', pos_ + 1) == std::string_view::npos && readBlock()) {
    }
}

void TextReader::seek(int64_t position) {
    if (position < 1) raise(err::BadRecordNumber);
    position = std::min<int64_t>(position, length() + 1);
    if (source_) {
        if (position - 1 < windowStart_) {
            // Back before the window: read again from the start.
            source_->rewind();
            owned_.clear();
            data_ = owned_;
            pos_ = 0;
            windowStart_ = 0;
            lastCr_ = lastBreak_ = -1;
        }
        while (position - 1 > windowStart_ + static_cast<int64_t>(data_.size())) {
            pos_ = data_.size();
            if (!readBlock()) break;
        }
        pos_ = static_cast<size_t>(position - 1 - windowStart_);
        return;
    }
    pos_ = static_cast<size_t>(position - 1);
}

std::string crLfTwin(std::string bytes) {
    const char* begin = bytes.data();
    const char* end = begin + bytes.size();
    if (std::memchr(begin, '\r', bytes.size())) return bytes;
    size_t lineFeeds = static_cast<size_t>(std::count(begin, end, '\n'));
    if (lineFeeds == 0) return bytes;
    std::string twin = reserveLarge(bytes.size() + lineFeeds);
    appendWithCrLf(twin, begin, end);
    return twin;
}

std::string_view TextReader::lineInput() {
    holdLineAhead(true);
    if (eof()) raise(err::InputPastEnd);
    const char* begin = data_.data() + pos_;
    const char* end = data_.data() + data_.size();
    // Lines are short: a plain scan beats a library call per line.
    const char* cr = begin;
    while (cr != end && *cr != '\r') ++cr;
    size_t length = static_cast<size_t>(cr - begin);
    pos_ += length;
    if (cr != end) {
        ++pos_;
        if (pos_ < data_.size() && data_[pos_] == '\n') ++pos_;
    }
    return {begin, length};
}

namespace {

// Characters that end an unquoted list field.
constexpr std::array<bool, 256> FieldEnds = [] {
    std::array<bool, 256> ends{};
    for (unsigned char c : {',', ' ', '\t', '\r', '\n'}) ends[c] = true;
    return ends;
}();

}  // namespace

std::string_view TextReader::listField(bool& quoted) {
    holdLineAhead(false);
    size_t n = data_.size();
    while (pos_ < n && (data_[pos_] == ' ' || data_[pos_] == '\t')) ++pos_;
    if (pos_ >= n) raise(err::InputPastEnd);
    std::string_view field;
    quoted = data_[pos_] == '"';
    if (quoted && source_) {
        holdThroughQuote();
        n = data_.size();
    }
    if (quoted) {
        size_t start = ++pos_;
        while (pos_ < n && data_[pos_] != '"') ++pos_;
        field = data_.substr(start, pos_ - start);
        if (pos_ < n) ++pos_;
    } else {
        size_t start = pos_;
        while (pos_ < n && !FieldEnds[static_cast<unsigned char>(data_[pos_])]) ++pos_;
        field = data_.substr(start, pos_ - start);
    }
    // The separator after the field: blanks, then one comma or one line end.
    // A comma directly before a line end is one separator with it: a comma
    // that ends a line ends its record, and no empty field follows it.
    auto takeLineEnd = [&] {
        if (pos_ < n && data_[pos_] == '\r') {
            ++pos_;
            if (pos_ < n && data_[pos_] == '\n') ++pos_;
        } else if (pos_ < n && data_[pos_] == '\n') {
            ++pos_;
        }
    };
    while (pos_ < n && (data_[pos_] == ' ' || data_[pos_] == '\t')) ++pos_;
    if (pos_ < n && data_[pos_] == ',') ++pos_;
    takeLineEnd();
    return field;
}

void TextReader::skipBlanksAndLineEnds() {
    for (;;) {
        while (pos_ < data_.size() && (data_[pos_] == ' ' || data_[pos_] == '\t' || data_[pos_] == '\r' ||
                                        data_[pos_] == '\n'))
            ++pos_;
        if (pos_ < data_.size() || !source_ || !readBlock()) return;
    }
}

Value TextReader::listInput() {
    bool quoted;
    std::string_view field = listField(quoted);
    return fieldValue(field, quoted);
}

Value TextReader::fieldValue(std::string_view field, bool quoted) {
    if (quoted) return Value::ofText(std::string(field));
    if (field.empty()) return {};
    double v;
    if (parseWholeNumber(field, v)) return Value::ofDouble(v);
    return Value::ofText(std::string(field));
}

double TextReader::listInputNumber() {
    bool quoted;
    std::string_view field = listField(quoted);
    return leadingNumber(field);
}

}  // namespace kestro
