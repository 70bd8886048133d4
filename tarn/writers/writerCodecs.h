#pragma once

#include <span>

#include "orb/RObject.h"

class tnMediaRecord;

namespace Quillon::Orb {
class CVideoFilter;
template <typename T>
class CValueList;
}  // namespace Quillon::Orb

// What the movie file writers know about codecs: names, flavours, settings, raw input formats.

/// What a codec name means to the media library.
struct WriterCodec {
    unsigned int trackFormat = 0;     ///< of the track in the file; 0 for a name that is unknown
    unsigned int compressorCode = 0;  ///< component that makes it
};

/// Resolves the codec name and flavour of an encoded video record.
WriterCodec ResolveWriterCodec(const tnMediaRecord& encoded);

/// The ProRes flavour that the record's "codec_quality" names; `otherwise` for every other text.
unsigned int ProResFlavour(const tnMediaRecord& encoded, unsigned int otherwise);
/// The same of the quality of Motion JPEG.
int JpegQuality(const tnMediaRecord& encoded, int otherwise);

/// The raw formats in which frames of `sourceFormat` may enter a compressor, best first. The source
/// format heads its own list, so that a compressor that takes it needs no conversion.
std::span<const unsigned int> PreferredInputFormats(unsigned int sourceFormat);

/// The first preferred format that the compressor offers, else the first that it offers.
/// `offered` holds at least one value.
unsigned int ChooseInputFormat(unsigned int sourceFormat,
                               const Quillon::Orb::CValueList<unsigned int>& offered);

/// Hands the record's quality, bit rate and key frame settings to the compressor. 0, or -1041 when
/// a setting that the codec needs was refused.
int configure_output_properties_for_codec(
    const tnMediaRecord& encoded, Quillon::Orb::RObject<Quillon::Orb::CVideoFilter> compressor);
