#include "tarn/sync/tnMetronome.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr int kRate = 48000;
constexpr pm::AudioFormat kMono16{'sowt', kRate, 1};

struct Pulse {
    bool fOn = false;
    double fStart = -99;
    double fStop = -99;
};

Pulse pulse_at(double time) {
    Pulse pulse;
    pulse.fOn = tnMetronome::SignalOn(time, &pulse.fStart, &pulse.fStop);
    return pulse;
}

/// What the twister says of a second, straight from its two draws.
double length_of(std::uint32_t seed) {
    std::mt19937 engine(seed);
    const double low = engine();
    const double high = engine();
    return (high * 4294967296.0 + low) * std::pow(2.0, -64) > 0.5 ? 0.8 : 0.1;
}

int second_with(double length) {
    int second = 1;
    while (length_of(static_cast<std::uint32_t>(second)) != length) ++second;
    return second;
}

class tnMetronomeTest : public testing::Test {
protected:
    ~tnMetronomeTest() override {
        tnMetronome::SetInjectionPoint(tnMetronome::kInjectNone);
        tnMetronome::SetAudioMode(tnMetronome::kAudioReplace);
    }
};

TEST_F(tnMetronomeTest, StartsWithoutInjectionAndReplaces) {
    EXPECT_FALSE(tnMetronome::InjectAt(tnMetronome::kInjectTaskManager));
    EXPECT_FALSE(tnMetronome::InjectAt(tnMetronome::kInjectRenderer));
    EXPECT_EQ(tnMetronome::GetAudioMode(), tnMetronome::kAudioReplace);
}

TEST_F(tnMetronomeTest, SettingTellsWhetherAnythingChanged) {
    EXPECT_FALSE(tnMetronome::SetInjectionPoint(tnMetronome::kInjectNone));
    EXPECT_TRUE(tnMetronome::SetInjectionPoint(tnMetronome::kInjectRenderer));
    EXPECT_FALSE(tnMetronome::SetInjectionPoint(tnMetronome::kInjectRenderer));
    EXPECT_FALSE(tnMetronome::SetAudioMode(tnMetronome::kAudioReplace));
    EXPECT_TRUE(tnMetronome::SetAudioMode(tnMetronome::kAudioOverlay));
    EXPECT_FALSE(tnMetronome::SetAudioMode(tnMetronome::kAudioOverlay));
    EXPECT_EQ(tnMetronome::GetAudioMode(), tnMetronome::kAudioOverlay);
}

TEST_F(tnMetronomeTest, InjectsWhereABitIsShared) {
    const auto both = static_cast<tnMetronome::InjectionPoint>(3);
    struct Case {
        tnMetronome::InjectionPoint fSet, fAsked;
        bool fInjects;
    };
    for (const Case& c :
         {Case{tnMetronome::kInjectNone, tnMetronome::kInjectNone, false},
          Case{tnMetronome::kInjectTaskManager, tnMetronome::kInjectNone, false},
          Case{tnMetronome::kInjectTaskManager, tnMetronome::kInjectTaskManager, true},
          Case{tnMetronome::kInjectTaskManager, tnMetronome::kInjectRenderer, false},
          Case{both, tnMetronome::kInjectTaskManager, true},
          Case{both, tnMetronome::kInjectRenderer, true},
          Case{tnMetronome::kInjectRenderer, both, true},
          Case{both, tnMetronome::kInjectNone, false}}) {
        tnMetronome::SetInjectionPoint(c.fSet);
        EXPECT_EQ(tnMetronome::InjectAt(c.fAsked), c.fInjects) << c.fSet << ", " << c.fAsked;
    }
}

TEST_F(tnMetronomeTest, NamesAreForPeopleAndStrangersAreNumbers) {
    EXPECT_EQ(tnMetronome::InjectionPointName(tnMetronome::kInjectNone), "None");
    EXPECT_EQ(tnMetronome::InjectionPointName(tnMetronome::kInjectTaskManager), "Task Manager");
    EXPECT_EQ(tnMetronome::InjectionPointName(tnMetronome::kInjectRenderer), "Renderer");
    EXPECT_EQ(tnMetronome::InjectionPointName(static_cast<tnMetronome::InjectionPoint>(3)), "3");
    EXPECT_EQ(tnMetronome::AudioModeName(tnMetronome::kAudioReplace), "Replace");
    EXPECT_EQ(tnMetronome::AudioModeName(tnMetronome::kAudioClear), "Clear");
    EXPECT_EQ(tnMetronome::AudioModeName(tnMetronome::kAudioOverlay), "Overlay");
    EXPECT_EQ(tnMetronome::AudioModeName(static_cast<tnMetronome::AudioMode>(77)), "77");
}

TEST_F(tnMetronomeTest, PulseNeedsRoomForBothItsEnds) {
    double end = 5;
    EXPECT_FALSE(tnMetronome::SignalOn(1.0, nullptr, &end));
    EXPECT_FALSE(tnMetronome::SignalOn(1.0, &end, nullptr));
    EXPECT_EQ(end, 5);
}

TEST_F(tnMetronomeTest, PulseIsThatOfItsSecond) {
    int longOnes = 0;
    for (int second = 0; second < 500; ++second) {
        const Pulse first = pulse_at(second);
        EXPECT_TRUE(first.fOn);
        EXPECT_EQ(first.fStart, second);
        EXPECT_EQ(first.fStop, second + length_of(static_cast<std::uint32_t>(second)));
        longOnes += first.fStop > second + 0.5;
        for (const double within : {0.0999, 0.1, 0.5, 0.7999, 0.8, 0.9999}) {
            const Pulse pulse = pulse_at(second + within);
            EXPECT_EQ(pulse.fStart, first.fStart);
            EXPECT_EQ(pulse.fStop, first.fStop);
            EXPECT_EQ(pulse.fOn, second + within < first.fStop) << second + within;
        }
    }
    EXPECT_GT(longOnes, 200);
    EXPECT_LT(longOnes, 300);
}

TEST_F(tnMetronomeTest, EndedPulseIsOffJustBelowTheNextSecondAndOnAtIt) {
    for (int second = 1; second < 20; ++second) {
        EXPECT_FALSE(pulse_at(std::nextafter(second, 0.0)).fOn);
        EXPECT_TRUE(pulse_at(second).fOn);
    }
}

TEST_F(tnMetronomeTest, NegativeTimesTruncateForTheSeedAndRoundDownForTheStart) {
    const Pulse half = pulse_at(-0.5);
    EXPECT_EQ(half.fStart, -1);
    EXPECT_EQ(half.fStop, -1 + length_of(0));
    const Pulse far = pulse_at(-7.25);
    EXPECT_EQ(far.fStart, -8);
    EXPECT_EQ(far.fStop, -8 + length_of(static_cast<std::uint32_t>(-7)));
    EXPECT_EQ(pulse_at(-3).fStop, -3 + length_of(static_cast<std::uint32_t>(-3)));
}

TEST_F(tnMetronomeTest, TimesBeyondAllNumbersAreHarmless) {
    for (const double time : {1e300, -1e300, 1e19, std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN()}) {
        pulse_at(time);
        std::int16_t sample[4] = {};
        tnMetronome::AudioOverlay(time, sample, 4, kMono16);
    }
}

// Sound.

double plain_tone(double time, int index, int rate = kRate) {
    const auto n = static_cast<std::uint32_t>(static_cast<long long>(time * rate) + index);
    return std::sin(n * 6283.185307179586 / rate) * 9750.0;
}

std::vector<std::int16_t> overlay16(double time, int frames, std::int16_t before = 0,
                                    signed char channels = 1) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(frames) * channels, before);
    tnMetronome::AudioOverlay(time, samples.data(), frames, {'sowt', kRate, channels});
    return samples;
}

TEST_F(tnMetronomeTest, ToneIsAThousandHertzInPhaseWithTime) {
    const int second = second_with(0.8);
    const double time = second + 0.5;
    const auto samples = overlay16(time, 480);
    for (int i = 0; i < 480; ++i) {
        EXPECT_EQ(samples[static_cast<std::size_t>(i)], static_cast<int>(plain_tone(time, i))) << i;
    }
    EXPECT_EQ(*std::max_element(samples.begin(), samples.end()), 9750);
    // A block that begins later carries the same wave on.
    const auto later = overlay16(second + 0.5 + 100.0 / kRate + 1e-9, 380);
    EXPECT_TRUE(std::equal(later.begin(), later.end(), samples.begin() + 100));
}

TEST_F(tnMetronomeTest, ShortBlocksNeverReachTheFullTone) {
    // The count towards the end starts at twice the block, also where no end is near.
    const double time = second_with(0.8) + 0.5;
    const auto samples = overlay16(time, 100);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(samples[static_cast<std::size_t>(i)],
                  static_cast<int>(plain_tone(time, i) * 1.0 * ((200 - i) / 255.0)));
    }
}

TEST_F(tnMetronomeTest, ToneSwellsInTheFirstBlockOfAPulse) {
    const int second = second_with(0.8);
    const auto samples = overlay16(second, 480);
    for (int i = 0; i < 480; ++i) {
        const double rise = std::min(i, 255) / 255.0;
        EXPECT_EQ(samples[static_cast<std::size_t>(i)],
                  static_cast<int>(plain_tone(second, i) * rise * 1.0))
            << i;
    }
    // Any block that begins less than its own length behind the start swells from its beginning.
    const double time = second + 0.0099;
    EXPECT_EQ(overlay16(time, 480)[3], static_cast<int>(plain_tone(time, 3) * (3 / 255.0)));
    const double next = second + 0.0101;
    EXPECT_EQ(overlay16(next, 480)[3], static_cast<int>(plain_tone(next, 3)));
}

TEST_F(tnMetronomeTest, ToneDiesAwayInTheBlockThatEndsAPulse) {
    const int second = second_with(0.1);
    const double time = second + 0.095;
    const auto samples = overlay16(time, 480);
    for (int i = 0; i < 480; ++i) {
        const double fall = std::min(480 - i, 255) / 255.0;
        EXPECT_EQ(samples[static_cast<std::size_t>(i)],
                  static_cast<int>(plain_tone(time, i) * 1.0 * fall))
            << i;
    }
    EXPECT_EQ(overlay16(second + 0.101, 480), std::vector<std::int16_t>(480, 0));
}

TEST_F(tnMetronomeTest, BlockWithBothEndsSwellsAndDoesNotDie) {
    const int second = second_with(0.1);
    const int frames = kRate / 5;  // 200 ms, the whole pulse and as much again
    const auto samples = overlay16(second, frames);
    for (const int i : {1, 100, 254}) {
        EXPECT_EQ(samples[static_cast<std::size_t>(i)],
                  static_cast<int>(plain_tone(second, i) * (i / 255.0)));
    }
    for (const int i : {300, 5000, frames - 300, frames - 4}) {
        EXPECT_EQ(samples[static_cast<std::size_t>(i)], static_cast<int>(plain_tone(second, i)))
            << i;
    }
}

TEST_F(tnMetronomeTest, ModesDecideWhatBecomesOfTheSound) {
    const int second = second_with(0.1);
    const double on = second + 0.05;
    const double off = second + 0.5;
    const auto tone = overlay16(on, 64);
    const std::vector<std::int16_t> silence(64, 0);
    const std::vector<std::int16_t> kept(64, 1000);

    tnMetronome::SetAudioMode(tnMetronome::kAudioReplace);
    EXPECT_EQ(overlay16(on, 64, 1000), tone);
    EXPECT_EQ(overlay16(off, 64, 1000), kept);
    tnMetronome::SetAudioMode(tnMetronome::kAudioClear);
    EXPECT_EQ(overlay16(on, 64, 1000), tone);
    EXPECT_EQ(overlay16(off, 64, 1000), silence);
    tnMetronome::SetAudioMode(tnMetronome::kAudioOverlay);
    auto added = tone;
    for (auto& sample : added) sample = static_cast<std::int16_t>(sample + 1000);
    EXPECT_EQ(overlay16(on, 64, 1000), added);
    EXPECT_EQ(overlay16(off, 64, 1000), kept);
}

TEST_F(tnMetronomeTest, LoudSoundUnderTheToneWrapsAround) {
    tnMetronome::SetAudioMode(tnMetronome::kAudioOverlay);
    const double time = second_with(0.8) + 0.5;
    const auto samples = overlay16(time, 480, 32767);
    bool wrapped = false;
    for (int i = 0; i < 480; ++i) {
        const auto sum = 32767u + static_cast<unsigned int>(static_cast<int>(plain_tone(time, i)));
        const auto expected = static_cast<std::int16_t>(static_cast<std::uint16_t>(sum));
        EXPECT_EQ(samples[static_cast<std::size_t>(i)], expected);
        wrapped |= expected < 0;
    }
    EXPECT_TRUE(wrapped);
}

TEST_F(tnMetronomeTest, ToneGoesIntoEveryChannel) {
    const double time = second_with(0.8) + 0.5;
    const auto mono = overlay16(time, 100);
    const auto many = overlay16(time, 100, 0, 6);
    for (std::size_t i = 0; i < many.size(); ++i) EXPECT_EQ(many[i], mono[i / 6]);
}

TEST_F(tnMetronomeTest, FloatsTakeTheUnroundedTone) {
    tnMetronome::SetAudioMode(tnMetronome::kAudioOverlay);
    const double time = second_with(0.8) + 0.5;
    std::vector<float> samples(2 * 300, 0.25F);
    tnMetronome::AudioOverlay(time, samples.data(), 300, {'fl32', kRate, 2});
    for (int i = 0; i < 600; ++i) {
        const auto added = static_cast<float>(plain_tone(time, i / 2) * 3.0517578125e-5);
        EXPECT_EQ(samples[static_cast<std::size_t>(i)], 0.25F + added);
    }
}

TEST_F(tnMetronomeTest, HalfOfAFloatBlockIsCleared) {
    const int second = second_with(0.1);
    std::vector<float> samples(2 * 300, 0.25F);
    const auto middle = samples.begin() + 300;
    tnMetronome::SetAudioMode(tnMetronome::kAudioClear);
    tnMetronome::AudioOverlay(second + 0.5, samples.data(), 300, {'fl32', kRate, 2});
    EXPECT_TRUE(std::all_of(samples.begin(), middle, [](float s) { return s == 0; }));
    EXPECT_TRUE(std::all_of(middle, samples.end(), [](float s) { return s == 0.25F; }));
    tnMetronome::SetAudioMode(tnMetronome::kAudioReplace);
    samples.assign(600, 0.25F);
    const double on = second + 0.05;
    tnMetronome::AudioOverlay(on, samples.data(), 300, {'fl32', kRate, 2});
    for (const int i : {5, 450}) {
        const auto tone = static_cast<float>(plain_tone(on, i / 2) * 3.0517578125e-5);
        EXPECT_EQ(samples[static_cast<std::size_t>(i)], (i < 300 ? 0.0F : 0.25F) + tone);
    }
}

TEST_F(tnMetronomeTest, OtherSoundFormatsAreClearedAndGetNoTone) {
    const int second = second_with(0.1);
    std::vector<unsigned char> bytes(4 * 50, 9);
    const std::vector<unsigned char> kept = bytes;
    const pm::AudioFormat in24{'in24', kRate, 1};
    tnMetronome::AudioOverlay(second + 0.5, bytes.data(), 50, in24);
    EXPECT_EQ(bytes, kept);
    tnMetronome::AudioOverlay(second + 0.05, bytes.data(), 50, in24);
    EXPECT_TRUE(std::all_of(bytes.begin(), bytes.begin() + 100, [](auto b) { return b == 0; }));
    EXPECT_TRUE(std::all_of(bytes.begin() + 100, bytes.end(), [](auto b) { return b == 9; }));
    tnMetronome::SetAudioMode(tnMetronome::kAudioOverlay);
    bytes = kept;
    tnMetronome::AudioOverlay(second + 0.05, bytes.data(), 50, in24);
    EXPECT_EQ(bytes, kept);
}

TEST_F(tnMetronomeTest, BlocksThatAreNoneStayAsTheyAre) {
    const double time = second_with(0.8) + 0.5;
    std::int16_t sample = 77;
    tnMetronome::AudioOverlay(time, &sample, 0, kMono16);
    tnMetronome::AudioOverlay(time, &sample, -1, kMono16);
    tnMetronome::AudioOverlay(time, &sample, 1, {'sowt', kRate, 0});
    tnMetronome::AudioOverlay(time, &sample, 1, {'sowt', kRate, -1});
    EXPECT_EQ(sample, 77);
    tnMetronome::AudioOverlay(time, &sample, 1, {'sowt', 0, 1});
    EXPECT_EQ(sample, 0);  // no rate, no tone; it is cleared all the same
}

// Picture.

class Frame {
public:
    Frame(int rowBytes, int rows)
        : fRowBytes(rowBytes), fBytes(static_cast<std::size_t>(rowBytes) * rows, 7) {}

    void Overlay(double time, unsigned int format) {
        tnMetronome::VideoOverlay(time, fBytes.data(), fRowBytes, {format, 64, 64});
    }
    int At(int x, int y) const { return fBytes[static_cast<std::size_t>(y) * fRowBytes + x]; }
    bool IsUntouched() const {
        return std::all_of(fBytes.begin(), fBytes.end(), [](auto b) { return b == 7; });
    }

private:
    int fRowBytes;
    std::vector<unsigned char> fBytes;
};

/// What a byte of the box is, `pixel` bytes a pixel.
int expected_at(int x, int y, int pixel) {
    if (y >= 64 || x >= 64 * pixel) return 7;
    const bool hollow = y >= 10 && y < 54 && x >= 10 * pixel && x < 54 * pixel;
    return hollow ? 0 : 0xFF;
}

TEST_F(tnMetronomeTest, BoxStandsInTheTopLeftCorner) {
    const double time = second_with(0.1) + 0.05;
    struct Case {
        unsigned int fFormat;
        int fPixel;
    };
    // Only 'rgba' counts as four bytes a pixel: in its likes the box is half as wide.
    for (const Case& c : {Case{'rgba', 4}, Case{'2vuy', 2}, Case{'yuvs', 2}, Case{'argb', 2}}) {
        Frame frame(300, 70);
        frame.Overlay(time, c.fFormat);
        for (int y = 0; y < 70; ++y) {
            for (int x = 0; x < 300; ++x) ASSERT_EQ(frame.At(x, y), expected_at(x, y, c.fPixel));
        }
    }
}

TEST_F(tnMetronomeTest, BoxIsNotPaintedBetweenPulsesNorIntoShortRows) {
    const int second = second_with(0.1);
    Frame frame(256, 64);
    frame.Overlay(second + 0.5, 'rgba');
    EXPECT_TRUE(frame.IsUntouched());
    Frame narrow(255, 64);
    narrow.Overlay(second + 0.05, '2vuy');
    EXPECT_TRUE(narrow.IsUntouched());
    frame.Overlay(second + 0.05, 'rgba');
    EXPECT_EQ(frame.At(255, 63), 0xFF);
}

TEST_F(tnMetronomeTest, BoxGoesUpwardsInAFrameThatIsStoredBottomUp) {
    std::vector<unsigned char> bytes(256 * 64, 7);
    tnMetronome::VideoOverlay(second_with(0.1) + 0.05, bytes.data() + 63 * 256, -256,
                              {'rgba', 64, 64});
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 256; ++x) {
            ASSERT_EQ(bytes[static_cast<std::size_t>(63 - y) * 256 + x], expected_at(x, y, 4));
        }
    }
}

TEST_F(tnMetronomeTest, ThreadsMayAskAndSetAtOnce) {
    std::thread setter([] {
        for (int i = 0; i < 1000; ++i) {
            tnMetronome::SetAudioMode(static_cast<tnMetronome::AudioMode>(i % 3));
            tnMetronome::SetInjectionPoint(static_cast<tnMetronome::InjectionPoint>(i % 3));
        }
    });
    for (int i = 0; i < 200; ++i) {
        overlay16(i * 0.01, 48);
        tnMetronome::InjectAt(tnMetronome::kInjectRenderer);
    }
    setter.join();
}

}  // namespace
