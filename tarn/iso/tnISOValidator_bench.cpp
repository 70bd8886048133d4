// What a check costs the host's main thread, with so many outputs beside the one under check.

#include <benchmark/benchmark.h>
#include <string>

#include "spar/zRecord.h"
#include "spar/zThread.h"
#include "tarn/iso/tnISOAccessor.h"
#include "tarn/iso/tnISOValidator.h"

namespace {

void fill(zRecord& outputs, long count) {
    for (long i = 0; i < count; ++i) {
        auto* output = new zRecord;
        const std::string number = std::to_string(1000 + i);
        output->SetString('guid', "5F0C0E5A-29F5-4B5E-9D5C-00000000" + number, 0);
        output->SetString("source_id", "A1B2C3D4-29F5-4B5E-9D5C-00000000" + number, 0);
        output->SetString("output_filename", "camera " + number, 0);
        output->SetCString("output_folder", "/tmp", 0);
        output->SetCString("video_format", "PRORES-MOV", 0);
        outputs.AddChild(output, 0x7FFFFFFF);
    }
}

/// The checks without the folder: what Validate does itself.
void Checks(benchmark::State& state) {
    zRecord outputs;
    fill(outputs, state.range(0));
    outputs.Child(0)->RemoveKey("output_folder");
    tnISOValidator validator(&outputs);
    for (auto _ : state) validator.Validate(*outputs.Child(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Checks)->Arg(10)->Arg(100)->Arg(1000);

/// The same with the thread that asks a local folder.
void ChecksAndFolder(benchmark::State& state) {
    zRecord outputs;
    fill(outputs, state.range(0));
    tnISOValidator validator(&outputs);
    for (auto _ : state) {
        validator.Validate(*outputs.Child(0));
        zThread::DrainMainQueue();
    }
}
BENCHMARK(ChecksAndFolder)->Arg(10)->Arg(1000)->UseRealTime();

}  // namespace
