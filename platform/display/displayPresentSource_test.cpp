#include "display/displayPresentSource.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <thread>

#include "display/displayTwin.h"
#include "spar/zTime.h"
#include "spar/zTraceManager.h"

#include "tests/support/XServer.h"

// These wait for refreshes that a real X server counts, 60 a second; how late they come is not
// looked at.

class DisplayPresentSource : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(fServer.Runs()) << "Xvfb has to be installed"; }

    XServer fServer;
};

TEST_F(DisplayPresentSource, RefreshesAreThoseThatTheServerCounts) {
    const auto source = displayPresentSource::ForDefaultScreen();
    ASSERT_TRUE(source);
    // A screen without a mode of its own.
    EXPECT_EQ(source->Rate(), (displayRefreshRate{1, 60}));
    source->Begin();
    long long last = 0;
    for (int i = 0; i < 5; ++i) {
        displayRefresh refresh{};
        ASSERT_TRUE(source->WaitForRefresh(refresh));
        EXPECT_EQ(refresh.period, 1);
        EXPECT_EQ(refresh.timeScale, 60);
        EXPECT_GT(refresh.videoTime, last);
        last = refresh.videoTime;
        // The server stamps them on the same clock.
        EXPECT_LE(refresh.realTime, zTime::MicroNow());
        EXPECT_GT(refresh.realTime, zTime::MicroNow() - 60'000'000);
    }
}

TEST_F(DisplayPresentSource, AnInterruptEndsTheWaitAndIsForgottenAtTheNextStart) {
    const auto source = displayPresentSource::ForDefaultScreen();
    ASSERT_TRUE(source);
    source->Begin();
    std::atomic<bool> ended{false};
    std::thread waiter([&] {
        displayRefresh refresh{};
        while (source->WaitForRefresh(refresh)) {
        }
        ended = true;
    });
    source->Interrupt();
    waiter.join();
    EXPECT_TRUE(ended);
    displayRefresh refresh{};
    while (source->WaitForRefresh(refresh)) {
        // It lasts until the next start; a refresh that is there already may come first.
    }
    source->Begin();
    EXPECT_TRUE(source->WaitForRefresh(refresh));
}

TEST_F(DisplayPresentSource, ASignalThatTheProcessHandlesDoesNotEndTheWait) {
    struct sigaction handled {};
    handled.sa_handler = [](int) {};  // without SA_RESTART, which poll would not heed anyway
    ASSERT_EQ(sigaction(SIGUSR1, &handled, nullptr), 0);
    const auto source = displayPresentSource::ForDefaultScreen();
    ASSERT_TRUE(source);
    source->Begin();
    std::atomic<bool> done{false};
    const pthread_t waiter = pthread_self();
    std::thread sender([&] {
        while (!done) {
            pthread_kill(waiter, SIGUSR1);
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 5; ++i) {
        displayRefresh refresh{};
        EXPECT_TRUE(source->WaitForRefresh(refresh)) << i;
    }
    done = true;
    sender.join();
}

TEST_F(DisplayPresentSource, AServerThatDiesEndsTheWait) {
    const auto source = displayPresentSource::ForDefaultScreen();
    ASSERT_TRUE(source);
    source->Begin();
    displayRefresh refresh{};
    ASSERT_TRUE(source->WaitForRefresh(refresh));
    fServer.Kill();
    while (source->WaitForRefresh(refresh)) {
    }
    source->Begin();
    EXPECT_FALSE(source->WaitForRefresh(refresh));
}

TEST(DisplayPresentSourceWithoutServer, ThereIsNone) {
    const char* before = std::getenv("DISPLAY");
    const std::string kept = before ? before : "";
    setenv("DISPLAY", ":9753", 1);
    EXPECT_FALSE(displayPresentSource::ForDefaultScreen());
    if (before) {
        setenv("DISPLAY", kept.c_str(), 1);
    } else {
        unsetenv("DISPLAY");
    }
}
