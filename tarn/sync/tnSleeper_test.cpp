#include "tarn/sync/tnSleeper.h"

#include <chrono>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <thread>

/// Looks at the lengths without sleeping them.
struct tnSleeperPeek {
    static long long Draw(long long minimum, long long maximum) {
        return tnSleeper::draw_microseconds(minimum, maximum);
    }
    static long long Nanoseconds(long long microseconds) {
        return tnSleeper::nanoseconds_of(microseconds);
    }
};

namespace {

using Peek = tnSleeperPeek;
constexpr long long kLongest = std::numeric_limits<long long>::max();
constexpr long long kSmallest = std::numeric_limits<long long>::min();

class tnSleeperTest : public testing::Test {
protected:
    ~tnSleeperTest() override { tnSleeper::SetConfiguration({tnSleeper::kSleepNone, 0, 0}); }
};

void expect_configuration(tnSleeper::InjectionPoint point, long long minimum, long long maximum) {
    const tnSleeper::Configuration now = tnSleeper::GetConfiguration();
    EXPECT_EQ(now.injectionPoint, point);
    EXPECT_EQ(now.minimum, minimum);
    EXPECT_EQ(now.maximum, maximum);
}

TEST_F(tnSleeperTest, StartsAtNothing) {
    expect_configuration(tnSleeper::kSleepNone, 0, 0);
    EXPECT_FALSE(tnSleeper::Sleep(tnSleeper::kSleepNone));
}

TEST_F(tnSleeperTest, LengthsInTheWrongOrderAreSwapped) {
    EXPECT_TRUE(tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, 50, 10}));
    expect_configuration(tnSleeper::kSleepRenderer, 10, 50);
    EXPECT_FALSE(tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, 10, 50}));
}

TEST_F(tnSleeperTest, SettingTellsWhetherAnythingChanged) {
    const auto point = tnSleeper::kSleepTaskDecompressor;
    EXPECT_TRUE(tnSleeper::SetConfiguration({point, 1, 2}));
    EXPECT_FALSE(tnSleeper::SetConfiguration({point, 1, 2}));
    EXPECT_TRUE(tnSleeper::SetConfiguration({point, 0, 2}));
    EXPECT_TRUE(tnSleeper::SetConfiguration({point, 0, 3}));
    EXPECT_TRUE(tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, 0, 3}));
    EXPECT_TRUE(tnSleeper::SetConfiguration({point, 4, 5}));
    expect_configuration(point, 4, 5);
}

TEST_F(tnSleeperTest, SleepsAtItsOwnPointAlone) {
    tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, 1, 1});
    EXPECT_TRUE(tnSleeper::Sleep(tnSleeper::kSleepRenderer));
    EXPECT_FALSE(tnSleeper::Sleep(tnSleeper::kSleepTaskDecompressor));
    EXPECT_FALSE(tnSleeper::Sleep(tnSleeper::kSleepNone));
    // Equality, not bits.
    EXPECT_FALSE(tnSleeper::Sleep(static_cast<tnSleeper::InjectionPoint>(3)));
    tnSleeper::SetConfiguration({static_cast<tnSleeper::InjectionPoint>(3), 1, 1});
    EXPECT_FALSE(tnSleeper::Sleep(tnSleeper::kSleepRenderer));
}

TEST_F(tnSleeperTest, NoneSleepsWhereALengthIsSetForIt) {
    tnSleeper::SetConfiguration({tnSleeper::kSleepNone, 1, 1});
    EXPECT_TRUE(tnSleeper::Sleep(tnSleeper::kSleepNone));
}

TEST_F(tnSleeperTest, NoMaximumIsNoSleep) {
    tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, 0, 0});
    EXPECT_FALSE(tnSleeper::Sleep(tnSleeper::kSleepRenderer));
    tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, -5, 0});
    EXPECT_FALSE(tnSleeper::Sleep(tnSleeper::kSleepRenderer));
    tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, -5, -1});
    EXPECT_FALSE(tnSleeper::Sleep(tnSleeper::kSleepRenderer));
}

TEST_F(tnSleeperTest, EqualEndsGiveTheirLength) {
    EXPECT_EQ(Peek::Draw(40, 40), 40'000);
    // The one test that really sleeps: no less than was asked for.
    tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, 40, 40});
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(tnSleeper::Sleep(tnSleeper::kSleepRenderer));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(40));
}

TEST_F(tnSleeperTest, DrawnLengthsLieBetweenTheEnds) {
    std::set<long long> lengths;
    for (int i = 0; i < 200; ++i) {
        const long long length = Peek::Draw(10, 50);
        EXPECT_GE(length, 10'000);
        EXPECT_LT(length, 50'000);
        lengths.insert(length);
    }
    EXPECT_GT(lengths.size(), 10u);
    EXPECT_GT(*lengths.rbegin() - *lengths.begin(), 10'000);
}

TEST_F(tnSleeperTest, NegativeMinimumOftenComesToNothing) {
    int nothing = 0;
    for (int i = 0; i < 200; ++i) {
        const long long length = Peek::Draw(-1'000'000, 1);
        EXPECT_GE(length, -1'000'000'000);
        EXPECT_LT(length, 1'000);
        nothing += length < 1;
    }
    EXPECT_GT(nothing, 100);
    // It matched all the same, whatever was drawn.
    tnSleeper::SetConfiguration({tnSleeper::kSleepRenderer, -1'000'000, 1});
    EXPECT_TRUE(tnSleeper::Sleep(tnSleeper::kSleepRenderer));
}

TEST_F(tnSleeperTest, LengthsBeyondNanosecondsAreHeld) {
    EXPECT_EQ(Peek::Nanoseconds(1), 1'000);
    EXPECT_EQ(Peek::Nanoseconds(9'223'372'036'854'775), 9'223'372'036'854'775'000);
    EXPECT_EQ(Peek::Nanoseconds(9'223'372'036'854'776), kLongest);
    EXPECT_EQ(Peek::Nanoseconds(0x4189374BBBD440), kLongest);
    EXPECT_EQ(Peek::Nanoseconds(kLongest), kLongest);
    EXPECT_EQ(Peek::Draw(kLongest, kLongest), kLongest);
    EXPECT_EQ(Peek::Draw(kSmallest, kSmallest), kSmallest);
    EXPECT_EQ(Peek::Draw(kLongest - 2000, kLongest), kLongest);
    EXPECT_LE(Peek::Draw(kSmallest, kLongest), kLongest);
}

TEST_F(tnSleeperTest, PointsHaveNames) {
    EXPECT_EQ(tnSleeper::InjectionPointName(tnSleeper::kSleepNone), "None");
    EXPECT_EQ(tnSleeper::InjectionPointName(tnSleeper::kSleepTaskDecompressor),
              "Task Decompressor");
    EXPECT_EQ(tnSleeper::InjectionPointName(tnSleeper::kSleepRenderer), "Renderer");
    for (const int other : {3, -1, 1000}) {
        EXPECT_EQ(tnSleeper::InjectionPointName(static_cast<tnSleeper::InjectionPoint>(other)),
                  "Undefined");
    }
}

TEST_F(tnSleeperTest, ThreadsMaySetAndSleepAtOnce) {
    std::thread setter([] {
        for (int i = 0; i < 1000; ++i) {
            tnSleeper::SetConfiguration({static_cast<tnSleeper::InjectionPoint>(i % 3), 0, i % 2});
        }
    });
    for (int i = 0; i < 100; ++i) tnSleeper::Sleep(tnSleeper::kSleepRenderer);
    setter.join();
}

}  // namespace
