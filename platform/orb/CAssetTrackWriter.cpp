#include "orb/CAssetTrackWriter.h"

#include "orb/TrackPipe.h"

namespace Quillon::Orb {

CAssetTrackWriter::CAssetTrackWriter(unsigned int type, unsigned int kind)
    : CObject(type, nullptr), fPipe(std::make_unique<TrackPipe>(kind)) {}

CAssetTrackWriter::~CAssetTrackWriter() = default;

Result CAssetTrackWriter::End() {
    return fPipe->End();
}
Result CAssetTrackWriter::WriteSample(CMediaSample* sample) {
    return fPipe->Write(sample);
}
bool CAssetTrackWriter::IsReady() const {
    return fPipe->IsReady();
}
long long CAssetTrackWriter::GetBytesWritten() const {
    return fPipe->GetBytesWritten();
}
CContainerWriter* CAssetTrackWriter::GetContainerWriter() const {
    return fPipe->GetContainerWriter();
}

}  // namespace Quillon::Orb
