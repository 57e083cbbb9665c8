// Reading and writing files: line input, list input and positioned binary
// reads; text output with print zones, tabs and CR LF line ends; and the
// table of numbered files the readers open.
#include <string>
#include <vector>

#include "TestSupport.h"
#include "core/runtime/BinaryInput.h"
#include "core/runtime/FileTable.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/TextInput.h"
#include "core/runtime/TextOutput.h"

namespace kestro {
namespace {

using namespace std::string_literals;
using testing::raised;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

// A list-input value as a short tag, so whole sequences compare at once.
std::string show(const Value& v) {
    if (v.kind == Value::Kind::Empty) return "(empty)";
    if (v.kind == Value::Kind::Text) return '"' + v.text + '"';
    return (v.kind == Value::Kind::Double ? "D" : "other ") + plainText(v);
}

std::vector<std::string> listFields(TextReader& in, int count) {
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i) out.push_back(show(in.listInput()));
    return out;
}

TEST(TextReaderTest, LineInputEndsLinesAtCarriageReturnsAndListInputSharesItsPosition) {
    TextReader in("one\r\ntwo\rthree\nstill three\r\r\nlast"s);
    for (const char* line : {"one", "two", "three\nstill three", "", "last"}) {
        ASSERT_FALSE(in.eof());
        EXPECT_EQ(in.lineInput(), line);
    }
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(raised([&] { in.lineInput(); }).number(), err::InputPastEnd);

    in.seek(1);
    EXPECT_EQ(in.lineInput(), "one");
    EXPECT_EQ(in.position(), 6);  // past the CR LF
    in.seek(1000);
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(raised([&] { in.seek(0); }).number(), err::BadRecordNumber);

    TextReader ended("a\r\n"s);
    EXPECT_EQ(ended.lineInput(), "a");
    EXPECT_TRUE(ended.eof());
    TextReader empty(""s);
    EXPECT_TRUE(empty.eof());
    EXPECT_EQ(raised([&] { empty.lineInput(); }).number(), err::InputPastEnd);

    // List input: fields and separators.
    TextReader numbers("1,2 3\r\n4"s);
    EXPECT_EQ(listFields(numbers, 4), (std::vector<std::string>{"D1", "D2", "D3", "D4"}));
    EXPECT_TRUE(numbers.eof());
    EXPECT_EQ(raised([&] { numbers.listInput(); }).number(), err::InputPastEnd);

    TextReader mixed("\"a b\",$DATA:\n0 1\t-1.5E+3\r\n,,.5\r\n\r\n\"x,y\" end\r1D3 +2 1.2.3 -"s);
    EXPECT_EQ(listFields(mixed, 13),
              (std::vector<std::string>{"\"a b\"", "\"$DATA:\"", "D0", "D1", "D-1500", "(empty)", "(empty)",
                                        "D0.5", "(empty)", "\"x,y\"", "\"end\"", "D1000", "D2"}));
    EXPECT_EQ(listFields(mixed, 2), (std::vector<std::string>{"\"1.2.3\"", "\"-\""}));
    EXPECT_TRUE(mixed.eof());

    // A comma directly before a line end (CR LF, CR, or LF where the text has
    // CRs) is one separator with it; a blank between them, or a second comma,
    // still leaves an empty field.
    TextReader ends("1,2,\r\n3,\r4,\n5, \r\n6,,\r\n\"q\",\r\n7,"s);
    EXPECT_EQ(listFields(ends, 10), (std::vector<std::string>{"D1", "D2", "D3", "D4", "D5", "(empty)", "D6",
                                                               "(empty)", "\"q\"", "D7"}));
    EXPECT_TRUE(ends.eof());

    // Blanks left after the last comma are not a field: reading on is past the end.
    TextReader trailing("7,  "s);
    EXPECT_EQ(show(trailing.listInput()), "D7");
    EXPECT_FALSE(trailing.eof());
    EXPECT_EQ(raised([&] { trailing.listInput(); }).number(), err::InputPastEnd);
    TextReader blanks("   "s);
    EXPECT_EQ(raised([&] { blanks.listInput(); }).number(), err::InputPastEnd);

    // Into a number, a text field counts by the leading-number rule.
    TextReader counts("12 kg,&H10,\"x\","s);
    EXPECT_EQ(counts.listInputNumber(), 12);
    EXPECT_EQ(counts.listInputNumber(), 0);  // "kg"
    EXPECT_EQ(counts.listInputNumber(), 16);
    EXPECT_EQ(counts.listInputNumber(), 0);

    // Lines and lists share one position.
    TextReader both("$SPEC_ID:\r\nsample 1\r\n0 3\r\n5\r\n7\r\n"s);
    EXPECT_EQ(both.lineInput(), "$SPEC_ID:");
    EXPECT_EQ(both.lineInput(), "sample 1");
    EXPECT_EQ(both.listInputNumber(), 0);
    EXPECT_EQ(both.listInputNumber(), 3);
    EXPECT_EQ(both.lineInput(), "5");
    EXPECT_EQ(show(both.listInput()), "D7");
    EXPECT_TRUE(both.eof());
}

TEST(TextReaderTest, LfOnlyTextReadsAsItsCrLfTwinAndAnyCrKeepsTheClassicLines) {
    EXPECT_EQ(crLfTwin("a\nb\n\nlast"), "a\r\nb\r\n\r\nlast");
    // A single CR anywhere, or no LF at all: the bytes as they are.
    for (const std::string same : {"a\r\nb\nc\r\n", "a\nb\r", "\ra\nb", "no line end", ""})
        EXPECT_EQ(crLfTwin(same), same);

    // Through the numbered files: same lines, positions and length as the twin;
    // the reader that handles LF-only files itself gets the bytes as written.
    TempDir dir;
    const std::string lf = dir.file("lf.txt"), mixed = dir.file("mixed.txt");
    writeFile(lf, "$DATA:\n0 1\n");
    writeFile(mixed, "$DATA:\r\n0 1\n5\r\n");
    FileTable files;
    TextReader& twin = files.openInput(1, lf);
    EXPECT_EQ(twin.length(), 13);
    EXPECT_EQ(twin.lineInput(), "$DATA:");
    EXPECT_EQ(twin.position(), 9);
    EXPECT_EQ(files.openInputAsWritten(2, lf).lineInput(), "$DATA:\n0 1\n");
    TextReader& classic = files.openInput(3, mixed);
    EXPECT_EQ(classic.lineInput(), "$DATA:");
    EXPECT_EQ(classic.lineInput(), "0 1\n5");
    EXPECT_EQ(files.openTextAsBinary(5, lf).u8(6), '\r');
}

TEST(BinaryReaderTest, LittleEndianReadsAtOffsetsAndZerosPastTheEnd) {
    BinaryReader in(BinaryBuilder().text("\x01\x02\x03\x04\x05\x06\x07\x08\xFE\xFF").f32(1.5f).f64(-2.25).bytes());
    EXPECT_EQ(in.u8(8), 0xFE);
    EXPECT_EQ(in.i16(0), 0x0201);
    EXPECT_EQ(in.i16(8), -2);
    EXPECT_EQ(in.u16(8), 0xFFFE);
    EXPECT_EQ(in.i32(1), 0x05040302);
    EXPECT_EQ(in.i32(7), 0x00FFFE08);  // odd offsets are fine
    EXPECT_EQ(in.u32(6), 0xFFFE0807u);
    EXPECT_EQ(in.i64(0), 0x0807060504030201);
    EXPECT_EQ(in.f32(10), 1.5f);
    EXPECT_EQ(in.f64(14), -2.25);
    EXPECT_EQ(in.text(2, 3), "\x03\x04\x05");

    // Bytes past the end read as zero.
    BinaryReader shortIn(std::string("\x34\x12\xFF", 3));
    EXPECT_EQ(shortIn.i32(0), 0x00FF1234);  // the real low bytes, zero high bytes
    EXPECT_EQ(shortIn.i16(2), 0x00FF);
    EXPECT_EQ(shortIn.i64(1), 0xFF12);
    EXPECT_EQ(shortIn.i32(3), 0);
    EXPECT_EQ(shortIn.u8(1000000), 0);
    EXPECT_EQ(shortIn.f64(3), 0.0);
    EXPECT_EQ(shortIn.text(1, 4), std::string("\x12\xFF\0\0", 4));
    EXPECT_EQ(BinaryReader().i32(0), 0);
    for (int64_t offset : {-1, -4})
        EXPECT_EQ(raised([&] { shortIn.i16(offset); }).number(), err::BadRecordNumber) << offset;
    EXPECT_EQ(raised([&] { shortIn.text(-1, 2); }).number(), err::BadRecordNumber);
    EXPECT_EQ(raised([&] { shortIn.text(0, -1); }).number(), err::InvalidCall);
}

TEST(TextWriterTest, ZonesTabsListsAndLineEndsAlsoAcrossLargeFlushes) {
    TempDir dir;
    const std::string path = dir.file("out.txt");
    {
        TextWriter out(path);
        out.item(int64_t{3}).zone().item(-0.5).endLine();
        out.text("abcdefghijklmn").zone();  // a full zone: on to the one after
        out.text("abcdefghijklm").zone();   // column 42 -> 43
        out.text("y").endLine();
        out.zone().text("z").tab(20).text("a");
        out.tab(21).text("b").tab(5).text("c").endLine();  // at 21 already: stays; past 5: next line
        out.writeList({Value::ofText("Sample, 1"), Value::ofDouble(1.5), Value{}, Value::ofInteger(-3),
                       Value::ofSingle(1.0f / 3), Value::ofText("")});
    }
    EXPECT_EQ(readFile(path),
              " 3            -0.5 \r\n"
              "abcdefghijklmn              abcdefghijklm y\r\n"
              "              z    ab\r\n"
              "    c\r\n"
              "\"Sample, 1\",1.5,,-3,0.3333333,\"\"\r\n");

    // Zones count from the line start across large flushes.
    const std::string big = dir.file("big.txt");
    const size_t block = (size_t{1} << 20) + 100;
    std::string expected;
    {
        TextWriter out(big);
        auto put = [&](const std::string& s) {
            out.text(s);
            expected += s;
            out.flushIfFull();
        };
        put("head\r\n" + std::string(block, 'x'));  // the line start is only in the flushed part
        EXPECT_TRUE(out.buffer().empty());
        put("ab");
        out.zone();
        expected += std::string(14 - (block + 2) % 14, ' ');
        put("\r\n12345");
        put(std::string(block, 'y'));
        out.zone();
        expected += std::string(14 - (block + 5) % 14, ' ');
    }
    EXPECT_EQ(readFile(big), expected);
}

TEST(FileTableTest, NumbersOpenOnceClosingFlushesAndFailedOpensLeaveThemFree) {
    TempDir dir;
    const std::string in = dir.file("in.txt"), out = dir.file("out.txt");
    writeFile(in, "a\r\nb");
    FileTable files;
    files.openInput(1, in);

    EXPECT_EQ(raised([&] { files.openInput(1, in); }).number(), err::FileAlreadyOpen);
    // Refused before the file is touched: the input is not emptied.
    EXPECT_EQ(raised([&] { files.openOutput(1, in); }).number(), err::FileAlreadyOpen);
    EXPECT_EQ(raised([&] { files.openBinary(1, in); }).number(), err::FileAlreadyOpen);
    EXPECT_EQ(readFile(in), "a\r\nb");
    EXPECT_EQ(files.input(1).lineInput(), "a");

    EXPECT_EQ(raised([&] { files.input(2); }).number(), err::BadFileNameOrNumber);
    EXPECT_EQ(raised([&] { files.output(2); }).number(), err::BadFileNameOrNumber);
    EXPECT_EQ(raised([&] { files.binary(2); }).number(), err::BadFileNameOrNumber);
    EXPECT_EQ(raised([&] { files.output(1); }).number(), err::BadFileMode);

    files.openOutput(2, out).text("kept");
    files.output(2).endLine();
    files.close(2);
    EXPECT_FALSE(files.isOpen(2));
    EXPECT_EQ(readFile(out), "kept\r\n");
    files.close(2);  // not open: nothing happens

    files.openAppend(2, out).text("more");
    files.closeAll();
    EXPECT_FALSE(files.isOpen(1));
    EXPECT_EQ(readFile(out), "kept\r\nmore");
    files.openInput(1, out);  // free again after closing
    EXPECT_EQ(files.input(1).lineInput(), "kept");

    // Failed opens leave the number free.
    EXPECT_EQ(raised([&] { files.openInput(3, dir.file("missing.spe")); }).number(), err::FileNotFound);
    EXPECT_EQ(raised([&] { files.openBinary(3, dir.file("missing.cnf")); }).number(), err::FileNotFound);
    EXPECT_EQ(raised([&] { files.openOutput(3, dir.file("no/such/folder.txt")); }).number(), err::PathNotFound);
    EXPECT_EQ(raised([&] { files.openInput(3, dir.path()); }).number(), err::PathFileAccess);
    EXPECT_FALSE(files.isOpen(3));

    writeFile(dir.file("data.bin"), std::string("\x10\x00", 2));
    EXPECT_EQ(files.openBinary(3, dir.file("data.bin")).i16(0), 16);
    EXPECT_EQ(raised([&] { files.input(3); }).number(), err::BadFileMode);
}

}  // namespace
}  // namespace kestro
