#pragma once

#include "orb/PropertyName.h"

/// Properties of filters. A component has those that it declares; setting another one fails.
namespace Quillon::Orb::CodeBookProperty {

namespace MediaFilter {
/// Four-character code of what is to come out.
inline constexpr PropertyName OutputFormat{"MediaFilter::OutputFormat"};
/// bool, read only: whether the compressor has found hardware to run on. Known after Begin.
inline constexpr PropertyName UsingHardwareAcceleration{"MediaFilter::UsingHardwareAcceleration"};
}  // namespace MediaFilter

namespace AudioConverter {
inline constexpr PropertyName SampleRate{"AudioConverter::SampleRate"};  ///< int, Hz
}

namespace AudioCompressor {
inline constexpr PropertyName BitRate{"AudioCompressor::BitRate"};  ///< int, bits per second
}

namespace CoreAudioCompressor {
/// int: 0 constant rate, 1 long-term average, 2 variable within limits, 3 variable.
inline constexpr PropertyName RateControlMethod{"CoreAudioCompressor::RateControlMethod"};
}  // namespace CoreAudioCompressor

namespace VideoCompressor {
inline constexpr PropertyName BitRate{"VideoCompressor::BitRate"};  ///< int, bits per second
/// int: threads of a compressor that has no property of its own for them; 0 lets it choose.
inline constexpr PropertyName Threads{"VideoCompressor::Threads"};
}  // namespace VideoCompressor

namespace JpegCompressor {
inline constexpr PropertyName Quality{"JpegCompressor::Quality"};  ///< int, 1 to 100
}

namespace H264Compressor {
inline constexpr PropertyName Profile{
    "H264Compressor::Profile"};  ///< text: "baseline", "main", "high"
inline constexpr PropertyName Preset{"H264Compressor::Preset"};  ///< text: "ultrafast" to "placebo"
inline constexpr PropertyName Threads{
    "H264Compressor::Threads"};  ///< int, 0 lets the encoder choose
inline constexpr PropertyName BitRate{"H264Compressor::BitRate"};  ///< int, bits per second
inline constexpr PropertyName NumBFrames{
    "H264Compressor::NumBFrames"};  ///< int, at most so many in a row
inline constexpr PropertyName BFramePyramid{
    "H264Compressor::BFramePyramid"};  ///< int: 0 none, 1 strict, 2 normal
inline constexpr PropertyName MaxKeyFrameInterval{
    "H264Compressor::MaxKeyFrameInterval"};  ///< int, frames
}  // namespace H264Compressor

namespace VideoToolboxCompressor {
inline constexpr PropertyName Profile{"VideoToolboxCompressor::Profile"};  ///< int: 66, 77, 100
inline constexpr PropertyName KeyFrameInterval{
    "VideoToolboxCompressor::KeyFrameInterval"};  ///< int, frames
inline constexpr PropertyName MaximumBitrate{
    "VideoToolboxCompressor::MaximumBitrate"};  ///< int, bits per second
}  // namespace VideoToolboxCompressor

namespace MainConceptMpeg2Compressor {
/// int, as the stream spells it: 1 high, 4 main, 5 simple.
inline constexpr PropertyName Profile{"MainConceptMpeg2Compressor::Profile"};
/// int, as the stream spells it: 4 high, 6 high 1440, 8 main, 10 low.
inline constexpr PropertyName Level{"MainConceptMpeg2Compressor::Level"};
inline constexpr PropertyName M{
    "MainConceptMpeg2Compressor::M"};  ///< int: frames from anchor to anchor
inline constexpr PropertyName N{
    "MainConceptMpeg2Compressor::N"};  ///< int: frames in a group of pictures
/// int: every so many groups one is closed.
inline constexpr PropertyName ClosedGopInterval{"MainConceptMpeg2Compressor::ClosedGopInterval"};
}  // namespace MainConceptMpeg2Compressor

}  // namespace Quillon::Orb::CodeBookProperty
