#include "SyncFigures.h"

#include <gtest/gtest.h>

namespace {

TEST(SyncFigures, NoPairsAreZeros) {
    const SyncFigures figures = FiguresOf({});
    EXPECT_EQ(figures.median, 0);
    EXPECT_EQ(figures.Spread(), 0);
    EXPECT_FALSE(figures.driftPerMinute);
}

TEST(SyncFigures, OnePairIsItsOwnMedianWithoutADrift) {
    const SyncFigures figures = FiguresOf({{3, -40}});
    EXPECT_EQ(figures.median, -40);
    EXPECT_EQ(figures.least, -40);
    EXPECT_EQ(figures.most, -40);
    EXPECT_FALSE(figures.driftPerMinute);
}

TEST(SyncFigures, MedianOfAnEvenNumberLiesBetweenTheTwoInTheMiddle) {
    EXPECT_EQ(FiguresOf({{1, 10}, {2, 40}, {3, 20}, {4, -100}}).median, 15);
    EXPECT_EQ(FiguresOf({{1, 10}, {2, 40}, {3, 20}}).median, 20);
}

TEST(SyncFigures, DriftIsTheSlopeThatSingleWrongPairsDoNotBend) {
    std::vector<MeasuredPair> pairs;
    for (int i = 0; i < 50; ++i) pairs.push_back({2.0 * i, 40 + 0.05 * 2 * i});  // 3 ms a minute
    EXPECT_NEAR(FiguresOf(pairs).driftPerMinute.value(), 3, 1e-9);
    pairs[7].offsetMs = -400;
    pairs[30].offsetMs = 450;
    EXPECT_NEAR(FiguresOf(pairs).driftPerMinute.value(), 3, 1e-9);
    EXPECT_EQ(FiguresOf(pairs).Spread(), 850);
}

TEST(SyncFigures, DriftOfVeryManyPairsIsFound) {
    std::vector<MeasuredPair> pairs;
    for (int i = 0; i < 20000; ++i) pairs.push_back({2.0 * i, -0.001 * 2 * i});
    EXPECT_NEAR(FiguresOf(pairs).driftPerMinute.value(), -0.06, 1e-9);
}

TEST(SyncFigures, PairsWithinHalfAMinuteTellNoDrift) {
    EXPECT_FALSE(FiguresOf({{1, 10}, {1, 20}}).driftPerMinute);
    EXPECT_FALSE(FiguresOf({{1, 10}, {30.9, 20}}).driftPerMinute);
    EXPECT_EQ(TextOfDrift(FiguresOf({{1, 10}, {30.9, 20}})), "unknown from less than 30 s");
    EXPECT_EQ(FiguresOf({{1, 10}, {31, 20}}).driftPerMinute, 20);
    EXPECT_EQ(TextOfDrift(FiguresOf({{1, 10}, {31, 20}})), "+20.0 ms a minute");
}

}  // namespace
