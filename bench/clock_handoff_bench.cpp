// What a tick costs on its way: from ProduceTime to ReceiveTime beside a bare futex hand-off, what
// the producer pays per watcher, and how much of a core a clock with watchers uses.
//
//   clock_handoff_bench [--ticks N] [--seconds S]
//
// N hand-offs a contender (4000 unless said) a millisecond apart, in turns; S seconds of ticking
// for each figure of processor use (5 unless said).
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <linux/futex.h>
#include <memory>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tarn/clocks/tnClockWatcher.h"
#include "tarn/clocks/tnSystemClock.h"

#include "bench/support/Figures.h"

namespace {

using bench::NowNs;

/// Two threads and a word: what any hand-off to a sleeping thread costs at the least.
class BareFutex {
public:
    BareFutex() : fThread([this] { receive(); }) {}
    ~BareFutex() {
        fEnd = true;
        HandOff({});
        fThread.join();
    }
    BareFutex(const BareFutex&) = delete;
    BareFutex& operator=(const BareFutex&) = delete;

    void HandOff(const tn_time_rec& time) {
        fTime = time;
        fWord.fetch_add(1, std::memory_order_release);
        syscall(SYS_futex, &fWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    int64_t ReceivedAt(unsigned int count) const {
        while (fCount.load(std::memory_order_acquire) < count) usleep(50);
        return fReceivedAt;
    }

private:
    void receive() {
        for (unsigned int seen = 0; !fEnd; ++seen) {
            while (fWord.load(std::memory_order_acquire) == seen) {
                syscall(SYS_futex, &fWord, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
            }
            fReceivedAt = NowNs();
            fLast = fTime.tick_count;
            fCount.fetch_add(1, std::memory_order_release);
        }
    }

    std::atomic<unsigned int> fWord{0};
    std::atomic<unsigned int> fCount{0};
    std::atomic<bool> fEnd{false};
    int64_t fReceivedAt = 0;
    tn_time_rec fTime{};
    volatile long long fLast = 0;
    std::thread fThread;
};

class StampingWatcher : public tnClockWatcher {
public:
    ~StampingWatcher() override { Stop(); }
    void ReceiveTime(const tn_time_rec&) override {
        fReceivedAt = NowNs();
        fCount.fetch_add(1, std::memory_order_release);
    }
    int64_t ReceivedAt(unsigned int count) const {
        while (fCount.load(std::memory_order_acquire) < count) usleep(50);
        return fReceivedAt;
    }

private:
    std::atomic<unsigned int> fCount{0};
    int64_t fReceivedAt = 0;
};

void print_row(const char* name, bench::Samples& us) {
    std::printf("%-36s %8zu %9.1f %9.1f %9.1f\n", name, us.Count(), us.At(0.5), us.At(0.99),
                us.At(0.999));
}

/// In turns of one hand-off each, so that both meet the same machine.
void measure_handoff(int ticks, bool loaded) {
    const bench::Load load(loaded);
    BareFutex bare;
    tnClock clock;
    StampingWatcher single;
    StampingWatcher multiple;
    single.Start(0, nullptr, false);
    multiple.Start(0, nullptr, true);
    bench::Samples bareUs;
    bench::Samples singleUs;
    bench::Samples multipleUs;
    bench::Samples barePays;
    bench::Samples singlePays;
    const auto turn = [](auto&& send, auto&& receivedAt, bench::Samples& late,
                         bench::Samples* pays) {
        usleep(1000);
        const int64_t before = NowNs();
        send();
        const int64_t after = NowNs();
        late.Add(static_cast<double>(receivedAt() - before) / 1000);
        if (pays) pays->Add(static_cast<double>(after - before) / 1000);
    };
    for (unsigned int n = 1; n <= static_cast<unsigned int>(ticks); ++n) {
        tn_time_rec time{};
        time.tick_count = n;
        turn([&] { bare.HandOff(time); }, [&] { return bare.ReceivedAt(n); }, bareUs, &barePays);
        clock.AddWatcher(&single);
        turn([&] { clock.ProduceTime(time, true); }, [&] { return single.ReceivedAt(n); }, singleUs,
             &singlePays);
        clock.RemoveWatcher(&single);
        clock.AddWatcher(&multiple);
        turn([&] { clock.ProduceTime(time, true); }, [&] { return multiple.ReceivedAt(n); },
             multipleUs, nullptr);
        clock.RemoveWatcher(&multiple);
    }
    std::printf("\nhand-off to a sleeping thread, %s; microseconds\n",
                loaded ? "all cores loaded" : "idle");
    std::printf("%-36s %8s %9s %9s %9s\n", "", "n", "p50", "p99", "p99.9");
    print_row("bare futex", bareUs);
    print_row("ProduceTime to ReceiveTime, single", singleUs);
    print_row("ProduceTime to ReceiveTime, multiple", multipleUs);
    print_row("the sender pays: bare futex", barePays);
    print_row("the sender pays: ProduceTime", singlePays);
}

/// `asleep`: every watcher's thread has to be woken. Otherwise none is started, and what is left is
/// the record's copy, the lock and the signal.
void measure_producer(int watchers, bool asleep, int ticks) {
    tnClock clock;
    std::vector<std::unique_ptr<StampingWatcher>> all;
    for (int i = 0; i < watchers; ++i) {
        all.push_back(std::make_unique<StampingWatcher>());
        if (asleep) all.back()->Start(0, nullptr, false);
        clock.AddWatcher(all.back().get());
    }
    bench::Samples us;
    for (unsigned int n = 1; n <= static_cast<unsigned int>(ticks); ++n) {
        const int64_t before = NowNs();
        clock.ProduceTime({}, true);
        us.Add(static_cast<double>(NowNs() - before) / 1000);
        if (!asleep) continue;
        for (auto& watcher : all) watcher->ReceivedAt(n);
        usleep(500);
    }
    std::printf("%8d %10s %12.2f %12.2f %14.3f\n", watchers, asleep ? "asleep" : "idle", us.At(0.5),
                us.At(0.99), us.At(0.5) / watchers);
    for (auto& watcher : all) clock.RemoveWatcher(watcher.get());
}

void measure_cpu(const char* name, tnClock::clock_rate_accuracy accuracy, int seconds) {
    tnSystemClock clock(60, accuracy);
    std::array<StampingWatcher, 4> watchers;
    for (StampingWatcher& watcher : watchers) {
        watcher.Start(0, nullptr, false);
        clock.AddWatcher(&watcher);
    }
    const int64_t cpu = bench::CpuNs();
    const int64_t wall = NowNs();
    clock.StartTicking(0, nullptr, 0);
    sleep(static_cast<unsigned int>(seconds));
    const int64_t cpuUsed = bench::CpuNs() - cpu;
    const int64_t wallUsed = NowNs() - wall;
    clock.StopTicking();
    for (StampingWatcher& watcher : watchers) clock.RemoveWatcher(&watcher);
    std::printf("%-10s %6.3f %% of a core\n", name,
                100.0 * static_cast<double>(cpuUsed) / static_cast<double>(wallUsed));
}

}  // namespace

int main(int argc, char** argv) {
    int ticks = 4000;
    int seconds = 5;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--ticks") ticks = std::atoi(argv[i + 1]);
        if (option == "--seconds") seconds = std::atoi(argv[i + 1]);
    }
    measure_handoff(ticks, false);
    measure_handoff(ticks / 4, true);

    std::printf("\nthe producer's cost of a tick; microseconds\n%8s %10s %12s %12s %14s\n",
                "watchers", "threads", "p50", "p99", "p50 a watcher");
    for (int watchers : {1, 2, 4, 8, 16, 32, 64}) measure_producer(watchers, false, 20'000);
    for (int watchers : {1, 2, 4, 8, 16, 32, 64}) measure_producer(watchers, true, 500);

    std::printf("\na 60 Hz clock with 4 watchers, %d s\n", seconds);
    for (int repeat = 0; repeat < 3; ++repeat) {
        measure_cpu("'scac'", tnClock::clock_rate_scac, seconds);
        measure_cpu("'asnc'", tnClock::clock_rate_asnc, seconds);
    }
    return 0;
}
