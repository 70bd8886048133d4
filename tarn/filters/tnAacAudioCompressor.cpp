#include "tarn/filters/tnAacAudioCompressor.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "orb/CAudioSample.h"
#include "orb/CComponentInventory.h"
#include "spar/zBuffer.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/audio/tnOrbAudio.h"
#include "tarn/filters/tnAacAudioBuffer.h"

using namespace Quillon::Orb;

namespace {

constexpr int kNotDescribed = -1041;
constexpr int kNoConversion = -1054;
constexpr int kNoEncoder = -1055;
constexpr int kDidNotBegin = -1056;
constexpr int kRefusedSetting = -1057;
constexpr int kConversionFailed = -1058;
constexpr int kEncoderFailed = -1059;

constexpr int kDefaultKilobits = 128;
constexpr int kBitsPerKilobit = 1000;
// Times of blocks come in whole milliseconds; what is further off is a gap in the sound.
constexpr double kGapMs = 20.0;

unsigned int frame_bytes(const tnMediaRecord& format) {
    return static_cast<unsigned int>(format.fChannels.AsInt32(0)) *
           static_cast<unsigned int>(format.fBitsPerSample.AsInt32('mbps') / 8);
}

double rate_of(const tnMediaRecord& format) {
    return format.fSampleRate.AsInt32(0);
}

}  // namespace

tnAacAudioCompressor::tnAacAudioCompressor() = default;

tnAacAudioCompressor::~tnAacAudioCompressor() {
    if (fEncoder) fEncoder->End();
}

const tnMediaRecord& tnAacAudioCompressor::InputFormat() const {
    return fInputFormat;
}

const tnMediaRecord& tnAacAudioCompressor::OutputFormat() const {
    return fOutputFormat;
}

void tnAacAudioCompressor::SetOutputFormat(const tnMediaRecord& format) {
    fOutputFormat = format;
}

int tnAacAudioCompressor::FramesPerPacket() const {
    return fFramesPerPacket;
}

int tnAacAudioCompressor::GetDecoderDescription(zBuffer& out) {
    if (fDescription.empty()) return -1;
    out.SetData(fDescription.data(), static_cast<unsigned int>(fDescription.size()), false);
    return 0;
}

int tnAacAudioCompressor::Create(const tnMediaRecord& input, const tnMediaRecord& output) {
    fInputFormat = input;
    fOutputFormat = output;
    fCreateError = prepare();
    return fCreateError;
}

int tnAacAudioCompressor::prepare() {
    fStarted = false;
    fConverter.reset();
    if (fEncoder) fEncoder->End();
    fEncoder.Clear();
    // A block without a length in time or in bytes would be no sound at all.
    if (frame_bytes(fInputFormat) == 0 || rate_of(fInputFormat) <= 0) return kNotDescribed;
    const int error = open_encoder();
    if (error != 0) {
        fEncoder.Clear();
        return error;
    }
    if (!tnAudioConverter::NeedsConversion(fInputFormat, fOutputFormat)) return 0;
    fConverter.reset(tnAudioConverter::Factory());
    if (fConverter->Init(fInputFormat, fOutputFormat) == 0) return 0;
    fEncoder->End();
    fEncoder.Clear();
    return kNoConversion;
}

int tnAacAudioCompressor::open_encoder() {
    RObject<CAudioProperties> input;
    if (OrbAudioPropertiesFromMediaRecord(fOutputFormat, input) != 0) return kNotDescribed;
    fEncoder = CComponentInventory<CComponentFactory<CAudioCompressor>>::CreateInstance('caac');
    if (!fEncoder) return kNoEncoder;
    if (fEncoder->SetInputProperties(input.Get()).Failed()) return kNotDescribed;
    const int asked = fOutputFormat.AsInt32('mtbr', 0);
    const int kilobits = asked > 0 ? asked : kDefaultKilobits;
    if (fEncoder
            ->SetProperty(CodeBookProperty::AudioCompressor::BitRate, kilobits * kBitsPerKilobit)
            .Failed()) {
        return kRefusedSetting;
    }
    if (fEncoder->SetOutputFormat('mp4a').Failed()) return kRefusedSetting;
    if (fEncoder->Begin().Failed()) return kDidNotBegin;
    read_output();
    return 0;
}

void tnAacAudioCompressor::read_output() {
    fDescription.clear();
    const RObject<CAudioProperties> output(fEncoder->GetOutputProperties(0));
    if (!output) return;
    fFramesPerPacket = output->GetFramesPerPacket();
    fPrimingFrames = output->GetPrimingFrames();
    const RObject<CDecoderSpecificProperties> specific(output->GetExtension('mspe'));
    RObject<CByteArray> info;
    if (specific) specific->GetDecoderInfo(info);
    if (info) fDescription.assign(info->GetData(), info->GetData() + info->GetLength());
}

int tnAacAudioCompressor::EncodeFrame(EncodedBuffer** out, double timeMs, void* data,
                                      unsigned int count) {
    *out = nullptr;
    if (!fEncoder) return -1;
    follow_time(timeMs, count);
    if (fConverter) {
        const int error = convert(data, count);
        if (error != 0) return error;
    }
    const int error = put(data, count);
    return error != 0 ? error : take_packets(out);
}

void tnAacAudioCompressor::follow_time(double timeMs, unsigned int bytes) {
    if (!fStarted) {
        fOriginMs = fNextMs = timeMs;
        fStarted = true;
    }
    const double off = timeMs - fNextMs;
    if (std::fabs(off) > kGapMs) {
        fOriginMs += off;
        fNextMs = timeMs;
    }
    fNextMs += 1000.0 / rate_of(fInputFormat) * (bytes / frame_bytes(fInputFormat));
}

int tnAacAudioCompressor::convert(void*& data, unsigned int& bytes) {
    // Beside the block itself there may come out what the converter held back of earlier ones.
    const double frames = bytes / frame_bytes(fInputFormat);
    const double rate = rate_of(fOutputFormat);
    const auto most = static_cast<std::size_t>(frames * rate / rate_of(fInputFormat) + rate / 4);
    const std::size_t capacity = most * frame_bytes(fOutputFormat);
    if (fConverted.size() < capacity) fConverted.resize(capacity);
    unsigned int outFrames = 0;
    unsigned int outBytes = 0;
    const int result =
        fConverter->Convert(data, fConverted.data(), bytes, bytes,
                            static_cast<unsigned int>(fConverted.size()), &outFrames, &outBytes);
    if (result != 0) return kConversionFailed;
    data = fConverted.data();
    bytes = outBytes;
    return 0;
}

int tnAacAudioCompressor::put(void* data, unsigned int bytes) {
    if (bytes == 0) return 0;
    const RObject<CAudioSample> sample(new CAudioSample(bytes / frame_bytes(fOutputFormat)));
    if (!sample) return kEncoderFailed;
    ORB_SetAudioSampleData(sample, static_cast<unsigned char*>(data), static_cast<int>(bytes),
                           false);
    return fEncoder->PutSample(0, sample.Get()).Failed() ? kEncoderFailed : 0;
}

int tnAacAudioCompressor::take_packets(EncodedBuffer** out) {
    const double frameMs = 1000.0 / rate_of(fOutputFormat);
    auto made = std::make_unique<tnAacAudioBuffer>();
    for (;;) {
        RObject<CMediaSample> sample;
        if (fEncoder->GetSample(0, sample).Failed()) return kEncoderFailed;
        if (!sample) break;
        if (!sample->IsType(CAudioSample::kType)) continue;
        const long long frame = sample->GetTime() - fPrimingFrames;
        const double timeMs = fOriginMs + frameMs * static_cast<double>(frame);
        const double durationMs = frameMs * static_cast<double>(sample->GetDuration());
        made->add(RObject<CAudioSample>(static_cast<CAudioSample*>(sample.Detach())), timeMs,
                  durationMs);
    }
    if (made->PacketCount() > 0) *out = made.release();
    return 0;
}
