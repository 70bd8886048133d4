#include "SyncSignal.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "tarn/sync/tnMetronome.h"
#include "tarn/sync/tnSyncDTMF.h"
#include "tarn/writers/orbConversions.h"

#include "../ClipAudio.h"
#include "../ClipVideo.h"

using namespace Quillon::Orb;

namespace {

constexpr double kFirstPairSeconds = 1;
constexpr double kPairSeconds = 2;  // so that no tone comes near the flash of another pair
constexpr double kFlashSeconds = 0.1;
constexpr double kToneSeconds = 0.2;

constexpr int kRate = 48000;
constexpr int kChannels = 2;
constexpr int kBlock = kRate / 100;  // frames; a second begins with a block
constexpr double kMsPerSecond = 1000;

// The digit and the levels that tnSyncDTMF hears with the least doubt: always at the end of the
// first of its blocks that the tone fills to seven tenths.
constexpr int kDigitRow = 3;
constexpr int kDigitColumn = 6;
constexpr double kRowPeak = 1779;     // together 20 dB below full scale
constexpr double kColumnPeak = 1497;  // 1.5 dB below the row
constexpr int kRamp = 48;             // frames from silence to the tone: no click

constexpr int kPixel = 4;
constexpr unsigned char kGrey[kPixel] = {40, 40, 40, 255};  // blue, green, red, alpha
constexpr unsigned char kGreen[kPixel] = {0, 255, 0, 255};

class SignalPictures final : public ClipVideo {
public:
    explicit SignalPictures(const SignalOptions& options)
        : fOptions(options),
          fPairs(SignalPairs(options)),
          fFrames(std::llround(options.seconds * options.rate.PerSecond())),
          fFlashFrames(std::max(2LL, std::llround(kFlashSeconds * options.rate.PerSecond()))),
          fDark(picture(kGrey)),
          fFlash(picture(kGreen)) {
        fFormat.fWidth.SetInt32(options.width);
        fFormat.fHeight.SetInt32(options.height);
        fFormat.fColourspace.SetInt32('rgba');
        fFormat.SetBytesPerRowBasedOnFormat();
        fFormat.fFieldOrder.SetInt32(TN_FIELD_PROGRESSIVE);
        fFormat.fColorSpace.SetInt32(static_cast<int>(fFormat.GuessColorSpace()));
        fFormat.fNominalRange.SetInt32('full');
        fFormat.SetInt64('tmsc', options.rate.numerator);
        fFormat.SetUInt64('dura', static_cast<unsigned long long>(options.rate.denominator));
        fFormat.SetFloat('mfps', static_cast<float>(options.rate.PerSecond()));
        MediaRecordToVideoProperties(fFormat, fProperties);
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    double StartSeconds() const override { return 0; }
    double HeaderSeconds() const override { return fOptions.seconds; }
    bool Next(ClipFrame& frame) override;

private:
    std::vector<unsigned char> picture(const unsigned char* middle) const;

    const SignalOptions fOptions;
    const std::vector<SignalPair> fPairs;
    const long long fFrames;
    const long long fFlashFrames;
    const std::vector<unsigned char> fDark;
    const std::vector<unsigned char> fFlash;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
    RObject<CVideoProperties> fProperties;
    long long fNumber = 0;
    std::size_t fPair = 0;
};

/// Grey, with its inner half in another colour.
std::vector<unsigned char> SignalPictures::picture(const unsigned char* middle) const {
    std::vector<unsigned char> pixels;
    pixels.reserve(static_cast<std::size_t>(fOptions.width) * fOptions.height * kPixel);
    const auto inside = [](int place, int whole) {
        return place >= whole / 4 && place < whole - whole / 4;
    };
    for (int y = 0; y < fOptions.height; ++y) {
        for (int x = 0; x < fOptions.width; ++x) {
            const bool lit = inside(x, fOptions.width) && inside(y, fOptions.height);
            const unsigned char* colour = lit ? middle : kGrey;
            pixels.insert(pixels.end(), colour, colour + kPixel);
        }
    }
    return pixels;
}

bool SignalPictures::Next(ClipFrame& frame) {
    if (fNumber == fFrames) return false;
    RObject<CVideoSample> sample;
    if (CreateCPUVideoSample(sample, fProperties.Get()).Failed()) return false;
    frame.pixels = RObject<CPixelDataReference>(sample->GetDataReference<CPixelDataReference>());
    while (fPair < fPairs.size() && fNumber >= fPairs[fPair].frame + fFlashFrames) ++fPair;
    const bool lit = fPair < fPairs.size() && fNumber >= fPairs[fPair].frame;
    const unsigned char* from = lit ? fFlash.data() : fDark.data();
    const auto rowBytes = static_cast<std::size_t>(fOptions.width) * kPixel;
    unsigned char* const pixels = frame.pixels->GetData();
    const int stride = frame.pixels->GetStride();
    for (int y = 0; y < fOptions.height; ++y) {
        std::memcpy(pixels + static_cast<std::ptrdiff_t>(y) * stride,
                    from + rowBytes * static_cast<std::size_t>(y), rowBytes);
    }
    frame.time = fNumber * fOptions.rate.denominator;
    frame.duration = fOptions.rate.denominator;
    const double seconds =
        static_cast<double>(frame.time) / static_cast<double>(fOptions.rate.numerator);
    tnMetronome::VideoOverlay(seconds, pixels, stride, {'rgba', fOptions.width, fOptions.height});
    ++fNumber;
    return true;
}

class SignalSound final : public ClipAudio {
public:
    explicit SignalSound(const SignalOptions& options) : fPairs(SignalPairs(options)) {
        fFormat.MakeDefaultAudioFormat();
        fFormat.fAudioFormat.SetInt32('sowt');
    }

    const tnMediaRecord& Format() const override { return fFormat; }
    int SampleRate() const override { return kRate; }
    int Channels() const override { return kChannels; }
    void StartAt(double) override {}
    bool Next(std::vector<short>& pcm) override;

private:
    double digit_at(long long position);

    const std::vector<SignalPair> fPairs;
    tnMediaRecord fFormat{TN_MEDIA_AUDIO};
    long long fPosition = 0;
    std::size_t fPair = 0;
};

bool SignalSound::Next(std::vector<short>& pcm) {
    short right[kBlock] = {};
    const double seconds = static_cast<double>(fPosition) / kRate;
    tnMetronome::AudioOverlay(seconds, right, kBlock, {'sowt', kRate, 1});
    pcm.resize(static_cast<std::size_t>(kBlock) * kChannels);
    short* out = pcm.data();
    for (const short tone : right) {
        *out++ = static_cast<short>(std::lround(digit_at(fPosition++)));
        *out++ = tone;
    }
    return true;
}

double SignalSound::digit_at(long long position) {
    constexpr auto kLength = static_cast<long long>(kToneSeconds * kRate);
    const auto into = [&](const SignalPair& pair) {
        return position - std::llround(pair.toneSeconds * kRate);
    };
    while (fPair < fPairs.size() && into(fPairs[fPair]) >= kLength) ++fPair;
    if (fPair == fPairs.size()) return 0;
    const long long at = into(fPairs[fPair]);
    if (at < 0) return 0;
    const double turn = 2 * M_PI * static_cast<double>(at) / kRate;
    const double ramp = std::min(1.0, static_cast<double>(std::min(at, kLength - 1 - at)) / kRamp);
    return ramp * (kRowPeak * std::sin(tnSyncDTMF::kFreqDTMF[kDigitRow] * turn) +
                   kColumnPeak * std::sin(tnSyncDTMF::kFreqDTMF[kDigitColumn] * turn));
}

}  // namespace

std::vector<SignalPair> SignalPairs(const SignalOptions& options) {
    // Room for the latest tone, and for it to be heard out.
    constexpr double kTail = kLargestSignalOffsetMs / kMsPerSecond + kToneSeconds;
    const double rate = options.rate.PerSecond();
    std::vector<SignalPair> pairs;
    for (double at = kFirstPairSeconds; at + kTail <= options.seconds; at += kPairSeconds) {
        SignalPair pair;
        pair.frame = std::llround(at * rate);
        pair.flashSeconds = static_cast<double>(pair.frame) / rate;
        const double offsetMs = options.offsetsMs[pairs.size() % options.offsetsMs.size()];
        pair.toneSeconds = pair.flashSeconds - offsetMs / kMsPerSecond;
        pairs.push_back(pair);
    }
    return pairs;
}

std::unique_ptr<ClipVideo> MakeSignalPictures(const SignalOptions& options) {
    return std::make_unique<SignalPictures>(options);
}

std::unique_ptr<ClipAudio> MakeSignalSound(const SignalOptions& options) {
    return std::make_unique<SignalSound>(options);
}
