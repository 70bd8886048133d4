#include "Recorder.h"

#include <atomic>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"

#include "ClipAudio.h"
#include "ClipVideo.h"
#include "avHandles.h"
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
/// whether there is that picture.
class GreyPictures final : public ClipVideo {
public:
    GreyPictures(int at, std::function<bool()> happens) : fAt(at), fHappens(std::move(happens)) {
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
        frame.time = fGiven++;
        frame.duration = 1;
        return true;
    }

private:
    const int fAt;
    const std::function<bool()> fHappens;
    int fGiven = 0;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
};

/// Silence until memory runs out.
class Silence final : public ClipAudio {
public:
    explicit Silence(int whole) : fWhole(whole) {
        fFormat.fSampleRate.SetInt32(kSampleRate);
        fFormat.fChannels.SetInt32(2);
        fFormat.fBitsPerSample.SetInt32(16);
        fFormat.fBusses.SetInt32(1);
        fFormat.fAudioFormat.SetInt32('sowt');
        fFormat.SetInt64('tmsc', kSampleRate, 0);
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    int SampleRate() const override { return kSampleRate; }
    int Channels() const override { return 2; }
    void StartAt(double) override {}
    bool Next(std::vector<short>& pcm) override {
        if (fGiven++ == fWhole) throw std::bad_alloc();
        pcm.assign(2 * kSampleRate / kFramesPerSecond, 0);
        return true;
    }

private:
    const int fWhole;
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
                          std::make_unique<Silence>(blocks));
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

}  // namespace
