#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CAssetAudioCompressor.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CContainerReaderAudioProperties.h"
#include "orb/CPixelBufferDataReference.h"
#include "orb/MovieFileInventory.h"
#include "orb/ffmpeg/AvMovieFile.h"
#include "orb/testSupport.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include "EncoderTestKit.h"
#include "tests/support/TestFolder.h"

// Whole recordings through the asset's tracks with real encoders, read back by libavformat.

namespace Quillon::Orb {
namespace {

using namespace TestKit;

constexpr int kFrames = 45;
constexpr int kRate = 48000;
constexpr int kBlock = 1601;  // not a divisor of anything: blocks and frames drift

struct Recipe {
    const char* name;
    unsigned int container;
    bool byLibavformat;
    unsigned int format, compressor;
    unsigned int audioFormat;  // 'mp4a' compresses, anything else is stored as it comes
    AVCodecID videoCodec, audioCodec;
};

const Recipe kRecipes[] = {
    {"x264_aac.mp4", 'mp4 ', false, 'h264', 'h264', 'mp4a', AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
    {"x264_aac.mov", 'mov ', false, 'h264', 'h264', 'mp4a', AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
    {"prores_pcm.mov", 'mov ', false, 'apch', 'vtbx', 'sowt', AV_CODEC_ID_PRORES,
     AV_CODEC_ID_PCM_S16LE},
    {"mjpeg_pcm.mov", 'mov ', false, 'jpeg', 'mjpg', 'sowt', AV_CODEC_ID_MJPEG,
     AV_CODEC_ID_PCM_S16LE},
    {"mpeg2_pcm.mov", 'mov ', false, 'mp2v', 'mcm2', 'twos', AV_CODEC_ID_MPEG2VIDEO,
     AV_CODEC_ID_PCM_S16BE},
    {"mjpeg_float.mov", 'mov ', false, 'jpeg', 'mjpg', CAudioProperties::kFloat32Little,
     AV_CODEC_ID_MJPEG, AV_CODEC_ID_PCM_F32LE},
    {"x264_aac.ts", 'ts  ', false, 'h264', 'h264', 'mp4a', AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
    {"lav_x264_aac.mp4", 'mp4 ', true, 'h264', 'h264', 'mp4a', AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
    {"lav_prores_pcm.mov", 'mov ', true, 'apch', 'vtbx', 'sowt', AV_CODEC_ID_PRORES,
     AV_CODEC_ID_PCM_S16LE},
};

std::string name_of(const testing::TestParamInfo<Recipe>& info) {
    std::string name = info.param.name;
    for (char& c : name) c = c == '.' ? '_' : c;
    return name;
}

struct ReadTrack {
    AVCodecParameters* parameters = nullptr;
    AVRational timebase{0, 1};
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;  ///< as the file says, not as a decoder takes it
    std::vector<long long> times, durations;
    std::vector<unsigned char> bytes;
    int keys = 0;
};

struct ReadFile {
    AVFormatContext* context = nullptr;
    ReadTrack tracks[2];  // video, audio
    ReadFile() = default;
    ReadFile(const ReadFile&) = delete;
    ReadFile& operator=(const ReadFile&) = delete;
    ~ReadFile() { avformat_close_input(&context); }
};

void read_back(const std::string& path, ReadFile& file) {
    ASSERT_GE(avformat_open_input(&file.context, path.c_str(), nullptr, nullptr), 0);
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    for (unsigned i = 0; i < file.context->nb_streams; ++i) {
        const AVCodecParameters& parameters = *file.context->streams[i]->codecpar;
        if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) matrix = parameters.color_space;
    }
    ASSERT_GE(avformat_find_stream_info(file.context, nullptr), 0);
    ASSERT_EQ(file.context->nb_streams, 2u);
    file.tracks[0].matrix = matrix;
    const auto track_of = [&](int stream) -> ReadTrack& {
        const AVMediaType type = file.context->streams[stream]->codecpar->codec_type;
        return file.tracks[type == AVMEDIA_TYPE_VIDEO ? 0 : 1];
    };
    for (int i = 0; i < 2; ++i) {
        track_of(i).parameters = file.context->streams[i]->codecpar;
        track_of(i).timebase = file.context->streams[i]->time_base;
    }
    AvPacket packet(av_packet_alloc());
    while (av_read_frame(file.context, packet.get()) >= 0) {
        ReadTrack& track = track_of(packet->stream_index);
        track.times.push_back(packet->dts);
        track.durations.push_back(packet->duration);
        track.keys += (packet->flags & AV_PKT_FLAG_KEY) != 0;
        track.bytes.insert(track.bytes.end(), packet->data, packet->data + packet->size);
        av_packet_unref(packet.get());
    }
}

class AssetRecording : public testing::TestWithParam<Recipe> {
protected:
    AssetRecording() {
        char folder[] = "/tmp/orbXXXXXX";
        fFolder = mkdtemp(folder);
        if (GetParam().byLibavformat)
            MovieFileInventory::Add(GetParam().container, MakeAvMovieFile);
    }
    ~AssetRecording() override {
        if (GetParam().byLibavformat) MovieFileInventory::Add(GetParam().container, nullptr);
        std::filesystem::remove_all(fFolder);
    }
    std::string Path() const { return fFolder + "/" + GetParam().name; }
    bool IsMpegTs() const { return GetParam().container == 'ts  '; }

    void MakeTracks(CAssetWriter& asset);
    void MakeSoundTrack(CAssetWriter& asset);
    void Record();
    int SoundBytes() const { return fPcm == 'sowt' || fPcm == 'twos' ? 4 : 8; }

    Source fSource;
    std::string fFolder;
    unsigned int fPcm = 'sowt';
    RObject<CAssetVideoCompressor> fPictures;
    RObject<CAssetAudioWriter> fSound;
    std::vector<unsigned char> fSoundWritten;
};

void AssetRecording::MakeTracks(CAssetWriter& asset) {
    const Recipe& recipe = GetParam();
    RObject<CVideoProperties> shape = fSource.Properties();
    shape->SetFormat(recipe.format);
    fPictures = new CAssetVideoCompressor(shape.Get(), recipe.compressor);
    RObject<CValueList<unsigned int>> formats(fPictures->GetInputFormats());
    ASSERT_TRUE(formats);
    ASSERT_EQ(formats->GetValue(0, fSource.format), 0);
    ASSERT_EQ(fPictures->SetInputFormat(fSource.format), 0);
    ASSERT_EQ(asset.AddVideoWriter(fPictures.Get()), 0);
    const Result begun = fPictures->Begin();
    ASSERT_EQ(begun, 0) << begun.GetMessage();
    MakeSoundTrack(asset);
}

void AssetRecording::MakeSoundTrack(CAssetWriter& asset) {
    const bool compressed = GetParam().audioFormat == 'mp4a';
    fPcm = compressed ? 'sowt' : GetParam().audioFormat;
    RObject<CAudioProperties> sound(new CContainerReaderAudioProperties(nullptr));
    sound->SetFormat(GetParam().audioFormat);
    sound->SetChannels(2);
    sound->SetSampleRate(kRate);
    sound->SetBitsPerSample(SoundBytes() * 4);
    sound->SetBytesPerPacket(SoundBytes());
    sound->SetFramesPerPacket(1);
    if (compressed) {
        fSound = new CAssetAudioCompressor(sound.Get(), 'caac');
    } else {
        fSound = new CAssetAudioWriter(sound.Get());
    }
    ASSERT_EQ(fSound->SetInputFormat(fPcm), 0);
    ASSERT_EQ(asset.AddAudioWriter(fSound.Get()), 0);
    const Result begun = fSound->Begin();
    ASSERT_EQ(begun, 0) << begun.GetMessage();
}

void AssetRecording::Record() {
    RObject<CAssetWriter> asset(new CAssetWriter());
    RObject<CString> path(new CString(Path().c_str()));
    ASSERT_EQ(asset->Create(GetParam().container, path.Get()), 0);
    ASSERT_NO_FATAL_FAILURE(MakeTracks(*asset));
    const Result begun = asset->Begin();
    ASSERT_EQ(begun, 0) << begun.GetMessage();
    const long long soundFrames = kFrames * 1001LL * kRate / 30000;
    std::thread sounds([&] {
        for (long long at = 0; at < soundFrames; at += kBlock) {
            const long long count = std::min<long long>(kBlock, soundFrames - at);
            std::vector<unsigned char> block(static_cast<std::size_t>(count * SoundBytes()));
            for (std::size_t i = 0; i < block.size(); ++i) {
                block[i] = static_cast<unsigned char>((static_cast<std::size_t>(at) + i) * 37 >> 3);
            }
            fSoundWritten.insert(fSoundWritten.end(), block.begin(), block.end());
            RObject<CAudioSample> sample(new CAudioSample(count));
            RObject<CByteArray> bytes = bytes_of(block);
            RObject<CBufferDataReference> data(new CBufferDataReference(bytes.Get()));
            sample->SetDataReference(data.Get());
            EXPECT_EQ(fSound->WriteSample(sample.Get()), 0);
        }
    });
    for (int i = 0; i < kFrames; ++i) {
        EXPECT_EQ(fPictures->WriteSample(MakeSample(fSource, i).Get()), 0);
    }
    sounds.join();
    EXPECT_EQ(fPictures->WriteSample(nullptr), 0);
    EXPECT_EQ(fSound->WriteSample(nullptr), 0);
    EXPECT_EQ(fPictures->End(), 0);
    EXPECT_EQ(fSound->End(), 0);
    const Result finished = asset->Finish();
    EXPECT_EQ(finished, 0) << finished.GetMessage();
}

TEST_P(AssetRecording, StandsInTheFileAsItWasWritten) {
    ASSERT_NO_FATAL_FAILURE(Record());
    ReadFile file;
    ASSERT_NO_FATAL_FAILURE(read_back(Path(), file));
    const ReadTrack& pictures = file.tracks[0];
    const ReadTrack& sound = file.tracks[1];
    ASSERT_TRUE(pictures.parameters && sound.parameters);
    EXPECT_EQ(pictures.parameters->codec_id, GetParam().videoCodec);
    EXPECT_EQ(sound.parameters->codec_id, GetParam().audioCodec);
    EXPECT_EQ(pictures.parameters->width, fSource.width);
    EXPECT_EQ(pictures.parameters->height, fSource.height);
    EXPECT_EQ(sound.parameters->sample_rate, kRate);
    EXPECT_EQ(sound.parameters->ch_layout.nb_channels, 2);
    ASSERT_EQ(pictures.times.size(), static_cast<std::size_t>(kFrames));
    EXPECT_GE(pictures.keys, 1);
    EXPECT_GT(fPictures->GetBytesWritten(), 0);
    // Times: ticks of the track in our files, 90 kHz rounded in a transport stream.
    const double tick = av_q2d(pictures.timebase);
    for (std::size_t i = 1; i < pictures.times.size(); ++i) {
        const double distance =
            static_cast<double>(pictures.times[i] - pictures.times[i - 1]) * tick;
        EXPECT_NEAR(distance, 1001.0 / 30000, 1.1 * (IsMpegTs() ? tick : 1e-9));
    }
    if (!IsMpegTs()) {
        EXPECT_EQ(pictures.timebase.den, 30000);
        for (const long long duration : pictures.durations) EXPECT_EQ(duration, 1001);
        EXPECT_EQ(sound.timebase.den, kRate);
        EXPECT_EQ(pictures.matrix, AVCOL_SPC_BT709);
    }
    if (GetParam().audioFormat != 'mp4a') {
        EXPECT_EQ(sound.bytes, fSoundWritten);
        EXPECT_EQ(fSound->GetBytesWritten(), static_cast<long long>(fSoundWritten.size()));
        return;
    }
    // Compressed sound is as long as the pictures to within a packet, its priming apart.
    long long frames = 0;
    for (const long long duration : sound.durations) frames += duration;
    const double seconds = static_cast<double>(frames) * av_q2d(sound.timebase);
    EXPECT_NEAR(seconds, kFrames * 1001.0 / 30000, 2.1 * 1024 / kRate);
}

void PrintTo(const Recipe& recipe, std::ostream* out) {
    *out << recipe.name;
}

INSTANTIATE_TEST_SUITE_P(Orb, AssetRecording, testing::ValuesIn(kRecipes), name_of);

TEST(AvMovieFile, WritesOnlyWhatItKnows) {
    MovieFileOptions options;
    options.containerType = 'wxyz';
    EXPECT_EQ(MakeAvMovieFile("x", options), nullptr);
    options.containerType = 'mov ';
    std::unique_ptr<MovieFile> file = MakeAvMovieFile("/tmp/no/such/folder/x.mov", options);
    ASSERT_TRUE(file);
    MovieTrack track;
    track.timescale = 25;
    track.format = 'wxyz';
    EXPECT_LT(file->AddTrack(track), 0);
    track.format = 'jpeg';
    track.timescale = 0;
    EXPECT_LT(file->AddTrack(track), 0);
    track.timescale = 25;
    EXPECT_EQ(file->AddTrack(track), 0);
    const Result begun = file->Begin();
    EXPECT_EQ(begun, ResultError::kCode);
    EXPECT_NE(std::string(begun.GetMessage()).find("/tmp/no/such/folder/x.mov"), std::string::npos);
}

TEST(AvMovieFile, EmptySamplesAreTaken) {
    for (const unsigned int container : {'mov ', 'mp4 ', 'ts  '}) {
        MovieFileOptions options;
        options.containerType = container;
        const tests::TestFolder folder;
        const std::string path = folder.File("empty_samples");
        const std::unique_ptr<MovieFile> file = MakeAvMovieFile(path.c_str(), options);
        ASSERT_TRUE(file);
        MovieTrack track;
        track.timescale = 25;
        track.format = 'mp2v';
        track.width = track.height = 16;
        ASSERT_EQ(file->AddTrack(track), 0);
        ASSERT_EQ(file->Begin(), 0);
        const unsigned char bytes[] = {0, 0, 1, 0xB3, 1, 0, 16, 0x13};
        for (int i = 0; i < 4; ++i) {
            MovieSample sample;
            sample.data = i % 2 == 1 ? bytes : nullptr;
            sample.size = i % 2 == 1 ? sizeof bytes : 0;
            sample.decodeTime = i;
            sample.duration = 1;
            EXPECT_EQ(file->WriteSample(0, sample), 0) << i;
        }
        EXPECT_EQ(file->Finish(), 0);
    }
}

/// In seconds, of the packets of a file with one track.
std::vector<double> decode_times(const std::string& path) {
    std::vector<double> times;
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path.c_str(), nullptr, nullptr) < 0) return times;
    AvPacket packet(av_packet_alloc());
    while (av_read_frame(context, packet.get()) >= 0) {
        const AVRational timebase = context->streams[packet->stream_index]->time_base;
        times.push_back(static_cast<double>(packet->dts) * av_q2d(timebase));
        av_packet_unref(packet.get());
    }
    avformat_close_input(&context);
    return times;
}

/// The host's clock begins anew ten hours back: the film goes on, whatever the container.
TEST(AssetTimes, AClockThatBeginsAnewGoesOnInEveryContainer) {
    constexpr long long kTenHours = 36000LL * 30000;
    constexpr int kPictures = 60;
    const tests::TestFolder folder;
    for (const unsigned int container : {'mov ', 'ts  '}) {
        SCOPED_TRACE(container == 'mov ' ? "mov" : "ts");
        const std::string path = folder.File(container == 'mov ' ? "a.mov" : "a.ts");
        const RObject<CAssetWriter> asset(new CAssetWriter());
        const RObject<CString> text(new CString(path.c_str()));
        ASSERT_EQ(0, asset->Create(container, text.Get()));
        const RObject<CVideoProperties> shape(new CVideoProperties(nullptr));
        shape->SetFormat('mp2v');
        shape->SetWidth(64);
        shape->SetHeight(64);
        shape->SetTimescale(30000);
        shape->SetFrameDuration(1000);
        const RObject<CAssetVideoCompressor> track(new CAssetVideoCompressor(shape.Get(), 'mcm2'));
        ASSERT_EQ(0, track->SetInputFormat('I420'));
        ASSERT_EQ(0, asset->AddVideoWriter(track.Get()));
        ASSERT_EQ(0, track->Begin());
        ASSERT_EQ(0, asset->Begin());
        const RObject<CByteArray> pixels(new CByteArray(64 * 64 * 3 / 2, 1));
        std::memset(pixels->GetData(), 128, static_cast<std::size_t>(pixels->GetLength()));
        for (int i = 0; i < kPictures; ++i) {
            const RObject<CVideoSample> sample(new CVideoSample(0, 1000, 0));
            sample->SetTime(i * 1000 + (i < kPictures / 2 ? kTenHours : 0));
            const RObject<CPixelBufferDataReference> data(
                new CPixelBufferDataReference(pixels.Get(), 64, 64, 64));
            sample->SetDataReference(data.Get());
            ASSERT_EQ(0, track->WriteSample(sample.Get()));
        }
        ASSERT_EQ(0, track->End());
        ASSERT_EQ(0, asset->Finish());
        const std::vector<double> times = decode_times(path);
        ASSERT_EQ(times.size(), static_cast<std::size_t>(kPictures));
        for (std::size_t i = 1; i < times.size(); ++i)
            EXPECT_NEAR(times[i] - times[i - 1], 1.0 / 30, 0.0001) << i;
    }
}

}  // namespace
}  // namespace Quillon::Orb
