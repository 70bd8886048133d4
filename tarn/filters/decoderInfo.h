#pragma once

#include <memory>
#include <vector>

#include "spar/zBuffer.h"

/// The compressor's decoder description through `cache`. A failed attempt leaves the cache empty,
/// so that the next call asks again; a success, an empty description included, is final.
template <typename Compressor>
std::shared_ptr<const std::vector<unsigned char>> CachedDecoderInfo(
    Compressor& compressor, std::shared_ptr<const std::vector<unsigned char>>& cache) {
    if (cache) return cache;
    zBuffer description(0, 0);
    if (compressor.GetDecoderDescription(description) != 0) return cache;
    const auto* bytes = static_cast<const unsigned char*>(description.Data());
    cache = std::make_shared<std::vector<unsigned char>>(bytes, bytes + description.Size());
    return cache;
}
