#pragma once
// Base64 decoding as the GAML reader has it: strict about its alphabet.
#include <string>
#include <string_view>

#include "core/Session.h"

namespace kestro {

// The bytes that `base64` encodes, one character per byte, in `decoded`.
// Line ends are dropped; any character other than the alphabet and "=" is
// refused with a message, and `decoded` is then empty.
void Decode(Session& form, std::string_view base64, std::string& decoded);

}  // namespace kestro
