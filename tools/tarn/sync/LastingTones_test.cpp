#include "LastingTones.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "tarn/sync/toneSupport.h"

namespace {

constexpr int kRate = 48000;
constexpr long long kBlock = 552;

std::vector<ToneSpan> spans_of(const tones::Stereo& sound) {
    LastingTones found(kRate);
    found.Add(sound.data(), static_cast<long long>(sound.size() / 2), 2);
    return found.Spans();
}

TEST(LastingTones, TonesLieWithinTheirSpans) {
    tones::Stereo sound = tones::Silence(kRate);
    for (const char digit : {'1', '#', 'D'}) {
        tones::operator+=(sound, tones::Digit(digit, kRate, kRate / 5));
        tones::operator+=(sound, tones::Silence(kRate));
    }
    const auto spans = spans_of(sound);
    ASSERT_EQ(spans.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        const long long begin = kRate + static_cast<long long>(i) * (kRate + kRate / 5);
        EXPECT_LE(spans[i].begin, begin);
        EXPECT_GE(spans[i].begin, begin - 3 * kBlock);
        EXPECT_GE(spans[i].end, begin + kRate / 5 - kBlock);
        EXPECT_LE(spans[i].end, begin + kRate / 5 + 2 * kBlock);
    }
}

TEST(LastingTones, ShortOnesAreNone) {
    for (const int blocks : {1, 3, 5}) {
        tones::Stereo sound = tones::Silence(kRate);
        tones::operator+=(sound, tones::Digit('#', kRate, blocks * static_cast<int>(kBlock)));
        tones::operator+=(sound, tones::Silence(kRate));
        EXPECT_TRUE(spans_of(sound).empty()) << blocks;
    }
}

TEST(LastingTones, ChangingDigitsAreNone) {
    tones::Stereo sound = tones::Silence(kRate);
    for (int i = 0; i < 40; ++i) {
        const char digit = "123A456B789C*0#D"[i % 16];
        tones::operator+=(sound, tones::Digit(digit, kRate, static_cast<int>(kBlock)));
    }
    EXPECT_TRUE(spans_of(sound).empty());
}

TEST(LastingTones, TonesThatMeetAreOneSpan) {
    tones::Stereo sound = tones::Digit('1', kRate, kRate / 5);
    tones::operator+=(sound, tones::Digit('9', kRate, kRate / 5));
    const auto spans = spans_of(sound);
    ASSERT_EQ(spans.size(), 1u);
    EXPECT_LE(spans[0].begin, 0);
    EXPECT_GE(spans[0].end, 2 * kRate / 5 - kBlock);
}

TEST(LastingTones, NoiseHoldsNone) {
    std::mt19937 random(11);
    for (const int loudness : {2, 300, 20000}) {
        std::uniform_int_distribution<int> noise(-loudness, loudness);
        tones::Stereo sound = tones::Silence(20 * kRate);
        for (auto& sample : sound) sample = static_cast<std::int16_t>(noise(random));
        EXPECT_TRUE(spans_of(sound).empty()) << loudness;
    }
}

TEST(LastingTones, SoundMayBeMonoAndComeInPieces) {
    tones::Stereo sound = tones::Silence(kRate / 2);
    tones::operator+=(sound, tones::Digit('5', kRate, kRate / 5));
    std::vector<short> left;
    for (std::size_t i = 0; i < sound.size(); i += 2) left.push_back(sound[i]);
    LastingTones found(kRate);
    for (std::size_t at = 0; at < left.size(); at += 100) {
        found.Add(left.data() + at,
                  static_cast<long long>(std::min<std::size_t>(100, left.size() - at)), 1);
    }
    EXPECT_EQ(found.Spans().size(), 1u);
}

}  // namespace
