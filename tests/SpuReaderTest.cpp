// SpecTech SPU files through the driver: always a bare data block, channel 2
// taken from the previous conversion, and channel counts the file cannot hold.
#include <gtest/gtest.h>

#include <vector>

#include "ScriptedHost.h"
#include "TestFiles.h"
#include "core/Driver.h"
#include "core/FormatTable.h"
#include "core/Session.h"
#include "core/runtime/BinaryOutput.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::writeFile;

std::string spuFile(uint32_t n, const std::vector<int32_t>& counts) {
    BinaryBuilder b;
    b.u32(n);
    for (int32_t c : counts) b.i32(c);
    return b.bytes();
}

class SpuReaderTest : public ::testing::Test {
protected:
    SpuReaderTest() : form(host) { formLoad(form); }

    RunOutcome convert(const std::string& name, const std::string& bytes, bool spe = false) {
        std::string path = dir.file(name);
        writeFile(path, bytes);
        form.addToQueue(name, path);
        form.boxes.SPE = spe;
        return RunCode_Click(form);
    }
    std::string output(const std::string& name) { return readFile(dir.file(name)); }
    std::string lastMessage() const { return host.boxes.empty() ? "" : host.boxes.back().text; }

    testing::TempDir dir;
    testing::ScriptedHost host;
    Session form;
};

TEST_F(SpuReaderTest, ChannelTwoIsTheRealTimeTheLastFileLeft) {
    // A fresh session has no real time. With the SPE box the reader still
    // writes the bare block, and the driver wraps it.
    ASSERT_EQ(convert("a.spu", spuFile(3, {5, 6, 7}), true), RunOutcome::Finished);
    EXPECT_EQ(output("a.dat"), "       0       0       7");
    EXPECT_EQ(output("a.odf"), " 0  0 \r\n 1  0 \r\n 2  7 \r\n");
    EXPECT_TRUE(testing::exists(dir.file("a.spe")));

    // A CHN file leaves its raw second time value, not seconds.
    BinaryBuilder chn;
    chn.padTo(12).i32(123456).padTo(30).u16(2).i32(1).i32(2);
    convert("c.chn", chn.bytes());
    convert("b.spu", spuFile(9, {5, 6, 7, 8, 9, 10, 11, 12, 13}));
    EXPECT_EQ(output("b.dat"), "       0  123456       7       8       9      10      11      12\r\n      13");
}

TEST_F(SpuReaderTest, CountsPastTheEndAreStreamedAsZeros) {
    ASSERT_EQ(convert("big.spu", spuFile(100000, {})), RunOutcome::Finished);
    const std::string zeros = "       0       0       0       0       0       0       0       0\r\n";
    const std::string block = output("big.dat");
    ASSERT_EQ(block.size(), 100000u / 8 * 66);
    EXPECT_EQ(block.substr(block.size() - 66), zeros);
    EXPECT_EQ(form.valueCount, 100000);
}

TEST_F(SpuReaderTest, BadChannelCountsEndTheRun) {
    struct Case {
        const char* what;
        std::string bytes;
        const char* error;
    } cases[] = {
        {"2^29 channels", spuFile(1u << 29, {}), "Error 6 Overflow"},
        {"more than 2^31 channels", spuFile(0x80000000u, {}), "Error 6 Overflow"},
        {"one channel", spuFile(1, {5}), "Error 9 Subscript out of range"},
        {"an empty file", "", "Error 9 Subscript out of range"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(convert("bad.spu", c.bytes), RunOutcome::ErrorHandled) << c.what;
        EXPECT_NE(lastMessage().find(c.error), std::string::npos) << c.what << ": " << lastMessage();
        form.files.closeAll();  // a failed reader leaves them open
    }
}

}  // namespace
}  // namespace kestro
