#include "addons/moviefile/RawAudioCompressor.h"

namespace {

constexpr int kNotDescribed = -1041;
constexpr int kBitsPerByte = 8;

}  // namespace

RawAudioBuffer::RawAudioBuffer(const void* data, unsigned int size, unsigned int frames,
                               double timeMs, double durationMs)
    : fData(static_cast<const unsigned char*>(data),
            static_cast<const unsigned char*>(data) + size),
      fFrames(frames),
      fTimeMs(timeMs),
      fDurationMs(durationMs) {}

RawAudioBuffer::~RawAudioBuffer() = default;

int RawAudioBuffer::CodecType() const {
    return 0;
}

int RawAudioBuffer::PacketCount() const {
    return 1;
}

unsigned int RawAudioBuffer::PacketSize(int) {
    return static_cast<unsigned int>(fData.size());
}

const unsigned char* RawAudioBuffer::PacketData(int) {
    return fData.data();
}

double RawAudioBuffer::Timestamp(int) const {
    return fTimeMs;
}

double RawAudioBuffer::DurationMilli(int) const {
    return fDurationMs;
}

unsigned int RawAudioBuffer::SampleCount(int) {
    return fFrames;
}

RawAudioCompressor::RawAudioCompressor() = default;

RawAudioCompressor::~RawAudioCompressor() = default;

const tnMediaRecord& RawAudioCompressor::InputFormat() const {
    return fInputFormat;
}

const tnMediaRecord& RawAudioCompressor::OutputFormat() const {
    return fOutputFormat;
}

void RawAudioCompressor::SetOutputFormat(const tnMediaRecord& format) {
    fOutputFormat = format;
}

int RawAudioCompressor::Create(const tnMediaRecord& input, const tnMediaRecord& output) {
    fInputFormat = input;
    fOutputFormat = output;
    fRate = input.fSampleRate.AsInt32(0);
    const int bits = input.fChannels.AsInt32(0) * input.fBitsPerSample.AsInt32(0);
    fFrameBytes = bits > 0 ? static_cast<unsigned int>(bits / kBitsPerByte) : 0;
    fCreateError = fRate > 0 && fFrameBytes > 0 ? 0 : kNotDescribed;
    return fCreateError;
}

int RawAudioCompressor::EncodeFrame(EncodedBuffer** out, double timeMs, void* data,
                                    unsigned int count) {
    *out = nullptr;
    if (fCreateError != 0 || fFrameBytes == 0) return kNotDescribed;
    const unsigned int frames = count / fFrameBytes;
    if (frames > 0) {
        *out =
            new RawAudioBuffer(data, frames * fFrameBytes, frames, timeMs, 1000.0 / fRate * frames);
    }
    return 0;
}

int RawAudioCompressor::FramesPerPacket() const {
    return 0;
}
