#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "orb/CVideoProperties.h"
#include "orb/RObject.h"
#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/filters/tnVideoCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"

/// What an output must know of a track before it can begin: taken from the track's filter on the
/// thread that delivers, since filters have no lock. Nobody changes it afterwards.
struct TrackFormat {
    tnMediaRecord input;
    tnMediaRecord output;
    std::shared_ptr<const std::vector<unsigned char>> decoderInfo;  ///< null if there is none
    Quillon::Orb::RObject<Quillon::Orb::CVideoProperties> picture;  ///< null if the encoder is mute
    int framesPerPacket = 0;                                        ///< of sound
};

/// An encoded buffer on its way through an output, with its times on the source's own line.
///
/// Of a picture `startMs` is when it is shown, and the ticks are of its output's timescale.
struct MediaItem {
    std::shared_ptr<const TrackFormat> format;
    std::shared_ptr<tnVideoCompressor::EncodedBuffer> picture;  ///< one of the two is set
    std::shared_ptr<tnAudioCompressor::EncodedBuffer> sound;
    bool isKey = false;
    double startMs = 0;
    double endMs = 0;
    double decodeMs = 0;
    long long decodeTicks = 0;
    long long offsetTicks = 0;  ///< display time less decode time
    bool hasHostTime = false;
    double hostShiftMs = 0;  ///< from the source's own line to the host's
    std::size_t bytes = 0;

    /// Of a picture; 1 where nobody knows.
    double TicksPerMs() const;
};

/// `format` is what the item's filter said last; null the first time. `again` asks anew.
MediaItem MakePicture(const std::shared_ptr<tnFilter>& filter,
                      std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer,
                      std::shared_ptr<const TrackFormat>& format, bool again);
MediaItem MakeSound(const std::shared_ptr<tnFilter>& filter,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer,
                    std::shared_ptr<const TrackFormat>& format);
