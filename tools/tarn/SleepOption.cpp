#include "SleepOption.h"

#include <charconv>
#include <fmt/format.h>
#include <string_view>

namespace {

constexpr long long kLongestMs = 60'000;  // beyond a minute a show is not slow but hung

struct PointName {
    std::string_view name;
    tnSleeper::InjectionPoint point;
};

constexpr PointName kPoints[] = {
    {"decompressor", tnSleeper::kSleepTaskDecompressor},
    {"renderer", tnSleeper::kSleepRenderer},
};

bool take_milliseconds(std::string_view text, long long& milliseconds) {
    const char* const end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, milliseconds);
    return failure == std::errc() && rest == end && milliseconds >= 0 && milliseconds <= kLongestMs;
}

}  // namespace

bool ParseSleep(const std::string& text, tnSleeper::Configuration& configuration,
                std::string& error) {
    const std::string_view whole = text;
    const std::size_t colon = whole.find(':');
    tnSleeper::Configuration read{tnSleeper::kSleepNone, 0, 0};
    for (const PointName& known : kPoints) {
        if (whole.substr(0, colon) == known.name) read.injectionPoint = known.point;
    }
    if (colon == std::string_view::npos || read.injectionPoint == tnSleeper::kSleepNone) {
        error = fmt::format("'{}': begin it with renderer: or decompressor:", text);
        return false;
    }
    const std::string_view lengths = whole.substr(colon + 1);
    const std::size_t dash = lengths.find('-');
    const std::string_view longest =
        dash == std::string_view::npos ? lengths : lengths.substr(dash + 1);
    if (!take_milliseconds(lengths.substr(0, dash), read.minimum) ||
        !take_milliseconds(longest, read.maximum)) {
        error = fmt::format("'{}': after the point come milliseconds up to {}, such as 40 or 20-80",
                            text, kLongestMs);
        return false;
    }
    configuration = read;
    return true;
}
