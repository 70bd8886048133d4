// The earlier movie file writer, among doubles.

#include "tarn/writers/tnWriteORB.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/TestFolder.h"
#include "tests/support/earlierWriter.h"
#include "tests/support/orbDoubles.h"
#include "tests/support/writerWaits.h"

using namespace earlierWriter;
using namespace orbDoubles;
using writerWaits::Waits;

namespace {

constexpr int kFullTrack = 3;  // one frame inside the encoder, two in front of it
const std::vector<unsigned int> kThreeSleeps = {10'000, 10'000, 10'000};

class EarlierWriter : public testing::Test {
protected:
    EarlierWriter()
        : fMjpeg('mjpg', fScript),
          fToolbox('vtbx', fScript),
          fConverter('vfc ', fConverterScript),
          fFileInFront(fFile) {
        fScript.inputFormats = {'UYVY', 'YUYV', 'I420', 'I422', 'BGRA', 'NV12'};
        fScript.outputFormats = {'jpeg', 'apco', 'apcs', 'apcn', 'apch', 'ap4h'};
        fConverterScript.inputFormats = fScript.inputFormats;
        fConverterScript.outputFormats = {'I420', 'I422', 'NV12'};
    }
    ~EarlierWriter() override {
        fScript.stuck = false;
        fFile.stuck = false;
        fWriter.reset();
        EXPECT_EQ(gFrames, 0) << "the writer keeps no frame";
    }

    void open(long long seconds = -1, int moovRate = 0) {
        ASSERT_TRUE(fWriter->Open(fFolder.File("movie.mov").c_str(), moovRate, seconds));
    }
    int set_up(const tnMediaRecord& source, const tnMediaRecord& encoded) {
        open();
        fWriter->SetSourceVideoFormat(source);
        fWriter->SetEncodedVideoFormat(encoded);
        return fWriter->CompleteInitialization();
    }
    int set_up_audio(const tnMediaRecord& encoded) {
        open();
        fWriter->SetSourceAudioFormat(source_audio());
        fWriter->SetEncodedAudioFormat(encoded);
        return fWriter->CompleteInitialization();
    }
    int write(int size = 400, int track = 0) {
        const std::vector<unsigned char> block(static_cast<std::size_t>(size), 0);
        return fWriter->WriteAudioPacket(nullptr, 0, 0, block.data(), size, track);
    }
    /// Lets writes that find no room sleep until there is some: the writer gives a frame up after
    /// 30 ms, for which a busy machine may well keep the encoder's thread waiting.
    static void await_room(Waits& waits) {
        waits.fOnSleep = [&waits] {
            while (!waits.IsReady()) std::this_thread::yield();
        };
    }
    /// Writes frames until the track is full for good, with the encoder stuck on the first.
    void fill_pictures(const Waits& waits) {
        fScript.stuck = true;
        for (int i = 0; i < kFullTrack; ++i) {
            const FramePtr frame(new Frame);
            ASSERT_EQ(fWriter->WriteVideo(*frame), 0);
            while (!fScript.entered) std::this_thread::yield();
        }
        ASSERT_FALSE(waits.IsReady());
    }
    /// The same with blocks of sound, and the file stuck on the first; how many went in.
    int fill_sound(const Waits& waits) {
        int blocks = 0;
        do {
            EXPECT_EQ(write(), 0);
            ++blocks;
            while (!fFile.entered) std::this_thread::yield();
        } while (waits.IsReady());
        return blocks;
    }
    void make_room(const Waits& waits) {
        fScript.stuck = false;
        fFile.stuck = false;
        while (!waits.IsReady()) std::this_thread::yield();
    }
    long long quality() const {
        const auto found = fScript.numbers.find("JpegCompressor::Quality");
        return found != fScript.numbers.end() ? found->second : -999;
    }

    tests::TestFolder fFolder;
    Script fScript;
    Script fConverterScript;
    FileScript fFile;
    Registered<CVideoCompressor, Compressor> fMjpeg;
    Registered<CVideoCompressor, Compressor> fToolbox;
    Registered<CVideoConverter, Converter> fConverter;
    RegisteredFile fFileInFront;
    WriterPtr fWriter{new tnWriteORB};
};

TEST_F(EarlierWriter, OpensAPlaceAndMakesItsFile) {
    EXPECT_FALSE(fWriter->Open("", 0, -1));
    EXPECT_FALSE(fWriter->Open(fFolder.File("none/movie.mov").c_str(), 0, -1));
    EXPECT_FALSE(std::filesystem::exists(fFolder.File("none")));
    const std::string path = fFolder.File("a movie without an extension");
    EXPECT_TRUE(fWriter->Open(path.c_str(), 0, -1));
    EXPECT_TRUE(std::filesystem::is_empty(path));
    std::ofstream(path) << "older";
    EXPECT_TRUE(fWriter->Open(path.c_str(), 0, -1));
    EXPECT_EQ(std::filesystem::file_size(path), 5u) << "left alone until writing starts";
}

TEST_F(EarlierWriter, WithoutAFileNothingBegins) {
    EXPECT_EQ(fWriter->CompleteInitialization(), -1);
    const FramePtr frame(new Frame);
    EXPECT_EQ(fWriter->WriteVideo(*frame), -1);
    EXPECT_EQ(write(), -1);
    fWriter->close();
}

TEST_F(EarlierWriter, ProResFlavours) {
    const std::pair<const char*, unsigned int> kCases[] = {
        {"prores_422_proxy", 'apco'},
        {"prores_422_lt", 'apcs'},
        {"prores_422", 'apcn'},
        {"prores_422_hq", 'apch'},
        {"prores_4444", 'ap4h'},
        {"ProRes422", 'apcn'},
        {nullptr, 'apcn'},
    };
    for (const auto& [quality, format] : kCases) {
        ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes", quality)), 0);
        EXPECT_EQ(fFile.tracks.back().format, format) << (quality ? quality : "none");
        EXPECT_FALSE(fFile.tracks.back().colour.fullRange);
        fWriter->close();
    }
    EXPECT_EQ(fConverter.Made(), 0);
    EXPECT_EQ(fMjpeg.Made(), 0);
}

TEST_F(EarlierWriter, JpegQualities) {
    const std::pair<const char*, int> kCases[] = {
        {"mjpeg_best", 98}, {"mjpeg_high", 88},  {"mjpeg_medium", 75},
        {"mjpeg_low", 55},  {"prores_422", 100}, {nullptr, 100},
    };
    for (const auto& [name, number] : kCases) {
        ASSERT_EQ(set_up(raw_video(), encoded_video("MJPEG", name)), 0);
        EXPECT_EQ(quality(), number) << (name ? name : "none");
        EXPECT_EQ(fFile.tracks.back().format, 'jpeg');
        fWriter->close();
    }
}

TEST_F(EarlierWriter, JpegAlwaysHasAConverter) {
    const struct {
        int fRaster;
        unsigned int fEnters;
    } kCases[] = {{'2vuy', 'I422'}, {'yuvs', 'I422'}, {'rgba', 'I422'},
                  {'rgb ', 'I422'}, {'I420', 'I420'}, {'NV12', 'I420'}};
    for (const auto& c : kCases) {
        const int before = fConverter.Made();
        ASSERT_EQ(set_up(raw_video(c.fRaster), encoded_video("MJPEG")), 0);
        EXPECT_EQ(fConverter.Made() - before, 1);
        EXPECT_EQ(fConverterScript.numbers["MediaFilter::OutputFormat"], c.fEnters);
        EXPECT_EQ(fScript.input->GetFormat(), c.fEnters);
        fWriter->close();
    }
}

TEST_F(EarlierWriter, FramesEnterProResAsTheyAre) {
    const struct {
        int fRaster;
        unsigned int fEnters;
    } kCases[] = {{'2vuy', 'UYVY'}, {'yuvs', 'YUYV'}, {'rgba', 'BGRA'},
                  {'rgb ', 'BGRA'}, {'I420', 'I420'}, {'NV12', 'NV12'}};
    for (const auto& c : kCases) {
        ASSERT_EQ(set_up(raw_video(c.fRaster), encoded_video("ProRes")), 0);
        EXPECT_EQ(fScript.input->GetFormat(), c.fEnters);
        fWriter->close();
    }
}

TEST_F(EarlierWriter, OtherRastersHaveNoFormatHere) {
    for (const int raster : {'RGBA', 'Grgb', 'IMC4', 'YV12', 'YM16', 'gry8', 0}) {
        EXPECT_EQ(set_up(raw_video(raster), encoded_video("ProRes")), -1006) << raster;
        fWriter->close();
    }
}

TEST_F(EarlierWriter, OtherCodecsAreTheMediaLibrarysAffair) {
    // No compressor has the code 0, so set-up fails; with one it would not.
    for (const char* codec : {"x264", "prores", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(set_up(raw_video(), encoded_video(codec)), -1006);
        fWriter->close();
    }
    Script script;
    script.outputFormats = {0};
    const Registered<CVideoCompressor, Compressor> nameless(0, script);
    EXPECT_EQ(set_up(raw_video(), encoded_video("x264")), 0);
    EXPECT_EQ(nameless.Made(), 1);
    EXPECT_EQ(fFile.tracks.back().format, 0u);
    // Such a track's frames are copied, and so free again at once.
    const FramePtr frame(new Frame);
    EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    fWriter->close();
    EXPECT_EQ(fFile.samples.size(), 1u);
}

TEST_F(EarlierWriter, ColourFollowsFromHeightAndRate) {
    const struct {
        int fHeight;
        float fRate;
        ColorSpace fColour;
    } kCases[] = {
        {480, 29.97f, ColorSpace::BT601N}, {576, 25.0f, ColorSpace::BT601P},
        {576, 50.9f, ColorSpace::BT601P},  {576, 24.99f, ColorSpace::BT601N},
        {718, 50.0f, ColorSpace::BT601P},  {720, 25.0f, ColorSpace::BT709},
        {1080, 25.0f, ColorSpace::BT709},  {480, 0.0f, ColorSpace::BT601N},
    };
    for (const auto& c : kCases) {
        tnMediaRecord source = raw_video('2vuy', kWidth, c.fHeight);
        source.SetFloat('mfps', c.fRate);
        source.fColorSpace.SetInt32('r601');  // plays no part, here or there
        tnMediaRecord encoded = encoded_video("ProRes");
        encoded.fColorSpace.SetInt32('r601');
        ASSERT_EQ(set_up(source, encoded), 0);
        EXPECT_EQ(fScript.input->GetColorSpace(), c.fColour) << c.fHeight << " " << c.fRate;
        const auto& colour = fFile.tracks.back().colour;
        EXPECT_EQ(colour.primaries, c.fColour.GetPrimaries());
        EXPECT_EQ(colour.matrix, c.fColour.GetMatrix());
        fWriter->close();
    }
}

TEST_F(EarlierWriter, ShapeComesFromTheEncodedRecord) {
    tnMediaRecord encoded = encoded_video("ProRes");
    encoded.fWidth.SetInt32(128);
    encoded.fHeight.SetInt32(48);
    encoded.fFieldOrder.SetInt32(2);
    encoded.SetInt64('tmsc', 90000);
    encoded.SetFloat('mfps', 29.97f);
    encoded.SetUInt64('dura', 5);  // plays no part
    ASSERT_EQ(set_up(raw_video(), encoded), 0);
    const MovieTrack& track = fFile.tracks.back();
    EXPECT_EQ(track.width, 128);
    EXPECT_EQ(track.height, 48);
    EXPECT_EQ(track.fieldOrder, 1) << "always progressive";
    EXPECT_EQ(track.timescale, 90000);
    EXPECT_EQ(track.frameDuration, 3003) << "3003.003, cut";
    fWriter->close();
    encoded.RemoveID('mfps');
    ASSERT_EQ(set_up(raw_video(), encoded), 0);
    EXPECT_EQ(fFile.tracks.back().frameDuration, 0);
}

TEST_F(EarlierWriter, EveryFailureOfTheSetUpHasTheOneCode) {
    const auto code_of = [this](const char* codec) {
        const int code = set_up(raw_video(), encoded_video(codec));
        fWriter->close();
        return code;
    };
    for (bool* step : {&fScript.failInput, &fScript.failBegin, &fScript.noInputFormats}) {
        *step = true;
        EXPECT_EQ(code_of("ProRes"), -1006);
        EXPECT_EQ(code_of("MJPEG"), -1006);
        *step = false;
    }
    for (bool* step : {&fConverterScript.failInput, &fConverterScript.failBegin}) {
        *step = true;
        EXPECT_EQ(code_of("MJPEG"), -1006);
        *step = false;
    }
    fConverterScript.refused = {"MediaFilter::OutputFormat"};
    EXPECT_EQ(code_of("MJPEG"), -1006);
    fConverterScript.refused.clear();
    fScript.refused = {"JpegCompressor::Quality"};
    EXPECT_EQ(code_of("MJPEG"), -1006);
    EXPECT_EQ(code_of("ProRes"), 0) << "has no such setting";
    fScript.refused = {"MediaFilter::OutputFormat"};
    EXPECT_EQ(code_of("ProRes"), -1006);
    fScript.refused.clear();

    tnMediaRecord negative = encoded_video("ProRes");
    negative.fHeight.SetInt32(-1);
    EXPECT_EQ(set_up(raw_video(), negative), -1006);
    fWriter->close();

    EXPECT_EQ(set_up_audio(encoded_audio(1, 48000, 2, 24)), -1006) << "a size that is no PCM";
    fWriter->close();
    EXPECT_EQ(set_up_audio(encoded_audio(1, 48000, 0)), -1006) << "no channels";
    fWriter->close();
    EXPECT_EQ(set_up_audio(encoded_audio(1, 48000, 6)), -1006) << "no way from stereo to this";
    fWriter->close();
    fWriter->SetEncodedAudioFormat(tnMediaRecord());

    fConverter.GiveNull();
    EXPECT_EQ(code_of("MJPEG"), -1006);

    Waits waits;
    waits.fRefuseTracks = true;
    EXPECT_EQ(code_of("ProRes"), -1006);
    EXPECT_EQ(set_up_audio(encoded_audio(1)), -1006);
}

TEST_F(EarlierWriter, FailedSetUpIsTriedAgainWhole) {
    fFile.failBegin = true;
    EXPECT_EQ(set_up(raw_video(), encoded_video("ProRes")), -1006);
    const FramePtr frame(new Frame);
    EXPECT_EQ(fWriter->WriteVideo(*frame), -1006);
    EXPECT_EQ(write(), -1006);
    fFile.failBegin = false;
    EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    EXPECT_EQ(fWriter->CompleteInitialization(), 0) << "done, and done once";
    EXPECT_EQ(fToolbox.Made(), 4);
    fWriter->close();
    EXPECT_EQ(fFile.samples.size(), 1u);
}

TEST_F(EarlierWriter, WriteWithoutATrackIsAFailureButForTheWriteThatFoundOut) {
    open();
    const FramePtr frame(new Frame);
    EXPECT_EQ(fWriter->WriteVideo(*frame), 0) << "it has done the set-up";
    EXPECT_EQ(fWriter->WriteVideo(*frame), -1);
    EXPECT_EQ(write(), -1);
    fWriter->close();
    open();
    EXPECT_EQ(write(), 0) << "the same of sound";
    EXPECT_EQ(write(), -1);
    EXPECT_EQ(fWriter->WriteVideo(*frame), -1);
}

TEST_F(EarlierWriter, TracksAreWantedWhereBothSidesAreDescribedAndOneIsOn) {
    open();
    tnMediaRecord off = encoded_video("ProRes");
    off.SetBool('mena', false);
    fWriter->SetSourceVideoFormat(raw_video());
    fWriter->SetEncodedVideoFormat(off);
    fWriter->SetEncodedAudioFormat(encoded_audio(1));  // and no source
    ASSERT_EQ(fWriter->CompleteInitialization(), 0);
    EXPECT_TRUE(fFile.tracks.empty());
}

TEST_F(EarlierWriter, MaskSaysWhichTracksThereAre) {
    const struct {
        int fMask;
        std::vector<int> fTracks;
    } kCases[] = {
        {5, {0, 2}},    {0, {}},
        {-1, {}},  // no key
        {0x81, {0, 7}}, {0xFF, {0, 1, 2, 3, 4, 5, 6, 7}},
        {0xFF00, {}},   {0x102, {1}},
        {0x10001, {}},  // no 16 bits hold it: the default
    };
    for (const auto& c : kCases) {
        fFile.tracks.clear();
        ASSERT_EQ(set_up_audio(encoded_audio(c.fMask)), 0) << c.fMask;
        EXPECT_EQ(fFile.tracks.size(), c.fTracks.size()) << c.fMask;
        for (int track = -1; track <= 8; ++track) {
            const bool stands =
                std::find(c.fTracks.begin(), c.fTracks.end(), track) != c.fTracks.end();
            EXPECT_EQ(write(400, track), stands ? 0 : -1) << c.fMask << " " << track;
        }
        fWriter->close();
    }
}

TEST_F(EarlierWriter, EachTrackGetsItsOwnBlocks) {
    ASSERT_EQ(set_up_audio(encoded_audio(5)), 0);
    EXPECT_EQ(write(400, 0), 0);
    EXPECT_EQ(write(800, 2), 0);
    EXPECT_EQ(write(401, 0), 0) << "all bytes, a truncated length";
    EXPECT_EQ(write(0, 0), 0);
    fWriter->close();
    std::vector<long long> packets[2];
    for (const auto& sample : fFile.samples) packets[sample.track].push_back(sample.packets);
    EXPECT_EQ(packets[0], (std::vector<long long>{100, 100}));
    EXPECT_EQ(packets[1], (std::vector<long long>{200}));
}

TEST_F(EarlierWriter, SoundIsTakenForStereoWhateverTheSourceSays) {
    // The source says 11025 Hz and nothing of channels; the file is mono at 48 kHz.
    ASSERT_EQ(set_up_audio(encoded_audio(1, 48000, 1)), 0);
    EXPECT_EQ(write(4 * 480), 0);
    fWriter->close();
    ASSERT_EQ(fFile.samples.size(), 1u);
    EXPECT_EQ(fFile.samples[0].packets, 480);
    EXPECT_EQ(fFile.samples[0].size, 960u);
}

TEST_F(EarlierWriter, BlockThatDoesNotConvertIsAFailure) {
    ASSERT_EQ(set_up_audio(encoded_audio(1, 48000, 1)), 0);
    // Half a second of the file's format is what a block may become.
    EXPECT_EQ(write(48000 * 4), -1);
    EXPECT_EQ(write(24000 * 4), 0);
}

TEST_F(EarlierWriter, BlockThatTheTrackRefusesIsStillASuccess) {
    fFile.failAtSample = 0;
    ASSERT_EQ(set_up_audio(encoded_audio(1)), 0);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(write(), 0);
    fWriter->close();
    EXPECT_TRUE(fFile.samples.empty());
}

TEST_F(EarlierWriter, FrameThatTheTrackRefusesIsAFailure) {
    fFile.failAtSample = 3;
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    int code = 0;
    for (int i = 0; i < 2000 && code == 0; ++i) {
        const FramePtr frame(new Frame);
        code = fWriter->WriteVideo(*frame);
    }
    EXPECT_EQ(code, -1);
    fWriter->close();
    EXPECT_EQ(fFile.samples.size(), 3u);
    EXPECT_TRUE(fFile.finished);
}

TEST_F(EarlierWriter, FrameThatDoesNotConvertIsAFailure) {
    ASSERT_EQ(set_up(raw_video(), encoded_video("MJPEG")), 0);
    const FramePtr frame(new Frame);
    fConverterScript.failSample = true;
    EXPECT_EQ(fWriter->WriteVideo(*frame), -1);
    fConverterScript.failSample = false;
    fConverterScript.giveNothing = true;
    EXPECT_EQ(fWriter->WriteVideo(*frame), -1);
    fConverterScript.giveNothing = false;
    EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    fWriter->close();
    EXPECT_GE(fFile.samples.size(), 1u);
}

TEST_F(EarlierWriter, FramesLieEndToEnd) {
    Waits waits;
    await_room(waits);
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    for (const unsigned int duration : {1001u, 500u, 3000u, 1001u}) {
        const FramePtr frame(new Frame);
        frame->fDuration = duration;
        EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    }
    fWriter->close();
    ASSERT_EQ(fFile.samples.size(), 4u);
    const long long times[] = {0, 1001, 1501, 4501};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(fFile.samples[i].time, times[i]);
    EXPECT_EQ(fFile.samples[2].duration, 3000);
}

TEST_F(EarlierWriter, OnlyItsOwnBuffersAreTold) {
    Waits waits;
    await_room(waits);
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    const OtherFramePtr other(new OtherFrame);
    EXPECT_EQ(fWriter->WriteVideo(*other), 0);
    int told = 0;
    for (int i = 0; i < 20; ++i) {
        const FramePtr frame(new Frame);
        frame->fBytesWritten = 999;
        EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
        EXPECT_EQ(frame->fBytesWritten % 10, 0) << "the double makes ten bytes a frame";
        EXPECT_GE(frame->fBytesWritten, 0);
        told += frame->fBytesWritten;
    }
    EXPECT_LE(told, 21 * 10);
    fWriter->close();
}

TEST_F(EarlierWriter, FullTrackDropsFramesAfterThreeSleeps) {
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    Waits waits;
    fill_pictures(waits);
    for (int i = 0; i < 3; ++i) {
        waits.fSleeps.clear();
        const FramePtr frame(new Frame);
        frame->fBytesWritten = 77;
        EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
        EXPECT_EQ(frame->fBytesWritten, 77) << "a frame that vanished is not told";
        EXPECT_EQ(waits.fSleeps, kThreeSleeps);
    }
    EXPECT_EQ(gFrames, kFullTrack) << "what was dropped is not kept";
    fScript.stuck = false;
    fWriter->close();
    EXPECT_EQ(fFile.samples.size(), std::size_t{kFullTrack});
}

TEST_F(EarlierWriter, FrameGoesInWhereRoomComesDuringASleep) {
    for (const std::size_t sleeps : {1u, 2u, 3u}) {
        fFile.samples.clear();
        fScript.entered = false;
        ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
        Waits waits;
        fill_pictures(waits);
        waits.fSleeps.clear();
        waits.fOnSleep = [&] {
            if (waits.fSleeps.size() == sleeps) make_room(waits);
        };
        const FramePtr frame(new Frame);
        frame->fBytesWritten = 77;
        EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
        EXPECT_NE(frame->fBytesWritten, 77) << sleeps;
        EXPECT_EQ(waits.fSleeps.size(), sleeps);
        fScript.stuck = false;
        fFile.stuck = false;
        fWriter->close();
        EXPECT_EQ(fFile.samples.size(), std::size_t{kFullTrack} + 1) << sleeps;
    }
}

TEST_F(EarlierWriter, FullTrackDropsSoundAfterThreeSleeps) {
    fFile.stuck = true;
    ASSERT_EQ(set_up_audio(encoded_audio(1)), 0);
    Waits waits;
    const int blocks = fill_sound(waits);
    for (int i = 0; i < 3; ++i) {
        waits.fSleeps.clear();
        EXPECT_EQ(write(), 0);
        EXPECT_EQ(waits.fSleeps, kThreeSleeps);
    }
    fFile.stuck = false;
    fWriter->close();
    EXPECT_EQ(fFile.samples.size(), static_cast<std::size_t>(blocks));
}

TEST_F(EarlierWriter, SoundGoesInWhereRoomComesBeforeTheThirdSleep) {
    for (const std::size_t sleeps : {1u, 2u, 3u}) {
        fFile.samples.clear();
        fFile.stuck = true;
        fFile.entered = false;
        ASSERT_EQ(set_up_audio(encoded_audio(1)), 0);
        Waits waits;
        const int blocks = fill_sound(waits);
        waits.fSleeps.clear();
        waits.fOnSleep = [&] {
            if (waits.fSleeps.size() == sleeps) make_room(waits);
        };
        EXPECT_EQ(write(), 0);
        EXPECT_EQ(waits.fSleeps.size(), sleeps);
        fScript.stuck = false;
        fFile.stuck = false;
        fWriter->close();
        const int expected = sleeps < 3 ? blocks + 1 : blocks;
        EXPECT_EQ(fFile.samples.size(), static_cast<std::size_t>(expected)) << sleeps;
    }
}

TEST_F(EarlierWriter, BytesOfAFrameLiveUntilTheEncoderHasRead) {
    Waits waits;
    await_room(waits);
    fScript.stuck = true;
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    for (int i = 0; i < 3; ++i) {
        const FramePtr frame(new Frame);  // the host lets go of it right after the write
        EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    }
    EXPECT_EQ(gFrames, 3);
    fScript.stuck = false;
    fWriter->close();
    EXPECT_EQ(gFrames, 0);
    EXPECT_EQ(fFile.samples.size(), 3u);
}

TEST_F(EarlierWriter, CloseEndsATrackThatIsSlowAfterThreeSeconds) {
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    Waits waits;
    fill_pictures(waits);
    waits.fOnWait = [&] {
        if (waits.fWaits > 1000) fScript.stuck = false;  // else a close without a limit hangs
    };
    // A full track is ready again when its stream is at its end; what it holds is still written.
    int waited = -1;
    std::thread end([&] {
        while (!waits.IsReady()) std::this_thread::yield();
        waited = waits.fWaits;
        fScript.stuck = false;
    });
    fWriter->close();
    end.join();
    EXPECT_EQ(waited, 30) << "tenths of a second";
    EXPECT_EQ(fFile.samples.size(), std::size_t{kFullTrack});
    EXPECT_TRUE(fFile.finished);
    fWriter->close();
}

TEST_F(EarlierWriter, CloseGoesOnAsSoonAsAllTracksAreReady) {
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    Waits waits;
    fill_pictures(waits);
    waits.fOnWait = [&] {
        if (waits.fWaits == 5) make_room(waits);
    };
    fWriter->close();
    EXPECT_EQ(waits.fWaits, 5);
    EXPECT_TRUE(fFile.finished);
}

TEST_F(EarlierWriter, ItsOwnBuffersAreToldWhatTheFileTookMeanwhile) {
    fScript.stuck = true;
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    const FramePtr first(new Frame);
    ASSERT_EQ(fWriter->WriteVideo(*first), 0);
    EXPECT_EQ(first->fBytesWritten, 0);
    Waits waits;
    waits.fOnByteCount = [&] {
        fScript.stuck = false;
        while (waits.BytesWritten() == 0) std::this_thread::yield();
    };
    const FramePtr second(new Frame);
    ASSERT_EQ(fWriter->WriteVideo(*second), 0);
    EXPECT_GE(second->fBytesWritten, 10);
    EXPECT_EQ(second->fBytesWritten % 10, 0);
    fWriter->close();
}

TEST_F(EarlierWriter, ClosedFileIsWholeAndAnotherMayBeOpened) {
    ASSERT_EQ(set_up(raw_video(), encoded_video("MJPEG")), 0);
    const FramePtr frame(new Frame);
    EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    fWriter->close();
    EXPECT_TRUE(fFile.finished);
    EXPECT_EQ(fWriter->WriteVideo(*frame), -1) << "there is no file";
    const int converters = fConverter.Made();
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    fWriter->close();
    EXPECT_EQ(fConverter.Made(), converters) << "nothing of the first file is left in the second";
    EXPECT_EQ(fConverterScript.ended, 1);
}

TEST_F(EarlierWriter, ReleaseClosesTheFile) {
    ASSERT_EQ(set_up(raw_video(), encoded_video("ProRes")), 0);
    const FramePtr frame(new Frame);
    EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    fWriter.reset();
    EXPECT_TRUE(fFile.finished);
    EXPECT_EQ(fFile.samples.size(), 1u);
}

TEST_F(EarlierWriter, AnnouncesItsLengthToVideoAndTheFirstSoundTrack) {
    const std::pair<long long, long long> kCases[] = {
        {10, 10}, {0, 0}, {-1, 46800}, {-2, 0}, {9'000'000'000'000'000, 0}};
    for (const auto& [asked, seconds] : kCases) {
        fFile.tracks.clear();
        open(asked, 5);
        fWriter->SetSourceVideoFormat(raw_video());
        fWriter->SetEncodedVideoFormat(encoded_video("ProRes"));
        fWriter->SetSourceAudioFormat(source_audio());
        fWriter->SetEncodedAudioFormat(encoded_audio(6));
        ASSERT_EQ(fWriter->CompleteInitialization(), 0);
        ASSERT_EQ(fFile.tracks.size(), 3u);
        EXPECT_EQ(fFile.tracks[0].expectedDuration, seconds * 30000) << asked;
        EXPECT_EQ(fFile.tracks[1].expectedDuration, seconds * 48000) << asked;
        EXPECT_EQ(fFile.tracks[2].expectedDuration, 0) << "only the first one is told";
        EXPECT_EQ(fFile.options.containerType, 'mov ');
        EXPECT_EQ(fFile.options.checkpointSeconds, 5);
        EXPECT_TRUE(fFile.options.fastStart);
        EXPECT_TRUE(fFile.options.trimAudio);
        fWriter->close();
    }
}

TEST_F(EarlierWriter, PictureAndSoundPassEachOther) {
    // For the thread sanitizer.
    open();
    fWriter->SetSourceVideoFormat(raw_video());
    fWriter->SetEncodedVideoFormat(encoded_video("ProRes"));
    fWriter->SetSourceAudioFormat(source_audio());
    fWriter->SetEncodedAudioFormat(encoded_audio(3));
    std::thread sound([this] {
        for (int i = 0; i < 200; ++i) EXPECT_EQ(write(400, i % 2), 0);
    });
    for (int i = 0; i < 200; ++i) {
        const FramePtr frame(new Frame);
        EXPECT_EQ(fWriter->WriteVideo(*frame), 0);
    }
    sound.join();
    fWriter->close();
    EXPECT_TRUE(fFile.finished);
}

}  // namespace
