// The audio side of a movie file writer: its track, the conversion in front of it, its packets.

#include <string>

#include "orb/CAssetAudioCompressor.h"
#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetWriter.h"
#include "orb/CAudioCompressor.h"
#include "orb/CAudioSample.h"
#include "orb/CContainerReaderAudioProperties.h"
#include "orb/CodeBookProperty.h"
#include "spar/zCritical.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/audio/tnOrbAudio.h"
#include "tarn/writers/tnWriteORB2.h"
#include "tarn/writers/writerErrors.h"
#include "tarn/writers/writerParts.h"

using namespace Quillon::Orb;

namespace {

constexpr int kAacBitRate = 128000;
constexpr int kConstantBitRate = 0;

}  // namespace

int tnWriteORB2::complete_initialization_for_audio() {
    // The encoded record describes PCM even when the file's audio is compressed: it is what enters
    // the compressor.
    RObject<CAudioProperties> properties;
    if (OrbAudioPropertiesFromMediaRecord(fEncodedAudioFormat, properties) != 0)
        return kWriterFormat;

    // No channels, no packets: such sound cannot be counted.
    if (properties->GetBytesPerPacket() < 1) return kWriterFormat;

    if (MakeAudioConversion(fSourceAudioFormat, fEncodedAudioFormat, fAudioConverter,
                            fConvertBuffer, fConvertBufferSize) != 0) {
        return kWriterAudioConverter;
    }
    fBytesPerPacket = properties->GetBytesPerPacket();

    const std::string codec = fEncodedAudioFormat.AsString('mcon', "");
    const int code = codec == "MPEG-4 Audio" ? make_compressed_audio_track(properties.Get())
                                             : make_plain_audio_track(properties.Get());
    if (code != 0) return code;
    if (fAssetWriter->AddAudioWriter(fAudioWriter.Get()).Failed()) return kWriterAudioTrack;
    if (fAudioWriter->Begin().Failed()) return kWriterAudioBegin;
    fAudioRate = fEncodedAudioFormat.fSampleRate.AsInt32(0);
    return 0;
}

int tnWriteORB2::make_compressed_audio_track(CAudioProperties* properties) {
    const RObject<CContainerReaderAudioProperties> output(
        new CContainerReaderAudioProperties(properties));
    if (!output) return kWriterNoAudioTrack;
    output->SetFormat('mp4a');
    const RObject<CAssetAudioCompressor> track(new CAssetAudioCompressor(output.Get(), 'caac'));
    if (!track) return kWriterNoAudioTrack;
    if (track->SetInputFormat(properties->GetFormat()).Failed()) return kWriterTrackRefused;

    // The rate of AAC is fixed: the record's target rate is about its video.
    const RObject<CAudioFilter> compressor(track->GetCompressor());
    const bool configured =
        compressor &&
        compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, kAacBitRate)
            .Succeeded() &&
        compressor
            ->SetProperty(CodeBookProperty::CoreAudioCompressor::RateControlMethod,
                          kConstantBitRate)
            .Succeeded();
    if (!configured) return kWriterAudioTrack;
    fAudioWriter.SafeAcquire(track);
    return 0;
}

int tnWriteORB2::make_plain_audio_track(CAudioProperties* properties) {
    fAudioWriter = RObject<CAssetAudioWriter>(new CAssetAudioWriter(properties));
    if (!fAudioWriter) return kWriterNoAudioTrack;
    const Result taken = fAudioWriter->SetInputFormat(properties->GetFormat());
    return taken.Failed() ? kWriterAudioTrack : 0;
}

int tnWriteORB2::WriteAudioPacket(tnAudioCompressor2::EncodedBuffer* buffer, int, long long,
                                  const unsigned char* data, int size) {
    const int code = initialize_if_needed();
    if (code != 0) return code;
    const zCriticalLock lock(*fAudioLock);
    if (!fAudioWriter || !fAssetWriter) return kWriterNoFile;

    writerBlock block = BlockOf(data, size, fBytesPerPacket);
    if (fAudioConverter && ConvertBlock(*fAudioConverter, fConvertBuffer, fConvertBufferSize,
                                        fBytesPerPacket, block) < 0) {
        return kWriterAudioConversion;
    }

    const long long before = fAudioWriter->GetBytesWritten();
    const RObject<CAudioSample> sample(new CAudioSample(block.fPackets));
    // Without this a block for which there is no memory would be the null that ends the track.
    if (!sample) return kWriterAudioSample;
    ORB_SetAudioSampleData(sample, block.fData, block.fBytes, true);
    if (fAudioWriter->WriteSample(sample.Get()).Failed()) return kWriterAudioSample;
    ++fAudioPacketsWritten;
    buffer->SetBytesWritten(static_cast<int>(fAudioWriter->GetBytesWritten() - before));
    return 0;
}
