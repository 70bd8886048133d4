#include "CutWriter.h"

#include <fmt/format.h>

#include "orb/CAudioSample.h"
#include "orb/CByteArray.h"
#include "orb/CContainerReaderAudioProperties.h"
#include "orb/CContainerReaderVideoProperties.h"
#include "orb/CContainerWriter.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/CString.h"
#include "orb/CVideoSample.h"
#include "orb/ContainerProperty.h"
#include "tarn/audio/tnOrbAudio.h"
#include "tarn/writers/orbConversions.h"

#include "../movieContainer.h"

using namespace Quillon::Orb;

namespace {

constexpr int kContainerQueue = 256;

RObject<CByteArray> copy_of(const unsigned char* data, std::size_t size) {
    return RObject<CByteArray>(new CByteArray(data, static_cast<int>(size)));
}

unsigned int format_of(const SegmentFormat& track) {
    switch (track.codec) {
        case AV_CODEC_ID_H264:
            return 'avc1';
        case AV_CODEC_ID_MJPEG:
            return 'jpeg';
        case AV_CODEC_ID_MPEG2VIDEO:
            return 'mp2v';
        default:
            return track.tag;
    }
}

}  // namespace

bool CutWriter::failed(const Result& result, std::string& error) const {
    if (!result.Failed()) return false;
    error =
        fmt::format("'{}': cannot be written; is its folder there, writable and not full?", fPath);
    return true;
}

bool CutWriter::Open(const std::string& path, const SegmentFormat& pictures,
                     const tnMediaRecord& video, const SegmentFormat& sound,
                     const tnMediaRecord& audio, long long start, int primed, std::string& error) {
    fPath = path;
    fStart = start;
    fAsset = new CAssetWriter();
    const RObject<CString> name(new CString(path.c_str()));
    if (failed(fAsset->Create(ContainerOf(path), name.Get()), error)) return false;
    if (!add_pictures(pictures, video)) {
        error = fmt::format("'{}': this kind of file takes no such pictures; try .mov", path);
        return false;
    }
    if (sound.IsThere() && !add_sound(sound, audio, primed)) {
        error = fmt::format("'{}': this kind of file takes no such sound; try .mov", path);
        return false;
    }
    namespace Key = ContainerProperty::Mpeg4ContainerWriter;
    const RObject<CContainerWriter> container(fAsset->GetContainerWriter());
    container->SetQueueSize(kContainerQueue);
    container->SetProperty(Key::FastStart, true);
    container->SetProperty(Key::TrimAudio, true);
    return !failed(fAsset->Begin(), error);
}

void CutWriter::announce(CMediaProperties& properties) const {
    const auto ticks = fSeconds * static_cast<double>(properties.GetTimescale());
    properties.SetDuration(static_cast<long long>(ticks));
}

bool CutWriter::add_pictures(const SegmentFormat& track, const tnMediaRecord& format) {
    RObject<CVideoProperties> properties(new CContainerReaderVideoProperties(nullptr));
    if (!MediaRecordToVideoProperties(format_of(track), format, properties)) return false;
    properties->SetWidth(track.width);
    properties->SetHeight(track.height);
    properties->SetTimescale(track.timescale);
    if (track.codec == AV_CODEC_ID_H264) {
        const RObject<CMpeg4AvcProperties> avc(new CMpeg4AvcProperties());
        const RObject<CByteArray> info =
            copy_of(track.decoderInfo.data(), track.decoderInfo.size());
        if (avc->SetDecoderInfo(info.Get()).Failed()) return false;
        properties->SetExtension('h264', avc.Get());
    }
    announce(*properties);
    fPictures = new CAssetVideoWriter(properties.Get());
    return fAsset->AddVideoWriter(fPictures.Get()).Succeeded() && fPictures->Begin().Succeeded();
}

bool CutWriter::add_sound(const SegmentFormat& track, const tnMediaRecord& format, int primed) {
    RObject<CAudioProperties> properties;
    fFrameBytes = track.frameBytes;
    fFramesPerPacket = track.frameBytes > 0 ? 1 : track.framesPerPacket;
    if (track.frameBytes > 0) {
        if (OrbAudioPropertiesFromMediaRecord(format, properties) != 0) return false;
    } else {
        properties = new CContainerReaderAudioProperties(nullptr);
        properties->SetFormat('mp4a');
        properties->SetSampleRate(track.timescale);
        properties->SetChannels(track.channels);
        properties->SetBitsPerSample(16);
        properties->SetFramesPerPacket(track.framesPerPacket);
        properties->SetPrimingFrames(primed);
        const RObject<CDecoderSpecificProperties> info(new CDecoderSpecificProperties());
        info->SetDecoderInfo(copy_of(track.decoderInfo.data(), track.decoderInfo.size()).Get());
        properties->SetExtension('mspe', info.Get());
    }
    announce(*properties);
    fSound = new CAssetAudioWriter(properties.Get());
    return fAsset->AddAudioWriter(fSound.Get()).Succeeded() && fSound->Begin().Succeeded();
}

bool CutWriter::WritePicture(const SegmentPacket& packet, long long shift, std::string& error) {
    const int type = packet.isKey ? CVideoSample::kKeyPicture : CVideoSample::kReferencePicture;
    const RObject<CVideoSample> sample(new CVideoSample(type, packet.duration, 0));
    sample->SetTime(packet.decode - shift - fStart);
    sample->SetCompositionOffset(packet.show - packet.decode);
    const RObject<CByteArray> bytes =
        copy_of(packet.bytes->data, static_cast<std::size_t>(packet.bytes->size));
    const RObject<CMemoryDataReference> data(new CMemoryDataReference(bytes.Get()));
    sample->SetDataReference(data.Get());
    return !failed(fPictures->WriteSample(sample.Get()), error);
}

bool CutWriter::WriteSound(const SegmentPacket& packet, int skip, std::string& error) {
    const int size = packet.bytes->size - skip;
    if (!fSound || size <= 0) return true;
    const RObject<CAudioSample> sample(new CAudioSample(fFrameBytes > 0 ? size / fFrameBytes : 1));
    if (fFrameBytes == 0) sample->SetDuration(fFramesPerPacket);
    const RObject<CByteArray> bytes =
        copy_of(packet.bytes->data + skip, static_cast<std::size_t>(size));
    const RObject<CMemoryDataReference> data(new CMemoryDataReference(bytes.Get()));
    sample->SetDataReference(data.Get());
    return !failed(fSound->WriteSample(sample.Get()), error);
}

bool CutWriter::Finish(std::string& error) {
    fPictures->WriteSample(nullptr);
    if (fSound) fSound->WriteSample(nullptr);
    return !failed(fAsset->Finish(), error);
}
