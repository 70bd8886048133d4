#include "tarn/clocks/tnSystemClock.h"

#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "mach/machShallowSleep.h"
#include "spar/zThread.h"
#include "spar/zThreadMain.h"
#include "tarn/clocks/tnClockFactory.h"
#include "tarn/clocks/tnClockWatcher.h"

#include "tests/support/ManualTime.h"
#include "tests/support/TestFolder.h"
#include "tests/support/ThreadState.h"

namespace {

constexpr long long kStart = 1'000'000'000;

struct Thread {
    std::string name;
    tests::Scheduling scheduling;
};

/// A clock that notes on which thread it produces.
class NotingClock : public tnSystemClock {
public:
    using tnSystemClock::tnSystemClock;
    void ProduceTime(const tn_time_rec& time, bool queued) override {
        {
            std::lock_guard lock(fMutex);
            char name[16] = {};
            pthread_getname_np(pthread_self(), name, sizeof name);
            fThread = {name, tests::Scheduling::OfThisThread()};
            fRecords.push_back(time);
        }
        tnSystemClock::ProduceTime(time, queued);
    }
    std::vector<tn_time_rec> Records() {
        std::lock_guard lock(fMutex);
        return fRecords;
    }
    Thread TickingThread() {
        std::lock_guard lock(fMutex);
        return fThread;
    }

private:
    std::mutex fMutex;
    std::vector<tn_time_rec> fRecords;
    Thread fThread;
};

void stop(ManualTime& time, tnSystemClock& clock) {
    time.StopWith([&] { clock.StopTicking(); }, [&] { return !clock.IsTicking(); });
}

class Counter : public tnClockWatcher {
public:
    ~Counter() override { Stop(); }
    void ReceiveTime(const tn_time_rec& time) override {
        std::lock_guard lock(fMutex);
        fLast = time.tick_count;
        fChanged.notify_all();
    }
    void Await(long long count) {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [&] { return fLast >= count; });
    }

private:
    std::mutex fMutex;
    std::condition_variable fChanged;
    long long fLast = 0;
};

}  // namespace

TEST(SystemClock, ChangeRateShowsAtOnceButNotInTheTicks) {
    ManualTime time(kStart);
    NotingClock clock(29.97, tnClock::clock_rate_scac);
    EXPECT_EQ(clock.GetRate(), 29.97);
    EXPECT_EQ(clock.GetIntTickRate(), 29) << "truncated";
    clock.ChangeRate(25);
    clock.StartTicking(0, nullptr, 0);
    time.AwaitSleep();
    clock.ChangeRate(50);
    EXPECT_EQ(clock.GetRate(), 50);
    EXPECT_EQ(clock.GetIntTickRate(), 29) << "the constructor's, whatever comes";
    time.Run(3);
    EXPECT_EQ(time.Now(), kStart + 2 * 40'000);
    stop(time, clock);
    clock.StartTicking(0, nullptr, 0);
    time.Run(2);
    EXPECT_EQ(time.Now(), kStart + 2 * 40'000 + 20'000);
    stop(time, clock);
}

TEST(SystemClock, ItsTickRateIsZeroWhileItTicks) {
    ManualTime time(kStart);
    NotingClock clock(50, tnClock::clock_rate_asnc);
    clock.StartTicking(0, nullptr, 0);
    time.AwaitSleep();
    EXPECT_TRUE(clock.IsTicking());
    EXPECT_EQ(clock.GetTickRate(), 0);
    stop(time, clock);
}

TEST(SystemClock, RatesWithoutAWholeNumberHaveTheNearestThatFits) {
    struct Case {
        double rate;
        int whole;
    };
    const Case cases[] = {{59.94, 59},      {0.5, 0},           {0, 0},
                          {-3.7, -3},       {1e300, INT32_MAX}, {-1e300, INT32_MIN},
                          {std::nan(""), 0}};
    for (const Case& c : cases) {
        const tnSystemClock clock(c.rate, tnClock::clock_rate_scac);
        EXPECT_EQ(clock.GetIntTickRate(), c.whole) << c.rate;
    }
}

TEST(SystemClock, PauseRewindAndToggleReachTheTimeline) {
    ManualTime time(kStart);
    NotingClock clock(50, tnClock::clock_rate_scac);
    clock.StartTicking(300, nullptr, 0);
    time.Run(1);
    clock.PauseMediaTime();
    time.Run(1);
    EXPECT_EQ(clock.Records().back().media_time, 20'300);
    clock.RewindMediaTime(0);
    clock.Debug_ToggleMediaTimeAdvancing();
    time.Run(1);
    EXPECT_EQ(clock.Records().back().media_time, 0);
    stop(time, clock);
}

TEST(SystemClock, GetTimeForwards) {
    ManualTime time(kStart);
    NotingClock clock(50, tnClock::clock_rate_scac);
    tn_time_rec now{};
    EXPECT_EQ(clock.GetTime(now), -1);
    EXPECT_EQ(now.media_time, 0);
    EXPECT_EQ(now.clock_id, clock.ClockID());
    clock.StartTicking(0, nullptr, 0);
    time.AwaitSleep();
    EXPECT_EQ(clock.GetTime(now), 0);
    stop(time, clock);
    EXPECT_EQ(clock.GetTime(now), -1026);
    EXPECT_EQ(now.media_time, 20'000);
}

TEST(SystemClock, TheThreadHasItsNameAndClass) {
    struct Case {
        const char* name;
        char priority;
        const char* threadName;
        char sameAs;
    };
    const Case cases[] = {
        {nullptr, 0, "system clock", 4},
        {"show", 3, "show", 3},
        {"urgent", 6, "urgent", 6},
        {"most urgent", 9, "most urgent", 9},
    };
    ManualTime time(kStart);
    for (const Case& c : cases) {
        // What the base library makes of that class on this machine, refusal included.
        class Self : public zThreadMain {
        public:
            int Main(int, const char**) override {
                fScheduling = tests::Scheduling::OfThisThread();
                return 0;
            }
            tests::Scheduling fScheduling;
        };
        Self expected;
        std::unique_ptr<zThread>(zThread::Factory("", &expected, 4, c.sameAs))->Join();

        NotingClock clock(50, tnClock::clock_rate_scac);
        clock.StartTicking(0, c.name, c.priority);
        time.AwaitSleep();
        const Thread thread = clock.TickingThread();
        stop(time, clock);
        EXPECT_EQ(thread.name, c.threadName);
        EXPECT_EQ(thread.scheduling, expected.fScheduling) << c.threadName;
    }
}

TEST(SystemClock, KeepsProcessorsOutOfDeepSleepWhileItTicksAlone) {
    const tests::TestFolder folder;
    const std::string device = folder.File("latency");
    std::ofstream(device).put('\0');
    machShallowSleep::SetDevice(device.c_str());
    {
        ManualTime time(kStart);
        NotingClock clock(50, tnClock::clock_rate_scac);
        for (int life = 0; life < 2; ++life) {
            EXPECT_EQ(tests::OpenDescriptorsOn(device), 0);
            clock.StartTicking(0, nullptr, 0);
            time.AwaitSleep();
            EXPECT_EQ(tests::OpenDescriptorsOn(device), 1);
            stop(time, clock);
        }
        EXPECT_EQ(tests::OpenDescriptorsOn(device), 0);
    }
    machShallowSleep::SetDevice(nullptr);
}

TEST(SystemClock, StopTickingOnAStoppedClockDoesNothing) {
    tnSystemClock clock(50, tnClock::clock_rate_scac);
    clock.StopTicking();
    EXPECT_FALSE(clock.IsTicking());
}

TEST(SystemClock, ALinkThroughTheBaseReachesTheSystemClock) {
    ManualTime time(kStart);
    auto* clock = new NotingClock(50, tnClock::clock_rate_scac);
    tnClock* base = clock;
    tn_time_rec now{};
    EXPECT_EQ(base->GetTime(now), -1) << "not the base's -1012";
    EXPECT_EQ(base->Release(), 0);
}

TEST(SystemClock, ItsTicksReachWatchers) {
    ManualTime time(kStart);
    NotingClock clock(50, tnClock::clock_rate_scac);
    Counter counter;
    counter.Start(0, nullptr, false);
    clock.AddWatcher(&counter);
    clock.StartTicking(0, nullptr, 0);
    time.AwaitSleep();
    counter.Await(1);
    for (long long n = 2; n <= 20; ++n) {
        time.Run(1);
        counter.Await(n);
    }
    EXPECT_EQ(clock.GetLastProducedRealTime(), clock.Records().back().real_time);
    stop(time, clock);
    clock.RemoveWatcher(&counter);
}

// On the machine's own time: the clock ends while it ticks, and takes a period at the most.
TEST(SystemClock, DestroyedWhileTickingItEndsItsThread) {
    for (auto accuracy : {tnClock::clock_rate_scac, tnClock::clock_rate_asnc}) {
        Counter counter;
        counter.Start(0, nullptr, true);
        auto clock = std::make_unique<tnSystemClock>(500, accuracy);
        clock->AddWatcher(&counter);
        clock->StartTicking(0, nullptr, 0);
        counter.Await(3);
        clock.reset();
    }
}

namespace {

/// In a process of its own, whose user may have no thread more: starts what needs one, and exits
/// with 0 if all of it is stopped then and can be stopped, started and destroyed like any other.
[[noreturn]] void start_clocks_without_threads() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NPROC, &none);
    if (geteuid() == 0 && setuid(65534) != 0) _exit(2);
    int stopped = 0;
    {
        tnSystemClock clock(500, tnClock::clock_rate_scac);
        Counter counter;
        clock.AddWatcher(&counter);
        for (int life = 0; life < 2; ++life) {
            counter.Start(0, nullptr, false);
            clock.StartTicking(7, nullptr, 0);
            tn_time_rec time{};
            stopped += !counter.IsRunning() && !clock.IsTicking() && clock.GetTime(time) == -1;
            clock.ProduceTime(time, true);
            clock.StopTicking();
            counter.Stop();
        }
        clock.RemoveWatcher(&counter);
    }
    _exit(stopped == 2 ? 0 : 1);
}

}  // namespace

TEST(SystemClockDeathTest, WithoutAThreadToBeHadClocksAndWatchersStayStopped) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(start_clocks_without_threads(), testing::ExitedWithCode(0),
                "'clock watcher' could not be started(.|\n)*'system clock' could not be started");
}

TEST(ClockFactory, TheRefreshRateClockIsASystemClockOfSixtyHertz) {
    ManualTime time(kStart);
    tnSystemClock* clock = tnClockFactory::RefreshRateClock();
    EXPECT_EQ(clock->GetRate(), 60.0);
    EXPECT_EQ(clock->GetIntTickRate(), 60);
    EXPECT_FALSE(clock->IsTicking());
    clock->StartTicking(0, nullptr, 0);
    time.Run(2);
    EXPECT_EQ(time.Now(), kStart + 16'666);
    EXPECT_EQ(time.LastSleep(), ManualTime::Sleep::kPlain) << "an ordinary sleep is enough";
    stop(time, *clock);
    EXPECT_EQ(clock->Release(), 0) << "the caller's is the only reference";
}
