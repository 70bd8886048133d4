#include "orb/TrackPipe.h"

#include <pthread.h>
#include <system_error>
#include <utility>

#include "orb/reasonOf.h"
#include "spar/trace.h"

namespace Quillon::Orb {

namespace {

/// What a step of the encoder thread gives; an exception, no memory as a rule, is its failure.
template <class Step>
Result result_of(const Step& step) noexcept {
    try {
        return step();
    } catch (...) {
        return result_of_exception();
    }
}

}  // namespace

TrackPipe::TrackPipe(unsigned int sampleKind) : fSampleKind(sampleKind) {}

TrackPipe::~TrackPipe() {
    CutOff();
    if (fThread.joinable()) fThread.join();
}

Result TrackPipe::Join(CContainerWriter* container) {
    zMutexLock held(fLock);
    if (fContainer) return ResultError("the track stands in a file already");
    fContainer = RObject<CContainerWriter>::Share(container);
    return 0;
}

CContainerWriter* TrackPipe::GetContainerWriter() const {
    zMutexLock held(fLock);
    return RObject<CContainerWriter>(fContainer).Detach();
}

MovieTrack TrackPipe::GetDescription() const {
    zMutexLock held(fLock);
    return fDescription;
}

bool TrackPipe::HasBegun() const {
    zMutexLock held(fLock);
    return fState != State::New;
}

/// The container never changes once it is there, so its queue may be used without the lock.
MovieQueue* TrackPipe::queue() const {
    zMutexLock held(fLock);
    return fContainer ? &fContainer->Queue() : nullptr;
}

Result TrackPipe::Begin(MovieTrack description, std::unique_ptr<TrackShaper> shaper,
                        std::unique_ptr<TrackCodec> codec, std::size_t queueSize) {
    zMutexLock held(fLock);
    if (!fContainer) return ResultError("the track was not added to a file");
    if (fState != State::New) return ResultError("the track has begun already");
    fDescription = std::move(description);
    fShaper = std::move(shaper);
    fCodec = std::move(codec);
    fQueueSize = queueSize;
    if (fCodec) {
        try {
            fThread = std::thread([this] { run(); });
        } catch (const std::system_error& error) {
            fCodec.reset();  // which ends the encoder, so that it may begin again
            return ResultError("no encoder thread: %s", error.what());
        }
    }
    fState = State::Running;
    return 0;
}

Result TrackPipe::Write(CMediaSample* sample) {
    if (!sample) {
        begin_end();
        return 0;
    }
    if (!sample->IsType(fSampleKind)) return ResultInvalidArgument("not a sample for this track");
    MovieQueue* file = queue();
    if (!file || fIndex.load() < 0) return ResultError("the file has not begun");
    Result failure = file->GetFailure();
    if (failure.Failed()) return failure;
    return fCodec ? write_queued(sample) : write_plain(sample);
}

Result TrackPipe::write_plain(CMediaSample* sample) {
    {
        zMutexLock held(fLock);
        if (fState != State::Running) return ResultError("the track has ended");
    }
    MovieQueue::Sample shaped;
    Result result = shape(*sample, shaped);
    if (result.Failed()) return result;
    // Less than a packet: it goes with the next block.
    if (static_cast<int>(result) != 0) return 0;
    return queue()->Push(fIndex.load(), std::move(shaped));
}

/// As the shaper, but that a sample whose bytes nobody can read goes no further: in the file's
/// queue it would be the end of all tracks.
Result TrackPipe::shape(const CMediaSample& sample, MovieQueue::Sample& shaped) {
    Result result = fShaper->Shape(sample, shaped);
    if (static_cast<int>(result) != 0) return result;
    unsigned char* data = nullptr;
    int length = 0;
    if (!shaped.data || shaped.data->LockBytes(CDataReference::kRead, data, length).Failed()) {
        return ResultNullPointer("a sample whose bytes cannot be read");
    }
    shaped.data->UnlockBytes();
    return 0;
}

Result TrackPipe::write_queued(CMediaSample* sample) {
    if (!sample->HasDataReference()) return ResultNullPointer("a sample without data");
    zMutexLock held(fLock);
    // One beyond what IsReady promises: a host that asked before each write has a place left for
    // the sample that it held back, however long the encoder stands still.
    while (fState == State::Running && fFailure.Succeeded() && fSamples.size() > fQueueSize) {
        fChanged.Wait(fLock);
    }
    if (fFailure.Failed()) return std::exchange(fFailure, Result(0));
    if (fState != State::Running) return ResultError("the track has ended");
    fSamples.push_back(RObject<CMediaSample>::Share(sample));
    fChanged.WakeAll();
    return 0;
}

void TrackPipe::begin_end() {
    {
        zMutexLock held(fLock);
        if (fState != State::Running) return;
        fState = fCodec ? State::Ending : State::Done;
        fChanged.WakeAll();
    }
    if (!fCodec) queue()->EndTrack(fIndex.load());
    queue()->Bell().Ring();
}

Result TrackPipe::End() {
    begin_end();
    if (fThread.joinable()) fThread.join();
    Result ended = fCodec ? fCodec->End() : Result(0);
    MovieQueue* file = queue();
    Result failure = file ? file->GetFailure() : Result(0);
    if (failure.Failed()) return failure;
    zMutexLock held(fLock);
    if (fFailure.Failed()) return std::exchange(fFailure, Result(0));
    return ended;
}

bool TrackPipe::EndOrCutOff(long long patienceUs) {
    begin_end();
    bool moved = true;
    {
        zMutexLock held(fLock);
        while (moved && !fCutOff && fState == State::Ending) {
            const long long before = fProgress;
            while (fState == State::Ending && fProgress == before &&
                   fChanged.WaitFor(fLock, patienceUs)) {
            }
            moved = fProgress != before;
        }
        if (fState != State::Ending) return true;
    }
    CutOff();
    return false;
}

void TrackPipe::CutOff() {
    {
        zMutexLock held(fLock);
        if (fState == State::New || fState == State::Done) return;
        fCutOff = true;
        fState = fCodec ? State::Ending : State::Done;
        fSamples.clear();
        fChanged.WakeAll();
    }
    // Frees an encoder thread that waits for room in the file's queue.
    queue()->EndTrack(fIndex.load());
}

bool TrackPipe::IsReady() const {
    MovieQueue* file = nullptr;
    bool room = false;
    bool plain = false;
    {
        zMutexLock held(fLock);
        if (!fContainer || fState != State::Running) return true;
        file = &fContainer->Queue();
        plain = !fCodec;
        room = fFailure.Failed() || fSamples.size() < fQueueSize;
    }
    const int index = fIndex.load();
    if (index < 0 || file->GetFailure().Failed()) return true;
    return plain ? file->HasRoom(index) : room;
}

long long TrackPipe::GetBytesWritten() const {
    MovieQueue* file = queue();
    return file ? file->GetBytesWritten(fIndex.load()) : 0;
}

/// The encoder thread: takes what was queued until the stream ends, then drains the encoder.
void TrackPipe::run() {
    pthread_setname_np(pthread_self(), fSampleKind == 'vsmp' ? "video track" : "audio track");
    while (encode_what_comes()) {
    }
    bool wanted = false;
    {
        zMutexLock held(fLock);
        wanted = !fCutOff;
    }
    if (wanted && queue()->GetFailure().Succeeded()) {
        Result result = drain();
        if (result.Failed()) note_failure(std::move(result));
    }
    queue()->EndTrack(fIndex.load());
    zMutexLock held(fLock);
    fState = State::Done;
    fChanged.WakeAll();
}

/// True when there may be more: a sample for which there was no memory is lost alone.
bool TrackPipe::encode_what_comes() noexcept {
    try {
        RObject<CMediaSample> sample;
        while (take(sample)) {
            // A file that takes no more makes encoding idle work; the writer is told by the file.
            if (queue()->GetFailure().Failed()) continue;
            Result result = encode(sample.Get());
            sample.Clear();
            if (result.Failed()) note_failure(std::move(result));
        }
        return false;
    } catch (...) {
        note_failure(result_of_exception());
        return true;
    }
}

bool TrackPipe::take(RObject<CMediaSample>& sample) {
    {
        zMutexLock held(fLock);
        while (fSamples.empty() && fState != State::Ending) fChanged.Wait(fLock);
        if (fSamples.empty()) return false;
        sample = std::move(fSamples.front());
        fSamples.pop_front();
        ++fProgress;
        fChanged.WakeAll();
    }
    queue()->Bell().Ring();
    return true;
}

Result TrackPipe::encode(CMediaSample* sample) {
    Result result = fCodec->Put(sample);
    if (result.Failed()) return result;
    // Blocks of sound and packets do not pair.
    if (sample && fSampleKind == 'vsmp') ++fInside;
    return pass_on_what_is_ready();
}

/// Lets come out what the encoder held back. One picture that fails must not take those behind it
/// along; but an encoder that gives nothing more is asked no oftener than it owes pictures.
Result TrackPipe::drain() noexcept {
    Result first = result_of([this] { return encode(nullptr); });
    bool failed = first.Failed();
    for (long long owed = fInside; failed && owed > 0; --owed)
        failed = result_of([this] { return pass_on_what_is_ready(); }).Failed();
    return first;
}

Result TrackPipe::pass_on_what_is_ready() {
    for (;;) {
        RObject<CMediaSample> sample;
        Result result = fCodec->Get(sample);
        if (result.Succeeded() && !sample) return result;
        if (fInside > 0) --fInside;
        if (result.Failed()) return result;
        MovieQueue::Sample shaped;
        result = shape(*sample, shaped);
        if (result.Failed()) return result;
        if (static_cast<int>(result) != 0) continue;
        // What the file says comes back from its own failure, with the reason.
        if (queue()->Push(fIndex.load(), std::move(shaped)).Failed()) return 0;
        fFailing = false;
        zMutexLock held(fLock);
        ++fProgress;
        fChanged.WakeAll();
    }
}

/// Every failure is told to a writer; of those in a row, the host's log gets the first.
void TrackPipe::note_failure(Result failure) noexcept {
    const Result inWords = explained(failure);
    {
        zMutexLock held(fLock);
        fFailure = std::move(failure);
        fChanged.WakeAll();
    }
    if (!std::exchange(fFailing, true))
        zTrace("{}: the {} encoder failed: {}\n", queue()->GetName(),
               fSampleKind == 'vsmp' ? "video" : "audio", inWords.GetMessage());
    queue()->Bell().Ring();
}

}  // namespace Quillon::Orb
