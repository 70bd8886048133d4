#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "tests/movies/LongRecording.h"
#include "tests/movies/MovieFolder.h"
#include "tests/movies/Readers.h"
#include "tests/support/SweepStride.h"
#include "tests/support/UnsyncedFile.h"

using namespace Quillon::Orb;

namespace {

int count_boxes(const BoxFile& file, unsigned int type) {
    int count = 0;
    for (const Box& box : file.boxes) count += box.type == type;
    return count;
}

struct Length {
    const char* name;
    LongShape shape;
    int mediaBoxes;  // a roll behind the media data adds one
};

class LongRecording : public testing::TestWithParam<Length> {};

/// Hours of tiny pictures in a few seconds: the tables are right, the times at the end are exact,
/// and what other programs read lasts as long as what was written.
TEST_P(LongRecording, OpensAndIsExactAtItsEnd) {
    const Length& length = GetParam();
    const std::string path = MovieFolder() + "/long.mov";
    const Result result = RecordLong(path, length.shape, std::make_unique<tests::UnsyncedFile>());
    ASSERT_EQ(result, 0) << result.GetMessage();
    const BoxFile file = ParseBoxFile(path);
    ASSERT_EQ(file.Complaints(), "") << file.Text();
    const auto seconds = static_cast<long long>(length.shape.seconds);
    const BoxTrack& video = file.tracks[0];
    ASSERT_EQ(static_cast<long long>(video.samples.size()), seconds * 60);
    EXPECT_EQ(video.duration, seconds * video.timescale);
    EXPECT_EQ(video.samples.back().time, seconds * video.timescale - video.timescale / 60);
    const BoxTrack& sound = file.tracks[1];
    EXPECT_EQ(sound.samples.back().time, static_cast<long long>(sound.samples.size() - 1) * 1024);
    EXPECT_EQ(count_boxes(file, 'mdat'), length.mediaBoxes) << file.Text();
    for (const auto& opinion : {Ffprobe(path), GstDiscoverer(path)}) {
        EXPECT_EQ(opinion.complaints, "");
        EXPECT_NEAR(opinion.seconds, length.shape.seconds, 0.1);
    }
    std::filesystem::remove(path);
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, LongRecording,
    testing::Values(Length{"TwelveHours",
                           {.seconds = 43200, .announcedSeconds = 46800, .checkpointSeconds = 60},
                           1},
                    Length{"AnHourReordered",
                           {.seconds = 3600, .announcedSeconds = 3600, .reordered = true},
                           1},
                    Length{"BeyondTheAnnounced", {.seconds = 3600, .announcedSeconds = 60}, 6},
                    Length{"IndexNotInFront",
                           {.seconds = 3600, .announcedSeconds = 7200, .fastStart = false},
                           6}),
    [](const auto& each) { return std::string(each.param.name); });

/// The index that shows is not much larger than what it holds: readers take it in whole.
TEST(LongRecording, IndexIsNoLargerThanTwiceItsContents) {
    const std::string path = MovieFolder() + "/compact.mov";
    ASSERT_EQ(RecordLong(path, {.seconds = 1200, .announcedSeconds = 46800},
                         std::make_unique<tests::UnsyncedFile>(),
                         [&path](double seconds) {
                             const BoxFile file = ParseBoxFile(path);
                             const double entries = 60 * 4 + 48000 / 1024.0 * 4 + 4 * 20;
                             ASSERT_LE(static_cast<double>(file.Find("moov")->size),
                                       2.3 * entries * seconds + 100000);
                         }),
              0);
}

struct Burst {
    const char* name;
    unsigned int format;
    std::vector<unsigned int> sounds;
    double announced;
    bool fastStart;
};

class Bursts : public testing::TestWithParam<Burst> {};

/// Hours of samples that come at once, with no checkpoint between: the index finds room for them,
/// wherever it stands and however few entries they need.
TEST_P(Bursts, AnyNumberOfSamplesBetweenTwoCheckpointsIsHeld) {
    const Burst& burst = GetParam();
    const std::string path = MovieFolder() + "/burst.mov";
    const MediaClip clip = MakeUpClip(
        {.seconds = 0, .keyEvery = 1, .videoFormat = burst.format, .sounds = burst.sounds});
    WholeMovieFile file(path.c_str(), FileOptions({.fastStart = burst.fastStart}),
                        std::make_unique<tests::UnsyncedFile>(),
                        WholeMovieFile::Checkpoints::ByHand);
    for (MovieTrack track : clip.tracks) {
        track.expectedDuration =
            static_cast<long long>(burst.announced * static_cast<double>(track.timescale));
        file.AddTrack(track);
    }
    ASSERT_EQ(file.Begin(), 0);
    const std::vector<unsigned char> bytes(8192);
    const auto packets = static_cast<long long>(bytes.size()) / 8;
    long long next = 0;
    for (const long long count : {100, 30000, 10, 400000 / tests::SweepStride(), 1000}) {
        for (const long long end = next + count; next < end; next++) {
            for (std::size_t track = 0; track < clip.tracks.size(); track++) {
                MovieSample sample;
                sample.data = bytes.data();
                const bool plain = clip.tracks[track].bytesPerPacket > 0;
                sample.size = plain && next % 64 == 0 ? bytes.size() : 16;
                sample.packets = plain ? (sample.size == 16 ? 1 : packets) : 1;
                sample.decodeTime = next * 512;
                sample.duration = 512;
                ASSERT_EQ(file.WriteSample(static_cast<int>(track), sample), 0);
            }
        }
        const Result result = file.Checkpoint();
        ASSERT_EQ(result, 0) << result.GetMessage();
        const BoxFile boxes = ParseBoxFile(path);
        ASSERT_EQ(boxes.Complaints(), "") << boxes.Text();
        ASSERT_EQ(static_cast<long long>(boxes.tracks[0].samples.size()), next);
    }
    EXPECT_EQ(file.Finish(), 0);
    EXPECT_EQ(ParseBoxFile(path).Complaints(), "");
    std::filesystem::remove(path);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, Bursts,
    testing::Values(Burst{"PicturesAlone", 'apch', {}, 10, true},
                    Burst{"UnannouncedIntra", 'apch', {'sowt'}, 0, true},
                    Burst{"AnnouncedIntra", 'apch', {'sowt'}, 46800, true},
                    Burst{"NotInFront", 'jpeg', {'fl32'}, 46800, false},
                    Burst{"Reordering", 'avc1', {'mp4a'}, 60, true},
                    Burst{
                        "ManySounds", 'avc1', {'mp4a', 'sowt', 'mp4a', '23lf', 'mp4a'}, 60, true}),
    [](const auto& each) { return std::string(each.param.name); });

/// Beyond 4 GiB, on a file that is a hole but for its index.
class HollowFile final : public tests::UnsyncedFile {
public:
    int WriteAt(long long offset, const FileSpan* spans, int count) override {
        constexpr std::size_t kLarge = 1 << 20;
        if (spans[count - 1].size < kLarge) return UnsyncedFile::WriteAt(offset, spans, count);
        long long end = offset;
        for (int i = 0; i < count; i++) end += static_cast<long long>(spans[i].size);
        return Truncate(end);
    }
};

TEST(LargeFile, BeyondFourGigabytesIsAddressedRightly) {
    const std::string path = MovieFolder() + "/large.mov";
    MediaClip clip = MakeUpClip({.seconds = 0, .videoFormat = 'apch', .sounds = {}});
    const std::vector<unsigned char> picture(40 << 20);
    WholeMovieFile file(path.c_str(), FileOptions({}), std::make_unique<HollowFile>(),
                        WholeMovieFile::Checkpoints::ByHand);
    file.AddTrack(clip.tracks[0]);
    ASSERT_EQ(file.Begin(), 0);
    for (int i = 0; i < 150; i++) {
        MovieSample sample;
        sample.data = picture.data();
        sample.size = picture.size();
        sample.decodeTime = i * 512;
        sample.duration = 512;
        ASSERT_EQ(file.WriteSample(0, sample), 0);
        if (i == 120) {
            ASSERT_EQ(file.Checkpoint(), 0);
            EXPECT_EQ(ParseBoxFile(path).Complaints(), "");
        }
    }
    ASSERT_EQ(file.Finish(), 0);
    const BoxFile boxes = ParseBoxFile(path);
    EXPECT_EQ(boxes.Complaints(), "");
    EXPECT_EQ(boxes.tracks[0].samples.size(), 150U);
    EXPECT_GT(boxes.tracks[0].samples.back().position, 149LL * (40 << 20));
    EXPECT_EQ(Ffprobe(path, true).seconds, 6);
}

/// Plain sound is numbered frame by frame with 32 bits. What is beyond that ends the recording, and
/// what was numbered stays: the frames of nearly six hours here, of no more than a hole.
TEST(LargeFile, SoundBeyondWhatTablesCountEndsTheFileWhole) {
    constexpr long long kFrames = 1LL << 29;
    constexpr std::size_t kBytes = kFrames * 2;
    void* const silence = mmap(nullptr, kBytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(silence, MAP_FAILED);
    const std::string path = MovieFolder() + "/numbers.mov";
    MovieTrack track;
    track.kind = MovieTrack::Kind::Audio;
    track.format = 'sowt';
    track.timescale = track.sampleRate = 192000;
    track.channels = 1;
    track.bitsPerSample = 16;
    track.bytesPerPacket = 2;
    WholeMovieFile file(path.c_str(), FileOptions({}), std::make_unique<HollowFile>(),
                        WholeMovieFile::Checkpoints::ByHand);
    ASSERT_EQ(file.AddTrack(track), 0);
    ASSERT_EQ(file.Begin(), 0);
    MovieSample sample;
    sample.data = static_cast<const unsigned char*>(silence);
    sample.size = kBytes;
    sample.packets = kFrames;
    for (int i = 0; i < 7; i++) ASSERT_EQ(file.WriteSample(0, sample), 0) << i;
    const Result result = file.WriteSample(0, sample);
    munmap(silence, kBytes);
    const double seconds = 7.0 * kFrames / track.sampleRate;
    char kept[64];
    snprintf(kept, sizeof kept, "File too large; recording stopped, %.1f seconds kept", seconds);
    EXPECT_NE(std::string(result.GetMessage()).find(kept), std::string::npos)
        << result.GetMessage();
    EXPECT_TRUE(file.Finish().Failed());
    const ReaderOpinion opinion = Ffprobe(path);
    EXPECT_EQ(opinion.complaints, "");
    EXPECT_NEAR(opinion.seconds, seconds, 0.01);
    std::filesystem::remove(path);
}

}  // namespace
