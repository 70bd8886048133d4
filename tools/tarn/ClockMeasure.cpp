#include "ClockMeasure.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "spar/zThread.h"
#include "spar/zTime.h"
#include "tarn/clocks/tnClockWatcher.h"
#include "tarn/clocks/tnSystemClock.h"

namespace {

constexpr double kMicrosPerSecond = 1e6;
constexpr long long kTicksAtStart = 2;

/// Notes when each tick is produced, before anybody receives it.
class StampedClock : public tnSystemClock {
public:
    StampedClock(double rate, tnClock::clock_rate_accuracy accuracy, size_t mostTicks)
        : tnSystemClock(rate, accuracy), fProducedAt(mostTicks) {}
    ~StampedClock() override { tnSystemClock::StopTicking(); }

    void ProduceTime(const tn_time_rec& time, bool queued) override {
        const auto index = static_cast<size_t>(time.tick_count);
        if (index < fProducedAt.size()) fProducedAt[index] = zTime::MicroNow();
        fLastProduced = time.tick_count;
        tnSystemClock::ProduceTime(time, queued);
    }

    long long ProducedAt(long long number) const {
        return fProducedAt.at(static_cast<size_t>(number));
    }
    long long LastProduced() const { return fLastProduced; }

private:
    // ticking thread; read when it has stopped
    std::vector<long long> fProducedAt;
    std::atomic<long long> fLastProduced{0};
};

class StampingWatcher : public tnClockWatcher {
public:
    struct Receipt {
        tn_time_rec time;
        long long at;
    };

    explicit StampingWatcher(size_t mostTicks) { fReceipts.reserve(mostTicks); }
    ~StampingWatcher() override { tnClockWatcher::Stop(); }
    void ReceiveTime(const tn_time_rec& time) override {
        // Never beyond what stands ready: an allocation here would be measured too.
        if (fReceipts.size() < fReceipts.capacity()) fReceipts.push_back({time, zTime::MicroNow()});
    }
    /// When the watcher has stopped.
    const std::vector<Receipt>& Receipts() const { return fReceipts; }

private:
    std::vector<Receipt> fReceipts;
};

/// Threads that do nothing as fast as they can.
class BusyCores {
public:
    explicit BusyCores(bool on) {
        const unsigned int cores = on ? std::max(1U, std::thread::hardware_concurrency()) : 0;
        for (unsigned int i = 0; i < cores; ++i) {
            fThreads.emplace_back([](const std::stop_token& end) {
                while (!end.stop_requested()) {
                }
            });
        }
    }

private:
    std::vector<std::jthread> fThreads;  // each ends with its place in here
};

/// As a std::thread that cannot be had: the program tells it the same way.
void need_thread(bool had) {
    if (had) return;
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}

void wait_while_ticking(const ClockOptions& options, const std::function<bool(double)>& stop) {
    constexpr unsigned int kLookMicros = 100'000;
    const long long start = zTime::MicroNow();
    const double whole = options.seconds * kMicrosPerSecond;
    for (;;) {
        const auto passed = static_cast<double>(zTime::MicroNow() - start);
        if (passed >= whole || stop(passed / whole)) return;
        zThread::MicroSleep(
            static_cast<unsigned int>(std::min<double>(kLookMicros, whole - passed)));
    }
}

ClockFigures figures_of(const StampedClock& clock, const StampingWatcher& watcher, double rate) {
    ClockFigures figures;
    const double period = kMicrosPerSecond / rate;
    long long first = 0;
    const StampingWatcher::Receipt* before = nullptr;
    for (const StampingWatcher::Receipt& receipt : watcher.Receipts()) {
        const long long number = receipt.time.tick_count;
        if (number <= kTicksAtStart) continue;
        // The clock sleeps to a tick's target after that tick, so the next one is due then.
        const long long due = receipt.time.nominal_time;
        if (!before) first = due;
        figures.ticks.push_back(
            {number, due - first, clock.ProducedAt(number) - due, receipt.at - due});
        if (before && number == before->time.tick_count + 1) {
            const double interval = static_cast<double>(receipt.at - before->at);
            figures.intervalErrors.push_back(std::llround(interval - period));
        }
        before = &receipt;
    }
    const long long produced = std::max(0LL, clock.LastProduced() - kTicksAtStart);
    figures.lost = produced - static_cast<long long>(figures.ticks.size());
    return figures;
}

}  // namespace

ClockFigures MeasureClock(const ClockOptions& options, const std::function<bool(double)>& stop) {
    constexpr size_t kSpareTicks = 1000;
    const auto mostTicks = static_cast<size_t>(options.rate * options.seconds) + kSpareTicks;
    StampedClock clock(options.rate, options.accuracy, mostTicks);
    StampingWatcher watcher(mostTicks);
    {
        const BusyCores busy(options.load);
        watcher.Start(0, nullptr, false);
        need_thread(watcher.IsRunning());
        clock.AddWatcher(&watcher);
        clock.StartTicking(0, nullptr, 0);
        need_thread(clock.IsTicking());
        wait_while_ticking(options, stop);
        clock.StopTicking();
    }
    // The last tick may still be on its way to the watcher.
    constexpr unsigned int kOnItsWayMicros = 50'000;
    zThread::MicroSleep(kOnItsWayMicros);
    clock.RemoveWatcher(&watcher);
    watcher.Stop();
    return figures_of(clock, watcher, options.rate);
}

long long PercentileOf(const std::vector<long long>& values, double share) {
    if (values.empty()) return 0;
    const auto index = static_cast<size_t>(share * static_cast<double>(values.size()));
    return values[std::min(index, values.size() - 1)];
}
