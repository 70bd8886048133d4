#include "display/displayTimerSource.h"

#include "spar/zThread.h"
#include "spar/zTime.h"

namespace {
__extension__ using Wide = __int128;
constexpr Wide kMicrosPerSecond = 1'000'000;
}  // namespace

displayTimerSource::displayTimerSource(displayRefreshRate rate) : fRate(rate) {}

displayRefreshRate displayTimerSource::Rate() const {
    return fRate;
}

long long displayTimerSource::CountAt(long long realTime) const {
    return static_cast<long long>(Wide{realTime} * fRate.timeScale /
                                  (kMicrosPerSecond * fRate.period));
}

long long displayTimerSource::TimeOf(long long count) const {
    const Wide units = kMicrosPerSecond * count * fRate.period;
    return static_cast<long long>((units + fRate.timeScale - 1) / fRate.timeScale);
}

bool displayTimerSource::WaitForRefresh(displayRefresh& refresh) {
    zThread::MicroSleepUntil(TimeOf(CountAt(zTime::MicroNow()) + 1), false);
    const long long now = zTime::MicroNow();
    refresh = fRate.At(CountAt(now), now);
    return true;
}
