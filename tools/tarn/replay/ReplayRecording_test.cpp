#include "ReplayRecording.h"

#include <gtest/gtest.h>

#include "ReplayList.h"

namespace {

TEST(ReplayTime, ReadsSecondsMinutesAndHours) {
    struct Case {
        const char* fText;
        long long fTime;
    };
    const Case cases[] = {{"0", 0},
                          {"12.5", 12'500'000},
                          {"0.000001", 1},
                          {"1:02.5", 62'500'000},
                          {"1:00:00", 3'600'000'000},
                          {"100:00", 6'000'000'000},
                          {"-10", -10'000'000},
                          {"-1:00", -60'000'000}};
    for (const Case& one : cases) {
        SCOPED_TRACE(one.fText);
        long long time = 1;
        EXPECT_TRUE(ParseReplayTime(one.fText, time));
        EXPECT_EQ(time, one.fTime);
    }
}

TEST(ReplayTime, RefusesWhatIsNoTime) {
    for (const char* text : {"", "-", "soon", "1:", ":1", "1:60", "1.5:00", "1:2:3:4", "1e3", "nan",
                             "inf", "--1", "1:-2", " 1", "1 ", "99999999999"}) {
        SCOPED_TRACE(text);
        long long time = 7;
        EXPECT_FALSE(ParseReplayTime(text, time));
        EXPECT_EQ(time, 7);
    }
}

//     |-- 1 --|-- 2 --|          |-- 4 --|
//     0       1       2          3       4 s
ReplayRecording with_gap() {
    ReplayRecording recording;
    recording.folder = "cam";
    recording.pieces = {{1, 0, 1'000'000, "cam/1.mov", 1000},
                        {2, 1'000'001, 2'000'000, "cam/2.mov", 1000},
                        {4, 3'000'000, 4'000'000, "cam/4.mov", 1000}};
    return recording;
}

TEST(ReplayList, TimelineShowsGaps) {
    EXPECT_EQ(ReplayTimeline(with_gap(), 8), "####..##");
    EXPECT_EQ(ReplayTimeline(with_gap(), 4), "##.#");
    EXPECT_EQ(ReplayTimeline(with_gap(), 2), "#+");
}

TEST(ReplayList, RoundingOfTimesIsNoGap) {
    const std::vector<ReplayGap> gaps = GapsOf(with_gap());
    ASSERT_EQ(gaps.size(), 1u);
    EXPECT_EQ(gaps[0].start, 2'000'000);
    EXPECT_EQ(gaps[0].stop, 3'000'000);
}

TEST(ReplayList, EmptyRecordingIsListed) {
    ReplayRecording recording;
    recording.folder = "cam";
    EXPECT_EQ(TextOfReplay(recording),
              "cam: no segments; not closed: it goes on, or was cut off\n");
    EXPECT_NE(JsonOfReplay(recording).find("\"segments\":[],\"gaps\":[]"), std::string::npos);
}

}  // namespace
