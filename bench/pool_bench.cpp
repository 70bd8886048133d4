// Taking entries from a pool and giving them back: zPool, and stream buffers with their counted
// writing reference, beside libavutil's buffer pool.
//
// One iteration takes N entries and returns them in the order of taking; two threads share one
// pool.
#include <benchmark/benchmark.h>
#include <memory>
#include <vector>

#include "spar/zPool.h"
#include "tarn/movies/tnStreamBufferGroup.h"

extern "C" {
#include <libavutil/buffer.h>
}

namespace {

constexpr int kMostEntries = 64;
constexpr int kMostThreads = 2;

struct Block {
    unsigned char fBytes[64];
};

class OurPool {
public:
    using Handle = Block*;

    OurPool() {
        for (int i = 0; i < kMostEntries * kMostThreads; ++i) fPool.Add(new Block);
    }
    Handle Take() {
        Handle block = nullptr;
        fPool.Get(&block);
        return block;
    }
    void Return(Handle& block) { fPool.Return(block); }

private:
    zPool<Block> fPool;
};

/// As frames travel: taken, referenced by the writer, and back with the last reference.
class StreamBuffers {
public:
    using Handle = tnStreamBuffer*;

    StreamBuffers() { fGroup.CreateBuffers(kMostEntries * kMostThreads, sizeof(Block), true); }
    Handle Take() {
        Handle buffer = nullptr;
        fGroup.GetBuffer(&buffer, false);
        buffer->AddWritingRef();
        return buffer;
    }
    void Return(Handle& buffer) { buffer->ReleaseWriting(); }

private:
    tnStreamBufferGroup fGroup;
};

class TheirPool {
public:
    using Handle = AVBufferRef*;

    TheirPool() : fPool(av_buffer_pool_init(sizeof(Block), nullptr)) {
        // All of its entries exist before the clock runs, as ours do.
        std::vector<Handle> all;
        for (int i = 0; i < kMostEntries * kMostThreads; ++i) all.push_back(Take());
        for (Handle& buffer : all) Return(buffer);
    }
    ~TheirPool() { av_buffer_pool_uninit(&fPool); }
    Handle Take() { return av_buffer_pool_get(fPool); }
    void Return(Handle& buffer) { av_buffer_unref(&buffer); }

private:
    AVBufferPool* fPool;
};

template <class Pool>
void take_and_return(benchmark::State& state) {
    static Pool pool;
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<typename Pool::Handle> taken(count);
    for (auto iteration : state) {
        (void)iteration;
        for (auto& entry : taken) entry = pool.Take();
        benchmark::DoNotOptimize(taken.data());
        for (auto& entry : taken) pool.Return(entry);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// The position of the lowest free entry is found as fast in a large pool as in a small one.
void take_the_last_of(benchmark::State& state) {
    zPool<Block> pool;
    const auto size = static_cast<int>(state.range(0));
    Block* block = nullptr;
    for (int i = 0; i < size; ++i) {
        pool.Add(new Block);
        if (i < size - 1) pool.Get(&block);
    }
    for (auto iteration : state) {
        (void)iteration;
        pool.Get(&block);
        pool.Return(block);
    }
}

}  // namespace

BENCHMARK(take_and_return<OurPool>)->RangeMultiplier(4)->Range(1, kMostEntries);
BENCHMARK(take_and_return<StreamBuffers>)->RangeMultiplier(4)->Range(1, kMostEntries);
BENCHMARK(take_and_return<TheirPool>)->RangeMultiplier(4)->Range(1, kMostEntries);
BENCHMARK(take_and_return<OurPool>)
    ->RangeMultiplier(4)
    ->Range(1, kMostEntries)
    ->Threads(kMostThreads)
    ->UseRealTime();
BENCHMARK(take_and_return<StreamBuffers>)
    ->RangeMultiplier(4)
    ->Range(1, kMostEntries)
    ->Threads(kMostThreads)
    ->UseRealTime();
BENCHMARK(take_and_return<TheirPool>)
    ->RangeMultiplier(4)
    ->Range(1, kMostEntries)
    ->Threads(kMostThreads)
    ->UseRealTime();
BENCHMARK(take_the_last_of)->RangeMultiplier(16)->Range(1, 65536);
