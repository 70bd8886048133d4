#include "tarn/clocks/tnSystemClockInternals_mac.h"

#include <cmath>
#include <cstdint>

#include "mach/kernelTime.h"
#include "tarn/clocks/tnTimeSource.h"

namespace {

uint32_t low_word(double value) {
    if (!(std::fabs(value) < 9e18)) return UINT32_MAX;  // the period of no rate at all
    return static_cast<uint32_t>(static_cast<int64_t>(value));
}

/// Asks for a share of each period and a bound on its end: as much precision as the kernel gives,
/// and no complaint when it gives none.
void ask_for_real_time(mach_port_t thread, double rate, mach_timebase_info_data_t base) {
    constexpr double kComputationMs = 1;
    constexpr double kConstraintMs = 5;
    const double unitsPerMs = static_cast<double>(base.denom) / base.numer * 1e6;
    thread_time_constraint_policy_data_t policy{};
    policy.period = low_word(1000 / rate * unitsPerMs);
    policy.computation = low_word(kComputationMs * unitsPerMs);
    policy.constraint = low_word(kConstraintMs * unitsPerMs);
    policy.preemptible = 0;
    thread_policy_set(thread, THREAD_TIME_CONSTRAINT_POLICY,
                      reinterpret_cast<thread_policy_t>(&policy),
                      THREAD_TIME_CONSTRAINT_POLICY_COUNT);
}

/// The kernel's units against microseconds on the scale of zTime, reckoned in doubles.
class KernelTime {
public:
    KernelTime(mach_timebase_info_data_t base, uint64_t t0, long long now)
        : fNumer(base.numer), fDenom(base.denom), fStart(t0), fOffset(now - micros(t0)) {}

    long long ToReal(uint64_t units) const { return micros(units) + fOffset; }

    uint64_t AfterStart(long long elapsed) const {
        const double elapsedNs = static_cast<double>(elapsed) * 1000;
        return to_units(static_cast<double>(fStart) + elapsedNs * fDenom / fNumer);
    }

private:
    long long micros(uint64_t units) const {
        return static_cast<long long>(static_cast<double>(units) * fNumer / fDenom / 1000);
    }

    // A double converts by way of a signed word; what has the top bit goes round by hand.
    static uint64_t to_units(double value) {
        constexpr uint64_t kTopBit = uint64_t{1} << 63;
        constexpr double kTop = 9223372036854775808.0;
        if (value < kTop) return static_cast<uint64_t>(static_cast<int64_t>(value));
        if (value >= 2 * kTop) return UINT64_MAX;
        return static_cast<uint64_t>(static_cast<int64_t>(value - kTop)) ^ kTopBit;
    }

    double fNumer;
    double fDenom;
    uint64_t fStart;
    long long fOffset;
};

void give_back(mach_port_t port) {
    if (port != MACH_PORT_NULL) mach_port_deallocate(mach_task_self(), port);
}

}  // namespace

tnSystemClockInternals_mac::tnSystemClockInternals_mac(tnClock& clock, double rate,
                                                       tnClock::clock_rate_accuracy accuracy)
    : tnSystemClockInternals(clock, rate, accuracy) {}

tnSystemClockInternals_mac::~tnSystemClockInternals_mac() = default;

int tnSystemClockInternals_mac::Main(int, const char**) {
    fTimeLock.Lock();
    const mach_port_t host = mach_host_self();
    const mach_port_t thread = mach_thread_self();
    const double period = loop_period();
    const long long fourTicks = whole(period) * 4;
    mach_timebase_info_data_t base{};
    mach_timebase_info(&base);
    begin_timeline(0);
    ask_for_real_time(thread, GetRate(), base);
    mach_timebase_info(&base);
    const uint64_t t0 = mach_absolute_time();
    const long long now = fTime.MicroNow();
    fTimeLock.Unlock();

    const KernelTime kernel(base, t0, now);
    tn_time_rec record = fresh_record();
    double elapsed = 0;
    uint64_t next = t0;
    while (IsTicking()) {
        record.nominal_time = kernel.ToReal(next);
        next = kernel.AfterStart(whole(elapsed));
        record.real_time = kernel.ToReal(next) - fourTicks;
        begin_tick(record);
        if (!IsTicking()) break;
        // Outside the lock, so that GetTime does not wait for watchers.
        fClock.ProduceTime(record, true);
        {
            zMutexLock lock(fTimeLock);
            advance_media_time(period);
        }
        elapsed += period;
        mach_wait_until(next);
    }
    give_back(thread);
    give_back(host);
    return 0;
}

void tnSystemClockInternals_mac::begin_tick(tn_time_rec& record) {
    zMutexLock lock(fTimeLock);
    fRealTime.store(record.real_time, std::memory_order_relaxed);
    fNominalTime.store(record.nominal_time, std::memory_order_relaxed);
    take_media_time(record);
    record.tick_count = ++fTickCount;
}
