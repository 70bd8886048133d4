#include "orb/CVideoFilter.h"

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "orb/CVideoCompressor.h"
#include "orb/CodeBookProperty.h"
#include "orb/filterSupport.h"

namespace Quillon::Orb {

CVideoFilter::CVideoFilter(unsigned int type) : CObject(type, nullptr) {
    DeclareFour(CodeBookProperty::MediaFilter::OutputFormat, 0);
}

Result CVideoFilter::PutSample(int, CMediaSample* sample) {
    if (sample && !sample->IsType(CVideoSample::kType)) {
        return ResultInvalidArgument("not a picture");
    }
    return ProcessSample(static_cast<CVideoSample*>(sample));
}

Result CVideoFilter::GetSample(int, RObject<CMediaSample>& sample) {
    RObject<CVideoSample> picture;
    Result result = ReceiveSample(picture);
    sample = picture;
    return result;
}

Result CVideoFilter::TransformSample(CVideoSample* in, int, RObject<CVideoSample>& out, int*,
                                     int*) {
    Result result = ProcessSample(in);
    return result.Failed() ? result : ReceiveSample(out);
}

Result CVideoFilter::CreateSample(const CVideoProperties* properties, CVideoSample*& sample) {
    sample = nullptr;
    if (!properties) return ResultNullPointer();
    const int stride = properties->GetStride(1);
    const int length = properties->GetSampleLength(1);
    if (stride < 1 || length < 1) return ResultInvalidArgument("pixels of no size");
    RObject<CByteArray> bytes(new CByteArray(length, 1));
    if (!bytes || bytes->GetLength() != length) return ResultOutOfMemory();
    RObject<CPixelBufferDataReference> pixels(new CPixelBufferDataReference(
        bytes.Get(), properties->GetWidth(), properties->GetHeight(), stride));
    if (!pixels) return ResultOutOfMemory();
    RObject<CVideoSample> made(new CVideoSample(0, properties->GetFrameDuration(), 0));
    if (!made) return ResultOutOfMemory();
    made->SetDataReference(pixels.Get());
    sample = made.Detach();
    return 0;
}

Result CVideoFilter::AcceptProperty(const PropertyName& name, const PropertyValue& value) {
    return accept_output_format(*this, name, value);
}

std::string CVideoFilter::GetOwnerName() const {
    return four_text(GetType());
}

CVideoCompressor::CVideoCompressor(unsigned int type) : CTransformFilterT<CVideoFilter>(type) {
    DeclareReadOnlyFlag(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, false);
}

}  // namespace Quillon::Orb
