#pragma once

#include "tarn/export.h"

namespace Quillon::Orb {
template <class T>
class RObject;
class CAudioProperties;
class CAudioSample;
class Result;
}  // namespace Quillon::Orb

class tnMediaRecord;

/// What converter and file writers share of the way between audio records and the media library. No
/// state; any thread.

/// Replaces `properties` by the description of `record`'s PCM, little-endian as it stands in
/// memory: 16 bits are integers, 32 bits are floats. 0; or -1 for any other sample size, with
/// `properties` then empty of all settings.
TARN_API int OrbAudioPropertiesFromMediaRecord(
    const tnMediaRecord& record, Quillon::Orb::RObject<Quillon::Orb::CAudioProperties>& properties);

/// Gives `sample` the audio bytes. With `copy` they are free again on return; without it the sample
/// points into `data`, which has to outlive it. The result is that of the sample's setter.
TARN_API Quillon::Orb::Result ORB_SetAudioSampleData(
    Quillon::Orb::RObject<Quillon::Orb::CAudioSample> sample, unsigned char* data, int length,
    bool copy);
