// The Canberra ".bin", S-100 and 35/40 ".mca" readers: crafted dumps read
// directly and through the driver, and the AccuSpec sample dumps.
#include <algorithm>
#include <sstream>

#include "TestSupport.h"
#include "readers/Readers.h"

namespace kestro {
namespace {

using testing::readFile;
using Reader = void (*)(Session&, std::string&);

// The data block the readers write, spelled out independently of the engine.
std::string dataLines(const std::vector<int64_t>& values) {
    std::string out;
    for (size_t i = 0; i < values.size(); ++i) {
        std::string text = std::to_string(values[i]);
        if (values[i] >= 0) text.insert(text.begin(), ' ');
        out += std::string(text.size() < 8 ? 8 - text.size() : 0, ' ') + text + (i % 8 == 7 ? "\r\n" : "");
    }
    return out;
}

std::vector<int64_t> fieldsOf(const std::string& block) {
    std::istringstream in(block);
    std::vector<int64_t> values;
    for (int64_t v; in >> v;) values.push_back(v);
    return values;
}

std::string binFile(const std::string& counts) { return BinaryBuilder().padTo(1024).text(counts).bytes(); }

std::string s100File(int32_t t1, int32_t t2, const std::vector<int32_t>& counts) {
    BinaryBuilder b;
    b.padTo(48).i32(t1).i32(t2).padTo(128);
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

// 35/40 channels are stored high byte, low byte, middle byte; block headers
// and the trailer hold bytes that must never show up as counts.
std::string s35File(const std::vector<int64_t>& channels, size_t extraBytes = 0) {
    BinaryBuilder b;
    b.padTo(270);
    for (size_t i = 0; i < channels.size(); ++i) {
        if (i % 256 == 0) b.text("\xEE\xEE\xEE\xEE\xEE");
        const int64_t v = channels[i];
        b.u8(static_cast<uint8_t>(v >> 16)).u8(static_cast<uint8_t>(v)).u8(static_cast<uint8_t>(v >> 8));
    }
    b.padTo(b.size() + 52 + extraBytes, '\xDD');
    return b.bytes();
}

class CanberraMcaTest : public testing::ConversionTest {
protected:
    // Runs a reader that is to succeed; returns the ".dat" it wrote.
    std::string readWith(Reader reader, const std::string& name, const std::string& bytes) {
        std::string fileName = dir.file(name);
        testing::writeFile(fileName, bytes);
        reader(form, fileName);
        EXPECT_EQ(fileName, dir.file(name.substr(0, name.size() - 4) + ".dat"));
        EXPECT_FALSE(form.files.isOpen(1) || form.files.isOpen(2));
        return readFile(fileName);
    }
    // Runs a reader that is to fail; returns the error number. A failing
    // reader leaves its files open; they are closed here for the next case.
    int failure(Reader reader, const std::string& bytes) {
        std::string fileName = dir.file("bad.mca");
        testing::writeFile(fileName, bytes);
        const int number = testing::raised([&] { reader(form, fileName); }).number();
        EXPECT_TRUE(form.files.isOpen(1) && form.files.isOpen(2));
        form.files.closeAll();
        return number;
    }
};

TEST_F(CanberraMcaTest, BinCountsAreTwoWordsHighWordFirstAndMustFit) {
    EXPECT_EQ(readWith(ConvFileOld, "a.bin", binFile(std::string("\1\0\0\0\0\0\0\2", 8))), "   65536     512");
    // 2^31 - 1 needs all 11 characters; the ninth value starts a new line.
    std::string nine = binFile(std::string("\0\0\0\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0\5\0\0\0\6\0\xFF\x7F\xFF\xFF\0\0\7\0", 36));
    EXPECT_EQ(readWith(ConvFileOld, "b.BIN", nine),
              "       0       1       2       3       4       5       6 2147483647\r\n       7");

    // A short last channel keeps the previous channel's bytes: 00 00 05 00
    // then 01 00, the last channel reads 01 00 05 00.
    EXPECT_EQ(readWith(ConvFileOld, "a.bin", binFile(std::string("\0\0\5\0\1\0", 6))), "       5   65541");
    EXPECT_EQ(readWith(ConvFileOld, "b.bin", binFile("\7")), "  458752");
    for (size_t length : {0, 1000, 1024}) EXPECT_EQ(readWith(ConvFileOld, "c.bin", std::string(length, '\1')), "");
    EXPECT_EQ(failure(ConvFileOld, binFile(std::string("\0\0\1\0\0\x80\0\0", 8))), err::Overflow);
}

TEST_F(CanberraMcaTest, S100TimesInSecondsReplaceTheFirstTwoCountsAndMustFit) {
    // 3.5 s and 2.5 s round half to even; the raw second time is the shared real time.
    const std::string file = s100File(350, 250, {-1, -2, 3, -7, 100000, 123456789, 9, 10, 11, 12});
    form.commandLine = "/noTime";  // has no effect on S-100 files
    EXPECT_EQ(readWith(ConvS100File, "s.mca", file),
              "       4       2       3      -7  100000 123456789       9      10\r\n      11      12");
    EXPECT_EQ(form.sharedRealTime.kind, Value::Kind::Integer);
    EXPECT_EQ(form.sharedRealTime.integer, 250);
    EXPECT_EQ(form.valueCount, 10);

    // 3.5 channels: the array holds 4, the whole 3 are written.
    EXPECT_EQ(readWith(ConvS100File, "t.mca", s100File(100, 200, {0, 0, 5}) + "\xFF\xFF"), "       1       2       5");
    EXPECT_EQ(form.valueCount, 4);
    EXPECT_EQ(readWith(ConvS100File, "u.mca", s100File(3276749, 0, {0}) + "\1\1"), "   32767");

    form.sharedRealTime = Value::ofInteger(77);
    EXPECT_EQ(failure(ConvS100File, s100File(0, -100, {0, 0})), err::Overflow);  // top byte 128 or more
    EXPECT_EQ(form.sharedRealTime.integer, 77);
    EXPECT_EQ(failure(ConvS100File, s100File(3276750, 0, {0, 0})), err::Overflow);  // 32767.5 s rounds to 32768
    // Fewer than two channels: the times have nowhere to go.
    for (size_t length : {0, 100, 128, 132, 133})
        EXPECT_EQ(failure(ConvS100File, std::string(length, '\0')), err::SubscriptOutOfRange) << length;
}

TEST_F(CanberraMcaTest, S35ChannelsAreHighLowMiddleInBlocksOf256UpToTheEnd) {
    std::vector<int64_t> channels(512);
    for (size_t i = 0; i < channels.size(); ++i) channels[i] = static_cast<int64_t>(i * 32771 % 16777216);
    channels[0] = 0x010302;  // stored 01 02 03
    std::string file = s35File(channels);
    EXPECT_EQ(file.substr(275, 3), "\1\2\3");
    const std::string block = readWith(ConvS35sFile, "c.mca", file);
    EXPECT_EQ(block, dataLines(channels));
    EXPECT_EQ(block.substr(0, 8), "   66306");

    // A fractional count runs to the end repeating bytes. One byte more: the
    // third block is the trailer and that byte, 16 channels, then 240 repeats.
    std::vector<int64_t> values = fieldsOf(readWith(ConvS35sFile, "d.mca", s35File(std::vector<int64_t>(512, 5), 1)));
    ASSERT_EQ(values.size(), 768u);
    const int64_t trailerChannel = 0xDDDDDD;
    EXPECT_EQ(std::vector<int64_t>(values.begin() + 512, values.end()), std::vector<int64_t>(256, trailerChannel));

    // Two bytes more: the 17th channel reads its high byte and keeps the other two.
    file = s35File(std::vector<int64_t>(512, 5), 2);
    file.back() = '\1';
    values = fieldsOf(readWith(ConvS35sFile, "e.mca", file));
    ASSERT_EQ(values.size(), 768u);
    EXPECT_EQ(values[512 + 15], trailerChannel);
    EXPECT_EQ(std::vector<int64_t>(values.begin() + 512 + 16, values.end()), std::vector<int64_t>(240, 0x01DDDD));

    // Nothing after the header: nothing written; a little: one block.
    EXPECT_EQ(readWith(ConvS35sFile, "f.mca", std::string(270, '\1')), "");
    EXPECT_EQ(fieldsOf(readWith(ConvS35sFile, "g.mca", std::string(278, '\1'))), std::vector<int64_t>(256, 0x010101));
}

TEST_F(CanberraMcaTest, ThroughTheDriver) {
    // A ".bin" pass skips as many lines as the pass of the file before.
    std::string counts, rbs;
    for (int i = 0; i < 13 * 8; ++i) counts += std::string("\0\0", 2) + static_cast<char>(i) + '\0';
    for (int i = 0; i < 12; ++i) rbs += "header\r\n";
    queue("first.bin", binFile(counts));
    queue("h.rbs", rbs + "1 2\r\n");  // its pass skips 12 lines, and so does the next ".bin"
    queue("second.bin", binFile(counts));
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(fieldsOf(output("first.odf")).size(), 2u * 104);
    EXPECT_EQ(output("second.odf").substr(0, 9), " 0  96 \r\n");

    // The ".dat" is paired (and wrapped when SPE is ticked).
    Combo1_Click(form, 6);  // S-100
    EXPECT_EQ(converted("s.mca", s100File(1000, 2000, {0, 0, 5, 6}), "s.dat", true),
              "      10      20       5       6");
    EXPECT_EQ(output("s.odf"), " 0  10 \r\n 1  20 \r\n 2  5 \r\n 3  6 \r\n");
    Combo1_Click(form, 7);  // 35/40
    EXPECT_EQ(convert("t.mca", s35File(std::vector<int64_t>(256, 3))), RunOutcome::Finished);
    EXPECT_EQ(form.valueCount, 256);
}

// SOURCES.md: AccuSpec dumps of 9216 bytes, a 1024-byte header and 2048
// counts stored high word first, which is the ".bin" layout.
TEST_F(CanberraMcaTest, AccuSpecSamples) {
    // Their peaks, from a separate reading of the bytes.
    const struct { const char* name; size_t peakChannel; int64_t peak; } cases[] = {{"03yag02", 397, 2221},
                                                                                     {"04nacl02", 830, 12620}};
    for (const auto& c : cases) {
        const std::string bytes = readFile(std::string(KESTRO_SAMPLES_DIR "/mca/") + c.name + ".mca");
        ASSERT_EQ(bytes.size(), 9216u);
        std::vector<int64_t> counts;
        auto u8 = [&](size_t i) { return static_cast<int64_t>(static_cast<uint8_t>(bytes[i])); };
        for (size_t at = 1024; at < bytes.size(); at += 4)
            counts.push_back((u8(at) | u8(at + 1) << 8) << 16 | u8(at + 2) | u8(at + 3) << 8);
        EXPECT_EQ(counts[c.peakChannel], c.peak);
        EXPECT_EQ(*std::max_element(counts.begin(), counts.end()), c.peak);
        EXPECT_EQ(readWith(ConvFileOld, std::string(c.name) + ".bin", bytes), dataLines(counts)) << c.name;
    }

    // 03yag02 as S-100: (9216 - 128) / 4 = 2272 channels; the "first time" is the
    // header's 00 00 24 00, 23592.96 s, and the second is 0.
    const std::string bytes = readFile(KESTRO_SAMPLES_DIR "/mca/03yag02.mca");
    std::vector<int64_t> values = fieldsOf(readWith(ConvS100File, "y.mca", bytes));
    ASSERT_EQ(values.size(), 2272u);
    EXPECT_EQ(values[0], 23593);
    EXPECT_EQ(values[1], 0);
    EXPECT_EQ(values[224 + 75], 8 << 16);  // the .bin count 8 of channel 75, its words read the other way

    // As 35/40 the count (2945.49) is never whole: 12 blocks to the end of the
    // file, the last 146 channels long, then repeats of its last channel.
    values = fieldsOf(readWith(ConvS35sFile, "z.mca", bytes));
    ASSERT_EQ(values.size(), 12u * 256);
    EXPECT_EQ(std::vector<int64_t>(values.end() - 111, values.end()), std::vector<int64_t>(111, values.back()));
}

}  // namespace
}  // namespace kestro
