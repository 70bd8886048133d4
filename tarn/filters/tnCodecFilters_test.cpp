#include "tarn/filters/tnCodecFilters.h"

#include <gtest/gtest.h>
#include <map>
#include <typeinfo>

#include "orb/testSupport.h"
#include "spar/zBuffer.h"
#include "spar/zObject.h"
#include "tarn/filters/OrbVideoBuffer.h"
#include "tarn/filters/tnAacAudioCompressor.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/filters/tnMjpegVideoCompressor.h"
#include "tarn/filters/tnNvencVideoCompressor.h"
#include "tarn/filters/tnOrbProResVideoCompressor.h"
#include "tarn/filters/tnPcmAudioFilter.h"
#include "tarn/filters/tnX264VideoCompressor.h"
#include "tarn/foundation/tnRasterType.h"

#include "tests/support/AvCodecs.h"
#include "tests/support/filterDoubles.h"
#include "tests/support/orbCompressorKit.h"
#include "tests/support/orbDoubles.h"

using namespace Quillon::Orb;
using orbCompressorKit::StreamBufferOf;

namespace {

// Sixteen macroblocks wide: x264's widest vector code reads past rows of other widths, and then
// does not make the same stream twice.
constexpr int kWidth = 256;
constexpr int kHeight = 128;
constexpr int kSource = 1;

using VideoBuffer = std::shared_ptr<tnVideoCompressor::EncodedBuffer>;

tnMediaRecord video_of(unsigned int raster) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fWidth.SetInt32(kWidth);
    record.fHeight.SetInt32(kHeight);
    record.fColourspace.SetInt32(static_cast<int>(raster));
    record.fBytesPerRow.SetInt32(tnRasterType::ActiveBytesPerRow(kWidth, static_cast<int>(raster)));
    record.SetInt64('tmsc', 30000);
    record.SetUInt64('dura', 1001);
    record.SetFloat('mfps', 29.97f);
    return record;
}

/// A manager with one video output, from request to encoded buffers.
class Road {
public:
    explicit Road(const tnMediaRecord& request, unsigned int raster = 'I420')
        : fInput(video_of(raster)) {
        tnCodecFilters::Register(*fManager);
        fManager->ObserveVideoFilter(
            kSource, fOwner, request,
            [this](const std::shared_ptr<tnFilter>& filter) { fFilter = filter; },
            [this](const VideoBuffer& buffer) { fBuffers.push_back(buffer); });
        fManager->SetInputFormat(kSource, fInput);
    }

    void Write(const std::vector<unsigned char>& picture, long long time) {
        const auto frame = StreamBufferOf(static_cast<int>(picture.size()));
        std::copy(picture.begin(), picture.end(), static_cast<unsigned char*>(frame->GetPointer()));
        fManager->WriteVideoSample(kSource, time / 30, time, *frame, fInput);
        EXPECT_EQ(frame->AddWritingRef(), 2) << "every reference came back";
    }

    /// The buffers as a muxer would take them, times in ticks.
    std::vector<avCodecs::Coded> Coded() const {
        std::vector<avCodecs::Coded> coded;
        for (const VideoBuffer& buffer : fBuffers) {
            const unsigned char* data = buffer->Data();
            const RObject<CVideoSample> sample(
                dynamic_cast<OrbVideoBuffer&>(*buffer).OrbVideoSample());
            const long long time = std::llround(buffer->BufferTimeInMilliseconds() * 30);
            coded.push_back(
                {{data, data + buffer->DataSize()}, time, time + sample->GetCompositionOffset()});
        }
        return coded;
    }
    std::vector<unsigned char> Description() const {
        const auto info = fFilter->DecoderInfo();
        return info ? *info : std::vector<unsigned char>();
    }

    std::shared_ptr<tnFilterManager> fManager = std::make_shared<tnFilterManager>();
    std::shared_ptr<zObject> fOwner = std::make_shared<zObject>();
    tnMediaRecord fInput;
    std::shared_ptr<tnFilter> fFilter;
    std::vector<VideoBuffer> fBuffers;
};

tnMediaRecord request_of(const char* codec) {
    tnMediaRecord record = video_of('I420');
    record.SetCString('mcon', codec);
    record.SetInt32("encoder_threads", 1);
    return record;
}

std::vector<std::vector<unsigned char>> moving_pictures(int count) {
    std::vector<std::vector<unsigned char>> pictures;
    for (int i = 0; i < count; ++i) {
        pictures.push_back(avCodecs::MovingI420(kWidth, kHeight, i));
    }
    return pictures;
}

// Registration.

TEST(CodecFilters, AreFoundUnderTheFileWritersNames) {
    const struct {
        const char* name;
        const std::type_info& type;
        bool sound;
    } rows[] = {
        {"x264", typeid(tnX264VideoCompressor), false},
        {"Video Toolbox H.264", typeid(tnPlatformVideoCompressor), false},
        {"NVidia H.264", typeid(tnNvencVideoCompressor), false},
        {"ProRes", typeid(tnOrbProResVideoCompressor), false},
        {"MJPEG", typeid(tnMjpegVideoCompressor), false},
        {"MPEG-4 Audio", typeid(tnAacAudioCompressor), true},
        {"PCM", typeid(tnPcmAudioFilter), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto manager = std::make_shared<tnFilterManager>();
        tnCodecFilters::Register(*manager);
        tnCodecFilters::Register(*manager);
        const auto owner = std::make_shared<zObject>();
        std::vector<std::shared_ptr<tnFilter>> filters;
        const auto init = [&](const std::shared_ptr<tnFilter>& filter) {
            filters.push_back(filter);
        };
        const tnMediaRecord format =
            row.sound ? filterDoubles::AudioFormat(row.name) : request_of(row.name);
        manager->StartObservingFilter(kSource, owner, format, init, {}, {});
        manager->SetInputFormat(kSource,
                                row.sound ? filterDoubles::AudioFormat(nullptr) : video_of('I420'));
        ASSERT_EQ(filters.size(), 1u);
        EXPECT_EQ(typeid(*filters[0]), row.type);
        EXPECT_EQ(filters[0]->OutputFormat().AsString('mcon', ""), row.name);
    }
}

TEST(CodecFilters, AHostMayPutItsOwnFirst) {
    const auto manager = std::make_shared<tnFilterManager>();
    int made = 0;
    manager->RegisterFactory("x264", [&] {
        ++made;
        return std::shared_ptr<tnFilter>();
    });
    tnCodecFilters::Register(*manager);
    manager->ObserveVideoFilter(kSource, std::make_shared<zObject>(), request_of("x264"), {}, {});
    EXPECT_EQ(made, 1);
}

// H.264.

struct Reordering {
    const char* name;
    int bFrames;
    std::vector<long long> steps;  ///< from frame to frame, ticks, in turns

    friend std::ostream& operator<<(std::ostream& out, const Reordering& row) {
        return out << row.name;
    }
};

class X264Road : public testing::TestWithParam<Reordering> {};

INSTANTIATE_TEST_SUITE_P(
    Streams, X264Road,
    testing::Values(Reordering{"InOrder", 0, {1001}}, Reordering{"BFrames", 2, {1001}},
                    Reordering{"BFramesAtUnevenTimes", 3, {1001, 2002, 500, 1001, 3003}}),
    [](const auto& row) { return std::string(row.param.name); });

// What a muxer gets is what the host wrote: each picture is shown at its frame's time, and is the
// picture that the encoder makes when it is driven straight.
TEST_P(X264Road, PicturesComeOutAsWhenTheEncoderIsDrivenStraight) {
    constexpr int kPictures = 70;
    const auto pictures = moving_pictures(kPictures);
    tnMediaRecord request = request_of("x264");
    request.SetInt32("b_frames", GetParam().bFrames);
    request.SetInt32("key_frame_rate", 12);
    Road road(request);
    std::vector<long long> times;
    long long time = 0;
    for (std::size_t i = 0; i < kPictures; ++i) {
        times.push_back(time);
        road.Write(pictures[i], time);
        time += GetParam().steps[i % GetParam().steps.size()];
    }
    ASSERT_GT(road.fBuffers.size(), kPictures - 30u);

    avCodecs::X264 settings;
    settings.width = kWidth;
    settings.height = kHeight;
    settings.bFrames = GetParam().bFrames;
    settings.keyFrameInterval = 12;
    std::vector<unsigned char> description;
    std::vector<avCodecs::Coded> straight = avCodecs::EncodeX264(settings, pictures, description);
    const avCodecs::Decoded expected = avCodecs::Decode(AV_CODEC_ID_H264, description, straight);
    ASSERT_EQ(expected.pictures.size(), pictures.size());

    const avCodecs::Decoded decoded =
        avCodecs::Decode(AV_CODEC_ID_H264, road.Description(), road.Coded());
    EXPECT_TRUE(decoded.clean);
    EXPECT_EQ(decoded.delay, GetParam().bFrames > 0 ? 1 : 0);
    ASSERT_EQ(decoded.pictures.size(), road.fBuffers.size());
    for (const avCodecs::Picture& picture : decoded.pictures) {
        const auto place = std::find(times.begin(), times.end(), picture.time);
        ASSERT_NE(place, times.end()) << picture.time << " is no frame's time";
        EXPECT_EQ(picture.hash,
                  expected.pictures[static_cast<std::size_t>(place - times.begin())].hash)
            << "picture at " << picture.time;
    }
}

// Decode times are the frames' times in their order; durations lead from one to the next.
TEST_P(X264Road, DecodeTimesAreTheFramesTimesInOrder) {
    constexpr int kPictures = 60;
    const auto pictures = moving_pictures(kPictures);
    tnMediaRecord request = request_of("x264");
    request.SetInt32("b_frames", GetParam().bFrames);
    Road road(request);
    std::vector<long long> times;
    long long time = 90000;
    for (std::size_t i = 0; i < kPictures; ++i) {
        times.push_back(time);
        road.Write(pictures[i], time);
        time += GetParam().steps[i % GetParam().steps.size()];
    }
    bool reordered = false;
    for (std::size_t i = 0; i < road.fBuffers.size(); ++i) {
        const VideoBuffer& buffer = road.fBuffers[i];
        EXPECT_NEAR(buffer->BufferTimeInMilliseconds() * 30, static_cast<double>(times[i]), 1e-6);
        EXPECT_EQ(buffer->Duration(), times[i + 1] - times[i]);
        // The first write was at 3000 ms, and so is the first buffer.
        EXPECT_EQ(buffer->fSyncTime, static_cast<long long>(buffer->BufferTimeInMilliseconds()));
        reordered |= buffer->DisplayOffsetRelativeToDuration() != 0;
    }
    EXPECT_EQ(reordered, GetParam().bFrames > 0);
    EXPECT_TRUE(road.fBuffers[0]->IsKeyFrame());
}

// 50000 bytes a second; the encoder stays far below it.
TEST(X264RoadAtAStrictRate, EverySecondReachesTheTargetAndTheStreamDecodes) {
    constexpr int kPictures = 200;
    constexpr unsigned int kTarget = 50000;
    tnMediaRecord request = request_of("x264");
    request.SetFloat('mfps', 30.0f);
    request.SetInt32('mtbr', 400);
    request.SetBool("strict_cbr", true);
    request.SetInt32("b_frames", 2);
    Road road(request);
    const auto pictures = moving_pictures(kPictures);
    for (int i = 0; i < kPictures; ++i) road.Write(pictures[static_cast<std::size_t>(i)], i * 1000);

    std::map<long long, unsigned int> seconds;
    std::size_t filled = 0;
    for (const VideoBuffer& buffer : road.fBuffers) {
        ASSERT_NE(buffer->Data(), nullptr);
        const long long ticks = std::llround(buffer->BufferTimeInMilliseconds() * 30);
        seconds[ticks / 30000] += buffer->DataSize();
        filled += ticks / 1000 % 30 == 29;
    }
    EXPECT_GE(filled, 5u);
    for (const auto& [second, bytes] : seconds) {
        if (second < static_cast<long long>(filled)) {
            EXPECT_EQ(bytes, kTarget) << "second " << second;
        }
    }
    const avCodecs::Decoded decoded =
        avCodecs::Decode(AV_CODEC_ID_H264, road.Description(), road.Coded());
    EXPECT_TRUE(decoded.clean);
    EXPECT_EQ(decoded.pictures.size(), road.fBuffers.size());

    // Filler changes no picture: the same encoder, straight, at the rate that it was given.
    avCodecs::X264 settings;
    settings.width = kWidth;
    settings.height = kHeight;
    settings.rate = {30000, 1001};
    settings.bFrames = 2;
    settings.bitRate = 190476;
    std::vector<unsigned char> description;
    const avCodecs::Decoded straight = avCodecs::Decode(
        AV_CODEC_ID_H264, description, avCodecs::EncodeX264(settings, pictures, description));
    for (const avCodecs::Picture& picture : decoded.pictures) {
        const auto number = static_cast<std::size_t>(picture.time / 1000);
        EXPECT_EQ(picture.hash, straight.pictures[number].hash) << "picture " << number;
    }
}

TEST(X264Settings, ComeFromTheRecord) {
    const struct {
        const char* what;
        void (*arrange)(tnMediaRecord&);
        std::map<std::string, long long> numbers;
        const char* profile;
    } rows[] = {
        {"nothing said",
         [](tnMediaRecord&) {},
         {{"Threads", 4}, {"BitRate", 0}, {"NumBFrames", 0}, {"MaxKeyFrameInterval", 30}},
         "high"},
        {"all said",
         [](tnMediaRecord& record) {
             record.SetInt32('mtbr', 5000);
             record.SetInt32("b_frames", 3);
             record.SetInt32("key_frame_rate", 48);
             record.SetInt32("encoder_threads", 2);
             record.SetUInt32('mpro', 'main');
         },
         {{"Threads", 2}, {"BitRate", 5000000}, {"NumBFrames", 3}, {"MaxKeyFrameInterval", 48}},
         "main"},
        {"out of bounds",
         [](tnMediaRecord& record) {
             record.SetInt32("key_frame_rate", 601);
             record.SetUInt32('mpro', 'base');
             record.SetInt32("b_frames", 3);
         },
         {{"NumBFrames", 0}, {"MaxKeyFrameInterval", 600}},
         "baseline"},
        {"below bounds",
         [](tnMediaRecord& record) { record.SetInt32("key_frame_rate", -1); },
         {{"MaxKeyFrameInterval", 1}},
         "high"},
        {"a strict rate",
         [](tnMediaRecord& record) {
             record.SetInt32('mtbr', 2100);
             record.SetBool("strict_cbr", true);
         },
         {{"BitRate", 1000000}},
         "high"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        orbDoubles::Script script;
        const orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> registered('h264',
                                                                                          script);
        tnX264VideoCompressor compressor;
        tnMediaRecord output = video_of('I420');
        output.SetCString('mcon', "x264");
        row.arrange(output);
        compressor.SetOutputFormat(output);
        ASSERT_TRUE(compressor.CreateFilter(video_of('I420')));
        for (const auto& [name, value] : row.numbers) {
            EXPECT_EQ(script.numbers["H264Compressor::" + name], value) << name;
        }
        EXPECT_EQ(script.texts["H264Compressor::Profile"], row.profile);
        EXPECT_EQ(script.texts["H264Compressor::Preset"], "veryfast");
        EXPECT_EQ(script.numbers["MediaFilter::OutputFormat"], 'h264');
    }
}

TEST(PlatformSettings, ComeFromTheRecord) {
    orbDoubles::Script script;
    const orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> registered('vtbx',
                                                                                      script);
    tnMediaRecord output = video_of('I420');
    output.SetCString('mcon', "Video Toolbox H.264");
    output.SetInt32('mtbr', 2100);
    output.SetBool("strict_cbr", true);
    {
        tnPlatformVideoCompressor compressor;
        compressor.SetOutputFormat(output);
        ASSERT_TRUE(compressor.CreateFilter(video_of('I420')));
    }
    EXPECT_EQ(script.numbers["VideoToolboxCompressor::Profile"], 77);
    EXPECT_EQ(script.numbers["VideoCompressor::BitRate"], 2100000);
    EXPECT_EQ(script.numbers["VideoToolboxCompressor::KeyFrameInterval"], 240);
    EXPECT_EQ(script.numbers["VideoToolboxCompressor::MaximumBitrate"], 1000000);
    script.numbers.clear();
    output.SetBool("strict_cbr", false);
    output.SetInt32("key_frame_rate", 0);
    output.SetUInt32('mpro', 'high');
    tnPlatformVideoCompressor compressor;
    compressor.SetOutputFormat(output);
    ASSERT_TRUE(compressor.CreateFilter(video_of('I420')));
    EXPECT_EQ(script.numbers["VideoToolboxCompressor::Profile"], 100);
    EXPECT_EQ(script.numbers.count("VideoToolboxCompressor::KeyFrameInterval"), 0u);
    EXPECT_EQ(script.numbers.count("VideoToolboxCompressor::MaximumBitrate"), 0u);
}

TEST(MjpegSettings, ComeFromTheQualityName) {
    const struct {
        const char* name;
        int quality;
    } rows[] = {{"mjpeg_best", 98}, {"mjpeg_high", 88}, {"mjpeg_medium", 75},
                {"mjpeg_low", 55},  {"other", 88},      {"", 88}};
    for (const auto& row : rows) {
        orbDoubles::Script script;
        const orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> registered('mjpg',
                                                                                          script);
        tnMjpegVideoCompressor compressor;
        tnMediaRecord output = video_of('I420');
        output.SetCString('mcon', "MJPEG");
        output.SetCString("codec_quality", row.name);
        compressor.SetOutputFormat(output);
        ASSERT_TRUE(compressor.CreateFilter(video_of('I420')));
        EXPECT_EQ(script.numbers["JpegCompressor::Quality"], row.quality) << row.name;
    }
}

// The component is told what enters it, which behind a converter is not what the host writes.
TEST(ComponentVideoCompressor, ToldWhatReallyEnters) {
    orbDoubles::Script script;
    script.inputFormats = {'I420'};
    const orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> registered('h264',
                                                                                      script);
    orbDoubles::Script converting;
    const orbDoubles::Registered<CVideoConverter, orbDoubles::Converter> converter('vfc ',
                                                                                   converting);
    tnX264VideoCompressor compressor;
    compressor.SetOutputFormat(request_of("x264"));
    tnMediaRecord input = video_of('2vuy');
    input.fNominalRange.SetInt32('full');
    input.fColorSpace.SetInt32('r709');
    input.fFieldOrder.SetInt32(3);
    ASSERT_TRUE(compressor.CreateFilter(input));
    EXPECT_EQ(script.begun, 1);
    EXPECT_EQ(script.input->GetFormat(), static_cast<unsigned int>('I420'));
    EXPECT_EQ(script.input->GetColorSpace(), ColorSpace::BT709) << "as the record says";
    EXPECT_EQ(script.input->GetVideoRange(), 2);
    EXPECT_EQ(script.input->GetFieldOrder(), 3);
    EXPECT_EQ(script.input->GetFrameDuration(), 1001);
}

TEST(ComponentVideoCompressor, WithoutItsComponentFramesAreAnsweredSo) {
    orbDoubles::Script script;
    orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> none('h264', script);
    none.GiveNull();
    tnX264VideoCompressor compressor;
    const tnMediaRecord output = request_of("x264");
    EXPECT_EQ(compressor.Create(output, output, nullptr), -1);
    const auto frame = StreamBufferOf(kWidth * kHeight * 2);
    frame->AddWritingRef();
    EXPECT_EQ(compressor.EncodeFrame(*frame, video_of('I420'), 0, false, nullptr, nullptr), -1044);
}

// Whatever name a host registers it under, H.264 has a description and ProRes none.
TEST(ComponentVideoCompressor, KnowsH264ByWhatItMakes) {
    tnX264VideoCompressor compressor;
    compressor.SetOutputFormat(request_of("our codec"));
    ASSERT_TRUE(compressor.CreateFilter(video_of('I420')));
    EXPECT_NE(compressor.DecoderInfo(), nullptr);
}

TEST(NvencVideoCompressor, SaysWhenThereIsNoDevice) {
    const RObject<CVideoCompressor> component(
        CComponentInventory<CComponentFactory<CVideoCompressor>>::CreateInstance('nven'));
    ASSERT_TRUE(component);
    const bool there = component->SetOutputFormat('h264').Succeeded();
    tnNvencVideoCompressor compressor;
    compressor.SetOutputFormat(request_of("NVidia H.264"));
    ASSERT_TRUE(compressor.CreateFilter(video_of('NV12')));
    const auto frame = StreamBufferOf(kWidth * kHeight * 2);
    frame->AddWritingRef();
    EXPECT_EQ(compressor.EncodeFrame(*frame, video_of('NV12'), 0, false, nullptr, nullptr),
              there ? 0 : -1034);
}

struct RealCodec {
    const char* name;
    unsigned int raster;
    AVCodecID decoder;
    bool description;

    friend std::ostream& operator<<(std::ostream& out, const RealCodec& codec) {
        return out << codec.name;
    }
};

class RealCodecs : public testing::TestWithParam<RealCodec> {};

std::string name_of(const testing::TestParamInfo<RealCodec>& row) {
    std::string name = row.param.name;
    std::erase_if(name, [](char c) { return !std::isalnum(c); });
    switch (row.param.raster) {
        case '2vuy':
            return name + "From422";
        case 'rgb ':
            return name + "FromRgb";
        case 'NV12':
            return name + "FromNv12";
        default:
            return name + "From420";
    }
}

INSTANTIATE_TEST_SUITE_P(Straight, RealCodecs,
                         testing::Values(RealCodec{"x264", 'I420', AV_CODEC_ID_H264, true},
                                         RealCodec{"x264", 'NV12', AV_CODEC_ID_H264, true},
                                         RealCodec{"Video Toolbox H.264", 'NV12', AV_CODEC_ID_H264,
                                                   true},
                                         RealCodec{"MJPEG", 'I420', AV_CODEC_ID_MJPEG, false},
                                         RealCodec{"ProRes", '2vuy', AV_CODEC_ID_PRORES, false},
                                         RealCodec{"ProRes", 'I420', AV_CODEC_ID_PRORES, false}),
                         name_of);

INSTANTIATE_TEST_SUITE_P(Converted, RealCodecs,
                         testing::Values(RealCodec{"x264", '2vuy', AV_CODEC_ID_H264, true},
                                         RealCodec{"x264", 'rgb ', AV_CODEC_ID_H264, true},
                                         RealCodec{"Video Toolbox H.264", 'I420', AV_CODEC_ID_H264,
                                                   true},
                                         RealCodec{"MJPEG", '2vuy', AV_CODEC_ID_MJPEG, false}),
                         name_of);

TEST_P(RealCodecs, DecodeFrameByFrame) {
    constexpr int kPictures = 50;
    Road road(request_of(GetParam().name), GetParam().raster);
    const int raster = static_cast<int>(GetParam().raster);
    const auto size = static_cast<std::size_t>(tnRasterType::ActiveBytesPerRow(kWidth, raster) *
                                               tnRasterType::RowCount(kHeight, raster));
    for (int i = 0; i < kPictures; ++i) {
        std::vector<unsigned char> picture = avCodecs::MovingI420(kWidth, kHeight, i);
        picture.resize(size, 128);
        road.Write(picture, i * 1001);
    }
    ASSERT_GT(road.fBuffers.size(), 15u);
    EXPECT_EQ(road.Description().empty(), !GetParam().description);
    const avCodecs::Decoded decoded =
        avCodecs::Decode(GetParam().decoder, road.Description(), road.Coded());
    EXPECT_TRUE(decoded.clean);
    EXPECT_EQ(decoded.width, kWidth);
    EXPECT_EQ(decoded.height, kHeight);
    ASSERT_EQ(decoded.pictures.size(), road.fBuffers.size());
    for (std::size_t i = 0; i < decoded.pictures.size(); ++i) {
        EXPECT_EQ(decoded.pictures[i].time, static_cast<long long>(i) * 1001);
    }
}

}  // namespace
