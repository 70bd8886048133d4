#include "tarn/filters/tnAudioCompressor.h"

#include "tarn/filters/decoderInfo.h"
#include "tarn/foundation/tnMediaRecord.h"

Quillon::Orb::CAudioSample* tnAudioCompressor::EncodedBuffer::AudioSample(int) {
    return nullptr;
}

bool tnAudioCompressor::CreateFilter(const tnMediaRecord& input) {
    const tnMediaRecord output(OutputFormat());
    return Create(input, output) == 0;
}

std::shared_ptr<const std::vector<unsigned char>> tnAudioCompressor::DecoderInfo() {
    return CachedDecoderInfo(*this, fDecoderInfo);
}

int tnAudioCompressor::GetDecoderDescription(zBuffer&) {
    return -1;
}
