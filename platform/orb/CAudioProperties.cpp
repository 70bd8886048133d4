#include "orb/CAudioProperties.h"

namespace Quillon::Orb {

namespace {

Result store(int value, int& place, const char* what) {
    if (value < 0) return ResultInvalidArgument("%s of %d", what, value);
    place = value;
    return 0;
}

constexpr unsigned int swapped(unsigned int code) {
    return __builtin_bswap32(code);
}

}  // namespace

CAudioProperties::CAudioProperties(const CAudioProperties* source)
    : CAudioProperties(kType, source) {}

CAudioProperties::CAudioProperties(unsigned int type, const CAudioProperties* source)
    : CMediaProperties(type, source) {
    if (!source) return;
    fChannels = source->fChannels;
    fSampleRate = source->fSampleRate;
    fBitsPerSample = source->fBitsPerSample;
    fBytesPerPacket = source->fBytesPerPacket;
    fFramesPerPacket = source->fFramesPerPacket;
    fPrimingFrames = source->fPrimingFrames;
    fBitRate = source->fBitRate;
}

long long CAudioProperties::GetTimescale() const {
    const long long scale = CMediaProperties::GetTimescale();
    return scale > 0 ? scale : fSampleRate;
}

Result CAudioProperties::SetChannels(int channels) {
    return store(channels, fChannels, "a number of channels");
}
Result CAudioProperties::SetSampleRate(int hertz) {
    return store(hertz, fSampleRate, "a sample rate");
}
Result CAudioProperties::SetBitsPerSample(int bits) {
    return store(bits, fBitsPerSample, "a sample size");
}
Result CAudioProperties::SetBytesPerPacket(int bytes) {
    return store(bytes, fBytesPerPacket, "a packet size");
}
Result CAudioProperties::SetFramesPerPacket(int frames) {
    return store(frames, fFramesPerPacket, "a packet length");
}
Result CAudioProperties::SetPrimingFrames(int frames) {
    return store(frames, fPrimingFrames, "a priming");
}
Result CAudioProperties::SetBitRate(int bitsPerSecond) {
    return store(bitsPerSecond, fBitRate, "a bit rate");
}

bool CAudioProperties::IsPcm(unsigned int format) {
    switch (format) {
        case 'sowt':
        case 'twos':
        case 'in24':
        case swapped('in24'):
        case 'in32':
        case swapped('in32'):
        case 'fl32':
        case kFloat32Little:
        case 'fl64':
        case swapped('fl64'):
        case 'raw ':
        case 'int8':
            return true;
        default:
            return false;
    }
}

}  // namespace Quillon::Orb
