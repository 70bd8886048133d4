#include "TextUnits.h"

#include <cmath>
#include <fmt/format.h>

std::string TextOfBytes(long long bytes) {
    constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB"};
    if (bytes < 1000) return fmt::format("{} bytes", bytes);
    double value = static_cast<double>(bytes) / 1000;
    int unit = 0;
    while (value >= 999.5 && unit < 3) {
        value /= 1000;
        ++unit;
    }
    return value < 10 ? fmt::format("{:.1f} {}", value, kUnits[unit])
                      : fmt::format("{:.0f} {}", value, kUnits[unit]);
}

std::string TextOfSeconds(double seconds) {
    // Less than a tenth, as of a single frame, is not nothing.
    const long long hundredths = std::llround(std::fabs(seconds) * 100);
    if (hundredths > 0 && hundredths < 10) {
        return fmt::format("{}0:00.{:02}", seconds < 0 ? "-" : "", hundredths);
    }
    const long long tenths = std::llround(std::fabs(seconds) * 10);
    const long long whole = tenths / 10;
    const char* sign = seconds < 0 && tenths > 0 ? "-" : "";
    if (whole >= 3600) {
        return fmt::format("{}{}:{:02}:{:02}.{}", sign, whole / 3600, whole / 60 % 60, whole % 60,
                           tenths % 10);
    }
    return fmt::format("{}{}:{:02}.{}", sign, whole / 60, whole % 60, tenths % 10);
}
