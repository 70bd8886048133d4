#include "Recorder.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "spar/zSignal.h"

#include "ClipAudio.h"
#include "ClipVideo.h"
#include "MovieOnDisk.h"
#include "tests/support/TestFolder.h"

using namespace Quillon::Orb;

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr int kFramesPerSecond = 25;
constexpr int kSampleRate = 48000;
constexpr int kWhole = 10;
constexpr int kMany = 1000;

bool run_out_of_memory() {
    throw std::bad_alloc();
}

/// Grey pictures without end. Before the one with the number `at` something happens, which says
/// whether there is that picture; it and those behind it are `gap` frames late.
class GreyPictures final : public ClipVideo {
public:
    GreyPictures(int at, std::function<bool()> happens, int gap = 0)
        : fAt(at), fGap(gap), fHappens(std::move(happens)) {
        fFormat.fWidth.SetInt32(kWidth);
        fFormat.fHeight.SetInt32(kHeight);
        fFormat.fColourspace.SetInt32('I420');
        fFormat.SetBytesPerRowBasedOnFormat();
        fFormat.SetInt64('tmsc', kFramesPerSecond, 0);
        fFormat.SetUInt64('dura', 1, 0);
        fFormat.SetFloat('mfps', kFramesPerSecond, 0);
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    double StartSeconds() const override { return 0; }
    double HeaderSeconds() const override { return 1; }
    bool Next(ClipFrame& frame) override {
        if (fGiven == fAt && !fHappens()) return false;
        constexpr int kBytes = kWidth * kHeight * 3 / 2;
        RObject<CByteArray> bytes(new CByteArray(kBytes, 1));
        std::memset(bytes->GetData(), 128, kBytes);
        frame.pixels = RObject<CPixelDataReference>(
            new CPixelBufferDataReference(bytes.Get(), kWidth, kHeight, kWidth));
        frame.time = fGiven + (fGiven >= fAt ? fGap : 0);
        ++fGiven;
        frame.duration = 1;
        return true;
    }

    std::string Problem() const override { return problem; }

    std::string problem;

private:
    const int fAt;
    const int fGap;
    const std::function<bool()> fHappens;
    int fGiven = 0;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
};

/// Silence. Before the block with the number `at` something happens, which says whether there is
/// that block.
class Silence final : public ClipAudio {
public:
    Silence(int at, std::function<bool()> happens, int rate = kSampleRate)
        : fAt(at), fRate(rate), fHappens(std::move(happens)) {
        fFormat.fSampleRate.SetInt32(fRate);
        fFormat.fChannels.SetInt32(2);
        fFormat.fBitsPerSample.SetInt32(16);
        fFormat.fBusses.SetInt32(1);
        fFormat.fAudioFormat.SetInt32('sowt');
        fFormat.SetInt64('tmsc', fRate, 0);
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    int SampleRate() const override { return fRate; }
    int Channels() const override { return 2; }
    void StartAt(double) override {}
    bool Next(std::vector<short>& pcm) override {
        if (fGiven++ == fAt && !fHappens()) return false;
        pcm.assign(2 * std::max(1, fRate / kFramesPerSecond), 0);
        return true;
    }
    std::string Problem() const override { return problem; }

    std::string problem;

private:
    const int fAt;
    const int fRate;
    const std::function<bool()> fHappens;
    int fGiven = 0;
    tnMediaRecord fFormat{TN_MEDIA_AUDIO};
};

class RecorderShortOfMemory : public testing::Test {
protected:
    /// What Run said, with that many pictures and blocks of sound before memory runs out.
    std::string ErrorWith(int pictures, int blocks) {
        RecordOptions options;
        options.output = fMovie;
        options.video = "MJPEG";
        options.audio = "pcm";
        Recorder recorder(options, std::make_unique<GreyPictures>(pictures, run_out_of_memory),
                          std::make_unique<Silence>(blocks, run_out_of_memory));
        EXPECT_TRUE(recorder.Prepare()) << recorder.Error();
        const std::atomic<bool> stop{false};
        EXPECT_FALSE(recorder.Run(stop));
        return recorder.Error();
    }

    const tests::TestFolder fFolder;
    const std::string fMovie = fFolder.File("a.mov");
};

TEST_F(RecorderShortOfMemory, PicturesEndAndTheFileIsWhole) {
    const std::string error = ErrorWith(kWhole, kMany);
    EXPECT_NE(error.find("bad_alloc"), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
    const MovieOnDisk movie = ReadMovieOnDisk(fMovie);
    EXPECT_TRUE(movie.opens);
    EXPECT_EQ(movie.frames, kWhole);
}

TEST_F(RecorderShortOfMemory, SoundEndsAndTheFileIsWhole) {
    const std::string error = ErrorWith(kMany, kWhole);
    EXPECT_NE(error.find("bad_alloc"), std::string::npos) << error;
    const MovieOnDisk movie = ReadMovieOnDisk(fMovie);
    EXPECT_TRUE(movie.opens);
    EXPECT_GT(movie.audioBytes, 0);
}

// A stop may come when the last picture is out already: then nothing is missing.
TEST(Recorder, TellsAnEndFromAStop) {
    for (const bool clipEnds : {false, true}) {
        SCOPED_TRACE(clipEnds);
        const tests::TestFolder folder;
        RecordOptions options;
        options.output = folder.File("a.mov");
        options.video = "MJPEG";
        std::atomic<bool> stop{false};
        const auto stopped = [&stop, clipEnds] {
            stop = true;
            return !clipEnds;
        };
        Recorder recorder(options, std::make_unique<GreyPictures>(kWhole, stopped), nullptr);
        ASSERT_TRUE(recorder.Prepare()) << recorder.Error();
        EXPECT_TRUE(recorder.Run(stop)) << recorder.Error();
        EXPECT_EQ(recorder.CameToEnd(), clipEnds);
        EXPECT_EQ(ReadMovieOnDisk(options.output).frames, clipEnds ? kWhole : kWhole + 1);
    }
}

// Nothing is said of lines above, or of what is lost, that nobody knows.
TEST(Recorder, AFileThatIsGoneWhenItIsReadAgainIsNotCalledLost) {
    const tests::TestFolder folder;
    RecordOptions options;
    options.output = folder.File("a.mov");
    options.video = "MJPEG";
    const auto remove = [&options] {
        EXPECT_TRUE(std::filesystem::remove(options.output));
        return false;
    };
    Recorder recorder(options, std::make_unique<GreyPictures>(kWhole, remove), nullptr);
    ASSERT_TRUE(recorder.Prepare()) << recorder.Error();
    const std::atomic<bool> stop{false};
    EXPECT_FALSE(recorder.Run(stop));
    const std::string error = recorder.Error();
    EXPECT_NE(error.find("No such file"), std::string::npos) << error;
    EXPECT_NE(error.find("moved or removed"), std::string::npos) << error;
    EXPECT_EQ(error.find("says why"), std::string::npos) << error;
}

// The picture behind the gap is a minute away: who did not look meanwhile would write it then.
TEST(Recorder, LiveRecordingThatWaitsForAPictureEndsAtAStopAndAtAFailure) {
    constexpr int kMinute = 60 * kFramesPerSecond;
    for (const bool stops : {true, false}) {
        SCOPED_TRACE(stops ? "stop" : "failure");
        const tests::TestFolder folder;
        RecordOptions options;
        options.output = folder.File("a.mov");
        options.video = "MJPEG";
        options.audio = "pcm";
        options.live = true;
        std::atomic<bool> stop{false};
        zSignal given;
        const auto give = [&given] {
            given.Raise();
            return true;
        };
        Recorder recorder(options, std::make_unique<GreyPictures>(kWhole, give, kMinute),
                          std::make_unique<Silence>(stops ? kMany : kWhole / 2, run_out_of_memory));
        ASSERT_TRUE(recorder.Prepare()) << recorder.Error();
        std::thread stopping([&] {
            given.Wait();
            stop = stops;
        });
        EXPECT_EQ(recorder.Run(stop), stops) << recorder.Error();
        given.Raise();  // a failure may come before the gap
        stopping.join();
        EXPECT_LE(recorder.Figures().frames, kWhole);
        EXPECT_FALSE(recorder.CameToEnd());
    }
}

// What a clip lacks is told, also where a stop comes while the file is being completed.
TEST(Recorder, AClipThatWasCutOffIsToldThoughAStopCameBehindIt) {
    for (const bool pictures : {true, false}) {
        SCOPED_TRACE(pictures ? "pictures" : "sound alone");
        const tests::TestFolder folder;
        RecordOptions options;
        options.output = folder.File("a.mov");
        options.video = "MJPEG";
        options.audio = "pcm";
        std::atomic<bool> stop{false};
        const auto end = [&stop] {
            stop = true;
            return false;
        };
        auto video = std::make_unique<GreyPictures>(kWhole, end);
        auto audio = std::make_unique<Silence>(kWhole, end);
        video->problem = audio->problem = "ends at 1.0 of 8.0 seconds";
        if (pictures) {
            audio.reset();
        } else {
            video.reset();
        }
        Recorder recorder(options, std::move(video), std::move(audio));
        ASSERT_TRUE(recorder.Prepare()) << recorder.Error();
        EXPECT_FALSE(recorder.Run(stop));
        EXPECT_TRUE(recorder.CameToEnd());
        EXPECT_NE(recorder.Error().find("ends at 1.0"), std::string::npos) << recorder.Error();
    }
}

// Less than a tenth of a second of it is less than one frame.
TEST(Recorder, SoundOfAFewFramesASecondIsFilledUpToo) {
    const tests::TestFolder folder;
    RecordOptions options;
    options.output = folder.File("a.mov");
    options.video = "MJPEG";
    options.audio = "pcm";
    const auto end = [] { return false; };
    Recorder recorder(options, std::make_unique<GreyPictures>(kFramesPerSecond, end),
                      std::make_unique<Silence>(2, end, 8));
    ASSERT_TRUE(recorder.Prepare()) << recorder.Error();
    const std::atomic<bool> stop{false};
    EXPECT_TRUE(recorder.Run(stop)) << recorder.Error();
    EXPECT_EQ(recorder.Figures().audioFrames, 8);
}

}  // namespace
