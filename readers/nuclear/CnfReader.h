#pragma once
// What the Genie2K CNF readers share: once a reader has found where the
// channel count, the acquisition times and the counts are, the outputs are
// written one way.
#include <cstdint>
#include <optional>
#include <string>

#include "core/Session.h"
#include "core/runtime/BinaryInput.h"

namespace kestro {

struct CnfLayout {
    int16_t channels = 0;
    // Offset of the byte before the start, real and live tick counts (8 bytes
    // each, the two durations complemented); none when there are no times.
    std::optional<int64_t> timeRecord;
    int64_t countsOffset = 0;  // N little-endian 32-bit counts
};

// Writes the SPE, SPO or ".dat" of input file 1 and closes it; the debug
// log (file 7) is closed too when `debug` is set.
void writeCnfOutputs(Session& form, std::string& fileName, const BinaryReader& in, const CnfLayout& layout,
                     bool debug);

}  // namespace kestro
