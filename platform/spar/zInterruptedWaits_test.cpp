#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include "spar/zFileStream.h"
#include "spar/zSignal.h"
#include "spar/zThread.h"
#include "spar/zTime.h"

#include "tests/support/TestFolder.h"
#include "tests/support/WaitUntil.h"

// Hosts have timers, children and profilers: a signal may come to a thread at any instant, with a
// handler that does not restart what it interrupts. Nothing may end early by that.
//
// Each of these runs in a process of its own, where a signal a millisecond comes to the main thread
// and to no other.

namespace {

using namespace std::chrono_literals;

constexpr int kWaitUs = 20000;
constexpr int kMany = 20;  // signals after which a thread has come to wait

std::atomic<int> gSignals{0};

void count_signal(int) {
    ++gSignals;
}

void begin_signals() {
    struct sigaction action = {};
    action.sa_handler = count_signal;  // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval eachMs = {{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &eachMs, nullptr);
}

/// A thread that gets none of the signals.
template <typename Work>
std::thread undisturbed(const Work& work) {
    sigset_t alarm, before;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, &before);
    std::thread thread(work);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
}

/// Until the main thread has been interrupted many times more.
void let_signals_come() {
    const int wanted = gSignals + kMany;
    tests::WaitUntil([&] { return gSignals >= wanted; }, 1ms);
}

/// Ends the process, with a line, unless `isRight`.
void expect(bool isRight, const char* what) {
    if (isRight) return;
    fprintf(stderr, "not as it should be: %s\n", what);
    _exit(1);
}

/// Whether `wait` lasted that long and was interrupted meanwhile.
template <typename Wait>
bool lasts(const Wait& wait) {
    const int signals = gSignals;
    const long long begin = zTime::MicroNow();
    wait(begin + kWaitUs);
    return zTime::MicroNow() >= begin + kWaitUs && gSignals > signals;
}

[[noreturn]] void sleep_through_signals() {
    begin_signals();
    expect(lasts([](long long) { zThread::MicroSleep(kWaitUs); }), "MicroSleep");
    for (const bool precise : {false, true})
        expect(lasts([&](long long end) { zThread::MicroSleepUntil(end, precise); }),
               precise ? "MicroSleepUntil, precise" : "MicroSleepUntil");
    _exit(0);
}

[[noreturn]] void wait_through_signals() {
    zSignal signal;
    std::atomic<bool> isWaiting{false};
    std::atomic<bool> isRaised{false};
    std::thread raiser = undisturbed([&] {
        for (int round = 0; round < 2; ++round) {
            tests::WaitUntil([&] { return isWaiting.exchange(false); }, 1ms);
            let_signals_come();
            isRaised = true;
            signal.Raise();
        }
    });
    begin_signals();
    expect(lasts([&](long long) { expect(signal.WaitFor(kWaitUs) == -1, "a raise"); }), "WaitFor");

    isWaiting = true;
    signal.Wait();
    expect(isRaised.exchange(false), "Wait");

    isWaiting = true;
    expect(signal.WaitFor(60000000) == 0 && isRaised, "WaitFor of a raise");
    raiser.join();
    _exit(0);
}

const std::string kLong(300000, 'x');  // more than a pipe takes at once

void read_through_signals(const std::string& pipe) {
    std::thread writer = undisturbed([&] {
        let_signals_come();  // while the other end waits for this one
        zFileStream file(pipe.c_str(), Z_FILE_WRITE, false);
        file.Open();
        for (const char* piece : {"one ", "two"}) {
            let_signals_come();
            file.WriteString(piece);
            file.Flush();
        }
    });
    begin_signals();
    zFileStream file(pipe.c_str(), Z_FILE_READ, false);
    expect(file.Open() == 0, "Open");
    char text[16] = {};
    unsigned long got = 0;
    expect(file.Read(text, 7, &got) == 0 && got == 7, "Read");
    expect(std::string(text) == "one two", "what was read");
    writer.join();
}

void write_through_signals(const std::string& pipe) {
    std::string content(kLong.size() + 1, '\0');
    unsigned long got = 0;
    std::thread reader = undisturbed([&] {
        zFileStream file(pipe.c_str(), Z_FILE_READ, false);
        file.Open();
        let_signals_come();
        file.Read(content.data(), content.size(), &got);
    });
    begin_signals();
    zFileStream file(pipe.c_str(), Z_FILE_WRITE, false);
    expect(file.Open() == 0, "Open");
    expect(file.WriteString(kLong) == 0, "Write");
    expect(file.Close() == 0, "Close");
    reader.join();
    content.resize(got);
    expect(content == kLong, "what was written");
}

[[noreturn]] void with_a_pipe(void (*work)(const std::string&)) {
    {
        const tests::TestFolder folder;
        const std::string pipe = folder.File("pipe");
        expect(mkfifo(pipe.c_str(), 0600) == 0, "making a pipe");
        work(pipe);
    }
    _exit(0);
}

class InterruptedWaitsDeathTest : public ::testing::Test {
protected:
    InterruptedWaitsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

}  // namespace

// Real time: that sleeps of 20 ms last at least that long.
TEST_F(InterruptedWaitsDeathTest, SleepsAreSleptToTheirEnd) {
    EXPECT_EXIT(sleep_through_signals(), testing::ExitedWithCode(0), "");
}

TEST_F(InterruptedWaitsDeathTest, ASignalIsWaitedForUntilItIsRaisedOrItsTimeIsUp) {
    EXPECT_EXIT(wait_through_signals(), testing::ExitedWithCode(0), "");
}

TEST_F(InterruptedWaitsDeathTest, WhatComesInPiecesIsReadToItsEnd) {
    EXPECT_EXIT(with_a_pipe(read_through_signals), testing::ExitedWithCode(0), "");
}

TEST_F(InterruptedWaitsDeathTest, WhatIsTakenInPiecesIsWrittenToItsEnd) {
    EXPECT_EXIT(with_a_pipe(write_through_signals), testing::ExitedWithCode(0), "");
}
