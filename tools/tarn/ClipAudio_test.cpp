#include "ClipAudio.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/MakeClip.h"
#include "tests/support/TestFolder.h"

namespace {

constexpr double kSlack = 0.06;  // seconds; lossy encoders add up to two blocks at an end
constexpr short kLoud = 1000;

/// Two clips one behind the other in one file, as `cat` joins them.
void join(const std::vector<std::string>& parts, const std::string& path) {
    std::ofstream whole(path, std::ios::binary);
    for (const std::string& part : parts) whole << std::ifstream(part, std::ios::binary).rdbuf();
}

/// All of a clip's sound.
struct Heard {
    int rate = 0;
    int channels = 0;
    std::vector<short> pcm;
    std::string problem;

    double Seconds() const { return static_cast<double>(pcm.size()) / channels / rate; }

    /// Pitch of a channel in that stretch in Hz, by how often it comes up through nothing; 0 for
    /// silence.
    double Pitch(int channel, double from, double to) const {
        int rises = 0;
        short last = 0;
        short loudest = 0;
        const auto end = std::min(pcm.size(), index_of(to));
        for (std::size_t i = index_of(from) + channel; i < end; i += channels) {
            if (last < 0 && pcm[i] >= 0) ++rises;
            loudest = std::max(loudest, pcm[i]);
            last = pcm[i];
        }
        return loudest < kLoud ? 0 : rises / (to - from);
    }

private:
    std::size_t index_of(double seconds) const {
        return static_cast<std::size_t>(std::llround(seconds * rate)) * channels;
    }
};

Heard hear(ClipAudio& clip) {
    Heard heard{clip.SampleRate(), clip.Channels(), {}, {}};
    std::vector<short> block;
    while (clip.Next(block)) heard.pcm.insert(heard.pcm.end(), block.begin(), block.end());
    heard.problem = clip.Problem();
    return heard;
}

struct Part {
    const char* how;
    double hertz;
};

// Sound in the right channel alone: who gives on the left one only gives nothing.
constexpr const char* kStereo =
    "-f lavfi -i sine=440:r=44100:d=2 -af volume=6,pan=stereo|c1=c0 -c:a libmp3lame";
constexpr const char* kMono = "-f lavfi -i sine=880:r=44100:d=2 -af volume=6 -c:a libmp3lame";
constexpr const char* kSlow = "-f lavfi -i sine=880:r=22050:d=2 -af volume=6 -c:a libmp3lame";

struct Change {
    const char* name;
    Part first, second;
    int rate, channels;
};

constexpr Change kChanges[] = {
    {"to mono", {kStereo, 440}, {kMono, 880}, 44100, 2},
    {"to stereo", {kMono, 880}, {kStereo, 440}, 44100, 1},
    {"to half the rate", {kMono, 880}, {kSlow, 880}, 44100, 1},
    {"to twice the rate and stereo", {kSlow, 880}, {kStereo, 440}, 22050, 1},
    {"to half the rate and mono", {kStereo, 440}, {kSlow, 880}, 44100, 2},
};

TEST(ClipAudio, SoundThatChangesUnderwayGoesOnAsItBegan) {
    const tests::TestFolder folder;
    for (const Change& change : kChanges) {
        SCOPED_TRACE(change.name);
        ASSERT_TRUE(tests::MakeClip(folder.File("a.mp3"),
                                    std::string(change.first.how) + " -write_xing 0"));
        ASSERT_TRUE(tests::MakeClip(folder.File("b.mp3"),
                                    std::string(change.second.how) + " -write_xing 0"));
        join({folder.File("a.mp3"), folder.File("b.mp3")}, folder.File("ab.mp3"));
        std::string error;
        const auto clip = ClipAudio::Open(folder.File("ab.mp3"), error);
        ASSERT_TRUE(clip) << error;
        const Heard heard = hear(*clip);
        EXPECT_EQ(heard.rate, change.rate);
        EXPECT_EQ(heard.channels, change.channels);
        EXPECT_NEAR(heard.Seconds(), 4, 3 * kSlack);
        const int last = change.channels - 1;
        EXPECT_NEAR(heard.Pitch(last, 0.5, 1.5), change.first.hertz, 5);
        EXPECT_NEAR(heard.Pitch(last, 2.5, 3.5), change.second.hertz, 5);
        EXPECT_EQ(heard.problem, "");
    }
}

struct Begin {
    double at;       // seconds, where the sound begins; the clip begins at nothing
    double from;     // seconds, what is asked for
    double silence;  // seconds, that come first
    double skipped;  // seconds of the sound
};

constexpr Begin kBegins[] = {
    {0, 0, 0, 0},         {0.5, 0, 0.5, 0},     {70, 0, 70, 0},
    {70, 69.75, 0.25, 0}, {0, 0.5, 0, 0.5},     {70, 71, 0, 1},
    {0, 1.25, 0, 1.25},   {70, 71.75, 0, 1.75}, {100, 25, 75, 0},
};

// To the sample, however far the sound begins from the place that is asked for.
TEST(ClipAudio, SoundStandsWhereItIsOnTheClipsTimeLine) {
    const tests::TestFolder folder;
    const std::string sound = folder.File("sound.wav");
    ASSERT_TRUE(tests::MakeClip(sound, "-f lavfi -i anoisesrc=r=48000:d=2:seed=1 -c:a pcm_s16le"));
    std::string error;
    const Heard whole = hear(*ClipAudio::Open(sound, error));
    ASSERT_EQ(whole.pcm.size(), 96000u);
    for (const Begin& begin : kBegins) {
        SCOPED_TRACE(std::to_string(begin.at) + " from " + std::to_string(begin.from));
        const std::string path = folder.File("clip.nut");  // whose times are exact
        ASSERT_TRUE(tests::MakeClip(
            path, "-itsoffset " + std::to_string(begin.at) + " -i " + sound + " -c copy"));
        const auto clip = ClipAudio::Open(path, error);
        ASSERT_TRUE(clip) << error;
        clip->StartAt(begin.from);
        std::vector<short> expected(static_cast<std::size_t>(begin.silence * 48000), 0);
        const auto skipped = static_cast<std::ptrdiff_t>(begin.skipped * 48000);
        expected.insert(expected.end(), whole.pcm.begin() + skipped, whole.pcm.end());
        EXPECT_TRUE(hear(*clip).pcm == expected);
    }
}

struct Stretch {
    double hertz;  // 0 for silence
    double seconds;
};

struct Joint {
    const char* name;
    std::vector<std::pair<double, Stretch>> parts;  // where each says that it begins
    std::vector<Stretch> heard;
};

const Joint kJoints[] = {
    {"one behind the other", {{0, {440, 2}}, {2, {880, 2}}}, {{440, 2}, {880, 2}}},
    {"a hole", {{0, {440, 2}}, {3, {880, 2}}}, {{440, 2}, {0, 1}, {880, 2}}},
    {"a hole of more than a minute",
     {{0, {440, 2}}, {72, {880, 2}}},
     {{440, 2}, {0, 70}, {880, 2}}},
    {"an overlap", {{0, {440, 2}}, {1.5, {880, 2}}}, {{440, 2}, {880, 1.5}}},
    {"a clock that begins again", {{0, {440, 3}}, {0, {880, 2}}}, {{440, 3}, {880, 2}}},
    {"a clock that begins again behind a hole",
     {{0, {440, 2}}, {8, {440, 2}}, {0, {880, 2}}},
     {{440, 2}, {0, 6}, {440, 2}, {880, 2}}},
    {"no start of its own", {{5000, {440, 2}}}, {{440, 2}}},
    // A block that leads away, and sound that knows better: it is in its place when it can be.
    {"one wrong stamp",
     {{0, {440, 2}}, {10, {440, 0.024}}, {2, {880, 12}}},
     {{440, 2}, {0, 8}, {880, 4}}},
};

TEST(ClipAudio, HolesAreSilentAndOverlapsAreCut) {
    const tests::TestFolder folder;
    for (const Joint& joint : kJoints) {
        SCOPED_TRACE(joint.name);
        std::vector<std::string> parts;
        for (const auto& [at, part] : joint.parts) {
            parts.push_back(folder.File(std::to_string(parts.size()) + ".ts"));
            const std::string how = fmt::format(
                "-f lavfi -i sine={}:r=48000:d={} -af volume=6 -c:a mp2 -muxdelay 0 -muxpreload 0 "
                "-output_ts_offset {}",
                part.hertz, part.seconds, at);
            ASSERT_TRUE(tests::MakeClip(parts.back(), how));
        }
        join(parts, folder.File("whole.ts"));
        std::string error;
        const auto clip = ClipAudio::Open(folder.File("whole.ts"), error);
        ASSERT_TRUE(clip) << error;
        const Heard heard = hear(*clip);
        double from = 0;
        for (const Stretch& stretch : joint.heard) {
            const double to = from + stretch.seconds;
            EXPECT_NEAR(heard.Pitch(0, from + 2 * kSlack, to - 2 * kSlack), stretch.hertz, 5)
                << from << " to " << to;
            from = to;
        }
        EXPECT_NEAR(heard.Seconds(), from, 2 * kSlack);
        EXPECT_EQ(heard.problem, "");
    }
}

}  // namespace
