#include "spar/zBuffer.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <sys/resource.h>

namespace {

TEST(zBuffer, ANewOneIsEmpty) {
    const zBuffer buffer;
    EXPECT_EQ(buffer.Data(), nullptr);
    EXPECT_EQ(buffer.Size(), 0u);
    const zBuffer zero(0, 0);
    EXPECT_EQ(zero.Data(), nullptr);
}

TEST(zBuffer, AnOwnedBlockIsZeroed) {
    const zBuffer buffer(3, 5);
    EXPECT_EQ(buffer.Size(), 3u);
    EXPECT_TRUE(buffer.IsOwner());
    for (int i = 0; i < 8; ++i) EXPECT_EQ(buffer.Data()[i], 0);
}

TEST(zBuffer, RefersToGivenMemory) {
    unsigned char data[] = {1, 2, 3};
    zBuffer buffer(10, 0);
    buffer.SetData(data, 3, false);
    EXPECT_EQ(buffer.Data(), data);
    EXPECT_EQ(buffer.Size(), 3u);
    EXPECT_FALSE(buffer.IsOwner());
    data[0] = 9;
    EXPECT_EQ(buffer.Data()[0], 9);
    buffer.SetData(nullptr, 0, false);
    EXPECT_EQ(buffer.Data(), nullptr);
}

TEST(zBuffer, TakesGivenMemoryOver) {
    zBuffer buffer;  // the address sanitizer tells whether each block is freed once
    auto* data = new unsigned char[3];
    buffer.SetData(data, 3, true);
    EXPECT_TRUE(buffer.IsOwner());
    buffer.SetData(data, 2, true);
    EXPECT_EQ(buffer.Size(), 2u);
    buffer.SetData(new unsigned char[4], 4, true);
}

TEST(zBuffer, OwnsACopy) {
    unsigned char data[] = {1, 2, 3};
    zBuffer buffer;
    buffer.SetAndCopyData(data, 3, 4);
    data[0] = 9;
    EXPECT_NE(buffer.Data(), data);
    EXPECT_EQ(buffer.Size(), 3u);
    const unsigned char expected[] = {1, 2, 3, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(buffer.Data(), expected, 7), 0);
    buffer.SetAndCopyData(buffer.Data() + 1, 2, 0);  // out of the block that goes
    EXPECT_EQ(buffer.Size(), 2u);
    EXPECT_EQ(buffer.Data()[1], 3);
    buffer.SetAndCopyData(nullptr, 0, 0);
    EXPECT_EQ(buffer.Size(), 0u);
}

// The sanitizers bring allocators of their own, which want more room than this leaves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(zBuffer, ABlockAndItsPaddingMayGoBeyond32Bits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto outcome = [] {
        constexpr rlim_t kRoom = 1u << 30;
        const rlimit limit{kRoom, kRoom};
        if (setrlimit(RLIMIT_AS, &limit) != 0) return 2;
        try {
            const zBuffer buffer(0xFFFFFFFFu, 8);
            return 1;  // a block of seven bytes that calls itself four gigabytes
        } catch (const std::bad_alloc&) {
            return 0;
        }
    };
    EXPECT_EXIT(std::_Exit(outcome()), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
