#include "tarn/filters/tnVideoCompressor.h"

#include "tarn/filters/decoderInfo.h"
#include "tarn/foundation/tnMediaRecord.h"

Quillon::Orb::CByteArray* tnVideoCompressor::EncodedBuffer::DataAsByteArray() {
    return nullptr;
}

unsigned int tnVideoCompressor::EncodedBuffer::CompressedDataSize() {
    return DataSize();
}

void tnVideoCompressor::EncodedBuffer::GetDescription(zString&) {}

bool tnVideoCompressor::CreateFilter(const tnMediaRecord& input) {
    // Settings are keys of the output format itself.
    const tnMediaRecord output(OutputFormat());
    if (Create(output, output, nullptr) != 0) return false;
    SetInputFormat(input);
    return true;
}

std::shared_ptr<const std::vector<unsigned char>> tnVideoCompressor::DecoderInfo() {
    return CachedDecoderInfo(*this, fDecoderInfo);
}

int tnVideoCompressor::GetDecoderDescription(zBuffer&) {
    return -1;
}

int tnVideoCompressor::SetInputFormat(const tnMediaRecord&) {
    return 0;
}
