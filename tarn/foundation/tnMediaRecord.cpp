#include "tarn/foundation/tnMediaRecord.h"

#include <climits>
#include <cmath>
#include <fmt/format.h>
#include <initializer_list>

#include "spar/zString.h"
#include "tarn/foundation/tnRasterType.h"

namespace {

constexpr int kNotFound = -1021;
constexpr int kNullArgument = -22;
constexpr int kPALRate = 25;
constexpr int kFirstHDHeight = 720;

/// An unset sample size reads as this large number, the id itself. All of the library's rooms that
/// size audio blocks read it so, and so they go on agreeing about a record that lacks it.
constexpr int kUnsetBitsPerSample = 'mbps';

constexpr const char* kOnlyGpuCodec = "NVidia H.264";

bool is_multiple_of_16(int size) {
    return (static_cast<unsigned int>(size) & 15u) == 0;
}

/// 32-bit products wrap: a nonsense format gives a nonsense size, never a trap.
int wrapping_product(std::initializer_list<int> factors) {
    unsigned int product = 1;
    for (const int factor : factors) product *= static_cast<unsigned int>(factor);
    return static_cast<int>(product);
}

/// Whole hundredths of a frame rate, rounded down: 23.976 is 2397. A rate beyond 32 bits counts as
/// none.
int hundredths_of(float fps) {
    const float hundredths = std::floor(fps * 100.0f);
    const bool fits =
        hundredths > static_cast<float>(INT_MIN) && hundredths < -static_cast<float>(INT_MIN);
    return fits ? static_cast<int>(hundredths) : 0;
}

float shape_of(int width, int height) {
    return static_cast<float>(width) / static_cast<float>(height);
}

zRecord* find_child(const zRecord& parent, tnMediaType type) {
    for (zRecord* child : parent.Children()) {
        if (child != nullptr && child->AsInt32('type', 0) == static_cast<int>(type)) {
            return child;
        }
    }
    return nullptr;
}

}  // namespace

tnMediaRecord::tnMediaRecord()
    : fType('type'),
      fWidth('mwid'),
      fHeight('mhei'),
      fColourspace('mcol'),
      fFieldOrder('mfod'),
      fColorSpace('mcsp'),
      fNominalRange('mnmr'),
      fBytesPerRow('mbpr'),
      fAudioFormat('mafo'),
      fBitsPerSample('mbps'),
      fBusses('mcbu'),
      fChannels('mcha'),
      fSampleRate('msmr') {
    RegisterVariables();
}

tnMediaRecord::tnMediaRecord(tnMediaType type) : tnMediaRecord() {
    fType.SetInt32(static_cast<int>(type));
}

tnMediaRecord::tnMediaRecord(const tnMediaRecord& source) : tnMediaRecord() {
    Copy(source, true, true, {});
}

tnMediaRecord::tnMediaRecord(const zRecord& source) : tnMediaRecord() {
    Copy(source, true, true, {});
}

tnMediaRecord::~tnMediaRecord() = default;

tnMediaRecord& tnMediaRecord::operator=(const tnMediaRecord& source) {
    // The members come with the rest, in the order of their registration. The source is not to be
    // looked at afterwards: as a child of this record it has gone with the other old children.
    Copy(source, true, true, {});
    return *this;
}

void tnMediaRecord::RegisterVariables() {
    zVariable* members[] = {&fType,        &fWidth,         &fHeight,       &fColourspace,
                            &fFieldOrder,  &fColorSpace,    &fNominalRange, &fBytesPerRow,
                            &fAudioFormat, &fBitsPerSample, &fBusses,       &fChannels,
                            &fSampleRate};
    zRecord::RegisterVariables('tnRc', members, static_cast<int>(std::size(members)));
}

int tnMediaRecord::FindFirstByType(const zRecord& parent, tnMediaType type, tnMediaRecord& out) {
    const zRecord* child = find_child(parent, type);
    if (child == nullptr) {
        return kNotFound;
    }
    if (child != &out) {
        out.Copy(*child, true, true, {});
    }
    return 0;
}

int tnMediaRecord::FindFirstByType(const zRecord& parent, tnMediaType type, zRecord** out) {
    if (out == nullptr) {
        return kNullArgument;
    }
    *out = find_child(parent, type);
    return *out != nullptr ? 0 : kNotFound;
}

void tnMediaRecord::SetBytesPerRowBasedOnFormat() {
    fBytesPerRow.SetInt32(
        tnRasterType::BytesPerRow(fWidth.AsInt32(0), fColourspace.AsInt32(0), false));
}

void tnMediaRecord::AlignChannelAndCanvasCoordinates(int* channelWidth, int* channelHeight,
                                                     int* canvasWidth, int* canvasHeight,
                                                     float* ratio) {
    int width = fWidth.AsInt32(0);
    int height = fHeight.AsInt32(0);
    if (!is_multiple_of_16(width) && !is_multiple_of_16(height)) {
        return;
    }
    const bool hasChannel = *channelWidth > 0 && *channelHeight > 0;
    const float channelShape = hasChannel ? shape_of(*channelWidth, *channelHeight) : 0.0f;
    if (width <= 0 && height <= 0) {
        width = *channelWidth;
        height = *channelHeight;
    }
    const float canvasShape = shape_of(*canvasWidth, *canvasHeight);
    if (height <= 0 || shape_of(width, height) == 0.0f) {
        *ratio = canvasShape;
        return;
    }
    *canvasWidth = width;
    *canvasHeight = height;
    if (channelShape != 0.0f) {
        *ratio -= (1.0f - channelShape / canvasShape) * *ratio;
    }
}

unsigned int tnMediaRecord::GuessColorSpace() const {
    return fHeight.AsInt32(0) < kFirstHDHeight ? 'r601' : 'r709';
}

unsigned int tnMediaRecord::GuessNominalRange() const {
    return tnRasterType::IsYUVFormat(fColourspace.AsInt32(0)) ? 'limt' : 'full';
}

bool tnMediaRecord::IsPALFrameRate() const {
    const long long timescale = AsInt64('tmsc', 0);
    const long long duration = static_cast<long long>(AsUInt64('dura', 0));
    if (timescale > 0 && duration > 0) {
        return timescale / duration % kPALRate == 0;
    }
    const float fps = AsFloat('mfps', 0.0f);
    if (!(fps > 0.0f)) {
        return false;
    }
    // The signed remainder without its absolute value is wanted: which rates count as PAL decides
    // the BT.601 matrix of files that exist, and 24 and 15 have always counted.
    return std::remainder(fps, static_cast<float>(kPALRate)) < 0.01f;
}

int tnMediaRecord::CalculateBufferSize(int count) const {
    switch (fType.AsInt32(0)) {
        case TN_MEDIA_AUDIO: {
            const int bytes = fBitsPerSample.AsInt32(kUnsetBitsPerSample) / 8;
            return wrapping_product({bytes, count, fBusses.AsInt32(1), fChannels.AsInt32(0)});
        }
        case TN_MEDIA_VIDEO: {
            const int raster = fColourspace.AsInt32(0);
            int rowBytes = fBytesPerRow.AsInt32(0);
            if (rowBytes == 0) {
                rowBytes = tnRasterType::BytesPerRow(fWidth.AsInt32(0), raster, false);
            }
            return wrapping_product(
                {rowBytes, count, tnRasterType::RowCount(fHeight.AsInt32(0), raster)});
        }
        default:
            return 0;
    }
}

bool tnMediaRecord::CodecRequiresCpuBuffers(const char* name) {
    return name != nullptr && !zString::string_equal(name, kOnlyGpuCodec);
}

bool tnMediaRecord::CodecRequiresCpuBuffers() const {
    return CodecRequiresCpuBuffers(AsCString('mcon', nullptr, nullptr));
}

void tnMediaRecord::MakeDefaultAudioFormat() {
    fType.SetInt32(TN_MEDIA_AUDIO);
    SetInt64('tmsc', 48000, 0);
    fSampleRate.SetInt32(48000);
    fBusses.SetInt32(1);
    fChannels.SetInt32(2);
    fBitsPerSample.SetInt32(16);
}

std::string tnMediaRecord::ToCompactFormatString() const {
    switch (fType.AsInt32(0)) {
        case TN_MEDIA_VIDEO:
            return compact_video_string();
        case TN_MEDIA_AUDIO:
            return compact_audio_string();
        default:
            return {};
    }
}

std::string tnMediaRecord::compact_video_string() const {
    const int width = fWidth.AsInt32(0);
    const int height = fHeight.AsInt32(0);
    if (width < 1 || height < 1) {
        return {};
    }
    const bool interlaced = (fFieldOrder.AsInt32(0) | 1) == TN_FIELD_INTERLACED_3;
    const char scan = interlaced ? 'i' : 'p';
    const int hundredths = hundredths_of(AsFloat('mfps', 0.0f));
    if (hundredths < 1) {
        return fmt::format("{}x{}{}", width, height, scan);
    }
    if (hundredths % 100 == 0) {
        return fmt::format("{}x{}{}{}", width, height, scan, hundredths / 100);
    }
    return fmt::format("{}x{}{}{:.2f}", width, height, scan, hundredths / 100.0);
}

std::string tnMediaRecord::compact_audio_string() const {
    const int channels = fChannels.AsInt32(0);
    const int bits = fBitsPerSample.AsInt32(kUnsetBitsPerSample);
    const int rate = fSampleRate.AsInt32(0);
    if (channels < 1 || bits < 1 || rate < 1) {
        return {};
    }
    const std::string word = channels == 2   ? "Stereo"
                             : channels == 1 ? "Mono"
                                             : fmt::format("{} ch.", channels);
    const std::string kiloHertz =
        rate % 1000 == 0 ? fmt::format("{}", rate / 1000) : fmt::format("{:.1f}", rate / 1000.0);
    return fmt::format("{} {} bit {} kHz", word, bits, kiloHertz);
}
