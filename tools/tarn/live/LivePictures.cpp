#include "LivePictures.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <cstring>
#include <deque>
#include <fmt/format.h>

#include "orb/CPixelDataReference.h"
#include "orb/RObject.h"
#include "tarn/foundation/tnRasterType.h"
#include "tarn/movies/tnStreamBuffer.h"

#include "../ClipVideo.h"
#include "../Say.h"
#include "LivePoints.h"
#include "LiveSound.h"
#include "TestPicture.h"

using namespace Quillon::Orb;

namespace {

/// Copies rows of `bytes` from one pitch to another.
void copy_rows(const unsigned char* from, int fromPitch, unsigned char* to, int toPitch, int bytes,
               int rows) {
    if (fromPitch == toPitch) {
        std::memcpy(to, from, static_cast<std::size_t>(toPitch) * static_cast<std::size_t>(rows));
        return;
    }
    for (int y = 0; y < rows; ++y) {
        std::memcpy(to, from, static_cast<std::size_t>(bytes));
        from += fromPitch;
        to += toPitch;
    }
}

void copy_picture(const unsigned char* from, int fromPitch, unsigned char* to,
                  const tnMediaRecord& format) {
    const int raster = format.fColourspace.AsInt32(0);
    const int height = format.fHeight.AsInt32(0);
    const int pitch = format.fBytesPerRow.AsInt32(0);
    const int bytes = tnRasterType::ActiveBytesPerRow(format.fWidth.AsInt32(0), raster);
    copy_rows(from, fromPitch, to, pitch, bytes, height);
    if (raster != 'I420' && raster != 'NV12') return;
    const auto* const chroma = from + static_cast<std::ptrdiff_t>(fromPitch) * height;
    auto* const target = to + static_cast<std::ptrdiff_t>(pitch) * height;
    if (raster == 'NV12') {
        copy_rows(chroma, fromPitch, target, pitch, bytes, height / 2);
    } else {
        copy_rows(chroma, fromPitch / 2, target, pitch / 2, bytes / 2, height);
    }
}

/// A clip from its first picture to its last and over again.
///
/// A tick shows the latest picture that is due by the tick's middle: where pictures are missing or
/// last longer the one before stays, and of several that are due at once the last is shown. So
/// pictures keep their place beside the sound, which runs on a line of its own.
class ClipPictures final : public LivePictures {
public:
    bool Open(const ShowSource& source, std::string& error) {
        fPath = source.clip;
        fLoop = source.loop;
        fWidth = source.width;
        fHeight = source.height;
        if (!open_clip(error)) return false;
        fFormat = fClip->Format();
        // Encoders take the 4:2:0 layouts with rows without padding and an even size.
        const int width = fFormat.fWidth.AsInt32(0) & ~1;
        const int height = fFormat.fHeight.AsInt32(0) & ~1;
        if (width != fFormat.fWidth.AsInt32(0) || height != fFormat.fHeight.AsInt32(0)) {
            fWidth = width;
            fHeight = height;
            if (!open_clip(error)) return false;
            fFormat = fClip->Format();
        }
        const int raster = fFormat.fColourspace.AsInt32(0);
        if (raster == 'I420' || raster == 'NV12') fFormat.fBytesPerRow.SetInt32(width);
        describe_rate();
        return true;
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    double StartSeconds() const override { return fClip->StartSeconds(); }
    std::vector<std::string> Cautions() const { return fClip->Cautions(); }

    // The start of a round is told first, however short the round.
    long long RoundStart() const override {
        const bool isNext = fLoop && fRoundEnd != kUnknown && fTick > fRoundStart + 1;
        return isNext ? fRoundEnd : fRoundStart;
    }

    bool Next(tnStreamBuffer* buffer) override {
        LiveAtPoint(LivePoint::kDecompressor);
        if (fTick == fRoundEnd && !begin_round()) return false;
        read_ahead();
        while (fAhead.size() > 1 && fAhead[1].tick <= fTick) fAhead.pop_front();
        if (fAhead.empty()) return false;
        if (buffer) copy_shown(*buffer);
        ++fTick;
        return true;
    }

private:
    static constexpr long long kUnknown = -1;

    struct Picture {
        long long tick;  // with which it is due
        RObject<CPixelDataReference> pixels;
    };

    bool open_clip(std::string& error) {
        fClip = ClipVideo::Open(fPath, fWidth, fHeight, error);
        return fClip != nullptr;
    }

    // A tick has to be as long as the clip's rate says, or pictures of a steady clip would be shown
    // twice, or not at all, now and then.
    void describe_rate() {
        const long long scale = fFormat.AsInt64('tmsc', 1);
        const Rate rate = fClip->FrameRate();
        fUnit = {1, static_cast<int>(scale)};
        fPeriod = {static_cast<int>(rate.denominator), static_cast<int>(rate.numerator)};
        const long long blocks = rate.denominator * kSoundBlocksPerSecond;
        fNotice = (rate.numerator + blocks - 1) / blocks - 1;
        if (scale * rate.denominator == fFormat.AsInt64('dura', 1) * rate.numerator) return;
        fFormat.SetInt64('tmsc', rate.numerator);
        fFormat.SetUInt64('dura', static_cast<unsigned long long>(rate.denominator));
    }

    bool begin_round() {
        std::string unused;
        if (!fLoop || !open_clip(unused)) return false;
        fAhead.clear();
        fRoundStart = fRoundEnd;
        fRoundEnd = kUnknown;
        fReadTo = fRoundStart;
        return true;
    }

    // As far as to know of the round's end before the sound reaches over it.
    void read_ahead() {
        while (fRoundEnd == kUnknown && (fAhead.empty() || fAhead.back().tick <= fTick + fNotice)) {
            ClipFrame frame;
            if (fClip->Next(frame)) {
                take(frame);
            } else {
                fRoundEnd = fReadTo;
            }
        }
    }

    void take(const ClipFrame& frame) {
        const long long tick = tick_of(frame.time);
        fReadTo = std::max(tick + 1, tick_of(frame.time + frame.duration));
        if (!fAhead.empty() && fAhead.back().tick == tick) fAhead.pop_back();
        fAhead.push_back({tick, frame.pixels});
    }

    long long tick_of(long long time) const {
        return fRoundStart + av_rescale_q(time, fUnit, fPeriod);
    }

    void copy_shown(tnStreamBuffer& buffer) {
        CPixelDataReference& pixels = *fAhead.front().pixels;
        if (!pixels.Lock(CDataReference::kRead).Succeeded()) return;
        copy_picture(pixels.GetData(), pixels.GetStride(),
                     static_cast<unsigned char*>(buffer.GetPointer()), fFormat);
        pixels.Unlock();
    }

    std::string fPath;
    bool fLoop = true;
    int fWidth = 0;
    int fHeight = 0;
    std::unique_ptr<ClipVideo> fClip;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
    AVRational fUnit{1, 1};    // seconds, in which the clip's pictures tell their times
    AVRational fPeriod{1, 1};  // seconds of a tick
    long long fNotice = 0;     // ticks

    std::deque<Picture> fAhead;  // the first one is shown
    long long fTick = 0;         // the next one
    long long fRoundStart = 0;   // tick
    long long fRoundEnd = kUnknown;
    long long fReadTo = 0;  // tick with which the last picture that was read ends
};

}  // namespace

std::unique_ptr<LivePictures> LivePictures::Open(const ShowSource& source, std::string& error) {
    if (source.clip.empty()) return MakeTestPictures(source);
    auto clip = std::make_unique<ClipPictures>();
    if (!clip->Open(source, error)) return nullptr;
    for (const std::string& line : clip->Cautions()) Say(stderr, "tarn live: {}\n", line);
    return clip;
}
