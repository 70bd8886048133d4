// The converter that writers use, on blocks of 10 ms, beside the least that any converter does: one
// copy of the input. Arguments: bits in, rate in, channels in, bits out, rate out, channels out.
#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>
#include <vector>

#include "tarn/audio/tnAudioConverter.h"

namespace {

tnMediaRecord pcm(long bits, long rate, long channels) {
    tnMediaRecord record(TN_MEDIA_AUDIO);
    record.fBitsPerSample.SetInt32(static_cast<int>(bits));
    record.fSampleRate.SetInt32(static_cast<int>(rate));
    record.fChannels.SetInt32(static_cast<int>(channels));
    return record;
}

void Convert(benchmark::State& state) {
    const std::unique_ptr<tnAudioConverter> converter(tnAudioConverter::Factory());
    const auto in = pcm(state.range(0), state.range(1), state.range(2));
    const auto out = pcm(state.range(3), state.range(4), state.range(5));
    if (converter->Init(in, out) != 0) return state.SkipWithError("no such conversion");
    const auto inBytes =
        static_cast<unsigned int>(state.range(1) / 100 * state.range(2) * state.range(0) / 8);
    std::vector<char> from(inBytes, 1);
    std::vector<char> to(std::size_t{4} * 48000);
    unsigned int frames = 0;
    unsigned int bytes = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(converter->Convert(from.data(), to.data(), inBytes, inBytes,
                                                    static_cast<unsigned int>(to.size()), &frames,
                                                    &bytes));
    }
    state.counters["realtime"] = benchmark::Counter(static_cast<double>(state.iterations()) / 100,
                                                    benchmark::Counter::kIsRate);
}

void Copy(benchmark::State& state) {
    std::vector<char> from(48000 / 100 * 2 * 2, 1);
    std::vector<char> to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
    }
    state.counters["realtime"] = benchmark::Counter(static_cast<double>(state.iterations()) / 100,
                                                    benchmark::Counter::kIsRate);
}

BENCHMARK(Convert)->Args({16, 48000, 2, 16, 48000, 1});
BENCHMARK(Convert)->Args({16, 48000, 8, 16, 48000, 2});
BENCHMARK(Convert)->Args({32, 48000, 2, 16, 48000, 2});
BENCHMARK(Convert)->Args({16, 44100, 2, 16, 48000, 2});
BENCHMARK(Convert)->Args({32, 44100, 2, 16, 48000, 1});
BENCHMARK(Copy);

}  // namespace
