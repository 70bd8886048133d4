// The output add-ons as a host uses them: found in a folder, fed through the filter manager, their
// files read by programs that are not ours.

#include <fstream>

#include "tarn/movies/tnFormatsIterator.h"
#include "tarn/movies/tnXIMovieFile.h"

#include "tests/support/addonHost.h"

using namespace addonTest;
using tests::CountFrames;
using tests::GstreamerReads;
using tests::MediaInfo;
using tests::ProbeStream;

struct tnAppFunctions {};

namespace {

constexpr double kFrame = 1001.0 / 30000;

class Addons : public AddonTest {};

TEST_F(Addons, AreSixFormatsWithNamesAndIds) {
    const struct {
        const char* name;
        unsigned int id;
        bool streams;
    } formats[] = {{"QuickTime", 'mov ', false},        {"MPEG-4", 'mp4 ', false},
                   {"Shared QuickTime", 'smov', false}, {"Shared MPEG-4", 'smp4', false},
                   {"MPEG-TS", 'ts  ', true},           {"Replay", 'rply', false}};
    for (const auto& format : formats) {
        unsigned int id = 0;
        EXPECT_EQ(tnFiles::GetFormatID(format.name, &id), 0) << format.name;
        EXPECT_EQ(id, format.id) << format.name;
        tnMovie* movie = nullptr;
        const int streaming =
            tnFiles::CreateMovieWithName(&movie, format.name, TN_OUTPUT_STREAMING);
        EXPECT_EQ(streaming == 0, format.streams) << format.name;
        if (movie) movie->Release();
    }
}

TEST_F(Addons, SayWhichOutputsTheyServe) {
    zRecord output;
    tnOutputAccessor accessor(output);
    accessor.SetOutputType(TN_OUTPUT_DEFAULT);
    EXPECT_FALSE(tnFiles::IsOutputSupported("QuickTime", output));  // it says no place
    accessor.SetURL("/tmp/a.mov");
    EXPECT_TRUE(tnFiles::IsOutputSupported("QuickTime", output));
    accessor.SetOutputType(TN_OUTPUT_STREAMING);
    EXPECT_FALSE(tnFiles::IsOutputSupported("QuickTime", output));
    EXPECT_TRUE(tnFiles::IsOutputSupported("MPEG-TS", output));
}

TEST_F(Addons, ReadNothing) {
    zRecord options;
    tnAppFunctions functions;
    tnMovie* movie = nullptr;
    EXPECT_EQ(tnFiles::LoadFile("/tmp/a.mov", &movie, options, functions), -1254);
}

TEST_F(Addons, MovieDescribesItself) {
    const Camera camera(1);
    Show show("Shared MPEG-4", {camera.H264(), camera.Aac()});
    EXPECT_EQ(show.Movie().TrackCount(), 2u);
    EXPECT_STREQ(show.Movie().FormatName(), "Shared MPEG-4");
    zRecord record;
    EXPECT_EQ(show.Movie().ArchiveTracksToRecord(record), 0);
    ASSERT_EQ(record.ChildCount(), 2u);
    EXPECT_EQ(record.Child(0)->AsString('mcon', ""), "x264");
    for (const zRecord* track : record.Children()) EXPECT_EQ(track->AsString('xTag', ""), "track");
    tnMediaRecord format;
    EXPECT_EQ(show.Movie().GetTrackFormat(0, &format), 0);
    EXPECT_FALSE(format.ExistsID('xTag')) << "no name is made up";
    EXPECT_EQ(show.Movie().GetTrackFormat(2, &format), -1010);
    EXPECT_EQ(show.Movie().GetTrackFormat(0, nullptr), -22);
    zRecord setting;
    EXPECT_EQ(show.Movie().GetMovieSetting("any", setting), -28);
    EXPECT_EQ(show.Movie().SetMovieSetting("any", setting), -28);
}

struct Written {
    const char* format;
    const char* file;
    const char* picture;
    const char* sound;
    const char* codec;
    const char* soundCodec;
    long long ticks;
};

const Written kWritten[] = {
    {"QuickTime", "prores.mov", "ProRes", "PCM", "prores", "pcm_s16le", 1001},
    {"QuickTime", "mjpeg.mov", "MJPEG", "MPEG-4 Audio", "mjpeg", "aac", 1001},
    {"QuickTime", "mpeg2.mov", "Mpeg2", "PCM", "mpeg2video", "pcm_s16le", 1001},
    {"MPEG-4", "x264.mp4", "x264", "MPEG-4 Audio", "h264", "aac", 1001},
    {"Shared QuickTime", "x264.mov", "x264", "MPEG-4 Audio", "h264", "aac", 1001},
    {"Shared QuickTime", "pcm.mov", "x264", "PCM", "h264", "pcm_s16le", 1000},
    {"Shared QuickTime", "prores_shared.mov", "ProRes", "PCM", "prores", "pcm_s16le", 1000},
    {"Shared QuickTime", "mjpeg_shared.mov", "MJPEG", "MPEG-4 Audio", "mjpeg", "aac", 1001},
    {"Shared MPEG-4", "x264_shared.mp4", "x264", "MPEG-4 Audio", "h264", "aac", 1001},
    {"MPEG-TS", "x264.ts", "x264", "MPEG-4 Audio", "h264", "aac", 1001},
};

class EachFormat : public AddonTest, public testing::WithParamInterface<Written> {};

TEST_P(EachFormat, HoldsEveryFrameAndIsReadByOthers) {
    const Written& what = GetParam();
    const std::string path = fFolder.File(what.file);
    Camera camera(1, what.ticks);
    tnMediaRecord picture = camera.Picture(what.picture);
    picture.SetInt32("encoder_threads", 1);
    picture.SetInt32('mtbr', 2000);
    Show show(what.format, {picture, camera.Sound(what.sound)});
    ASSERT_EQ(show.Add(path), 0);
    camera.Write(0, 75);
    ASSERT_EQ(show.Remove(), 0);

    EXPECT_EQ(ProbeStream(path, "v:0", "codec_name"), what.codec);
    EXPECT_EQ(ProbeStream(path, "a:0", "codec_name"), what.soundCodec);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, 0);
    const std::vector<Packet> pictures = PacketsOf(path, "v:0");
    const std::vector<Packet> sound = PacketsOf(path, "a:0");
    ASSERT_FALSE(pictures.empty());
    ASSERT_FALSE(sound.empty());
    const double step = static_cast<double>(what.ticks) / 30000;
    ExpectEveryFrame(path, pictures.front().shown, step, 60);
    EXPECT_NEAR(pictures.front().shown, sound.front().shown, 2 * step);
    // The demuxer of transport streams is not among the plug-ins that the tests ask for.
    const bool asksGstreamer = path.find(".ts") == std::string::npos;
    EXPECT_TRUE(!asksGstreamer || GstreamerReads(path));
    EXPECT_FALSE(MediaInfo(path, "Video", "Format").empty());
    ExpectClean(path);
}

INSTANTIATE_TEST_SUITE_P(Kinds, EachFormat, testing::ValuesIn(kWritten), [](const auto& test) {
    std::string name = test.param.file;
    for (char& letter : name) {
        if (letter == '.') letter = '_';
    }
    return name;
});

TEST_F(Addons, PicturesAloneBeginAtTheFirstKeyFrame) {
    Camera camera(1);
    Show show("Shared MPEG-4", {camera.H264()});
    ASSERT_EQ(show.Add(fFolder.File("a.mp4")), 0);
    camera.Write(0, 60);
    show.End();
    ExpectEveryFrame(fFolder.File("a.mp4"), 0, kFrame, 40);
}

TEST_F(Addons, SoundAloneIsAMovieToo) {
    Camera camera(1);
    Show show("Shared MPEG-4", {camera.Aac()});
    ASSERT_EQ(show.Add(fFolder.File("a.mp4")), 0);
    camera.Write(0, 60);
    show.End();
    EXPECT_GT(PacketsOf(fFolder.File("a.mp4"), "a:0").size(), 80u);
}

TEST_F(Addons, DisabledTracksAndOutputsAreLeftOut) {
    Camera camera(1);
    tnMediaRecord off = camera.Aac();
    off.SetBool('mena', false);
    Show show("Shared MPEG-4", {camera.H264(), off});
    EXPECT_EQ(show.Movie().TrackCount(), 1u);
    zRecord outputs;
    auto* output = new zRecord();
    tnOutputAccessor accessor(*output);
    accessor.SetOutputType(TN_OUTPUT_DEFAULT);
    accessor.SetURL(fFolder.File("a.mp4").c_str());
    accessor.SetOutputEnabled(false);
    outputs.AddChild(output, -1);
    zRecord result;
    EXPECT_EQ(show.Movie().BeginWritingFromDestination(outputs, nullptr, result), 0);
    EXPECT_FALSE(show.Movie().IsOutputActive(TN_OUTPUT_DEFAULT));
    camera.Write(0, 20);
    show.End();
    EXPECT_FALSE(std::ifstream(fFolder.File("a.mp4")).good());
}

TEST_F(Addons, SwitchedOffCompletesTheFileAndSwitchedOnBeginsAnother) {
    Camera camera(1);
    Show show("Shared QuickTime", {camera.H264(), camera.Aac()});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, 60);
    ASSERT_EQ(show.Enable(false), 0);
    EXPECT_FALSE(show.Movie().IsOutputActive(TN_OUTPUT_DEFAULT));
    const int before = CountFrames(fFolder.File("a.mov"));
    EXPECT_GT(before, 40);
    camera.Write(60, 90);
    ASSERT_EQ(show.Enable(true), 0);
    EXPECT_TRUE(show.Movie().IsOutputActive(TN_OUTPUT_DEFAULT));
    camera.Write(90, 150);
    show.End();
    EXPECT_EQ(CountFrames(fFolder.File("a.mov")), before);
    EXPECT_GT(CountFrames(fFolder.File("a 2.mov")), 40);
    ExpectClean(fFolder.File("a 2.mov"));
}

TEST_F(Addons, CountsUpToAFreeNameWhereTheOutputSaysSo) {
    const Camera camera(1);
    std::ofstream(fFolder.File("a.mov")) << "somebody else's";
    Show show("Shared QuickTime", {camera.H264()});
    zRecord output;
    tnOutputAccessor accessor(output);
    accessor.SetOutputType(TN_OUTPUT_DEFAULT);
    accessor.SetURL(("file://" + fFolder.File("a.mov")).c_str());
    accessor.SetOutputEnabled(true);
    accessor.SetAutoIncrementFileName(true);
    zRecord result;
    ASSERT_EQ(show.Movie().UpdateOutput(accessor, nullptr, result, TN_OUTPUT_UPDATE_ADD), 0);
    EXPECT_EQ(result.AsString("path", ""), fFolder.File("a 2.mov"));
}

TEST_F(Addons, AnswerWithCodesWhatCannotBe) {
    const Camera camera(1);
    {
        Show show("Shared QuickTime", {camera.Picture("no such codec")});
        EXPECT_EQ(show.Add(fFolder.File("a.mov")), -1041);
        EXPECT_FALSE(show.Movie().IsOutputActive(TN_OUTPUT_DEFAULT));
    }
    for (const char* format : {"Shared QuickTime", "QuickTime", "MPEG-TS"}) {
        Show show(format, {camera.H264()});
        EXPECT_EQ(show.Add(fFolder.File("no folder/a.mov")), -1006) << format;
        EXPECT_EQ(show.Add(""), -1006) << format;
        EXPECT_EQ(show.Remove(), -1023) << format;
        EXPECT_EQ(show.Add(fFolder.File("a.mov")), 0) << format;
        EXPECT_EQ(show.Add(fFolder.File("b.mov")), -1011) << format;
    }
    Show empty("QuickTime", {});
    EXPECT_EQ(empty.Add(fFolder.File("c.mov")), -1009);
    tnMovie* movie = nullptr;
    ASSERT_EQ(tnFiles::CreateMovieWithName(&movie, "QuickTime", TN_OUTPUT_DEFAULT), 0);
    EXPECT_EQ(movie->CreateStreams(TracksOf({camera.H264(), camera.H264()}), 0, 0), -1009);
    movie->Release();
}

TEST_F(Addons, WhatACodecMakesAndTheContainerLacksEndsThatOutput) {
    Camera camera(1);
    Show show("MPEG-TS", {camera.Picture("MJPEG"), camera.Aac()});
    ASSERT_EQ(show.Add(fFolder.File("a.ts")), 0);
    camera.Write(0, 30);
    show.Remove();
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 2);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, -1032);
    EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fStatus, -1032);
}

}  // namespace
