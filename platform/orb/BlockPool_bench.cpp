#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <sys/resource.h>
#include <vector>

#include "orb/BlockPool.h"

// A frame is copied into a block, stays in a queue and is given back: through the pool, and as one
// would do it otherwise. The queue fills to eight and empties again, as it does when an encoder
// stalls and catches up. Counts the fresh pages that each frame touches.
// The argument is the frame's size: 1080p 4:2:2 and 2160p BGRA.

namespace Quillon::Orb {
namespace {

constexpr long long kHd = 1920LL * 2 * 1080;
constexpr long long kUhd = 3840LL * 4 * 2160;
constexpr std::size_t kInFlight = 8;

long long minor_faults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

template <class Take, class Give>
void copy_frames(benchmark::State& state, Take take, Give give) {
    const std::size_t bytes = static_cast<std::size_t>(state.range(0));
    const std::vector<unsigned char> frame(bytes, 7);
    std::deque<unsigned char*> queue;
    bool draining = false;
    const auto step = [&] {
        unsigned char* block = take(bytes);
        std::memcpy(block, frame.data(), bytes);
        benchmark::DoNotOptimize(block[bytes / 2]);
        queue.push_back(block);
        if (queue.size() >= kInFlight) draining = true;
        for (int given = 0; draining && given < 2 && !queue.empty(); ++given) {
            give(queue.front());
            queue.pop_front();
        }
        if (queue.empty()) draining = false;
    };
    for (std::size_t i = 0; i < 4 * kInFlight; ++i) step();
    const long long before = minor_faults();
    for (auto _ : state) step();
    state.counters["faults/frame"] = benchmark::Counter(
        static_cast<double>(minor_faults() - before) / static_cast<double>(state.iterations()));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(bytes));
    while (!queue.empty()) {
        give(queue.front());
        queue.pop_front();
    }
}

void FramesInPool(benchmark::State& state) {
    BlockPool pool;
    copy_frames(
        state, [&](std::size_t bytes) { return pool.Take(bytes); },
        [&](unsigned char* block) { pool.Give(block); });
}
BENCHMARK(FramesInPool)->Arg(kHd)->Arg(kUhd);

void FramesInMalloc(benchmark::State& state) {
    copy_frames(
        state, [](std::size_t bytes) { return static_cast<unsigned char*>(std::malloc(bytes)); },
        [](unsigned char* block) { std::free(block); });
}
BENCHMARK(FramesInMalloc)->Arg(kHd)->Arg(kUhd);

void FramesInAlignedAlloc(benchmark::State& state) {
    copy_frames(
        state,
        [](std::size_t bytes) {
            return static_cast<unsigned char*>(std::aligned_alloc(64, (bytes + 63) & ~63u));
        },
        [](unsigned char* block) { std::free(block); });
}
BENCHMARK(FramesInAlignedAlloc)->Arg(kHd)->Arg(kUhd);

void FramesInZeroedVector(benchmark::State& state) {
    copy_frames(
        state, [](std::size_t bytes) { return new unsigned char[bytes](); },
        [](unsigned char* block) { delete[] block; });
}
BENCHMARK(FramesInZeroedVector)->Arg(kHd)->Arg(kUhd);

void TakeAndGive(benchmark::State& state) {
    BlockPool pool;
    for (auto _ : state) pool.Give(pool.Take(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(TakeAndGive)->Arg(6400)->Arg(200000)->Arg(4147200)->ThreadRange(1, 2);

}  // namespace
}  // namespace Quillon::Orb
