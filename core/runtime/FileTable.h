#pragma once
// The numbered files that readers open (1, 2, 3, 5, 7, ...). Opening a number
// that is already open is the "File already open" error; a reader that fails
// leaves its files open, and they stay so until closed.
#include <map>
#include <memory>
#include <string>

#include "core/runtime/BinaryInput.h"
#include "core/runtime/TextInput.h"
#include "core/runtime/TextOutput.h"

namespace kestro {

class FileTable {
public:
    TextReader& openInput(int number, const std::string& path);
    TextWriter& openOutput(int number, const std::string& path);
    TextWriter& openAppend(int number, const std::string& path);
    BinaryReader& openBinary(int number, const std::string& path);

    // The open file of that number in that mode; "Bad file name or number"
    // when none is open, "Bad file mode" when it is open another way.
    TextReader& input(int number);
    TextWriter& output(int number);
    BinaryReader& binary(int number);

    bool isOpen(int number) const { return files_.count(number) != 0; }
    void close(int number);  // closing a number that is not open does nothing
    void closeAll();

private:
    struct OpenFile {
        std::unique_ptr<TextReader> input;
        std::unique_ptr<TextWriter> output;
        std::unique_ptr<BinaryReader> binary;
    };
    void checkFree(int number) const;
    OpenFile& existing(int number);

    std::map<int, OpenFile> files_;
};

}  // namespace kestro
