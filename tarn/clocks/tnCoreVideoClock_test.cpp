#include "tarn/clocks/tnCoreVideoClock.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/ScriptedDisplay.h"
#include "tests/support/XServer.h"

namespace {

constexpr displayRefreshRate kRate = {1001, 60'000};

class NotingClock : public tnCoreVideoClock {
public:
    void ProduceTime(const tn_time_rec& time, bool queued) override {
        std::lock_guard lock(fMutex);
        fRecords.push_back(time);
        fAllQueued = fAllQueued && queued;
    }
    std::vector<tn_time_rec> Records() {
        std::lock_guard lock(fMutex);
        return fRecords;
    }
    void Refresh(long long count) { RenderDisplay(1001, 60'000, count * 1001, 0); }
    tn_time_rec Time() {
        tn_time_rec time{};
        EXPECT_EQ(GetTime(time), 0);
        return time;
    }

    bool fAllQueued = true;

private:
    std::mutex fMutex;
    std::vector<tn_time_rec> fRecords;
};

/// A clock that stands where the test puts it.
class HandClock : public tnClock {
public:
    explicit HandClock(int* deaths = nullptr) : fDeaths(deaths) {}
    ~HandClock() override {
        if (fDeaths) ++*fDeaths;
    }
    int GetTime(tn_time_rec& time) const override {
        time.real_time = fReal;
        time.media_time = fMedia;
        time.tick_count = 4711;
        time.nominal_time = 815;
        time.clock_id = ClockID();
        return 0;
    }

    long long fReal = 0;
    long long fMedia = 0;

private:
    int* fDeaths;
};

}  // namespace

TEST(CoreVideoClock, TheRateIsThatOfTheDisplayAtConstruction) {
    ScriptedDisplay display(kRate);
    NotingClock clock;
    EXPECT_DOUBLE_EQ(clock.GetRate(), 60'000.0 / 1001);
    clock.ChangeRate(24);
    EXPECT_DOUBLE_EQ(clock.GetRate(), 60'000.0 / 1001);
    EXPECT_EQ(clock.GetIntTickRate(), 0) << "the unused base's";
    EXPECT_EQ(clock.GetTickRate(), 0);
}

TEST(CoreVideoClock, BeforeItsFirstRefreshItSaysSoByItsCount) {
    ScriptedDisplay display(kRate);
    NotingClock clock;
    const tn_time_rec time = clock.Time();
    EXPECT_EQ(time.tick_count, 0);
    EXPECT_EQ(time.time_kind, 6u);
    EXPECT_EQ(time.media_time, 0);
    EXPECT_EQ(time.real_time, 0);
}

TEST(CoreVideoClock, EachRefreshOfTheDisplayIsATick) {
    ScriptedDisplay display(kRate);
    NotingClock clock;
    clock.StartTicking(123, "ignored", 5);
    for (long long count = 1000; count < 1010; ++count) display.Refresh(count);
    display.AwaitIdle();
    clock.StopTicking();
    EXPECT_FALSE(display.IsAskedFor()) << "nobody waits for refreshes any more";
    display.Refresh(2000);

    const std::vector<tn_time_rec> records = clock.Records();
    ASSERT_EQ(records.size(), 10u);
    for (size_t i = 0; i < records.size(); ++i) {
        const long long count = 1000 + static_cast<long long>(i);
        EXPECT_EQ(records[i].tick_count, count);
        // In whole microseconds, from the display's own epoch.
        EXPECT_NEAR(static_cast<double>(records[i].media_time),
                    static_cast<double>(count) * 1001 * 1e6 / 60'000, 1.0);
        EXPECT_EQ(records[i].real_time, 0);
        EXPECT_EQ(records[i].time_kind, 6u);
        EXPECT_EQ(records[i].clock_id, clock.ClockID());
    }
    EXPECT_TRUE(clock.fAllQueued);
    EXPECT_FALSE(clock.IsTicking()) << "the base's, which never starts";
    EXPECT_EQ(clock.Time().tick_count, 1009) << "told after the stop too";
}

TEST(CoreVideoClock, MediaTimeGrowsByTheRefreshPeriod) {
    ScriptedDisplay display({1, 50});
    NotingClock clock;
    for (long long videoTime = 0; videoTime < 100; ++videoTime) {
        clock.RenderDisplay(1, 50, videoTime, 0);
    }
    const std::vector<tn_time_rec> records = clock.Records();
    for (size_t i = 1; i < records.size(); ++i) {
        EXPECT_EQ(records[i].media_time, records[i - 1].media_time + 20'000);
        EXPECT_EQ(records[i].tick_count, records[i - 1].tick_count + 1);
    }
}

TEST(CoreVideoClock, VideoTimeBetweenTwoRefreshesCountsForTheEarlier) {
    ScriptedDisplay display(kRate);
    NotingClock clock;
    clock.RenderDisplay(1001, 60'000, 7 * 1001 + 1000, 0);
    EXPECT_EQ(clock.Records().at(0).tick_count, 7);
}

TEST(CoreVideoClock, RewindAndPauseHaveNoEffect) {
    ScriptedDisplay display({1, 50});
    NotingClock clock;
    clock.RenderDisplay(1, 50, 10, 0);
    clock.RewindMediaTime(0);
    clock.PauseMediaTime();
    EXPECT_EQ(clock.Time().media_time, 200'000);
    clock.RenderDisplay(1, 50, 11, 0);
    EXPECT_EQ(clock.Records().at(1).media_time, 220'000);
}

TEST(CoreVideoClock, ALinkedClockThatTicksGivesTimeAndId) {
    ScriptedDisplay display(kRate);
    HandClock source;
    NotingClock clock;
    clock.LinkMediaTimeFromClock(source);
    for (long long count = 1; count <= 3; ++count) {
        source.fMedia = count * 500'000;
        source.fReal = count * 7;
        clock.Refresh(count);
    }
    const std::vector<tn_time_rec> records = clock.Records();
    ASSERT_EQ(records.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const long long count = static_cast<long long>(i) + 1;
        EXPECT_EQ(records[i].real_time, count * 7);
        EXPECT_EQ(records[i].media_time, count * 500'000);
        EXPECT_EQ(records[i].nominal_time, 815);
        EXPECT_EQ(records[i].clock_id, source.ClockID());
        EXPECT_EQ(records[i].tick_count, count) << "the display's, not the linked clock's";
        EXPECT_EQ(records[i].time_kind, 6u);
    }
}

// A refresh is 20 000 us; the linked clock moves to 100 000 and stands.
//
//   refresh            5        6         7         8
//   linked media       100 000  100 000   100 000   100 000
//   ours               100 000  120 000   100 000   120 000
//   tick               yes      no        yes       no
//
// The extrapolation of a silent refresh makes the next one see a difference.
TEST(CoreVideoClock, ALinkedClockThatStandsStillSilencesTheRefresh) {
    ScriptedDisplay display({1, 50});
    HandClock source;
    NotingClock clock;
    source.fMedia = 100'000;
    source.fReal = 77;
    clock.LinkMediaTimeFromClock(source);

    clock.RenderDisplay(1, 50, 5, 0);
    EXPECT_EQ(clock.Records().size(), 1u);
    EXPECT_EQ(clock.Time().tick_count, 5) << "a tick is counted by the display";
    source.fReal = 78;
    clock.RenderDisplay(1, 50, 6, 0);
    EXPECT_EQ(clock.Records().size(), 1u) << "no tick";
    const tn_time_rec silent = clock.Time();
    EXPECT_EQ(silent.media_time, 120'000) << "the display carries the time on";
    // All else is the linked clock's, its count included.
    EXPECT_EQ(silent.tick_count, 4711);
    EXPECT_EQ(silent.real_time, 78);
    EXPECT_EQ(silent.nominal_time, 815);
    EXPECT_EQ(silent.clock_id, source.ClockID());
    EXPECT_EQ(silent.time_kind, 6u);
    clock.RenderDisplay(1, 50, 7, 0);
    EXPECT_EQ(clock.Records().size(), 2u);
    EXPECT_EQ(clock.Time().media_time, 100'000) << "the linked clock's own again";
    // Refresh 7 was noted as the last although 6 was silent: one period is added, not two.
    clock.RenderDisplay(1, 50, 8, 0);
    EXPECT_EQ(clock.Records().size(), 2u);
    EXPECT_EQ(clock.Time().media_time, 120'000);
}

TEST(CoreVideoClock, TheLastVideoTimeMovesOnWhileNothingTicks) {
    ScriptedDisplay display({1, 50});
    HandClock source;
    NotingClock clock;
    clock.LinkMediaTimeFromClock(source);
    // Ours stands at 0 as the linked clock does: silent from the first refresh on.
    clock.RenderDisplay(1, 50, 5, 0);
    EXPECT_TRUE(clock.Records().empty());
    EXPECT_EQ(clock.Time().media_time, 100'000) << "from video time 0 to 5";
    source.fMedia = 100'000;  // overtaken by what it is told next
    clock.RenderDisplay(1, 50, 6, 0);
    EXPECT_TRUE(clock.Records().empty());
    EXPECT_EQ(clock.Time().media_time, 120'000) << "from 5 to 6 alone";
}

TEST(CoreVideoClock, ALinkHoldsAReferenceAndLetsGoOfTheOneBefore) {
    ScriptedDisplay display(kRate);
    int deaths = 0;
    auto* first = new HandClock(&deaths);
    auto* second = new HandClock(&deaths);
    {
        NotingClock clock;
        clock.LinkMediaTimeFromClock(*first);
        first->Release();
        EXPECT_EQ(deaths, 0);
        clock.LinkMediaTimeFromClock(*second);
        EXPECT_EQ(deaths, 1);
        second->Release();
        EXPECT_EQ(deaths, 1);
    }
    EXPECT_EQ(deaths, 2);
}

TEST(CoreVideoClock, WithoutADisplayLinkItNeverTicks) {
    displayTwin::SetSourceFactory([] { return std::unique_ptr<displayRefreshSource>(); });
    {
        NotingClock clock;
        clock.StartTicking(0, nullptr, 0);
        clock.StopTicking();
        EXPECT_EQ(clock.GetRate(), 0);
        EXPECT_EQ(clock.Time().tick_count, 0);
        EXPECT_TRUE(clock.Records().empty());
    }
    displayTwin::SetSourceFactory(nullptr);
}

TEST(CoreVideoClock, ItStartsAndStopsAgain) {
    ScriptedDisplay display(kRate);
    NotingClock clock;
    for (long long life = 1; life <= 3; ++life) {
        clock.StartTicking(0, nullptr, 0);
        display.Refresh(life * 100);
        display.AwaitIdle();
        EXPECT_TRUE(display.IsAskedFor());
        clock.StopTicking();
        EXPECT_FALSE(display.IsAskedFor());
    }
    EXPECT_EQ(clock.Records().size(), 3u);
    EXPECT_EQ(clock.Time().tick_count, 300);
}

TEST(CoreVideoClock, AnyThreadMayAskForTheTimeWhileItTicks) {
    ScriptedDisplay display(kRate);
    NotingClock clock;
    std::atomic<bool> done{false};
    std::thread asker([&] {
        long long last = 0;
        while (!done) {
            const long long count = clock.Time().tick_count;
            EXPECT_GE(count, last);
            last = count;
        }
    });
    clock.StartTicking(0, nullptr, 0);
    for (long long count = 1; count <= 2000; ++count) display.Refresh(count);
    display.AwaitIdle();
    clock.StopTicking();
    done = true;
    asker.join();
}

// Waits for three refreshes that a real X server counts.
TEST(CoreVideoClock, TicksWithAnXServersRefresh) {
    XServer server;
    ASSERT_TRUE(server.Runs()) << "Xvfb has to be installed";
    NotingClock clock;
    EXPECT_EQ(clock.GetRate(), 60.0);
    clock.StartTicking(0, nullptr, 0);
    while (clock.Records().size() < 3) std::this_thread::yield();
    clock.StopTicking();
    const std::vector<tn_time_rec> records = clock.Records();
    for (size_t i = 1; i < records.size(); ++i) {
        EXPECT_GT(records[i].tick_count, records[i - 1].tick_count);
        EXPECT_GT(records[i].media_time, records[i - 1].media_time);
    }
}
