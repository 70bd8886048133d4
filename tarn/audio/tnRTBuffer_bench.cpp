// 10 ms of 8 channels of float PCM at 48 kHz, written and read, beside a lock-free ring. The ring
// is a queue: it gives what comes next, while the timed buffer finds a stretch by its time under a
// lock.
#include <atomic>
#include <benchmark/benchmark.h>
#include <boost/lockfree/spsc_queue.hpp>
#include <thread>
#include <vector>

#include "tarn/audio/tnRTBuffer.h"

namespace {

constexpr int kFrames = 480;
constexpr int kFrameBytes = 8 * 4;
constexpr int kBlockBytes = kFrames * kFrameBytes;
constexpr int kBlocksHeld = 16;

void TimedBufferOneThread(benchmark::State& state) {
    tnRTBuffer buffer;
    buffer.Initialize(kBlocksHeld * kBlockBytes);
    std::vector<char> in(kBlockBytes, 1);
    std::vector<char> out(kBlockBytes);
    double time = 0;
    for (auto _ : state) {
        buffer.WriteToBuffer(in.data(), kBlockBytes, 0, 0, time, kFrames, kFrameBytes);
        const int result =
            buffer.ReadFromBuffer(out.data(), kBlockBytes, 0, time, kFrames, kFrameBytes);
        if (result != 0) state.SkipWithError("not read");
        benchmark::DoNotOptimize(out.data());
        time += kFrames;
    }
    state.SetBytesProcessed(state.iterations() * kBlockBytes);
}

void LockFreeRingOneThread(benchmark::State& state) {
    boost::lockfree::spsc_queue<char> ring(2 * kBlocksHeld * kBlockBytes);
    std::vector<char> in(kBlockBytes, 1);
    std::vector<char> out(kBlockBytes);
    for (auto _ : state) {
        ring.push(in.data(), kBlockBytes);
        if (ring.pop(out.data(), kBlockBytes) != kBlockBytes) state.SkipWithError("not read");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * kBlockBytes);
}

/// Lets the writer run at most this many blocks ahead of the reader, in both.
constexpr long long kAhead = kBlocksHeld / 2;

void TimedBufferTwoThreads(benchmark::State& state) {
    tnRTBuffer buffer;
    buffer.Initialize(kBlocksHeld * kBlockBytes);
    std::atomic<long long> read{0};
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        std::vector<char> in(kBlockBytes, 1);
        for (long long block = 0; !ended.load(std::memory_order_relaxed);) {
            if (block - read.load(std::memory_order_acquire) >= kAhead) {
                std::this_thread::yield();
                continue;
            }
            buffer.WriteToBuffer(in.data(), kBlockBytes, 0, 0, static_cast<double>(block * kFrames),
                                 kFrames, kFrameBytes);
            ++block;
        }
    });
    std::vector<char> out(kBlockBytes);
    long long block = 0;
    for (auto _ : state) {
        while (buffer.ReadFromBuffer(out.data(), kBlockBytes, 0,
                                     static_cast<double>(block * kFrames), kFrames,
                                     kFrameBytes) != 0) {
            std::this_thread::yield();
        }
        benchmark::DoNotOptimize(out.data());
        read.store(++block, std::memory_order_release);
    }
    ended = true;
    writer.join();
    state.SetBytesProcessed(state.iterations() * kBlockBytes);
}

void LockFreeRingTwoThreads(benchmark::State& state) {
    boost::lockfree::spsc_queue<char> ring(kAhead * kBlockBytes);
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        std::vector<char> in(kBlockBytes, 1);
        while (!ended.load(std::memory_order_relaxed)) {
            if (ring.write_available() < kBlockBytes) {
                std::this_thread::yield();
                continue;
            }
            ring.push(in.data(), kBlockBytes);
        }
    });
    std::vector<char> out(kBlockBytes);
    for (auto _ : state) {
        while (ring.read_available() < kBlockBytes) std::this_thread::yield();
        ring.pop(out.data(), kBlockBytes);
        benchmark::DoNotOptimize(out.data());
    }
    ended = true;
    writer.join();
    state.SetBytesProcessed(state.iterations() * kBlockBytes);
}

BENCHMARK(TimedBufferOneThread);
BENCHMARK(LockFreeRingOneThread);
BENCHMARK(TimedBufferTwoThreads)->UseRealTime();
BENCHMARK(LockFreeRingTwoThreads)->UseRealTime();

}  // namespace
