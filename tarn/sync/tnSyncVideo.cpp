#include "tarn/sync/tnSyncVideo.h"

#include <cstddef>

namespace {

constexpr int kReach = 4;  // pixels from the middle
constexpr int kPixels = 81;
constexpr int kMostBlue = 129;       // not reached
constexpr int kLeastGreenLead = 63;  // over red, exceeded

struct Sums {
    int fRed = 0;
    int fGreen = 0;
    int fBlue = 0;

    /// Nothing is clamped: a green beyond the range still counts in full.
    void Add(int luma, int blueDifference, int redDifference) {
        const double y = (luma - 16) * 1.1643;
        const double u = blueDifference - 128;
        const double v = redDifference - 128;
        fRed += static_cast<int>(y + 1.5958 * v);
        fGreen += static_cast<int>(y - 0.39173 * u - 0.8129 * v);
        fBlue += static_cast<int>(y + 2.017 * u);
    }
};

/// Adds the pixels of one row from `column` on. Two pixels share four bytes: U, Y, V, Y.
void add_row(Sums& sums, const unsigned char* row, int column) {
    for (int x = column; x <= column + 2 * kReach; ++x) {
        const unsigned char* group = row + static_cast<std::ptrdiff_t>(x / 2) * 4;
        sums.Add(x % 2 == 0 ? group[1] : group[3], group[0], group[2]);
    }
}

}  // namespace

bool tnSyncVideo::FrameSyncOn(double, int width, int height, unsigned int format, int rowBytes,
                              const void* pixels, unsigned int) const {
    if (format != '2vuy' || width <= 2 * kReach || height <= 2 * kReach) return false;
    Sums sums;
    for (int y = height / 2 - kReach; y <= height / 2 + kReach; ++y) {
        const auto* row =
            static_cast<const unsigned char*>(pixels) + static_cast<std::ptrdiff_t>(y) * rowBytes;
        add_row(sums, row, width / 2 - kReach);
    }
    const int red = sums.fRed / kPixels;
    const int green = sums.fGreen / kPixels;
    const int blue = sums.fBlue / kPixels;
    return blue < kMostBlue && green > red && green - red > kLeastGreenLead;
}
