#pragma once

#include <atomic>

#include "spar/export.h"

/// An event that one waiter takes: raised, it stays raised until a wait has seen it.
///
/// A raise that comes before the wait is not lost; raises that nobody has seen yet merge into one.
/// Each raise lets exactly one waiter go. Any thread may raise and wait. The waiter that a raise
/// has let go may delete the signal at once, also while Raise is still on its way out.
class SPAR_API zSignal {
public:
    /// A new signal, not raised, that the caller owns.
    static zSignal* Factory();

    zSignal() = default;
    zSignal(const zSignal&) = delete;
    zSignal& operator=(const zSignal&) = delete;
    virtual ~zSignal();

    /// Blocks until raised, and takes the raise.
    virtual void Wait();
    /// Blocks at most `microseconds` (0 or less: looks and does not wait). 0 if it took a raise, -1
    /// if the time was up.
    virtual int WaitFor(long long microseconds);
    virtual void Raise();

private:
    bool take_raised(unsigned int leave);
    int wait_until(long long deadlineNs);

    // Bit 0: raised. The rest: twice the number of waiters, in one word so that Raise touches
    // nothing after the raise can be seen.
    std::atomic<unsigned int> fState{0};
};
