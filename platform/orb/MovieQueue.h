#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "orb/CDataReference.h"
#include "orb/RObject.h"
#include "orb/Result.h"
#include "orb/container/MovieFile.h"
#include "spar/zMutex.h"

namespace Quillon::Orb {

/// Tells whoever waits for room that something changed. A leaf among the locks.
class ReadyBell {
public:
    void Ring() SPAR_EXCLUDES(fLock);
    /// How often it rang so far.
    long long GetCount() const SPAR_EXCLUDES(fLock);
    /// Waits until it has rung more often than `count`, or the time is up.
    void WaitBeyond(long long count, long long microseconds) SPAR_EXCLUDES(fLock);

private:
    mutable zMutex fLock;
    zCondition fRang;
    long long fCount SPAR_GUARDED_BY(fLock) = 0;
};

/// The road from the tracks of an asset to its file: a bounded queue for each track, and one
/// thread that takes from them in the order of time and does all that the file does.
///
/// Begin and Finish come from the asset's thread and wait for the file's thread; Push and EndTrack
/// come from the tracks' threads. Tracks are counted from 0 in the order of Begin's list.
class MovieQueue {
public:
    /// An encoded sample on its way: its bytes and what the file must know of it.
    struct Sample {
        RObject<CDataReference> data;
        MovieSample description;  ///< without bytes; times in ticks of the track
    };

    /// `name`, a path in quotes, stands in trace lines.
    explicit MovieQueue(std::string name);
    /// Stops. What waits is dropped; a file that was not finished goes as it does when released,
    /// and a movie closes with what it was given.
    ~MovieQueue();
    MovieQueue(const MovieQueue&) = delete;
    MovieQueue& operator=(const MovieQueue&) = delete;

    /// Adds the tracks to the file and begins it. After a failure it may be called again.
    Result Begin(std::unique_ptr<MovieFile> file, const std::vector<MovieTrack>& tracks,
                 int queueSize) SPAR_EXCLUDES(fLock);
    /// Writes what waits, completes the file and gives the first failure that it had.
    Result Finish() SPAR_EXCLUDES(fLock);

    /// Queues a sample; blocks while the track's queue is full. A failure, with the reason, says
    /// that the file takes no more, or that the track has ended.
    Result Push(int track, Sample sample) SPAR_EXCLUDES(fLock);
    /// Nothing follows from this track: what waits is written, later pushes fail.
    void EndTrack(int track) SPAR_EXCLUDES(fLock);
    /// True when Push would not block.
    bool HasRoom(int track) const SPAR_EXCLUDES(fLock);
    /// The reason why the file takes no more, or success.
    Result GetFailure() const SPAR_EXCLUDES(fLock);
    /// Bytes of the track that the file has taken.
    long long GetBytesWritten(int track) const SPAR_EXCLUDES(fLock);

    const std::string& GetName() const noexcept { return fName; }
    /// Rings whenever a queue has room again, a track ends or the file fails.
    ReadyBell& Bell() noexcept { return fBell; }

private:
    struct Waiting {
        Sample sample;
        long long since;  ///< microseconds of the steady clock
    };
    struct Track {
        long long timescale = 1;
        std::deque<Waiting> queue;
        bool ended = false;
        bool started = false;    ///< a sample has come
        bool late = false;       ///< the others do not wait for its next sample
        long long nextTime = 0;  ///< end of the last sample that was queued, ticks
        long long bytes = 0;     ///< that the file has taken
    };
    enum class State { Idle, Beginning, Running, Finishing, Done };

    Result start_thread() SPAR_EXCLUDES(fLock);
    void run() SPAR_EXCLUDES(fLock);
    void make_file() SPAR_EXCLUDES(fLock);
    void give_up(Result failure) noexcept SPAR_EXCLUDES(fLock);
    bool begin_file(const std::vector<MovieTrack>& tracks) SPAR_EXCLUDES(fLock);
    void write_samples() SPAR_EXCLUDES(fLock);
    void write_one(int track, const Sample& sample) SPAR_EXCLUDES(fLock);
    void finish_file() SPAR_EXCLUDES(fLock);
    void stop(const Result& failure) SPAR_EXCLUDES(fLock);
    bool fail(const Result& failure) SPAR_REQUIRES(fLock);
    void tell(const Result& failure) noexcept SPAR_EXCLUDES(fLock);
    int earliest() const SPAR_REQUIRES(fLock);
    bool may_bring_earlier(const Track& other, const Track& first) const SPAR_REQUIRES(fLock);
    bool must_wait_for_others(const Track& first) const SPAR_REQUIRES(fLock);
    int next_to_write() SPAR_REQUIRES(fLock);
    bool is_far_behind(long long time, long long timescale) const SPAR_REQUIRES(fLock);
    void note_taken(long long time, long long timescale) SPAR_REQUIRES(fLock);
    bool is_track(int track) const SPAR_REQUIRES(fLock);

    const std::string fName;
    ReadyBell fBell;
    std::thread fThread;  ///< made and joined by the asset's thread

    // guarded by fLock
    mutable zMutex fLock;
    zCondition fWork;  ///< for the file's thread: samples, ends, a finish, the end of the object
    zCondition fRoom;  ///< for the tracks and the asset: room, a failure, a new state
    std::vector<Track> fTracks SPAR_GUARDED_BY(fLock);
    std::vector<MovieTrack> fDescriptions SPAR_GUARDED_BY(fLock);
    State fState SPAR_GUARDED_BY(fLock) = State::Idle;
    bool fStop SPAR_GUARDED_BY(fLock) = false;
    Result fFailure SPAR_GUARDED_BY(fLock);
    std::size_t fQueueSize SPAR_GUARDED_BY(fLock) = 1;
    // the latest sample that was taken to be written; a scale of 0 says that there was none
    long long fLatestTime SPAR_GUARDED_BY(fLock) = 0;
    long long fLatestScale SPAR_GUARDED_BY(fLock) = 0;

    // file thread only, once it runs
    std::unique_ptr<MovieFile> fFile;
};

}  // namespace Quillon::Orb
