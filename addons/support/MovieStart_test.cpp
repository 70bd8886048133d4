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
