#include "display/displayRefreshSource.h"

#include <climits>
#include <numeric>

#include "display/displayDrmSource.h"
#include "display/displayPresentSource.h"
#include "display/displayTimerSource.h"

displayRefreshRate displayRefreshRate::OfMode(long long pixelsPerSecond, long long pixels) {
    return OfMode(pixelsPerSecond, pixels, displayRefreshRate{});
}

displayRefreshRate displayRefreshRate::OfMode(long long pixelsPerSecond, long long pixels,
                                              displayRefreshRate fallback) {
    if (pixelsPerSecond <= 0 || pixels <= 0) return fallback;
    const long long common = std::gcd(pixelsPerSecond, pixels);
    pixelsPerSecond /= common;
    pixels /= common;
    // A scale has 31 bits; the fastest pixel clocks lose a last bit or two of 31.
    while (pixelsPerSecond > INT_MAX) {
        pixelsPerSecond /= 2;
        pixels /= 2;
    }
    return {pixels > 0 ? pixels : 1, static_cast<int>(pixelsPerSecond)};
}

displayRefresh displayRefreshRate::At(long long count, long long realTime) const {
    return {period, timeScale, count * period, realTime};
}

std::unique_ptr<displayRefreshSource> displayRefreshSource::ForMainDisplay() {
    if (auto card = displayDrmSource::ForFirstActiveDisplay()) return card;
    if (auto server = displayPresentSource::ForDefaultScreen()) return server;
    return std::make_unique<displayTimerSource>(displayRefreshRate{});
}
