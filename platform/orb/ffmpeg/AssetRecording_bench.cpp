#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"

#include "EncoderTestKit.h"

// What the road through a track costs beside the bare encoder: 1080p pictures go to a file, with
// the encoder on its own thread, and once into the encoder alone on the caller's thread. Counts
// fresh pages and fresh blocks for each frame once the first hundred have passed.

namespace Quillon::Orb {
namespace {

using namespace TestKit;

constexpr int kWarmUp = 100;
constexpr int kFrames = 300;

struct Codec {
    const char* name;
    unsigned int format, compressor;
};
constexpr Codec kCodecs[] = {{"x264", 'h264', 'h264'},
                             {"ProRes", 'apch', 'vtbx'},
                             {"MJPEG", 'jpeg', 'mjpg'},
                             {"Mpeg2", 'mp2v', 'mcm2'}};

Source source_for(CVideoFilter& compressor) {
    Source source{.width = 1920, .height = 1080};
    RObject<CValueList<unsigned int>> formats(compressor.GetInputFormats());
    formats->GetValue(0, source.format);
    return source;
}

void set_up(CVideoFilter& compressor) {
    RObject<CString> preset(new CString("veryfast"));
    compressor.SetProperty(CodeBookProperty::H264Compressor::Preset, preset.Get());
    compressor.SetProperty(CodeBookProperty::H264Compressor::Threads, 4);
    compressor.SetProperty(CodeBookProperty::H264Compressor::BitRate, 10000000);
    compressor.SetProperty(CodeBookProperty::H264Compressor::NumBFrames, 0);
    compressor.SetProperty(CodeBookProperty::VideoCompressor::BitRate, 30000000);
}

Samples draw_pictures(const Source& source) {
    Samples pictures;
    for (int i = 0; i < 8; ++i) pictures.push_back(MakeSample(source, i));
    return pictures;
}

RObject<CVideoSample> picture_at(const Samples& pictures, const Source& source, int number) {
    RObject<CVideoSample> sample(
        new CVideoSample(pictures[static_cast<std::size_t>(number) % pictures.size()].Get()));
    sample->SetTime(number * source.frameDuration);
    return sample;
}

/// Fresh pages and blocks since it was made, for each frame.
class Freshness {
public:
    Freshness() : fFaults(faults()), fBlocks(BlockPool::Shared().GetCounts().fresh) {}
    void Report(benchmark::State& state, int frames) const {
        state.counters["faults/frame"] = static_cast<double>(faults() - fFaults) / frames;
        state.counters["fresh blocks"] =
            static_cast<double>(BlockPool::Shared().GetCounts().fresh - fBlocks);
    }

private:
    static long long faults() {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_minflt;
    }
    long long fFaults;
    long long fBlocks;
};

void BareEncoder(benchmark::State& state) {
    const Codec& codec = kCodecs[state.range(0)];
    state.SetLabel(codec.name);
    RObject<CVideoCompressor> compressor = MakeCompressor(codec.compressor);
    const Source source = source_for(*compressor);
    compressor->SetInputProperties(source.Properties().Get());
    compressor->SetOutputFormat(codec.format);
    set_up(*compressor);
    if (compressor->Begin().Failed()) return state.SkipWithError("no encoder");
    const Samples pictures = draw_pictures(source);
    int number = 0;
    const auto step = [&] {
        compressor->ProcessSample(picture_at(pictures, source, number++).Get());
        Samples out;
        FetchReady(*compressor, out);
    };
    while (number < kWarmUp) step();
    const Freshness fresh;
    for (auto _ : state) step();
    fresh.Report(state, kFrames);
    state.SetItemsProcessed(state.iterations());
    compressor->End();
}
BENCHMARK(BareEncoder)
    ->DenseRange(0, 3)
    ->Iterations(kFrames)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void ThroughATrack(benchmark::State& state) {
    const Codec& codec = kCodecs[state.range(0)];
    state.SetLabel(codec.name);
    char folder[] = "/tmp/orbXXXXXX";
    const std::string path = std::string(mkdtemp(folder)) + "/movie.mov";
    RObject<CAssetWriter> asset(new CAssetWriter());
    RObject<CString> text(new CString(path.c_str()));
    asset->Create('mov ', text.Get());
    RObject<CVideoProperties> shape = Source{.width = 1920, .height = 1080}.Properties();
    shape->SetFormat(codec.format);
    RObject<CAssetVideoCompressor> track(new CAssetVideoCompressor(shape.Get(), codec.compressor));
    RObject<CVideoFilter> compressor(track->GetCompressor());
    const Source source = source_for(*compressor);
    track->SetInputFormat(source.format);
    set_up(*compressor);
    asset->AddVideoWriter(track.Get());
    if (track->Begin().Failed() || asset->Begin().Failed()) return state.SkipWithError("no track");
    const Samples pictures = draw_pictures(source);
    int number = 0;
    const auto step = [&] {
        track->WriteSample(picture_at(pictures, source, number).Get());
        // The queues are part of the road: their content counts as written only at the end.
        if (++number == kWarmUp + kFrames) track->End();
    };
    while (number < kWarmUp) step();
    const Freshness fresh;
    for (auto _ : state) step();
    fresh.Report(state, kFrames);
    state.SetItemsProcessed(state.iterations());
    asset->Finish();
    std::filesystem::remove_all(folder);
}
BENCHMARK(ThroughATrack)
    ->DenseRange(0, 3)
    ->Iterations(kFrames)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

}  // namespace
}  // namespace Quillon::Orb
