#include "tarn/clocks/tnSystemClock.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "tarn/clocks/tnSystemClockInternals.h"

namespace {

int whole_rate(double rate) {
    if (std::isnan(rate)) return 0;
    return static_cast<int>(std::clamp<double>(rate, INT_MIN, INT_MAX));
}

}  // namespace

tnSystemClock::tnSystemClock(double rate, tnClock::clock_rate_accuracy accuracy)
    : fInternals(tnSystemClockInternals::Factory(*this, rate, accuracy)),
      fIntTickRate(whole_rate(rate)) {}

tnSystemClock::~tnSystemClock() {
    tnSystemClock::StopTicking();
}

int tnSystemClock::GetTime(tn_time_rec& time) const {
    return fInternals->GetTime(time);
}

void tnSystemClock::StartTicking(long long startMediaTime, const char* name, char priority) {
    fInternals->StartTicking(startMediaTime, name, priority);
}

void tnSystemClock::StopTicking() {
    fInternals->StopTicking();
}

void tnSystemClock::ChangeRate(double rate) {
    fInternals->ChangeRate(rate);
}

void tnSystemClock::PauseMediaTime() {
    fInternals->PauseMediaTime();
}

void tnSystemClock::RewindMediaTime(long long mediaTime) {
    fInternals->RewindMediaTime(mediaTime);
}

double tnSystemClock::GetRate() const {
    return fInternals->GetRate();
}

int tnSystemClock::GetIntTickRate() const {
    return fIntTickRate;
}

bool tnSystemClock::IsTicking() const {
    return fInternals->IsTicking();
}

void tnSystemClock::Debug_ToggleMediaTimeAdvancing() {
    fInternals->Debug_ToggleMediaTimeAdvancing();
}
