#include "tarn/foundation/wholeNumber.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(WholeNumber, DropsTheFractionTowardZero) {
    EXPECT_EQ(WholeNumberOf<int>(2.9), 2);
    EXPECT_EQ(WholeNumberOf<int>(-2.9), -2);
    EXPECT_EQ(WholeNumberOf<long long>(9007199254740993.0), 9007199254740992);
    EXPECT_EQ(WholeNumberOf<unsigned int>(4294967295.5), 4294967295u);
}

TEST(WholeNumber, TakesTheNearestOfWhatDoesNotFit) {
    EXPECT_EQ(WholeNumberOf<int>(2147483647.0), 2147483647);
    EXPECT_EQ(WholeNumberOf<int>(2147483648.0), 2147483647);
    EXPECT_EQ(WholeNumberOf<int>(-2147483649.0), -2147483647 - 1);
    EXPECT_EQ(WholeNumberOf<long long>(9223372036854775808.0),
              std::numeric_limits<long long>::max());
    EXPECT_EQ(WholeNumberOf<long long>(9223372036854774784.0), 9223372036854774784);
    EXPECT_EQ(WholeNumberOf<long long>(-1e300), std::numeric_limits<long long>::min());
    EXPECT_EQ(WholeNumberOf<long long>(kInfinity), std::numeric_limits<long long>::max());
    EXPECT_EQ(WholeNumberOf<unsigned int>(-1.0), 0u);
    EXPECT_EQ(WholeNumberOf<unsigned int>(kInfinity), 4294967295u);
    EXPECT_EQ(WholeNumberOf<int>(std::nan("")), 0);
}

}  // namespace
