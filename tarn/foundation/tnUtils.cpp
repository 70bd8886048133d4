#include "tarn/foundation/tnUtils.h"

#include <fmt/format.h>
#include <initializer_list>
#include <optional>

#include "spar/zRecord.h"
#include "spar/zString.h"
#include "spar/zTime.h"
#include "tarn/foundation/TCache.h"
#include "tarn/foundation/tnEncoderProbe.h"
#include "tarn/foundation/tnMediaRecord.h"

namespace {

constexpr int kNullArgument = -22;
constexpr int kNoEnabledTrack = -1027;

constexpr long long kHour = 3'600'000'000;
constexpr long long kMinute = 60'000'000;
constexpr long long kSecond = 1'000'000;
constexpr int kTimeRoom = 25;

constexpr const char* kProbedCodec = "Video Toolbox H.264";
constexpr long long kAnswerHoldsMs =
    5000;  // a probe opens a real session, and interfaces ask all the time

struct Time {
    long long fHours;
    long long fMinutes;
    long long fSeconds;
};

Time split(long long microseconds) {
    const long long hours = microseconds / kHour;
    const long long minutes = microseconds / kMinute - 60 * hours;
    return {hours, minutes, microseconds / kSecond - 3600 * hours - 60 * minutes};
}

void write_digits(const Time& time, char* text, tnUtils::tn_time_type type, bool showAll) {
    char* end = text;
    if (type == tnUtils::TN_TIME_HOURS && (showAll || time.fHours >= 1)) {
        end = fmt::format_to_n(text, kTimeRoom, "{:02}:{:02}:{:02}", time.fHours, time.fMinutes,
                               time.fSeconds)
                  .out;
    } else if (time.fMinutes >= 1 || (type == tnUtils::TN_TIME_MINUTES && showAll)) {
        end = fmt::format_to_n(text, kTimeRoom, "{:02}:{:02}", time.fMinutes, time.fSeconds).out;
    } else {
        end = fmt::format_to_n(text, kTimeRoom, "{:02}", time.fSeconds).out;
    }
    *end = '\0';
}

/// Appends "5 minutes"; false where there is nothing to say.
bool append_unit(zString& out, long long count, const char* plural, const char* singular) {
    if (count == 0 || plural == nullptr || singular == nullptr) {
        return false;
    }
    zString text;
    text.sprintf("%lld %s", count, count == 1 ? singular : plural);
    out += text;
    return true;
}

void append_words(zString& out, const Time& time, const tnUtils::tn_localized_time_strings& words) {
    // The blank between the hours and their comma is what hosts have always shown.
    if (append_unit(out, time.fHours, words.fHours, words.fHour)) {
        out += time.fMinutes != 0 ? " , " : "  ";
    }
    if (append_unit(out, time.fMinutes, words.fMinutes, words.fMinute)) {
        out += time.fSeconds != 0 ? ", " : " ";
    }
    append_unit(out, time.fSeconds, words.fSeconds, words.fSecond);
}

/// The last enabled track of each type.
struct EnabledTracks {
    std::optional<tnMediaRecord> fVideo;
    std::optional<tnMediaRecord> fAudio;
};

EnabledTracks find_enabled(const zRecord& tracks) {
    EnabledTracks found;
    for (const zRecord* child : tracks.Children()) {
        if (child == nullptr || !child->AsBool('mena', false)) {
            continue;
        }
        const tnMediaRecord track(*child);
        const int type = track.fType.AsInt32(0);
        if (type == TN_MEDIA_VIDEO) {
            found.fVideo = track;
        } else if (type == TN_MEDIA_AUDIO) {
            found.fAudio = track;
        }
    }
    return found;
}

void describe_audio(const tnMediaRecord& track, zString& text) {
    zString rate;
    rate.sprintf("%.1f khz",
                 static_cast<double>(static_cast<float>(track.fSampleRate.AsInt32(0)) / 1000.0f));
    const char* codec = track.AsCString('mcon', nullptr, nullptr);
    if (codec != nullptr && track.AsBool('momp', false)) {
        text.sprintf("%s (%s)", codec, rate.CString());
    } else {
        text = rate;
    }
}

const char* name_of(const tnUtils::id_name* table, unsigned int id) {
    for (; table->fId != 0; ++table) {
        if (table->fId == id) {
            return table->fName;
        }
    }
    return nullptr;
}

bool is_one_of(const char* name, std::initializer_list<const char*> names) {
    for (const char* known : names) {
        if (zString::string_equal(name, known)) {
            return true;
        }
    }
    return false;
}

/// False where the encoder is known not to work, by a trial within the last seconds if need be.
bool is_working(const char* name) {
    bool works = false;
    const long long now = zTime::MicroNow() / 1000;
    if (TCache<bool>::Singleton()->Find(name, now, works)) {
        return works;
    }
    if (!zString::string_equal(name, kProbedCodec)) {
        return true;
    }
    works = tnEncoderProbe::Run();
    TCache<bool>::Singleton()->Store(name, now + kAnswerHoldsMs, works);
    return works;
}

}  // namespace

const tnUtils::id_name tnUtils::VendorIDsToString[] = {
    {1452, "Apple"},    {1054, "Creative Labs"}, {1008, "Hewlett Packard"},
    {1133, "Logitech"}, {1118, "Microsoft"},     {0, nullptr},
};

const tnUtils::id_name tnUtils::LogitechProductIDs[] = {
    {2057, "Logitech Webcam Pro 9000"},    {2058, "Logitech Webcam 905"},
    {2063, "Logitech Webcam 120"},         {2071, "Logitech Webcam C100"},
    {2073, "Logitech Webcam C210"},        {2074, "Logitech Webcam C260"},
    {2075, "Logitech HD Webcam C310"},     {2077, "Logitech HD Webcam C510"},
    {2081, "Logitech HD Pro Webcam C910"}, {2083, "Logitech B910 HD Webcam"},
    {2084, "Logitech Webcam C160"},        {2085, "Logitech HD Webcam C270"},
    {2086, "Logitech HD Webcam C525"},     {2092, "Logitech HD Webcam C615"},
    {2093, "Logitech HD Pro Webcam C920"}, {2100, "Logitech BC920 HD Pro Webcam"},
    {2102, "Logitech B525 HD Webcam"},     {2448, "Logitech QuickCam Pro 9000"},
    {2449, "QuickCam Pro for Notebooks"},  {2452, "QuickCam Orbit/Sphere AF"},
    {2469, "Logitech QuickCam 3000"},      {0, nullptr},
};

void tnUtils::Startup() {
    TCache<bool>::Singleton();
}

void tnUtils::Shutdown() {
    TCache<bool>::DeleteSingleton();
}

void tnUtils::ConvertTime(long long microseconds, zString& out, tn_time_type type,
                          const tn_localized_time_strings* strings, bool showAll) {
    char* text = out.Preallocate(kTimeRoom);
    if (text == nullptr) {
        return;
    }
    const Time time = split(microseconds);
    if (type == TN_TIME_HOURS || type == TN_TIME_MINUTES) {
        write_digits(time, text, type, showAll);
    } else if (type == TN_TIME_WORDS && strings != nullptr) {
        append_words(out, time, *strings);
    }
}

int tnUtils::CreateEncoderSummary(const zRecord& tracks, zString& out,
                                  const char* (*localize)(const char*)) {
    if (localize == nullptr) {
        return kNullArgument;
    }
    const EnabledTracks enabled = find_enabled(tracks);
    if (!enabled.fVideo && !enabled.fAudio) {
        out = localize("encoder_no_settings");
        return kNoEnabledTrack;
    }
    if (enabled.fVideo) {
        // A track that names no encoder shows its size alone, behind the blank of the name.
        out.sprintf("%s (%d x %d)", enabled.fVideo->AsCString('mcon', "", nullptr),
                    enabled.fVideo->fWidth.AsInt32(0), enabled.fVideo->fHeight.AsInt32(0));
    }
    if (!enabled.fAudio) {
        return 0;
    }
    zString audio;
    describe_audio(*enabled.fAudio, audio);
    if (enabled.fVideo) {
        out += " ";
        out += audio;
    } else {
        out = audio;
    }
    return 0;
}

unsigned int tnUtils::USBVendorStringToID(const char* name) {
    for (const id_name* vendor = VendorIDsToString; vendor->fId != 0; ++vendor) {
        if (zString::string_equal(vendor->fName, name)) {
            return vendor->fId;
        }
    }
    return 0;
}

const char* tnUtils::USBVendorIDToString(unsigned int id) {
    return name_of(VendorIDsToString, id);
}

const char* tnUtils::USBProductIDToString(unsigned int vendor, unsigned int product) {
    return zString::string_equal(USBVendorIDToString(vendor), "Logitech")
               ? name_of(LogitechProductIDs, product)
               : nullptr;
}

bool tnUtils::IsVideoCodecEnabledWithFlags(unsigned int flags, const char* name) {
    if (!is_working(name)) {
        return false;
    }
    if (flags == 0) {
        return true;
    }
    if (is_one_of(name, {"H.264", "x264", kProbedCodec, "Microsoft H.264"})) {
        return (flags & (0x12u | 0x04u)) != 0;
    }
    if (is_one_of(name, {"ProRes", "MJPEG"})) {
        return (flags & 0x22u) != 0;
    }
    if (zString::string_equal(name, "Windows Media Video 9", 21) ||
        zString::string_equal(name, "Windows Media Video V8", 22)) {
        return (flags & (0x46u | 0x80u)) != 0;
    }
    return true;
}

const char* GetDefaultCodecQuality(const char* name) {
    constexpr struct {
        const char* fName;
        const char* fPreset;
    } kPresets[] = {
        {"x264", "veryfast"},
        {"Intel QuickSync H.264", "quicksync_1"},
        {"NVidia H.264", "nvidia_h264_high_quality"},
        {"ProRes", "ProRes422"},
        {"MJPEG", "veryhigh"},
    };
    for (const auto& preset : kPresets) {
        if (zString::string_equal(name, preset.fName)) {
            return preset.fPreset;
        }
    }
    return "";
}
