#include "StopSignal.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>

#include "spar/zThread.h"

namespace {

constexpr int kLived = 3;
constexpr int kNotAsked = 4;

[[noreturn]] void meet(int first, int second, int laterUs = 0) {
    WatchStopSignal();
    std::raise(first);
    if (!StopAsked()) std::_Exit(kNotAsked);
    zThread::MicroSleep(laterUs);
    std::raise(second);
    std::_Exit(kLived);
}

// Each in a process of its own.
TEST(StopSignalDeathTest, AnyLaterOneOfTheTwoEndsTheProcess) {
    constexpr int kLaterUs = 1'050'000;
    for (const int first : {SIGINT, SIGTERM}) {
        for (const int second : {SIGINT, SIGTERM}) {
            EXPECT_EXIT(meet(first, second, kLaterUs), testing::KilledBySignal(second), "")
                << first;
        }
    }
}

TEST(StopSignalDeathTest, TheEndOfTheTerminalIsOneHoweverOftenItIsTold) {
    EXPECT_EXIT(meet(SIGHUP, SIGHUP), testing::ExitedWithCode(kLived), "");
    EXPECT_EXIT(meet(SIGHUP, SIGINT), testing::ExitedWithCode(kLived), "");
}

}  // namespace
