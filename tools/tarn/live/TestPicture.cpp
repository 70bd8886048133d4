#include "TestPicture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "tarn/movies/tnStreamBuffer.h"

namespace {

struct Colour {
    unsigned char y, u, v;
};

// 75 percent bars, BT.601, limited range.
constexpr Colour kBars[] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                            {84, 184, 198},  {65, 100, 212}, {35, 212, 114}};
constexpr int kBarCount = 7;
constexpr unsigned char kBlack = 16;
constexpr unsigned char kWhite = 235;
constexpr unsigned char kNoColour = 128;

/// A picture in the layout that the encoders take most directly: I420, rows without padding.
class TestPictures final : public LivePictures {
public:
    explicit TestPictures(const ShowSource& source)
        : fWidth(source.width), fHeight(source.height), fBars(draw_bars()) {
        fFormat.fWidth.SetInt32(fWidth);
        fFormat.fHeight.SetInt32(fHeight);
        fFormat.fColourspace.SetInt32('I420');
        fFormat.fBytesPerRow.SetInt32(fWidth);
        fFormat.fFieldOrder.SetInt32(TN_FIELD_PROGRESSIVE);
        fFormat.fColorSpace.SetInt32(static_cast<int>(fFormat.GuessColorSpace()));
        fFormat.fNominalRange.SetInt32('limt');
        fFormat.SetInt64('tmsc', source.rate.numerator);
        fFormat.SetUInt64('dura', static_cast<unsigned long long>(source.rate.denominator));
        fFormat.SetFloat('mfps', static_cast<float>(source.rate.PerSecond()));
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    long long RoundStart() const override { return 0; }

    bool Next(tnStreamBuffer* buffer) override {
        const long long number = fNumber++;
        if (!buffer) return true;
        auto* const pixels = static_cast<unsigned char*>(buffer->GetPointer());
        std::memcpy(pixels, fBars.data(), fBars.size());
        const int side = std::max(2, fHeight / 8 & ~1);
        const int steps = std::max(1, (fWidth - side) / 2);
        const int left = static_cast<int>(number % steps) * 2;
        fill(pixels, left, fHeight / 3, side, side, kWhite);
        draw_number(pixels, number);
        return true;
    }

private:
    std::vector<unsigned char> draw_bars() const {
        const auto luma = static_cast<std::size_t>(fWidth) * static_cast<std::size_t>(fHeight);
        std::vector<unsigned char> picture(luma + 2 * (luma / 4));
        for (int y = 0; y < fHeight; ++y) {
            for (int x = 0; x < fWidth; ++x) {
                picture[at(x, y)] = kBars[x * kBarCount / fWidth].y;
            }
        }
        for (int y = 0; y < fHeight / 2; ++y) {
            for (int x = 0; x < fWidth / 2; ++x) {
                const Colour& bar = kBars[2 * x * kBarCount / fWidth];
                picture[luma + chroma_at(x, y)] = bar.u;
                picture[luma + luma / 4 + chroma_at(x, y)] = bar.v;
            }
        }
        return picture;
    }

    void draw_number(unsigned char* pixels, long long number) const {
        const int height = std::max(2, fHeight / 10 & ~1);
        const int top = fHeight - height;
        for (int bit = 0; bit < kFrameNumberBits; ++bit) {
            const int left = bit * fWidth / kFrameNumberBits & ~1;
            const int right = (bit + 1) * fWidth / kFrameNumberBits & ~1;
            const bool one = (number >> (kFrameNumberBits - 1 - bit) & 1) != 0;
            fill(pixels, left, top, right - left, height, one ? kWhite : kBlack);
        }
    }

    /// Places and sizes are even.
    void fill(unsigned char* pixels, int left, int top, int width, int height,
              unsigned char luma) const {
        const std::size_t plane =
            static_cast<std::size_t>(fWidth) * static_cast<std::size_t>(fHeight);
        for (int y = top; y < top + height; ++y) {
            std::memset(pixels + at(left, y), luma, static_cast<std::size_t>(width));
        }
        for (int y = top / 2; y < (top + height) / 2; ++y) {
            unsigned char* const u = pixels + plane + chroma_at(left / 2, y);
            std::memset(u, kNoColour, static_cast<std::size_t>(width / 2));
            std::memset(u + plane / 4, kNoColour, static_cast<std::size_t>(width / 2));
        }
    }

    std::size_t at(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(fWidth) +
               static_cast<std::size_t>(x);
    }
    std::size_t chroma_at(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(fWidth / 2) +
               static_cast<std::size_t>(x);
    }

    const int fWidth;
    const int fHeight;
    const std::vector<unsigned char> fBars;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
    long long fNumber = 0;
};

class Tone final : public LiveSound {
public:
    explicit Tone(double hertz) : fStep(2 * M_PI * hertz / kRate) {
        fFormat.MakeDefaultAudioFormat();
        fFormat.fAudioFormat.SetInt32('sowt');
        fFormat.SetInt64('tmsc', kRate);
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    void BeginRound(double, double) override {}
    void Next(short* pcm, long long frames) override {
        constexpr double kLoudness = 3277;  // -20 dB
        for (long long i = 0; i < frames; ++i, ++fPosition) {
            const double phase = std::fmod(fStep * static_cast<double>(fPosition), 2 * M_PI);
            const auto level = static_cast<short>(std::lround(kLoudness * std::sin(phase)));
            *pcm++ = level;
            *pcm++ = level;
        }
    }

private:
    static constexpr int kRate = 48000;

    tnMediaRecord fFormat{TN_MEDIA_AUDIO};
    const double fStep;
    long long fPosition = 0;
};

}  // namespace

std::unique_ptr<LivePictures> MakeTestPictures(const ShowSource& source) {
    return std::make_unique<TestPictures>(source);
}

std::unique_ptr<LiveSound> MakeTone(const ShowSource& source) {
    return std::make_unique<Tone>(source.toneHz);
}
