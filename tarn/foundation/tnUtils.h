#pragma once

#include "tarn/export.h"

class zRecord;
class zString;

/// What a host's windows show: times as text, the line under an encoder preset, USB devices by
/// name, and which encoders to offer. No instances; any thread.
class TARN_API tnUtils {
public:
    /// The form of a time string.
    enum tn_time_type {
        TN_TIME_HOURS = 1,    // hours, minutes and seconds
        TN_TIME_MINUTES = 2,  // minutes and seconds
        TN_TIME_WORDS = 3,
    };

    /// Words of TN_TIME_WORDS; a unit whose two words are not both there is left out.
    struct tn_localized_time_strings {
        const char* fHours;
        const char* fHour;
        const char* fMinutes;
        const char* fMinute;
        const char* fSeconds;
        const char* fSecond;
    };

    /// An id and its name. A table of them ends with the id 0.
    struct id_name {
        unsigned int fId;
        const char* fName;
    };

    static const id_name VendorIDsToString[];
    static const id_name LogitechProductIDs[];

    tnUtils() = delete;

    /// Makes the cache of encoder answers; boot does so too.
    static void Startup();
    /// Deletes it.
    static void Shutdown();

    /// Writes `microseconds` as time. Hours and minutes that are 0 are left out unless `showAll`;
    /// TN_TIME_MINUTES leaves hours out in any case. TN_TIME_WORDS, the only one to use `strings`,
    /// appends to `out` and adds nothing for 0; the others replace what it held. Any other type
    /// writes nothing.
    static void ConvertTime(long long microseconds, zString& out, tn_time_type type,
                            const tn_localized_time_strings* strings, bool showAll);

    /// Writes what a preset's enabled tracks encode, as `x264 (1280 x 720) AAC (48.0 khz)`: of
    /// several tracks of a type the last one. 0; -22 without `localize`; -1027, with its text for
    /// "encoder_no_settings" in `out`, if no track is enabled.
    static int CreateEncoderSummary(const zRecord& tracks, zString& out,
                                    const char* (*localize)(const char*));

    /// 0 for a name that is not in the table.
    static unsigned int USBVendorStringToID(const char* name);
    /// Null for an id that is not in the table.
    static const char* USBVendorIDToString(unsigned int id);
    /// Null for a product that is not in the table; one vendor has a table.
    static const char* USBProductIDToString(unsigned int vendor, unsigned int product);

    /// Whether a host may offer that encoder. `flags` are the host's, 0 allows everything.
    ///
    /// The hardware encoder is really tried, which may block for some seconds and is remembered for
    /// five.
    static bool IsVideoCodecEnabledWithFlags(unsigned int flags, const char* name);
};

/// Which preset of quality an encoder has before anybody picks one; the empty text for the name of
/// an encoder without presets.
TARN_API const char* GetDefaultCodecQuality(const char* name);
