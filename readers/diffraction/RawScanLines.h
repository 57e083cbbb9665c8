#pragma once
// The lines of a diffraction scan's ".odf", shared by the classic and the
// modern RAW readers: the angle and, from the next 14-column zone, the
// intensity, both as Singles.
#include <cmath>
#include <cstdint>

#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/TextOutput.h"

namespace kestro {

struct ScanAxis {
    int64_t steps = 0;
    double start = 0;  // the first angle
    double step = 0;
};

// The end angle is worked out in double precision, where an infinite or
// undefined result is an overflow. Then every angle to be written must fit a
// Single, checked before any line is written: the angles rise or fall
// steadily, so the first and the last decide.
inline void checkScanAngles(const ScanAxis& axis) {
    const double endAngle = (static_cast<double>(axis.steps) - 1.0) * axis.step + axis.start;
    if (!std::isfinite(endAngle)) raise(err::Overflow);
    if (axis.steps < 1) return;
    toSingle(axis.start);
    toSingle(endAngle);
}

// intensityAt(i) gives step i's intensity, counted from 0. The angles have
// passed checkScanAngles, so no line faults; the lines are built in place.
template <typename IntensityAt>
void writeScanLines(TextWriter& out, const ScanAxis& axis, IntensityAt intensityAt) {
    constexpr size_t LongestLine = 128;  // room for the writes, not only the text
    LineBlock lines(out);
    for (int64_t i = 0; i < axis.steps; ++i) {
        char* line = lines.lineStart(LongestLine);
        char* end = writeSignedText(line, toSingle(static_cast<double>(i) * axis.step + axis.start));
        end = writeSignedText(zoneInLine(line, end), static_cast<float>(intensityAt(i)));
        *end++ = '\r';
        *end++ = '\n';
        lines.lineEnd(end);
    }
    lines.handOver();
}

}  // namespace kestro
