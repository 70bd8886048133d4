#include <benchmark/benchmark.h>
#include <cstdio>
#include <expat.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "spar/zRecord.h"
#include "spar/zXML.h"
#include "tarn/foundation/tnTarn.h"
#include "tarn/replay/segmentTree.h"
#include "tarn/replay/tnReplayManifest.h"

// How a manifest's operations grow with the segments that it holds. The folder is a temporary one,
// so that files cost what they cost there.

namespace {

constexpr long long kLength = 1000;

class Folder {
public:
    Folder() {
        std::string name = std::filesystem::temp_directory_path() / "replay_bench_XXXXXX";
        fPath = mkdtemp(name.data());
        tnTarn::string_defines();
    }
    ~Folder() { std::filesystem::remove_all(fPath); }
    std::string Manifest() const { return fPath + "/replay.xml"; }
    void MakeMovies(long long count) const {
        for (long long id = 1; id <= count; ++id) {
            std::ofstream(fPath + "/" + std::to_string(id) + ".mov");
        }
    }

private:
    std::string fPath;
};

void add(tnReplayManifest& manifest, long long id) {
    manifest.AddSegment(static_cast<unsigned int>(id), (id - 1) * kLength, id * kLength);
}

void record(tnReplayManifest& manifest, long long count) {
    manifest.BeginRecording(tnMediaRecord(TN_MEDIA_VIDEO), tnMediaRecord(TN_MEDIA_AUDIO));
    for (long long id = 1; id <= count; ++id) add(manifest, id);
}

void AddSegment(benchmark::State& state) {
    const Folder folder;
    tnReplayManifest manifest(folder.Manifest().c_str());
    record(manifest, state.range(0));
    long long id = state.range(0);
    for (auto _ : state) add(manifest, ++id);
}
BENCHMARK(AddSegment)->Arg(10)->Arg(1000)->Arg(100000)->Iterations(2000);

void GetSegmentByTime(benchmark::State& state) {
    const Folder folder;
    tnReplayManifest manifest(folder.Manifest().c_str());
    record(manifest, state.range(0));
    folder.MakeMovies(state.range(0));
    const long long end = state.range(0) * kLength;
    long long time = 0;
    for (auto _ : state) {
        time = (time + 7'777'777) % end;
        tnReplaySegment* const segment = manifest.GetSegmentByTime(time);
        if (segment == nullptr) return state.SkipWithError("not found");
        segment->Release();
    }
}
BENCHMARK(GetSegmentByTime)->Arg(10)->Arg(1000)->Arg(100000);

void LookUpWithoutFileTest(benchmark::State& state) {
    tnReplayManifest::Segments segments;
    for (long long id = 1; id <= state.range(0); ++id) {
        segments.Set(
            new tnReplaySegment(static_cast<unsigned int>(id), (id - 1) * kLength, id * kLength));
    }
    const long long end = state.range(0) * kLength;
    long long time = 0;
    for (auto _ : state) {
        time = (time + 7'777'777) % end;
        tnReplaySegment* const segment = segment_at(segments, time);
        if (segment == nullptr) return state.SkipWithError("not found");
        segment->AddRef();
        segment->Release();
    }
    for (tnReplaySegment* segment : segments) segment->Release();
}
BENCHMARK(LookUpWithoutFileTest)->Arg(10)->Arg(1000)->Arg(100000);

/// All but the last tenth go; their files are missing, so that the remover's thread has little to
/// do beside us.
void DeleteNonActiveSegments(benchmark::State& state) {
    const long long count = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        const Folder folder;
        tnReplayManifest manifest(folder.Manifest().c_str());
        record(manifest, count);
        tnReplayManifest::Segments active;
        state.ResumeTiming();
        manifest.DeleteNonActiveSegments(active, count * kLength * 9 / 10);
        state.PauseTiming();
        for (tnReplaySegment* segment : active) segment->Release();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(DeleteNonActiveSegments)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

constexpr long long kReadSegments = 100000;

/// The manifest of a long recording and its files, made once.
const Folder& long_recording() {
    static const Folder folder;
    static const bool made = [] {
        tnReplayManifest manifest(folder.Manifest().c_str());
        record(manifest, kReadSegments);
        folder.MakeMovies(kReadSegments);
        return true;
    }();
    benchmark::DoNotOptimize(made);
    return folder;
}

std::string text_of(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void Read(benchmark::State& state) {
    const Folder& folder = long_recording();
    for (auto _ : state) {
        auto* const manifest = new tnReplayManifest(folder.Manifest().c_str());
        if (manifest->Read() != 0 || manifest->VideoDuration() != kReadSegments * kLength) {
            return state.SkipWithError("not read");
        }
        state.PauseTiming();
        manifest->Release();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() *
                            static_cast<long long>(text_of(folder.Manifest()).size()));
}
BENCHMARK(Read)->Unit(benchmark::kMillisecond);

/// The part of Read that knows nothing of segments.
void ParseIntoRecord(benchmark::State& state) {
    const Folder& folder = long_recording();
    for (auto _ : state) {
        zRecord record;
        zXML::ParseFile(zXML::kAttributes, &record, folder.Manifest().c_str());
        benchmark::DoNotOptimize(record.ChildCount());
    }
    state.SetBytesProcessed(state.iterations() *
                            static_cast<long long>(text_of(folder.Manifest()).size()));
}
BENCHMARK(ParseIntoRecord)->Unit(benchmark::kMillisecond);

void count_element(void* count, const XML_Char* /*name*/, const XML_Char** /*attributes*/) {
    ++*static_cast<long long*>(count);
}

void BareExpat(benchmark::State& state) {
    const Folder& folder = long_recording();
    const std::string text = text_of(folder.Manifest());
    for (auto _ : state) {
        XML_Parser parser = XML_ParserCreate(nullptr);
        long long count = 0;
        XML_SetUserData(parser, &count);
        XML_SetStartElementHandler(parser, count_element);
        const auto status = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1);
        XML_ParserFree(parser);
        if (status != XML_STATUS_OK || count < kReadSegments) {
            return state.SkipWithError("not parsed");
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(text.size()));
}
BENCHMARK(BareExpat)->Unit(benchmark::kMillisecond);

}  // namespace
