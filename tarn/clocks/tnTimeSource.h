#pragma once

#include "spar/zThread.h"

/// Where a clock's loop reads the time and sleeps: the machine, or what a test has put in its
/// place.
class tnTimeSource {
public:
    virtual ~tnTimeSource() = default;

    /// As zTime::MicroNow.
    virtual long long MicroNow() = 0;

    /// As zThread::MicroSleepUntil.
    virtual void MicroSleepUntil(long long time, bool precise) = 0;

    /// As AccurateTimer::MicroSleepUntil of the caller's `timer`; the time of waking.
    virtual long long MicroSleepUntil(zThread::AccurateTimer& timer, long long time) = 0;

    /// What loops that are made from now on use.
    static tnTimeSource& Current();

    /// Null gives the machine's time back. The source stays the caller's and outlives every clock
    /// that was made meanwhile.
    static void SetCurrent(tnTimeSource* source);
};
