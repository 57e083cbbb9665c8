#pragma once
// The shared output files: the data block (8 fields of 8 characters a
// line), the SPE and SPO spectrum files that wrap it, and ConvOdf, which
// turns a two-column text file into a data block and wraps it.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/Session.h"
#include "core/runtime/BinaryInput.h"
#include "core/runtime/TextOutput.h"
#include "core/runtime/Value.h"

namespace kestro {

inline constexpr size_t DataFieldWidth = 8;
inline constexpr int64_t FieldsPerLine = 8;
inline constexpr int64_t DataLineBytes = 66;  // 8 fields of 8 characters and CR LF

// Appends data-block fields to a text, breaking the line after every 8th.
class DataBlock {
public:
    explicit DataBlock(std::string& out) : out_(out) {}
    void field(std::string_view text);
    void field(int64_t value);  // by the plain-text rule
    // The spectrum readers' counts: by the signed-text rule (a leading
    // blank when not negative), so a 9-digit count takes 10 characters.
    void count(int64_t value);
    int64_t fieldsWritten() const { return count_; }

private:
    std::string& out_;
    int64_t count_ = 0;
};

// A spectrum's counts read from a binary file: channels numbered from 1, as
// the files number them; a channel outside 1..N is "Subscript out of range".
class ChannelCounts {
public:
    // N little-endian 32-bit counts from `offset` on (zeros past the end).
    ChannelCounts(const BinaryReader& in, int64_t offset, int64_t n);
    int32_t& operator[](int64_t channel);
    // The data lines: every count by the signed-text rule, 8 a line.
    void writeTo(TextWriter& out) const;

private:
    std::vector<int32_t> counts_;
};

// Line 4 of an SPE file: the date and time texts as they are to stand.
struct DateTimeTexts {
    std::string date;  // "dd-mm-yyyy"
    std::string time;  // "hh:mm:ss"
};
// The file's modification date and time, through the general date form:
// its first 10 characters as the date, its last 8 as the time.
DateTimeTexts modificationTexts(const std::string& path);

struct SpeHeader {
    std::string id;
    DateTimeTexts when;
    Value liveTime;
    Value realTime;
    int64_t lastChannel = 0;
};
// How the time texts of line 6 are padded to 10 characters.
enum class TimePadding {
    Distance,  // |10 - length| blanks: a longer text still gets blanks in front
    Strict,    // 10 - length blanks: a longer text is "Invalid procedure call"
};
// Lines 1 to 8 of an SPE file.
void writeSpeHeader(TextWriter& out, const SpeHeader& header, TimePadding padding = TimePadding::Distance);
// Line 1 of an SPO file.
void writeSpoHeader(TextWriter& out, int64_t channelCount);

// The block text of an SPE file whose live and real time came from its first
// two values: each of their first occurrences becomes "0", right-aligned in
// the width of the text it replaces.
void zeroLeadingTimes(std::string& block, const Value& liveTime, const Value& realTime);

// Wraps a data block as SPE (SPE box) or SPO (SPO box) at outputStem +
// ".spe"/".spo". The block's first two values are the live and real time
// (the real time goes to sharedRealTime); the channel count is valueCount.
// `source` names the file whose name and modification time the SPE shows.
void wrapDataBlock(Session& form, const std::string& source, std::string block, const std::string& outputStem);

// The two halves of wrapping: what is read (and may fail) before anything is
// written, and the writing.
struct WrapTimes {
    DateTimeTexts when;
    Value liveTime;
    Value realTime;
};
WrapTimes readWrapTimes(const std::string& source, std::string_view block);
void writeWrapped(Session& form, const std::string& source, const WrapTimes& times, std::string block,
                  const std::string& outputStem);

// Two-column text file to data block at outputName, then, when exactly one
// of SPE and SPO is ticked, wrapped as SPE or SPO.
void ConvOdf(Session& form, const std::string& inputName, const std::string& outputName);

// A spectrum reader's output: the input path less its last 4 characters and
// the extension the SPE/SPO boxes choose (".dat", ".spe", ".spo"; both boxes
// ticked is "Subscript out of range").
std::string spectrumOutputPath(const Session& form, const std::string& inputPath);

// Text helpers shared by the writers and the driver.
std::string dropLast(const std::string& text, size_t count);  // less its last characters
bool endsWithLower(const std::string& name, std::string_view suffix);  // last characters, lower case

}  // namespace kestro
