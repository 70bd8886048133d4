#include "parseSize.h"

#include <gtest/gtest.h>

namespace {

TEST(Size, IsTwoWholeNumbersOfTheRange) {
    int width = 1;
    int height = 1;
    ASSERT_TRUE(ParseSize("1280x720", 2, 16384, width, height));
    EXPECT_EQ(width, 1280);
    EXPECT_EQ(height, 720);
    for (const char* text : {"", "x", "big", "1280", "1280x", "x720", "1280x720p", " 1280x720",
                             "1280x 720", "+1280x720", "-2x2", "1280x1", "16385x2", "1.5x2",
                             "4294967424x128", "99999999999999999999x720", "0x10x10"}) {
        EXPECT_FALSE(ParseSize(text, 2, 16384, width, height)) << text;
        EXPECT_EQ(width, 1280) << text;
        EXPECT_EQ(height, 720) << text;
    }
}

}  // namespace
