// Sources that play real clips: which picture each tick shows, and where the sound lies beside it.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "spar/zBoot.h"
#include "spar/zObject.h"
#include "spar/zTime.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnStreamBuffer.h"

#include "LiveSource.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"
#include "tests/support/filterDoubles.h"

namespace {

constexpr int kStep = 4;  // of brightness, from one picture's number to the next
constexpr int kLoud = 8000;
constexpr double kClickSeconds = 0.005;

/// Reads the numbers that pictures carry.
class Eye final : public filterDoubles::VideoCompressor {
public:
    explicit Eye(std::vector<int>& numbers) : fNumbers(numbers) {}
    int EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord& format, long long time, bool key,
                    int (*give)(tnVideoCompressor::EncodedBuffer*, void*),
                    const zRecord* more) override {
        fNumbers.push_back(*static_cast<const unsigned char*>(buffer.GetPointer()) / kStep);
        return VideoCompressor::EncodeFrame(buffer, format, time, key, give, more);
    }

private:
    std::vector<int>& fNumbers;
};

/// Keeps the left channel.
class Ear final : public filterDoubles::AudioCompressor {
public:
    explicit Ear(std::vector<short>& samples) : fSamples(samples) {}
    int EncodeFrame(EncodedBuffer** out, double time, void* pcm, unsigned int bytes) override {
        const auto* const stereo = static_cast<const short*>(pcm);
        for (std::size_t i = 0; i < bytes / sizeof(short); i += 2) fSamples.push_back(stereo[i]);
        return AudioCompressor::EncodeFrame(out, time, pcm, bytes);
    }

private:
    std::vector<short>& fSamples;
};

/// A clip whose pictures carry their numbers, and whose sound clicks.
struct Numbered {
    const char* rate = "25";
    double seconds = 2;
    const char* kept = "1";      // of the pictures, in FFmpeg's words
    std::vector<double> clicks;  // seconds
    int sampleRate = 48000;
};

void make_clip(const Numbered& clip, const std::string& path) {
    std::string sound = "0";
    for (const double click : clip.clicks) {
        sound += fmt::format("+gte(t\\,{})*lt(t\\,{})", click, click + kClickSeconds);
    }
    const tests::ProcessResult made = tests::Run(
        {"ffmpeg",
         "-v",
         "error",
         "-y",
         "-f",
         "lavfi",
         "-i",
         fmt::format("color=size=16x16:rate={}:duration={}", clip.rate, clip.seconds),
         "-f",
         "lavfi",
         "-i",
         fmt::format("aevalsrc={}:s={}:d={}", sound, clip.sampleRate, clip.seconds),
         "-vf",
         fmt::format("format=yuv420p,geq=lum=N*{}:cb=128:cr=128,select={}", kStep, clip.kept),
         "-fps_mode",
         "passthrough",
         "-c:v",
         "ffv1",
         "-c:a",
         "pcm_s16le",
         path});
    ASSERT_EQ(made.exitCode, 0) << made.err;
}

class ClipSource : public testing::Test {
protected:
    ClipSource() {
        zBoot::StartAll();
        tnFilterManager& manager = *tnFilterManager::Default();
        manager.RegisterFactory("eye", [this] { return std::make_shared<Eye>(fNumbers); });
        manager.RegisterFactory("ear", [this] { return std::make_shared<Ear>(fSamples); });
    }
    ~ClipSource() override {
        fSource.reset();
        zBoot::StopAll();
    }

    void play(const std::string& path, long long ticks, bool loop = true) {
        ShowSource description;
        description.name = "clip";
        description.clip = path;
        description.loop = loop;
        std::string error;
        fSource = LiveSource::Open(description, error);
        ASSERT_TRUE(fSource) << error;
        observe();
        for (long long number = 1; number <= ticks; ++number) {
            tn_time_rec time{};
            time.tick_count = number;
            time.nominal_time = zTime::MicroNow();
            fSource->ReceiveTime(time);
        }
    }

    /// When clicks begin, in seconds.
    std::vector<double> clicks() const {
        const double rate = fSource->AudioFormat()->fSampleRate.AsInt32(0);
        std::vector<double> found;
        short last = 0;
        for (std::size_t i = 0; i < fSamples.size(); ++i) {
            if (fSamples[i] >= kLoud && last < kLoud) {
                found.push_back(static_cast<double>(i) / rate);
            }
            last = fSamples[i];
        }
        return found;
    }

    std::unique_ptr<LiveSource> fSource;
    std::vector<int> fNumbers;
    std::vector<short> fSamples;

private:
    void observe() {
        tnMediaRecord video(TN_MEDIA_VIDEO);
        video.SetCString('mcon', "eye");
        tnMediaRecord audio(TN_MEDIA_AUDIO);
        audio.SetCString('mcon', "ear");
        tnFilterManager& manager = *tnFilterManager::Default();
        manager.ObserveVideoFilter(
            fSource->VideoNumber(), fToken, fSource->VideoTrack(video), [](auto) {}, [](auto) {});
        manager.ObserveAudioFilter(
            fSource->AudioNumber(), fToken, fSource->AudioTrack(audio), [](auto) {}, [](auto) {});
        fSource->BeginUse(true, true);
    }

    const std::shared_ptr<zObject> fToken = std::make_shared<zObject>();
};

void expect_near(const std::vector<double>& found, const std::vector<double>& expected) {
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) EXPECT_NEAR(found[i], expected[i], 0.001) << i;
}

std::vector<int> numbers_up_to(int end) {
    std::vector<int> numbers;
    for (int number = 0; number < end; ++number) numbers.push_back(number);
    return numbers;
}

// Pictures 10 to 22 are missing; a click lies at picture 30, of both rounds.
TEST_F(ClipSource, APictureStaysWhereTheNextOnesAreMissing) {
    const tests::TestFolder folder;
    make_clip({"25", 2, "not(between(n\\,10\\,22))", {1.2}}, folder.File("gap.mov"));
    play(folder.File("gap.mov"), 100);
    std::vector<int> round = numbers_up_to(50);
    std::fill(round.begin() + 10, round.begin() + 23, 9);
    std::vector<int> expected = round;
    expected.insert(expected.end(), round.begin(), round.end());
    EXPECT_EQ(fNumbers, expected);
    expect_near(clicks(), {1.2, 3.2});
}

TEST_F(ClipSource, AClipThatIsPlayedOnceIsAsLongAsItsTimesSay) {
    const tests::TestFolder folder;
    make_clip({"25", 2, "not(between(n\\,10\\,22))", {1.2}}, folder.File("gap.mov"));
    play(folder.File("gap.mov"), 60, false);
    EXPECT_TRUE(fSource->Figures().ended);
    EXPECT_EQ(fSource->Figures().frames, 50);
    EXPECT_EQ(fNumbers.back(), 49);
}

//   picture  20   21   22   23   24   25   26   27   28   29   30
//   tick     20.0 20.3 20.7 21.0 21.3 21.7 22.0 22.3 22.7 23.0 24.0
TEST_F(ClipSource, OfPicturesThatAreDueAtOnceTheLastIsShown) {
    const tests::TestFolder folder;
    make_clip({"25",
               2,
               "1,settb=1/3000,setpts=120*if(lt(N\\,20)\\,N\\,if(lt(N\\,30)\\,20+(N-20)/3\\,N-6))",
               {1.0}},
              folder.File("dense.mov"));
    play(folder.File("dense.mov"), 26);
    std::vector<int> expected = numbers_up_to(20);
    expected.insert(expected.end(), {21, 24, 27, 29, 30, 31});
    EXPECT_EQ(fNumbers, expected);
    EXPECT_EQ(fSource->FramesPerSecond(), 25);
}

// Milliseconds do not make up the frames of 30 pictures a second.
TEST_F(ClipSource, ASteadyClipShowsEachPictureOnceInWhateverUnitsItCounts) {
    const tests::TestFolder folder;
    const std::pair<const char*, double> rates[] = {
        {"30", 30}, {"30000/1001", 30000 / 1001.0}, {"24000/1001", 24000 / 1001.0}, {"60", 60}};
    for (const auto& [words, rate] : rates) {
        SCOPED_TRACE(words);
        fNumbers.clear();
        make_clip({words, 1, "1", {}}, folder.File("clip.mkv"));
        play(folder.File("clip.mkv"), 24);
        EXPECT_EQ(fNumbers, numbers_up_to(24));
        EXPECT_DOUBLE_EQ(fSource->FramesPerSecond(), rate);
    }
}

// The blocks of sound are a thirtieth of a second; no round is a multiple of that.
TEST_F(ClipSource, SoundBeginsEachRoundWithItsPictures) {
    struct Case {
        const char* rate;
        double seconds;
        int sampleRate;
        int ticks;  // of three rounds
    };
    const Case cases[] = {
        {"24000/1001", 2.002, 48000, 144},
        {"60000/1001", 2.002, 48000, 360},
        {"25", 2, 8000, 150},
        {"25", 2, 11025, 150},
        {"240", 0.5, 48000, 360},
    };
    const tests::TestFolder folder;
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("{} pictures, {} samples", c.rate, c.sampleRate));
        fSamples.clear();
        make_clip({c.rate, c.seconds, "1", {0.01, 0.25}, c.sampleRate}, folder.File("clip.mov"));
        play(folder.File("clip.mov"), c.ticks);
        std::vector<double> expected;
        for (int round = 0; round < 3; ++round) {
            expected.push_back(round * c.seconds + 0.01);
            expected.push_back(round * c.seconds + 0.25);
        }
        // The last block reaches into a fourth round.
        std::vector<double> found = clicks();
        if (found.size() > expected.size()) found.resize(expected.size());
        expect_near(found, expected);
    }
}

}  // namespace
