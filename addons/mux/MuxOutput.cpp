#include "addons/mux/MuxOutput.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "orb/CAudioSample.h"
#include "orb/CByteArray.h"
#include "orb/CContainerReaderAudioProperties.h"
#include "orb/CContainerReaderVideoProperties.h"
#include "orb/CContainerWriter.h"
#include "orb/CDecoderSpecificProperties.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/CString.h"
#include "orb/CVideoSample.h"
#include "orb/ContainerProperty.h"
#include "orb/VideoFormat.h"
#include "spar/trace.h"
#include "tarn/audio/tnOrbAudio.h"
#include "tarn/writers/orbConversions.h"
#include "tarn/writers/writerErrors.h"

using namespace Quillon::Orb;

namespace {

constexpr double kMsPerSecond = 1000.0;
constexpr double kDefaultSeconds = 3600.0;
constexpr int kContainerQueue = 256;
/// More than a minute of pictures and sound; nobody waits for this output.
constexpr MovieOutput::Room kRoom = {16384, std::size_t{256} << 20, false};
constexpr int kAacPacket = 'mp4a';

/// Keeps a shared buffer while the media library holds its bytes.
template <class Buffer>
class BufferKeeper final : public CObject {
public:
    explicit BufferKeeper(std::shared_ptr<Buffer> buffer)
        : CObject('keep', nullptr), fBuffer(std::move(buffer)) {}

private:
    const std::shared_ptr<Buffer> fBuffer;
};

/// The bytes where they are, alive as long as anybody holds the reference.
template <class Buffer>
RObject<CMemoryDataReference> bytes_of(const std::shared_ptr<Buffer>& owner,
                                       const unsigned char* data, std::size_t size) {
    const RObject<CObject> keeper(new BufferKeeper<Buffer>(owner));
    const RObject<CByteArray> bytes(
        new CByteArray(static_cast<int>(size), const_cast<unsigned char*>(data), keeper.Get()));
    return RObject<CMemoryDataReference>(new CMemoryDataReference(bytes.Get()));
}

RObject<CByteArray> copy_of(const std::vector<unsigned char>& bytes) {
    return RObject<CByteArray>(new CByteArray(bytes.data(), static_cast<int>(bytes.size())));
}

}  // namespace

MuxOutput::MuxOutput(unsigned int containerType, Settings settings)
    : MovieOutput(std::move(settings), kRoom), fContainerType(containerType) {}

MuxOutput::~MuxOutput() = default;

int MuxOutput::Open() {
    fAsset = new CAssetWriter();
    const RObject<CString> path(new CString(fSettings.where.c_str()));
    return fAsset->Create(fContainerType, path.Get()).Failed() ? kWriterNoFile : 0;
}

long long MuxOutput::BytesWritten(bool ofPictures) const {
    if (ofPictures) {
        const CAssetVideoWriter* track = fPictureBytes.load();
        return track ? track->GetBytesWritten() : 0;
    }
    const CAssetAudioWriter* track = fSoundBytes.load();
    return track ? track->GetBytesWritten() : 0;
}

bool MuxOutput::takes_picture(tnVideoCompressor::EncodedBuffer& buffer) {
    // Rendered here, where the encoder stands still, and once for all who share the buffer.
    return buffer.Data() != nullptr;
}

// Streams of transport packets have no place for the rest.
bool MuxOutput::is_streamable(unsigned int format) const {
    if (fContainerType != 'ts  ') return true;
    return VideoFormat::GetCanonicalFormat(format) == 'h264' || format == 'mp2v' ||
           format == 'mp4a';
}

int MuxOutput::begin_file(const MovieStart& start) {
    fStartTicks = start.Ticks();
    fSoundStartMs = start.TimeMs() - start.OnLine(0);
    fPictureLine.BeginAt(start.TimeMs());
    fSoundLine.BeginAt(fSoundStartMs);
    if (start.HasPictures()) {
        const MediaItem& first = start.Pictures().front();
        if (!first.format) return kWriterFormat;
        fTicksPerMs = first.TicksPerMs();
        const int code = make_picture_track(*first.format);
        if (code != 0) return code;
    }
    if (start.HasSound()) {
        const int code = make_sound_track(start);
        if (code != 0) return code;
    }
    namespace Key = ContainerProperty::Mpeg4ContainerWriter;
    const RObject<CContainerWriter> container(fAsset->GetContainerWriter());
    container->SetQueueSize(kContainerQueue);
    if (fContainerType != 'ts  ') {
        container->SetProperty(Key::FastStart, true);
        container->SetProperty(Key::TrimAudio, true);
        if (fSettings.moovRate > 0) container->SetProperty(Key::MoovRate, fSettings.moovRate);
    }
    if (fAsset->Begin().Failed()) return kWriterNoFile;
    fHasFile = true;
    return 0;
}

void MuxOutput::announce_length(CMediaProperties* properties) const {
    const double seconds =
        fSettings.expectedSeconds > 0 ? fSettings.expectedSeconds : kDefaultSeconds;
    properties->SetDuration(
        static_cast<long long>(seconds * static_cast<double>(properties->GetTimescale())));
}

int MuxOutput::make_picture_track(const TrackFormat& format) {
    RObject<CVideoProperties> properties(new CContainerReaderVideoProperties(format.picture.Get()));
    if (!format.picture && !MediaRecordToVideoProperties('avc1', format.output, properties)) {
        return kWriterFormat;
    }
    const long long scale = format.output.AsInt64('tmsc', 0);
    if (scale > 0) properties->SetTimescale(scale);
    if (!is_streamable(properties->GetFormat())) return kWriterNoVideoTrack;
    const bool isH264 = VideoFormat::GetCanonicalFormat(properties->GetFormat()) == 'h264';
    if (isH264 && format.decoderInfo && !format.decoderInfo->empty()) {
        const RObject<CMpeg4AvcProperties> avc(new CMpeg4AvcProperties());
        if (avc->SetDecoderInfo(copy_of(*format.decoderInfo).Get()).Failed()) return kWriterFormat;
        properties->SetExtension('h264', avc.Get());
    }
    // Without its parameter sets no decoder could do anything with the file.
    if (isH264 && !RObject<CDecoderSpecificProperties>(properties->GetExtension('h264'))) {
        return kWriterFormat;
    }
    announce_length(properties.Get());
    fPictures = new CAssetVideoWriter(properties.Get());
    if (fAsset->AddVideoWriter(fPictures.Get()).Failed()) return kWriterTrackRefused;
    if (fPictures->Begin().Failed()) return kWriterVideoBegin;
    fPictureBytes.store(fPictures.Get());
    return 0;
}

int MuxOutput::make_sound_track(const MovieStart& start) {
    if (start.Sound().empty() || !start.Sound().front().format) return kWriterNoAudioTrack;
    const MediaItem& first = start.Sound().front();
    fSoundRate = first.format->output.fSampleRate.AsInt32(0);
    if (fSoundRate <= 0) return kWriterNoAudioTrack;
    if (first.sound->CodecType() == kAacPacket) return make_aac_track(start);
    fIsPcm = true;
    RObject<CAudioProperties> properties;
    if (OrbAudioPropertiesFromMediaRecord(first.format->output, properties) != 0 ||
        !is_streamable(properties->GetFormat())) {
        return kWriterNoAudioTrack;
    }
    fFrameBytes = static_cast<std::size_t>(std::max(properties->GetBytesPerPacket(), 1));
    fFirstSoundMs = fSoundStartMs;
    return add_sound_track(*properties);
}

// The file is told how much of its first packets lies before the start, so that sound begins with
// the picture to the sample. Decoders of AAC need one packet of run-up, which is part of that.
int MuxOutput::make_aac_track(const MovieStart& start) {
    const TrackFormat& format = *start.Sound().front().format;
    const double packetMs = kMsPerSecond * format.framesPerPacket / fSoundRate;
    fFirstSoundMs = start.Sound().front().startMs;
    for (const MediaItem& item : start.Sound()) {
        for (int i = 0; i < item.sound->PacketCount(); ++i) {
            const double time = item.sound->Timestamp(i);
            if (time + packetMs <= fSoundStartMs) fFirstSoundMs = std::max(fFirstSoundMs, time);
        }
    }
    const double beforeMs = std::clamp(fSoundStartMs - fFirstSoundMs, 0.0, kMsPerSecond);

    RObject<CAudioProperties> properties(new CContainerReaderAudioProperties(nullptr));
    properties->SetFormat('mp4a');
    properties->SetSampleRate(static_cast<int>(fSoundRate));
    properties->SetChannels(format.output.fChannels.AsInt32(0));
    properties->SetBitsPerSample(16);
    properties->SetFramesPerPacket(format.framesPerPacket);
    properties->SetPrimingFrames(
        static_cast<int>(std::lround(beforeMs * fSoundRate / kMsPerSecond)));
    if (format.decoderInfo) {
        const RObject<CDecoderSpecificProperties> info(new CDecoderSpecificProperties());
        info->SetDecoderInfo(copy_of(*format.decoderInfo).Get());
        properties->SetExtension('mspe', info.Get());
    }
    return add_sound_track(*properties);
}

int MuxOutput::add_sound_track(CAudioProperties& properties) {
    announce_length(&properties);
    fSound = new CAssetAudioWriter(&properties);
    if (fAsset->AddAudioWriter(fSound.Get()).Failed()) return kWriterAudioTrack;
    if (fSound->Begin().Failed()) return kWriterAudioBegin;
    fSoundBytes.store(fSound.Get());
    return 0;
}

int MuxOutput::write_picture(const MediaItem& item) {
    if (!fPictures) return kWriterVideoSample;
    tnVideoCompressor::EncodedBuffer& buffer = *item.picture;
    const int type = item.isKey               ? CVideoSample::kKeyPicture
                     : buffer.CanDropBuffer() ? CVideoSample::kDisposablePicture
                                              : CVideoSample::kReferencePicture;
    const RObject<CVideoSample> sample(new CVideoSample(type, buffer.Duration(), 0));
    const MoviePlace sound = fSoundLine.Place();
    const double cutMs =
        fPictureLine.Follow(item.decodeMs, fSoundLine.HasBegun() ? &sound : nullptr);
    sample->SetTime(item.decodeTicks - fStartTicks - std::llround(cutMs * fTicksPerMs));
    sample->SetCompositionOffset(item.offsetTicks);
    const RObject<CMemoryDataReference> bytes =
        bytes_of(item.picture, buffer.Data(), buffer.DataSize());
    sample->SetDataReference(bytes.Get());
    const Result written = fPictures->WriteSample(sample.Get());
    return written.Failed() ? kWriterVideoSample : 0;
}

int MuxOutput::write_sound(const MediaItem& item) {
    if (fIsPcm) return write_pcm(item);
    constexpr double kRoundingMs = 0.5;
    for (int i = 0; i < item.sound->PacketCount(); ++i) {
        const bool isEarly = item.sound->Timestamp(i) < fFirstSoundMs - kRoundingMs;
        if (isEarly && !fSoundLine.HasBegun()) continue;
        const int code = write_packet(item.sound, i);
        if (code != 0) return code;
    }
    return 0;
}

double MuxOutput::missing_before(double soundMs) const {
    const MoviePlace pictures = fPictureLine.Place();
    return fSoundLine.MissingBefore(soundMs, fPictures ? &pictures : nullptr);
}

int MuxOutput::write_packet(const std::shared_ptr<tnAudioCompressor::EncodedBuffer>& buffer,
                            int packet) {
    const double start = buffer->Timestamp(packet);
    const double missing = missing_before(start);
    fSoundLine.Follow(start, buffer->DurationMilli(packet), missing);
    if (missing == 0 && fSoundLine.TakesBackAll(buffer->DurationMilli(packet))) return 0;
    const int code = write_held_packet(missing);
    fHeld = buffer;
    fHeldPacket = packet;
    return code;
}

/// What is missing after a packet, or too much by less than a packet, is told as its duration:
/// players then wait or hurry, and stay together.
int MuxOutput::write_held_packet(double missingMs) {
    if (!fHeld) return 0;
    const std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer = std::move(fHeld);
    fHeld.reset();
    // A sample at least stays: a packet without a duration would get the usual one.
    const double most = buffer->DurationMilli(fHeldPacket) - kMsPerSecond / fSoundRate;
    const double longerMs = missingMs - fSoundLine.TakeBack(most);
    const long long frames =
        buffer->SampleCount(fHeldPacket) + std::llround(longerMs * fSoundRate / kMsPerSecond);
    return write_bytes(
        bytes_of(buffer, buffer->PacketData(fHeldPacket), buffer->PacketSize(fHeldPacket)), 1,
        std::max(frames, 1LL));
}

int MuxOutput::write_bytes(RObject<CMemoryDataReference> bytes, long long packets,
                           long long frames) {
    if (!fSound) return kWriterAudioSample;
    const RObject<CAudioSample> sample(new CAudioSample(packets));
    sample->SetDuration(frames);
    sample->SetDataReference(bytes.Get());
    return fSound->WriteSample(sample.Get()).Failed() ? kWriterAudioSample : 0;
}

int MuxOutput::write_silence(double milliseconds) {
    constexpr long long kBlock = 48000;
    long long missing = std::llround(milliseconds * fSoundRate / kMsPerSecond);
    for (long long frames = 0; missing > 0; missing -= frames) {
        frames = std::min(missing, kBlock);
        const std::vector<unsigned char> zeros(static_cast<std::size_t>(frames) * fFrameBytes);
        const int code = write_bytes(
            RObject<CMemoryDataReference>(new CMemoryDataReference(copy_of(zeros).Get())), frames,
            frames);
        if (code != 0) return code;
    }
    return 0;
}

std::size_t MuxOutput::pcm_bytes(double milliseconds) const {
    return static_cast<std::size_t>(std::lround(milliseconds * fSoundRate / kMsPerSecond)) *
           fFrameBytes;
}

int MuxOutput::write_pcm(const MediaItem& item) {
    tnAudioCompressor::EncodedBuffer& sound = *item.sound;
    const double early = fSoundLine.HasBegun() ? 0 : std::max(fFirstSoundMs - item.startMs, 0.0);
    std::size_t skip = pcm_bytes(early);
    const std::size_t size = sound.PacketSize(0);
    if (skip >= size) return 0;
    const double lasts =
        kMsPerSecond * static_cast<double>((size - skip) / fFrameBytes) / fSoundRate;
    const double missing = missing_before(item.startMs + early);
    const int code = write_silence(missing);
    if (code != 0) return code;
    fSoundLine.Follow(item.startMs + early, lasts, missing);
    skip += pcm_bytes(fSoundLine.TakeBack(lasts));
    if (skip >= size) return 0;
    const auto frames = static_cast<long long>((size - skip) / fFrameBytes);
    return write_bytes(bytes_of(item.sound, sound.PacketData(0) + skip, size - skip), frames,
                       frames);
}

int MuxOutput::finish_file() {
    if (!fHasFile) return kWriterNoFile;
    const int code = write_held_packet(0);
    if (fPictures) fPictures->WriteSample(nullptr);
    if (fSound) fSound->WriteSample(nullptr);
    return fAsset->Finish().Failed() ? kWriterNoFile : code;
}
