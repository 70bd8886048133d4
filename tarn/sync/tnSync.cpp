#include "tarn/sync/tnSync.h"

#include <cmath>

#include "spar/zObserverHandler.h"
#include "spar/zRecord.h"

namespace {

constexpr double kLeastQuietMs = 400.0;  // before a tone is a new marker
constexpr double kPairWithinMs = 500.0;

}  // namespace

tnSync::tnSync(int observer) : fObserver(observer) {}

tnSync::~tnSync() = default;

void tnSync::AudioStereoPCM16(double time, int sampleRate, const void* samples, int frames) {
    const double heard = fDTMF.AudioStereoPCM16(time, sampleRate, samples, frames);
    if (heard == 0.0) {
        if (fQuietSince == 0.0) fQuietSince = time;
        return;
    }
    // A tone too soon after the last leaves the quiet running: one that lasts is a marker in the
    // end.
    if (fQuietSince != 0.0 && heard - fQuietSince > kLeastQuietMs) {
        fAudioTime.store(heard, std::memory_order_relaxed);
        fQuietSince = 0;
    }
}

void tnSync::VideoFrame(double time, int width, int height, unsigned int format, int rowBytes,
                        const void* pixels, unsigned int reserved) {
    const bool on = fVideo.FrameSyncOn(time, width, height, format, rowBytes, pixels, reserved);
    if (on && !fVideoOn) fVideoTime = time;
    fVideoOn = on;
    if (fVideoTime == fReportedVideoTime) return;
    const double difference = fVideoTime - fAudioTime.load(std::memory_order_relaxed);
    if (!(std::fabs(difference) < kPairWithinMs)) return;
    fReportedVideoTime = fVideoTime;
    if (fObserver != 0) report(difference);
}

void tnSync::report(double difference) const {
    auto* record = new zRecord;
    record->SetInt32('what', 'sync');
    record->SetDouble("diff_ms", difference);
    zObserverHandler::PostNotification(fObserver, record, 0);
}
