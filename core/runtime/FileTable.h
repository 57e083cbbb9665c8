#pragma once
// The numbered files that readers open (1, 2, 3, 5, 7, ...). Opening a number
// that is already open is the "File already open" error; a reader that fails
// leaves its files open, and they stay so until closed.
#include <map>
#include <memory>
#include <string>

#include "core/runtime/BinaryInput.h"
#include "core/runtime/BinaryStream.h"
#include "core/runtime/TextInput.h"
#include "core/runtime/TextOutput.h"

namespace kestro {

class FileTable {
public:
    // Text input; LF-only text reads as its CR LF twin.
    TextReader& openInput(int number, const std::string& path);
    // Text input with the line ends as written, for a reader that handles
    // LF-only files itself.
    TextReader& openInputAsWritten(int number, const std::string& path);
    // Text input read a block at a time, for text that need not fit in
    // memory; a line or field it returns stays valid until the next read.
    TextReader& openStreamedInput(int number, const std::string& path);
    TextWriter& openOutput(int number, const std::string& path);
    TextWriter& openAppend(int number, const std::string& path);
    BinaryReader& openBinary(int number, const std::string& path);
    // Binary reads in a file opened as text before, at the positions its
    // line input counted (an LF-only text as its CR LF twin).
    BinaryReader& openTextAsBinary(int number, const std::string& path);
    // Binary input read a block at a time, for files that need not fit in memory.
    BinaryStream& openBinaryStream(int number, const std::string& path);

    // The open file of that number in that mode; "Bad file name or number"
    // when none is open, "Bad file mode" when it is open another way.
    TextReader& input(int number);
    TextWriter& output(int number);
    BinaryReader& binary(int number);

    bool isOpen(int number) const { return files_.count(number) != 0; }
    void close(int number);  // closing a number that is not open does nothing
    void closeAll();
    // Closes every open file, writing out what each holds; a failure to
    // write is not reported. For the end of a run, after its own message.
    void closeAllQuietly() { files_.clear(); }

private:
    struct OpenFile {
        std::unique_ptr<TextReader> input;
        std::unique_ptr<TextWriter> output;
        std::unique_ptr<BinaryReader> binary;
        std::unique_ptr<BinaryStream> stream;
    };
    void checkFree(int number) const;
    OpenFile& existing(int number);

    std::map<int, OpenFile> files_;
};

}  // namespace kestro
