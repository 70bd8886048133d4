#include "tarn/sync/tnSyncDTMF.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "tarn/sync/toneSupport.h"

#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

/// Looks at and sets what the detector keeps to itself.
struct tnSyncDTMFPeek {
    static int Rate(const tnSyncDTMF& detector) { return detector.fSampleRate; }
    static int BlockSize(const tnSyncDTMF& detector) { return detector.fBlockSize; }
    static int BlockFill(const tnSyncDTMF& detector) { return detector.fBlockFill; }
    static double* Powers(tnSyncDTMF& detector) { return detector.fPower; }
    static double State(const tnSyncDTMF& detector) {
        double sum = 0;
        for (int i = 0; i < tnSyncDTMF::kTones; ++i) {
            sum += std::fabs(detector.fQ1[i]) + std::fabs(detector.fQ2[i]) + detector.fPower[i];
        }
        return sum;
    }
};

namespace {

using Peek = tnSyncDTMFPeek;
using tones::Stereo;

constexpr int kRate = 48000;
constexpr int kBlock = 552;

/// Every digit that the sound holds by the detector's own blocks, a '.' for blocks without one.
std::string heard_in(const Stereo& sound, int rate) {
    tnSyncDTMF detector;
    detector.changeSampleRate(rate);
    std::string heard;
    for (std::size_t i = 0; i < sound.size(); i += 2) {
        const char digit = detector.processSample(static_cast<unsigned short>(sound[i]));
        if (Peek::BlockFill(detector) == 0) heard += digit != 0 ? digit : '.';
    }
    return heard;
}

TEST(tnSyncDTMF, KeypadIsThatOfATelephone) {
    const std::vector<double> expected = {697, 770, 852, 941, 1209, 1336, 1477, 1633};
    EXPECT_EQ(
        std::vector<double>(std::begin(tnSyncDTMF::kFreqDTMF), std::end(tnSyncDTMF::kFreqDTMF)),
        expected);
    EXPECT_STREQ(tnSyncDTMF::kAsciiDTMF, "123A456B789C*0#D");
    EXPECT_EQ(tnSyncDTMF::kAsciiDTMF[1 * 4 + 1], '5');
}

TEST(tnSyncDTMF, BlockSizeFollowsTheWhole8000sOfTheRate) {
    tnSyncDTMF detector;
    EXPECT_EQ(Peek::Rate(detector), -1);
    struct Case {
        int fRate, fBlock;
    };
    for (const Case& c : {Case{8000, 92}, Case{44100, 460}, Case{48000, 552}, Case{15999, 92},
                          Case{16000, 184}, Case{96000, 1104}, Case{7999, 0}, Case{0, 0}}) {
        detector.changeSampleRate(c.fRate);
        EXPECT_EQ(Peek::BlockSize(detector), c.fBlock) << c.fRate;
        EXPECT_EQ(Peek::Rate(detector), c.fRate);
        EXPECT_EQ(tnSyncDTMF::BlockSize(c.fRate), c.fBlock);
    }
}

TEST(tnSyncDTMF, NewRateStartsOver) {
    tnSyncDTMF detector;
    const Stereo sound = tones::Digit('5', kRate, kBlock + 100);
    EXPECT_NE(detector.AudioStereoPCM16(1, kRate, sound.data(), kBlock), 0.0);
    detector.AudioStereoPCM16(1, kRate, sound.data(), 100);
    EXPECT_EQ(Peek::BlockFill(detector), 100);
    EXPECT_GT(Peek::State(detector), 0);
    detector.changeSampleRate(44100);
    EXPECT_EQ(Peek::BlockFill(detector), 0);
    EXPECT_EQ(Peek::State(detector), 0);
    // The same rate goes on where it was.
    detector.AudioStereoPCM16(1, 44100, sound.data(), 100);
    detector.AudioStereoPCM16(1, 44100, sound.data(), 100);
    EXPECT_EQ(Peek::BlockFill(detector), 200);
    detector.AudioStereoPCM16(1, kRate, sound.data(), 50);
    EXPECT_EQ(Peek::BlockFill(detector), 50);
}

TEST(tnSyncDTMF, PowersAreThoseOfTheUnsignedSamples) {
    std::mt19937 random(3);
    for (const int rate : {8000, 44100, kRate}) {
        tnSyncDTMF detector;
        detector.changeSampleRate(rate);
        const int size = Peek::BlockSize(detector);
        std::vector<unsigned short> samples(static_cast<std::size_t>(size));
        for (auto& sample : samples) sample = static_cast<unsigned short>(random());
        for (const auto sample : samples) detector.processSample(sample);
        EXPECT_EQ(Peek::BlockFill(detector), 0);
        for (int tone = 0; tone < tnSyncDTMF::kTones; ++tone) {
            std::complex<long double> sum = 0;
            const long double step = 2 * M_PIl * tnSyncDTMF::kFreqDTMF[tone] / rate;
            for (int i = 0; i < size; ++i) {
                sum += static_cast<long double>(samples[static_cast<std::size_t>(i)]) *
                       std::polar(1.0L, -step * i);
            }
            const auto expected = static_cast<double>(std::norm(sum));
            EXPECT_NEAR(Peek::Powers(detector)[tone], expected, 1e-6 * expected + 1);
        }
    }
}

TEST(tnSyncDTMF, NegativeSamplesCountAsLargePositiveOnes) {
    // A square wave of -1 and 0 is a swing of 65535, and its row and column are heard.
    Stereo sound = tones::Digit('9', kRate, 8 * kBlock, 1.0, 1.0);
    for (auto& sample : sound) EXPECT_LE(std::abs(sample), 1);
    EXPECT_NE(heard_in(sound, kRate).find('9'), std::string::npos);
}

struct PowerCase {
    const char* fName;
    double fPower[8];
    char fDigit;
};

TEST(tnSyncDTMF, PowersAreJudged) {
    constexpr double kLow = 1e6;    // the quiet threshold is a hundredth of the louder tone
    constexpr double kHigh = 1e12;  // the loud one 0.158 of it
    const PowerCase kCases[] = {
        {"silence", {}, 0},
        {"a row alone", {kLow, 0, 0, 0, 0, 0, 0, 0}, 0},
        {"a column alone", {0, 0, 0, 0, kLow, 0, 0, 0}, 0},
        {"both at the least power", {400000, 0, 0, 0, 400000, 0, 0, 0}, '1'},
        {"row below it", {399999, 0, 0, 0, 400000, 0, 0, 0}, 0},
        {"column below it", {400000, 0, 0, 0, 399999, 0, 0, 0}, 0},
        {"column 2.5 times the row", {kLow, 0, 0, 0, 2.5 * kLow, 0, 0, 0}, '1'},
        {"column above that", {kLow, 0, 0, 0, 2.51 * kLow, 0, 0, 0}, 0},
        {"row 6.3 times the column", {6.3 * kLow, 0, 0, 0, kLow, 0, 0, 0}, '1'},
        {"row above that", {6.31 * kLow, 0, 0, 0, kLow, 0, 0, 0}, 0},
        {"third tone at a hundredth", {kLow, 0.01 * kLow, 0, 0, kLow, 0, 0, 0}, '1'},
        {"third tone above it", {kLow, 0.0101 * kLow, 0, 0, kLow, 0, 0, 0}, 0},
        {"loud third tone at 0.158", {kHigh, 0, 0, 0, kHigh, 0, 0.158 * kHigh, 0}, '1'},
        {"loud third tone above it", {kHigh, 0, 0, 0, kHigh, 0, 0.159 * kHigh, 0}, 0},
        {"loud is above 1e9", {1e9, 0.1e9, 0, 0, 1e9, 0, 0, 0}, 0},
        {"a little above 1e9", {1.001e9, 0.1e9, 0, 0, 1e9, 0, 0, 0}, '1'},
        {"the column may be the louder", {kHigh, 0.2 * kHigh, 0, 0, 2 * kHigh, 0, 0, 0}, '1'},
        {"equal rows: one is a third tone", {kLow, 0, kLow, 0, kLow, 0, 0, 0}, 0},
        {"everything alike", {kLow, kLow, kLow, kLow, kLow, kLow, kLow, kLow}, 0},
    };
    for (const PowerCase& c : kCases) {
        tnSyncDTMF detector;
        std::copy(std::begin(c.fPower), std::end(c.fPower), Peek::Powers(detector));
        EXPECT_EQ(detector.detectDTMF(), c.fDigit) << c.fName;
    }
}

TEST(tnSyncDTMF, EveryRowAndColumnHasItsDigit) {
    for (int digit = 0; digit < 16; ++digit) {
        tnSyncDTMF detector;
        Peek::Powers(detector)[digit / 4] = 1e12;
        Peek::Powers(detector)[4 + digit % 4] = 1e12;
        EXPECT_EQ(detector.detectDTMF(), "123A456B789C*0#D"[digit]);
    }
}

TEST(tnSyncDTMF, FullScaleFiveIsFarAboveTheLimits) {
    tnSyncDTMF detector;
    detector.changeSampleRate(kRate);
    const Stereo sound = tones::Digit('5', kRate, 40 * kBlock, 32767, 1.0);
    EXPECT_NE(heard_in(sound, kRate).find('5'), std::string::npos);
    for (int i = 0; i < kBlock; ++i) {
        detector.processSample(static_cast<unsigned short>(sound[static_cast<std::size_t>(i) * 2]));
    }
    EXPECT_GT(Peek::Powers(detector)[1], 1000 * 400000.0);
    EXPECT_GT(Peek::Powers(detector)[5], 1000 * 400000.0);
}

TEST(tnSyncDTMF, OnlyTheLeftChannelIsHeard) {
    Stereo sound = tones::Digit('7', kRate, 4 * kBlock);
    tnSyncDTMF left;
    EXPECT_NE(left.AudioStereoPCM16(10, kRate, sound.data(), 4 * kBlock), 0.0);
    for (std::size_t i = 0; i < sound.size(); i += 2) std::swap(sound[i], sound[i + 1]);
    tnSyncDTMF right;
    EXPECT_EQ(right.AudioStereoPCM16(10, kRate, sound.data(), 4 * kBlock), 0.0);
}

TEST(tnSyncDTMF, TimeIsThatOfTheFrameThatEndsTheBlock) {
    tnSyncDTMF detector;
    const Stereo sound = tones::Digit('D', kRate, 2 * kBlock);
    EXPECT_EQ(detector.AudioStereoPCM16(1000, kRate, sound.data(), 2 * kBlock),
              1000 + (kBlock - 1) * (1000.0 / kRate));
    // What followed the digit was not taken in: the next block of the detector is a whole one.
    EXPECT_EQ(Peek::BlockFill(detector), 0);
    EXPECT_EQ(detector.AudioStereoPCM16(2000, kRate, sound.data(), kBlock - 1), 0.0);
    EXPECT_EQ(detector.AudioStereoPCM16(3000, kRate, sound.data() + 2 * (kBlock - 1), 1), 3000.0);
}

TEST(tnSyncDTMF, BlocksThatHoldNothingGiveNothing) {
    tnSyncDTMF detector;
    const Stereo sound = tones::Digit('D', kRate, kBlock);
    EXPECT_EQ(detector.AudioStereoPCM16(1000, kRate, sound.data(), 0), 0.0);
    EXPECT_EQ(detector.AudioStereoPCM16(1000, kRate, sound.data(), -5), 0.0);
    EXPECT_EQ(detector.AudioStereoPCM16(1000, kRate, tones::Silence(kRate).data(), kRate), 0.0);
}

TEST(tnSyncDTMF, SoundMayComeInPiecesOfAnySize) {
    Stereo sound = tones::Silence(1234);
    tones::operator+=(sound, tones::Digit('B', kRate, 6 * kBlock));
    const int frames = static_cast<int>(sound.size() / 2);
    tnSyncDTMF whole;
    const double expected = whole.AudioStereoPCM16(500, kRate, sound.data(), frames);
    EXPECT_GT(expected, 500.0);
    for (const int piece : {1, 7, 100, kBlock, 1024}) {
        tnSyncDTMF detector;
        double found = 0;
        for (int at = 0; at < frames && found == 0; at += piece) {
            const double time = 500 + at * (1000.0 / kRate);
            found = detector.AudioStereoPCM16(time, kRate, sound.data() + 2 * at,
                                              std::min(piece, frames - at));
        }
        EXPECT_NEAR(found, expected, 1e-9) << piece;
    }
}

TEST(tnSyncDTMF, RatesBelow8000HearNothing) {
    for (const int rate : {7999, 4000, 0, -1, -48000}) {
        tnSyncDTMF detector;
        const Stereo sound = tones::Digit('5', 4000, 20000);
        EXPECT_EQ(detector.AudioStereoPCM16(1, rate, sound.data(), 20000), 0.0) << rate;
    }
    tnSyncDTMF fresh;
    EXPECT_EQ(fresh.processSample(5), 0);  // not told a rate yet
}

TEST(tnSyncDTMF, NoiseAroundZeroHasPowerEverywhereAndIsRejectedForIt) {
    // Read as unsigned, sign changes are large swings. A block in a hundred or so passes by chance.
    std::mt19937 random(5);
    std::uniform_int_distribution<int> quiet(-3, 3);
    tnSyncDTMF detector;
    detector.changeSampleRate(kRate);
    int passed = 0;
    int rejectedForPower = 0;
    constexpr int kBlocks = 2000;
    for (int block = 0; block < kBlocks; ++block) {
        for (int i = 0; i < kBlock; ++i) {
            passed += detector.processSample(static_cast<unsigned short>(quiet(random))) != 0;
        }
        const double* powers = Peek::Powers(detector);
        rejectedForPower += *std::max_element(powers, powers + 4) < 400000 ||
                            *std::max_element(powers + 4, powers + 8) < 400000;
    }
    EXPECT_EQ(rejectedForPower, 0);
    EXPECT_LT(passed, kBlocks / 40);
}

// Digits that another program made.

/// A quarter of a second of two of sox's sines, the same in both channels.
Stereo sox_tones(const tests::TestFolder& folder, int rate, double row, double column,
                 double rowLevel, double columnLevel) {
    const std::string file = folder.File("tone.raw");
    const std::string mix = "1v" + std::to_string(rowLevel) + ",2v" + std::to_string(columnLevel);
    const auto result = tests::Run({"sox",
                                    "-D",
                                    "-n",
                                    "-r",
                                    std::to_string(rate),
                                    "-c",
                                    "2",
                                    "-b",
                                    "16",
                                    "-e",
                                    "signed-integer",
                                    "-L",
                                    "-t",
                                    "raw",
                                    file,
                                    "synth",
                                    "0.25",
                                    "sine",
                                    std::to_string(row),
                                    "sine",
                                    std::to_string(column),
                                    "remix",
                                    mix,
                                    mix});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    std::ifstream in(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Stereo sound(bytes.size() / sizeof(std::int16_t));
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char*>(sound.data()));
    EXPECT_EQ(sound.size(), 2 * static_cast<std::size_t>(rate / 4));
    return sound;
}

std::string heard_from_sox(const tests::TestFolder& folder, int digit, int rate, double peakDb,
                           double twistDb) {
    const double twist = std::pow(10, twistDb / 20);
    const double rowLevel = std::pow(10, peakDb / 20) / (1 + twist);
    const Stereo sound =
        sox_tones(folder, rate, tnSyncDTMF::kFreqDTMF[digit / 4],
                  tnSyncDTMF::kFreqDTMF[4 + digit % 4], rowLevel, rowLevel * twist);
    return heard_in(sound, rate);
}

class tnSyncDTMFSox : public testing::TestWithParam<int> {};

// All sixteen digits from -12 dB of full scale down to -60, the column from 3 dB below the row to 1
// dB above. Louder tones are bent by reading the samples as unsigned.
TEST_P(tnSyncDTMFSox, DigitsAreHeardAtTheirLevelsAndTwists) {
    const tests::TestFolder folder;
    for (const double peakDb : {-12.0, -20.0, -40.0, -60.0}) {
        for (const double twistDb : {-3.0, -1.0, 1.0}) {
            for (int digit = 0; digit < 16; ++digit) {
                const std::string heard =
                    heard_from_sox(folder, digit, GetParam(), peakDb, twistDb);
                const std::string known = {tnSyncDTMF::kAsciiDTMF[digit], '.'};
                EXPECT_NE(heard.find(known[0]), std::string::npos)
                    << known[0] << " at " << peakDb << " dB, twist " << twistDb;
                EXPECT_EQ(heard.find_first_not_of(known), std::string::npos)
                    << heard << " for " << known[0] << " at " << peakDb << " dB, twist " << twistDb;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, tnSyncDTMFSox,
                         testing::Values(8000, 16000, 32000, 44100, 48000, 96000));

TEST(tnSyncDTMF, TooMuchTwistIsNotADigit) {
    const tests::TestFolder folder;
    for (const double twistDb : {-12.0, -9.0, 5.0, 8.0}) {
        for (int digit = 0; digit < 16; ++digit) {
            const std::string heard = heard_from_sox(folder, digit, kRate, -20, twistDb);
            EXPECT_EQ(heard, std::string(heard.size(), '.')) << digit << ", twist " << twistDb;
        }
    }
}

TEST(tnSyncDTMF, SingleTonesAreNotDigits) {
    const tests::TestFolder folder;
    for (const double hertz : {440.0, 697.0, 1000.0, 1209.0, 1633.0, 2000.0}) {
        const std::string heard =
            heard_in(sox_tones(folder, kRate, hertz, hertz, 0.05, 0.05), kRate);
        EXPECT_EQ(heard, std::string(heard.size(), '.')) << hertz;
    }
}

}  // namespace
