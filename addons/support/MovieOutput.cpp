#include "addons/support/MovieOutput.h"

#include <chrono>
#include <utility>

#include "spar/trace.h"
#include "spar/zThreadMain.h"

namespace {

// An ordinary thread.
constexpr char kThreadClass = 4;
constexpr char kThreadNumber = 1;

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

int MovieOutput::Start(Report report) {
    fReport = std::move(report);
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

bool MovieOutput::has_failed() {
    const zMutexLock lock(fLock);
    return fFailure != 0;
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

bool MovieOutput::is_full() const {
    return fItems.size() >= fRoom.items || fBytes >= fRoom.bytes;
}

/// False when the output has not taken anything for too long.
bool MovieOutput::wait_for_room() {
    while (is_full() && !fEnding && fFailure == 0) {
        const std::size_t before = fItems.size();
        if (!fRoom.waits) return false;
        if (!fChanged.WaitFor(fLock, kPatienceMs * 1000LL) && fItems.size() >= before) return false;
    }
    return true;
}

void MovieOutput::put(MediaItem item) {
    {
        const zMutexLock lock(fLock);
        const bool hasRoom = wait_for_room();
        if (fEnding || fFailure != 0) return;
        if (hasRoom) {
            fBytes += item.bytes;
            fItems.push_back(std::move(item));
            fChanged.WakeAll();
            return;
        }
    }
    fail(kTooSlow);
}

bool MovieOutput::take(MediaItem& item) {
    const zMutexLock lock(fLock);
    while (fItems.empty() && !fEnding && fFailure == 0) fChanged.Wait(fLock);
    if (fItems.empty() || fFailure != 0) return false;
    item = std::move(fItems.front());
    fItems.pop_front();
    fBytes -= item.bytes;
    if (fRoom.waits) fChanged.WakeAll();
    return true;
}

void MovieOutput::run() {
    write_until_end();
    const zMutexLock lock(fLock);
    fEnded = true;
    fChanged.WakeAll();
}

void MovieOutput::write_until_end() {
    MediaItem item;
    while (take(item)) {
        const int code = handle(std::move(item));
        if (code != 0) fail(code);
    }
    if (!fBegun.load(std::memory_order_relaxed)) begin_at_end();
    if (!fBegun.load(std::memory_order_relaxed)) return;
    const int code = finish_file();
    if (code != 0) fail(code);
}

/// A movie that ended while its pictures waited for sound is better without than not at all.
void MovieOutput::begin_at_end() {
    if (has_failed() || !fStart.DecideAtEnd()) return;
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
    MediaItem item;
    while (code == 0 && fStart.Next(item)) code = write(item);
    return code;
}

int MovieOutput::write(const MediaItem& item) {
    if (item.sound) return fStart.HasSound() ? write_sound(item) : 0;
    if (!fStart.HasPictures()) return 0;
    const int code = write_picture(item);
    if (code == 0) fPictureCount.fetch_add(1, std::memory_order_relaxed);
    return code;
}

void MovieOutput::fail(int code) {
    {
        const zMutexLock lock(fLock);
        if (fFailure != 0) return;
        fFailure = code;
        fItems.clear();
        fBytes = 0;
        fChanged.WakeAll();
    }
    zTrace("'{}': the output stopped with {}; what stands there is kept, the others go on\n",
           fSettings.where, code);
    if (fReport) fReport(code);
}
