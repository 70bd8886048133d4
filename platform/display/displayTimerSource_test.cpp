#include "display/displayTimerSource.h"

#include <gtest/gtest.h>

#include "spar/zTime.h"

TEST(DisplayTimerSource, RefreshesStandAtWholePeriodsOfTheClock) {
    const displayTimerSource source({1001, 60'000});
    for (long long count : {0LL, 1LL, 2LL, 3LL, 59'999LL, 60'000LL, 5'184'000'000LL}) {
        const long long time = source.TimeOf(count);
        // Rounded up: at that microsecond the refresh has taken place, one before it had not.
        EXPECT_EQ(source.CountAt(time), count);
        if (count > 0) {
            EXPECT_EQ(source.CountAt(time - 1), count - 1);
        }
    }
    EXPECT_EQ(source.TimeOf(60'000), 1'001'000'000);
}

// Waits for four real refreshes at 1000 Hz; how late they come is not looked at.
TEST(DisplayTimerSource, RefreshesAreCountedByTheClock) {
    displayTimerSource source({1, 1000});
    long long last = source.CountAt(zTime::MicroNow());
    for (int i = 0; i < 4; ++i) {
        displayRefresh refresh{};
        ASSERT_TRUE(source.WaitForRefresh(refresh));
        EXPECT_GT(refresh.videoTime, last) << "each wait is for a refresh of its own";
        EXPECT_EQ(refresh.videoTime, source.CountAt(refresh.realTime));
        EXPECT_GE(refresh.realTime, source.TimeOf(refresh.videoTime));
        last = refresh.videoTime;
    }
}
