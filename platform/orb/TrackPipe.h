#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "orb/CContainerWriter.h"
#include "orb/CMediaSample.h"
#include "orb/RObject.h"
#include "orb/Result.h"
#include "orb/trackShape.h"
#include "spar/zMutex.h"

namespace Quillon::Orb {

/// The encoder of a track, whichever filter it is.
class TrackCodec {
public:
    virtual ~TrackCodec() = default;
    virtual Result Put(CMediaSample* sample) = 0;
    virtual Result Get(RObject<CMediaSample>& sample) = 0;
    /// Once; the second call does nothing.
    virtual Result End() = 0;
};

template <class Filter>
class FilterCodec : public TrackCodec {
public:
    explicit FilterCodec(RObject<Filter> filter) : fFilter(std::move(filter)) {}
    ~FilterCodec() override { FilterCodec::End(); }
    Result Put(CMediaSample* sample) override { return fFilter->PutSample(0, sample); }
    Result Get(RObject<CMediaSample>& sample) override { return fFilter->GetSample(0, sample); }
    Result End() override {
        if (fEnded) return 0;
        fEnded = true;
        return fFilter->End();
    }

private:
    const RObject<Filter> fFilter;
    bool fEnded = false;
};

/// What runs behind a track: its queue of samples, its encoder thread if it has an encoder, and
/// its way to the file.
///
/// A plain track shapes and pushes on the caller's thread. Lock order: fLock before that of the
/// movie queue.
class TrackPipe {
public:
    explicit TrackPipe(unsigned int sampleKind);
    /// Cuts off what is still under way.
    ~TrackPipe();
    TrackPipe(const TrackPipe&) = delete;
    TrackPipe& operator=(const TrackPipe&) = delete;

    /// The asset's: which container the track went into. ResultError when it stands in one.
    Result Join(CContainerWriter* container) SPAR_EXCLUDES(fLock);
    CContainerWriter* GetContainerWriter() const SPAR_EXCLUDES(fLock);
    /// The asset's: the place in the file, or -1 for none, and how the track is described there.
    void SetIndex(int index) noexcept { fIndex.store(index); }
    MovieTrack GetDescription() const SPAR_EXCLUDES(fLock);
    bool HasBegun() const SPAR_EXCLUDES(fLock);

    /// From here on samples are taken, as soon as the asset has begun. `codec` is null for a plain
    /// track; in front of an encoder the track is ready while fewer than `queueSize` samples wait,
    /// and one more than that may.
    Result Begin(MovieTrack description, std::unique_ptr<TrackShaper> shaper,
                 std::unique_ptr<TrackCodec> codec, std::size_t queueSize) SPAR_EXCLUDES(fLock);
    Result Write(CMediaSample* sample) SPAR_EXCLUDES(fLock);
    /// Ends the stream and waits until all of it has been handed to the file's queue.
    Result End() SPAR_EXCLUDES(fLock);
    /// The same, but gives the encoder up when it has not moved for so long. False then.
    bool EndOrCutOff(long long patienceUs) SPAR_EXCLUDES(fLock);
    /// Stops without waiting for what is queued.
    void CutOff() SPAR_EXCLUDES(fLock);

    bool IsReady() const SPAR_EXCLUDES(fLock);
    long long GetBytesWritten() const SPAR_EXCLUDES(fLock);

private:
    enum class State { New, Running, Ending, Done };

    MovieQueue* queue() const SPAR_EXCLUDES(fLock);
    Result write_plain(CMediaSample* sample) SPAR_EXCLUDES(fLock);
    Result write_queued(CMediaSample* sample) SPAR_EXCLUDES(fLock);
    void begin_end() SPAR_EXCLUDES(fLock);
    void run() SPAR_EXCLUDES(fLock);
    bool encode_what_comes() noexcept SPAR_EXCLUDES(fLock);
    bool take(RObject<CMediaSample>& sample) SPAR_EXCLUDES(fLock);
    Result encode(CMediaSample* sample);
    Result drain() noexcept;
    Result shape(const CMediaSample& sample, MovieQueue::Sample& shaped);
    Result pass_on_what_is_ready();
    void note_failure(Result failure) noexcept SPAR_EXCLUDES(fLock);

    const unsigned int fSampleKind;
    std::atomic<int> fIndex{-1};

    // fixed by Begin, then used by the thread that shapes: the encoder's, or the writer's
    std::unique_ptr<TrackShaper> fShaper;
    std::unique_ptr<TrackCodec> fCodec;
    std::thread fThread;
    long long fInside = 0;  ///< pictures that the encoder took and has not answered for
    bool fFailing = false;  ///< encoder thread: nothing came out since the last failure

    // guarded by fLock
    mutable zMutex fLock;
    zCondition fChanged;
    RObject<CContainerWriter> fContainer SPAR_GUARDED_BY(fLock);
    MovieTrack fDescription SPAR_GUARDED_BY(fLock);
    State fState SPAR_GUARDED_BY(fLock) = State::New;
    std::deque<RObject<CMediaSample>> fSamples SPAR_GUARDED_BY(fLock);
    std::size_t fQueueSize SPAR_GUARDED_BY(fLock) = 0;
    Result fFailure SPAR_GUARDED_BY(fLock);  ///< of the encoder, until somebody was told
    bool fCutOff SPAR_GUARDED_BY(fLock) = false;
    long long fProgress SPAR_GUARDED_BY(fLock) = 0;  ///< samples taken and passed on, for patience
};

}  // namespace Quillon::Orb
