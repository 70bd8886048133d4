#include "tarn/audio/tnAudioConverter.h"

#include <cstdint>
#include <cstring>

#include "tarn/audio/tnAudioConverter_orb.h"

tnAudioConverter::~tnAudioConverter() = default;

tnAudioConverter* tnAudioConverter::Factory() {
    return new tnAudioConverter_orb;
}

bool tnAudioConverter::NeedsConversion(const tnMediaRecord& a, const tnMediaRecord& b) {
    return a.fBitsPerSample.AsInt32('mbps') != b.fBitsPerSample.AsInt32('mbps') ||
           a.fChannels.AsInt32(0) != b.fChannels.AsInt32(0) ||
           a.fSampleRate.AsInt32(0) != b.fSampleRate.AsInt32(0);
}

int tnAudioConverter::Init(const tnMediaRecord& input, const tnMediaRecord& output) {
    fInputFormat = input;
    fOutputFormat = output;
    return 0;
}

unsigned int tnAudioConverter::PreferredExtraInputBytes() const {
    return 0;
}

double tnAudioConverter::PreferredExtraInputFrames() const {
    return 0.0;
}

void tnAudioConverter::Reset() {}

int tnAudioConverter::Convert(void* in, void* out, unsigned int, unsigned int,
                              unsigned int outCapacity, unsigned int*, unsigned int* outBytes) {
    constexpr unsigned int kSampleBytes = 2;
    if (fInputFormat.fBitsPerSample.AsInt32('mbps') != 8 * kSampleBytes) {
        return -1;
    }
    const auto channels = static_cast<unsigned int>(fInputFormat.fChannels.AsInt32(0));
    const unsigned int frames = outCapacity / (kSampleBytes * channels);
    const auto* from = static_cast<const std::int16_t*>(in);
    auto* to = static_cast<std::int16_t*>(out);
    const unsigned int width = channels == 1 ? 1 : 2;
    // Single precision is enough for a block, and what it truncates to is what is heard today.
    const float step = static_cast<float>(fInputFormat.fSampleRate.AsInt32(0)) /
                       static_cast<float>(fOutputFormat.fSampleRate.AsInt32(0));
    float position = 0.0f;
    for (unsigned int frame = 0; frame < frames; ++frame) {
        const std::size_t source = static_cast<std::size_t>(position) * width;
        std::memcpy(to + static_cast<std::size_t>(frame) * width, from + source,
                    width * sizeof(*from));
        position += step;
    }
    if (outBytes != nullptr) {
        *outBytes = outCapacity;
    }
    return 0;
}
