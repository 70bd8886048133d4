#include "orb/ffmpeg/AudioRateConverter.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <soxr.h>
#include <utility>
#include <vector>

#include "orb/CComponentInventory.h"
#include "orb/filterSupport.h"
#include "spar/trace.h"

namespace Quillon::Orb {
namespace {

constexpr int kMarginFrames = 64;
constexpr int kMeasuredFrames = 100000;  // of the input; several transforms at any pair of rates
// What is measured at Begin takes time as the output rate goes above the input rate.
constexpr long long kFarthestRates = 1024;

soxr_datatype_t soxr_type_of(const PcmFormat& format) {
    switch (format.kind) {
        case PcmFormat::Kind::Int16:
            return SOXR_INT16_I;
        case PcmFormat::Kind::Int32:
            return SOXR_INT32_I;
        case PcmFormat::Kind::Float64:
            return SOXR_FLOAT64_I;
        default:
            return SOXR_FLOAT32_I;
    }
}

/// High quality, on the caller's thread. No dither: silence stays silence, and equal input gives
/// equal bytes.
soxr_t make_resampler(int inputRate, int outputRate, int channels, soxr_datatype_t from,
                      soxr_datatype_t to) {
    soxr_io_spec_t io = soxr_io_spec(from, to);
    io.flags = SOXR_NO_DITHER;
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    soxr_t made = soxr_create(inputRate, outputRate, static_cast<unsigned int>(channels), &error,
                              &io, &quality, &runtime);
    if (error) {
        soxr_delete(made);
        return nullptr;
    }
    return made;
}

/// How far the filter's output ever falls behind its input, in frames of the output rate: measured
/// frame by frame over kMeasuredFrames of silence, since it follows from transforms that the filter
/// chooses for each pair of rates. Negative when there is no memory.
int measure_held_back(int inputRate, int outputRate) {
    soxr_t filter = make_resampler(inputRate, outputRate, 1, SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    if (!filter) return -1;
    const float silence = 0.0f;
    std::vector<float> sink(static_cast<std::size_t>(outputRate) + kMarginFrames);
    long long out = 0;
    long long most = 0;
    for (long long in = 1; in <= kMeasuredFrames; ++in) {
        std::size_t taken = 0;
        std::size_t given = 0;
        soxr_process(filter, &silence, 1, &taken, sink.data(), sink.size(), &given);
        out += static_cast<long long>(given);
        most = std::max(most, in * outputRate / inputRate - out);
    }
    soxr_delete(filter);
    return static_cast<int>(most) + 1;
}

bool are_near(long long oneRate, long long otherRate) {
    return oneRate <= kFarthestRates * otherRate && otherRate <= kFarthestRates * oneRate;
}

bool is_supported(const PcmFormat* format) {
    return format && format->kind != PcmFormat::Kind::Unsigned8;
}

/// What the filter knows: not the 8-bit format.
CValueList<unsigned int>* list_formats() {
    RObject<CValueList<unsigned int>> all(PcmFormat::ListCodes());
    RObject<CValueList<unsigned int>> list(new CValueList<unsigned int>);
    if (!all || !list) return nullptr;
    for (const auto* node = all->GetFirst(); node; node = node->next) {
        const unsigned int code = node->element->GetValue();
        if (is_supported(PcmFormat::Find(code))) list->AddValue(code);
    }
    return list.Detach();
}

}  // namespace

AudioRateConverter::AudioRateConverter() : CAudioConverter(kCode) {
    DeclareInt(CodeBookProperty::AudioConverter::SampleRate, 0, 1, 6144000);
}

AudioRateConverter::~AudioRateConverter() {
    close();
}

CValueList<unsigned int>* AudioRateConverter::GetInputFormats() {
    return list_formats();
}
CValueList<unsigned int>* AudioRateConverter::GetOutputFormats() {
    return list_formats();
}

void AudioRateConverter::close() {
    soxr_delete(fResampler);
    fResampler = nullptr;
}

Result AudioRateConverter::Begin() {
    close();
    fReady.Clear();
    const CAudioProperties* input = Input();
    if (!input) return ResultNullPointer("'asrc': no input properties");
    const unsigned int wanted = GetOutputFormat() ? GetOutputFormat() : input->GetFormat();
    fFrom = PcmFormat::Find(input->GetFormat());
    fTo = PcmFormat::Find(wanted);
    fChannels = input->GetChannels();
    fInputRate = input->GetSampleRate();
    fOutputRate = GetInt(CodeBookProperty::AudioConverter::SampleRate);
    if (fOutputRate == 0) fOutputRate = fInputRate;
    if (!is_supported(fFrom) || !is_supported(fTo) || fChannels < 1 || fInputRate < 1 ||
        !are_near(fInputRate, fOutputRate)) {
        zTrace("'asrc': cannot turn {} of {} channels at {} Hz into {} at {} Hz\n",
               four_text(input->GetFormat()), fChannels, fInputRate, four_text(wanted),
               fOutputRate);
        return ResultNotSupported("'asrc': this pair of formats and rates is not supported");
    }
    RObject<CAudioProperties> output(new CAudioProperties(input));
    fHeldBack = measure_held_back(fInputRate, fOutputRate);
    fResampler = make_resampler(fInputRate, fOutputRate, fChannels, soxr_type_of(*fFrom),
                                soxr_type_of(*fTo));
    if (!output || fHeldBack < 0 || !fResampler) {
        close();
        return ResultOutOfMemory("'asrc': no filter from %d to %d Hz", fInputRate, fOutputRate);
    }
    output->SetFormat(wanted);
    output->SetSampleRate(fOutputRate);
    output->SetTimescale(0);  // follows the new rate
    output->SetBitsPerSample(fTo->Bits());
    output->SetBytesPerPacket(fChannels * fTo->bytes);
    UpdateOutputProperties(output.Detach());
    fFramesIn = 0;
    fFramesOut = 0;
    fKeptFrames = 0;
    return ResultOK();
}

Result AudioRateConverter::End() {
    return fResampler ? drain() : Result(ResultOK());
}

Result AudioRateConverter::PutSample(int, CMediaSample* sample) {
    if (!fResampler) return ResultError("'asrc': a sample before Begin or after the end");
    if (!sample) return drain();
    const AudioBlock block(*sample);
    if (!block.IsValid()) return ResultNullPointer("'asrc': a sample without data");
    const int frames = block.Frames(fChannels * fFrom->bytes);
    if (frames == 0) return ResultOK();
    if (!fFrom->swapped) return process(block.Data(), frames);
    const std::size_t samples =
        static_cast<std::size_t>(frames) * static_cast<std::size_t>(fChannels);
    const Block straight(samples * static_cast<std::size_t>(fFrom->bytes));
    if (!straight) return ResultOutOfMemory();
    SwapSampleBytes(block.Data(), straight.Get(), samples, fFrom->bytes);
    return process(straight.Get(), frames);
}

/// Runs one block through the filter, behind what is kept already, and releases what is due.
Result AudioRateConverter::process(const unsigned char* from, int frames) {
    const int frameBytes = fChannels * fTo->bytes;
    const long long most = static_cast<long long>(frames) * fOutputRate / fInputRate + fHeldBack +
                           kMarginFrames + fKeptFrames;
    if (most * frameBytes > INT_MAX)
        return ResultInvalidArgument("'asrc': a block of %d frames", frames);
    RObject<CByteArray> bytes(new CByteArray(static_cast<int>(most), frameBytes));
    if (!bytes || bytes->GetLength() == 0) return ResultOutOfMemory();
    unsigned char* to = bytes->GetData();
    if (fKeptFrames > 0)
        std::memcpy(to, fKept.Get(),
                    static_cast<std::size_t>(fKeptFrames) * static_cast<std::size_t>(frameBytes));
    int available = fKeptFrames;
    for (int done = 0; done < frames;) {
        std::size_t taken = 0;
        std::size_t given = 0;
        const soxr_error_t error = soxr_process(
            fResampler,
            from +
                static_cast<std::size_t>(done) * static_cast<std::size_t>(fChannels * fFrom->bytes),
            static_cast<std::size_t>(frames - done), &taken,
            to + static_cast<std::size_t>(available) * static_cast<std::size_t>(frameBytes),
            static_cast<std::size_t>(most - available), &given);
        if (error || (taken == 0 && given == 0))
            return ResultError("'asrc': %s", error ? error : "stuck");
        done += static_cast<int>(taken);
        available += static_cast<int>(given);
    }
    fFramesIn += frames;
    return release(*bytes, available, due_frames(available));
}

/// How many of the frames that are available are due by now.
int AudioRateConverter::due_frames(int available) const {
    const long long due = fFramesIn * fOutputRate / fInputRate - fHeldBack - fFramesOut;
    return static_cast<int>(std::clamp<long long>(due, 0, available));
}

/// Makes a sample of the first `released` of the `frames` frames in `bytes` and keeps the rest.
Result AudioRateConverter::release(CByteArray& bytes, int frames, int released) {
    const std::size_t frameBytes = static_cast<std::size_t>(fChannels * fTo->bytes);
    const std::size_t kept = static_cast<std::size_t>(frames - released) * frameBytes;
    if (kept > 0) {
        if (!fKept || BlockPool::SizeOf(fKept.Get()) < kept) fKept = Block(kept);
        if (!fKept) {
            fKeptFrames = 0;
            return ResultOutOfMemory();
        }
        std::memcpy(fKept.Get(), bytes.GetData() + static_cast<std::size_t>(released) * frameBytes,
                    kept);
    }
    fKeptFrames = frames - released;
    if (released == 0) return ResultOK();
    bytes.Shorten(static_cast<int>(static_cast<std::size_t>(released) * frameBytes));
    if (fTo->swapped) {
        SwapSampleBytes(bytes.GetData(), bytes.GetData(),
                        static_cast<std::size_t>(released) * static_cast<std::size_t>(fChannels),
                        fTo->bytes);
    }
    const Result result = fReady.AddPcm(bytes, fFramesOut, released);
    fFramesOut += released;
    return result;
}

/// Ends the stream: all that the filter and this component still hold becomes ready.
Result AudioRateConverter::drain() {
    const int frameBytes = fChannels * fTo->bytes;
    const int room = fHeldBack + kMarginFrames;
    for (bool more = true; more;) {
        RObject<CByteArray> bytes(new CByteArray(room + fKeptFrames, frameBytes));
        if (!bytes || bytes->GetLength() == 0) return ResultOutOfMemory();
        const std::size_t kept =
            static_cast<std::size_t>(fKeptFrames) * static_cast<std::size_t>(frameBytes);
        if (kept > 0) std::memcpy(bytes->GetData(), fKept.Get(), kept);
        std::size_t given = 0;
        if (fFramesIn > 0) {
            const soxr_error_t error =
                soxr_process(fResampler, nullptr, 0, nullptr, bytes->GetData() + kept,
                             static_cast<std::size_t>(room), &given);
            if (error) return ResultError("'asrc': %s", error);
        }
        const int available = fKeptFrames + static_cast<int>(given);
        const Result result = release(*bytes, available, available);
        if (result.Failed()) return result;
        more = given > 0;
    }
    close();
    return ResultOK();
}

Result AudioRateConverter::GetSample(int, RObject<CMediaSample>& sample) {
    return fReady.Take(sample);
}

void RegisterAudioRateConverter() {
    using Factory = CSimpleComponentFactory<CAudioConverter, AudioRateConverter>;
    RObject<Factory> factory(new Factory(AudioRateConverter::kCode));
    CComponentInventory<CComponentFactory<CAudioConverter>>::GetSingleton().Add(factory.Get());
}

}  // namespace Quillon::Orb
