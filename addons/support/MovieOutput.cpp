#include "addons/support/MovieOutput.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "spar/trace.h"
#include "spar/zThreadMain.h"
#include "spar/zTime.h"
#include "tarn/writers/writerErrors.h"

namespace {

// An ordinary thread.
constexpr char kThreadClass = 4;
constexpr char kThreadNumber = 1;
constexpr double kLongestPieceMs = 1000;
/// Of sound beside pictures that have no room: minutes of stereo.
constexpr std::size_t kSoundRoom = std::size_t{32} << 20;

}  // namespace

/// What the thread runs. An output that hangs is left behind, so it keeps the output.
class MovieOutput::Body final : public zThreadMain {
public:
    explicit Body(std::shared_ptr<MovieOutput> output) : fOutput(std::move(output)) {}
    int Main(int, const char**) override {
        fOutput->run();
        delete this;
        return 0;
    }

private:
    const std::shared_ptr<MovieOutput> fOutput;
};

MovieOutput::MovieOutput(Settings settings, Room room)
    : fSettings(std::move(settings)),
      fRoom(room),
      fStart(fSettings.hasPictures, fSettings.hasSound, room.bytes) {}

MovieOutput::~MovieOutput() = default;

int MovieOutput::Start() {
    auto body = std::make_unique<Body>(shared_from_this());
    fThread.reset(zThread::Factory("movie output", body.get(), kThreadClass, kThreadNumber));
    if (!fThread) {
        zTrace("'{}': the system has no thread for the output; end other programs\n",
               fSettings.where);
        return kNoThread;
    }
    body.release();  // deletes itself
    return 0;
}

void MovieOutput::Stop() {
    {
        const zMutexLock lock(fLock);
        fEnding = true;
        fChanged.WakeAll();
    }
    if (!fThread) return;
    const bool isOver = has_ended();
    if (isOver) fThread->Join();
    fThread.reset();
    if (!isOver) fail(kTooSlow);
}

/// Whether the thread came to its end within the time for that.
bool MovieOutput::has_ended() {
    const auto patience = static_cast<long long>(fSettings.stopSeconds * 1e6);
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(patience);
    const zMutexLock lock(fLock);
    while (!fEnded) {
        const auto left = until - std::chrono::steady_clock::now();
        const long long us = std::chrono::duration_cast<std::chrono::microseconds>(left).count();
        if (us <= 0) return false;
        fChanged.WaitFor(fLock, us);
    }
    return true;
}

int MovieOutput::Failure() {
    const zMutexLock lock(fLock);
    return fFailure;
}

bool MovieOutput::takes_picture(tnVideoCompressor::EncodedBuffer&) {
    return true;
}

bool MovieOutput::takes_sound(tnAudioCompressor::EncodedBuffer& buffer) {
    return buffer.PacketCount() > 0;
}

void MovieOutput::WriteVideo(const std::shared_ptr<tnFilter>& filter,
                             std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) {
    if (!fSettings.hasPictures || !takes_picture(*buffer)) return;
    // Encoders may learn what their decoders need as late as their first picture.
    const bool again = buffer->IsKeyFrame() && !fBegun.load(std::memory_order_relaxed);
    put(MakePicture(filter, std::move(buffer), fPictureFormat, again));
}

void MovieOutput::WriteAudio(const std::shared_ptr<tnFilter>& filter,
                             std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) {
    if (!fSettings.hasSound || !takes_sound(*buffer)) return;
    put(MakeSound(filter, std::move(buffer), fSoundFormat));
}

MovieOutput::Track& MovieOutput::track_of(const MediaItem& item) {
    return item.picture ? fPictures : fSound;
}

int MovieOutput::Trouble(bool ofPictures) {
    const zMutexLock lock(fLock);
    const Track& track = ofPictures ? fPictures : fSound;
    if (track.leavesOut) return kOutputLeavesOut;
    return track.isSilent || (!ofPictures && fWithoutSound) ? kOutputGetsNothing : 0;
}

bool MovieOutput::is_full(const MediaItem& item) const {
    if (fRoom.waits && item.sound) return fSound.bytes >= kSoundRoom;
    if (fRoom.waits) return fPictures.items >= fRoom.items || fPictures.bytes >= fRoom.bytes;
    return fItems.size() >= fRoom.items || fPictures.bytes + fSound.bytes >= fRoom.bytes;
}

/// Not with the first place that is free: what takes one thing now and then would be full and not
/// full in turns.
bool MovieOutput::has_caught_up() const {
    return fPictures.items <= fRoom.items / 2 && fPictures.bytes <= fRoom.bytes / 2 &&
           fSound.bytes <= kSoundRoom / 2;
}

/// Whether one track gets nothing while the other one does.
void MovieOutput::note_silence(const MediaItem& item, std::string& news) {
    if (!fSettings.hasPictures || !fSettings.hasSound) return;
    Track& track = track_of(item);
    Track& other = item.picture ? fSound : fPictures;
    if (track.isSilent && !(item.sound && fWithoutSound)) {
        news += fmt::format("'{}': something comes of its {} again\n", fSettings.where, track.what);
    }
    track.isSilent = false;
    track.silentMs = 0;
    // A picture from before a pause may be told to last through all of it.
    other.silentMs += std::min(item.endMs - item.startMs, kLongestPieceMs);
    if (other.isSilent || other.silentMs <= MovieStart::kPatienceMs) return;
    other.isSilent = true;
    news += fmt::format(
        "'{}': no {} for ten seconds; does the source give any, in a format that is taken?\n",
        fSettings.where, other.what);
}

void MovieOutput::note_room(std::string& news) {
    if (!fRoom.waits || !has_caught_up()) return;
    fAllowance.Restore(zTime::MicroNow());
    for (Track* track : {&fPictures, &fSound}) {
        if (!track->leavesOut) continue;
        track->leavesOut = false;
        news += fmt::format("'{}': there is room for {} again; {} were left out\n", fSettings.where,
                            track->what, track->leftOut);
    }
}

void MovieOutput::keep_time(const MediaItem& item) {
    if (item.picture || !fSettings.hasPictures) fAllowance.Advance(item.endMs - item.startMs);
}

/// False when there is none and no more waiting for it.
bool MovieOutput::wait_for_room(const MediaItem& item) {
    while (is_full(item) && !fEnding && fFailure == 0) {
        if (!fRoom.waits) return false;
        const long long from = zTime::MicroNow();
        const long long most = fAllowance.From(from);
        if (most <= 0) return false;
        fChanged.WaitFor(fLock, most);
        fAllowance.Spend(from, zTime::MicroNow());
    }
    return true;
}

void MovieOutput::leave_out(const MediaItem& item, std::string& news) {
    Track& track = track_of(item);
    ++track.leftOut;
    if (std::exchange(track.leavesOut, true)) return;
    track.leftOut = 1;
    news += fmt::format(
        "'{}': its disk or its encoder is too slow; {} are left out until there is room\n",
        fSettings.where, track.what);
}

/// False when the output cannot go on.
bool MovieOutput::place(MediaItem& item, std::string& news) {
    const zMutexLock lock(fLock);
    if (fEnding || fFailure != 0) return true;
    note_silence(item, news);
    note_room(news);
    const bool hasRoom = wait_for_room(item);
    keep_time(item);
    if (fEnding || fFailure != 0) return true;
    if (!hasRoom && !fRoom.waits) return false;
    if (!hasRoom) {
        leave_out(item, news);
        return true;
    }
    Track& track = track_of(item);
    ++track.items;
    track.bytes += item.bytes;
    fItems.push_back(std::move(item));
    fChanged.WakeAll();
    return true;
}

void MovieOutput::put(MediaItem item) {
    std::string news;
    const bool goesOn = place(item, news);
    if (!news.empty()) zTrace("{}", news);
    if (!goesOn) fail(kTooSlow);
}

bool MovieOutput::take(MediaItem& item) {
    const zMutexLock lock(fLock);
    while (fItems.empty() && !fEnding && fFailure == 0) fChanged.Wait(fLock);
    if (fItems.empty() || fFailure != 0) return false;
    item = std::move(fItems.front());
    fItems.pop_front();
    Track& track = track_of(item);
    --track.items;
    track.bytes -= item.bytes;
    if (fRoom.waits) fChanged.WakeAll();
    return true;
}

void MovieOutput::run() {
    attempt(&MovieOutput::write_items);
    attempt(&MovieOutput::complete);
    const zMutexLock lock(fLock);
    fEnded = true;
    fChanged.WakeAll();
}

/// An exception, no memory as a rule, is a failure of this output alone.
void MovieOutput::attempt(void (MovieOutput::*step)()) {
    try {
        (this->*step)();
    } catch (...) {
        fail(kNoMemory);
    }
}

void MovieOutput::write_items() {
    MediaItem item;
    while (take(item)) {
        const int code = handle(std::move(item));
        if (code != 0) fail(code);
    }
}

void MovieOutput::complete() {
    if (!fBegun.load(std::memory_order_relaxed)) begin_at_end();
    if (!fBegun.load(std::memory_order_relaxed)) return;
    const int code = finish_file();
    if (code != 0) fail(code);
}

/// A movie that ended while its pictures waited for sound is better without than not at all.
void MovieOutput::begin_at_end() {
    if (Failure() != 0 || !fStart.DecideAtEnd()) return;
    const int code = begin();
    if (code != 0) fail(code);
}

int MovieOutput::handle(MediaItem item) {
    if (fBegun.load(std::memory_order_relaxed)) return write(item);
    fStart.Add(std::move(item));
    return fStart.Decide() ? begin() : 0;
}

/// Makes the file, and writes what waited for its start.
int MovieOutput::begin() {
    int code = begin_file(fStart);
    if (code != 0) return code;
    fBegun.store(true, std::memory_order_relaxed);
    if (fSettings.hasSound && !fStart.HasSound()) note_lost_track();
    MediaItem item;
    while (code == 0 && fStart.Next(item)) code = write(item);
    return code;
}

void MovieOutput::note_lost_track() {
    {
        const zMutexLock lock(fLock);
        fWithoutSound = true;
    }
    zTrace("'{}': no sound came, and it begins without; begin anew when there is some\n",
           fSettings.where);
}

int MovieOutput::write(const MediaItem& item) {
    if (item.sound) return fStart.HasSound() ? write_sound(item) : 0;
    if (!fStart.HasPictures()) return 0;
    const int code = write_picture(item);
    if (code == kLeftOut) return 0;
    if (code == 0) fPictureCount.fetch_add(1, std::memory_order_relaxed);
    return code;
}

void MovieOutput::fail(int code) {
    {
        const zMutexLock lock(fLock);
        if (fFailure != 0) return;
        fFailure = code;
        fItems.clear();
        for (Track* track : {&fPictures, &fSound}) track->items = track->bytes = 0;
        fChanged.WakeAll();
    }
    zTrace("'{}': the output stopped with {}; what stands there is kept, the others go on\n",
           fSettings.where, code);
}
