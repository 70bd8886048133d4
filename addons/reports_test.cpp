// What outputs tell of themselves: failures up to the last byte of a file, what they go on
// without, and nothing of what is over.

#include "orb/testSupport.h"
#include "tarn/writers/writerErrors.h"

#include "tests/support/FullDisk.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/addonHost.h"
#include "tests/support/orbDoubles.h"

using namespace addonTest;
using namespace Quillon::Orb;

namespace {

constexpr int kMany = 1 << 30;

/// The second output of a transport stream's movie, to an address that nobody listens at.
int update_address(Show& show, tn_output_update what) {
    zRecord record;
    tnOutputAccessor output(record);
    record.SetInt32('mOyp', TN_OUTPUT_STREAMING);
    output.SetURL("udp://127.0.0.1:9");
    output.SetOutputEnabled(true);
    zRecord result;
    return show.Movie().UpdateOutput(output, nullptr, result, what);
}

/// A frame of half the rows that its format tells of.
void write_short_picture(const Camera& camera, int frame) {
    const tnMediaRecord whole = camera.Picture(nullptr);
    tnMediaRecord half(whole);
    half.fHeight.SetInt32(Camera::kHeight / 2);
    const std::unique_ptr<tnStreamBufferGroup> group(tnStreamBufferGroup::CreateForFormat(half, 1));
    tnStreamBuffer* buffer = nullptr;
    ASSERT_EQ(group->GetBuffer(&buffer, true), 0);
    buffer->AddWritingRef();
    tnFilterManager::Default()->WriteVideoSample(1, camera.MsOf(frame), frame * 1001LL, *buffer,
                                                 whole);
    buffer->ReleaseWriting();
}

class Reports : public AddonTest {};

TEST_F(Reports, AFileWhoseEndFailsSaysSo) {
    const tests::FullDisk disk(kMany, false);
    Camera camera(1);
    Show raw("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    Show muxed("Shared QuickTime", {camera.H264(), camera.Aac()});
    ASSERT_EQ(raw.Add(fFolder.File("raw.mov")), 0);
    ASSERT_EQ(muxed.Add(fFolder.File("muxed.mov")), 0);
    camera.Write(0, 60);
    for (Show* show : {&raw, &muxed}) {
        EXPECT_EQ(show->Statistics(TN_MEDIA_VIDEO).fState, 0);
        EXPECT_EQ(show->Remove(), 0);
        for (const tnMediaType type : {TN_MEDIA_VIDEO, TN_MEDIA_AUDIO}) {
            EXPECT_EQ(show->Statistics(type).fState, 2);
            EXPECT_EQ(show->Statistics(type).fStatus, kWriterNoFile);
            EXPECT_GT(show->Statistics(type).fStatusValue, 0);
        }
    }
}

// The last picture is held until the file is closed, so that no write can tell of it.
TEST_F(Reports, APictureForWhichThereIsNoRoomAtTheEndIsToldOf) {
    constexpr int kRoom = 20;
    const tests::FullDisk disk(kRoom, true);
    Camera camera(1);
    Show show("QuickTime", {camera.Picture("MJPEG")});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, kRoom + 1);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
    EXPECT_EQ(show.Remove(), 0);
    const tn_output_statistics ended = show.Statistics(TN_MEDIA_VIDEO);
    EXPECT_EQ(ended.fState, 2);
    EXPECT_EQ(ended.fStatus, kWriterNoFile);
    long long bytes = 0;
    const std::vector<Packet> kept = PacketsOf(fFolder.File("a.mov"), "v:0");
    for (const Packet& packet : kept) bytes += packet.size;
    EXPECT_EQ(kept.size(), static_cast<std::size_t>(kRoom));
    EXPECT_EQ(ended.fStatusValue, bytes);
}

// At a frame a second, a row of lost pictures would be half a minute of a recording.
TEST_F(Reports, AFileThatTakesNothingMoreIsToldOfWithItsNextPicture) {
    const tests::FullDisk disk(20, true);
    TraceCatcher trace;
    Camera camera(1);
    Show show("QuickTime", {camera.Picture("MJPEG")});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    const auto soon = std::chrono::milliseconds(1);
    int frame = 0;
    ASSERT_TRUE(tests::WaitUntil(
        [&] {
            camera.Write(frame, frame + 1);
            ++frame;
            return trace.HasLineWith({"no space left"});
        },
        soon));
    camera.Write(frame, frame + 2);
    EXPECT_TRUE(tests::WaitUntil([&] { return show.Statistics(TN_MEDIA_VIDEO).fState == 2; }, soon))
        << "while it runs";
    EXPECT_EQ(show.Remove(), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, kWriterVideoSample);
    EXPECT_FALSE(trace.HasLineWith({"it goes on"}));
}

TEST_F(Reports, FramesThatAreShorterThanTheirFormatAreToldOfWhileTheyLast) {
    constexpr int kBorne = 29;
    Camera camera(1);
    for (const char* format : {"QuickTime", "Shared QuickTime"}) {
        SCOPED_TRACE(format);
        Show show(format, {camera.Picture("MJPEG")});
        ASSERT_EQ(show.Add(fFolder.File(std::string(format) + ".mov")), 0);
        camera.Write(0, 10);
        int frame = 10;
        for (; frame < 10 + kBorne; ++frame) write_short_picture(camera, frame);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
        write_short_picture(camera, frame++);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 2);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, kWriterConversion);
        camera.Write(frame, frame + 10);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
        EXPECT_EQ(show.Remove(), 0);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
        EXPECT_GT(PacketsOf(fFolder.File(std::string(format) + ".mov"), "v:0").size(), 15u);
    }
}

TEST_F(Reports, WhatAnOutputThatWasRemovedWasWithoutIsOver) {
    Camera camera(1);
    Show show("MPEG-TS", {camera.H264(), camera.Aac()});
    ASSERT_EQ(show.Add(fFolder.File("a.ts")), 0);
    ASSERT_EQ(update_address(show, TN_OUTPUT_UPDATE_ADD), 0);
    camera.LoseSound(60, 420);
    camera.Write(0, 420);
    EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fStatus, kOutputGetsNothing);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fStatus, kOutputGetsNothing) << "so is the other";
    camera.Write(420, 450);
    EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fStatus, 0) << "which has sound again";
    ASSERT_EQ(update_address(show, TN_OUTPUT_UPDATE_REMOVE), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fStatus, 0);
}

TEST_F(Reports, AFailureStaysAsLongAsItsOutput) {
    Camera camera(1);
    Show show("MPEG-TS", {camera.H264(), camera.Aac()});
    const auto state = [&] { return show.Statistics(TN_MEDIA_VIDEO).fState; };
    ASSERT_EQ(show.Add("/dev/full"), 0);
    ASSERT_EQ(update_address(show, TN_OUTPUT_UPDATE_ADD), 0);
    int frame = 0;
    ASSERT_TRUE(tests::WaitUntil(
        [&] {
            camera.Write(frame, frame + 1);
            ++frame;
            return state() == 2;
        },
        std::chrono::milliseconds(1)));
    ASSERT_EQ(update_address(show, TN_OUTPUT_UPDATE_REMOVE), 0);
    EXPECT_EQ(state(), 2) << "the one that failed stands there yet";
    ASSERT_EQ(update_address(show, TN_OUTPUT_UPDATE_ADD), 0);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_EQ(state(), 0) << "the one that runs has no failure";
    ASSERT_EQ(update_address(show, TN_OUTPUT_UPDATE_REMOVE), 0);
    EXPECT_EQ(state(), 0);
}

TEST_F(Reports, AnOutputThatBeginsAnewHasNoFormerEncodersFailure) {
    Camera camera(1);
    Show show("Shared QuickTime", {camera.H264(), camera.Aac()});
    const auto status = [&] { return show.Statistics(TN_MEDIA_VIDEO).fStatus; };
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, 30);
    for (int frame = 30; frame < 70; ++frame) camera.WriteOddPicture(frame, 128, 96, 'I420');
    const int odd = status();
    EXPECT_TRUE(odd == kWriterConversion || odd == kWriterVideoSample) << odd;
    EXPECT_EQ(show.Enable(false), 0);
    EXPECT_EQ(status(), odd) << "what it was without when it ended";
    EXPECT_GT(show.Statistics(TN_MEDIA_VIDEO).fStatusValue, 0);
    EXPECT_EQ(show.Enable(true), 0);
    EXPECT_EQ(status(), 0);
    camera.Write(70, 100);
    EXPECT_EQ(status(), 0);
}

// Encoders are large, with what they look ahead.
TEST_F(Reports, AnOutputThatIsSwitchedOffKeepsNoEncoder) {
    orbDoubles::Script script;
    const orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> encoder('mjpg', script);
    Camera camera(1);
    Show show("Shared QuickTime", {camera.Picture("MJPEG")});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, 10);
    EXPECT_EQ(script.begun, 1);
    EXPECT_EQ(script.ended, 0);
    EXPECT_EQ(show.Enable(false), 0);
    EXPECT_EQ(script.ended, 1);
}

}  // namespace
