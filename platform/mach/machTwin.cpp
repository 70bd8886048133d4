#if !defined(__APPLE__)

#include "mach/machTwin.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "spar/trace.h"
#include "spar/zMutex.h"

namespace {

constexpr uint64_t kNsPerSecond = 1'000'000'000;
constexpr mach_port_t kTaskPort = 1;
constexpr mach_port_t kHostPort = 2;

// Above what zThread gives to any ordinary thread, below the kernel's own threaded interrupts (50):
// a loop that never sleeps must not take the machine down with it.
constexpr int kRealTimePriority = 40;

constexpr unsigned long kFinestSlackNs = 1;

__extension__ using Wide = unsigned __int128;

int make_fifo(mach_port_t thread, int priority) {
    sched_param param{};
    param.sched_priority = priority;
    const int policy = SCHED_FIFO | SCHED_RESET_ON_FORK;
    return sched_setscheduler(static_cast<pid_t>(thread), policy, &param) == 0 ? 0 : errno;
}

uint64_t monotonic_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kNsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

void sleep_until_ns(uint64_t deadline) {
    timespec until{};
    until.tv_sec = static_cast<time_t>(deadline / kNsPerSecond);
    until.tv_nsec = static_cast<long>(deadline % kNsPerSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

mach_port_t own_thread() {
    return static_cast<mach_port_t>(syscall(SYS_gettid));
}

// One word, so that a reader never pairs an old half with a new one.
constexpr uint64_t timebase_word(uint32_t numer, uint32_t denom) {
    return (uint64_t{numer} << 32) | denom;
}

// any thread
std::atomic<machTwin::Source*> gSource{nullptr};
std::atomic<uint64_t> gTimebase{timebase_word(1, 1)};
std::atomic<machTwin::Scheduler> gScheduler{&make_fifo};
std::atomic<int> gLivePorts{0};
std::atomic<bool> gRefusalTraced{false};

zMutex gWishLock;
thread_time_constraint_policy gLastWish SPAR_GUARDED_BY(gWishLock){};

mach_timebase_info_data_t timebase() {
    const uint64_t both = gTimebase.load(std::memory_order_relaxed);
    return {static_cast<uint32_t>(both >> 32), static_cast<uint32_t>(both)};
}

void trace_refusal(int error) {
    if (gRefusalTraced.exchange(true)) return;
    zTrace(
        "mach: no real-time scheduling ({}); ticks go on at ordinary priority. Raise the user's "
        "rtprio limit for precision\n",
        std::strerror(error));
}

}  // namespace

void machTwin::SetSource(Source* source) {
    gSource = source;
}

void machTwin::SetTimebase(uint32_t numer, uint32_t denom) {
    gTimebase = timebase_word(numer, denom);
}

void machTwin::SetScheduler(Scheduler scheduler) {
    gScheduler = scheduler ? scheduler : &make_fifo;
    gRefusalTraced = false;
}

thread_time_constraint_policy_data_t machTwin::LastWish() {
    const zMutexLock lock(gWishLock);
    return gLastWish;
}

int machTwin::LivePorts() {
    return gLivePorts;
}

uint64_t mach_absolute_time() {
    machTwin::Source* source = gSource.load(std::memory_order_relaxed);
    const uint64_t ns = source ? source->NowNs() : monotonic_ns();
    const mach_timebase_info_data_t base = timebase();
    return static_cast<uint64_t>(Wide{ns} * base.denom / base.numer);
}

kern_return_t mach_timebase_info(mach_timebase_info_t info) {
    if (!info) return KERN_INVALID_ARGUMENT;
    *info = timebase();
    return KERN_SUCCESS;
}

kern_return_t mach_wait_until(uint64_t deadline) {
    const mach_timebase_info_data_t base = timebase();
    // Rounded up: absolute time has reached the deadline when the sleep ends.
    const Wide exact = (Wide{deadline} * base.numer + (base.denom - 1)) / base.denom;
    constexpr Wide kLatest = std::numeric_limits<int64_t>::max();
    const uint64_t ns = static_cast<uint64_t>(exact < kLatest ? exact : kLatest);
    machTwin::Source* source = gSource.load(std::memory_order_relaxed);
    if (source) {
        source->WaitUntilNs(ns);
    } else {
        sleep_until_ns(ns);
    }
    return KERN_SUCCESS;
}

mach_port_t mach_host_self() {
    ++gLivePorts;
    return kHostPort;
}

mach_port_t mach_thread_self() {
    ++gLivePorts;
    return own_thread();
}

mach_port_t mach_task_self() {
    return kTaskPort;
}

kern_return_t mach_port_deallocate(mach_port_t task, mach_port_t name) {
    if (task != kTaskPort || name == MACH_PORT_NULL) return KERN_INVALID_NAME;
    int live = gLivePorts;
    do {
        if (live == 0) return KERN_INVALID_RIGHT;
    } while (!gLivePorts.compare_exchange_weak(live, live - 1));
    return KERN_SUCCESS;
}

kern_return_t thread_policy_set(thread_act_t thread, thread_policy_flavor_t flavor,
                                thread_policy_t policy, mach_msg_type_number_t count) {
    if (flavor != THREAD_TIME_CONSTRAINT_POLICY || !policy) return KERN_INVALID_ARGUMENT;
    if (count < THREAD_TIME_CONSTRAINT_POLICY_COUNT) return KERN_INVALID_ARGUMENT;
    thread_time_constraint_policy wish{};
    std::memcpy(&wish, policy, sizeof(wish));
    if (wish.computation > wish.constraint) return KERN_INVALID_ARGUMENT;
    {
        const zMutexLock lock(gWishLock);
        gLastWish = wish;
    }

    // Slack is what the kernel may add to every sleep; 50 us unless a thread says otherwise.
    if (thread == own_thread()) prctl(PR_SET_TIMERSLACK, kFinestSlackNs, 0, 0, 0);

    // FIFO, not the deadline class that the three times would suit: a deadline below the period
    // gets a thread throttled for whole periods once it has used up its computation time.
    const int error = gScheduler.load()(thread, kRealTimePriority);
    if (error == 0) return KERN_SUCCESS;
    trace_refusal(error);
    return KERN_NO_ACCESS;
}

#endif
