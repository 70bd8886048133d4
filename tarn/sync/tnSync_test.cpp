#include "tarn/sync/tnSync.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <thread>
#include <utility>
#include <vector>

#include "spar/zObserverHandler.h"
#include "spar/zRecord.h"
#include "spar/zThread.h"
#include "tarn/sync/toneSupport.h"

namespace {

constexpr int kRate = 48000;
constexpr int kCall = kRate / 40;  // 25 ms: longer than a block of the detector
constexpr int kWidth = 16;
constexpr int kHeight = 16;

/// Notes what it is told.
class Observer final : public zObserverHandler {
public:
    void Receive(const zNotification& notification) override {
        ASSERT_NE(notification.fData, nullptr);
        EXPECT_EQ(notification.fData->AsInt32('what', 0), 0x73796E63);
        EXPECT_EQ(notification.fContext, 0u);
        fDifferences.push_back(notification.fData->AsDouble("diff_ms", -9999));
    }
    /// What came since the last call.
    std::vector<double> Take() {
        zThread::DrainMainQueue();
        return std::move(fDifferences);
    }

private:
    std::vector<double> fDifferences;
};

/// Plays sound and pictures into a tnSync, on one line in milliseconds.
class tnSyncTest : public testing::Test {
protected:
    tnSyncTest() : fSync(new tnSync(fObserver.ObserverID())) {}
    ~tnSyncTest() override { EXPECT_EQ(fSync->Release(), 0); }

    void play(const tones::Stereo& sound) {
        const int frames = static_cast<int>(sound.size() / 2);
        for (int at = 0; at + kCall <= frames; at += kCall) {
            fSync->AudioStereoPCM16(fNow, kRate, sound.data() + 2 * at, kCall);
            fNow += 25;
        }
    }
    void silence(int milliseconds) { play(tones::Silence(milliseconds * kRate / 1000)); }
    void tone(int milliseconds, char digit = 'D') {
        play(tones::Digit(digit, kRate, milliseconds * kRate / 1000));
    }
    void frame(double time, bool green, unsigned int format = '2vuy') {
        const std::vector<unsigned char> pair = green
                                                    ? std::vector<unsigned char>{54, 145, 34, 145}
                                                    : std::vector<unsigned char>{128, 16, 128, 16};
        std::vector<unsigned char> pixels;
        for (int i = 0; i < kWidth * kHeight / 2; ++i) {
            pixels.insert(pixels.end(), pair.begin(), pair.end());
        }
        fSync->VideoFrame(time, kWidth, kHeight, format, kWidth * 2, pixels.data(), 0);
    }
    void flash(double time) {
        frame(time, true);
        frame(time + 40, false);
    }

    /// When a tone that begins at a call's start is told of: at the end of the detector's block.
    static double told_at(double toneStart) { return toneStart + 551 * (1000.0 / kRate); }

    Observer fObserver;
    tnSync* fSync;
    double fNow = 1000;
};

/// Silence until 2000, and a tone of 100 ms; the detector's blocks begin with the tone.
class tnSyncAfterTone : public tnSyncTest {
protected:
    tnSyncAfterTone() {
        silence(1000);
        fSync->AudioStereoPCM16(fNow, 8000, nullptr, 0);  // a change of rate begins a block anew
        tone(100);
    }
};

TEST_F(tnSyncAfterTone, FlashAfterTheToneIsPositive) {
    flash(2300);
    const auto told = fObserver.Take();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NEAR(told[0], 2300 - told_at(2000), 1e-9);
}

TEST_F(tnSyncAfterTone, FlashBeforeTheToneIsNegative) {
    flash(1900);
    const auto told = fObserver.Take();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NEAR(told[0], 1900 - told_at(2000), 1e-9);
}

TEST_F(tnSyncAfterTone, FlashIsToldOfOnce) {
    for (int i = 0; i < 10; ++i) frame(2100 + i * 20, true);
    for (int i = 0; i < 10; ++i) frame(2300 + i * 20, false);
    EXPECT_EQ(fObserver.Take().size(), 1u);
}

TEST_F(tnSyncAfterTone, FarApartIsNotAPair) {
    flash(told_at(2000) + 500);
    flash(told_at(2000) - 500);
    EXPECT_TRUE(fObserver.Take().empty());
    flash(told_at(2000) + 499.5);
    EXPECT_EQ(fObserver.Take().size(), 1u);
}

TEST_F(tnSyncAfterTone, SecondFlashIsHeldAgainstTheSameTone) {
    flash(2100);
    flash(2400);
    const auto told = fObserver.Take();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_NEAR(told[1] - told[0], 300, 1e-9);
    flash(2600);  // more than 500 behind it
    EXPECT_TRUE(fObserver.Take().empty());
}

TEST_F(tnSyncAfterTone, FramesOfOtherFormatsShowNoFlash) {
    frame(2100, true, 'yuvs');
    EXPECT_TRUE(fObserver.Take().empty());
    // And end one that was on.
    frame(2120, true);
    frame(2140, true, 'yuvs');
    frame(2160, true);
    EXPECT_EQ(fObserver.Take().size(), 2u);
}

TEST_F(tnSyncTest, FlashWaitsForALaterTone) {
    silence(1000);
    flash(2000);
    EXPECT_TRUE(fObserver.Take().empty());
    silence(200);
    fSync->AudioStereoPCM16(fNow, 8000, nullptr, 0);
    tone(100);
    EXPECT_TRUE(fObserver.Take().empty());
    frame(2300, false);  // any frame looks again
    const auto told = fObserver.Take();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NEAR(told[0], 2000 - told_at(2200), 1e-9);
}

TEST_F(tnSyncTest, ToneOfSeveralBlocksIsOneMarker) {
    silence(1000);
    tone(900);
    frame(2050, true);
    frame(2100, false);
    const auto told = fObserver.Take();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NEAR(told[0], 2050 - 2000, 25);
    // The end of the tone and the quiet after it change nothing.
    silence(300);
    frame(2200, true);
    const auto again = fObserver.Take();
    ASSERT_EQ(again.size(), 1u);
    EXPECT_NEAR(again[0] - told[0], 150, 1e-9);
}

TEST_F(tnSyncTest, AnyDigitIsAMarker) {
    for (const char digit : {'1', '#', 'C'}) {
        silence(1000);
        const double at = fNow;
        tone(100, digit);
        flash(at);
        EXPECT_EQ(fObserver.Take().size(), 1u) << digit;
    }
}

TEST_F(tnSyncTest, FirstToneNeedsQuietBeforeItToo) {
    tone(2000);
    flash(2000);
    EXPECT_TRUE(fObserver.Take().empty());
}

TEST_F(tnSyncTest, ToneTooSoonIsAMarkerWhenItHasLasted) {
    //  1000 quiet  2000 tone  2100 quiet  2400 tone ..................... 2700
    //                         |<--------- more than 400 ------>| marker
    silence(1000);
    tone(100);
    silence(300);
    tone(75);
    flash(2100);
    const auto first = fObserver.Take();
    ASSERT_EQ(first.size(), 1u);
    EXPECT_NEAR(first[0], 100, 25);  // still against the tone of 2000
    tone(225);
    flash(2500);
    const auto second = fObserver.Take();
    ASSERT_EQ(second.size(), 1u);
    EXPECT_LT(second[0], 0);  // the marker is from after 2500
    EXPECT_GT(second[0], -30);
}

TEST_F(tnSyncTest, NobodyIsToldWithoutAnObserver) {
    auto* alone = new tnSync(0);
    std::swap(alone, fSync);
    silence(1000);
    tone(100);
    flash(2000);
    EXPECT_TRUE(fObserver.Take().empty());
    std::swap(alone, fSync);
    EXPECT_EQ(alone->Release(), 0);
}

TEST_F(tnSyncTest, NothingIsToldBeforeTheFirstFlash) {
    silence(200);
    for (int i = 0; i < 10; ++i) frame(1000 + 40 * i, false);
    EXPECT_TRUE(fObserver.Take().empty());
}

TEST_F(tnSyncTest, SoundAndPictureMayComeOnAThreadEach) {
    std::thread sound([this] {
        for (int i = 0; i < 5; ++i) {
            silence(500);
            tone(100);
        }
    });
    for (int i = 0; i < 200; ++i) frame(1000 + i * 20, i % 25 == 0);
    sound.join();
    for (const double difference : fObserver.Take()) EXPECT_LT(std::abs(difference), 500);
}

}  // namespace
