#include "spar/zThread.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "spar/zCancelClass.h"
#include "spar/zSignal.h"
#include "spar/zThreadMain.h"
#include "spar/zTime.h"

namespace {

class Body : public zThreadMain {
public:
    explicit Body(std::function<void()> work) : fWork(std::move(work)) {}
    int Main(int count, const char** arguments) override {
        fGotNothing = count == 0 && arguments == nullptr;
        fWork();
        return 0;
    }
    std::function<void()> fWork;
    bool fGotNothing = false;
};

std::unique_ptr<zThread> start(Body& body, const char* name = "test", char schedulingClass = 4,
                               char number = 4) {
    return std::unique_ptr<zThread>(zThread::Factory(name, &body, schedulingClass, number));
}

bool main_queue_is_readable() {
    pollfd watched = {zThread::MainQueueDescriptor(), POLLIN, 0};
    return poll(&watched, 1, 0) == 1;
}

void post(std::function<void()> work, std::shared_ptr<zCancelClass> token = nullptr,
          std::function<bool()> goOn = {}) {
    zThread::ExecuteOnMainThread(std::move(token), 0, std::move(goOn), std::move(work));
}

}  // namespace

TEST(zThread, RunsAtOnceAndJoinWaitsForItsEnd) {
    int value = 0;
    Body body([&] { value = 7; });
    auto thread = start(body);
    thread->Join();
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(body.fGotNothing);
    thread->Join();  // again: nothing to wait for
}

TEST(zThread, SeveralThreadsMayWaitForOne) {
    zSignal go;
    std::atomic<bool> done{false};
    Body body([&] {
        go.Wait();
        done = true;
    });
    auto thread = start(body);
    std::atomic<int> early{0};
    zSignal asked[3], back;
    std::vector<std::thread> waiters;
    for (zSignal& asking : asked) {
        waiters.emplace_back([&] {
            asking.Raise();
            thread->Join();
            if (!done) ++early;
            back.Raise();
        });
    }
    for (zSignal& asking : asked) asking.Wait();
    // 50 ms of real time for one that does not wait to come back.
    EXPECT_NE(back.WaitFor(50000), 0);
    go.Raise();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(early, 0);
}

TEST(zThread, JoinOnItselfReturns) {
    zSignal ready;
    std::unique_ptr<zThread> thread;
    Body body([&] {
        ready.Wait();
        thread->Join();
    });
    thread = start(body);
    ready.Raise();
    thread->Join();
}

TEST(zThread, OneThatNobodyWaitsForRunsToItsEndAndMayDeleteItsBody) {
    class Alone : public zThreadMain {
    public:
        Alone(zSignal& go, zSignal& done) : fGo(go), fDone(done) {}
        int Main(int, const char**) override {
            fGo.Wait();
            zSignal& done = fDone;
            delete this;
            done.Raise();
            return 0;
        }
        zSignal& fGo;
        zSignal& fDone;
    };
    zSignal go, done;
    delete zThread::Factory("alone", new Alone(go, done), 3, 6);
    go.Raise();
    done.Wait();
}

TEST(zThread, CarriesItsNameCutToWhatTheSystemTakes) {
    const struct {
        const char* given;
        const char* seen;
    } kCases[] = {{"clock watcher", "clock watcher"},
                  {"media_player_segment_remove", "media_player_se"},
                  {nullptr, ""}};
    for (const auto& item : kCases) {
        char seen[16] = "?";
        Body body([&] { prctl(PR_GET_NAME, seen); });
        start(body, item.given)->Join();
        EXPECT_STREQ(seen, item.seen);
    }
}

TEST(zThread, BackgroundClassIsNiceAndTheOrdinaryWakesWithoutSlack) {
    int niceness = -100;
    int slack = 0;
    Body background([&] { niceness = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); });
    start(background, "test", 3, 6)->Join();
    EXPECT_EQ(niceness, std::max(6, getpriority(PRIO_PROCESS, 0)));

    Body ordinary([&] { slack = prctl(PR_GET_TIMERSLACK); });
    start(ordinary)->Join();
    EXPECT_EQ(slack, 1);
}

namespace {

/// What the kernel's calls take and give; of an ordinary thread, `runtime` is its slice.
struct Scheduling {
    uint32_t size = sizeof(Scheduling);
    uint32_t policy = 0;
    uint64_t flags = 0;
    int32_t nice = 0;
    uint32_t priority = 0;
    uint64_t runtime = 0;
    uint64_t deadline = 0;
    uint64_t period = 0;
};

/// Nanoseconds that this thread runs before the kernel thinks of others.
uint64_t slice_of_this_thread() {
    Scheduling scheduling;
    syscall(SYS_sched_getattr, 0, &scheduling, sizeof scheduling, 0);
    return scheduling.runtime;
}

bool can_have_slices() {
    uint64_t slice = 0;
    std::thread([&] {
        Scheduling wish;
        wish.nice = getpriority(PRIO_PROCESS, 0);
        wish.runtime = 200000;
        syscall(SYS_sched_setattr, 0, &wish, 0);
        slice = slice_of_this_thread();
    }).join();
    return slice == 200000;
}

}  // namespace

TEST(zThread, OnlyThreadsThatMustBePunctualRunInShortSlices) {
    if (!can_have_slices()) GTEST_SKIP() << "no thread has a slice of its own here";
    const uint64_t usual = slice_of_this_thread();
    const struct {
        char schedulingClass;
        char number;
        uint64_t slice;
    } kCases[] = {{4, 4, 100000}, {4, 1, usual}, {4, 3, usual}, {3, 6, usual}};
    // Started by one in short slices, too: these are passed on.
    Body punctual([&] {
        for (const auto& item : kCases) {
            uint64_t slice = 0;
            int niceness = -100;
            Body body([&] {
                slice = slice_of_this_thread();
                niceness = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
            });
            start(body, "test", item.schedulingClass, item.number)->Join();
            EXPECT_EQ(slice, item.slice) << int{item.schedulingClass} << " " << int{item.number};
            const int nice = item.schedulingClass == 3 ? item.number : 0;
            EXPECT_EQ(niceness, std::max(nice, getpriority(PRIO_PROCESS, 0)));
        }
    });
    start(punctual)->Join();
}

TEST(zThread, UrgentThreadsRunWhetherTheSystemGrantsRealTimeOrNot) {
    int policy = -1;
    sched_param parameters = {};
    Body urgent([&] {
        policy = sched_getscheduler(0);
        sched_getparam(0, &parameters);
    });
    start(urgent, "urgent", 4, 6)->Join();
    EXPECT_TRUE(policy == SCHED_OTHER || (policy == SCHED_FIFO && parameters.sched_priority == 20))
        << policy;
    Body ordinary([&] { policy = sched_getscheduler(0); });
    start(ordinary, "ordinary", 4, 4)->Join();
    EXPECT_EQ(policy, SCHED_OTHER);
}

TEST(zThread, AnOrdinaryThreadOfAnUrgentOneIsOrdinary) {
    int policy = -1;
    Body inner([&] { policy = sched_getscheduler(0); });
    Body urgent([&] { start(inner)->Join(); });
    start(urgent, "urgent", 4, 9)->Join();
    EXPECT_EQ(policy, SCHED_OTHER);
}

TEST(zThread, AThreadOfTheHostsOwnRealTimeIsOrdinary) {
    for (const int hosts : {SCHED_FIFO, SCHED_RR}) {
        int error = 0;
        int policy = -1;
        Body ordinary([&] { policy = sched_getscheduler(0); });
        std::thread([&] {
            const sched_param parameters = {10};
            error = pthread_setschedparam(pthread_self(), hosts, &parameters);
            if (error == 0) start(ordinary)->Join();
        }).join();
        if (error != 0) GTEST_SKIP() << "no real time for this user";
        EXPECT_EQ(policy, SCHED_OTHER) << hosts;
    }
}

// Real time: sleeps never end early; how late they end is the machine's affair.
TEST(zThread, SleepsLastAtLeastAsLongAsAsked) {
    const long long begin = zTime::MicroNow();
    zThread::MicroSleep(3000);
    EXPECT_GE(zTime::MicroNow(), begin + 3000);
    for (bool precise : {false, true}) {
        const long long target = zTime::MicroNow() + 3000;
        zThread::MicroSleepUntil(target, precise);
        EXPECT_GE(zTime::MicroNow(), target);
    }
    zThread::AccurateTimer timer;
    for (int round = 0; round < 5; ++round) {
        const long long target = zTime::MicroNow() + 1000;
        const long long woken = timer.MicroSleepUntil(target);
        EXPECT_GE(woken, target);
        EXPECT_GE(zTime::MicroNow(), woken);
    }
}

// A minute is the margin: a sleep that took a past time for a far one would not end.
TEST(zThread, ATimeThatHasPassedIsNotSleptFor) {
    const long long begin = zTime::MicroNow();
    zThread::AccurateTimer timer;
    for (long long time : {0LL, -5LL, begin - 1, begin - 1000000}) {
        zThread::MicroSleepUntil(time, false);
        zThread::MicroSleepUntil(time, true);
        EXPECT_GE(timer.MicroSleepUntil(time), begin);
    }
    zThread::MicroSleep(0);
    EXPECT_LT(zTime::MicroNow() - begin, 60000000);
}

TEST(zThread, TheAccurateTimerGivesTheSlackBack) {
    Body body([] {
        prctl(PR_SET_TIMERSLACK, 12345UL);
        {
            zThread::AccurateTimer timer;
            EXPECT_EQ(prctl(PR_GET_TIMERSLACK), 1);
        }
        EXPECT_EQ(prctl(PR_GET_TIMERSLACK), 12345);
    });
    start(body)->Join();
}

TEST(zThreadMainQueue, WorkRunsWhenTheHostDrainsInOrderAndOnItsThread) {
    std::vector<int> ran;
    std::vector<std::thread::id> where;
    Body body([&] {
        for (int i = 0; i < 3; ++i)
            post([&, i] {
                ran.push_back(i);
                where.push_back(std::this_thread::get_id());
            });
    });
    start(body)->Join();
    EXPECT_TRUE(ran.empty());
    EXPECT_TRUE(main_queue_is_readable());
    EXPECT_EQ(zThread::DrainMainQueue(), 3);
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(where, std::vector<std::thread::id>(3, std::this_thread::get_id()));
    EXPECT_FALSE(main_queue_is_readable());
    EXPECT_EQ(zThread::DrainMainQueue(), 0);
}

TEST(zThreadMainQueue, CancelledWorkNeverRuns) {
    bool ran = false;
    auto early = std::make_shared<zCancelClass>();
    auto late = std::make_shared<zCancelClass>();
    early->Cancel();
    post([&] { ran = true; }, early);
    post([&] { ran = true; }, late);
    late->Cancel();
    EXPECT_EQ(zThread::DrainMainQueue(), 0);
    EXPECT_FALSE(ran);
    EXPECT_FALSE(main_queue_is_readable());
}

TEST(zThreadMainQueue, WorkMayCallOffWhatWaitsBehindIt) {
    bool ran = false;
    auto token = std::make_shared<zCancelClass>();
    post([&] { token->Cancel(); });
    post([&] { ran = true; }, token);
    EXPECT_EQ(zThread::DrainMainQueue(), 1);
    EXPECT_FALSE(ran);
}

TEST(zThreadMainQueue, TheFirstFunctionSaysWhetherToGoOn) {
    int ran = 0;
    auto token = std::make_shared<zCancelClass>();
    post([&] { ran += 1; }, token, [] { return true; });
    post([&] { ran += 10; }, token, [] { return false; });
    post({}, token);
    EXPECT_EQ(zThread::DrainMainQueue(), 1);
    EXPECT_EQ(ran, 1);
}

TEST(zThreadMainQueue, WorkHandedInByWorkWaitsForTheNextDrain) {
    int ran = 0;
    post([&] {
        ++ran;
        post([&] { ++ran; });
    });
    EXPECT_EQ(zThread::DrainMainQueue(), 1);
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(main_queue_is_readable());
    EXPECT_EQ(zThread::DrainMainQueue(), 1);
    EXPECT_EQ(ran, 2);
}

TEST(zThreadMainQueue, AnExceptionOfTheWorkLeavesTheRestInTheQueue) {
    int ran = 0;
    post([] { throw std::runtime_error("work"); });
    post([&] { ++ran; });
    EXPECT_THROW(zThread::DrainMainQueue(), std::runtime_error);
    EXPECT_EQ(ran, 0);
    EXPECT_TRUE(main_queue_is_readable());
    EXPECT_EQ(zThread::DrainMainQueue(), 1);
    EXPECT_EQ(ran, 1);
}

TEST(zThreadMainQueue, NothingIsLostWhileThreadsHandInAndTheHostPolls) {
    constexpr int kThreads = 3;
    constexpr int kEach = 3000;
    int ran = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < kEach; ++round) post([&ran] { ++ran; });
        });
    while (ran < kThreads * kEach) {
        pollfd watched = {zThread::MainQueueDescriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&watched, 1, 60000), 1);  // a minute would be a lost wake-up
        zThread::DrainMainQueue();
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(ran, kThreads * kEach);
    EXPECT_FALSE(main_queue_is_readable());
}

TEST(zThreadMainQueue, FunctionsOfCalledOffWorkAreDestroyedByTheDrain) {
    auto kept = std::make_shared<int>(1);
    auto token = std::make_shared<zCancelClass>();
    post([kept] {}, token);
    token->Cancel();
    EXPECT_EQ(kept.use_count(), 2);
    zThread::DrainMainQueue();
    EXPECT_EQ(kept.use_count(), 1);
}

TEST(zCancelClass, ItsFirstByteIsTheFlag) {
    zCancelClass token;
    EXPECT_FALSE(token.IsCancelled());
    auto* flag = reinterpret_cast<std::atomic<unsigned char>*>(&token);
    EXPECT_EQ(flag->load(), 0);
    flag->exchange(1);
    EXPECT_TRUE(token.IsCancelled());
    zCancelClass other;
    other.Cancel();
    EXPECT_EQ(reinterpret_cast<std::atomic<unsigned char>*>(&other)->load(), 1);
}

TEST(zTime, MicroNowNeverStepsBack) {
    long long last = zTime::MicroNow();
    for (int i = 0; i < 10000; ++i) {
        const long long now = zTime::MicroNow();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(zTime, SecondsSince1970IsTheWallClock) {
    const long long before = time(nullptr);
    const long long seconds = zTime::SecondsSince1970();
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, static_cast<long long>(time(nullptr)));
}

namespace {

/// In a process of its own, without the right to real time: starts two urgent threads and exits
/// with 0 if both ran as ordinary ones.
[[noreturn]] void run_urgent_threads_without_the_right() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_RTPRIO, &none);
    if (geteuid() == 0 && setuid(65534) != 0) _exit(2);
    int ordinary = 0;
    for (int i = 0; i < 2; ++i) {
        Body urgent([&] { ordinary += sched_getscheduler(0) == SCHED_OTHER; });
        start(urgent, "urgent", 4, 9)->Join();
    }
    _exit(ordinary == 2 ? 0 : 1);
}

/// In a process of its own, whose user may have no thread more: asks for one, and exits with 0 if
/// there was none.
[[noreturn]] void start_a_thread_too_many() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NPROC, &none);
    if (geteuid() == 0 && setuid(65534) != 0) _exit(2);
    bool ran = false;
    Body body([&] { ran = true; });
    const auto thread = start(body, "one too many");
    _exit(thread == nullptr && !ran ? 0 : 1);
}

/// In a process of its own, of an ordinary user who has put it under that policy: exits with 0 if
/// threads of every class are started and stay under it.
[[noreturn]] void start_threads_under(int policy) {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_RTPRIO, &none);
    if (geteuid() == 0 && setuid(65534) != 0) _exit(2);
    const bool hasSlices = policy != SCHED_IDLE && can_have_slices();
    const uint64_t usual = slice_of_this_thread();
    const sched_param parameters = {};
    if (sched_setscheduler(0, policy, &parameters) != 0) _exit(3);
    const struct {
        char schedulingClass;
        char number;
        bool isPunctual;
        int leastNice;
    } kCases[] = {{4, 1, false, 0}, {4, 4, true, 0}, {4, 9, true, 0}, {3, 6, false, 6}};
    for (const auto& item : kCases) {
        bool isRight = false;
        Body body([&] {
            const uint64_t slice = item.isPunctual ? 100000 : usual;
            isRight = sched_getscheduler(0) == policy &&
                      (!hasSlices || slice_of_this_thread() == slice) &&
                      getpriority(PRIO_PROCESS, 0) >= item.leastNice;
        });
        const auto thread = start(body, "chosen", item.schedulingClass, item.number);
        if (thread == nullptr) _exit(4);
        thread->Join();
        if (!isRight) _exit(5);
    }
    _exit(0);
}

int lines_in(const std::string& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

TEST(zThreadDeathTest, ARefusalOfRealTimeIsNoErrorAndTracedOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(run_urgent_threads_without_the_right(), testing::ExitedWithCode(0),
                testing::AllOf(testing::HasSubstr("real-time scheduling refused"),
                               testing::ResultOf(lines_in, 1)));
}

// What `chrt --idle`, `chrt --batch` and service managers do for whole programs.
TEST(zThreadDeathTest, ThreadsStayUnderThePolicyThatTheUserChose) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const int policy : {SCHED_OTHER, SCHED_BATCH, SCHED_IDLE}) {
        SCOPED_TRACE(policy);
        EXPECT_EXIT(start_threads_under(policy), testing::ExitedWithCode(0), "");
    }
}

TEST(zThreadDeathTest, AThreadThatTheSystemRefusesIsNullAndTraced) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(start_a_thread_too_many(), testing::ExitedWithCode(0),
                testing::AllOf(testing::HasSubstr("zThread: 'one too many' could not be started"),
                               testing::ResultOf(lines_in, 1)));
}
