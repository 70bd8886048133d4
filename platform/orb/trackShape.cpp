#include "orb/trackShape.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "orb/CAudioSample.h"
#include "orb/CBufferDataReference.h"
#include "orb/CMpeg4AvcDataReference.h"
#include "orb/CVideoSample.h"
#include "orb/VideoFormat.h"

namespace Quillon::Orb {

namespace {

/// Ticks from 0 to the ends of the time line, on either side: more than seventy years in
/// nanoseconds. Behind here times are added and subtracted, and must not leave their 64 bits.
constexpr long long kFarthest = 1LL << 61;
/// Files hold durations, and offsets of pictures, in signed numbers of 32 bits.
constexpr long long kLongestStep = INT_MAX;

/// The files write 0 where nothing is known; the code points say 2.
int said(unsigned char code) {
    return code == ColorSpace::kUnspecified ? 0 : code;
}

void take_decoder_info(const CMediaProperties& properties, unsigned int key, MovieTrack& track) {
    if (!track.decoderConfiguration.empty()) return;
    RObject<CDecoderSpecificProperties> extension(properties.GetExtension(key));
    RObject<CByteArray> info;
    if (!extension || extension->GetDecoderInfo(info).Failed() || !info) return;
    track.decoderConfiguration.assign(info->GetData(), info->GetData() + info->GetLength());
}

CMpeg4AvcProperties* avc_of(const CVideoProperties& properties) {
    RObject<CDecoderSpecificProperties> extension(
        properties.GetExtension(CMpeg4AvcProperties::kType));
    if (!extension || !extension->IsType(CMpeg4AvcProperties::kType)) return nullptr;
    return static_cast<CMpeg4AvcProperties*>(extension.Detach());
}

}  // namespace

MovieTrack describe_track(const CVideoProperties& properties) {
    MovieTrack track;
    track.kind = MovieTrack::Kind::Video;
    const unsigned int family = VideoFormat::GetCanonicalFormat(properties.GetFormat());
    track.format = family == 'h264' ? 'avc1' : properties.GetFormat();
    track.timescale = properties.GetTimescale();
    track.width = properties.GetWidth();
    track.height = properties.GetHeight();
    track.frameDuration = std::min(properties.GetFrameDuration(), kLongestStep);
    track.fieldOrder = properties.GetFieldOrder();
    track.pixelAspectNumerator = properties.GetPixelAspectRatio().numerator;
    track.pixelAspectDenominator = properties.GetPixelAspectRatio().denominator;
    const ColorSpace colour = properties.GetColorSpace();
    track.colour = {said(colour.GetPrimaries()), said(colour.GetTransfer()),
                    said(colour.GetMatrix()),
                    properties.GetVideoRange() == CVideoProperties::kFullRange};
    track.reorderDepth = properties.GetReorderDepth();
    const bool canReorder = family == 'h264' || family == 'mp2v';
    track.reordered = track.reorderDepth < 0 ? canReorder : track.reorderDepth > 0;
    take_decoder_info(properties, CMpeg4AvcProperties::kType, track);
    take_decoder_info(properties, CDecoderSpecificProperties::kType, track);
    return track;
}

MovieTrack describe_track(const CAudioProperties& properties) {
    MovieTrack track;
    track.kind = MovieTrack::Kind::Audio;
    track.format = properties.GetFormat();
    // Sound is counted in frames, whatever scale its properties speak.
    track.timescale =
        properties.GetSampleRate() > 0 ? properties.GetSampleRate() : properties.GetTimescale();
    track.channels = properties.GetChannels();
    track.sampleRate = properties.GetSampleRate();
    track.bitsPerSample = properties.GetBitsPerSample();
    const bool pcm = CAudioProperties::IsPcm(properties.GetFormat());
    track.bytesPerPacket = pcm ? properties.GetBytesPerPacket() : 0;
    track.framesPerPacket = properties.GetFramesPerPacket();
    track.primingFrames = properties.GetPrimingFrames();
    track.bitRate = properties.GetBitRate();
    take_decoder_info(properties, CDecoderSpecificProperties::kType, track);
    return track;
}

VideoShaper::VideoShaper(const CVideoProperties& properties) : fAvc(avc_of(properties)) {}

Result VideoShaper::take_bytes(const CMediaSample& sample, RObject<CDataReference>& data) const {
    RObject<CMpeg4AvcDataReference> unit(sample.GetDataReference<CMpeg4AvcDataReference>());
    if (!unit) {
        data = sample.GetDataReference<CDataReference>();
        return data ? Result(0) : Result(ResultNullPointer("a picture without data"));
    }
    CMemoryDataReference* bytes = nullptr;
    Result result = unit->ToDataReference('avc1', fAvc.Get(), bytes);
    data = bytes;
    return result;
}

Result VideoShaper::Shape(const CMediaSample& sample, MovieQueue::Sample& shaped) {
    const auto& picture = static_cast<const CVideoSample&>(sample);
    Result result = take_bytes(sample, shaped.data);
    if (result.Failed()) return result;
    long long time = sample.GetTime();
    long long duration = sample.GetDuration();
    // Hosts that know no times leave them all alike: their pictures lie end to end. A host that
    // does tell times gives two pictures of one time a duration of 0 between them, and so loses
    // nothing.
    const long long told = time;
    if (fStarted && told == fToldTime) time = fNextTime;
    fStarted = true;
    fToldTime = told;
    time = std::clamp(time, -kFarthest, kFarthest);
    duration = std::clamp(duration, 0LL, kFarthest);
    fNextTime = time + duration;
    shaped.description = {};
    shaped.description.decodeTime = time;
    shaped.description.duration = duration;
    shaped.description.compositionOffset =
        std::clamp(picture.GetCompositionOffset(), -kLongestStep, kLongestStep);
    shaped.description.key = picture.GetPictureType() == CVideoSample::kKeyPicture;
    return 0;
}

AudioShaper::AudioShaper(const CAudioProperties& properties)
    : fPcm(CAudioProperties::IsPcm(properties.GetFormat())),
      fBytesPerPacket(std::max(properties.GetBytesPerPacket(), 1)),
      fFramesPerPacket(std::max(properties.GetFramesPerPacket(), 1)) {}

/// Joins what was left of the block before with this block, and holds back the packet that is not
/// whole: blocks may be cut anywhere, and no byte is lost or shifted. After a failure nothing has
/// changed.
Result AudioShaper::whole_packets(const RObject<CDataReference>& all,
                                  RObject<CDataReference>& whole, long long& length) {
    CLockedDataReference* lock = new CLockedDataReference(all.Get(), CDataReference::kRead);
    RObject<CLockedDataReference> bytes(lock);
    if (!bytes) return ResultOutOfMemory();
    if (!bytes->IsLocked()) return ResultNullPointer("sound whose bytes cannot be read");
    const int carried = fRest ? fRest->GetLength() : 0;
    const long long total = static_cast<long long>(carried) + bytes->GetLength();
    if (total > INT_MAX) return ResultInvalidArgument("a block of %lld bytes", total);
    const int rest = static_cast<int>(total % fBytesPerPacket);
    length = total - rest;
    if (carried == 0 && rest == 0) {
        whole = all;
        return 0;
    }
    RObject<CByteArray> joined(new CByteArray(static_cast<int>(total), 1));
    if (!joined || joined->GetLength() != total) return ResultOutOfMemory();
    if (carried > 0)
        std::memcpy(joined->GetData(), fRest->GetData(), static_cast<std::size_t>(carried));
    if (bytes->GetLength() > 0) {
        std::memcpy(joined->GetData() + carried, bytes->GetData(),
                    static_cast<std::size_t>(bytes->GetLength()));
    }
    RObject<CByteArray> left;
    if (rest > 0) left = new CByteArray(joined->GetData() + length, rest);
    if (rest > 0 && (!left || left->GetLength() != rest)) return ResultOutOfMemory();
    joined->Shorten(static_cast<int>(length));
    whole = new CBufferDataReference(joined.Get());
    if (!whole) return ResultOutOfMemory();
    fRest = left;
    return 0;
}

Result AudioShaper::shape_pcm(const CMediaSample& sample, MovieQueue::Sample& shaped) {
    RObject<CDataReference> data(sample.GetDataReference<CDataReference>());
    long long length = 0;
    Result result = whole_packets(data, shaped.data, length);
    if (result.Failed()) return result;
    if (length == 0) return ResultFalse();
    shaped.description.packets = length / fBytesPerPacket;
    shaped.description.duration = shaped.description.packets * fFramesPerPacket;
    return 0;
}

Result AudioShaper::Shape(const CMediaSample& sample, MovieQueue::Sample& shaped) {
    const auto& sound = static_cast<const CAudioSample&>(sample);
    if (!sample.HasDataReference()) {
        if (sound.GetLength() == 0) return ResultFalse();
        return ResultNullPointer("sound without data");
    }
    shaped.description = {};
    Result result = 0;
    if (fPcm) {
        result = shape_pcm(sample, shaped);
    } else {
        shaped.data = sample.GetDataReference<CDataReference>();
        const long long frames = sample.GetDuration();
        shaped.description.duration =
            frames > 0 ? std::min(frames, kLongestStep) : fFramesPerPacket;
    }
    if (static_cast<int>(result) != 0) return result;
    shaped.description.decodeTime = fNextTime;
    fNextTime = std::min(fNextTime + shaped.description.duration, kFarthest);
    return 0;
}

}  // namespace Quillon::Orb
