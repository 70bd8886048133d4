#pragma once

#include <string>

#include "tarn/export.h"

class zRecord;

/// A typed view of the settings of one ISO output: one source, or one shot, recorded into a file of
/// its own.
///
/// It knows the keys, units, defaults and limits, so that a host and the validator agree on them. A
/// missing or senseless value has its default; nothing fails. The record stays the host's, which
/// keeps it alive and still while a call runs. A copy views the same record.
class TARN_API tnISOAccessor {
public:
    /// Tags the record as an ISO output.
    tnISOAccessor(zRecord& record);
    /// Writes nothing.
    tnISOAccessor(zRecord const& record);

    /// The format is one whose encoder is set by a named quality. Exact names.
    bool IsVideoFormatWithQualitySetting() const;
    /// Every other format, one that nobody knows and none at all included.
    bool IsVideoFormatWithBitrateSetting() const;
    bool IsVideoFormatWithKeyframeIntervalSetting() const;

    /// The empty string for a format without named qualities.
    static std::string DefaultVideoQualityForFormat(std::string const& format);
    static bool IsVideoQualityOptionForFormat(std::string const& format, std::string const& option);
    /// `kbps` within 500 and 500000; all formats have these limits.
    static int ClampBitrateForFormat(std::string const& format, int kbps);

    /// Kilobits a second. A rate that is 0, negative or in an unknown unit is traced and counts as
    /// 10 Mbps; one that an int cannot hold is the largest int.
    int VideoBitrateKbps(bool clamp) const;
    /// How long a file may get: with `clamp` from 10 seconds to 12 hours, else as it is set, which
    /// may be 0 or less. 12 hours if set to the maximum, 4 in an unknown unit. What an int cannot
    /// hold is its nearest end.
    int FileDurationSeconds(bool clamp) const;

    /// Both write to one file: same folder, same name, case aside. False while either lacks a
    /// folder or a name. A separator at the end makes another folder.
    bool HasSamePath(tnISOAccessor const& other) const;

    /// Also if the record does not say what it records.
    bool IsSourceRecording() const;
    bool IsShotRecording() const;

private:
    zRecord const* fRecord;
    zRecord* fWritableRecord;  // the same record, null if it may only be read
};
