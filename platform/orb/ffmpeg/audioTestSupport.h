#pragma once

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "orb/CAudioFilter.h"
#include "orb/CAudioSample.h"
#include "orb/CBufferDataReference.h"
#include "orb/CByteArray.h"
#include "orb/CLockedDataReference.h"
#include "orb/CMemoryDataReference.h"
#include "orb/filterSupport.h"

// What the tests of the audio components share.
namespace Quillon::Orb {

using Bytes = std::vector<unsigned char>;

inline std::string code_text(unsigned int code) {
    return four_text(code);
}

inline RObject<CAudioProperties> pcm_properties(unsigned int format, int channels, int rate) {
    RObject<CAudioProperties> properties(new CAudioProperties(nullptr));
    properties->SetFormat(format);
    properties->SetChannels(channels);
    properties->SetSampleRate(rate);
    return properties;
}

/// A sample with bytes of its own.
inline RObject<CAudioSample> pcm_sample(const void* data, std::size_t length, long long frames) {
    const RObject<CByteArray> bytes(
        new CByteArray(static_cast<const unsigned char*>(data), static_cast<int>(length)));
    const RObject<CBufferDataReference> reference(new CBufferDataReference(bytes.Get()));
    RObject<CAudioSample> sample(new CAudioSample(frames));
    sample->SetDataReference(reference.Get());
    return sample;
}

inline RObject<CAudioSample> pcm_sample(const Bytes& bytes, long long frames) {
    return pcm_sample(bytes.data(), bytes.size(), frames);
}

/// A sample over bytes that nobody can reach.
inline RObject<CAudioSample> unreachable_sound() {
    const RObject<CBufferDataReference> nothing(new CBufferDataReference(nullptr));
    RObject<CAudioSample> sample(new CAudioSample(3));
    sample->SetDataReference(nothing.Get());
    return sample;
}

inline Bytes bytes_of_sample(const CMediaSample& sample) {
    const RObject<CLockedDataReference> lock(sample.GetLockedDataReference(CDataReference::kRead));
    return lock ? Bytes(lock->GetData(), lock->GetData() + lock->GetLength()) : Bytes();
}

/// Puts `pcm` in blocks of `blockBytes` and drains; `take` is called whenever there may be
/// something to take.
template <typename Take>
void put_in_blocks(CAudioFilter& filter, const Bytes& pcm, std::size_t blockBytes,
                   const Take& take) {
    for (std::size_t at = 0; at < pcm.size(); at += blockBytes) {
        const std::size_t length = std::min(blockBytes, pcm.size() - at);
        EXPECT_EQ(filter.PutSample(0, pcm_sample(pcm.data() + at, length, 1).Get()), 0);
        take();
    }
    EXPECT_EQ(filter.PutSample(0, nullptr), 0);
    take();
}

/// The bytes of the next sample that is ready; none if there is none.
inline Bytes take_bytes(CAudioFilter& filter) {
    RObject<CMediaSample> sample;
    EXPECT_EQ(filter.GetSample(0, sample), 0);
    return sample ? bytes_of_sample(*sample) : Bytes();
}

}  // namespace Quillon::Orb
