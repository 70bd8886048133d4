#include "orb/CAssetAudioCompressor.h"

#include "orb/CComponentInventory.h"
#include "orb/TrackPipe.h"
#include "orb/filterSupport.h"
#include "spar/trace.h"

namespace Quillon::Orb {

namespace {

/// Blocks of sound are small, and come a few at a time.
constexpr std::size_t kQueueSize = 32;

using Inventory = CComponentInventory<CComponentFactory<CAudioCompressor>>;

}  // namespace

CAssetAudioCompressor::CAssetAudioCompressor(CAudioProperties* output, unsigned int compressorCode)
    : CAssetAudioWriter(kType, output), fCompressor(Inventory::CreateInstance(compressorCode)) {
    if (fCompressor) return;
    zTrace("no audio compressor {} in this process\n", four_text(compressorCode));
}

CValueList<unsigned int>* CAssetAudioCompressor::GetInputFormats() {
    return fCompressor ? fCompressor->GetInputFormats() : nullptr;
}

CAudioFilter* CAssetAudioCompressor::GetCompressor() const {
    return RObject<CAudioCompressor>(fCompressor).Detach();
}

Result CAssetAudioCompressor::SetInputFormat(unsigned int format) {
    RObject<CValueList<unsigned int>> formats(GetInputFormats());
    if (!formats || !formats->HasValue(format)) {
        return ResultNotSupported("the compressor does not take %s", four_text(format).c_str());
    }
    RObject<CAudioProperties> input(new CAudioProperties(Properties()));
    if (!input) return ResultOutOfMemory();
    input->SetFormat(format);
    Result result = fCompressor->SetInputProperties(input.Get());
    if (result.Failed()) return result;
    return fCompressor->SetOutputFormat(Properties()->GetFormat());
}

Result CAssetAudioCompressor::Begin() {
    if (!fCompressor) return ResultNotSupported("the track has no compressor");
    if (Pipe().HasBegun()) return ResultError("the track has begun already");
    Result result = fCompressor->Begin();
    if (result.Failed()) return result;
    take_over_output();
    // A pipe that does not take the encoder ends it.
    return Pipe().Begin(describe_track(*Properties()), std::make_unique<AudioShaper>(*Properties()),
                        std::make_unique<FilterCodec<CAudioCompressor>>(fCompressor), kQueueSize);
}

// What the encoder knows of its stream goes into the file with the track's own description.
void CAssetAudioCompressor::take_over_output() {
    RObject<CAudioProperties> output(fCompressor->GetOutputProperties(0));
    if (!output) return;
    Properties()->SetFramesPerPacket(output->GetFramesPerPacket());
    Properties()->SetPrimingFrames(output->GetPrimingFrames());
    Properties()->SetBitRate(output->GetBitRate());
    RObject<CDecoderSpecificProperties> extension(
        output->GetExtension(CDecoderSpecificProperties::kType));
    if (extension) Properties()->SetExtension(CDecoderSpecificProperties::kType, extension.Get());
}

}  // namespace Quillon::Orb
