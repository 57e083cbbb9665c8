// Reading text and binary files a block at a time gives what reading them
// whole gives; rounding of large counts; date fields padded with zeros.
#include "TestSupport.h"
#include "core/runtime/BinaryStream.h"
#include "core/runtime/Dates.h"
#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"

namespace kestro {
namespace {

constexpr size_t Block = size_t{1} << 20;  // the streaming reader's block

// The same lines, fields, flags and positions from both readers, with lines
// and fields taken in turn; then a rewind.
void expectSameReading(const std::string& text) {
    testing::TempDir dir;
    const std::string path = dir.file("t.txt");
    testing::writeFile(path, text);
    TextReader whole(readTextFile(path));
    TextReader stream = TextReader::streaming(path);
    EXPECT_EQ(stream.length(), whole.length());
    for (int step = 0; !whole.eof(); ++step) {
        ASSERT_FALSE(stream.eof()) << step;
        if (step % 3 == 0) {
            ASSERT_EQ(stream.lineInput(), whole.lineInput()) << step;
        } else {
            bool quotedWhole, quotedStream;
            const std::string_view expected = whole.listField(quotedWhole);
            ASSERT_EQ(stream.listField(quotedStream), expected) << step;
            ASSERT_EQ(quotedStream, quotedWhole) << step;
        }
        ASSERT_EQ(stream.position(), whole.position()) << step;
    }
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(testing::raised([&] { stream.lineInput(); }).number(), err::InputPastEnd);
    stream.seek(1);
    whole.seek(1);
    if (!whole.eof()) {
        EXPECT_EQ(stream.lineInput(), whole.lineInput());
    }
    stream.seek(whole.length() / 2 + 1);
    whole.seek(whole.length() / 2 + 1);
    if (!whole.eof()) {
        EXPECT_EQ(stream.lineInput(), whole.lineInput());
    }
}

// Lines repeated past `size` bytes, with a first line that puts a line end
// of the repeated ones across the end of the first block.
std::string linesAcrossBlocks(const std::string& line, size_t size, size_t endOffset) {
    const size_t lineEnd = line.size() - endOffset;  // where the end to place lies in a line
    size_t prefix = (Block - 1 - lineEnd) % line.size();
    if (prefix < 3) prefix += line.size();
    const std::string eol = line.substr(line.size() - endOffset);
    std::string text = std::string(prefix - eol.size(), 'x') + eol;
    while (text.size() < size) text += line;
    return text;
}

TEST(TextStreamTest, ReadsAsTheWholeFileDoesAcrossBlocks) {
    // A CR as the last byte of a block, its LF the first of the next.
    std::string crlf = linesAcrossBlocks("123 4.5,\"a b\"  ,-7\r\n", 2 * Block + 5000, 2);
    ASSERT_EQ(crlf.substr(Block - 1, 2), "\r\n");
    // A quoted text that runs over a line end and a block end.
    const size_t at = crlf.find("\r\n", 2 * Block - 1500) + 2;
    crlf.insert(at, "\"" + std::string(1000, 'q') + "\r\n" + std::string(1000, 'q') + "\"\r\n");
    expectSameReading(crlf);

    // LF-only text reads as its CR LF twin, an LF ending the first block.
    const std::string lf = linesAcrossBlocks("5 6 7\n8,9\n", 2 * Block + 100, 1);
    ASSERT_EQ(lf[Block - 1], '\n');
    expectSameReading(lf);
    // A lone LF in text that has CRs stays inside its line.
    expectSameReading(linesAcrossBlocks("a\nb c\r\n", Block + 10, 2));
    // A comma that ends a line, as the last byte of a block and just before it.
    expectSameReading(linesAcrossBlocks("1,2,\r\n", 2 * Block + 100, 2));
    expectSameReading(linesAcrossBlocks("1,2,\r\n", 2 * Block + 100, 3));
    expectSameReading("");
    expectSameReading("no line end");
    expectSameReading(std::string(Block + 7, ' ') + "1\r\n");
}

TEST(TextStreamTest, BinaryStreamsRoundingAndZeroPaddedDates) {
    testing::TempDir dir;
    const std::string path = dir.file("s.bin");
    testing::writeFile(path, "abcde");
    BinaryStream in(path);
    EXPECT_EQ(in.length(), 5);
    char block[4];
    EXPECT_EQ(in.read(block, 4), 4u);
    EXPECT_EQ(std::string(block, 4), "abcd");
    EXPECT_EQ(in.read(block, 4), 1u);
    EXPECT_EQ(std::string(block, 4), std::string("e\0\0\0", 4));
    EXPECT_EQ(in.read(block, 4), 0u);
    EXPECT_EQ(testing::raised([&] { BinaryStream(dir.file("none")); }).number(), err::FileNotFound);
    EXPECT_EQ(testing::raised([&] { TextReader::streaming(dir.file("none")); }).number(), err::FileNotFound);

    EXPECT_EQ(roundToInt64(2.5), 2);
    EXPECT_EQ(roundToInt64(3.5), 4);
    EXPECT_EQ(roundToInt64(-1e18), -1000000000000000000);
    EXPECT_EQ(testing::raised([] { roundToInt64(9223372036854775808.0); }).number(), err::Overflow);

    EXPECT_EQ(formatText(std::string("22-Nov-2026\0\0" "14:40\0", 19), "dd-mm-yyyy hh:mm:ss"), "22-11-2026 00:00:00");
    const std::string blank(19, '\0');
    EXPECT_EQ(formatText(blank, "dd-mm-yyyy"), blank);
}

}  // namespace
}  // namespace kestro
