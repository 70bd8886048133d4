#pragma once

#include "orb/RObject.h"
#include "orb/Result.h"
#include "tarn/export.h"

class tnMediaRecord;

namespace Quillon::Orb {
class CVideoProperties;
class CVideoSample;
}  // namespace Quillon::Orb

// Where records meet the media library: what encoders and file writers share of the translation, so
// that they do not come to differ about a raster type or a property. No state; any thread.

/// The media format in which frames of `rasterType` travel; 0 for a type that has none.
TARN_API unsigned int RasterTypeToOrbVideoFormat(int rasterType);

/// The raster type of a media format, 0 where there is none. Not the inverse of the above: several
/// types share 'BGRA' and come back as 'rgba', 'IMC4' comes back as 'I420', and 'I422' not at all.
TARN_API int OrbVideoFormatToRasterType(unsigned int format);

/// Takes what the record says over into `properties`, the format by the record's raster type.
TARN_API bool MediaRecordToVideoProperties(
    const tnMediaRecord& record, Quillon::Orb::RObject<Quillon::Orb::CVideoProperties>& properties);

/// The same with a given format: what enters an encoder and what leaves it differ in little else,
/// and one record serves for both.
///
/// An empty handle gets a new object; an object that is there is filled in place and keeps what the
/// record does not say. A record without a frame duration and a rate leaves the duration at 0,
/// unknown. False when a setter refuses a value; the values before it are in `properties` then.
TARN_API bool MediaRecordToVideoProperties(
    unsigned int format, const tnMediaRecord& record,
    Quillon::Orb::RObject<Quillon::Orb::CVideoProperties>& properties);

/// The way back: into `record`, with the raster type that the format stands for (0 if none).
TARN_API void VideoPropertiesToMediaRecord(const Quillon::Orb::CVideoProperties* properties,
                                           tnMediaRecord& record);

/// The same with a given raster type.
TARN_API void VideoPropertiesToMediaRecord(int rasterType,
                                           const Quillon::Orb::CVideoProperties* properties,
                                           tnMediaRecord& record);

/// Makes a sample of time 0 and duration 1 with an empty pixel buffer of that shape in main memory.
///
/// On failure `sample` stays as it was: null properties, a shape without size, exhausted memory.
TARN_API Quillon::Orb::Result CreateCPUVideoSample(
    Quillon::Orb::RObject<Quillon::Orb::CVideoSample>& sample,
    const Quillon::Orb::CVideoProperties* properties);
