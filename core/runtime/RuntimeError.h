#pragma once
// The one run-time error type of the engine: the classic error number and
// its text, as the messages that quote an error show them.
#include <stdexcept>
#include <string>

namespace kestro {

namespace err {
inline constexpr int InvalidCall = 5;
inline constexpr int Overflow = 6;
inline constexpr int OutOfMemory = 7;
inline constexpr int SubscriptOutOfRange = 9;
inline constexpr int DivisionByZero = 11;
inline constexpr int TypeMismatch = 13;
inline constexpr int BadFileNameOrNumber = 52;
inline constexpr int FileNotFound = 53;
inline constexpr int BadFileMode = 54;
inline constexpr int FileAlreadyOpen = 55;
inline constexpr int DiskFull = 61;
inline constexpr int InputPastEnd = 62;
inline constexpr int BadRecordNumber = 63;
inline constexpr int PermissionDenied = 70;
inline constexpr int PathFileAccess = 75;
inline constexpr int PathNotFound = 76;
inline constexpr int BadFileFormat = 321;
// Raised by a reader whose input format has not been built yet.
inline constexpr int NotAvailable = 1004;
}  // namespace err

// The classic text of an error number ("Overflow", "File not found", ...).
std::string errorDescription(int number);

class RuntimeError : public std::runtime_error {
public:
    explicit RuntimeError(int number);
    RuntimeError(int number, const std::string& description);
    int number() const { return number_; }
    const std::string& description() const { return description_; }

private:
    int number_;
    std::string description_;
};

[[noreturn]] void raise(int number);
[[noreturn]] void raise(int number, const std::string& description);

}  // namespace kestro
