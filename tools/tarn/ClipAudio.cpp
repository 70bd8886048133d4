#include "ClipAudio.h"

extern "C" {
#include <libswresample/swresample.h>
}

#include <cmath>

#include "avHandles.h"

namespace {

constexpr int kBitsPerSample = 16;
// Smaller steps of the time stamps are rounding in the clip, not holes.
constexpr double kSmallestHoleSeconds = 0.02;
constexpr double kLargestHoleSeconds = 60.0;

class AvClipAudio final : public ClipAudio {
public:
    bool Open(const std::string& path, std::string& error);

    const tnMediaRecord& Format() const override { return fFormat; }
    int SampleRate() const override { return fTrack.decoder->sample_rate; }
    int Channels() const override { return fChannels; }
    double HeaderSeconds() const override { return fTrack.HeaderSeconds(); }
    void StartAt(double seconds) override { fOrigin = seconds; }
    bool Next(std::vector<short>& pcm) override;
    std::string Problem() const override { return fEnded ? fTrack.EndedEarly() : ""; }

private:
    struct FreeResampler {
        void operator()(SwrContext* context) const { swr_free(&context); }
    };

    void place_on_time_line(std::vector<short>& pcm);

    AvTrack fTrack;
    AvHandle<AVFrame> fDecoded{av_frame_alloc()};
    std::unique_ptr<SwrContext, FreeResampler> fConverter;
    tnMediaRecord fFormat{TN_MEDIA_AUDIO};
    int fChannels = 2;
    double fOrigin = 0;
    long long fFramesGiven = 0;
    bool fFirst = true;
    bool fEnded = false;
};

bool AvClipAudio::Open(const std::string& path, std::string& error) {
    if (!fTrack.Open(path, AVMEDIA_TYPE_AUDIO, error)) return false;
    const AVCodecContext& decoder = *fTrack.decoder;
    fChannels = decoder.ch_layout.nb_channels == 1 ? 1 : 2;
    AVChannelLayout target;
    av_channel_layout_default(&target, fChannels);
    SwrContext* made = nullptr;
    const int code = swr_alloc_set_opts2(&made, &target, AV_SAMPLE_FMT_S16, decoder.sample_rate,
                                         const_cast<AVChannelLayout*>(&decoder.ch_layout),
                                         decoder.sample_fmt, decoder.sample_rate, 0, nullptr);
    fConverter.reset(made);
    if (code < 0 || swr_init(made) < 0) {
        error = "'" + path +
                "': its sound cannot be brought to 16-bit PCM; give it another sound format first";
        return false;
    }
    fFormat.fSampleRate.SetInt32(decoder.sample_rate);
    fFormat.fChannels.SetInt32(fChannels);
    fFormat.fBitsPerSample.SetInt32(kBitsPerSample);
    fFormat.fBusses.SetInt32(1);
    fFormat.fAudioFormat.SetInt32('sowt');
    fFormat.SetInt64('tmsc', decoder.sample_rate, 0);
    return true;
}

bool AvClipAudio::Next(std::vector<short>& pcm) {
    pcm.clear();
    while (pcm.empty()) {
        if (!fTrack.Decode(*fDecoded)) {
            fEnded = true;
            return false;
        }
        pcm.resize(static_cast<std::size_t>(fDecoded->nb_samples) * fChannels);
        uint8_t* out = reinterpret_cast<uint8_t*>(pcm.data());
        const int frames =
            swr_convert(fConverter.get(), &out, fDecoded->nb_samples,
                        const_cast<const uint8_t**>(fDecoded->extended_data), fDecoded->nb_samples);
        pcm.resize(frames > 0 ? static_cast<std::size_t>(frames) * fChannels : 0);
        place_on_time_line(pcm);
        av_frame_unref(fDecoded.get());
    }
    fFramesGiven += static_cast<long long>(pcm.size()) / fChannels;
    return true;
}

// Fills a hole in front of the block with silence and cuts what overlaps the block before it.
void AvClipAudio::place_on_time_line(std::vector<short>& pcm) {
    const long long pts = fDecoded->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE) return;
    const double at = static_cast<double>(pts) * av_q2d(fTrack.stream->time_base) - fOrigin;
    const double expected = static_cast<double>(fFramesGiven) / SampleRate();
    const double step = at - expected;
    const bool isRounding = !fFirst && std::fabs(step) < kSmallestHoleSeconds;
    if (isRounding || std::fabs(step) > kLargestHoleSeconds) return;
    const auto samples =
        static_cast<std::size_t>(std::llround(std::fabs(step) * SampleRate())) * fChannels;
    if (step >= 0) {
        pcm.insert(pcm.begin(), samples, 0);
        fFirst = false;
        return;
    }
    if (samples < pcm.size()) fFirst = false;
    pcm.erase(pcm.begin(),
              pcm.begin() + static_cast<std::ptrdiff_t>(std::min(samples, pcm.size())));
}

}  // namespace

std::unique_ptr<ClipAudio> ClipAudio::Open(const std::string& path, std::string& error) {
    auto clip = std::make_unique<AvClipAudio>();
    if (!clip->Open(path, error)) return nullptr;
    return clip;
}
