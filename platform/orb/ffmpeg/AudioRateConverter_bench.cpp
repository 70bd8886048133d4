// 'asrc' and 'afc ' beside the libraries that they stand on, called bare, on stereo blocks of 10 ms
// and 100 ms. Arguments: input rate, output rate, block in milliseconds. "realtime" is seconds of
// sound a second of processor time.
#include <benchmark/benchmark.h>
#include <soxr.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <cmath>
#include <vector>

#include "orb/CAudioConverter.h"
#include "orb/CBufferDataReference.h"
#include "orb/CByteArray.h"
#include "orb/CComponentInventory.h"
#include "orb/CodeBookProperty.h"

namespace Quillon::Orb {
namespace {

constexpr unsigned int kFloat = CAudioProperties::kFloat32Little;
constexpr int kChannels = 2;

std::vector<float> noise_like(int frames) {
    std::vector<float> samples(static_cast<std::size_t>(frames) * kChannels);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = 0.4f * std::sin(static_cast<float>(i % 997)) +
                     0.3f * std::sin(static_cast<float>(i) * 0.013f);
    }
    return samples;
}

RObject<CAudioConverter> begun(unsigned int code, unsigned int from, int inputRate, unsigned int to,
                               int outputRate) {
    RObject<CAudioConverter> converter(
        CComponentInventory<CComponentFactory<CAudioConverter>>::CreateInstance(code));
    const RObject<CAudioProperties> input(new CAudioProperties(nullptr));
    input->SetFormat(from);
    input->SetChannels(kChannels);
    input->SetSampleRate(inputRate);
    converter->SetInputProperties(input.Get());
    if (code == 'asrc')
        converter->SetProperty(CodeBookProperty::AudioConverter::SampleRate, outputRate);
    converter->SetOutputFormat(to);
    return converter->Begin().Succeeded() ? converter : nullptr;
}

/// One block through a component as tnAudioConverter_orb passes it.
bool pass(CAudioConverter& converter, void* data, std::size_t length, int frames) {
    const RObject<CByteArray> bytes(
        new CByteArray(static_cast<int>(length), static_cast<unsigned char*>(data), nullptr));
    const RObject<CBufferDataReference> reference(new CBufferDataReference(bytes.Get()));
    const RObject<CAudioSample> sample(new CAudioSample(frames));
    sample->SetDataReference(reference.Get());
    RObject<CMediaSample> out;
    if (converter.PutSample(0, sample.Get()).Failed() || converter.GetSample(0, out).Failed())
        return false;
    benchmark::DoNotOptimize(out.Get());
    return true;
}

void tell(benchmark::State& state, int frames, int rate) {
    state.counters["realtime"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * frames / rate, benchmark::Counter::kIsRate);
}

void RateComponent(benchmark::State& state) {
    const int inputRate = static_cast<int>(state.range(0));
    const int frames = inputRate * static_cast<int>(state.range(2)) / 1000;
    const auto converter =
        begun('asrc', kFloat, inputRate, kFloat, static_cast<int>(state.range(1)));
    std::vector<float> in = noise_like(frames);
    for (auto _ : state) {
        if (!pass(*converter, in.data(), in.size() * sizeof(float), frames))
            state.SkipWithError("failed");
    }
    tell(state, frames, inputRate);
}

void RateBareSoxr(benchmark::State& state) {
    const int inputRate = static_cast<int>(state.range(0));
    const int outputRate = static_cast<int>(state.range(1));
    const int frames = inputRate * static_cast<int>(state.range(2)) / 1000;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_t filter = soxr_create(inputRate, outputRate, kChannels, nullptr, &io, &quality, &runtime);
    const std::vector<float> in = noise_like(frames);
    std::vector<float> out((static_cast<std::size_t>(frames) * 8 + 8192) * kChannels);
    for (auto _ : state) {
        std::size_t taken = 0;
        std::size_t given = 0;
        soxr_process(filter, in.data(), static_cast<std::size_t>(frames), &taken, out.data(),
                     out.size() / kChannels, &given);
        benchmark::DoNotOptimize(out.data());
    }
    soxr_delete(filter);
    tell(state, frames, inputRate);
}

void RateBegin(benchmark::State& state) {
    const auto converter = begun('asrc', kFloat, static_cast<int>(state.range(0)), kFloat,
                                 static_cast<int>(state.range(1)));
    for (auto _ : state) benchmark::DoNotOptimize(converter->Begin().Succeeded());
}

void FormatComponent(benchmark::State& state) {
    const int frames = 48000 * static_cast<int>(state.range(0)) / 1000;
    const auto converter = begun('afc ', kFloat, 48000, 'sowt', 48000);
    std::vector<float> in = noise_like(frames);
    for (auto _ : state) {
        if (!pass(*converter, in.data(), in.size() * sizeof(float), frames))
            state.SkipWithError("failed");
    }
    tell(state, frames, 48000);
}

void FormatBareSwresample(benchmark::State& state) {
    const int frames = 48000 * static_cast<int>(state.range(0)) / 1000;
    AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    SwrContext* filter = nullptr;
    swr_alloc_set_opts2(&filter, &stereo, AV_SAMPLE_FMT_S16, 48000, &stereo, AV_SAMPLE_FMT_FLT,
                        48000, 0, nullptr);
    swr_init(filter);
    const std::vector<float> in = noise_like(frames);
    std::vector<short> out(in.size());
    for (auto _ : state) {
        const auto* from = reinterpret_cast<const unsigned char*>(in.data());
        auto* to = reinterpret_cast<unsigned char*>(out.data());
        benchmark::DoNotOptimize(swr_convert(filter, &to, frames, &from, frames));
        benchmark::DoNotOptimize(out.data());
    }
    swr_free(&filter);
    tell(state, frames, 48000);
}

void pairs_of_rates(benchmark::internal::Benchmark* bench) {
    for (const int milliseconds : {10, 100}) {
        bench->Args({44100, 48000, milliseconds});
        bench->Args({48000, 44100, milliseconds});
        bench->Args({96000, 48000, milliseconds});
        bench->Args({32000, 48000, milliseconds});
    }
}

BENCHMARK(RateComponent)->Apply(pairs_of_rates);
BENCHMARK(RateBareSoxr)->Apply(pairs_of_rates);
BENCHMARK(RateBegin)->Args({44100, 48000});
BENCHMARK(FormatComponent)->Arg(10)->Arg(100);
BENCHMARK(FormatBareSwresample)->Arg(10)->Arg(100);

}  // namespace
}  // namespace Quillon::Orb
