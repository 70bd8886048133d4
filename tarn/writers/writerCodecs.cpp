#include "tarn/writers/writerCodecs.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <string>

#include "orb/CString.h"
#include "orb/CValueList.h"
#include "orb/CVideoFilter.h"
#include "orb/CodeBookProperty.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/foundation/wholeNumber.h"

using namespace Quillon::Orb;

namespace {

constexpr int kPropertyFailed = -1041;
constexpr long long kBitsPerKilobit = 1000;

template <typename T>
struct Named {
    const char* name;
    T value;
};

constexpr Named<WriterCodec> kCodecs[] = {
    {"ProRes", {'apch', 'vtbx'}},
    {"x264", {'h264', 'h264'}},
    {"Video Toolbox H.264", {'avc1', 'vtbx'}},
    {"MJPEG", {'jpeg', 'mjpg'}},
    {"Mpeg2", {'mp2v', 'mcm2'}},
};

constexpr Named<unsigned int> kProResFlavours[] = {
    {"prores_422_proxy", 'apco'}, {"prores_422_lt", 'apcs'}, {"prores_422", 'apcn'},
    {"prores_422_hq", 'apch'},    {"prores_4444", 'ap4h'},
};

constexpr Named<int> kJpegQualities[] = {
    {"mjpeg_best", 98},
    {"mjpeg_high", 88},
    {"mjpeg_medium", 75},
    {"mjpeg_low", 55},
};
constexpr int kJpegDefaultQuality = 88;

constexpr unsigned int kFromUyvy[] = {'UYVY', 'YUYV', 'I422', 'YV16', 'I420', 'YV12'};
constexpr unsigned int kFromYuyv[] = {'YUYV', 'UYVY', 'I422', 'YV16', 'I420', 'YV12'};
constexpr unsigned int kFromI420[] = {'I420', 'YV12', 'NV12', 'UYVY'};
constexpr unsigned int kFromYv12[] = {'YV12', 'I420', 'NV12', 'UYVY'};
constexpr unsigned int kFromNv12[] = {'NV12', 'I420', 'YV12', 'UYVY'};
constexpr unsigned int kFromI422[] = {'I422', 'YV16', 'YUYV', 'UYVY', 'I420', 'YV12'};
constexpr unsigned int kFromYv16[] = {'YV16', 'I422', 'YUYV', 'UYVY', 'I420', 'YV12'};
constexpr unsigned int kFromOther[] = {'UYVY', 'YUYV', 'I422', 'YV16', 'I420', 'YV12', 'NV12'};

template <typename T, std::size_t N>
const T* find_named(const Named<T> (&table)[N], const std::string& name) {
    const auto* found = std::find_if(std::begin(table), std::end(table),
                                     [&](const Named<T>& row) { return name == row.name; });
    return found == std::end(table) ? nullptr : &found->value;
}

int bit_rate_of(const tnMediaRecord& encoded) {
    const long long bits = encoded.AsInt32('mtbr', 0) * kBitsPerKilobit;
    return static_cast<int>(std::clamp<long long>(bits, INT_MIN, INT_MAX));
}

int configure_mjpeg(const tnMediaRecord& encoded, IProperties& compressor) {
    const Result set = compressor.SetProperty(CodeBookProperty::JpegCompressor::Quality,
                                              JpegQuality(encoded, kJpegDefaultQuality));
    return set.Failed() ? kPropertyFailed : 0;
}

// Every refusal is passed over: another H.264 component may stand behind the code, and a recording
// with its defaults beats none.
int configure_x264(const tnMediaRecord& encoded, IProperties& compressor) {
    namespace Key = CodeBookProperty::H264Compressor;
    const RObject<CString> profile(new CString("high"));
    const RObject<CString> preset(new CString("veryfast"));
    const int interval = std::clamp(encoded.AsInt32("key_frame_rate", 30), 1, 600);
    compressor.SetProperty(Key::Profile, profile.Get());
    compressor.SetProperty(Key::Preset, preset.Get());
    compressor.SetProperty(Key::Threads, 4);
    compressor.SetProperty(Key::BitRate, bit_rate_of(encoded));
    compressor.SetProperty(Key::NumBFrames, 0);
    compressor.SetProperty(Key::BFramePyramid, 0);
    compressor.SetProperty(Key::MaxKeyFrameInterval, interval);
    return 0;
}

int configure_mpeg2(const tnMediaRecord& encoded, IProperties& compressor) {
    namespace Key = CodeBookProperty::MainConceptMpeg2Compressor;
    constexpr int kShortestGopWithDefaultM = 8;
    if (compressor.SetProperty(Key::Profile, 1).Failed()) return kPropertyFailed;
    if (compressor.SetProperty(Key::Level, 4).Failed()) return kPropertyFailed;
    if (compressor.SetProperty(CodeBookProperty::VideoCompressor::BitRate, bit_rate_of(encoded))
            .Failed()) {
        return kPropertyFailed;
    }
    const int interval = encoded.AsInt32("key_frame_rate", 240);
    if (interval == 0) return 0;
    if (interval < kShortestGopWithDefaultM && compressor.SetProperty(Key::M, interval).Failed()) {
        return kPropertyFailed;
    }
    if (compressor.SetProperty(Key::N, interval).Failed()) return kPropertyFailed;
    return compressor.SetProperty(Key::ClosedGopInterval, 1).Failed() ? kPropertyFailed : 0;
}

int toolbox_profile_of(const tnMediaRecord& encoded) {
    switch (encoded.AsUInt32('mpro', 'main')) {
        case 'base':
            return 66;
        case 'high':
            return 100;
        default:
            return 77;
    }
}

int configure_video_toolbox(const tnMediaRecord& encoded, IProperties& compressor) {
    namespace Key = CodeBookProperty::VideoToolboxCompressor;
    if (compressor.SetProperty(Key::Profile, toolbox_profile_of(encoded)).Failed())
        return kPropertyFailed;
    if (compressor.SetProperty(CodeBookProperty::VideoCompressor::BitRate, bit_rate_of(encoded))
            .Failed()) {
        return kPropertyFailed;
    }
    const int interval = encoded.AsInt32("key_frame_rate", 240);
    if (interval != 0) compressor.SetProperty(Key::KeyFrameInterval, interval);
    if (encoded.AsBool("strict_cbr", false)) {
        const double most = encoded.AsInt32('mtbr', 0) / 2.1 * 1000.0;
        compressor.SetProperty(Key::MaximumBitrate, WholeNumberOf<int>(most));
    }
    return 0;
}

}  // namespace

unsigned int ProResFlavour(const tnMediaRecord& encoded, unsigned int otherwise) {
    const unsigned int* flavour =
        find_named(kProResFlavours, encoded.AsString("codec_quality", ""));
    return flavour ? *flavour : otherwise;
}

int JpegQuality(const tnMediaRecord& encoded, int otherwise) {
    const int* quality = find_named(kJpegQualities, encoded.AsString("codec_quality", ""));
    return quality ? *quality : otherwise;
}

WriterCodec ResolveWriterCodec(const tnMediaRecord& encoded) {
    const WriterCodec* known = find_named(kCodecs, encoded.AsString('mcon', ""));
    if (!known) return {};
    WriterCodec codec = *known;
    if (codec.trackFormat == 'apch') codec.trackFormat = ProResFlavour(encoded, 'apch');
    return codec;
}

std::span<const unsigned int> PreferredInputFormats(unsigned int sourceFormat) {
    switch (sourceFormat) {
        case 'UYVY':
            return kFromUyvy;
        case 'YUYV':
            return kFromYuyv;
        case 'I420':
            return kFromI420;
        case 'YV12':
            return kFromYv12;
        case 'NV12':
            return kFromNv12;
        case 'I422':
            return kFromI422;
        case 'YV16':
            return kFromYv16;
        default:
            return kFromOther;
    }
}

unsigned int ChooseInputFormat(unsigned int sourceFormat, const CValueList<unsigned int>& offered) {
    unsigned int value = 0;
    for (const unsigned int wanted : PreferredInputFormats(sourceFormat)) {
        for (int i = 0; offered.GetValue(i, value).Succeeded(); ++i) {
            if (value == wanted) return wanted;
        }
    }
    offered.GetValue(0, value);
    return value;
}

int configure_output_properties_for_codec(const tnMediaRecord& encoded,
                                          RObject<CVideoFilter> compressor) {
    const std::string name = encoded.AsString('mcon', "");
    if (name == "MJPEG") return configure_mjpeg(encoded, *compressor);
    if (name == "x264") return configure_x264(encoded, *compressor);
    if (name == "Mpeg2") return configure_mpeg2(encoded, *compressor);
    if (name == "Video Toolbox H.264") return configure_video_toolbox(encoded, *compressor);
    return 0;
}
