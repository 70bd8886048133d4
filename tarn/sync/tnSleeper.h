#pragma once

#include <atomic>
#include <string>

#include "tarn/export.h"

/// Makes one spot of a host's pipeline slow on purpose, so that people see what becomes of the
/// rest.
///
/// The host calls Sleep wherever that may be wanted; a debug setting says at which of these places
/// the calling thread really sleeps, and for how long. No instances; any thread.
class TARN_API tnSleeper {
public:
    /// One point, not a set of bits.
    enum InjectionPoint : int {
        kSleepNone = 0,
        kSleepTaskDecompressor = 1,
        kSleepRenderer = 2,
    };

    struct Configuration {
        InjectionPoint injectionPoint;
        long long minimum;  ///< milliseconds
        long long maximum;  ///< milliseconds
    };

    tnSleeper() = delete;

    /// True if anything changed. Lengths in the wrong order are swapped. The three values change
    /// one by one: who reads or sleeps meanwhile may see old and new ones mixed.
    static bool SetConfiguration(Configuration configuration);
    static Configuration GetConfiguration();

    /// Sleeps for a random length between the two, if `point` is the configured one and the maximum
    /// is a millisecond or more. True if so, also where the drawn length comes to nothing.
    static bool Sleep(InjectionPoint point);

    /// The name for a person; "Undefined" for any other value.
    static std::string InjectionPointName(InjectionPoint point);

private:
    friend struct tnSleeperPeek;

    static long long draw_microseconds(long long minimum, long long maximum);
    static long long nanoseconds_of(long long microseconds);

    static std::atomic<InjectionPoint> gInjectionPoint;
    static std::atomic<long long> gMinimum;
    static std::atomic<long long> gMaximum;
};
