#include "tarn/clocks/tnCoreVideoClock.h"

#include <atomic>
#include <cmath>

#include "display/displayLink.h"
#include "spar/zAsSharedPtr.h"

namespace {

constexpr double kMicrosPerSecond = 1e6;
constexpr unsigned int kTickingTimeKind = 6;

// fTime is read while the display link's thread writes it, without a lock: a record that is half
// old is allowed, half a word is not.
template <class T>
T load(const T& word) {
    return std::atomic_ref<T>(const_cast<T&>(word)).load(std::memory_order_relaxed);
}
template <class T>
void store(T& word, T value) {
    std::atomic_ref<T>(word).store(value, std::memory_order_relaxed);
}

void load_record(const tn_time_rec& shared, tn_time_rec& copy) {
    copy.real_time = load(shared.real_time);
    copy.media_time = load(shared.media_time);
    copy.tick_count = load(shared.tick_count);
    copy.nominal_time = load(shared.nominal_time);
    copy.clock_id = load(shared.clock_id);
    copy.time_kind = load(shared.time_kind);
}

void store_record(tn_time_rec& shared, const tn_time_rec& value) {
    store(shared.real_time, value.real_time);
    store(shared.media_time, value.media_time);
    store(shared.tick_count, value.tick_count);
    store(shared.nominal_time, value.nominal_time);
    store(shared.clock_id, value.clock_id);
    store(shared.time_kind, value.time_kind);
}

}  // namespace

struct tnDisplayCallback {
    static CVReturn output_callback(CVDisplayLinkRef, const CVTimeStamp*,
                                    const CVTimeStamp* outputTime, CVOptionFlags, CVOptionFlags*,
                                    void* context) {
        static_cast<tnCoreVideoClock*>(context)->RenderDisplay(
            outputTime->videoRefreshPeriod, outputTime->videoTimeScale, outputTime->videoTime,
            outputTime->hostTime);
        return kCVReturnSuccess;
    }
};

tnCoreVideoClock::tnCoreVideoClock() : tnSystemClock(0.0, tnClock::clock_rate_scac) {
    fTime.clock_id = ClockID();
    fTime.time_kind = kTickingTimeKind;
    CVDisplayLinkCreateWithCGDisplay(CGMainDisplayID(), &fDisplayLink);
    CVDisplayLinkSetOutputCallback(fDisplayLink, &tnDisplayCallback::output_callback, this);
    const CVTime period = CVDisplayLinkGetNominalOutputVideoRefreshPeriod(fDisplayLink);
    if (period.timeValue != 0) fRate = period.timeScale / static_cast<double>(period.timeValue);
}

tnCoreVideoClock::~tnCoreVideoClock() {
    if (fDisplayLink) CVDisplayLinkRelease(fDisplayLink);
}

int tnCoreVideoClock::GetTime(tn_time_rec& time) const {
    load_record(fTime, time);
    return 0;
}

void tnCoreVideoClock::StartTicking(long long, const char*, char) {
    if (fDisplayLink) CVDisplayLinkStart(fDisplayLink);
}

void tnCoreVideoClock::StopTicking() {
    if (fDisplayLink) CVDisplayLinkStop(fDisplayLink);
}

void tnCoreVideoClock::RewindMediaTime(long long) {}

double tnCoreVideoClock::GetRate() const {
    return fRate;
}

void tnCoreVideoClock::LinkMediaTimeFromClock(tnClock& clock) {
    fMediaTimeClock = zAsSharedPtr(&clock);
}

void tnCoreVideoClock::RenderDisplay(long long refreshPeriod, int timeScale, long long videoTime,
                                     unsigned long long) {
    tn_time_rec time = fTime;
    const bool moved = fill_time(time, refreshPeriod, timeScale, videoTime);
    if (moved) time.time_kind = kTickingTimeKind;
    store_record(fTime, time);
    if (moved) ProduceTime(time, true);
    fLastVideoTime = videoTime;
}

bool tnCoreVideoClock::fill_time(tn_time_rec& time, long long refreshPeriod, int timeScale,
                                 long long videoTime) const {
    const double microsPerUnit = kMicrosPerSecond / timeScale;
    if (fMediaTimeClock) {
        const long long previous = time.media_time;
        fMediaTimeClock->GetTime(time);
        if (time.media_time == previous) {
            // The display carries the time on for whoever asks, but nothing is ticked. This moves
            // our media time away from the linked clock's: the next refresh sees a difference and
            // ticks, with the linked clock's time as it stands.
            const double passed = static_cast<double>(videoTime - fLastVideoTime) * microsPerUnit;
            time.media_time = static_cast<long long>(static_cast<double>(previous) + passed);
            return false;
        }
    } else {
        const auto whole = static_cast<long long>(static_cast<double>(videoTime) * microsPerUnit);
        time.media_time = static_cast<long long>(std::floor(static_cast<double>(whole) + 0.5));
        time.real_time = 0;
    }
    time.tick_count = videoTime / refreshPeriod;
    return true;
}
