#include "tarn/clocks/tnClockFactory.h"

#include "tarn/clocks/tnSystemClock.h"

tnSystemClock* tnClockFactory::RefreshRateClock() {
    // A fixed rate: hosts without a display, and those whose display runs at another rate, rely on
    // the same 60 Hz.
    constexpr double kRefreshRate = 60.0;
    return new tnSystemClock(kRefreshRate, tnClock::clock_rate_scac);
}
