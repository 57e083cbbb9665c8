#include "core/runtime/NumberTextExtras.h"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstring>
#include <langinfo.h>
#include <locale.h>

#include "core/runtime/NumberText.h"

namespace kestro {

namespace {

char readLocaleSeparator() {
    locale_t user = newlocale(LC_NUMERIC_MASK, "", static_cast<locale_t>(nullptr));
    if (!user) return '.';
    const char* radix = nl_langinfo_l(RADIXCHAR, user);
    const char separator = radix && std::strlen(radix) == 1 ? radix[0] : '.';
    freelocale(user);
    return separator;
}

}  // namespace

char localeDecimalSeparator() {
    static const char separator = readLocaleSeparator();
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
