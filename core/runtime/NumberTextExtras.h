#pragma once
// Number texts a few readers need beyond the common rules: the plain text
// with the user's own decimal separator, the signed text appended in place,
// and a Single formatted by a pattern through its own 7 digits.
#include <string>
#include <string_view>

namespace kestro {

// The decimal separator of the user's numeric locale settings ("." when the
// settings name none or a separator of more than one byte).
char localeDecimalSeparator();
// The plain-text rule with that separator instead of ".".
void appendLocalePlainText(std::string& out, double v);
// The signed-text rule (a leading blank unless negative), appended.
void appendSignedText(std::string& out, double v);
// A Single by a format pattern: the pattern rounds the Single's 7-digit
// decimal value, not the binary fraction behind it (0.123455 stays a half).
std::string formatSingle(float v, std::string_view pattern);

}  // namespace kestro
