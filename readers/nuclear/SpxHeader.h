#pragma once
// What both Bruker SPX readers share: the header elements, found line by
// line by their tag texts, and the SPE or SPO header written from them.
#include <cstdint>
#include <string>
#include <string_view>

#include "core/Session.h"
#include "core/runtime/TextOutput.h"

namespace kestro {

struct SpxHeader {
    std::string id;
    std::string date;
    std::string time;
    int32_t liveTime = 0;
    int32_t realTime = 0;
    int32_t channels = 0;
};

// The value of the first tag the line holds, in the order the tags are
// tested; the real time also goes to sharedRealTime, the calibration to
// CalibOff and CalibLin.
void takeSpxTag(Session& form, std::string_view line, SpxHeader& h);

// The SPE header (SPE box) or the SPO line (SPO box); nothing for ".dat".
void writeSpxHeader(Session& form, TextWriter& out, const SpxHeader& h);

}  // namespace kestro
