#include "orb/ffmpeg/PcmFormat.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace Quillon::Orb {
namespace {

using Kind = PcmFormat::Kind;

constexpr bool kLittle = std::endian::native == std::endian::little;

// The plain names are high byte first, as files have always kept them; spelled backwards, low
// first.
constexpr PcmFormat kFormats[] = {
    {'sowt', Kind::Int16, 2, !kLittle},   {'23lf', Kind::Float32, 4, !kLittle},
    {'twos', Kind::Int16, 2, kLittle},    {'fl32', Kind::Float32, 4, kLittle},
    {'23ni', Kind::Int32, 4, !kLittle},   {'in32', Kind::Int32, 4, kLittle},
    {'46lf', Kind::Float64, 8, !kLittle}, {'fl64', Kind::Float64, 8, kLittle},
    {'raw ', Kind::Unsigned8, 1, false},
};

template <class Word>
void swap_words(const unsigned char* from, unsigned char* to, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        Word word;
        std::memcpy(&word, from + i * sizeof word, sizeof word);
        if constexpr (sizeof word == 2) word = __builtin_bswap16(word);
        if constexpr (sizeof word == 4) word = __builtin_bswap32(word);
        if constexpr (sizeof word == 8) word = __builtin_bswap64(word);
        std::memcpy(to + i * sizeof word, &word, sizeof word);
    }
}

}  // namespace

const PcmFormat* PcmFormat::Find(unsigned int code) {
    for (const PcmFormat& format : kFormats) {
        if (format.code == code) return &format;
    }
    return nullptr;
}

CValueList<unsigned int>* PcmFormat::ListCodes() {
    RObject<CValueList<unsigned int>> list(new CValueList<unsigned int>);
    for (const PcmFormat& format : kFormats) {
        if (!list || list->AddValue(format.code).Failed()) return nullptr;
    }
    return list.Detach();
}

void SwapSampleBytes(const unsigned char* from, unsigned char* to, std::size_t count,
                     int sampleBytes) {
    switch (sampleBytes) {
        case 2:
            return swap_words<std::uint16_t>(from, to, count);
        case 4:
            return swap_words<std::uint32_t>(from, to, count);
        case 8:
            return swap_words<std::uint64_t>(from, to, count);
        default:
            if (from != to) std::memcpy(to, from, count * static_cast<std::size_t>(sampleBytes));
    }
}

}  // namespace Quillon::Orb
