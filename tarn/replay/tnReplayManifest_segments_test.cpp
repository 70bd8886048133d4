#include "tests/support/ReplayFixture.h"

// Look-ups and marks. Recorded are:
//
//     |-- 1 --|-- 2 --|-- 3 --|        |-- 5 --|
//     0      100     200     300      400     500

using tests::HeldSegments;
using tests::Ids;

namespace {

class ReplayLookup : public tests::ReplayTest {
protected:
    ReplayLookup() {
        EXPECT_EQ(Begin(), 0);
        for (unsigned int id : {1u, 2u, 3u, 5u}) Add(id);
    }
    static unsigned int id_and_release(tnReplaySegment* segment) {
        if (segment == nullptr) return 0;
        const unsigned int id = segment->fId;
        segment->Release();
        return id;
    }
    unsigned int IdAt(long long time) { return id_and_release(fManifest->GetSegmentByTime(time)); }
    Ids Marked(const long long* mark, const long long* markIn, const long long* markOut) {
        HeldSegments held;
        long long at = mark ? *mark : 0, in = markIn ? *markIn : 0, out = markOut ? *markOut : 0;
        fManifest->AppendSegmentIDsByMarks(held.fSegments, mark ? &at : nullptr,
                                           markIn ? &in : nullptr, markOut ? &out : nullptr);
        return held.IDs();
    }
    void RemoveMovie(int id) {
        EXPECT_EQ(zFileStream::RemoveFile(Movie(std::to_string(id) + ".mov").c_str()), 0);
    }
};

TEST_F(ReplayLookup, TimeFindsTheSegmentThatCoversIt) {
    struct Case {
        long long fTime;
        unsigned int fID;  // 0: none
    };
    const Case cases[] = {{-1, 0},  {0, 1},   {99, 1},  {100, 2}, {299, 3},
                          {300, 0}, {399, 0}, {400, 5}, {499, 5}, {500, 0}};
    for (const Case& one : cases) {
        SCOPED_TRACE(one.fTime);
        EXPECT_EQ(IdAt(one.fTime), one.fID);
    }
}

TEST_F(ReplayLookup, EmptyListHasNothing) {
    tnReplayManifest other(Movie("other.xml").c_str());
    EXPECT_EQ(other.GetFirstSegment(), nullptr);
    EXPECT_EQ(other.GetSegmentByTime(0), nullptr);
    EXPECT_EQ(tnReplayManifestAccess::SegmentByID(other, 1), nullptr);
}

TEST_F(ReplayLookup, EachLookUpGivesAReference) {
    tnReplaySegment* const first = fManifest->GetFirstSegment();
    tnReplaySegment* const same = fManifest->GetSegmentByTime(0);
    tnReplaySegment* const again = tnReplayManifestAccess::SegmentByID(*fManifest, 1);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(same, first);
    EXPECT_EQ(again, first);
    EXPECT_EQ(first->Release(), 3);
    EXPECT_EQ(first->Release(), 2);
    EXPECT_EQ(first->Release(), 1);  // the list's
}

TEST_F(ReplayLookup, SegmentWhoseFileIsGoneIsNotFoundByTime) {
    RemoveMovie(2);
    EXPECT_EQ(IdAt(150), 0u);  // no neighbour stands in for it
    EXPECT_EQ(IdAt(99), 1u);
    EXPECT_EQ(IdAt(200), 3u);
    EXPECT_EQ(id_and_release(tnReplayManifestAccess::SegmentByID(*fManifest, 2)), 2u);
}

TEST_F(ReplayLookup, FirstSegmentIsTheFirstWithAFile) {
    EXPECT_EQ(id_and_release(fManifest->GetFirstSegment()), 1u);
    RemoveMovie(1);
    EXPECT_EQ(id_and_release(fManifest->GetFirstSegment()), 2u);
    RemoveMovie(2);
    RemoveMovie(3);
    EXPECT_EQ(id_and_release(fManifest->GetFirstSegment()), 5u);
    RemoveMovie(5);
    EXPECT_EQ(fManifest->GetFirstSegment(), nullptr);
}

TEST_F(ReplayLookup, IdFindsTheFirstOfThatNumber) {
    ASSERT_EQ(fManifest->AddSegment(5, 600, 700), 0);
    tnReplaySegment* const segment = tnReplayManifestAccess::SegmentByID(*fManifest, 5);
    ASSERT_NE(segment, nullptr);
    EXPECT_EQ(segment->fStart, 400);
    segment->Release();
    EXPECT_EQ(tnReplayManifestAccess::SegmentByID(*fManifest, 4), nullptr);
}

TEST_F(ReplayLookup, MarksSelectSegments) {
    struct Case {
        const char* fName;
        std::vector<long long> fMark;   // empty: null
        std::vector<long long> fRange;  // in and out; empty: null
        Ids fIDs;
    };
    const Case cases[] = {
        {"nothing given", {}, {}, {}},
        {"inside one", {50}, {}, {1}},
        {"on a boundary", {100}, {}, {1, 2}},
        {"at the start of all", {0}, {}, {1}},
        {"at the end of all", {500}, {}, {5}},
        {"in the gap", {350}, {}, {}},
        {"at the gap's edge", {300}, {}, {3}},
        {"before all", {-1}, {}, {}},
        {"range inside one", {}, {110, 120}, {2}},
        {"range over two", {}, {50, 150}, {1, 2}},
        {"range touches both neighbours", {}, {100, 200}, {1, 2, 3}},
        {"range over the gap", {}, {300, 400}, {3, 5}},
        {"range in the gap", {}, {301, 399}, {}},
        {"range over all", {}, {-1000, 1000}, {1, 2, 3, 5}},
        {"range of one point", {}, {200, 200}, {2, 3}},
        {"range turned round selects what holds both ends", {}, {150, 110}, {2}},
        {"range turned round over a boundary", {}, {150, 50}, {}},
        {"mark and range", {450}, {0, 50}, {1, 5}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.fName);
        const bool range = !one.fRange.empty();
        EXPECT_EQ(Marked(one.fMark.empty() ? nullptr : &one.fMark[0],
                         range ? &one.fRange[0] : nullptr, range ? &one.fRange[1] : nullptr),
                  one.fIDs);
    }
}

TEST_F(ReplayLookup, OutMarkAloneSelectsNothing) {
    const long long out = 1000;
    EXPECT_EQ(Marked(nullptr, nullptr, &out), Ids{});
}

TEST_F(ReplayLookup, MarksAddToWhatIsHeld) {
    HeldSegments held;
    long long mark = 50;
    fManifest->AppendSegmentIDsByMarks(held.fSegments, &mark, nullptr, nullptr);
    fManifest->AppendSegmentIDsByMarks(held.fSegments, &mark, nullptr, nullptr);
    EXPECT_EQ(held.IDs(), Ids{1});
    mark = 450;
    fManifest->AppendSegmentIDsByMarks(held.fSegments, &mark, nullptr, nullptr);
    EXPECT_EQ(held.IDs(), (Ids{1, 5}));
    EXPECT_EQ(held.fSegments.First()->fItem->Release(), 1);  // counted once
    held.fSegments.First()->fItem->AddRef();
}

//   held by the caller:  |------ 9 ------|
//                        0              150
TEST_F(ReplayLookup, SegmentThatStartsInAHeldOneIsPassedOver) {
    HeldSegments held;
    held.fSegments.Set(new tnReplaySegment(9, 0, 150));
    long long in = 0, out = 250;
    fManifest->AppendSegmentIDsByMarks(held.fSegments, nullptr, &in, &out);
    EXPECT_EQ(held.IDs(), (Ids{9, 3}));
}

TEST_F(ReplayLookup, ManySegmentsAreFoundInTheirOrder) {
    tnReplayManifest many(Movie("many.xml").c_str());
    ASSERT_EQ(many.BeginRecording(Video(), Audio()), 0);
    for (unsigned int index = 0; index < 1000; ++index) {
        const long long start = static_cast<long long>(index * 7919u % 1000u) * 10;
        ASSERT_EQ(many.AddSegment(1, start, start + 10), 0);
    }
    for (long long time = 0; time < 10000; time += 3) {
        tnReplaySegment* const found = many.GetSegmentByTime(time);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->fStart, time / 10 * 10);
        found->Release();
    }
}

}  // namespace
