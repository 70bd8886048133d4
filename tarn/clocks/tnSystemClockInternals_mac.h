#pragma once

#include "tarn/clocks/tnSystemClockInternals.h"

/// The loop over the Mach kernel's absolute time, under its real-time scheduling policy. It ticks
/// one way, whatever the accuracy. Elsewhere it runs over the twin of those calls.
class tnSystemClockInternals_mac : public tnSystemClockInternals {
public:
    tnSystemClockInternals_mac(tnClock& clock, double rate, tnClock::clock_rate_accuracy accuracy);
    ~tnSystemClockInternals_mac() override;

    int Main(int argc, const char** argv) override;

private:
    void begin_tick(tn_time_rec& record) SPAR_EXCLUDES(fTimeLock);
};
