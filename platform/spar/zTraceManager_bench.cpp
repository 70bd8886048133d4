// What a trace line and a timed scope cost the thread that passes through them.
#include <benchmark/benchmark.h>
#include <chrono>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>
#include <vector>

#include "spar/trace.h"
#include "spar/zPerfLog.h"
#include "spar/zTraceManager.h"

namespace {

class Nowhere : public zTraceManager {
public:
    void TraceMessage(int, const std::string& text) override {
        benchmark::DoNotOptimize(text.data());
    }
};

void trace_line(benchmark::State& state, zTraceManager* sink) {
    zTraceManager* before = zTraceManager::SetDefault(sink);
    for (auto iteration : state) {
        (void)iteration;
        zTrace("Configuring Encoder: {} {}x{}, colorspace: {}, HasGPUBuffer: {}\n", "x264", 1920,
               1080, "I420", "false");
    }
    zTraceManager::SetDefault(before);
}

void trace_to_nowhere(benchmark::State& state) {
    Nowhere nowhere;
    trace_line(state, &nowhere);
}

void trace_switched_off(benchmark::State& state) {
    trace_line(state, nullptr);
}

void trace_to_file(benchmark::State& state) {
    const int before = dup(STDERR_FILENO);
    const int file = open("/tmp/spar_trace_bench", O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    dup2(file, STDERR_FILENO);
    trace_line(state, zTraceManager::StandardError());
    dup2(before, STDERR_FILENO);
    close(before);
    close(file);
    unlink("/tmp/spar_trace_bench");
}

void timed_scope(benchmark::State& state) {
    static zPerfLog::Variable variable("bench", 1, 50);
    for (auto iteration : state) {
        (void)iteration;
        zPerfLog timing(variable);
    }
}

/// The floor: the two readings of the clock that any timing takes.
void two_clock_readings(benchmark::State& state) {
    for (auto iteration : state) {
        (void)iteration;
        benchmark::DoNotOptimize(std::chrono::steady_clock::now());
        benchmark::DoNotOptimize(std::chrono::steady_clock::now());
    }
}

/// The plain way to have percentiles: keep every duration, under a lock.
void scope_into_a_locked_vector(benchmark::State& state) {
    static std::mutex lock;
    static std::vector<long long> durations;
    if (state.thread_index() == 0) durations.clear();
    for (auto iteration : state) {
        (void)iteration;
        const auto start = std::chrono::steady_clock::now();
        const auto length = std::chrono::steady_clock::now() - start;
        const std::lock_guard<std::mutex> held(lock);
        durations.push_back(length.count());
    }
}

void record_alone(benchmark::State& state) {
    static zPerfLog::Variable variable("bench_record", 1, 50);
    long long duration = 0;
    for (auto iteration : state) {
        (void)iteration;
        variable.Record(duration++ & 0xFFFF);
    }
}

}  // namespace

BENCHMARK(trace_switched_off);
BENCHMARK(trace_to_nowhere);
BENCHMARK(trace_to_file);
BENCHMARK(two_clock_readings);
BENCHMARK(timed_scope)->ThreadRange(1, 2);
BENCHMARK(scope_into_a_locked_vector)->ThreadRange(1, 2);
BENCHMARK(record_alone)->ThreadRange(1, 2);
