#include "cli/ProgressLine.h"

#include <unistd.h>

#include <algorithm>

#include "core/runtime/Portable.h"
#include "core/runtime/System.h"

namespace kestro {

namespace {

bool continuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Terminal columns taken by UTF-8 text, one per character.
size_t widthOf(const std::string& s) {
    size_t width = 0;
    for (char c : s) width += !continuationByte(c);
    return width;
}

// The last `width` characters of `s`, whole characters only.
std::string lastCharacters(const std::string& s, size_t width) {
    size_t start = s.size();
    for (size_t taken = 0; start > 0 && taken < width;) {
        --start;
        if (!continuationByte(s[start])) ++taken;
    }
    return s.substr(start);
}

}  // namespace

ProgressLine::ProgressLine(std::FILE* terminal, size_t columns) : terminal_(terminal), columns_(columns) {}

ProgressLine ProgressLine::onStandardError() {
    if (!portable::isTerminal(STDERR_FILENO)) return ProgressLine(nullptr, 0);
    const size_t columns = sys::terminalColumns(STDERR_FILENO);
    return ProgressLine(stderr, columns > 0 ? columns : 80);
}

std::string ProgressLine::text(size_t done, size_t total, const std::string& name, size_t columns) {
    const size_t percent = total ? done * 100 / total : 0;
    std::string line = std::to_string(done);
    line.append("/").append(std::to_string(total)).append(" files (").append(std::to_string(percent)).append("%) ");
    // One column stays free: a line that fills the terminal would wrap.
    const size_t room = columns > line.size() + 1 ? columns - line.size() - 1 : 0;
    if (widthOf(name) <= room) return line.append(name);
    if (room <= 3) return line.substr(0, columns > 0 ? std::min(line.size(), columns - 1) : 0);
    return line.append("...").append(lastCharacters(name, room - 3));
}

void ProgressLine::show(size_t done, size_t total, const std::string& name) {
    if (!terminal_) return;
    const std::string line = text(done, total, name, columns_);
    if (widthOf(line) < drawnWidth_) erase();
    std::string drawn(1, '\r');
    drawn.append(line);
    std::fwrite(drawn.data(), 1, drawn.size(), terminal_);
    std::fflush(terminal_);
    drawnWidth_ = widthOf(line);
}

void ProgressLine::erase() {
    if (!terminal_ || drawnWidth_ == 0) return;
    std::string blank(drawnWidth_ + 2, ' ');
    blank.front() = blank.back() = '\r';
    std::fwrite(blank.data(), 1, blank.size(), terminal_);
    std::fflush(terminal_);
    drawnWidth_ = 0;
}

}  // namespace kestro
