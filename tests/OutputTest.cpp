// Text output with print zones, tabs and CR LF line ends, and the table of
// numbered files the readers open.
#include <gtest/gtest.h>

#include <string>

#include "Raised.h"
#include "TestFiles.h"
#include "core/runtime/FileTable.h"
#include "core/runtime/TextOutput.h"

namespace kestro {
namespace {

using testing::raised;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

TEST(TextWriterTest, ZonesTabsListsAndLineEnds) {
    TempDir dir;
    const std::string path = dir.file("out.txt");
    {
        TextWriter out(path);
        EXPECT_EQ(out.column(), 1);
        out.item(int64_t{3}).zone();
        EXPECT_EQ(out.column(), 15);
        out.item(-0.5).endLine();
        EXPECT_EQ(out.column(), 1);

        out.text("abcdefghijklmn").zone();  // a full zone: on to the one after
        EXPECT_EQ(out.column(), 29);
        out.text("abcdefghijklm").zone();   // column 42 -> 43
        EXPECT_EQ(out.column(), 43);
        out.text("y").endLine();

        out.zone().text("z").tab(20).text("a");
        EXPECT_EQ(out.column(), 21);
        out.tab(21).text("b").tab(5).text("c");  // at 21 already: stays; past 5: next line
        EXPECT_EQ(out.column(), 6);
        out.endLine();

        out.writeList({Value::ofText("Sample, 1"), Value::ofDouble(1.5), Value{}, Value::ofInteger(-3),
                       Value::ofSingle(1.0f / 3), Value::ofText("")});
    }
    EXPECT_EQ(readFile(path),
              " 3            -0.5 \r\n"
              "abcdefghijklmn              abcdefghijklm y\r\n"
              "              z    ab\r\n"
              "    c\r\n"
              "\"Sample, 1\",1.5,,-3,0.3333333,\"\"\r\n");
}

TEST(TextWriterTest, ColumnSurvivesLargeFlushes) {
    TempDir dir;
    const std::string path = dir.file("big.txt");
    const size_t block = (size_t{1} << 20) + 100;
    std::string expected;
    {
        TextWriter out(path);
        auto put = [&](const std::string& s) {
            out.text(s);
            expected += s;
            out.flushIfFull();
        };
        put("head\r\n" + std::string(block, 'x'));  // the line start is only in the flushed part
        EXPECT_TRUE(out.buffer().empty());
        EXPECT_EQ(out.column(), static_cast<int64_t>(block) + 1);
        put("ab");
        EXPECT_EQ(out.column(), static_cast<int64_t>(block) + 3);
        put("\r\n12345");
        EXPECT_EQ(out.column(), 6);
        put(std::string(block, 'y'));
        EXPECT_EQ(out.column(), static_cast<int64_t>(block) + 6);
        out.zone();
        expected += std::string(static_cast<size_t>(14 - (block + 5) % 14), ' ');
        EXPECT_EQ((out.column() - 1) % 14, 0);
        out.close();
    }
    EXPECT_EQ(readFile(path), expected);

    // Appending goes on after what the file holds.
    {
        TextWriter more(path, OutputFile::Mode::Append);
        more.text("tail").endLine();
    }
    EXPECT_EQ(readFile(path), expected + "tail\r\n");
}

TEST(FileTableTest, NumbersOpenOnceAndClosingFlushes) {
    TempDir dir;
    const std::string in = dir.file("in.txt"), out = dir.file("out.txt");
    writeFile(in, "a\r\nb");
    FileTable files;
    files.openInput(1, in);

    RuntimeError again = raised([&] { files.openInput(1, in); });
    EXPECT_EQ(again.number(), err::FileAlreadyOpen);
    EXPECT_STREQ(again.what(), "File already open");
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
}

TEST(FileTableTest, FailedOpensLeaveTheNumberFree) {
    TempDir dir;
    FileTable files;
    RuntimeError missing = raised([&] { files.openInput(3, dir.file("missing.spe")); });
    EXPECT_EQ(missing.number(), err::FileNotFound);
    EXPECT_STREQ(missing.what(), "File not found");
    EXPECT_FALSE(files.isOpen(3));
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
