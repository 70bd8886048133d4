#include "addons/support/MovieStart.h"

#include <gtest/gtest.h>

#include "tests/support/filterDoubles.h"

using filterDoubles::Picture;
using filterDoubles::Sound;

namespace {

constexpr long long kScale = 1000;  // a tick is a millisecond

MediaItem picture(double ms, bool key, double hostShift = 0) {
    MediaItem item;
    auto format = std::make_shared<TrackFormat>();
    format->output.SetInt64('tmsc', kScale);
    item.format = format;
    item.picture = std::shared_ptr<tnVideoCompressor::EncodedBuffer>(
        new Picture(ms, key), [](tnVideoCompressor::EncodedBuffer* one) { one->Release(); });
    item.isKey = key;
    item.startMs = ms;
    item.endMs = ms + 40;
    item.decodeMs = ms;
    item.decodeTicks = static_cast<long long>(ms);
    item.hasHostTime = hostShift != 0;
    item.hostShiftMs = hostShift;
    return item;
}

MediaItem sound(double ms, double hostShift = 0) {
    MediaItem item;
    item.sound = std::shared_ptr<tnAudioCompressor::EncodedBuffer>(
        new Sound(1, 20, ms), [](tnAudioCompressor::EncodedBuffer* one) { one->Release(); });
    item.isKey = true;
    item.startMs = ms;
    item.endMs = ms + 20;
    item.hasHostTime = hostShift != 0;
    item.hostShiftMs = hostShift;
    return item;
}

bool add(MovieStart& start, MediaItem item) {
    start.Add(std::move(item));
    return start.Decide();
}

TEST(MovieStart, PicturesAloneWaitForAKeyFrame) {
    MovieStart start(true, false);
    EXPECT_FALSE(add(start, picture(0, false)));
    EXPECT_FALSE(add(start, picture(40, false)));
    EXPECT_TRUE(add(start, picture(80, true)));
    EXPECT_EQ(start.TimeMs(), 80);
    EXPECT_EQ(start.Ticks(), 80);
    MediaItem item;
    ASSERT_TRUE(start.Next(item));
    EXPECT_EQ(item.startMs, 80);
    EXPECT_FALSE(start.Next(item));
}

TEST(MovieStart, SoundAloneBeginsAtOnce) {
    MovieStart start(false, true);
    EXPECT_TRUE(add(start, sound(123)));
    EXPECT_EQ(start.TimeMs(), 123);
}

//   pictures  I0  P40  I80  P120  I160
//   sound            s60  s80 ...          the key frame at 0 has no sound beside it
TEST(MovieStart, TheFirstKeyFrameWithSoundBesideItBegins) {
    MovieStart start(true, true);
    EXPECT_FALSE(add(start, picture(0, true)));
    EXPECT_FALSE(add(start, picture(40, false)));
    EXPECT_FALSE(add(start, sound(60)));
    EXPECT_FALSE(add(start, picture(80, true)));  // the sound of that moment has not come
    EXPECT_TRUE(add(start, sound(80)));
    EXPECT_EQ(start.TimeMs(), 80);
    MediaItem item;
    std::vector<double> order;
    while (start.Next(item)) order.push_back(item.startMs);
    EXPECT_EQ(order, (std::vector<double>{60, 80, 80}));
}

TEST(MovieStart, SoundFromBeforeIsKeptForARunUpOnly) {
    MovieStart start(true, true);
    for (int ms = 0; ms < 1000; ms += 20) EXPECT_FALSE(add(start, sound(ms)));
    EXPECT_FALSE(add(start, picture(490, false)));
    EXPECT_TRUE(add(start, picture(530, true)));
    EXPECT_EQ(start.Sound().front().startMs, 420);
    EXPECT_EQ(start.Pictures().size(), 1u);
}

TEST(MovieStart, SoundThatNeverComesIsGivenUp) {
    MovieStart start(true, true);
    for (int ms = 0; ms <= 10000; ms += 40) ASSERT_FALSE(add(start, picture(ms, ms % 400 == 0)));
    EXPECT_TRUE(add(start, picture(10040, false)));
    EXPECT_FALSE(start.HasSound());
    EXPECT_EQ(start.TimeMs(), 0);
}

// Ten seconds of raw pictures are gigabytes.
TEST(MovieStart, PicturesThatWaitForSoundAreBounded) {
    MovieStart start(true, true, 50);
    for (int ms = 0; ms <= 10040; ms += 40) {
        MediaItem item = picture(ms, ms % 120 == 0);  // I P P I P P
        item.bytes = 5;
        ASSERT_EQ(add(start, std::move(item)), ms == 10040) << ms;
        ASSERT_LE(start.Pictures().size(), 10u);
    }
    EXPECT_FALSE(start.HasSound());
    EXPECT_EQ(start.TimeMs(), 9720) << "a key frame";
    EXPECT_EQ(start.Pictures().back().startMs, 10040);
}

TEST(MovieStart, TheOnlyKeyFrameIsKeptWhateverItTakes) {
    MovieStart start(true, true, 50);
    for (int ms = 0; ms <= 800; ms += 40) {
        MediaItem item = picture(ms, ms == 0);
        item.bytes = 5;
        ASSERT_FALSE(add(start, std::move(item)));
    }
    EXPECT_EQ(start.Pictures().size(), 21u);
}

TEST(MovieStart, AtTheEndPicturesBeginWithoutSound) {
    MovieStart start(true, true);
    EXPECT_FALSE(start.DecideAtEnd()) << "nothing to begin with";
    EXPECT_FALSE(add(start, picture(0, false)));
    EXPECT_FALSE(add(start, picture(40, true)));
    EXPECT_FALSE(add(start, picture(80, false)));
    ASSERT_TRUE(start.DecideAtEnd());
    EXPECT_FALSE(start.HasSound());
    EXPECT_EQ(start.TimeMs(), 40);

    MovieStart late(true, true);
    EXPECT_FALSE(add(late, sound(0)));
    EXPECT_FALSE(add(late, picture(40, true)));
    ASSERT_TRUE(late.DecideAtEnd());
    EXPECT_TRUE(late.HasSound()) << "what there is, is kept";
    EXPECT_EQ(late.TimeMs(), 40);

    MovieStart unseen(true, true);
    EXPECT_FALSE(add(unseen, sound(0)));
    EXPECT_FALSE(unseen.DecideAtEnd());
}

TEST(MovieStart, SoundThatWaitsForPicturesIsBounded) {
    MovieStart start(true, true);
    for (int ms = 0; ms < 200000; ms += 20) ASSERT_FALSE(add(start, sound(ms)));
    EXPECT_LE(start.Sound().size(), 3002u);
    EXPECT_EQ(start.Sound().back().startMs, 199980);
}

constexpr double kHour = 3600e3;
constexpr double kMinute = 60e3;
constexpr int kPerSecond = 25;  // pictures, and pieces of sound

/// What an output gets that is added in mid-run; its lines are set anew while it waits for the
/// first key frame, after a second.
struct Joining {
    const char* what;
    double pictureStepMs;
    double soundStepMs;
};

void PrintTo(const Joining& test, std::ostream* out) {
    *out << test.what;
}

class WhereTimesAreSet : public testing::TestWithParam<Joining> {
protected:
    static constexpr int kFirstKey = 2 * kPerSecond;
    static constexpr int kKeyRate = 10 * kPerSecond;
    static constexpr int kMost = 60 * kPerSecond;

    /// How many pictures it takes until the movie begins; kMost if it does not.
    static int begin(MovieStart& start, bool soundFirst) {
        for (int i = 0; i < kMost; ++i) {
            if (soundFirst && add(start, sound_at(i))) return i + 1;
            if (add(start, picture_at(i))) return i + 1;
            if (!soundFirst && add(start, sound_at(i))) return i + 1;
        }
        return kMost;
    }

private:
    static constexpr double kOrigin = 1e7;

    static MediaItem picture_at(int i) {
        const double shift = kOrigin + (i < kPerSecond ? 0 : GetParam().pictureStepMs);
        return picture(shift + 40 * i, i % kKeyRate == kFirstKey, -shift);
    }
    static MediaItem sound_at(int i) {
        const double shift = kOrigin + (i < kPerSecond ? 0 : GetParam().soundStepMs);
        MediaItem item = sound(shift + 40 * i, -shift);
        item.endMs = item.startMs + 40;
        return item;
    }
};

TEST_P(WhereTimesAreSet, TheFirstKeyFrameBegins) {
    for (const bool soundFirst : {true, false}) {
        SCOPED_TRACE(soundFirst);
        MovieStart start(true, true);
        EXPECT_EQ(begin(start, soundFirst), kFirstKey + 1);
        EXPECT_TRUE(start.HasSound());
        EXPECT_EQ(start.Pictures().size(), 1u);
        ASSERT_FALSE(start.Sound().empty());
        EXPECT_NEAR(start.OnLine(start.Sound().front().startMs), start.TimeMs(), 150);
    }
}

INSTANTIATE_TEST_SUITE_P(MovieStart, WhereTimesAreSet,
                         testing::Values(Joining{"nothing", 0, 0},
                                         Joining{"both back by five seconds", -5000, -5000},
                                         Joining{"both back by a minute", -kMinute, -kMinute},
                                         Joining{"both back by an hour", -kHour, -kHour},
                                         Joining{"both on by an hour", kHour, kHour},
                                         Joining{"sound back by an hour", 0, -kHour},
                                         Joining{"sound on by an hour", 0, kHour},
                                         Joining{"pictures back by an hour", -kHour, 0},
                                         Joining{"pictures on by an hour", kHour, 0}));

// A step to other times counts as a second at most, and what had waited before it counts on.
TEST(MovieStart, PatienceForSoundIsCountedFromPictureToPicture) {
    for (const double step : {0.0, kHour, -kHour, -kMinute, -5000.0, 5000.0}) {
        SCOPED_TRACE(step);
        MovieStart start(true, true);
        int count = 0;
        bool begun = false;
        for (; !begun && count < 60 * kPerSecond; ++count) {
            begun = add(start, picture(kHour + 40 * count + (count < 25 ? 0 : step), true));
        }
        EXPECT_GE(count, 9 * kPerSecond);
        EXPECT_LE(count, 10 * kPerSecond + 5);
        EXPECT_FALSE(start.HasSound());
    }
}

TEST(MovieStart, PicturesWhoseTimeStandsStillDoNotWaitForever) {
    MovieStart start(true, true);
    int count = 1;
    while (!add(start, picture(0, true)) && count < 20000) ++count;
    EXPECT_GT(count, 9000);
    EXPECT_LT(count, 11000);
}

// A second each, and shown in another order than they come in:
//   I0  P3  B1  B2 | I4  P7  B5  B6 | ...
TEST(MovieStart, AnotherOrderOfShowingIsNoStepInTime) {
    constexpr int kShown[] = {0, 3, 1, 2};
    MovieStart start(true, true);
    for (int i = 0; i <= 10; ++i) {
        MediaItem item = picture(1000 * i, i % 4 == 0);
        item.startMs = 1000 * (i / 4 * 4 + kShown[i % 4] + 1);
        ASSERT_FALSE(add(start, std::move(item))) << i;
    }
    EXPECT_EQ(start.Pictures().size(), 11u);
    EXPECT_TRUE(add(start, picture(11000, false)));
}

TEST(MovieStart, SoundThatIsSetBackWhileItWaitsIsBounded) {
    MovieStart start(true, true);
    for (int ms = 0; ms < 200000; ms += 20) {
        ASSERT_FALSE(add(start, sound(kHour + ms - (ms < 100000 ? 0 : kMinute))));
        ASSERT_LE(start.Sound().size(), 3002u) << ms;
    }
}

// Frame times from 0 and sound positions from an hour: what both were written at tells them apart.
//   pictures  0 40 80         on the host's line 5000 later
//   sound     3600000 ...     on the host's line 3594990 earlier, so 10 ms after the pictures' 0
TEST(MovieStart, LinesOfDifferentOriginsMeetOnTheHosts) {
    MovieStart start(true, true);
    EXPECT_FALSE(add(start, picture(0, true, 5000)));
    EXPECT_FALSE(add(start, picture(40, true, 5000)));
    EXPECT_FALSE(add(start, sound(3600000, -3594990)));
    EXPECT_TRUE(add(start, sound(3600020, -3594990)));  // from 30 to 50: beside the frame at 40
    EXPECT_EQ(start.TimeMs(), 40);
    EXPECT_EQ(start.OnLine(3600000), 10);
}

TEST(MovieStart, TheStartIsWhenTheKeyFrameIsShown) {
    MovieStart start(true, false);
    MediaItem item = picture(80, true);
    item.offsetTicks = 40;
    item.startMs = 120;
    EXPECT_TRUE(add(start, std::move(item)));
    EXPECT_EQ(start.Ticks(), 120);
    EXPECT_EQ(start.TimeMs(), 120);
}

}  // namespace
