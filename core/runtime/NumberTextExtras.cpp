#include "core/runtime/NumberTextExtras.h"

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
    const size_t start = out.size();
    appendPlainText(out, v);
    const char separator = localeDecimalSeparator();
    if (separator == '.') return;
    for (size_t i = start; i < out.size(); ++i)
        if (out[i] == '.') out[i] = separator;
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
