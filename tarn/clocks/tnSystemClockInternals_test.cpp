// The schedule of the ticking loops, tick by tick, against time that only the test moves.
#include "tarn/clocks/tnSystemClockInternals.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "mach/kernelTime.h"
#include "tarn/clocks/tnSystemClockInternals_mac.h"

#include "tests/support/ManualTime.h"
#include "tests/support/ThreadState.h"

namespace {

// A multiple of 24 and of 1000: whole in nanoseconds and in the units of every timebase used here.
constexpr long long kStart = 7'200'000'000;

/// A clock that notes what is produced on it.
class Recorder : public tnClock {
public:
    void ProduceTime(const tn_time_rec& time, bool queued) override {
        if (fOnProduce) fOnProduce();
        std::lock_guard lock(fMutex);
        fRecords.push_back(time);
        fAllQueued = fAllQueued && queued;
    }
    std::vector<tn_time_rec> Records() {
        std::lock_guard lock(fMutex);
        return fRecords;
    }
    tn_time_rec Last() { return Records().back(); }

    std::function<void()> fOnProduce;
    bool fAllQueued = true;

private:
    std::mutex fMutex;
    std::vector<tn_time_rec> fRecords;
};

struct Kind {
    const char* name;
    bool mach;
    tnClock::clock_rate_accuracy accuracy;
    unsigned int numer, denom;

    ManualTime::Sleep Sleep() const {
        if (mach) return ManualTime::Sleep::kMach;
        return accuracy == tnClock::clock_rate_asnc ? ManualTime::Sleep::kTimer
                                                    : ManualTime::Sleep::kPlain;
    }

    /// The number of the last tick, as GetTime tells it after tick n.
    long long CountAfter(long long n) const { return mach ? n : n + 1; }
};

class Loop : public testing::TestWithParam<Kind> {
protected:
    Loop() : fTime(kStart) { machTwin::SetTimebase(GetParam().numer, GetParam().denom); }
    ~Loop() override { Stop(); }

    void Make(double rate) {
        if (GetParam().mach) {
            fLoop = std::make_unique<tnSystemClockInternals_mac>(fClock, rate, GetParam().accuracy);
        } else {
            fLoop = std::make_unique<tnSystemClockInternals>(fClock, rate, GetParam().accuracy);
        }
    }
    void Start(double rate, long long mediaTime) {
        Make(rate);
        fLoop->StartTicking(mediaTime, nullptr, 0);
        fTime.AwaitSleep();
    }
    void Stop() {
        if (!fLoop || !fLoop->IsTicking()) return;
        fTime.StopWith([this] { fLoop->StopTicking(); }, [this] { return !fLoop->IsTicking(); });
    }
    tn_time_rec Now() {
        tn_time_rec time{};
        fLoop->GetTime(time);
        return time;
    }

    ManualTime fTime;
    Recorder fClock;
    std::unique_ptr<tnSystemClockInternals> fLoop;
};

// Counts as scac.
constexpr auto kNeither = static_cast<tnClock::clock_rate_accuracy>('none');

constexpr Kind kKinds[] = {
    {"scac", false, tnClock::clock_rate_scac, 1, 1},
    {"asnc", false, tnClock::clock_rate_asnc, 1, 1},
    {"neither", false, kNeither, 1, 1},
    {"mach", true, tnClock::clock_rate_scac, 1, 1},
    {"mach_125_3", true, tnClock::clock_rate_asnc, 125, 3},
};
INSTANTIATE_TEST_SUITE_P(SystemClock, Loop, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

struct Rate {
    double rate;
    long long numerator, denominator;  // periods a second
};

}  // namespace

//   tick          1      2      3      4
//   target        s      s+T    s+2T   s+3T     slept to after the tick
//   real_time     target less four whole periods
//   nominal_time  s      s      s+T    s+2T     the target before
TEST_P(Loop, TicksFollowTheirSchedule) {
    constexpr long long kPeriod = 40'000;
    Start(25, 1'000'000);
    fTime.Run(5);
    Stop();
    const std::vector<tn_time_rec> records = fClock.Records();
    ASSERT_EQ(records.size(), 6u);
    for (long long n = 1; n <= 6; ++n) {
        const tn_time_rec& record = records[static_cast<size_t>(n - 1)];
        const long long target = kStart + (n - 1) * kPeriod;
        EXPECT_EQ(record.tick_count, n);
        EXPECT_EQ(record.real_time, target - 4 * kPeriod);
        EXPECT_EQ(record.nominal_time, n == 1 ? kStart : target - kPeriod);
        EXPECT_EQ(record.media_time, 1'000'000 + (n - 1) * kPeriod);
        EXPECT_EQ(record.clock_id, fClock.ClockID());
        EXPECT_EQ(record.time_kind, 6u);
    }
    EXPECT_TRUE(fClock.fAllQueued);
}

TEST_P(Loop, TheFirstTwoTicksComeBackToBack) {
    Start(50, 0);
    EXPECT_EQ(fClock.Records().size(), 1u);
    const std::vector<uint64_t> sleeps = fTime.Sleeps();
    ASSERT_EQ(sleeps.size(), 1u);
    EXPECT_EQ(sleeps[0], static_cast<uint64_t>(kStart) * 1000) << "a sleep that is over at once";
    fTime.Run(1);
    EXPECT_EQ(fClock.Records().size(), 2u);
    EXPECT_EQ(fTime.Now(), kStart);
}

TEST_P(Loop, EachSleepsInItsOwnWay) {
    Start(50, 0);
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(fTime.LastSleep(), GetParam().Sleep()) << n;
        fTime.Run(1);
    }
}

TEST_P(Loop, ALateWakeUpIsMadeUpForBackToBackWithNothingSkipped) {
    constexpr long long kPeriod = 10'000;
    Start(100, 0);
    fTime.Run(1);
    fTime.WakeLate(3 * kPeriod + 4000);
    fTime.Run(1);  // the sleep to s+T ends at s+4.4T: tick 3 is out
    const long long late = kStart + 4 * kPeriod + 4000;
    EXPECT_EQ(fTime.Now(), late);
    fTime.Run(3);  // to s+2T, s+3T and s+4T: time stands still
    EXPECT_EQ(fTime.Now(), late);
    EXPECT_EQ(fClock.Records().size(), 6u);
    fTime.Run(1);
    EXPECT_EQ(fTime.Now(), kStart + 5 * kPeriod) << "on the old schedule again";
    const std::vector<tn_time_rec> records = fClock.Records();
    for (size_t i = 1; i < records.size(); ++i) {
        EXPECT_EQ(records[i].tick_count, records[i - 1].tick_count + 1);
        EXPECT_EQ(records[i].media_time, records[i - 1].media_time + kPeriod);
        EXPECT_EQ(records[i].real_time, records[i - 1].real_time + kPeriod);
    }
}

// Ten minutes: target n is the start and n periods, to the microsecond, as whole numbers reckon it.
TEST_P(Loop, TenMinutesDoNotDrift) {
    const Rate rates[] = {
        {60, 60, 1}, {50, 50, 1}, {60'000.0 / 1001, 60'000, 1001}, {30'000.0 / 1001, 30'000, 1001}};
    for (const Rate& rate : rates) {
        const size_t before = fTime.Sleeps().size();
        const long long start = fTime.Now();
        Start(rate.rate, 0);
        const long long ticks = 600 * rate.numerator / rate.denominator;
        fTime.Run(static_cast<int>(ticks));
        Stop();
        const std::vector<uint64_t> sleeps = fTime.Sleeps();
        ASSERT_GT(sleeps.size(), before + static_cast<size_t>(ticks));
        long long worst = 0;
        for (long long n = 0; n <= ticks; ++n) {
            const long long exact = start + n * 1'000'000 * rate.denominator / rate.numerator;
            const auto slept =
                static_cast<long long>(sleeps[before + static_cast<size_t>(n)] / 1000);
            worst = std::max(worst, std::abs(slept - exact));
        }
        EXPECT_LE(worst, 1) << rate.rate;
        // The next one starts on whole units again.
        fTime.AdvanceTo((fTime.Now() / 24'000 + 1) * 24'000);
    }
}

TEST_P(Loop, APeriodThatIsNotWholeIsTruncatedPerTargetAlone) {
    Start(60'000.0 / 1001, 0);
    fTime.Run(6);
    Stop();
    const std::vector<tn_time_rec> records = fClock.Records();
    // Four whole periods of 16683 come off each target. Six periods, added one by one, stand a hair
    // below 100 100, and a target is truncated: a microsecond, which does not grow.
    const long long targets[] = {0, 16'683, 33'366, 50'050, 66'733, 83'416, 100'099};
    const long long media[] = {0, 16'683, 33'367, 50'050, 66'733, 83'417, 100'100};
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].real_time, kStart + targets[i] - 4 * 16'683) << i;
        EXPECT_EQ(records[i].media_time, media[i]) << "rounded, not truncated";
    }
}

TEST_P(Loop, ARateChangeWaitsForTheNextStart) {
    Start(100, 0);
    fTime.Run(3);
    fLoop->ChangeRate(50);
    EXPECT_EQ(fLoop->GetRate(), 50);
    fTime.Run(3);
    EXPECT_EQ(fTime.Now(), kStart + 5 * 10'000);
    Stop();

    const long long restart = fTime.Now();
    fLoop->StartTicking(0, nullptr, 0);
    fTime.Run(3);
    EXPECT_EQ(fTime.Now(), restart + 2 * 20'000);
    EXPECT_EQ(fClock.Last().real_time, restart + 3 * 20'000 - 4 * 20'000);
}

TEST_P(Loop, ARewindMovesTheTimelineEitherWay) {
    constexpr long long kPeriod = 20'000;
    Start(50, 500'000);
    fTime.Run(4);
    for (long long to : {0LL, 9'000'000LL, -3'000'000LL}) {
        fLoop->RewindMediaTime(to);
        fTime.Run(1);
        EXPECT_EQ(fClock.Last().media_time, to) << "the next record has it";
        fTime.Run(1);
        EXPECT_EQ(fClock.Last().media_time, to + kPeriod);
    }
    EXPECT_EQ(fClock.Last().tick_count, 11) << "ticks are counted on";
}

TEST_P(Loop, ARewindDuringATickIsNotLost) {
    Start(50, 500'000);
    // Between the record's media time and the addition of the period.
    fClock.fOnProduce = [this] { fLoop->RewindMediaTime(0); };
    fTime.Run(1);
    fClock.fOnProduce = nullptr;
    fTime.Run(1);
    EXPECT_EQ(fClock.Last().media_time, 20'000) << "0 and one period";
}

TEST_P(Loop, HeldMediaTimeStandsStillInRecordsAndRunsOnUnderneath) {
    constexpr long long kPeriod = 20'000;
    Start(50, 0);
    fTime.Run(2);
    EXPECT_EQ(fClock.Last().media_time, 2 * kPeriod);
    fLoop->PauseMediaTime();
    const long long before = Now().media_time;
    fTime.Run(5);
    for (size_t i = 3; i < 8; ++i) EXPECT_EQ(fClock.Records()[i].media_time, 2 * kPeriod);
    EXPECT_EQ(Now().media_time, before + 5 * kPeriod);
    EXPECT_EQ(fClock.Last().tick_count, 8) << "only media time is held";

    fLoop->PauseMediaTime();  // again: held as before
    fLoop->RewindMediaTime(77);
    fTime.Run(1);
    EXPECT_EQ(fClock.Last().media_time, 2 * kPeriod) << "a rewind does not let go";
    EXPECT_EQ(Now().media_time, 77 + kPeriod);

    fLoop->Debug_ToggleMediaTimeAdvancing();
    fTime.Run(1);
    EXPECT_EQ(fClock.Last().media_time, 77 + kPeriod) << "forward by the time it was held";
}

TEST_P(Loop, TogglingTwiceAdvancesAgainAtTheLaterTime) {
    constexpr long long kPeriod = 20'000;
    Start(50, 0);
    fLoop->Debug_ToggleMediaTimeAdvancing();
    fTime.Run(3);
    EXPECT_EQ(fClock.Last().media_time, 0);
    fLoop->Debug_ToggleMediaTimeAdvancing();
    fTime.Run(1);
    EXPECT_EQ(fClock.Last().media_time, 4 * kPeriod);
}

TEST_P(Loop, ARestartBeginsTheTimelineAnew) {
    Start(50, 1'000'000);
    fTime.Run(9);
    Stop();
    const size_t before = fClock.Records().size();
    fTime.AdvanceTo(kStart + 60'000'000);
    fLoop->StartTicking(5'000, nullptr, 0);
    fTime.Run(1);
    Stop();
    const std::vector<tn_time_rec> records = fClock.Records();
    ASSERT_EQ(records.size(), before + 2);
    EXPECT_EQ(records[before].tick_count, 1);
    EXPECT_EQ(records[before].media_time, 5'000);
    EXPECT_EQ(records[before].nominal_time, kStart + 60'000'000);
    EXPECT_EQ(records[before].real_time, kStart + 60'000'000 - 80'000);
    EXPECT_EQ(records[before + 1].tick_count, 2);
}

TEST_P(Loop, GetTimeTellsWhereTheClockStands) {
    constexpr long long kPeriod = 20'000;
    Make(50);
    tn_time_rec time{};
    time.time_kind = 1234;
    EXPECT_EQ(fLoop->GetTime(time), -1) << "never started";
    EXPECT_EQ(time.media_time, 0);
    EXPECT_EQ(time.real_time, 0);
    EXPECT_EQ(time.tick_count, 0);
    EXPECT_EQ(time.clock_id, fClock.ClockID());

    fLoop->StartTicking(0, nullptr, 0);
    fTime.AwaitSleep();
    fTime.Run(3);
    EXPECT_EQ(fLoop->GetTime(time), 0);
    EXPECT_EQ(time.media_time, 4 * kPeriod) << "a period ahead of the last record";
    EXPECT_EQ(time.tick_count, GetParam().CountAfter(4));
    EXPECT_EQ(time.nominal_time, fClock.Last().nominal_time);
    EXPECT_EQ(time.time_kind, 1234u) << "not its to write";

    Stop();
    tn_time_rec stopped{};
    EXPECT_EQ(fLoop->GetTime(stopped), -1026) << "ran from media time 0";
    EXPECT_EQ(stopped.media_time, time.media_time);
    EXPECT_EQ(stopped.tick_count, time.tick_count);
    EXPECT_EQ(stopped.nominal_time, time.nominal_time);
    EXPECT_EQ(stopped.clock_id, time.clock_id);
    // A timeline that was rewound before zero counts as one that has not run.
    fLoop->RewindMediaTime(0);
    EXPECT_EQ(fLoop->GetTime(stopped), -1);
    fLoop->RewindMediaTime(-1);
    EXPECT_EQ(fLoop->GetTime(stopped), -1);
}

// What each loop calls the real time: sampled before the tick, read on waking, or the schedule's.
TEST_P(Loop, RealTimeOfGetTimeIsThatOfTheLoop) {
    Start(50, 0);
    fTime.Run(1);
    fTime.WakeLate(3'000);
    fTime.Run(1);
    const long long awake = kStart + 20'000 + 3'000;
    EXPECT_EQ(fTime.Now(), awake);
    const long long expected = GetParam().mach ? fClock.Last().real_time : awake;
    EXPECT_EQ(Now().real_time, expected);
}

TEST_P(Loop, ATickThatIsUnderWayAtStopIsTheLast) {
    Start(50, 0);
    fTime.Run(2);
    const size_t before = fClock.Records().size();
    Stop();
    EXPECT_EQ(fClock.Records().size(), before);
    EXPECT_FALSE(fLoop->IsTicking());
    fLoop->StopTicking();
}

TEST_P(Loop, GetTimeDuringADeliveryWaitsOnThePortableLoopAlone) {
    Start(50, 0);
    std::atomic<bool> told{false};
    std::thread asker;
    fClock.fOnProduce = [&] {
        asker = std::thread([&] {
            Now();
            told = true;
        });
        if (GetParam().mach) {
            while (!told) std::this_thread::yield();
        } else {
            for (int i = 0; i < 1000; ++i) std::this_thread::yield();
            EXPECT_FALSE(told) << "the time lock is held across the delivery";
        }
    };
    fTime.Run(1);
    fClock.fOnProduce = nullptr;
    asker.join();
    EXPECT_TRUE(told);
}

TEST_P(Loop, APauseBeforeTheFirstTickLeavesItsMediaTimeAtNothing) {
    Make(50);
    fLoop->PauseMediaTime();
    fLoop->StartTicking(1'000'000, nullptr, 0);
    fTime.AwaitSleep();
    EXPECT_EQ(fClock.Last().media_time, 0);
    EXPECT_EQ(Now().media_time, 1'020'000);
}

TEST_P(Loop, ARateOfZeroTicksTwiceAndThenSleepsWithoutEnd) {
    Start(0, 0);
    fTime.Run(1);
    EXPECT_EQ(fClock.Records().size(), 2u);
    // Further off than any show is long.
    EXPECT_GT(fTime.Sleeps().back() / 1'000'000'000, 100ULL * 365 * 86'400);
    Stop();
}

// The plain loop looks at the flag once more after it has taken the time, and leaves the tick out.
TEST(PortableLoop, StoppedBetweenItsTimeAndItsTickThePlainLoopLeavesTheTickOut) {
    for (const auto accuracy : {tnClock::clock_rate_scac, kNeither}) {
        ManualTime time(kStart);
        Recorder clock;
        tnSystemClockInternals loop(clock, 50, accuracy);
        // Two reads before the first tick, and the third in it.
        std::atomic<int> reads{0};
        time.OnRead([&] {
            if (++reads < 3) return;
            while (loop.IsTicking()) std::this_thread::yield();
        });
        loop.StartTicking(0, nullptr, 0);
        // The precise loop would sleep instead of reading a third time.
        time.AwaitSleepOr([&] { return reads >= 3; });
        time.StopWith([&] { loop.StopTicking(); }, [&] { return !loop.IsTicking(); });
        EXPECT_TRUE(clock.Records().empty()) << accuracy;
        EXPECT_EQ(reads, 3) << accuracy;
    }
}

TEST(PortableLoop, ThePreciseLoopReadsNoTimeInATick) {
    ManualTime time(kStart);
    Recorder clock;
    tnSystemClockInternals loop(clock, 50, tnClock::clock_rate_asnc);
    std::atomic<int> reads{0};
    time.OnRead([&] { ++reads; });
    loop.StartTicking(0, nullptr, 0);
    time.Run(5);
    EXPECT_EQ(clock.Records().size(), 6u);
    EXPECT_EQ(reads, 2);
    time.StopWith([&] { loop.StopTicking(); }, [&] { return !loop.IsTicking(); });
}

TEST(MachLoop, StoppedBeforeItsFirstTickItProducesNone) {
    // Held in the policy call, the one moment before the first tick that a test can catch.
    static std::atomic<tnSystemClockInternals*> gLoop;
    static std::atomic<bool> gAsked;
    ManualTime time(kStart);
    Recorder clock;
    tnSystemClockInternals_mac loop(clock, 50, tnClock::clock_rate_scac);
    gLoop = &loop;
    gAsked = false;
    machTwin::SetScheduler([](mach_port_t, int) {
        gAsked = true;
        while (gLoop.load()->IsTicking()) std::this_thread::yield();
        return 0;
    });
    loop.StartTicking(0, nullptr, 0);
    while (!gAsked) std::this_thread::yield();
    loop.StopTicking();
    machTwin::SetScheduler(nullptr);
    EXPECT_TRUE(clock.Records().empty());
}

namespace {

/// Lets a test stand in the loop's way.
class OpenMachLoop : public tnSystemClockInternals_mac {
public:
    using tnSystemClockInternals_mac::tnSystemClockInternals_mac;
    zMutex& TimeLock() { return fTimeLock; }
    void NoLongerTicks() { fTicking = false; }
};

}  // namespace

// Its last look at the flag stands between the record and the tick: what it has counted by then
// stays counted, and goes out to nobody.
TEST(MachLoop, StoppedBetweenItsRecordAndItsTickItProducesNoMore) {
    ManualTime time(kStart);
    Recorder clock;
    std::atomic<pid_t> thread{0};
    clock.fOnProduce = [&] { thread = gettid(); };
    OpenMachLoop loop(clock, 50, tnClock::clock_rate_scac);
    loop.StartTicking(0, nullptr, 0);
    time.Run(2);
    ASSERT_EQ(clock.Records().size(), 3u);
    {
        zMutexLock lock(loop.TimeLock());
        time.LetGo();
        // On its way to the next tick there is nothing else that it could wait for.
        while (!tests::IsThreadAsleep(thread)) std::this_thread::yield();
        loop.NoLongerTicks();
    }
    time.StopWith([&] { loop.StopTicking(); }, [] { return true; });
    EXPECT_EQ(clock.Records().size(), 3u);
    tn_time_rec stopped{};
    EXPECT_EQ(loop.GetTime(stopped), -1026);
    EXPECT_EQ(stopped.tick_count, 4);
    EXPECT_EQ(stopped.nominal_time, kStart + 2 * 20'000);
    EXPECT_EQ(stopped.media_time, 3 * 20'000) << "the period of a tick that was not is not added";
}

// A millisecond of work in each period, done five milliseconds after it is due at the latest.
TEST(MachLoop, AsksForAPeriodOfItsRateInTheKernelsUnits) {
    struct Case {
        uint32_t numer, denom;
        double rate;
        uint32_t period, computation, constraint;
    };
    const Case cases[] = {
        {1, 1, 25, 40'000'000, 1'000'000, 5'000'000},
        {1, 1, 60'000.0 / 1001, 16'683'333, 1'000'000, 5'000'000},
        {125, 3, 25, 960'000, 24'000, 120'000},
        {125, 3, 60, 400'000, 24'000, 120'000},
    };
    machTwin::SetScheduler([](mach_port_t, int) { return 0; });
    for (const Case& c : cases) {
        ManualTime time(kStart);
        machTwin::SetTimebase(c.numer, c.denom);
        Recorder clock;
        tnSystemClockInternals_mac loop(clock, c.rate, tnClock::clock_rate_scac);
        loop.StartTicking(0, nullptr, 0);
        time.AwaitSleep();
        const thread_time_constraint_policy_data_t wish = machTwin::LastWish();
        time.StopWith([&] { loop.StopTicking(); }, [&] { return !loop.IsTicking(); });
        SCOPED_TRACE(testing::Message() << c.numer << "/" << c.denom << " " << c.rate);
        EXPECT_EQ(wish.period, c.period);
        EXPECT_EQ(wish.computation, c.computation);
        EXPECT_EQ(wish.constraint, c.constraint);
        EXPECT_EQ(wish.preemptible, 0);
    }
    machTwin::SetScheduler(nullptr);
}

// Units so small that a few months of uptime need the top bit of a word.
TEST(MachLoop, UnitsBeyondSixtyThreeBitsStayOnSchedule) {
    constexpr long long kLongUp = 9'300'000'000'000;  // microseconds; a unit is a picosecond
    constexpr long long kPeriod = 20'000;
    ManualTime time(kLongUp);
    machTwin::SetTimebase(1, 1000);
    ASSERT_GT(mach_absolute_time(), uint64_t{1} << 63);
    Recorder clock;
    tnSystemClockInternals_mac loop(clock, 50, tnClock::clock_rate_scac);
    loop.StartTicking(0, nullptr, 0);
    time.Run(5);
    time.StopWith([&] { loop.StopTicking(); }, [&] { return !loop.IsTicking(); });
    const std::vector<tn_time_rec> records = clock.Records();
    ASSERT_EQ(records.size(), 6u);
    for (size_t i = 0; i < records.size(); ++i) {
        const long long target = kLongUp + static_cast<long long>(i) * kPeriod;
        // A double has 53 bits: the target may lose nanoseconds, and so a microsecond.
        EXPECT_LE(std::llabs(records[i].real_time + 4 * kPeriod - target), 1) << i;
    }
}

TEST(MachLoop, GivesBackItsPorts) {
    const int before = machTwin::LivePorts();
    ManualTime time(kStart);
    Recorder clock;
    tnSystemClockInternals_mac loop(clock, 50, tnClock::clock_rate_scac);
    for (int i = 0; i < 3; ++i) {
        loop.StartTicking(0, nullptr, 0);
        time.AwaitSleep();
        EXPECT_EQ(machTwin::LivePorts(), before + 2);
        time.StopWith([&] { loop.StopTicking(); }, [&] { return !loop.IsTicking(); });
        EXPECT_EQ(machTwin::LivePorts(), before);
    }
}

TEST(MachLoop, TicksWithoutItsPolicyToo) {
    machTwin::SetScheduler([](mach_port_t, int) { return 1; });
    ManualTime time(kStart);
    Recorder clock;
    tnSystemClockInternals_mac loop(clock, 50, tnClock::clock_rate_scac);
    loop.StartTicking(0, nullptr, 0);
    time.AwaitSleep();
    time.Run(3);
    EXPECT_EQ(clock.Last().tick_count, 4);
    time.StopWith([&] { loop.StopTicking(); }, [&] { return !loop.IsTicking(); });
    machTwin::SetScheduler(nullptr);
}

TEST(SystemClockInternals, TheFactoryGivesThePlatformsVariant) {
    Recorder clock;
    const std::unique_ptr<tnSystemClockInternals> made(
        tnSystemClockInternals::Factory(clock, 50, tnClock::clock_rate_asnc));
    ASSERT_TRUE(made);
#if defined(__APPLE__)
    EXPECT_TRUE(dynamic_cast<tnSystemClockInternals_mac*>(made.get()));
#else
    EXPECT_FALSE(dynamic_cast<tnSystemClockInternals_mac*>(made.get()));
#endif
    EXPECT_EQ(made->GetRate(), 50);
    EXPECT_FALSE(made->IsTicking());
}
