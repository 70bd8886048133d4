#include "LiveSound.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "../ClipAudio.h"
#include "TestPicture.h"

namespace {

// Plain sound through the filter manager is 16-bit stereo and nothing else.
constexpr long long kChannels = 2;

std::vector<short> in_stereo(const std::vector<short>& mono) {
    std::vector<short> both;
    both.reserve(mono.size() * 2);
    for (const short sample : mono) both.insert(both.end(), 2, sample);
    return both;
}

class ClipSound final : public LiveSound {
public:
    ClipSound(std::unique_ptr<ClipAudio> clip, std::string path)
        : fPath(std::move(path)), fClip(std::move(clip)), fFormat(fClip->Format()) {
        fFormat.fChannels.SetInt32(2);
    }

    const tnMediaRecord& Format() const override { return fFormat; }

    void BeginRound(double at, double start) override {
        fStart = start;
        fRoundEnd = std::llround(at * fFormat.fSampleRate.AsInt32(0));
        fNextRound = true;
    }

    void Next(short* pcm, long long frames) override {
        while (frames > 0) {
            if (fNextRound && fPosition >= fRoundEnd) reopen();
            const long long until =
                fNextRound ? std::min(fPosition + frames, fRoundEnd) : fPosition + frames;
            const long long count = until - fPosition;
            take(pcm, static_cast<std::size_t>(count * kChannels));
            pcm += count * kChannels;
            frames -= count;
            fPosition = until;
        }
    }

private:
    void reopen() {
        fNextRound = false;
        fPending.clear();
        fTaken = 0;
        std::string unused;
        // The first round finds its clip open and not yet begun.
        if (fPosition > 0 || !fClip) fClip = ClipAudio::Open(fPath, unused);
        if (fClip) fClip->StartAt(fStart);
    }

    void take(short* pcm, std::size_t samples) {
        while (samples > 0) {
            if (fTaken == fPending.size()) {
                fTaken = 0;
                fPending.clear();
                if (!fClip || !fClip->Next(fPending)) {
                    fClip.reset();
                    std::fill_n(pcm, samples, short{0});
                    return;
                }
                if (fClip->Channels() == 1) fPending = in_stereo(fPending);
            }
            const std::size_t count = std::min(samples, fPending.size() - fTaken);
            std::copy_n(fPending.data() + fTaken, count, pcm);
            fTaken += count;
            pcm += count;
            samples -= count;
        }
    }

    const std::string fPath;
    std::unique_ptr<ClipAudio> fClip;  // null past the clip's end
    tnMediaRecord fFormat;
    std::vector<short> fPending;
    std::size_t fTaken = 0;   // samples of fPending
    long long fPosition = 0;  // frames given
    double fStart = 0;        // seconds
    long long fRoundEnd = 0;  // frames, where the next round begins
    bool fNextRound = false;
};

}  // namespace

std::unique_ptr<LiveSound> LiveSound::Open(const ShowSource& source, std::string& error) {
    error.clear();
    if (source.clip.empty()) return source.toneHz > 0 ? MakeTone(source) : nullptr;
    std::unique_ptr<ClipAudio> clip = ClipAudio::Open(source.clip, error);
    if (!clip) return nullptr;
    return std::make_unique<ClipSound>(std::move(clip), source.clip);
}
