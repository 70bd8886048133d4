#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

// The colours of a clip's pictures: what a recording can say of them, and what it cannot.

/// The format without the range that some names carry with them.
AVPixelFormat WithoutRange(AVPixelFormat format);

/// Whether luma goes from 0 to 255: by its own word, else by what is usual for the format.
bool IsFullRange(AVPixelFormat format, AVColorRange range);
