#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "spar/zBuffer.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/foundation/tnRasterType.h"
#include "tarn/writers/tnORBUncompressedVideoBuffer.h"
#include "tarn/writers/tnWriteORB.h"

// What the earlier movie file writer is handed: frames and formats.

namespace earlierWriter {

inline constexpr int kWidth = 64;
inline constexpr int kHeight = 32;
inline constexpr int kDuration = 1001;

/// The part of a buffer that this writer does not ask for.
template <class Base>
class Described : public Base {
public:
    unsigned int DataSize() override { return static_cast<unsigned int>(fBytes.size()); }
    const unsigned char* Data() override { return fBytes.data(); }
    unsigned int Duration() const override { return fDuration; }
    bool IsKeyFrame() const override { return true; }
    bool CanDropBuffer() const override { return false; }
    double BufferTimeInMilliseconds() const override { return 0; }
    int GetDecoderDescription(zBuffer&) override { return -1; }
    int VideoCodecFormat() const override { return 0; }
    zRecord* FrameMetaData() const override { return nullptr; }
    int DisplayOffsetRelativeToDuration() const override { return 0; }
    void Print() override {}
    int DisplayOffsetInMilliseconds() const override { return 0; }

    std::vector<unsigned char> fBytes = std::vector<unsigned char>(kWidth * kHeight * 4, 128);
    unsigned int fDuration = kDuration;
};

inline std::atomic<int> gFrames{0};

class Frame final : public Described<tnORBUncompressedVideoBuffer> {
public:
    Frame() { ++gFrames; }
    ~Frame() override { --gFrames; }
};

/// A buffer that has no count of bytes.
class OtherFrame final : public Described<tnVideoCompressor::EncodedBuffer> {};

template <class T>
struct Releasing {
    void operator()(T* counted) const { counted->Release(); }
};
using FramePtr = std::unique_ptr<Frame, Releasing<Frame>>;
using OtherFramePtr = std::unique_ptr<OtherFrame, Releasing<OtherFrame>>;
using WriterPtr = std::unique_ptr<tnWriteORB, Releasing<tnWriteORB>>;

inline tnMediaRecord raw_video(int raster = '2vuy', int width = kWidth, int height = kHeight) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fColourspace.SetInt32(raster);
    record.fWidth.SetInt32(width);
    record.fHeight.SetInt32(height);
    record.fBytesPerRow.SetInt32(tnRasterType::ActiveBytesPerRow(width, raster));
    record.SetFloat('mfps', 30000.0f / 1001.0f);
    return record;
}

inline tnMediaRecord encoded_video(const char* codec, const char* quality = nullptr) {
    tnMediaRecord record = raw_video();
    record.SetBool('mena', true);
    if (codec) record.SetCString('mcon', codec);
    if (quality) record.SetCString("codec_quality", quality);
    record.SetInt64('tmsc', 30000);
    return record;
}

inline tnMediaRecord encoded_audio(int mask, int rate = 48000, int channels = 2, int bits = 16) {
    tnMediaRecord record;
    record.MakeDefaultAudioFormat();
    record.fSampleRate.SetInt32(rate);
    record.fChannels.SetInt32(channels);
    record.fBitsPerSample.SetInt32(bits);
    record.SetBool('mena', true);
    if (mask >= 0) record.SetInt32("audio_output_track_mask", mask);
    return record;
}

/// Says only that there is sound.
inline tnMediaRecord source_audio() {
    tnMediaRecord record(TN_MEDIA_AUDIO);
    record.fSampleRate.SetInt32(11025);
    return record;
}

}  // namespace earlierWriter
