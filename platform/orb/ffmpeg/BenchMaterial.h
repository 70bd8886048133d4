#pragma once

// Moving pictures for benchmarks of encoders: a photograph, panned and zoomed, with grain.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <turbojpeg.h>
#include <vector>

#include "orb/CPixelBufferDataReference.h"
#include "orb/CVideoSample.h"
#include "orb/VideoFormat.h"

#include "PixelPlan.h"

namespace Quillon::Orb::BenchMaterial {

inline constexpr int kWidth = 1920;
inline constexpr int kHeight = 1080;
inline constexpr int kPictures = 32;

/// BGRA pixels of a still picture, larger than a frame.
struct Still {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;
    bool isPhotograph = false;
};

/// A photograph of Debian's mate-backgrounds if that is installed. Else soft hills with texture,
/// which is easier to encode: figures of the two do not compare.
inline Still LoadStill() {
    Still still;
    if (std::FILE* file = std::fopen("/usr/share/backgrounds/mate/nature/Garden.jpg", "rb")) {
        std::vector<unsigned char> jpeg(1 << 23);
        jpeg.resize(std::fread(jpeg.data(), 1, jpeg.size(), file));
        std::fclose(file);
        tjhandle decoder = tjInitDecompress();
        int subsampling = 0;
        int space = 0;
        tjDecompressHeader3(decoder, jpeg.data(), jpeg.size(), &still.width, &still.height,
                            &subsampling, &space);
        still.pixels.resize(static_cast<std::size_t>(still.width) * still.height * 4);
        still.isPhotograph = tjDecompress2(decoder, jpeg.data(), jpeg.size(), still.pixels.data(),
                                           still.width, 0, still.height, TJPF_BGRA, 0) == 0;
        tjDestroy(decoder);
        if (still.isPhotograph && still.width > kWidth && still.height > kHeight) return still;
    }
    still = {2560, 1600, {}, false};
    still.pixels.resize(static_cast<std::size_t>(still.width) * still.height * 4);
    unsigned int random = 1;
    for (int y = 0; y < still.height; ++y) {
        for (int x = 0; x < still.width; ++x) {
            random = random * 1664525u + 1013904223u;
            const int hill = (x * x / 900 + y * y / 700) % 512;
            const int base = hill < 256 ? hill : 511 - hill;
            unsigned char* pixel =
                &still.pixels[4 * (static_cast<std::size_t>(y) * still.width + x)];
            for (int i = 0; i < 3; ++i) {
                const int value = base * (3 + i) / 6 + 40 + static_cast<int>(random >> (27 + i));
                pixel[i] = static_cast<unsigned char>(std::min(value, 255));
            }
        }
    }
    return still;
}

/// kPictures frames in one raw format, BT.709 limited; the walk goes there and back without a cut.
class Clip {
public:
    explicit Clip(unsigned int format) : fFormat(format) {
        static const Still still = LoadStill();
        fIsPhotograph = still.isPhotograph;
        PixelRequest request;
        request.from = 'BGRA';
        request.to = format;
        request.width = kWidth;
        request.height = kHeight;
        request.fromColour.range = PixelRange::Full;
        const auto plan = PixelPlan::Make(request);
        std::vector<unsigned char> frame(static_cast<std::size_t>(kWidth) * kHeight * 4);
        fStride = VideoFormat::GetStride(format, kWidth, 1);
        const PixelFormat& target = *FindPixelFormat(format);
        if (fStride == 0) fStride = target.RowBytes(kWidth);  // formats of 10 bits
        for (int i = 0; i < kPictures; ++i) {
            draw(still, i, frame);
            PixelImage from;
            from.planes[0] = frame.data();
            from.strides[0] = kWidth * 4;
            std::vector<unsigned char>& bytes =
                fPictures.emplace_back(PixelBlockBytes(target, kWidth, kHeight, fStride) + 64);
            plan->Convert(from, LayOutPixels(target, bytes.data(), kHeight, fStride));
        }
    }

    bool IsPhotograph() const { return fIsPhotograph; }
    int GetStride() const { return fStride; }
    unsigned char* GetPicture(long long number) {
        const long long at = number % (2 * kPictures - 2);
        return fPictures[static_cast<std::size_t>(at < kPictures ? at : 2 * kPictures - 2 - at)]
            .data();
    }
    PixelImage GetImage(long long number) {
        return LayOutPixels(*FindPixelFormat(fFormat), GetPicture(number), kHeight, fStride);
    }
    /// A sample over the clip's own memory.
    RObject<CVideoSample> GetSample(long long number) {
        const int length = VideoFormat::GetSampleLength(fFormat, kWidth, kHeight, fStride);
        RObject<CByteArray> bytes(new CByteArray(length, GetPicture(number), nullptr));
        RObject<CPixelBufferDataReference> pixels(
            new CPixelBufferDataReference(bytes.Get(), kWidth, kHeight, fStride));
        RObject<CVideoSample> sample(new CVideoSample(nullptr));
        sample->SetTime(number);
        sample->SetDuration(1);
        sample->SetDataReference(pixels.Get());
        return sample;
    }
    int GetLuma(long long number, int x, int y) {
        const unsigned char* row = GetPicture(number) + static_cast<long long>(y) * fStride;
        return fFormat == 'UYVY' ? row[2 * x + 1] : row[x];
    }

private:
    static void draw(const Still& still, int number, std::vector<unsigned char>& frame) {
        const int step = 65536 - 120 * number;  // a slow zoom, in 1/65536 pixels
        const int left = (still.width - kWidth) / 4 + 5 * number;
        const int top = (still.height - kHeight) / 4 + 3 * number;
        unsigned int random = static_cast<unsigned int>(number) * 7919u + 1;
        for (int y = 0; y < kHeight; ++y) {
            const int sourceY =
                std::min(top + static_cast<int>(1LL * y * step >> 16), still.height - 1);
            const unsigned char* row =
                &still.pixels[4 * static_cast<std::size_t>(sourceY) * still.width];
            unsigned char* out = &frame[4 * static_cast<std::size_t>(y) * kWidth];
            for (int x = 0; x < kWidth; ++x) {
                const int sourceX =
                    std::min(left + static_cast<int>(1LL * x * step >> 16), still.width - 1);
                random = random * 1664525u + 1013904223u;
                const int grain =
                    static_cast<int>(random >> 29) + static_cast<int>(random >> 26 & 7) - 7;
                for (int i = 0; i < 3; ++i) {
                    out[4 * x + i] = static_cast<unsigned char>(
                        std::clamp(row[4 * sourceX + i] + grain, 0, 255));
                }
                out[4 * x + 3] = 255;
            }
        }
    }

    const unsigned int fFormat;
    int fStride = 0;
    bool fIsPhotograph = false;
    std::vector<std::vector<unsigned char>> fPictures;
};

}  // namespace Quillon::Orb::BenchMaterial
