#pragma once

#include "tarn/export.h"

class tnSystemClock;

class TARN_API tnClockFactory {
public:
    /// A new unstarted clock of 60 Hz that stands in for the display's refresh; it does not ask the
    /// display. The caller owns the one reference.
    static tnSystemClock* RefreshRateClock();
};
