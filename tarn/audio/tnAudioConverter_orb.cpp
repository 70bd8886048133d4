#include "tarn/audio/tnAudioConverter_orb.h"

#include <cstdint>
#include <cstring>

#include "orb/CAudioConverter.h"
#include "orb/CComponentInventory.h"
#include "orb/CodeBookProperty.h"
#include "spar/zMemory.h"
#include "tarn/audio/tnOrbAudio.h"
#include "tarn/foundation/wholeNumber.h"

using namespace Quillon::Orb;

namespace {

using Inventory = CComponentInventory<CComponentFactory<CAudioConverter>>;

constexpr unsigned int kSampleBytes = 2;  // the channel stage knows 16-bit samples alone

unsigned int channels_of(const tnMediaRecord& record) {
    return static_cast<unsigned int>(record.fChannels.AsInt32(0));
}

int bits_of(const tnMediaRecord& record) {
    return record.fBitsPerSample.AsInt32('mbps');
}

/// The shape that `record` says, or a failure.
Result describe(const tnMediaRecord& record, RObject<CAudioProperties>& properties) {
    return OrbAudioPropertiesFromMediaRecord(record, properties) == 0
               ? Result(ResultOK())
               : Result(ResultNotSupported());
}

/// A sample around `bytes` bytes that stay where they are; none of a shape without a frame, as a
/// refused format leaves behind.
RObject<CAudioSample> wrap(void* in, unsigned int bytes, const CAudioProperties& shape) {
    const int packetBytes = shape.GetBytesPerPacket();
    if (packetBytes < 1) {
        return {};
    }
    RObject<CAudioSample> sample(new CAudioSample(bytes / static_cast<unsigned int>(packetBytes)));
    if (sample) {
        ORB_SetAudioSampleData(sample, static_cast<unsigned char*>(in), static_cast<int>(bytes),
                               false);
    }
    return sample;
}

Result run(CAudioFilter& filter, CMediaSample* sample, RObject<CMediaSample>& converted) {
    if (sample == nullptr) {
        return ResultNullPointer();
    }
    const Result result = filter.PutSample(0, sample);
    return result.Failed() ? result : filter.GetSample(0, converted);
}

}  // namespace

tnAudioConverter_orb::~tnAudioConverter_orb() {
    if (fRateConverter) fRateConverter->End();
    if (fFormatConverter) fFormatConverter->End();
}

int tnAudioConverter_orb::Init(const tnMediaRecord& input, const tnMediaRecord& output) {
    tnAudioConverter::Init(input, output);
    tnMediaRecord work(input);  // the format as it is behind each stage
    Result result = ResultOK();
    if (bits_of(input) != bits_of(output)) {
        result = begin_format_stage(input, output, work);
    }
    if (result.Succeeded() && input.fSampleRate.AsInt32(0) != output.fSampleRate.AsInt32(0)) {
        result = begin_rate_stage(input, output, work);
    }
    if (result.Succeeded() && channels_of(input) != channels_of(output)) {
        result = choose_channel_stage(input, output);
    }
    if (result.Failed()) {
        input.Print(0, 0);
        output.Print(0, 0);
        return -1;
    }
    return 0;
}

Result tnAudioConverter_orb::begin_format_stage(const tnMediaRecord& input,
                                                const tnMediaRecord& output, tnMediaRecord& work) {
    Result result = describe(input, fFormatInputProperties);
    if (result.Failed()) {
        return result;
    }
    work.fBitsPerSample.SetInt32(bits_of(output));
    RObject<CAudioProperties> wanted;
    result = describe(work, wanted);
    if (result.Failed()) {
        return result;
    }
    fFormatConverter = Inventory::CreateInstance('afc ');
    if (!fFormatConverter) {
        return ResultError();
    }
    result = fFormatConverter->SetInputProperties(fFormatInputProperties.Get());
    if (result.Failed()) {
        return result;
    }
    result = fFormatConverter->SetFourProperty(CodeBookProperty::MediaFilter::OutputFormat,
                                               wanted->GetFormat());
    return result.Failed() ? result : fFormatConverter->Begin();
}

Result tnAudioConverter_orb::begin_rate_stage(const tnMediaRecord& input,
                                              const tnMediaRecord& output, tnMediaRecord& work) {
    tnMediaRecord entering(input);  // in the sample size that the stage before has made
    entering.fBitsPerSample.SetInt32(bits_of(output));
    Result result = describe(entering, fRateInputProperties);
    if (result.Failed()) {
        return result;
    }
    work.fSampleRate.SetInt32(output.fSampleRate.AsInt32(0));
    RObject<CAudioProperties> wanted;
    result = describe(work, wanted);
    if (result.Failed()) {
        return result;
    }
    fRateConverter = Inventory::CreateInstance('asrc');
    if (!fRateConverter) {
        return ResultError();
    }
    result = fRateConverter->SetInputProperties(fRateInputProperties.Get());
    if (result.Failed()) {
        return result;
    }
    result = fRateConverter->SetProperty(CodeBookProperty::AudioConverter::SampleRate,
                                         wanted->GetSampleRate());
    if (result.Failed()) {
        return result;
    }
    result = fRateConverter->SetFourProperty(CodeBookProperty::MediaFilter::OutputFormat,
                                             fRateInputProperties->GetFormat());
    return result.Failed() ? result : fRateConverter->Begin();
}

Result tnAudioConverter_orb::choose_channel_stage(const tnMediaRecord& input,
                                                  const tnMediaRecord& output) {
    const unsigned int inChannels = channels_of(input);
    const unsigned int outChannels = channels_of(output);
    if (bits_of(output) != 16) {
        return ResultNotSupported();
    }
    if (inChannels < outChannels && inChannels != 1) {
        return ResultNotSupported();
    }
    fMixChannels = true;
    return ResultOK();
}

int tnAudioConverter_orb::Convert(void* in, void* out, unsigned int inBytes, unsigned int mixBytes,
                                  unsigned int outCapacity, unsigned int* outFrames,
                                  unsigned int* outBytes) {
    int result = -1;
    const bool countable = formats_have_frames();  // hosts also convert after an Init that failed
    if (countable && (fFormatConverter || fRateConverter)) {
        RObject<CMediaSample> converted;
        if (run_filters(in, inBytes, converted).Succeeded()) {
            result = deliver_filtered(converted.Get(), out, outCapacity, outFrames, outBytes);
        }
    } else if (countable) {
        result = deliver_mixed(in, out, inBytes, mixBytes, outCapacity, outFrames, outBytes);
    }
    if (result != 0) {
        zZeroMemory(out, outCapacity);  // a caller never hears stale audio
        return -1;
    }
    return 0;
}

Result tnAudioConverter_orb::run_filters(void* in, unsigned int inBytes,
                                         RObject<CMediaSample>& converted) {
    RObject<CMediaSample> entering;
    if (fFormatConverter) {
        const RObject<CAudioSample> sample = wrap(in, inBytes, *fFormatInputProperties);
        const Result result = run(*fFormatConverter, sample.Get(), converted);
        if (result.Failed() || !fRateConverter) {
            return result;
        }
        entering = converted;
    } else {
        entering = wrap(in, inBytes, *fRateInputProperties);
    }
    return run(*fRateConverter, entering.Get(), converted);
}

int tnAudioConverter_orb::deliver_filtered(const CMediaSample* converted, void* out,
                                           unsigned int outCapacity, unsigned int* outFrames,
                                           unsigned int* outBytes) {
    if (converted == nullptr || !converted->HasDataReference()) {
        return -1;
    }
    const RObject<CLockedDataReference> locked(
        converted->GetLockedDataReference(CDataReference::kReadWrite));
    if (!locked) {
        return -1;
    }
    const unsigned int inChannels = channels_of(fInputFormat);
    const unsigned int outChannels = channels_of(fOutputFormat);
    const auto filtered = static_cast<unsigned int>(locked->GetLength());
    unsigned int length = filtered;
    if (fMixChannels) {
        length =
            WholeNumberOf<unsigned int>(filtered / (static_cast<double>(inChannels) / outChannels));
    }
    if (length == 0 || length > outCapacity) {
        return -1;
    }
    report_length(length, outFrames, outBytes);
    if (!fMixChannels) {
        std::memcpy(out, locked->GetData(), filtered);
        return 0;
    }
    return mixdown_channels(inChannels, outChannels, locked->GetData(), filtered, out, outCapacity,
                            bits_of(fOutputFormat));
}

int tnAudioConverter_orb::deliver_mixed(void* in, void* out, unsigned int inBytes,
                                        unsigned int mixBytes, unsigned int outCapacity,
                                        unsigned int* outFrames, unsigned int* outBytes) {
    const unsigned int inChannels = channels_of(fInputFormat);
    const unsigned int outChannels = channels_of(fOutputFormat);
    const unsigned int length = outChannels * inBytes / inChannels;
    if (inChannels > outChannels * inBytes || length > outCapacity) {
        return -1;
    }
    report_length(length, outFrames, outBytes);
    // What is mixed follows the caller's `mixBytes` while what is reported follows `inBytes`:
    // callers that size their blocks by the output give its capacity here and count on both.
    return mixdown_channels(inChannels, outChannels, in, mixBytes, out, outCapacity,
                            bits_of(fOutputFormat));
}

void tnAudioConverter_orb::report_length(unsigned int length, unsigned int* outFrames,
                                         unsigned int* outBytes) const {
    if (outBytes != nullptr) {
        *outBytes = length;
    }
    if (outFrames != nullptr) {
        *outFrames = length / out_frame_bytes();
    }
}

bool tnAudioConverter_orb::formats_have_frames() const {
    return channels_of(fInputFormat) != 0 && out_frame_bytes() != 0;
}

unsigned int tnAudioConverter_orb::out_frame_bytes() const {
    return static_cast<unsigned int>(bits_of(fOutputFormat)) / 8 * channels_of(fOutputFormat);
}

int tnAudioConverter_orb::mixdown_channels(unsigned int inChannels, unsigned int outChannels,
                                           const void* in, unsigned int inBytes, void* out,
                                           unsigned int outCapacity, int bits) {
    if (bits != 16) {
        return -1;
    }
    const std::size_t frames = inBytes / (std::size_t{inChannels} * kSampleBytes);
    if (inBytes / inChannels > outCapacity) {
        return -1;
    }
    if (frames == 0) {
        return 0;
    }
    const auto* from = static_cast<const std::int16_t*>(in);
    auto* to = static_cast<std::int16_t*>(out);
    if (inChannels == 1 && outChannels >= 2) {
        // Mono is laid out as it was, one sample after the other, and not spread over the channels:
        // hosts have built on what comes out.
        std::memcpy(to, from, frames * kSampleBytes);
        return 0;
    }
    if (outChannels != 1) {
        // Two samples a frame, also for an output that is wider.
        for (std::size_t frame = 0; frame < frames; ++frame, from += inChannels, to += 2) {
            std::memcpy(to, from, 2 * kSampleBytes);
        }
        return 0;
    }
    for (std::size_t frame = 0; frame < frames; ++frame, from += inChannels) {
        const float sum = inChannels > 1 ? static_cast<float>(from[0]) + static_cast<float>(from[1])
                                         : static_cast<float>(from[0]);
        to[frame] = static_cast<std::int16_t>(sum / (inChannels > 1 ? 2.0f : 1.0f));
    }
    return 0;
}
