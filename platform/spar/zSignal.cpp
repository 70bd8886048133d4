#include "spar/zSignal.h"

#include <cerrno>
#include <climits>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr unsigned int kRaised = 1;
constexpr unsigned int kWaiter = 2;
constexpr long long kNever = LLONG_MAX;
constexpr long long kSecondNs = 1000000000;

static_assert(sizeof(std::atomic<unsigned int>) == 4 &&
              std::atomic<unsigned int>::is_always_lock_free);

long long now_ns() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecondNs + now.tv_nsec;
}

long long deadline_after(long long microseconds) {
    const long long now = now_ns();
    if (microseconds > (kNever - now) / 1000) return kNever;
    return now + microseconds * 1000;
}

/// Sleeps while the word holds `expected`; false when the deadline has passed.
bool futex_wait(std::atomic<unsigned int>& word, unsigned int expected, long long deadlineNs) {
    timespec until = {deadlineNs / kSecondNs, deadlineNs % kSecondNs};
    const long result =
        syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected,
                deadlineNs == kNever ? nullptr : &until, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

}  // namespace

zSignal* zSignal::Factory() {
    return new zSignal;
}

zSignal::~zSignal() = default;

bool zSignal::take_raised(unsigned int leave) {
    unsigned int state = fState.load(std::memory_order_relaxed);
    while (state & kRaised) {
        if (fState.compare_exchange_weak(state, state - kRaised - leave, std::memory_order_acquire,
                                         std::memory_order_relaxed))
            return true;
    }
    return false;
}

int zSignal::wait_until(long long deadlineNs) {
    unsigned int state = fState.fetch_add(kWaiter, std::memory_order_relaxed) + kWaiter;
    bool inTime = true;
    while (!take_raised(kWaiter)) {
        if (!inTime) {
            // Leaving and a raise that comes now are told apart by the word itself.
            state = fState.load(std::memory_order_relaxed);
            if ((state & kRaised) == 0 &&
                fState.compare_exchange_weak(state, state - kWaiter, std::memory_order_relaxed))
                return -1;
            continue;
        }
        state = fState.load(std::memory_order_relaxed);
        if ((state & kRaised) == 0) inTime = futex_wait(fState, state, deadlineNs);
    }
    return 0;
}

void zSignal::Wait() {
    if (!take_raised(0)) wait_until(kNever);
}

int zSignal::WaitFor(long long microseconds) {
    if (take_raised(0)) return 0;
    if (microseconds <= 0) return -1;
    return wait_until(deadline_after(microseconds));
}

void zSignal::Raise() {
    const unsigned int before = fState.fetch_or(kRaised, std::memory_order_release);
    // Raised already: whoever raised it wakes the waiter. From here on the word may be gone; its
    // address alone is used, and waking nobody is harmless.
    if (before & kRaised || before < kWaiter) return;
    syscall(SYS_futex, &fState, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}
