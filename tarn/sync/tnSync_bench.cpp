// What the signal and the detectors cost a host: a second of sound, a frame, a block.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <vector>

#include "tarn/sync/tnMetronome.h"
#include "tarn/sync/tnSyncDTMF.h"
#include "tarn/sync/tnSyncVideo.h"
#include "tarn/sync/toneSupport.h"

namespace {

constexpr int kRate = 48000;

/// items_per_second is how many times faster than real time.
void HearOneSecond(benchmark::State& state, const tones::Stereo& second) {
    tnSyncDTMF detector;
    constexpr int kCall = kRate / 40;
    for (auto _ : state) {
        for (int at = 0; at < kRate; at += kCall) {
            benchmark::DoNotOptimize(
                detector.AudioStereoPCM16(at, kRate, second.data() + 2 * at, kCall));
        }
    }
    state.SetItemsProcessed(state.iterations());
}

/// The mains' hum: nothing to be heard, so that every sample is looked at.
void HearHum(benchmark::State& state) {
    tones::Stereo hum = tones::Silence(kRate);
    for (std::size_t i = 0; i < hum.size(); ++i) hum[i] = static_cast<std::int16_t>(i / 960 % 2);
    HearOneSecond(state, hum);
}

void SeeFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = width * 9 / 16;
    const std::vector<unsigned char> frame(static_cast<std::size_t>(width) * height * 2, 100);
    const tnSyncVideo detector;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            detector.FrameSyncOn(0, width, height, '2vuy', width * 2, frame.data(), 0));
    }
}

/// A second with a long pulse, which most of the cost is in.
double second_of_long_pulse() {
    double start = 0;
    double stop = 0;
    int second = 1;
    while (!tnMetronome::SignalOn(second + 0.5, &start, &stop)) ++second;
    return second;
}

void OverlayFrame(benchmark::State& state) {
    constexpr int kRowBytes = 1920 * 4;
    std::vector<unsigned char> frame(static_cast<std::size_t>(kRowBytes) * 64);
    const double time = second_of_long_pulse() + 0.4;
    for (auto _ : state) {
        tnMetronome::VideoOverlay(time, frame.data(), kRowBytes, {'rgba', 1920, 1080});
        benchmark::ClobberMemory();
    }
}

void OverlayBlock(benchmark::State& state, unsigned int format, double after) {
    constexpr int kFrames = 480;
    constexpr signed char kChannels = 8;
    std::vector<float> block(static_cast<std::size_t>(kFrames) * kChannels);
    const double time = second_of_long_pulse() + after;
    for (auto _ : state) {
        tnMetronome::AudioOverlay(time, block.data(), kFrames, {format, kRate, kChannels});
        benchmark::ClobberMemory();
    }
}

void OverlayBlockOfInt16(benchmark::State& state) {
    OverlayBlock(state, 'sowt', 0.4);
}
void OverlayBlockOfFloat(benchmark::State& state) {
    OverlayBlock(state, 'fl32', 0.4);
}
void OverlayBlockBetweenPulses(benchmark::State& state) {
    OverlayBlock(state, 'sowt', 0.9);
}

BENCHMARK(HearHum)->Unit(benchmark::kMicrosecond);
BENCHMARK(SeeFrame)->Arg(1280)->Arg(1920)->Arg(3840);
BENCHMARK(OverlayFrame);
BENCHMARK(OverlayBlockOfInt16);
BENCHMARK(OverlayBlockOfFloat);
BENCHMARK(OverlayBlockBetweenPulses);

}  // namespace
