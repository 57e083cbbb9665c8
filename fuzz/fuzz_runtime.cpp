// Arbitrary text through the runtime's readers of numbers, dates and lists,
// and the number texts written back.
#include <cstdint>
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
