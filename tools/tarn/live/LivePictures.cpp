#include "LivePictures.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

#include "tarn/foundation/tnRasterType.h"
#include "tarn/movies/tnStreamBuffer.h"

#include "../ClipVideo.h"
#include "../Say.h"
#include "LivePoints.h"
#include "TestPicture.h"

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

/// A clip, a picture a frame, from its first to its last and over again.
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
        return true;
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    long long Rounds() const override { return fRounds; }
    double StartSeconds() const override { return fClip->StartSeconds(); }
    std::vector<std::string> Cautions() const { return fClip->Cautions(); }

    bool Next(tnStreamBuffer* buffer) override {
        LiveAtPoint(LivePoint::kDecompressor);
        ClipFrame frame;
        if (!fClip->Next(frame)) {
            std::string unused;
            if (!fLoop || !open_clip(unused) || !fClip->Next(frame)) return false;
            ++fRounds;
        }
        if (!buffer || !frame.pixels ||
            !frame.pixels->Lock(Quillon::Orb::CDataReference::kRead).Succeeded())
            return true;
        copy_picture(frame.pixels->GetData(), frame.pixels->GetStride(),
                     static_cast<unsigned char*>(buffer->GetPointer()), fFormat);
        frame.pixels->Unlock();
        return true;
    }

private:
    bool open_clip(std::string& error) {
        fClip = ClipVideo::Open(fPath, fWidth, fHeight, error);
        return fClip != nullptr;
    }

    std::string fPath;
    bool fLoop = true;
    int fWidth = 0;
    int fHeight = 0;
    std::unique_ptr<ClipVideo> fClip;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
    long long fRounds = 0;
};

}  // namespace

std::unique_ptr<LivePictures> LivePictures::Open(const ShowSource& source, std::string& error) {
    if (source.clip.empty()) return MakeTestPictures(source);
    auto clip = std::make_unique<ClipPictures>();
    if (!clip->Open(source, error)) return nullptr;
    for (const std::string& line : clip->Cautions()) Say(stderr, "tarn live: {}\n", line);
    return clip;
}
