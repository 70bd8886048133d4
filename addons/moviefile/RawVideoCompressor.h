#pragma once

#include "orb/CPixelDataReference.h"
#include "orb/RObject.h"
#include "tarn/filters/tnOrbVideoCompressor.h"

/// A frame as it was rendered, in memory of its own that all its observers share.
class RawVideoBuffer final : public tnVideoCompressor::EncodedBuffer {
public:
    /// `time` and `duration` in ticks of a timescale.
    RawVideoBuffer(Quillon::Orb::RObject<Quillon::Orb::CPixelDataReference> pixels,
                   const tnMediaRecord& format, long long time, unsigned int duration,
                   long long timescale);
    ~RawVideoBuffer() override;

    /// Null: the pixels are not bytes to be stored.
    const unsigned char* Data() override;
    unsigned int DataSize() override;
    bool IsKeyFrame() const override;
    bool CanDropBuffer() const override;
    unsigned int Duration() const override;
    double BufferTimeInMilliseconds() const override;
    int GetDecoderDescription(zBuffer& out) override;
    int VideoCodecFormat() const override;
    zRecord* FrameMetaData() const override;
    int DisplayOffsetRelativeToDuration() const override;
    void Print() override;
    int DisplayOffsetInMilliseconds() const override;

    /// With a reference for the caller.
    Quillon::Orb::CPixelDataReference* Pixels() const;
    /// How the frame was written: its raster type above all.
    const tnMediaRecord& Format() const { return fFormat; }
    /// Ticks.
    long long Time() const { return fTime; }

private:
    const Quillon::Orb::RObject<Quillon::Orb::CPixelDataReference> fPixels;
    const tnMediaRecord fFormat;
    const long long fTime;
    const unsigned int fDuration;
    const double fTimeMs;
    unsigned int fSize = 0;
};

/// Hands frames on as they are, after the one copy that sets the host's memory free.
///
/// A frame that waited for a slow file in the host's own memory would take that memory from every
/// other output; the copy lies in pooled memory that the outputs of the source share.
class RawVideoCompressor final : public tnOrbVideoCompressor {
public:
    RawVideoCompressor();
    ~RawVideoCompressor() override;

    int SetInputFormat(const tnMediaRecord& input) override;
    /// 0; -1 a frame shorter than its format, or no memory for its copy. FrameError tells of many.
    int EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord& format, long long time,
                    bool keyFrame, Callback callback, const zRecord* metaData) override;

protected:
    int create_orb_compressor(const zRecord& settings) override;

private:
    unsigned int nominal_ticks() const;
};
