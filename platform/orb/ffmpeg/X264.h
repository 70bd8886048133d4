#pragma once

#include "AvVideoEncoder.h"

namespace Quillon::Orb {

/// How libx264 shall encode. Rates in bits per second.
struct X264Settings {
    const char* profile = "high";
    const char* preset = "veryfast";
    int threads = 0;         ///< 0 lets the encoder choose
    int bitRate = 0;         ///< 0 keeps the quality constant instead
    int maximumBitRate = 0;  ///< over one second; 0 is the bit rate itself
    int bFrames = 0;         ///< at most so many in a row
    int bPyramid = 0;        ///< 0 none, 1 strict, 2 normal
    int keyFrameInterval = 60;
};

/// Opens libx264: for planar 4:2:0 as it comes, else for NV12.
///
/// A rate is kept over any second: the buffer that a decoder fills at the maximum rate holds one
/// second, which is what a live line and the padding of strict rates want. Parameter sets stand in
/// the context's extradata, not in the stream; a forced key picture is an IDR picture.
/// ResultInvalidArgument for pictures or settings that H.264 in that profile cannot have.
Result OpenX264(const VideoShape& shape, const X264Settings& settings, AvOpenedEncoder& opened);

/// The picture type of an H.264 packet: key for what a decoder can start at, disposable for what
/// no other picture refers to.
int H264PictureType(const AVPacket& packet);

}  // namespace Quillon::Orb
