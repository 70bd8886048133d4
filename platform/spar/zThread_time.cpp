// The sleeps of zThread: absolute, on the clock of zTime.
#include <cerrno>
#include <sys/prctl.h>
#include <time.h>

#include "spar/zThread.h"
#include "spar/zTime.h"

namespace {

constexpr long long kSecondUs = 1000000;

void sleep_until(long long time) {
    if (time <= 0) return;
    timespec until = {time / kSecondUs, time % kSecondUs * 1000};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace

void zThread::MicroSleep(unsigned int microseconds) {
    sleep_until(zTime::MicroNow() + microseconds);
}

void zThread::MicroSleepUntil(long long time, bool precise) {
    if (!precise) {
        sleep_until(time);
        return;
    }
    AccurateTimer().MicroSleepUntil(time);
}

zThread::AccurateTimer::AccurateTimer() : fSlackBefore(prctl(PR_GET_TIMERSLACK)) {
    prctl(PR_SET_TIMERSLACK, 1UL);
}

zThread::AccurateTimer::~AccurateTimer() {
    if (fSlackBefore > 0) prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(fSlackBefore));
}

long long zThread::AccurateTimer::MicroSleepUntil(long long time) {
    long long now = zTime::MicroNow();
    const long long wake = time - fLead.Us();
    if (now < wake) {
        sleep_until(wake);
        now = zTime::MicroNow();
        fLead.TakeWakeUp(now - wake);
    }
    while (now < time) {
        relax();
        now = zTime::MicroNow();
    }
    return now;
}
