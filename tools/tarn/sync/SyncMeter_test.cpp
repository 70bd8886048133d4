#include "SyncMeter.h"

#include <gtest/gtest.h>
#include <string>

#include "tests/support/MakeClip.h"
#include "tests/support/TestFolder.h"

namespace {

/// Two seconds of grey with a tone that no digit has.
std::string make_clip(const tests::TestFolder& folder) {
    const std::string clip = folder.File("clip.mkv");
    EXPECT_TRUE(tests::MakeClip(clip,
                                "-f lavfi -i color=gray:size=160x160:rate=10:duration=2 "
                                "-f lavfi -i sine=duration=2 -c:v mjpeg -c:a pcm_s16le"));
    return clip;
}

TEST(SyncMeter, AnEndBeforeTheClipsIsNoWholeMeasurement) {
    const tests::TestFolder folder;
    const std::string clip = make_clip(folder);
    SyncMeasurement measurement;
    std::string error;
    ASSERT_TRUE(MeasureSync(
        clip, [](double) { return false; }, measurement, error))
        << error;
    EXPECT_FALSE(measurement.stopped);
    EXPECT_NEAR(measurement.seconds, 2, 0.11);

    ASSERT_TRUE(MeasureSync(
        clip, [](double share) { return share > 0.4; }, measurement, error));
    EXPECT_TRUE(measurement.stopped);
    EXPECT_GT(measurement.seconds, 0.5);
    EXPECT_LT(measurement.seconds, 1.5);

    // While the sound is looked through, before the first picture.
    int asked = 0;
    const auto atOnce = [&](double share) {
        ++asked;
        EXPECT_EQ(share, 0);
        return true;
    };
    ASSERT_TRUE(MeasureSync(clip, atOnce, measurement, error));
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(measurement.stopped);
    EXPECT_EQ(measurement.seconds, 0);
}

}  // namespace
