#include "tarn/sync/tnMetronome.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>

namespace {

constexpr double kLongPulse = 0.8;   // seconds
constexpr double kShortPulse = 0.1;  // seconds

constexpr unsigned int kInt16 = 'sowt';
constexpr unsigned int kFloat32 = 'fl32';

constexpr double kToneTurn = 6283.185307179586;  // radians a second: 1000 Hz
constexpr double kToneHeight = 9750.0;
constexpr double kFloatOfInt16 = 3.0517578125e-5;
constexpr int kRamp = 255;  // samples from silence to the full tone

constexpr unsigned int kShortestRow = 256;  // bytes
constexpr int kBoxSide = 64;                // pixels
constexpr int kBoxRim = 10;                 // pixels

/// Toward zero; 0 for what no 64-bit integer holds.
long long whole(double value) {
    constexpr double kFar = 9.2e18;
    return value > -kFar && value < kFar ? static_cast<long long>(value) : 0;
}

void add(std::int16_t& sample, double value) {
    // Wraps: a loud block under the tone shows that it is a test, and not a mix.
    const auto raised =
        static_cast<unsigned int>(sample) + static_cast<unsigned int>(static_cast<int>(value));
    sample = static_cast<std::int16_t>(static_cast<std::uint16_t>(raised));
}

void add(float& sample, double value) {
    sample += static_cast<float>(value * kFloatOfInt16);
}

/// The tone over one block: its phase and how it swells and dies.
struct Tone {
    std::uint32_t fSample;  // counts on the host's time line, modulo 2^32
    long long fRise;
    long long fFall;
    int fSampleRate;

    double Next() {
        const double height = std::sin(fSample * kToneTurn / fSampleRate) * kToneHeight;
        const double value = height * share(fRise) * share(fFall);
        ++fSample;
        ++fRise;
        --fFall;
        return value;
    }

private:
    static double share(long long step) {
        return static_cast<double>(std::clamp<long long>(step, 0, kRamp)) / 255.0;
    }
};

template <typename Sample>
void add_tone(Tone tone, void* samples, int frames, int channels) {
    auto* sample = static_cast<Sample*>(samples);
    for (int frame = 0; frame < frames; ++frame) {
        const double value = tone.Next();
        for (int channel = 0; channel < channels; ++channel) add(*sample++, value);
    }
}

Tone tone_of(double time, double start, double stop, int frames, int sampleRate) {
    const double blockTime = static_cast<double>(frames) / sampleRate;
    // Twice the block, also where no end is near: blocks of less than the ramp stay below the full
    // tone, and receivers that were tuned to such blocks go by that height.
    Tone tone{static_cast<std::uint32_t>(whole(time * sampleRate)), kRamp, frames * 2LL,
              sampleRate};
    // A block that holds both ends of a pulse swells and does not die away.
    if (start > time - blockTime) {
        tone.fRise = 0;
    } else if (time + blockTime > stop) {
        tone.fFall = frames;
    }
    return tone;
}

}  // namespace

std::atomic<tnMetronome::InjectionPoint> tnMetronome::gInjectionPoint{kInjectNone};
std::atomic<tnMetronome::AudioMode> tnMetronome::gAudioMode{kAudioReplace};

bool tnMetronome::SetInjectionPoint(InjectionPoint point) {
    return gInjectionPoint.exchange(point) != point;
}

bool tnMetronome::InjectAt(InjectionPoint point) {
    return (gInjectionPoint.load(std::memory_order_relaxed) & point) != 0;
}

bool tnMetronome::SetAudioMode(AudioMode mode) {
    return gAudioMode.exchange(mode) != mode;
}

tnMetronome::AudioMode tnMetronome::GetAudioMode() {
    return gAudioMode.load(std::memory_order_relaxed);
}

std::string tnMetronome::InjectionPointName(InjectionPoint point) {
    switch (point) {
        case kInjectNone:
            return "None";
        case kInjectTaskManager:
            return "Task Manager";
        case kInjectRenderer:
            return "Renderer";
    }
    return std::to_string(static_cast<int>(point));
}

std::string tnMetronome::AudioModeName(AudioMode mode) {
    switch (mode) {
        case kAudioReplace:
            return "Replace";
        case kAudioClear:
            return "Clear";
        case kAudioOverlay:
            return "Overlay";
    }
    return std::to_string(static_cast<int>(mode));
}

bool tnMetronome::SignalOn(double time, double* start, double* stop) {
    if (start == nullptr || stop == nullptr) return false;
    // Made anew each time: a second always draws the same pulse, whoever asks and wherever.
    // Before zero the seed truncates while the start rounds down, so that the seconds around zero
    // share a pulse; signals on both sides of zero have to agree on that.
    std::mt19937 engine(static_cast<std::uint32_t>(whole(time)));
    const double drawn = std::uniform_real_distribution<double>(0.0, 1.0)(engine);
    *start = std::floor(time);
    *stop = *start + (drawn > 0.5 ? kLongPulse : kShortPulse);
    return *stop > time && time >= *start;
}

void tnMetronome::AudioOverlay(double time, void* samples, int frames, pm::AudioFormat format) {
    const AudioMode mode = GetAudioMode();
    double start = 0;
    double stop = 0;
    const bool on = SignalOn(time, &start, &stop);
    if (mode == kAudioClear || (on && mode == kAudioReplace)) {
        // Two bytes a sample, also for floats: of those the second half of a block goes on under
        // the signal, and hosts that measure with floats hear their own sound there.
        const long long bytes = static_cast<long long>(frames) * format.channels * 2;
        if (bytes > 0) std::memset(samples, 0, static_cast<std::size_t>(bytes));
    }
    if (!on || format.sampleRate < 1) return;
    const Tone tone = tone_of(time, start, stop, frames, format.sampleRate);
    if (format.format == kInt16) {
        add_tone<std::int16_t>(tone, samples, frames, format.channels);
    } else if (format.format == kFloat32) {
        add_tone<float>(tone, samples, frames, format.channels);
    }
}

void tnMetronome::VideoOverlay(double time, void* pixels, int rowBytes, pm::VideoFormat format) {
    if (static_cast<unsigned int>(rowBytes) < kShortestRow) return;
    double start = 0;
    double stop = 0;
    if (!SignalOn(time, &start, &stop)) return;
    const std::size_t pixel = format.format == 'rgba' ? 4 : 2;
    const std::size_t rim = kBoxRim * pixel;
    const std::size_t side = kBoxSide * pixel;
    auto* row = static_cast<unsigned char*>(pixels);
    for (int line = 0; line < kBoxSide; ++line, row += rowBytes) {
        std::memset(row, 0xFF, side);
        if (line >= kBoxRim && line < kBoxSide - kBoxRim) std::memset(row + rim, 0, side - 2 * rim);
    }
}
