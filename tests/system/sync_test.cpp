// `tarn sync`: clips with flashes and tones at known offsets, and what is measured of them after
// trips through encoders and other programs.
#include <cmath>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "tarn/sync/tnMetronome.h"

#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using tests::ProcessResult;
using tests::TestFolder;

namespace {

const std::string kSmall = "320x240";

ProcessResult Sync(const std::string& command, std::vector<std::string> options) {
    options.insert(options.begin(), {TARN_TOOL, "sync", command});
    return tests::Run(options);
}

void Make(const std::string& clip, std::vector<std::string> options) {
    options.insert(options.begin(), clip);
    options.insert(options.end(), {"--size", kSmall});
    const ProcessResult result = Sync("signal", options);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(result.err.empty()) << "quiet in a pipe: " << result.err;
}

void Ffmpeg(std::vector<std::string> words) {
    words.insert(words.begin(), {"ffmpeg", "-v", "error", "-y"});
    const ProcessResult result = tests::Run(words);
    ASSERT_EQ(result.exitCode, 0) << result.err;
}

/// Every number behind `"key":`, in order.
std::vector<double> NumbersOf(const std::string& json, const std::string& key) {
    const std::string sign = "\"" + key + "\":";
    std::vector<double> numbers;
    for (auto at = json.find(sign); at != std::string::npos; at = json.find(sign, at + 1)) {
        numbers.push_back(std::stod(json.substr(at + sign.size())));
    }
    return numbers;
}

double NumberOf(const std::string& json, const std::string& key) {
    const auto numbers = NumbersOf(json, key);
    return numbers.empty() ? std::nan("") : numbers.front();
}

ProcessResult Measure(const std::string& clip) {
    const ProcessResult result = Sync("measure", {clip, "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(result.err.empty()) << result.err;
    return result;
}

std::string BytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Trip {
    const char* name;
    const char* video;
    const char* audio;
    const char* rate;
};

void PrintTo(const Trip& trip, std::ostream* out) {
    *out << trip.name;
}

class SyncTrip : public testing::TestWithParam<Trip> {};

}  // namespace

// The signal is made in a codec of its own and then recorded with another: nothing that the maker
// knows reaches the meter but through pictures and sound.
TEST_P(SyncTrip, GivesEachOffsetBack) {
    const Trip& trip = GetParam();
    const TestFolder folder;
    const std::string signal = folder.File("signal.mov");
    const std::string recorded = folder.File("recorded.mov");
    Make(signal, {"--offset", "-400,-250,-100,-33,0,7,40,133,300,400", "--rate", trip.rate,
                  "--video", "MJPEG", "--audio", "pcm"});
    const ProcessResult record = tests::Run(
        {TARN_TOOL, "record", signal, recorded, "--video", trip.video, "--audio", trip.audio});
    ASSERT_EQ(record.exitCode, 0) << record.err;

    const std::string json = Measure(recorded).out;
    const std::vector<double> wanted = {-400, -250, -100, -33, 0, 7, 40, 133, 300, 400};
    const std::vector<double> offsets = NumbersOf(json, "offsetMs");
    const std::vector<double> times = NumbersOf(json, "at");
    const double halfFrameMs = NumberOf(json, "frameMs") / 2;
    const double blockMs = NumberOf(json, "blockMs");
    EXPECT_EQ(blockMs, 11.5);
    EXPECT_EQ(NumberOf(json, "flashes"), 10) << json;
    EXPECT_EQ(NumberOf(json, "tones"), 10) << json;
    ASSERT_EQ(offsets.size(), wanted.size()) << json;
    ASSERT_EQ(times.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        EXPECT_NEAR(times[i], 1 + 2.0 * static_cast<double>(i), halfFrameMs / 1000) << i;
        EXPECT_NEAR(offsets[i], wanted[i], blockMs) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, SyncTrip,
                         testing::Values(Trip{"X264Aac", "x264", "aac", "60"},
                                         Trip{"X264AacNtsc", "x264", "aac", "30000/1001"},
                                         Trip{"ProResPcm", "ProRes", "pcm", "60"},
                                         Trip{"ProResPcmPal", "ProRes", "pcm", "25"}),
                         [](const auto& trip) { return trip.param.name; });

TEST(SyncMeasure, MedianOfManyPairsIsWithinTwoMilliseconds) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    for (const char* offset : {"-120", "0", "85"}) {
        Make(clip, {"--offset", offset, "--rate", "30", "--seconds", "40", "--audio", "pcm"});
        const std::string json = Measure(clip).out;
        EXPECT_EQ(NumbersOf(json, "at").size(), 20u);
        EXPECT_NEAR(NumberOf(json, "median"), std::stod(offset), 2) << json;
        EXPECT_LT(NumberOf(json, "spread"), 11.5);
        EXPECT_NEAR(NumberOf(json, "driftPerMinute"), 0, 6);
    }
}

TEST(SyncMeasure, SoundThatRunsFastDrifts) {
    // 48024 frames played as 48000 a second: 30 ms a minute early.
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    const std::string fast = folder.File("fast.mov");
    Make(clip, {"--rate", "30", "--seconds", "60", "--audio", "pcm"});
    Ffmpeg({"-i", clip, "-c:v", "copy", "-af", "asetrate=48024,aresample=48000", "-c:a",
            "pcm_s16le", fast});
    const std::string json = Measure(fast).out;
    EXPECT_EQ(NumbersOf(json, "at").size(), 30u) << json;
    EXPECT_NEAR(NumberOf(json, "driftPerMinute"), 30, 5) << json;
    EXPECT_NEAR(NumberOf(json, "median"), 15, 4) << json;
}

TEST(SyncMeasure, OtherRatesChannelsAndPictureFormatsAreHeardAndSeen) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    Make(clip, {"--offset", "60", "--rate", "25", "--video", "ProRes", "--audio", "pcm"});
    struct Case {
        const char* name;
        std::vector<std::string> words;
        double blockMs;
    };
    const std::string left = "pan=mono|c0=c0";
    const Case cases[] = {
        {"mono.mkv", {"-af", left, "-c:v", "mjpeg", "-c:a", "pcm_s16le"}, 11.5},
        {"44100.mkv", {"-ar", "44100", "-c:v", "ffv1", "-c:a", "flac"}, 460000.0 / 44100},
        {"8000.avi", {"-ar", "8000", "-c:v", "mpeg4", "-c:a", "pcm_s16le"}, 11.5},
        {"rgb.mkv", {"-c:v", "ffv1", "-pix_fmt", "bgr0", "-c:a", "copy"}, 11.5},
        {"ten.mkv", {"-c:v", "ffv1", "-pix_fmt", "yuv422p10", "-c:a", "libvorbis"}, 11.5},
        {"clip.ts", {"-c:v", "mpeg2video", "-q:v", "3", "-c:a", "mp2", "-b:a", "256k"}, 11.5},
    };
    for (const Case& c : cases) {
        const std::string other = folder.File(c.name);
        std::vector<std::string> words = {"-i", clip};
        words.insert(words.end(), c.words.begin(), c.words.end());
        words.push_back(other);
        Ffmpeg(words);
        const std::string json = Measure(other).out;
        EXPECT_NEAR(NumberOf(json, "blockMs"), c.blockMs, 0.001) << c.name;
        EXPECT_EQ(NumbersOf(json, "at").size(), 10u) << c.name << json;
        EXPECT_NEAR(NumberOf(json, "median"), 60, c.blockMs) << c.name << json;
    }
}

TEST(SyncMeasure, SpeechAndMusicHoldNoTones) {
    const TestFolder folder;
    std::vector<std::string> sounds;
    for (const auto& entry : std::filesystem::directory_iterator("/usr/share/sounds/alsa")) {
        sounds.push_back(entry.path());
    }
    EXPECT_GE(sounds.size(), 9u);
    sounds.push_back(TARN_CLIPS "/time_to_strike.mp3");
    const std::string clip = folder.File("clip.mov");
    for (const std::string& sound : sounds) {
        Ffmpeg({"-f", "lavfi", "-i", "color=black:size=160x160:rate=5", "-i", sound, "-shortest",
                "-c:v", "mjpeg", "-c:a", "pcm_s16le", clip});
        const ProcessResult result = Sync("measure", {clip, "--json"});
        EXPECT_NE(result.exitCode, 0);
        EXPECT_EQ(NumberOf(result.out, "tones"), 0) << sound;
        EXPECT_EQ(NumberOf(result.out, "flashes"), 0);
        EXPECT_TRUE(NumbersOf(result.out, "at").empty());
        EXPECT_NE(result.err.find("no pair"), std::string::npos) << result.err;
    }
}

TEST(SyncMeasure, TonesAreHeardOverMusic) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    const std::string mixed = folder.File("mixed.mov");
    Make(clip, {"--offset", "-80", "--rate", "25", "--audio", "pcm"});
    Ffmpeg({"-i", clip, "-ss", "30", "-i", TARN_CLIPS "/time_to_strike.mp3", "-filter_complex",
            "[1:a]volume=-30dB[m];[0:a][m]amix=normalize=0:duration=first", "-c:v", "copy", "-c:a",
            "pcm_s16le", mixed});
    const std::string json = Measure(mixed).out;
    EXPECT_GE(NumbersOf(json, "at").size(), 8u) << json;
    EXPECT_NEAR(NumberOf(json, "median"), -80, 11.5) << json;
}

TEST(SyncMeasure, TablesAndDrawsWhatOtherToolsCanRender) {
    const TestFolder folder;
    const std::string clip = folder.File("a clip & more.mov");
    const std::string svg = folder.File("sync.svg");
    const std::string png = folder.File("sync.png");
    Make(clip, {"--offset", "40", "--seconds", "8", "--rate", "25"});
    const ProcessResult result = Sync("measure", {clip, "--plot", svg});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* word : {"4 pairs", "4 flashes", "4 tones", "1.000 s", "7.000 s", "median +",
                             "spread", "drift unknown"}) {
        EXPECT_NE(result.out.find(word), std::string::npos) << word << "\n" << result.out;
    }
    ASSERT_EQ(tests::Run({"rsvg-convert", svg, "-o", png}).exitCode, 0);
    EXPECT_GT(std::filesystem::file_size(png), 5'000u);
    const std::string text = BytesOf(svg);
    for (const char* word : {"a clip &amp; more.mov", "4 pairs", "median", "h0"}) {
        EXPECT_NE(text.find(word), std::string::npos) << word;
    }
}

TEST(SyncMeasure, SaysWhatIsWrong) {
    const TestFolder folder;
    const std::string silent = folder.File("silent.mov");
    const std::string low = folder.File("low.mkv");
    const std::string dark = folder.File("dark.mkv");
    const std::string bars = "color=black:size=160x160:rate=5:duration=2";
    Ffmpeg({"-f", "lavfi", "-i", bars, "-c:v", "mjpeg", silent});
    Ffmpeg({"-f", "lavfi", "-i", bars, "-f", "lavfi", "-i", "sine=duration=2:sample_rate=6000",
            "-c:v", "mjpeg", "-c:a", "pcm_s16le", low});
    Ffmpeg({"-f", "lavfi", "-i", bars, "-f", "lavfi", "-i", "sine=duration=2", "-c:v", "mjpeg",
            "-c:a", "pcm_s16le", dark});
    struct Case {
        std::vector<std::string> options;
        const char* words;
    };
    const Case cases[] = {
        {{folder.File("none.mov")}, "none.mov"},
        {{"/usr/share/sounds/alsa/Front_Center.wav"}, "has no picture"},
        {{silent}, "has no sound"},
        {{low}, "8000 is the least"},
        {{dark}, "no pair"},
    };
    for (const Case& c : cases) {
        const ProcessResult result = Sync("measure", c.options);
        EXPECT_NE(result.exitCode, 0) << c.words;
        EXPECT_NE(result.err.find(c.words), std::string::npos) << c.words << "\n" << result.err;
        EXPECT_EQ(result.out.find("median"), std::string::npos) << result.out;
    }
    const std::string clip = folder.File("clip.mov");
    Make(clip, {"--seconds", "4", "--rate", "25"});
    const ProcessResult plot = Sync("measure", {clip, "--plot", "/nonexistent/plot.svg"});
    EXPECT_NE(plot.exitCode, 0);
    EXPECT_NE(plot.err.find("/nonexistent/plot.svg"), std::string::npos);
    EXPECT_TRUE(plot.out.empty()) << "before it measures: " << plot.out;
    const ProcessResult json = Sync("measure", {dark, "--json"});
    EXPECT_NE(json.out.find(R"({"event":"error","message":")"), std::string::npos) << json.out;
    EXPECT_NE(json.out.find("no pair"), std::string::npos) << json.out;
}

TEST(SyncSignal, AnotherDecoderHearsItsDigits) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    const std::string wav = folder.File("left.wav");
    for (const char* audio : {"pcm", "aac"}) {
        Make(clip, {"--audio", audio, "--rate", "25", "--offset", "0,-300,300"});
        Ffmpeg({"-i", clip, "-af", "pan=mono|c0=c0", "-ar", "22050", wav});
        const ProcessResult heard =
            tests::Run({"multimon-ng", "-q", "-t", "wav", "-a", "DTMF", wav});
        ASSERT_EQ(heard.exitCode, 0) << heard.err;
        std::size_t digits = 0;
        for (auto at = heard.out.find("DTMF: "); at != std::string::npos;
             at = heard.out.find("DTMF: ", at + 1)) {
            EXPECT_EQ(heard.out.substr(at, 7), "DTMF: #");
            ++digits;
        }
        EXPECT_EQ(digits, 10u) << audio << "\n" << heard.out << heard.err;
    }
}

TEST(SyncSignal, RightChannelIsTheMetronome) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    const std::string raw = folder.File("right.raw");
    Make(clip, {"--audio", "pcm", "--rate", "25", "--seconds", "5"});
    Ffmpeg({"-i", clip, "-af", "pan=mono|c0=c1", "-f", "s16le", raw});
    const std::string bytes = BytesOf(raw);
    ASSERT_EQ(bytes.size(), 5u * 48000 * 2);
    constexpr int kBlock = 480;
    for (int block = 0; block < 5 * 100; ++block) {
        std::int16_t expected[kBlock] = {};
        tnMetronome::AudioOverlay(block / 100.0, expected, kBlock, {'sowt', 48000, 1});
        const auto at = static_cast<std::size_t>(block) * sizeof expected;
        EXPECT_EQ(bytes.substr(at, sizeof expected),
                  std::string(reinterpret_cast<const char*>(expected), sizeof expected))
            << block;
    }
}

TEST(SyncSignal, CornerShowsTheMetronomesBox) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    const std::string raw = folder.File("corner.raw");
    Make(clip, {"--video", "ProRes", "--rate", "10", "--seconds", "10"});
    Ffmpeg({"-i", clip, "-an", "-vf", "crop=64:64:0:0,format=gray", "-f", "rawvideo", raw});
    const std::string bytes = BytesOf(raw);
    ASSERT_EQ(bytes.size(), 100u * 64 * 64);
    for (int frame = 0; frame < 100; ++frame) {
        const auto at = [&](int x, int y) {
            return static_cast<unsigned char>(
                bytes[static_cast<std::size_t>((frame * 64 + y) * 64 + x)]);
        };
        double start = 0;
        double stop = 0;
        const bool on = tnMetronome::SignalOn(frame / 10.0, &start, &stop);
        EXPECT_EQ(at(4, 4) > 225, on) << frame;
        EXPECT_EQ(at(59, 59) > 225, on) << frame;
        EXPECT_EQ(at(32, 32) < 20, on) << frame;
    }
}

TEST(SyncSignal, TellsItsPairs) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mp4");
    const ProcessResult result = Sync("signal", {clip, "--offset", "100,-50.5", "--seconds", "6",
                                                 "--rate", "29.97", "--size", kSmall, "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::string done = result.out.substr(result.out.find(R"({"event":"done")"));
    const std::vector<double> offsets = NumbersOf(done, "offsetMs");
    ASSERT_EQ(offsets.size(), 3u) << done;
    EXPECT_NEAR(offsets[0], 100, 0.001);
    EXPECT_NEAR(offsets[1], -50.5, 0.001);
    EXPECT_NEAR(offsets[2], 100, 0.001);
    const std::vector<double> times = NumbersOf(done, "at");
    EXPECT_NEAR(times[0], 30 * 1.001 / 30, 1e-6);
    EXPECT_NEAR(times[2], 150 * 1.001 / 30, 1e-6);
}

TEST(SyncSignal, StoppedTellsOfThePairsInTheFileAlone) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    tests::BackgroundProcess process({TARN_TOOL, "sync", "signal", clip, "--seconds", "86400",
                                      "--size", kSmall, "--rate", "25", "--json"});
    std::string line;
    ASSERT_TRUE(process.ReadLine(line)) << "how far it is, once a second";
    process.Signal(SIGINT);
    const ProcessResult result = process.Wait();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::string done = result.out.substr(result.out.find(R"({"event":"done")"));
    EXPECT_NE(done.find(R"("stopped":true)"), std::string::npos) << done;
    const double seconds = NumberOf(done, "seconds");
    const std::vector<double> times = NumbersOf(done, "at");
    EXPECT_LT(seconds, 86400);
    // One every other second, from the first on.
    EXPECT_NEAR(static_cast<double>(times.size()), seconds / 2, 1.5) << done;
    EXPECT_TRUE(times.empty() || times.back() < seconds) << done;
}

TEST(SyncSignal, SaysWhatIsWrong) {
    const TestFolder folder;
    struct Case {
        std::vector<std::string> options;
        const char* words;
    };
    const std::string clip = folder.File("clip.mov");
    const Case cases[] = {
        {{folder.File("clip.xyz")}, "end its name in .mov, .mp4 or .m4v"},
        {{folder.File("no/clip.mov")}, "make it first"},
        {{clip, "--offset", "451"}, "--offset"},
        {{clip, "--offset", "-451"}, "--offset"},
        {{clip, "--offset", "nan"}, "--offset: 'nan' is not from -450 to 450 milliseconds"},
        {{clip, "--offset", "100,nan"}, "--offset: 'nan' is not from -450 to 450 milliseconds"},
        {{clip, "--size", "big"}, "WIDTHxHEIGHT"},
        {{clip, "--size", "4294967616x320"}, "WIDTHxHEIGHT"},
        {{clip, "--size", "321x240"}, "even"},
        {{clip, "--size", "64x64"}, "even, from 160"},
        {{clip, "--rate", "0"}, "not a rate"},
        {{clip, "--seconds", "1"}, "--seconds"},
        {{clip, "--seconds", "nan"}, "--seconds: 'nan' is not from 2 to 86400 seconds"},
        {{clip, "--seconds", "inf"}, "--seconds: 'inf' is not from 2 to 86400 seconds"},
        {{clip, "--video", "vp8"}, "--video"},
    };
    for (const Case& c : cases) {
        const ProcessResult result = Sync("signal", c.options);
        EXPECT_NE(result.exitCode, 0) << c.words;
        EXPECT_NE((result.out + result.err).find(c.words), std::string::npos) << c.words << "\n"
                                                                              << result.err;
        EXPECT_FALSE(std::filesystem::exists(clip));
    }
}
