#include "tarn/clocks/tnSystemClockInternals.h"

#include <algorithm>
#include <cmath>

#include "mach/machShallowSleep.h"
#include "spar/zThread.h"
#include "tarn/clocks/tnTimeSource.h"
#if defined(__APPLE__)
#include "tarn/clocks/tnSystemClockInternals_mac.h"
#endif

namespace {

constexpr double kMicrosPerSecond = 1e6;

constexpr char kThreadClass = 4;
constexpr char kDefaultPriority = 4;

constexpr int kStoppedAfterRunning = -1026;
constexpr int kStopped = -1;

}  // namespace

tnSystemClockInternals* tnSystemClockInternals::Factory(tnClock& clock, double rate,
                                                        tnClock::clock_rate_accuracy accuracy) {
#if defined(__APPLE__)
    return new tnSystemClockInternals_mac(clock, rate, accuracy);
#else
    return new tnSystemClockInternals(clock, rate, accuracy);
#endif
}

tnSystemClockInternals::tnSystemClockInternals(tnClock& clock, double rate,
                                               tnClock::clock_rate_accuracy accuracy)
    : fClock(clock),
      fTime(tnTimeSource::Current()),
      fAccuracy(accuracy),
      fMicrosPerTick(kMicrosPerSecond / rate),
      fRate(rate) {}

tnSystemClockInternals::~tnSystemClockInternals() = default;

void tnSystemClockInternals::StartTicking(long long startMediaTime, const char* name,
                                          char priority) {
    fStartMediaTime.store(startMediaTime, std::memory_order_relaxed);
    fTicking.store(true, std::memory_order_relaxed);
    fShallowSleep = std::make_unique<machShallowSleep>();
    fThread.reset(zThread::Factory(name ? name : "system clock", this, kThreadClass,
                                   priority ? priority : kDefaultPriority));
    if (fThread) return;
    // No thread to be had: stopped, rather than ticking for ever without a tick.
    fTicking.store(false, std::memory_order_relaxed);
    fShallowSleep.reset();
}

void tnSystemClockInternals::StopTicking() {
    if (!fThread) return;
    fTicking.store(false, std::memory_order_relaxed);
    fThread->Join();
    fThread.reset();
    fShallowSleep.reset();
}

void tnSystemClockInternals::ChangeRate(double rate) {
    // A running loop has its own copy of the period and keeps it: hosts prepare the next start's
    // rate while a show runs on the old one.
    fMicrosPerTick.store(kMicrosPerSecond / rate, std::memory_order_relaxed);
    fRate.store(rate, std::memory_order_relaxed);
}

void tnSystemClockInternals::PauseMediaTime() {
    fMediaTimeAdvancing.store(false, std::memory_order_relaxed);
}

void tnSystemClockInternals::Debug_ToggleMediaTimeAdvancing() {
    bool advancing = fMediaTimeAdvancing.load(std::memory_order_relaxed);
    while (!fMediaTimeAdvancing.compare_exchange_weak(advancing, !advancing,
                                                      std::memory_order_relaxed)) {
    }
}

void tnSystemClockInternals::RewindMediaTime(long long mediaTime) {
    fMediaTime.store(static_cast<double>(mediaTime), std::memory_order_relaxed);
}

int tnSystemClockInternals::GetTime(tn_time_rec& time) const {
    zMutexLock lock(fTimeLock);
    const double mediaTime = fMediaTime.load(std::memory_order_relaxed);
    time.real_time = fRealTime.load(std::memory_order_relaxed);
    time.media_time = whole(std::floor(mediaTime + 0.5));
    time.tick_count = fTickCount;
    time.clock_id = fClock.ClockID();
    time.nominal_time = fNominalTime.load(std::memory_order_relaxed);
    if (IsTicking()) return 0;
    return mediaTime > 0 ? kStoppedAfterRunning : kStopped;
}

long long tnSystemClockInternals::whole(double value) {
    constexpr double kLimit = 9223372036854774784.0;  // the last double below 2^63
    if (std::isnan(value)) return 0;
    return static_cast<long long>(std::clamp(value, -kLimit, kLimit));
}

double tnSystemClockInternals::loop_period() const {
    constexpr double kLongest = 1LL << 59;  // four of them and a time still fit a word
    const double period = fMicrosPerTick.load(std::memory_order_relaxed);
    return std::isnan(period) ? kLongest : std::clamp(period, -kLongest, kLongest);
}

void tnSystemClockInternals::begin_timeline(long long tickCount) {
    fTickCount = tickCount;
    fMediaTime.store(static_cast<double>(fStartMediaTime.load(std::memory_order_relaxed)),
                     std::memory_order_relaxed);
}

void tnSystemClockInternals::take_media_time(tn_time_rec& record) const {
    if (!fMediaTimeAdvancing.load(std::memory_order_relaxed)) return;
    record.media_time = whole(std::floor(fMediaTime.load(std::memory_order_relaxed) + 0.5));
}

void tnSystemClockInternals::advance_media_time(double period) {
    // One step, so that a rewind from another thread is never lost between a read and a write.
    fMediaTime.fetch_add(period, std::memory_order_relaxed);
}

tn_time_rec tnSystemClockInternals::fresh_record() const {
    tn_time_rec record{};
    record.clock_id = fClock.ClockID();
    record.time_kind = kTickingTimeKind;
    return record;
}

// A tick is produced before the sleep to its own target, and that of tick one is the start: no time
// passes between the first two, and watchers are served a period early.
int tnSystemClockInternals::Main(int, const char**) {
    const double period = loop_period();
    const long long fourTicks = whole(period) * 4;
    {
        zMutexLock lock(fTimeLock);
        begin_timeline(1);
    }
    const long long start = fTime.MicroNow();
    const bool precise = fAccuracy == tnClock::clock_rate_asnc;
    zThread::AccurateTimer timer;
    fRealTime.store(fTime.MicroNow(), std::memory_order_relaxed);
    long long previous = start;
    double elapsed = 0;
    tn_time_rec record = fresh_record();

    while (IsTicking()) {
        const long long target = start + whole(elapsed);
        if (!precise) fRealTime.store(fTime.MicroNow(), std::memory_order_relaxed);
        fNominalTime.store(previous, std::memory_order_relaxed);
        // Only the plain loop looks once more; the precise one lets its last tick out.
        if (precise || IsTicking()) {
            record.nominal_time = previous;
            record.real_time = target - fourTicks;
            produce_tick(record, period);
            elapsed += period;
            sleep_until(target, precise, timer);
        }
        previous = target;
    }
    return 0;
}

void tnSystemClockInternals::produce_tick(tn_time_rec& record, double period) {
    zMutexLock lock(fTimeLock);
    take_media_time(record);
    record.tick_count = fTickCount;
    fClock.ProduceTime(record, true);
    ++fTickCount;
    advance_media_time(period);
}

void tnSystemClockInternals::sleep_until(long long target, bool precise,
                                         zThread::AccurateTimer& timer) {
    if (!precise) {
        fTime.MicroSleepUntil(target, false);
        return;
    }
    const long long awake = fTime.MicroSleepUntil(timer, target);
    zMutexLock lock(fTimeLock);
    fRealTime.store(awake, std::memory_order_relaxed);
}
