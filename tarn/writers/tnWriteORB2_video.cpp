// The video side of a movie file writer's set-up: compressor, raw input format, converter,
// timescale.

#include <cmath>

#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CComponentInventory.h"
#include "orb/CContainerWriter.h"
#include "orb/CValueList.h"
#include "orb/CVideoCompressor.h"
#include "orb/CVideoConverter.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "orb/CodeBookProperty.h"
#include "orb/ContainerProperty.h"
#include "orb/VideoFormat.h"
#include "spar/zString.h"
#include "tarn/foundation/wholeNumber.h"
#include "tarn/writers/fileTimescale.h"
#include "tarn/writers/orbConversions.h"
#include "tarn/writers/tnWriteORB2.h"
#include "tarn/writers/writerCodecs.h"
#include "tarn/writers/writerErrors.h"

using namespace Quillon::Orb;

namespace {

constexpr int kRangeLimited = 1;
constexpr int kRangeFull = 2;
constexpr long long kLargestMovTimescale = 60000;

/// Whether frames of `source` are of full range and the track of `output` has the limited one
/// alone.
bool needs_limited_range(const CVideoProperties& source, const CVideoProperties& output) {
    return source.GetVideoRange() == kRangeFull && output.GetVideoRange() == kRangeLimited;
}

/// `code` when `result` failed, else 0.
int code_if_failed(const Result& result, int code) {
    return result.Failed() ? code : 0;
}

}  // namespace

// Frames come in the size that the file is to have, so the encoded record describes both sides; of
// the source record only the layout of its pixels counts.
int tnWriteORB2::complete_initialization_for_video() {
    const unsigned int sourceFormat =
        RasterTypeToOrbVideoFormat(fSourceVideoFormat.fColourspace.AsInt32(0));
    RObject<CVideoProperties> source;
    if (!MediaRecordToVideoProperties(sourceFormat, fEncodedVideoFormat, source)) {
        return kWriterFormat;
    }
    ConfigureVideoTimescaleAdjustment(source.Get());
    AdjustVideoPropertiesTimescale(source.Get());
    fCopySamples = false;

    int code = make_video_track(sourceFormat, source.Get());
    if (code != 0) return code;
    if (fAssetWriter->AddVideoWriter(fVideoWriter.Get()).Failed()) return kWriterTrackRefused;
    code = tune_container();
    if (code != 0) return code;
    if (fVideoWriter->Begin().Failed()) return kWriterVideoBegin;
    return check_hardware();
}

int tnWriteORB2::make_video_track(unsigned int sourceFormat, CVideoProperties* source) {
    const WriterCodec codec = ResolveWriterCodec(fEncodedVideoFormat);
    if (codec.trackFormat == 0) return kWriterFormat;
    RObject<CVideoProperties> output;
    if (!MediaRecordToVideoProperties(codec.trackFormat, fEncodedVideoFormat, output)) {
        return kWriterFormat;
    }
    AdjustVideoPropertiesTimescale(output.Get());
    // Players take ProRes as limited range whatever a file says, so the record has no voice here.
    if (VideoFormat::GetCanonicalFormat(codec.trackFormat) == 'ap  ') {
        output->SetVideoRange(kRangeLimited);
    }

    fVideoWriter = RObject<CAssetVideoCompressor>(
        new CAssetVideoCompressor(output.Get(), codec.compressorCode));
    if (!fVideoWriter) return kWriterNoVideoTrack;
    const RObject<CValueList<unsigned int>> offered(fVideoWriter->GetInputFormats());
    unsigned int first = 0;
    if (!offered || offered->GetValue(0, first).Failed()) return kWriterFormat;

    const unsigned int inputFormat = ChooseInputFormat(sourceFormat, *offered);
    const RObject<CVideoFilter> compressor(fVideoWriter->GetCompressor());
    if (fVideoWriter->SetInputFormat(inputFormat).Failed()) return kWriterTrackRefused;
    const bool intoLimited = needs_limited_range(*source, *output);
    const bool otherFormat = inputFormat != source->GetFormat();
    if (fConvertsRangeAlone) fVideoConverter.Clear();
    fConvertsRangeAlone = intoLimited && !otherFormat;
    if (otherFormat || intoLimited) {
        const int code = place_converter(inputFormat, source, intoLimited);
        if (code != 0 && otherFormat) return code;
        if (code != 0) fVideoConverter.Clear();
    }
    return configure_output_properties_for_codec(fEncodedVideoFormat, compressor);
}

// `intoLimited` asks it to bring frames of full range into the limited one, which is all that the
// track has: else players show their blacks and whites beyond black and white. A converter that
// cannot is of use only where the format has to change.
int tnWriteORB2::place_converter(unsigned int inputFormat, CVideoProperties* source,
                                 bool intoLimited) {
    fVideoConverter = RObject<CVideoConverter>(
        CComponentInventory<CComponentFactory<CVideoConverter>>::GetSingleton().CreateInstance(
            'vfc '));
    if (!fVideoConverter) return kWriterConverterBegin;
    if (fVideoConverter->SetInputProperties(source).Failed()) return kWriterConverterInput;
    if (intoLimited) {
        const RObject<CVideoProperties> wanted(new CVideoProperties(source));
        if (!wanted) return kWriterConverterOutput;
        wanted->SetFormat(inputFormat);
        wanted->SetVideoRange(kRangeLimited);
        const bool taken = fVideoConverter->SetOutputProperties(wanted.Get()).Succeeded();
        if (!taken && inputFormat == source->GetFormat()) return kWriterConverterOutput;
    }
    if (fVideoConverter->SetOutputFormat(inputFormat).Failed()) return kWriterConverterOutput;
    return code_if_failed(fVideoConverter->Begin(), kWriterConverterBegin);
}

int tnWriteORB2::tune_container() {
    namespace Key = ContainerProperty::Mpeg4ContainerWriter;
    if (fContainerType != 'mp4 ' && fContainerType != 'mov ') return 0;
    const RObject<CContainerWriter> container(fVideoWriter->GetContainerWriter());
    if (!container) return kWriterFormat;
    if (container->SetProperty(Key::FastStart, true).Failed()) return kWriterFormat;
    if (container->SetProperty(Key::TrimAudio, true).Failed()) return kWriterFormat;
    if (fMoovRate == 0) return 0;
    return code_if_failed(container->SetProperty(Key::MoovRate, fMoovRate), kWriterFormat);
}

// A codec name that promises hardware and ends up in software fails: a host that asked for it has
// no processor time to spare for a fallback.
int tnWriteORB2::check_hardware() {
    const std::string name = fEncodedVideoFormat.AsString('mcon', "");
    const bool toolbox = name == "Video Toolbox H.264";
    if (!toolbox && name != "Intel QuickSync H.264") return 0;
    bool inHardware = false;
    const RObject<CVideoFilter> compressor(fVideoWriter->GetCompressor());
    compressor->GetProperty(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, inHardware);
    if (inHardware) return 0;
    // The second name meets no codec of ours as yet; set-up refuses it before this.
    return toolbox ? kWriterToolboxInSoftware : kWriterQuickSyncInSoftware;
}

// Movie files get a round timescale derived from the nominal frame rate where the record's is that
// of a clock: editing programs overflow on the large ones.
bool tnWriteORB2::ConfigureVideoTimescaleAdjustment(const CVideoProperties* properties) {
    const long long timescale = properties->GetTimescale();
    fInputTimescale = timescale;
    fFileTimescale = timescale;
    if (timescale <= 0 || fContainerType != 'mov ') return false;
    if (timescale <= kLargestMovTimescale) return true;
    const long long duration = properties->GetFrameDuration();
    if (duration <= 0) return false;

    const double rate = std::round(static_cast<double>(timescale) / static_cast<double>(duration));
    if (rate <= 1.0) {
        fFileTimescale = 1000;
    } else if (rate <= 60.0) {
        fFileTimescale = static_cast<long long>(rate) * 1000;
    } else {
        fFileTimescale = WholeNumberOf<long long>(rate * 100.0);
    }
    return true;
}

bool tnWriteORB2::AdjustVideoPropertiesTimescale(CVideoProperties* properties) {
    if (fInputTimescale == fFileTimescale) return false;
    const long long duration =
        ToFileTimescale(properties->GetFrameDuration(), fInputTimescale, fFileTimescale);
    properties->SetTimescale(fFileTimescale);
    properties->SetFrameDuration(duration);
    return true;
}
