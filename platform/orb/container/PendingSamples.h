#pragma once

#include <cstddef>
#include <vector>

#include "FileLayer.h"
#include "TrackIndex.h"

namespace Quillon::Orb {

/// Samples of one track that wait until there are enough for a write. Its memory is kept.
class PendingSamples {
public:
    /// Copies the bytes.
    void Add(const StoredSample& sample, long long duration, const unsigned char* data,
             std::size_t size) {
        AddBorrowed(sample, duration);
        fBytes.insert(fBytes.end(), data, data + size);
    }
    /// The caller writes the sample's bytes right behind Bytes().
    void AddBorrowed(const StoredSample& sample, long long duration) {
        fSamples.push_back(sample);
        fDuration += duration;
    }
    void Clear() {
        fBytes.clear();
        fSamples.clear();
        fDuration = 0;
    }

    bool Empty() const { return fSamples.empty(); }
    long long Duration() const { return fDuration; }
    const std::vector<StoredSample>& Samples() const { return fSamples; }
    FileSpan Bytes() const { return {fBytes.data(), fBytes.size()}; }

private:
    std::vector<unsigned char> fBytes;
    std::vector<StoredSample> fSamples;
    long long fDuration = 0;  // ticks of the track
};

}  // namespace Quillon::Orb
