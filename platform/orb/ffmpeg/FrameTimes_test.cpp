#include "FrameTimes.h"

#include <algorithm>
#include <climits>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace Quillon::Orb {
namespace {

TEST(FrameTimes, OrderOfDecodingTakesTheTimesOfTheInput) {
    //  in   I0 B1 B2 P3      out  I0 P3 B1 B2
    FrameTimes times;
    for (int i = 0; i < 4; ++i) EXPECT_EQ(times.Push(10 * i, 10), i);
    const long long out[][3] = {{0, 0, 0}, {3, 10, 20}, {1, 20, -10}, {2, 30, -10}};
    for (const auto& row : out) {
        FrameTimes::Stamp stamp;
        ASSERT_TRUE(times.Pop(row[0], stamp));
        EXPECT_EQ(stamp.time, row[1]);
        EXPECT_EQ(stamp.duration, 10);
        EXPECT_EQ(stamp.compositionOffset, row[2]);
    }
    EXPECT_EQ(times.CountInside(), 0);
}

TEST(FrameTimes, WhatIsNotInsideDoesNotComeOut) {
    FrameTimes times;
    FrameTimes::Stamp stamp;
    EXPECT_FALSE(times.Pop(0, stamp));
    times.Push(5, 1);
    times.Push(6, 1);
    EXPECT_FALSE(times.Pop(2, stamp));
    EXPECT_FALSE(times.Pop(-1, stamp));
    ASSERT_TRUE(times.Pop(1, stamp));
    EXPECT_FALSE(times.Pop(1, stamp));
    EXPECT_EQ(times.CountInside(), 1);
    ASSERT_TRUE(times.Pop(0, stamp));
    EXPECT_FALSE(times.Pop(0, stamp));
}

TEST(FrameTimes, TimesFromBothEndsOfTheScaleComeBack) {
    FrameTimes times;
    times.Push(LLONG_MAX, 1001);
    times.Push(LLONG_MIN, 1001);
    FrameTimes::Stamp stamp;
    ASSERT_TRUE(times.Pop(1, stamp));
    EXPECT_EQ(stamp.time, LLONG_MAX);
    EXPECT_EQ(stamp.compositionOffset, 1) << "the distance wraps";
    ASSERT_TRUE(times.Pop(0, stamp));
    EXPECT_EQ(stamp.time, LLONG_MIN);
    EXPECT_EQ(stamp.compositionOffset, -1);
}

TEST(FrameTimes, APictureThatWasRefusedLeavesNoTrace) {
    FrameTimes times;
    times.Push(1, 1);
    times.Push(2, 1);
    times.Unpush();
    EXPECT_EQ(times.Push(3, 1), 1);
    FrameTimes::Stamp stamp;
    ASSERT_TRUE(times.Pop(0, stamp));
    ASSERT_TRUE(times.Pop(1, stamp));
    EXPECT_EQ(stamp.time, 3);
}

TEST(FrameTimes, LongStreamsInAnyShortOrderGiveEveryTimeBack) {
    std::mt19937 random(1);
    FrameTimes times;
    std::vector<long long> inside;
    std::vector<long long> given;
    std::vector<long long> shown;
    std::vector<long long> decoded;
    for (int i = 0; i < 5000; ++i) {
        given.push_back(static_cast<long long>(random() % 1000));
        inside.push_back(times.Push(given.back(), 1));
        if (inside.size() < 8) continue;
        std::swap(inside[random() % 8], inside.back());
        FrameTimes::Stamp stamp;
        ASSERT_TRUE(times.Pop(inside.back(), stamp));
        EXPECT_EQ(stamp.time + stamp.compositionOffset,
                  given[static_cast<std::size_t>(inside.back())]);
        decoded.push_back(stamp.time);
        inside.pop_back();
    }
    given.resize(decoded.size());
    EXPECT_EQ(decoded, given);
}

}  // namespace
}  // namespace Quillon::Orb
