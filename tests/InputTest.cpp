// Reading input files: line input, list input and positioned binary reads.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Raised.h"
#include "core/runtime/BinaryInput.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/TextInput.h"

namespace kestro {
namespace {

using namespace std::string_literals;
using testing::raised;

// A list-input value as a short tag, so whole sequences compare at once.
std::string show(const Value& v) {
    std::string s;
    switch (v.kind) {
    case Value::Kind::Empty: return "(empty)";
    case Value::Kind::Text: s = '"'; s += v.text; s += '"'; return s;
    case Value::Kind::Double: s = "D"; break;
    default: s = "other "; break;
    }
    return s += plainText(v);
}

std::vector<std::string> listFields(TextReader& in, int count) {
    std::vector<std::string> out;
    for (int i = 0; i < count; ++i) out.push_back(show(in.listInput()));
    return out;
}

TEST(TextReaderTest, LineInputEndsLinesAtCarriageReturns) {
    TextReader in("one\r\ntwo\rthree\nstill three\r\r\nlast"s);
    for (const char* line : {"one", "two", "three\nstill three", "", "last"}) {
        ASSERT_FALSE(in.eof());
        EXPECT_EQ(in.lineInput(), line);
    }
    EXPECT_TRUE(in.eof());
    RuntimeError e = raised([&] { in.lineInput(); });
    EXPECT_EQ(e.number(), err::InputPastEnd);
    EXPECT_STREQ(e.what(), "Input past end of file");

    in.seek(1);
    EXPECT_EQ(in.position(), 1);
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
}

TEST(TextReaderTest, ListInputFieldsAndSeparators) {
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
}

TEST(TextReaderTest, LinesAndListsShareOnePosition) {
    TextReader in("$SPEC_ID:\r\nsample 1\r\n0 3\r\n5\r\n7\r\n"s);
    EXPECT_EQ(in.lineInput(), "$SPEC_ID:");
    EXPECT_EQ(in.lineInput(), "sample 1");
    EXPECT_EQ(in.listInputNumber(), 0);
    EXPECT_EQ(in.listInputNumber(), 3);
    EXPECT_EQ(in.lineInput(), "5");
    EXPECT_EQ(show(in.listInput()), "D7");
    EXPECT_TRUE(in.eof());
}

TEST(BinaryReaderTest, LittleEndianReadsAtOffsets) {
    std::string bytes("\x01\x02\x03\x04\x05\x06\x07\x08\xFE\xFF", 10);
    const float single = 1.5f;
    const double dbl = -2.25;
    bytes.append(reinterpret_cast<const char*>(&single), 4);
    bytes.append(reinterpret_cast<const char*>(&dbl), 8);
    BinaryReader in(bytes);
    EXPECT_EQ(in.length(), 22);
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
}

TEST(BinaryReaderTest, BytesPastTheEndReadAsZero) {
    BinaryReader in(std::string("\x34\x12\xFF", 3));
    EXPECT_EQ(in.i32(0), 0x00FF1234);  // the real low bytes, zero high bytes
    EXPECT_EQ(in.i16(2), 0x00FF);
    EXPECT_EQ(in.i64(1), 0xFF12);
    EXPECT_EQ(in.i32(3), 0);
    EXPECT_EQ(in.u8(1000000), 0);
    EXPECT_EQ(in.f64(3), 0.0);
    EXPECT_EQ(in.text(1, 4), std::string("\x12\xFF\0\0", 4));
    EXPECT_EQ(BinaryReader().i32(0), 0);

    for (int64_t offset : {-1, -4})
        EXPECT_EQ(raised([&] { in.i16(offset); }).number(), err::BadRecordNumber) << offset;
    EXPECT_EQ(raised([&] { in.text(-1, 2); }).number(), err::BadRecordNumber);
    EXPECT_EQ(raised([&] { in.text(0, -1); }).number(), err::InvalidCall);
}

}  // namespace
}  // namespace kestro
