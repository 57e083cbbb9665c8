#pragma once
// What the FastComtec MPA readers share: an ADC's values, the output names
// and the data file that opens with the ADC's two time lines.
#include <cstdint>
#include <string>

#include "core/Session.h"
#include "core/runtime/NumberText.h"

namespace kestro {

struct AdcRecord {
    int16_t range = 0;  // channel count
    int16_t active = 0;
    double realTime = 0;
    double liveTime = 0;
};

// Where the outputs go: the input's folder, "F", the ADC number, the stem
// (the shown name up to its first ".") and the extension.
struct OutputNames {
    std::string folder;
    std::string stem;
    std::string path(int adc, const char* extension) const { return folder + "F" + plainText(adc) + stem + extension; }
};
OutputNames outputNames(const std::string& fullName, const std::string& shownName);

// The data file (number 2), opened with its two time lines: channel 0 holds
// the live time, channel 1 the real time, in whole seconds.
constexpr int DataFile = 2;
TextWriter& openDataFile(Session& form, const std::string& path, const AdcRecord& adc);

}  // namespace kestro
