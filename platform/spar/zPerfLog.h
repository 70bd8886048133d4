#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "spar/export.h"

/// Times a scope against a variable:
///
///     static zPerfLog::Variable closing("tnWriteORB2_Close", 1, 50);
///     zPerfLog timing(closing);
///
/// Costs two readings of the clock, two relaxed additions and a look at the maximum; any number of
/// threads may time against one variable.
class SPAR_API zPerfLog {
public:
    class Variable;

    explicit zPerfLog(Variable& variable);
    ~zPerfLog();
    zPerfLog(const zPerfLog&) = delete;
    zPerfLog& operator=(const zPerfLog&) = delete;

    /// All variables that have measured something, one a line under a heading, in order of their
    /// names: count, mean, the variable's own percentile, 95th, 99th, maximum, and the unit.
    static std::string Table();
    /// Forgets all measurements of all variables.
    static void Reset();

private:
    Variable& fVariable;
    long long fStartNs;
};

/// A named measurement: count, mean, maximum and percentiles of what was recorded.
///
/// Durations fall into classes that are 1/64 of their size wide, so a percentile is right to within
/// 1 percent; count, mean and maximum are exact. Built once, as a function-local static; lasts as
/// long as scopes time against it. Readings during recording are each right for some moment of
/// late.
class SPAR_API zPerfLog::Variable {
public:
    /// `name` is not copied. `unitMicroseconds` is what the table counts in: 1 for microseconds,
    /// 1000 for milliseconds. `percentile`, 1 to 99, is the one that the table shows first: 50 is
    /// the median.
    Variable(const char* name, long long unitMicroseconds, int percentile);
    ~Variable();
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

    /// Adds one duration; a negative one counts as 0.
    void Record(long long nanoseconds);
    void Reset();

    long long Count() const;
    double MeanNs() const;
    long long MaximumNs() const;
    /// The duration that `percent` (0 to 100) of all recorded ones do not exceed: the nearest rank.
    /// 0 when nothing has been recorded.
    long long PercentileNs(double percent) const;

    const char* Name() const { return fName; }
    long long UnitMicroseconds() const { return fUnitMicroseconds; }
    int Percentile() const { return fPercentile; }

private:
    friend class zPerfLog;

    static constexpr int kStepBits = 6;  // 64 classes an octave
    static constexpr int kOctaves = 40;  // up to 2^45 ns, ten hours
    static constexpr int kClasses = (kOctaves + 1) << kStepBits;

    static int class_of(std::uint64_t nanoseconds);
    static std::uint64_t middle_of(int index);

    // fixed after construction
    const char* const fName;
    const long long fUnitMicroseconds;
    const int fPercentile;
    Variable* fNext = nullptr;  // guarded by the list of all variables

    // any thread
    std::atomic<long long> fSumNs{0};
    std::atomic<long long> fMaximumNs{0};
    std::array<std::atomic<std::uint64_t>, kClasses> fCounts{};
};
