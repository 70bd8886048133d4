#include "tarn/sync/tnSyncDTMF.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

constexpr int kRows = 4;
constexpr int kBlockPer8000 = 92;  // samples, for each whole 8000 of the rate

constexpr double kLeastPower = 400000.0;
constexpr double kColumnTwist = 2.5;  // a column's tone over its row's, in power
constexpr double kRowTwist = 6.3;     // a row's over its column's
constexpr double kLoud = 1e9;
constexpr double kThirdToneLoud = 0.158;  // of the louder tone's power
constexpr double kThirdToneQuiet = 0.01;

}  // namespace

int tnSyncDTMF::BlockSize(int rate) {
    return std::max(rate, 0) / 8000 * kBlockPer8000;
}

void tnSyncDTMF::changeSampleRate(int rate) {
    fSampleRate = rate;
    fBlockFill = 0;
    fBlockSize = BlockSize(rate);
    for (int tone = 0; tone < kTones; ++tone) {
        fQ1[tone] = 0;
        fQ2[tone] = 0;
        fPower[tone] = 0;
        fCoefficient[tone] = 2.0 * std::cos(2.0 * M_PI * kFreqDTMF[tone] / rate);
    }
}

char tnSyncDTMF::processSample(unsigned short sample) {
    if (fBlockSize < 1) return 0;  // a rate below 8000
    ++fBlockFill;
    for (int tone = 0; tone < kTones; ++tone) {
        const double q0 = fCoefficient[tone] * fQ1[tone] - fQ2[tone] + sample;
        fQ2[tone] = fQ1[tone];
        fQ1[tone] = q0;
    }
    if (fBlockFill != fBlockSize) return 0;
    fBlockFill = 0;
    for (int tone = 0; tone < kTones; ++tone) {
        fPower[tone] = fQ1[tone] * fQ1[tone] + fQ2[tone] * fQ2[tone] -
                       fCoefficient[tone] * fQ1[tone] * fQ2[tone];
        fQ1[tone] = 0;
        fQ2[tone] = 0;
    }
    return detectDTMF();
}

char tnSyncDTMF::detectDTMF() const {
    const double* columns = fPower + kRows;
    const auto row = std::max_element(fPower, columns) - fPower;
    const auto column = std::max_element(columns, fPower + kTones) - columns;
    const double rowPower = fPower[row];
    const double columnPower = columns[column];
    if (rowPower < kLeastPower || columnPower < kLeastPower) return 0;
    if (columnPower > kColumnTwist * rowPower || rowPower > kRowTwist * columnPower) return 0;
    const double louder = std::max(rowPower, columnPower);
    const double threshold = louder * (louder > kLoud ? kThirdToneLoud : kThirdToneQuiet);
    const auto heard =
        std::count_if(fPower, fPower + kTones, [&](double power) { return power > threshold; });
    return heard > 2 ? 0 : kAsciiDTMF[row * 4 + column];
}

double tnSyncDTMF::AudioStereoPCM16(double time, int sampleRate, const void* samples, int frames) {
    if (sampleRate != fSampleRate) changeSampleRate(sampleRate);
    // Unsigned on purpose: what lies below zero is read as a loud sample above it, and the powers
    // above are levels of that scale.
    const auto* left = static_cast<const std::uint16_t*>(samples);
    for (int frame = 0; frame < frames; ++frame, left += 2) {
        if (processSample(*left) != 0) return time + frame * (1000.0 / sampleRate);
    }
    return 0.0;
}
