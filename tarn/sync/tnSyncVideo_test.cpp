#include "tarn/sync/tnSyncVideo.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

struct Colour {
    unsigned char fY, fU, fV;
};

constexpr Colour kGreen{145, 54, 34};
constexpr Colour kBlack{16, 128, 128};

/// A '2vuy' frame; rows hold a pair more than they need where the width is odd.
struct Frame {
    Frame(int width, int height, Colour colour)
        : fWidth(width),
          fHeight(height),
          fRowBytes((width + 1) / 2 * 4),
          fBytes(static_cast<std::size_t>(fRowBytes) * height) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) Set(x, y, colour);
        }
    }

    unsigned char* Group(int x, int y) {
        return fBytes.data() + static_cast<std::ptrdiff_t>(y) * fRowBytes + x / 2 * 4;
    }
    void Set(int x, int y, Colour colour) {
        unsigned char* group = Group(x, y);
        group[0] = colour.fU;
        group[2] = colour.fV;
        group[x % 2 == 0 ? 1 : 3] = colour.fY;
    }
    bool IsOn(unsigned int format = '2vuy') const {
        return tnSyncVideo().FrameSyncOn(1, fWidth, fHeight, format, fRowBytes, fBytes.data(), 0);
    }

    int fWidth;
    int fHeight;
    int fRowBytes;
    std::vector<unsigned char> fBytes;
};

/// The same judgement written out from the frame's bytes, offset by offset.
bool plainly_on(const Frame& frame) {
    int red = 0;
    int green = 0;
    int blue = 0;
    for (int y = frame.fHeight / 2 - 4; y <= frame.fHeight / 2 + 4; ++y) {
        for (int k = 0; k < 9; ++k) {
            const int offset = frame.fWidth / 2 * 2 - 8 + 2 * k;
            const int column = frame.fWidth / 2 - 4 + k;
            const unsigned char* group =
                &frame.fBytes[static_cast<std::size_t>(y * frame.fRowBytes + offset / 4 * 4)];
            const double luma = ((column % 2 == 0 ? group[1] : group[3]) - 16) * 1.1643;
            const double u = group[0] - 128;
            const double v = group[2] - 128;
            red += static_cast<int>(luma + 1.5958 * v);
            green += static_cast<int>(luma - 0.39173 * u - 0.8129 * v);
            blue += static_cast<int>(luma + 2.017 * u);
        }
    }
    return blue / 81 < 129 && green / 81 > red / 81 && green / 81 - red / 81 > 63;
}

TEST(tnSyncVideo, ColoursThatAreGreenEnough) {
    struct Case {
        const char* fName;
        Colour fColour;
        bool fOn;
    };
    const Case kCases[] = {
        {"green", kGreen, true},
        {"green of HD pictures", {173, 42, 26}, true},
        {"black", kBlack, false},
        {"white", {235, 128, 128}, false},
        {"grey", {128, 128, 128}, false},
        {"red", {81, 90, 240}, false},
        {"blue", {41, 240, 110}, false},
        {"cyan: too much blue", {170, 166, 16}, false},
        {"yellow: red as well", {210, 16, 146}, false},
        {"dark green", {60, 100, 95}, true},
        {"pale green", {180, 115, 115}, false},
    };
    for (const Case& c : kCases) {
        const Frame frame(64, 48, c.fColour);
        EXPECT_EQ(frame.IsOn(), c.fOn) << c.fName;
        EXPECT_EQ(plainly_on(frame), c.fOn) << c.fName;
    }
}

TEST(tnSyncVideo, GreenLeadsRedByMoreThan63AndBlueIsBelow129) {
    // U at 128: blue is the luma alone. V at 128 - d: green less red is 0.8129 d + 1.5958 d, each
    // truncated: 26 gives less than 64 and 27 more.
    EXPECT_FALSE((Frame(32, 32, {100, 128, 128 - 26}).IsOn()));
    EXPECT_TRUE((Frame(32, 32, {100, 128, 128 - 27}).IsOn()));
    // (126 - 16) * 1.1643 is 128.07, (127 - 16) * 1.1643 is 129.2.
    EXPECT_TRUE((Frame(32, 32, {126, 128, 60}).IsOn()));
    EXPECT_FALSE((Frame(32, 32, {127, 128, 60}).IsOn()));
}

TEST(tnSyncVideo, OnlyTheMiddleCounts) {
    Frame frame(64, 48, kBlack);
    for (int y = 20; y <= 28; ++y) {
        for (int x = 28; x <= 36; ++x) frame.Set(x, y, kGreen);
    }
    EXPECT_TRUE(frame.IsOn());
    Frame around(64, 48, kGreen);
    for (int y = 20; y <= 28; ++y) {
        for (int x = 28; x <= 36; ++x) around.Set(x, y, kBlack);
    }
    EXPECT_FALSE(around.IsOn());
}

TEST(tnSyncVideo, OtherFormatsShowNoMarker) {
    const Frame frame(64, 48, kGreen);
    for (const unsigned int format : {'yuvs', 'rgba', 'I420', 'v210'}) {
        EXPECT_FALSE(frame.IsOn(format));
    }
    EXPECT_FALSE(frame.IsOn(0));
}

TEST(tnSyncVideo, PatchOfOddAndSmallFramesLiesWithin) {
    // The vector ends where the frame ends: the address sanitizer would see a byte beyond.
    for (const int width : {9, 10, 11, 63, 65, 101}) {
        for (const int height : {9, 10, 11, 33}) {
            EXPECT_TRUE(Frame(width, height, kGreen).IsOn()) << width << "x" << height;
            EXPECT_FALSE(Frame(width, height, kBlack).IsOn());
        }
    }
    for (const int side : {0, 1, 8}) {
        EXPECT_FALSE(Frame(side, 48, kGreen).IsOn());
        EXPECT_FALSE(Frame(48, side, kGreen).IsOn());
    }
    EXPECT_FALSE(tnSyncVideo().FrameSyncOn(0, -64, -48, '2vuy', 0, nullptr, 0));
}

TEST(tnSyncVideo, NoiseIsJudgedAsPixelByPixel) {
    std::mt19937 random(7);
    int on = 0;
    for (int round = 0; round < 2000; ++round) {
        const int width = 9 + static_cast<int>(random() % 30);
        const int height = 9 + static_cast<int>(random() % 30);
        Frame frame(width, height, kBlack);
        // Around the edge of the judgement, so that it goes both ways.
        const unsigned int v = 60 + random() % 60;
        for (auto& byte : frame.fBytes) byte = static_cast<unsigned char>(v + random() % 60);
        for (std::size_t i = 2; i < frame.fBytes.size(); i += 4) {
            frame.fBytes[i] = static_cast<unsigned char>(random() % v);
        }
        EXPECT_EQ(frame.IsOn(), plainly_on(frame));
        on += frame.IsOn();
    }
    EXPECT_GT(on, 100);
    EXPECT_LT(on, 1900);
}

TEST(tnSyncVideo, RowsMayBeLongerAndGoUpwards) {
    Frame frame(64, 48, kGreen);
    const auto* last = frame.fBytes.data() + static_cast<std::ptrdiff_t>(47) * frame.fRowBytes;
    EXPECT_TRUE(tnSyncVideo().FrameSyncOn(0, 64, 48, '2vuy', -frame.fRowBytes, last, 0));
    EXPECT_TRUE(
        tnSyncVideo().FrameSyncOn(0, 64, 24, '2vuy', 2 * frame.fRowBytes, frame.fBytes.data(), 0));
}

}  // namespace
