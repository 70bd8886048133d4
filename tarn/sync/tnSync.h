#pragma once

#include <atomic>

#include "spar/zRefCount.h"
#include "tarn/export.h"
#include "tarn/sync/tnSyncDTMF.h"
#include "tarn/sync/tnSyncVideo.h"

/// Measures how far sound and picture are apart behind the chain that is being tested: the sound is
/// marked by a DTMF tone, the picture by a green flash in the middle.
///
/// Each pair is told to an observer as a record with the int32 'what' 'sync' and the double
/// "diff_ms": the milliseconds from the tone to the flash, positive when the picture comes later.
/// All times are milliseconds on one line and above 0. Sound and picture may come on a thread each;
/// nothing blocks.
class TARN_API tnSync : public zRefCount {
public:
    /// `observer` is the id for zObserverHandler::PostNotification, 0 for nobody.
    explicit tnSync(int observer);
    ~tnSync() override;

    /// Takes one block of sound, whose first frame is at `time`. Any digit is a marker that comes
    /// after more than 400 ms without one.
    void AudioStereoPCM16(double time, int sampleRate, const void* samples, int frames);

    /// Takes one frame. A flash that begins is paired with the latest tone as soon as the two are
    /// less than 500 ms apart, which a later tone may bring about at a later frame.
    void VideoFrame(double time, int width, int height, unsigned int format, int rowBytes,
                    const void* pixels, unsigned int reserved);

private:
    void report(double difference) const;

    // fixed
    const int fObserver;

    // sound
    tnSyncDTMF fDTMF;
    double fQuietSince = 0;  // the block that began the quiet; 0 during a tone and before the first

    // written by the sound, read by the picture
    std::atomic<double> fAudioTime{0};  // last tone that was taken as a marker

    // picture
    tnSyncVideo fVideo;
    double fVideoTime = 0;          // last flash that began
    double fReportedVideoTime = 0;  // the one that was reported last
    bool fVideoOn = false;          // at the last frame
};
