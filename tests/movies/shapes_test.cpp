#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>

#include "tests/movies/MovieCheck.h"
#include "tests/movies/MovieFolder.h"
#include "tests/movies/Readers.h"

using namespace Quillon::Orb;

// Real material in the shapes that recordings take: times that vary, tracks that start late, stay
// empty or stand side by side. Each is looked at by our own parser, by libavformat and by two more.

namespace {

/// A clip that a test may change.
MediaClip clip_of(const std::string& arguments) {
    return MakeClip("-f lavfi -i testsrc2=s=320x180:r=25:d=2 -f lavfi -i sine=f=440:r=48000:d=2 " +
                    arguments);
}
constexpr const char* kReordered =
    "-c:v libx264 -preset veryfast -bf 2 -g 12 -pix_fmt yuv420p -threads 1 ";
constexpr const char* kIntra = "-c:v mjpeg -q:v 5 -pix_fmt yuvj420p ";

struct Packet {
    long long pts, dts, duration;
};

/// What ffprobe reads of a stream's packets, in its ticks, edits applied.
std::vector<Packet> packets_of(const std::string& path, const std::string& stream) {
    const ProgramRun run = RunProgram("ffprobe -v error -select_streams " + stream +
                                      " -show_entries packet=pts,dts,duration -of csv=p=0 " + path);
    std::vector<Packet> packets;
    const char* line = run.output.c_str();
    for (Packet packet;
         sscanf(line, "%lld,%lld,%lld", &packet.pts, &packet.dts, &packet.duration) == 3;) {
        packets.push_back(packet);
        line = strchr(line, '\n');
        if (!line++) break;
    }
    return packets;
}

std::string entry_of(const std::string& path, const std::string& stream, const std::string& name) {
    std::string value = RunProgram("ffprobe -v error -select_streams " + stream +
                                   " -show_entries stream=" + name + " -of csv=p=0 " + path)
                            .output;
    value.erase(std::min(value.find_first_of(",\n"), value.size()));
    return value;
}

/// Samples of sound that come out of a decoder that heeds the edits.
long long sound_frames(const std::string& path, const std::string& stream) {
    const std::string sound = MovieFolder() + "/sound.raw";
    RunProgram("ffmpeg -nostdin -v error -y -i " + path + " -map 0:" + stream + " -ac 1 -f s16le " +
               sound);
    return static_cast<long long>(std::filesystem::file_size(sound)) / 2;
}

class Shapes : public testing::TestWithParam<const char*> {
protected:
    std::string Path() const { return MovieFolder() + "/shape." + GetParam(); }

    /// Records `clip`, and has everybody look at it: after each checkpoint our own parser and
    /// ffprobe, at the end all.
    void Record(const MediaClip& clip, WriteOptions options = {}) {
        options.container = std::string(GetParam()) == "mp4" ? 'mp4 ' : 'mov ';
        options.checkpointEvery = 40;
        const std::string path = Path();
        const auto look = [&] {
            const BoxFile file = ParseBoxFile(path);
            const Kept kept = CompareWithClip(file, BytesOf(path), clip);
            ASSERT_EQ(kept.complaints, "") << file.Text();
            const bool empty = *std::min_element(kept.samples.begin(), kept.samples.end()) == 0;
            ASSERT_EQ(Ffprobe(path, empty).complaints, "");
        };
        const Result result = WriteClipTo(path, clip, options, look);
        ASSERT_EQ(result, 0) << result.GetMessage();
        look();
        ASSERT_EQ(Mediainfo(path).complaints, "");
        ASSERT_EQ(GstDiscoverer(path).complaints, "");
        fFile = ParseBoxFile(path);
    }

    BoxFile fFile;
};

INSTANTIATE_TEST_SUITE_P(Containers, Shapes, testing::Values("mov", "mp4"),
                         [](const auto& each) { return std::string(each.param); });

/// Pictures at distances that vary, as a host that drops frames gives them.
TEST_P(Shapes, VariableDurationsAreKeptToTheTick) {
    MediaClip clip = clip_of(std::string(kIntra) + "-c:a pcm_s16le");
    const long long tick = clip.tracks[0].frameDuration;
    std::vector<long long> times;
    long long time = 0;
    constexpr int kSteps[] = {1, 1, 3, 2, 1, 7, 1};
    for (MediaClip::Sample& sample : clip.samples) {
        if (sample.track != 0) continue;
        const int step = kSteps[times.size() % 7];
        sample.described.decodeTime = time;
        // What the sample itself says of its duration does not count: the next one's time does.
        sample.described.duration = tick;
        times.push_back(time);
        time += step * tick / 2;
    }
    ASSERT_NO_FATAL_FAILURE(Record(clip));
    const std::vector<Packet> packets = packets_of(Path(), "v:0");
    ASSERT_EQ(packets.size(), times.size());
    for (std::size_t i = 0; i < times.size(); i++) {
        EXPECT_EQ(packets[i].pts, times[i]);
        EXPECT_EQ(packets[i].duration, i + 1 < times.size() ? times[i + 1] - times[i] : tick);
    }
    EXPECT_EQ(RunProgram("mediainfo --Output='Video;%FrameRate_Mode%' " + Path()).output, "VFR\n");
}

/// Reordered pictures: the first one shown stands at 0 although its offset is not, and every
/// picture at its place.
TEST_P(Shapes, ReorderedPicturesStartAtZero) {
    const MediaClip clip = clip_of(std::string(kReordered) + "-c:a aac");
    ASSERT_TRUE(clip.tracks[0].reordered);
    ASSERT_NO_FATAL_FAILURE(Record(clip));
    std::vector<long long> times;
    for (const Packet& packet : packets_of(Path(), "v:0")) times.push_back(packet.pts);
    std::sort(times.begin(), times.end());
    ASSERT_EQ(times.size(), 50U);
    const long long tick = clip.tracks[0].frameDuration;
    for (std::size_t i = 0; i < times.size(); i++)
        EXPECT_EQ(times[i], static_cast<long long>(i) * tick);
    EXPECT_EQ(DecodedFrames(Path(), "v:0"), DecodedFrames(clip.path, "v:0"));
}

/// Two languages and a plain mix beside one picture.
TEST_P(Shapes, SeveralSoundsStandBesideEachOther) {
    const MediaClip clip = MakeClip(
        "-f lavfi -i testsrc2=s=320x180:r=25:d=2 -f lavfi -i sine=f=440:r=48000:d=2 -f lavfi -i "
        "sine=f=880:r=44100:d=2 -map 0:v -map 1:a -map 2:a -map 1:a -c:v mjpeg -pix_fmt yuvj420p "
        "-c:a:0 aac -c:a:1 pcm_s16le -c:a:2 pcm_f32le");
    ASSERT_EQ(clip.tracks.size(), 4U);
    ASSERT_NO_FATAL_FAILURE(Record(clip));
    for (const char* stream : {"a:0", "a:1", "a:2"})
        EXPECT_EQ(DecodedSound(Path(), stream), DecodedSound(clip.path, stream)) << stream;
    EXPECT_EQ(entry_of(Path(), "a:1", "sample_rate"), "44100");
    EXPECT_EQ(RunProgram("mediainfo --Output='General;%AudioCount%' " + Path()).output, "3\n");
    EXPECT_EQ(GstDecode(Path(), 4).complaints, "");
}

/// PCM lies in pieces of about half a second, whatever blocks it came in, and pictures lie between.
TEST_P(Shapes, PlainSoundLiesInLargeChunksBetweenThePictures) {
    const MediaClip clip = clip_of(std::string(kIntra) + "-c:a pcm_s16le");
    WriteOptions options;
    ASSERT_NO_FATAL_FAILURE(Record(clip, options));
    const BoxTrack& sound = fFile.tracks[1];
    // Checkpoints, four here, divide chunks as well.
    EXPECT_LE(sound.chunks, 4 + 5);
    EXPECT_EQ(sound.samples.size(), 96000U);
    EXPECT_EQ(DecodedSound(Path(), "a:0"), DecodedSound(clip.path, "a:0"));
}

/// A reader that goes through the file from front to end finds sound and picture of one time
/// within a second of each other.
TEST_P(Shapes, TracksLieInterleavedByTime) {
    const MediaClip clip =
        MakeClip("-f lavfi -i testsrc2=s=320x180:r=25:d=8 -f lavfi -i sine=f=440:r=48000:d=8 " +
                 std::string(kReordered) + "-c:a aac");
    ASSERT_NO_FATAL_FAILURE(Record(clip));
    struct Place {
        long long position;
        double seconds;
        std::size_t track;
    };
    std::vector<Place> places;
    for (std::size_t i = 0; i < 2; i++) {
        for (const BoxTrack::Sample& sample : fFile.tracks[i].samples)
            places.push_back(
                {sample.position,
                 static_cast<double>(sample.time) / static_cast<double>(fFile.tracks[i].timescale),
                 i});
    }
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return a.position < b.position; });
    double reached[2] = {0, 0};
    double apart = 0;
    for (const Place& place : places) {
        reached[place.track] = place.seconds;
        apart = std::max(apart, std::fabs(reached[0] - reached[1]));
    }
    EXPECT_LE(apart, 1.1);
}

/// The encoder's delay is cut by an edit, so that sound and picture start together; without
/// trimming it stays, and the sound is that much longer.
TEST_P(Shapes, PrimingOfAacIsCutOnlyWhereThatIsAsked) {
    const MediaClip clip = clip_of(std::string(kIntra) + "-c:a aac");
    ASSERT_EQ(clip.tracks[1].primingFrames, 1024);
    ASSERT_NO_FATAL_FAILURE(Record(clip));
    ASSERT_EQ(fFile.tracks[1].edits.size(), 1U);
    EXPECT_EQ(fFile.tracks[1].edits[0].mediaTime, 1024);
    const long long trimmed = sound_frames(Path(), "a:0");
    EXPECT_NEAR(static_cast<double>(trimmed), 96000, 1024);
    EXPECT_EQ(DecodedSound(Path(), "a:0"), DecodedSound(clip.path, "a:0"));

    MediaClip untrimmed = clip;
    long long time = 0;
    for (MediaClip::Sample& sample : untrimmed.samples) {
        if (sample.track != 1) continue;
        sample.described.decodeTime = time;
        time += 1024;
    }
    WriteOptions options;
    options.trimAudio = false;
    ASSERT_NO_FATAL_FAILURE(Record(untrimmed, options));
    EXPECT_TRUE(fFile.tracks[1].edits.empty());
    EXPECT_EQ(sound_frames(Path(), "a:0"), trimmed + 1024);
}

struct LateStart {
    const char* name;
    int track;
    double seconds;
};

/// A track that starts late says so by an empty edit, and each picture and sound keeps its time.
TEST_P(Shapes, LateTrackStartsWhereItsFirstSampleIs) {
    for (const LateStart& late : {LateStart{"sound", 1, 0.5}, LateStart{"pictures", 0, 0.48}}) {
        SCOPED_TRACE(late.name);
        MediaClip clip = clip_of(std::string(kReordered) + "-c:a pcm_s16le");
        const auto track = static_cast<std::size_t>(late.track);
        const auto start = static_cast<long long>(
            late.seconds * static_cast<double>(clip.tracks[track].timescale));
        for (MediaClip::Sample& sample : clip.samples)
            if (sample.track == late.track) sample.described.decodeTime += start;
        ASSERT_NO_FATAL_FAILURE(Record(clip));
        ASSERT_EQ(fFile.tracks[track].edits.size(), 2U);
        EXPECT_EQ(fFile.tracks[track].edits[0].mediaTime, -1);
        EXPECT_NEAR(
            static_cast<double>(fFile.movieDuration) / static_cast<double>(fFile.movieTimescale),
            2 + late.seconds, 1e-6);
        const std::string stream = late.track == 0 ? "v:0" : "a:0";
        EXPECT_NEAR(std::atof(entry_of(Path(), stream, "start_time").c_str()), late.seconds, 1e-6);
        EXPECT_NEAR(GstDiscoverer(Path()).seconds, 2 + late.seconds, 0.03);
        EXPECT_NEAR(Mediainfo(Path()).seconds, 2 + late.seconds, 0.03);
        EXPECT_EQ(DecodedSound(Path(), "a:0"), DecodedSound(clip.path, "a:0"));
    }
}

/// A track that nothing came for is there and disturbs nobody.
TEST_P(Shapes, EmptyTrackDisturbsNobody) {
    for (const int empty : {0, 1}) {
        SCOPED_TRACE(empty);
        MediaClip clip = clip_of(std::string(kIntra) + "-c:a pcm_s16le");
        std::erase_if(clip.samples, [empty](const auto& sample) { return sample.track == empty; });
        ASSERT_NO_FATAL_FAILURE(Record(clip));
        EXPECT_TRUE(fFile.tracks[static_cast<std::size_t>(empty)].samples.empty());
        EXPECT_EQ(fFile.tracks.size(), 2U);
        EXPECT_NEAR(GstDiscoverer(Path()).seconds, 2, 0.03);
        if (empty == 1)
            EXPECT_EQ(DecodedFrames(Path(), "v:0").size(), 50U);
        else
            EXPECT_EQ(DecodedSound(Path(), "a:0"), DecodedSound(clip.path, "a:0"));
    }
}

struct Rate {
    long long timescale, frameDuration;
};

/// Whatever the ticks of a track are, they are the file's ticks, and the last picture stands where
/// it was.
TEST_P(Shapes, TimescalesAreExact) {
    const Rate rates[] = {{24000, 1001}, {25, 1},      {30000, 1001},
                          {60000, 1001}, {12000, 100}, {10000000, 333667}};
    for (const Rate& rate : rates) {
        SCOPED_TRACE(rate.timescale);
        MediaClip clip = clip_of(std::string(kIntra) + "-c:a pcm_s16le");
        clip.tracks[0].timescale = rate.timescale;
        clip.tracks[0].frameDuration = rate.frameDuration;
        long long number = 0;
        for (MediaClip::Sample& sample : clip.samples) {
            if (sample.track != 0) continue;
            sample.described.decodeTime = number++ * rate.frameDuration;
            sample.described.duration = rate.frameDuration;
        }
        ASSERT_NO_FATAL_FAILURE(Record(clip));
        EXPECT_EQ(entry_of(Path(), "v:0", "time_base"), "1/" + std::to_string(rate.timescale));
        const std::vector<Packet> packets = packets_of(Path(), "v:0");
        ASSERT_EQ(packets.size(), 50U);
        EXPECT_EQ(packets.back().pts, 49 * rate.frameDuration);
        const double seconds =
            50.0 * static_cast<double>(rate.frameDuration) / static_cast<double>(rate.timescale);
        EXPECT_NEAR(GstDiscoverer(Path()).seconds, std::max(seconds, 2.0), 0.03);
    }
}

TEST_P(Shapes, CreationTimeIsWhatTheReadersSay) {
    const MediaClip clip = clip_of(std::string(kIntra) + "-c:a pcm_s16le");
    ASSERT_NO_FATAL_FAILURE(Record(clip));
    EXPECT_EQ(
        RunProgram("ffprobe -v error -show_entries format_tags=creation_time -of csv=p=0 " + Path())
            .output,
        "2023-11-14T22:13:20.000000Z\n");
    EXPECT_NE(RunProgram("mediainfo --Output='Video;%Encoded_Date%' " + Path())
                  .output.find("2023-11-14 22:13:20"),
              std::string::npos);
}

struct Look {
    const char* name;
    MovieColour colour;
    int fieldOrder;
    const char* colours;  // as ffprobe has them: range, matrix, transfer, primaries
    const char* fields;
};

/// Colour, field order and pixel aspect are read as they were said.
TEST_P(Shapes, LookOfThePicturesIsReadAsItWasSaid) {
    const Look looks[] = {
        {"BT.709", {1, 1, 1, false}, 1, "bt709,bt709,bt709", "progressive"},
        {"BT.601 of 625 lines", {5, 1, 6, false}, 2, "smpte170m,bt709,bt470bg", "tb"},
        {"BT.601 of 525 lines", {6, 1, 6, false}, 3, "smpte170m,bt709,smpte170m", "bt"},
    };
    for (const Look& look : looks) {
        SCOPED_TRACE(look.name);
        // The one's stream says nothing of fields, the other's nothing of colours: what is read is
        // what the file says.
        for (const char* codec : {"-c:v prores_ks -profile:v 2", kReordered}) {
            MediaClip clip = clip_of(std::string(codec) + " -c:a pcm_s16le");
            clip.tracks[0].colour = look.colour;
            clip.tracks[0].fieldOrder = look.fieldOrder;
            clip.tracks[0].pixelAspectNumerator = 1920;
            clip.tracks[0].pixelAspectDenominator = 1440;
            ASSERT_NO_FATAL_FAILURE(Record(clip));
            const std::string show =
                "ffprobe -v error -select_streams v:0 -of csv=p=0 "
                "-show_entries stream=";
            const bool colours = codec == kReordered;
            const ProgramRun said = RunProgram(
                show + (colours ? "color_space,color_transfer,color_primaries " : "field_order ") +
                Path());
            EXPECT_EQ(said.output, std::string(colours ? look.colours : look.fields) + "\n");
            EXPECT_EQ(RunProgram(show + "sample_aspect_ratio " + Path()).output, "4:3\n");
            EXPECT_EQ(RunProgram("mediainfo --Output='Video;%PixelAspectRatio%' " + Path()).output,
                      "1.333\n");
        }
    }
}

}  // namespace
