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

MachineTime gMachineTime;
std::atomic<tnTimeSource*> gCurrent{&gMachineTime};

}  // namespace

tnTimeSource& tnTimeSource::Current() {
    return *gCurrent.load();
}

void tnTimeSource::SetCurrent(tnTimeSource* source) {
    gCurrent = source ? source : &gMachineTime;
}
