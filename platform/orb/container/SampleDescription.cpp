#include "SampleDescription.h"

#include <limits>

namespace Quillon::Orb {
namespace {

constexpr int kLongestSide = 65535;
constexpr int kMostChannels = 255;

bool is_intra(unsigned int format) {
    switch (format) {
        case 'apco':
        case 'apcs':
        case 'apcn':
        case 'apch':
        case 'ap4h':
        case 'jpeg':
            return true;
        default:
            return false;
    }
}

int check_video(const MovieTrack& track) {
    if (!is_intra(track.format) && track.format != 'avc1' && track.format != 'mp2v')
        return ResultNotSupported::kCode;
    const bool sized = track.width > 0 && track.width <= kLongestSide && track.height > 0 &&
                       track.height <= kLongestSide;
    // Without its configuration nothing decodes H.264; such a file would be no movie.
    const bool configured = track.format != 'avc1' || track.decoderConfiguration.size() >= 7;
    const bool aspect = track.pixelAspectNumerator > 0 && track.pixelAspectDenominator > 0;
    const bool ordered = track.fieldOrder >= 1 && track.fieldOrder <= 3;
    const bool clean = track.cleanWidth >= 0 && track.cleanWidth <= track.width &&
                       track.cleanHeight >= 0 && track.cleanHeight <= track.height;
    return sized && configured && aspect && ordered && clean ? 0 : ResultInvalidArgument::kCode;
}

int check_audio(const MovieTrack& track) {
    const bool plain = IsPlainSound(track.format);
    if (!plain && track.format != 'mp4a') return ResultNotSupported::kCode;
    bool right = track.channels > 0 && track.channels <= kMostChannels && track.sampleRate > 0 &&
                 track.primingFrames >= 0;
    if (plain) {
        right = right && track.bytesPerPacket > 0 && track.framesPerPacket == 1 &&
                track.bytesPerPacket % track.channels == 0 &&
                track.timescale % track.sampleRate == 0;
    } else {
        right = right && track.framesPerPacket > 0 && track.decoderConfiguration.size() >= 2;
    }
    return right ? 0 : ResultInvalidArgument::kCode;
}

}  // namespace

bool IsPlainSound(unsigned int format) {
    switch (format) {
        case 'sowt':
        case 'twos':
        case 'in24':
        case '42ni':
        case 'in32':
        case '23ni':
        case 'fl32':
        case '23lf':
        case 'fl64':
        case '46lf':
            return true;
        default:
            return false;
    }
}

int CheckTrack(const MovieTrack& track, unsigned int) {
    if (track.timescale <= 0 || track.timescale > std::numeric_limits<int>::max() ||
        track.expectedDuration < 0 || track.frameDuration < 0)
        return ResultInvalidArgument::kCode;
    return track.kind == MovieTrack::Kind::Video ? check_video(track) : check_audio(track);
}

void WriteSampleDescription(BoxWriter& writer, const MovieTrack& track, bool quickTime) {
    BoxWriter::Box stsd(writer, 'stsd', 0, 0);
    writer.U32(1);
    if (track.kind == MovieTrack::Kind::Video)
        WriteVideoDescription(writer, track, quickTime);
    else
        WriteSoundDescription(writer, track, quickTime);
}

namespace {

void open_descriptor(BoxWriter& writer, unsigned int tag, std::size_t size) {
    // The long form of the length, four bytes, is what every reader expects.
    writer.U8(tag);
    for (int shift = 21; shift > 0; shift -= 7)
        writer.U8(0x80 | ((static_cast<unsigned int>(size) >> shift) & 0x7f));
    writer.U8(static_cast<unsigned int>(size) & 0x7f);
}

}  // namespace

void WriteStreamDescriptor(BoxWriter& writer, const StreamDescriptor& stream) {
    constexpr std::size_t kTagAndLength = 5;
    const std::size_t info = stream.specificInfo->size();
    const std::size_t infoBytes = info == 0 ? 0 : kTagAndLength + info;
    const std::size_t configBytes = 13 + infoBytes;
    BoxWriter::Box esds(writer, 'esds', 0, 0);
    open_descriptor(writer, 3, 3 + kTagAndLength + configBytes + kTagAndLength + 1);
    writer.U16(0);  // no id: the file's track carries it
    writer.U8(0);
    open_descriptor(writer, 4, configBytes);
    writer.U8(stream.objectType);
    writer.U8(stream.streamType << 2 | 1);
    writer.U24(0);  // decoder buffer, unknown
    writer.U32(static_cast<unsigned int>(stream.bitRate));
    writer.U32(static_cast<unsigned int>(stream.bitRate));
    if (info > 0) {
        open_descriptor(writer, 5, info);
        writer.Bytes(stream.specificInfo->data(), info);
    }
    open_descriptor(writer, 6, 1);
    writer.U8(2);  // predefined: as MP4 files have it
}

}  // namespace Quillon::Orb
