#include "tarn/replay/tnReplaySegment.h"

#include <functional>
#include <gtest/gtest.h>
#include <limits>

#include "spar/zRecord.h"
#include "spar/zRedBlack.h"

namespace {

TEST(tnReplaySegment, IsMadeEmptyOrWithItsValues) {
    const tnReplaySegment none;
    EXPECT_EQ(none.fId, 0u);
    EXPECT_EQ(none.fStart, 0);
    EXPECT_EQ(none.fStop, 0);
    const tnReplaySegment segment(17, -5, 40000);
    EXPECT_EQ(segment.fId, 17u);
    EXPECT_EQ(segment.fStart, -5);
    EXPECT_EQ(segment.fStop, 40000);
    segment.Print();
}

TEST(tnReplaySegment, CopyHasACountOfItsOwn) {
    auto* const segment = new tnReplaySegment(17, 1, 2);
    segment->AddRef();
    auto* const copy = new tnReplaySegment(*segment);
    EXPECT_EQ(copy->fId, 17u);
    EXPECT_EQ(copy->fStart, 1);
    EXPECT_EQ(copy->fStop, 2);
    EXPECT_EQ(copy->Release(), 0);
    EXPECT_EQ(segment->Release(), 1);
    EXPECT_EQ(segment->Release(), 0);
}

TEST(tnReplaySegment, IsValidWithAnIdAndALength) {
    EXPECT_TRUE(tnReplaySegment(1, 0, 1).IsValid());
    EXPECT_TRUE(tnReplaySegment(0xFFFFFFFF, -2, -1).IsValid());
    EXPECT_FALSE(tnReplaySegment(0, 0, 1).IsValid());
    EXPECT_FALSE(tnReplaySegment(1, 1, 1).IsValid());
    EXPECT_FALSE(tnReplaySegment(1, 2, 1).IsValid());
    EXPECT_FALSE(tnReplaySegment().IsValid());
}

TEST(tnReplaySegment, WritesItsElement) {
    tnReplaySegment segment(4294967295u, std::numeric_limits<long long>::min(), 7);
    zRecord record;
    EXPECT_EQ(segment.Write(record, false), 0);
    EXPECT_EQ(record.VariableCount(), 4u);
    EXPECT_STREQ(record.AsCString('xTag', ""), "segment");
    EXPECT_EQ(record.AsUInt32("id", 0), 4294967295u);
    EXPECT_EQ(record.AsInt64("start", 0), std::numeric_limits<long long>::min());
    EXPECT_EQ(record.AsInt64("stop", 0), 7);
    tnReplaySegment back;
    EXPECT_EQ(back.Read(record, 0), 0);
    EXPECT_EQ(back.fId, segment.fId);
    EXPECT_EQ(back.fStart, segment.fStart);
    EXPECT_EQ(back.fStop, segment.fStop);
}

TEST(tnReplaySegment, ReadTellsWhatIsNoSegment) {
    struct Case {
        const char* fName;
        std::function<void(zRecord&)> fFill;
        int fResult;
    };
    const Case cases[] = {
        {"empty", [](zRecord&) {}, -1},
        {"id 0",
         [](zRecord& r) {
             r.SetUInt32("id", 0);
             r.SetInt64("stop", 5);
         },
         -1},
        {"no times", [](zRecord& r) { r.SetUInt32("id", 1); }, -1},
        {"stop at start",
         [](zRecord& r) {
             r.SetUInt32("id", 1);
             r.SetInt64("start", 5);
             r.SetInt64("stop", 5);
         },
         -1},
        {"stop before start",
         [](zRecord& r) {
             r.SetUInt32("id", 1);
             r.SetInt64("start", 5);
             r.SetInt64("stop", 4);
         },
         -1},
        {"start 0 by default",
         [](zRecord& r) {
             r.SetUInt32("id", 1);
             r.SetInt64("stop", 5);
         },
         0},
        {"stop 0 by default",
         [](zRecord& r) {
             r.SetUInt32("id", 1);
             r.SetInt64("start", -5);
         },
         0},
        {"numbers as texts",
         [](zRecord& r) {
             r.SetCString("id", "12");
             r.SetCString("start", "-3");
             r.SetCString("stop", "9");
         },
         0},
        {"id is a word",
         [](zRecord& r) {
             r.SetCString("id", "first");
             r.SetInt64("stop", 9);
         },
         -1},
        {"id is negative",
         [](zRecord& r) {
             r.SetInt64("id", -1);
             r.SetInt64("stop", 9);
         },
         -1},
        {"id is past 32 bits",
         [](zRecord& r) {
             r.SetInt64("id", 1LL << 32);
             r.SetInt64("stop", 9);
         },
         -1},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.fName);
        zRecord record;
        one.fFill(record);
        tnReplaySegment segment;
        EXPECT_EQ(segment.Read(record, 0), one.fResult);
    }
}

TEST(tnReplaySegment, ReadWithoutAnIdLeavesTheTimes) {
    zRecord record;
    record.SetInt64("start", 1);
    record.SetInt64("stop", 2);
    tnReplaySegment segment(3, 30, 40);
    EXPECT_EQ(segment.Read(record, 0), -1);
    EXPECT_EQ(segment.fId, 0u);
    EXPECT_EQ(segment.fStart, 30);
    EXPECT_EQ(segment.fStop, 40);
}

//   tree:      |-- a --|-- b --|        |-- c --|
//              0       10      20       30      40
TEST(tnReplaySegment, OrderIsThatOfTimeRanges) {
    tnReplaySegment a(1, 0, 10), b(2, 10, 20), c(3, 30, 40);
    tnReplaySegment inside(4, 15, 35), gap(5, 20, 30), before(6, -5, 3);
    zRedBlack<tnReplaySegment*, tnReplaySegment> tree;
    EXPECT_TRUE(tree.Set(&c));
    EXPECT_TRUE(tree.Set(&a));
    EXPECT_TRUE(tree.Set(&b));        // begins where a ends: both stand
    EXPECT_FALSE(tree.Set(&inside));  // begins in b and takes its place
    EXPECT_TRUE(tree.Set(&before));   // overlaps a, but begins before it
    EXPECT_EQ(tree.Count(), 4u);
    tnReplaySegment* const expected[] = {&before, &a, &inside, &c};
    int index = 0;
    for (const tnReplaySegment* segment : tree) EXPECT_EQ(segment, expected[index++]);
    EXPECT_FALSE(tree.Set(&gap));  // now inside the longer one
}

}  // namespace
