#pragma once

#include "AvVideoEncoder.h"

namespace Quillon::Orb {

/// How a hardware encoder shall encode. Rates in bits per second.
struct HardwareH264Settings {
    int profile = 100;       ///< 66 baseline, 77 main, 100 high
    int bitRate = 0;         ///< 0 leaves the rate to the encoder
    int maximumBitRate = 0;  ///< 0 is the bit rate itself
    int keyFrameInterval = 60;
};

/// The one raw format that every hardware encoder takes without another copy.
inline constexpr unsigned int kHardwareFormat = 'NV12';

/// Opens the first hardware H.264 encoder that this machine has and that takes the pictures: VAAPI,
/// NVENC, Quick Sync, V4L2. ResultNotSupported, with the reasons, where there is none.
Result OpenHardwareH264(const VideoShape& shape, const HardwareH264Settings& settings,
                        AvOpenedEncoder& opened);

/// Opens NVENC alone.
Result OpenNvencH264(const VideoShape& shape, const HardwareH264Settings& settings,
                     AvOpenedEncoder& opened);

/// For encoders that tell their parameter sets only within the stream: encodes one grey picture,
/// which uses the encoder up, and keeps what comes out. ResultNotSupported where nothing does.
Result LearnParameterSets(AvOpenedEncoder& encoder, std::vector<unsigned char>& sets);

}  // namespace Quillon::Orb
