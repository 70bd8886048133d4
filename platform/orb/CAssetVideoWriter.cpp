#include "orb/CAssetVideoWriter.h"

#include "orb/CContainerReaderVideoProperties.h"
#include "orb/CVideoSample.h"
#include "orb/TrackPipe.h"
#include "orb/filterSupport.h"

namespace Quillon::Orb {

CAssetVideoWriter::CAssetVideoWriter(CVideoProperties* properties)
    : CAssetVideoWriter(kType, properties) {}

CAssetVideoWriter::CAssetVideoWriter(unsigned int type, CVideoProperties* properties)
    : CAssetTrackWriter(type, CVideoSample::kType),
      fProperties(new CContainerReaderVideoProperties(properties)) {}

CVideoProperties* CAssetVideoWriter::GetProperties() {
    return RObject<CVideoProperties>(fProperties).Detach();
}

CValueList<unsigned int>* CAssetVideoWriter::GetInputFormats() {
    return new CValueList<unsigned int>({fProperties->GetFormat()});
}

Result CAssetVideoWriter::SetInputFormat(unsigned int format) {
    if (format == fProperties->GetFormat()) return 0;
    return ResultNotSupported("a track of %s stores nothing else",
                              four_text(fProperties->GetFormat()).c_str());
}

Result CAssetVideoWriter::Begin() {
    return Pipe().Begin(describe_track(*fProperties), std::make_unique<VideoShaper>(*fProperties),
                        nullptr, 0);
}

}  // namespace Quillon::Orb
