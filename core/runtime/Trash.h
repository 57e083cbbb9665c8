#pragma once
// The system's trash, where a file that an output is about to replace goes
// first, so that the user can get it back.
#include <string>

namespace kestro {

class Trash {
public:
    virtual ~Trash() = default;
    // False where the system has none (the browser, where every output is new).
    virtual bool available() const = 0;
    // Moves the file to the trash. `where` is its path there, or empty when
    // the system does not say. False when it could not be moved (the file
    // is then where it was).
    virtual bool moveToTrash(const std::string& path, std::string& where) = 0;
    // Whether moveToTrash tells where the file went.
    virtual bool saysWhere() const { return true; }
};

// The freedesktop.org trash on Linux and other Unix desktops (the home trash
// under $XDG_DATA_HOME, or the trash of the file's own volume), the Recycle
// Bin on Windows, none in the browser.
Trash& systemTrash();

}  // namespace kestro
