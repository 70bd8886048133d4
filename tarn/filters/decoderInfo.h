#pragma once

#include <memory>
#include <vector>

#include "spar/zBuffer.h"

/// The compressor's decoder description through `cache`: while the compressor has none, each call
/// puts the question anew, and the first answer, which may be empty, holds for good. That is so
/// also for calls on several threads, as of one who joins and of one who already writes.
template <typename Compressor>
std::shared_ptr<const std::vector<unsigned char>> CachedDecoderInfo(
    Compressor& compressor, std::shared_ptr<const std::vector<unsigned char>>& cache) {
    using Info = std::shared_ptr<const std::vector<unsigned char>>;
    if (Info known = std::atomic_load(&cache)) return known;
    zBuffer description(0, 0);
    if (compressor.GetDecoderDescription(description) != 0) return nullptr;
    const auto* bytes = static_cast<const unsigned char*>(description.Data());
    const Info made =
        std::make_shared<const std::vector<unsigned char>>(bytes, bytes + description.Size());
    Info first;
    return std::atomic_compare_exchange_strong(&cache, &first, made) ? made : first;
}
