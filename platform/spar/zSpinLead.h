#pragma once

#include <algorithm>

/// How long before its time a loop that sleeps first and spins the rest has to wake, learnt from
/// how late its wake-ups have been. Microseconds, from 20 to 200.
class zSpinLead {
public:
    long long Us() const { return fLead; }

    /// A wake-up came `late` microseconds after the time that it was asked for.
    ///
    /// The lead goes up at once where wake-ups come late and down slowly: a late tick costs more
    /// than a longer spin. A single late one tells nothing of the next, and nor do those that no
    /// lead covers; on loaded cores who spins long for it is made to wait, and comes later than
    /// without.
    void TakeWakeUp(long long late) {
        const long long lesser = std::min(late, fLateBefore);
        fLateBefore = late;
        const long long wanted = lesser <= kMost ? lesser + lesser / 4 : kLeast;
        fLead = std::clamp(std::max(wanted, fLead - fLead / 16), kLeast, kMost);
    }

private:
    static constexpr long long kLeast = 20;
    static constexpr long long kFirst = 60;
    static constexpr long long kMost = 200;

    long long fLead = kFirst;
    long long fLateBefore = 0;
};
