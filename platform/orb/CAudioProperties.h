#pragma once

#include "orb/CMediaProperties.h"

namespace Quillon::Orb {

/// The shape of a stream of sound, PCM or encoded. A packet is what cannot be divided: one sample
/// of every channel for PCM, one coded frame for the rest.
class ORB_API CAudioProperties : public CMediaProperties {
public:
    static constexpr unsigned int kType = 'aprp';
    /// 32-bit float PCM, low byte first; 'fl32' is high byte first.
    static constexpr unsigned int kFloat32Little = 0x32336C66;

    /// Copies; null makes an empty object.
    explicit CAudioProperties(const CAudioProperties* source);

    bool IsType(unsigned int type) const override {
        return type == kType || CMediaProperties::IsType(type);
    }
    /// The sample rate, unless another scale was set.
    long long GetTimescale() const override;

    // ResultInvalidArgument, with nothing changed, for a negative number.
    Result SetChannels(int channels);
    Result SetSampleRate(int hertz);
    Result SetBitsPerSample(int bits);
    Result SetBytesPerPacket(int bytes);
    Result SetFramesPerPacket(int frames);
    Result SetPrimingFrames(int frames);
    Result SetBitRate(int bitsPerSecond);

    int GetChannels() const noexcept { return fChannels; }
    int GetSampleRate() const noexcept { return fSampleRate; }
    int GetBitsPerSample() const noexcept { return fBitsPerSample; }
    /// 0 for formats whose packets differ in length.
    int GetBytesPerPacket() const noexcept { return fBytesPerPacket; }
    /// 1 for PCM, 1024 for AAC.
    int GetFramesPerPacket() const noexcept { return fFramesPerPacket; }
    /// Frames at the start of an encoded stream that stand before the first one that went in.
    int GetPrimingFrames() const noexcept { return fPrimingFrames; }
    /// Of an encoded stream, 0 if unknown.
    int GetBitRate() const noexcept { return fBitRate; }

    /// True for formats of plain samples: 'sowt', 'twos', 'in24', 'in32', 'fl32', 'fl64', 'raw ',
    /// 'int8' and the byte-swapped codes of these.
    static bool IsPcm(unsigned int format);

protected:
    CAudioProperties(unsigned int type, const CAudioProperties* source);

private:
    int fChannels = 0;
    int fSampleRate = 0;
    int fBitsPerSample = 0;
    int fBytesPerPacket = 0;
    int fFramesPerPacket = 1;
    int fPrimingFrames = 0;
    int fBitRate = 0;
};

}  // namespace Quillon::Orb
