// The earlier movie file writer's set-up: from format records to tracks.

#include <cmath>
#include <string>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CAudioProperties.h"
#include "orb/CByteArray.h"
#include "orb/CComponentInventory.h"
#include "orb/CContainerReaderVideoProperties.h"
#include "orb/CContainerWriter.h"
#include "orb/CVideoConverter.h"
#include "orb/CVideoFilter.h"
#include "orb/CVideoSample.h"
#include "orb/CodeBookProperty.h"
#include "orb/ContainerProperty.h"
#include "tarn/audio/tnOrbAudio.h"
#include "tarn/foundation/tnRasterType.h"
#include "tarn/writers/tnWriteORB.h"
#include "tarn/writers/writerCodecs.h"
#include "tarn/writers/writerParts.h"

using namespace Quillon::Orb;

namespace {

constexpr int kFirstHdHeight = 720;
constexpr int kRangeLimited = 1;
constexpr int kBestJpegQuality = 100;

constexpr int kSampleRate = 48'000;
constexpr int kChannels = 2;
constexpr int kBitsPerSample = 16;

/// Fewer raster types than the rest of the library knows: this writer's add-ons give no others.
unsigned int format_of(int rasterType) {
    switch (rasterType) {
        case '2vuy':
            return 'UYVY';
        case 'yuvs':
            return 'YUYV';
        case 'rgb ':
        case 'rgba':
            return 'BGRA';
        case 'I420':
        case 'NV12':
            return static_cast<unsigned int>(rasterType);
        default:
            return 0;
    }
}

/// By the picture's size alone: the colour space that records name came later than this writer.
ColorSpace colour_of(const tnMediaRecord& source) {
    if (source.fHeight.AsInt32(0) >= kFirstHdHeight) return ColorSpace::BT709;
    const float rate = source.AsFloat('mfps', 0.0f);
    const bool isPal = (rate >= 25.0f && rate < 26.0f) || (rate >= 50.0f && rate < 51.0f);
    return isPal ? ColorSpace::BT601P : ColorSpace::BT601N;
}

/// Ticks, cut to a whole number; 0 where the record does not tell a rate.
long long frame_duration_of(const tnMediaRecord& encoded) {
    const float ticks =
        static_cast<float>(encoded.AsInt64('tmsc', 0)) / encoded.AsFloat('mfps', 0.0f);
    constexpr float kBeyondAllTicks = 9.2e18f;
    return std::fabs(ticks) < kBeyondAllTicks ? static_cast<long long>(ticks) : 0;
}

}  // namespace

// Each step has its place: components are set up between the track's making and its beginning.
bool tnWriteORB::complete_initialization_for_video() {
    const RObject<Properties> source(new Properties(nullptr));
    if (!source || !describe_source(*source)) return false;
    Codec codec;
    unsigned int inputFormat = source->GetFormat();
    if (!choose_codec(*source, codec, inputFormat)) return false;
    if (!make_video_track(*source, codec, inputFormat)) return false;
    if (fEncodedVideoFormat.AsString('mcon', "") == "MJPEG") {
        const RObject<CVideoFilter> compressor(fVideoWriter->GetCompressor());
        const int quality = JpegQuality(fEncodedVideoFormat, kBestJpegQuality);
        if (compressor->SetProperty(CodeBookProperty::JpegCompressor::Quality, quality).Failed()) {
            return false;
        }
    }
    return fAssetWriter->AddVideoWriter(fVideoWriter.Get()).Succeeded() && tune_container() &&
           fVideoWriter->Begin().Succeeded();
}

bool tnWriteORB::describe_source(Properties& source) const {
    const tnMediaRecord& encoded = fEncodedVideoFormat;
    const unsigned int format = format_of(fSourceVideoFormat.fColourspace.AsInt32(0));
    return source.SetTimescale(encoded.AsInt64('tmsc', 0)).Succeeded() &&
           source.SetWidth(encoded.fWidth.AsInt32(0)).Succeeded() &&
           source.SetHeight(encoded.fHeight.AsInt32(0)).Succeeded() &&
           source.SetFrameDuration(frame_duration_of(encoded)).Succeeded() &&
           source.SetFieldOrder(1).Succeeded() &&
           (format == 0 || source.SetFormat(format).Succeeded()) &&
           source.SetColorSpace(colour_of(fSourceVideoFormat)).Succeeded();
}

// A name that is neither leaves both codes at 0. Set-up goes on all the same: what comes of it is
// the media library's answer, which hosts have always had.
bool tnWriteORB::choose_codec(Properties& source, Codec& codec, unsigned int& inputFormat) {
    const std::string name = fEncodedVideoFormat.AsString('mcon', "");
    if (name == "ProRes") {
        codec = {ProResFlavour(fEncodedVideoFormat, 'apcn'), 'vtbx'};
        fWrapFrames = true;
        return true;
    }
    if (name != "MJPEG") return true;
    codec = {'jpeg', 'mjpg'};
    fWrapFrames = true;
    if (inputFormat == 'NV12') {
        inputFormat = 'I420';
    } else if (!tnRasterType::IsPlanarFormat(fSourceVideoFormat.fColourspace.AsInt32(0))) {
        inputFormat = 'I422';
    }
    return place_converter(source, inputFormat);
}

// It stands there even where both formats are one: the copy that it makes is what lets go of the
// add-on's bytes at once.
bool tnWriteORB::place_converter(Properties& source, unsigned int inputFormat) {
    fVideoConverter = RObject<CVideoConverter>(
        CComponentInventory<CComponentFactory<CVideoConverter>>::GetSingleton().CreateInstance(
            'vfc '));
    return fVideoConverter && fVideoConverter->SetInputProperties(&source).Succeeded() &&
           fVideoConverter->SetOutputFormat(inputFormat).Succeeded() &&
           fVideoConverter->Begin().Succeeded();
}

bool tnWriteORB::make_video_track(Properties& source, const Codec& codec,
                                  unsigned int inputFormat) {
    const RObject<Properties> output(new Properties(&source));
    if (!output) return false;
    // Players take ProRes as limited range whatever a file says.
    const bool isProRes = fWrapFrames && !fVideoConverter;
    if (isProRes && output->SetVideoRange(kRangeLimited).Failed()) return false;
    if (output->SetFormat(codec.fTrackFormat).Failed()) return false;
    if (output->SetColorSpace(colour_of(fSourceVideoFormat)).Failed()) return false;
    fVideoWriter = RObject<CAssetVideoCompressor>(
        new CAssetVideoCompressor(output.Get(), codec.fCompressorCode));
    return fVideoWriter && fVideoWriter->SetInputFormat(inputFormat).Succeeded();
}

bool tnWriteORB::tune_container() {
    namespace Key = ContainerProperty::Mpeg4ContainerWriter;
    const RObject<CContainerWriter> container(fVideoWriter->GetContainerWriter());
    return container && container->SetProperty(Key::FastStart, true).Succeeded() &&
           container->SetProperty(Key::TrimAudio, true).Succeeded() &&
           (fMoovRate == 0 || container->SetProperty(Key::MoovRate, fMoovRate).Succeeded());
}

bool tnWriteORB::complete_initialization_for_audio() {
    RObject<CAudioProperties> properties;
    if (OrbAudioPropertiesFromMediaRecord(fEncodedAudioFormat, properties) != 0) return false;
    // No channels, no packets: such sound cannot be counted.
    if (properties->GetBytesPerPacket() < 1) return false;

    // What arrives is the host's mix, whatever the host says of it.
    fSourceAudioFormat = fEncodedAudioFormat;
    fSourceAudioFormat.SetInt64('tmsc', kSampleRate, 0);
    fSourceAudioFormat.fSampleRate.SetInt32(kSampleRate);
    fSourceAudioFormat.fBusses.SetInt32(1);
    fSourceAudioFormat.fChannels.SetInt32(kChannels);
    fSourceAudioFormat.fBitsPerSample.SetInt32(kBitsPerSample);
    if (MakeAudioConversion(fSourceAudioFormat, fEncodedAudioFormat, fAudioConverter,
                            fConvertBuffer, fConvertBufferSize) != 0) {
        return false;
    }
    fBytesPerPacket = properties->GetBytesPerPacket();

    const unsigned int mask = fEncodedAudioFormat.AsUInt16("audio_output_track_mask", 0);
    for (int track = 0; track < kAudioTracks; ++track) {
        if ((mask >> track & 1u) != 0 && !make_audio_track(*properties, track)) return false;
    }
    return true;
}

bool tnWriteORB::make_audio_track(CAudioProperties& properties, int track) {
    auto& writer = fAudioWriters[track];
    writer = RObject<CAssetAudioWriter>(new CAssetAudioWriter(&properties));
    if (!writer || writer->SetInputFormat(properties.GetFormat()).Failed()) return false;
    if (fAssetWriter->AddAudioWriter(writer.Get()).Failed()) return false;
    // A track that has nothing to begin says that it does not support it, and is as good.
    const Result begun = writer->Begin();
    return begun.Succeeded() || static_cast<int>(begun) == ResultNotSupported::kCode;
}
