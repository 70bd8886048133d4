#include "orb/CAssetVideoCompressor.h"

#include <initializer_list>
#include <utility>

#include "orb/CComponentInventory.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/TrackPipe.h"
#include "orb/filterSupport.h"
#include "spar/trace.h"

namespace Quillon::Orb {

namespace {

/// Raw pictures are large: enough for the encoder never to wait for the host's thread, and no more.
constexpr std::size_t kQueueSize = 2;

using Inventory = CComponentInventory<CComponentFactory<CVideoCompressor>>;

}  // namespace

CAssetVideoCompressor::CAssetVideoCompressor(CVideoProperties* output, unsigned int compressorCode)
    : CAssetVideoWriter(kType, output), fCompressor(Inventory::CreateInstance(compressorCode)) {
    if (!fCompressor) {
        zTrace("no video compressor {} in this process\n", four_text(compressorCode));
        return;
    }
    // What a compressor takes may hang on what it shall give. A refusal comes back, and is
    // answered for, in SetInputFormat.
    if (Properties()->GetFormat()) fCompressor->SetOutputFormat(Properties()->GetFormat());
}

CValueList<unsigned int>* CAssetVideoCompressor::GetInputFormats() {
    return fCompressor ? fCompressor->GetInputFormats() : nullptr;
}

CVideoFilter* CAssetVideoCompressor::GetCompressor() const {
    return RObject<CVideoCompressor>(fCompressor).Detach();
}

Result CAssetVideoCompressor::SetInputFormat(unsigned int format) {
    RObject<CValueList<unsigned int>> formats(GetInputFormats());
    if (!formats || !formats->HasValue(format)) {
        return ResultNotSupported("the compressor does not take %s", four_text(format).c_str());
    }
    RObject<CVideoProperties> input(new CVideoProperties(Properties()));
    if (!input) return ResultOutOfMemory();
    input->SetFormat(format);
    Result result = fCompressor->SetInputProperties(input.Get());
    if (result.Failed()) return result;
    return fCompressor->SetOutputFormat(Properties()->GetFormat());
}

Result CAssetVideoCompressor::Begin() {
    if (!fCompressor) return ResultNotSupported("the track has no compressor");
    if (Pipe().HasBegun()) return ResultError("the track has begun already");
    Result result = fCompressor->Begin();
    if (result.Failed()) return result;
    const RObject<CVideoProperties> output(fCompressor->GetOutputProperties(0));
    if (output) take_over(*output);
    MovieTrack description = describe_track(*Properties());
    // An encoder that cannot say full range gives limited. The track's own properties stay: they
    // are what its pictures come in.
    if (output) {
        description.colour.fullRange = output->GetVideoRange() == CVideoProperties::kFullRange;
    }
    // A pipe that does not take the encoder ends it.
    return Pipe().Begin(std::move(description), std::make_unique<VideoShaper>(*Properties()),
                        std::make_unique<FilterCodec<CVideoCompressor>>(fCompressor), kQueueSize);
}

// What the encoder knows of its stream goes into the file with the track's own description.
void CAssetVideoCompressor::take_over(const CVideoProperties& output) {
    if (output.GetReorderDepth() >= 0) Properties()->SetReorderDepth(output.GetReorderDepth());
    for (const unsigned int key : {CMpeg4AvcProperties::kType, CDecoderSpecificProperties::kType}) {
        RObject<CDecoderSpecificProperties> extension(output.GetExtension(key));
        if (extension) Properties()->SetExtension(key, extension.Get());
    }
}

}  // namespace Quillon::Orb
