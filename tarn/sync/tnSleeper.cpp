#include "tarn/sync/tnSleeper.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <random>
#include <thread>
#include <utility>

namespace {

constexpr const char* kPointNames[] = {"None", "Task Decompressor", "Renderer"};
constexpr int kPoints = 3;

constexpr long long kLongest = std::numeric_limits<long long>::max();

/// Rounds toward zero; what no 64-bit integer holds becomes its largest or smallest value.
long long whole(double value) {
    constexpr double kFar = 9223372036854775808.0;
    if (value >= kFar) return kLongest;
    return value < -kFar ? std::numeric_limits<long long>::min() : static_cast<long long>(value);
}

long long scaled(long long value, long long by) {
    long long product = 0;
    if (!__builtin_mul_overflow(value, by, &product)) return product;
    return value > 0 ? kLongest : std::numeric_limits<long long>::min();
}

}  // namespace

std::atomic<tnSleeper::InjectionPoint> tnSleeper::gInjectionPoint{kSleepNone};
std::atomic<long long> tnSleeper::gMinimum{0};
std::atomic<long long> tnSleeper::gMaximum{0};

bool tnSleeper::SetConfiguration(Configuration configuration) {
    if (configuration.maximum < configuration.minimum) {
        std::swap(configuration.minimum, configuration.maximum);
    }
    bool changed =
        gInjectionPoint.exchange(configuration.injectionPoint) != configuration.injectionPoint;
    changed |= gMinimum.exchange(configuration.minimum) != configuration.minimum;
    changed |= gMaximum.exchange(configuration.maximum) != configuration.maximum;
    return changed;
}

tnSleeper::Configuration tnSleeper::GetConfiguration() {
    return {gInjectionPoint.load(std::memory_order_relaxed),
            gMinimum.load(std::memory_order_relaxed), gMaximum.load(std::memory_order_relaxed)};
}

bool tnSleeper::Sleep(InjectionPoint point) {
    const Configuration now = GetConfiguration();
    // Equal, and not a bit in common: a call at kSleepNone sleeps where a length is set for it.
    if (now.injectionPoint != point || now.maximum < 1 || now.maximum < now.minimum) return false;
    const long long microseconds = draw_microseconds(now.minimum, now.maximum);
    if (microseconds >= 1) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(nanoseconds_of(microseconds)));
    }
    return true;
}

long long tnSleeper::draw_microseconds(long long minimum, long long maximum) {
    if (minimum == maximum) return scaled(minimum, 1000);
    const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
    std::mt19937 engine(static_cast<std::uint32_t>(ticks));
    const double span = static_cast<double>(maximum) - static_cast<double>(minimum);
    const double seconds = std::uniform_real_distribution<double>(0.0, span / 1000.0)(engine);
    return whole(static_cast<double>(minimum) * 1000.0 + seconds * 1e6);
}

/// Lengths beyond what nanoseconds can tell, some 292 years, stay at the longest that they can.
long long tnSleeper::nanoseconds_of(long long microseconds) {
    return scaled(microseconds, 1000);
}

std::string tnSleeper::InjectionPointName(InjectionPoint point) {
    const int index = static_cast<int>(point);
    return index >= 0 && index < kPoints ? kPointNames[index] : "Undefined";
}
