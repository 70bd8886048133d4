// The output add-ons as a host uses them: found in a folder, fed through the filter manager, their
// files read by programs that are not ours.

#include "addons/testHost.h"

using namespace addonTest;
using tests::CountFrames;
using tests::ProbeStream;

namespace {

class Addons : public AddonTest {};

TEST_F(Addons, MuxWritesAMovieThatOthersRead) {
    Camera camera(1);
    Show show("Shared QuickTime", {camera.Picture("x264"), camera.Sound("MPEG-4 Audio")});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, 90);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_EQ(ProbeStream(fFolder.File("a.mov"), "v:0", "codec_name"), "h264");
    EXPECT_EQ(ProbeStream(fFolder.File("a.mov"), "a:0", "codec_name"), "aac");
    // The encoder keeps what it looks ahead at.
    EXPECT_GT(CountFrames(fFolder.File("a.mov")), 60);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, 0);
}

TEST_F(Addons, MoviefileWritesAMovieThatOthersRead) {
    Camera camera(1);
    tnMediaRecord proRes = camera.Picture("ProRes");
    Show show("QuickTime", {proRes, camera.Sound("PCM")});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, 60);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_EQ(ProbeStream(fFolder.File("a.mov"), "v:0", "codec_name"), "prores");
    EXPECT_EQ(ProbeStream(fFolder.File("a.mov"), "a:0", "codec_name"), "pcm_s16le");
    EXPECT_EQ(CountFrames(fFolder.File("a.mov")), 60);
}

}  // namespace
