// What a tick costs on its way: from ProduceTime to ReceiveTime beside a bare futex hand-off, what
// the producer pays per watcher, and how much of a core a clock with watchers uses.
//
//   clock_handoff_bench [--ticks N] [--seconds S] [--part handoff|loaded|producer|cpu]
//
// N hand-offs a contender (4000 unless said) a millisecond apart, idle and with all cores loaded; S
// seconds of ticking for each figure of processor use (15 unless said).
//
// Every bare thread runs as zThread makes a watcher's. The bare futex competes twice: how far its
// two rows lie apart is what this machine does not tell. The contenders meet in rounds of one
// hand-off each, in an order that is drawn anew for every round: what one leaves behind, a core
// that is still awake or a load that was just preempted, must not fall to the same one each time.
// Each of 20 turns starts new threads, in a drawn order too: a thread stays long on the core where
// it was put first, and under load the first of two equal futexes was a hundred times later at p99
// than the second.
// "turn p99" is the median of the p99 of the turns: where the whole machine stands still now and
// then, it tells more than a p99 over all, which says who was hit more often. For processor use
// "x bare" is the median of the turns' own ratios.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <linux/futex.h>
#include <memory>
#include <random>
#include <string>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "spar/zThread.h"
#include "spar/zThreadMain.h"
#include "tarn/clocks/tnClockWatcher.h"
#include "tarn/clocks/tnSystemClock.h"

#include "bench/support/Figures.h"

namespace {

using bench::NowNs;

/// A thread body out of a function.
class Body : public zThreadMain {
public:
    explicit Body(std::function<void()> work) : fWork(std::move(work)) {}
    int Main(int, const char**) override {
        fWork();
        return 0;
    }

private:
    std::function<void()> fWork;
};

/// A thread of the class and priority that clocks and watchers have.
std::unique_ptr<zThread> start(Body& body) {
    constexpr char kClass = 4;
    constexpr char kPriority = 4;
    std::unique_ptr<zThread> thread(zThread::Factory("bare", &body, kClass, kPriority));
    if (!thread) std::abort();
    return thread;
}

/// When a receiver got its latest tick, and how many it has got.
class Stamp {
public:
    void Set() {
        fReceivedAt.store(NowNs(), std::memory_order_relaxed);
        fCount.fetch_add(1, std::memory_order_release);
    }
    int64_t Await(unsigned int count) const {
        while (fCount.load(std::memory_order_acquire) < count) usleep(50);
        return fReceivedAt.load(std::memory_order_relaxed);
    }

private:
    std::atomic<unsigned int> fCount{0};
    std::atomic<int64_t> fReceivedAt{0};
};

/// Threads that sleep on one word: what any hand-off to sleeping threads costs at the least.
class BareFutex {
public:
    explicit BareFutex(int receivers = 1) : fBody([this] { receive(); }) {
        for (int i = 0; i < receivers; ++i) fThreads.push_back(start(fBody));
    }
    ~BareFutex() {
        fEnd = true;
        HandOff({});
        for (auto& thread : fThreads) thread->Join();
    }
    BareFutex(const BareFutex&) = delete;
    BareFutex& operator=(const BareFutex&) = delete;

    void HandOff(const tn_time_rec& time) {
        fTime = time;
        fWord.fetch_add(1, std::memory_order_release);
        syscall(SYS_futex, &fWord, FUTEX_WAKE_PRIVATE, static_cast<int>(fThreads.size()), nullptr,
                nullptr, 0);
    }
    int64_t ReceivedAt(unsigned int count) const { return fStamp.Await(count); }

private:
    void receive() {
        for (unsigned int seen = 0; !fEnd; ++seen) {
            while (fWord.load(std::memory_order_acquire) == seen) {
                syscall(SYS_futex, &fWord, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
            }
            fLast = fTime.tick_count;
            fStamp.Set();
        }
    }

    std::atomic<unsigned int> fWord{0};
    std::atomic<bool> fEnd{false};
    tn_time_rec fTime{};
    volatile long long fLast = 0;
    Stamp fStamp;
    Body fBody;
    std::vector<std::unique_ptr<zThread>> fThreads;
};

class StampingWatcher : public tnClockWatcher {
public:
    ~StampingWatcher() override { Stop(); }
    void ReceiveTime(const tn_time_rec&) override { fStamp.Set(); }
    int64_t ReceivedAt(unsigned int count) const { return fStamp.Await(count); }

private:
    Stamp fStamp;
};

/// A clock with one watcher in one of the two modes.
class WatchedClock {
public:
    explicit WatchedClock(bool multiple) {
        fWatcher.Start(0, nullptr, multiple);
        fClock.AddWatcher(&fWatcher);
    }
    ~WatchedClock() { fClock.RemoveWatcher(&fWatcher); }
    WatchedClock(const WatchedClock&) = delete;
    WatchedClock& operator=(const WatchedClock&) = delete;

    void HandOff(const tn_time_rec& time) { fClock.ProduceTime(time, true); }
    int64_t ReceivedAt(unsigned int count) const { return fWatcher.ReceivedAt(count); }

private:
    tnClock fClock;
    StampingWatcher fWatcher;
};

struct Contender {
    const char* name;
    bench::Samples us;
    bench::Samples turn;
    bench::Samples turnP99;
    bench::Samples pays;

    template <class Receiver>
    void HandOff(Receiver& receiver, const tn_time_rec& time) {
        usleep(1000);
        const int64_t before = NowNs();
        receiver.HandOff(time);
        const int64_t after = NowNs();
        const int64_t received = receiver.ReceivedAt(static_cast<unsigned int>(time.tick_count));
        const double late = static_cast<double>(received - before) / 1000;
        us.Add(late);
        turn.Add(late);
        pays.Add(static_cast<double>(after - before) / 1000);
    }
    void EndTurn() {
        turnP99.Add(turn.At(0.99));
        turn = {};
    }
    void Print(Contender& bare) {
        std::printf("%-36s %7zu %8.1f %8.1f %8.1f %8.1f %8.2f %8.2f %8.1f\n", name, us.Count(),
                    us.At(0.5), us.At(0.99), us.At(0.999), turnP99.At(0.5),
                    us.At(0.5) / bare.us.At(0.5), turnP99.At(0.5) / bare.turnP99.At(0.5),
                    pays.At(0.5));
    }
};

/// One turn, with threads of its own: the bare futexes, then the watcher in each of its modes.
void hand_off_in_turn(std::array<Contender, 4>& all, int ticks, std::mt19937& random) {
    constexpr size_t kBare = 2;
    constexpr size_t kMultiple = 3;
    std::array<std::unique_ptr<BareFutex>, kBare> bare;
    std::array<std::unique_ptr<WatchedClock>, kBare> watched;
    std::array<size_t, 4> order = {0, 1, 2, 3};
    std::shuffle(order.begin(), order.end(), random);
    for (size_t i : order) {
        if (i < kBare) {
            bare[i] = std::make_unique<BareFutex>();
        } else {
            watched[i - kBare] = std::make_unique<WatchedClock>(i == kMultiple);
        }
    }
    for (int n = 1; n <= ticks; ++n) {
        tn_time_rec time{};
        time.tick_count = n;
        std::shuffle(order.begin(), order.end(), random);
        for (size_t i : order) {
            if (i < kBare) {
                all[i].HandOff(*bare[i], time);
            } else {
                all[i].HandOff(*watched[i - kBare], time);
            }
        }
    }
    for (Contender& each : all) each.EndTurn();
}

void measure_handoff(int ticks, bool loaded) {
    constexpr int kTurns = 20;
    const bench::Load load(loaded);
    std::array<Contender, 4> all{};
    all[0].name = "bare futex";
    all[1].name = "bare futex, once more";
    all[2].name = "ProduceTime to ReceiveTime, single";
    all[3].name = "ProduceTime to ReceiveTime, multiple";
    std::mt19937 random(1);
    for (int turn = 0; turn < kTurns; ++turn)
        hand_off_in_turn(all, std::max(ticks / kTurns, 1), random);
    std::printf("\nhand-off to a sleeping thread, %s; microseconds\n",
                loaded ? "all cores loaded" : "idle");
    std::printf("%-36s %7s %8s %8s %8s %8s %8s %8s %8s\n", "", "n", "p50", "p99", "p99.9",
                "turn p99", "p50 x", "t.p99 x", "sender");
    for (Contender& each : all) each.Print(all[0]);
    std::fflush(stdout);
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

void measure_producers() {
    std::printf("\nthe producer's cost of a tick; microseconds\n%8s %10s %12s %12s %14s\n",
                "watchers", "threads", "p50", "p99", "p50 a watcher");
    for (int watchers : {1, 2, 4, 8, 16, 32, 64}) measure_producer(watchers, false, 20'000);
    for (int watchers : {1, 2, 4, 8, 16, 32, 64}) measure_producer(watchers, true, 500);
    std::fflush(stdout);
}

constexpr int kWatchers = 4;
constexpr long long kTicksPerSecond = 60;

/// The processor time that this process takes for what runs in it, as a share of the time that
/// passes, in percent of a core. What starting it took is over by then.
double share_of_a_core(int seconds) {
    constexpr useconds_t kSettleUs = 200'000;
    usleep(kSettleUs);
    const int64_t cpu = bench::CpuNs();
    const int64_t wall = NowNs();
    sleep(static_cast<unsigned int>(seconds));
    const int64_t cpuUsed = bench::CpuNs() - cpu;
    return 100.0 * static_cast<double>(cpuUsed) / static_cast<double>(NowNs() - wall);
}

double cpu_of_a_clock(tnClock::clock_rate_accuracy accuracy, int seconds) {
    tnSystemClock clock(kTicksPerSecond, accuracy);
    std::array<StampingWatcher, kWatchers> watchers;
    for (StampingWatcher& watcher : watchers) {
        watcher.Start(0, nullptr, false);
        clock.AddWatcher(&watcher);
    }
    clock.StartTicking(0, nullptr, 0);
    const double share = share_of_a_core(seconds);
    clock.StopTicking();
    for (StampingWatcher& watcher : watchers) clock.RemoveWatcher(&watcher);
    return share;
}

/// The least that such ticks cost here: an absolute sleep, then a wake for each of `words` futexes,
/// on which four threads sleep in all.
double cpu_of_bare_futexes(int words, int seconds) {
    std::vector<std::unique_ptr<BareFutex>> all;
    for (int i = 0; i < words; ++i) all.push_back(std::make_unique<BareFutex>(kWatchers / words));
    std::atomic<bool> ended{false};
    Body loop([&] {
        constexpr int64_t kSecondNs = 1'000'000'000;
        const int64_t begin = NowNs();
        for (int64_t n = 0; !ended; ++n) {
            tn_time_rec time{};
            time.tick_count = n;
            for (auto& each : all) each->HandOff(time);
            const int64_t target = begin + (n + 1) * kSecondNs / kTicksPerSecond;
            const timespec until = {target / kSecondNs, target % kSecondNs};
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
        }
    });
    const std::unique_ptr<zThread> thread = start(loop);
    const double share = share_of_a_core(seconds);
    ended = true;
    thread->Join();
    return share;
}

/// In turns of a second, for what the machine charges for the same work changes by the minute.
void measure_cpu(int seconds) {
    struct Row {
        const char* name;
        std::function<double()> run;
        bench::Samples percent;
        bench::Samples timesBare;
    };
    std::vector<Row> rows;
    const auto add = [&rows](const char* name, std::function<double()> run) {
        rows.push_back({name, std::move(run), {}, {}});
    };
    add("bare loop, a futex each", [] { return cpu_of_bare_futexes(kWatchers, 1); });
    add("bare loop, one futex for all", [] { return cpu_of_bare_futexes(1, 1); });
    add("'scac'", [] { return cpu_of_a_clock(tnClock::clock_rate_scac, 1); });
    add("'asnc'", [] { return cpu_of_a_clock(tnClock::clock_rate_asnc, 1); });
    std::mt19937 random(1);
    std::vector<size_t> order = {0, 1, 2, 3};
    std::array<double, 4> turn{};
    for (int second = 0; second < seconds; ++second) {
        std::shuffle(order.begin(), order.end(), random);
        for (size_t i : order) turn[i] = rows[i].run();
        for (size_t i : order) {
            rows[i].percent.Add(turn[i]);
            rows[i].timesBare.Add(turn[i] / turn[0]);
        }
    }
    std::printf(
        "\na 60 Hz clock with 4 watchers, %d turns of 1 s; percent of a core\n%-30s %8s %8s "
        "%8s %8s\n",
        seconds, "", "least", "median", "most", "x bare");
    for (Row& row : rows) {
        std::printf("%-30s %8.3f %8.3f %8.3f %8.2f\n", row.name, row.percent.At(0),
                    row.percent.At(0.5), row.percent.At(1), row.timesBare.At(0.5));
    }
}

}  // namespace

int main(int argc, char** argv) {
    int ticks = 4000;
    int seconds = 15;
    std::string part;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--ticks") ticks = std::atoi(argv[i + 1]);
        if (option == "--seconds") seconds = std::atoi(argv[i + 1]);
        if (option == "--part") part = argv[i + 1];
    }
    const auto wanted = [&part](const char* name) { return part.empty() || part == name; };
    if (wanted("handoff")) measure_handoff(ticks, false);
    if (wanted("loaded")) measure_handoff(ticks, true);
    if (wanted("producer")) measure_producers();
    if (wanted("cpu")) measure_cpu(seconds);
    return 0;
}
