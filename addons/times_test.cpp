// What reaches a muxed file is what the encoder made: pictures, times, key flags; and its tracks
// start together, to the sample.

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>

#include "orb/CAudioSample.h"

#include "tests/support/AvCodecs.h"
#include "tests/support/FlashAndClick.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/addonHost.h"

using namespace addonTest;

namespace {

std::atomic<bool> gLoseSample{false};  // there is no memory for the next sample of sound

}  // namespace

// Stands before the one of the media library.
__attribute__((visibility("default"))) void* Quillon::Orb::CObject::operator new(
    std::size_t size) noexcept {
    using Allocate = void* (*)(std::size_t);
    static const auto real =
        reinterpret_cast<Allocate>(dlsym(RTLD_NEXT, "_ZN7Quillon3Orb7CObjectnwEm"));
    const bool isSound = size == sizeof(Quillon::Orb::CAudioSample);
    return isSound && gLoseSample.exchange(false) ? nullptr : real(size);
}

namespace {

constexpr double kFrame = 1001.0 / 30000;

class Times : public AddonTest {};

/// The same frames through libavcodec alone, as a raw stream in a file.
void encode_straight(const std::string& path, int frames, int bFrames) {
    avCodecs::X264 settings;
    settings.width = Camera::kWidth;
    settings.height = Camera::kHeight;
    settings.bFrames = bFrames;
    settings.keyFrameInterval = 15;
    const avCodecs::Context context = avCodecs::OpenX264(settings);
    ASSERT_TRUE(context);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(context->extradata), context->extradata_size);
    const avCodecs::Packet packet(av_packet_alloc());
    const auto fetch = [&] {
        while (avcodec_receive_packet(context.get(), packet.get()) >= 0) {
            file.write(reinterpret_cast<const char*>(packet->data), packet->size);
            av_packet_unref(packet.get());
        }
    };
    std::vector<unsigned char> pixels(Camera::kWidth * Camera::kHeight * 3 / 2);
    for (int i = 0; i < frames; ++i) {
        Camera::Paint(i, pixels.data());
        const avCodecs::Frame frame =
            avCodecs::WrapI420(pixels.data(), Camera::kWidth, Camera::kHeight, i);
        avcodec_send_frame(context.get(), frame.get());
        fetch();
    }
    avcodec_send_frame(context.get(), nullptr);
    fetch();
}

class Reordered : public AddonTest, public testing::WithParamInterface<int> {};

TEST_P(Reordered, PicturesAndTimesAreThoseThatWentIn) {
    constexpr int kFrames = 120;
    Camera camera(1);
    Show mov("Shared QuickTime", {camera.H264(GetParam())});
    Show mp4("Shared MPEG-4", {camera.H264(GetParam())});
    ASSERT_EQ(mov.Add(fFolder.File("a.mov")), 0);
    ASSERT_EQ(mp4.Add(fFolder.File("a.mp4")), 0);
    camera.Write(0, kFrames);
    mov.End();
    mp4.End();
    encode_straight(fFolder.File("straight.h264"), kFrames, GetParam());
    const std::vector<std::string> straight = PictureHashes(fFolder.File("straight.h264"));
    ASSERT_EQ(straight.size(), static_cast<std::size_t>(kFrames));

    for (const char* name : {"a.mov", "a.mp4"}) {
        const std::string path = fFolder.File(name);
        const std::vector<Packet> packets = PacketsOf(path, "v:0");
        ASSERT_GT(packets.size(), 60u) << name;
        ExpectEveryFrame(path, 0, kFrame, 60);
        for (std::size_t i = 0; i + 1 < packets.size(); ++i) {
            EXPECT_NEAR(packets[i + 1].decode - packets[i].decode, kFrame, 1e-5) << name << i;
            EXPECT_NEAR(packets[i].duration, kFrame, 1e-5) << name << i;
            EXPECT_EQ(packets[i].key, i % 15 == 0) << name << i;
        }
        const std::vector<std::string> muxed = PictureHashes(path);
        ASSERT_GT(muxed.size(), 60u);
        for (std::size_t i = 0; i + 4 < muxed.size(); ++i) {
            ASSERT_EQ(muxed[i], straight[i]) << name << " frame " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(BFrames, Reordered, testing::Values(0, 2, 3));

struct Kind {
    const char* format;
    const char* file;
    const char* sound;
    long long ticks = 1001;  ///< of a frame
};

tnMediaRecord picture_of(const Camera& camera, const Kind& kind) {
    tnMediaRecord picture = camera.H264();
    if (std::string(kind.format) == "QuickTime") picture.SetCString('mcon', "ProRes");
    return picture;
}

/// Flash and click as a player shows them.
void expect_together(const std::string& path, double tolerance = 0.025) {
    const double origin = std::atof(tests::ProbeStream(path, "a:0", "start_time").c_str());
    const double flash = FlashTime(path);
    EXPECT_GT(flash, 0.5) << path;
    EXPECT_NEAR(ClickTime(path) + origin, flash, tolerance) << path;
}

/// From the start of the first packet to the end of the last one.
double sound_seconds(const std::string& path) {
    const std::vector<Packet> packets = PacketsOf(path, "a:0");
    if (packets.empty()) return 0;
    return packets.back().shown + packets.back().duration - packets.front().shown;
}

class Together : public AddonTest, public testing::WithParamInterface<Kind> {};

// The output is added in mid-run, so that its first key frame, its first packet of sound and the
// start of the source are three different moments.
TEST_P(Together, FlashAndClickMeetAlsoWhereAnOutputCameLate) {
    const Kind& kind = GetParam();
    const std::string path = fFolder.File(kind.file);
    Camera camera(1, kind.ticks);
    camera.FlashAt(100);
    Show first("Shared MPEG-4", {camera.H264(2), camera.Aac()});
    ASSERT_EQ(first.Add(fFolder.File("first.mp4")), 0);
    camera.Write(0, 37);
    tnMediaRecord picture = camera.H264(2);
    if (std::string(kind.format) == "QuickTime") picture.SetCString('mcon', "ProRes");
    Show late(kind.format, {picture, camera.Sound(kind.sound)});
    ASSERT_EQ(late.Add(path), 0);
    camera.Write(37, 220);
    late.End();
    first.End();

    // Sound of a transport stream is told apart from its pictures by times alone.
    const double origin = std::atof(tests::ProbeStream(path, "a:0", "start_time").c_str());
    const double click = ClickTime(path) + origin;
    const double flash = FlashTime(path);
    EXPECT_GT(flash, 0.5) << "the flash is in the file";
    EXPECT_NEAR(click, flash, 0.003) << path;
    EXPECT_NEAR(ClickTime(fFolder.File("first.mp4")), FlashTime(fFolder.File("first.mp4")), 0.003);
    ExpectClean(path);
}

// Sound that never came leaves a hole, and what follows it stays with its pictures.
TEST_P(Together, SoundThatIsLostPullsNothingForward) {
    const Kind& kind = GetParam();
    const std::string path = fFolder.File(kind.file);
    Camera camera(1, kind.ticks);
    camera.FlashAt(100);
    camera.LoseSound(40, 70);
    Show show(kind.format, {picture_of(camera, kind), camera.Sound(kind.sound)});
    ASSERT_EQ(show.Add(path), 0);
    camera.Write(0, 180);
    show.End();
    expect_together(path);
    ExpectEveryFrame(path, PacketsOf(path, "v:0").front().shown, camera.SecondsOf(1), 120);
}

// A sound device that was opened anew counts from 0 again; the host and its pictures run on.
TEST_P(Together, SoundGoesOnWhereItsDeviceBeginsAnew) {
    constexpr int kFrames = 300;
    constexpr long long kSecondsOpen = 10000;
    const Kind& kind = GetParam();
    const std::string path = fFolder.File(kind.file);
    Camera camera(1, kind.ticks);
    camera.FlashAt(200);
    camera.BeginAt(kSecondsOpen);
    camera.MoveSound([&](int frame) {
        return frame < 120 ? 0 : -kSecondsOpen * Camera::kRate - camera.PositionOf(120);
    });
    Show show(kind.format, {picture_of(camera, kind), camera.Sound(kind.sound)});
    ASSERT_EQ(show.Add(path), 0);
    camera.Write(0, kFrames);
    show.End();
    expect_together(path);
    EXPECT_NEAR(sound_seconds(path), camera.SecondsOf(kFrames), 0.1);
}

// Hosts that slept, or whose clock was set, go on at another time.
TEST_P(Together, BothLinesMayJump) {
    constexpr int kFrames = 240;
    const Kind& kind = GetParam();
    for (const double seconds : {300.0, 601.0, 7200.0, -0.3, -5.0}) {
        SCOPED_TRACE(testing::Message() << seconds << " s");
        const std::string path = fFolder.File(std::to_string(seconds) + kind.file);
        Camera camera(1, kind.ticks);
        camera.FlashAt(180);
        camera.BeginAt(10000);
        camera.JumpAt(120, seconds);
        Show show(kind.format, {picture_of(camera, kind), camera.Sound(kind.sound)});
        ASSERT_EQ(show.Add(path), 0);
        camera.Write(0, kFrames);
        show.End();
        expect_together(path);
        EXPECT_GT(PacketsOf(path, "v:0").size(), 200u);
    }
}

//   first  |-----------------|--------------------------------
//   late              |~~~~~~|~~~~~~~|------------------------     ~ waits for a key frame
//                           both lines are set back
TEST_P(Together, AnOutputThatWaitsForItsKeyFrameMayBeSetBackToo) {
    constexpr int kKeyRate = 150;
    constexpr int kFrames = 420;
    const Kind& kind = GetParam();
    Camera camera(1, kind.ticks);
    camera.FlashAt(250);
    camera.BeginAt(10000);
    camera.JumpAt(100, -60);
    tnMediaRecord picture = picture_of(camera, kind);
    picture.SetInt32("key_frame_rate", kKeyRate);
    Show first(kind.format, {picture, camera.Sound(kind.sound)});
    Show late(kind.format, {picture, camera.Sound(kind.sound)});
    ASSERT_EQ(first.Add(fFolder.File(std::string("first_") + kind.file)), 0);
    camera.Write(0, 80);
    ASSERT_EQ(late.Add(fFolder.File(kind.file)), 0);
    camera.Write(80, kFrames);
    late.End();
    first.End();
    expect_together(fFolder.File(kind.file));
    EXPECT_GT(PacketsOf(fFolder.File(kind.file), "v:0").size(), kFrames - kKeyRate - 20u);
}

// A host that takes its positions from a clock tells some of them late when it is busy.
TEST_P(Together, SoundThatIsToldLateNowAndThenStaysInItsPlace) {
    constexpr int kFrames = 320;
    const Kind& kind = GetParam();
    const std::string path = fFolder.File(kind.file);
    Camera camera(1, kind.ticks);
    camera.FlashAt(290);
    camera.MoveSound([](int frame) { return frame % 30 == 15 ? Camera::kRate / 40 : 0; });
    Show show(kind.format, {picture_of(camera, kind), camera.Sound(kind.sound)});
    ASSERT_EQ(show.Add(path), 0);
    camera.Write(0, kFrames);
    show.End();
    expect_together(path, 0.05);
    EXPECT_NEAR(sound_seconds(path), camera.SecondsOf(kFrames), 0.1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Together,
                         testing::Values(Kind{"Shared QuickTime", "late.mov", "MPEG-4 Audio"},
                                         Kind{"Shared MPEG-4", "late.mp4", "MPEG-4 Audio"},
                                         Kind{"MPEG-TS", "late.ts", "MPEG-4 Audio"},
                                         // Shared PCM is a thirtieth of a second long.
                                         Kind{"Shared QuickTime", "late_pcm.mov", "PCM", 1000},
                                         Kind{"QuickTime", "late_raw.mov", "PCM"}),
                         [](const auto& test) {
                             std::string name = test.param.file;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

// Each block that is lost leaves a hole of its own length.
TEST_F(Times, SoundThatThereWasNoMemoryForPullsNothingForward) {
    const std::string path = fFolder.File("a.mov");
    Camera camera(1);
    camera.FlashAt(290);
    Show show("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    ASSERT_EQ(show.Add(path), 0);
    camera.Write(0, 60);
    for (int frame = 60; frame < 150; frame += 15) {
        gLoseSample = true;
        camera.Write(frame, frame + 15);
        ASSERT_TRUE(tests::WaitUntil([] { return !gLoseSample; }, std::chrono::milliseconds(1)));
    }
    camera.Write(150, 320);
    show.End();
    expect_together(path);
    EXPECT_NEAR(sound_seconds(path), camera.SecondsOf(320), 0.03);
}

// Hosts that had to catch up write more than a converter takes at once.
TEST_F(Times, ALongBlockThatChangesItsRateIsNotLost) {
    constexpr int kFrames = 240;
    const std::string path = fFolder.File("a.mov");
    Camera camera(1, 1000);
    camera.FlashAt(200);
    tnMediaRecord sound = camera.Sound("PCM");
    sound.fSampleRate.SetInt32(44100);
    Show show("QuickTime", {camera.Picture("MJPEG"), sound});
    ASSERT_EQ(show.Add(path), 0);
    camera.Write(0, 60);
    camera.WriteSound(60, 20);  // two thirds of a second
    for (int frame = 60; frame < 80; ++frame) camera.WritePicture(frame);
    camera.Write(80, kFrames);
    show.End();
    expect_together(path);
    EXPECT_NEAR(sound_seconds(path), camera.SecondsOf(kFrames), 0.03);
}

// An encoder without filler of its own: the last picture of each second is filled up, so that every
// second of the stream has the very bytes of its rate.
TEST_F(Times, AStrictRateIsKeptToTheByteAndDecodes) {
    constexpr int kKilobits = 1600;
    Camera camera(1, 1000);
    tnMediaRecord strict = camera.H264();
    strict.SetBool("strict_cbr", true);
    strict.SetInt32('mtbr', kKilobits);
    Show show("Shared MPEG-4", {strict});
    ASSERT_EQ(show.Add(fFolder.File("a.mp4")), 0);
    camera.Write(0, 200);
    show.End();
    std::vector<int> seconds(8);
    for (const Packet& packet : PacketsOf(fFolder.File("a.mp4"), "v:0")) {
        seconds[static_cast<std::size_t>(packet.decode + 0.0001)] += packet.size;
    }
    for (int second = 0; second < 4; ++second) {
        EXPECT_EQ(seconds[static_cast<std::size_t>(second)], kKilobits * 125) << second;
    }
    ExpectClean(fFolder.File("a.mp4"));
}

}  // namespace
