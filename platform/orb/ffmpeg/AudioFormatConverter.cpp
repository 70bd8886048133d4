#include "orb/ffmpeg/AudioFormatConverter.h"

#include <climits>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include "orb/BlockPool.h"
#include "orb/CComponentInventory.h"
#include "orb/ffmpeg/swrFormat.h"
#include "orb/filterSupport.h"
#include "spar/trace.h"

namespace Quillon::Orb {
namespace {

/// A converter of single samples: to it everything is mono, at a rate that does not matter.
SwrContext* make_resampler(const PcmFormat& from, const PcmFormat& to) {
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    constexpr int kAnyRate = 48000;
    SwrContext* made = nullptr;
    swr_alloc_set_opts2(&made, &mono, swr_format_of(to), kAnyRate, &mono, swr_format_of(from),
                        kAnyRate, 0, nullptr);
    if (made && swr_init(made) < 0) swr_free(&made);
    return made;
}

}  // namespace

AudioFormatConverter::AudioFormatConverter() : CAudioConverter(kCode) {}

AudioFormatConverter::~AudioFormatConverter() {
    swr_free(&fResampler);
}

Result AudioFormatConverter::Begin() {
    End();
    const CAudioProperties* input = Input();
    if (!input) return ResultNullPointer("'afc ': no input properties");
    const unsigned int wanted = GetOutputFormat() ? GetOutputFormat() : input->GetFormat();
    const PcmFormat* from = PcmFormat::Find(input->GetFormat());
    const PcmFormat* to = PcmFormat::Find(wanted);
    if (!from || !to || input->GetChannels() < 1) {
        zTrace("'afc ': cannot turn {} of {} channels into {}\n", four_text(input->GetFormat()),
               input->GetChannels(), four_text(wanted));
        return ResultNotSupported("'afc ': these sample formats are not supported");
    }
    if (from->kind != to->kind) {
        fResampler = make_resampler(*from, *to);
        if (!fResampler) return ResultOutOfMemory("'afc ': no converter");
    }
    RObject<CAudioProperties> output(new CAudioProperties(input));
    if (!output) return ResultOutOfMemory();
    output->SetFormat(wanted);
    output->SetBitsPerSample(to->Bits());
    output->SetBytesPerPacket(input->GetChannels() * to->bytes);
    UpdateOutputProperties(output.Detach());
    fFrom = from;
    fTo = to;
    fChannels = input->GetChannels();
    fFrames = 0;
    fReady.Clear();
    return ResultOK();
}

Result AudioFormatConverter::End() {
    swr_free(&fResampler);
    fFrom = nullptr;
    fTo = nullptr;
    return ResultOK();
}

Result AudioFormatConverter::PutSample(int, CMediaSample* sample) {
    if (!fFrom) return ResultError("'afc ': a sample outside Begin and End");
    if (!sample) return ResultOK();
    const AudioBlock block(*sample);
    if (!block.IsValid()) return ResultNullPointer("'afc ': a sample without data");
    const int frames = block.Frames(fChannels * fFrom->bytes);
    const long long length = static_cast<long long>(frames) * fChannels * fTo->bytes;
    if (length > INT_MAX) return ResultInvalidArgument("'afc ': a block of %d frames", frames);
    RObject<CByteArray> bytes(new CByteArray(static_cast<int>(length), 1));
    if (!bytes || bytes->GetLength() != length) return ResultOutOfMemory();
    Result result = convert(block.Data(), bytes->GetData(),
                            static_cast<std::size_t>(frames) * static_cast<std::size_t>(fChannels));
    if (result.Failed()) return result;
    result = fReady.AddPcm(*bytes, fFrames, frames);
    fFrames += frames;
    return result;
}

Result AudioFormatConverter::convert(const unsigned char* from, unsigned char* to,
                                     std::size_t samples) {
    if (samples == 0) return ResultOK();
    if (!fResampler) {
        const int swapBytes = fFrom->swapped != fTo->swapped ? fFrom->bytes : 1;
        SwapSampleBytes(from, to, samples * static_cast<std::size_t>(fFrom->bytes / swapBytes),
                        swapBytes);
        return ResultOK();
    }
    Block straight;
    if (fFrom->swapped) {
        straight = Block(samples * static_cast<std::size_t>(fFrom->bytes));
        if (!straight) return ResultOutOfMemory();
        SwapSampleBytes(from, straight.Get(), samples, fFrom->bytes);
        from = straight.Get();
    }
    const int count = static_cast<int>(samples);
    if (swr_convert(fResampler, &to, count, &from, count) != count) {
        return ResultError("'afc ': the conversion failed");
    }
    if (fTo->swapped) SwapSampleBytes(to, to, samples, fTo->bytes);
    return ResultOK();
}

Result AudioFormatConverter::GetSample(int, RObject<CMediaSample>& sample) {
    return fReady.Take(sample);
}

void RegisterAudioFormatConverter() {
    using Factory = CSimpleComponentFactory<CAudioConverter, AudioFormatConverter>;
    RObject<Factory> factory(new Factory(AudioFormatConverter::kCode));
    CComponentInventory<CComponentFactory<CAudioConverter>>::GetSingleton().Add(factory.Get());
}

}  // namespace Quillon::Orb
