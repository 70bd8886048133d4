#include "tarn/writers/orbConversions.h"

#include <cmath>

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/foundation/wholeNumber.h"

using namespace Quillon::Orb;

namespace {

struct FormatPair {
    int raster;
    unsigned int orb;
};

constexpr FormatPair kRasterToOrb[] = {
    {'2vuy', 'UYVY'}, {'yuvs', 'YUYV'}, {'Grgb', 'BGRA'}, {'RGBA', 'BGRA'}, {'rgb ', 'BGRA'},
    {'rgba', 'BGRA'}, {'I420', 'I420'}, {'IMC4', 'I420'}, {'NV12', 'NV12'}, {'YM16', 'I422'},
    {'YV12', 'YV12'}, {'gry8', 'GREY'}, {'rgb2', 'RV24'}, {'rgb6', 'RV16'}, {'rgb8', 'RGB2'},
};

// 'I422' stays without a way back on purpose: hosts do not take 'YM16' frames from properties.
constexpr FormatPair kOrbToRaster[] = {
    {'rgba', 'BGRA'}, {'gry8', 'GREY'}, {'I420', 'I420'}, {'NV12', 'NV12'}, {'rgb8', 'RGB2'},
    {'rgb6', 'RV16'}, {'rgb2', 'RV24'}, {'2vuy', 'UYVY'}, {'yuvs', 'YUYV'}, {'YV12', 'YV12'},
};

constexpr int kRangeLimited = 1;
constexpr int kRangeFull = 2;

long long frame_duration_of(const tnMediaRecord& record, long long timescale) {
    const unsigned long long duration = record.AsUInt64('dura', 0);
    if (duration != 0) return static_cast<long long>(duration);
    const float ticks = std::floor(static_cast<float>(timescale) / record.AsFloat('mfps', 0.0f));
    // Without a rate this is infinite or no number: the length is then unknown, 0 to the media
    // library, and encoders take a usual rate. A rate that is there but ever so low gives the
    // longest length there is, and one below 0 a length that the setter refuses.
    return std::isfinite(ticks) ? WholeNumberOf<long long>(ticks) : 0;
}

int field_order_of(int value) {
    return value == 2 || value == 3 ? value : 1;
}

Rational<int> pixel_aspect_of(int squareWidth, int width) {
    if (squareWidth < 1 || width < 1 || squareWidth == width) return {1, 1};
    return {squareWidth, width};
}

void set_colour(const tnMediaRecord& record, CVideoProperties& properties) {
    const unsigned int matrix = static_cast<unsigned int>(record.fColorSpace.AsInt32(0));
    if (matrix == 'r601') {
        properties.SetColorSpace(record.IsPALFrameRate() ? ColorSpace::BT601P : ColorSpace::BT601N);
    } else if (matrix == 'r709') {
        properties.SetColorSpace(ColorSpace::BT709);
    }
}

void set_range(const tnMediaRecord& record, CVideoProperties& properties) {
    const unsigned int range = static_cast<unsigned int>(record.fNominalRange.AsInt32(0));
    if (range == 'limt') properties.SetVideoRange(kRangeLimited);
    if (range == 'full') properties.SetVideoRange(kRangeFull);
}

}  // namespace

unsigned int RasterTypeToOrbVideoFormat(int rasterType) {
    for (const FormatPair& pair : kRasterToOrb) {
        if (pair.raster == rasterType) return pair.orb;
    }
    return 0;
}

int OrbVideoFormatToRasterType(unsigned int format) {
    for (const FormatPair& pair : kOrbToRaster) {
        if (pair.orb == format) return pair.raster;
    }
    return 0;
}

bool MediaRecordToVideoProperties(const tnMediaRecord& record,
                                  RObject<CVideoProperties>& properties) {
    return MediaRecordToVideoProperties(RasterTypeToOrbVideoFormat(record.fColourspace.AsInt32(0)),
                                        record, properties);
}

bool MediaRecordToVideoProperties(unsigned int format, const tnMediaRecord& record,
                                  RObject<CVideoProperties>& properties) {
    if (!properties) properties = RObject<CVideoProperties>(new CVideoProperties(nullptr));
    if (!properties) return false;
    CVideoProperties& target = *properties;

    const int width = record.fWidth.AsInt32(0);
    const int height = record.fHeight.AsInt32(0);
    const long long timescale = record.AsInt64('tmsc', 0);
    const bool taken =
        target.SetFormat(format).Succeeded() && target.SetWidth(width).Succeeded() &&
        target.SetHeight(height).Succeeded() && target.SetTimescale(timescale).Succeeded() &&
        target.SetFrameDuration(frame_duration_of(record, timescale)).Succeeded() &&
        target.SetFieldOrder(field_order_of(record.fFieldOrder.AsInt32(0))).Succeeded() &&
        target.SetPixelAspectRatio(pixel_aspect_of(record.AsInt32('tnSQ', 0), width)).Succeeded();
    if (!taken) return false;

    set_colour(record, target);
    set_range(record, target);
    return true;
}

void VideoPropertiesToMediaRecord(const CVideoProperties* properties, tnMediaRecord& record) {
    VideoPropertiesToMediaRecord(OrbVideoFormatToRasterType(properties->GetFormat()), properties,
                                 record);
}

void VideoPropertiesToMediaRecord(int rasterType, const CVideoProperties* properties,
                                  tnMediaRecord& record) {
    record.fType.SetInt32(TN_MEDIA_VIDEO);
    record.fColourspace.SetInt32(rasterType);
    record.fWidth.SetInt32(properties->GetWidth());
    record.fHeight.SetInt32(properties->GetHeight());

    const long long timescale = properties->GetTimescale();
    const long long duration = properties->GetFrameDuration();
    record.SetInt64('tmsc', timescale, 0);
    record.SetUInt64('dura', static_cast<unsigned long long>(duration), 0);
    if (timescale >= 1 && duration >= 1) {
        record.SetFloat('mfps', static_cast<float>(timescale) / static_cast<float>(duration), 0);
    }
    record.fFieldOrder.SetInt32(field_order_of(properties->GetFieldOrder()));

    const ColorSpace colour = properties->GetColorSpace();
    if (colour == ColorSpace::BT709) record.fColorSpace.SetInt32('r709');
    if (colour == ColorSpace::BT601N || colour == ColorSpace::BT601P) {
        record.fColorSpace.SetInt32('r601');
    }
    const int range = properties->GetVideoRange();
    if (range == kRangeLimited) record.fNominalRange.SetInt32('limt');
    if (range == kRangeFull) record.fNominalRange.SetInt32('full');
    record.SetBytesPerRowBasedOnFormat();
}

Result CreateCPUVideoSample(RObject<CVideoSample>& sample, const CVideoProperties* properties) {
    if (!properties) return ResultNullPointer(nullptr);
    const int width = properties->GetWidth();
    const int height = properties->GetHeight();
    if (width < 1 || height < 1) return ResultInvalidArgument(nullptr);
    const int stride = properties->GetStride(1);
    const int length = properties->GetSampleLength(1);
    if (stride < 1 || length < 1) return ResultInvalidArgument(nullptr);

    RObject<CByteArray> bytes(new CByteArray(length, 1));
    if (!bytes || !bytes->GetData()) return ResultOutOfMemory(nullptr);
    RObject<CPixelBufferDataReference> pixels(
        new CPixelBufferDataReference(bytes.Get(), width, height, stride));
    if (!pixels) return ResultOutOfMemory(nullptr);
    RObject<CVideoSample> made(new CVideoSample(0, 1, 0));
    if (!made) return ResultOutOfMemory(nullptr);

    sample = made;
    sample->SetDataReference(pixels.Get());
    return ResultOK(nullptr);
}
