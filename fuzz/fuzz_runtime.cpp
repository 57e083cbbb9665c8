// Arbitrary text through the runtime's readers of numbers, dates and lists,
// and the number texts written back.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "core/runtime/Dates.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/TextInput.h"

using namespace kestro;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        double v = leadingNumber(text);
        plainText(v);
        signedText(static_cast<float>(v));
        formatNumber(v, " 0.####0");
        formatNumber(v, "###.0");
        roundToInt32(v);
    } catch (const RuntimeError&) {
    }
    if (size >= 9) {
        // A scaled integer's short way writes what the general rule writes.
        int64_t whole;
        std::memcpy(&whole, data, sizeof whole);
        const int bits = data[8] % 80 - 10;
        char scaled[64];
        const std::string general = signedText(static_cast<double>(whole) * std::exp2(-bits));
        if (std::string(scaled, writeSignedScaledText(scaled, whole, bits)) != general) __builtin_trap();
    }
    formatText(text, "dd-mm-yyyy");
    formatText(text, "@@@");
    DateValue d;
    if (parseDateText(text, d)) generalDate(d);
    TextReader reader(text);
    try {
        while (!reader.eof()) {
            printItem(reader.listInput());
            if (!reader.eof()) reader.lineInput();
        }
    } catch (const RuntimeError&) {
    }
    return 0;
}
