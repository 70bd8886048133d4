#include "addons/moviefile/RawVideoCompressor.h"

#include <cmath>
#include <utility>

#include "orb/CLockedDataReference.h"
#include "orb/CVideoSample.h"
#include "spar/zAsSharedPtr.h"
#include "tarn/movies/tnStreamBuffer.h"

using namespace Quillon::Orb;

RawVideoBuffer::RawVideoBuffer(RObject<CPixelDataReference> pixels, const tnMediaRecord& format,
                               long long time, unsigned int duration, long long timescale)
    : fPixels(std::move(pixels)),
      fFormat(format),
      fTime(time),
      fDuration(duration),
      fTimeMs(1000.0 / static_cast<double>(timescale > 0 ? timescale : 1) *
              static_cast<double>(time)) {
    if (!fPixels || fPixels->Lock(CDataReference::kRead).Failed()) return;
    fSize = static_cast<unsigned int>(fPixels->GetLength());
    fPixels->Unlock();
}

RawVideoBuffer::~RawVideoBuffer() = default;

const unsigned char* RawVideoBuffer::Data() {
    return nullptr;
}

unsigned int RawVideoBuffer::DataSize() {
    return fSize;
}

bool RawVideoBuffer::IsKeyFrame() const {
    return true;
}

bool RawVideoBuffer::CanDropBuffer() const {
    return true;
}

unsigned int RawVideoBuffer::Duration() const {
    return fDuration;
}

double RawVideoBuffer::BufferTimeInMilliseconds() const {
    return fTimeMs;
}

int RawVideoBuffer::GetDecoderDescription(zBuffer&) {
    return -1;
}

int RawVideoBuffer::VideoCodecFormat() const {
    return 0;
}

zRecord* RawVideoBuffer::FrameMetaData() const {
    return nullptr;
}

int RawVideoBuffer::DisplayOffsetRelativeToDuration() const {
    return 0;
}

void RawVideoBuffer::Print() {}

int RawVideoBuffer::DisplayOffsetInMilliseconds() const {
    return 0;
}

CPixelDataReference* RawVideoBuffer::Pixels() const {
    return RObject<CPixelDataReference>(fPixels).Detach();
}

RawVideoCompressor::RawVideoCompressor() = default;

RawVideoCompressor::~RawVideoCompressor() = default;

int RawVideoCompressor::create_orb_compressor(const zRecord&) {
    return 0;
}

int RawVideoCompressor::SetInputFormat(const tnMediaRecord& input) {
    fInputFormat = input;
    return 0;
}

unsigned int RawVideoCompressor::nominal_ticks() const {
    const float rate = fOutputFormat.AsFloat('mfps', 0.0f);
    const auto scale = static_cast<float>(fOutputFormat.AsInt64('tmsc', 0));
    return rate > 0.0f ? static_cast<unsigned int>(std::lround(scale / rate)) : 1;
}

int RawVideoCompressor::EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord& format,
                                    long long time, bool, Callback callback, const zRecord*) {
    RObject<CVideoSample> sample;
    const int code = create_cpu_uncompressed_videosample(buffer, format, sample);
    buffer.ReleaseWriting();
    if (code != 0) return note_frame(code);
    auto* const raw = new RawVideoBuffer(
        RObject<CPixelDataReference>(sample->GetDataReference<CPixelDataReference>()), format, time,
        nominal_ticks(), fOutputFormat.AsInt64('tmsc', 0));
    if (fOnEncodedBuffer) fOnEncodedBuffer(zAsSharedPtr<tnVideoCompressor::EncodedBuffer>(raw));
    if (callback) callback(raw, fUserData);
    raw->Release();
    return note_frame(0);
}
