// How late ticks come: our clocks beside a bare absolute sleep (the floor), the standard library
// and GStreamer's system clock, in turns within one run, so that what else the machine does hits
// all.
//
//   clock_lateness_bench [--seconds S] [--rate R]... [--idle | --load]
//
// S seconds a contender and rate, in turns of one second; 2 unless said, 30 for figures to quote.
// "turn p99" is the median of the turns' own p99: where the whole machine stands still now and
// then, it tells more than a p99 over all, which says who was hit more often.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

#include "spar/zSignal.h"
#include "tarn/clocks/tnSystemClockInternals.h"
#include "tarn/clocks/tnSystemClockInternals_mac.h"

#include "bench/support/Figures.h"
#if defined(TARN_BENCH_GSTREAMER)
#include <gst/gst.h>
#endif

namespace {

using bench::NowNs;

constexpr int64_t kSecondNs = 1'000'000'000;
constexpr int kFifoPriority = 20;
constexpr char kFifoNumber = 6;  // what zThread makes of it: the same priority

/// Ticks a share of a second: exact for 60000/1001 too.
struct Rate {
    long long numerator, denominator;
    double Hertz() const {
        return static_cast<double>(numerator) / static_cast<double>(denominator);
    }
    int64_t After(long long ticks) const { return ticks * kSecondNs * denominator / numerator; }
};

using Note = std::function<void(int64_t latenessNs)>;
using Run = std::function<void(const Rate&, long long ticks, const Note&)>;

struct Contender {
    const char* name;
    Run run;
    bench::Samples latenessUs;
    bench::Samples turnP99Us;
    int64_t cpuNs = 0;
    int64_t wallNs = 0;
};

bool become_fifo() {
    sched_param parameters{};
    parameters.sched_priority = kFifoPriority;
    return pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters) == 0;
}

bool fifo_is_allowed() {
    bool allowed = false;
    std::thread([&allowed] { allowed = become_fifo(); }).join();
    return allowed;
}

void bare_loop(const Rate& rate, long long ticks, const Note& note) {
    const int64_t start = NowNs();
    for (long long n = 1; n <= ticks; ++n) {
        const int64_t target = start + rate.After(n);
        const timespec until = {target / kSecondNs, target % kSecondNs};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
        note(NowNs() - target);
    }
}

Run bare(bool fifo) {
    return [fifo](const Rate& rate, long long ticks, const Note& note) {
        std::thread([&] {
            prctl(PR_SET_TIMERSLACK, 1UL);
            if (fifo) become_fifo();
            bare_loop(rate, ticks, note);
        }).join();
    };
}

void standard_library(const Rate& rate, long long ticks, const Note& note) {
    std::thread([&] {
        const auto start = std::chrono::steady_clock::now();
        for (long long n = 1; n <= ticks; ++n) {
            const auto target = start + std::chrono::nanoseconds(rate.After(n));
            std::this_thread::sleep_until(target);
            note((std::chrono::steady_clock::now() - target).count());
        }
    }).join();
}

#if defined(TARN_BENCH_GSTREAMER)
void gstreamer(const Rate& rate, long long ticks, const Note& note) {
    std::thread([&] {
        GstClock* clock = gst_system_clock_obtain();
        const GstClockTime start = gst_clock_get_time(clock);
        for (long long n = 1; n <= ticks; ++n) {
            const GstClockTime target = start + static_cast<GstClockTime>(rate.After(n));
            GstClockID id = gst_clock_new_single_shot_id(clock, target);
            gst_clock_id_wait(id, nullptr);
            note(static_cast<int64_t>(gst_clock_get_time(clock)) - static_cast<int64_t>(target));
            gst_clock_id_unref(id);
        }
        gst_object_unref(clock);
    }).join();
}
#endif

/// Notes how long after the last tick's target the next tick is produced: a loop sleeps to a target
/// after the tick, and produces the next when it wakes.
class NotingClock : public tnClock {
public:
    NotingClock(long long ticks, const Note& note) : fLeft(ticks), fNote(note) {}
    void ProduceTime(const tn_time_rec& time, bool) override {
        const int64_t lateness = NowNs() - time.nominal_time * 1000;
        if (time.tick_count <= 2 || fLeft == 0) return;  // those two come at the start
        fNote(lateness);
        if (--fLeft == 0) fDone.Raise();
    }
    void AwaitAll() { fDone.Wait(); }

private:
    long long fLeft;
    const Note& fNote;
    zSignal fDone;
};

template <class Internals>
Run ours(tnClock::clock_rate_accuracy accuracy, char priority) {
    return [=](const Rate& rate, long long ticks, const Note& note) {
        NotingClock clock(ticks, note);
        Internals internals(clock, rate.Hertz(), accuracy);
        internals.StartTicking(0, nullptr, priority);
        clock.AwaitAll();
        internals.StopTicking();
    };
}

std::vector<Contender> contenders() {
    std::vector<Contender> all;
    const auto add = [&all](const char* name, Run run) {
        all.push_back({name, std::move(run), {}, {}, 0, 0});
    };
    add("bare clock_nanosleep", bare(false));
    add("std::this_thread::sleep_until", &standard_library);
#if defined(TARN_BENCH_GSTREAMER)
    add("GStreamer system clock", &gstreamer);
#endif
    add("tarn 'scac'", ours<tnSystemClockInternals>(tnClock::clock_rate_scac, 0));
    add("tarn 'asnc'", ours<tnSystemClockInternals>(tnClock::clock_rate_asnc, 0));
    if (!fifo_is_allowed()) {
        std::puts("no real-time scheduling here: the Mach loop runs without, and none of FIFO");
    } else {
        add("bare clock_nanosleep, FIFO", bare(true));
        add("tarn 'scac', FIFO",
            ours<tnSystemClockInternals>(tnClock::clock_rate_scac, kFifoNumber));
        add("tarn 'asnc', FIFO",
            ours<tnSystemClockInternals>(tnClock::clock_rate_asnc, kFifoNumber));
    }
    add("tarn Mach loop (its twin)", ours<tnSystemClockInternals_mac>(tnClock::clock_rate_scac, 0));
    return all;
}

void measure(const Rate& rate, int seconds, bool loaded) {
    std::vector<Contender> all = contenders();
    const auto ticks = static_cast<long long>(rate.Hertz() + 0.5);
    {
        const bench::Load load(loaded);
        for (int second = 0; second < seconds; ++second) {
            for (Contender& contender : all) {
                const int64_t cpu = bench::CpuNs();
                const int64_t wall = NowNs();
                bench::Samples turn;
                contender.run(rate, ticks, [&](int64_t latenessNs) {
                    const double us = static_cast<double>(latenessNs) / 1000;
                    contender.latenessUs.Add(us);
                    turn.Add(us);
                });
                contender.turnP99Us.Add(turn.At(0.99));
                contender.cpuNs += bench::CpuNs() - cpu;
                contender.wallNs += NowNs() - wall;
            }
        }
    }
    std::printf("\n%.4g Hz, %s, %d s each; microseconds late\n", rate.Hertz(),
                loaded ? "all cores loaded" : "idle", seconds);
    std::printf("%-32s %8s %9s %9s %9s %9s %9s %7s\n", "", "ticks", "p50", "p99", "p99.9", "max",
                "turn p99", "cpu %");
    for (Contender& contender : all) {
        bench::Samples& late = contender.latenessUs;
        std::printf(
            "%-32s %8zu %9.1f %9.1f %9.1f %9.1f %9.1f %7.2f\n", contender.name, late.Count(),
            late.At(0.5), late.At(0.99), late.At(0.999), late.At(1), contender.turnP99Us.At(0.5),
            100.0 * static_cast<double>(contender.cpuNs) / static_cast<double>(contender.wallNs));
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    int seconds = 2;
    bool idle = true;
    bool loaded = true;
    std::vector<Rate> rates;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--seconds" && i + 1 < argc) seconds = std::atoi(argv[++i]);
        if (option == "--rate" && i + 1 < argc) rates.push_back({std::atoi(argv[++i]), 1});
        if (option == "--idle") loaded = false;
        if (option == "--load") idle = false;
    }
    if (rates.empty()) rates = {{60'000, 1001}, {60, 1}, {120, 1}, {1000, 1}};
#if defined(TARN_BENCH_GSTREAMER)
    gst_init(nullptr, nullptr);
#endif
    for (const Rate& rate : rates) {
        if (idle) measure(rate, seconds, false);
        if (loaded) measure(rate, seconds, true);
    }
    return 0;
}
