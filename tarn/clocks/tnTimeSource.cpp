#include "tarn/clocks/tnTimeSource.h"

#include <atomic>

#include "spar/zTime.h"

namespace {

class MachineTime : public tnTimeSource {
public:
    long long MicroNow() override { return zTime::MicroNow(); }
    void MicroSleepUntil(long long time, bool precise) override {
        zThread::MicroSleepUntil(time, precise);
    }
    long long MicroSleepUntil(zThread::AccurateTimer& timer, long long time) override {
        return timer.MicroSleepUntil(time);
    }
};

/// Made when it is first asked for and never destroyed: clocks may tick while the process ends.
tnTimeSource& machine_time() {
    static tnTimeSource& time = *new MachineTime;
    return time;
}

std::atomic<tnTimeSource*> gCurrent{nullptr};  // null: the machine's

}  // namespace

tnTimeSource& tnTimeSource::Current() {
    tnTimeSource* const source = gCurrent.load();
    return source ? *source : machine_time();
}

void tnTimeSource::SetCurrent(tnTimeSource* source) {
    gCurrent = source;
}
