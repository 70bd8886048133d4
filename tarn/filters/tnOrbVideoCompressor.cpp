#include "tarn/filters/tnOrbVideoCompressor.h"

#include <cmath>
#include <string>

#include "orb/CComponentInventory.h"
#include "spar/trace.h"
#include "spar/zBuffer.h"
#include "spar/zCritical.h"
#include "spar/zRecord.h"
#include "tarn/filters/OrbVideoBuffer.h"
#include "tarn/writers/orbConversions.h"

// Set-up. The road of the frames stands in tnOrbVideoCompressor_encode.cpp.

using namespace Quillon::Orb;

namespace {

constexpr int kOutOfMemory = -1024;
constexpr int kNoConverter = -1031;
constexpr int kNvencRefused = -1034;
constexpr int kUnknownRaster = -1037;
constexpr int kConverterRefusedInput = -1038;
constexpr int kConverterRefusedOutput = -1039;
constexpr int kConverterDidNotBegin = -1040;
constexpr int kEncoderRefusedInput = -1041;
constexpr int kEncoderRefusedOutput = -1042;
constexpr int kEncoderDidNotBegin = -1043;
constexpr int kNoEncoder = -1044;

constexpr float kUsualRate = 30.0f;
constexpr int kFirstHdHeight = 720;
constexpr unsigned int kBytesPerKilobit = 125;

/// A raster type as the media library knows it, and as people call it.
struct Raster {
    unsigned int type;
    unsigned int format;
    const char* label;
};

constexpr Raster kRasters[] = {
    {'rgb ', 'BGRA', "RGBA"},     {'rgba', 'BGRA', "RGBA"}, {'yuvs', 'YUYV', "422 YUY2"},
    {'2vuy', 'UYVY', "422 UYVY"}, {'I420', 'I420', "I420"}, {'NV12', 'NV12', "NV12"},
};

const Raster* raster_of(const tnMediaRecord& record) {
    const auto type = static_cast<unsigned int>(record.fColourspace.AsInt32(0));
    for (const Raster& raster : kRasters) {
        if (raster.type == type) return &raster;
    }
    return nullptr;
}

/// Truncates. A quotient that no integer holds, as that by a rate of 0, counts as 0.
long long ticks_of(float quotient) {
    constexpr float kLimit = 9.2e18f;
    return std::fabs(quotient) < kLimit ? static_cast<long long>(quotient) : 0;
}

}  // namespace

tnOrbVideoCompressor::tnOrbVideoCompressor()
    : fEncodedLock(zCritical::Factory(1)), fEncodedBuffers(new zList<OrbVideoBuffer*>()) {}

tnOrbVideoCompressor::~tnOrbVideoCompressor() {
    release_encoder();
    for (auto& entry : fFrameMetaData) delete entry.fValue;
    for (zRecord* record : fReplacedMetaData) delete record;
    {
        const zCriticalLock lock(*fEncodedLock);
        fEncodedBuffers->RemoveAndReleaseAll();
        delete fEncodedBuffers;
    }
    delete fEncodedLock;
}

const tnMediaRecord& tnOrbVideoCompressor::InputFormat() const {
    return fInputFormat;
}

const tnMediaRecord& tnOrbVideoCompressor::OutputFormat() const {
    return fOutputFormat;
}

void tnOrbVideoCompressor::SetOutputFormat(const tnMediaRecord& format) {
    fOutputFormat = format;
}

int tnOrbVideoCompressor::GetDecoderDescription(zBuffer& out) {
    if (!fDecoderDescription) return -1;
    out.SetData(fDecoderDescription->Data(), fDecoderDescription->Size(), false);
    return 0;
}

double tnOrbVideoCompressor::GetCTSIncrementInMilliseconds() const {
    return fCTSIncrement;
}

// Hosts choose what to render by this answer, and the planar types, which SetInputFormat takes all
// the same, are not among their choices.
int tnOrbVideoCompressor::CanOutputFormat(tnMediaRecord& format, bool) {
    if (format.fType.AsInt32(0) != TN_MEDIA_VIDEO) return -1;
    switch (format.fColourspace.AsInt32(0)) {
        case '2vuy':
        case 'rgb ':
        case 'rgba':
        case 'RGBA':
            return 0;
        default:
            return -1;
    }
}

int tnOrbVideoCompressor::Create(const tnMediaRecord& output, const zRecord& settings,
                                 void* userData) {
    fUserData = userData;
    fOutputFormat = output;
    const std::string codec = fOutputFormat.AsString('mcon', "");
    fIsH264 = codec.find("264") != std::string::npos;
    const int result = create_orb_compressor(settings);
    fLacksEncoder = result != 0;
    return result;
}

// Subclasses that need no component at all never come through SetInputFormat here, and lack none.
int tnOrbVideoCompressor::ConfigurationError() const {
    if (fConfigureError != 0) return fConfigureError;
    return fLacksEncoder ? kNoEncoder : 0;
}

// What subclasses leave as it is.

OrbVideoBuffer* tnOrbVideoCompressor::create_compressed_buffer(
    RObject<CVideoSample>& sample, RObject<CVideoCompressor>& compressor, zBuffer& description,
    long long time) {
    return new OrbVideoBuffer(sample, compressor, description, time);
}

unsigned int tnOrbVideoCompressor::encoder_input_format_for_colorspace(unsigned int wanted) {
    const RObject<CValueList<unsigned int>> formats(fEncoder->GetInputFormats());
    if (!formats) return 0;
    if (formats->HasValue(wanted)) return wanted;
    unsigned int first = 0;
    return formats->GetValue(0, first).Succeeded() ? first : 0;
}

unsigned int tnOrbVideoCompressor::encoder_output_format() {
    fOutputFormat.Print(0, 0);
    return ProResFormat(fOutputFormat);
}

int tnOrbVideoCompressor::configure_encoder_input_properties(const tnMediaRecord&,
                                                             RObject<CVideoProperties>&) {
    return 0;
}

int tnOrbVideoCompressor::encode_began(Result result) {
    return result.Failed() ? kEncoderDidNotBegin : 0;
}

int tnOrbVideoCompressor::create_uncompressed_videosample(tnStreamBuffer& buffer,
                                                          const tnMediaRecord& format,
                                                          RObject<CVideoSample>& sample) {
    return create_cpu_uncompressed_videosample(buffer, format, sample);
}

bool tnOrbVideoCompressor::encoder_can_pad_for_strict_cbr() {
    return true;
}

unsigned int tnOrbVideoCompressor::OrbRasterType(const tnMediaRecord& record) const {
    const Raster* raster = raster_of(record);
    return raster ? raster->format : 0;
}

ColorSpace tnOrbVideoCompressor::GuessColorSpace(const tnMediaRecord& record) const {
    if (record.fHeight.AsInt32(0) >= kFirstHdHeight) return ColorSpace::BT709;
    const long long rate = ticks_of(record.AsFloat('mfps', 0.0f));
    return rate == 25 || rate == 50 ? ColorSpace::BT601P : ColorSpace::BT601N;
}

unsigned int tnOrbVideoCompressor::ProResFormat(const tnMediaRecord& record) const {
    const std::string quality = record.AsString("codec_quality", "prores_422");
    if (quality == "prores_422_proxy") return 'apco';
    if (quality == "prores_422_lt") return 'apcs';
    if (quality == "prores_422_hq") return 'apch';
    if (quality == "prores_4444") return 'ap4h';
    return 'apcn';
}

// Configuration.

int tnOrbVideoCompressor::SetInputFormat(const tnMediaRecord& input) {
    fInputFormat = input;
    fConfigureError = 0;
    fConverter.Clear();
    fLacksEncoder = !fEncoder;
    if (fLacksEncoder) return 0;
    fConfigureError = configure(input);
    if (fConfigureError != 0) {
        tear_down();
        return 0;
    }
    begin_padding();
    fill_decoder_info();
    zTrace("Encoder configured successfully: {}\n", fOutputFormat.AsString('mcon', ""));
    return 0;
}

int tnOrbVideoCompressor::configure(const tnMediaRecord& input) {
    fill_input_format();
    const RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    if (!properties) return kOutOfMemory;
    describe_input(*properties);
    offer_defaults(*properties);
    const Raster* raster = raster_of(input);
    if (!raster) return kUnknownRaster;
    const unsigned int wanted = raster->format;
    const unsigned int format = encoder_input_format_for_colorspace(wanted);
    fNeedsConversion = format != wanted;
    trace_configuration(input, raster->label);
    if (fNeedsConversion) {
        const int error = place_converter(wanted, format);
        if (error != 0) return error;
    }
    return begin_encoder(input, format, *properties);
}

// What the source does not say of its times, the output says.
void tnOrbVideoCompressor::fill_input_format() {
    if (!fInputFormat.ExistsID('tmsc')) {
        fInputFormat.SetInt64('tmsc', fOutputFormat.AsInt64('tmsc', 0));
    }
    if (!fInputFormat.ExistsID('mfps')) {
        fInputFormat.SetFloat('mfps', fOutputFormat.AsFloat('mfps', 0.0f));
    }
    if (!fInputFormat.ExistsID('dura')) {
        fInputFormat.SetUInt64('dura', fOutputFormat.AsUInt64('dura', 0));
    }
}

void tnOrbVideoCompressor::describe_input(Properties& properties) const {
    const float rawRate = fOutputFormat.AsFloat('mfps', 0.0f);
    const float rate = rawRate > 0.0f ? rawRate : kUsualRate;
    const long long outputTimescale = fOutputFormat.AsInt64('tmsc', 0);
    const auto inputTimescale = static_cast<float>(fInputFormat.AsInt64('tmsc', 0));
    properties.SetTimescale(outputTimescale);
    properties.SetWidth(fInputFormat.fWidth.AsInt32(0));
    properties.SetHeight(fInputFormat.fHeight.AsInt32(0));
    properties.SetFrameDuration(ticks_of(inputTimescale / rate));
    properties.SetFieldOrder(CVideoProperties::kProgressive);
    properties.SetFormat(OrbRasterType(fInputFormat));
    properties.SetColorSpace(GuessColorSpace(fOutputFormat));
    // The rate as it stands, 0 included: a component then goes by the frame duration.
    properties.SetFrameRate(
        {outputTimescale, ticks_of(static_cast<float>(outputTimescale) / rawRate)});
}

// Tells the component what it would get and give if a subclass said nothing else. Whether it takes
// that does not matter yet: one that only makes another format refuses this one, and traces it.
// Components list their input formats by their output.
void tnOrbVideoCompressor::offer_defaults(const Properties& input) {
    const unsigned int format = ProResFormat(fOutputFormat);
    const RObject<CVideoProperties> output(new CVideoProperties(&input));
    if (output) output->SetFormat(format);
    fEncoder->CTransformFilterT<CVideoFilter>::SetInputProperties(&input);
    fEncoder->SetProperties(output.Get());
    fEncoder->SetOutputFormat(format);
}

void tnOrbVideoCompressor::trace_configuration(const tnMediaRecord& input,
                                               const char* colourspace) const {
    zTrace(
        "Configuring Encoder: {} {}x{}, colorspace: {}, HasGPUBuffer: {}, HasCPUBuffer: {} D3D9 "
        "Vendor: {}\n",
        fOutputFormat.AsString('mcon', ""), input.fWidth.AsInt32(0), input.fHeight.AsInt32(0),
        colourspace, input.AsBool("output_gpu_rgb", false) ? "true" : "false",
        input.AsBool("has_cpu_buffers", false) ? "true" : "false",
        input.AsString("D3D9AdapterVendor", "<unknown>"));
}

int tnOrbVideoCompressor::place_converter(unsigned int from, unsigned int to) {
    RObject<CVideoProperties> properties;
    MediaRecordToVideoProperties(from, fInputFormat, properties);
    fConverter = CComponentInventory<CComponentFactory<CVideoConverter>>::CreateInstance('vfc ');
    if (!fConverter) return kNoConverter;
    if (fConverter->SetInputProperties(properties.Get()).Failed()) return kConverterRefusedInput;
    if (fConverter->SetOutputFormat(to).Failed()) return kConverterRefusedOutput;
    return fConverter->Begin().Failed() ? kConverterDidNotBegin : 0;
}

int tnOrbVideoCompressor::begin_encoder(const tnMediaRecord& input, unsigned int format,
                                        const Properties& properties) {
    RObject<CVideoProperties> entering;
    MediaRecordToVideoProperties(format, fInputFormat, entering);
    if (!entering) return kOutOfMemory;
    entering->SetColorSpace(GuessColorSpace(fInputFormat));
    const int error = configure_encoder_input_properties(input, entering);
    if (error != 0) return error;
    // The shape as the output sees it, not the one just shown to the subclass: encoders of add-ons
    // are set up for the output's timescale and rate.
    if (fEncoder->SetInputProperties(&properties).Failed()) return kEncoderRefusedInput;
    const Result accepted = fEncoder->SetFourProperty(CodeBookProperty::MediaFilter::OutputFormat,
                                                      encoder_output_format());
    if (accepted.Failed()) {
        return fEncoder->GetType() == 'nven' ? kNvencRefused : kEncoderRefusedOutput;
    }
    return encode_began(fEncoder->Begin());
}

void tnOrbVideoCompressor::begin_padding() {
    fPadForStrictCBR =
        fOutputFormat.AsBool("strict_cbr", false) && !encoder_can_pad_for_strict_cbr();
    fBytesThisSecond = 0;
    fTargetBytesPerSecond =
        static_cast<unsigned int>(fOutputFormat.AsInt32('mtbr', 0)) * kBytesPerKilobit;
}

void tnOrbVideoCompressor::tear_down() {
    if (fConverter) fConverter->End();
    fConverter.Clear();
    if (fEncoder) fEncoder->End();
    fEncoder.Clear();
}

void tnOrbVideoCompressor::release_encoder() {
    if (fPendingBuffer) fPendingBuffer->Release();
    fPendingBuffer = nullptr;
    if (fConverter) fConverter->End();
    fConverter.Clear();
    if (fEncoder) {
        flush_encoder();
        fEncoder->End();
    }
    fEncoder.Clear();
    delete fDecoderDescription;
    fDecoderDescription = nullptr;
}

// Once: a description that stayed empty, because the encoder did not know its parameter sets when
// it began, stays so for the whole run, and so do buffers that point to it.
void tnOrbVideoCompressor::fill_decoder_info() {
    if (fDecoderDescription || !fIsH264) return;
    fDecoderDescription = new zBuffer();
    const RObject<CVideoProperties> properties(fEncoder->GetOutputProperties(0));
    if (!properties) return;
    const RObject<CDecoderSpecificProperties> specific(properties->GetExtension('mspe'));
    if (!specific) return;
    RObject<CByteArray> info;
    specific->GetDecoderInfo(info);
    if (!info) return;
    fDecoderDescription->SetAndCopyData(info->GetData(),
                                        static_cast<unsigned int>(info->GetLength()), 0);
}
