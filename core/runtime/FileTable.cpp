#include "core/runtime/FileTable.h"

#include "core/runtime/Files.h"
#include "core/runtime/RuntimeError.h"

namespace kestro {

void FileTable::checkFree(int number) const {
    if (number < 1 || number > 511) raise(err::BadFileNameOrNumber);
    if (isOpen(number)) raise(err::FileAlreadyOpen);
}

FileTable::OpenFile& FileTable::existing(int number) {
    auto it = files_.find(number);
    if (it == files_.end()) raise(err::BadFileNameOrNumber);
    return it->second;
}

TextReader& FileTable::openInput(int number, const std::string& path) {
    checkFree(number);
    auto reader = std::make_unique<TextReader>(readTextFile(path));
    return *(files_[number].input = std::move(reader));
}

TextReader& FileTable::openInputAsWritten(int number, const std::string& path) {
    checkFree(number);
    auto reader = std::make_unique<TextReader>(readWholeFile(path));
    return *(files_[number].input = std::move(reader));
}

TextReader& FileTable::openStreamedInput(int number, const std::string& path) {
    checkFree(number);
    // Built in place: a reader is not movable.
    std::unique_ptr<TextReader> reader(new TextReader(TextReader::streaming(path)));
    return *(files_[number].input = std::move(reader));
}

TextWriter& FileTable::openOutput(int number, const std::string& path) {
    checkFree(number);
    auto writer = std::make_unique<TextWriter>(path);
    return *(files_[number].output = std::move(writer));
}

TextWriter& FileTable::openAppend(int number, const std::string& path) {
    checkFree(number);
    auto writer = std::make_unique<TextWriter>(path, OutputFile::Mode::Append);
    return *(files_[number].output = std::move(writer));
}

BinaryReader& FileTable::openBinary(int number, const std::string& path) {
    checkFree(number);
    auto reader = std::make_unique<BinaryReader>(readWholeFile(path));
    return *(files_[number].binary = std::move(reader));
}

BinaryReader& FileTable::openTextAsBinary(int number, const std::string& path) {
    checkFree(number);
    auto reader = std::make_unique<BinaryReader>(readTextFile(path));
    return *(files_[number].binary = std::move(reader));
}

BinaryStream& FileTable::openBinaryStream(int number, const std::string& path) {
    checkFree(number);
    auto stream = std::make_unique<BinaryStream>(path);
    return *(files_[number].stream = std::move(stream));
}

TextReader& FileTable::input(int number) {
    OpenFile& f = existing(number);
    if (!f.input) raise(err::BadFileMode);
    return *f.input;
}

TextWriter& FileTable::output(int number) {
    OpenFile& f = existing(number);
    if (!f.output) raise(err::BadFileMode);
    return *f.output;
}

BinaryReader& FileTable::binary(int number) {
    OpenFile& f = existing(number);
    if (!f.binary) raise(err::BadFileMode);
    return *f.binary;
}

void FileTable::close(int number) {
    auto it = files_.find(number);
    if (it == files_.end()) return;
    OpenFile f = std::move(it->second);
    files_.erase(it);
    if (f.output) f.output->close();
}

void FileTable::closeAll() {
    while (!files_.empty()) close(files_.begin()->first);
}

}  // namespace kestro
