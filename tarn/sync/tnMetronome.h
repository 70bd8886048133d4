#pragma once

#include <atomic>
#include <string>

#include "tarn/export.h"
#include "tarn/sync/pmFormats.h"

/// A test signal for sound and picture: at each whole second a short or a long pulse, in which a
/// 1000 Hz tone sounds and a white box stands in the corner of the picture.
///
/// The pulses follow from the time alone: sound and picture agree on them without asking each
/// other. A host asks InjectAt with the point at which it stands, and then calls the
/// overlays with times of one line for both. No instances; any thread, real-time ones too.
class TARN_API tnMetronome {
public:
    /// Where the host puts the signal in. A set of bits.
    enum InjectionPoint : int {
        kInjectNone = 0,
        kInjectTaskManager = 1,
        kInjectRenderer = 2,
    };

    /// What becomes of the sound that is there.
    enum AudioMode : int {
        kAudioReplace = 0,  ///< the tone replaces it; between the pulses it stays
        kAudioClear = 1,    ///< the tone replaces it; silence between the pulses
        kAudioOverlay = 2,  ///< the tone is added
    };

    tnMetronome() = delete;

    /// True if the value changed.
    static bool SetInjectionPoint(InjectionPoint point);
    /// Whether a bit of `point` is among those that were set; never so for kInjectNone.
    static bool InjectAt(InjectionPoint point);

    /// True if the value changed.
    static bool SetAudioMode(AudioMode mode);
    static AudioMode GetAudioMode();

    /// The name for a person; of any other value its decimal number.
    static std::string InjectionPointName(InjectionPoint point);
    static std::string AudioModeName(AudioMode mode);

    /// Whether the signal is on at `time`, and when the pulse of that second starts and stops, all
    /// in seconds. False with null in place of either.
    static bool SignalOn(double time, double* start, double* stop);

    /// Writes the signal into a block of `frames` that begins at `time` seconds. Formats other than
    /// 'sowt' and 'fl32' are cleared where the mode says so, and get no tone.
    static void AudioOverlay(double time, void* samples, int frames, pm::AudioFormat format);

    /// Paints the box, 64 pixels wide and high, at the top left of a frame that shows at `time`
    /// seconds and has as many rows. Rows of less than 256 bytes stay as they are.
    static void VideoOverlay(double time, void* pixels, int rowBytes, pm::VideoFormat format);

private:
    static std::atomic<InjectionPoint> gInjectionPoint;
    static std::atomic<AudioMode> gAudioMode;
};
