#pragma once

#include "AvVideoEncoder.h"

namespace Quillon::Orb {

/// True for the five kinds: 'apco' proxy, 'apcs' LT, 'apcn' standard, 'apch' HQ, 'ap4h' 4444.
bool IsProRes(unsigned int format);

/// Opens a ProRes encoder of that kind with `threads` frames in flight.
///
/// It takes any raw format of the shape and makes 10 bits of it, 4:2:2 or for 'ap4h' 4:4:4. 4444 is
/// written without its alpha plane: sources call colours without meaningful alpha by the same name.
/// ResultInvalidArgument for an odd width.
Result OpenProRes(const VideoShape& shape, unsigned int format, int threads,
                  AvOpenedEncoder& opened);

/// Writes into a finished frame what the encoder leaves open in its header: frame rate and aspect.
void StampProResFrame(const AVCodecContext& context, CByteArray& bytes);

}  // namespace Quillon::Orb
