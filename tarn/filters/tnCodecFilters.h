#pragma once

#include "tarn/export.h"

class tnFilterManager;

/// The filters of this library under the codec names by which requests ask for them.
///
/// The library's boot registers none: a host or an add-on does, so that it can put its own first.
/// Of equal names the first registered wins; doing it twice does no harm.
class TARN_API tnCodecFilters {
public:
    static constexpr const char* kX264 = "x264";
    static constexpr const char* kPlatformH264 = "Video Toolbox H.264";
    static constexpr const char* kNvencH264 = "NVidia H.264";
    static constexpr const char* kProRes = "ProRes";
    static constexpr const char* kMotionJpeg = "MJPEG";
    static constexpr const char* kAac = "MPEG-4 Audio";
    static constexpr const char* kPcm = "PCM";

    tnCodecFilters() = delete;

    /// Registers them all. Any thread; before the first request that names one.
    static void Register(tnFilterManager& manager);
};
