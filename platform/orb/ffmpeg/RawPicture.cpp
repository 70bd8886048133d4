#include "RawPicture.h"

#include <cstring>
#include <limits>
#include <utility>

namespace Quillon::Orb {

namespace {

constexpr int kGrey = 128;

bool has_all(const PixelLayout& layout, const PixelLayout& whole) {
    for (int i = 0; i < whole.planeCount; ++i) {
        if (layout.planes[i].rows < whole.planes[i].rows) return false;
        if (layout.planes[i].rowBytes < whole.planes[i].rowBytes) return false;
    }
    return true;
}

PixelImage image_of(const PixelLayout& layout, unsigned char* data, bool swapped) {
    PixelImage image;
    for (int i = 0; i < layout.planeCount; ++i) {
        const int at = swapped && i > 0 ? 3 - i : i;
        image.planes[at] = data + layout.planes[i].offset;
        image.strides[at] = layout.planes[i].stride;
    }
    return image;
}

}  // namespace

void CompletePlane(const unsigned char* from, const PixelLayout::Plane& has, unsigned char* to,
                   const PixelLayout::Plane& wants, int unit) {
    for (int row = 0; row < wants.rows; ++row) {
        unsigned char* line = to + static_cast<long long>(row) * wants.stride;
        if (has.rows < 1 || has.rowBytes < unit) {
            std::memset(line, kGrey, static_cast<std::size_t>(wants.rowBytes));
            continue;
        }
        const int source = row < has.rows ? row : has.rows - 1;
        std::memcpy(line, from + static_cast<long long>(source) * has.stride,
                    static_cast<std::size_t>(has.rowBytes));
        for (int i = has.rowBytes; i < wants.rowBytes; ++i) line[i] = line[i - unit];
    }
}

RawPicture::RawPicture(RawPicture&& other) noexcept
    : fPixels(std::move(other.fPixels)),
      fCompleted(std::move(other.fCompleted)),
      fImage(other.fImage) {}

RawPicture& RawPicture::operator=(RawPicture&& other) noexcept {
    if (this != &other) {
        unlock();
        fPixels = other.fPixels.Detach();
        fCompleted = std::move(other.fCompleted);
        fImage = other.fImage;
    }
    return *this;
}

RawPicture::~RawPicture() {
    unlock();
}

void RawPicture::unlock() noexcept {
    if (fPixels) fPixels->Unlock();
    fPixels.Clear();
}

Result RawPicture::Lock(const CVideoSample& sample, unsigned int format, int width, int height) {
    unlock();
    RObject<CPixelDataReference> pixels(sample.GetDataReference<CPixelDataReference>());
    if (!pixels) return ResultInvalidArgument("a picture without pixels");
    if (pixels->GetWidth() != width || pixels->GetHeight() != height) {
        return ResultInvalidArgument("a picture of %d x %d in a stream of %d x %d",
                                     pixels->GetWidth(), pixels->GetHeight(), width, height);
    }
    Result locked = pixels->Lock(CDataReference::kRead);
    if (locked.Failed()) return locked;
    fPixels = std::move(pixels);
    Result result = lay_out(format, width, height);
    if (result.Failed()) unlock();
    return result;
}

Result RawPicture::lay_out(unsigned int format, int width, int height) {
    PixelLayout layout;
    Result result = VideoFormat::GetLayout(format, width, height, fPixels->GetStride(),
                                           fPixels->GetLength(), layout);
    if (result.Failed()) return result;
    const bool swapped = format == 'YV12' || format == 'YV16';
    PixelLayout whole;
    result = VideoFormat::GetLayout(format, width, height, VideoFormat::GetStride(format, width, 1),
                                    std::numeric_limits<long long>::max(), whole);
    if (result.Failed()) return result;
    if (has_all(layout, whole)) {
        fImage = image_of(layout, fPixels->GetData(), swapped);
        return 0;
    }
    fCompleted = Block(static_cast<std::size_t>(whole.length));
    if (!fCompleted) return ResultOutOfMemory();
    for (int i = 0; i < whole.planeCount; ++i) {
        CompletePlane(fPixels->GetData() + layout.planes[i].offset, layout.planes[i],
                      fCompleted.Get() + whole.planes[i].offset, whole.planes[i],
                      format == 'NV12' && i == 1 ? 2 : 1);
    }
    fImage = image_of(whole, fCompleted.Get(), swapped);
    return 0;
}

}  // namespace Quillon::Orb
