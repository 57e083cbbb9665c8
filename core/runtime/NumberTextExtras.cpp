#include "core/runtime/NumberTextExtras.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/runtime/NumberText.h"
#include "core/runtime/System.h"

namespace kestro {

char localeDecimalSeparator() {
    static const char separator = sys::userDecimalSeparator() ? sys::userDecimalSeparator() : '.';
    return separator;
}

void appendLocalePlainText(std::string& out, double v) {
    char text[64];
    char* end = writePlainText(text, v);
    const char separator = localeDecimalSeparator();
    if (separator != '.') std::replace(text, end, '.', separator);
    out.append(text, end);
}

void appendSignedText(std::string& out, double v) {
    if (!(v < 0)) out += ' ';
    appendPlainText(out, v);
}

std::string formatSingle(float v, std::string_view pattern) {
    if (!std::isfinite(v)) return formatNumber(v, pattern);
    return formatNumber(leadingNumber(plainText(v)), pattern);
}

}  // namespace kestro
