#include "orb/MovieQueue.h"

#include <chrono>
#include <csignal>
#include <pthread.h>
#include <string_view>
#include <system_error>
#include <utility>

#include "orb/CLockedDataReference.h"
#include "orb/reasonOf.h"
#include "spar/trace.h"

namespace Quillon::Orb {

namespace {

/// How long a sample waits for a track that is behind. A track that stands still costs the others
/// this much once: until it brings something again nobody waits for it. One that is further behind
/// what is written would not catch up within it, and is not waited for at all.
constexpr long long kPatienceUs = 500000;
constexpr int kPatiencesPerSecond = 2;

long long steady_now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// A file that may not grow further is a failed write of this thread, and not the end of a host
/// that never heard of the signal. Threads that this one starts inherit it.
void hold_back_size_signal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// Whether `a` ticks of one scale come before `b` ticks of another.
bool is_before(long long a, long long aScale, long long b, long long bScale) {
    return static_cast<__int128>(a) * bScale < static_cast<__int128>(b) * aScale;
}

}  // namespace

void ReadyBell::Ring() {
    zMutexLock held(fLock);
    ++fCount;
    fRang.WakeAll();
}

long long ReadyBell::GetCount() const {
    zMutexLock held(fLock);
    return fCount;
}

void ReadyBell::WaitBeyond(long long count, long long microseconds) {
    const long long end = steady_now() + microseconds;
    zMutexLock held(fLock);
    while (fCount <= count) {
        const long long left = end - steady_now();
        if (left <= 0) return;
        fRang.WaitFor(fLock, left);
    }
}

MovieQueue::MovieQueue(std::string name) : fName(std::move(name)) {}

MovieQueue::~MovieQueue() {
    {
        zMutexLock held(fLock);
        fStop = true;
        fWork.WakeAll();
    }
    if (fThread.joinable()) fThread.join();
}

Result MovieQueue::Begin(std::unique_ptr<MovieFile> file, const std::vector<MovieTrack>& tracks,
                         int queueSize) {
    {
        zMutexLock held(fLock);
        if (fState != State::Idle) return ResultError("%s has begun already", fName.c_str());
        fFailure = 0;
        fLatestScale = 0;
        fQueueSize = static_cast<std::size_t>(queueSize);
        fTracks.clear();
        fDescriptions = tracks;
        for (const MovieTrack& track : tracks) {
            fTracks.emplace_back().timescale = track.timescale > 0 ? track.timescale : 1;
        }
        fState = State::Beginning;
    }
    fFile = std::move(file);
    Result failure = start_thread();
    if (failure.Failed()) return failure;
    {
        zMutexLock held(fLock);
        while (fState == State::Beginning) fRoom.Wait(fLock);
        if (fState == State::Running) return 0;
        failure = fFailure;
    }
    fThread.join();
    zMutexLock held(fLock);
    fState = State::Idle;
    return failure;
}

Result MovieQueue::start_thread() {
    try {
        fThread = std::thread([this] { run(); });
        return 0;
    } catch (const std::system_error& error) {
        fFile.reset();
        zMutexLock held(fLock);
        fState = State::Idle;
        return ResultError("no thread for %s: %s", fName.c_str(), error.what());
    }
}

Result MovieQueue::Finish() {
    {
        zMutexLock held(fLock);
        if (fState == State::Idle) return ResultError("%s has not begun", fName.c_str());
        if (fState == State::Running) fState = State::Finishing;
        fWork.WakeAll();
    }
    if (fThread.joinable()) fThread.join();
    zMutexLock held(fLock);
    return fFailure;
}

bool MovieQueue::is_track(int track) const {
    return track >= 0 && track < static_cast<int>(fTracks.size());
}

Result MovieQueue::Push(int track, Sample sample) {
    zMutexLock held(fLock);
    if (!is_track(track)) return ResultError("the track has no place in %s", fName.c_str());
    Track& place = fTracks[static_cast<std::size_t>(track)];
    while (fState == State::Running && !place.ended && fFailure.Succeeded() &&
           place.queue.size() >= fQueueSize) {
        fRoom.Wait(fLock);
    }
    if (fFailure.Failed()) return fFailure;
    if (fState != State::Running) return ResultError("%s takes no samples now", fName.c_str());
    if (place.ended) return ResultError("the track has ended");
    place.started = true;
    place.late = is_far_behind(sample.description.decodeTime, place.timescale);
    place.nextTime = sample.description.decodeTime + sample.description.duration;
    place.queue.push_back({std::move(sample), steady_now()});
    fWork.WakeAll();
    return 0;
}

void MovieQueue::EndTrack(int track) {
    {
        zMutexLock held(fLock);
        if (!is_track(track)) return;
        fTracks[static_cast<std::size_t>(track)].ended = true;
        fWork.WakeAll();
        fRoom.WakeAll();
    }
    fBell.Ring();
}

bool MovieQueue::HasRoom(int track) const {
    zMutexLock held(fLock);
    if (!is_track(track) || fState != State::Running || fFailure.Failed()) return true;
    const Track& place = fTracks[static_cast<std::size_t>(track)];
    return place.ended || place.queue.size() < fQueueSize;
}

Result MovieQueue::GetFailure() const {
    zMutexLock held(fLock);
    return fFailure;
}

long long MovieQueue::GetBytesWritten(int track) const {
    zMutexLock held(fLock);
    return is_track(track) ? fTracks[static_cast<std::size_t>(track)].bytes : 0;
}

/// Whether this failure is the first, which is the one that counts and is told: what waits is
/// dropped, and nothing more is taken.
bool MovieQueue::fail(const Result& failure) {
    if (fFailure.Failed()) return false;
    fFailure = failure;
    for (Track& track : fTracks) track.queue.clear();
    return true;
}

/// Without the lock: the trace is the host's, may be slow, and may ask this queue how far it is.
void MovieQueue::tell(const Result& failure) noexcept {
    const Result inWords = explained(failure);
    const std::string_view reason = inWords.GetMessage();
    // A file's own reasons name it and say what it keeps: of that only the file knows.
    const std::string_view path(fName.c_str() + 1, fName.size() - 2);
    const bool named = reason.find(path) != std::string_view::npos;
    if (named)
        zTrace("{}\n", reason);
    else
        zTrace("{}: {}; writing stopped\n", fName, reason);
}

void MovieQueue::run() {
    pthread_setname_np(pthread_self(), "movie file");
    hold_back_size_signal();
    try {
        make_file();
    } catch (...) {
        give_up(result_of_exception());
    }
}

void MovieQueue::make_file() {
    std::vector<MovieTrack> tracks;
    {
        zMutexLock held(fLock);
        tracks = fDescriptions;
    }
    // Asked of the call and not of the state: a short recording may be finishing already.
    if (!begin_file(tracks)) return;
    write_samples();
    finish_file();
}

/// No memory, as a rule: a failure of this file, and not the end of the host with all it records.
void MovieQueue::give_up(Result failure) noexcept {
    try {
        Result finished = fFile ? fFile->Finish() : Result(0);
        if (finished.Failed()) failure = std::move(finished);  // which says what it keeps
    } catch (...) {
        // The file is as it was shown last.
    }
    fFile.reset();
    bool first = false;
    {
        zMutexLock held(fLock);
        first = fail(failure);
        fState = State::Done;
        fRoom.WakeAll();
    }
    fBell.Ring();
    if (first) tell(failure);
}

bool MovieQueue::begin_file(const std::vector<MovieTrack>& tracks) {
    Result result = 0;
    for (std::size_t i = 0; i < tracks.size() && result.Succeeded(); ++i) {
        const int index = fFile->AddTrack(tracks[i]);
        if (index < 0) {
            result =
                ResultNotSupported("the file cannot hold track %d as it is", static_cast<int>(i));
        }
    }
    if (result.Succeeded()) result = fFile->Begin();
    const bool begun = result.Succeeded();
    if (!begun) fFile.reset();
    {
        zMutexLock held(fLock);
        if (!begun) fail(result);
        fState = begun ? State::Running : State::Done;
        fRoom.WakeAll();
    }
    if (!begun) tell(result);
    return begun;
}

int MovieQueue::earliest() const {
    int found = -1;
    for (int i = 0; i < static_cast<int>(fTracks.size()); ++i) {
        const Track& track = fTracks[static_cast<std::size_t>(i)];
        if (track.queue.empty()) continue;
        if (found >= 0) {
            const Track& best = fTracks[static_cast<std::size_t>(found)];
            if (!is_before(track.queue.front().sample.description.decodeTime, track.timescale,
                           best.queue.front().sample.description.decodeTime, best.timescale)) {
                continue;
            }
        }
        found = i;
    }
    return found;
}

/// Whether this track may still bring a sample that is earlier than the first of another.
bool MovieQueue::may_bring_earlier(const Track& other, const Track& first) const {
    if (other.ended || other.late || !other.queue.empty()) return false;
    const long long time = first.queue.front().sample.description.decodeTime;
    return !other.started || is_before(other.nextTime, other.timescale, time, first.timescale);
}

bool MovieQueue::must_wait_for_others(const Track& first) const {
    if (fState == State::Finishing) return false;
    for (const Track& other : fTracks) {
        if (may_bring_earlier(other, first)) return true;
    }
    return false;
}

bool MovieQueue::is_far_behind(long long time, long long timescale) const {
    if (fLatestScale == 0) return false;
    // In patiences, to stay with whole numbers.
    const __int128 own = static_cast<__int128>(time) * kPatiencesPerSecond + timescale;
    const __int128 latest = static_cast<__int128>(fLatestTime) * kPatiencesPerSecond;
    return own * fLatestScale < latest * timescale;
}

void MovieQueue::note_taken(long long time, long long timescale) {
    if (fLatestScale != 0 && !is_before(fLatestTime, fLatestScale, time, timescale)) return;
    fLatestTime = time;
    fLatestScale = timescale;
}

/// Waits for the next sample to be written, in the order of time over all tracks.
///
/// The earliest sample goes as soon as no other track can still bring an earlier one, or when it
/// has waited long enough for those that could.
int MovieQueue::next_to_write() {
    while (!fStop && fFailure.Succeeded()) {
        const int track = earliest();
        if (track < 0) {
            if (fState == State::Finishing) return -1;
            fWork.Wait(fLock);
            continue;
        }
        const Track& first = fTracks[static_cast<std::size_t>(track)];
        if (!must_wait_for_others(first)) return track;
        const long long left = first.queue.front().since + kPatienceUs - steady_now();
        if (left > 0) {
            fWork.WaitFor(fLock, left);
            continue;
        }
        for (Track& other : fTracks) other.late |= may_bring_earlier(other, first);
        return track;
    }
    return -1;
}

void MovieQueue::write_samples() {
    for (;;) {
        int track = -1;
        Sample sample;
        {
            zMutexLock held(fLock);
            track = next_to_write();
            if (track < 0) return;
            Track& place = fTracks[static_cast<std::size_t>(track)];
            sample = std::move(place.queue.front().sample);
            place.queue.pop_front();
            note_taken(sample.description.decodeTime, place.timescale);
            fRoom.WakeAll();
        }
        fBell.Ring();
        write_one(track, sample);
    }
}

void MovieQueue::write_one(int track, const Sample& sample) {
    MovieSample described = sample.description;
    Result result = 0;
    {
        RObject<CLockedDataReference> bytes(
            new CLockedDataReference(sample.data.Get(), CDataReference::kRead));
        const bool readable = bytes && bytes->IsLocked();
        described.data = readable ? bytes->GetData() : nullptr;
        described.size = readable ? static_cast<std::size_t>(bytes->GetLength()) : 0;
        // An empty sample is one for the file to judge.
        result = readable ? fFile->WriteSample(track, described)
                          : Result(ResultNullPointer("a sample has no bytes"));
    }
    if (result.Failed()) {
        stop(result);
        return;
    }
    zMutexLock held(fLock);
    fTracks[static_cast<std::size_t>(track)].bytes += static_cast<long long>(described.size);
}

/// Frees who waits for room before it tells.
void MovieQueue::stop(const Result& failure) {
    bool first = false;
    {
        zMutexLock held(fLock);
        first = fail(failure);
        fRoom.WakeAll();
    }
    fBell.Ring();
    if (first) tell(failure);
}

/// Runs after the last sample, or after a failure, when nobody hears of it before Finish.
void MovieQueue::finish_file() {
    {
        zMutexLock held(fLock);
        while (!fStop && fState == State::Running) fWork.Wait(fLock);
        if (fStop) {
            fState = State::Done;
            fRoom.WakeAll();
            return;
        }
    }
    const Result result = fFile->Finish();
    fFile.reset();
    bool first = false;
    {
        zMutexLock held(fLock);
        first = result.Failed() && fail(result);
        fState = State::Done;
        fRoom.WakeAll();
    }
    if (first) tell(result);
}

}  // namespace Quillon::Orb
