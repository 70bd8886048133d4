#include "TrackTimes.h"

#include <climits>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "MoovWriter.h"

namespace Quillon::Orb {
namespace {

constexpr long long kSecond = 600;  // ticks
constexpr long long kFrame = 20;

struct Line {
    const char* name;
    std::vector<long long> decodeTimes;
    std::vector<long long> mediaTimes;
};

/// Media times start at 0 and never go back; small steps back wait for the time line to catch up,
/// large ones begin it anew where it stands.
TEST(PictureClock, MediaTimesFollowTheTimeLine) {
    const Line lines[] = {
        {"steady", {0, 20, 40}, {0, 20, 40}},
        {"starts late", {1000, 1020, 1040}, {0, 20, 40}},
        {"starts before 0", {-20, 0, 20}, {0, 20, 40}},
        {"twice the same", {0, 20, 20, 40}, {0, 20, 20, 40}},
        {"steps back a little", {0, 20, 10, 30, 50}, {0, 20, 20, 30, 50}},
        {"steps back a second", {0, 600, 0, 20, 620}, {0, 600, 600, 600, 620}},
        {"begins anew", {0, 601, 0, 20}, {0, 601, 621, 641}},
        {"a pause", {0, 20, 60000, 60020}, {0, 20, 60000, 60020}},
    };
    for (const Line& line : lines) {
        SCOPED_TRACE(line.name);
        PictureClock clock(kSecond, kFrame);
        for (std::size_t i = 0; i < line.decodeTimes.size(); i++)
            EXPECT_EQ(clock.Next(line.decodeTimes[i]), line.mediaTimes[i]);
        EXPECT_EQ(clock.First(), line.decodeTimes[0]);
    }
}

/// Readers take a step for a signed number of 32 bits: a longer one is made in several, and then
/// the pictures are on their time line again.
TEST(PictureClock, LongestStepIsThatOfTheFile) {
    constexpr long long kLongest = 2147483647;
    const Line lines[] = {
        {"just fits", {0, kLongest, kLongest + 20}, {0, kLongest, kLongest + 20}},
        {"too long by little",
         {0, kLongest + 1000, kLongest + 1020},
         {0, kLongest, kLongest + 1020}},
        {"too long by much",
         {0, 3 * kLongest, 3 * kLongest + 20, 3 * kLongest + 40},
         {0, kLongest, 2 * kLongest, 3 * kLongest}},
    };
    for (const Line& line : lines) {
        SCOPED_TRACE(line.name);
        PictureClock clock(kLongest / 10, kFrame);  // ten seconds are the longest step
        for (std::size_t i = 0; i < line.decodeTimes.size(); i++)
            EXPECT_EQ(clock.Next(line.decodeTimes[i]), line.mediaTimes[i]);
    }
    const PictureClock clock(kSecond, kFrame);
    EXPECT_EQ(clock.Duration(kLongest + 1), kFrame);
    EXPECT_EQ(clock.Duration(0), kFrame);
    EXPECT_EQ(clock.Duration(-5), kFrame);
    EXPECT_EQ(clock.Duration(33), 33);
}

/// What is more than a day away is not a pause: the film goes on from the longest step.
TEST(PictureClock, ATimeLineADayAheadIsAnotherOne) {
    constexpr long long kLongest = 2147483647;
    constexpr long long kDay = 24 * 60 * 60 * 1000000000LL;
    for (const long long step : {kDay, kDay + 2 * kLongest}) {
        PictureClock clock(1000000000, 20000000);
        clock.Next(0);
        EXPECT_EQ(clock.Next(step), kLongest);
        EXPECT_EQ(clock.Next(step + 20000000), step == kDay ? 2 * kLongest : kLongest + 20000000);
    }
}

struct Picture {
    long long time;
    int offset;
};

struct Shown {
    const char* name;
    std::vector<Picture> pictures;  // media times and offsets
    long long first;                // decode time of the first
    long long emptyTicks, mediaTime, mediaTicks;
    bool needed;
};

//            0    20   40   60   80      display time = first + media time + offset
//  plain     |P0--|P1--|P2--|
//  late      .....|P0--|P1--|P2--|      empty edit up to the first picture shown
//  ahead     [cut]|P1--|P2--|            what is shown before 0 is cut
TEST(PictureEdit, MediaStandsWhereItsFirstPictureIsShown) {
    const Shown all[] = {
        {"plain", {{0, 0}, {20, 0}, {40, 0}}, 0, 0, 0, 60, false},
        {"late", {{0, 0}, {20, 0}, {40, 0}}, 40, 40, 0, 60, true},
        {"before 0", {{0, 0}, {20, 0}, {40, 0}}, -20, 0, 20, 40, true},
        // decoded ahead by one: the first picture is shown at 20 of the media, at 0 of the movie
        {"reordered", {{0, 20}, {20, 60}, {40, 0}, {60, 0}}, -20, 0, 20, 80, true},
        // the same with offsets that count from the decode time and so may be negative
        {"negative offsets", {{0, 0}, {20, 40}, {40, -20}, {60, -20}}, 0, 0, 0, 80, false},
        // behind a checkpoint inside a group: the last picture shown ends before the last decoded
        {"cut inside a group", {{0, 20}, {20, 60}}, -20, 0, 20, 80, true},
        {"reordered and late", {{0, 20}, {20, 60}, {40, 0}, {60, 0}}, 80, 100, 20, 80, true},
    };
    for (const Shown& shown : all) {
        SCOPED_TRACE(shown.name);
        SampleTables tables(0);
        tables.BeginChunk(0);
        for (const Picture& picture : shown.pictures)
            tables.AddSample(100, picture.time, kFrame, picture.offset, true);
        const TrackEdit edit = PictureEdit(tables, shown.first);
        EXPECT_EQ(edit.emptyTicks, shown.emptyTicks);
        EXPECT_EQ(edit.mediaTime, shown.mediaTime);
        EXPECT_EQ(edit.mediaTicks, shown.mediaTicks);
        EXPECT_EQ(edit.needed, shown.needed);
    }
}

TEST(PictureEdit, EmptyTrackTakesNoTime) {
    const TrackEdit edit = PictureEdit(SampleTables(0), 500);
    EXPECT_EQ(edit.emptyTicks + edit.mediaTime + edit.mediaTicks, 0);
    EXPECT_FALSE(edit.needed);
}

TEST(SoundEdit, PrimingIsCutAndALateStartKept) {
    SampleTables tables(0);
    tables.BeginChunk(0);
    for (int i = 0; i < 4; i++) tables.AddSample(100, i * 1024, 1024, 0, true);
    TrackEdit edit = SoundEdit(tables, 0, 1024);
    EXPECT_EQ(edit.mediaTime, 1024);
    EXPECT_EQ(edit.mediaTicks, 3 * 1024);
    EXPECT_TRUE(edit.needed);
    edit = SoundEdit(tables, 4800, 0);
    EXPECT_EQ(edit.emptyTicks, 4800);
    EXPECT_EQ(edit.mediaTicks, 4 * 1024);
    EXPECT_TRUE(edit.needed);
    EXPECT_FALSE(SoundEdit(tables, 0, 0).needed);
    // Less sound than priming: nothing is heard yet.
    EXPECT_EQ(SoundEdit(tables, 0, 5000).mediaTicks, 0);
}

TEST(Rescale, IsExactAndRoundsHalvesUp) {
    EXPECT_EQ(Rescale(1, 1, 2), 1);
    EXPECT_EQ(Rescale(1, 1, 3), 0);
    EXPECT_EQ(Rescale(9000000000000000, 10000000, 30000), 3000000000000000000);
}

/// A track that begins ages after the movie, whose own scale is finer: no 64 bits count that.
TEST(MovieTimes, AStartThatCannotBeCountedIsTheLatestThatCan) {
    MovieTrack picture;
    picture.format = 'jpeg';
    picture.timescale = 25;
    picture.frameDuration = 1;
    Movie movie;
    movie.timescale = 48000;
    movie.tracks.push_back(std::make_unique<TrackIndex>(picture, true));
    TrackIndex& track = *movie.tracks.front();
    StoredSample sample;
    sample.size = 1;
    sample.time = 1LL << 61;
    sample.duration = INT_MAX;
    track.Add(sample);
    EXPECT_EQ(movie.EmptyTicks(track), LLONG_MAX / 2);
    EXPECT_EQ(movie.MediaTicks(track), INT_MAX * 1920LL);
    EXPECT_EQ(movie.Duration(), LLONG_MAX / 2 + INT_MAX * 1920LL);
}

}  // namespace
}  // namespace Quillon::Orb
