#include "tarn/iso/tnISOAccessor.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "spar/trace.h"
#include "spar/zRecord.h"

namespace {

constexpr int kLowestKbps = 500;
constexpr int kHighestKbps = 500'000;
constexpr int kDefaultKbps = 10'000;

constexpr int kShortestSeconds = 10;
constexpr int kLongestSeconds = 12 * 3600;
constexpr int kDefaultSeconds = 4 * 3600;

struct Qualities {
    std::string fFormat;
    std::vector<std::string> fOptions;
    std::string fDefault;
};

/// Null for a format that has no named qualities.
const Qualities* qualities_of(std::string const& format) {
    static const std::array<Qualities, 2> kQualities = {{
        {"PRORES-MOV",
         {"prores_422_proxy", "prores_422_lt", "prores_422", "prores_422_hq", "prores_4444"},
         "prores_422_hq"},
        {"MJPEG-MOV", {"mjpeg_low", "mjpeg_medium", "mjpeg_high", "mjpeg_best"}, "mjpeg_high"},
    }};
    for (const Qualities& known : kQualities) {
        if (known.fFormat == format) return &known;
    }
    return nullptr;
}

/// A rate or a time too large for an int is out of range in any case; it must not come back as a
/// small one.
int times(int number, int factor) {
    constexpr long long kLowest = std::numeric_limits<int>::min();
    constexpr long long kHighest = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(static_cast<long long>(number) * factor, kLowest, kHighest));
}

/// A unit, and what one of it is in the unit of the answer.
struct Unit {
    const char* fName;
    int fWorth;
};

constexpr Unit kRateUnits[] = {{"Kbps", 1}, {"Mbps", 1000}};
constexpr Unit kTimeUnits[] = {{"hour", 3600}, {"min", 60}, {"sec", 1}};

/// 0 for a unit that nobody knows.
template <std::size_t Count>
int worth_of(const Unit (&units)[Count], std::string_view name) {
    for (const Unit& unit : units) {
        if (name == unit.fName) return unit.fWorth;
    }
    return 0;
}

/// Neither is empty, and they differ in case at most.
bool is_same_name(zRecord const& one, zRecord const& other, const char* key) {
    const std::string first = one.AsString(key, "");
    const std::string second = other.AsString(key, "");
    if (first.empty() || first.size() != second.size()) return false;
    return std::equal(first.begin(), first.end(), second.begin(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    });
}

}  // namespace

tnISOAccessor::tnISOAccessor(zRecord& record) : fRecord(&record), fWritableRecord(&record) {
    fWritableRecord->SetCString('xTag', "iso_output", 0);
}

tnISOAccessor::tnISOAccessor(zRecord const& record) : fRecord(&record), fWritableRecord(nullptr) {}

bool tnISOAccessor::IsVideoFormatWithQualitySetting() const {
    return qualities_of(fRecord->AsString("video_format", "")) != nullptr;
}

bool tnISOAccessor::IsVideoFormatWithBitrateSetting() const {
    return !IsVideoFormatWithQualitySetting();
}

bool tnISOAccessor::IsVideoFormatWithKeyframeIntervalSetting() const {
    return IsVideoFormatWithBitrateSetting();
}

std::string tnISOAccessor::DefaultVideoQualityForFormat(std::string const& format) {
    const Qualities* known = qualities_of(format);
    return known != nullptr ? known->fDefault : std::string();
}

bool tnISOAccessor::IsVideoQualityOptionForFormat(std::string const& format,
                                                  std::string const& option) {
    const Qualities* known = qualities_of(format);
    return known != nullptr && std::find(known->fOptions.begin(), known->fOptions.end(), option) !=
                                   known->fOptions.end();
}

int tnISOAccessor::ClampBitrateForFormat(std::string const&, int kbps) {
    return std::clamp(kbps, kLowestKbps, kHighestKbps);
}

int tnISOAccessor::VideoBitrateKbps(bool clamp) const {
    const int number = fRecord->AsInt32("video_bitrate", 10);
    const std::string units = fRecord->AsString("video_bitrate_units", "Mbps");
    const int kbps = number > 0 ? times(number, worth_of(kRateUnits, units)) : 0;
    if (kbps > 0) {
        return clamp ? ClampBitrateForFormat(fRecord->AsString("video_format", ""), kbps) : kbps;
    }
    zTrace("unexpected #iso video bitrate: {}{}. using default.\n", number, units);
    return kDefaultKbps;
}

int tnISOAccessor::FileDurationSeconds(bool clamp) const {
    if (fRecord->AsBool("file_duration_maxed", false)) return kLongestSeconds;
    const int number = fRecord->AsInt32("file_duration", 4);
    const int worth = worth_of(kTimeUnits, fRecord->AsString("file_duration_units", "hour"));
    const int seconds = worth != 0 ? times(number, worth) : kDefaultSeconds;
    return clamp ? std::clamp(seconds, kShortestSeconds, kLongestSeconds) : seconds;
}

bool tnISOAccessor::HasSamePath(tnISOAccessor const& other) const {
    return is_same_name(*fRecord, *other.fRecord, "output_filename") &&
           is_same_name(*fRecord, *other.fRecord, "output_folder");
}

bool tnISOAccessor::IsSourceRecording() const {
    return fRecord->AsString("recording_type", "source") == "source";
}

bool tnISOAccessor::IsShotRecording() const {
    return fRecord->AsString("recording_type", "source") == "shot";
}
