#include <limits>

#include "SampleDescription.h"

namespace Quillon::Orb {
namespace {

constexpr unsigned int kAudioStream = 5;
constexpr unsigned int kObjectAac = 0x40;
constexpr int kLargestRate = std::numeric_limits<unsigned short>::max();

struct PlainFormat {
    unsigned int given;
    unsigned int stored;  // the code in the file
    bool bigEndian;
    bool isFloat;
    bool saysOrder;  // the code alone does not tell the byte order
    int bits;
};

constexpr PlainFormat kPlainFormats[] = {
    {'sowt', 'sowt', false, false, false, 16}, {'twos', 'twos', true, false, false, 16},
    {'in24', 'in24', true, false, true, 24},   {'42ni', 'in24', false, false, true, 24},
    {'in32', 'in32', true, false, true, 32},   {'23ni', 'in32', false, false, true, 32},
    {'fl32', 'fl32', true, true, true, 32},    {'23lf', 'fl32', false, true, true, 32},
    {'fl64', 'fl64', true, true, true, 64},    {'46lf', 'fl64', false, true, true, 64},
};

const PlainFormat& plain_format(unsigned int format) {
    for (const PlainFormat& known : kPlainFormats)
        if (known.given == format) return known;
    return kPlainFormats[0];
}

void write_head(BoxWriter& writer, unsigned int version) {
    writer.Zeros(6);
    writer.U16(1);  // data reference
    writer.U16(version);
    writer.U16(0);
    writer.U32(0);
}

void write_rate(BoxWriter& writer, int rate) {
    writer.U16(rate <= kLargestRate ? static_cast<unsigned int>(rate) : 0);
    writer.U16(0);
}

void write_plain_v0(BoxWriter& writer, const MovieTrack& track, const PlainFormat& format) {
    BoxWriter::Box entry(writer, format.stored);
    write_head(writer, 0);
    writer.U16(static_cast<unsigned int>(track.channels));
    writer.U16(static_cast<unsigned int>(format.bits));
    writer.U32(0);
    write_rate(writer, track.sampleRate);
}

/// The description that QuickTime wants once samples are not 16 bits wide: packet sizes and order.
void write_plain_v1(BoxWriter& writer, const MovieTrack& track, const PlainFormat& format) {
    BoxWriter::Box entry(writer, format.stored);
    write_head(writer, 1);
    writer.U16(static_cast<unsigned int>(track.channels));
    writer.U16(16);  // fixed for this version; the packet sizes below say the truth
    writer.U32(0);
    write_rate(writer, track.sampleRate);
    writer.U32(1);
    writer.U32(static_cast<unsigned int>(track.bytesPerPacket / track.channels));
    writer.U32(static_cast<unsigned int>(track.bytesPerPacket));
    writer.U32(2);
    BoxWriter::Box wave(writer, 'wave');
    {
        BoxWriter::Box frma(writer, 'frma');
        writer.U32(format.stored);
    }
    {
        BoxWriter::Box enda(writer, 'enda');
        writer.U16(format.bigEndian ? 0 : 1);
    }
    BoxWriter::Box terminator(writer, 0);
}

/// The description without the limit of 65535 Hz.
void write_plain_v2(BoxWriter& writer, const MovieTrack& track, const PlainFormat& format) {
    constexpr unsigned int kFloat = 1, kBigEndian = 2, kSigned = 4, kPacked = 8;
    BoxWriter::Box entry(writer, 'lpcm');
    write_head(writer, 2);
    writer.U16(3);
    writer.U16(16);
    writer.U16(0xfffe);
    writer.U16(0);
    writer.U32(0x00010000);
    writer.U32(72);  // size of this structure
    const double rate = track.sampleRate;
    unsigned long long bits;
    static_assert(sizeof bits == sizeof rate);
    __builtin_memcpy(&bits, &rate, sizeof bits);
    writer.U64(bits);
    writer.U32(static_cast<unsigned int>(track.channels));
    writer.U32(0x7f000000);
    writer.U32(static_cast<unsigned int>(format.bits));
    writer.U32((format.isFloat ? kFloat : kSigned) | (format.bigEndian ? kBigEndian : 0) | kPacked);
    writer.U32(static_cast<unsigned int>(track.bytesPerPacket));
    writer.U32(1);
}

void write_aac_stream(BoxWriter& writer, const MovieTrack& track) {
    WriteStreamDescriptor(writer,
                          {kObjectAac, kAudioStream, track.bitRate, &track.decoderConfiguration});
}

void write_aac(BoxWriter& writer, const MovieTrack& track, bool quickTime) {
    BoxWriter::Box entry(writer, 'mp4a');
    write_head(writer, quickTime ? 1 : 0);
    writer.U16(static_cast<unsigned int>(track.channels));
    writer.U16(16);
    writer.U16(quickTime ? 0xfffe : 0);  // QuickTime: packets of varying size
    writer.U16(0);
    write_rate(writer, track.sampleRate);
    if (!quickTime) {
        write_aac_stream(writer, track);
        return;
    }
    writer.U32(static_cast<unsigned int>(track.framesPerPacket));
    writer.U32(0);
    writer.U32(0);
    writer.U32(2);
    BoxWriter::Box wave(writer, 'wave');
    {
        BoxWriter::Box frma(writer, 'frma');
        writer.U32('mp4a');
    }
    {
        // An empty description inside: older readers look for it before the stream's.
        BoxWriter::Box inner(writer, 'mp4a');
        writer.U32(0);
    }
    write_aac_stream(writer, track);
    BoxWriter::Box terminator(writer, 0);
}

}  // namespace

void WriteSoundDescription(BoxWriter& writer, const MovieTrack& track, bool quickTime) {
    if (!IsPlainSound(track.format)) {
        write_aac(writer, track, quickTime);
        return;
    }
    const PlainFormat& format = plain_format(track.format);
    if (track.sampleRate > kLargestRate)
        write_plain_v2(writer, track, format);
    else if (format.saysOrder)
        write_plain_v1(writer, track, format);
    else
        write_plain_v0(writer, track, format);
}

}  // namespace Quillon::Orb
