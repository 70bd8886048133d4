#include "tarn/writers/tnWriteORB2.h"

#include <atomic>
#include <climits>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "orb/testSupport.h"
#include "tarn/writers/fileTimescale.h"

#include "tests/support/WriterFixture.h"
#include "tests/support/writerWaits.h"

using namespace writerFixture;
using writerWaits::Waits;

namespace {

TEST_F(Writer, ThatWasNeverOpenedClosesAndRefusesToWrite) {
    EXPECT_EQ(fWriter->CloseStreams(0), 0);
    fWriter->Close();
    EXPECT_TRUE(fWriter->IsAllMediaReady());
    Frame frame(0, 1);
    Packet packet;
    EXPECT_EQ(fWriter->CompleteInitialization(), -1006);
    EXPECT_EQ(fWriter->WriteVideo(frame), -1006);
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, nullptr, 0), -1006);
}

TEST_F(Writer, PutsAnEmptyFileAtItsPlaceAtOnceAndLeavesAnExistingOneAlone) {
    const std::string path = fFolder.File("new.mov");
    EXPECT_EQ(fWriter->Open(path.c_str(), 'mov ', 0, 0), 0);
    EXPECT_TRUE(std::ifstream(path).good());
    const std::string old = fFolder.File("old.mov");
    std::ofstream(old) << "precious";
    EXPECT_EQ(fWriter->Open(old.c_str(), 'mov ', 0, 0), 0);
    std::string content;
    std::ifstream(old) >> content;
    EXPECT_EQ(content, "precious");
}

TEST_F(Writer, RefusesAPlaceOrAContainerThatCannotBeWritten) {
    EXPECT_EQ(fWriter->Open(fFolder.File("none/x.mov").c_str(), 'mov ', 0, 0), -1006);
    EXPECT_EQ(fWriter->Open(fFolder.File("x.mov").c_str(), 'avi ', 0, 0), -1006);
    EXPECT_FALSE(std::ifstream(fFolder.File("x.mov")).good()) << "no file was made";
    EXPECT_EQ(fWriter->Open(fFolder.Path().c_str(), 'mov ', 0, 0), -1006);
}

TEST_F(Writer, TakesAPathWithoutAnExtension) {
    EXPECT_EQ(fWriter->Open(fFolder.File("movie").c_str(), 'mov ', 0, 0), 0);
}

TEST_F(Writer, AnExtensionThatTheContainerRefusesMakesNoFile) {
    const std::string path = fFolder.File("x." + std::string(40, 'e'));
    EXPECT_EQ(fWriter->Open(path.c_str(), 'mov ', 0, 0), -1006);
    EXPECT_FALSE(std::ifstream(path).good());
}

TEST_F(Writer, AContainerThatIsNotAMovieGoesWithoutTuning) {
    const RegisteredFile other(fFile, {'xtra'});
    open('xtra', 10.0, 5);
    fWriter->SetSourceVideoFormat(raw_video());
    fWriter->SetEncodedVideoFormat(encoded_video("MJPEG", 10000000, 333667));
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    Frame frame(333667, 333667);
    EXPECT_EQ(fWriter->WriteVideo(frame), 0);
    fWriter->Close();
    ASSERT_EQ(fFile.tracks.size(), 2u);
    EXPECT_EQ(fFile.tracks[0].timescale, 10000000);
    EXPECT_EQ(fFile.tracks[0].expectedDuration, 0);
    EXPECT_EQ(fFile.tracks[1].expectedDuration, 0);
    EXPECT_EQ(fFile.options.checkpointSeconds, MovieFileOptions().checkpointSeconds);
    ASSERT_EQ(fFile.samples.size(), 1u);
    EXPECT_EQ(fFile.samples[0].time, 333667);
}

TEST_F(Writer, ThatWasOpenedButNotWrittenToClosesAndOpensAgain) {
    open();
    EXPECT_EQ(fWriter->CloseStreams(0), 0);
    fWriter->Close();
    EXPECT_EQ(fWriter->CompleteInitialization(), -1006) << "its file is gone";
    open();
    EXPECT_EQ(set_up(encoded_video("MJPEG")), 0);
    fWriter->Close();
    EXPECT_TRUE(fFile.finished);
}

class CountingAsset final : public CAssetWriter {
public:
    explicit CountingAsset(int& finished) : fFinished(finished) {}
    Result Finish() override {
        ++fFinished;
        return CAssetWriter::Finish();
    }

private:
    int& fFinished;
};

TEST_F(Writer, FinishesAFileThatWasNotWrittenTo) {
    int finished = 0;
    open();
    tnWriteORB2TestPeer::PutAsset(*fWriter, new CountingAsset(finished));
    fWriter->Close();
    EXPECT_EQ(finished, 1);
    fWriter->Close();
    EXPECT_EQ(finished, 1) << "the file is gone";
}

TEST_F(Writer, HoldsEachFrameUntilTheNextTellsItsLength) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    Frame first(0, 1001);
    EXPECT_EQ(fWriter->WriteVideo(first), 0);
    EXPECT_EQ(first.written, 0);
    // 0     1001   (2002 is missing)   3003   3003   4004
    for (const long long time : {1001, 3003, 3003, 4004}) {
        Frame frame(time, 1001);
        EXPECT_EQ(fWriter->WriteVideo(frame), 0);
        EXPECT_GE(frame.written, 0);
    }
    fWriter->Close();
    std::vector<std::pair<long long, long long>> times;
    for (const FileScript::Sample& sample : fFile.samples)
        times.emplace_back(sample.time, sample.duration);
    EXPECT_EQ(times, (std::vector<std::pair<long long, long long>>{
                         {0, 1001}, {1001, 2002}, {3003, 0}, {3003, 1001}, {4004, 1001}}));
}

//  0     3003   2002 (goes back)   5005
TEST_F(Writer, AFrameThatGoesBackGivesTheOneBeforeANegativeLength) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    std::vector<std::pair<long long, long long>> entered;
    fScript.look = [&](const CVideoSample& sample) {
        entered.emplace_back(sample.GetTime(), sample.GetDuration());
    };
    for (const long long time : {0, 3003, 2002, 5005}) {
        Frame frame(time, 1001);
        EXPECT_EQ(fWriter->WriteVideo(frame), 0);
    }
    fWriter->Close();
    EXPECT_EQ(entered, (std::vector<std::pair<long long, long long>>{
                           {0, 3003}, {3003, -1001}, {2002, 3003}, {5005, 1001}}));
}

TEST_F(Writer, ReportsTheBytesThatTheTrackTook) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    long long reported = 0;
    for (int i = 0; i < 50; ++i) {
        Frame frame(i * 1001, 1001);
        ASSERT_EQ(fWriter->WriteVideo(frame), 0);
        reported += frame.written;
    }
    EXPECT_EQ(reported % 10, 0);
    EXPECT_LE(reported, 490);
    fWriter->Close();
    EXPECT_EQ(fFile.samples.size(), 50u);
}

TEST_F(Writer, AMissingTimeOrLengthCountsAsZero) {
    for (const long long hasTime : {0, 1}) {
        for (const long long hasDuration : {0, 1}) {
            fFile.samples.clear();
            ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
            Frame frame(777, 888);
            frame.fTiming.fHasTime = hasTime;
            frame.fTiming.fHasDuration = hasDuration;
            EXPECT_EQ(fWriter->WriteVideo(frame), 0);
            fWriter->Close();
            ASSERT_EQ(fFile.samples.size(), 1u);
            EXPECT_EQ(fFile.samples[0].time, hasTime * 777) << hasDuration;
            EXPECT_EQ(fFile.samples[0].duration, hasDuration * 888) << hasTime;
        }
    }
}

TEST_F(Writer, PutsFramesOfAClocksTimescaleOnTheFilesTicks) {
    ASSERT_EQ(set_up(encoded_video("MJPEG", 10000000, 333667)), 0);
    EXPECT_EQ(fScript.input->GetTimescale(), 30000);
    EXPECT_EQ(fScript.input->GetFrameDuration(), 1001);
    for (int i = 0; i < 3; ++i) {
        Frame frame(i * 333667LL, 333667);
        ASSERT_EQ(fWriter->WriteVideo(frame), 0);
    }
    fWriter->Close();
    ASSERT_EQ(fFile.samples.size(), 3u);
    EXPECT_EQ(fFile.tracks[0].timescale, 30000);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(fFile.samples[static_cast<std::size_t>(i)].time, i * 1001);
        EXPECT_EQ(fFile.samples[static_cast<std::size_t>(i)].duration, 1001);
    }
}

struct TimescaleCase {
    unsigned int container;
    long long timescale, duration, fileTimescale, fileDuration;
};

TEST_F(Writer, GivesMoviesARoundTimescale) {
    const TimescaleCase cases[] = {
        {'mov ', 60000, 1001, 60000, 1001},
        {'mov ', 60001, 1001, 60000, 1001},
        {'mov ', 90000, 3600, 25000, 1000},
        {'mov ', 90000, 750, 12000, 100},
        {'mov ', 90000, 180000, 1000, 2000},
        {'mp4 ', 10000000, 333667, 10000000, 333667},
        {'mov ', 10000000, 333667, 30000, 1001},
        {'mov ', 25, 1, 25, 1},
        {'mov ', 90000, 0, 90000, 0},
    };
    for (const TimescaleCase& c : cases) {
        ASSERT_EQ(set_up(encoded_video("MJPEG", c.timescale, c.duration), '2vuy', c.container), 0);
        EXPECT_EQ(fScript.input->GetTimescale(), c.fileTimescale) << c.timescale;
        EXPECT_EQ(fScript.input->GetFrameDuration(), c.fileDuration) << c.timescale;
        fWriter->Close();
    }
}

TEST(FileTimescale, RoundsByAddingHalfAndTruncating) {
    EXPECT_EQ(ToFileTimescale(333667, 10000000, 30000), 1001);
    EXPECT_EQ(ToFileTimescale(-1, 90000, 30000), 0);
    EXPECT_EQ(ToFileTimescale(-90000, 90000, 30000), -29999)
        << "the half is added to negative times too";
    EXPECT_EQ(ToFileTimescale(4'000'000'000'000'000'000, 10000000, 30000), 12'000'000'000'000'000);
}

struct FormatCase {
    const char* codec;
    const char* quality;
    unsigned int track;
};

TEST_F(Writer, KnowsItsCodecs) {
    const FormatCase cases[] = {
        {"ProRes", nullptr, 'apch'},         {"ProRes", "prores_422_proxy", 'apco'},
        {"ProRes", "prores_422_lt", 'apcs'}, {"ProRes", "prores_422", 'apcn'},
        {"ProRes", "prores_422_hq", 'apch'}, {"ProRes", "prores_4444", 'ap4h'},
        {"ProRes", "whatever", 'apch'},      {"x264", nullptr, 'h264'},
        {"MJPEG", nullptr, 'jpeg'},          {"Mpeg2", nullptr, 'mp2v'},
    };
    for (const FormatCase& c : cases) {
        tnMediaRecord encoded = encoded_video(c.codec);
        if (c.quality) encoded.SetCString("codec_quality", c.quality);
        ASSERT_EQ(set_up(encoded), 0) << c.codec;
        EXPECT_EQ(number("MediaFilter::OutputFormat"), static_cast<long long>(c.track)) << c.codec;
        fWriter->Close();
    }
    for (const char* name : {"Intel QuickSync H.264", "", "prores", "x264 "}) {
        EXPECT_EQ(set_up(encoded_video(name)), -1041) << name;
    }
    tnMediaRecord nameless = encoded_video("x264");
    nameless.RemoveID('mcon');
    EXPECT_EQ(set_up(nameless), -1041);
}

TEST_F(Writer, ProResIsAlwaysOfLimitedRange) {
    tnMediaRecord encoded = encoded_video("ProRes");
    encoded.fNominalRange.SetInt32('full');
    ASSERT_EQ(set_up(encoded), 0);
    EXPECT_FALSE(fFile.tracks[0].colour.fullRange);
    EXPECT_EQ(fScript.input->GetVideoRange(), 1) << "the encoder is told what the file says";
}

struct QualityCase {
    const char* name;
    int value;
};

TEST_F(Writer, SetsMotionJpegQuality) {
    const QualityCase cases[] = {{"mjpeg_best", 98}, {"mjpeg_high", 88}, {"mjpeg_medium", 75},
                                 {"mjpeg_low", 55},  {"else", 88},       {"", 88}};
    for (const QualityCase& c : cases) {
        tnMediaRecord encoded = encoded_video("MJPEG");
        encoded.SetCString("codec_quality", c.name);
        ASSERT_EQ(set_up(encoded), 0);
        EXPECT_EQ(number("JpegCompressor::Quality"), c.value) << c.name;
        fWriter->Close();
    }
    fScript.refused = {"JpegCompressor::Quality"};
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1041);
}

TEST_F(Writer, SetsX264UpForLiveAndPassesOverRefusals) {
    const int intervals[][2] = {{-1000, 30}, {0, 1},     {-3, 1},   {1, 1},
                                {600, 600},  {601, 600}, {120, 120}};
    for (const auto& [given, expected] : intervals) {
        tnMediaRecord encoded = encoded_video("x264");
        if (given != -1000) encoded.SetInt32("key_frame_rate", given);
        ASSERT_EQ(set_up(encoded), 0);
        EXPECT_EQ(number("H264Compressor::MaxKeyFrameInterval"), expected) << given;
        fWriter->Close();
    }
    EXPECT_EQ(fScript.texts["H264Compressor::Profile"], "high");
    EXPECT_EQ(fScript.texts["H264Compressor::Preset"], "veryfast");
    EXPECT_EQ(number("H264Compressor::Threads"), 4);
    EXPECT_EQ(number("H264Compressor::BitRate"), 2100000);
    EXPECT_EQ(number("H264Compressor::NumBFrames"), 0);
    EXPECT_EQ(number("H264Compressor::BFramePyramid"), 0);

    fScript.order.clear();
    ASSERT_EQ(set_up(encoded_video("x264")), 0);
    EXPECT_EQ(settings(),
              (std::vector<std::string>{
                  "H264Compressor::Profile", "H264Compressor::Preset", "H264Compressor::Threads",
                  "H264Compressor::BitRate", "H264Compressor::NumBFrames",
                  "H264Compressor::BFramePyramid", "H264Compressor::MaxKeyFrameInterval"}));
    fWriter->Close();
    fScript.refused = {"H264Compressor::Profile", "H264Compressor::BitRate"};
    EXPECT_EQ(set_up(encoded_video("x264")), 0);
}

TEST_F(Writer, AnAbsurdBitRateDoesNotOverflow) {
    tnMediaRecord encoded = encoded_video("x264");
    encoded.SetInt32('mtbr', 2000000000);
    ASSERT_EQ(set_up(encoded), 0);
    EXPECT_EQ(number("H264Compressor::BitRate"), 0x7FFFFFFF);
}

TEST_F(Writer, AnAbsurdStrictRateIsTheLargestThatTheComponentTakes) {
    tnMediaRecord encoded = encoded_video("Video Toolbox H.264");
    encoded.SetBool("strict_cbr", true);
    encoded.SetInt32('mtbr', 2147483647);
    fScript.inHardware = true;
    ASSERT_EQ(set_up(encoded), 0);
    EXPECT_EQ(number("VideoToolboxCompressor::MaximumBitrate"), 2147483647);
}

TEST_F(Writer, TimesFromBothEndsOfTheScaleAreWritten) {
    ASSERT_EQ(set_up(encoded_video("x264")), 0);
    for (const long long time : {LLONG_MIN, LLONG_MAX, 0LL}) {
        Frame frame(time, 1);
        EXPECT_EQ(fWriter->WriteVideo(frame), 0);
    }
}

TEST_F(Writer, ATimescaleBeyondAnyClockStaysWithinItsWord) {
    EXPECT_EQ(set_up(encoded_video("x264", LLONG_MAX, 1)), 0);
}

TEST_F(Writer, SetsMpeg2GroupsByTheKeyFrameRate) {
    struct Case {
        int rate, m, n, closed;
    };
    constexpr int kNone = -999;
    const Case cases[] = {{-1000, kNone, 240, 1},
                          {5, 5, 5, 1},
                          {7, 7, 7, 1},
                          {8, kNone, 8, 1},
                          {0, kNone, kNone, kNone}};
    for (const Case& c : cases) {
        fScript.numbers.clear();
        tnMediaRecord encoded = encoded_video("Mpeg2");
        if (c.rate != -1000) encoded.SetInt32("key_frame_rate", c.rate);
        ASSERT_EQ(set_up(encoded), 0);
        EXPECT_EQ(number("MainConceptMpeg2Compressor::Profile"), 1);
        EXPECT_EQ(number("MainConceptMpeg2Compressor::Level"), 4);
        EXPECT_EQ(number("VideoCompressor::BitRate"), 2100000);
        EXPECT_EQ(number("MainConceptMpeg2Compressor::M"), c.m) << c.rate;
        EXPECT_EQ(number("MainConceptMpeg2Compressor::N"), c.n) << c.rate;
        EXPECT_EQ(number("MainConceptMpeg2Compressor::ClosedGopInterval"), c.closed) << c.rate;
        fWriter->Close();
    }
    tnMediaRecord shortGroups = encoded_video("Mpeg2");
    shortGroups.SetInt32("key_frame_rate", 5);
    fScript.order.clear();
    ASSERT_EQ(set_up(shortGroups), 0);
    const std::vector<std::string> order = settings();
    EXPECT_EQ(order, (std::vector<std::string>{
                         "MainConceptMpeg2Compressor::Profile", "MainConceptMpeg2Compressor::Level",
                         "VideoCompressor::BitRate", "MainConceptMpeg2Compressor::M",
                         "MainConceptMpeg2Compressor::N",
                         "MainConceptMpeg2Compressor::ClosedGopInterval"}));
    fWriter->Close();
    for (const std::string& name : order) {
        fScript.refused = {name};
        EXPECT_EQ(set_up(shortGroups), -1041) << name;
    }
}

TEST_F(Writer, SetsThePlatformsOwnH264Up) {
    fScript.inHardware = true;
    const std::pair<int, int> profiles[] = {
        {'base', 66}, {'high', 100}, {'main', 77}, {'else', 77}, {0, 77}};
    for (const auto& [profile, number66] : profiles) {
        tnMediaRecord encoded = encoded_video("Video Toolbox H.264");
        if (profile)
            encoded.SetUInt32("profile", 0),
                encoded.SetUInt32('mpro', static_cast<unsigned int>(profile));
        ASSERT_EQ(set_up(encoded), 0);
        EXPECT_EQ(number("VideoToolboxCompressor::Profile"), number66);
        fWriter->Close();
    }
    EXPECT_EQ(number("VideoCompressor::BitRate"), 2100000);
    EXPECT_EQ(number("VideoToolboxCompressor::KeyFrameInterval"), 240);
    EXPECT_EQ(number("VideoToolboxCompressor::MaximumBitrate"), -999)
        << "a strict rate alone has one";

    fScript.numbers.clear();
    tnMediaRecord strict = encoded_video("Video Toolbox H.264");
    strict.SetBool("strict_cbr", true);
    strict.SetInt32("key_frame_rate", 0);
    ASSERT_EQ(set_up(strict), 0);
    EXPECT_EQ(number("VideoToolboxCompressor::MaximumBitrate"), 1000000);
    EXPECT_EQ(number("VideoToolboxCompressor::KeyFrameInterval"), -999);
    fWriter->Close();

    fScript.order.clear();
    strict.SetInt32("key_frame_rate", 12);
    ASSERT_EQ(set_up(strict), 0);
    EXPECT_EQ(number("VideoToolboxCompressor::KeyFrameInterval"), 12);
    EXPECT_EQ(settings(), (std::vector<std::string>{"VideoToolboxCompressor::Profile",
                                                    "VideoCompressor::BitRate",
                                                    "VideoToolboxCompressor::KeyFrameInterval",
                                                    "VideoToolboxCompressor::MaximumBitrate"}));
    fWriter->Close();

    fScript.refused = {"VideoToolboxCompressor::KeyFrameInterval",
                       "VideoToolboxCompressor::MaximumBitrate"};
    EXPECT_EQ(set_up(strict), 0);
    fWriter->Close();
    for (const char* name : {"VideoToolboxCompressor::Profile", "VideoCompressor::BitRate"}) {
        fScript.refused = {name};
        EXPECT_EQ(set_up(strict), -1041) << name;
    }
}

TEST_F(Writer, HardwareThatEndsUpInSoftwareFails) {
    EXPECT_EQ(set_up(encoded_video("Video Toolbox H.264")), -1035);
}

TEST_F(Writer, PutsAConverterInFrontOnlyWhereItIsNeeded) {
    struct Case {
        int source;
        std::vector<unsigned int> offered;
        bool converts;
        unsigned int enters;
    };
    const Case cases[] = {
        {'2vuy', {'UYVY'}, false, 'UYVY'},         {'2vuy', {'NV12'}, true, 'NV12'},
        {'2vuy', {'I420', 'YUYV'}, true, 'YUYV'},  {'I420', {'UYVY', 'NV12'}, true, 'NV12'},
        {'rgba', {'I420', 'UYVY'}, true, 'UYVY'},  {'rgba', {'BGRA', 'UYVY'}, true, 'UYVY'},
        {'rgba', {'BGRA', 'GREY'}, false, 'BGRA'}, {'rgba', {'GREY', 'BGRA'}, true, 'GREY'},
        {'YM16', {'YV16', 'I422'}, false, 'I422'},
    };
    for (const Case& c : cases) {
        fScript.inputFormats = c.offered;
        const int before = fConverter.Made();
        ASSERT_EQ(set_up(encoded_video("MJPEG"), c.source), 0);
        EXPECT_EQ(fConverter.Made() - before, c.converts ? 1 : 0);
        EXPECT_EQ(fScript.input->GetFormat(), c.enters);
        fWriter->Close();
    }
}

TEST_F(Writer, HasACodeForEveryStepOfTheVideoSetUp) {
    fScript.noInputFormats = true;
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1041);
    fScript.noInputFormats = false;
    fScript.inputFormats.clear();
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1041);
    fScript.inputFormats = {'UYVY'};

    tnMediaRecord negative = encoded_video("MJPEG");
    negative.fHeight.SetInt32(-1);
    EXPECT_EQ(set_up(negative), -1041);

    fScript.failInput = true;
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1042);
    fScript.failInput = false;
    fScript.failBegin = true;
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1043);
    fScript.failBegin = false;

    fScript.inputFormats = {'NV12'};
    fConverterScript.failInput = true;
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1038);
    fConverterScript.failInput = false;
    fConverterScript.refused = {"MediaFilter::OutputFormat"};
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1039);
    fConverterScript.refused.clear();
    fConverterScript.failBegin = true;
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1040);
    fConverterScript.failBegin = false;
    {
        Script none;
        Registered<CVideoConverter, Converter> inFront('vfc ', none);
        inFront.GiveNull();
        EXPECT_EQ(set_up(encoded_video("MJPEG")), -1040);
    }
    fScript.inputFormats = {'UYVY'};
    {
        Waits waits;
        waits.fRefuseTracks = true;
        EXPECT_EQ(set_up(encoded_video("MJPEG")), -1042);
    }
    open('mov ', 0, -1);
    EXPECT_EQ(fWriter->CompleteInitialization(), -1041) << "the container takes no such rate";
    open();

    fFile.failBegin = true;
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1006);
    fFile.failBegin = false;
    EXPECT_EQ(fWriter->CompleteInitialization(), 0) << "the whole set-up is tried again";
    EXPECT_EQ(fWriter->CompleteInitialization(), 0) << "and is done once";
}

TEST_F(Writer, AFailedSetUpComesBackFromTheWriteAndIsTriedAgain) {
    open();
    fWriter->SetSourceVideoFormat(raw_video());
    fWriter->SetEncodedVideoFormat(encoded_video("MJPEG"));
    fScript.failBegin = true;
    Frame frame(0, 1);
    EXPECT_EQ(fWriter->WriteVideo(frame), -1043);
    fScript.failBegin = false;
    EXPECT_EQ(fWriter->WriteVideo(frame), 0);
}

TEST_F(Writer, AFileWithoutOneKindOfTrackRefusesThatKind) {
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    fWriter->SetSourceVideoFormat(raw_video());
    tnMediaRecord off = encoded_video("MJPEG");
    off.SetBool('mena', false);
    fWriter->SetEncodedVideoFormat(off);
    Frame frame(0, 1);
    EXPECT_EQ(fWriter->WriteVideo(frame), -1006);
    Packet packet;
    const unsigned char block[8] = {};
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 8), 0);
    fWriter->Close();

    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    fWriter->Close();
    fWriter->SetEncodedAudioFormat(tnMediaRecord());
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 8), -1006);
}

TEST_F(Writer, AConverterThatFailsOrGivesNothingLosesTheFrameAndNothingElse) {
    fScript.inputFormats = {'NV12'};
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    Frame frame(0, 1001);
    fConverterScript.failSample = true;
    EXPECT_EQ(fWriter->WriteVideo(frame), -1050);
    fConverterScript.failSample = false;
    fConverterScript.giveNothing = true;
    EXPECT_EQ(fWriter->WriteVideo(frame), -1050);
    fConverterScript.giveNothing = false;
    EXPECT_EQ(fWriter->WriteVideo(frame), 0);
    fWriter->Close();
    EXPECT_EQ(fFile.samples.size(), 1u);
}

//  0 is refused by the encoder, late; 1001 finds that out and is lost; 2002 is held meanwhile
TEST_F(Writer, AnEncoderThatFailsOnceLosesTheHeldFrameAndKeepsTheNew) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    TraceCatcher trace;
    Frame refused(0, 1001);
    Frame lost(1001, 1001);
    Frame held(2002, 1001);
    Frame last(3003, 1001);
    ASSERT_EQ(fWriter->WriteVideo(refused), 0);
    fScript.failSample = true;
    ASSERT_EQ(fWriter->WriteVideo(lost), 0);
    while (!trace.HasLineWith({"encoder failed"})) std::this_thread::yield();
    fScript.failSample = false;
    EXPECT_EQ(fWriter->WriteVideo(held), -1052);
    EXPECT_EQ(held.written, -1) << "it is not told of bytes";
    EXPECT_EQ(fWriter->WriteVideo(last), 0);
    fWriter->Close();
    ASSERT_EQ(fFile.samples.size(), 2u);
    EXPECT_EQ(fFile.samples[0].time, 2002);
    EXPECT_EQ(fFile.samples[0].duration, 1001);
    EXPECT_EQ(fFile.samples[1].time, 3003);
}

TEST_F(Writer, ATrackThatTakesNoMoreSaysSoAndTheFileCloses) {
    fFile.failAtSample = 3;
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    int code = 0;
    for (int i = 0; i < 2000 && code == 0; ++i) {
        Frame frame(i * 1001, 1001);
        code = fWriter->WriteVideo(frame);
    }
    EXPECT_EQ(code, -1052);
    fWriter->Close();
    EXPECT_EQ(fFile.samples.size(), 3u);
    EXPECT_TRUE(fFile.finished);
}

TEST_F(Writer, TheShapeIsTheEncodedRecordsAlone) {
    tnMediaRecord source = raw_video();
    source.fWidth.SetInt32(99);
    source.fHeight.SetInt32(33);
    source.fColorSpace.SetInt32('r601');
    source.SetInt64('tmsc', 25000);
    source.SetUInt64('dura', 1000);
    source.SetFloat('mfps', 25.0f);
    tnMediaRecord encoded = encoded_video("MJPEG");
    encoded.fColorSpace.SetInt32('r709');
    fScript.inputFormats = {'NV12'};
    open();
    fWriter->SetSourceVideoFormat(source);
    fWriter->SetEncodedVideoFormat(encoded);
    ASSERT_EQ(fWriter->CompleteInitialization(), 0);
    for (const Script* side : {&fScript, &fConverterScript}) {
        EXPECT_EQ(side->input->GetWidth(), kWidth);
        EXPECT_EQ(side->input->GetHeight(), kHeight);
        EXPECT_EQ(side->input->GetTimescale(), 30000);
        EXPECT_EQ(side->input->GetFrameDuration(), 1001);
        EXPECT_EQ(side->input->GetColorSpace(), ColorSpace::BT709);
    }
    EXPECT_EQ(fConverterScript.input->GetFormat(), 'UYVY');
    EXPECT_EQ(fFile.tracks.at(0).width, kWidth);
}

TEST_F(Writer, AnnouncesItsLengthAndTheRateOfItsSafeStates) {
    open('mov ', 10.0, 5);
    fWriter->SetSourceVideoFormat(raw_video());
    fWriter->SetEncodedVideoFormat(encoded_video("MJPEG"));
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    ASSERT_EQ(fWriter->CompleteInitialization(), 0);
    EXPECT_EQ(fFile.options.checkpointSeconds, 5);
    EXPECT_TRUE(fFile.options.fastStart);
    EXPECT_TRUE(fFile.options.trimAudio);
    ASSERT_EQ(fFile.tracks.size(), 2u);
    EXPECT_EQ(fFile.tracks[0].expectedDuration, 300000);
    EXPECT_EQ(fFile.tracks[1].expectedDuration, 480000);
}

TEST_F(Writer, ExpectsThirteenHoursWhereNobodyTells) {
    for (const double seconds : {0.0, -0.0, -1.0, -1e300}) {
        fFile.tracks.clear();
        open('mov ', seconds);
        fWriter->SetSourceVideoFormat(raw_video());
        fWriter->SetEncodedVideoFormat(encoded_video("MJPEG"));
        ASSERT_EQ(fWriter->CompleteInitialization(), 0);
        EXPECT_EQ(fFile.tracks.at(0).expectedDuration, 46800LL * 30000) << seconds;
        fWriter->Close();
    }
}

TEST_F(Writer, AnAbsurdLengthIsTheLongestThatATrackHas) {
    for (const double seconds : {1e300, std::numeric_limits<double>::infinity()}) {
        open('mov ', seconds);
        fWriter->SetSourceVideoFormat(raw_video());
        fWriter->SetEncodedVideoFormat(encoded_video("x264"));
        ASSERT_EQ(fWriter->CompleteInitialization(), 0);
        EXPECT_EQ(fFile.tracks.at(0).expectedDuration, LLONG_MAX);
        fWriter->Close();
    }
}

}  // namespace
