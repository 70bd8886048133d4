#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "orb/CAssetTrackWriter.h"
#include "orb/CAssetWriter.h"

// What the movie file writers wait for, in a test's hands. The linker puts the functions of
// tarn/writers/writerWaits_test.cpp in front of the real ones, see tarn/CMakeLists.txt.

namespace writerWaits {

/// Stands between the writers and the clock, their sleeps and their tracks for as long as it lives.
///
/// Time stands still but for waits and sleeps: those take no time, and move the clock by what was
/// asked of them. Waits of the media library and of the components' threads are real.
class Waits {
public:
    Waits();
    ~Waits();
    Waits(const Waits&) = delete;
    Waits& operator=(const Waits&) = delete;

    /// Of the track that was asked last.
    bool IsReady() const;
    long long BytesWritten() const;

    std::function<void()> fOnWait;       ///< in every WaitForMedia
    std::function<void()> fOnSleep;      ///< in every MicroSleep
    std::function<void()> fOnByteCount;  ///< once, behind the next GetBytesWritten
    bool fRefuseTracks = false;          ///< the asset takes none
    /// Before the asset takes a picture track.
    std::function<void(Quillon::Orb::CAssetWriter&)> fOnVideoTrack;

    std::atomic<int> fWaits{0};
    std::vector<unsigned int> fSleeps;  ///< microseconds

    // for the functions in front
    std::atomic<long long> fNow{1'000'000};
    std::atomic<const Quillon::Orb::CAssetTrackWriter*> fTrack{nullptr};
};

}  // namespace writerWaits
