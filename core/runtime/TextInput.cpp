#include "core/runtime/TextInput.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"

namespace kestro {

void TextReader::seek(int64_t position) {
    if (position < 1) raise(err::BadRecordNumber);
    pos_ = static_cast<size_t>(std::min<int64_t>(position - 1, length()));
}

std::string crLfTwin(std::string bytes) {
    const char* begin = bytes.data();
    const char* end = begin + bytes.size();
    if (std::memchr(begin, '\r', bytes.size())) return bytes;
    size_t lineFeeds = static_cast<size_t>(std::count(begin, end, '\n'));
    if (lineFeeds == 0) return bytes;
    std::string twin = reserveLarge(bytes.size() + lineFeeds);
    for (const char* p = begin; p != end;) {
        const char* lf = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
        if (!lf) {
            twin.append(p, end);
            break;
        }
        twin.append(p, lf);
        twin += "\r\n";
        p = lf + 1;
    }
    return twin;
}

std::string_view TextReader::lineInput() {
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
    const size_t n = data_.size();
    while (pos_ < n && (data_[pos_] == ' ' || data_[pos_] == '\t')) ++pos_;
    if (pos_ >= n) raise(err::InputPastEnd);
    std::string_view field;
    quoted = data_[pos_] == '"';
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
    while (pos_ < n && (data_[pos_] == ' ' || data_[pos_] == '\t')) ++pos_;
    if (pos_ < n) {
        if (data_[pos_] == ',') {
            ++pos_;
        } else if (data_[pos_] == '\r') {
            ++pos_;
            if (pos_ < n && data_[pos_] == '\n') ++pos_;
        } else if (data_[pos_] == '\n') {
            ++pos_;
        }
    }
    return field;
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
