#pragma once

#include <functional>
#include <string>
#include <vector>

/// A flash and the tone that belongs to it.
struct MeasuredPair {
    double seconds = 0;   ///< when the flash shows, from the first picture on
    double offsetMs = 0;  ///< from the tone to the flash: positive when the picture comes later
};

/// What the detectors found in a clip.
struct SyncMeasurement {
    std::vector<MeasuredPair> pairs;
    int flashes = 0;
    int tones = 0;
    double seconds = 0;    ///< how long the pictures last
    double frameMs = 0;    ///< one picture
    double blockMs = 0;    ///< one of the tone detector's blocks
    bool stopped = false;  ///< before the clip's end
};

/// Runs the sync detectors over any clip that FFmpeg reads. `progress` is told the share of the
/// clip that is done, once a picture, and ends the measurement where it is by giving true; before
/// the first picture it is told 0, again and again while the sound is looked through. False
/// with one line in `error`. Main thread: what the detectors report comes through its queue.
bool MeasureSync(const std::string& path, const std::function<bool(double)>& progress,
                 SyncMeasurement& measurement, std::string& error);
