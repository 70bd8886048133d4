#pragma once

#include "tarn/export.h"

/// Sees the green flash of a '2vuy' frame.
class TARN_API tnSyncVideo {
public:
    /// Whether the 9 by 9 pixels in the middle of the frame are green. False for other formats and
    /// for frames that are smaller than that. `time` and the last argument are not used.
    bool FrameSyncOn(double time, int width, int height, unsigned int format, int rowBytes,
                     const void* pixels, unsigned int) const;
};
