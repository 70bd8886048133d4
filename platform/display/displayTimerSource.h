#pragma once

#include "display/displayRefreshSource.h"

/// Refreshes by the machine's clock, at a stated rate. Stands in for a display that is not there.
///
/// Refresh n takes place n periods after the clock's zero, so numbers and places stay the same over
/// stops and starts, as those of a display do. A late wake-up skips what it missed.
class displayTimerSource : public displayRefreshSource {
public:
    explicit displayTimerSource(displayRefreshRate rate);

    displayRefreshRate Rate() const override;

    /// Not ended by an interrupt: it lasts a period at most.
    bool WaitForRefresh(displayRefresh& refresh) override;

    /// The number of the last refresh at or before `realTime`, and when refresh `count` takes
    /// place, rounded up to the microsecond.
    long long CountAt(long long realTime) const;
    long long TimeOf(long long count) const;

private:
    const displayRefreshRate fRate;
};
