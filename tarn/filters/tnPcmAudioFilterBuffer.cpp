#include "tarn/filters/tnPcmAudioFilterBuffer.h"

namespace {
constexpr std::size_t kBytesPerFrame = 4;
constexpr double kDurationMs = 33.333333333333336;
}  // namespace

tnPcmAudioFilterBuffer::tnPcmAudioFilterBuffer(double time, int frames)
    : fData(static_cast<std::size_t>(frames) * kBytesPerFrame),
      fSampleCount(static_cast<unsigned int>(frames)),
      fPacketSize(static_cast<unsigned int>(fData.size())),
      fTimestamp(time) {}

tnPcmAudioFilterBuffer::~tnPcmAudioFilterBuffer() = default;

int tnPcmAudioFilterBuffer::CodecType() const {
    return 0;
}

int tnPcmAudioFilterBuffer::PacketCount() const {
    return 1;
}

unsigned int tnPcmAudioFilterBuffer::PacketSize(int) {
    return fPacketSize;
}

const unsigned char* tnPcmAudioFilterBuffer::PacketData(int) {
    return fData.data();
}

double tnPcmAudioFilterBuffer::Timestamp(int) const {
    return fTimestamp;
}

double tnPcmAudioFilterBuffer::DurationMilli(int) const {
    return kDurationMs;
}

unsigned int tnPcmAudioFilterBuffer::SampleCount(int) {
    return fSampleCount;
}
