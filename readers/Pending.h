#pragma once
// For readers whose input formats Kestro does not read yet: says so plainly
// through a run-time error, which the driver shows like any other.
namespace kestro {

[[noreturn]] void notAvailable(const char* format);

}  // namespace kestro
