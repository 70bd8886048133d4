// `tarn record` on real clips, checked with ffprobe, mediainfo, GStreamer and ffmpeg.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/MakeClip.h"
#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using tests::CountFrames;
using tests::GstreamerReads;
using tests::MakeClip;
using tests::MediaInfo;
using tests::PacketTime;
using tests::ProbePackets;
using tests::ProbePictureTimes;
using tests::ProbeSeconds;
using tests::ProbeStream;
using tests::ProcessResult;
using tests::Psnr;
using tests::SoundHash;
using tests::TestFolder;

namespace {

const std::string kTool = TARN_TOOL;
const std::string kCup = TARN_CLIPS "/cup.mp4";
const std::string kBox = TARN_CLIPS "/box.mp4";
const std::string kPhoto = TARN_CLIPS "/photo_1080p60.mkv";

ProcessResult Record(const std::string& input, const std::string& output,
                     std::vector<std::string> options) {
    options.insert(options.begin(), {kTool, "record", input, output});
    return tests::Run(options);
}

struct Kind {
    const char* name;
    const char* extension;
    std::vector<std::string> options;
    const char* codec;
    const char* tag;
    const char* audioCodec;
    double leastPsnr;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

const Kind kKinds[] = {
    {"ProResPcmMov",
     ".mov",
     {"--video", "ProRes", "--quality", "prores_422_hq", "--audio", "pcm"},
     "prores",
     "apch",
     "pcm_s16le",
     45},
    {"MjpegPcmMov",
     ".mov",
     {"--video", "MJPEG", "--quality", "mjpeg_best", "--audio", "pcm"},
     "mjpeg",
     "jpeg",
     "pcm_s16le",
     38},
    {"X264AacMov",
     ".mov",
     {"--video", "x264", "--bitrate", "10000", "--audio", "aac"},
     "h264",
     "avc1",
     "aac",
     35},
    {"Mpeg2PcmMov",
     ".mov",
     {"--video", "Mpeg2", "--bitrate", "15000", "--audio", "pcm"},
     "mpeg2video",
     "mp2v",
     "pcm_s16le",
     33},
    {"X264AacMp4",
     ".mp4",
     {"--video", "x264", "--bitrate", "10000", "--audio", "aac"},
     "h264",
     "avc1",
     "aac",
     35},
};

class RecordedKind : public testing::TestWithParam<Kind> {
protected:
    TestFolder fFolder;
};

// Frame n of the file is shown when picture n of the input is, to the tick of the file, and lasts
// until picture n + 1. Of a codec that reorders, durations belong to decoding and times alone to
// the show. The damaged clip steps back in time at its very end, where no file can follow: what
// comes then has a time of its own all the same.
void ExpectSameTimes(const std::string& file, const std::string& input, bool reorders) {
    const std::vector<double> want = ProbePictureTimes(input);
    std::vector<PacketTime> have = ProbePackets(file, "v:0");
    std::sort(have.begin(), have.end(),
              [](const PacketTime& a, const PacketTime& b) { return a.time < b.time; });
    ASSERT_EQ(have.size(), want.size());
    std::size_t compared = 0;
    for (; compared + 1 < want.size() && want[compared + 1] > want[compared]; ++compared) {
        const std::size_t i = compared;
        ASSERT_NEAR(have[i].time - have[0].time, want[i] - want[0], 0.0011) << "frame " << i;
        if (reorders) continue;
        ASSERT_NEAR(have[i].duration, want[i + 1] - want[i], 0.0011) << "frame " << i;
    }
    EXPECT_GE(compared + 3, want.size());
    for (std::size_t i = 1; i < have.size(); ++i) {
        ASSERT_GT(have[i].time, have[i - 1].time) << "frame " << i;
    }
}

TEST_P(RecordedKind, HasTheInputsFramesTimesSoundAndLooks) {
    const Kind& kind = GetParam();
    const std::string file = fFolder.File(std::string("cup") + kind.extension);
    const ProcessResult run = Record(kCup, file, kind.options);
    ASSERT_EQ(run.exitCode, 0) << run.err;

    EXPECT_EQ(ProbeStream(file, "v:0", "codec_name"), kind.codec);
    EXPECT_EQ(ProbeStream(file, "v:0", "codec_tag_string"), kind.tag);
    EXPECT_EQ(ProbeStream(file, "a:0", "codec_name"), kind.audioCodec);
    EXPECT_EQ(ProbeStream(file, "v:0", "width"), "640");
    EXPECT_EQ(ProbeStream(file, "v:0", "height"), "480");
    EXPECT_EQ(ProbeStream(file, "v:0", "time_base"), "1/26777");
    // A JPEG decoder answers for the format, which has one matrix, and not for the file.
    EXPECT_EQ(ProbeStream(file, "v:0", "color_space"),
              kind.codec == std::string("mjpeg") ? "bt470bg" : "smpte170m");
    EXPECT_EQ(ProbeStream(file, "v:0", "field_order"), "progressive");
    EXPECT_EQ(ProbeStream(file, "a:0", "sample_rate"), "48000");
    EXPECT_EQ(CountFrames(file), CountFrames(kCup));
    ExpectSameTimes(file, kCup, kind.codec == std::string("mpeg2video"));

    const double frame = 1000.0 / 26777;
    EXPECT_NEAR(std::atof(ProbeStream(file, "v:0", "duration").c_str()),
                std::atof(ProbeStream(file, "a:0", "duration").c_str()), frame);
    EXPECT_GE(Psnr(file, kCup), kind.leastPsnr);
    EXPECT_EQ(MediaInfo(file, "General", "IsStreamable"), "Yes");
    EXPECT_NE(MediaInfo(file, "Video", "Format"), "");
    EXPECT_NEAR(std::atof(MediaInfo(file, "General", "Duration").c_str()), 8104, 60);
    EXPECT_TRUE(GstreamerReads(file));
}

TEST_P(RecordedKind, SurvivesVariableTimesAndDamagedSlices) {
    const Kind& kind = GetParam();
    const std::string file = fFolder.File(std::string("box") + kind.extension);
    const ProcessResult run = Record(kBox, file, kind.options);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(CountFrames(file), CountFrames(kBox));
    ExpectSameTimes(file, kBox, kind.codec == std::string("mpeg2video"));
    EXPECT_NEAR(std::atof(ProbeStream(file, "v:0", "duration").c_str()),
                std::atof(ProbeStream(file, "a:0", "duration").c_str()), 0.034);
    // A movie gets a round timescale, an mp4 keeps that of the clip.
    EXPECT_EQ(ProbeStream(file, "v:0", "time_base"),
              kind.extension == std::string(".mov") ? "1/30000" : "1/1000000");
}

INSTANTIATE_TEST_SUITE_P(All, RecordedKind, testing::ValuesIn(kKinds),
                         [](const auto& kindInfo) { return std::string(kindInfo.param.name); });

TEST(Record, KeepsEverySampleOfPcm) {
    const TestFolder folder;
    const std::string input = folder.File("tone.mov");
    ASSERT_TRUE(MakeClip(input,
                         "-f lavfi -i testsrc2=s=160x120:r=25:d=4 "
                         "-f lavfi -i anoisesrc=r=48000:d=4 "
                         "-ac 2 -c:v mjpeg -c:a pcm_s16le"));
    const std::string file = folder.File("out.mov");
    ASSERT_EQ(Record(input, file, {"--video", "MJPEG", "--audio", "pcm"}).exitCode, 0);
    EXPECT_EQ(SoundHash(file, 0), SoundHash(input, 0));
}

TEST(Record, ShowsAGapAsOneLongerFrame) {
    const TestFolder folder;
    const std::string input = folder.File("gap.mkv");
    ASSERT_TRUE(MakeClip(input,
                         "-f lavfi -i testsrc2=s=160x120:r=25:d=2 "
                         "-vf select='not(between(n,20,24))' -vsync passthrough -c:v ffv1"));
    const std::string file = folder.File("out.mov");
    ASSERT_EQ(Record(input, file, {"--video", "x264", "--audio", "none"}).exitCode, 0);
    const std::vector<PacketTime> packets = ProbePackets(file, "v:0");
    ASSERT_EQ(packets.size(), 45u);
    EXPECT_NEAR(packets[19].duration, 6 * 0.04, 0.0011);
    EXPECT_NEAR(packets[18].duration, 0.04, 0.0011);
    EXPECT_NEAR(packets[20].duration, 0.04, 0.0011);
}

TEST(Record, HoldsPictureAndSoundTogetherForTenMinutes) {
    const TestFolder folder;
    const std::string input = folder.File("long.mov");
    // Noise, of which no two pieces are alike: a tone would look the same a period later.
    ASSERT_TRUE(MakeClip(input,
                         "-f lavfi -i testsrc=s=64x48:r=30000/1001:d=600 "
                         "-f lavfi -i anoisesrc=r=44100:d=600 "
                         "-c:v mpeg4 -q:v 8 -c:a pcm_s16le"));
    const std::string file = folder.File("out.mov");
    ASSERT_EQ(Record(input, file, {"--video", "MJPEG", "--quality", "mjpeg_low", "--audio", "pcm"})
                  .exitCode,
              0);
    EXPECT_EQ(SoundHash(file, 599), SoundHash(input, 599));
    ExpectSameTimes(file, input, false);
    const double video = ProbeSeconds(file, "v:0");
    EXPECT_NEAR(video, ProbeSeconds(file, "a:0"), 1001.0 / 30000);
    EXPECT_NEAR(video, 600.0, 2 * 1001.0 / 30000);
}

bool is_release() {
    const char* preset = std::getenv("TARN_PRESET");
    return !preset || std::string(preset) == "release";
}

// Raw pictures of 8 MiB are where allocators begin to give memory back at once: some two thousand
// page faults a picture, each of which clears a page. How many pictures are on their way at a time
// hangs on the pace, and each of those has pages of its own, once: where one recording went deeper
// than the other both are made again. A picture that came to fresh pages each time would in no try
// stay below the bound.
TEST(Record, LargeRawPicturesLieOnPagesThatWereThereBefore) {
    if (!is_release()) GTEST_SKIP() << "sanitizers bring an allocator of their own";
    const TestFolder folder;
    const std::string input = folder.File("large.nut");
    ASSERT_TRUE(MakeClip(input,
                         "-f lavfi -i testsrc2=s=1920x1080:r=25 "
                         "-frames:v 24 -c:v rawvideo -pix_fmt bgra"));
    const auto faultsOf = [&](const char* seconds) {
        const ProcessResult run =
            Record(input, folder.File("out.mov"),
                   {"--video", "MJPEG", "--audio", "none", "--limit", seconds});
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return run.pageFaults;
    };
    constexpr long kMost = 12 * 200;
    long rise = kMost;
    for (int i = 0; i < 6 && rise >= kMost; ++i) {
        const long few = faultsOf("0.48");
        rise = faultsOf("0.96") - few;
        EXPECT_EQ(CountFrames(folder.File("out.mov")), 24);
    }
    EXPECT_LT(rise, kMost);
}

TEST(Record, MeetsThePictureQualityOf1080p) {
    if (!is_release()) {
        GTEST_SKIP() << "the optimised build alone encodes 1080p in reasonable time";
    }
    const TestFolder folder;
    const std::string file = folder.File("photo.mp4");
    ASSERT_EQ(Record(kPhoto, file,
                     {"--video", "x264", "--bitrate", "10000", "--audio", "none", "--limit", "2"})
                  .exitCode,
              0);
    const std::string cut = folder.File("cut.mkv");
    ASSERT_EQ(
        tests::Run({"ffmpeg", "-v", "error", "-i", kPhoto, "-t", "2", "-c", "copy", cut}).exitCode,
        0);
    EXPECT_EQ(CountFrames(file), 120);
    EXPECT_GE(Psnr(file, cut), 35.0);
    EXPECT_EQ(ProbeStream(file, "v:0", "color_space"), "bt709");
    EXPECT_EQ(ProbeStream(file, "v:0", "color_range"), "tv");
}

TEST(Record, TakesSoundFromAnotherFileAndFillsUpWithSilence) {
    const TestFolder folder;
    const std::string file = folder.File("out.mov");
    ASSERT_EQ(Record(kCup, file,
                     {"--video", "MJPEG", "--audio", "pcm", "--audio-input",
                      "/usr/share/sounds/alsa/Front_Center.wav", "--limit", "3"})
                  .exitCode,
              0);
    EXPECT_NEAR(ProbeSeconds(file, "v:0"), ProbeSeconds(file, "a:0"), 0.0375);
    EXPECT_EQ(SoundHash(file, 1.0), SoundHash("/usr/share/sounds/alsa/Front_Center.wav", 1.0));
}

// The clip says how long it is, with or without a picture: nothing has to be kept free for hours.
TEST(Record, SoundAloneMakesAFileThatIsNotMuchLargerThanTheSound) {
    const TestFolder folder;
    const std::string input = "/usr/share/sounds/alsa/Front_Center.wav";
    const std::string file = folder.File("out.mov");
    ASSERT_EQ(Record(input, file, {"--video", "none", "--audio", "pcm"}).exitCode, 0);
    EXPECT_EQ(SoundHash(file, 0), SoundHash(input, 0));
    EXPECT_LT(std::filesystem::file_size(file), std::filesystem::file_size(input) + 300'000);
}

TEST(Record, TellsHowTheFileGrows) {
    const TestFolder folder;
    const ProcessResult run =
        Record(kCup, folder.File("out.mov"),
               {"--video", "Mpeg2", "--audio", "none", "--live", "--limit", "4", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto last = [&](const std::string& key) {
        const std::size_t at = run.out.rfind("\"" + key + "\":");
        return at == std::string::npos ? -1 : std::atoll(run.out.c_str() + at + key.size() + 3);
    };
    // Told once a second, and so within the last one.
    EXPECT_GE(last("bytes"), last("videoBytes") / 2) << run.out;
}

TEST(Record, TellsTheBytesThatStandInTheFile) {
    const TestFolder folder;
    const std::string file = folder.File("out.mov");
    const ProcessResult run =
        Record(kCup, file, {"--limit", "0.4", "--video", "MJPEG", "--audio", "pcm", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto told = [&](const std::string& key) {
        const std::size_t at = run.out.rfind("\"" + key + "\":");
        return at == std::string::npos ? -1 : std::atoll(run.out.c_str() + at + key.size() + 3);
    };
    long long pictures = 0;
    std::istringstream sizes(
        tests::Run({"ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                    "packet=size", "-of", "default=nk=1:nw=1", file})
            .out);
    for (long long size = 0; sizes >> size;) pictures += size;
    EXPECT_GT(pictures, 0);
    EXPECT_EQ(told("videoBytes"), pictures) << run.out;
    EXPECT_EQ(told("audioBytes"), told("audioFrames") * 4) << run.out;
}

TEST(Record, ScalesThePicture) {
    const TestFolder folder;
    const std::string file = folder.File("out.mp4");
    ASSERT_EQ(Record(kCup, file, {"--size", "320x240", "--limit", "1"}).exitCode, 0);
    EXPECT_EQ(ProbeStream(file, "v:0", "width"), "320");
    EXPECT_EQ(ProbeStream(file, "v:0", "height"), "240");
}

/// Two seconds at the clip's pace, on a terminal of so many columns that `script` makes.
ProcessResult RecordOnTerminal(int columns) {
    const TestFolder folder;
    const std::string command = "stty cols " + std::to_string(columns) + "; " + kTool + " record " +
                                kCup + " " + folder.File("cup.mov") +
                                " --video MJPEG --live --limit 2 --audio none";
    ProcessResult run = tests::Run({"script", "-qec", command, "/dev/null"});
    EXPECT_EQ(run.exitCode, 0) << run.out;
    return run;
}

TEST(Record, ATerminalShowsHowFarItIs) {
    const ProcessResult run = RecordOnTerminal(100);
    EXPECT_NE(run.out.find("[####"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find(" fps"), std::string::npos) << run.out;
}

TEST(Record, ProgressStaysOnItsLineOfANarrowTerminal) {
    const ProcessResult run = RecordOnTerminal(40);
    int shown = 0;
    for (std::size_t at = run.out.find("\r["); at != std::string::npos;
         at = run.out.find("\r[", at + 1)) {
        const std::size_t end = run.out.find("\033[K", at);
        ASSERT_NE(end, std::string::npos);
        EXPECT_LT(end - at - 1, 40u) << run.out.substr(at + 1, end - at - 1);
        ++shown;
    }
    EXPECT_GT(shown, 0) << run.out;
}

struct Refusal {
    const char* name;
    std::vector<std::string> words;
    const char* says;
};

void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << refusal.name;
}

class RefusedRecording : public testing::TestWithParam<Refusal> {};

TEST_P(RefusedRecording, SaysWhyAndFails) {
    const TestFolder folder;
    std::ofstream(folder.File("truncated.mp4")) << "no clip";
    std::filesystem::create_directory(folder.File("folder.mov"));
    std::vector<std::string> words = {kTool, "record"};
    for (std::string word : GetParam().words) {
        const std::size_t at = word.find("FOLDER");
        if (at != std::string::npos) word.replace(at, 6, folder.Path());
        words.push_back(word);
    }
    const ProcessResult result = tests::Run(words);
    EXPECT_GT(result.exitCode, 0);
    EXPECT_LT(result.exitCode, 128) << "ended by a signal";
    EXPECT_NE(result.err.find(GetParam().says), std::string::npos) << result.err;
    // The media library's trace may say more; the tool says it in one line, the last.
    const std::size_t at = result.err.find("tarn record: ");
    ASSERT_NE(at, std::string::npos) << result.err;
    EXPECT_EQ(result.err.find('\n', at), result.err.size() - 1) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_FALSE(std::filesystem::exists(folder.File("out.mov")));
}

const Refusal kRefusals[] = {
    {"MissingInput", {"FOLDER/none.mp4", "FOLDER/out.mov"}, "none.mp4': cannot be read as a clip"},
    {"NoClip",
     {"FOLDER/truncated.mp4", "FOLDER/out.mov"},
     "truncated.mp4': cannot be read as a clip"},
    {"MissingFolder", {kCup, "FOLDER/none/out.mov"}, "there is no folder"},
    {"FileThatIsAFolder",
     {kCup, "FOLDER/folder.mov"},
     "folder.mov': that is a folder; name a file in it"},
    {"FolderThatIsAFile", {kCup, "FOLDER/truncated.mp4/out.mov"}, "there is no folder"},
    {"FolderNameThatIsTooLong",
     {kCup, "FOLDER/" + std::string(300, 'a') + "/out.mov"},
     "aaa': File name too long; check its path"},
    {"UnwritablePlace", {kCup, "/proc/out.mov"}, "'/proc/out.mov'"},
    {"UnknownContainer",
     {kCup, "FOLDER/out.ogg"},
     "out.ogg': unknown kind of file; end its name in .mov, .mp4 or .m4v"},
    {"UnknownCodec", {kCup, "FOLDER/out.mov", "--video", "Cinepak"}, "Cinepak"},
    {"HardwareThatIsNotThere",
     {kCup, "FOLDER/out.mov", "--video", "Video Toolbox H.264"},
     "needs hardware that is not here"},
    {"NoPicture", {"/usr/share/sounds/alsa/Front_Center.wav", "FOLDER/out.mov"}, "has no picture"},
    {"AbsurdSize", {kCup, "FOLDER/out.mov", "--size", "999999x2"}, "each from 2 to 16384"},
    {"SizeThatIsNone", {kCup, "FOLDER/out.mov", "--size", "big"}, "WIDTHxHEIGHT"},
    {"SizeOfNothing", {kCup, "FOLDER/out.mov", "--size", "0x0"}, "'0x0': give it as WIDTHxHEIGHT"},
    {"SizeBelowNothing", {kCup, "FOLDER/out.mov", "--size", "-4x-4"}, "each from 2 to 16384"},
    {"SizeThatTheCodecCannotHalve", {kCup, "FOLDER/out.mov", "--size", "17x16"}, "even width"},
    {"UnknownQuality",
     {kCup, "FOLDER/out.mov", "--video", "ProRes", "--quality", "bogus"},
     "ProRes has prores_422_proxy"},
    {"QualityOfACodecThatHasNone",
     {kCup, "FOLDER/out.mov", "--quality", "mjpeg_best"},
     "x264 goes by --bitrate"},
    {"BitRateOfACodecThatHasNone",
     {kCup, "FOLDER/out.mov", "--video", "ProRes", "--bitrate", "8000"},
     "--bitrate: ProRes goes by --quality; it has prores_422_proxy"},
    {"SoundFromElsewhereThatIsNotWanted",
     {kCup, "FOLDER/out.mov", "--audio", "none", "--audio-input", kCup},
     "--audio none takes no sound"},
    {"SizeOfNoPicture",
     {kCup, "FOLDER/out.mov", "--video", "none", "--size", "320x240"},
     "--size: --video none takes no picture"},
    {"BitRateOfNoPicture",
     {kCup, "FOLDER/out.mov", "--video", "none", "--bitrate", "500"},
     "--bitrate: --video none takes no picture"},
    {"QualityOfNoPicture",
     {kCup, "FOLDER/out.mov", "--video", "none", "--quality", "mjpeg_best"},
     "--quality: --video none takes no picture"},
    {"NoKeyFrames", {kCup, "FOLDER/out.mov", "--key-frame-rate", "0"}, "'0' is not from 1 to"},
    {"KeyFramesBelowNothing",
     {kCup, "FOLDER/out.mov", "--key-frame-rate=-3"},
     "'-3' is not from 1"},
    {"LimitBelowNothing",
     {kCup, "FOLDER/out.mov", "--limit", "-5"},
     "--limit: '-5' is not from 0.001 to 10000000 seconds"},
    {"LimitThatIsNoNumber", {kCup, "FOLDER/out.mov", "--limit", "nan"}, "'nan' is not from 0.001"},
    {"LimitBeyondAllTime", {kCup, "FOLDER/out.mov", "--limit", "1e300"}, "'1e300' is not from"},
    {"SafeStatesBelowNothing", {kCup, "FOLDER/out.mov", "--moov-rate", "-1"}, "'-1' is not from 1"},
    {"NothingToRecord",
     {kCup, "FOLDER/out.mov", "--video", "none", "--audio", "none"},
     "nothing to record"},
};

INSTANTIATE_TEST_SUITE_P(All, RefusedRecording, testing::ValuesIn(kRefusals),
                         [](const auto& kindInfo) { return std::string(kindInfo.param.name); });

// The clip's own index stands in front, so that a shortened file still opens.
std::string cut_off_clip(const TestFolder& folder, std::size_t bytes) {
    const std::string path = folder.File("cut.mp4");
    std::filesystem::copy_file(kCup, path);
    std::filesystem::resize_file(path, bytes);
    return path;
}

TEST(Record, TellsThatAClipWasCutOffAndKeepsWhatThereWas) {
    const TestFolder folder;
    const std::string clip = cut_off_clip(folder, 800000);
    const std::string file = folder.File("out.mov");
    const ProcessResult result = Record(clip, file, {"--video", "MJPEG", "--audio", "pcm"});
    EXPECT_EQ(result.exitCode, 1);
    const std::string frames = std::to_string(CountFrames(file));
    EXPECT_NE(result.err.find("cut.mp4': ends at 3."), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("of 8.1 seconds"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find(frames + " frames"), std::string::npos) << result.err;
    EXPECT_GT(CountFrames(file), 60);
    EXPECT_NEAR(ProbeSeconds(file, "v:0"), ProbeSeconds(file, "a:0"), 0.0375);
}

TEST(Record, AClipWithoutOnePictureIsNoSuccess) {
    const TestFolder folder;
    const std::string clip = cut_off_clip(folder, 9000);
    const ProcessResult result = Record(clip, folder.File("out.mov"), {"--audio", "none"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("cut.mp4'"), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(Record, AStillThatIsCutOffIsNoPictureOfNoSize) {
    const TestFolder folder;
    const std::string still = folder.File("still.png");
    ASSERT_TRUE(MakeClip(still, "-f lavfi -i testsrc2=s=320x240 -frames:v 1"));
    std::filesystem::resize_file(still, 20);
    const ProcessResult result = Record(still, folder.File("out.mov"), {});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("still.png': not one of its pictures can be decoded; is it whole?"),
              std::string::npos)
        << result.err;
}

TEST(Record, ALimitWithinWhatIsLeftOfAClipIsReached) {
    const TestFolder folder;
    const std::string clip = cut_off_clip(folder, 800000);
    EXPECT_EQ(Record(clip, folder.File("out.mov"), {"--video", "MJPEG", "--limit", "1"}).exitCode,
              0);
}

// A limit of the file's size stands for a full disk.
TEST(Record, AFileThatMayNotGrowSaysWhatWasKept) {
    const TestFolder folder;
    const std::string file = folder.File("out.mov");
    const ProcessResult result = tests::Run({"prlimit", "--fsize=1000000", kTool, "record", kCup,
                                             file, "--video", "MJPEG", "--audio", "pcm"});
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_NE(result.err.find("out.mov': File too large; recording stopped"), std::string::npos)
        << result.err;
    const int frames = CountFrames(file);
    EXPECT_GT(frames, 0);
    EXPECT_NE(result.err.find("in '" + file + "' " + std::to_string(frames) + " frames"),
              std::string::npos)
        << result.err;
    // One number, and no other beside it.
    EXPECT_EQ(result.err.find("handed over"), std::string::npos);
    EXPECT_EQ(result.err.find("0.0 seconds"), std::string::npos) << result.err;
}

struct ShortOfRoom {
    const char* name;
    std::vector<std::string> options;
    int missingBytes;
};

void PrintTo(const ShortOfRoom& row, std::ostream* out) {
    *out << row.name;
}

// Sound waits in memory for a while, and so its end is written when all of it has been taken.
// Pictures of this size do not wait: all of them may stand in the file, and sound alone be missing.
const ShortOfRoom kShortOfRoom[] = {
    {"Pcm", {"--video", "none", "--audio", "pcm"}, 5000},
    {"Aac", {"--video", "none", "--audio", "aac"}, 2000},
    {"PcmBesidePictures", {"--video", "MJPEG", "--audio", "pcm"}, 1000},
};

class RecordedToTheLimit : public testing::TestWithParam<ShortOfRoom> {};

TEST_P(RecordedToTheLimit, SoundThatIsMissingAtTheEndIsTold) {
    const ShortOfRoom& row = GetParam();
    const TestFolder folder;
    const std::string input = folder.File("noise.mov");
    ASSERT_TRUE(MakeClip(input,
                         "-f lavfi -i testsrc2=s=960x540:r=25:d=1,noise=alls=60 "
                         "-f lavfi -i anoisesrc=r=48000:d=1 "
                         "-ac 2 -c:v mjpeg -q:v 2 -c:a pcm_s16le"));
    const std::string file = folder.File("out.mov");
    ASSERT_EQ(Record(input, file, row.options).exitCode, 0);
    const std::uintmax_t room = std::filesystem::file_size(file) - row.missingBytes;
    std::vector<std::string> words = {
        "prlimit", "--fsize=" + std::to_string(room), kTool, "record", input, file};
    words.insert(words.end(), row.options.begin(), row.options.end());
    const ProcessResult result = tests::Run(words);
    EXPECT_EQ(result.exitCode, 1) << result.out;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("out.mov': File too large; recording stopped"), std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("were kept"), std::string::npos) << result.err;
}

INSTANTIATE_TEST_SUITE_P(All, RecordedToTheLimit, testing::ValuesIn(kShortOfRoom),
                         [](const auto& rowInfo) { return std::string(rowInfo.param.name); });

TEST(Record, RefusesToWriteOverItsInput) {
    const TestFolder folder;
    const std::string copy = folder.File("clip.mp4");
    std::filesystem::copy_file(kCup, copy);
    std::filesystem::create_symlink(copy, folder.File("link.mp4"));
    const std::string list = folder.File("list.ffconcat");
    std::ofstream(list) << "ffconcat version 1.0\nfile '" << kCup << "'\nfile clip.mp4\n";
    const ProcessResult results[] = {
        Record(copy, copy, {}),
        Record("file:" + copy, copy, {}),
        Record("concat:" + kCup + "|" + copy, copy, {}),
        Record(list, copy, {}),
        Record(kCup, copy, {"--audio-input", "file:" + copy}),
        Record(kCup, copy, {"--audio-input", copy}),
        Record(kCup, folder.File("link.mp4"), {"--audio-input", copy}),
    };
    for (const ProcessResult& result : results) {
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.err.find("is the input too"), std::string::npos) << result.err;
        EXPECT_EQ(std::filesystem::file_size(copy), std::filesystem::file_size(kCup));
    }
}

}  // namespace
