#include "mach/machShallowSleep.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>

#include "tests/support/ThreadState.h"

namespace {

/// A file in the place of the system's device.
class MachShallowSleep : public testing::Test {
protected:
    MachShallowSleep() {
        char path[] = "/tmp/shallow_sleep_XXXXXX";
        close(mkstemp(path));
        fPath = path;
        machShallowSleep::SetDevice(fPath.c_str());
    }
    ~MachShallowSleep() override {
        machShallowSleep::SetDevice(nullptr);
        std::filesystem::remove(fPath);
    }

    std::string fPath;
};

}  // namespace

TEST_F(MachShallowSleep, AsksForNoLatencyWhileAnyLives) {
    auto first = std::make_unique<machShallowSleep>();
    EXPECT_TRUE(first->Holds());
    EXPECT_EQ(tests::OpenDescriptorsOn(fPath), 1);
    int32_t wish = -1;
    std::ifstream(fPath, std::ios::binary).read(reinterpret_cast<char*>(&wish), sizeof wish);
    EXPECT_EQ(wish, 0);

    auto second = std::make_unique<machShallowSleep>();
    EXPECT_EQ(tests::OpenDescriptorsOn(fPath), 1) << "one wish a process";
    first.reset();
    EXPECT_EQ(tests::OpenDescriptorsOn(fPath), 1);
    second.reset();
    EXPECT_EQ(tests::OpenDescriptorsOn(fPath), 0);

    const machShallowSleep again;
    EXPECT_TRUE(again.Holds());
}

TEST_F(MachShallowSleep, DoesNothingWhereItMayNotAsk) {
    machShallowSleep::SetDevice("/nonexistent/device");
    const machShallowSleep refused;
    EXPECT_FALSE(refused.Holds());
    machShallowSleep::SetDevice("/dev/full");  // opens, and takes nothing
    const machShallowSleep full;
    EXPECT_FALSE(full.Holds());
}
