#include "ClipAudio.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "AvTrack.h"

namespace {

constexpr int kBitsPerSample = 16;
// Smaller steps of the time stamps are rounding in the clip, not holes.
constexpr double kSmallestHoleSeconds = 0.02;
// Longer ones are time stamps that lead nowhere.
constexpr double kLargestHoleSeconds = 24 * 3600.0;
// What steps back further belongs to a clock that began again.
constexpr double kLargestOverlapSeconds = 1.0;
constexpr long long kSilenceFrames = 4096;  // at a time

class AvClipAudio final : public ClipAudio {
public:
    bool Open(const std::string& path, std::string& error);

    const tnMediaRecord& Format() const override { return fFormat; }
    int SampleRate() const override { return fRate; }
    int Channels() const override { return fChannels; }
    double HeaderSeconds() const override { return fTrack.HeaderSeconds(); }
    void StartAt(double seconds) override { fOrigin = seconds; }
    bool Next(std::vector<short>& pcm) override;
    std::string Problem() const override;
    bool GaveUp() const override { return fTrack.GaveUp(); }

private:
    struct FreeResampler {
        void operator()(SwrContext* context) const { swr_free(&context); }
    };

    bool make_converter(const AVChannelLayout& layout, int format, int rate);
    bool prepare_converter(std::vector<short>& held);
    void convert(const AVFrame* frame, std::vector<short>& pcm);
    bool read_block(std::vector<short>& pcm);
    void give_silence(std::vector<short>& pcm);
    void place_on_time_line(double held, double expected);
    void cut_overlap(double seconds);

    AvTrack fTrack;
    AvHandle<AVFrame> fDecoded{av_frame_alloc()};
    std::unique_ptr<SwrContext, FreeResampler> fConverter;
    AvHandle<AVFrame> fConverts{av_frame_alloc()};  // layout, format, rate that it was made for
    tnMediaRecord fFormat{TN_MEDIA_AUDIO};
    int fRate = 0;
    int fChannels = 2;
    std::string fProblem;
    std::vector<short> fBlock;  // read and not yet given
    long long fSilence = 0;     // frames to be given before it
    double fLastHole = 0;       // seconds; 0 once the sound behind it goes on in its place
    double fOrigin = 0;
    long long fFramesGiven = 0;
    bool fFirst = true;
    bool fEnded = false;
};

bool AvClipAudio::Open(const std::string& path, std::string& error) {
    if (!fTrack.Open(path, AVMEDIA_TYPE_AUDIO, error)) return false;
    const AVCodecContext& decoder = *fTrack.decoder;
    fRate = decoder.sample_rate;
    fChannels = decoder.ch_layout.nb_channels == 1 ? 1 : 2;
    if (!make_converter(decoder.ch_layout, decoder.sample_fmt, decoder.sample_rate)) {
        error = "'" + path +
                "': its sound cannot be brought to 16-bit PCM; give it another sound format first";
        return false;
    }
    // A broadcast that was taken down begins at any hour of its clock.
    const long long start = fTrack.file->start_time;
    if (start != AV_NOPTS_VALUE) fOrigin = static_cast<double>(start) / AV_TIME_BASE;
    fFormat.fSampleRate.SetInt32(fRate);
    fFormat.fChannels.SetInt32(fChannels);
    fFormat.fBitsPerSample.SetInt32(kBitsPerSample);
    fFormat.fBusses.SetInt32(1);
    fFormat.fAudioFormat.SetInt32('sowt');
    fFormat.SetInt64('tmsc', fRate, 0);
    return true;
}

std::string AvClipAudio::Problem() const {
    if (!fProblem.empty()) return fProblem;
    return fEnded ? fTrack.EndedEarly() : "";
}

bool AvClipAudio::make_converter(const AVChannelLayout& layout, int format, int rate) {
    AVChannelLayout target;
    av_channel_layout_default(&target, fChannels);
    SwrContext* made = nullptr;
    const int code = swr_alloc_set_opts2(&made, &target, AV_SAMPLE_FMT_S16, fRate,
                                         const_cast<AVChannelLayout*>(&layout),
                                         static_cast<AVSampleFormat>(format), rate, 0, nullptr);
    fConverter.reset(made);
    // Of the two that FFmpeg has the one that lets no images through.
    if (made) av_opt_set_int(made, "resampler", SWR_ENGINE_SOXR, 0);
    if (code < 0 || swr_init(made) < 0) return false;
    fConverts->format = format;
    fConverts->sample_rate = rate;
    return av_channel_layout_copy(&fConverts->ch_layout, &layout) >= 0;
}

// Clips that were joined change in their midst: mono behind stereo has one plane where a converter
// for stereo would read two. `held` gets what the converter before still had.
bool AvClipAudio::prepare_converter(std::vector<short>& held) {
    if (fDecoded->format == fConverts->format && fDecoded->sample_rate == fConverts->sample_rate &&
        av_channel_layout_compare(&fDecoded->ch_layout, &fConverts->ch_layout) == 0) {
        return true;
    }
    convert(nullptr, held);
    return make_converter(fDecoded->ch_layout, fDecoded->format, fDecoded->sample_rate);
}

/// Without a frame the converter gives what it holds back.
void AvClipAudio::convert(const AVFrame* frame, std::vector<short>& pcm) {
    const int samples = frame ? frame->nb_samples : 0;
    const int room = std::max(0, swr_get_out_samples(fConverter.get(), samples));
    pcm.resize(static_cast<std::size_t>(room) * fChannels);
    uint8_t* out = reinterpret_cast<uint8_t*>(pcm.data());
    const auto in = const_cast<const uint8_t**>(frame ? frame->extended_data : nullptr);
    const int frames = swr_convert(fConverter.get(), &out, room, in, samples);
    pcm.resize(frames > 0 ? static_cast<std::size_t>(frames) * fChannels : 0);
}

// Reads a block. `pcm` gets what has to be given before it: what converters held back.
bool AvClipAudio::read_block(std::vector<short>& pcm) {
    if (!fConverter) return false;
    if (!fTrack.Decode(*fDecoded)) {
        fEnded = true;
        convert(nullptr, pcm);
        return !pcm.empty();
    }
    if (!prepare_converter(pcm)) {
        fProblem = "changes to a format that cannot be brought to 16-bit PCM";
        fConverter.reset();
        return !pcm.empty();
    }
    const double held = static_cast<double>(swr_get_delay(fConverter.get(), fRate)) / fRate;
    convert(fDecoded.get(), fBlock);
    const long long given = fFramesGiven + static_cast<long long>(pcm.size()) / fChannels;
    place_on_time_line(held, static_cast<double>(given) / fRate);
    return true;
}

// In pieces: a hole may be as long as the clip.
void AvClipAudio::give_silence(std::vector<short>& pcm) {
    const long long frames = std::min(fSilence, kSilenceFrames);
    pcm.assign(static_cast<std::size_t>(frames) * fChannels, 0);
    fSilence -= frames;
}

bool AvClipAudio::Next(std::vector<short>& pcm) {
    pcm.clear();
    while (pcm.empty()) {
        if (fSilence > 0) {
            give_silence(pcm);
        } else if (!fBlock.empty()) {
            pcm.swap(fBlock);
        } else if (!read_block(pcm)) {
            return false;
        }
    }
    fFramesGiven += static_cast<long long>(pcm.size()) / fChannels;
    return true;
}

// Fills a hole in front of the block with silence and cuts what overlaps the block before it. The
// block begins with what was `held` back of the one before, in seconds.
void AvClipAudio::place_on_time_line(double held, double expected) {
    const long long pts = fDecoded->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE) return;
    const double at = static_cast<double>(pts) * av_q2d(fTrack.stream->time_base) - fOrigin - held;
    const double step = at - expected;
    if (!fFirst && std::fabs(step) < kSmallestHoleSeconds) {
        fLastHole = 0;
    } else if (step < 0) {
        cut_overlap(-step);
    } else if (step > kLargestHoleSeconds) {
        fProblem = fmt::format("has a time stamp that leads from {:.1f} to {:.1f} seconds",
                               expected + fOrigin, at + fOrigin);
    } else {
        fSilence = std::llround(step * fRate);
        fLastHole = step;
        fFirst = false;
    }
}

// Where clips were joined whose times begin at nothing each, the sound of the second goes on behind
// that of the first, as the pictures do. Unless one wrong stamp only led away and the next one
// leads back: then the sound is behind by that silence and has to catch up.
void AvClipAudio::cut_overlap(double seconds) {
    if (!fFirst && seconds > fLastHole + kLargestOverlapSeconds) {
        return;
    }
    const double frames = std::min(seconds * fRate, static_cast<double>(fBlock.size() / fChannels));
    const auto samples = static_cast<std::size_t>(std::llround(frames)) * fChannels;
    if (samples < fBlock.size()) fFirst = false;
    fBlock.erase(fBlock.begin(), fBlock.begin() + static_cast<std::ptrdiff_t>(samples));
}

}  // namespace

std::unique_ptr<ClipAudio> ClipAudio::Open(const std::string& path, std::string& error) {
    auto clip = std::make_unique<AvClipAudio>();
    if (!clip->Open(path, error)) return nullptr;
    return clip;
}
