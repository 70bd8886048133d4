#include "ClipAudio.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

namespace {

constexpr double kSlack = 0.06;  // seconds; lossy encoders add up to two blocks at an end
constexpr short kLoud = 1000;

void make_clip(const std::string& path, const std::string& how) {
    std::vector<std::string> words = {"ffmpeg", "-v", "error", "-y"};
    std::istringstream rest(how);
    for (std::string word; rest >> word;) words.push_back(word);
    words.push_back(path);
    const tests::ProcessResult result = tests::Run(words);
    ASSERT_EQ(result.exitCode, 0) << result.err;
}

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
        make_clip(folder.File("a.mp3"), std::string(change.first.how) + " -write_xing 0");
        make_clip(folder.File("b.mp3"), std::string(change.second.how) + " -write_xing 0");
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

}  // namespace
