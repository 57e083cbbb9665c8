// Files that tests replace go to a trash of the tests' own, and run journals
// to a folder of their own, never the user's, however the test program is
// started (ctest sets a folder of the build's; a test run by hand gets this).
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "TestSupport.h"

// Windows keeps replaced files in its Recycle Bin, whatever the environment says.
#ifndef _WIN32
namespace kestro {
namespace {

class PrivateDataFolder : public ::testing::Environment {
public:
    void SetUp() override {
        if (std::getenv("XDG_DATA_HOME")) return;
        folder_ = std::make_unique<testing::TempDir>();
        setenv("XDG_DATA_HOME", folder_->path().c_str(), 1);
    }
    void TearDown() override {
        if (!folder_) return;
        unsetenv("XDG_DATA_HOME");
        folder_.reset();
    }

private:
    std::unique_ptr<testing::TempDir> folder_;
};

[[maybe_unused]] ::testing::Environment* const registered =
    ::testing::AddGlobalTestEnvironment(new PrivateDataFolder);

}  // namespace
}  // namespace kestro
#endif
