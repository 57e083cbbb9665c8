// Genie2K CNF files read through their block directory, as the Canberra CNF
// reader of the open-source xylib project describes the layout: 48-byte
// directory entries from byte 112 (block id, size and offset), the
// acquisition block with its "PHA" channel count and time record, and the
// channel block whose counts follow a 512-byte header. Newer files that put
// the channel block first, or carry no times, read the same way.
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"
#include "readers/nuclear/CnfReader.h"

namespace kestro {

namespace {

constexpr int64_t DirectoryStart = 112;
constexpr int64_t EntrySize = 48;
constexpr uint32_t AcquisitionBlock = 0x00012000;
constexpr uint32_t ChannelBlock = 0x00012005;
constexpr int64_t BlockHeader = 48;
constexpr int64_t ChannelHeader = 512;
constexpr int64_t PhaRecord = BlockHeader + 128;  // "PHA", then at +10 the channel count in 256s

struct Block {
    int64_t offset = 0;
    int64_t size = 0;
};

// The first block of that id whose own header repeats the id.
std::optional<Block> findBlock(const BinaryReader& in, uint32_t id) {
    for (int64_t entry = DirectoryStart; entry + EntrySize <= in.length(); entry += EntrySize) {
        const uint32_t entryId = in.u32(entry);
        if (entryId == 0) break;
        const Block block{in.u32(entry + 10), in.u32(entry + 6)};
        if (entryId == id && block.offset + BlockHeader <= in.length() && in.u32(block.offset) == id) return block;
    }
    return std::nullopt;
}

bool hasPhaRecord(const BinaryReader& in, int64_t acquisition) {
    const int64_t pha = acquisition + PhaRecord;
    return in.u8(pha) == 'P' && in.u8(pha + 1) == 'H' && in.u8(pha + 2) == 'A';
}

// The count the acquisition block names, else what the channel block holds.
int64_t channelCount(const BinaryReader& in, const std::optional<Block>& acquisition, const Block& channels) {
    if (acquisition && hasPhaRecord(in, acquisition->offset)) return 256 * int64_t{in.u16(acquisition->offset + PhaRecord + 10)};
    return (channels.size - ChannelHeader) / 4;
}

// The start, real and live tick counts; a file without times holds zeros there.
std::optional<int64_t> timeRecord(const BinaryReader& in, const Block& acquisition) {
    const int64_t marker = acquisition.offset + BlockHeader + in.u16(acquisition.offset + 36);
    if (marker + 25 > in.length()) return std::nullopt;
    if (in.i64(marker + 1) == 0 && in.i64(marker + 9) == 0) return std::nullopt;
    return marker;
}

CnfLayout byBlockDirectory(const BinaryReader& in, bool wantTimes) {
    const std::optional<Block> channels = findBlock(in, ChannelBlock);
    if (!channels) raise(err::BadFileFormat, "Invalid file format: no channel data block in this CNF file");
    const std::optional<Block> acquisition = findBlock(in, AcquisitionBlock);
    const int64_t n = channelCount(in, acquisition, *channels);
    const int64_t countsOffset = channels->offset + ChannelHeader;
    if (n < 1 || n > INT16_MAX || countsOffset + 4 * n > in.length())
        raise(err::BadFileFormat, "Invalid file format: the channel block of this CNF file does not hold its counts");
    CnfLayout layout;
    layout.channels = static_cast<int16_t>(n);
    layout.countsOffset = countsOffset;
    if (wantTimes && acquisition) layout.timeRecord = timeRecord(in, *acquisition);
    return layout;
}

}  // namespace

void ConvCnfFileModern(Session& form, std::string& fileName) {
    const BinaryReader& in = form.files.openBinary(1, fileName);
    const bool wantTimes = form.commandLine != "/noTime";
    const CnfLayout layout = byBlockDirectory(in, wantTimes);
    // A file without times has none: no real time carries over from the file before.
    if (wantTimes && !layout.timeRecord) form.sharedRealTime = Value::ofInteger(0);
    writeCnfOutputs(form, fileName, in, layout, false);
}

}  // namespace kestro
