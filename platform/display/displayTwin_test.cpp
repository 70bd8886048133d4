#include "display/displayTwin.h"

#include <atomic>
#include <condition_variable>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

#include "display/displayTimerSource.h"
#include "spar/zTraceManager.h"

#include "tests/support/ScriptedDisplay.h"
#include "tests/support/ThreadState.h"

namespace {

/// What a link's callback was told, and something to do in it.
class Screen {
public:
    static CVReturn Callback(CVDisplayLinkRef link, const CVTimeStamp* now,
                             const CVTimeStamp* output, CVOptionFlags, CVOptionFlags* flagsOut,
                             void* context) {
        auto& screen = *static_cast<Screen*>(context);
        EXPECT_TRUE(now);
        EXPECT_TRUE(flagsOut);
        std::unique_lock lock(screen.fMutex);
        screen.fStamps.push_back(*output);
        screen.fThreads.push_back(gettid());
        screen.fChanged.notify_all();
        if (screen.fStopInCallback) {
            lock.unlock();
            EXPECT_EQ(CVDisplayLinkStop(link), kCVReturnSuccess);
            if (screen.fStartAfterStop) {
                EXPECT_EQ(CVDisplayLinkStart(link), kCVReturnDisplayLinkAlreadyRunning);
            }
            screen.fHasStopped = true;
            while (screen.fHeld) std::this_thread::yield();
        }
        return kCVReturnSuccess;
    }

    void Await(size_t count) {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [&] { return fStamps.size() >= count; });
    }
    std::vector<CVTimeStamp> Stamps() {
        std::lock_guard lock(fMutex);
        return fStamps;
    }

    /// The threads that the callbacks ran on, by the system's numbers: no two lives share one.
    std::vector<pid_t> Threads() {
        std::lock_guard lock(fMutex);
        return fThreads;
    }

    std::atomic<bool> fStopInCallback{false};
    std::atomic<bool> fStartAfterStop{false};
    std::atomic<bool> fHasStopped{false};
    std::atomic<bool> fHeld{false};  // in the callback, after its stop

private:
    std::mutex fMutex;
    std::condition_variable fChanged;
    std::vector<CVTimeStamp> fStamps;
    std::vector<pid_t> fThreads;
};

CVDisplayLinkRef make_link(Screen& screen) {
    CVDisplayLinkRef link = nullptr;
    EXPECT_EQ(CVDisplayLinkCreateWithCGDisplay(CGMainDisplayID(), &link), kCVReturnSuccess);
    EXPECT_EQ(CVDisplayLinkSetOutputCallback(link, &Screen::Callback, &screen), kCVReturnSuccess);
    return link;
}

class QuietTrace : public zTraceManager {
public:
    QuietTrace() : fBefore(SetDefault(this)) {}
    ~QuietTrace() override { SetDefault(fBefore); }
    void TraceMessage(int, const std::string&) override { ++fLines; }
    std::atomic<int> fLines{0};

private:
    zTraceManager* fBefore;
};

}  // namespace

TEST(DisplayTwin, TheCallbackGetsTheValuesOfTheSource) {
    ScriptedDisplay display({1001, 60'000});
    Screen screen;
    CVDisplayLinkRef link = make_link(screen);
    const CVTime period = CVDisplayLinkGetNominalOutputVideoRefreshPeriod(link);
    EXPECT_EQ(period.timeValue, 1001);
    EXPECT_EQ(period.timeScale, 60'000);
    EXPECT_EQ(period.flags, 0);

    ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    display.Refresh({1001, 60'000, 1001 * 7, 5'000});
    display.Refresh({1000, 60'000, 1001 * 9 + 1, 21'000});  // a display of variable rate
    display.AwaitIdle();
    ASSERT_EQ(CVDisplayLinkStop(link), kCVReturnSuccess);
    CVDisplayLinkRelease(link);

    const std::vector<CVTimeStamp> stamps = screen.Stamps();
    ASSERT_EQ(stamps.size(), 2u);
    EXPECT_EQ(stamps[0].videoTime, 7007);
    EXPECT_EQ(stamps[0].videoTimeScale, 60'000);
    EXPECT_EQ(stamps[0].videoRefreshPeriod, 1001);
    EXPECT_EQ(stamps[0].hostTime, 5'000'000u);
    EXPECT_EQ(stamps[1].videoTime, 9010);
    EXPECT_EQ(stamps[1].videoRefreshPeriod, 1000);
    const CVOptionFlags told = kCVTimeStampVideoTimeValid | kCVTimeStampVideoRefreshPeriodValid;
    EXPECT_EQ(stamps[1].flags & told, told);
}

TEST(DisplayTwin, CallsThatMakeNoSenseAreToldSo) {
    ScriptedDisplay display({1, 60});
    CVDisplayLinkRef link = nullptr;
    EXPECT_EQ(CVDisplayLinkCreateWithCGDisplay(CGMainDisplayID(), nullptr),
              kCVReturnInvalidArgument);
    EXPECT_EQ(CVDisplayLinkCreateWithCGDisplay(CGMainDisplayID() + 1, &link),
              kCVReturnInvalidDisplay);
    EXPECT_EQ(link, nullptr);
    EXPECT_EQ(CVDisplayLinkStart(nullptr), kCVReturnInvalidArgument);
    EXPECT_EQ(CVDisplayLinkStop(nullptr), kCVReturnInvalidArgument);
    EXPECT_EQ(CVDisplayLinkSetOutputCallback(nullptr, &Screen::Callback, nullptr),
              kCVReturnInvalidArgument);
    EXPECT_EQ(CVDisplayLinkGetNominalOutputVideoRefreshPeriod(nullptr).flags, kCVTimeIsIndefinite);
    CVDisplayLinkRelease(nullptr);

    ASSERT_EQ(CVDisplayLinkCreateWithCGDisplay(CGMainDisplayID(), &link), kCVReturnSuccess);
    EXPECT_EQ(CVDisplayLinkStart(link), kCVReturnDisplayLinkCallbacksNotSet);
    Screen screen;
    CVDisplayLinkSetOutputCallback(link, &Screen::Callback, &screen);
    EXPECT_EQ(CVDisplayLinkStop(link), kCVReturnDisplayLinkNotRunning);
    EXPECT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    EXPECT_EQ(CVDisplayLinkStart(link), kCVReturnDisplayLinkAlreadyRunning);
    EXPECT_EQ(CVDisplayLinkStop(link), kCVReturnSuccess);
    EXPECT_EQ(CVDisplayLinkStop(link), kCVReturnDisplayLinkNotRunning);
    CVDisplayLinkRelease(link);
    EXPECT_TRUE(screen.Stamps().empty());
}

TEST(DisplayTwin, ADisplayThatIsNotThereGivesNoLink) {
    displayTwin::SetSourceFactory([] { return std::unique_ptr<displayRefreshSource>(); });
    CVDisplayLinkRef link = nullptr;
    EXPECT_EQ(CVDisplayLinkCreateWithCGDisplay(CGMainDisplayID(), &link), kCVReturnError);
    EXPECT_EQ(link, nullptr);
    displayTwin::SetSourceFactory(nullptr);
}

TEST(DisplayTwin, ALinkStartsAgainWhereTheDisplayIsByThen) {
    ScriptedDisplay display({1, 60});
    Screen screen;
    CVDisplayLinkRef link = make_link(screen);
    for (long long count : {10LL, 200LL, 3000LL}) {
        ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
        display.Refresh(count);
        display.AwaitIdle();
        ASSERT_EQ(CVDisplayLinkStop(link), kCVReturnSuccess);
    }
    CVDisplayLinkRelease(link);
    const std::vector<CVTimeStamp> stamps = screen.Stamps();
    ASSERT_EQ(stamps.size(), 3u);
    EXPECT_EQ(stamps[2].videoTime, 3000);
}

TEST(DisplayTwin, AReleaseEndsARunningLink) {
    ScriptedDisplay display({1, 60});
    Screen screen;
    CVDisplayLinkRef link = make_link(screen);
    ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    display.Refresh(1);
    display.AwaitIdle();
    CVDisplayLinkRelease(link);
    display.Refresh(2);
    EXPECT_EQ(screen.Stamps().size(), 1u);
}

TEST(DisplayTwin, TheCallbackMayStopItsLink) {
    ScriptedDisplay display({1, 60});
    Screen screen;
    screen.fStopInCallback = true;
    CVDisplayLinkRef link = make_link(screen);
    ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    display.Refresh(1);
    display.Refresh(2);
    screen.Await(1);
    CVDisplayLinkStop(link);  // waits for the callback, whichever of the two came first
    EXPECT_EQ(screen.Stamps().size(), 1u);
    screen.fStopInCallback = false;
    ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    screen.Await(2);
    CVDisplayLinkRelease(link);
}

TEST(DisplayTwin, AStartRightAfterTheCallbacksStopHasAThreadOfItsOwn) {
    ScriptedDisplay display({1, 60});
    Screen screen;
    screen.fStopInCallback = true;
    screen.fHeld = true;
    CVDisplayLinkRef link = make_link(screen);
    ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    display.Refresh(1);
    display.Refresh(2);
    while (!screen.fHasStopped) std::this_thread::yield();

    std::atomic<pid_t> starting{0};
    std::thread starter([&] {
        starting = gettid();
        EXPECT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    });
    // It sleeps once it waits for the callback that is still under way.
    while (starting == 0 || !tests::IsThreadAsleep(starting)) std::this_thread::yield();
    screen.fHeld = false;
    starter.join();
    screen.Await(2);
    CVDisplayLinkRelease(link);

    const std::vector<CVTimeStamp> stamps = screen.Stamps();
    ASSERT_EQ(stamps.size(), 2u);
    EXPECT_EQ(stamps[1].videoTime, 2);
    EXPECT_NE(screen.Threads()[0], screen.Threads()[1])
        << "the stopped thread goes on with nothing";
}

TEST(DisplayTwin, TheCallbackMayNotStartItsLink) {
    ScriptedDisplay display({1, 60});
    Screen screen;
    screen.fStopInCallback = true;
    screen.fStartAfterStop = true;
    CVDisplayLinkRef link = make_link(screen);
    ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    display.Refresh(1);
    display.Refresh(2);
    while (!screen.fHasStopped) std::this_thread::yield();
    EXPECT_EQ(CVDisplayLinkStop(link), kCVReturnDisplayLinkNotRunning) << "its stop holds";
    EXPECT_EQ(screen.Stamps().size(), 1u);
    CVDisplayLinkRelease(link);
}

// Waits for three real refreshes at 1000 Hz, after the display has gone.
TEST(DisplayTwin, AShowGoesOnByTimerWhenTheDisplayGoesDark) {
    QuietTrace trace;
    ScriptedDisplay display({1, 1000});
    Screen screen;
    CVDisplayLinkRef link = make_link(screen);
    ASSERT_EQ(CVDisplayLinkStart(link), kCVReturnSuccess);
    display.Refresh(41);
    display.Refresh(42);
    display.AwaitIdle();
    display.GoDark();
    screen.Await(5);
    CVDisplayLinkStop(link);
    CVDisplayLinkRelease(link);
    const std::vector<CVTimeStamp> stamps = screen.Stamps();
    EXPECT_EQ(stamps[1].videoTime, 42);
    for (size_t i = 2; i < stamps.size(); ++i) {
        EXPECT_GT(stamps[i].videoTime, stamps[i - 1].videoTime);
        EXPECT_EQ(stamps[i].videoTimeScale, 1000);
        EXPECT_EQ(stamps[i].videoRefreshPeriod, 1);
    }
    // On from the display's own count; how many were missed meanwhile is the machine's affair.
    EXPECT_LT(stamps[2].videoTime, 42 + 60'000);
    EXPECT_EQ(trace.fLines, 1) << "the change is said once";
}

TEST(DisplayTwin, AMachineAlwaysHasARefresh) {
    const auto source = displayRefreshSource::ForMainDisplay();
    ASSERT_TRUE(source);
    EXPECT_GT(source->Rate().period, 0);
    EXPECT_GT(source->Rate().timeScale, 0);
}
