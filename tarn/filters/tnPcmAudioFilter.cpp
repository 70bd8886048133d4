#include "tarn/filters/tnPcmAudioFilter.h"

#include <cmath>
#include <memory>

#include "spar/zMemory.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/filters/tnPcmAudioFilterBuffer.h"
#include "tarn/foundation/wholeNumber.h"

namespace {

constexpr int kNoConversion = -1054;
constexpr unsigned int kBlocksPerSecond = 30;

// By the rates' ratio and nothing else, so that equal rates leave room for 30 frames: a block that
// goes through as it is has many more. Converted blocks have always been counted so.
int converted_frames(unsigned int inputRate, unsigned int outputRate) {
    if (inputRate == 0) return 0;
    return WholeNumberOf<int>(std::ceil(outputRate * 30.0 / inputRate));
}

}  // namespace

tnPcmAudioFilter::tnPcmAudioFilter() = default;

tnPcmAudioFilter::~tnPcmAudioFilter() {
    delete fConverter;
}

const tnMediaRecord& tnPcmAudioFilter::InputFormat() const {
    return fInputFormat;
}

const tnMediaRecord& tnPcmAudioFilter::OutputFormat() const {
    return fOutputFormat;
}

void tnPcmAudioFilter::SetOutputFormat(const tnMediaRecord& format) {
    fOutputFormat = format;
}

int tnPcmAudioFilter::FramesPerPacket() const {
    return 0;
}

int tnPcmAudioFilter::Create(const tnMediaRecord& input, const tnMediaRecord& output) {
    fInputFormat = input;
    fOutputFormat = output;
    delete fConverter;
    fConverter = nullptr;
    fCreateError = 0;
    if (!tnAudioConverter::NeedsConversion(fInputFormat, fOutputFormat)) return 0;
    fConverter = tnAudioConverter::Factory();
    const int result = fConverter->Init(fInputFormat, fOutputFormat);
    if (result != 0) fCreateError = kNoConversion;
    return result;
}

int tnPcmAudioFilter::EncodeFrame(EncodedBuffer** out, double timeMs, void* data,
                                  unsigned int bytes) {
    *out = nullptr;
    const auto inputRate = static_cast<unsigned int>(fInputFormat.fSampleRate.AsInt32(0));
    const auto outputRate = static_cast<unsigned int>(fOutputFormat.fSampleRate.AsInt32(0));
    const int frames = fConverter ? converted_frames(inputRate, outputRate)
                                  : static_cast<int>(inputRate / kBlocksPerSecond);
    auto buffer = std::make_unique<tnPcmAudioFilterBuffer>(timeMs, frames);
    const int result =
        fConverter ? convert_block(*buffer, data, bytes) : copy_block(*buffer, data, bytes);
    if (result != 0) return result;
    fTotalSamples += buffer->SampleCount(0);
    *out = buffer.release();
    return 0;
}

int tnPcmAudioFilter::copy_block(tnPcmAudioFilterBuffer& buffer, const void* data,
                                 unsigned int bytes) const {
    if (buffer.fData.size() != bytes) return -1;
    zCopyMemory(data, buffer.fData.data(), bytes);
    return 0;
}

int tnPcmAudioFilter::convert_block(tnPcmAudioFilterBuffer& buffer, void* data,
                                    unsigned int bytes) {
    const auto capacity = static_cast<unsigned int>(buffer.fData.size());
    if (bytes < capacity) data = padded(data, bytes, capacity);
    unsigned int outFrames = 0;
    unsigned int outBytes = 0;
    const int result = fConverter->Convert(data, buffer.fData.data(), bytes, capacity, capacity,
                                           &outFrames, &outBytes);
    // Meant just so, however odd it reads: a block that converted is dropped, and one that did not
    // goes on as silence. Hosts that ask for PCM in a format that the source does not have lean
    // on getting no sound of it, rather than sound in blocks of another length than they wrote.
    if (result == 0) return -1;
    const auto channels = static_cast<unsigned int>(fOutputFormat.fChannels.AsInt32(0));
    const auto bits = static_cast<unsigned int>(fOutputFormat.fBitsPerSample.AsInt32('mbps'));
    buffer.fSampleCount = outFrames;
    buffer.fPacketSize = (channels * outFrames * bits) >> 3;
    return 0;
}

// A change of channels reads as much as there is room for, which may be more than the host has
// written: what is missing reads as silence. Its memory stays for the next block.
void* tnPcmAudioFilter::padded(const void* data, unsigned int bytes, unsigned int capacity) {
    fPadded.assign(capacity, 0);
    zCopyMemory(data, fPadded.data(), bytes);
    return fPadded.data();
}
