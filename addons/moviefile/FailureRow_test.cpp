#include "addons/moviefile/FailureRow.h"

#include <gtest/gtest.h>

TEST(FailureRow, EndsWhereTheTrackGrows) {
    FailureRow row;
    row.GrowTo(100);
    EXPECT_FALSE(row.HasBegun());
    EXPECT_TRUE(row.Bear(-1052));
    EXPECT_TRUE(row.HasBegun());
    EXPECT_EQ(row.Last(), -1052);
    row.GrowTo(100);
    EXPECT_EQ(row.Last(), -1052);
    row.GrowTo(101);
    EXPECT_FALSE(row.HasBegun());
    EXPECT_EQ(row.Last(), 0);
}

TEST(FailureRow, OfThirtyIsBorneAndNoMore) {
    FailureRow row;
    for (int failure = 0; failure < 30; ++failure) ASSERT_TRUE(row.Bear(-1051)) << failure;
    EXPECT_FALSE(row.Bear(-1051));
}

// Every other picture of a source is odd: half of a recording is better than none.
TEST(FailureRow, NeverEndsATrackThatGrows) {
    FailureRow row;
    for (int picture = 0; picture < 1000; ++picture) {
        ASSERT_TRUE(row.Bear(-1052)) << picture;
        row.GrowTo(picture + 1);
    }
}

// Of the pictures that waited together only one is told of: writes that succeed say nothing.
TEST(FailureRow, IsOneHoweverSeldomItIsToldOf) {
    FailureRow row;
    row.GrowTo(100);
    bool borne = true;
    for (int write = 0; write < 200 && borne; ++write) {
        row.GrowTo(100);
        if (write % 5 == 4) borne = row.Bear(-1052);
    }
    EXPECT_FALSE(borne);
}
