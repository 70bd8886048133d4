#pragma once

#include <cstring>
#include <random>
#include <vector>

#include "PixelPlan.h"

/// Pictures for tests: each plane in a block of its own that ends with its last byte in use, so
/// that an address sanitizer sees what is read behind it, and with guard bytes that show what is
/// written where nothing should be.
namespace Quillon::Orb::Testing {

enum class Fill { Random, Legal, Ramp, Extremes };

class TestPicture {
public:
    static constexpr unsigned char kGuard = 0xa5;
    static constexpr int kGuardBytes = 64;

    /// `padding` bytes (or words of 10 bits) behind each row.
    TestPicture(unsigned int code, int width, int height, int padding = 0)
        : fFormat(*FindPixelFormat(code)) {
        const int planes = !fFormat.HasChroma() || fFormat.shape == PixelShape::Packed ? 1
                           : fFormat.shape == PixelShape::SemiPlanar                   ? 2
                                                                                       : 3;
        for (int i = 0; i < planes; ++i) {
            Plane& plane = fPlanes.emplace_back();
            plane.rowBytes = fFormat.RowBytes(width);
            plane.rows = height;
            if (i > 0) {
                const int both = fFormat.shape == PixelShape::SemiPlanar ? 2 : 1;
                plane.rowBytes = fFormat.ChromaWidth(width) * fFormat.bytesPerUnit * both;
                plane.rows = fFormat.ChromaHeight(height);
            }
            plane.stride = plane.rowBytes + padding * Step();
            const int used = plane.stride * (plane.rows - 1) + plane.rowBytes;
            plane.bytes.assign(kGuardBytes + used, kGuard);
            plane.bytes.shrink_to_fit();
        }
    }

    const PixelFormat& Format() const { return fFormat; }

    PixelImage Image() {
        PixelImage image;
        for (std::size_t i = 0; i < fPlanes.size(); ++i) {
            image.planes[i] = fPlanes[i].bytes.data() + kGuardBytes;
            image.strides[i] = fPlanes[i].stride;
        }
        return image;
    }

    /// Legal: codes that a picture of limited range may have. Ramp: every code in turn.
    void FillWith(Fill fill, unsigned int seed) {
        std::minstd_rand random(seed * 2654435761u + 1);
        for (std::size_t p = 0; p < fPlanes.size(); ++p) {
            Plane& plane = fPlanes[p];
            for (int y = 0; y < plane.rows; ++y) {
                unsigned char* row = plane.bytes.data() + kGuardBytes + plane.stride * y;
                for (int x = 0; x < plane.rowBytes; x += Step()) {
                    Put(row + x, value_of(fill, x / Step() + y * 7 + static_cast<int>(p) * 50,
                                          static_cast<int>(random() >> 8)));
                }
            }
        }
    }

    /// True while nothing stands outside the rows but what the constructor put there.
    bool GuardsHold() const {
        for (const Plane& plane : fPlanes) {
            for (int i = 0; i < kGuardBytes; ++i) {
                if (plane.bytes[i] != kGuard) return false;
            }
            for (int y = 0; y + 1 < plane.rows; ++y) {
                const unsigned char* row = plane.bytes.data() + kGuardBytes + plane.stride * y;
                for (int x = plane.rowBytes; x < plane.stride; ++x) {
                    if (row[x] != kGuard) return false;
                }
            }
        }
        return true;
    }

    bool SameBytes(const TestPicture& other) const {
        for (std::size_t i = 0; i < fPlanes.size(); ++i) {
            if (fPlanes[i].bytes != other.fPlanes[i].bytes) return false;
        }
        return true;
    }

private:
    struct Plane {
        std::vector<unsigned char> bytes;
        int rowBytes = 0;
        int stride = 0;
        int rows = 0;
    };

    int Step() const { return fFormat.bits == 10 ? 2 : 1; }

    int value_of(Fill fill, int index, int random) const {
        const int codes = 1 << fFormat.bits;
        const int unit = codes / 256;
        switch (fill) {
            case Fill::Random:
                return random % codes;
            case Fill::Legal:
                return 16 * unit + random % (219 * unit + 1);
            case Fill::Ramp:
                return index * unit % codes;
            case Fill::Extremes:
                return random & 1 ? codes - 1 : 0;
        }
        return 0;
    }

    void Put(unsigned char* at, int value) const {
        at[0] = static_cast<unsigned char>(value);
        if (fFormat.bits == 10) at[1] = static_cast<unsigned char>(value >> 8);
    }

    const PixelFormat& fFormat;
    std::vector<Plane> fPlanes;
};

}  // namespace Quillon::Orb::Testing
