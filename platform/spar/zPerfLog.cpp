#include "spar/zPerfLog.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <time.h>
#include <vector>

#include "spar/zMutex.h"

namespace {

long long now_ns() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// Lives to the very end: variables are function-local statics and leave it at exit.
struct Registry {
    zMutex lock;
    zPerfLog::Variable* first SPAR_GUARDED_BY(lock) = nullptr;
};

Registry& registry() {
    static Registry& theRegistry = *new Registry;
    return theRegistry;
}

std::string line_of(const zPerfLog::Variable& variable) {
    const double unitNs = 1000.0 * static_cast<double>(variable.UnitMicroseconds());
    const auto shown = [&](double percent) {
        return static_cast<double>(variable.PercentileNs(percent)) / unitNs;
    };
    return fmt::format(
        "{:<40} {:>10} {:>12.1f} {:>3}% {:>12.1f} {:>12.1f} {:>12.1f} {:>12.1f}  {} us\n",
        variable.Name(), variable.Count(), variable.MeanNs() / unitNs, variable.Percentile(),
        shown(variable.Percentile()), shown(95), shown(99),
        static_cast<double>(variable.MaximumNs()) / unitNs, variable.UnitMicroseconds());
}

}  // namespace

zPerfLog::zPerfLog(Variable& variable) : fVariable(variable), fStartNs(now_ns()) {}

zPerfLog::~zPerfLog() {
    fVariable.Record(now_ns() - fStartNs);
}

std::string zPerfLog::Table() {
    std::string table =
        fmt::format("{:<40} {:>10} {:>12} {:>4} {:>12} {:>12} {:>12} {:>12}  {}\n", "scope",
                    "count", "mean", "pct", "value", "95%", "99%", "maximum", "unit");
    zMutexLock held(registry().lock);
    std::vector<const Variable*> variables;
    for (const Variable* variable = registry().first; variable != nullptr;
         variable = variable->fNext)
        if (variable->Count() > 0) variables.push_back(variable);
    std::sort(variables.begin(), variables.end(), [](const Variable* a, const Variable* b) {
        return std::strcmp(a->Name(), b->Name()) < 0;
    });
    for (const Variable* variable : variables) table += line_of(*variable);
    return table;
}

void zPerfLog::Reset() {
    zMutexLock held(registry().lock);
    for (Variable* variable = registry().first; variable != nullptr; variable = variable->fNext)
        variable->Reset();
}

zPerfLog::Variable::Variable(const char* name, long long unitMicroseconds, int percentile)
    : fName(name),
      fUnitMicroseconds(std::max(unitMicroseconds, 1LL)),
      fPercentile(std::clamp(percentile, 1, 99)) {
    zMutexLock held(registry().lock);
    fNext = registry().first;
    registry().first = this;
}

zPerfLog::Variable::~Variable() {
    zMutexLock held(registry().lock);
    Variable** place = &registry().first;
    while (*place != this) place = &(*place)->fNext;
    *place = fNext;
}

int zPerfLog::Variable::class_of(std::uint64_t nanoseconds) {
    // Below 64 ns a class each; above, the top bit picks the octave and the next six the class.
    if (nanoseconds < (1u << kStepBits)) return static_cast<int>(nanoseconds);
    const int octave = std::bit_width(nanoseconds) - kStepBits;
    if (octave > kOctaves) return kClasses - 1;
    const auto step = static_cast<int>(nanoseconds >> (octave - 1)) - (1 << kStepBits);
    return (octave << kStepBits) + step;
}

std::uint64_t zPerfLog::Variable::middle_of(int index) {
    const int octave = index >> kStepBits;
    if (octave == 0) return static_cast<std::uint64_t>(index);
    const auto step =
        static_cast<std::uint64_t>(index & ((1 << kStepBits) - 1)) + (1u << kStepBits);
    const std::uint64_t width = std::uint64_t{1} << (octave - 1);
    return step * width + (width - 1) / 2;
}

void zPerfLog::Variable::Record(long long nanoseconds) {
    nanoseconds = std::max(nanoseconds, 0LL);
    const auto relaxed = std::memory_order_relaxed;
    fCounts[static_cast<std::size_t>(class_of(static_cast<std::uint64_t>(nanoseconds)))].fetch_add(
        1, relaxed);
    fSumNs.fetch_add(nanoseconds, relaxed);
    long long maximum = fMaximumNs.load(relaxed);
    while (maximum < nanoseconds &&
           !fMaximumNs.compare_exchange_weak(maximum, nanoseconds, relaxed)) {
    }
}

void zPerfLog::Variable::Reset() {
    for (auto& count : fCounts) count.store(0, std::memory_order_relaxed);
    fSumNs.store(0, std::memory_order_relaxed);
    fMaximumNs.store(0, std::memory_order_relaxed);
}

long long zPerfLog::Variable::Count() const {
    std::uint64_t total = 0;
    for (const auto& count : fCounts) total += count.load(std::memory_order_relaxed);
    return static_cast<long long>(total);
}

double zPerfLog::Variable::MeanNs() const {
    const long long count = Count();
    if (count == 0) return 0;
    return static_cast<double>(fSumNs.load(std::memory_order_relaxed)) / static_cast<double>(count);
}

long long zPerfLog::Variable::MaximumNs() const {
    return fMaximumNs.load(std::memory_order_relaxed);
}

long long zPerfLog::Variable::PercentileNs(double percent) const {
    const long long count = Count();
    if (count == 0) return 0;
    const double share = std::clamp(percent, 0.0, 100.0) / 100;
    const auto rank = std::max<std::uint64_t>(
        1, static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(count))));
    if (rank >= static_cast<std::uint64_t>(count)) return MaximumNs();
    std::uint64_t below = 0;
    for (int index = 0; index < kClasses; ++index) {
        below += fCounts[static_cast<std::size_t>(index)].load(std::memory_order_relaxed);
        if (below >= rank) return std::min(static_cast<long long>(middle_of(index)), MaximumNs());
    }
    return MaximumNs();
}
