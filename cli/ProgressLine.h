#pragma once
// The progress line of kestro-convert on a terminal: files done of total, the
// percentage and the current file, redrawn in place and erased before any
// other output, so that the lines a script reads never contain it.
#include <cstddef>
#include <cstdio>
#include <string>

namespace kestro {

class ProgressLine {
public:
    // Draws on `terminal`, `columns` wide; a null terminal draws nothing.
    ProgressLine(std::FILE* terminal, size_t columns);
    // On standard error when it is a terminal, off otherwise.
    static ProgressLine onStandardError();

    // Redraws the line: `done` files of `total` converted, `name` next.
    void show(size_t done, size_t total, const std::string& name);
    // Erases the line (blanks over it), leaving the cursor where it began.
    void erase();

    // The line as drawn for these values, cut to fit `columns` (the file name
    // loses its beginning first).
    static std::string text(size_t done, size_t total, const std::string& name, size_t columns);

private:
    std::FILE* terminal_;
    size_t columns_;
    size_t drawnWidth_ = 0;
};

}  // namespace kestro
