#include "tarn/foundation/tnAudioFormat.h"

int tnAudioFormat::BitsPerSample(int format) {
    switch (format) {
        case 'int8':
        case 'raw ':
            return 8;
        case 'fl32':
        case 'in32':
        case '32ni':  // so it is agreed; 'in32' backwards would be '23ni', here of 16 bits
        case 'in24':
        case '42ni':
            return 32;
        case 'fl64':
            return 64;
        default:
            return 16;  // 'sowt', 'twos' and whatever else
    }
}

unsigned int tnAudioFormat::BytesPerSecond(int format, unsigned char channels,
                                           unsigned int sampleRate) {
    return (static_cast<unsigned int>(BitsPerSample(format)) * (channels * sampleRate)) >> 3;
}

unsigned int tnAudioFormat::BytesForSamples(int format, unsigned char channels,
                                            unsigned int samples) {
    return static_cast<unsigned int>(BitsPerSample(format)) / 8 * (channels * samples);
}

unsigned int tnAudioFormat::SamplesFromLength(unsigned int length, int format,
                                              unsigned char channels, unsigned int) {
    return length / (static_cast<unsigned int>(BitsPerSample(format)) / 8 * channels);
}

std::pair<long long, long long> tnAudioFormat::DurationFromLength(unsigned int length, int format,
                                                                  unsigned char channels,
                                                                  unsigned int sampleRate) {
    return {sampleRate, SamplesFromLength(length, format, channels, sampleRate)};
}
