#include "orb/CAssetAudioWriter.h"

#include "orb/CAudioSample.h"
#include "orb/CContainerReaderAudioProperties.h"
#include "orb/TrackPipe.h"
#include "orb/filterSupport.h"

namespace Quillon::Orb {

CAssetAudioWriter::CAssetAudioWriter(CAudioProperties* properties)
    : CAssetAudioWriter(kType, properties) {}

CAssetAudioWriter::CAssetAudioWriter(unsigned int type, CAudioProperties* properties)
    : CAssetTrackWriter(type, CAudioSample::kType),
      fProperties(new CContainerReaderAudioProperties(properties)) {}

CAudioProperties* CAssetAudioWriter::GetProperties() {
    return RObject<CAudioProperties>(fProperties).Detach();
}

CValueList<unsigned int>* CAssetAudioWriter::GetInputFormats() {
    return new CValueList<unsigned int>({fProperties->GetFormat()});
}

Result CAssetAudioWriter::SetInputFormat(unsigned int format) {
    if (format == fProperties->GetFormat()) return 0;
    return ResultNotSupported("a track of %s stores nothing else",
                              four_text(fProperties->GetFormat()).c_str());
}

Result CAssetAudioWriter::Begin() {
    return Pipe().Begin(describe_track(*fProperties), std::make_unique<AudioShaper>(*fProperties),
                        nullptr, 0);
}

}  // namespace Quillon::Orb
