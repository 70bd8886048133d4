#include "tarn/writers/writerParts.h"

#include <utility>

#include "spar/zFileStream.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/foundation/tnMediaRecord.h"

void MakeFileIfMissing(const char* path) {
    if (zFileStream::Exists(path)) return;
    zFileStream file(path, Z_FILE_WRITE, false);
    if (file.Open() == 0) file.Close();
}

bool IsTrackWanted(const tnMediaRecord& source, const tnMediaRecord& encoded) {
    return !source.IsEmpty() && !encoded.IsEmpty() && encoded.AsBool('mena', false);
}

int MakeAudioConversion(const tnMediaRecord& source, const tnMediaRecord& encoded,
                        tnAudioConverter*& converter, unsigned char*& buffer,
                        unsigned int& bufferSize) {
    if (!tnAudioConverter::NeedsConversion(source, encoded)) return 0;
    // There may be no memory for what comes next: the writer must not own what is gone by then.
    delete std::exchange(converter, nullptr);
    converter = tnAudioConverter::Factory();
    const int code = converter->Init(source, encoded);
    if (code != 0) return code;
    const auto halfSecond = static_cast<unsigned int>(encoded.fSampleRate.AsInt32(0) / 2);
    const auto channels = static_cast<unsigned int>(encoded.fChannels.AsInt32(0));
    const auto sampleBytes = static_cast<unsigned int>(encoded.fBitsPerSample.AsInt32('mbps') / 8);
    delete[] std::exchange(buffer, nullptr);
    bufferSize = 0;
    // Zeroed: mono that becomes stereo fills half of its block, and all of the block is stored.
    buffer = new unsigned char[halfSecond * channels * sampleBytes]();
    bufferSize = halfSecond * channels * sampleBytes;
    return 0;
}

writerBlock BlockOf(const unsigned char* data, int size, int bytesPerPacket) {
    // Converters take what they only read as writable.
    return {const_cast<unsigned char*>(data), size, size / bytesPerPacket};
}

int ConvertBlock(tnAudioConverter& converter, unsigned char* buffer, unsigned int bufferSize,
                 int bytesPerPacket, writerBlock& block) {
    unsigned int frames = 0;
    unsigned int bytes = 0;
    const unsigned int given = static_cast<unsigned int>(block.fBytes);
    const int code =
        converter.Convert(block.fData, buffer, given, given, bufferSize, &frames, &bytes);
    block = {buffer, static_cast<int>(bytes), bytes / static_cast<unsigned int>(bytesPerPacket)};
    return code;
}
