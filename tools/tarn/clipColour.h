#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <string>

// The colours of a clip's pictures: what a recording can say of them, and what it cannot.

/// The format without the range that some names carry with them.
AVPixelFormat WithoutRange(AVPixelFormat format);

/// Whether luma goes from 0 to 255: by its own word, else by what is usual for the format.
bool IsFullRange(AVPixelFormat format, AVColorRange range);

/// swscale's number of a matrix that pictures have to be converted from, since a recording says
/// 601 or 709 alone; 0 where there is nothing to convert, or nobody who could.
int MatrixToLeave(AVColorSpace matrix);

/// What will look wrong in a recording of such pictures, and what to do; empty when nothing will.
std::string ColourTrouble(AVColorSpace matrix, AVColorTransferCharacteristic transfer);
