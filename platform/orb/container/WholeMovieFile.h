#pragma once

#include <memory>
#include <string>

#include "spar/zMutex.h"

#include "CheckpointThread.h"
#include "FileLayer.h"
#include "MediaWriter.h"
#include "MovieFile.h"
#include "MovieIndex.h"

namespace Quillon::Orb {

/// A mov or mp4 file that opens and plays at every instant of its making.
///
/// The container thread hands in samples; a thread of the file's own makes the checkpoints, each at
/// most `checkpointSeconds` after the one before, and alone waits for the disk. docs/movie-files.md
/// draws the file and says why it is whole. Where there is no memory a call may throw; the file
/// then fails, and what it showed last is what it keeps.
class WholeMovieFile final : public MovieFile, public CheckpointThread::Client {
public:
    /// Who makes the checkpoints: the file's own thread, or the caller, as tests and benchmarks do.
    enum class Checkpoints { OnThread, ByHand };

    WholeMovieFile(const char* path, const MovieFileOptions& options,
                   std::unique_ptr<FileLayer> file, Checkpoints checkpoints);
    ~WholeMovieFile() override;

    int AddTrack(const MovieTrack& track) override;
    Result Begin() override;
    Result WriteSample(int track, const MovieSample& sample) override;
    Result Finish() override;

    /// Lets everything that was written show, durably. For ByHand; does nothing when there is
    /// nothing new or the file has failed.
    Result Checkpoint() SPAR_EXCLUDES(fLock);

private:
    enum class State { Described, Open, Closed };

    void OnCheckpoint() override;
    void OnNudge() override;
    void OnException() noexcept override SPAR_EXCLUDES(fLock);
    int write_head() SPAR_REQUIRES(fLock);
    double announced_seconds() const SPAR_REQUIRES(fLock);
    int prepare() SPAR_REQUIRES(fLock);
    int bring_up_to_date() SPAR_REQUIRES(fLock);
    int show(MovieIndex& index) SPAR_EXCLUDES(fLock);
    int check_sample(int track, const MovieSample& sample) SPAR_REQUIRES(fLock);
    int add_sample(int track, const MovieSample& sample) SPAR_REQUIRES(fLock);
    void nudge() SPAR_REQUIRES(fLock);
    int checkpoint() SPAR_EXCLUDES(fLock);
    int save_what_stands() SPAR_EXCLUDES(fLock);
    int close_whole() SPAR_EXCLUDES(fLock);
    Result stop() SPAR_EXCLUDES(fLock);
    void give_up() noexcept SPAR_REQUIRES(fLock);
    Result fail(int error) noexcept SPAR_REQUIRES(fLock);

    // fixed from the start
    const std::string fPath;
    const MovieFileOptions fOptions;
    const Checkpoints fCheckpoints;
    const std::unique_ptr<FileLayer> fFile;  // the container thread and the checkpoint thread
    CheckpointThread fThread;

    // Held while samples are entered and while a state is prepared, never during a sync. Whoever
    // turns fBroken from 0 saves what stands and then tells the failure.
    zMutex fLock;
    State fState SPAR_GUARDED_BY(fLock) = State::Described;
    Movie fMovie SPAR_GUARDED_BY(fLock);
    std::unique_ptr<MediaWriter> fMedia SPAR_GUARDED_BY(fLock);
    std::unique_ptr<MovieIndex> fIndex SPAR_GUARDED_BY(fLock);
    bool fChanged SPAR_GUARDED_BY(fLock) = true;  // since the last checkpoint
    long long fNextNudge SPAR_GUARDED_BY(fLock) = 0;
    long long fSyncBegun SPAR_GUARDED_BY(fLock) =
        0;                                        // up to here the disk has been given the media
    int fBroken SPAR_GUARDED_BY(fLock) = 0;       // the first error, a negative errno
    bool fFrozen SPAR_GUARDED_BY(fLock) = false;  // what shows stays as it is: more might harm it
    bool fTorn SPAR_GUARDED_BY(fLock) = false;    // a sample or a state is entered by half
    double fSecondsPrepared SPAR_GUARDED_BY(fLock) = 0;
    double fSecondsShown SPAR_GUARDED_BY(fLock) = 0;
    Result fFailure SPAR_GUARDED_BY(fLock);  // told to everyone from here on
};

}  // namespace Quillon::Orb
