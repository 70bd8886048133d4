#include "WholeMovieFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "spar/zTime.h"

#include "SampleDescription.h"

namespace Quillon::Orb {
namespace {

constexpr long long kMicrosecondsPerSecond = 1000000;
constexpr double kUnannouncedSeconds = 3600;
// The disk begins with what a checkpoint will wait for when this much of it is there.
constexpr long long kBytesToBeginWith = 8 << 20;
// One block of plain sound; what a run of samples can count is far beyond it.
constexpr long long kMostPackets = std::numeric_limits<int>::max();

Movie make_movie(const MovieFileOptions& options) {
    Movie movie;
    movie.quickTime = options.containerType == 'mov ';
    movie.created = options.creationTime != 0 ? options.creationTime : zTime::SecondsSince1970();
    return movie;
}

}  // namespace

WholeMovieFile::WholeMovieFile(const char* path, const MovieFileOptions& options,
                               std::unique_ptr<FileLayer> file, Checkpoints checkpoints)
    : fPath(path),
      fOptions(options),
      fCheckpoints(checkpoints),
      fFile(std::move(file)),
      fThread(*this, std::max(options.checkpointSeconds, 1) * kMicrosecondsPerSecond),
      fMovie(make_movie(options)) {}

WholeMovieFile::~WholeMovieFile() {
    Finish();
}

int WholeMovieFile::AddTrack(const MovieTrack& track) {
    zMutexLock held(fLock);
    if (fState != State::Described) return ResultError::kCode;
    if (const int refused = CheckTrack(track, fOptions.containerType)) return refused;
    fMovie.tracks.push_back(std::make_unique<TrackIndex>(track, fOptions.trimAudio));
    return static_cast<int>(fMovie.tracks.size()) - 1;
}

double WholeMovieFile::announced_seconds() const {
    double seconds = 0;
    for (const auto& track : fMovie.tracks) {
        const MovieTrack& description = track->Description();
        seconds = std::max(seconds, static_cast<double>(description.expectedDuration) /
                                        static_cast<double>(description.timescale));
    }
    return seconds > 0 ? seconds : kUnannouncedSeconds;
}

Result WholeMovieFile::Begin() {
    zMutexLock held(fLock);
    if (fState != State::Described) return ResultError("'%s': begun twice", fPath.c_str());
    if (const int error = write_head()) {
        fFile->Close();
        fState = State::Closed;
        return ResultError("'%s': %s; no movie was made", fPath.c_str(), strerror(-error));
    }
    fState = State::Open;
    if (fCheckpoints == Checkpoints::OnThread && !fThread.Start()) return fail(-EAGAIN);
    return ResultOK();
}

int WholeMovieFile::write_head() {
    if (const int error = fFile->Create(fPath.c_str())) return error;
    fMovie.ChooseTimescale();
    fIndex = std::make_unique<MovieIndex>(*fFile, fMovie);
    fMedia = std::make_unique<MediaWriter>(*fFile, fMovie);
    long long end = 0;
    if (const int error = fIndex->Begin(fOptions.fastStart ? announced_seconds() : 0, end))
        return error;
    fMedia->SetEnd(end);
    fSyncBegun = end;
    fNextNudge = end + kBytesToBeginWith;
    // What shows under the name is a movie from the first moment on, after a power cut too.
    if (const int error = fFile->Sync()) return error;
    return fFile->Publish();
}

int WholeMovieFile::check_sample(int track, const MovieSample& sample) {
    if (track < 0 || track >= static_cast<int>(fMovie.tracks.size()))
        return ResultArgumentOutOfRange::kCode;
    if (sample.data == nullptr && sample.size > 0) return ResultNullPointer::kCode;
    if (sample.size > std::numeric_limits<int>::max()) return ResultInvalidArgument::kCode;
    const TrackIndex& index = *fMovie.tracks[static_cast<std::size_t>(track)];
    if (!index.IsPlain()) return 0;
    const long long packets = sample.packets;
    const long long bytes = packets * index.Description().bytesPerPacket;
    if (packets < 0 || packets > kMostPackets || bytes > static_cast<long long>(sample.size))
        return ResultInvalidArgument::kCode;
    return 0;
}

Result WholeMovieFile::WriteSample(int track, const MovieSample& sample) {
    {
        zMutexLock held(fLock);
        if (fState != State::Open) return ResultError("'%s': not open", fPath.c_str());
        if (fTorn) give_up();
        if (fFailure.Failed()) return fFailure;
        if (const int refused = check_sample(track, sample)) {
            // The contract's codes have names; the text says which file it was.
            Result result = ResultInvalidArgument(
                "'%s': a sample of track %d contradicts the track", fPath.c_str(), track);
            return refused == ResultInvalidArgument::kCode ? result : Result(refused);
        }
        if (fBroken == 0) {
            fBroken = add_sample(track, sample);
            nudge();
            if (fBroken == 0) return ResultOK();
        }
    }
    return stop();
}

int WholeMovieFile::add_sample(int track, const MovieSample& sample) {
    const auto number = static_cast<std::size_t>(track);
    TrackIndex& index = *fMovie.tracks[number];
    const std::size_t size =
        index.IsPlain()
            ? static_cast<std::size_t>(sample.packets * index.Description().bytesPerPacket)
            : sample.size;
    // An empty picture or packet is nothing to show: the one before it stays that much longer.
    if (size == 0) return 0;
    StoredSample stored;
    stored.size = static_cast<unsigned int>(size);
    stored.offset = static_cast<int>(sample.compositionOffset);
    stored.key = sample.key;
    stored.time = sample.decodeTime;
    stored.duration = sample.duration;
    stored.packets = index.IsPlain() ? sample.packets : 1;
    if (!index.Count(stored)) return -EFBIG;
    fChanged = true;
    // Without memory the call does not come back, and what it left must never show.
    fTorn = true;
    const int error = fMedia->Add(number, stored, sample.data, size);
    fTorn = false;
    return error;
}

/// The file is broken: gives the failure once what stands in the file is safe. Container thread.
Result WholeMovieFile::stop() {
    // When it was the file's own thread that met the error, the failure is there after this.
    fThread.Stop();
    {
        zMutexLock held(fLock);
        if (fFailure.Failed()) return fFailure;
    }
    save_what_stands();
    zMutexLock held(fLock);
    return fail(fBroken);
}

/// A last checkpoint of all that could be written, so that the seconds which are told to be kept
/// are those that the file has in the end.
int WholeMovieFile::save_what_stands() {
    MovieIndex* index;
    int error;
    {
        zMutexLock held(fLock);
        if (fFrozen || fTorn) return 0;
        // A write that failed half-way has left bytes that belong to nothing.
        error = fFile->Truncate(fMedia->End());
        if (error == 0) error = prepare();
        fFrozen = error != 0;
        index = fIndex.get();
    }
    return error == 0 ? show(*index) : error;
}

/// Keeps the first reason. Whoever owns the file tells people: it knows what else goes on.
Result WholeMovieFile::fail(int error) noexcept {
    if (fFailure.Failed()) return fFailure;
    fFailure = ResultError("'%s': %s; recording stopped, %.1f seconds kept", fPath.c_str(),
                           strerror(-error), fSecondsShown);
    return fFailure;
}

/// There was no memory: what shows is kept, and nothing is done to it any more.
void WholeMovieFile::give_up() noexcept {
    fFrozen = true;
    if (fBroken == 0) fBroken = -ENOMEM;
    fail(fBroken);
}

void WholeMovieFile::OnException() noexcept {
    zMutexLock held(fLock);
    give_up();
}

void WholeMovieFile::OnCheckpoint() {
    Checkpoint();
}

void WholeMovieFile::nudge() {
    if (fMedia->End() < fNextNudge) return;
    fNextNudge = fMedia->End() + kBytesToBeginWith;
    fThread.Nudge();
}

void WholeMovieFile::OnNudge() {
    long long from;
    long long to;
    {
        zMutexLock held(fLock);
        from = fSyncBegun;
        to = fSyncBegun = fMedia->End();
    }
    if (to > from) fFile->BeginToSync(from, to - from);
}

Result WholeMovieFile::Checkpoint() {
    {
        zMutexLock held(fLock);
        if (fState != State::Open || fFailure.Failed()) return fFailure;
        if (fBroken != 0) return ResultError();  // and the container thread sees to it
    }
    if (checkpoint() == 0) return ResultOK();
    zMutexLock held(fLock);
    return fFailure.Failed() ? fFailure : Result(ResultError());
}

/// Shows what is new. An error that nobody has met before is told, and what stands is saved.
int WholeMovieFile::checkpoint() {
    MovieIndex* index;
    int error;
    bool first;
    {
        zMutexLock held(fLock);
        if (!fChanged || fTorn) return 0;
        error = prepare();
        first = fBroken == 0;
        if (first) fBroken = error;
        index = fIndex.get();
    }
    if (error == 0) {
        error = show(*index);
        if (error == 0) return 0;
        zMutexLock held(fLock);
        first = fBroken == 0;
        if (first) fBroken = error;
    }
    if (!first) return error;
    save_what_stands();
    zMutexLock held(fLock);
    fail(error);
    return error;
}

int WholeMovieFile::prepare() {
    fTorn = true;
    const int error = bring_up_to_date();
    fTorn = false;
    return error;
}

int WholeMovieFile::bring_up_to_date() {
    if (const int error = fMedia->Flush()) return error;
    long long end = fMedia->End();
    const int error = fIndex->Prepare(end);
    fMedia->SetEnd(end);
    if (error != 0) return error;
    fChanged = false;
    fSyncBegun = end;
    fNextNudge = end + kBytesToBeginWith;
    fSecondsPrepared = fMovie.Seconds();
    return 0;
}

/// Media and hidden state first, then the switch: on the disk in this order, whatever happens.
int WholeMovieFile::show(MovieIndex& index) {
    int error = fFile->Sync();
    if (error == 0) error = index.Show();
    if (error == 0) error = fFile->Sync();
    {
        zMutexLock held(fLock);
        // After a sync that failed nobody knows what is on the disk.
        fFrozen = fFrozen || error != 0;
        if (error != 0) return error;
        fSecondsShown = fSecondsPrepared;
    }
    index.Shown();
    return 0;
}

Result WholeMovieFile::Finish() {
    fThread.Stop();
    {
        zMutexLock held(fLock);
        if (fState != State::Open) {
            fState = State::Closed;
            return fFailure;
        }
        if (fTorn) give_up();
    }
    int error = 0;
    try {
        error = close_whole();
    } catch (...) {
        OnException();
    }
    const int closed = fFile->Close();
    if (error == 0) error = closed;
    zMutexLock held(fLock);
    fState = State::Closed;
    return error == 0 ? fFailure : fail(error);
}

/// A last checkpoint, and the media data gets its size. Each step leaves a whole file.
int WholeMovieFile::close_whole() {
    bool broken;
    {
        zMutexLock held(fLock);
        broken = fBroken != 0;
    }
    if (!broken) checkpoint();
    zMutexLock held(fLock);
    if (fFrozen) return 0;
    if (const int error = fIndex->Finish(fMedia->End())) return error;
    if (const int error = fFile->Sync()) return error;
    fIndex->ReleaseHidden();
    return 0;
}

}  // namespace Quillon::Orb
