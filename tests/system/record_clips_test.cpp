// `tarn record` of clips that are unusual as files: how they are named, what else is in them, how
// they end.

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/MakeClip.h"
#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using tests::CountFrames;
using tests::ProbeSeconds;
using tests::ProbeStream;
using tests::ProcessResult;
using tests::TestFolder;

namespace {

const std::string kTool = TARN_TOOL;

/// In `folder`, so that names without a path can be given.
ProcessResult RunIn(const TestFolder& folder, std::vector<std::string> words) {
    words.insert(words.begin(), {"env", "-C", folder.Path()});
    return tests::Run(words);
}

ProcessResult RecordIn(const TestFolder& folder, const std::string& input,
                       const std::string& output, std::vector<std::string> options) {
    options.insert(options.begin(), {kTool, "record", input, output});
    return RunIn(folder, options);
}

/// A clip of test pictures at 25 a second and a tone, made by ffmpeg with `options`.
std::string MakeTestClip(const TestFolder& folder, const std::string& name, double pictureSeconds,
                         double soundSeconds, const std::string& options) {
    std::string inputs;
    const auto add = [&inputs](const std::string& source, double seconds) {
        if (seconds > 0) inputs += "-f lavfi -i " + source + ":d=" + std::to_string(seconds) + " ";
    };
    add("testsrc2=s=160x120:r=25", pictureSeconds);
    add("sine=r=48000", soundSeconds);
    EXPECT_TRUE(tests::MakeClip(folder.File(name), inputs + options));
    return folder.File(name);
}

// What stands before a colon looks like the name of a protocol.
class NamesWithColons : public testing::TestWithParam<const char*> {};

TEST_P(NamesWithColons, AreFilesAsInputAndAsOutput) {
    const TestFolder folder;
    const std::string name = GetParam();
    MakeTestClip(folder, "base.mov", 1, 1, "-c:v mjpeg -c:a pcm_s16le");
    const ProcessResult written =
        RecordIn(folder, "base.mov", name, {"--video", "MJPEG", "--audio", "pcm"});
    EXPECT_EQ(written.exitCode, 0) << written.err;
    EXPECT_NE(written.out.find("(25 frames)"), std::string::npos) << written.out;
    ASSERT_TRUE(std::filesystem::exists(folder.File(name)));
    EXPECT_EQ(CountFrames(folder.File(name)), 25);

    const ProcessResult read =
        RecordIn(folder, name, "copy.mov", {"--video", "MJPEG", "--audio", "pcm"});
    EXPECT_EQ(read.exitCode, 0) << read.err;
    EXPECT_EQ(CountFrames(folder.File("copy.mov")), 25);
}

INSTANTIATE_TEST_SUITE_P(All, NamesWithColons,
                         testing::Values("10:30 a.mov", "show: part 1.mov", "file:x.mov",
                                         "cache:z.mov", "pipe:0.mov", "concat:a|b.mov",
                                         "subfile,,start,1,end,2,,:x.mov"));

struct Container {
    const char* name;
    const char* extension;
    const char* options;
};

void PrintTo(const Container& container, std::ostream* out) {
    *out << container.name;
}

// Where the index stands in front, or there is none.
const Container kContainers[] = {
    {"Mp4", ".mp4", "-c:v libx264 -g 25 -c:a aac -movflags +faststart"},
    {"Matroska", ".mkv", "-c:v libx264 -g 25 -c:a aac"},
    {"WebM", ".webm", "-c:v libvpx -g 25 -deadline realtime -c:a libopus"},
    {"Flash", ".flv", "-c:v flv -g 25 -c:a aac"},
};

class ClipsOf : public testing::TestWithParam<Container> {
protected:
    std::string Make(double pictureSeconds, double soundSeconds, const std::string& more = "") {
        return MakeTestClip(fFolder, std::string("clip") + GetParam().extension, pictureSeconds,
                            soundSeconds, std::string(GetParam().options) + " " + more);
    }
    ProcessResult RecordTo(const std::string& output, const std::string& clip,
                           const char* video = "MJPEG", const char* audio = "pcm") {
        return RecordIn(fFolder, clip, output, {"--video", video, "--audio", audio});
    }

    const TestFolder fFolder;
};

TEST_P(ClipsOf, PictureAndSoundThatWereCutOffAreToldAndKept) {
    const std::string clip = Make(6, 6);
    const std::uintmax_t whole = std::filesystem::file_size(clip);
    for (const int percent : {80, 55, 30}) {
        SCOPED_TRACE(percent);
        std::filesystem::resize_file(clip, whole * percent / 100);
        const ProcessResult result = RecordTo("out.mov", clip);
        EXPECT_EQ(result.exitCode, 1) << result.out;
        EXPECT_NE(result.err.find("get the whole clip"), std::string::npos) << result.err;
        const int frames = CountFrames(fFolder.File("out.mov"));
        EXPECT_GT(frames, 25);
        EXPECT_LT(frames, 150);
        EXPECT_NE(result.err.find(std::to_string(frames) + " frames"), std::string::npos)
            << result.err;
        EXPECT_EQ(RecordTo("picture.mov", clip, "MJPEG", "none").exitCode, 1);
        EXPECT_EQ(RecordTo("sound.mov", clip, "none").exitCode, 1);
    }
}

struct Whole {
    const char* name;
    double picture;
    double sound;
    const char* options;
};

// One track of a whole clip may end long before the other, or its clock may begin late.
TEST_P(ClipsOf, WholeOnesAreNotCalledCutOff) {
    const Whole kWholes[] = {
        {"both", 3, 3, ""},
        {"short sound", 4, 1, ""},
        {"short picture", 1, 4, ""},
        {"picture alone", 3, 0, ""},
        {"sound alone", 0, 3, ""},
        {"late clock", 3, 3, "-output_ts_offset 5"},
        {"late clock of pictures alone", 3, 0, "-output_ts_offset 5"},
        {"late clock and short sound", 4, 1, "-output_ts_offset 20"},
    };
    for (const Whole& whole : kWholes) {
        SCOPED_TRACE(whole.name);
        const std::string clip = Make(whole.picture, whole.sound, whole.options);
        if (whole.picture > 0) {
            const ProcessResult both = RecordTo("out.mov", clip);
            EXPECT_EQ(both.exitCode, 0) << both.err;
            const ProcessResult picture = RecordTo("out.mov", clip, "MJPEG", "none");
            EXPECT_EQ(picture.exitCode, 0) << picture.err;
        }
        if (whole.sound > 0) {
            const ProcessResult sound = RecordTo("out.mov", clip, "none");
            EXPECT_EQ(sound.exitCode, 0) << sound.err;
        }
        std::filesystem::remove(clip);
    }
}

INSTANTIATE_TEST_SUITE_P(All, ClipsOf, testing::ValuesIn(kContainers),
                         [](const auto& row) { return std::string(row.param.name); });

// So late that nobody knows of it who looks at the beginning.
TEST(RecordClips, SoundInTheMidstOfAWholeClipIsNoCut) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mkv");
    ASSERT_TRUE(tests::MakeClip(clip,
                                "-f lavfi -i testsrc2=s=640x480:r=25:d=20 "
                                "-itsoffset 12 -f lavfi -i sine=r=48000:d=2 "
                                "-c:v mjpeg -q:v 2 -c:a pcm_s16le"));
    const ProcessResult result =
        RecordIn(folder, clip, "out.mov", {"--video", "MJPEG", "--audio", "pcm"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

std::string MakeCover(const TestFolder& folder) {
    const std::string cover = folder.File("cover.png");
    EXPECT_TRUE(tests::MakeClip(cover, "-f lavfi -i testsrc=s=600x600 -frames:v 1"));
    return cover;
}

TEST(RecordClips, ACoverIsNoPictureOfAFilm) {
    const TestFolder folder;
    const std::string cover = MakeCover(folder);
    const std::string tone = MakeTestClip(folder, "tone.wav", 0, 3, "");
    for (const char* name : {"song.mp3", "song.m4a"}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(tests::MakeClip(folder.File(name),
                                    "-i " + tone + " -i " + cover +
                                        " -map 0 -map 1 -c:v copy -disposition:v attached_pic"));
        const ProcessResult refused = RecordIn(folder, name, "out.mov", {});
        EXPECT_EQ(refused.exitCode, 1) << refused.out;
        EXPECT_NE(refused.err.find("has no picture"), std::string::npos) << refused.err;
        const ProcessResult sound = RecordIn(folder, name, "out.mov", {"--video", "none"});
        EXPECT_EQ(sound.exitCode, 0) << sound.err;
        EXPECT_NEAR(ProbeSeconds(folder.File("out.mov"), "a:0"), 3, 0.1);
        std::filesystem::remove(folder.File("out.mov"));
    }
}

TEST(RecordClips, ACoverBeforeTheFilmIsPassedOver) {
    const TestFolder folder;
    const std::string cover = MakeCover(folder);
    const std::string film = MakeTestClip(folder, "film.mp4", 2, 2, "-c:v libx264 -c:a aac");
    ASSERT_TRUE(tests::MakeClip(
        folder.File("clip.mp4"),
        "-i " + film + " -i " + cover +
            " -map 1 -map 0 -c copy -disposition:v:0 attached_pic+default -disposition:v:1 0"));
    const ProcessResult result = RecordIn(folder, "clip.mp4", "out.mov", {});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(CountFrames(folder.File("out.mov")), 50);
    EXPECT_EQ(ProbeStream(folder.File("out.mov"), "v:0", "width"), "160");
    EXPECT_NEAR(ProbeSeconds(folder.File("out.mov"), "a:0"), 2, 0.1);
}

class WhatIsReadOnce : public testing::Test {
protected:
    /// `clip` is a pipe in the folder, or "pipe:0"; the tool's standard input is one.
    ProcessResult RecordPipe(const std::string& clip, const std::string& options) {
        return RunIn(fFolder, {"sh", "-c",
                               "cat clip.ts > fifo & cat clip.ts | timeout 60 \"$0\" record " +
                                   clip + " out.mov " + options + "; code=$?; kill $!; exit $code",
                               kTool});
    }

    void SetUp() override {
        MakeTestClip(fFolder, "clip.ts", 2, 2, "-c:v mpeg2video -c:a mp2");
        ASSERT_EQ(RunIn(fFolder, {"mkfifo", "fifo"}).exitCode, 0);
    }

    const TestFolder fFolder;
};

TEST_F(WhatIsReadOnce, IsNotSharedByPictureAndSound) {
    for (const char* clip : {"fifo", "pipe:0", "/dev/stdin"}) {
        SCOPED_TRACE(clip);
        const ProcessResult result = RecordPipe(clip, "");
        EXPECT_EQ(result.exitCode, 1) << result.out;
        EXPECT_NE(result.err.find("--audio none or --video none"), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists(fFolder.File("out.mov")));
    }
}

TEST_F(WhatIsReadOnce, IsRecordedWholeByOneOfThem) {
    for (const char* clip : {"fifo", "pipe:0", "/dev/stdin"}) {
        SCOPED_TRACE(clip);
        const ProcessResult picture = RecordPipe(clip, "--video MJPEG --audio none");
        EXPECT_EQ(picture.exitCode, 0) << picture.err;
        EXPECT_EQ(CountFrames(fFolder.File("out.mov")), 50);
        const ProcessResult sound = RecordPipe(clip, "--video none");
        EXPECT_EQ(sound.exitCode, 0) << sound.err;
        EXPECT_NEAR(ProbeSeconds(fFolder.File("out.mov"), "a:0"), 2, 0.1);
        const ProcessResult other = RecordPipe(clip, "--video MJPEG --audio-input clip.ts");
        EXPECT_EQ(other.exitCode, 0) << other.err;
        EXPECT_EQ(CountFrames(fFolder.File("out.mov")), 50);
    }
}

struct WayOut {
    const char* name;
    const char* size;
    const char* encoder;
    bool interlaced;
    const char* fits;
};

void PrintTo(const WayOut& row, std::ostream* out) {
    *out << row.name;
}

class SizesThatEncodersRefuse : public testing::TestWithParam<WayOut> {};

// What the line says helps.
TEST_P(SizesThatEncodersRefuse, AreToldWithTheWayOut) {
    const WayOut& row = GetParam();
    const TestFolder folder;
    const char* const coding =
        row.interlaced
            ? " -vf setfield=tff -pix_fmt yuv420p -c:v mpeg2video -flags +ilme+ildct -top 1"
            : " -pix_fmt yuv444p -c:v ffv1";
    ASSERT_TRUE(tests::MakeClip(folder.File("clip.mkv"), std::string("-f lavfi -i testsrc=s=") +
                                                             row.size + ":r=25:d=0.4" + coding));

    const ProcessResult refused = RecordIn(folder, "clip.mkv", "out.mov", {"--video", row.encoder});
    EXPECT_EQ(refused.exitCode, 1) << refused.out;
    const std::string advice = std::string("use --size ") + row.fits + " or --video MJPEG";
    EXPECT_NE(refused.err.find(advice), std::string::npos) << refused.err;
    const ProcessResult smaller =
        RecordIn(folder, "clip.mkv", "out.mov", {"--video", row.encoder, "--size", row.fits});
    EXPECT_EQ(smaller.exitCode, 0) << smaller.err;
    const ProcessResult other = RecordIn(folder, "clip.mkv", "out.mov", {"--video", "MJPEG"});
    EXPECT_EQ(other.exitCode, 0) << other.err;
}

const WayOut kWaysOut[] = {
    {"X264Both", "321x241", "x264", false, "320x240"},
    {"X264Height", "320x241", "x264", false, "320x240"},
    {"X264Width", "321x240", "x264", false, "320x240"},
    {"X264Fields", "320x242", "x264", true, "320x240"},
    {"ProRes", "321x241", "ProRes", false, "320x241"},
    {"Mpeg2", "4096x64", "Mpeg2", false, "4094x64"},
};

INSTANTIATE_TEST_SUITE_P(All, SizesThatEncodersRefuse, testing::ValuesIn(kWaysOut),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(RecordClips, RatesThatAacDoesNotTakeAreToldWithTheWayOut) {
    const TestFolder folder;
    for (const char* rate : {"4000", "192000"}) {
        SCOPED_TRACE(rate);
        ASSERT_TRUE(tests::MakeClip(folder.File("clip.wav"),
                                    std::string("-f lavfi -i sine=d=0.5:r=") + rate));
        const ProcessResult refused = RecordIn(folder, "clip.wav", "out.mov", {"--video", "none"});
        EXPECT_EQ(refused.exitCode, 1) << refused.out;
        EXPECT_NE(refused.err.find("use --audio pcm"), std::string::npos) << refused.err;
        EXPECT_NE(refused.err.find(rate), std::string::npos) << refused.err;
        const ProcessResult pcm =
            RecordIn(folder, "clip.wav", "out.mov", {"--video", "none", "--audio", "pcm"});
        EXPECT_EQ(pcm.exitCode, 0) << pcm.err;
    }
}

}  // namespace
