#include "spar/zMemory.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

TEST(zMemory, CopiesFromTheFirstToTheSecond) {
    const char source[] = "source";
    char target[] = "target!";
    zCopyMemory(source, target, 6);
    EXPECT_STREQ(target, "source!");
    zCopyMemory(target, target + 1, 6);
    EXPECT_STREQ(target, "ssource") << "overlapping";
    zCopyMemory(nullptr, nullptr, 0);
}

TEST(zMemory, ZeroesExactly) {
    char block[4] = {1, 2, 3, 4};
    zZeroMemory(block + 1, 2);
    EXPECT_EQ(block[0], 1);
    EXPECT_EQ(block[1], 0);
    EXPECT_EQ(block[2], 0);
    EXPECT_EQ(block[3], 4);
    zZeroMemory(nullptr, 0);
}

/// The plain way, byte by byte.
void plain_copy(const unsigned char* source, int sourcePitch, unsigned char* target,
                int targetPitch, int rowBytes, int rows) {
    for (int row = 0; row < rows; ++row) {
        for (int i = 0; i < rowBytes; ++i) {
            target[row * targetPitch + i] = source[row * sourcePitch + i];
        }
    }
}

TEST(zMemory, CopiesImagesBetweenPitches) {
    std::mt19937 random(1);
    for (int round = 0; round < 500; ++round) {
        const int rowBytes = static_cast<int>(random() % 70);
        const int rows = static_cast<int>(random() % 9);
        int sourcePitch = rowBytes + static_cast<int>(random() % 3) * 5;
        int targetPitch = rowBytes + static_cast<int>(random() % 3) * 7;
        std::vector<unsigned char> source(2000), target(2000, 0xEE), expected(2000, 0xEE);
        for (unsigned char& byte : source) byte = static_cast<unsigned char>(random());
        // A negative pitch starts at the last row and walks up.
        const int from = random() % 2 ? 16 : 16 + sourcePitch * rows;
        const int to = random() % 2 ? 16 : 16 + targetPitch * rows;
        if (from != 16) sourcePitch = -sourcePitch;
        if (to != 16) targetPitch = -targetPitch;
        zCopyImage(source.data() + from, sourcePitch, target.data() + to, targetPitch, rowBytes,
                   rows);
        plain_copy(source.data() + from, sourcePitch, expected.data() + to, targetPitch, rowBytes,
                   rows);
        ASSERT_EQ(target, expected)
            << rowBytes << " " << rows << " " << sourcePitch << " " << targetPitch;
    }
}

TEST(zMemory, AnImageOfNothingIsLeftAlone) {
    unsigned char block[4] = {1, 2, 3, 4};
    const unsigned char source[4] = {9, 9, 9, 9};
    zCopyImage(source, 4, block, 4, 4, 0);
    zCopyImage(source, 4, block, 4, 4, -1);
    zCopyImage(source, 4, block, 4, 0, 1);
    zCopyImage(source, 4, block, 4, -4, 1);
    zCopyImage(nullptr, 0, nullptr, 0, 0, 0);
    EXPECT_EQ(block[0], 1);
}

}  // namespace
