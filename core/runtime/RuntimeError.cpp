#include "core/runtime/RuntimeError.h"

namespace kestro {

std::string errorDescription(int number) {
    switch (number) {
    case err::InvalidCall: return "Invalid procedure call or argument";
    case err::Overflow: return "Overflow";
    case err::OutOfMemory: return "Out of memory";
    case err::SubscriptOutOfRange: return "Subscript out of range";
    case err::DivisionByZero: return "Division by zero";
    case err::TypeMismatch: return "Type mismatch";
    case err::BadFileNameOrNumber: return "Bad file name or number";
    case err::FileNotFound: return "File not found";
    case err::BadFileMode: return "Bad file mode";
    case err::FileAlreadyOpen: return "File already open";
    case err::DiskFull: return "Disk full";
    case err::InputPastEnd: return "Input past end of file";
    case err::BadRecordNumber: return "Bad record number";
    case err::PermissionDenied: return "Permission denied";
    case err::PathFileAccess: return "Path/File access error";
    case err::PathNotFound: return "Path not found";
    case err::BadFileFormat: return "Invalid file format";
    default: return "Application-defined or object-defined error";
    }
}

RuntimeError::RuntimeError(int number) : RuntimeError(number, errorDescription(number)) {}

RuntimeError::RuntimeError(int number, const std::string& description)
    : std::runtime_error(description), number_(number), description_(description) {}

void raise(int number) { throw RuntimeError(number); }

void raise(int number, const std::string& description) { throw RuntimeError(number, description); }

}  // namespace kestro
