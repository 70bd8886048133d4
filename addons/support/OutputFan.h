#pragma once

#include <memory>
#include <vector>

#include "spar/zMutex.h"
#include "tarn/movies/tnEncodedSink.h"

#include "addons/support/MovieOutput.h"

/// The sink of a movie's streams: hands every buffer to each running output of the movie.
///
/// Outputs come and go on the control thread while buffers arrive on others. An output that has
/// been removed may still be handed a buffer that was under way. A stream that joins a running
/// encoder may hear it before it knows its filter, without which nobody can tell the track's
/// format: such a buffer is left out, as those before it were.
class OutputFan final : public tnEncodedSink {
public:
    void Add(std::shared_ptr<MovieOutput> output) SPAR_EXCLUDES(fLock);
    void Remove(const std::shared_ptr<MovieOutput>& output) SPAR_EXCLUDES(fLock);

    /// The first one that has failed; null for none.
    std::shared_ptr<MovieOutput> FindFailed() const SPAR_EXCLUDES(fLock);
    /// The first one that goes on without a part of its pictures, or of its sound; null for none.
    std::shared_ptr<MovieOutput> FindInTrouble(bool ofPictures) const SPAR_EXCLUDES(fLock);

    void WriteVideo(std::shared_ptr<tnFilter> filter,
                    std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) override;
    void WriteAudio(std::shared_ptr<tnFilter> filter,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) override;

private:
    using Outputs = std::vector<std::shared_ptr<MovieOutput>>;

    std::shared_ptr<const Outputs> outputs() const SPAR_EXCLUDES(fLock);
    template <class Wanted>
    std::shared_ptr<MovieOutput> first_that(const Wanted& wanted) const SPAR_EXCLUDES(fLock);

    mutable zMutex fLock;
    // Replaced and never changed, so that a write goes on with the one that it took.
    std::shared_ptr<const Outputs> fOutputs SPAR_GUARDED_BY(fLock) = std::make_shared<Outputs>();
};
