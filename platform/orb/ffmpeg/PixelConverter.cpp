#include "PixelConverter.h"

#include <utility>

#include "orb/CComponentInventory.h"
#include "orb/VideoFormat.h"
#include "orb/filterSupport.h"

#include "RawPicture.h"
#include "VideoShape.h"

namespace Quillon::Orb {

namespace {

constexpr int kFirstHdHeight = 720;

// Code points of ISO/IEC 23091-2.
constexpr int kMatrixIdentity = 0;
constexpr int kMatrixBt709 = 1;
constexpr int kMatrixBt470Bg = 5;
constexpr int kMatrixSt170M = 6;

/// The raw formats of the media library; the rest are for our own components.
CValueList<unsigned int>* list_formats() {
    RObject<CValueList<unsigned int>> list(new CValueList<unsigned int>());
    if (!list) return nullptr;
    int count = 0;
    const unsigned int* codes = AllPixelFormats(count);
    for (int i = 0; i < count; ++i) {
        if (VideoFormat::IsRaw(codes[i])) list->AddValue(codes[i]);
    }
    return list.Detach();
}

bool is_picture(const CVideoProperties& properties) {
    return properties.GetWidth() <= kLargestSide && properties.GetHeight() <= kLargestSide &&
           properties.GetSampleLength(1) > 0;
}

bool is_public(unsigned int format) {
    return VideoFormat::IsRaw(format) && FindPixelFormat(format);
}

}  // namespace

Result ReadPixelColour(const CVideoProperties& properties, PixelColour& colour) {
    switch (properties.GetColorSpace().GetMatrix()) {
        case kMatrixBt709:
            colour.matrix = PixelMatrix::Bt709;
            break;
        case kMatrixBt470Bg:
        case kMatrixSt170M:
            colour.matrix = PixelMatrix::Bt601;
            break;
        case kMatrixIdentity:  // red, green and blue as they are: nothing about Y, U and V
        case ColorSpace::kUnspecified:
            colour.matrix =
                properties.GetHeight() >= kFirstHdHeight ? PixelMatrix::Bt709 : PixelMatrix::Bt601;
            break;
        default:
            return ResultNotSupported("colour matrix %d", properties.GetColorSpace().GetMatrix());
    }
    const PixelFormat* format = FindPixelFormat(properties.GetFormat());
    const bool full = (format && format->family == PixelFamily::Rgb) ||
                      properties.GetVideoRange() == CVideoProperties::kFullRange;
    colour.range = full ? PixelRange::Full : PixelRange::Limited;
    return 0;
}

PixelConverter::PixelConverter() : CVideoConverter(kCode) {}

CValueList<unsigned int>* PixelConverter::GetInputFormats() {
    return list_formats();
}

CValueList<unsigned int>* PixelConverter::GetOutputFormats() {
    return list_formats();
}

Result PixelConverter::SetOutputProperties(const CVideoProperties* properties) {
    if (!properties) {
        fWanted.Clear();
        return 0;
    }
    Result fits = check_size(*properties);
    if (fits.Failed()) return fFailures.OfSetUp(std::move(fits));
    if (properties->GetFormat()) {
        Result result = SetOutputFormat(properties->GetFormat());
        if (result.Failed()) return result;
    }
    fWanted = new CVideoProperties(properties);
    return fWanted ? Result(0) : Result(ResultOutOfMemory());
}

/// Sizes that are known on both sides must be the same.
Result PixelConverter::check_size(const CVideoProperties& wanted) const {
    const CVideoProperties* input = Input();
    if (!input) return 0;
    const bool sameWidth = !wanted.GetWidth() || wanted.GetWidth() == input->GetWidth();
    const bool sameHeight = !wanted.GetHeight() || wanted.GetHeight() == input->GetHeight();
    if (sameWidth && sameHeight) return 0;
    return ResultInvalidArgument("%d x %d out of %d x %d: it does not scale", wanted.GetWidth(),
                                 wanted.GetHeight(), input->GetWidth(), input->GetHeight());
}

/// The output's properties: the input's, with what was wanted otherwise.
Result PixelConverter::describe(RObject<CVideoProperties>& output) const {
    output = new CVideoProperties(Input());
    if (!output) return ResultOutOfMemory();
    if (GetOutputFormat()) output->SetFormat(GetOutputFormat());
    if (!fWanted) return 0;
    Result fits = check_size(*fWanted);
    if (fits.Failed()) return fits;
    output->SetVideoRange(fWanted->GetVideoRange());
    if (fWanted->GetColorSpace() == ColorSpace()) return 0;
    output->SetColorSpace(fWanted->GetColorSpace());
    return 0;
}

Result PixelConverter::Begin() {
    End();
    return fFailures.OfSetUp(set_up());
}

Result PixelConverter::set_up() {
    const CVideoProperties* input = Input();
    if (!input) return ResultNullPointer("no input properties");
    RObject<CVideoProperties> output;
    Result result = describe(output);
    if (result.Failed()) return result;
    if (!is_public(input->GetFormat()) || !is_public(output->GetFormat())) {
        return ResultNotSupported("%s to %s: not both of them are raw pictures",
                                  four_text(input->GetFormat()).c_str(),
                                  four_text(output->GetFormat()).c_str());
    }
    PixelRequest request;
    request.from = input->GetFormat();
    request.to = output->GetFormat();
    request.width = input->GetWidth();
    request.height = input->GetHeight();
    const bool interlaced = input->GetFieldOrder() != CVideoProperties::kProgressive;
    request.scan = interlaced ? PixelScan::Interlaced : PixelScan::Progressive;
    result = ReadPixelColour(*input, request.fromColour);
    if (result.Succeeded()) result = ReadPixelColour(*output, request.toColour);
    if (result.Failed()) return result;
    if (!is_picture(*input) || !is_picture(*output)) {
        return ResultInvalidArgument("pictures of %d x %d; sides go from 1 to %d", request.width,
                                     request.height, kLargestSide);
    }
    fFrom = new CVideoProperties(input);
    if (!fFrom) return ResultOutOfMemory();
    fPlan = PixelPlan::Make(request);
    if (!fPlan) return ResultOutOfMemory();
    fTo = std::move(output);
    UpdateOutputProperties(RObject<CVideoProperties>(fTo).Detach());
    return 0;
}

Result PixelConverter::End() {
    fPlan.reset();
    fReady.clear();
    return 0;
}

Result PixelConverter::ProcessSample(CVideoSample* sample) {
    return fFailures.OfInput(process(sample));
}

Result PixelConverter::process(CVideoSample* sample) {
    if (!fPlan) return ResultError("a picture outside Begin and End");
    if (!sample) return 0;  // nothing is held back
    RObject<CVideoSample> converted;
    Result result = convert(*sample, converted);
    if (result.Failed()) return result;
    fReady.push_back(std::move(converted));
    return 0;
}

Result PixelConverter::convert(const CVideoSample& from, RObject<CVideoSample>& to) {
    RawPicture picture;
    Result result = picture.Lock(from, fFrom->GetFormat(), fFrom->GetWidth(), fFrom->GetHeight());
    if (result.Failed()) return result;
    RObject<CVideoSample> blank;
    result = CreateSample(fTo.Get(), blank.Receive());
    if (result.Failed()) return result;
    const RObject<CPixelDataReference> pixels(blank->GetDataReference<CPixelDataReference>());
    result = pixels->Lock(CDataReference::kWrite);
    if (result.Failed()) return result;
    const PixelFormat& format = *FindPixelFormat(fTo->GetFormat());
    fPlan->Convert(picture.GetImage(),
                   LayOutPixels(format, pixels->GetData(), fTo->GetHeight(), pixels->GetStride()));
    pixels->Unlock();
    to = new CVideoSample(&from);
    return to ? to->SetDataReference(pixels.Get()) : Result(ResultOutOfMemory());
}

Result PixelConverter::ReceiveSample(RObject<CVideoSample>& sample) {
    sample.Clear();
    if (fReady.empty()) return 0;
    sample = std::move(fReady.front());
    fReady.erase(fReady.begin());
    return 0;
}

void RegisterPixelConverter() {
    using Factory = CSimpleComponentFactory<CVideoConverter, PixelConverter>;
    RObject<Factory> factory(new Factory(PixelConverter::kCode));
    CComponentInventory<CComponentFactory<CVideoConverter>>::GetSingleton().Add(factory.Get());
}

}  // namespace Quillon::Orb
